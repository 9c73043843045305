// SPDX-License-Identifier: Apache-2.0
// Reading and editing the agent's snmpd.conf: port, community, v1/v2c
// access, the engine id and the v3 users.
#include "services_test.h"

#include <libkv/services.h>

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <utility>
#include <vector>

namespace
{

using kv::services::test::kBaseSnmpdConf;
using kv::services::test::kSnmpdConf;
using kv::test::names_in;
using kv::test::write_text;

class SnmpConf : public testing::Test
{
  protected:
    // The sandbox's /etc may show the host's own file.
    void SetUp() override
    {
        std::filesystem::remove(kSnmpdConf);
        kv::test::make_dirs("/etc/snmp");
    }
    static std::string conf()
    {
        return kv::test::read_text(kSnmpdConf).value_or("<none>");
    }
};

TEST_F(SnmpConf, PortFromTheFirstLiveAgentaddressLine)
{
    for (const auto& [text, expected] :
         std::vector<std::pair<std::string, uint16_t>>{
             {"", 161},
             {"agentaddress udp:1161\n", 1161},
             {"agentaddress 10.0.0.1\n", 161},
             {"agentaddress 1161\n", 1161},
             {"#agentaddress 1\n  agentaddress 4161\nagentaddress 5161\n",
              4161}})
    {
        write_text(kSnmpdConf, text);
        uint16_t port = 0;
        EXPECT_EQ(0, snmp_service_port_get(&port));
        EXPECT_EQ(expected, port) << text;
    }
}

TEST_F(SnmpConf, PortSetReplacesTheFirstLiveLineOrAppends)
{
    write_text(kSnmpdConf, "#agentaddress 1\n agentaddress udp:161\n"
                           "agentaddress 9\n");
    const auto names = names_in("/etc/snmp");
    ASSERT_EQ(0, snmp_service_port_set(1161));
    EXPECT_EQ("#agentaddress 1\nagentaddress   1161\nagentaddress 9\n", conf());
    EXPECT_EQ(names, names_in("/etc/snmp")); // no scratch file left

    write_text(kSnmpdConf, "sysdescr x"); // no final newline
    ASSERT_EQ(0, snmp_service_port_set(2161));
    EXPECT_EQ("sysdescr x\nagentaddress   2161\n", conf());
}

// Same inode and modification time: the file was not rewritten.
TEST_F(SnmpConf, UnchangedSettingsLeaveTheFileAlone)
{
    write_text(kSnmpdConf, kBaseSnmpdConf);
    struct stat before = {};
    ASSERT_EQ(0, ::stat(kSnmpdConf, &before));
    EXPECT_EQ(0, snmp_service_port_set(161));
    EXPECT_EQ(0, snmp_community_set("public"));
    EXPECT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, false));
    struct stat after = {};
    ASSERT_EQ(0, ::stat(kSnmpdConf, &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ(kBaseSnmpdConf, conf());
}

// A community the getter could not read back whole, or that would start a
// line of its own, is refused.
TEST_F(SnmpConf, CommunityIsTheFourthTokenOfTheFirstDefaultLine)
{
    const std::string lines = "# com2sec a default old\n"
                              "com2sec local localhost private\n";
    write_text(kSnmpdConf, lines + "com2sec  n   default   public extra\n"
                                   "com2sec n default second\n");
    char text[8];
    ASSERT_EQ(0, snmp_community_get(text, sizeof text));
    EXPECT_STREQ("public", text);
    ASSERT_EQ(0, snmp_community_get(text, 4));
    EXPECT_STREQ("pub", text);

    for (const std::string& bad :
         {std::string(""), std::string("two words"),
          std::string("x\nrwcommunity evil"), std::string(128, 'c')})
    {
        EXPECT_EQ(-1, snmp_community_set(bad.c_str())) << bad;
    }
    ASSERT_EQ(0, snmp_community_set("s3cret"));
    EXPECT_EQ(lines + "com2sec  mynetwork   default   s3cret\n"
                      "com2sec n default second\n",
              conf());
    write_text(kSnmpdConf, lines);
    EXPECT_EQ(-1, snmp_community_get(text, sizeof text));
}

TEST_F(SnmpConf, EnablingPutsTheGroupLineBelowTheSecurityModelComment)
{
    write_text(kSnmpdConf, kBaseSnmpdConf);
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V2C, true));
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, true));
    std::string expected = kBaseSnmpdConf;
    const std::string header = "securityModel securityName\n";
    expected.insert(expected.find(header) + header.size(),
                    "group    my_group       v1            mynetwork\n"
                    "group    my_group       v2c           mynetwork\n");
    EXPECT_EQ(expected, conf());
    bool v1 = false;
    EXPECT_EQ(0, snmp_v1_status_get(&v1));
    EXPECT_TRUE(v1);

    write_text(kSnmpdConf, "view all included .1"); // no comment
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_DEFAULT, true));
    EXPECT_EQ("view all included .1\n"
              "group    my_group       v2c           mynetwork\n",
              conf());
    EXPECT_EQ(-1, snmp_ver_status_set(static_cast<SNMP_VERSION>(3), true));
}

TEST_F(SnmpConf, DisablingV1DropsEveryLiveGroupLineWithV1)
{
    write_text(kSnmpdConf, "#group g v1 n\ngroup g v1 n\ngroup v1net v2c n\n"
                           "  group g2 v1 n\ngroup g usm n\n");
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, false));
    EXPECT_EQ("#group g v1 n\ngroup g usm n\n", conf());
    bool v1 = true;
    EXPECT_EQ(0, snmp_v1_status_get(&v1));
    EXPECT_FALSE(v1);
}

TEST(SnmpProtocols, TextsIgnoreCaseWhenReadAndAreWrittenAsTabled)
{
    EXPECT_STREQ("SHA-256",
                 snmp_v3_authen_itoa(snmp_v3_authen_atoi("sha-256")));
    EXPECT_EQ(SNMP_V3_AUTHEN_SHA_256, snmp_v3_authen_atoi("sha-256"));
    EXPECT_EQ(SNMP_V3_AUTHEN_UNKNOWN, snmp_v3_authen_atoi("SHA256"));
    EXPECT_EQ(nullptr, snmp_v3_authen_itoa(SNMP_V3_AUTHEN_UNKNOWN));
    EXPECT_EQ(SNMP_V3_ENCRYPT_AES, snmp_v3_encrypt_atoi("aes"));
    EXPECT_EQ(SNMP_V3_ENCRYPT_UNKNOWN, snmp_v3_encrypt_atoi("none"));
}

TEST_F(SnmpConf, UsersWithKnownProtocolsAreListedInFileOrder)
{
    write_text(kSnmpdConf, "createUser alice sha-256 alicepass1 AES\n"
                           "createUser bob MD5 bobpass123\n"
                           "createUser carol SHA carolpass1 none\n"
                           "#createUser dave SHA davepass1 DES\n"
                           "  createUser erin SHA-512 erinpass1 des\n");
    SNMP_V3_USER* head = nullptr;
    ASSERT_EQ(0, snmp_v3_user_get(&head));
    std::vector<std::string> users;
    for (const SNMP_V3_USER* user = head; user != nullptr; user = user->next)
    {
        users.push_back(std::string(user->name) + " " +
                        std::to_string(user->authen) + " " +
                        std::to_string(user->encrypt) + " " + user->password);
    }
    EXPECT_EQ(0, snmp_v3_user_free(&head));
    EXPECT_EQ(nullptr, head);
    EXPECT_EQ((std::vector<std::string>{"alice 1 1 alicepass1",
                                        "erin 3 0 erinpass1"}),
              users);
}

TEST_F(SnmpConf, DeletionDropsTheFirstUserAndAccessLineOfTheName)
{
    write_text(kSnmpdConf, "#createUser bob SHA x AES\n"
                           "createUser bobby SHA bobbypass1 AES\n"
                           "createUser bob SHA bobpass123 AES\n"
                           "createUser bob MD5 second12 DES\n"
                           "rouser bobby\nrwuser bob\nrouser bob\n");
    ASSERT_EQ(0, snmp_v3_user_del("bob"));
    EXPECT_EQ("#createUser bob SHA x AES\n"
              "createUser bobby SHA bobbypass1 AES\n"
              "createUser bob MD5 second12 DES\n"
              "rouser bobby\nrouser bob\n",
              conf());
}

TEST_F(SnmpConf, EngineIdComesFromTheAgentsStateFile)
{
    char id[32];
    EXPECT_EQ(-1, snmp_v3_engineid_get(id, sizeof id));
    write_text("/var/lib/net-snmp/snmpd.conf",
               "setserialno 1\noldEngineID 0x80001f8803525400123456\n");
    ASSERT_EQ(0, snmp_v3_engineid_get(id, sizeof id));
    EXPECT_STREQ("0x80001f8803525400123456", id);
}

// The rename over a directory fails; no scratch file is left beside it.
TEST_F(SnmpConf, FailedRenameGivesMinusEnoent)
{
    kv::test::make_dirs(kSnmpdConf);
    const auto names = names_in("/etc/snmp");
    EXPECT_EQ(-ENOENT, snmp_service_port_set(1161));
    EXPECT_EQ(-ENOENT, snmp_v3_user_del("bob"));
    EXPECT_EQ(names, names_in("/etc/snmp"));
}

} // namespace

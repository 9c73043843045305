// SPDX-License-Identifier: Apache-2.0
// snmpd.conf as the SNMP setters edit it and the getters read it, and the
// programs they start.
#include "services_test.h"

#include <libkv/foundation.h>
#include <libkv/services.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

namespace
{

using namespace kv::services::test;
using kv::test::names_in;
using kv::test::write_text;
using testing::HasSubstr;

class SnmpConf : public RecordingTools
{
  protected:
    // The sandbox's /etc may show the host's own file.
    void SetUp() override
    {
        RecordingTools::SetUp();
        std::filesystem::remove(kSnmpdConf);
        kv::test::make_dirs("/etc/snmp");
    }
    static std::string conf()
    {
        return kv::test::read_text(kSnmpdConf).value_or("<none>");
    }
};

TEST_F(SnmpConf, PortIsTheFirstLiveAgentaddress)
{
    for (const auto& [text, port] : std::vector<std::pair<std::string, int>>{
             {"", 161},
             {"agentaddress udp:1161\n", 1161},
             {"agentaddress 10.0.0.1\n", 161},
             {"agentaddress 1161\n", 1161},
             {"#agentaddress 1\n  agentaddress 4161\nagentaddress 5161\n",
              4161}})
    {
        write_text(kSnmpdConf, text);
        uint16_t got = 0;
        EXPECT_EQ(0, snmp_service_port_get(&got));
        EXPECT_EQ(port, got) << text;
    }

    write_text(kSnmpdConf, "#agentaddress 1\n agentaddress udp:161\n"
                           "agentaddress 9\n");
    const auto names = names_in("/etc/snmp");
    ASSERT_EQ(0, snmp_service_port_set(1161));
    EXPECT_EQ("#agentaddress 1\nagentaddress   1161\nagentaddress 9\n", conf());
    EXPECT_EQ(names, names_in("/etc/snmp")); // no scratch file left
    write_text(kSnmpdConf, "sysdescr x");    // no final newline
    ASSERT_EQ(0, snmp_service_port_set(2161));
    EXPECT_EQ("sysdescr x\nagentaddress   2161\n", conf());
}

// Same inode and modification time: the file was not rewritten.
TEST_F(SnmpConf, UnchangedSettingsLeaveTheFileAlone)
{
    write_text(kSnmpdConf, kBaseSnmpdConf);
    struct stat before = {}, after = {};
    ASSERT_EQ(0, ::stat(kSnmpdConf, &before));
    EXPECT_EQ(0, snmp_service_port_set(161));
    EXPECT_EQ(0, snmp_community_set("public"));
    EXPECT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, false));
    ASSERT_EQ(0, ::stat(kSnmpdConf, &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ(kBaseSnmpdConf, conf());
}

// A community that could not be read back whole, or that would start a
// line of its own, is refused.
TEST_F(SnmpConf, CommunityIsTheFourthWordOfTheFirstDefaultLine)
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
    const std::string bad[] = {"", "two words", "x\nrwcommunity evil",
                               std::string(128, 'c')};
    for (const std::string& b : bad)
    {
        EXPECT_EQ(-1, snmp_community_set(b.c_str())) << b;
    }
    ASSERT_EQ(0, snmp_community_set(std::string(127, 'c').c_str()));
    ASSERT_EQ(0, snmp_community_set("s3cret"));
    EXPECT_EQ(lines + "com2sec  mynetwork   default   s3cret\n"
                      "com2sec n default second\n",
              conf());
    write_text(kSnmpdConf, lines);
    EXPECT_EQ(-1, snmp_community_get(text, sizeof text));
}

TEST_F(SnmpConf, VersionGroupLinesGoBelowTheSecurityModelComment)
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
    bool v1 = false, v2 = false;
    EXPECT_EQ(0, snmp_v1_status_get(&v1));
    EXPECT_EQ(0, snmp_v2_status_get(&v2));
    EXPECT_TRUE(v1 && v2);

    write_text(kSnmpdConf, "view all included .1"); // no comment
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_DEFAULT, true));
    EXPECT_EQ("view all included .1\n"
              "group    my_group       v2c           mynetwork\n",
              conf());
    EXPECT_EQ(-1, snmp_ver_status_set(static_cast<SNMP_VERSION>(3), true));

    // Disabling drops every live group line naming the version.
    write_text(kSnmpdConf, "#group g v1 n\ngroup g v1 n\ngroup v1net v2c n\n"
                           "  group g2 v1 n\ngroup g usm n\n");
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, false));
    EXPECT_EQ("#group g v1 n\ngroup g usm n\n", conf());
    EXPECT_EQ(0, snmp_v1_status_get(&v1));
    EXPECT_FALSE(v1);
}

// Every value's text, in any case, reads back as the value.
template <typename T>
void expect_round_trip(T unknown, const char* (*itoa)(T),
                       T (*atoi)(const char*))
{
    for (int v = 0; v <= unknown; ++v)
    {
        const char* text = itoa(static_cast<T>(v));
        std::string lower = text != nullptr ? text : "none";
        std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
        EXPECT_EQ(v, atoi(lower.c_str())) << lower;
        EXPECT_EQ(v == unknown, text == nullptr);
    }
}

TEST(SnmpProtocols, TextsRoundTripIgnoringCase)
{
    expect_round_trip(SNMP_V3_AUTHEN_UNKNOWN, snmp_v3_authen_itoa,
                      snmp_v3_authen_atoi);
    expect_round_trip(SNMP_V3_ENCRYPT_UNKNOWN, snmp_v3_encrypt_itoa,
                      snmp_v3_encrypt_atoi);
    EXPECT_EQ(SNMP_V3_AUTHEN_UNKNOWN, snmp_v3_authen_atoi("SHA256"));
}

TEST_F(SnmpConf, UsersAreListedAndDeletedByName)
{
    write_text(kSnmpdConf, "createUser alice sha-256 alicepass1 AES\n"
                           "createUser bob MD5 bobpass123\n"
                           "createUser carol SHA carolpass1 none\n"
                           "#createUser dave SHA davepass1 DES\n"
                           "  createUser erin SHA-512 erinpass1 des\n");
    SNMP_V3_USER* head = nullptr;
    ASSERT_EQ(0, snmp_v3_user_get(&head));
    std::string users;
    for (const SNMP_V3_USER* user = head; user != nullptr; user = user->next)
    {
        users += std::string(user->name) + " " + std::to_string(user->authen) +
                 " " + std::to_string(user->encrypt) + " " + user->password +
                 ";";
    }
    EXPECT_EQ(0, snmp_v3_user_free(&head));
    EXPECT_EQ(nullptr, head);
    EXPECT_EQ("alice 1 1 alicepass1;erin 3 0 erinpass1;", users);

    // The first user line and the first access line of the name go.
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

// The unit's commands run in the background, in either order.
TEST_F(SnmpConf, StatusActionsEditTheSwitchAndStartSystemctl)
{
    const auto value = [](const char* path, const char* key) {
        char text[128] = "";
        read_conf_value(path, key, text);
        return std::string(text);
    };
    const char* unit = "obmc-kv-snmp.service";
    ASSERT_EQ(
        0, snmp_service_status_set(KV_SNMP_PROTOCOL_OFF | KV_SNMP_PROTOCOL_ON |
                                   KV_SNMP_AGENT_START | KV_SNMP_AGENT_STOP));
    EXPECT_EQ("true", value(kSnmpdConf, "#protocolEnabled"));
    EXPECT_EQ("1", value("/etc/oem_bmc.conf", unit));
    const std::string calls = calls_of("systemctl", 2);
    EXPECT_THAT(calls, HasSubstr("stop\nobmc-kv-snmp.service\n--"));
    EXPECT_THAT(calls, HasSubstr("start\nobmc-kv-snmp.service\n--"));
    ASSERT_EQ(
        0, snmp_service_status_set(KV_SNMP_PROTOCOL_OFF | KV_SNMP_AGENT_STOP));
    EXPECT_EQ("0", value("/etc/oem_bmc.conf", unit));
    bool on = true;
    EXPECT_EQ(0, snmp_service_status_get(&on));
    EXPECT_FALSE(on);
}

// Each value is an argument of its own, shell text included; the tool
// runs to its end before the call returns.
TEST_F(SnmpConf, UserAddStartsTheToolWithItsArguments)
{
    const auto calls = [] {
        return kv::test::read_text("/tmp/calls/net-snmp-create-v3-user");
    };
    ASSERT_EQ(0, snmp_v3_user_add("op$(id)", "pa$s;`id`",
                                  SNMP_V3_AUTHEN_SHA_512, SNMP_V3_ENCRYPT_AES));
    const std::string pass = "pa$s;`id`\n";
    const auto first = calls();
    EXPECT_EQ("-A\n" + pass + "-X\n" + pass +
                  "-a\nSHA-512\n-x\nAES\nop$(id)\n--\n",
              first);
    EXPECT_EQ(-1, snmp_v3_user_add("", "password1", SNMP_V3_AUTHEN_SHA,
                                   SNMP_V3_ENCRYPT_DES));
    EXPECT_EQ(-1, snmp_v3_user_add("op", "password1", SNMP_V3_AUTHEN_MD5,
                                   SNMP_V3_ENCRYPT_UNKNOWN));
    EXPECT_EQ(first, calls()); // refused: not started
}

} // namespace

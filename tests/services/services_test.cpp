// SPDX-License-Identifier: Apache-2.0
// snmpd.conf as the SNMP calls edit it, with Debian's snmpd and snmpget on
// the result; the mail client's resource file, with s-nail sending through
// it; the BMC's interfaces on a veth pair; bonding.
#include "loopback_server.h"
#include "test_helpers.h"
#include "veth_pair.h"

#include <libkv/foundation.h>
#include <libkv/ipc.h>
#include <libkv/services.h>

#include <gmock/gmock.h>
#include <linux/capability.h>
#include <net/if.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cstring>
#include <filesystem>
#include <map>

namespace
{

using namespace kv::test;
using testing::HasSubstr;

constexpr const char* kConf = "/etc/snmp/snmpd.conf";
// The group section has its header comment and no group line yet.
constexpr const char* kBaseConf =
    "agentaddress  udp:161\nsysdescr  libkv test agent\n"
    "com2sec  mynetwork   default   public\n"
    "#       groupName      securityModel securityName\n"
    "view    all            included      .1\n"
    "access  my_group  \"\"  any  noauth  exact  all  none  none\n";

// systemctl and net-snmp-create-v3-user first on PATH, and the platform's
// bonding script, append their arguments, a line each, then "--", to
// /tmp/calls/<name> in one write. The bonding script exits with the number
// in /tmp/bonding-exit.
class Svc : public testing::Test
{
  protected:
    void SetUp() override
    {
        for (const char* tool :
             {"/tmp/bin/systemctl", "/tmp/bin/net-snmp-create-v3-user",
              "/etc/default/obmc/bonding/bonding.sh"})
        {
            write_text(tool, "#!/bin/sh\nmkdir -p /tmp/calls\n"
                             "r=$(printf '%s\\n' \"$@\" --)\n"
                             "printf '%s\\n' \"$r\" >>/tmp/calls/${0##*/}\n"
                             "exit $(cat /tmp/bonding-exit 2>/dev/null)\n");
            ASSERT_EQ(0, ::chmod(tool, 0755));
        }
        static const std::string path =
            std::string("/tmp/bin:") + std::getenv("PATH");
        setenv("PATH", path.c_str(), 1);
        std::filesystem::remove(kConf); // /etc may show the host's file
    }
    static std::string calls(const std::string& tool)
    {
        return read_text("/tmp/calls/" + tool).value_or("");
    }
    static std::string conf()
    {
        return read_text(kConf).value_or("<none>");
    }
};

TEST_F(Svc, PortIsTheFirstLiveAgentaddress)
{
    const std::pair<const char*, int> cases[] = {
        {"", 161},
        {"agentaddress udp:1161\n", 1161},
        {"agentaddress 10.0.0.1\n", 161},
        {"agentaddress 1161\n", 1161},
        {"#agentaddress 1\n  agentaddress 4161\nagentaddress 5161\n", 4161}};
    for (auto [text, port] : cases)
    {
        write_text(kConf, text);
        uint16_t got = 0;
        EXPECT_EQ(0, snmp_service_port_get(&got));
        EXPECT_EQ(port, got) << text;
    }
    write_text(kConf, "#agentaddress 1\n agentaddress udp:161\n"
                      "agentaddress 9\n");
    const auto names = names_in("/etc/snmp");
    ASSERT_EQ(0, snmp_service_port_set(1161));
    EXPECT_EQ("#agentaddress 1\nagentaddress   1161\nagentaddress 9\n", conf());
    EXPECT_EQ(names, names_in("/etc/snmp")); // no scratch file left
    write_text(kConf, "sysdescr x");         // no final newline
    ASSERT_EQ(0, snmp_service_port_set(2161));
    EXPECT_EQ("sysdescr x\nagentaddress   2161\n", conf());

    // A failed rename (over a directory) leaves no scratch file either.
    std::filesystem::remove(kConf);
    make_dirs(kConf);
    EXPECT_EQ(-ENOENT, snmp_service_port_set(1161));
    EXPECT_EQ(-ENOENT, snmp_v3_user_del("bob"));
    EXPECT_EQ(names, names_in("/etc/snmp"));
}

// A community that could not be read back whole, or that would start a
// line of its own, is refused.
TEST_F(Svc, CommunityIsTheFourthWordOfTheFirstDefaultLine)
{
    const std::string lines = "# com2sec a default old\n"
                              "com2sec local localhost private\n";
    write_text(kConf, lines + "com2sec  n   default   public extra\n"
                              "com2sec n default second\n");
    char text[8];
    ASSERT_EQ(0, snmp_community_get(text, sizeof text));
    EXPECT_STREQ("public", text);
    ASSERT_EQ(0, snmp_community_get(text, 4));
    EXPECT_STREQ("pub", text);
    for (const std::string& bad :
         {std::string(), std::string("two words"),
          std::string("x\nrwcommunity evil"), std::string(128, 'c')})
    {
        EXPECT_EQ(-1, snmp_community_set(bad.c_str())) << bad;
    }
    ASSERT_EQ(0, snmp_community_set(std::string(127, 'c').c_str()));
    ASSERT_EQ(0, snmp_community_set("s3cret"));
    EXPECT_EQ(lines + "com2sec  mynetwork   default   s3cret\n"
                      "com2sec n default second\n",
              conf());
    write_text(kConf, lines);
    EXPECT_EQ(-1, snmp_community_get(text, sizeof text));
}

TEST_F(Svc, VersionGroupLinesGoBelowTheSecurityModelComment)
{
    // Unchanged settings leave the file alone: same inode and time.
    write_text(kConf, kBaseConf);
    struct stat before = {}, after = {};
    ASSERT_EQ(0, ::stat(kConf, &before));
    EXPECT_EQ(0, snmp_service_port_set(161));
    EXPECT_EQ(0, snmp_community_set("public"));
    EXPECT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, false));
    ASSERT_EQ(0, ::stat(kConf, &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);

    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V2C, true));
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, true));
    std::string expected = kBaseConf;
    expected.insert(expected.find("view"),
                    "group    my_group       v1            mynetwork\n"
                    "group    my_group       v2c           mynetwork\n");
    EXPECT_EQ(expected, conf());
    bool v1 = false, v2 = false;
    EXPECT_EQ(0, snmp_v1_status_get(&v1));
    EXPECT_EQ(0, snmp_v2_status_get(&v2));
    EXPECT_TRUE(v1 && v2);

    write_text(kConf, "view all included .1"); // no comment
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_DEFAULT, true));
    EXPECT_EQ("view all included .1\n"
              "group    my_group       v2c           mynetwork\n",
              conf());
    EXPECT_EQ(-1, snmp_ver_status_set(static_cast<SNMP_VERSION>(3), true));

    // Disabling drops every live group line naming the version.
    write_text(kConf, "#group g v1 n\ngroup g v1 n\ngroup v1net v2c n\n"
                      "  group g2 v1 n\ngroup g usm n\n");
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, false));
    EXPECT_EQ("#group g v1 n\ngroup g usm n\n", conf());
    EXPECT_EQ(0, snmp_v1_status_get(&v1));
    EXPECT_FALSE(v1);
}

// Every value's text, in lower case, reads back as the value.
TEST(Snmp, ProtocolTextsRoundTripIgnoringCase)
{
    const auto round_trip = [](auto unknown, auto itoa, auto atoi) {
        for (int v = 0; v <= unknown; ++v)
        {
            const char* text = itoa(static_cast<decltype(unknown)>(v));
            std::string lower = text != nullptr ? text : "none";
            for (char& c : lower)
            {
                c = static_cast<char>(std::tolower(c));
            }
            EXPECT_EQ(v, atoi(lower.c_str())) << lower;
            EXPECT_EQ(v == unknown, text == nullptr);
        }
    };
    round_trip(SNMP_V3_AUTHEN_UNKNOWN, snmp_v3_authen_itoa,
               snmp_v3_authen_atoi);
    round_trip(SNMP_V3_ENCRYPT_UNKNOWN, snmp_v3_encrypt_itoa,
               snmp_v3_encrypt_atoi);
    EXPECT_EQ(SNMP_V3_AUTHEN_UNKNOWN, snmp_v3_authen_atoi("SHA256"));
}

TEST_F(Svc, UsersAreListedAndDeletedByName)
{
    write_text(kConf, "createUser alice sha-256 alicepass1 AES\n"
                      "createUser bob MD5 bobpass123\n"
                      "createUser carol SHA carolpass1 none\n"
                      "#createUser dave SHA davepass1 DES\n"
                      "  createUser erin SHA-512 erinpass1 des\n");
    SNMP_V3_USER* head = nullptr;
    ASSERT_EQ(0, snmp_v3_user_get(&head));
    std::string users;
    for (const SNMP_V3_USER* u = head; u != nullptr; u = u->next)
    {
        users += std::string(u->name) + " " + std::to_string(u->authen) +
                 std::to_string(u->encrypt) + " " + u->password + ";";
    }
    EXPECT_EQ(0, snmp_v3_user_free(&head));
    EXPECT_EQ(nullptr, head);
    EXPECT_EQ("alice 11 alicepass1;erin 30 erinpass1;", users);

    // The first user line and the first access line of the name go.
    write_text(kConf, "#createUser bob SHA x AES\n"
                      "createUser bobby SHA bobbypass1 AES\n"
                      "createUser bob SHA bobpass123 AES\n"
                      "createUser bob MD5 second12 DES\n"
                      "rouser bobby\nrwuser bob\nrouser bob\n");
    ASSERT_EQ(0, snmp_v3_user_del("bob"));
    EXPECT_EQ("#createUser bob SHA x AES\n"
              "createUser bobby SHA bobbypass1 AES\n"
              "createUser bob MD5 second12 DES\nrouser bobby\nrouser bob\n",
              conf());

    char id[32];
    EXPECT_EQ(-1, snmp_v3_engineid_get(id, sizeof id));
    write_text("/var/lib/net-snmp/snmpd.conf",
               "setserialno 1\noldEngineID 0x80001f8803525400123456\n");
    ASSERT_EQ(0, snmp_v3_engineid_get(id, sizeof id));
    EXPECT_STREQ("0x80001f8803525400123456", id);
}

// Each value is an argument of its own, shell text included; the tool
// runs to its end before the call returns. Refused users start nothing.
TEST_F(Svc, UserAddStartsTheToolWithItsArguments)
{
    ASSERT_EQ(0, snmp_v3_user_add("op$(id)", "pa$s;`id`",
                                  SNMP_V3_AUTHEN_SHA_512, SNMP_V3_ENCRYPT_AES));
    EXPECT_EQ(-1, snmp_v3_user_add("", "password1", SNMP_V3_AUTHEN_SHA,
                                   SNMP_V3_ENCRYPT_DES));
    EXPECT_EQ(-1, snmp_v3_user_add("op", "password1", SNMP_V3_AUTHEN_MD5,
                                   SNMP_V3_ENCRYPT_UNKNOWN));
    EXPECT_EQ("-A\npa$s;`id`\n-X\npa$s;`id`\n-a\nSHA-512\n-x\nAES\nop$(id)\n"
              "--\n",
              calls("net-snmp-create-v3-user"));
}

// The unit's commands run in the background, in either order.
TEST_F(Svc, StatusActionsEditTheSwitchAndStartSystemctl)
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
    EXPECT_EQ("true", value(kConf, "#protocolEnabled"));
    EXPECT_EQ("1", value("/etc/oem_bmc.conf", unit));
    std::string c; // until it holds two records
    for (int i = 0;
         i < 500 && (c = calls("systemctl")).find("--") == c.rfind("--"); ++i)
    {
        ::usleep(10000);
    }
    EXPECT_THAT(c, HasSubstr("stop\nobmc-kv-snmp.service\n--"));
    EXPECT_THAT(c, HasSubstr("start\nobmc-kv-snmp.service\n--"));
    ASSERT_EQ(
        0, snmp_service_status_set(KV_SNMP_PROTOCOL_OFF | KV_SNMP_AGENT_STOP));
    EXPECT_EQ("0", value("/etc/oem_bmc.conf", unit));
    bool on = true;
    EXPECT_EQ(0, snmp_service_status_get(&on));
    EXPECT_FALSE(on);
}

// Debian's snmpd on the library's file alone, asked for sysDescr.0 with v1
// then v2c by Debian's snmpget once it logs that its ports are open.
TEST(RealAgent, AnswersOnThePortWithTheCommunityAndVersionsTheLibraryWrote)
{
    const auto ask = [] {
        return kv::test::beside_snmpd(
            "for v in 1 2c; do " KV_SNMPGET " -v$v -c kv-s3cret -t 1 -r 1 "
            "-m '' -Ov 127.0.0.1:16161 .1.3.6.1.2.1.1.1.0; done");
    };
    write_text(kConf, kBaseConf);
    ASSERT_EQ(0, snmp_service_port_set(16161));
    ASSERT_EQ(0, snmp_community_set("kv-s3cret"));
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V2C, true));
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, true));
    const std::string answer = "STRING: \"libkv test agent\"\n";
    EXPECT_EQ(answer + answer, ask());
    // v1 still answers, so the agent is there to refuse v2c.
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V2C, false));
    EXPECT_EQ(answer + "Timeout: No Response from 127.0.0.1:16161.\n", ask());
}

constexpr const char* kNailRc = "/var/lib/ipmi/nail.rc";

// The record's numbers are little-endian, as is every target.
uint32_t u32(const uint8_t (&bytes)[4])
{
    uint32_t value = 0;
    std::memcpy(&value, bytes, 4);
    return value;
}

MailConfig read_back()
{
    MailConfig config{};
    EXPECT_EQ(0, read_email_config(kNailRc, &config));
    return config;
}

TEST(Mail, ServerTextsAndRecipientListsAsTheClientTakesThem)
{
    make_dirs("/var/lib/ipmi");
    struct
    {
        const char *value, *server;
        uint32_t port, tls;
    } cases[] = {{"smtp://192.0.2.10", "192.0.2.10", 25, 0},
                 {"smtps://mx:587", "mx", 587, 1},
                 {"mx.example:2525", "mx.example", 2525, 0}};
    for (const auto& c : cases)
    {
        write_text(kNailRc, std::string("set smtp=") + c.value + "\n");
        const MailConfig back = read_back();
        EXPECT_STREQ(c.server, back.server) << c.value;
        EXPECT_EQ(c.port, u32(back.port)) << c.value;
        EXPECT_EQ(c.tls, u32(back.tls)) << c.value;
    }
    write_text(kNailRc, "#user-recv=  a@x  b@x c@x d@x e@x f@x \n");
    MailConfig back = read_back();
    EXPECT_STREQ("a@x", back.recipients[0]);
    EXPECT_STREQ("e@x", back.recipients[4]); // the sixth is left out

    EXPECT_EQ(-1, read_email_config(kNailRc, nullptr));
    EXPECT_EQ(-1, write_email_config(kNailRc, nullptr));
    std::filesystem::remove(kNailRc);
    EXPECT_EQ(-1, read_email_config(kNailRc, &back));
    EXPECT_STREQ("a@x", back.recipients[0]);
    EXPECT_EQ(static_cast<uint8_t*>(get_shm_address()) + 219485,
              reinterpret_cast<uint8_t*>(get_mail_config()));
}

// Debian's mail client takes "set smtp" and the login from the file. With
// the login switched off its credentials stay on comment lines, where the
// client does not see them.
TEST(Mail, SettingsReadBackAndTheMailClientSendsWithThem)
{
    // Takes this login (in base64), any sender and recipient; keeps the
    // lines it was sent.
    const std::map<std::string, std::string> replies = {
        {"AUTH LOGIN", "334 VXNlcm5hbWU6"},
        {"YWxlcnRzQGJtYy5leGFtcGxl", "334 UGFzc3dvcmQ6"},
        {"czNjcjN0LVB3", "235 ok"},
        {"DATA", "354 go on"}};
    std::string said;
    LoopbackServer smtp([&](Peer& peer) {
        peer.send("220 kv ESMTP\r\n");
        bool data = false;
        for (std::string line; peer.line(line) && line != "QUIT";)
        {
            said += line + "\n";
            if (!data || line == ".")
            {
                data = line == "DATA";
                const auto r = replies.find(line);
                peer.send(line.starts_with("EHLO")
                              ? "250-kv\r\n250 AUTH LOGIN\r\n"
                          : r != replies.end() ? r->second + "\r\n"
                                               : "250 ok\r\n");
            }
        }
        peer.send("221 bye\r\n");
    });
    const auto put = [](uint8_t(&bytes)[4], uint32_t value) {
        std::memcpy(bytes, &value, 4);
    };
    make_dirs("/var/lib/ipmi");
    MailConfig config{};
    std::strcpy(config.user, "alerts@bmc.example");
    std::strcpy(config.server, "127.0.0.1");
    std::strcpy(config.password, "s3cr3t-Pw");
    for (char slot : {'0', '1', '2', '3', '4'})
    {
        std::strcpy(config.recipients[slot - '0'],
                    (std::string("r") + slot + "@x").c_str());
    }
    std::strcpy(config.active, "on");
    put(config.error_level, 2);
    put(config.authentication, 1);
    put(config.tls, 1); // port 0: the SMTPS port
    ASSERT_EQ(0, write_email_config(nullptr, &config));
    const std::string rest = "#user-recv=r0@x r1@x r2@x r3@x r4@x\n"
                             "#active=on\n#error-level=2\n";
    EXPECT_EQ("set smtp=smtps://127.0.0.1:465\nset from=alerts@bmc.example\n"
              "set smtp-auth=login\nset smtp-auth-user=alerts@bmc.example\n"
              "set smtp-auth-password=s3cr3t-Pw\n" +
                  rest,
              read_text(kNailRc));
    MailConfig back = read_back();
    put(config.port, 465);
    EXPECT_EQ(0, std::memcmp(&config, &back, sizeof back));

#ifdef KV_MAIL_CLIENT
    put(config.tls, 0);
    put(config.port, smtp.port());
    ASSERT_EQ(0, write_email_config(kNailRc, &config));
    write_text("/tmp/body", "CPU0 Temp going high\n");
    const auto sent = run_shell(
        "MAILRC=/var/lib/ipmi/nail.rc HOME=/tmp " KV_MAIL_CLIENT
        " -n -Ssendwait -s 'BMC alert' oncall@example.com </tmp/body 2>&1");
    EXPECT_EQ(0, sent.status) << sent.output;
    ASSERT_EQ(smtp.served(1), 1U);
    EXPECT_THAT(said, HasSubstr("AUTH LOGIN\nYWxlcnRzQGJtYy5leGFtcGxl\n"
                                "czNjcjN0LVB3\n"
                                "MAIL FROM:<alerts@bmc.example>\n"
                                "RCPT TO:<oncall@example.com>\nDATA\n"));
    EXPECT_THAT(said, HasSubstr("\nCPU0 Temp going high\n.\n"));
#endif

    put(config.authentication, 0);
    put(config.tls, 0);
    put(config.port, 0);
    ASSERT_EQ(0, write_email_config(kNailRc, &config));
    EXPECT_EQ("set smtp=smtp://127.0.0.1:25\n" + rest +
                  "#set smtp-auth-user=alerts@bmc.example\n"
                  "#set smtp-auth-password=s3cr3t-Pw\n",
              read_text(kNailRc));
    back = read_back();
    EXPECT_EQ(0u, u32(back.authentication));
    EXPECT_STREQ("alerts@bmc.example", back.user);
    EXPECT_STREQ("s3cr3t-Pw", back.password);
}

class Net : public VethPairTest
{
  protected:
    Net() : VethPairTest("kv-services-a1", "kv-services-b1")
    {}
    // The kernel reports a carrier change a moment after the flags.
    int settled_link(int expected)
    {
        int link = net_link_get(left_.c_str());
        for (int i = 0; link != expected && i < 200; ++i, ::usleep(10000))
        {
            link = net_link_get(left_.c_str());
        }
        return link;
    }
};

TEST_F(Net, IndexStateAndLinkComeFromTheKernel)
{
    const char* left = left_.c_str();
    EXPECT_EQ(static_cast<int>(if_nametoindex(left)), net_index_get(left));
    EXPECT_EQ(0, net_enable_get(left));
    ASSERT_EQ(0, net_enable_set((left_ + ":1").c_str(), 1)); // an alias
    ASSERT_EQ(0, net_enable_set(right_.c_str(), 7));
    EXPECT_EQ(1, net_enable_get(left));
    EXPECT_EQ(1, settled_link(1)); // both ends up: carrier
    ASSERT_EQ(0, net_enable_set(right_.c_str(), 0));
    EXPECT_EQ(0, settled_link(0));
    EXPECT_EQ(1, net_enable_get(left));
    for (const char* missing : {"kv-missing0", (const char*)nullptr})
    {
        EXPECT_EQ(-1, net_index_get(missing));
        EXPECT_EQ(-1, net_enable_get(missing));
        EXPECT_EQ(-1, net_enable_set(missing, 1));
        EXPECT_EQ(-1, net_speed_get(missing));
    }
    if (!under_user_emulation()) // qemu-user lacks SIOCETHTOOL
    {
        EXPECT_EQ(10000, net_speed_get(left)); // what veth reports
        EXPECT_EQ(-1, net_speed_get("lo"));    // no ethtool settings
    }
}

// Without CAP_NET_ADMIN every flag write fails: a call that succeeds there
// wrote nothing.
TEST_F(Net, TheRightStateIsNotWrittenAgain)
{
    ASSERT_EQ(0, net_enable_set(left_.c_str(), 1));
    EXPECT_EQ(
        0, exit_status_of([&] {
            __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
            __user_cap_data_struct none[2] = {};
            if (::syscall(SYS_capset, &header, none) != 0 ||
                net_enable_set(left_.c_str(), 1) != 0)
            {
                return 1;
            }
            return net_enable_set(left_.c_str(), 0) == -1 ? 0 : 2;
        }));
}

// The test's private /proc/self/net stands in for the driver's; the texts
// are those of the Linux bonding driver.
TEST_F(Svc, BondingModeFromTheDriverSetByThePlatformScript)
{
    EXPECT_EQ(0, net_mode_get()); // no file, whatever interfaces exist
    const char* modes[] = {"load balancing (round-robin)",
                           "fault-tolerance (active-backup)",
                           "load balancing (xor)",
                           "fault-tolerance (broadcast)",
                           "IEEE 802.3ad Dynamic link aggregation",
                           "transmit load balancing",
                           "adaptive load balancing",
                           "something new"};
    for (int mode = 1; mode <= 8; ++mode)
    {
        write_text("/proc/self/net/bonding/bond0",
                   std::string("Bonding Mode: ") + modes[mode - 1] +
                       "\nCurrently Active Slave: eth1\n");
        EXPECT_EQ(mode, net_mode_get()) << modes[mode - 1];
        // Texts: "eth", then "bond0" to "bond6".
        EXPECT_EQ(mode - 1, net_mode_atoi(net_mode_itoa(mode - 1)));
    }
    EXPECT_EQ(4, net_mode_atoi("BOND3"));
    EXPECT_STREQ("unknow", net_mode_itoa(8));
    EXPECT_STREQ("unknow", net_mode_itoa(-1));
    char slave[3];
    ASSERT_EQ(0, net_bond_active_slave(slave, sizeof slave));
    EXPECT_STREQ("et", slave);

    EXPECT_EQ(0, net_mode_set(0));
    EXPECT_EQ(0, net_mode_set(7));
    write_text("/tmp/bonding-exit", "3\n");
    EXPECT_EQ(-1, net_mode_set(2));
    EXPECT_EQ(0, net_mode_set(8)); // the empty command: nothing to fail
    EXPECT_EQ("disable\n--\nenable\nmode6\n--\nenable\nmode1\n--\n",
              calls("bonding.sh"));
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// snmpd.conf as the SNMP calls edit it, read by snmpd; the mail client's
// file, sent with by s-nail; interfaces on a veth pair; bonding.
#include "loopback_server.h"
#include "test_helpers.h"
#include "veth_pair.h"

#include <libkv/ipc.h>
#include <libkv/services.h>

#include <gmock/gmock.h>
#include <linux/capability.h>
#include <net/if.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cstring>
#include <filesystem>

namespace
{

using namespace kv::test;
using testing::HasSubstr;

constexpr const char* kConf = "/etc/snmp/snmpd.conf";
constexpr const char* kBase =
    "sysdescr  kv\n"
    "com2sec  mynetwork   default   public\n"
    "#       securityModel\n"
    "view    all            included      .1\n"
    "access  my_group  \"\"  any  noauth  exact  all  none  none\n";

// systemctl, net-snmp-create-v3-user and the bonding script log their
// arguments, a line each, then "--", to /tmp/calls/<name> in one write, and
// exit with the number in /tmp/rc.
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
                             "echo \"$(printf '%s\\n' \"$@\" --)\" >>"
                             "/tmp/calls/${0##*/}\nexit $(cat /tmp/rc 2>&-)\n");
            ::chmod(tool, 0755);
        }
        setenv("PATH", "/tmp/bin:/bin", 1);
        // /etc may show the host's file.
        std::filesystem::remove(kConf);
    }
};

TEST_F(Svc, Port)
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
        snmp_service_port_get(&got);
        EXPECT_EQ(port, got) << text;
    }
    const auto names = names_in("/etc/snmp");
    ASSERT_EQ(0, snmp_service_port_set(1161));
    EXPECT_EQ("#agentaddress 1\nagentaddress   1161\nagentaddress 5161\n",
              read_text(kConf));
    // No scratch file is left, nor after a failed rename (over a directory).
    EXPECT_EQ(names, names_in("/etc/snmp"));
    write_text(kConf, "sysdescr x");
    ASSERT_EQ(0, snmp_service_port_set(2161));
    EXPECT_EQ("sysdescr x\nagentaddress   2161\n", read_text(kConf));
    std::filesystem::remove(kConf);
    make_dirs(kConf);
    EXPECT_EQ(-2 * ENOENT, snmp_service_port_set(1161) + snmp_v3_user_del("b"));
    EXPECT_EQ(names, names_in("/etc/snmp"));
}

// A community that could not be read back whole, or that would start a
// line of its own, is refused.
TEST_F(Svc, Community)
{
    const std::string lines = "# com2sec a default x\ncom2sec l localhost p\n";
    write_text(kConf, lines + "com2sec  n   default   public extra\n"
                              "com2sec n default second\n");
    char text[8];
    ASSERT_EQ(0, snmp_community_get(text, 4));
    EXPECT_STREQ("pub", text);
    const std::string bad[] = {"", "a b", "x\ny", std::string(128, 'c')};
    for (const auto& b : bad)
        EXPECT_EQ(-1, snmp_community_set(b.c_str())) << b;
    ASSERT_EQ(0, snmp_community_set(std::string(127, 'c').c_str()));
    ASSERT_EQ(0, snmp_community_set("s3cret"));
    EXPECT_EQ(lines + "com2sec  mynetwork   default   s3cret\n"
                      "com2sec n default second\n",
              read_text(kConf));
    write_text(kConf, lines);
    EXPECT_EQ(-1, snmp_community_get(text, sizeof text));
}

TEST_F(Svc, Versions)
{
    // Unchanged settings leave the file alone: same inode.
    const auto inode = [] {
        struct stat st = {};
        ::stat(kConf, &st);
        return st.st_ino;
    };
    write_text(kConf, kBase);
    const auto first = inode();
    EXPECT_EQ(0, snmp_service_port_set(161));
    EXPECT_EQ(0, snmp_community_set("public"));
    EXPECT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, false));
    EXPECT_EQ(first, inode());

    // The default version is v2c.
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_DEFAULT, true));
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, true));
    std::string expected = kBase;
    expected.insert(expected.find("view"),
                    "group    my_group       v1            mynetwork\n"
                    "group    my_group       v2c           mynetwork\n");
    EXPECT_EQ(expected, read_text(kConf));
    bool v1 = false, v2 = false;
    snmp_v1_status_get(&v1);
    snmp_v2_status_get(&v2);
    EXPECT_TRUE(v1 && v2);

    EXPECT_EQ(-1, snmp_ver_status_set((SNMP_VERSION)3, true));

    // Disabling drops every live group line naming the version.
    write_text(kConf, "#group g v1 n\ngroup g v1 n\ngroup v1net v2c n\n"
                      "  group g2 v1 n\ngroup g usm n\n");
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, false));
    EXPECT_EQ("#group g v1 n\ngroup g usm n\n", read_text(kConf));
    snmp_v1_status_get(&v1);
    EXPECT_FALSE(v1);
}

// Every value's text reads back as the value; the unknown value has none.
TEST(Snmp, ProtocolTextsRoundTrip)
{
    for (int v = 0; v <= SNMP_V3_AUTHEN_UNKNOWN; ++v)
        EXPECT_EQ(v,
                  snmp_v3_authen_atoi(snmp_v3_authen_itoa((SNMP_V3_AUTHEN)v)));
    for (int v = 0; v <= SNMP_V3_ENCRYPT_UNKNOWN; ++v)
        EXPECT_EQ(
            v, snmp_v3_encrypt_atoi(snmp_v3_encrypt_itoa((SNMP_V3_ENCRYPT)v)));
    EXPECT_FALSE(snmp_v3_authen_itoa(SNMP_V3_AUTHEN_UNKNOWN));
}

// The tool gets each value as an argument of its own, shell text included,
// and runs to its end before the call returns; refused users start nothing.
TEST_F(Svc, Users)
{
    write_text(kConf, "createUser a sha-256 pa AES\ncreateUser b MD5 pb\n"
                      "createUser c SHA pc none\n#createUser d SHA pd DES\n"
                      "  createUser e SHA-512 pe des\n");
    SNMP_V3_USER* head = nullptr;
    ASSERT_EQ(0, snmp_v3_user_get(&head));
    std::string users;
    for (const SNMP_V3_USER* u = head; u != nullptr; u = u->next)
        users += u->name + std::to_string(u->authen * 10 + u->encrypt) +
                 u->password + ";";
    snmp_v3_user_free(&head);
    EXPECT_EQ(nullptr, head);
    EXPECT_EQ("a11pa;e30pe;", users);

    // The first user line and the first access line of the name go.
    const std::string kept =
        "#createUser b SHA x AES\ncreateUser bb SHA p AES\n";
    write_text(kConf, kept + "createUser b SHA p AES\ncreateUser b MD5 q DES\n"
                             "rouser bb\nrwuser b\nrouser b\n");
    ASSERT_EQ(0, snmp_v3_user_del("b"));
    EXPECT_EQ(kept + "createUser b MD5 q DES\nrouser bb\nrouser b\n",
              read_text(kConf));

    ASSERT_EQ(0, snmp_v3_user_add("op$(id)", "pa$s;`id`",
                                  SNMP_V3_AUTHEN_SHA_512, SNMP_V3_ENCRYPT_AES));
    EXPECT_EQ(-2, snmp_v3_user_add("", "password1", SNMP_V3_AUTHEN_SHA,
                                   SNMP_V3_ENCRYPT_DES) +
                      snmp_v3_user_add("op", "password1", SNMP_V3_AUTHEN_MD5,
                                       SNMP_V3_ENCRYPT_UNKNOWN));
    EXPECT_EQ("-A\npa$s;`id`\n-X\npa$s;`id`\n-a\nSHA-512\n-x\nAES\nop$(id)\n"
              "--\n",
              read_text("/tmp/calls/net-snmp-create-v3-user"));

    char id[32];
    EXPECT_EQ(-1, snmp_v3_engineid_get(id, sizeof id));
    write_text("/var/lib/net-snmp/snmpd.conf",
               "setserialno 1\noldEngineID 0x8000abcd\n");
    ASSERT_EQ(0, snmp_v3_engineid_get(id, sizeof id));
    EXPECT_STREQ("0x8000abcd", id);
}

// The unit's commands run in the background, in either order.
TEST_F(Svc, Status)
{
    const char* oem = "/etc/oem_bmc.conf";
    snmp_service_status_set(KV_SNMP_PROTOCOL_OFF | KV_SNMP_PROTOCOL_ON |
                            KV_SNMP_AGENT_START | KV_SNMP_AGENT_STOP);
    EXPECT_EQ("#protocolEnabled=true\n", read_text(kConf));
    EXPECT_EQ("obmc-kv-snmp.service=1\n", read_text(oem));
    // Until it holds two records.
    std::string c;
    for (int i = 0; i < 500 && c.find("--") == c.rfind("--"); ++i)
    {
        ::usleep(10000);
        c = read_text("/tmp/calls/systemctl").value_or("");
    }
    EXPECT_THAT(c, HasSubstr("stop\nobmc-kv-snmp.service\n--"));
    EXPECT_THAT(c, HasSubstr("start\nobmc-kv-snmp.service\n--"));
    snmp_service_status_set(KV_SNMP_PROTOCOL_OFF | KV_SNMP_AGENT_STOP);
    EXPECT_EQ("obmc-kv-snmp.service=0\n", read_text(oem));
    bool on = true;
    EXPECT_EQ(0, snmp_service_status_get(&on));
    EXPECT_FALSE(on);
}

// Debian's snmpd on the library's file alone, asked for sysDescr.0 with v1
// then v2c by Debian's snmpget once it logs that its ports are open.
TEST(RealAgent, Answers)
{
    const auto ask = [] {
        return beside_snmpd(
            "for v in 1 2c; do " KV_SNMPGET " -v$v -c kv -t 1 -r 1 "
            "-m '' -Ov 127.0.0.1:16161 .1.3.6.1.2.1.1.1.0; done");
    };
    write_text(kConf, kBase);
    snmp_service_port_set(16161);
    snmp_community_set("kv");
    snmp_ver_status_set(SNMP_VERSION_V2C, true);
    snmp_ver_status_set(SNMP_VERSION_V1, true);
    const std::string answer = "STRING: \"kv\"\n";
    EXPECT_EQ(answer + answer, ask());
    // v1 still answers, so the agent is there to refuse v2c.
    snmp_ver_status_set(SNMP_VERSION_V2C, false);
    EXPECT_EQ(answer + "Timeout: No Response from 127.0.0.1:16161.\n", ask());
}

// s-nail takes "set smtp" and the login from the file. With the login off,
// its credentials stay on comment lines, where the client does not see them.
TEST(Mail, ReadBackAndSent)
{
    const char* rc = "/var/lib/ipmi/nail.rc";
    MailConfig back{};
    const auto read_back = [&] {
        back = {};
        EXPECT_EQ(0, read_email_config(rc, &back));
    };
    // The record's numbers are little-endian, as is every target.
    const auto put = [](uint8_t(&bytes)[4], uint32_t value) {
        std::memcpy(bytes, &value, 4);
    };
    // With neither scheme nor port; the sixth recipient is left out.
    write_text(rc, "set smtp=192.0.2.1\n#user-recv=  a  b c d e f \n");
    read_back();
    EXPECT_STREQ("192.0.2.1", back.server);
    EXPECT_EQ(25, back.port[0]);
    EXPECT_STREQ("a", back.recipients[0]);
    EXPECT_STREQ("e", back.recipients[4]);
    std::filesystem::remove(rc);
    EXPECT_EQ(-3, read_email_config(rc, nullptr) +
                      write_email_config(rc, nullptr) +
                      read_email_config(rc, &back));
    EXPECT_EQ((uint8_t*)get_shm_address() + 219485,
              (uint8_t*)get_mail_config());

    // Port 0 with TLS: the SMTPS port.
    MailConfig config{.user = "me@bmc",
                      .server = "127.0.0.1",
                      .password = "pw",
                      .recipients = {"a", "b", "c", "d", "e"},
                      .reserved480 = {},
                      .active = "on",
                      .port = {},
                      .reserved780 = {},
                      .error_level = {2},
                      .tls = {1},
                      .authentication = {1}};
    ASSERT_EQ(0, write_email_config(nullptr, &config));
    read_back();
    put(config.port, 465);
    EXPECT_EQ(0, std::memcmp(&config, &back, sizeof back));

#ifdef KV_MAIL_CLIENT
    // Takes any login, sender and recipient; keeps the lines it was sent.
    std::string said;
    LoopbackServer smtp([&](Peer& peer) {
        peer.send("220 kv\r\n");
        bool data = false;
        for (std::string line; peer.line(line) && line != "QUIT";)
        {
            said += line + "\n";
            if (data && line != ".")
                continue;
            data = line == "DATA";
            const bool login = line == "AUTH LOGIN" || line.starts_with("bWVA");
            peer.send(line.starts_with("EHLO")  ? "250-kv\r\n250 AUTH LOGIN\r\n"
                      : data                    ? "354 go\r\n"
                      : login                   ? "334 go\r\n"
                      : line.starts_with("cHc") ? "235 ok\r\n"
                                                : "250 ok\r\n");
        }
        peer.send("221 bye\r\n");
    });
    put(config.tls, 0);
    put(config.port, smtp.port());
    ASSERT_EQ(0, write_email_config(rc, &config));
    const auto sent = run_shell(
        "echo hot | MAILRC=/var/lib/ipmi/nail.rc HOME=/tmp " KV_MAIL_CLIENT
        " -n -Ssendwait -s s x@y 2>&1");
    EXPECT_EQ(0, sent.status) << sent.output;
    ASSERT_EQ(smtp.served(1), 1U);
    EXPECT_THAT(said, HasSubstr("AUTH LOGIN\nbWVAYm1j\n"
                                "cHc=\n"
                                "MAIL FROM:<me@bmc>\n"
                                "RCPT TO:<x@y>\nDATA\n"));
    EXPECT_THAT(said, HasSubstr("\nhot\n.\n"));
#endif

    config.authentication[0] = config.tls[0] = 0;
    put(config.port, 0);
    ASSERT_EQ(0, write_email_config(rc, &config));
    EXPECT_EQ("set smtp=smtp://127.0.0.1:25\n"
              "#user-recv=a b c d e\n#active=on\n"
              "#error-level=2\n#set smtp-auth-user=me@bmc\n"
              "#set smtp-auth-password=pw\n",
              read_text(rc));
    read_back();
    put(config.port, 25);
    EXPECT_EQ(0, std::memcmp(&config, &back, sizeof back));
}

class Net : public VethPairTest
{
  protected:
    // Names of the longest length the kernel takes.
    Net() : VethPairTest("kv-services-a15", "kv-services-b15")
    {}
};

// Without CAP_NET_ADMIN every flag write fails: a call that succeeds there
// wrote nothing.
TEST_F(Net, StateAndLink)
{
    const char* left = left_.c_str();
    // The kernel reports a carrier change a moment after the flags.
    const auto link = [&](int expected) {
        int got = net_link_get(left);
        for (int i = 0; got != expected && i < 200; ++i, ::usleep(10000))
            got = net_link_get(left);
        return got;
    };
    EXPECT_EQ((int)if_nametoindex(left), net_index_get(left));
    EXPECT_EQ(0, net_enable_get(left));
    // Up through an alias.
    ASSERT_EQ(0, net_enable_set((left_ + ":1").c_str(), 1));
    ASSERT_EQ(0, net_enable_set(right_.c_str(), 7));
    EXPECT_EQ(1, net_enable_get(left));
    EXPECT_EQ(1, link(1));
    ASSERT_EQ(0, net_enable_set(right_.c_str(), 0));
    EXPECT_EQ(0, link(0));
    EXPECT_EQ(1, net_enable_get(left));
    EXPECT_EQ(0, exit_status_of([&] {
                  __user_cap_header_struct head{_LINUX_CAPABILITY_VERSION_3, 0};
                  __user_cap_data_struct none[2] = {};
                  return ::syscall(SYS_capset, &head, none) != 0 ||
                         net_enable_set(left, 1) != 0 ||
                         net_enable_set(left, 0) != -1;
              }));
    for (const char* no : {"kv-none", (const char*)nullptr})
        EXPECT_EQ(-4, net_index_get(no) + net_enable_get(no) +
                          net_enable_set(no, 1) + net_speed_get(no));
    // What veth reports; lo has no ethtool settings. qemu-user lacks
    // SIOCETHTOOL.
    if (!under_user_emulation())
    {
        EXPECT_EQ(10000, net_speed_get(left));
        EXPECT_EQ(-1, net_speed_get("lo"));
    }
}

// The test's private /proc/self/net stands in for the driver's; the texts
// are those of the Linux bonding driver.
TEST_F(Svc, Bonding)
{
    // No file, whatever interfaces exist.
    EXPECT_EQ(0, net_mode_get());
    const char* modes[] = {"load balancing (round-robin)",
                           "fault-tolerance (active-backup)",
                           "load balancing (xor)",
                           "fault-tolerance (broadcast)",
                           "IEEE 802.3ad Dynamic link aggregation",
                           "transmit load balancing",
                           "adaptive load balancing",
                           "new"};
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
    for (int outside : {-1, 8})
        EXPECT_STREQ("unknow", net_mode_itoa(outside));
    char slave[3];
    ASSERT_EQ(0, net_bond_active_slave(slave, sizeof slave));
    EXPECT_STREQ("et", slave);

    EXPECT_EQ(0, net_mode_set(0));
    EXPECT_EQ(0, net_mode_set(7));
    write_text("/tmp/rc", "3");
    EXPECT_EQ(-1, net_mode_set(2));
    // The empty command: nothing to fail.
    EXPECT_EQ(0, net_mode_set(8));
    EXPECT_EQ("disable\n--\nenable\nmode6\n--\nenable\nmode1\n--\n",
              read_text("/tmp/calls/bonding.sh"));
}

} // namespace

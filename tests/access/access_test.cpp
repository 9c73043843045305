// SPDX-License-Identifier: Apache-2.0
// Rule and privilege files, rule texts and conditions, login admission, and
// the client's MAC from the ARP table.
#include "test_helpers.h"
#include "veth_pair.h"

#include <libkv/access.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace kv::test;
using namespace std::string_literals;
namespace fs = std::filesystem;

namespace
{

const char *kRules = "/etc/user/rules", *kUsers = "/etc/user/privilege",
           *kPending = "/etc/user/rules_temp";

// setUserRule, and its change committed.
int set_rule(unsigned char id, std::string ipv4, std::string mac = "",
             std::string time = "", std::string ipv6 = "", bool on = true)
{
    const int result = setUserRule(id, ipv4, mac, time, on, ipv6);
    updateFile(kRules, 1);
    return result;
}

// The rules as read, in the lines the store writes; `result` is getUserRule's.
std::string read_rules(int result = 0)
{
    std::vector<userRule> rules;
    EXPECT_EQ(result, getUserRule(rules));
    std::string text;
    for (const userRule& r : rules)
    {
        text += std::to_string(r.id) + "," + r.ipv4 + "," + r.mac + "," +
                r.validTime + "," + (r.openflag ? "1," : "0,") + r.ipv6 + "\n";
    }
    return text;
}

std::string read_users(int result = 0)
{
    std::vector<userPrivilege> users;
    EXPECT_EQ(result, getUserPrivilege(users));
    std::string text;
    for (const userPrivilege& u : users)
    {
        text +=
            u.username + "," + u.privilege.to_string() + "," + u.ruleid + "\n";
    }
    return text;
}

// A change waits in the temp file until committed or dropped.
TEST(RuleStore, Pending)
{
    std::string net = "10.0.0.0/8", none;
    ASSERT_EQ(0, setUserRule(1, net, none, "", true, ""));
    EXPECT_EQ("1,10.0.0.0/8,,,1,\n", read_text(kPending));
    // The pending change is not read; dropped, and then nothing to drop.
    EXPECT_EQ("", read_rules(4103));
    EXPECT_EQ(0, updateFile(kRules, 0));
    EXPECT_EQ(0, updateFile(kRules, 0));
    EXPECT_FALSE(read_text(kPending) || read_text(kRules));
    EXPECT_EQ(0, set_rule(1, net));
    EXPECT_FALSE(read_text(kPending));
    // Nothing left to commit.
    EXPECT_EQ(1, updateFile(kRules, 1));
    EXPECT_EQ(1, updateFile(nullptr, 0));
    // Storing an id again moves its only line to the end.
    set_rule(0, "", "00:11:22", "08:00-18:00", "fe80::/64", false);
    set_rule(2, "");
    set_rule(1, "192.168.1.0/23");
    const std::string lines = "0,,00:11:22,08:00-18:00,0,fe80::/64\n"
                              "2,,,,1,\n1,192.168.1.0/23,,,1,\n";
    EXPECT_EQ(lines, read_text(kRules));
    EXPECT_EQ(lines, read_rules());
}

TEST(RuleStore, Fields)
{
    // The field (ipv4, mac, time, ipv6), its text, the result.
    const std::tuple<int, std::string, int> cases[] = {
        {0, "10.0.0.1/32", 0},
        {0, "10.0.0.1/33", 4097},
        {0, "10.0.0.1", 4097},
        {0, "10.0.0.0/8x", 4097},
        {3, "::1/128", 0},
        {3, "::1/129", 4097},
        {3, "fe80::zz/64", 4097},
        {1, "00:1A:2b:33:44:55", 0},
        {1, "00:1a:2b:33:44", 4098},
        {2, "2023/01/01 08:00-2023/12/31 18:00", 0},
        {2, "2023/01/01 08:00", 4099},
        {2, "2023/01/01-2050/01/01", 4099},
        // A comma or line break would start a field or a record of its own.
        {0, "10.0.0.0/8\n2,,,,1", 4097},
        {2, "08:00-18:00\n2,,,,1", 4099},
    };
    for (const auto& [field, text, result] : cases)
    {
        std::string f[4];
        f[field] = text;
        EXPECT_EQ(result, set_rule(2, f[0], f[1], f[2], f[3])) << text;
        EXPECT_EQ(result == 0, std::remove(kRules) == 0) << text;
    }
    EXPECT_EQ(4096, set_rule(3, "10.0.0.0/8"));
    EXPECT_FALSE(read_text(kRules));
}

// Lines read back as operators write them.
TEST(RuleStore, Read)
{
    // Five fields, any non-zero flag, and no newline after the last line.
    write_text(kRules, "0,10.0.0.0/8,,,7\n2,,,,0");
    EXPECT_EQ("0,10.0.0.0/8,,,1,\n2,,,,0,\n", read_rules());
    // Reading stops at the first bad line.
    for (const char* bad : {"\n", "one,,,,1,\n", "0,,,1\n", "0,,,,1,,\n"})
    {
        write_text(kRules, std::string("1,,,,1,\n") + bad + "2,,,,1,\n");
        EXPECT_EQ("1,,,,1,\n", read_rules(4096)) << bad;
    }
    std::vector<userRule> rules(1);
    std::remove(kRules);
    EXPECT_EQ(4103, getUserRule(rules));
    EXPECT_EQ(1u, rules.size());
    // A line over 1023 characters ends the file for readers and rewrites.
    const auto file_with = [](size_t length) {
        return "0,,,,1,\n1,,," + std::string(length - 7, 'x') +
               ",1,\n2,,,,1,\n";
    };
    write_text(kRules, file_with(1023));
    EXPECT_EQ(file_with(1023), read_rules());
    write_text(kRules, file_with(1024));
    EXPECT_EQ("0,,,,1,\n", read_rules());
    EXPECT_EQ(0, set_rule(1, "10.0.0.0/8"));
    EXPECT_EQ("0,,,,1,\n1,10.0.0.0/8,,,1,\n", read_text(kRules));
}

// A leftover temp file is dropped; a commit keeps the mode.
TEST(RuleStore, Commit)
{
    const mode_t old_mask = ::umask(022);
    write_text(kPending, "9,half a change\n");
    EXPECT_EQ(0, set_rule(0, "10.0.0.0/8"));
    EXPECT_EQ("0,10.0.0.0/8,,,1,\n", read_text(kRules));
    EXPECT_EQ(fs::perms(0644), fs::status(kRules).permissions());
    fs::permissions(kRules, fs::perms(0600));
    EXPECT_EQ(0, set_rule(0, "10.0.0.0/16"));
    EXPECT_EQ(fs::perms(0600), fs::status(kRules).permissions());
    ::umask(old_mask);
}

// A temp file that cannot be made or written fails the change.
TEST(RuleStore, NoTemp)
{
    write_text("/etc/user", "not a folder");
    EXPECT_EQ(0, set_rule(0, "10.0.0.0/8"));
    EXPECT_FALSE(read_text(kRules));
    std::remove("/etc/user");
    make_dirs("/etc/user");
    ASSERT_EQ(0, ::mount("tmpfs", "/etc/user", "tmpfs", 0, "size=4k"));
    write_text("/etc/user/filler", std::string(4096, 'f'));
    EXPECT_EQ(4102, set_rule(0, "10.0.0.0/8"));
    EXPECT_FALSE(fs::exists(kPending));
    ::umount2("/etc/user", MNT_DETACH);
}

// Users are written with twelve bits in place of their old lines.
TEST(PrivilegeStore, Users)
{
    write_text(kUsers, "alice,1,\nbob,1000000000001,\nalice,11,\n\n");
    EXPECT_EQ(0u, setUserPrivilege("carol", "", "0212"));
    EXPECT_EQ(0, updateFile(kUsers, 1));
    EXPECT_EQ(0u, setUserPrivilege("alice", "110", "2"));
    EXPECT_EQ(0, updateFile(kUsers, 1));
    EXPECT_EQ("bob,1000000000001,\n\ncarol,000000000000,0212\n"
              "alice,000000000110,2\n",
              read_text(kUsers));
    // Bad lines are skipped and reading goes on.
    EXPECT_EQ("bob,100000000000,\ncarol,000000000000,0212\n"
              "alice,000000000110,2\n",
              read_users(4096));
    write_text(kUsers, "carol,11,2,extra\ndave,1\nerin,100,");
    EXPECT_EQ("carol,000000000011,2\nerin,000000000100,\n", read_users(4096));
    std::remove(kUsers);
    EXPECT_EQ("", read_users(4103));
    // Bad rule ids, privileges and names write nothing; a line may not
    // pass 1023 characters.
    EXPECT_EQ(4104u, setUserPrivilege("dave", "1", "013"));
    EXPECT_EQ(4100u, setUserPrivilege("dave", "000000000002", "0"));
    for (const std::string& name :
         {"dave,1,"s, "x\nroot"s, std::string(1010, 'd')})
    {
        EXPECT_EQ(4096u, setUserPrivilege(name, "1", ""));
    }
    EXPECT_FALSE(fs::exists("/etc/user/privilege_temp"));
    EXPECT_EQ(0u, setUserPrivilege(std::string(1009, 'd'), "1", ""));
}

TEST(TextChecks, Forms)
{
    for (const char* bad : {"10.0.0", "10.0.0.0.1", "10.0..1", "10.0.0.256",
                            "10.0.0.-1", "10.0.0.1x"})
    {
        EXPECT_FALSE(ipv4VerifyIp(bad)) << bad;
    }
    EXPECT_TRUE(ipv4VerifyIp("0.0.0.0") && ipv4VerifyIp("10.255.0.01"));
    for (const char* bad : {"00:11:22:33", "00:11:22:33:44:55:66",
                            "00:11:22:33:44:5", "00:11:2g"})
    {
        EXPECT_FALSE(macVerify(bad)) << bad;
    }
    EXPECT_TRUE(macVerify("00:11:22:33:44:55") && macVerify("aA:fF:0f"));

    tm out{};
    const auto fields = [&](const char* text) {
        out.tm_hour = 5;
        EXPECT_TRUE(convertString2Date(text, out)) << text;
        return std::vector{out.tm_year, out.tm_mon, out.tm_mday,
                           out.tm_hour, out.tm_min, out.tm_sec};
    };
    EXPECT_EQ(std::vector({124, 2, 1, 8, 30, 0}), fields("2024/3/1 08:30"));
    EXPECT_EQ(std::vector({149, 11, 31, 0, 0, 0}), fields("2049/12/31"));
    EXPECT_EQ(std::vector({0, 0, 0, 23, 59, 59}), fields("23:59:59"));
    // No month lengths and no lowest year.
    EXPECT_EQ(std::vector({-1905, 1, 31, 0, 0, 0}), fields("-5/2/31 0:0"));
    for (const char* bad :
         {"2050/1/1", "2024/13/1", "2024/0/1", "2024/1/32 10:00", "2024/1/0",
          "2024/1", "24:00", "10:60", "10:00:60", "10", "10:00:00:00",
          "2024/1/1 10", "ab:cd"})
    {
        EXPECT_FALSE(convertString2Date(bad, out)) << bad;
    }
}

// The moment `seconds` from now as strftime's `format` shows it.
std::string at(long seconds, const char* format)
{
    const time_t then = std::time(nullptr) + seconds;
    char text[32];
    std::strftime(text, sizeof text, format, std::localtime(&then));
    return text;
}

// Now must lie within the window or the dates.
TEST(Rules, Period)
{
    // Periods are read without daylight saving time: build them in UTC.
    ::setenv("TZ", "UTC0", 1);
    ::tzset();
    const long day = 86400;
    // Ends are included; a window never wraps midnight; a date-only end is
    // the midnight that starts its day.
    EXPECT_TRUE(timeCheckRule(at(0, "%T") + "-23:59:59"));
    const std::string away = at(0, "%H") < "12" ? at(3600, "%T") + "-23:59:59"
                                                : "00:00:00-" + at(-3600, "%T");
    EXPECT_FALSE(timeCheckRule(away)) << away;
    EXPECT_FALSE(timeCheckRule("23:59:59-00:00:00"));
    EXPECT_TRUE(
        timeCheckRule(at(-9 * day, "%Y/%m/%d-") + at(0, "%Y/%m/%d 23:59:59")));
    EXPECT_FALSE(timeCheckRule(at(day, "%Y/%m/%d-") + at(2 * day, "%Y/%m/%d")));
    EXPECT_FALSE(timeCheckRule(at(-3 * day, "%Y/%m/%d-") + at(0, "%Y/%m/%d")));
    // Empty or unreadable periods restrict nobody.
    for (const char* open : {"", "soon-later", "08:00", "2050/1/1-2051/1/1"})
    {
        EXPECT_TRUE(timeCheckRule(open)) << open;
    }
    ::unsetenv("TZ");
    ::tzset();
}

// Two addresses that first differ in bit `bit` (128: none) share every
// prefix up to that bit and no longer one.
TEST(Rules, Prefix)
{
    for (int bit : {0, 7, 9, 63, 100, 122, 127, 128})
    {
        in6_addr address{};
        address.s6_addr[15] = 1;
        if (bit < 128)
        {
            address.s6_addr[bit / 8] ^= 0x80 >> bit % 8;
        }
        char text[INET6_ADDRSTRLEN];
        ASSERT_TRUE(inet_ntop(AF_INET6, &address, text, sizeof text));
        for (int prefix = 0; prefix <= 129; ++prefix)
        {
            EXPECT_EQ(prefix <= bit, ipCheckRule(text, "::1", prefix) &&
                                         ipCheckRule("::1", text, prefix))
                << text << "/" << prefix;
        }
    }
    EXPECT_FALSE(ipCheckRule("10.0.0.5", "::ffff:10.0.0.0", 0));
    EXPECT_FALSE(ipCheckRule("::1", "10.0.0.0", 0));
}

// Every line of the user must have the interface's bit; the rule ids are
// those of the line that decided.
TEST(PrivilegeStore, Interface)
{
    write_text(kUsers, "bob,000000100101,1\nbob,000000100011,2\n");
    for (auto [iface, result, ids] : {std::tuple{0, 0u, "2"},
                                      {5, 0u, "2"},
                                      {2, 256u, "2"},
                                      {1, 256u, "1"},
                                      {12, 256u, "1"}})
    {
        EXPECT_EQ(std::tuple(result, ids),
                  checkUserPrivilege("bob", userInterface(iface)))
            << iface;
    }
    EXPECT_EQ(std::tuple(0u, ""), checkUserPrivilege("Bob", INTERFACE_SSH));
}

// Every rule of the user must pass; missing or off rules admit.
TEST(Rules, Users)
{
    const auto admits = [](const char* user, const char* client) {
        return checkUser(user, client, "", INTERFACE_WEB);
    };
    write_text(kUsers, "alice,000000000001,02\nbob,000000000001,12\n"
                       "carol,000000000001,2210\n");
    // No rules file yet.
    EXPECT_EQ(0, admits("alice", "::ffff:11.0.0.1"));
    write_text(kRules, "0,192.168.1.0/24,,,1,\n1,192.168.1.0/24,,,0,\n"
                       "2,192.168.0.0/16,,,1,\n");
    for (const char* user : {"alice", "carol"})
    {
        EXPECT_EQ(0, admits(user, "::ffff:192.168.1.2"));
        EXPECT_EQ(257, admits(user, "::ffff:192.168.2.2"));
    }
    EXPECT_EQ(0, admits("bob", "::ffff:192.168.2.2"));
    EXPECT_EQ(257, admits("bob", "::ffff:10.0.0.1"));
    EXPECT_EQ(0, admits("dave", "::ffff:10.0.0.1"));
    // A broken privilege file refuses everybody, a missing one nobody.
    write_text(kUsers, "alice,000000000001,\nbob,0x01,\n");
    EXPECT_EQ(4096, admits("alice", "::ffff:10.0.0.1"));
    std::remove(kUsers);
    EXPECT_EQ(0, admits("alice", "::ffff:10.0.0.1"));
}

// Each condition refuses with its own result.
TEST(Rules, Conditions)
{
    write_text(kRules, "0,192.168.0.0/23,00:1A:2B,,1,fe80::/10\n"
                       "1,,,2000/1/1-2000/1/2,1,\n");
    const std::tuple<char, const char*, const char*, unsigned> cases[] = {
        // Mapped IPv4 clients meet the IPv4 network, IPv6 ones the IPv6 one.
        {'0', "::ffff:192.168.1.20", "", 0},
        {'0', "::ffff:192.168.2.20", "", 257},
        {'0', "febf::1:2", "", 0},
        {'0', "fec0::1", "", 257},
        // The MAC condition applies only when the client's MAC is known.
        {'0', "fe80::1", "00:1a:2b:33:44:55", 0},
        {'0', "fe80::1", "00:1a:2c:33:44:55", 258},
        {'1', "fe80::1", "", 259},
        // Local logins (no address) meet only the time condition.
        {'0', "", "", 0},
        {'1', "", "", 259},
    };
    for (const auto& [id, ip, mac, result] : cases)
    {
        EXPECT_EQ(result, checkUserRule("u", ip, mac, id,
                                        *ip ? INTERFACE_WEB : INTERFACE_LOCAL))
            << id << ip << mac;
    }
    for (const char* broken : {"0,10.0.0.0,,,1,\n", "0,10.0.0.0/x,,,1,\n",
                               "0,,,,1,fe80::\n", "0,,,,1,fe80::/64/1\n"})
    {
        write_text(kRules, broken);
        EXPECT_EQ(4096u, checkUserRule("u", "fe80::1", "", '0', INTERFACE_WEB))
            << broken;
    }
}

// Only refusals are logged.
TEST(Rules, Login)
{
    write_text(kRules, "0,10.0.0.0/8,,,1,\n1,,00:1a:2b,,1,fe80::/64\n");
    write_text(kUsers, "alice,000000100101,0\nbob,000000011001,1\n");
    const std::tuple<const char*, userInterface, const char*, unsigned>
        cases[] = {
            {"alice", INTERFACE_SSH, "::ffff:10.0.0.5:40022", 0},
            {"alice", INTERFACE_SNMP,
             "UDP: [::ffff:10.0.0.5]:40000->[::ffff:11.0.0.1]:161", 0},
            {"bob", INTERFACE_LOCAL, "anything", 0},
            // An IPv6 client has no MAC to meet the MAC condition with.
            {"bob", INTERFACE_REDFISH, "fe80::7", 0},
            {"alice", INTERFACE_WEB, "::ffff:11.0.0.5", 257},
            {"alice", INTERFACE_IPMI, "::ffff:10.0.0.5", 256},
            {"alice", INTERFACE_WEB, "10.0.0.5", 4096},
            {"alice", INTERFACE_SNMP, "UDP: 10.0.0.5:40000", 4096},
            {"alice", INTERFACE_SNMP, "UDP: [::ffff:10.0.0.5", 4096},
        };
    for (const auto& [user, iface, endpoint, result] : cases)
    {
        std::remove("/tmp/log");
        EXPECT_EQ(result, checkUserAllInOne(user, iface, endpoint, 0))
            << endpoint;
        const auto log = read_text("/tmp/log").value_or("");
        EXPECT_EQ(result != 0, log.find("Login Failed") != log.npos);
    }
}

// Each end of the pair has an address and a neighbour whose MAC tells them
// apart: 10.77.0.9 is 02:77:00:00:00:09 on the left, 10.78.0.9 02:78:...
struct Neighbours : VethPairTest
{
    Neighbours() : VethPairTest("kv-access-a", "kv-access-b")
    {}
    void SetUp() override
    {
        VethPairTest::SetUp();
        for (const std::string n : {"77", "78"})
        {
            const std::string dev = n == "77" ? left_ : right_;
            ASSERT_FALSE(
                !IsSkipped() &&
                (run_ip({"addr", "add", "10." + n + ".0.1/24", "dev", dev}) ||
                 run_ip({"link", "set", dev, "up"}) ||
                 run_ip({"neigh", "add", "10." + n + ".0.9", "lladdr",
                         "02:" + n + ":00:00:00:09", "dev", dev, "nud",
                         "permanent"})));
        }
    }
    // getMacBySockfd on `fd` (closed after), or on a UDP socket connected
    // to `peer` (no packet is sent) or to none.
    int mac_by(char* mac, const char* peer = nullptr, int fd = -1)
    {
        sockaddr_in to{AF_INET, htons(9), {}, {}};
        if (fd < 0)
        {
            fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        }
        if (peer != nullptr && inet_pton(AF_INET, peer, &to.sin_addr))
        {
            EXPECT_EQ(0, ::connect(fd, (sockaddr*)&to, sizeof to));
        }
        const int result = getMacBySockfd(fd, mac, left_);
        ::close(fd);
        return result;
    }
};

// The MAC comes from the ARP entry of the address or the socket's peer.
TEST_F(Neighbours, Mac)
{
    EXPECT_EQ(std::set<std::string>({left_, right_}), getAllNetdevice());
    char mac[18] = "kept";
    EXPECT_EQ(ENOTSOCK, mac_by(mac, nullptr, ::open("/", O_RDONLY)));
    EXPECT_EQ(ENOTCONN, mac_by(mac));
    EXPECT_EQ(1, getMacByIp("fe80::9", mac, "eth1"));
    if (under_user_emulation())
    {
        GTEST_SKIP() << "qemu-user hands SIOCGARP to the kernel without the "
                        "request";
    }
    EXPECT_EQ(ENXIO, mac_by(mac, "10.77.0.10"));
    EXPECT_EQ(0, getMacByIp("::ffff:10.77.0.10", mac, "eth1"));
    EXPECT_STREQ("kept", mac);
    EXPECT_EQ(0, mac_by(mac, "10.77.0.9"));
    EXPECT_STREQ("02:77:00:00:00:09", mac);
    // Every interface is asked.
    EXPECT_EQ(0, getMacByIp("::ffff:10.78.0.9", mac, "eth1"));
    EXPECT_STREQ("02:78:00:00:00:09", mac);

    // A login meets the MAC condition with the MAC of its entry.
    write_text(kRules, "0,10.77.0.0/24,02:77:00,,1,\n1,,02:77:01,,1,\n");
    write_text(kUsers, "alice,000000000001,0\nbob,000000000001,1\n");
    for (const auto& [user, client, result] :
         {std::tuple("alice", "::ffff:10.77.0.9", 0u),
          std::tuple("bob", "::ffff:10.77.0.9", 258u),
          std::tuple("bob", "::ffff:10.77.0.10", 0u)})
    {
        EXPECT_EQ(result, checkUserAllInOne(user, INTERFACE_WEB, client, 0))
            << user << " " << client;
    }
    // Interfaces without an IPv4 address are left out.
    ASSERT_EQ(0, run_ip({"addr", "flush", "dev", right_}));
    EXPECT_EQ(std::set<std::string>({left_}), getAllNetdevice());
}

} // namespace

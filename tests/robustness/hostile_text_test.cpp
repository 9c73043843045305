// SPDX-License-Identifier: Apache-2.0
// Text from the network (a user name, a pass phrase, mail settings, a login
// name) through every writer that puts it into another program's file, log
// or argument list: the consumer reads back exactly the text given, or the
// call refuses it and every file stays byte for byte as it was.
#include "test_helpers.h"

#include <libkv/access.h>
#include <libkv/events.h>
#include <libkv/foundation.h>
#include <libkv/fru.h>
#include <libkv/services.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <sstream>

namespace
{

using kv::test::read_text;
using kv::test::run_shell;
using kv::test::write_text;

const std::vector<std::string> kHostile = {
    "x\nextend x /bin/sh -c id",
    "\nrwcommunity evil",
    "monitor noauth",
    "-ro",
    "--help",
    "a\nset mta=/tmp/evil",
    "a mta=/tmp/evil",
    "x;set mta=/tmp/evil",
    "a\rset mta=/tmp/evil",
    "it's",
    "back\\slash",
    "ends\\",
    "trailing ",
    "\"quoted\"",
    "#hash",
    "k=v",
    "$(touch /tmp/owned)",
    "\x80\xfe\xff",
    std::string(300, 'v'),
    "",
};

std::string file_or_none(const std::string& path)
{
    return read_text(path).value_or("<none>");
}

// What the readers of key=value files make of a value: its outer blanks go.
std::string trimmed(std::string text)
{
    get_valid_string(text.data());
    return text.c_str();
}

std::string setting(const char* path, const std::string& key)
{
    char value[256];
    return read_conf_value_safe(path, key.c_str(), value, sizeof value, '=') ==
                   0
               ? value
               : "<none>";
}

TEST(HostileText, KeyValueFilesKeepEveryKeyOnItsLine)
{
    constexpr const char* kConf = "/tmp/hostile.conf";
    const std::string before = "a=1\nb=2\n";
    for (const std::string& text : kHostile)
    {
        SCOPED_TRACE(testing::PrintToString(text));
        for (const bool as_key : {false, true})
        {
            write_text(kConf, before);
            const std::string key = as_key ? text : "a";
            const int result = write_conf_value(kConf, key.c_str(),
                                                as_key ? "v" : text.c_str());
            if (result != 0)
            {
                EXPECT_EQ(-1, result);
                EXPECT_EQ(before, file_or_none(kConf));
                continue;
            }
            EXPECT_EQ(as_key ? "v" : trimmed(text), setting(kConf, key));
            EXPECT_EQ(as_key ? "1" : trimmed(text), setting(kConf, "a"));
            EXPECT_EQ("2", setting(kConf, "b"));
            const std::string after = file_or_none(kConf);
            EXPECT_EQ(as_key ? 3 : 2,
                      std::count(after.begin(), after.end(), '\n'));
        }
    }
}

// Debian's agent reads the community the library wrote, and the v3 user
// tool gets only names it takes for names and writes as one word.
TEST(HostileText, SnmpAgentFilesGainNoDirective)
{
    constexpr const char* kConf = "/etc/snmp/snmpd.conf";
    constexpr const char* kUsers = "/var/lib/snmp/snmpd.conf";
    const std::string before = "agentaddress udp:127.0.0.1:16161\n"
                               "com2sec  mynetwork   default   public\n"
                               "group my_group v2c mynetwork\n"
                               "view all included .1\n"
                               "access my_group \"\" any noauth exact all "
                               "none none\n"
                               "sysdescr hostile\n";
    kv::test::make_dirs("/var/lib/snmp");
    for (const std::string& text : kHostile)
    {
        SCOPED_TRACE(testing::PrintToString(text));
        for (const int call : {0, 1, 2})
        {
            write_text(kConf, before);
            std::filesystem::remove(kUsers);
            const std::string user = call == 1 ? text : "op";
            const std::string phrase = call == 2 ? text : "passphrase1";
            const int result =
                call == 0
                    ? snmp_community_set(text.c_str())
                    : snmp_v3_user_add(user.c_str(), phrase.c_str(),
                                       SNMP_V3_AUTHEN_SHA, SNMP_V3_ENCRYPT_AES);
            const std::string files =
                file_or_none(kConf) + file_or_none(kUsers);
            if (result != 0)
            {
                EXPECT_EQ(-1, result);
                EXPECT_EQ(before + "<none>", files);
            }
            else if (call == 0)
            {
                std::string conf = before;
                conf.replace(conf.find("public"), 6, text);
                EXPECT_EQ(conf + "<none>", files);
            }
            else
            {
                const std::string quoted = '"' + phrase + '"';
                EXPECT_EQ(before + "rwuser " + user + "\ncreateUser " + user +
                              " SHA " + quoted + " AES " + quoted + "\n",
                          files);
            }
        }
    }
    EXPECT_FALSE(std::filesystem::exists("/tmp/owned"));

    // A word with every character the agent's reader could misread but
    // takes as it is, asked for by the agent's client.
    const std::string word = "x#$(id);=,";
    write_text(kConf, before);
    ASSERT_EQ(0, snmp_community_set(word.c_str()));
    const auto asked = run_shell(
        "(" KV_SNMPD " -f -C -c " + std::string(kConf) +
        " -Lf /tmp/snmpd.log & sleep 1; " KV_SNMPGET " -v2c -c '" + word +
        "' -t 1 -r 1 -m '' -Ov 127.0.0.1:16161 .1.3.6.1.2.1.1.1.0; "
        "kill $!) 2>&1");
    EXPECT_EQ("STRING: \"hostile\"\n", asked.output);
}

// What s-nail makes of a resource file: the names of the variables set,
// and the values of "smtp", "smtp-auth-user" and "smtp-auth-password".
struct ClientView
{
    std::set<std::string> names;
    std::string values;
};

ClientView client_view(const char* rc)
{
    const std::string client =
        "MAILRC=" + std::string(rc) + " HOME=/tmp " KV_MAIL_CLIENT " -n -# ";
    std::istringstream listing(
        run_shell(client + "-Y set -Y x </dev/null").output);
    ClientView view;
    for (std::string line; std::getline(listing, line);)
    {
        const size_t name = line.starts_with("set ")        ? 4
                            : line.starts_with("wysh set ") ? 9
                                                            : 0;
        if (name > 0)
        {
            view.names.insert(line.substr(name, line.find('=') - name));
        }
    }
    view.values = run_shell(client + "-Y 'echo \"${smtp}\"' "
                                     "-Y 'echo \"${smtp-auth-user}\"' "
                                     "-Y 'echo \"${smtp-auth-password}\"' -Y x "
                                     "</dev/null")
                      .output;
    return view;
}

TEST(HostileText, MailSettingsReachTheMailClientExactly)
{
#ifndef KV_MAIL_CLIENT
    GTEST_SKIP() << "s-nail (Debian package s-nail) is not installed";
#else
    constexpr const char* kRc = "/var/lib/ipmi/nail.rc";
    kv::test::make_dirs("/var/lib/ipmi");
    MailConfig ordinary{};
    std::strcpy(ordinary.user, "alerts@bmc.example");
    std::strcpy(ordinary.server, "mail.example");
    std::strcpy(ordinary.password, "s3cr3t");
    std::strcpy(ordinary.recipients[0], "ops@example.com");
    std::strcpy(ordinary.active, "on");
    ordinary.authentication[0] = 1;
    ASSERT_EQ(0, write_email_config(kRc, &ordinary));
    const std::string before = file_or_none(kRc);
    const std::set<std::string> names = client_view(kRc).names;

    struct Field
    {
        char* text;
        size_t size;
    };
    for (const std::string& text : kHostile)
    {
        MailConfig config = ordinary;
        for (const Field field :
             {Field{config.user, sizeof config.user},
              Field{config.server, sizeof config.server},
              Field{config.password, sizeof config.password},
              Field{config.recipients[0], sizeof config.recipients[0]},
              Field{config.active, sizeof config.active}})
        {
            SCOPED_TRACE(testing::PrintToString(text) + " in field " +
                         std::to_string(field.text - config.user));
            config = ordinary;
            const size_t length = std::min(text.size(), field.size);
            std::memset(field.text, 0, field.size);
            std::memcpy(field.text, text.data(), length);
            write_text(kRc, before);
            if (write_email_config(kRc, &config) != 0)
            {
                EXPECT_EQ(before, file_or_none(kRc));
                continue;
            }
            ASSERT_LT(length, field.size);
            MailConfig back{};
            ASSERT_EQ(0, read_email_config(kRc, &back));
            back.port[0] = 0; // the default port the reader fills in
            EXPECT_EQ(0, std::memcmp(&config, &back, sizeof back));
            const ClientView view = client_view(kRc);
            // s-nail drops "from" when the user is no address.
            EXPECT_TRUE(std::includes(names.begin(), names.end(),
                                      view.names.begin(), view.names.end()));
            EXPECT_EQ("smtp://" + std::string(config.server) + ":25\n" +
                          config.user + "\n" + config.password + "\n",
                      view.values);
        }
    }
#endif
}

TEST(HostileText, OneCallMakesOneLogOrSelLine)
{
    kv::test::make_dirs("/run/BMCInfo/Development/Log/bmc");
    for (const std::string& text : kHostile)
    {
        SCOPED_TRACE(testing::PrintToString(text));
        std::filesystem::remove_all("/tmp/log");
        std::filesystem::remove_all("/tmp/sel");
        std::filesystem::remove_all(
            "/run/BMCInfo/Development/Log/bmc/log_info");
        veldmarke_log("Login Failed username: %s, endpoint:%s", text.c_str(),
                      "::1");
        log_call(KV_LOG_INFO, "fru write by %s", text.c_str());
        ASSERT_EQ(0, save_sel_to_file(1, 0, 2, text.c_str(), "/tmp/sel"));
        for (const char* path : {"/tmp/log", "/tmp/sel/sel.log",
                                 "/run/BMCInfo/Development/Log/bmc/log_info"})
        {
            // The SEL line's own end is "\r\n".
            const std::string log = file_or_none(path);
            EXPECT_EQ(1, std::count(log.begin(), log.end(), '\n')) << path;
            const size_t cr = log.find('\r');
            EXPECT_TRUE(cr == log.npos || cr + 2 == log.size()) << path;
        }
    }
}

TEST(HostileText, FruFieldsHoldTheirLengthOrAreLeftAlone)
{
    constexpr int kBoardSerial = 6;
    for (const size_t length : {63u, 64u, 255u, 256u, 300u})
    {
        std::memset(&fru, 0, sizeof fru);
        const std::string value(length, 's');
        if (length < 64)
        {
            EXPECT_EQ(0, modify_section(value.c_str(), kBoardSerial));
            EXPECT_EQ(0xC0 + length, fru.board.field[2].type_len);
            continue;
        }
        EXPECT_EQ(-1, modify_section(value.c_str(), kBoardSerial));
        EXPECT_EQ(0, fru.board.field[2].type_len) << length;
        EXPECT_EQ(0, fru.board.field[2].data[0]) << length;
    }
}

TEST(HostileText, StoreRecordsStayOneRecordOfOneLine)
{
    std::string network = "192.168.1.0/24";
    std::string none;
    for (const std::string junk : {"junk", " ", "/8", "x,1"})
    {
        std::string ipv4 = network + junk;
        EXPECT_EQ(4097, setUserRule(0, ipv4, none, "", true, ""));
        EXPECT_EQ(4097,
                  setUserRule(0, none, none, "", true, "fe80::/64" + junk));
    }
    EXPECT_EQ(0, setUserRule(0, network, none, "", true, "fe80::/64"));
    EXPECT_EQ(0, updateFile("/etc/user/rules", 1));

    std::vector<std::string> names = kHostile;
    names.push_back(std::string(1100, 'u'));
    for (const std::string& name : names)
    {
        SCOPED_TRACE(testing::PrintToString(name));
        if (setUserPrivilege(name, "000000000001", "0") != 0)
        {
            EXPECT_FALSE(std::filesystem::exists("/etc/user/privilege_temp"));
            continue;
        }
        ASSERT_EQ(0, updateFile("/etc/user/privilege", 1));
        std::vector<userPrivilege> users;
        EXPECT_EQ(0, getUserPrivilege(users));
        ASSERT_FALSE(users.empty());
        EXPECT_EQ(name, users.back().username);
    }
}

// Files that hold a password are the owner's alone when the library makes
// them, and a rewrite keeps the mode, owner and group it finds.
TEST(HostileText, SecretFilesStayPrivateToTheirGroup)
{
    constexpr const char* kConf = "/etc/snmp/snmpd.conf";
    constexpr const char* kRc = "/var/lib/ipmi/nail.rc";
    kv::test::make_dirs("/var/lib/ipmi");
    kv::test::make_dirs("/etc/snmp");
    ::umask(022);
    std::filesystem::remove(kConf);
    ASSERT_EQ(0, snmp_community_set("public"));
    MailConfig config{};
    std::strcpy(config.server, "mail.example");
    ASSERT_EQ(0, write_email_config(kRc, &config));
    // Permissions and group of a file.
    const auto access_of = [](const char* path) {
        struct stat info = {};
        EXPECT_EQ(0, ::stat(path, &info)) << path;
        return std::pair<unsigned, unsigned>(info.st_mode & 07777, info.st_gid);
    };
    for (const char* path : {kConf, kRc})
    {
        EXPECT_EQ(0600u, access_of(path).first) << path;
        ASSERT_EQ(0, ::chown(path, 0, 123));
        ASSERT_EQ(0, ::chmod(path, 0640));
    }
    ASSERT_EQ(0, snmp_community_set("private"));
    std::strcpy(config.server, "mx.example");
    ASSERT_EQ(0, write_email_config(kRc, &config));
    for (const char* path : {kConf, kRc})
    {
        EXPECT_EQ(std::make_pair(0640u, 123u), access_of(path)) << path;
    }
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// Text from the network through every writer that puts it into another
// program's file, log or argument list: the consumer reads back exactly the
// text given, or the call refuses it and leaves every file as it was.
#include "test_helpers.h"

#include <libkv/access.h>
#include <libkv/events.h>
#include <libkv/foundation.h>
#include <libkv/fru.h>
#include <libkv/services.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <set>
#include <sstream>

namespace
{

using namespace kv::test;

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

std::string setting(const char* path, const std::string& key)
{
    char value[256];
    return read_conf_value_safe(path, key.c_str(), value, sizeof value, '=')
               ? "<none>"
               : value;
}

// A hostile key, or value, gets its own line; the readers trim the value.
TEST(HostileText, KeyValueFilesKeepEveryKeyOnItsLine)
{
    constexpr const char* kConf = "/tmp/hostile.conf";
    for (const std::string& text : kHostile)
    {
        SCOPED_TRACE(testing::PrintToString(text));
        std::string trimmed = text;
        get_valid_string(trimmed.data());
        for (const bool as_key : {false, true})
        {
            write_text(kConf, "a=1\nb=2\n");
            const std::string key = as_key ? text : "a";
            const std::string value = as_key ? "v" : trimmed.c_str();
            const int result = write_conf_value(kConf, key.c_str(),
                                                as_key ? "v" : text.c_str());
            const std::string after = file_or_none(kConf);
            if (result != 0)
            {
                EXPECT_EQ(-1, result);
                EXPECT_EQ("a=1\nb=2\n", after);
                continue;
            }
            EXPECT_EQ(value, setting(kConf, key));
            EXPECT_EQ(as_key ? "1" : value, setting(kConf, "a"));
            EXPECT_EQ("2", setting(kConf, "b"));
            EXPECT_EQ(2 + as_key, std::count(after.begin(), after.end(), '\n'));
        }
    }
}

// The community, a v3 user or a pass phrase: snmpd reads the community the
// library wrote, and the user tool gets names it takes as one word.
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
    make_dirs("/var/lib/snmp");
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
            std::string expected = before + "<none>";
            if (result == 0 && call == 0)
            {
                expected.replace(expected.find("public"), 6, text);
            }
            else if (result == 0)
            {
                const std::string quoted = '"' + phrase + '"';
                expected = before + "rwuser " + user + "\ncreateUser " + user +
                           " SHA " + quoted + " AES " + quoted + "\n";
            }
            EXPECT_TRUE(result == 0 || result == -1) << result;
            EXPECT_EQ(expected, file_or_none(kConf) + file_or_none(kUsers));
        }
    }
    EXPECT_FALSE(std::filesystem::exists("/tmp/owned"));

    // Every character the agent's reader could misread but takes as it is.
    const std::string word = "x#$(id);=,";
    write_text(kConf, before);
    ASSERT_EQ(0, snmp_community_set(word.c_str()));
    EXPECT_EQ("STRING: \"hostile\"\n",
              run_shell("(" KV_SNMPD " -f -C -c " + std::string(kConf) +
                        " -Lf /tmp/snmpd.log & sleep 1; " KV_SNMPGET
                        " -v2c -c '" +
                        word +
                        "' -t 1 -r 1 -m '' -Ov 127.0.0.1:16161 "
                        ".1.3.6.1.2.1.1.1.0; kill $!) 2>&1")
                  .output);
}

#ifdef KV_MAIL_CLIENT
// What s-nail makes of a resource file: the names of the variables set, then
// the values of "smtp", "smtp-auth-user" and "smtp-auth-password".
std::pair<std::set<std::string>, std::string> client_view(const char* rc)
{
    const std::string client =
        "MAILRC=" + std::string(rc) + " HOME=/tmp " KV_MAIL_CLIENT " -n -# ";
    std::istringstream listing(
        run_shell(client + "-Y set -Y x </dev/null").output);
    std::set<std::string> names;
    for (std::string line; std::getline(listing, line);)
    {
        const size_t at = line.starts_with("set ")        ? 4
                          : line.starts_with("wysh set ") ? 9
                                                          : 0;
        if (at > 0)
        {
            names.insert(line.substr(at, line.find('=') - at));
        }
    }
    return {names, run_shell(client + "-Y 'echo \"${smtp}\"' "
                                      "-Y 'echo \"${smtp-auth-user}\"' "
                                      "-Y 'echo \"${smtp-auth-password}\"' "
                                      "-Y x </dev/null")
                       .output};
}
#endif

TEST(HostileText, MailSettingsReachTheMailClientExactly)
{
#ifndef KV_MAIL_CLIENT
    GTEST_SKIP() << "s-nail (Debian package s-nail) is not installed";
#else
    constexpr const char* kRc = "/var/lib/ipmi/nail.rc";
    make_dirs("/var/lib/ipmi");
    MailConfig ordinary{};
    std::strcpy(ordinary.user, "alerts@bmc.example");
    std::strcpy(ordinary.server, "mail.example");
    std::strcpy(ordinary.password, "s3cr3t");
    std::strcpy(ordinary.recipients[0], "ops@example.com");
    std::strcpy(ordinary.active, "on");
    ordinary.authentication[0] = 1;
    ASSERT_EQ(0, write_email_config(kRc, &ordinary));
    const std::string before = file_or_none(kRc);
    const std::set<std::string> names = client_view(kRc).first;
    MailConfig config = ordinary;
    // Puts each text in `field` in turn.
    const auto each = [&](auto& field) {
        for (const std::string& text : kHostile)
        {
            SCOPED_TRACE(testing::PrintToString(text) + " at " +
                         std::to_string(field - config.user));
            config = ordinary;
            std::memset(field, 0, sizeof field);
            std::memcpy(field, text.data(),
                        std::min(text.size(), sizeof field));
            write_text(kRc, before);
            if (write_email_config(kRc, &config) != 0)
            {
                EXPECT_EQ(before, file_or_none(kRc));
                continue;
            }
            ASSERT_LT(text.size(), sizeof field);
            MailConfig back{};
            ASSERT_EQ(0, read_email_config(kRc, &back));
            back.port[0] = 0; // the default port the reader fills in
            EXPECT_EQ(0, std::memcmp(&config, &back, sizeof back));
            const auto [seen, values] = client_view(kRc);
            // s-nail drops "from" when the user is no address.
            EXPECT_TRUE(std::includes(names.begin(), names.end(), seen.begin(),
                                      seen.end()));
            EXPECT_EQ("smtp://" + std::string(config.server) + ":25\n" +
                          config.user + "\n" + config.password + "\n",
                      values);
        }
    };
    each(config.user);
    each(config.server);
    each(config.password);
    each(config.recipients[0]);
    each(config.active);
#endif
}

// One call makes one line; the SEL line's own end is "\r\n".
TEST(HostileText, OneCallMakesOneLogOrSelLine)
{
    const char* bmc_log = "/run/BMCInfo/Development/Log/bmc/log_info";
    make_dirs("/run/BMCInfo/Development/Log/bmc");
    for (const std::string& text : kHostile)
    {
        SCOPED_TRACE(testing::PrintToString(text));
        for (const char* path : {"/tmp/log", "/tmp/sel", bmc_log})
        {
            std::filesystem::remove_all(path);
        }
        veldmarke_log("Login Failed username: %s, endpoint:%s", text.c_str(),
                      "::1");
        log_call(KV_LOG_INFO, "fru write by %s", text.c_str());
        ASSERT_EQ(0, save_sel_to_file(1, 0, 2, text.c_str(), "/tmp/sel"));
        for (const char* path : {"/tmp/log", "/tmp/sel/sel.log", bmc_log})
        {
            const std::string log = file_or_none(path);
            EXPECT_EQ(1, std::count(log.begin(), log.end(), '\n')) << path;
            const size_t cr = log.find('\r');
            EXPECT_TRUE(cr == log.npos || cr + 2 == log.size()) << path;
        }
    }
}

// A FRU text field holds at most 63 bytes; a longer value leaves it alone.
TEST(HostileText, FruFieldsHoldTheirLengthOrAreLeftAlone)
{
    for (const int length : {1, 63, 64, 255, 256, 300})
    {
        std::memset(&fru, 0, sizeof fru);
        const bool fits = length < 64;
        const int board_serial = 6;
        EXPECT_EQ(
            fits ? 0 : -1,
            modify_section(std::string(length, 's').c_str(), board_serial));
        EXPECT_EQ(fits ? 0xC0 + length : 0, fru.board.field[2].type_len);
        EXPECT_EQ(fits ? 's' : 0, fru.board.field[2].data[0]);
    }
}

// A user name the store takes reads back as it was given.
TEST(HostileText, StoredUserNamesReadBackAsGiven)
{
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

// Files holding a password are made private, and a rewrite keeps the mode,
// owner and group it finds.
TEST(HostileText, SecretFilesStayPrivateToTheirGroup)
{
    const std::vector<std::string> paths = {"/etc/snmp/snmpd.conf",
                                            "/var/lib/ipmi/nail.rc"};
    make_dirs("/var/lib/ipmi");
    make_dirs("/etc/snmp");
    ::umask(022);
    std::filesystem::remove(paths[0]);
    MailConfig config{};
    for (const bool first : {true, false})
    {
        const char* server = first ? "mail.example" : "mx.example";
        ASSERT_EQ(0, snmp_community_set(server));
        std::strcpy(config.server, server);
        ASSERT_EQ(0, write_email_config(paths[1].c_str(), &config));
        for (const std::string& path : paths)
        {
            struct stat info = {};
            EXPECT_EQ(0, ::stat(path.c_str(), &info)) << path;
            EXPECT_EQ(first ? 0600u : 0640u, info.st_mode & 07777) << path;
            EXPECT_TRUE(first || info.st_gid == 123) << path;
            ASSERT_EQ(0, ::chown(path.c_str(), 0, 123));
            ASSERT_EQ(0, ::chmod(path.c_str(), 0640));
        }
    }
}

} // namespace

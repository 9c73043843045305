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

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace
{

using namespace kv::test;
using std::string;

const string kHostile[] = {
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
    string(300, 'v'),
    "",
};

string file_or_none(const string& path)
{
    return read_text(path).value_or("<none>");
}

// Each text as a key=value key and value, an SNMP community, v3 user and
// pass phrase, each mail setting, a log line, a SEL line and a user name.
TEST(HostileText, EveryConsumerReadsBackWhatTheLibraryTook)
{
    const char *conf = "/tmp/hostile.conf", *rc = "/var/lib/ipmi/nail.rc",
               *snmpd = "/etc/snmp/snmpd.conf",
               *users = "/var/lib/snmp/snmpd.conf";
    const char* logs[] = {"/tmp/log", "/tmp/sel/sel.log",
                          "/run/BMCInfo/Development/Log/bmc/log_info"};
    for (const char* dir : {"/run/BMCInfo/Development/Log/bmc", "/etc/snmp",
                            "/var/lib/snmp", "/var/lib/ipmi"})
    {
        make_dirs(dir);
    }
    const string agent = "agentaddress udp:127.0.0.1:16161\n"
                         "com2sec  mynetwork   default   public\n"
                         "group my_group v2c mynetwork\n"
                         "view all included .1\n"
                         "access my_group \"\" any noauth exact all none "
                         "none\n"
                         "sysdescr hostile\n";
    const auto setting = [&](const string& key) {
        char value[256];
        return read_conf_value_safe(conf, key.c_str(), value, sizeof value, '=')
                   ? "<none>"
                   : string(value);
    };
    const MailConfig ordinary{"alerts@bmc.example",
                              "mail.example",
                              "s3cr3t",
                              {"ops@example.com"},
                              {},
                              "on",
                              {},
                              {},
                              {},
                              {},
                              {1}};

    // Secrets are made private; a rewrite keeps the mode and group it finds.
    ::umask(022);
    std::filesystem::remove(snmpd);
    ASSERT_EQ(0, snmp_community_set("public"));
    MailConfig config = ordinary; // first without a login
    config.authentication[0] = 0;
    ASSERT_EQ(0, write_email_config(rc, &config));
    const auto private_to = [&](mode_t mode) {
        for (const char* path : {snmpd, rc})
        {
            struct stat info = {};
            ::stat(path, &info);
            EXPECT_EQ(mode, info.st_mode & 07777) << path;
            EXPECT_TRUE(mode == 0600 || info.st_gid == 123) << path;
            ASSERT_EQ(0, ::chown(path, 0, 123) + ::chmod(path, 0640));
        }
    };
    private_to(0600);
    ASSERT_EQ(0, write_email_config(rc, &ordinary));
    const string mail_rc = *read_text(rc);
#ifdef KV_MAIL_CLIENT
    // Every text tries to set mta: s-nail must keep the one it had.
    const auto mail_client = [] {
        return run_shell(
                   "MAILRC=/var/lib/ipmi/nail.rc HOME=/tmp " KV_MAIL_CLIENT
                   " -n -# -Y 'echo \"${mta}\"' -Y 'echo \"${smtp}\"' "
                   "-Y 'echo \"${smtp-auth-user}\"' -Y 'echo "
                   "\"${smtp-auth-password}\"' -Y x </dev/null")
            .output;
    };
    string mta = mail_client();
    mta.resize(mta.find('\n') + 1);
#endif

    // Puts the text in `field`: s-nail sees it as given or the rc stays.
    const auto mail = [&](auto& field, const string& text) {
        config = ordinary;
        std::strncpy(field, text.c_str(), sizeof field);
        write_text(rc, mail_rc);
        if (write_email_config(rc, &config) != 0)
        {
            EXPECT_EQ(mail_rc, file_or_none(rc));
            return;
        }
        ASSERT_LT(text.size(), sizeof field);
        MailConfig back{};
        ASSERT_EQ(0, read_email_config(rc, &back));
        back.port[0] = 0; // the default port the reader fills in
        EXPECT_EQ(0, std::memcmp(&config, &back, sizeof back));
#ifdef KV_MAIL_CLIENT
        const string seen = mail_client();
        EXPECT_TRUE(seen.ends_with(mta + "smtp://" + string(config.server) +
                                   ":25\n" + config.user + "\n" +
                                   config.password + "\n"))
            << seen;
#endif
    };

    for (const string& text : kHostile)
    {
        SCOPED_TRACE(testing::PrintToString(text));
        // A hostile key, or value, gets its own line; the reader trims.
        string trimmed = text;
        get_valid_string(trimmed.data());
        for (const bool as_key : {false, true})
        {
            write_text(conf, "a=1\nb=2\n");
            const string key = as_key ? text : "a";
            const int result = write_conf_value(conf, key.c_str(),
                                                as_key ? "v" : text.c_str());
            const string after = *read_text(conf);
            if (result != 0)
            {
                EXPECT_EQ("-1 a=1\nb=2\n",
                          std::to_string(result) + " " + after);
                continue;
            }
            const string value = as_key ? "v" : trimmed.c_str();
            EXPECT_EQ((as_key ? "1" : value) + "2" + value,
                      setting("a") + setting("b") + setting(key));
            EXPECT_EQ(2 + as_key, std::count(after.begin(), after.end(), '\n'));
        }

        // The community, a v3 user or its pass phrase: one word each.
        for (const int call : {0, 1, 2})
        {
            write_text(snmpd, agent);
            std::filesystem::remove(users);
            const string user = call == 1 ? text : "op";
            const string phrase = call == 2 ? text : "passphrase1";
            const int result =
                call == 0
                    ? snmp_community_set(text.c_str())
                    : snmp_v3_user_add(user.c_str(), phrase.c_str(),
                                       SNMP_V3_AUTHEN_SHA, SNMP_V3_ENCRYPT_AES);
            string expected = agent + "<none>";
            if (result == 0 && call == 0)
            {
                expected.replace(expected.find("public"), 6, text);
            }
            else if (result == 0)
            {
                const string quoted = '"' + phrase + '"';
                expected = agent + "rwuser " + user + "\ncreateUser " + user +
                           " SHA " + quoted + " AES " + quoted + "\n";
            }
            EXPECT_EQ(expected, file_or_none(snmpd) + file_or_none(users))
                << "call " << call;
        }

        mail(config.user, text);
        mail(config.server, text);
        mail(config.password, text);
        mail(config.recipients[0], text);
        mail(config.active, text);

        // One call makes one line; the SEL line's own end is "\r\n".
        for (const char* log : logs)
        {
            std::filesystem::remove(log);
        }
        veldmarke_log("Login Failed username: %s, endpoint:%s", text.c_str(),
                      "::1");
        log_call(KV_LOG_INFO, "fru write by %s", text.c_str());
        ASSERT_EQ(0, save_sel_to_file(1, 0, 2, text.c_str(), "/tmp/sel"));
        for (const char* log : logs)
        {
            const string lines = file_or_none(log);
            EXPECT_EQ(1, std::count(lines.begin(), lines.end(), '\n')) << log;
            const size_t cr = lines.find('\r');
            EXPECT_TRUE(cr == lines.npos || cr + 2 == lines.size()) << log;
        }

        // A user name the store takes reads back as it was given.
        if (setUserPrivilege(text, "000000000001", "0") == 0)
        {
            ASSERT_EQ(0, updateFile("/etc/user/privilege", 1));
            std::vector<userPrivilege> stored;
            getUserPrivilege(stored);
            EXPECT_EQ(text, stored.empty() ? "" : stored.back().username);
        }
    }
    private_to(0640);
    EXPECT_FALSE(std::filesystem::exists("/tmp/owned"));

    // Every character snmpd's reader could misread but takes as it is.
    write_text(snmpd, agent);
    ASSERT_EQ(0, snmp_community_set("x#$(id);=,"));
    EXPECT_EQ("STRING: \"hostile\"\n",
              beside_snmpd(KV_SNMPGET
                           " -v2c -c 'x#$(id);=,' -t 1 -r 1 -m '' "
                           "-Ov 127.0.0.1:16161 .1.3.6.1.2.1.1.1.0"));
}

// A FRU text field holds at most 63 bytes; a longer value leaves it alone.
TEST(HostileText, FruFieldsHoldTheirLengthOrAreLeftAlone)
{
    for (const int length : {1, 63, 64, 255, 256, 300})
    {
        std::memset(&fru, 0, sizeof fru);
        const bool fits = length < 64;
        // Field 6: the board serial number.
        EXPECT_EQ(fits ? 0 : -1,
                  modify_section(string(length, 's').c_str(), 6));
        EXPECT_EQ(fits ? 0xC0 + length : 0, fru.board.field[2].type_len);
        EXPECT_EQ(fits ? 's' : 0, fru.board.field[2].data[0]);
    }
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// Mail alert settings: the record, the mail client's resource file, and the
// mail client itself sending through a loopback SMTP listener.
#include "smtp_listener.h"
#include "test_helpers.h"

#include <libkv/ipc.h>
#include <libkv/services.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace
{

using kv::test::read_text;
using kv::test::write_text;

constexpr const char* kNailRc = "/var/lib/ipmi/nail.rc";

uint32_t field(const uint8_t (&bytes)[4])
{
    uint32_t value = 0;
    std::memcpy(&value, bytes, sizeof value); // little-endian here and there
    return value;
}

void set_field(uint8_t (&bytes)[4], uint32_t value)
{
    std::memcpy(bytes, &value, sizeof value);
}

MailConfig alert_settings()
{
    MailConfig config{};
    std::strcpy(config.user, "alerts@bmc.example");
    std::strcpy(config.server, "mail.example");
    std::strcpy(config.password, "s3cr3t-Pw");
    std::strcpy(config.recipients[0], "ops@example.com");
    std::strcpy(config.recipients[1], "oncall@example.com");
    std::strcpy(config.active, "on");
    set_field(config.error_level, 2);
    set_field(config.authentication, 1);
    return config;
}

MailConfig read_back(const char* path = kNailRc)
{
    MailConfig config{};
    EXPECT_EQ(0, read_email_config(path, &config));
    return config;
}

class MailConfigFile : public testing::Test
{
  protected:
    void SetUp() override
    {
        kv::test::make_dirs("/var/lib/ipmi");
    }
};

TEST_F(MailConfigFile, SettingsGoToTheirLinesAndReadBack)
{
    const MailConfig config = alert_settings();
    ASSERT_EQ(0, write_email_config(nullptr, &config));
    EXPECT_EQ("set smtp=smtp://mail.example:25\n"
              "set from=alerts@bmc.example\n"
              "set smtp-auth=login\n"
              "set smtp-auth-user=alerts@bmc.example\n"
              "set smtp-auth-password=s3cr3t-Pw\n"
              "#user-recv=ops@example.com oncall@example.com\n"
              "#active=on\n"
              "#error-level=2\n",
              read_text(kNailRc).value_or("<none>"));

    const MailConfig back = read_back(nullptr);
    EXPECT_STREQ("alerts@bmc.example", back.user);
    EXPECT_STREQ("mail.example", back.server);
    EXPECT_STREQ("s3cr3t-Pw", back.password);
    EXPECT_STREQ("ops@example.com", back.recipients[0]);
    EXPECT_STREQ("oncall@example.com", back.recipients[1]);
    EXPECT_STREQ("", back.recipients[2]);
    EXPECT_STREQ("on", back.active);
    EXPECT_EQ(25u, field(back.port));
    EXPECT_EQ(0u, field(back.tls));
    EXPECT_EQ(1u, field(back.authentication));
    EXPECT_EQ(2u, field(back.error_level));
}

TEST_F(MailConfigFile, TlsWithPortZeroIsWrittenAs465)
{
    MailConfig config = alert_settings();
    set_field(config.tls, 1);
    ASSERT_EQ(0, write_email_config(kNailRc, &config));
    EXPECT_NE(std::string::npos,
              read_text(kNailRc)->find("set smtp=smtps://mail.example:465\n"));
    const MailConfig back = read_back();
    EXPECT_EQ(465u, field(back.port));
    EXPECT_EQ(1u, field(back.tls));
}

TEST_F(MailConfigFile, ServerTextsWithAndWithoutSchemeAndPort)
{
    struct Case
    {
        const char* value;
        const char* server;
        uint32_t port;
        uint32_t tls;
    };
    for (const Case& c : {Case{"smtp://192.0.2.10", "192.0.2.10", 25, 0},
                          Case{"smtps://192.0.2.10", "192.0.2.10", 465, 1},
                          Case{"smtps://mx:587", "mx", 587, 1},
                          Case{"mx.example:2525", "mx.example", 2525, 0},
                          Case{"mx.example", "mx.example", 25, 0}})
    {
        write_text(kNailRc, std::string("set smtp=") + c.value + "\n");
        const MailConfig back = read_back();
        EXPECT_STREQ(c.server, back.server) << c.value;
        EXPECT_EQ(c.port, field(back.port)) << c.value;
        EXPECT_EQ(c.tls, field(back.tls)) << c.value;
    }
}

TEST_F(MailConfigFile, OnlyTheFirstFiveRecipientsAreRead)
{
    write_text(kNailRc, "#user-recv=  a@x  b@x c@x d@x e@x f@x \n");
    const MailConfig back = read_back();
    const char* expected[] = {"a@x", "b@x", "c@x", "d@x", "e@x"};
    for (int slot = 0; slot < 5; ++slot)
    {
        EXPECT_STREQ(expected[slot], back.recipients[slot]);
    }
    EXPECT_EQ(0u, field(back.authentication));
}

// Switching the login off keeps the credentials on comment lines, where
// the mail client does not see them, and switching it on brings them back.
TEST_F(MailConfigFile, CredentialsOutliveALoginSwitchedOff)
{
    MailConfig config = alert_settings();
    ASSERT_EQ(0, write_email_config(kNailRc, &config));
    set_field(config.authentication, 0);
    ASSERT_EQ(0, write_email_config(kNailRc, &config));
    const std::string off = read_text(kNailRc).value_or("");
    EXPECT_EQ(std::string::npos, off.find("\nset smtp-auth"));
    EXPECT_EQ(std::string::npos, off.find("\nset from"));
    EXPECT_NE(std::string::npos,
              off.find("#set smtp-auth-user=alerts@bmc.example\n"));
    EXPECT_NE(std::string::npos,
              off.find("#set smtp-auth-password=s3cr3t-Pw\n"));

    MailConfig back = read_back();
    EXPECT_EQ(0u, field(back.authentication));
    EXPECT_STREQ("alerts@bmc.example", back.user);
    EXPECT_STREQ("s3cr3t-Pw", back.password);

    set_field(back.authentication, 1);
    ASSERT_EQ(0, write_email_config(kNailRc, &back));
    const std::string on = read_text(kNailRc).value_or("");
    EXPECT_EQ(std::string::npos, on.find("#set smtp-auth"));
    EXPECT_NE(std::string::npos, on.find("set smtp-auth-password=s3cr3t-Pw\n"));
}

TEST_F(MailConfigFile, MissingFileAndNullRecordsAreRefused)
{
    MailConfig config = alert_settings();
    EXPECT_EQ(-1, read_email_config(kNailRc, &config));
    EXPECT_STREQ("alerts@bmc.example", config.user); // untouched
    EXPECT_EQ(-1, read_email_config(kNailRc, nullptr));
    EXPECT_EQ(-1, write_email_config(kNailRc, nullptr));
    EXPECT_FALSE(read_text(kNailRc));
}

// Fields filled to the end without a terminator are written within them.
TEST_F(MailConfigFile, UnterminatedFieldsStayWithinTheirBounds)
{
    MailConfig config = alert_settings();
    std::memset(config.server, 's', sizeof config.server);
    std::memset(config.active, 'a', sizeof config.active);
    ASSERT_EQ(0, write_email_config(kNailRc, &config));
    const MailConfig back = read_back();
    EXPECT_EQ(std::string(63, 's'), back.server);
    EXPECT_EQ(std::string(7, 'a'), back.active);
}

TEST(MailConfigSegment, TheRecordLiesAtItsPlaceInThePlatformSegment)
{
    auto* segment = static_cast<uint8_t*>(get_shm_address());
    ASSERT_NE(nullptr, segment);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(get_mail_config()), segment + 219485);
}

// s-nail, Debian's mail client, still takes "set smtp" and the login
// variables from the resource file the library wrote.
TEST_F(MailConfigFile, TheMailClientSendsWithTheseSettings)
{
#ifndef KV_MAIL_CLIENT
    GTEST_SKIP() << "s-nail (Debian package s-nail) is not installed";
#else
    kv::services::test::SmtpListener listener;
    MailConfig config = alert_settings();
    std::strcpy(config.server, "127.0.0.1");
    set_field(config.port, listener.port());
    ASSERT_EQ(0, write_email_config(kNailRc, &config));

    write_text("/tmp/body", "CPU0 Temp going high\n");
    const auto sent = kv::test::run_shell(
        "MAILRC=/var/lib/ipmi/nail.rc HOME=/tmp " KV_MAIL_CLIENT
        " -n -Ssendwait -s 'BMC alert' ops@example.com oncall@example.com "
        "</tmp/body 2>&1");
    const std::string dialogue = listener.dialogue();
    EXPECT_EQ(0, sent.status) << sent.output;
    EXPECT_NE(std::string::npos, dialogue.find("AUTH LOGIN")) << dialogue;
    EXPECT_NE(std::string::npos, dialogue.find("YWxlcnRzQGJtYy5leGFtcGxl"))
        << "user alerts@bmc.example in base64\n"
        << dialogue;
    EXPECT_NE(std::string::npos, dialogue.find("czNjcjN0LVB3"))
        << "password s3cr3t-Pw in base64\n"
        << dialogue;
    EXPECT_NE(std::string::npos,
              dialogue.find("MAIL FROM:<alerts@bmc.example>"))
        << dialogue;
    EXPECT_NE(std::string::npos, dialogue.find("RCPT TO:<oncall@example.com>"))
        << dialogue;
    EXPECT_NE(std::string::npos, dialogue.find("CPU0 Temp going high"))
        << dialogue;
#endif
}

} // namespace

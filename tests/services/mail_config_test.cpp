// SPDX-License-Identifier: Apache-2.0
// Mail alert settings: the record, the mail client's resource file, and the
// mail client itself sending through a loopback SMTP listener.
#include "loopback_server.h"
#include "test_helpers.h"

#include <libkv/ipc.h>
#include <libkv/services.h>

#include <gmock/gmock.h>

#include <cstring>

namespace
{

using kv::test::write_text;

constexpr const char* kNailRc = "/var/lib/ipmi/nail.rc";

// The record's numbers are little-endian, as is every target.
uint32_t field(const uint8_t (&bytes)[4])
{
    uint32_t value = 0;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

void set_field(uint8_t (&bytes)[4], uint32_t value)
{
    std::memcpy(bytes, &value, sizeof value);
}

class MailConfigFile : public testing::Test
{
  protected:
    void SetUp() override
    {
        kv::test::make_dirs("/var/lib/ipmi");
        std::strcpy(config_.user, "alerts@bmc.example");
        std::strcpy(config_.server, "mail.example");
        std::strcpy(config_.password, "s3cr3t-Pw");
        std::strcpy(config_.recipients[0], "ops@example.com");
        std::strcpy(config_.recipients[4], "oncall@example.com");
        std::strcpy(config_.active, "on");
        set_field(config_.error_level, 2);
        set_field(config_.authentication, 1);
    }
    static std::string file()
    {
        return kv::test::read_text(kNailRc).value_or("<none>");
    }
    static MailConfig read_back()
    {
        MailConfig config{};
        EXPECT_EQ(0, read_email_config(kNailRc, &config));
        return config;
    }

    MailConfig config_{};
};

// With the login switched off its credentials stay on comment lines, where
// the mail client does not see them.
TEST_F(MailConfigFile, SettingsGoToTheirLinesAndReadBack)
{
    for (int slot = 1; slot < 4; ++slot)
    {
        std::strcpy(config_.recipients[slot],
                    ("r" + std::to_string(slot) + "@x").c_str());
    }
    set_field(config_.tls, 1); // port 0: the SMTPS port
    ASSERT_EQ(0, write_email_config(nullptr, &config_));
    EXPECT_EQ("set smtp=smtps://mail.example:465\n"
              "set from=alerts@bmc.example\n"
              "set smtp-auth=login\n"
              "set smtp-auth-user=alerts@bmc.example\n"
              "set smtp-auth-password=s3cr3t-Pw\n"
              "#user-recv=ops@example.com r1@x r2@x r3@x oncall@example.com\n"
              "#active=on\n"
              "#error-level=2\n",
              file());
    MailConfig expected = config_;
    set_field(expected.port, 465);
    MailConfig back = read_back();
    EXPECT_EQ(0, std::memcmp(&expected, &back, sizeof back));

    set_field(config_.authentication, 0);
    set_field(config_.tls, 0);
    ASSERT_EQ(0, write_email_config(kNailRc, &config_));
    EXPECT_EQ("set smtp=smtp://mail.example:25\n"
              "#user-recv=ops@example.com r1@x r2@x r3@x oncall@example.com\n"
              "#active=on\n"
              "#error-level=2\n"
              "#set smtp-auth-user=alerts@bmc.example\n"
              "#set smtp-auth-password=s3cr3t-Pw\n",
              file());
    back = read_back();
    EXPECT_EQ(0u, field(back.authentication));
    EXPECT_STREQ("alerts@bmc.example", back.user);
    EXPECT_STREQ("s3cr3t-Pw", back.password);
}

TEST_F(MailConfigFile, ServerTextsAndRecipientListsAsTheClientTakesThem)
{
    struct Case
    {
        const char *value, *server;
        uint32_t port, tls;
    };
    for (const Case& c : {Case{"smtp://192.0.2.10", "192.0.2.10", 25, 0},
                          Case{"smtps://mx:587", "mx", 587, 1},
                          Case{"mx.example:2525", "mx.example", 2525, 0}})
    {
        write_text(kNailRc, std::string("set smtp=") + c.value + "\n");
        const MailConfig back = read_back();
        EXPECT_STREQ(c.server, back.server) << c.value;
        EXPECT_EQ(c.port, field(back.port)) << c.value;
        EXPECT_EQ(c.tls, field(back.tls)) << c.value;
    }
    write_text(kNailRc, "#user-recv=  a@x  b@x c@x d@x e@x f@x \n");
    const MailConfig back = read_back();
    EXPECT_STREQ("a@x", back.recipients[0]);
    EXPECT_STREQ("e@x", back.recipients[4]); // the sixth is left out

    EXPECT_EQ(-1, read_email_config(kNailRc, nullptr));
    EXPECT_EQ(-1, write_email_config(kNailRc, nullptr));
    std::filesystem::remove(kNailRc);
    EXPECT_EQ(-1, read_email_config(kNailRc, &config_));
    EXPECT_STREQ("alerts@bmc.example", config_.user);
    EXPECT_EQ(static_cast<uint8_t*>(get_shm_address()) + 219485,
              reinterpret_cast<uint8_t*>(get_mail_config()));
}

// Debian's mail client takes "set smtp" and the login from the file.
TEST_F(MailConfigFile, TheMailClientSendsWithTheseSettings)
{
#ifndef KV_MAIL_CLIENT
    GTEST_SKIP() << "s-nail (Debian package s-nail) is not installed";
#else
    // Takes any login, sender and recipient; keeps the lines it was sent.
    std::string said;
    kv::test::LoopbackServer smtp([&said](kv::test::Peer& peer) {
        peer.send("220 kv ESMTP\r\n");
        bool data = false;
        std::vector<std::string> owed; // to the login's user and password
        for (std::string line; peer.line(line) && line != "QUIT";)
        {
            said += line + "\n";
            std::string reply = "250 ok";
            if (data && (data = line != "."))
            {
                continue;
            }
            if (!owed.empty())
            {
                reply = owed.back();
                owed.pop_back();
            }
            else if (line == "AUTH LOGIN")
            {
                reply = "334 VXNlcm5hbWU6";
                owed = {"235 ok", "334 UGFzc3dvcmQ6"};
            }
            else if ((data = line == "DATA"))
            {
                reply = "354 go on";
            }
            else if (line.starts_with("EHLO"))
            {
                reply = "250-kv\r\n250 AUTH LOGIN";
            }
            peer.send(reply + "\r\n");
        }
        peer.send("221 bye\r\n");
    });
    std::strcpy(config_.server, "127.0.0.1");
    set_field(config_.port, smtp.port());
    ASSERT_EQ(0, write_email_config(kNailRc, &config_));
    write_text("/tmp/body", "CPU0 Temp going high\n");
    const auto sent = kv::test::run_shell(
        "MAILRC=/var/lib/ipmi/nail.rc HOME=/tmp " KV_MAIL_CLIENT
        " -n -Ssendwait -s 'BMC alert' oncall@example.com </tmp/body 2>&1");
    EXPECT_EQ(0, sent.status) << sent.output;
    ASSERT_EQ(smtp.served(1), 1U);
    // User and password in base64.
    EXPECT_THAT(said, testing::HasSubstr(
                          "AUTH LOGIN\nYWxlcnRzQGJtYy5leGFtcGxl\nczNjcjN0LVB3\n"
                          "MAIL FROM:<alerts@bmc.example>\n"
                          "RCPT TO:<oncall@example.com>\nDATA\n"));
    EXPECT_THAT(said, testing::HasSubstr("\nCPU0 Temp going high\n.\n"));
#endif
}

} // namespace

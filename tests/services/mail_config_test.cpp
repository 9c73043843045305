// SPDX-License-Identifier: Apache-2.0
// Mail alert settings: the record, the mail client's resource file, and the
// mail client itself sending through a loopback SMTP listener.
#include "loopback_server.h"
#include "test_helpers.h"

#include <libkv/ipc.h>
#include <libkv/services.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace
{

using kv::test::write_text;

constexpr const char* kNailRc = "/var/lib/ipmi/nail.rc";

uint32_t field(const uint8_t (&bytes)[4])
{
    uint32_t value = 0;
    std::memcpy(&value, bytes, sizeof value); // little-endian on both ends
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
        std::strcpy(config_.recipients[1], "oncall@example.com");
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

TEST_F(MailConfigFile, SettingsGoToTheirLinesAndReadBack)
{
    set_field(config_.tls, 1); // port 0: the SMTPS port
    ASSERT_EQ(0, write_email_config(nullptr, &config_));
    EXPECT_EQ("set smtp=smtps://mail.example:465\n"
              "set from=alerts@bmc.example\n"
              "set smtp-auth=login\n"
              "set smtp-auth-user=alerts@bmc.example\n"
              "set smtp-auth-password=s3cr3t-Pw\n"
              "#user-recv=ops@example.com oncall@example.com\n"
              "#active=on\n"
              "#error-level=2\n",
              file());
    MailConfig expected = config_;
    set_field(expected.port, 465);
    const MailConfig back = read_back();
    EXPECT_EQ(0, std::memcmp(&expected, &back, sizeof back));
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
}

// Switching the login off keeps the credentials on comment lines, where
// the mail client does not see them.
TEST_F(MailConfigFile, CredentialsOutliveALoginSwitchedOff)
{
    ASSERT_EQ(0, write_email_config(kNailRc, &config_));
    set_field(config_.authentication, 0);
    ASSERT_EQ(0, write_email_config(kNailRc, &config_));
    EXPECT_EQ("set smtp=smtp://mail.example:25\n"
              "#user-recv=ops@example.com oncall@example.com\n"
              "#active=on\n"
              "#error-level=2\n"
              "#set smtp-auth-user=alerts@bmc.example\n"
              "#set smtp-auth-password=s3cr3t-Pw\n",
              file());
    MailConfig back = read_back();
    EXPECT_EQ(0u, field(back.authentication));
    EXPECT_STREQ("alerts@bmc.example", back.user);
    EXPECT_STREQ("s3cr3t-Pw", back.password);
}

// A missing file and null records are refused.
TEST_F(MailConfigFile, BadInputIsRefused)
{
    EXPECT_EQ(-1, read_email_config(kNailRc, &config_));
    EXPECT_STREQ("alerts@bmc.example", config_.user);
    EXPECT_EQ(-1, read_email_config(kNailRc, nullptr));
    EXPECT_EQ(-1, write_email_config(kNailRc, nullptr));

    auto* segment = static_cast<uint8_t*>(get_shm_address());
    EXPECT_EQ(segment + 219485, reinterpret_cast<uint8_t*>(get_mail_config()));
}

// Debian's mail client still takes "set smtp" and the login variables from
// the resource file the library wrote.
TEST_F(MailConfigFile, TheMailClientSendsWithTheseSettings)
{
#ifndef KV_MAIL_CLIENT
    GTEST_SKIP() << "s-nail (Debian package s-nail) is not installed";
#else
    // A mail server that takes any login, sender and recipient and keeps
    // the lines the client sent.
    std::string said;
    kv::test::LoopbackServer listener([&said](kv::test::Peer& peer) {
        peer.send("220 kv-test ESMTP\r\n");
        int login_steps = 0; // AUTH LOGIN asks for user, then password
        bool in_data = false;
        for (std::string line; peer.line(line);)
        {
            said += line + "\n";
            std::string reply;
            if (in_data)
            {
                in_data = line != ".";
                reply = in_data ? "" : "250 queued";
            }
            else if (login_steps > 0)
            {
                reply = --login_steps > 0 ? "334 UGFzc3dvcmQ6" : "235 ok";
            }
            else if (line.starts_with("AUTH LOGIN"))
            {
                login_steps = line == "AUTH LOGIN" ? 2 : 1;
                reply =
                    login_steps == 2 ? "334 VXNlcm5hbWU6" : "334 UGFzc3dvcmQ6";
            }
            else
            {
                in_data = line == "DATA";
                reply = in_data                    ? "354 go on"
                        : line == "QUIT"           ? "221 bye"
                        : line.starts_with("EHLO") ? "250-kv-test\r\n"
                                                     "250 AUTH LOGIN"
                                                   : "250 ok";
            }
            peer.send(reply.empty() ? "" : reply + "\r\n");
            if (reply == "221 bye")
            {
                return;
            }
        }
    });
    std::strcpy(config_.server, "127.0.0.1");
    set_field(config_.port, listener.port());
    ASSERT_EQ(0, write_email_config(kNailRc, &config_));
    write_text("/tmp/body", "CPU0 Temp going high\n");
    const auto sent = kv::test::run_shell(
        "MAILRC=/var/lib/ipmi/nail.rc HOME=/tmp " KV_MAIL_CLIENT
        " -n -Ssendwait -s 'BMC alert' oncall@example.com </tmp/body 2>&1");
    EXPECT_EQ(0, sent.status) << sent.output;
    ASSERT_EQ(listener.served(1), 1U);
    // User and password in base64.
    EXPECT_NE(std::string::npos,
              said.find("AUTH LOGIN\nYWxlcnRzQGJtYy5leGFtcGxl\nczNjcjN0LVB3\n"))
        << said;
    EXPECT_NE(std::string::npos,
              said.find("MAIL FROM:<alerts@bmc.example>\n"
                        "RCPT TO:<oncall@example.com>\nDATA\n"))
        << said;
    EXPECT_NE(std::string::npos, said.find("\nCPU0 Temp going high\n.\nQUIT"))
        << said;
#endif
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// A loopback SMTP server for one mail: it accepts any login, sender and
// recipient and keeps what the client said.
#pragma once

#include <cstdint>
#include <string>
#include <thread>

namespace kv::services::test
{

class SmtpListener
{
  public:
    SmtpListener();
    ~SmtpListener();
    SmtpListener(const SmtpListener&) = delete;
    SmtpListener& operator=(const SmtpListener&) = delete;

    uint16_t port() const
    {
        return port_;
    }
    // The client's lines, CR LF taken off and a newline put after each, once
    // the client has gone or 10 s have passed.
    std::string dialogue();

  private:
    void serve();

    int socket_ = -1;
    uint16_t port_ = 0;
    std::string said_;
    std::thread server_;
};

} // namespace kv::services::test

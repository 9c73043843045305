// SPDX-License-Identifier: Apache-2.0
// A loopback SMTP server for one mail: it takes any login, sender and
// recipient and keeps the lines the client sent.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>

namespace kv::services::test
{

class SmtpListener
{
  public:
    SmtpListener()
    {
        sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t size = sizeof address;
        auto* at = reinterpret_cast<sockaddr*>(&address);
        if (::bind(socket_, at, size) == 0 && ::listen(socket_, 1) == 0 &&
            ::getsockname(socket_, at, &size) == 0)
        {
            port_ = ntohs(address.sin_port);
            server_ = std::thread([this] { serve(); });
        }
    }
    ~SmtpListener()
    {
        dialogue();
        ::close(socket_);
    }

    uint16_t port() const
    {
        return port_;
    }
    // The client's lines without CR, once it has gone (10 s at most).
    std::string dialogue()
    {
        if (server_.joinable())
        {
            server_.join();
        }
        return said_;
    }

  private:
    static bool wait_for(int fd)
    {
        pollfd wait{fd, POLLIN, 0};
        return ::poll(&wait, 1, 10000) == 1;
    }

    void serve()
    {
        const int client = wait_for(socket_) ? ::accept(socket_, 0, 0) : -1;
        std::string reply = "220 kv-test ESMTP";
        int login_steps = 0; // AUTH LOGIN asks for user, then password
        bool in_data = false;
        for (bool done = false; client >= 0;)
        {
            const std::string out = reply + "\r\n";
            if ((!reply.empty() &&
                 ::write(client, out.data(), out.size()) < 0) ||
                done)
            {
                break;
            }
            std::string line;
            char c = 0;
            while (wait_for(client) && ::read(client, &c, 1) == 1 && c != '\n')
            {
                line += c != '\r' ? std::string(1, c) : "";
            }
            if (c != '\n')
            {
                break;
            }
            said_ += line + "\n";
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
                done = line == "QUIT";
                reply = in_data                    ? "354 go on"
                        : done                     ? "221 bye"
                        : line.starts_with("EHLO") ? "250-kv-test\r\n"
                                                     "250 AUTH LOGIN"
                                                   : "250 ok";
            }
        }
        if (client >= 0)
        {
            ::close(client);
        }
    }

    int socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    uint16_t port_ = 0;
    std::string said_;
    std::thread server_;
};

} // namespace kv::services::test

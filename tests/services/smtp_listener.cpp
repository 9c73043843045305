// SPDX-License-Identifier: Apache-2.0
#include "smtp_listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace kv::services::test
{
namespace
{

constexpr int kPatienceMs = 10000;

// Reads one line without its CR LF; false when the client went or is silent.
bool read_line(int fd, std::string& line)
{
    line.clear();
    for (char c = 0;;)
    {
        pollfd wait{fd, POLLIN, 0};
        if (::poll(&wait, 1, kPatienceMs) != 1 || ::read(fd, &c, 1) != 1)
        {
            return false;
        }
        if (c == '\n')
        {
            if (!line.empty() && line.back() == '\r')
            {
                line.pop_back();
            }
            return true;
        }
        line += c;
    }
}

void reply(int fd, const std::string& text)
{
    const std::string line = text + "\r\n";
    if (::write(fd, line.data(), line.size()) < 0)
    {
        return; // the client went; its lines so far are kept
    }
}

} // namespace

SmtpListener::SmtpListener()
{
    socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (socket_ < 0 ||
        ::bind(socket_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        ::listen(socket_, 1) != 0 ||
        ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size) !=
            0)
    {
        throw std::runtime_error("no loopback SMTP listener");
    }
    port_ = ntohs(address.sin_port);
    server_ = std::thread([this] { serve(); });
}

SmtpListener::~SmtpListener()
{
    dialogue();
    ::close(socket_);
}

std::string SmtpListener::dialogue()
{
    if (server_.joinable())
    {
        server_.join();
    }
    return said_;
}

void SmtpListener::serve()
{
    pollfd wait{socket_, POLLIN, 0};
    if (::poll(&wait, 1, kPatienceMs) != 1)
    {
        return;
    }
    const int client = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0)
    {
        return;
    }
    reply(client, "220 kv-test ESMTP");
    int login_steps = 0; // AUTH LOGIN asks for the user, then the password
    bool in_data = false;
    for (std::string line; read_line(client, line);)
    {
        said_ += line + "\n";
        if (in_data)
        {
            in_data = line != ".";
            if (!in_data)
            {
                reply(client, "250 queued");
            }
        }
        else if (login_steps > 0)
        {
            reply(client,
                  --login_steps > 0 ? "334 UGFzc3dvcmQ6" : "235 accepted");
        }
        else if (line.starts_with("EHLO"))
        {
            reply(client, "250-kv-test\r\n250 AUTH LOGIN PLAIN");
        }
        else if (line == "AUTH LOGIN")
        {
            login_steps = 2;
            reply(client, "334 VXNlcm5hbWU6");
        }
        else if (line.starts_with("AUTH LOGIN ")) // the user comes along
        {
            login_steps = 1;
            reply(client, "334 UGFzc3dvcmQ6");
        }
        else if (line == "DATA")
        {
            in_data = true;
            reply(client, "354 go on");
        }
        else if (line == "QUIT")
        {
            reply(client, "221 bye");
            break;
        }
        else
        {
            reply(client, "250 ok");
        }
    }
    ::close(client);
}

} // namespace kv::services::test

// SPDX-License-Identifier: Apache-2.0
#include "http_listener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

namespace kv::test
{
namespace
{

using kv::detail::UniqueFd;

// Waits until `fd` can be read or the stop pipe is written: false on stop.
bool wait_readable(int fd, int stop)
{
    pollfd fds[2] = {{fd, POLLIN, 0}, {stop, POLLIN, 0}};
    return ::poll(fds, 2, -1) > 0 && (fds[1].revents & POLLIN) == 0;
}

void send_all(int fd, const std::string& text)
{
    (void)::send(fd, text.data(), text.size(), MSG_NOSIGNAL);
}

// Reads one request; empty request line when the peer or the stop pipe
// ended it first.
HttpRequest read_request(int fd, int stop)
{
    std::string data;
    char chunk[4096];
    size_t header_end = std::string::npos;
    HttpRequest request;
    size_t length = 0;
    bool continued = false;
    while (true)
    {
        if (header_end == std::string::npos)
        {
            header_end = data.find("\r\n\r\n");
            if (header_end != std::string::npos)
            {
                std::istringstream lines(data.substr(0, header_end));
                std::string line;
                std::getline(lines, request.request_line);
                if (!request.request_line.empty())
                {
                    request.request_line.pop_back(); // "\r"
                }
                while (std::getline(lines, line))
                {
                    if (!line.empty() && line.back() == '\r')
                    {
                        line.pop_back();
                    }
                    request.headers.push_back(line);
                }
                length = std::strtoul(request.header("Content-Length").c_str(),
                                      nullptr, 10);
            }
        }
        if (header_end != std::string::npos)
        {
            if (!continued && request.header("Expect") == "100-continue")
            {
                send_all(fd, "HTTP/1.1 100 Continue\r\n\r\n");
                continued = true;
            }
            if (data.size() >= header_end + 4 + length)
            {
                request.body = data.substr(header_end + 4, length);
                return request;
            }
        }
        if (!wait_readable(fd, stop))
        {
            return {};
        }
        const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
        if (n <= 0)
        {
            return {};
        }
        data.append(chunk, static_cast<size_t>(n));
    }
}

} // namespace

std::string HttpRequest::header(const std::string& name) const
{
    for (const std::string& line : headers)
    {
        const size_t colon = line.find(':');
        if (colon != std::string::npos &&
            ::strncasecmp(line.c_str(), name.c_str(), colon) == 0 &&
            colon == name.size())
        {
            const size_t value = line.find_first_not_of(' ', colon + 1);
            return value == std::string::npos ? "" : line.substr(value);
        }
    }
    return "";
}

HttpListener::HttpListener(std::string response_headers, bool answer) :
    socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
    response_headers_(std::move(response_headers)), answer_(answer)
{
    int pipe_fds[2];
    if (!socket_ || ::pipe2(pipe_fds, O_CLOEXEC) != 0)
    {
        ADD_FAILURE() << "listener: no socket or pipe";
        return;
    }
    stop_read_ = UniqueFd(pipe_fds[0]);
    stop_write_ = UniqueFd(pipe_fds[1]);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), size) !=
            0 ||
        ::listen(socket_.get(), 8) != 0 ||
        ::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address),
                      &size) != 0)
    {
        ADD_FAILURE() << "listener: cannot listen on the loopback";
        return;
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

HttpListener::~HttpListener()
{
    if (thread_.joinable())
    {
        (void)::write(stop_write_.get(), "x", 1);
        thread_.join();
    }
}

std::string HttpListener::url(const std::string& path) const
{
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<HttpRequest> HttpListener::requests() const
{
    const std::lock_guard lock(mutex_);
    return requests_;
}

void HttpListener::serve()
{
    // Silent connections stay open until the listener ends.
    std::vector<UniqueFd> held;
    while (wait_readable(socket_.get(), stop_read_.get()))
    {
        UniqueFd client(
            ::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!client)
        {
            continue;
        }
        HttpRequest request = read_request(client.get(), stop_read_.get());
        if (request.request_line.empty())
        {
            continue;
        }
        {
            const std::lock_guard lock(mutex_);
            requests_.push_back(std::move(request));
        }
        if (answer_)
        {
            send_all(client.get(), "HTTP/1.1 200 OK\r\n" + response_headers_ +
                                       "Content-Length: 0\r\n"
                                       "Connection: close\r\n\r\n");
        }
        else
        {
            held.push_back(std::move(client));
        }
    }
}

} // namespace kv::test

// SPDX-License-Identifier: Apache-2.0
// A server on a loopback port for the network clients under test: it hands
// each connection in turn to the test's dialogue, on a thread of its own.
// A read waits 10 s at most for the peer.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kv::test
{

// One connection as the dialogue sees it.
class Peer
{
  public:
    explicit Peer(int fd) : fd_(fd)
    {
        const timeval wait{10, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    }

    // The next line without its CR LF; false when the peer went first.
    bool line(std::string& text)
    {
        std::size_t end = 0;
        while ((end = buffer_.find('\n')) == std::string::npos)
            if (!fill())
                return false;
        text = buffer_.substr(0, end - (end > 0 && buffer_[end - 1] == '\r'));
        buffer_.erase(0, end + 1);
        return true;
    }

    std::string read(std::size_t size)
    {
        while (buffer_.size() < size && fill())
        {}
        std::string text = buffer_.substr(0, size);
        buffer_.erase(0, text.size());
        return text;
    }

    void send(const std::string& text)
    {
        (void)::send(fd_, text.data(), text.size(), MSG_NOSIGNAL);
    }

    // Set by a dialogue that leaves the connection open until the server
    // ends, as a peer that never answers does.
    bool hold = false;

  private:
    bool fill()
    {
        char chunk[4096];
        const ssize_t n = ::recv(fd_, chunk, sizeof chunk, 0);
        buffer_.append(chunk, std::max<ssize_t>(n, 0));
        return n > 0;
    }

    int fd_;
    std::string buffer_;
};

class LoopbackServer
{
  public:
    explicit LoopbackServer(std::function<void(Peer&)> dialogue)
    {
        sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t size = sizeof address;
        auto* at = reinterpret_cast<sockaddr*>(&address);
        if (::bind(socket_, at, size) == 0 && ::listen(socket_, 8) == 0 &&
            ::getsockname(socket_, at, &size) == 0)
        {
            port_ = ntohs(address.sin_port);
            thread_ = std::thread([this, dialogue] { serve(dialogue); });
        }
    }
    ~LoopbackServer()
    {
        ::shutdown(socket_, SHUT_RDWR); // ends a waiting accept
        if (thread_.joinable())
            thread_.join();
        ::close(socket_);
    }

    uint16_t port() const
    {
        return port_;
    }

    // Waits until `count` dialogues have ended (10 s at most); how many have.
    std::size_t served(std::size_t count)
    {
        std::unique_lock lock(mutex_);
        ended_.wait_for(lock, std::chrono::seconds(10),
                        [&] { return served_ >= count; });
        return served_;
    }

  private:
    void serve(const std::function<void(Peer&)>& dialogue)
    {
        std::vector<int> held;
        for (int client; (client = ::accept4(socket_, nullptr, nullptr,
                                             SOCK_CLOEXEC)) >= 0;)
        {
            Peer peer(client);
            dialogue(peer);
            peer.hold ? held.push_back(client) : (void)::close(client);
            const std::lock_guard lock(mutex_);
            ++served_;
            ended_.notify_all();
        }
        for (int fd : held)
            ::close(fd);
    }

    int socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    uint16_t port_ = 0;
    std::mutex mutex_;
    std::condition_variable ended_;
    std::size_t served_ = 0;
    std::thread thread_;
};

} // namespace kv::test

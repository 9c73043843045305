// SPDX-License-Identifier: Apache-2.0
// A small HTTP server on the loopback interface that records the requests
// it gets and answers each with a fixed response, or never answers.
#pragma once

#include "foundation/resources.h"

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kv::test
{

struct HttpRequest
{
    std::string request_line; // "POST /path HTTP/1.1"
    std::vector<std::string> headers;
    std::string body;

    // The value of the first header named `name` (any case), or "".
    std::string header(const std::string& name) const;
};

class HttpListener
{
  public:
    // `response_headers` are added to a "200 OK" answer; a listener made
    // with answer = false reads each request and then stays silent.
    explicit HttpListener(std::string response_headers = "",
                          bool answer = true);
    HttpListener(const HttpListener&) = delete;
    HttpListener& operator=(const HttpListener&) = delete;
    ~HttpListener();

    int port() const
    {
        return port_;
    }
    std::string url(const std::string& path = "/events") const;
    std::vector<HttpRequest> requests() const;

  private:
    void serve();

    kv::detail::UniqueFd socket_;
    kv::detail::UniqueFd stop_read_;
    kv::detail::UniqueFd stop_write_;
    int port_ = 0;
    std::string response_headers_;
    bool answer_;
    mutable std::mutex mutex_;
    std::vector<HttpRequest> requests_;
    std::thread thread_;
};

} // namespace kv::test

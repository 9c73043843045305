// SPDX-License-Identifier: Apache-2.0
// Event forwarding: the subscriber filters and the problem lookup per
// decoded event, and one Redfish post to a subscriber on the loopback
// interface made with libcurl against the same post made by running the
// curl program through the shell, in one run.
#include <libkv/events.h>

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace
{

// Event texts as the decoder writes them: a threshold crossing, a
// sensor-specific event, and an OEM text no table names (a full search).
const std::vector<std::string> kMessages = {
    "01/01/24  10:00:00 GMTUTC  Temperature CPU0 Temp  Upper Critical going "
    "high  Asserted  Reading 87 > Threshold 85 degrees C",
    "01/01/24  10:00:01 GMTUTC  Drive Slot Disk3  Drive Fault  Asserted",
    "01/01/24  10:00:02 GMTUTC  OEM reserved #0xc5  OEM event  Asserted",
};

EventSubscription realistic_subscriber()
{
    EventSubscription sub{};
    sub.in_use = 1;
    sub.event_types = 0x1F;
    sub.every_sensor = 1;
    // Twenty problems excluded from each table.
    for (uint8_t i = 0; i < 20; ++i)
    {
        sub.generic_excluded[i] = static_cast<uint8_t>(30 + i);
        sub.specific_excluded[i] = static_cast<uint8_t>(100 + i);
    }
    return sub;
}

void filter_and_problem(benchmark::State& state)
{
    const EventSubscription sub = realistic_subscriber();
    uint8_t rec[16] = {};
    rec[12] = 0x6F;
    for (auto _ : state)
    {
        for (const std::string& message : kMessages)
        {
            uint32_t code = 0;
            char text[128];
            benchmark::DoNotOptimize(
                check_event_subscription_active(sub, rec, message.c_str()));
            getspecificProblem(message.c_str(), &code, text);
            benchmark::DoNotOptimize(code);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(kMessages.size()));
}

// A subscriber that answers every request with 200 as soon as the request
// has arrived.
class Subscriber
{
  public:
    Subscriber()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        fd_ = socket(AF_INET, SOCK_STREAM, 0);
        bind(fd_, reinterpret_cast<sockaddr*>(&address), size);
        listen(fd_, 16);
        getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~Subscriber()
    {
        stop_ = true;
        shutdown(fd_, SHUT_RDWR);
        thread_.join();
        close(fd_);
    }
    std::string url() const
    {
        return "http://127.0.0.1:" + std::to_string(port_) + "/events";
    }

  private:
    void serve()
    {
        while (!stop_)
        {
            const int client = accept(fd_, nullptr, nullptr);
            if (client < 0)
            {
                continue;
            }
            std::string request;
            char chunk[4096];
            ssize_t n;
            while ((n = read(client, chunk, sizeof chunk)) > 0)
            {
                request.append(chunk, static_cast<size_t>(n));
                const size_t end = request.find("\r\n\r\n");
                const size_t length = request.find("Content-Length: ");
                if (end != std::string::npos && length != std::string::npos &&
                    request.size() - end - 4 >=
                        std::strtoul(request.c_str() + length + 16, nullptr,
                                     10))
                {
                    break;
                }
            }
            static const char answer[] =
                "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
            (void)!write(client, answer, sizeof answer - 1);
            close(client);
        }
    }

    int fd_ = -1;
    int port_ = 0;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

EventInfo summary()
{
    EventInfo info{};
    std::strcpy(info.sensor_name, "CPU0 Temp");
    std::strcpy(info.sensor_type, "Temperature");
    std::strcpy(info.timestamp, "2024-01-01T10:00:00UTC:00");
    std::strcpy(info.severity, "Critical");
    info.sensor_number = 0x31;
    return info;
}

void libkv_post(benchmark::State& state)
{
    Subscriber subscriber;
    EventSubscription sub = realistic_subscriber();
    std::snprintf(sub.url, sizeof sub.url, "%s", subscriber.url().c_str());
    std::strcpy(sub.token, "3f9c2a");
    EventInfo info = summary();
    for (auto _ : state)
    {
        if (send_curl_message(&sub, kMessages[0].c_str(), &info) != 0)
        {
            state.SkipWithError("post failed");
            break;
        }
    }
}

// The command the alert daemons used to run, with curl's own output
// silenced.
void curl_program_post(benchmark::State& state)
{
    Subscriber subscriber;
    const std::string command =
        "curl -s -o /dev/null -c cjar -b cjar -k -H "
        "\"Content-Type:application/json\" -H \"X-Auth-Token:3f9c2a\" "
        "--max-time 5 -X POST \"" +
        subscriber.url() +
        "\" -d \"{\\\"Events\\\":[{\\\"EventType\\\":\\\"StatusChange\\\","
        "\\\"Message\\\":\\\"" +
        kMessages[0] + "\\\"}]}\"";
    for (auto _ : state)
    {
        if (std::system(command.c_str()) != 0)
        {
            state.SkipWithError("curl failed");
            break;
        }
    }
}

} // namespace

BENCHMARK(filter_and_problem);
BENCHMARK(libkv_post)->Unit(benchmark::kMicrosecond);
BENCHMARK(curl_program_post)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv)
{
    // Both kinds of post keep their cookie jar in the working directory.
    const auto dir = std::filesystem::temp_directory_path() / "kv-bench-post";
    std::filesystem::create_directories(dir);
    std::filesystem::current_path(dir);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

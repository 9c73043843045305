// SPDX-License-Identifier: Apache-2.0
// The cost of one login check for a user with two rules, against its floor:
// reading the privilege and rules files once and asking the ARP table once.
// The two run interleaved (random order, repeated) and only their ratio is
// reported. Runs in the test sandbox's private view, on a veth pair with a
// permanent neighbour entry for the client.
#include "sandbox.h"

#include <libkv/access.h>

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace
{

constexpr const char* kClient = "::ffff:10.77.0.9";

// The ip tool with fixed arguments, without a shell; true on success.
bool ip(std::vector<std::string> args)
{
    const pid_t pid = ::fork();
    if (pid == 0)
    {
        std::vector<char*> argv{const_cast<char*>("ip")};
        for (std::string& arg : args)
        {
            argv.push_back(arg.data());
        }
        argv.push_back(nullptr);
        ::execvp("ip", argv.data());
        std::_Exit(127);
    }
    int status = 0;
    return pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

bool set_up_board()
{
    ::mkdir("/etc/user", 0755);
    std::FILE* rules = std::fopen("/etc/user/rules", "w");
    std::FILE* users = std::fopen("/etc/user/privilege", "w");
    if (rules == nullptr || users == nullptr)
    {
        return false;
    }
    std::fputs("0,10.77.0.0/24,02:aa:bb,,1,\n"
               "1,,,00:00-23:59:59,1,fe80::/64\n"
               "2,192.168.0.0/16,,,1,\n",
               rules);
    std::fputs("admin,111111111111,\noperator,000000000101,2\n"
               "alice,000000000001,01\n",
               users);
    std::fclose(rules);
    std::fclose(users);
    return ip({"link", "add", "kv-bench-a", "type", "veth", "peer", "name",
               "kv-bench-b"}) &&
           ip({"addr", "add", "10.77.0.1/24", "dev", "kv-bench-a"}) &&
           ip({"link", "set", "kv-bench-a", "up"}) &&
           ip({"neigh", "add", "10.77.0.9", "lladdr", "02:aa:bb:cc:dd:ee",
               "dev", "kv-bench-a", "nud", "permanent"});
}

void read_whole(const char* path)
{
    char chunk[4096];
    std::FILE* file = std::fopen(path, "r");
    if (file != nullptr)
    {
        while (std::fread(chunk, 1, sizeof chunk, file) == sizeof chunk)
        {}
        std::fclose(file);
    }
    benchmark::DoNotOptimize(chunk);
}

void login_check(benchmark::State& state)
{
    for (auto _ : state)
    {
        const unsigned result =
            checkUserAllInOne("alice", INTERFACE_WEB, kClient, 0);
        if (result != 0)
        {
            state.SkipWithError("the login was refused");
            break;
        }
    }
}

void floor_two_files_one_arp_request(benchmark::State& state)
{
    for (auto _ : state)
    {
        read_whole("/etc/user/privilege");
        read_whole("/etc/user/rules");
        const int sock = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        arpreq request{};
        auto* peer = reinterpret_cast<sockaddr_in*>(&request.arp_pa);
        peer->sin_family = AF_INET;
        ::inet_pton(AF_INET, "10.77.0.9", &peer->sin_addr);
        std::strncpy(request.arp_dev, "kv-bench-a", sizeof request.arp_dev - 1);
        if (::ioctl(sock, SIOCGARP, &request) != 0)
        {
            state.SkipWithError("no neighbour entry");
        }
        ::close(sock);
    }
}

BENCHMARK(login_check);
BENCHMARK(floor_two_files_one_arp_request);

// Prints nothing but the ratio of the two, from the sums of all repetitions.
class RatioReporter : public benchmark::BenchmarkReporter
{
  public:
    bool ReportContext(const Context&) override
    {
        return true;
    }
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
        {
            if (run.error_occurred)
            {
                std::printf("%s: %s\n", run.run_name.function_name.c_str(),
                            run.error_message.c_str());
            }
            else if (run.run_type == Run::RT_Iteration && run.iterations > 0)
            {
                Sum& sum = sums_[run.run_name.function_name];
                sum.seconds += run.real_accumulated_time;
                sum.iterations += static_cast<double>(run.iterations);
            }
        }
    }
    void Finalize() override
    {
        const auto ours = sums_.find("login_check");
        const auto floor = sums_.find("floor_two_files_one_arp_request");
        if (ours != sums_.end() && floor != sums_.end())
        {
            std::printf("checkUserAllInOne / floor (two files read once, one "
                        "ARP request): %.2f\n",
                        ours->second.per_iteration() /
                            floor->second.per_iteration());
        }
    }

  private:
    struct Sum
    {
        double seconds = 0;
        double iterations = 0;
        double per_iteration() const
        {
            return seconds / iterations;
        }
    };
    std::map<std::string, Sum> sums_;
};

} // namespace

int main(int argc, char** argv)
{
    kv::sandbox::enter();
    if (!set_up_board())
    {
        std::fprintf(stderr, "access_bench: cannot set up the files or the "
                             "veth pair in the sandbox\n");
        return 1;
    }
    // Interleaved by default; the command line may say otherwise.
    std::vector<char*> args(argv, argv + argc);
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    char repetitions[] = "--benchmark_repetitions=10";
    args.insert(args.begin() + 1, {interleave, repetitions});
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

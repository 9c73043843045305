// SPDX-License-Identifier: Apache-2.0
// One classified log line (log_call) against the floor: opening the same
// kind of file for appending, writing a line of the same length, syncing
// its data and closing it. Both files are kept below the 4 MiB archive size
// between batches, so every call measured is an ordinary append. Run it in
// kvsandbox: the log lives under /run.
#include "side_by_side.h"

#include <libkv/foundation.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

namespace
{

constexpr size_t kBatch = 256;
constexpr off_t kKeepBelow = 3L * 1024 * 1024;
constexpr const char* kBareLog = "/run/BMCInfo/Development/Log/bmc/bare_log";

// A hardware failure as the library reports it, and the whole line
// log_call makes of it: the 24-character ctime text, a dash, the message.
constexpr const char* kFormat =
    "i2c rw data failed bus=%u, address=%u offset=%u. %s:%d %s";
std::string bare_line()
{
    char message[256];
    std::snprintf(message, sizeof message, kFormat, 3u, 99u, 0u,
                  "back-plane-mgt", 23, "f25p_backpalne_detect");
    return std::string(24, 'T') + "-" + message + "\n";
}

void truncate_when_large(const char* path)
{
    struct stat info = {};
    if (::stat(path, &info) == 0 && info.st_size > kKeepBelow)
    {
        ::truncate(path, 0);
    }
}

void log_call_vs_bare_append(benchmark::State& state)
{
    std::filesystem::create_directories("/run/BMCInfo/Development/Log/bmc");
    const std::string line = bare_line();
    // The first line of a type reports the missing file; keep that out.
    std::fclose(std::fopen(log_path[KV_LOG_ERROR], "a"));
    kv::bench::time_side_by_side(
        state, kBatch,
        [] {
            log_call(KV_LOG_ERROR, kFormat, 3u, 99u, 0u, "back-plane-mgt", 23,
                     "f25p_backpalne_detect");
        },
        [&line] {
            const int fd =
                ::open(kBareLog, O_WRONLY | O_APPEND | O_CREAT, 0666);
            benchmark::DoNotOptimize(::write(fd, line.data(), line.size()));
            benchmark::DoNotOptimize(::fdatasync(fd));
            ::close(fd);
        },
        [] {
            truncate_when_large(log_path[KV_LOG_ERROR]);
            truncate_when_large(kBareLog);
        });
}

BENCHMARK(log_call_vs_bare_append)->MinTime(2.0);

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    kv::bench::RatioReporter reporter(std::vector<kv::bench::Goal>{
        {"log_call_vs_bare_append", "at most 1.5"}});
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

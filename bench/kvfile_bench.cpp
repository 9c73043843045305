// SPDX-License-Identifier: Apache-2.0
// key=value files against the floor. Reading: read_conf_value against a
// bare fopen/fgets/strncmp scan for the same key. Writing a changed value:
// write_conf_value against the least a write that survives a power cut
// takes: the file's new bytes written to a scratch file and synced, the
// scratch renamed over the file and the folder synced. The files live in
// KV_BENCH_DIR (default /tmp, a tmpfs in kvsandbox); scripts/bench.sh runs
// it on ext4 too, where the syncs cost.
#include "side_by_side.h"

#include <libkv/foundation.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

constexpr size_t kReadBatch = 256;
constexpr size_t kWriteBatch = 64;
constexpr int kLines = 30;
constexpr const char* kKey = "key_20";

// A settings file of the size the BMC's services keep: 30 settings, the
// one wanted two thirds down.
std::string settings(const char* value_of_key)
{
    std::string text;
    for (int i = 0; i < kLines; ++i)
    {
        char line[64];
        const std::string key = "key_" + std::to_string(i);
        std::snprintf(line, sizeof line, "%s=%s\n", key.c_str(),
                      key == kKey ? value_of_key : "value of a setting");
        text += line;
    }
    return text;
}

std::string bench_file(const char* name)
{
    const char* dir = std::getenv("KV_BENCH_DIR");
    return std::string(dir != nullptr ? dir : "/tmp") + "/" + name;
}

void put_file(const std::string& path, const std::string& text)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    benchmark::DoNotOptimize(::write(fd, text.data(), text.size()));
    ::close(fd);
}

// The scan anyone would write first: the first line that starts with the
// key and '=' gives the rest of the line, newline dropped.
int bare_read(const char* path, const char* key, char* value)
{
    std::FILE* file = std::fopen(path, "r");
    if (file == nullptr)
    {
        return -1;
    }
    const size_t length = std::strlen(key);
    char line[256];
    int found = -1;
    while (std::fgets(line, sizeof line, file) != nullptr)
    {
        if (std::strncmp(line, key, length) == 0 && line[length] == '=')
        {
            const char* rest = line + length + 1;
            std::snprintf(value, 128, "%.*s",
                          static_cast<int>(std::strcspn(rest, "\n")), rest);
            found = 0;
            break;
        }
    }
    std::fclose(file);
    return found;
}

void read_conf_value_vs_bare_scan(benchmark::State& state)
{
    const std::string path = bench_file("kv_read.conf");
    put_file(path, settings("the value wanted"));
    char ours[128];
    char bare[128];
    kv::bench::time_side_by_side(
        state, kReadBatch,
        [&] {
            benchmark::DoNotOptimize(read_conf_value(path.c_str(), kKey, ours));
        },
        [&] { benchmark::DoNotOptimize(bare_read(path.c_str(), kKey, bare)); },
        [] {});
    if (std::strcmp(ours, bare) != 0)
    {
        state.SkipWithError("the two reads disagree");
    }
}

// The durable floor: scratch written and synced, renamed, folder synced.
void bare_replace(const std::string& path, const std::string& scratch,
                  const std::string& folder, const std::string& text)
{
    const int fd = ::open(scratch.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    benchmark::DoNotOptimize(::write(fd, text.data(), text.size()));
    benchmark::DoNotOptimize(::fsync(fd));
    ::close(fd);
    ::rename(scratch.c_str(), path.c_str());
    const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
    benchmark::DoNotOptimize(::fsync(dir));
    ::close(dir);
}

// Both sides alternate between two values, so every call changes the file.
void write_conf_value_vs_bare_replace(benchmark::State& state)
{
    const std::string path = bench_file("kv_write.conf");
    const std::string bare_path = bench_file("kv_write_bare.conf");
    const std::string bare_scratch = bare_path + "_scratch";
    const std::string folder = bench_file("");
    const char* values[] = {"first value", "second value"};
    const std::string texts[] = {settings(values[0]), settings(values[1])};
    put_file(path, texts[1]);
    put_file(bare_path, texts[1]);
    size_t ours_turn = 0;
    size_t bare_turn = 0;
    kv::bench::time_side_by_side(
        state, kWriteBatch,
        [&] {
            benchmark::DoNotOptimize(
                write_conf_value(path.c_str(), kKey, values[ours_turn++ % 2]));
        },
        [&] {
            bare_replace(bare_path, bare_scratch, folder,
                         texts[bare_turn++ % 2]);
        },
        [] {});
    char value[128] = "";
    read_conf_value(path.c_str(), kKey, value);
    if (std::strcmp(value, values[(ours_turn - 1) % 2]) != 0)
    {
        state.SkipWithError("write_conf_value did not write the value");
    }
}

BENCHMARK(read_conf_value_vs_bare_scan)->MinTime(2.0);
BENCHMARK(write_conf_value_vs_bare_replace)->MinTime(2.0);

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    kv::bench::RatioReporter reporter(std::vector<kv::bench::Goal>{
        {"read_conf_value_vs_bare_scan", "at most 1.2"},
        {"write_conf_value_vs_bare_replace", "at most 1.2"},
    });
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

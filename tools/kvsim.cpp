// kvsim: runs a command against the simulated board of a board file. The
// command runs in the private view of kvsandbox, with libkvsim preloaded so
// that /dev/i2c-N are the board's buses, and with the multiplexer channel map
// files that the platform daemon writes on a real BMC.
#include "sandbox.h"
#include "sim.h"

#include <link.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace
{

int usage()
{
    std::fprintf(stderr,
                 "usage: kvsim BOARD-FILE [--] COMMAND [ARGUMENT...]\n"
                 "Runs COMMAND with /dev/i2c-N served by the simulated board "
                 "described in BOARD-FILE.\n");
    return 2;
}

// The path of a library loaded into this process whose file name starts
// with `prefix`, or "" when none is.
std::string loaded_library(std::string_view prefix)
{
    struct Search
    {
        std::string_view prefix;
        std::string found;
    } search{prefix, {}};
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* data) {
            auto* search = static_cast<Search*>(data);
            const std::filesystem::path path(info->dlpi_name);
            if (path.filename().string().starts_with(search->prefix))
            {
                search->found = std::filesystem::canonical(path).string();
                return 1;
            }
            return 0;
        },
        &search);
    return search.found;
}

// The libkvsim this tool runs with, so the build tree and an installation
// each preload their own. A sanitizer build's libkvsim needs the sanitizer
// runtime loaded before anything else.
std::string preload_list()
{
    std::string list = loaded_library("libasan.so");
    for (const std::string& more :
         {loaded_library("libkvsim.so"),
          std::string(std::getenv("LD_PRELOAD") ? std::getenv("LD_PRELOAD")
                                                : "")})
    {
        if (!more.empty())
        {
            list += (list.empty() ? "" : ":") + more;
        }
    }
    return list;
}

// "/var/run/obmcinfo/i2c/i2c-<parent>-<channel>" holds the channel's bus.
void write_channel_maps()
{
    const std::filesystem::path directory = "/var/run/obmcinfo/i2c";
    std::filesystem::create_directories(directory);
    for (const kv::sim::BusInfo& bus : kv::sim::buses())
    {
        if (bus.parent < 0)
        {
            continue;
        }
        const auto name = "i2c-" + std::to_string(bus.parent) + "-" +
                          std::to_string(bus.channel);
        std::ofstream(directory / name) << bus.number << "\n";
    }
}

} // namespace

int main(int argc, char** argv)
{
    int first = 2;
    if (first < argc && std::strcmp(argv[first], "--") == 0)
    {
        ++first;
    }
    if (first >= argc || argv[1][0] == '-')
    {
        return usage();
    }
    try
    {
        // Read before entering the sandbox, which hides /tmp and /run.
        const kv::sim::Board board = kv::sim::read_board(argv[1]);
        const std::string preload = preload_list();
        kv::sandbox::enter();
        setenv(kv::sim::state_path_variable, kv::sim::default_state_path, 1);
        kv::sim::load_board(board);
        write_channel_maps();
        setenv("LD_PRELOAD", preload.c_str(), 1);
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "kvsim: %s\n", error.what());
        return 1;
    }
    execvp(argv[first], argv + first);
    std::fprintf(stderr, "kvsim: cannot run %s: %s\n", argv[first],
                 std::strerror(errno));
    return 127;
}

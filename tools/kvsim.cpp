// SPDX-License-Identifier: Apache-2.0
// kvsim: runs a command against the simulated board of a board file. The
// command runs in the private view of kvsandbox, with libkvsim preloaded so
// that /dev/i2c-N are the board's buses, and with what the platform daemon
// leaves for the others on a real BMC: the multiplexer channel map files and
// the FRU device table of the platform segment.
#include "host_files.h"
#include "ipc/platform_segment.h"
#include "sim.h"

#include <libkv/fru.h>
#include <libkv/ipc.h>

#include <link.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace
{

// On standard output when asked for, else on standard error.
int usage(std::FILE* to, int status)
{
    std::fprintf(to,
                 "usage: kvsim BOARD-FILE [--] COMMAND [ARGUMENT...]\n"
                 "Runs COMMAND with /dev/i2c-N served by the simulated board "
                 "described in BOARD-FILE.\n");
    return status;
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

kv_fru_device descriptor_of(const kv::sim::FruDevice& device)
{
    kv_fru_device d{};
    d.state = device.state;
    d.method = device.method;
    d.size[0] = static_cast<uint8_t>(device.size);
    d.size[1] = static_cast<uint8_t>(device.size >> 8);
    d.behind_mux = device.behind_mux ? 1 : 0;
    d.mux_channel = device.mux_channel;
    d.mux_address = device.mux_address;
    d.offset_width = device.offset_width;
    d.bus = static_cast<uint8_t>(device.bus);
    d.address = device.address;
    d.base[0] = static_cast<uint8_t>(device.base);
    d.base[1] = static_cast<uint8_t>(device.base >> 8);
    return d;
}

// One entry per FRU device in the (private) platform segment.
void write_fru_device_table(const std::vector<kv::sim::FruDevice>& devices)
{
    if (devices.empty())
    {
        return;
    }
    auto* segment = static_cast<uint8_t*>(init_shm());
    if (segment == nullptr)
    {
        throw std::runtime_error("cannot attach the platform segment");
    }
    for (const kv::sim::FruDevice& device : devices)
    {
        uint8_t* descriptor = segment + kv::segment::fru_descriptor(device.id);
        std::memset(descriptor - kv::segment::kFruDescriptorInEntry, 0,
                    kv::segment::kFruDeviceEntrySize);
        const kv_fru_device d = descriptor_of(device);
        std::memcpy(descriptor, &d, sizeof d);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0)
    {
        return usage(stdout, 0);
    }
    int first = 2;
    if (first < argc && std::strcmp(argv[first], "--") == 0)
    {
        ++first;
    }
    if (first >= argc || argv[1][0] == '-')
    {
        return usage(stderr, 2);
    }
    try
    {
        // Read before entering the sandbox, which hides /tmp and /run.
        const kv::sim::Board board = kv::sim::read_board(argv[1]);
        const std::string preload = preload_list();
        const std::string hidden = kv::sandbox::enter_with(
            kv::sandbox::host_files(argv[first], preload));
        if (!hidden.empty())
        {
            throw std::runtime_error(hidden);
        }
        setenv(kv::sim::state_path_variable, kv::sim::default_state_path, 1);
        kv::sim::load_board(board);
        write_channel_maps();
        write_fru_device_table(board.fru_devices);
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

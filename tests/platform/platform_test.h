// SPDX-License-Identifier: Apache-2.0
// Plug-in boards on the simulated board of tests/platform/platform_board.json:
// the result directory made, the channel map files of the multiplexer on
// bus 13 written as the platform daemon writes them, the card multiplexers'
// channel locks free and CPLD retry pauses captured.
#pragma once

#include "hw_test.h"
#include "ipc/platform_segment.h"

#include <libkv/ipc.h>
#include <libkv/platform.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kv::platform::test
{

using namespace kv::hw::test;
using Bytes = std::vector<uint8_t>;

inline const std::string board_file = PLATFORM_BOARD;
inline const std::string result_dir = "/var/run/backplane/";

// The channel lock of the multiplexer at `mux` on `bus`.
inline uint8_t& channel_lock(int bus, uint8_t mux)
{
    return static_cast<uint8_t*>(
        get_shm_address())[kv::segment::channel_lock(bus, mux)];
}

// The segment is attached once per process and so outlives a test's IPC
// namespace: each test starts with the card multiplexers free.
class PlatformBoard : public testing::Test
{
  protected:
    void SetUp() override
    {
        load_board(board_file);
        write_text(error_log, "");
        kv::test::make_dirs(result_dir);
        for (int channel = 1; channel <= 4; ++channel)
        {
            write_text("/var/run/obmcinfo/i2c/i2c-13-" +
                           std::to_string(channel),
                       std::to_string(15 + channel) + "\n");
        }
        channel_lock(5, 0x71) = 0;
        channel_lock(6, 0x71) = 0;
        capture_sleeps(true);
    }
};

inline std::optional<std::string> published(const std::string& name)
{
    return read_text(result_dir + name);
}

inline Bytes published_bytes(const std::string& path)
{
    const auto text = read_text(path);
    return text ? Bytes(text->begin(), text->end()) : Bytes{};
}

// The bytes of a card result file: the count, then `entries` padded to 8.
inline Bytes result_file(std::vector<Bytes> entries, std::size_t width)
{
    Bytes bytes{static_cast<uint8_t>(entries.size()), 0, 0, 0};
    entries.resize(8, Bytes(width, 0));
    for (const Bytes& entry : entries)
    {
        bytes.insert(bytes.end(), entry.begin(), entry.end());
    }
    return bytes;
}

// Wire-log entries that wrote `bytes`, in order.
inline std::vector<Transfer> writes_of(const Bytes& bytes)
{
    std::vector<Transfer> writes;
    for (const Transfer& t : wire_log())
    {
        if (!t.read && t.bytes == bytes)
        {
            writes.push_back(t);
        }
    }
    return writes;
}

} // namespace kv::platform::test

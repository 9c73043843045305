// SPDX-License-Identifier: Apache-2.0
// FRU devices on the simulated example board: the FRU device table of the
// test's platform segment, with sleeps captured so pacing is asserted, not
// waited for.
#pragma once

#include "hw_test.h"
#include "ipc/platform_segment.h"

#include <libkv/fru.h>
#include <libkv/ipc.h>

#include <cstring>

namespace kv::fru::test
{

using namespace kv::hw::test;
using Bytes = std::vector<uint8_t>;

// The 24C64 at 0x51 on bus 16, reached through channel 1 (counted from 0:
// 0) of the PCA9546 at 0x70 on bus 13.
inline kv_fru_device behind_mux(unsigned size = 512, unsigned base = 0)
{
    kv_fru_device d{};
    d.method = KV_FRU_ACCESS_I2C;
    d.size[0] = static_cast<uint8_t>(size);
    d.size[1] = static_cast<uint8_t>(size >> 8);
    d.behind_mux = 1;
    d.mux_channel = 0;
    d.mux_address = 0x70;
    d.offset_width = 2;
    d.bus = 13;
    d.address = 0x51;
    d.base[0] = static_cast<uint8_t>(base);
    d.base[1] = static_cast<uint8_t>(base >> 8);
    return d;
}

// The 24C64 at 0x50 on bus 3, no multiplexer.
inline kv_fru_device direct(unsigned size = 512)
{
    kv_fru_device d = behind_mux(size);
    d.behind_mux = 0;
    d.mux_address = 0;
    d.bus = 3;
    d.address = 0x50;
    return d;
}

inline uint8_t* segment()
{
    return static_cast<uint8_t*>(init_shm());
}

inline void install(int id, const kv_fru_device& device)
{
    std::memcpy(segment() + kv::segment::fru_descriptor(id), &device,
                sizeof device);
}

// The channel lock of the multiplexer at 0x70 on bus 13.
inline uint8_t& mux_lock()
{
    return segment()[kv::segment::channel_lock(13, 0x70)];
}

// The segment is attached once per process and so outlives a test's IPC
// namespace: each test starts from a free lock.
class FruBoard : public SimBoard
{
  protected:
    void SetUp() override
    {
        SimBoard::SetUp();
        mux_lock() = 0;
        capture_sleeps(true);
    }
};

} // namespace kv::fru::test

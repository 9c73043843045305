// SPDX-License-Identifier: Apache-2.0
// Multiplexer channels taken on request: a flag byte per (bus, multiplexer)
// in the platform segment keeps a second requester off a channel in use.
#include "ipc/platform_segment.h"

#include <libkv/hw.h>
#include <libkv/ipc.h>

extern "C" int switch_channel_request(int fd, uint8_t bus, uint8_t channel,
                                      uint8_t mux_addr, int enable)
{
    auto* segment = static_cast<uint8_t*>(get_shm_address());
    if (segment == nullptr)
    {
        return KV_CC_NO_SEGMENT;
    }
    uint8_t& taken = segment[kv::segment::channel_lock(bus, mux_addr)];
    if (enable == 0)
    {
        taken = 0;
        return KV_CC_OK;
    }
    if (taken == 1)
    {
        return KV_CC_NODE_BUSY;
    }
    const uint8_t command[] = {
        0x00, channel < 8 ? static_cast<uint8_t>(1u << channel) : uint8_t{0}};
    if (i2c_rw_data(fd, mux_addr, command, sizeof command, nullptr, 0) < 0)
    {
        return KV_CC_UNSPECIFIED;
    }
    taken = 1;
    return KV_CC_OK;
}

// SPDX-License-Identifier: Apache-2.0
// Register reads of the small devices on plug-in boards: the register number
// written, the bytes read after a repeated start, one transaction.
#pragma once

#include <libkv/ipc.h>

#include <cstdint>

namespace kv::detail
{

// The source name of the discovery code's log lines.
inline constexpr const char* kDiscoverySource = "back-plane-mgt";

bool read_registers(int fd, uint8_t address, uint8_t reg, uint8_t* buf,
                    uint16_t len);

// A device on an open bus, and whose log lines report its failures.
struct Probe
{
    int fd;
    int bus;
    uint8_t address;
    const char* function;
};

// As read_registers; a failure is logged as an error naming the bus, the
// device, the register and `line` of `probe.function`.
bool read_registers_logged(const Probe& probe, uint8_t reg, uint8_t* buf,
                           uint16_t len, int line);

// Runs `read` with channel `channel` of the multiplexer `mux` on `bus`
// taken through `fd`, and gives the channel back after; a `mux` of 0 means
// the device is reached directly. Nothing is read when another process
// holds the multiplexer.
template <typename Read>
void on_channel(int fd, uint8_t bus, uint8_t channel, uint8_t mux, Read read)
{
    if (mux == 0)
    {
        read();
        return;
    }
    if (switch_channel_request(fd, bus, channel, mux, 1) != KV_CC_OK)
    {
        return;
    }
    read();
    switch_channel_request(fd, bus, channel, mux, 0);
}

} // namespace kv::detail

// SPDX-License-Identifier: Apache-2.0
// Register reads of the small devices on plug-in boards: the register number
// written, the bytes read after a repeated start, one transaction.
#pragma once

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

} // namespace kv::detail

// SPDX-License-Identifier: Apache-2.0
// Requests on a simulated bus, as the i2c core and the adapter carry them out:
// multiplexer channels selected on the way, devices addressed through every
// enabled channel, faults applied and every message logged.
#pragma once

#include "shared_state.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace kv::sim::detail
{

struct Message
{
    uint16_t address = 0;
    bool read = false;
    bool tenbit = false;
    // SMBus block read: the first byte read tells how many follow; `length`
    // is then updated to the bytes received.
    bool receive_length = false;
    uint8_t* data = nullptr;
    std::size_t length = 0;
};

// The slot of a bus, or nullptr. Call with the state locked.
const BusSlot* find_bus(const State& state, int number);

bool bus_exists(State& state, int bus);

// The I2C_FUNC_* bits of a bus; 0 for an unknown one.
uint32_t bus_functions(State& state, int bus);

// Runs the messages as one request (repeated starts between them) and stops
// at the first failure. Returns the number of messages done or -errno.
int run_request(State& state, int bus, std::span<Message> messages);

} // namespace kv::sim::detail

// SPDX-License-Identifier: Apache-2.0
// Injected faults: set through the API, checked on every transfer. Call with
// the state locked.
#pragma once

#include "shared_state.h"

namespace kv::sim::detail
{

// Throw std::length_error when the fault table is full.
void add_address_fault(State& state, int bus, uint16_t address, int error);
void add_transfer_fault(State& state, uint64_t number, int error);
void remove_faults(State& state);

// The error for the transfer numbered `number` by a scheduled fault, else 0.
int scheduled_fault(State& state, uint64_t number);

// The error for a transfer to `address` on `bus`, reaching `device` (or no
// device), else 0.
int address_fault(const State& state, int bus, uint16_t address,
                  const DeviceSlot* device);

} // namespace kv::sim::detail

// SPDX-License-Identifier: Apache-2.0
// The device models: what a device does with a message it acknowledged.
#pragma once

#include "bus.h"
#include "shared_state.h"

namespace kv::sim::detail
{

// Reads into or writes from `message`. Returns 0, or the errno of a failure
// the device causes after acknowledging its address.
int serve(State& state, DeviceSlot& device, Message& message);

uint8_t* memory_of(State& state, const DeviceSlot& device);

} // namespace kv::sim::detail

// SPDX-License-Identifier: Apache-2.0
// The wire log: a ring of the most recent transfers in the shared state.
#pragma once

#include "bus.h"
#include "shared_state.h"

#include <vector>

namespace kv::sim::detail
{

void record(State& state, int bus, const Message& message, bool repeated_start,
            int error);

// Oldest first. Call with the state locked.
std::vector<Transfer> logged_transfers(const State& state);

} // namespace kv::sim::detail

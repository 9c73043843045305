// SPDX-License-Identifier: Apache-2.0
// Turns a board description into the shared state's tables.
#pragma once

#include "shared_state.h"

namespace kv::sim::detail
{

// What an adapter of the simulated controller offers: plain I2C and the
// SMBus transactions the kernel emulates on top of it (without PEC).
unsigned long default_functions();

// Fills a zeroed state with `board`; throws std::invalid_argument when the
// board is inconsistent (unknown or duplicate buses and addresses, sizes,
// multiplexer loops) or too large for the state's tables.
void lay_out_board(State& state, const Board& board);

} // namespace kv::sim::detail

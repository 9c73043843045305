// SPDX-License-Identifier: Apache-2.0
// The identity byte of a CPLD-carrying board: bits 0-4 board id, bits 5-6
// PCB revision (A-D), bit 7 makes the parity odd.
#pragma once

#include "foundation/resources.h"

#include <cstdint>

namespace kv::detail
{

inline int board_id(uint8_t identity)
{
    return identity & 0x1F;
}

inline char pcb_revision(uint8_t identity)
{
    return static_cast<char>('A' + ((identity >> 5) & 0x3));
}

// A board found on its bus; the bus stays open for further reads.
struct IdentifiedBoard
{
    int status = 0; // a KV_BACKPLANE_* result
    UniqueFd bus;
    uint8_t identity = 0;
};

// Opens `bus` and reads the identity byte from `id_register` of the device
// at `address`; it must pass the parity test and carry `accepted_id` (a
// negative id accepts none). Read failures are logged for `function`.
IdentifiedBoard identify_board(int bus, uint8_t address, uint8_t id_register,
                               int accepted_id, const char* function);

} // namespace kv::detail

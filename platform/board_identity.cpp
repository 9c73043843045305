// SPDX-License-Identifier: Apache-2.0
#include "platform/board_identity.h"

#include "platform/register_reads.h"

#include <libkv/hw.h>
#include <libkv/platform.h>

namespace kv::detail
{

IdentifiedBoard identify_board(int bus, uint8_t address, uint8_t id_register,
                               int accepted_id, const char* function)
{
    IdentifiedBoard board;
    board.bus = UniqueFd(i2c_open(bus));
    if (!board.bus)
    {
        board.status = KV_BACKPLANE_NO_BUS;
        return board;
    }
    const Probe probe{board.bus.get(), bus, address, function};
    if (!read_registers_logged(probe, id_register, &board.identity, 1,
                               __LINE__))
    {
        board.status = KV_BACKPLANE_READ_FAILED;
    }
    else if (odd_check(board.identity, 8) != KV_CPLD_OK)
    {
        board.status = KV_BACKPLANE_EVEN_PARITY;
    }
    else if (board_id(board.identity) != accepted_id)
    {
        board.status = KV_BACKPLANE_OTHER_BOARD;
    }
    return board;
}

} // namespace kv::detail

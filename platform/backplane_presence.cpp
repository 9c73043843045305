// SPDX-License-Identifier: Apache-2.0
// Boards that publish no more than their presence, and the board's fixed
// detection sequence.
#include "platform/board_identity.h"

#include <libkv/foundation.h>
#include <libkv/platform.h>

#include <cstdio>

extern "C" int backplane_board_handler(const char* name, int board_id, int bus,
                                       uint8_t address, uint8_t id_register)
{
    if (name == nullptr)
    {
        return KV_BACKPLANE_FILE_FAILED; // no file to publish to
    }
    const kv::detail::IdentifiedBoard board = kv::detail::identify_board(
        bus, address, id_register, board_id, "backplane_board_handler");
    if (board.status != KV_BACKPLANE_OK)
    {
        return board.status;
    }
    char path[256];
    const int len = std::snprintf(path, sizeof path, "%s%s.json",
                                  "/var/run/backplane/", name);
    if (len < 0 || static_cast<size_t>(len) >= sizeof path ||
        create_and_write_file(path, "{\"present\":\"1\"}") != 0)
    {
        return KV_BACKPLANE_FILE_FAILED;
    }
    return KV_BACKPLANE_OK;
}

extern "C" int backplane_board_detect(void)
{
    constexpr int kTenSlotId = 14;
    constexpr int kTenSlotBus = 1;
    constexpr uint8_t kTenSlotCpld = 63;
    constexpr uint8_t kIdentityRegister = 0;
    mp2_card_detect();
    iox_present_detect();
    return backplane_board_handler("10p0", kTenSlotId, kTenSlotBus,
                                   kTenSlotCpld, kIdentityRegister);
}

// SPDX-License-Identifier: Apache-2.0
// The drive backplane kinds of the board and their detectors.
#include "platform/backplane.h"

#include <libkv/hw.h>

#include <iterator>
#include <span>

extern "C"
{
// Drive channels published with the first backplane of a kind: I2C bus,
// extended channel, slot.
kv_drive_channel d2p_right_cfg[2] = {{10, 0, 1}, {12, 0, 2}};
kv_drive_channel d8p_right_cfg[8] = {{5, 4, 1}, {5, 5, 2}, {5, 6, 3},
                                     {5, 7, 4}, {6, 4, 5}, {6, 5, 6},
                                     {6, 6, 7}, {6, 7, 8}};
kv_drive_channel d12p_right_cfg[4] = {
    {5, 4, 1}, {5, 5, 2}, {5, 6, 3}, {5, 7, 4}};
}

namespace
{

using kv::detail::BackplaneKind;
using kv::detail::DriveList;

constexpr DriveList kNoDrives{nullptr, 0, false, -1};

constexpr int kTwelveSlotMux = 13;
constexpr uint8_t kTwelveSlotCpld = 63;
constexpr uint8_t kTwelveSlotEnable = 45;

// Before a 12-slot board is published, register 45 of the CPLD at 63 behind
// channels of the multiplexer on bus 13 is set to 1: channels 4 and 3 for
// board 8, channel 2 for boards 11 and 24. A channel that does not answer
// does not stop the detection (write_cpld_reg logs it).
void enable_twelve_slot_channels(int id)
{
    static constexpr int kBoard8[] = {4, 3};
    static constexpr int kOthers[] = {2};
    for (const int channel : id == 8 ? std::span<const int>(kBoard8)
                                     : std::span<const int>(kOthers))
    {
        write_cpld_reg(kTwelveSlotMux, channel, kTwelveSlotCpld,
                       kTwelveSlotEnable, 1);
    }
}

constexpr BackplaneKind kTwoSlot{
    "f2p_backpalne_detect",
    "/var/run/backplane/2p",
    "2P BACK PLANE",
    [](int, int) { return 31; },
    2,
    1,
    true,
    {d2p_right_cfg, static_cast<int>(std::size(d2p_right_cfg)), false, -1},
    nullptr};

constexpr BackplaneKind kEightSlot{
    "f8p_backpalne_detect",
    "/var/run/backplane/8p",
    "8P BACK PLANE",
    [](int, int) { return 10; },
    8,
    1,
    false,
    {d8p_right_cfg, static_cast<int>(std::size(d8p_right_cfg)), false, -1},
    nullptr};

constexpr BackplaneKind kTwelveSlot{
    "f12p_backpalne_detect",
    "/var/run/backplane/12p",
    "12P BACK PLANE",
    [](int, int expected) {
        return expected == 8 || expected == 11 || expected == 24 ? expected
                                                                 : -1;
    },
    12,
    2,
    false,
    {d12p_right_cfg, static_cast<int>(std::size(d12p_right_cfg)), true, 8},
    enable_twelve_slot_channels};

constexpr BackplaneKind kTwentyFiveSlot{
    "f25p_backpalne_detect",
    "/var/run/backplane/25p",
    "25P BACK PLANE",
    [](int index, int) { return index == 0 ? 9 : 25; },
    25,
    4,
    false,
    kNoDrives,
    nullptr};

constexpr BackplaneKind kTwoSlotLarge{
    "f2p_backpalne_3p5_detect",
    "/var/run/backplane/3p5_2p",
    "2P BACK PLANE",
    [](int, int expected) { return expected; },
    2,
    1,
    true,
    kNoDrives,
    nullptr};

// Every slot has its bit in the presence and media blocks.
constexpr bool slots_fit(const BackplaneKind& kind)
{
    return kind.register_bytes <= kv::detail::kMaxRegisterBytes &&
           kind.slots <= kind.register_bytes * 8;
}
static_assert(slots_fit(kTwoSlot) && slots_fit(kEightSlot) &&
              slots_fit(kTwelveSlot) && slots_fit(kTwentyFiveSlot) &&
              slots_fit(kTwoSlotLarge));

} // namespace

extern "C" int f2p_backpalne_detect(int index, int board_id, int bus,
                                    uint8_t address, uint8_t id_register)
{
    return detect_backplane(kTwoSlot, index, board_id, bus, address,
                            id_register);
}

extern "C" int f8p_backpalne_detect(int index, int board_id, int bus,
                                    uint8_t address, uint8_t id_register)
{
    return detect_backplane(kEightSlot, index, board_id, bus, address,
                            id_register);
}

extern "C" int f12p_backpalne_detect(int index, int board_id, int bus,
                                     uint8_t address, uint8_t id_register)
{
    return detect_backplane(kTwelveSlot, index, board_id, bus, address,
                            id_register);
}

extern "C" int f25p_backpalne_detect(int index, int board_id, int bus,
                                     uint8_t address, uint8_t id_register)
{
    return detect_backplane(kTwentyFiveSlot, index, board_id, bus, address,
                            id_register);
}

extern "C" int f2p_backpalne_3p5_detect(int index, int board_id, int bus,
                                        uint8_t address, uint8_t id_register)
{
    return detect_backplane(kTwoSlotLarge, index, board_id, bus, address,
                            id_register);
}

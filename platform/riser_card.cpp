// SPDX-License-Identifier: Apache-2.0
// The riser card: an identity device on the riser bus tells which riser is
// fitted; a card behind the riser's multiplexer channel is recorded.
#include "platform/board_identity.h"
#include "platform/card_results.h"
#include "platform/card_rows.h"
#include "platform/register_reads.h"

#include <libkv/hw.h>
#include <libkv/ipc.h>
#include <libkv/platform.h>

namespace
{

using namespace kv::detail;

constexpr int kRiserCardId = 15;

// Riser 12 carries bit 7, riser 4 does not; their identity bytes are not
// parity-checked.
bool accepted_riser(uint8_t identity)
{
    const bool bit7 = (identity & 0x80) != 0;
    return (board_id(identity) == 12 && bit7) ||
           (board_id(identity) == 4 && !bit7);
}

} // namespace

extern "C" int riser_card_detect(void)
{
    const CardRow& config = riser_bus_config[0];
    const uint8_t bus = config[0];
    const uint8_t riser_device = config[1];
    const uint8_t mux = config[2]; // 0: none
    const uint8_t card_device = config[3];
    const uint8_t channel = config[4];

    UniqueFd fd(i2c_open(bus));
    if (fd.get() == 0)
    {
        return 0; // not a bus this code may use: standard input was closed
    }
    // A bus that did not open fails the read below.
    uint8_t identity[2] = {};
    if (!read_registers(fd.get(), riser_device, 0, identity, 2) ||
        !accepted_riser(identity[0]))
    {
        return 0;
    }
    CardResults<3> found;
    on_channel(fd.get(), bus, channel, mux, [&] {
        uint8_t card[2] = {};
        if (read_registers(fd.get(), card_device, 0, card, 2) &&
            board_id(card[0]) == kRiserCardId)
        {
            found.add({bus, mux, channel});
        }
    });
    fd.reset();
    found.publish("/var/run/backplane/riser_bus_config");
    return 0;
}

extern "C" int single_riser_detect(void)
{
    return riser_card_detect();
}

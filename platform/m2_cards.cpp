// SPDX-License-Identifier: Apache-2.0
// M.2 adapter cards. A presence device on the probe bus tells which of the
// three positions of a row hold a card; the card's identity device answers
// on the card bus, behind channel c of a multiplexer when the row has one.
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

constexpr int kM2CardId = 26;
constexpr uint8_t kPositions = 3;

struct M2Row
{
    uint8_t probe_bus;
    uint8_t presence_device;
    uint8_t mux; // 0: none
    uint8_t identity_device;
    uint8_t card_bus;
};

// A position is taken when both of its presence bits, c and c + 3, are 0.
bool position_taken(uint8_t presence, uint8_t c)
{
    return ((presence >> c) & 1) == 0 && ((presence >> (c + 3)) & 1) == 0;
}

void probe_position(int fd, const M2Row& row, uint8_t c, CardResults<4>& found)
{
    on_channel(fd, row.card_bus, c, row.mux, [&] {
        uint8_t identity[2] = {};
        const Probe probe{fd, row.card_bus, row.identity_device,
                          "mp2_card_detect"};
        if (read_registers_logged(probe, 0, identity, sizeof identity,
                                  __LINE__) &&
            board_id(identity[0]) == kM2CardId)
        {
            found.add({row.card_bus, row.mux, c, 0});
        }
    });
}

void probe_row(const CardRow& config, CardResults<4>& found)
{
    const M2Row row{config[0], config[1], config[2], config[3], config[4]};
    UniqueFd bus(i2c_open(row.probe_bus));
    uint8_t presence[2] = {};
    if (!bus || !read_registers(bus.get(), row.presence_device, 0, presence, 2))
    {
        return;
    }
    for (uint8_t c = 0; c < kPositions; ++c)
    {
        if (!position_taken(presence[1], c))
        {
            continue;
        }
        if (row.card_bus != row.probe_bus)
        {
            bus.reset();
            bus.reset(i2c_open(row.card_bus));
            if (!bus)
            {
                continue;
            }
        }
        probe_position(bus.get(), row, c, found);
    }
}

} // namespace

extern "C" int mp2_card_detect(void)
{
    CardResults<4> found;
    for (const CardRow& row : config_rows(m2_bus_config, max_config_number))
    {
        probe_row(row, found);
    }
    found.publish("/run/backplane/mp2_bus_config");
    return 0;
}

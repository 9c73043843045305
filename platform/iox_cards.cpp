// SPDX-License-Identifier: Apache-2.0
// IO-expander cards. The module CPLD's register 4 has a bit per card
// position (1 = nothing fitted); each fitted card carries an identity byte
// with odd parity. The third position may also sit behind channel 3 of the
// multiplexer on bus 13.
#include "platform/board_identity.h"
#include "platform/card_results.h"
#include "platform/card_rows.h"
#include "platform/register_reads.h"

#include <libkv/hw.h>
#include <libkv/platform.h>

#include <cstdio>

namespace
{

using namespace kv::detail;

constexpr const char* kFunction = "iox_present_detect";
constexpr uint8_t kPresenceRegister = 4;
constexpr int kFallbackPosition = 2;
constexpr int kFallbackMux = 13;
constexpr int kFallbackChannel = 3;
constexpr uint8_t kFallbackDevice = 63;

// Reads the identity byte of the card at `position`; true when it was
// recorded (under `recorded_bus`).
bool probe_card(int position, int bus, uint8_t device, uint8_t recorded_bus,
                CardResults<4>& found)
{
    UniqueFd fd(i2c_open(bus));
    if (!fd)
    {
        std::printf("%s:open i2c%d bus fail \n", kFunction, bus);
        return false;
    }
    uint8_t identity = 0;
    if (!read_registers(fd.get(), device, 0, &identity, 1))
    {
        std::printf("%s:read i2c%d slave[%x] board id fail \n", kFunction, bus,
                    device);
        return false;
    }
    if (odd_check(identity, 8) != KV_CPLD_OK)
    {
        std::printf("%s:io%d odd check fail,data[%x] \n", kFunction, position,
                    identity);
        return false;
    }
    found.add({recorded_bus, 0, 0, static_cast<uint8_t>(board_id(identity))});
    return true;
}

} // namespace

extern "C" int iox_present_detect(void)
{
    uint8_t absent = 0;
    if (CPLDModuleReadDatas(kPresenceRegister, &absent, 1) != KV_CPLD_OK)
    {
        std::printf("%s: read cpld fail \n", kFunction);
        return KV_IOX_NO_CPLD;
    }
    const auto fitted = [absent](int position) {
        return ((absent >> position) & 1) == 0;
    };

    CardResults<4> found;
    bool fallback_found = false;
    const auto rows = config_rows(iox_bus_config, iox_config_number);
    for (int i = 0; i < static_cast<int>(rows.size()); ++i)
    {
        if (!fitted(i))
        {
            std::printf("%s:io%d don't present \n", kFunction, i);
            continue;
        }
        const CardRow& row = rows[i];
        const bool recorded = probe_card(i, row[0], row[1], row[4], found);
        fallback_found |= recorded && i == kFallbackPosition;
    }

    if (fitted(kFallbackPosition) && !fallback_found)
    {
        // 0 and -1 both mean the channel's bus is not known.
        const int bus = CmmFunGetI2CExtBus(kFallbackMux, kFallbackChannel);
        if (bus > 0)
        {
            probe_card(kFallbackPosition, bus, kFallbackDevice,
                       static_cast<uint8_t>(bus), found);
        }
    }

    found.publish("/run/backplane/iox_bus_config");
    return 0;
}

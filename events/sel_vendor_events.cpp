// SPDX-License-Identifier: Apache-2.0
// Event texts of the board's vendor sensor types 0xC1-0xCF, by offset.
// "Hotswap Healty" is the spelling the BMC's logs have always carried.
#include "events/sel_tables.h"

namespace kv::detail
{

constexpr std::array<kv_event_desc, kVendorEventCount + 1> vendor_events = {{
    // 0xC1
    {0xC1, 0x00, kAnyData, "Push Button"},
    {0xC1, 0x01, kAnyData, "Bridge Reset"},
    {0xC1, 0x02, kAnyData, "Backplane"},
    {0xC1, 0x03, kAnyData, "Hotswap Fault"},
    {0xC1, 0x04, kAnyData, "Hotswap Healty"},
    {0xC1, 0x05, kAnyData, "Unknown"},
    {0xC1, 0x06, kAnyData, "ITP"},
    {0xC1, 0x07, kAnyData, "Hardware Watchdog"},
    {0xC1, 0x08, kAnyData, "Software Reset"},
    // 0xC3
    {0xC3, 0x02, kAnyData, "IPMB L Disabled"},
    {0xC3, 0x03, kAnyData, "IPMB L Enabled"},
    // 0xC4
    {0xC4, 0x00, kAnyData, "Push Button"},
    {0xC4, 0x01, kAnyData, "Hardware Power Failure"},
    {0xC4, 0x02, kAnyData, "Unknown"},
    {0xC4, 0x03, kAnyData, "Hardware Watchdog"},
    {0xC4, 0x04, kAnyData, "Soft Reset"},
    {0xC4, 0x05, kAnyData, "Warm Reset"},
    {0xC4, 0x06, kAnyData, "Cold Reset"},
    {0xC4, 0x07, kAnyData, "IPMI Command"},
    {0xC4, 0x08, kAnyData, "Setup Reset (Save CMOS)"},
    {0xC4, 0x09, kAnyData, "Power Up Reset"},
    // 0xC6
    {0xC6, 0x0E, kAnyData, "Post Error (see data2)"},
    // 0xC7
    {0xC7, 0x00, kAnyData, "First Boot After Upgrade"},
    {0xC7, 0x01, kAnyData, "First Boot After Rollback(error)"},
    {0xC7, 0x02, kAnyData, "First Boot After Errors (watchdog)"},
    {0xC7, 0x03, kAnyData, "First Boot After Manual Rollback"},
    {0xC7, 0x08, kAnyData, "Firmware Watchdog Bite, reset occurred"},
    // 0xC8
    {0xC8, 0x00, kAnyData, "Not Loaded"},
    {0xC8, 0x01, kAnyData, "Initializing"},
    {0xC8, 0x02, kAnyData, "Ready"},
    {0xC8, 0x03, kAnyData, "Failure (see data2)"},
    // 0xC9
    {0xC9, 0x00, kAnyData, "Started"},
    {0xC9, 0x01, kAnyData, "Pass"},
    {0xC9, 0x02, kAnyData, "Fail"},
    // 0xCA
    {0xCA, 0x00, kAnyData, "In progress"},
    {0xCA, 0x01, kAnyData, "Success"},
    {0xCA, 0x02, kAnyData, "Failure"},
    // 0xCB, 0xCC, 0xCD, 0xCF
    {0xCB, 0x00, kAnyData, "Asserted"},
    {0xCB, 0x01, kAnyData, "Deasserted"},
    {0xCC, 0x00, kAnyData, "Asserted"},
    {0xCC, 0x01, kAnyData, "Deasserted"},
    {0xCD, 0x00, kAnyData, "Asserted"},
    {0xCD, 0x01, kAnyData, "Deasserted"},
    {0xCF, 0x00, kAnyData, "Asserted"},
    {0xCF, 0x01, kAnyData, "Deasserted"},
    {0x00, 0x00, 0x00, nullptr},
}};
static_assert(walkable(vendor_events));

} // namespace kv::detail

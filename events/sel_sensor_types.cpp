// SPDX-License-Identifier: Apache-2.0
// Sensor type names, by IPMI sensor type code.
#include "events/sel_tables.h"

namespace
{

constexpr std::array<const char*, kv::detail::kSensorTypeCount> kSensorTypes = {
    "reserved",                 // 0x00
    "Temperature",              // 0x01
    "Voltage",                  // 0x02
    "Current",                  // 0x03
    "Fan",                      // 0x04
    "Physical Security",        // 0x05
    "Platform Security",        // 0x06
    "Processor",                // 0x07
    "Power Supply",             // 0x08
    "Power Unit",               // 0x09
    "Cooling Device",           // 0x0A
    "Other",                    // 0x0B
    "Memory",                   // 0x0C
    "Drive Slot / Bay",         // 0x0D
    "POST Memory Resize",       // 0x0E
    "System Firmwares",         // 0x0F
    "Event Logging Disabled",   // 0x10
    "Watchdog1",                // 0x11
    "System Event",             // 0x12
    "Critical Interrupt",       // 0x13
    "Button",                   // 0x14
    "Module / Board",           // 0x15
    "Microcontroller",          // 0x16
    "Add-in Card",              // 0x17
    "Chassis",                  // 0x18
    "Chip Set",                 // 0x19
    "Other FRU",                // 0x1A
    "Cable / Interconnect",     // 0x1B
    "Terminator",               // 0x1C
    "System Boot Initiated",    // 0x1D
    "Boot Error",               // 0x1E
    "OS Boot",                  // 0x1F
    "OS Critical Stop",         // 0x20
    "Slot / Connector",         // 0x21
    "System ACPI Power State",  // 0x22
    "Watchdog2",                // 0x23
    "Platform Alert",           // 0x24
    "Entity Presence",          // 0x25
    "Monitor ASIC",             // 0x26
    "LAN",                      // 0x27
    "Management Subsys Health", // 0x28
    "Battery",                  // 0x29
    "Session Audit",            // 0x2A
    "Version Change",           // 0x2B
    "FRU State",                // 0x2C
};
static_assert(kSensorTypes.back() != nullptr, "a sensor type name is missing");

} // namespace

namespace kv::detail
{

const char* sensor_type_name(uint8_t code)
{
    return code < kSensorTypes.size() ? kSensorTypes[code] : nullptr;
}

} // namespace kv::detail

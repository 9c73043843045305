// SPDX-License-Identifier: Apache-2.0
// Event texts of the sensor-specific offsets (event/reading type 0x6F), by
// sensor type and offset, then the hot-swap, IPMB link and module handle
// states of types 0xF0-0xF2.
//
// A few offsets are told apart further by event data 2: the power supply
// configuration errors, the firmware error, hang and progress codes and
// the version change kinds. Their data-specific entries come first; the
// catch-all entry that follows (data any) answers any other data 2, and
// also any record that does not say data 2 is specific. The lookup takes
// the first entry that matches, so this order is behaviour.
#include "events/sel_tables.h"

#include <string_view>

namespace
{

using kv::detail::kAnyData;

template <std::size_t N>
using Entries = std::array<kv_event_desc, N>;

// Power supply configuration errors, by data 2.
constexpr auto kSupplyConfigErrors = std::to_array<const char*>({
    "Config Error: Vendor Mismatch",
    "Config Error: Revision Mismatch",
    "Config Error: Processor Missing",
    "Config Error: Power Supply Rating Mismatch",
    "Config Error: Voltage Rating Mismatch",
});
static_assert(kSupplyConfigErrors.size() == 5);

// System firmware errors, by data 2.
constexpr auto kFirmwareErrors = std::to_array<const char*>({
    "Unspecified",
    "No system memory installed",
    "No usable system memory",
    "Unrecoverable hard-disk/ATAPI/IDE device failure",
    "Unrecoverable system-board failure",
    "Unrecoverable diskette subsystem failure",
    "Unrecoverable hard-disk controller failure",
    "Unrecoverable PS/2 or USB keyboard failure",
    "Removable boot media not found",
    "Unrecoverable video controller failure",
    "No video device detected",
    "BIOS corruption detected",
    "CPU voltage mismatch",
    "CPU speed matching failure",
});
static_assert(kFirmwareErrors.size() == 14);

// The step a system firmware hang or progress event names, by data 2.
constexpr auto kFirmwareSteps = std::to_array<const char*>({
    "Unspecified",
    "Memory initialization",
    "Hard-disk initialization",
    "Secondary processor(s) initialization",
    "User authentication",
    "User-initiated system setup",
    "USB resource configuration",
    "PCI resource configuration",
    "Option ROM initialization",
    "Video initialization",
    "Cache initialization",
    "SM Bus initialization",
    "Keyboard controller initialization",
    "Embedded controller/management controller initialization",
    "Docking station attachment",
    "Enabling docking station",
    "Docking station ejection",
    "Disabling docking station",
    "Calling operating system wake-up vector",
    "Starting operating system boot process",
    "Baseboard or motherboard initialization",
    "reserved",
    "Floppy initialization",
    "Keyboard test",
    "Pointing device test",
    "Primary processor initialization",
});
static_assert(kFirmwareSteps.size() == 26);

// What changed, for a version change event, by data 2.
constexpr auto kVersionChangeKinds = std::to_array<std::string_view>({
    "unspecified",
    "management controller device ID change",
    "management controller firmware revision change",
    "management controller device revision change",
    "management controller manufacturer ID change",
    "management controller IPMI version change",
    "management controller auxiliary firmware ID change",
    "management controller firmware boot block change",
    "other management controller firmware change",
    "BIOS/EFI change",
    "SMBIOS change",
    "OS change",
    "OS loader change",
    "service or diagnostic partition change",
    "management software agent change",
    "management software application change",
    "management software middleware change",
    "programmable hardware change",
    "board/FRU module change",
    "board/FRU component change",
    "board/FRU replaced with equivalent version",
    "board/FRU replaced with newer version",
    "board/FRU replaced with older version",
    "board/FRU hardware configuration change",
});
static_assert(kVersionChangeKinds.size() == 24);

constexpr std::size_t kJoinedWidth = 96;

// "<prefix><kind>" for every kind. Too long a text fails the build.
template <std::size_t N>
constexpr auto prefixed(std::string_view prefix,
                        const std::array<std::string_view, N>& kinds)
{
    std::array<std::array<char, kJoinedWidth>, N> texts{};
    for (std::size_t i = 0; i < N; ++i)
    {
        std::size_t at = 0;
        for (char c : prefix)
        {
            texts[i].at(at++) = c;
        }
        for (char c : kinds[i])
        {
            texts[i].at(at++) = c;
        }
        texts[i].at(at) = '\0';
    }
    return texts;
}

constexpr auto kVersionChangesDetected =
    prefixed("Firmware or software change detected, ", kVersionChangeKinds);
constexpr auto kVersionChangesDone =
    prefixed("Firmware or software change successful, ", kVersionChangeKinds);

constexpr const char* text_of(const char* text)
{
    return text;
}

template <std::size_t W>
constexpr const char* text_of(const std::array<char, W>& text)
{
    return text.data();
}

// Entries of one (code, offset) whose text i needs data 2 = i.
template <typename Text, std::size_t N>
constexpr Entries<N> by_data(uint8_t code, uint8_t offset,
                             const std::array<Text, N>& texts)
{
    Entries<N> entries{};
    for (std::size_t i = 0; i < N; ++i)
    {
        entries[i] = {code, offset, static_cast<uint8_t>(i), text_of(texts[i])};
    }
    return entries;
}

template <std::size_t... N>
constexpr Entries<(N + ...)> joined(const Entries<N>&... parts)
{
    Entries<(N + ...)> all{};
    std::size_t at = 0;
    for (auto part : {std::span<const kv_event_desc>(parts)...})
    {
        for (const auto& entry : part)
        {
            all[at++] = entry;
        }
    }
    return all;
}

} // namespace

namespace kv::detail
{

constexpr std::array<kv_event_desc, kSensorEventCount + 1> sensor_events =
    joined(
        std::to_array<kv_event_desc>({
            // 0x05 physical security
            {0x05, 0x00, kAnyData, "General Chassis Intrusion"},
            {0x05, 0x01, kAnyData, "Drive Bay intrusion"},
            {0x05, 0x02, kAnyData, "I/O Card area intrusion"},
            {0x05, 0x03, kAnyData, "Processor area intrusion"},
            {0x05, 0x04, kAnyData,
             "LAN Leash Lost (system is unplugged from LAN)"},
            {0x05, 0x05, kAnyData, "Unauthorized dock"},
            {0x05, 0x06, kAnyData, "FAN area intrusion"},
            // 0x06 platform security violation attempt
            {0x06, 0x00, kAnyData,
             "Secure Mode (Front Panel Lockout) Violation attempt"},
            {0x06, 0x01, kAnyData,
             "Pre-boot Password Violation - user password"},
            {0x06, 0x02, kAnyData,
             "Pre-boot Password Violation attempt - setup password"},
            {0x06, 0x03, kAnyData,
             "Pre-boot Password Violation - network boot password"},
            {0x06, 0x04, kAnyData, "Other pre-boot Password Violation"},
            {0x06, 0x05, kAnyData, "Out-of-band Access Password Violation"},
            // 0x07 processor
            {0x07, 0x00, kAnyData, "IERR"},
            {0x07, 0x01, kAnyData, "Thermal Trip"},
            {0x07, 0x02, kAnyData, "FRB1/BIST failure"},
            {0x07, 0x03, kAnyData, "FRB2/Hang in POST failure"},
            {0x07, 0x04, kAnyData,
             "FRB3/Processor Startup/Initialization failure"},
            {0x07, 0x05, kAnyData, "Configuration Error"},
            {0x07, 0x06, kAnyData, "SM BIOS Uncorrectable CPU-complex Error"},
            {0x07, 0x07, kAnyData, "Processor Presence detected"},
            {0x07, 0x08, kAnyData, "Processor disabled"},
            {0x07, 0x09, kAnyData, "Terminator Presence Detected"},
            {0x07, 0x0A, kAnyData, "Processor Automatically Throttled"},
            {0x07, 0x0B, kAnyData, "Machine Check Exception (Uncorrectable)"},
            {0x07, 0x0C, kAnyData, "Correctable Machine Check Error"},
            // 0x08 power supply
            {0x08, 0x00, kAnyData, "Presence detected"},
            {0x08, 0x01, kAnyData, "Power Supply Failure detected"},
            {0x08, 0x02, kAnyData, "Predictive Failure"},
            {0x08, 0x03, kAnyData, "Power Supply input lost (AC/DC)"},
            {0x08, 0x04, kAnyData, "Power Supply input lost or out-of-range"},
            {0x08, 0x05, kAnyData,
             "Power Supply input out-of-range, but present"},
        }),
        by_data(0x08, 0x06, kSupplyConfigErrors),
        std::to_array<kv_event_desc>({
            {0x08, 0x06, kAnyData, "Config Error"},
            // Kept in its place although "Config Error" always answers
            // first.
            {0x08, 0x06, kAnyData, "Power Supply Inactive"},
            // 0x09 power unit
            {0x09, 0x00, kAnyData, "Power Off / Power Down"},
            {0x09, 0x01, kAnyData, "Power Cycle"},
            {0x09, 0x02, kAnyData, "240VA Power Down"},
            {0x09, 0x03, kAnyData, "Interlock Power Down"},
            {0x09, 0x04, kAnyData, "AC lost"},
            {0x09, 0x05, kAnyData, "Soft Power Control Failure"},
            {0x09, 0x06, kAnyData, "Power Unit Failure detected"},
            {0x09, 0x07, kAnyData, "Predictive Failure"},
            // 0x0C memory
            {0x0C, 0x00, kAnyData, "Correctable ECC"},
            {0x0C, 0x01, kAnyData, "Uncorrectable ECC"},
            {0x0C, 0x02, kAnyData, "Parity"},
            {0x0C, 0x03, kAnyData, "Memory Scrub Failed"},
            {0x0C, 0x04, kAnyData, "Memory Device Disabled"},
            {0x0C, 0x05, kAnyData, "Correctable ECC logging limit reached"},
            {0x0C, 0x06, kAnyData, "Presence detected"},
            {0x0C, 0x07, kAnyData, "Configuration error"},
            {0x0C, 0x08, kAnyData, "Spare"},
            {0x0C, 0x09, kAnyData, "Memory Automatically Throttled"},
            {0x0C, 0x0A, kAnyData, "Critical Overtemperature"},
            // 0x0D drive slot
            {0x0D, 0x00, kAnyData, "Drive Presence"},
            {0x0D, 0x01, kAnyData, "Drive Fault"},
            {0x0D, 0x02, kAnyData, "Predictive Failure"},
            {0x0D, 0x03, kAnyData, "Hot Spare"},
            {0x0D, 0x04, kAnyData,
             "Consistency Check / Parity Check in progress"},
            {0x0D, 0x05, kAnyData, "In Critical Array"},
            {0x0D, 0x06, kAnyData, "In Failed Array"},
            {0x0D, 0x07, kAnyData, "Rebuild/Remap in progress"},
            {0x0D, 0x08, kAnyData, "Rebuild/Remap Aborted"},
        }),
        // 0x0F system firmware progress
        by_data(0x0F, 0x00, kFirmwareErrors),
        Entries<1>{{{0x0F, 0x00, kAnyData, "Unknown Error"}}},
        by_data(0x0F, 0x01, kFirmwareSteps),
        Entries<1>{{{0x0F, 0x01, kAnyData, "Unknown Hang"}}},
        by_data(0x0F, 0x02, kFirmwareSteps),
        std::to_array<kv_event_desc>({
            {0x0F, 0x02, kAnyData, "Unknown Progress"},
            // 0x10 event logging disabled
            {0x10, 0x00, kAnyData, "Correctable Memory Error Logging Disabled"},
            {0x10, 0x01, kAnyData, "Event Type Logging Disabled"},
            {0x10, 0x02, kAnyData, "Log Area Reset/Cleared"},
            {0x10, 0x03, kAnyData, "All Event Logging Disabled"},
            {0x10, 0x04, kAnyData, "SEL Full"},
            {0x10, 0x05, kAnyData, "SEL Almost Full"},
            {0x10, 0x06, kAnyData,
             "Correctable Machine Check Error Logging Disabled"},
            // 0x11 watchdog 1
            {0x11, 0x00, kAnyData, "BIOS Watchdog Reset"},
            {0x11, 0x01, kAnyData, "OS Watchdog Reset"},
            {0x11, 0x02, kAnyData, "OS Watchdog Shut Down"},
            {0x11, 0x03, kAnyData, "OS Watchdog Power Down"},
            {0x11, 0x04, kAnyData, "OS Watchdog Power Cycle"},
            {0x11, 0x05, kAnyData, "OS Watchdog NMI / Diagnostic Interrupt"},
            {0x11, 0x06, kAnyData, "OS Watchdog Expired, status only"},
            {0x11, 0x07, kAnyData,
             "OS Watchdog pre-timeout Interrupt, non-NMI"},
            // 0x12 system event
            {0x12, 0x00, kAnyData, "System Reconfigured"},
            {0x12, 0x01, kAnyData, "OEM System Boot Event"},
            {0x12, 0x02, kAnyData, "Undetermined system hardware failure"},
            {0x12, 0x03, kAnyData, "Entry added to Auxiliary Log"},
            {0x12, 0x04, kAnyData, "PEF Action"},
            {0x12, 0x05, kAnyData, "Timestamp Clock Synch"},
            // 0x13 critical interrupt
            {0x13, 0x00, kAnyData, "Front Panel NMI / Diagnostic Interrupt"},
            {0x13, 0x01, kAnyData, "Bus Timeout"},
            {0x13, 0x02, kAnyData, "I/O channel check NMI"},
            {0x13, 0x03, kAnyData, "Software NMI"},
            {0x13, 0x04, kAnyData, "PCI PERR"},
            {0x13, 0x05, kAnyData, "PCI SERR"},
            {0x13, 0x06, kAnyData, "EISA Fail Safe Timeout"},
            {0x13, 0x07, kAnyData, "Bus Correctable Error"},
            {0x13, 0x08, kAnyData, "Bus Uncorrectable Error"},
            {0x13, 0x09, kAnyData, "Fatal NMI"},
            {0x13, 0x0A, kAnyData, "Bus Fatal Error"},
            {0x13, 0x0B, kAnyData, "Bus Degraded"},
            // 0x14 button / switch
            {0x14, 0x00, kAnyData, "Power Button pressed"},
            {0x14, 0x01, kAnyData, "Sleep Button pressed"},
            {0x14, 0x02, kAnyData, "Reset Button pressed"},
            {0x14, 0x03, kAnyData, "FRU latch open"},
            {0x14, 0x04, kAnyData, "FRU service request button"},
            // 0x19 chip set
            {0x19, 0x00, kAnyData, "Soft Power Control Failure"},
            {0x19, 0x01, kAnyData, "Thermal Trip"},
            // 0x1B cable / interconnect
            {0x1B, 0x00, kAnyData, "Cable/Interconnect is connected"},
            {0x1B, 0x01, kAnyData,
             "Configuration Error - Incorrect cable connected / Incorrect "
             "interconnection"},
            // 0x1D system boot / restart initiated
            {0x1D, 0x00, kAnyData, "Initiated by power up"},
            {0x1D, 0x01, kAnyData, "Initiated by hard reset"},
            {0x1D, 0x02, kAnyData, "Initiated by warm reset"},
            {0x1D, 0x03, kAnyData, "User requested PXE boot"},
            {0x1D, 0x04, kAnyData, "Automatic boot to diagnostic"},
            {0x1D, 0x05, kAnyData,
             "OS / run-time software initiated hard reset"},
            {0x1D, 0x06, kAnyData,
             "OS / run-time software initiated warm reset"},
            {0x1D, 0x07, kAnyData, "System Restart"},
            // 0x1E boot error
            {0x1E, 0x00, kAnyData, "No bootable media"},
            {0x1E, 0x01, kAnyData, "Non-bootable diskette left in drive"},
            {0x1E, 0x02, kAnyData, "PXE Server not found"},
            {0x1E, 0x03, kAnyData, "Invalid boot sector"},
            {0x1E, 0x04, kAnyData,
             "Timeout waiting for user selection of boot source"},
            // 0x1F base OS boot / installation status
            {0x1F, 0x00, kAnyData, "A: boot completed"},
            {0x1F, 0x01, kAnyData, "C: boot completed"},
            {0x1F, 0x02, kAnyData, "PXE boot completed"},
            {0x1F, 0x03, kAnyData, "Diagnostic boot completed"},
            {0x1F, 0x04, kAnyData, "CD-ROM boot completed"},
            {0x1F, 0x05, kAnyData, "ROM boot completed"},
            {0x1F, 0x06, kAnyData,
             "boot completed - boot device not specified"},
            {0x1F, 0x07, kAnyData, "Base OS/Hypervisor Installation started"},
            {0x1F, 0x08, kAnyData, "Base OS/Hypervisor Installation completed"},
            {0x1F, 0x09, kAnyData, "Base OS/Hypervisor Installation aborted"},
            {0x1F, 0x0A, kAnyData, "Base OS/Hypervisor Installation failed"},
            // 0x20 OS stop / shutdown
            {0x20, 0x00, kAnyData,
             "Critical stop during OS load / initialization"},
            {0x20, 0x01, kAnyData, "Run-time Critical Stop"},
            {0x20, 0x02, kAnyData, "OS Graceful Stop"},
            {0x20, 0x03, kAnyData, "OS Graceful Shutdown"},
            {0x20, 0x04, kAnyData, "Soft Shutdown initiated by PEF"},
            {0x20, 0x05, kAnyData, "Agent Not Responding"},
            // 0x21 slot / connector
            {0x21, 0x00, kAnyData, "Fault Status asserted"},
            {0x21, 0x01, kAnyData, "Identify Status asserted"},
            {0x21, 0x02, kAnyData,
             "Slot / Connector Device installed/attached"},
            {0x21, 0x03, kAnyData,
             "Slot / Connector Ready for Device Installation"},
            {0x21, 0x04, kAnyData, "Slot / Connector Ready for Device Removal"},
            {0x21, 0x05, kAnyData, "Slot Power is Off"},
            {0x21, 0x06, kAnyData, "Slot / Connector Device Removal Request"},
            {0x21, 0x07, kAnyData, "Interlock asserted"},
            {0x21, 0x08, kAnyData, "Slot is Disabled"},
            {0x21, 0x09, kAnyData, "Slot holds spare device"},
            // 0x22 system ACPI power state. The "unknown state" offset has
            // no text here: a bare "Unknown" would be found in every line
            // of a vendor sensor when posts look up their problem.
            {0x22, 0x00, kAnyData, "S0/G0 working"},
            {0x22, 0x01, kAnyData,
             "S1 sleeping with system h/w & processor context maintained"},
            {0x22, 0x02, kAnyData, "S2 sleeping, processor context lost"},
            {0x22, 0x03, kAnyData,
             "S3 sleeping, processor & h/w context lost, memory retained"},
            {0x22, 0x04, kAnyData, "S4 non-volatile sleep / suspend-to disk"},
            {0x22, 0x05, kAnyData, "S5/G2 soft-off"},
            {0x22, 0x06, kAnyData,
             "S4/S5 soft-off, particular S4/S5 state cannot be determined"},
            {0x22, 0x07, kAnyData, "G3/Mechanical Off"},
            {0x22, 0x08, kAnyData, "Sleeping in an S1, S2, or S3 states"},
            {0x22, 0x09, kAnyData, "G1 sleeping"},
            {0x22, 0x0A, kAnyData, "S5 entered by override"},
            {0x22, 0x0B, kAnyData, "Legacy ON state"},
            {0x22, 0x0C, kAnyData, "Legacy OFF state"},
            // 0x23 watchdog 2
            {0x23, 0x00, kAnyData, "Timer expired, status only"},
            {0x23, 0x01, kAnyData, "Hard Reset"},
            {0x23, 0x02, kAnyData, "Power Down"},
            {0x23, 0x03, kAnyData, "Power Cycle"},
            {0x23, 0x08, kAnyData, "Timer interrupt"},
            // 0x24 platform alert
            {0x24, 0x00, kAnyData, "Platform generated page"},
            {0x24, 0x01, kAnyData, "Platform generated LAN alert"},
            {0x24, 0x02, kAnyData, "Platform Event Trap generated"},
            {0x24, 0x03, kAnyData, "Platform generated SNMP trap"},
            // 0x25 entity presence
            {0x25, 0x00, kAnyData, "Entity Present"},
            {0x25, 0x01, kAnyData, "Entity Absent"},
            {0x25, 0x02, kAnyData, "Entity Disabled"},
            // 0x27 LAN
            {0x27, 0x00, kAnyData, "LAN Heartbeat Lost"},
            {0x27, 0x01, kAnyData, "LAN Heartbeat"},
            // 0x28 management subsystem health
            {0x28, 0x00, kAnyData, "Sensor access degraded or unavailable"},
            {0x28, 0x01, kAnyData, "Controller access degraded or unavailable"},
            {0x28, 0x02, kAnyData, "Management controller off-line"},
            {0x28, 0x03, kAnyData, "Management controller unavailable"},
            {0x28, 0x04, kAnyData, "Sensor failure"},
            {0x28, 0x05, kAnyData, "FRU failure"},
            // 0x29 battery
            {0x29, 0x00, kAnyData, "Battery low"},
            {0x29, 0x01, kAnyData, "Battery failed"},
            {0x29, 0x02, kAnyData, "Battery presence detected"},
            // 0x2A session audit
            {0x2A, 0x00, kAnyData, "Session Activated"},
            {0x2A, 0x01, kAnyData, "Session Deactivated"},
            {0x2A, 0x02, kAnyData, "Invalid Username or Password"},
            {0x2A, 0x03, kAnyData, "Invalid password disable"},
            // 0x2B version change
            {0x2B, 0x00, kAnyData, "Hardware change detected"},
        }),
        by_data(0x2B, 0x01, kVersionChangesDetected),
        std::to_array<kv_event_desc>({
            {0x2B, 0x02, kAnyData, "Hardware incompatibility detected"},
            {0x2B, 0x03, kAnyData,
             "Firmware or software incompatibility detected"},
            {0x2B, 0x04, kAnyData, "Invalid or unsupported hardware version"},
            {0x2B, 0x05, kAnyData,
             "Invalid or unsupported firmware or software version"},
            {0x2B, 0x06, kAnyData, "Hardware change successful"},
        }),
        by_data(0x2B, 0x07, kVersionChangesDone),
        std::to_array<kv_event_desc>({
            // 0x2C FRU state
            {0x2C, 0x00, kAnyData, "FRU Not Installed"},
            {0x2C, 0x01, kAnyData, "FRU Inactive"},
            {0x2C, 0x02, kAnyData, "FRU Activation Requested"},
            {0x2C, 0x03, kAnyData, "FRU Activation In Progress"},
            {0x2C, 0x04, kAnyData, "FRU Active"},
            {0x2C, 0x05, kAnyData, "FRU Deactivation Requested"},
            {0x2C, 0x06, kAnyData, "FRU Deactivation In Progress"},
            {0x2C, 0x07, kAnyData, "FRU Communication Lost"},
            // 0xF0 hot-swap state
            {0xF0, 0x00, kAnyData, "Transition to M0"},
            {0xF0, 0x01, kAnyData, "Transition to M1"},
            {0xF0, 0x02, kAnyData, "Transition to M2"},
            {0xF0, 0x03, kAnyData, "Transition to M3"},
            {0xF0, 0x04, kAnyData, "Transition to M4"},
            {0xF0, 0x05, kAnyData, "Transition to M5"},
            {0xF0, 0x06, kAnyData, "Transition to M6"},
            {0xF0, 0x07, kAnyData, "Transition to M7"},
            // 0xF1 IPMB links
            {0xF1, 0x00, kAnyData, "IPMB-A disabled, IPMB-B disabled"},
            {0xF1, 0x01, kAnyData, "IPMB-A enabled, IPMB-B disabled"},
            {0xF1, 0x02, kAnyData, "IPMB-A disabled, IPMB-B enabled"},
            {0xF1, 0x03, kAnyData, "IPMB-A enabled, IPMB-B enabled"},
            // 0xF2 module handle
            {0xF2, 0x00, kAnyData, "Module Handle Closed"},
            {0xF2, 0x01, kAnyData, "Module Handle Opened"},
            {0xF2, 0x02, kAnyData, "Quiesced"},
            {0x00, 0x00, 0x00, nullptr},
        }));
static_assert(walkable(sensor_events));

} // namespace kv::detail

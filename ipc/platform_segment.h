// SPDX-License-Identifier: Apache-2.0
// Map of the platform segment (System V key 0x1314500, 12 MiB) that the
// BMC's daemons share. Every position that libkv reads or writes is named
// here and nowhere else. The regions are packed and many start at odd
// positions: access them with memcpy or byte by byte, never through a cast
// pointer (an unaligned load faults on the BMC's 32-bit ARM core).
#pragma once

#include <cstddef>
#include <cstdint>

namespace kv::segment
{

// ---- The System V segments -------------------------------------------------

inline constexpr int kPlatformKey = 0x1314500;
inline constexpr size_t kPlatformSize = 0xC00000;
inline constexpr int kSelKey = 0x1234500;
inline constexpr size_t kSelSize = 0xC00000;
inline constexpr int kRaidKey = 0x1314501;
inline constexpr size_t kRaidSize = 0x300000;
inline constexpr int kAiCardKey = 0x1314502;
inline constexpr size_t kAiCardSize = 4096;

// ---- Sensor descriptions: one 454-byte record per sensor number ------------

inline constexpr size_t kSensorRecords = 33;
inline constexpr size_t kSensorRecordSize = 454;
inline constexpr size_t kSensorCount = 256;

constexpr size_t sensor_record(unsigned sensor)
{
    return kSensorRecords + kSensorRecordSize * sensor;
}

// ---- FRU device table: 31-byte entries, descriptor 3 bytes in --------------

inline constexpr size_t kFruDeviceTable = 115800;
inline constexpr size_t kFruDeviceEntrySize = 31;
inline constexpr size_t kFruDescriptorInEntry = 3;

constexpr size_t fru_descriptor(unsigned id)
{
    return kFruDeviceTable + kFruDeviceEntrySize * id + kFruDescriptorInEntry;
}

// Bytes of a FRU device descriptor.
namespace fru_device
{
inline constexpr size_t kState = 1;       // 1 refuses every access
inline constexpr size_t kMethod = 2;      // 2 raw I2C, 3 sysfs eeprom file
inline constexpr size_t kSize = 3;        // uint16 little-endian
inline constexpr size_t kBehindMux = 5;   // non-zero behind a multiplexer
inline constexpr size_t kMuxChannel = 6;  // 0..7
inline constexpr size_t kMuxAddress = 7;  // 7-bit
inline constexpr size_t kOffsetWidth = 8; // register address bytes
inline constexpr size_t kBus = 10;
inline constexpr size_t kAddress = 11; // 7-bit
inline constexpr size_t kBase = 13;    // uint16 little-endian
} // namespace fru_device

// ---- SEL hand-off slots: 30 slots of a state byte and 80 payload bytes -----

inline constexpr size_t kSelSlots = 116547;
inline constexpr size_t kSelSlotSize = 81;
inline constexpr size_t kSelSlotCount = 30;
inline constexpr size_t kSelSlotPayloadSize = 80;
inline constexpr uint8_t kSelSlotFilled = 1;

constexpr size_t sel_slot_state(unsigned slot)
{
    return kSelSlots + kSelSlotSize * slot;
}

constexpr size_t sel_slot_payload(unsigned slot)
{
    return sel_slot_state(slot) + 1;
}

// ---- Redfish event subscriptions: four 837-byte records --------------------

inline constexpr size_t kSubscriptions = 128891;
inline constexpr size_t kSubscriptionSize = 837;
inline constexpr size_t kSubscriptionCount = 4;

constexpr size_t subscription(unsigned slot)
{
    return kSubscriptions + kSubscriptionSize * slot;
}

// ---- Summary of the last decoded event (EventInfo), after the table --------

inline constexpr size_t kEventSummary = 132239;

namespace event_summary
{
inline constexpr size_t kElementUid = 0;     // 64 bytes
inline constexpr size_t kElementName = 64;   // 64 bytes
inline constexpr size_t kSensorNumber = 128; // uint8
inline constexpr size_t kSensorName = 129;   // 32 bytes
inline constexpr size_t kSensorType = 161;   // 32 bytes
inline constexpr size_t kEventId = 193;      // uint32 little-endian
inline constexpr size_t kTimestamp = 197;    // 32 bytes
inline constexpr size_t kSeverity = 229;     // 16 bytes
inline constexpr size_t kAlarmStatus = 245;  // uint32 little-endian
} // namespace event_summary

// ---- SNMP trap request slots: 16 slots of 213 bytes ------------------------

inline constexpr size_t kTrapSlots = 212504;
inline constexpr size_t kTrapSlotSize = 213;
inline constexpr size_t kTrapSlotCount = 16;

constexpr size_t trap_slot(unsigned slot)
{
    return kTrapSlots + kTrapSlotSize * slot;
}

namespace trap_slot_field
{
inline constexpr size_t kState = 0; // uint32: 0 free, 1 writing, 2 ready
inline constexpr size_t kCode = 4;  // uint32
inline constexpr size_t kValue = 8; // uint32
inline constexpr size_t kKind = 12; // uint8
inline constexpr size_t kText = 13; // 200 bytes
inline constexpr size_t kTextSize = 200;
} // namespace trap_slot_field

// ---- Multiplexer channel locks: 127 bytes per bus, one per mux address ----

inline constexpr size_t kChannelLocks = 217580;
inline constexpr size_t kChannelLocksPerBus = 127;

constexpr size_t channel_lock(unsigned bus, unsigned mux_address)
{
    return kChannelLocks + kChannelLocksPerBus * bus + mux_address;
}

// ---- Mail alert settings record (856 bytes, at an odd position) ------------

inline constexpr size_t kMailRecord = 219485;
inline constexpr size_t kMailRecordSize = 856;

} // namespace kv::segment

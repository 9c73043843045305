// SPDX-License-Identifier: Apache-2.0
// The tables behind SEL record decoding: unit names, sensor-type names and
// the three event description tables, shared by the decoder and the event
// forwarders.
#pragma once

#include <libkv/events.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kv::detail
{

inline constexpr std::size_t kUnitCount = 93;
inline constexpr std::size_t kSensorTypeCount = 45;
inline constexpr std::size_t kGenericEventCount = 57;
inline constexpr std::size_t kSensorEventCount = 335;
inline constexpr std::size_t kVendorEventCount = 45;

// `data` of an entry that matches any event data 2.
inline constexpr uint8_t kAnyData = 0xFF;

// Name of unit code `code`, or nullptr past the last code.
const char* unit_name(uint8_t code);

// Name of sensor type `code` (0x00-0x2C), or nullptr.
const char* sensor_type_name(uint8_t code);

// The event description tables, numbered as the problem codes of event
// posts tag them.
enum class EventTable : uint8_t
{
    none = 0,
    generic = 1,         // event/reading types 0x01-0x0C
    sensor_specific = 2, // sensor types 0x05-0x2C and 0xF0-0xF2
    vendor = 3,          // vendor sensor types 0xC1-0xCF
};

// Each table, its terminator (the one entry with no text) included.
extern const std::array<kv_event_desc, kGenericEventCount + 1> generic_events;
extern const std::array<kv_event_desc, kSensorEventCount + 1> sensor_events;
extern const std::array<kv_event_desc, kVendorEventCount + 1> vendor_events;

// The entries of `table` in table order, without the terminator; empty for
// EventTable::none.
std::span<const kv_event_desc> event_entries(EventTable table);

// Entry `n` (from 0) of `table`, or nullptr past its last entry.
const kv_event_desc* event_entry(EventTable table, std::size_t n);

// The entry whose text describes the 16-byte SEL record `rec`, or null: the
// search of ipmi_get_event_desc, without the copy it hands its caller.
const kv_event_desc* find_event_desc(const uint8_t* rec);

// The table that holds `entry`; none for a terminator or a foreign pointer.
EventTable event_table_of(const kv_event_desc* entry);

// The walks over a table rely on this shape: every entry but the last has
// a text and an offset of 0-15, codes never decrease (so the entries of
// one code lie together), and the last entry has no text.
template <std::size_t N>
constexpr bool walkable(const std::array<kv_event_desc, N>& table)
{
    for (std::size_t i = 0; i + 1 < N; ++i)
    {
        if (table[i].text == nullptr || table[i].offset > 15 ||
            (i > 0 && table[i].code < table[i - 1].code))
        {
            return false;
        }
    }
    return N > 0 && table[N - 1].text == nullptr;
}

} // namespace kv::detail

// SPDX-License-Identifier: Apache-2.0
// Event descriptions: walking the description tables and picking the text
// of a SEL record.
#include "events/sel_tables.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace
{

using kv::detail::EventTable;

constexpr uint8_t kSensorSpecific = 0x6F;

// Room the SEL line builders count on after the text.
constexpr std::size_t kDescriptionSlack = 176;

// A sensor-specific event of a vendor sensor type is described by the
// vendor table; every other event/reading type by the generic table.
EventTable table_for(uint8_t sensor_type, uint8_t event_type)
{
    if (event_type != kSensorSpecific)
    {
        return EventTable::generic;
    }
    return sensor_type >= 0xC0 && sensor_type <= 0xEF
               ? EventTable::vendor
               : EventTable::sensor_specific;
}

bool is_oem_event_type(uint8_t event_type)
{
    return event_type >= 0x70 && event_type <= 0x7E;
}

bool matches(const kv_event_desc& entry, const uint8_t* rec)
{
    const uint8_t data1 = rec[13];
    const bool data2_specific = (data1 & 0xC0) != 0;
    return entry.offset == (data1 & 0x0F) &&
           (entry.data == kv::detail::kAnyData ||
            (data2_specific && entry.data == rec[14]));
}

} // namespace

extern "C"
{
// The tables keep the entries of one code together and in rising code
// order, so the first entry of a code is found by bisection and the walk
// ends where the code changes.
const kv_event_desc* ipmi_get_first_event_sensor_type(uint8_t sensorType,
                                                      uint8_t eventType)
{
    const uint8_t code = eventType == kSensorSpecific ? sensorType : eventType;
    const auto entries =
        kv::detail::event_entries(table_for(sensorType, eventType));
    const auto first = std::lower_bound(
        entries.begin(), entries.end(), code,
        [](const kv_event_desc& entry, uint8_t c) { return entry.code < c; });
    return first != entries.end() && first->code == code ? &*first : nullptr;
}

const kv_event_desc* ipmi_get_next_event_sensor_type(const kv_event_desc* entry)
{
    const auto table = kv::detail::event_table_of(entry);
    if (table == EventTable::none)
    {
        return nullptr;
    }
    // The table's terminator has no text and ends every walk.
    const kv_event_desc* next = entry + 1;
    return next->text != nullptr && next->code == entry->code ? next : nullptr;
}

void ipmi_get_event_desc(const uint8_t* rec, char** desc)
{
    if (desc == nullptr)
    {
        return;
    }
    *desc = nullptr;
    const kv_event_desc* entry = kv::detail::find_event_desc(rec);
    if (entry == nullptr)
    {
        return;
    }
    const std::size_t length = std::strlen(entry->text);
    auto* text = static_cast<char*>(std::calloc(length + kDescriptionSlack, 1));
    if (text != nullptr)
    {
        std::memcpy(text, entry->text, length);
    }
    *desc = text;
}

} // extern "C"

const kv_event_desc* kv::detail::find_event_desc(const uint8_t* rec)
{
    if (rec == nullptr)
    {
        return nullptr;
    }
    const uint8_t event_type = rec[12] & 0x7F;
    if (is_oem_event_type(event_type))
    {
        return nullptr;
    }
    for (const auto* entry =
             ipmi_get_first_event_sensor_type(rec[10], event_type);
         entry != nullptr; entry = ipmi_get_next_event_sensor_type(entry))
    {
        if (matches(*entry, rec))
        {
            return entry;
        }
    }
    return nullptr;
}

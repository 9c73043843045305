// SPDX-License-Identifier: Apache-2.0
// The event description tables by tag and by position.
#include "events/sel_tables.h"

#include <functional>

namespace kv::detail
{

std::span<const kv_event_desc> event_entries(EventTable table)
{
    switch (table)
    {
        case EventTable::generic:
            return {generic_events.data(), kGenericEventCount};
        case EventTable::sensor_specific:
            return {sensor_events.data(), kSensorEventCount};
        case EventTable::vendor:
            return {vendor_events.data(), kVendorEventCount};
        case EventTable::none:
            break;
    }
    return {};
}

const kv_event_desc* event_entry(EventTable table, std::size_t n)
{
    const auto entries = event_entries(table);
    return n < entries.size() ? &entries[n] : nullptr;
}

EventTable event_table_of(const kv_event_desc* entry)
{
    for (auto table :
         {EventTable::generic, EventTable::sensor_specific, EventTable::vendor})
    {
        const auto entries = event_entries(table);
        // std::less orders pointers into different objects too.
        std::less<const kv_event_desc*> before;
        if (!before(entry, entries.data()) &&
            before(entry, entries.data() + entries.size()))
        {
            return table;
        }
    }
    return EventTable::none;
}

} // namespace kv::detail

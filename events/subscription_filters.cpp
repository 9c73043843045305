// SPDX-License-Identifier: Apache-2.0
// Which Redfish subscribers want an event, and the names the event post
// gives the subscription's event types and the event's problem.
#include "events/event_records.h"
#include "events/sel_tables.h"

#include <array>
#include <cstring>

namespace
{

using kv::detail::EventTable;

constexpr std::array<const char*, 5> kEventTypeNames = {
    "StatusChange",    // bit 0
    "ResourceUpdated", // bit 1
    "ResourceAdded",   // bit 2
    "ResourceRemoved", // bit 3
    "Alert",           // bit 4
};
constexpr uint8_t kAlertBit = 0x10;
constexpr uint8_t kResourceBits = 0x0F;

constexpr uint8_t kThresholdEvent = 0x01;
constexpr uint8_t kLastGenericEvent = 0x0C;
constexpr uint8_t kSensorSpecificEvent = 0x6F;

constexpr uint32_t kUnknownProblem = 0xFFFFFFFF;

// Searched in this order: the generic texts come first, so a message that
// holds a short generic text ("Monitor", "Device Present") is named by it
// even when a sensor-specific text matches too.
constexpr std::array<EventTable, 3> kProblemTables = {
    EventTable::generic, EventTable::sensor_specific, EventTable::vendor};

// True when one of the excluded entries of `table` is named in `message`.
// Position n of the list names entry n-1; 0 is an empty position, and a
// position past the table's end names nothing.
bool names_excluded_problem(const uint8_t (&excluded)[128], EventTable table,
                            const char* message)
{
    for (const uint8_t n : excluded)
    {
        const kv_event_desc* entry =
            n != 0 ? kv::detail::event_entry(table, n - 1u) : nullptr;
        if (entry != nullptr && std::strstr(message, entry->text) != nullptr)
        {
            return true;
        }
    }
    return false;
}

} // namespace

extern "C" int check_event_subscription_type(uint8_t mask, const uint8_t* rec)
{
    if (rec == nullptr)
    {
        return -1;
    }
    const uint8_t event_type = rec[offsetof(SelRecord, event_dir_type)] & 0x7F;
    const bool alert =
        event_type == kSensorSpecificEvent ||
        (event_type >= kThresholdEvent && event_type <= kLastGenericEvent);
    const uint8_t wanted = alert ? kAlertBit : kResourceBits;
    return (mask & wanted) != 0 ? 0 : -1;
}

extern "C" int check_event_subscription_active(EventSubscription sub,
                                               const uint8_t* rec,
                                               const char* message)
{
    if (rec == nullptr)
    {
        return 0;
    }
    if (sub.every_sensor != 1 &&
        sub.sensors[rec[offsetof(SelRecord, sensor_number)]] == 0)
    {
        return 0;
    }
    if (check_event_subscription_type(sub.event_types, rec) < 0)
    {
        return 0;
    }
    if (sub.every_problem == 1)
    {
        return 1;
    }
    // The lists exclude: a problem named in them is never sent.
    message = message != nullptr ? message : "";
    if (names_excluded_problem(sub.generic_excluded, EventTable::generic,
                               message) ||
        names_excluded_problem(sub.specific_excluded,
                               EventTable::sensor_specific, message))
    {
        return 0;
    }
    return 1;
}

extern "C" void eventtypeToStr(uint8_t mask, char* buf)
{
    bool first = true;
    for (std::size_t bit = 0; bit < kEventTypeNames.size(); ++bit)
    {
        if ((mask & (1u << bit)) == 0)
        {
            continue;
        }
        if (!first)
        {
            std::strcat(buf, ",");
        }
        std::strcat(buf, kEventTypeNames[bit]);
        first = false;
    }
}

extern "C" void getspecificProblem(const char* message, uint32_t* code,
                                   char* text)
{
    message = message != nullptr ? message : "";
    for (const EventTable table : kProblemTables)
    {
        for (const kv_event_desc& entry : kv::detail::event_entries(table))
        {
            if (std::strstr(message, entry.text) != nullptr)
            {
                *code = static_cast<uint32_t>(table) << 28 |
                        static_cast<uint32_t>(entry.code) << 8 | entry.offset;
                std::strcpy(text, entry.text);
                return;
            }
        }
    }
    *code = kUnknownProblem;
    std::strcpy(text, "Unknown Problem");
}

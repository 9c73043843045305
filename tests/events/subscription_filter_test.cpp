// SPDX-License-Identifier: Apache-2.0
// Which subscribers want an event, and how the post names the event types
// and the problem. Exclusion lists name table entries by position, so the
// tests find the positions in the tables themselves.
#include "events/sel_tables.h"

#include <libkv/events.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <tuple>

namespace
{

using kv::detail::event_entries;
using kv::detail::EventTable;

// Position (from 1) of the entry whose text is `text`.
uint8_t position_of(EventTable table, const char* text)
{
    const auto entries = event_entries(table);
    const auto it = std::find_if(entries.begin(), entries.end(), [&](auto& e) {
        return !std::strcmp(e.text, text);
    });
    EXPECT_NE(it, entries.end()) << text;
    return static_cast<uint8_t>(it - entries.begin() + 1);
}

std::array<uint8_t, 16> record(uint8_t event_type, uint8_t sensor = 0x42)
{
    std::array<uint8_t, 16> rec{};
    rec[11] = sensor;
    rec[12] = event_type;
    return rec;
}

// A subscriber of every sensor and every event type, with empty lists.
EventSubscription everything()
{
    EventSubscription sub{};
    sub.in_use = 1;
    sub.event_types = 0x1F;
    sub.every_sensor = 1;
    return sub;
}

int wants(const EventSubscription& sub, const std::array<uint8_t, 16>& rec,
          const char* message = "x")
{
    return check_event_subscription_active(sub, rec.data(), message);
}

TEST(EventTypeNames, NamesOfTheSetBitsJoinedByCommas)
{
    const std::pair<uint8_t, const char*> cases[] = {
        {0x11, "xStatusChange,Alert"},
        {0x1F, "xStatusChange,ResourceUpdated,ResourceAdded,"
               "ResourceRemoved,Alert"},
        {0xEA, "xResourceUpdated,ResourceRemoved"}, // bits 5-7 have no names
    };
    for (const auto& [mask, names] : cases)
    {
        char buf[128] = "x";
        eventtypeToStr(mask, buf);
        EXPECT_STREQ(buf, names);
    }
}

// Alert takes threshold, generic and sensor-specific events, the four
// resource bits the others.
TEST(SubscriptionFilter, AlertForThresholdGenericAndSensorSpecificEvents)
{
    for (const uint8_t type :
         {0x01, 0x02, 0x0C, 0x6F, 0x81, 0xEF, 0x00, 0x0D, 0x6E, 0x70, 0xF0})
    {
        const int code = type & 0x7F;
        const bool alert = code == 0x6F || (code >= 0x01 && code <= 0x0C);
        for (const uint8_t bit : {0x01, 0x02, 0x04, 0x08, 0x10})
        {
            EXPECT_EQ(check_event_subscription_type(bit, record(type).data()),
                      (bit == 0x10) == alert ? 0 : -1)
                << int(type) << " " << int(bit);
        }
    }
    EXPECT_EQ(check_event_subscription_type(0x1F, nullptr), -1);

    // The type filter comes before every_problem.
    EventSubscription sub = everything();
    sub.event_types = 0x01;
    sub.every_problem = 1;
    EXPECT_EQ(wants(sub, record(0x01)), 0);
    sub.event_types = 0x11;
    EXPECT_EQ(wants(sub, record(0x01)), 1);
}

TEST(SubscriptionFilter, SensorFilterUnlessEverySensor)
{
    EventSubscription sub = everything();
    sub.every_sensor = 0;
    EXPECT_EQ(wants(sub, record(0x6F, 0x42)), 0);
    sub.sensors[0x42] = 1;
    EXPECT_EQ(wants(sub, record(0x6F, 0x42)), 1);
    EXPECT_EQ(wants(sub, record(0x6F, 0x43)), 0);
    sub.every_sensor = 2; // only 1 means every sensor
    EXPECT_EQ(wants(sub, record(0x6F, 0x43)), 0);
    sub.every_sensor = 1;
    EXPECT_EQ(wants(sub, record(0x6F, 0x43)), 1);
}

TEST(SubscriptionFilter, ExclusionListsBlockTheProblemsTheyName)
{
    const char* message = "Disk3 | Drive Slot | Drive Fault | Asserted";
    EventSubscription sub = everything();
    const uint8_t fault =
        position_of(EventTable::sensor_specific, "Drive Fault");
    // A neighbouring position, or the same one in the generic list, names
    // another problem.
    sub.specific_excluded[0] = static_cast<uint8_t>(fault + 1);
    sub.generic_excluded[0] = fault;
    sub.generic_excluded[1] = 200; // past the generic table's end
    EXPECT_EQ(wants(sub, record(0x6F), message), 1);
    sub.specific_excluded[127] = fault;
    EXPECT_EQ(wants(sub, record(0x6F), message), 0);
    sub.every_problem = 1;
    EXPECT_EQ(wants(sub, record(0x6F), message), 1);

    // Each position of either list names its own entry, up to 255.
    for (const auto table : {EventTable::generic, EventTable::sensor_specific})
    {
        const auto entries = event_entries(table);
        for (std::size_t n = 1; n <= std::min<std::size_t>(entries.size(), 255);
             ++n)
        {
            sub = everything();
            auto& list = table == EventTable::generic ? sub.generic_excluded
                                                      : sub.specific_excluded;
            list[n % 128] = static_cast<uint8_t>(n);
            const std::string text = "| " + std::string(entries[n - 1].text);
            ASSERT_EQ(wants(sub, record(0x01), text.c_str()), 0) << text;
        }
    }
}

struct Problem
{
    uint32_t code = 0;
    std::string text;
};

Problem problem_in(const char* message)
{
    char text[128] = {};
    Problem problem;
    getspecificProblem(message, &problem.code, text);
    problem.text = text;
    return problem;
}

TEST(ProblemCode, FirstTextFoundGivesTableCodeAndOffset)
{
    const std::tuple<const char*, uint32_t, const char*> cases[] = {
        {"CPU0 Temp | Upper Critical going high | Asserted", 0x10000109,
         "Upper Critical going high"},
        {"Disk3 | Drive Fault | Asserted", 0x20000D01, "Drive Fault"},
        // The generic table is searched first.
        {"Drive Fault, Device Present", 0x10000801, "Device Present"},
        {"nothing known here", 0xFFFFFFFF, "Unknown Problem"},
    };
    for (const auto& [message, code, text] : cases)
    {
        const Problem problem = problem_in(message);
        EXPECT_EQ(problem.code, code) << message;
        EXPECT_EQ(problem.text, text) << message;
    }
}

// Every entry's text gives the code of an entry with the text found, in
// the first table that has one.
TEST(ProblemCode, EveryEntryTextGivesACodeOfAnEntryWithIt)
{
    for (const auto table :
         {EventTable::generic, EventTable::sensor_specific, EventTable::vendor})
    {
        for (const auto& e : event_entries(table))
        {
            const Problem problem = problem_in(e.text);
            EXPECT_NE(std::strstr(e.text, problem.text.c_str()), nullptr);
            const auto found = static_cast<EventTable>(problem.code >> 28);
            EXPECT_LE(found, table) << e.text;
            bool named = false;
            for (const auto& f : event_entries(found))
            {
                named |= (0x0FFFFFFFu & problem.code) ==
                             static_cast<uint32_t>(f.code << 8 | f.offset) &&
                         problem.text == f.text;
            }
            EXPECT_TRUE(named) << e.text << " " << std::hex << problem.code;
        }
    }
}

} // namespace

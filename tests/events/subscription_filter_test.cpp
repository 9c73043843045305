// SPDX-License-Identifier: Apache-2.0
// Which subscribers want an event, and how the post names the event types
// and the problem. Exclusion lists name table entries by position, so the
// tests find the positions in the tables themselves.
#include "events/sel_tables.h"

#include <libkv/events.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace
{

using kv::detail::EventTable;

// Position n (from 1) of the entry whose text is `text`.
uint8_t position_of(EventTable table, const char* text)
{
    const auto entries = kv::detail::event_entries(table);
    for (size_t i = 0; i < entries.size(); ++i)
    {
        if (std::strcmp(entries[i].text, text) == 0)
        {
            return static_cast<uint8_t>(i + 1);
        }
    }
    ADD_FAILURE() << "no entry " << text;
    return 0;
}

struct Event
{
    uint8_t sensor = 0x42;
    uint8_t event_type = 0x6F;

    const uint8_t* record()
    {
        rec_[11] = sensor;
        rec_[12] = event_type;
        return rec_;
    }
    uint8_t rec_[16] = {};
};

// A subscriber of every sensor and every event type, with empty lists.
EventSubscription everything()
{
    EventSubscription sub{};
    sub.in_use = 1;
    sub.event_types = 0x1F;
    sub.every_sensor = 1;
    return sub;
}

std::string type_names(uint8_t mask, const char* before = "")
{
    char buf[128] = {};
    std::strcpy(buf, before);
    eventtypeToStr(mask, buf);
    return buf;
}

TEST(EventTypeNames, NamesOfTheSetBitsJoinedByCommas)
{
    EXPECT_EQ(type_names(0x11), "StatusChange,Alert");
    EXPECT_EQ(type_names(0x0A), "ResourceUpdated,ResourceRemoved");
    EXPECT_EQ(type_names(0x1F), "StatusChange,ResourceUpdated,ResourceAdded,"
                                "ResourceRemoved,Alert");
    EXPECT_EQ(type_names(0), "");
    EXPECT_EQ(type_names(0xE0), ""); // bits above 4 have no names
    EXPECT_EQ(type_names(0x04, "x"), "xResourceAdded");
}

TEST(EventTypeFilter, AlertForThresholdGenericAndSensorSpecificEvents)
{
    // Other events need one of the four resource bits.
    for (const uint8_t type :
         {0x01, 0x02, 0x0C, 0x6F, 0x81, 0xEF, 0x00, 0x0D, 0x6E, 0x70, 0xF0})
    {
        const bool alert = (type & 0x7F) == 0x6F ||
                           ((type & 0x7F) >= 0x01 && (type & 0x7F) <= 0x0C);
        Event event{.event_type = type};
        for (const uint8_t bit : {0x01, 0x02, 0x04, 0x08, 0x10})
        {
            EXPECT_EQ(check_event_subscription_type(bit, event.record()),
                      (bit == 0x10) == alert ? 0 : -1)
                << int(type) << " " << int(bit);
        }
    }
    EXPECT_EQ(check_event_subscription_type(0x1F, nullptr), -1);
}

TEST(SubscriptionFilter, SensorFilterUnlessEverySensor)
{
    Event event;
    EventSubscription sub = everything();
    sub.every_sensor = 0;
    EXPECT_EQ(check_event_subscription_active(sub, event.record(), "x"), 0);

    sub.sensors[event.sensor] = 1;
    EXPECT_EQ(check_event_subscription_active(sub, event.record(), "x"), 1);
    event.sensor = 0x43;
    EXPECT_EQ(check_event_subscription_active(sub, event.record(), "x"), 0);

    sub.every_sensor = 2; // only 1 means every sensor
    EXPECT_EQ(check_event_subscription_active(sub, event.record(), "x"), 0);
    sub.every_sensor = 1;
    EXPECT_EQ(check_event_subscription_active(sub, event.record(), "x"), 1);
}

TEST(SubscriptionFilter, TypeFilterComesBeforeEveryProblem)
{
    Event event{.event_type = 0x01};
    EventSubscription sub = everything();
    sub.event_types = 0x01;
    sub.every_problem = 1;
    EXPECT_EQ(check_event_subscription_active(sub, event.record(), "x"), 0);
    sub.event_types = 0x11;
    EXPECT_EQ(check_event_subscription_active(sub, event.record(), "x"), 1);
}

TEST(SubscriptionFilter, ExclusionListsBlockTheProblemsTheyName)
{
    const char* message = "Disk3 | Drive Slot | Drive Fault | Asserted";
    Event event;
    EventSubscription sub = everything();
    EXPECT_EQ(check_event_subscription_active(sub, event.record(), message), 1);

    const uint8_t drive_fault =
        position_of(EventTable::sensor_specific, "Drive Fault");
    // A neighbouring position, or the same position in the generic list,
    // names another problem.
    sub.specific_excluded[0] = static_cast<uint8_t>(drive_fault + 1);
    sub.generic_excluded[0] = drive_fault;
    sub.generic_excluded[1] = 200; // past the generic table's end
    EXPECT_EQ(check_event_subscription_active(sub, event.record(), message), 1);

    sub.specific_excluded[127] = drive_fault;
    EXPECT_EQ(check_event_subscription_active(sub, event.record(), message), 0);
    sub.every_problem = 1;
    EXPECT_EQ(check_event_subscription_active(sub, event.record(), message), 1);

    EventSubscription generic = everything();
    generic.generic_excluded[64] =
        position_of(EventTable::generic, "Upper Critical going high");
    Event threshold{.event_type = 0x01};
    EXPECT_EQ(check_event_subscription_active(
                  generic, threshold.record(),
                  "CPU0 Temp | Upper Critical going high | Asserted"),
              0);
    EXPECT_EQ(check_event_subscription_active(
                  generic, threshold.record(),
                  "CPU0 Temp | Upper Non-critical going high | Asserted"),
              1);
}

TEST(SubscriptionFilter, EveryPositionOfTheListsNamesItsEntry)
{
    Event event{.event_type = 0x01};
    for (const auto table : {EventTable::generic, EventTable::sensor_specific})
    {
        const auto entries = kv::detail::event_entries(table);
        for (std::size_t n = 1; n <= std::min<std::size_t>(entries.size(), 255);
             ++n)
        {
            EventSubscription sub = everything();
            auto& list = table == EventTable::generic ? sub.generic_excluded
                                                      : sub.specific_excluded;
            list[n % 128] = static_cast<uint8_t>(n);
            const std::string message = "| " + std::string(entries[n - 1].text);
            ASSERT_EQ(check_event_subscription_active(sub, event.record(),
                                                      message.c_str()),
                      0)
                << message;
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
    Problem problem;
    char text[128] = {};
    getspecificProblem(message, &problem.code, text);
    problem.text = text;
    return problem;
}

TEST(ProblemCode, FirstTextFoundGivesTableCodeAndOffset)
{
    const Problem threshold =
        problem_in("CPU0 Temp | Upper Critical going high | Asserted");
    EXPECT_EQ(threshold.code, 0x10000109u);
    EXPECT_EQ(threshold.text, "Upper Critical going high");

    const Problem drive = problem_in("Disk3 | Drive Fault | Asserted");
    EXPECT_EQ(drive.code, 0x20000D01u);
    EXPECT_EQ(drive.text, "Drive Fault");

    // The generic table is searched first, even when a sensor-specific text
    // is in the message too.
    EXPECT_EQ(problem_in("Drive Fault, Device Present").code, 0x10000801u);

    const Problem unknown = problem_in("nothing known here");
    EXPECT_EQ(unknown.code, 0xFFFFFFFFu);
    EXPECT_EQ(unknown.text, "Unknown Problem");
}

// The code of every entry's text names an entry with the text found, in
// the first table that has one.
TEST(ProblemCode, EveryEntryTextGivesACodeOfAnEntryWithIt)
{
    for (const auto table :
         {EventTable::generic, EventTable::sensor_specific, EventTable::vendor})
    {
        for (const auto& e : kv::detail::event_entries(table))
        {
            const Problem problem = problem_in(e.text);
            EXPECT_NE(std::strstr(e.text, problem.text.c_str()), nullptr);
            const auto found = static_cast<EventTable>(problem.code >> 28);
            EXPECT_LE(found, table) << e.text;
            bool named = false;
            for (const auto& f : kv::detail::event_entries(found))
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

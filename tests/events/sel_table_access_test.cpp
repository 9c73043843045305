// SPDX-License-Identifier: Apache-2.0
// The tables by position and tag, as the event forwarders reach them: a
// subscription names entry n - 1 with a byte n, and a problem code carries
// the tag of the table its text came from.
#include "events/sel_tables.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace
{

using kv::detail::event_entries;
using kv::detail::event_entry;
using kv::detail::event_table_of;
using kv::detail::EventTable;

struct Position
{
    EventTable table;
    std::size_t n;
    int code;
    int offset;
    const char* text;
};

TEST(EventTableAccess, EntriesByPosition)
{
    const Position positions[] = {
        {EventTable::generic, 0, 0x01, 0, "Lower Non-critical going low "},
        {EventTable::generic, 9, 0x01, 9, "Upper Critical going high"},
        {EventTable::generic, 56, 0x0C, 3, "D3 Power State"},
        {EventTable::sensor_specific, 0, 0x05, 0, "General Chassis Intrusion"},
        {EventTable::sensor_specific, 319, 0x2C, 7, "FRU Communication Lost"},
        {EventTable::sensor_specific, 320, 0xF0, 0, "Transition to M0"},
        {EventTable::sensor_specific, 334, 0xF2, 2, "Quiesced"},
        {EventTable::vendor, 0, 0xC1, 0, "Push Button"},
        {EventTable::vendor, 44, 0xCF, 1, "Deasserted"},
    };
    for (const auto& p : positions)
    {
        const kv_event_desc* e = event_entry(p.table, p.n);
        ASSERT_NE(e, nullptr) << p.text;
        EXPECT_EQ(e->code, p.code) << p.text;
        EXPECT_EQ(e->offset, p.offset) << p.text;
        EXPECT_STREQ(e->text, p.text);
    }
}

TEST(EventTableAccess, PositionsPastTheEndGiveNothing)
{
    EXPECT_EQ(event_entries(EventTable::generic).size(), 57U);
    EXPECT_EQ(event_entries(EventTable::sensor_specific).size(), 335U);
    EXPECT_EQ(event_entries(EventTable::vendor).size(), 45U);
    EXPECT_TRUE(event_entries(EventTable::none).empty());
    // Subscription bytes run to 255 and name entry n - 1.
    for (std::size_t n = 0; n < 255; ++n)
    {
        EXPECT_EQ(event_entry(EventTable::generic, n) != nullptr, n < 57) << n;
        EXPECT_EQ(event_entry(EventTable::sensor_specific, n) != nullptr,
                  n < 335)
            << n;
    }
    EXPECT_EQ(event_entry(EventTable::vendor, 45), nullptr);
    EXPECT_EQ(event_entry(EventTable::sensor_specific, SIZE_MAX), nullptr);
    EXPECT_EQ(event_entry(EventTable::none, 0), nullptr);
}

TEST(EventTableAccess, EveryEntryKnowsItsTable)
{
    for (auto table :
         {EventTable::generic, EventTable::sensor_specific, EventTable::vendor})
    {
        const auto entries = event_entries(table);
        for (const auto& e : entries)
        {
            EXPECT_EQ(event_table_of(&e), table) << e.text;
        }
        // The terminator is not an entry.
        EXPECT_EQ(event_table_of(entries.data() + entries.size()),
                  EventTable::none);
    }
    const kv_event_desc foreign = {0x01, 0, 0xFF, "Lower Critical going low "};
    EXPECT_EQ(event_table_of(&foreign), EventTable::none);
    EXPECT_EQ(event_table_of(nullptr), EventTable::none);
}

} // namespace

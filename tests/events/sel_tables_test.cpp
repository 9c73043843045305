// SPDX-License-Identifier: Apache-2.0
// The SEL decoding tables, walked through the exported lookups and reached
// by position as the event forwarders reach them.
#include "events/sel_tables.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace
{

using namespace kv::detail;

constexpr EventTable kTables[] = {
    EventTable::generic, EventTable::sensor_specific, EventTable::vendor};

// Sensor type and event type of a record whose code `code` selects `table`.
std::pair<uint8_t, uint8_t> selector(EventTable table, int code)
{
    return {table == EventTable::generic ? 0xC1 : code,
            table == EventTable::generic ? code : 0x6F};
}

// The description of a record; the line builders count on 176 zeroed bytes
// after the text.
std::string describe(uint8_t sensor, uint8_t event, uint8_t data1,
                     uint8_t data2)
{
    const uint8_t rec[16] = {1, 0, 2,      0, 0,     0,     0,    0,
                             0, 0, sensor, 0, event, data1, data2};
    char untouched = 'x';
    char* desc = &untouched;
    ipmi_get_event_desc(rec, &desc);
    EXPECT_NE(desc, &untouched);
    if (desc == nullptr || desc == &untouched)
    {
        return "<none>";
    }
    std::string text = desc;
    for (std::size_t i = text.size(); i < text.size() + 176; ++i)
    {
        EXPECT_EQ(desc[i], '\0') << i << " of " << text;
    }
    std::free(desc);
    return text;
}

TEST(EventTables, WalksAndPositionsReachTheSameEntriesInOrder)
{
    for (const EventTable table : kTables)
    {
        std::vector<const kv_event_desc*> walk;
        for (int code = 0; code <= 0xFF; ++code)
        {
            const bool vendor = code >= 0xC0 && code <= 0xEF;
            if (table == EventTable::generic
                    ? code == 0x6F
                    : vendor != (table == EventTable::vendor))
            {
                continue;
            }
            const auto [sensor, event] = selector(table, code);
            for (auto* e = ipmi_get_first_event_sensor_type(sensor, event);
                 e != nullptr; e = ipmi_get_next_event_sensor_type(e))
            {
                walk.push_back(e);
            }
        }
        // The library has its own copy of the tables.
        const auto entries = event_entries(table);
        ASSERT_EQ(walk.size(), entries.size());
        for (std::size_t n = 0; n < entries.size(); ++n)
        {
            const auto& e = entries[n];
            EXPECT_EQ(std::tie(walk[n]->code, walk[n]->offset, walk[n]->data),
                      std::tie(e.code, e.offset, e.data));
            EXPECT_STREQ(walk[n]->text, e.text);
            EXPECT_EQ(event_entry(table, n), &e);
            EXPECT_EQ(event_table_of(&e), table);
        }
        EXPECT_EQ(event_entry(table, entries.size()), nullptr);
        EXPECT_EQ(event_table_of(entries.data() + entries.size()),
                  EventTable::none);
        EXPECT_EQ(ipmi_get_next_event_sensor_type(walk.back() + 1), nullptr);
    }
    const kv_event_desc foreign[2] = {{1, 0, kAnyData, "a"},
                                      {1, 1, kAnyData, "b"}};
    EXPECT_EQ(event_table_of(foreign), EventTable::none);
    EXPECT_EQ(ipmi_get_next_event_sensor_type(foreign), nullptr);
    EXPECT_EQ(ipmi_get_next_event_sensor_type(nullptr), nullptr);
}

// Offsets of the generic event types 0x01-0x0C count up from 0.
TEST(EventTables, OffsetsOfEachGenericType)
{
    std::vector<int> offsets(13);
    for (const auto& e : event_entries(EventTable::generic))
    {
        ASSERT_LT(std::size_t{e.code}, offsets.size()) << e.text;
        EXPECT_EQ(e.offset, offsets[e.code]++) << e.text;
        EXPECT_EQ(e.data, kAnyData) << e.text;
    }
    EXPECT_EQ(offsets,
              std::vector<int>({0, 12, 3, 2, 2, 2, 2, 9, 2, 2, 9, 8, 4}));
}

// Entries told apart by data 2 count it up from 0 before the catch-all
// entry of their offset.
TEST(EventTables, DataTwoListsCountUpBeforeTheirFallbacks)
{
    std::map<std::pair<int, int>, std::pair<int, int>> lists; // data, any
    for (const auto& e : event_entries(EventTable::sensor_specific))
    {
        auto& [counted, any] = lists[{e.code, e.offset}];
        EXPECT_TRUE(e.data == kAnyData ? ++any
                                       : any == 0 && e.data == counted++)
            << e.text;
    }
    const std::map<std::pair<int, int>, std::pair<int, int>> listed = {
        {{0x08, 6}, {5, 2}},  {{0x0F, 0}, {14, 1}}, {{0x0F, 1}, {26, 1}},
        {{0x0F, 2}, {26, 1}}, {{0x2B, 1}, {24, 0}}, {{0x2B, 7}, {24, 0}}};
    for (const auto& [key, counts] : lists)
    {
        const auto it = listed.find(key);
        EXPECT_EQ(counts, it != listed.end() ? it->second : std::pair(0, 1))
            << key.first << "/" << key.second;
    }
}

// Asserted or deasserted; data 2 counts only when data 1 says it is
// specific.
TEST(EventDescriptions, EveryEntryDescribesItsOwnRecord)
{
    for (const EventTable table : kTables)
    {
        int i = 0;
        for (const auto& e : event_entries(table))
        {
            const auto [sensor, event] = selector(table, e.code);
            const bool by_data = e.data != kAnyData;
            const std::string text = describe(
                sensor, event | (++i % 2 == 0 ? 0x80 : 0x00),
                e.offset | (by_data ? 0xC0 : 0x00), by_data ? e.data : 0x03);
            // "Config Error" answers before the entry after it.
            EXPECT_EQ(text, std::strcmp(e.text, "Power Supply Inactive") == 0
                                ? "Config Error"
                                : e.text);
        }
    }
}

TEST(EventDescriptions, TextsOfRecords)
{
    const struct
    {
        uint8_t sensor, event, data1, data2;
        const char* text;
    } cases[] = {
        {0x01, 0x01, 0x09, 0x00, "Upper Critical going high"},
        {0x0D, 0x6F, 0x01, 0x00, "Drive Fault"},
        {0x0F, 0x6F, 0x40, 0x0B, "BIOS corruption detected"},
        {0x0F, 0x6F, 0x00, 0x0B, "Unknown Error"},
        {0x0F, 0x6F, 0xC0, 0x7E, "Unknown Error"},
        {0x0F, 0x6F, 0xC1, 0x1A, "Unknown Hang"},
        {0x2B, 0x6F, 0xC7, 0x18, "<none>"}, // version change: no fallback
        {0x01, 0x01, 0x0C, 0x00, "<none>"},
        {0x01, 0x0D, 0x00, 0x00, "<none>"},
        {0x23, 0x6F, 0x04, 0x00, "<none>"},
        {0xC0, 0x6F, 0x00, 0x00, "<none>"},
        {0xEF, 0x6F, 0x00, 0x00, "<none>"},
        {0xF3, 0x6F, 0x00, 0x00, "<none>"},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(describe(c.sensor, c.event, c.data1, c.data2), c.text)
            << int(c.sensor) << "/" << int(c.event) << "/" << int(c.data1);
    }
    // OEM event types have no text, even where a table has the code.
    for (int type = 0x70; type <= 0x7F; ++type)
    {
        EXPECT_EQ(describe(0x0F, type, 0x00, 0), "<none>") << type;
    }
    char* desc = nullptr;
    ipmi_get_event_desc(nullptr, &desc);
    EXPECT_EQ(desc, nullptr);
}

std::string unit(bool pct, uint8_t relation, uint8_t base, uint8_t modifier)
{
    char dst[64];
    std::memset(dst, '#', sizeof dst);
    EXPECT_EQ(ipmi_sdr_get_unit_string(pct, relation, base, modifier, dst),
              dst);
    EXPECT_NE(std::memchr(dst, '\0', sizeof dst), nullptr);
    return dst;
}

TEST(UnitStrings, CodesUpTo92HaveNames)
{
    for (int code = 0; code <= 0xFF; ++code)
    {
        EXPECT_EQ(unit(false, 0, code, 0) == "invalid", code > 92) << code;
    }
    const struct
    {
        bool pct;
        uint8_t relation, base, modifier;
        const char* text;
    } cases[] = {
        {false, 0, 1, 0, "degrees C"},
        {false, 0, 92, 0, "grams"},
        // The modifier is checked for range; the base unit stands for it.
        {false, 1, 4, 22, "Volts/Volts"},
        {false, 2, 4, 22, "Volts*Volts"},
        {false, 1, 4, 93, "Volts/invalid"},
        {false, 2, 93, 4, "invalid*invalid"},
        {false, 3, 4, 22, "Volts"}, // relation 3 means none
        {true, 0, 0, 0, "percent"},
        {true, 0, 4, 0, "% Volts"},
        {true, 1, 0, 0, "% unspecified/unspecified"},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(unit(c.pct, c.relation, c.base, c.modifier), c.text);
    }
    EXPECT_EQ(ipmi_sdr_get_unit_string(true, 0, 0, 0, nullptr), nullptr);
}

TEST(SensorTypes, NamesUpTo2CThenUnknown)
{
    for (int code = 0; code <= 0xFF; ++code)
    {
        char dst[64] = {};
        EXPECT_EQ(ipmi_get_sensor_type(code, dst), 0);
        const char* name = ipmi_get_generic_sensor_type(code);
        EXPECT_EQ(name != nullptr, code <= 0x2C) << code;
        EXPECT_STREQ(dst, name != nullptr ? name : "Unknown") << code;
    }
    EXPECT_STREQ(ipmi_get_generic_sensor_type(0x01), "Temperature");
    EXPECT_STREQ(ipmi_get_generic_sensor_type(0x2C), "FRU State");
    EXPECT_EQ(ipmi_get_sensor_type(0x01, nullptr), 0);
}

} // namespace

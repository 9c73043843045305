// SPDX-License-Identifier: Apache-2.0
// The SEL decoding tables through the exported lookups: unit and sensor
// type names, the walks over the event description tables, and the event
// description of a record.
#include <libkv/events.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace
{

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Optional;

constexpr int kSensorSpecific = 0x6F;

// The description of a record with these fields, checking the room the
// line builders count on after the text: strlen + 176 zeroed bytes.
std::optional<std::string> describe(uint8_t sensor_type, uint8_t event_type,
                                    uint8_t data1, uint8_t data2 = 0)
{
    uint8_t rec[16] = {0x01, 0x00, 0x02};
    rec[10] = sensor_type;
    rec[11] = 0x10;
    rec[12] = event_type;
    rec[13] = data1;
    rec[14] = data2;
    char untouched = 'x';
    char* desc = &untouched;
    ipmi_get_event_desc(rec, &desc);
    EXPECT_NE(desc, &untouched) << "the description was not set";
    if (desc == nullptr || desc == &untouched)
    {
        return std::nullopt;
    }
    std::string text = desc;
    for (std::size_t i = text.size(); i < text.size() + 176; ++i)
    {
        EXPECT_EQ(desc[i], '\0') << "byte " << i << " of \"" << text << "\"";
    }
    std::free(desc);
    return text;
}

std::vector<const kv_event_desc*> walk(uint8_t sensor_type, uint8_t event_type)
{
    std::vector<const kv_event_desc*> entries;
    for (const auto* e =
             ipmi_get_first_event_sensor_type(sensor_type, event_type);
         e != nullptr; e = ipmi_get_next_event_sensor_type(e))
    {
        entries.push_back(e);
    }
    return entries;
}

// Every entry of a table, by walking each code that selects it.
std::vector<const kv_event_desc*> walk_codes(int from, int to, bool specific,
                                             int skip_from = 1, int skip_to = 0)
{
    std::vector<const kv_event_desc*> all;
    for (int code = from; code <= to; ++code)
    {
        if (code >= skip_from && code <= skip_to)
        {
            continue;
        }
        const auto entries =
            specific ? walk(code, kSensorSpecific) : walk(0x01, code);
        for (const auto* e : entries)
        {
            EXPECT_EQ(e->code, code);
            EXPECT_NE(e->text, nullptr);
            EXPECT_LE(e->offset, 15);
        }
        all.insert(all.end(), entries.begin(), entries.end());
    }
    return all;
}

std::vector<const kv_event_desc*> generic_table()
{
    return walk_codes(0x00, 0xFF, false, kSensorSpecific, kSensorSpecific);
}

std::vector<const kv_event_desc*> sensor_table()
{
    return walk_codes(0x00, 0xFF, true, 0xC0, 0xEF);
}

std::vector<const kv_event_desc*> vendor_table()
{
    return walk_codes(0xC0, 0xEF, true);
}

// ---- Walking the tables ---------------------------------------------------

TEST(EventTables, EachTableHasItsCountOfEntries)
{
    EXPECT_EQ(generic_table().size(), 57U);
    EXPECT_EQ(sensor_table().size(), 335U);
    EXPECT_EQ(vendor_table().size(), 45U);
    EXPECT_EQ(walk_codes(0x05, 0x2C, true).size(), 320U);
    EXPECT_EQ(walk_codes(0xF0, 0xF2, true).size(), 15U);
}

TEST(EventTables, GenericEntriesCoverTypes01To0CForAnyData)
{
    std::map<int, int> per_type;
    for (const auto* e : generic_table())
    {
        ++per_type[e->code];
        EXPECT_EQ(e->data, 0xFF) << e->text;
    }
    EXPECT_THAT(per_type, ElementsAre(std::pair(0x01, 12), std::pair(0x02, 3),
                                      std::pair(0x03, 2), std::pair(0x04, 2),
                                      std::pair(0x05, 2), std::pair(0x06, 2),
                                      std::pair(0x07, 9), std::pair(0x08, 2),
                                      std::pair(0x09, 2), std::pair(0x0A, 9),
                                      std::pair(0x0B, 8), std::pair(0x0C, 4)));
}

TEST(EventTables, OnlyTheListedOffsetsDependOnData2)
{
    std::map<std::pair<int, int>, std::vector<int>> data;
    for (const auto* e : sensor_table())
    {
        data[{e->code, e->offset}].push_back(e->data);
    }
    auto counting = [](int n, int fallbacks) {
        std::vector<int> v;
        for (int i = 0; i < n; ++i)
        {
            v.push_back(i);
        }
        v.insert(v.end(), fallbacks, 0xFF);
        return v;
    };
    const std::map<std::pair<int, int>, std::vector<int>> listed = {
        {{0x08, 6}, counting(5, 2)},  {{0x0F, 0}, counting(14, 1)},
        {{0x0F, 1}, counting(26, 1)}, {{0x0F, 2}, counting(26, 1)},
        {{0x2B, 1}, counting(24, 0)}, {{0x2B, 7}, counting(24, 0)},
    };
    for (const auto& [key, values] : data)
    {
        const auto it = listed.find(key);
        if (it == listed.end())
        {
            EXPECT_THAT(values, ElementsAre(0xFF))
                << "code " << key.first << " offset " << key.second;
        }
        else
        {
            EXPECT_EQ(values, it->second)
                << "code " << key.first << " offset " << key.second;
        }
    }
    for (const auto& [key, values] : listed)
    {
        EXPECT_TRUE(data.count(key)) << key.first << "/" << key.second;
    }
}

TEST(EventTables, FallbacksFollowTheirDataLists)
{
    auto texts_at = [](uint8_t code, uint8_t offset) {
        std::vector<std::string> texts;
        for (const auto* e : walk(code, kSensorSpecific))
        {
            if (e->offset == offset && e->data == 0xFF)
            {
                texts.emplace_back(e->text);
            }
        }
        return texts;
    };
    EXPECT_THAT(texts_at(0x08, 6),
                ElementsAre("Config Error", "Power Supply Inactive"));
    EXPECT_THAT(texts_at(0x0F, 0), ElementsAre("Unknown Error"));
    EXPECT_THAT(texts_at(0x0F, 1), ElementsAre("Unknown Hang"));
    EXPECT_THAT(texts_at(0x0F, 2), ElementsAre("Unknown Progress"));
}

TEST(EventTables, WalksEndAtTheTerminatorAndRefuseOtherEntries)
{
    // The last code of each table is followed by its terminator.
    for (const auto& [sensor, event] :
         {std::pair(0x01, 0x0C), std::pair(0xF2, kSensorSpecific),
          std::pair(0xCF, kSensorSpecific)})
    {
        const auto entries = walk(sensor, event);
        ASSERT_FALSE(entries.empty());
        const kv_event_desc* terminator = entries.back() + 1;
        EXPECT_EQ(terminator->text, nullptr);
        EXPECT_EQ(ipmi_get_next_event_sensor_type(terminator), nullptr);
    }
    const kv_event_desc foreign[2] = {{0x01, 0, 0xFF, "a"},
                                      {0x01, 1, 0xFF, "b"}};
    EXPECT_EQ(ipmi_get_next_event_sensor_type(&foreign[0]), nullptr);
    EXPECT_EQ(ipmi_get_next_event_sensor_type(nullptr), nullptr);
    EXPECT_EQ(ipmi_get_first_event_sensor_type(0x01, 0x00), nullptr);
    EXPECT_EQ(ipmi_get_first_event_sensor_type(0x00, kSensorSpecific), nullptr);
}

// ---- Event descriptions ---------------------------------------------------

TEST(EventDescriptions, GenericTexts)
{
    EXPECT_THAT(describe(0x01, 0x01, 0x00),
                Optional(std::string("Lower Non-critical going low ")));
    EXPECT_THAT(describe(0x01, 0x01, 0x09),
                Optional(std::string("Upper Critical going high")));
    // Deassertion and data bits change nothing in the generic table.
    EXPECT_THAT(describe(0x02, 0x81, 0xF9, 0x33),
                Optional(std::string("Upper Critical going high")));
    EXPECT_THAT(describe(0x12, 0x07, 0x08),
                Optional(std::string("Informational")));
    EXPECT_THAT(describe(0x29, 0x0C, 0x03),
                Optional(std::string("D3 Power State")));
    // A vendor sensor type with a generic event type.
    EXPECT_THAT(describe(0xC1, 0x08, 0x01),
                Optional(std::string("Device Present")));
    EXPECT_EQ(describe(0x01, 0x01, 0x0C), std::nullopt);
    EXPECT_EQ(describe(0x01, 0x0D, 0x00), std::nullopt);
}

TEST(EventDescriptions, GoingLowThresholdTextsEndInABlank)
{
    const auto entries = walk(0x01, 0x01);
    ASSERT_EQ(entries.size(), 12U);
    for (const auto* e : entries)
    {
        const std::string text = e->text;
        const bool going_low = e->offset % 2 == 0;
        EXPECT_EQ(text.ends_with(" going low "), going_low) << text;
        EXPECT_EQ(text.ends_with(" going high"), !going_low) << text;
    }
}

TEST(EventDescriptions, VendorTableInFull)
{
    struct Entry
    {
        int code;
        int offset;
        std::string text;
        bool operator==(const Entry&) const = default;
    };
    const std::vector<Entry> expected = {
        {0xC1, 0, "Push Button"},
        {0xC1, 1, "Bridge Reset"},
        {0xC1, 2, "Backplane"},
        {0xC1, 3, "Hotswap Fault"},
        {0xC1, 4, "Hotswap Healty"},
        {0xC1, 5, "Unknown"},
        {0xC1, 6, "ITP"},
        {0xC1, 7, "Hardware Watchdog"},
        {0xC1, 8, "Software Reset"},
        {0xC3, 2, "IPMB L Disabled"},
        {0xC3, 3, "IPMB L Enabled"},
        {0xC4, 0, "Push Button"},
        {0xC4, 1, "Hardware Power Failure"},
        {0xC4, 2, "Unknown"},
        {0xC4, 3, "Hardware Watchdog"},
        {0xC4, 4, "Soft Reset"},
        {0xC4, 5, "Warm Reset"},
        {0xC4, 6, "Cold Reset"},
        {0xC4, 7, "IPMI Command"},
        {0xC4, 8, "Setup Reset (Save CMOS)"},
        {0xC4, 9, "Power Up Reset"},
        {0xC6, 14, "Post Error (see data2)"},
        {0xC7, 0, "First Boot After Upgrade"},
        {0xC7, 1, "First Boot After Rollback(error)"},
        {0xC7, 2, "First Boot After Errors (watchdog)"},
        {0xC7, 3, "First Boot After Manual Rollback"},
        {0xC7, 8, "Firmware Watchdog Bite, reset occurred"},
        {0xC8, 0, "Not Loaded"},
        {0xC8, 1, "Initializing"},
        {0xC8, 2, "Ready"},
        {0xC8, 3, "Failure (see data2)"},
        {0xC9, 0, "Started"},
        {0xC9, 1, "Pass"},
        {0xC9, 2, "Fail"},
        {0xCA, 0, "In progress"},
        {0xCA, 1, "Success"},
        {0xCA, 2, "Failure"},
        {0xCB, 0, "Asserted"},
        {0xCB, 1, "Deasserted"},
        {0xCC, 0, "Asserted"},
        {0xCC, 1, "Deasserted"},
        {0xCD, 0, "Asserted"},
        {0xCD, 1, "Deasserted"},
        {0xCF, 0, "Asserted"},
        {0xCF, 1, "Deasserted"},
    };
    std::vector<Entry> walked;
    for (const auto* e : vendor_table())
    {
        EXPECT_EQ(e->data, 0xFF) << e->text;
        walked.push_back({e->code, e->offset, e->text});
    }
    EXPECT_EQ(walked, expected);
    for (const auto& e : expected)
    {
        // Data 2 is never looked at here.
        EXPECT_THAT(describe(e.code, kSensorSpecific, 0xC0 | e.offset, 0x07),
                    Optional(e.text));
    }
    EXPECT_EQ(describe(0xC0, kSensorSpecific, 0x00), std::nullopt);
    EXPECT_EQ(describe(0xEF, kSensorSpecific, 0x00), std::nullopt);
}

TEST(EventDescriptions, SystemFirmwareCodesInData2)
{
    const uint8_t firmware = 0x0F;
    EXPECT_THAT(describe(firmware, kSensorSpecific, 0x00),
                Optional(std::string("Unknown Error")));
    EXPECT_THAT(describe(firmware, kSensorSpecific, 0xC0, 0x0B),
                Optional(std::string("BIOS corruption detected")));
    EXPECT_THAT(describe(firmware, kSensorSpecific, 0xC0, 0x7E),
                Optional(std::string("Unknown Error")));
    // Data 2 counts only when data 1 says it is specific.
    EXPECT_THAT(describe(firmware, kSensorSpecific, 0x00, 0x0B),
                Optional(std::string("Unknown Error")));
    EXPECT_THAT(describe(firmware, kSensorSpecific, 0x40, 0x0B),
                Optional(std::string("BIOS corruption detected")));
    EXPECT_THAT(describe(firmware, kSensorSpecific, 0xC1, 0x01),
                Optional(std::string("Memory initialization")));
    EXPECT_THAT(describe(firmware, kSensorSpecific, 0xC2, 0x19),
                Optional(std::string("Primary processor initialization")));
    EXPECT_THAT(describe(firmware, kSensorSpecific, 0xC1, 0x1A),
                Optional(std::string("Unknown Hang")));
    EXPECT_THAT(describe(firmware, kSensorSpecific, 0x02, 0x01),
                Optional(std::string("Unknown Progress")));
    // Deassertion keeps the table.
    EXPECT_THAT(describe(firmware, 0x80 | kSensorSpecific, 0x00),
                Optional(std::string("Unknown Error")));
}

TEST(EventDescriptions, PowerSupplyConfigurationErrors)
{
    const uint8_t supply = 0x08;
    EXPECT_THAT(describe(supply, kSensorSpecific, 0xC6, 0x00),
                Optional(std::string("Config Error: Vendor Mismatch")));
    EXPECT_THAT(describe(supply, kSensorSpecific, 0xC6, 0x05),
                Optional(std::string("Config Error")));
    EXPECT_THAT(describe(supply, kSensorSpecific, 0x06, 0x00),
                Optional(std::string("Config Error")));
    // The entry after "Config Error" never answers.
    for (int data1 = 0; data1 <= 0xFF; ++data1)
    {
        for (int data2 = 0; data2 <= 0xFF; ++data2)
        {
            uint8_t rec[16] = {};
            rec[10] = supply;
            rec[12] = kSensorSpecific;
            rec[13] = static_cast<uint8_t>(data1);
            rec[14] = static_cast<uint8_t>(data2);
            char* desc = nullptr;
            ipmi_get_event_desc(rec, &desc);
            if (desc != nullptr)
            {
                ASSERT_STRNE(desc, "Power Supply Inactive");
                std::free(desc);
            }
        }
    }
}

TEST(EventDescriptions, VersionChangeKindsHaveNoFallback)
{
    const uint8_t version = 0x2B;
    EXPECT_THAT(describe(version, kSensorSpecific, 0xC1, 0x09),
                Optional(std::string(
                    "Firmware or software change detected, BIOS/EFI change")));
    EXPECT_EQ(describe(version, kSensorSpecific, 0x01, 0x09), std::nullopt);
    EXPECT_EQ(describe(version, kSensorSpecific, 0xC1, 0x18), std::nullopt);
    EXPECT_EQ(describe(version, kSensorSpecific, 0xC7, 0x18), std::nullopt);
    const auto done = describe(version, kSensorSpecific, 0xC7, 0x09);
    ASSERT_TRUE(done.has_value());
    EXPECT_TRUE(done->ends_with(", BIOS/EFI change")) << *done;
    EXPECT_NE(*done, *describe(version, kSensorSpecific, 0xC1, 0x09));
}

TEST(EventDescriptions, SensorTypesOutsideTheNamedRange)
{
    EXPECT_THAT(describe(0xF0, kSensorSpecific, 0x03),
                Optional(std::string("Transition to M3")));
    EXPECT_THAT(describe(0xF1, kSensorSpecific, 0x01),
                Optional(std::string("IPMB-A enabled, IPMB-B disabled")));
    EXPECT_THAT(describe(0xF2, kSensorSpecific, 0x02),
                Optional(std::string("Quiesced")));
    EXPECT_THAT(describe(0x0D, kSensorSpecific, 0x01),
                Optional(std::string("Drive Fault")));
    // Types and offsets with no entries.
    EXPECT_EQ(describe(0x01, kSensorSpecific, 0x00), std::nullopt);
    EXPECT_EQ(describe(0xF3, kSensorSpecific, 0x00), std::nullopt);
    EXPECT_EQ(describe(0xFF, kSensorSpecific, 0x00), std::nullopt);
    EXPECT_EQ(describe(0x23, kSensorSpecific, 0x04), std::nullopt);
}

TEST(EventDescriptions, OemEventTypesGiveNoText)
{
    for (int type = 0x70; type <= 0x7E; ++type)
    {
        EXPECT_EQ(describe(0x0F, type, 0x00), std::nullopt) << type;
        EXPECT_EQ(describe(0x0F, 0x80 | type, 0x00), std::nullopt) << type;
    }
    EXPECT_EQ(describe(0x0F, 0x75, 0x00), std::nullopt);
    EXPECT_EQ(describe(0x0F, 0x7F, 0x00), std::nullopt);
}

TEST(EventDescriptions, NullArgumentsAreHarmless)
{
    uint8_t rec[16] = {};
    rec[12] = 0x01;
    ipmi_get_event_desc(rec, nullptr);
    char untouched = 'x';
    char* desc = &untouched;
    ipmi_get_event_desc(nullptr, &desc);
    EXPECT_EQ(desc, nullptr);
}

// ---- Unit texts -----------------------------------------------------------

std::string unit(bool pct, uint8_t relation, uint8_t base, uint8_t modifier)
{
    char dst[64];
    std::memset(dst, '#', sizeof dst);
    EXPECT_EQ(ipmi_sdr_get_unit_string(pct, relation, base, modifier, dst),
              dst);
    EXPECT_NE(std::memchr(dst, '\0', sizeof dst), nullptr);
    return dst;
}

TEST(UnitStrings, EveryCodeHasANameUpTo92)
{
    for (int code = 0; code <= 0xFF; ++code)
    {
        const auto text = unit(false, 0, code, 0);
        if (code <= 92)
        {
            EXPECT_NE(text, "invalid") << code;
            EXPECT_LE(text.size(), 23U) << code;
        }
        else
        {
            EXPECT_EQ(text, "invalid") << code;
        }
    }
    EXPECT_EQ(unit(false, 0, 0, 0), "unspecified");
    EXPECT_EQ(unit(false, 0, 1, 0), "degrees C");
    EXPECT_EQ(unit(false, 0, 4, 0), "Volts");
    EXPECT_EQ(unit(false, 0, 22, 0), "second");
    EXPECT_EQ(unit(false, 0, 59, 0), "reserved");
    EXPECT_EQ(unit(false, 0, 65, 0), "color temp deg K");
    EXPECT_EQ(unit(false, 0, 92, 0), "grams");
}

TEST(UnitStrings, ModifierShowsTheBaseUnit)
{
    EXPECT_EQ(unit(false, 1, 4, 22), "Volts/Volts");
    EXPECT_EQ(unit(false, 2, 4, 22), "Volts*Volts");
    EXPECT_EQ(unit(false, 1, 4, 93), "Volts/invalid");
    EXPECT_EQ(unit(false, 1, 93, 4), "invalid/invalid");
    EXPECT_EQ(unit(false, 2, 0xFF, 0xFF), "invalid*invalid");
    // Relation 3 has no meaning and shows the base unit alone.
    EXPECT_EQ(unit(false, 3, 4, 22), "Volts");
}

TEST(UnitStrings, Percentages)
{
    EXPECT_EQ(unit(true, 0, 0, 0), "percent");
    EXPECT_EQ(unit(true, 0, 4, 0), "% Volts");
    EXPECT_EQ(unit(true, 0, 93, 0), "% invalid");
    EXPECT_EQ(unit(true, 1, 0, 0), "% unspecified/unspecified");
    EXPECT_EQ(unit(true, 2, 5, 6), "% Amps*Amps");
    EXPECT_EQ(ipmi_sdr_get_unit_string(true, 0, 0, 0, nullptr), nullptr);
}

// ---- Sensor type names ----------------------------------------------------

TEST(SensorTypes, NamesUpTo2CThenUnknown)
{
    for (int code = 0; code <= 0xFF; ++code)
    {
        char dst[64] = {};
        EXPECT_EQ(ipmi_get_sensor_type(code, dst), 0);
        const char* name = ipmi_get_generic_sensor_type(code);
        if (code <= 0x2C)
        {
            ASSERT_NE(name, nullptr) << code;
            EXPECT_STREQ(dst, name);
            EXPECT_LE(std::strlen(name), 31U);
            EXPECT_STRNE(name, "Unknown");
        }
        else
        {
            EXPECT_EQ(name, nullptr) << code;
            EXPECT_STREQ(dst, "Unknown") << code;
        }
    }
    EXPECT_STREQ(ipmi_get_generic_sensor_type(0x00), "reserved");
    EXPECT_STREQ(ipmi_get_generic_sensor_type(0x0F), "System Firmwares");
    EXPECT_STREQ(ipmi_get_generic_sensor_type(0x11), "Watchdog1");
    EXPECT_STREQ(ipmi_get_generic_sensor_type(0x2C), "FRU State");
    EXPECT_EQ(ipmi_get_sensor_type(0x01, nullptr), 0);
}

// ---- Backplane names ------------------------------------------------------

TEST(BackplaneNames, TenNulPaddedRows)
{
    static_assert(sizeof bpHddLocateName == 300);
    EXPECT_STREQ(bpHddLocateName[0], "UNKOWN");
    for (int zone = 0; zone < 10; ++zone)
    {
        const char* row = bpHddLocateName[zone];
        const std::size_t length = strnlen(row, 30);
        ASSERT_LT(length, 30U) << zone;
        EXPECT_EQ(length == 0, zone >= 8) << zone;
        for (std::size_t i = length; i < 30; ++i)
        {
            EXPECT_EQ(row[i], '\0') << zone;
        }
    }
}

} // namespace

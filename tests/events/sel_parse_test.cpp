// SPDX-License-Identifier: Apache-2.0
// SEL records to text through both decoders: the IPMI daemon's, which finds
// the sensor's description in the platform segment and leaves the event
// summary there, and the web daemon's, which is handed the description and
// touches nothing else. Every text is checked through both.
#include "events_test.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace
{

namespace segment = kv::segment;
namespace summary = kv::segment::event_summary;
using kv::test::PlatformSegmentTest;
using kv::test::TimeZone;

using Record = std::array<uint8_t, 16>;

constexpr uint32_t kPlaceholder = 0x4EFFA2E1; // 2012-01-01 00:03:45 UTC
const std::string kAt = "01/01/12  00:03:45 GMTUTC  ";

Record record(uint8_t sensor_type, uint8_t number, uint8_t dir_type,
              uint8_t data1, uint8_t data2, uint8_t data3,
              uint32_t time = kPlaceholder, uint8_t record_type = 0x02)
{
    Record rec = {0x21, 0x00, record_type};
    std::memcpy(&rec[3], &time, sizeof time); // little-endian on both ends
    const uint8_t rest[] = {0x20,     0x00,  0x04,  sensor_type, number,
                            dir_type, data1, data2, data3};
    std::memcpy(&rec[7], rest, sizeof rest);
    return rec;
}

// An oem event (no description, no details) of a temperature sensor.
Record oem_event(uint8_t number = 5, uint32_t time = kPlaceholder,
                 uint8_t record_type = 0x02)
{
    return record(0x01, number, 0x75, 0, 0, 0, time, record_type);
}

struct Analog
{
    uint16_t m = 1;
    double b = 0;
    int8_t k2 = 0;
    uint8_t unit_flags = 0;
    uint8_t base_unit = 1;
};

SensorRecord sensor(const char* name, const Analog& a = {})
{
    SensorRecord s{};
    std::memcpy(s.name, name, std::min(std::strlen(name), sizeof s.name));
    s.result_exponent = a.k2;
    s.multiplier[0] = static_cast<uint8_t>(a.m);
    s.multiplier[1] = static_cast<uint8_t>(a.m >> 8);
    std::memcpy(s.offset, &a.b, sizeof a.b);
    s.unit_flags = a.unit_flags;
    s.base_unit = a.base_unit;
    return s;
}

class SelText : public PlatformSegmentTest
{
  protected:
    void place(uint8_t number, const SensorRecord& s)
    {
        std::memcpy(shm_ + segment::sensor_record(number), &s, sizeof s);
    }

    // The text of both decoders, which must agree.
    std::string text(const Record& rec, const SensorRecord& s)
    {
        place(rec[11], s);
        std::vector<char> ipmi(4096, '\0');
        std::vector<char> web(4096, '\0');
        EXPECT_EQ(ipmi_parse_sel_entry(rec.data(), 0, shm_, ipmi.data()), 0);
        EXPECT_EQ(web_parse_sel_entry(rec.data(), 0, s, web.data()), 0);
        EXPECT_STREQ(ipmi.data(), web.data());
        return ipmi.data();
    }

    // What follows "Asserted" or "Deasserted".
    std::string details(const Record& rec, const SensorRecord& s)
    {
        const std::string line = text(rec, s);
        return line.substr(line.find("sserted") + 7);
    }

    std::string field(size_t offset)
    {
        const auto* at = reinterpret_cast<const char*>(
            shm_ + segment::kEventSummary + offset);
        return {at, strnlen(at, 32)};
    }

    uint8_t summary_number()
    {
        return shm_[segment::kEventSummary + summary::kSensorNumber];
    }

    const TimeZone utc_{"UTC"};
};

TEST_F(SelText, WholeLines)
{
    const struct
    {
        const char* tz;
        Record rec;
        const char* name;
        std::string text;
    } cases[] = {
        {"UTC", record(0x01, 5, 0x01, 0x59, 87, 85), "CPU0 Temp",
         kAt + "Temperature CPU0 Temp  Upper Critical going high  Asserted  "
               "Reading 87 > Threshold 85 degrees C"},
        // A going-low text keeps its trailing blank.
        {"UTC", record(0x01, 5, 0x81, 0x50, 12, 12), "CPU0 Temp",
         kAt + "Temperature CPU0 Temp  Lower Non-critical going low   "
               "Deasserted  Reading 12 < Threshold 12 degrees C"},
        {"UTC", record(0xC4, 5, 0x70, 0, 0, 0), "",
         kAt + "Unknown #0x05    Asserted"},
        {"UTC", record(0xC1, 5, 0x6F, 0x04, 0, 0), "",
         kAt + "Unknown #0x05  Hotswap Healty  Asserted"},
        // FRU State names the device by number, name or not; no name and
        // sensor 0 leave the type and the blanks.
        {"UTC", record(0x2C, 7, 0x75, 0, 0, 0), "FRU",
         kAt + "FRU State ID = 7     Asserted"},
        {"UTC", oem_event(0x1F), "", kAt + "Temperature #0x1f    Asserted"},
        {"UTC", oem_event(0), "", kAt + "Temperature    Asserted"},
        // Start-up times show the count less the zone's whole hours.
        {"UTC", oem_event(5, 0x1000), "T",
         " Pre-Init  0000004096 Temperature T    Asserted"},
        {"UTC-8", oem_event(5, 0x1000), "T",
         " Pre-Init  -000024704 Temperature T    Asserted"},
        {"America/Bogota", oem_event(5, 0x1000), "T",
         " Pre-Init  0000022096 Temperature T    Asserted"},
        // The raw value decides: the first clock time is a date and a time
        // although the adjusted one counts as start-up time.
        {"UTC-8", oem_event(5, 0x20000000), "T",
         "S+ 87/005  10:48:32 GMTGMT  Temperature T    Asserted"},
        // Eight hours are taken off and the local clock adds them back.
        {"Asia/Shanghai", oem_event(), "T",
         "01/01/12  00:03:45 GMTCST  Temperature T    Asserted"},
        // Records from type 0xE0 on have no time; an unknown time leaves
        // only the blanks.
        {"UTC", oem_event(5, kPlaceholder, 0xE1), "T",
         "Temperature T    Asserted"},
        {"UTC", oem_event(5, kPlaceholder, 0xDF), "T",
         kAt + "Temperature T    Asserted"},
        {"UTC", oem_event(5, 0xFFFFFFFF, 0xC0), "T",
         "    Temperature T    Asserted"},
    };
    for (const auto& c : cases)
    {
        const TimeZone zone(c.tz);
        EXPECT_EQ(text(c.rec, sensor(c.name)), c.text);
    }
}

TEST_F(SelText, ReadingsAndThresholds)
{
    const struct
    {
        Analog analog;
        uint8_t data1, data2, data3;
        const char* reading;
    } cases[] = {
        {{.b = 0.5}, 0x59, 12, 11, "12.50 > Threshold 11.50 degrees C"},
        {{}, 0x59, 12, 12, "12 > Threshold 12 degrees C"},
        {{.b = -12.25}, 0x59, 12, 12, "-0.25 > Threshold -0.25 degrees C"},
        // Beyond the int range a value is never taken for a whole one.
        {{.b = 3e9},
         0x59,
         0,
         0,
         "3000000000.00 > Threshold 3000000000.00 "
         "degrees C"},
        // Data 2 without the reading shows 0; without data 3 no threshold.
        {{.b = 0.5}, 0x09, 200, 85, "0"},
        {{.b = 0.5}, 0x49, 20, 85, "20.50"},
        {{.k2 = -2}, 0x57, 123, 45, "1.23 > Threshold 0.45 degrees C"},
        // Unit flags: percentage, then the relation; the base unit stands
        // for the modifier too.
        {{.unit_flags = 3, .base_unit = 4},
         0x59,
         1,
         1,
         "1 > Threshold 1 % "
         "Volts/Volts"},
        {{.unit_flags = 4, .base_unit = 4},
         0x59,
         1,
         1,
         "1 > Threshold 1 "
         "Volts*Volts"},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(details(record(0x02, 9, 0x01, c.data1, c.data2, c.data3),
                          sensor("V", c.analog)),
                  std::string("  Reading ") + c.reading);
    }
}

TEST_F(SelText, PlatformDetails)
{
    const struct
    {
        Record rec;
        std::string details;
    } cases[] = {
        // Only data 1 = 0x05 names a virtual drive.
        {record(0x0D, 3, 0x6F, 0x05, 4, 0xFF), "  Virtual Drive 4"},
        {record(0x0D, 3, 0x6F, 0x85, 4, 0xFF), "  Driver Slot 4"},
        {record(0x0D, 3, 0x6F, 0x01, 9, 0xFF), "  Driver Slot 9"},
        {record(0x0C, 0, 0x6F, 0x20, 0, 0x23), "  CPU 3 DIMM 2"},
        {record(0x0C, 1, 0x6F, 0x20, 0, 0x23), ""},
        {record(0x0C, 0, 0x6F, 0x10, 0, 0x23), ""},
        {record(0x2B, 4, 0x6F, 0x01, 0x09, 17), "  (ID = 17)"},
        {record(0x1B, 4, 0x08, 0x01, 1, 2), "  NIC 2 PORT 1"},
        {record(0x0D, 4, 0x08, 0x01, 0x35, 0x85),
         "  " + std::string(bpHddLocateName[3]) + " ZONE 5 SLOT 5"},
        {record(0x0D, 4, 0x08, 0x01, 0x02, 0x07), "  UNKOWN ZONE 2 SLOT 7"},
        {record(0x0D, 4, 0x08, 0x01, 0x81, 0x07), "   ZONE 1 SLOT 7"},
        // Zones past the list read as the unidentified backplane.
        {record(0x0D, 4, 0x08, 0x01, 0xA2, 0x07), "  UNKOWN ZONE 2 SLOT 7"},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(details(c.rec, sensor("")), c.details);
    }
}

TEST_F(SelText, RecordTypeF0AndMissingArgumentsAreRefused)
{
    const Record refused =
        record(0x01, 0x21, 0x01, 0x59, 87, 85, kPlaceholder, 0xF0);
    const auto s = sensor("CPU0 Temp");
    place(0x21, s);
    char out[64] = "keep";
    EXPECT_EQ(web_parse_sel_entry(refused.data(), 0, s, nullptr), -1);
    EXPECT_EQ(web_parse_sel_entry(refused.data(), 0, s, out), -1);
    EXPECT_EQ(web_parse_sel_entry(nullptr, 0, s, out), -1);
    EXPECT_EQ(ipmi_parse_sel_entry(refused.data(), 0, shm_, nullptr), -1);
    EXPECT_EQ(ipmi_parse_sel_entry(nullptr, 0, shm_, out), -1);
    EXPECT_EQ(ipmi_parse_sel_entry(refused.data(), 0, nullptr, out), -1);
    EXPECT_EQ(summary_number(), 0);
    // The IPMI decoder names the sensor in the summary before it refuses
    // the record type.
    EXPECT_EQ(ipmi_parse_sel_entry(refused.data(), 0, shm_, out), -1);
    EXPECT_STREQ(out, "keep");
    EXPECT_EQ(summary_number(), 0x21);
    EXPECT_EQ(field(summary::kSensorName), "");
}

TEST_F(SelText, TextIsAppendedToWhatIsThere)
{
    const Record rec = oem_event(5, kPlaceholder, 0xE1);
    const auto s = sensor("T");
    place(5, s);
    char ipmi[128] = "[1] ";
    char web[128] = "[1] ";
    ASSERT_EQ(ipmi_parse_sel_entry(rec.data(), 0, shm_, ipmi), 0);
    ASSERT_EQ(web_parse_sel_entry(rec.data(), 0, s, web), 0);
    EXPECT_STREQ(ipmi, "[1] Temperature T    Asserted");
    EXPECT_STREQ(web, ipmi);
}

TEST_F(SelText, SummaryOfTheLastDecodedEvent)
{
    text(record(0x01, 0x42, 0x01, 0x59, 87, 85), sensor("CPU0 Temp"));
    EXPECT_EQ(summary_number(), 0x42);
    EXPECT_EQ(field(summary::kSensorName), "CPU0 Temp");
    EXPECT_EQ(field(summary::kSensorType), "Temperature");
    EXPECT_EQ(field(summary::kTimestamp), "2012-01-01T00:03:45UTC:00");

    // A record without a time leaves the earlier time; a name-less sensor
    // the earlier name.
    text(record(0x07, 0x10, 0x6F, 0x00, 0, 0, 0, 0xE0), sensor(""));
    EXPECT_EQ(summary_number(), 0x10);
    EXPECT_EQ(field(summary::kSensorName), "CPU0 Temp");
    EXPECT_EQ(field(summary::kSensorType), "Processor");
    EXPECT_EQ(field(summary::kTimestamp), "2012-01-01T00:03:45UTC:00");

    // Start-up times are shown in UTC; unknown ones as such.
    text(oem_event(1, 0x1000), sensor("T"));
    EXPECT_EQ(field(summary::kTimestamp), "1970-01-01T01:08:16GMT:00");
    text(oem_event(1, 0xFFFFFFFF), sensor("T"));
    EXPECT_EQ(field(summary::kTimestamp), "Unknown");
}

TEST_F(SelText, SummaryFieldsStayInsideTheirBounds)
{
    // A time text of 32 characters or more fills its field without a
    // terminator and stops there.
    const TimeZone zone("<ABCDEFGHIJKLMN>-1");
    std::memset(shm_ + segment::kEventSummary + summary::kSeverity, 0xEE, 16);
    text(oem_event(3), sensor(std::string(40, 'n').c_str()));
    const auto* time = shm_ + segment::kEventSummary + summary::kTimestamp;
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(time), 32),
              "2012-01-01T00:03:45ABCDEFGHIJKLM");
    EXPECT_EQ(time[32], 0xEE);
    // A name longer than its field is cut to it; the type stays whole.
    EXPECT_EQ(field(summary::kSensorName), std::string(31, 'n'));
    EXPECT_EQ(field(summary::kSensorType), "Temperature");
}

TEST_F(SelText, UnterminatedNameEndsWithItsRecord)
{
    SensorRecord s{};
    constexpr size_t kNameAt = offsetof(SensorRecord, name);
    std::memset(reinterpret_cast<uint8_t*>(&s) + kNameAt, 'N',
                sizeof s - kNameAt);
    EXPECT_EQ(text(oem_event(6, kPlaceholder, 0xE1), s),
              "Temperature " + std::string(sizeof s - kNameAt, 'N') +
                  "    Asserted");
    EXPECT_EQ(field(summary::kSensorName), std::string(31, 'N'));
}

TEST_F(SelText, WebDecoderLeavesTheSegmentAlone)
{
    std::memset(shm_ + segment::kEventSummary, 0x5A, sizeof(EventInfo));
    const std::vector<uint8_t> before(shm_, shm_ + 256 * 1024);
    char out[512] = "";
    const Record rec = record(0x01, 5, 0x01, 0x59, 87, 85);
    ASSERT_EQ(web_parse_sel_entry(rec.data(), 0, sensor("CPU0 Temp"), out), 0);
    EXPECT_EQ(std::memcmp(before.data(), shm_, before.size()), 0);
    EXPECT_NE(out[0], '\0');
}

// Records and descriptions of random bytes, with the record types, times,
// sensor and event types the decoder tells apart drawn more often.
TEST_F(SelText, BothDecodersWriteTheSameTextForAnyRecord)
{
    const TimeZone zone("Asia/Kolkata");
    std::mt19937 engine{20240601};
    auto any = [&] { return static_cast<uint8_t>(engine()); };
    auto pick = [&](std::initializer_list<uint8_t> values) {
        return engine() % 2 == 0 ? values.begin()[engine() % values.size()]
                                 : any();
    };
    std::vector<char> ipmi(4096);
    std::vector<char> web(4096);
    int decoded = 0;
    for (int i = 0; i < 20000; ++i)
    {
        Record rec{};
        std::generate(rec.begin(), rec.end(), any);
        rec[2] = pick({0x02, 0xC3, 0xDF, 0xE0, 0xE1, 0xF0});
        rec[6] = pick({0x00, 0x1F, 0x20, 0x4E, 0x80, 0xFF});
        rec[10] = pick(
            {0x01, 0x07, 0x08, 0x0C, 0x0D, 0x0F, 0x1B, 0x2B, 0x2C, 0xC1, 0xC4});
        rec[12] = pick({0x01, 0x81, 0x6F, 0xEF, 0x08, 0x07, 0x70, 0x7F});
        SensorRecord s = sensor(engine() % 2 == 0 ? "" : "Sensor",
                                {.m = any(),
                                 .b = (any() - 128) / 4.0,
                                 .k2 = static_cast<int8_t>(pick({0, 1, 0xFE})),
                                 .unit_flags = static_cast<uint8_t>(any() & 7),
                                 .base_unit = pick({0, 1, 4, 92, 93})});
        if (engine() % 4 == 0)
        {
            auto* bytes = reinterpret_cast<uint8_t*>(&s);
            std::generate(bytes, bytes + sizeof s, any);
        }
        place(rec[11], s);
        std::fill(ipmi.begin(), ipmi.end(), '\0');
        std::fill(web.begin(), web.end(), '\0');
        const int ipmi_result =
            ipmi_parse_sel_entry(rec.data(), 0, shm_, ipmi.data());
        ASSERT_EQ(ipmi_result,
                  web_parse_sel_entry(rec.data(), 0, s, web.data()))
            << "record " << i;
        ASSERT_STREQ(ipmi.data(), web.data()) << "record " << i;
        ASSERT_EQ(ipmi_result, rec[2] == 0xF0 ? -1 : 0);
        decoded += ipmi_result == 0;
    }
    EXPECT_GT(decoded, 15000);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// SEL records to text through both decoders: the IPMI daemon's, which finds
// the sensor's description in the platform segment and leaves the event
// summary there, and the web daemon's, which is handed the description and
// touches nothing else. Also the time texts and reading conversion.
#include "events_test.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace
{

namespace segment = kv::segment;
namespace summary = kv::segment::event_summary;
using namespace kv::test;
using Record = std::array<uint8_t, 16>;

constexpr uint32_t kPlaceholder = 0x4EFFA2E1; // 2012-01-01 00:03:45 UTC
const std::string kAt = "01/01/12  00:03:45 GMTUTC  ";

Record record(uint8_t sensor_type, uint8_t number, uint8_t dir_type,
              uint8_t data1, uint8_t data2, uint8_t data3,
              uint32_t time = kPlaceholder, uint8_t record_type = 2)
{
    Record rec = {0x21, 0, record_type};
    std::memcpy(&rec[3], &time, 4); // little-endian on both ends
    const uint8_t rest[] = {0x20,     0,     4,     sensor_type, number,
                            dir_type, data1, data2, data3};
    std::memcpy(&rec[7], rest, sizeof rest);
    return rec;
}

// An OEM event (no description, no details) of a temperature sensor.
Record oem(uint32_t time = kPlaceholder, uint8_t record_type = 2,
           uint8_t number = 5)
{
    return record(1, number, 0x75, 0, 0, 0, time, record_type);
}

struct Analog
{
    uint16_t m = 1;
    double b = 0;
    int8_t k2 = 0;
    uint8_t unit_flags = 0, base_unit = 1;
    uint16_t format = 0;
    uint8_t linearization = 0;
};

SensorRecord sensor(const char* name, const Analog& a = {})
{
    SensorRecord s{};
    std::strncpy(s.name, name, sizeof s.name);
    s.result_exponent = a.k2;
    std::memcpy(s.multiplier, &a.m, 2);
    std::memcpy(s.offset, &a.b, 8);
    s.unit_flags = a.unit_flags;
    s.base_unit = a.base_unit;
    std::memcpy(s.analog_format, &a.format, 2);
    s.linearization[0] = a.linearization;
    return s;
}

class SelText : public PlatformSegmentTest
{
  protected:
    // The text of both decoders, which must agree, appended to what the
    // buffers hold; the web decoder leaves the segment alone.
    std::string text(const Record& rec, const SensorRecord& s)
    {
        std::memcpy(shm_ + segment::sensor_record(rec[11]), &s, sizeof s);
        std::vector<char> ipmi(4096), web(4096);
        ipmi[0] = web[0] = '>';
        EXPECT_EQ(ipmi_parse_sel_entry(rec.data(), 0, shm_, ipmi.data()), 0);
        const std::vector<uint8_t> before(shm_, shm_ + 256 * 1024);
        EXPECT_EQ(web_parse_sel_entry(rec.data(), 0, s, web.data()), 0);
        EXPECT_EQ(std::memcmp(before.data(), shm_, before.size()), 0);
        EXPECT_STREQ(ipmi.data(), web.data());
        return ipmi.data() + (ipmi[0] == '>');
    }

    std::string field(size_t offset)
    {
        const auto* at = reinterpret_cast<const char*>(
            shm_ + segment::kEventSummary + offset);
        return {at, strnlen(at, 32)};
    }

    uint8_t& number()
    {
        return shm_[segment::kEventSummary + summary::kSensorNumber];
    }

    const TimeZone utc_{"UTC"};
};

TEST_F(SelText, WholeLines)
{
    const std::tuple<const char*, Record, const char*, std::string> cases[] = {
        {"UTC", record(1, 5, 1, 0x59, 87, 85), "CPU0 Temp",
         kAt + "Temperature CPU0 Temp  Upper Critical going high  Asserted  "
               "Reading 87 > Threshold 85 degrees C"},
        // A going-low text keeps its trailing blank.
        {"UTC", record(1, 5, 0x81, 0x50, 12, 12), "CPU0 Temp",
         kAt + "Temperature CPU0 Temp  Lower Non-critical going low   "
               "Deasserted  Reading 12 < Threshold 12 degrees C"},
        {"UTC", record(0xC4, 0x1F, 0x70, 0, 0, 0), "",
         kAt + "Unknown #0x1f    Asserted"},
        // FRU State names the device by number, name or not; no name and
        // sensor 0 leave the type and the blanks.
        {"UTC", record(0x2C, 7, 0x75, 0, 0, 0), "FRU",
         kAt + "FRU State ID = 7     Asserted"},
        {"UTC", oem(kPlaceholder, 2, 0), "", kAt + "Temperature    Asserted"},
        // Start-up times show the count less the zone's whole hours.
        {"UTC", oem(0x1000), "T", " Pre-Init  0000004096 Temperature T"},
        {"UTC-8", oem(0x1000), "T", " Pre-Init  -000024704 Temperature T"},
        // The raw value decides: the first clock time is a date and a time
        // although the adjusted one counts as start-up time.
        {"UTC-8", oem(0x20000000), "T",
         "S+ 87/005  10:48:32 GMTGMT  Temperature T"},
        // Eight hours are taken off and the local clock adds them back.
        {"Asia/Shanghai", oem(), "T",
         "01/01/12  00:03:45 GMTCST  Temperature T"},
        // Records from type 0xE0 on have no time; an unknown time leaves
        // only the blanks.
        {"UTC", oem(kPlaceholder, 0xE0), "T", "Temperature T"},
        {"UTC", oem(kPlaceholder, 0xDF), "T", kAt + "Temperature T"},
        {"UTC", oem(0xFFFFFFFF, 0xC0), "T", "    Temperature T"},
    };
    for (const auto& [tz, rec, name, line] : cases)
    {
        const TimeZone zone(tz);
        const std::string got = text(rec, sensor(name));
        EXPECT_EQ(got, line.ends_with("Temperature T") ? line + "    Asserted"
                                                       : line);
    }
}

// What follows "Asserted".
TEST_F(SelText, Details)
{
    const std::tuple<Record, Analog, std::string> cases[] = {
        {record(2, 9, 1, 0x59, 12, 11),
         {.b = 0.5},
         "  Reading 12.50 > Threshold 11.50 degrees C"},
        {record(2, 9, 1, 0x59, 12, 12),
         {.b = -12.25},
         "  Reading -0.25 > Threshold -0.25 degrees C"},
        // Beyond the int range a value is never taken for a whole one.
        {record(2, 9, 1, 0x59, 0, 0),
         {.b = 3e9},
         "  Reading 3000000000.00 > Threshold 3000000000.00 degrees C"},
        // Data 2 without the reading shows 0; without data 3 no threshold.
        {record(2, 9, 1, 0x09, 200, 85), {.b = 0.5}, "  Reading 0"},
        {record(2, 9, 1, 0x49, 20, 85), {.b = 0.5}, "  Reading 20.50"},
        // Percentage, then the relation; the base unit stands for the
        // modifier too.
        {record(2, 9, 1, 0x59, 1, 1),
         {.unit_flags = 3, .base_unit = 4},
         "  Reading 1 > Threshold 1 % Volts/Volts"},
        {record(2, 9, 1, 0x59, 1, 1),
         {.unit_flags = 4, .base_unit = 4},
         "  Reading 1 > Threshold 1 Volts*Volts"},
        // Only data 1 = 0x05 names a virtual drive.
        {record(0x0D, 3, 0x6F, 0x05, 4, 0xFF), {}, "  Virtual Drive 4"},
        {record(0x0D, 3, 0x6F, 0x85, 4, 0xFF), {}, "  Driver Slot 4"},
        {record(0x0C, 0, 0x6F, 0x20, 0, 0x23), {}, "  CPU 3 DIMM 2"},
        {record(0x0C, 1, 0x6F, 0x20, 0, 0x23), {}, ""},
        {record(0x0C, 0, 0x6F, 0x10, 0, 0x23), {}, ""},
        {record(0x2B, 4, 0x6F, 0x01, 0x09, 17), {}, "  (ID = 17)"},
        {record(0x1B, 4, 0x08, 0x01, 1, 2), {}, "  NIC 2 PORT 1"},
        {record(0x0D, 4, 0x08, 0x01, 0x35, 0x85),
         {},
         "  " + std::string(bpHddLocateName[3]) + " ZONE 5 SLOT 5"},
        {record(0x0D, 4, 0x08, 0x01, 0x81, 0x07), {}, "   ZONE 1 SLOT 7"},
        // Zones past the list read as the unidentified backplane.
        {record(0x0D, 4, 0x08, 0x01, 0xA2, 0x07), {}, "  UNKOWN ZONE 2 SLOT 7"},
    };
    for (const auto& [rec, analog, details] : cases)
    {
        const std::string line = text(rec, sensor("", analog));
        EXPECT_EQ(line.substr(line.find("Asserted") + 8), details);
    }
}

TEST_F(SelText, RecordTypeF0AndMissingArgumentsAreRefused)
{
    const Record refused = oem(kPlaceholder, 0xF0, 0x21);
    char out[64] = "keep";
    EXPECT_EQ(web_parse_sel_entry(refused.data(), 0, sensor(""), nullptr), -1);
    EXPECT_EQ(web_parse_sel_entry(refused.data(), 0, sensor(""), out), -1);
    EXPECT_EQ(web_parse_sel_entry(nullptr, 0, sensor(""), out), -1);
    EXPECT_EQ(ipmi_parse_sel_entry(refused.data(), 0, shm_, nullptr), -1);
    EXPECT_EQ(ipmi_parse_sel_entry(nullptr, 0, shm_, out), -1);
    EXPECT_EQ(ipmi_parse_sel_entry(refused.data(), 0, nullptr, out), -1);
    EXPECT_EQ(number(), 0);
    // The IPMI decoder names the sensor in the summary before it refuses
    // the record type.
    EXPECT_EQ(ipmi_parse_sel_entry(refused.data(), 0, shm_, out), -1);
    EXPECT_STREQ(out, "keep");
    EXPECT_EQ(number(), 0x21);
}

TEST_F(SelText, SummaryOfTheLastDecodedEvent)
{
    const auto sum = [&](const Record& rec, const char* name) {
        text(rec, sensor(name));
        return std::to_string(number()) + "|" + field(summary::kSensorName) +
               "|" + field(summary::kSensorType) + "|" +
               field(summary::kTimestamp);
    };
    EXPECT_EQ(sum(record(1, 0x42, 1, 0x59, 87, 85), "CPU0 Temp"),
              "66|CPU0 Temp|Temperature|2012-01-01T00:03:45UTC:00");
    // No time keeps the earlier time; no name the earlier name.
    EXPECT_EQ(sum(record(7, 0x10, 0x6F, 0, 0, 0, 0, 0xE0), ""),
              "16|CPU0 Temp|Processor|2012-01-01T00:03:45UTC:00");
    // Start-up times are shown in UTC; unknown ones as such.
    EXPECT_EQ(sum(oem(0x1000), "T"),
              "5|T|Temperature|1970-01-01T01:08:16GMT:00");
    EXPECT_EQ(sum(oem(0xFFFFFFFF), "T"), "5|T|Temperature|Unknown");

    // A time text of 32 characters fills its field without a terminator;
    // a name is cut to its field; an unterminated one ends with its record.
    const TimeZone zone("<ABCDEFGHIJKLMN>-1");
    uint8_t* time = shm_ + segment::kEventSummary + summary::kTimestamp;
    time[32] = 0xEE;
    SensorRecord s{};
    const size_t size = sizeof s - offsetof(SensorRecord, name);
    std::memset(reinterpret_cast<char*>(&s) + sizeof s - size, 'N', size);
    EXPECT_EQ(text(oem(), s), "01/01/12  00:03:45 GMTABCDEFGHIJKLMN  "
                              "Temperature " +
                                  std::string(size, 'N') + "    Asserted");
    EXPECT_EQ(field(summary::kSensorName), std::string(31, 'N'));
    EXPECT_EQ(field(summary::kTimestamp), "2012-01-01T00:03:45ABCDEFGHIJKLM");
    EXPECT_EQ(time[32], 0xEE);
}

// Without TZ the zone comes from /etc/localtime; a new zone file shows in
// the texts within a second.
TEST(SelZoneFile, ANewZoneFileShowsWithinASecond)
{
    const auto zone_of_text = [] {
        char out[256] = "";
        web_parse_sel_entry(oem().data(), 0, sensor("T"), out);
        return std::string(out).substr(19, 6);
    };
    const TimeZone restore_tz("UTC");
    unsetenv("TZ");
    point_localtime_at("Asia/Tokyo");
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    ASSERT_EQ(zone_of_text(), "GMTJST");
    point_localtime_at("Etc/GMT+5");
    const auto changed = std::chrono::steady_clock::now();
    while (zone_of_text() == "GMTJST" &&
           std::chrono::steady_clock::now() - changed < std::chrono::seconds(2))
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(zone_of_text(), "GMT-05");
    // A second, and room for a loaded machine's scheduling.
    EXPECT_LE(std::chrono::steady_clock::now() - changed,
              std::chrono::milliseconds(1500));
}

TEST(SelTime, Texts)
{
    const TimeZone zone("UTC-8");
    const std::pair<uint32_t, const char*> cases[] = {
        {0xFFFFFFFF, "Unknown"},
        // Start-up times are shown in UTC up to 0x20000000, and so are
        // times past 2038 (negative as signed values).
        {0x1000, "1970-01-01 01:08:16 001 Thu GMT"},
        {0x20000000, "1987-01-05 18:48:32 005 Mon GMT"},
        {0x20000001, "1987-01-06 02:48:33 006 Tue UTC"},
        {0x80000000, "2038-01-19 03:14:08 019 Tue GMT"},
        {0xFFFFFFFE, "2106-02-07 06:28:14 038 Sun GMT"},
    };
    for (const auto& [t, text] : cases)
    {
        char buf[80];
        EXPECT_EQ(ipmi_strftime(buf, sizeof buf, "%F %T %j %a %Z", t),
                  std::strlen(text));
        EXPECT_STREQ(buf, text);
    }
    // Text that does not fit gives nothing.
    char buf[4] = "abc";
    EXPECT_EQ(ipmi_strftime(buf, sizeof buf, "%Y-%m", kPlaceholder), 0U);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(ipmi_strftime(buf, sizeof buf, nullptr, kPlaceholder), 0U);
    EXPECT_EQ(ipmi_strftime(nullptr, 4, "%Y", kPlaceholder), 0U);
    EXPECT_TRUE(ipmi_timestamp_is_special(-28800));
    EXPECT_FALSE(ipmi_timestamp_is_valid(-1));

    // Start-up dates: seconds since start as year and day of the year.
    char date[16] = "";
    EXPECT_STREQ(ipmi_timestamp_date(100 * 86400 + 5, date), "S+ 70/101");
    EXPECT_EQ(ipmi_timestamp_date(-1, date), nullptr);
    EXPECT_EQ(ipmi_timestamp_time(-1, date), date);
    EXPECT_STREQ(date, "S+ 70/101");
    // One buffer for every formatted time.
    char* first = ipmi_timestamp_fmt(kPlaceholder, "%m");
    EXPECT_STREQ(first, "01");
    ipmi_timestamp_date(kPlaceholder, date);
    EXPECT_STREQ(first, "01/01/12");
}

// y = L((M * x + B) * 10^K2)
TEST(SensorReading, FormulaOfTheDescription)
{
    const std::tuple<Analog, uint8_t, double> cases[] = {
        {{.m = 0x1234}, 2, 2.0 * 0x1234}, // M is little-endian
        {{.m = 2, .b = -1.5, .k2 = -1}, 10, (20 - 1.5) * 0.1},
        {{.m = 3, .b = 0.5, .k2 = 2}, 4, 1250.0},
        // One's complement: 0xFF is minus zero.
        {{.format = 1}, 0xFF, 0.0},
        {{.format = 1}, 0xFE, -1.0},
        {{.format = 1}, 0x80, -127.0},
        {{.format = 1}, 0x7F, 127.0},
        {{.m = 2, .format = 2}, 0xFF, -2.0},
        {{.m = 2, .format = 2}, 0x80, -256.0},
        // Any other format gives no analog reading.
        {{.b = 5, .format = 3}, 9, 0.0},
        {{.b = 5, .format = 0x100}, 9, 0.0},
        // Linearisation; bit 7 is not part of the code.
        {{.linearization = 1}, 8, std::log(8.0)},
        {{.linearization = 2}, 8, std::log10(8.0)},
        {{.linearization = 3}, 8, 3.0},
        {{.linearization = 4}, 8, std::exp(8.0)},
        {{.linearization = 5}, 8, 1e8},
        {{.linearization = 6}, 8, 256.0},
        {{.linearization = 7}, 8, 0.125},
        {{.linearization = 8}, 8, 64.0},
        {{.linearization = 9}, 8, 512.0},
        {{.linearization = 10}, 8, std::sqrt(8.0)},
        {{.linearization = 11}, 8, 2.0},
        {{.linearization = 12}, 8, 8.0},
        {{.linearization = 0x7F}, 8, 8.0},
        {{.linearization = 0x82}, 8, std::log10(8.0)},
    };
    for (const auto& [analog, raw, value] : cases)
    {
        EXPECT_NEAR(sdr_convert_sensor_reading(sensor("", analog), raw), value,
                    1e-9 * std::fabs(value))
            << raw << " " << int(analog.linearization);
    }
}

} // namespace

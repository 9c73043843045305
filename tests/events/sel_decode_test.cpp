// SPDX-License-Identifier: Apache-2.0
// SEL records to text: the description tables, and both decoders, the IPMI
// daemon's (reads the sensor's description from the platform segment and
// leaves the event summary there) and the web daemon's (is handed the
// description and touches nothing else). Also times, zones and readings.
#include "events/sel_tables.h"
#include "events_test.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

namespace
{

std::atomic<std::time_t> fixed_now{-1}; // -1: the real clock

} // namespace

// The library's time() binds to this definition ahead of the C library's.
extern "C" std::time_t time(std::time_t* out)
{
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    const std::time_t now = fixed_now >= 0 ? fixed_now.load() : real.tv_sec;
    if (out != nullptr)
    {
        *out = now;
    }
    return now;
}

namespace
{

namespace segment = kv::segment;
namespace summary = kv::segment::event_summary;

// TZ for the scope (the library reads the zone on every call); unset after.
struct TimeZone
{
    explicit TimeZone(const char* tz)
    {
        setenv("TZ", tz, 1);
        tzset();
    }
    ~TimeZone()
    {
        unsetenv("TZ");
        tzset();
    }
};

// Points /etc/localtime (the sandbox's own copy of /etc) at `zone`.
void point_localtime_at(const std::string& zone)
{
    const std::string ln = "ln -sf /usr/share/zoneinfo/" + zone;
    ASSERT_EQ(std::system((ln + " /etc/localtime").c_str()), 0);
}
using namespace kv::detail;
using Record = std::array<uint8_t, 16>;

constexpr uint32_t kPlaceholder = 0x4EFFA2E1; // 2012-01-01 00:03:45 UTC
const std::string kAt = "01/01/12  00:03:45 GMTUTC  ";
constexpr EventTable kTables[] = {
    EventTable::generic, EventTable::sensor_specific, EventTable::vendor};

Record record(uint8_t type, uint8_t number, uint8_t dir_type, uint8_t data1,
              uint8_t data2, uint8_t data3, uint32_t time = kPlaceholder,
              uint8_t record_type = 2)
{
    Record rec = {0x21, 0, record_type, 0,      0,        0,     0,     0x20,
                  0,    4, type,        number, dir_type, data1, data2, data3};
    std::memcpy(&rec[3], &time, 4); // little-endian on both ends
    return rec;
}

// An OEM event (no description, no details) of a temperature sensor.
Record oem(uint32_t time = kPlaceholder, uint8_t record_type = 2,
           uint8_t number = 5)
{
    return record(1, number, 0x75, 0, 0, 0, time, record_type);
}

// The description of a record; the line builders count on 176 zeroed bytes
// after the text.
std::string describe(const Record& rec)
{
    char none = 0;
    char* desc = &none;
    ipmi_get_event_desc(rec.data(), &desc);
    if (desc == nullptr || desc == &none)
    {
        return desc == nullptr ? "<none>" : "<kept>";
    }
    std::string text = desc;
    EXPECT_EQ(std::string(desc + text.size(), 176), std::string(176, '\0'));
    std::free(desc);
    return text;
}

// Positions in the test's own copy of the tables; the walks stop at
// entries of no table.
TEST(EventTables, PositionsAndGenericOffsets)
{
    for (const EventTable table : kTables)
    {
        const auto entries = event_entries(table);
        const auto* end = entries.data() + entries.size();
        EXPECT_EQ(event_entry(table, entries.size() - 1), end - 1);
        EXPECT_EQ(event_entry(table, entries.size()), nullptr);
        EXPECT_EQ(event_table_of(end - 1), table);
        EXPECT_EQ(event_table_of(end), EventTable::none);
    }
    const kv_event_desc foreign[2] = {{1, 0, kAnyData, "a"},
                                      {1, 1, kAnyData, "b"}};
    EXPECT_EQ(ipmi_get_next_event_sensor_type(foreign), nullptr);
    EXPECT_EQ(ipmi_get_next_event_sensor_type(nullptr), nullptr);
    // Generic types 0x01-0x0C: offsets from 0, as many as IPMI defines.
    std::vector<int> offsets(13);
    for (const auto& e : event_entries(EventTable::generic))
    {
        ASSERT_LT(e.code, 13) << e.text;
        EXPECT_EQ(e.offset, offsets[e.code]++) << e.text;
        EXPECT_EQ(e.data, kAnyData) << e.text;
    }
    EXPECT_EQ(offsets,
              std::vector<int>({0, 12, 3, 2, 2, 2, 2, 9, 2, 2, 9, 8, 4}));
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
            const bool generic = table == EventTable::generic;
            const bool by_data = e.data != kAnyData;
            const std::string text = describe(record(
                generic ? 0xC1 : e.code, 0,
                (generic ? e.code : 0x6F) | (++i % 2 == 0 ? 0x80 : 0),
                e.offset | (by_data ? 0xC0 : 0), by_data ? e.data : 3, 0));
            // "Config Error" answers before the entry after it.
            EXPECT_EQ(text, std::strcmp(e.text, "Power Supply Inactive")
                                ? e.text
                                : "Config Error");
        }
    }
    const std::tuple<uint8_t, uint8_t, uint8_t, uint8_t, const char*> cases[] =
        {
            {0x0F, 0x6F, 0x40, 0x0B, "BIOS corruption detected"},
            {0x0F, 0x6F, 0x00, 0x0B, "Unknown Error"},
            {0x0F, 0x6F, 0xC0, 0x7E, "Unknown Error"},
            {0x2B, 0x6F, 0xC7, 0x18, "<none>"}, // no catch-all
            {0x01, 0x01, 0x0C, 0x00, "<none>"},
            {0x01, 0x0D, 0x00, 0x00, "<none>"},
            {0x23, 0x6F, 0x04, 0x00, "<none>"},
            {0xC0, 0x6F, 0x00, 0x00, "<none>"},
            {0xEF, 0x6F, 0x00, 0x00, "<none>"},
            {0xF3, 0x6F, 0x00, 0x00, "<none>"},
            {0x0F, 0x70, 0x00, 0x00, "<none>"}, // OEM event types
            {0x0F, 0x7E, 0x00, 0x00, "<none>"},
            {0x0F, 0x7F, 0x00, 0x00, "<none>"},
        };
    for (const auto& [type, dir, data1, data2, text] : cases)
    {
        EXPECT_EQ(describe(record(type, 0, dir, data1, data2, 0)), text);
    }
    char c = 0;
    char* desc = &c;
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

TEST(UnitAndSensorTypeNames, NamesThenInvalidOrUnknown)
{
    for (int code = 0; code <= 0xFF; ++code)
    {
        EXPECT_EQ(unit(false, 0, code, 0) == "invalid", code > 92) << code;
        char dst[64] = {};
        EXPECT_EQ(ipmi_get_sensor_type(code, dst), 0);
        const char* name = ipmi_get_generic_sensor_type(code);
        EXPECT_EQ(name != nullptr, code <= 0x2C) << code;
        EXPECT_STREQ(dst, name != nullptr ? name : "Unknown") << code;
    }
    EXPECT_STREQ(ipmi_get_generic_sensor_type(0x2C), "FRU State");
    EXPECT_EQ(ipmi_get_sensor_type(0x01, nullptr), 0);
    EXPECT_EQ(ipmi_sdr_get_unit_string(true, 0, 0, 0, nullptr), nullptr);
    // The modifier is checked for range; the base unit stands for it.
    const std::tuple<bool, uint8_t, uint8_t, uint8_t, const char*> cases[] = {
        {false, 0, 92, 0, "grams"},
        {false, 1, 4, 93, "Volts/invalid"},
        {false, 2, 93, 4, "invalid*invalid"},
        {false, 3, 4, 22, "Volts"}, // relation 3 means none
        {true, 0, 0, 0, "percent"},
        {true, 0, 4, 0, "% Volts"},
        {true, 1, 0, 0, "% unspecified/unspecified"},
    };
    for (const auto& [pct, relation, base, modifier, text] : cases)
    {
        EXPECT_EQ(unit(pct, relation, base, modifier), text);
    }
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

class SelText : public testing::Test
{
  protected:
    // The text of both decoders, which must agree, appended to what the
    // buffers hold; the web decoder leaves the segment alone.
    std::string text(const Record& rec, const SensorRecord& s)
    {
        std::memcpy(shm_ + segment::sensor_record(rec[11]), &s, sizeof s);
        char ipmi[4096] = ">", web[4096] = ">";
        EXPECT_EQ(ipmi_parse_sel_entry(rec.data(), 0, shm_, ipmi), 0);
        const std::vector<uint8_t> before(shm_, shm_ + 256 * 1024);
        EXPECT_EQ(web_parse_sel_entry(rec.data(), 0, s, web), 0);
        EXPECT_EQ(std::memcmp(before.data(), shm_, before.size()), 0);
        EXPECT_STREQ(ipmi, web);
        return ipmi + 1;
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

    uint8_t* shm_ = cleared_segment();
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
        EXPECT_EQ(text(rec, sensor(name)),
                  line.ends_with(" T") ? line + "    Asserted" : line);
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
// the texts within a second (and room for a loaded machine).
TEST(SelZoneFile, ANewZoneFileShowsWithinASecond)
{
    const auto zone_of_text = [] {
        char out[256] = "";
        web_parse_sel_entry(oem().data(), 0, sensor("T"), out);
        return std::string(out).substr(19, 6);
    };
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
        {0x20000000, "1987-01-05 18:48:32 005 Mon GMT"},
        {0x20000001, "1987-01-06 02:48:33 006 Tue UTC"},
        {0x80000000, "2038-01-19 03:14:08 019 Tue GMT"},
        {0xFFFFFFFE, "2106-02-07 06:28:14 038 Sun GMT"},
    };
    char buf[80];
    for (const auto& [t, text] : cases)
    {
        EXPECT_EQ(ipmi_strftime(buf, sizeof buf, "%F %T %j %a %Z", t),
                  std::strlen(text));
        EXPECT_STREQ(buf, text);
    }
    // Text that does not fit gives nothing.
    EXPECT_EQ(ipmi_strftime(buf, 4, "%Y-%m", kPlaceholder), 0U);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(ipmi_strftime(buf, 4, nullptr, kPlaceholder), 0U);
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

// The hour fields of the two clocks decide, in whole hours.
TEST(TimeZoneOffset, HourFieldsOfTheTwoClocksDecide)
{
    // UTC times of 2024-01-15 as hhmm, and the local times they give.
    const std::tuple<const char*, int, int> cases[] = {
        {"UTC", 1200, 0},
        {"UTC-2", 2300, 2}, // local time a day ahead
        {"UTC+8", 30, -8},  // and a day behind
        {"Asia/Shanghai", 2359, 8},
        {"America/New_York", 200, -5},
        {"Asia/Kolkata", 1000, 5},         // 15:30
        {"Asia/Kolkata", 1045, 6},         // 16:15
        {"Asia/Kolkata", 1840, 6},         // 00:10 the next day
        {"Asia/Kolkata", 1820, 5},         // 23:50
        {"America/St_Johns", 300, -4},     // 23:30
        {"America/St_Johns", 345, -3},     // 00:15
        {"Pacific/Kiritimati", 1100, -10}, // UTC+14 folds
        {"Etc/GMT+12", 1200, -12},         // 00:00, no fold
    };
    for (const auto& [tz, hhmm, hours] : cases)
    {
        const TimeZone zone(tz);
        fixed_now = 1705276800 + hhmm / 100 * 3600 + hhmm % 100 * 60;
        EXPECT_EQ(get_time_zone_offset(), hours * 3600) << tz << " " << hhmm;
    }
    // Without TZ the zone comes from /etc/localtime, read on every call.
    fixed_now = 1719835200; // 2024-07-01 12:00 UTC, summer time in Berlin
    {
        const TimeZone zone("Europe/Berlin");
        EXPECT_EQ(get_time_zone_offset(), 7200);
    }
    point_localtime_at("Asia/Tokyo");
    EXPECT_EQ(get_time_zone_offset(), 9 * 3600);
    point_localtime_at("Etc/GMT+5");
    EXPECT_EQ(get_time_zone_offset(), -5 * 3600);
    fixed_now = -1;
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
        // Bit 7 is not part of the linearisation code.
        {{.linearization = 0x7F}, 8, 8.0},
        {{.linearization = 0x82}, 8, std::log10(8.0)},
    };
    for (const auto& [analog, raw, value] : cases)
    {
        EXPECT_NEAR(sdr_convert_sensor_reading(sensor("", analog), raw), value,
                    1e-9 * std::fabs(value));
    }
    // ln, log10, log2, e^x, 10^x, 2^x, 1/x, x^2, x^3, sqrt, cube root, x.
    const double linear[] = {std::log(8.0),
                             std::log10(8.0),
                             3,
                             std::exp(8.0),
                             1e8,
                             256,
                             0.125,
                             64,
                             512,
                             std::sqrt(8.0),
                             2,
                             8};
    for (uint8_t code = 1; code <= 12; ++code)
    {
        EXPECT_NEAR(
            sdr_convert_sensor_reading(sensor("", {.linearization = code}), 8),
            linear[code - 1], 1e-9 * linear[code - 1])
            << int(code);
    }
}

} // namespace

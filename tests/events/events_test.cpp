// SPDX-License-Identifier: Apache-2.0
// SEL records to text: the description tables, and both decoders, the IPMI
// daemon's (reads the sensor's description from the platform segment and
// leaves the event summary there) and the web daemon's (is handed the
// description and touches nothing else); times, zones and readings. Sensor
// events into the SEL hand-off slots, the text SEL log with its move to the
// SD card at 8 MiB (/tmp and the card are separate file systems here), and
// the two paths of trap requests to the SNMP agent. Redfish event posts:
// which subscribers want an event, how the post names the event types and
// the problem, and the posts themselves, end to end on the sandbox's
// loopback interface, received by a subscriber of the test.
#include "events/sel_tables.h"
#include "ipc/platform_segment.h"
#include "loopback_server.h"
#include "test_helpers.h"

#include <libkv/events.h>
#include <libkv/ipc.h>

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

namespace
{
// -1: the real clock
std::atomic<std::time_t> fixed_now{-1};
} // namespace

// The library's time() binds to this definition ahead of the C library's.
extern "C" std::time_t time(std::time_t* out)
{
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    const std::time_t now = fixed_now >= 0 ? fixed_now.load() : real.tv_sec;
    return out != nullptr ? *out = now : now;
}

namespace
{

namespace segment = kv::segment;
namespace summary = kv::segment::event_summary;
namespace trap = kv::segment::trap_slot_field;
using namespace kv::detail;
using namespace kv::test;
using namespace std::chrono;
using Record = std::array<uint8_t, 16>;
using Bytes = std::vector<uint8_t>;
using std::string;

uint8_t* cleared_segment()
{
    auto* shm = static_cast<uint8_t*>(get_shm_address());
    std::memset(shm, 0, segment::kPlatformSize);
    return shm;
}

// The library reads the zone on every call.
void set_tz(const char* tz)
{
    setenv("TZ", tz, 1);
    tzset();
}

// Points /etc/localtime (the sandbox's own copy of /etc) at `zone`.
void localtime_at(const string& zone)
{
    const auto ln = "ln -sf /usr/share/zoneinfo/" + zone + " /etc/localtime";
    ASSERT_EQ(std::system(ln.c_str()), 0);
}

// 2012-01-01 00:03:45 UTC
constexpr uint32_t kWhen = 0x4EFFA2E1;
const string kAt = "01/01/12  00:03:45 GMTUTC  ";
constexpr EventTable kTables[] = {
    EventTable::generic, EventTable::sensor_specific, EventTable::vendor};

Record record(uint8_t type, uint8_t number, uint8_t dir_type, uint8_t data1,
              uint8_t data2, uint8_t data3, uint32_t time = kWhen,
              uint8_t record_type = 2)
{
    Record rec = {0x21, 0, record_type, 0,      0,        0,     0,     0x20,
                  0,    4, type,        number, dir_type, data1, data2, data3};
    // Little-endian on both ends.
    std::memcpy(&rec[3], &time, 4);
    return rec;
}

// An OEM event (no description, no details) of a temperature sensor.
Record oem(uint32_t time = kWhen, uint8_t record_type = 2, uint8_t number = 5)
{
    return record(1, number, 0x75, 0, 0, 0, time, record_type);
}

// The description of a record; the line builders count on 176 zeroed bytes
// after the text.
string describe(const Record& rec)
{
    char none = 0;
    char* desc = &none;
    ipmi_get_event_desc(rec.data(), &desc);
    if (desc == nullptr)
    {
        return "<none>";
    }
    string text = desc;
    EXPECT_EQ(string(desc + text.size(), 176), string(176, '\0'));
    std::free(desc);
    return text;
}

Record event(uint8_t event_type, uint8_t sensor = 0x42)
{
    return record(0, sensor, event_type, 0, 0, 0);
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

int wants(const EventSubscription& sub, const Record& rec,
          const char* message = "x")
{
    return check_event_subscription_active(sub, rec.data(), message);
}

std::pair<uint32_t, string> problem_in(const char* message)
{
    char text[128] = {};
    uint32_t code = 0;
    getspecificProblem(message, &code, text);
    return {code, text};
}

// Positions in the test's own copy of the tables, and every entry: the
// record it describes (asserted or deasserted; data 2 counts only when data
// 1 says it is specific), the problem code its text gives (an entry with
// the text found, in the first table that has one), and position n of a
// subscriber's list of its own table (up to 255) naming it.
TEST(EventTables, EveryEntry)
{
    for (const EventTable table : kTables)
    {
        const auto entries = event_entries(table);
        const auto* end = entries.data() + entries.size();
        EXPECT_EQ(event_entry(table, entries.size() - 1), end - 1);
        EXPECT_EQ(event_entry(table, entries.size()), nullptr);
        EXPECT_EQ(event_table_of(end - 1), table);
        const bool generic = table == EventTable::generic;
        for (size_t n = 1; n <= entries.size(); ++n)
        {
            const auto& e = entries[n - 1];
            SCOPED_TRACE(e.text);
            const bool by_data = e.data != kAnyData;
            const string text = describe(record(
                generic ? 0xC1 : e.code, 0,
                (generic ? e.code : 0x6F) | (n % 2 ? 0 : 0x80),
                e.offset | (by_data ? 0xC0 : 0), by_data ? e.data : 3, 0));
            // "Config Error" answers before the entry after it.
            EXPECT_EQ(text, std::strcmp(e.text, "Power Supply Inactive")
                                ? e.text
                                : "Config Error");
            const auto [code, found] = problem_in(e.text);
            EXPECT_NE(std::strstr(e.text, found.c_str()), nullptr);
            EXPECT_LE(code >> 28, uint32_t(table));
            bool named = false;
            for (const auto& f : event_entries(EventTable(code >> 28)))
            {
                named |=
                    found == f.text &&
                    (code & 0x0FFFFFFF) == uint32_t(f.code << 8 | f.offset);
            }
            EXPECT_TRUE(named) << std::hex << code;
            if (table == EventTable::vendor || n > 255)
            {
                continue;
            }
            EventSubscription sub = everything();
            // Past the table's end: nothing.
            sub.generic_excluded[0] = 200;
            (generic ? sub.generic_excluded : sub.specific_excluded)[n % 128] =
                uint8_t(n);
            const string message = "| " + string(e.text);
            EXPECT_EQ(wants(sub, event(0x01), message.c_str()), 0);
            EXPECT_EQ(wants(sub, event(0x01)), 1);
            sub.every_problem = 1;
            EXPECT_EQ(wants(sub, event(0x01), message.c_str()), 1);
        }
    }
    EXPECT_EQ(ipmi_get_next_event_sensor_type(nullptr), nullptr);
    // Generic types 0x01-0x0C: offsets from 0, as many as IPMI defines.
    std::vector<int> offsets(13);
    for (const auto& e : event_entries(EventTable::generic))
    {
        ASSERT_LT(e.code, 13);
        EXPECT_EQ(e.offset, offsets[e.code]++);
        EXPECT_EQ(e.data, kAnyData);
    }
    EXPECT_EQ(offsets,
              std::vector<int>({0, 12, 3, 2, 2, 2, 2, 9, 2, 2, 9, 8, 4}));
    const std::tuple<uint8_t, uint8_t, uint8_t, uint8_t, const char*> cases[] =
        {
            {0x0F, 0x6F, 0x40, 0x0B, "BIOS corruption detected"},
            {0x0F, 0x6F, 0x00, 0x0B, "Unknown Error"},
            {0x0F, 0x6F, 0xC0, 0x7E, "Unknown Error"},
            // No catch-all; the walk ends with its code.
            {0x2B, 0x6F, 0xC7, 0x18, "<none>"},
            {0x23, 0x6F, 0x04, 0x00, "<none>"},
            // Before the first code and past the last; OEM event types and
            // the one after them.
            {0xC0, 0x6F, 0x00, 0x00, "<none>"},
            {0xF3, 0x6F, 0x00, 0x00, "<none>"},
            {0x0F, 0x70, 0x00, 0x00, "<none>"},
            {0x0F, 0x7F, 0x00, 0x00, "<none>"},
        };
    for (const auto& [type, dir, data1, data2, text] : cases)
    {
        EXPECT_EQ(describe(record(type, 0, dir, data1, data2, 0)), text);
    }
    char* desc = nullptr;
    ipmi_get_event_desc(nullptr, &desc);
    EXPECT_EQ(desc, nullptr);
}

// Alert takes threshold, generic and sensor-specific events, the four
// resource bits the others; then the sensor filter and the problem lists.
// The first text found in the tables, generic first, gives the table, the
// code and the offset.
// The type, then the sensor, then the problem.
TEST(SubscriptionFilter, Order)
{
    for (const uint8_t type :
         {0x01, 0x0C, 0x6F, 0x81, 0xEF, 0x00, 0x0D, 0x6E, 0x70, 0xF0})
    {
        const int code = type & 0x7F;
        const bool alert = code == 0x6F || (code >= 0x01 && code <= 0x0C);
        for (const uint8_t bit : {0x01, 0x02, 0x04, 0x08, 0x10})
        {
            EXPECT_EQ(check_event_subscription_type(bit, event(type).data()),
                      (bit == 0x10) == alert ? 0 : -1)
                << int(type) << int(bit);
        }
    }
    EXPECT_EQ(check_event_subscription_type(0x1F, nullptr), -1);
    // Bits 5-7 have no names.
    char names[128] = "x";
    eventtypeToStr(0xEE, names);
    EXPECT_STREQ(names, "xResourceUpdated,ResourceAdded,ResourceRemoved");
    EXPECT_EQ(check_event_subscription_active(everything(), nullptr, "x"), 0);

    // The type filter comes before every_problem.
    EventSubscription sub = everything();
    sub.event_types = 0x01;
    sub.every_problem = 1;
    EXPECT_EQ(wants(sub, event(0x01)), 0);
    sub.event_types = 0x11;
    EXPECT_EQ(wants(sub, event(0x01)), 1);

    // Only every_sensor = 1 means every sensor.
    sub.every_sensor = 2;
    EXPECT_EQ(wants(sub, event(0x6F, 0x42)), 0);
    sub.sensors[0x42] = 1;
    EXPECT_EQ(wants(sub, event(0x6F, 0x42)), 1);
    EXPECT_EQ(wants(sub, event(0x6F, 0x43)), 0);

    const std::tuple<const char*, uint32_t, const char*> cases[] = {
        {"Drive Fault, Device Present", 0x10000801, "Device Present"},
        {"nothing known here", 0xFFFFFFFF, "Unknown Problem"},
    };
    for (const auto& [message, code, text] : cases)
    {
        EXPECT_EQ(problem_in(message), std::pair(code, string(text)));
    }
}

string unit(bool pct, uint8_t relation, uint8_t base, uint8_t modifier)
{
    char dst[64];
    std::memset(dst, '#', sizeof dst);
    EXPECT_EQ(ipmi_sdr_get_unit_string(pct, relation, base, modifier, dst),
              dst);
    EXPECT_NE(std::memchr(dst, '\0', sizeof dst), nullptr);
    return dst;
}

TEST(Names, UnitsAndSensorTypes)
{
    for (int code = 0; code <= 0xFF; ++code)
    {
        EXPECT_EQ(unit(false, 0, code, 0) == "invalid", code > 92) << code;
        char dst[64] = {};
        EXPECT_EQ(ipmi_get_sensor_type(code, dst), 0);
        const char* name = ipmi_get_generic_sensor_type(code);
        EXPECT_EQ(name != nullptr, code <= 0x2C) << code;
        EXPECT_STREQ(dst, name != nullptr ? name : "Unknown");
    }
    EXPECT_EQ(ipmi_get_sensor_type(0x01, nullptr), 0);
    EXPECT_EQ(ipmi_sdr_get_unit_string(true, 0, 0, 0, nullptr), nullptr);
    // The modifier is checked for range; the base unit stands for it.
    const std::tuple<bool, uint8_t, uint8_t, uint8_t, const char*> cases[] = {
        {false, 0, 92, 0, "grams"},
        {false, 1, 4, 93, "Volts/invalid"},
        // Relation 3 means none.
        {false, 3, 4, 22, "Volts"},
        {true, 0, 0, 0, "percent"},
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
    string text(const Record& rec, const SensorRecord& s)
    {
        std::memcpy(shm_ + segment::sensor_record(rec[11]), &s, sizeof s);
        char ipmi[4096] = ">", web[4096] = ">";
        EXPECT_EQ(ipmi_parse_sel_entry(rec.data(), 0, shm_, ipmi), 0);
        const Bytes before(shm_, shm_ + 256 * 1024);
        EXPECT_EQ(web_parse_sel_entry(rec.data(), 0, s, web), 0);
        EXPECT_EQ(std::memcmp(before.data(), shm_, before.size()), 0);
        EXPECT_STREQ(ipmi, web);
        return ipmi + 1;
    }

    string field(size_t offset)
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
};

TEST_F(SelText, WholeLines)
{
    const std::tuple<const char*, Record, const char*, string> cases[] = {
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
        {"UTC", oem(kWhen, 2, 0), "", kAt + "Temperature    Asserted"},
        // Start-up times show the count less the zone's whole hours.
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
        {"UTC", oem(kWhen, 0xE0), "T", "Temperature T"},
        {"UTC", oem(kWhen, 0xDF), "T", kAt + "Temperature T"},
        {"UTC", oem(0xFFFFFFFF, 0xC0), "T", "    Temperature T"},
    };
    for (const auto& [tz, rec, name, line] : cases)
    {
        set_tz(tz);
        EXPECT_EQ(text(rec, sensor(name)),
                  line.ends_with(" T") ? line + "    Asserted" : line);
    }
}

// What follows "Asserted".
TEST_F(SelText, Details)
{
    const std::tuple<Record, Analog, string> cases[] = {
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
         {.unit_flags = 5, .base_unit = 4},
         "  Reading 1 > Threshold 1 % Volts*Volts"},
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
         "  " + string(bpHddLocateName[3]) + " ZONE 5 SLOT 5"},
        {record(0x0D, 4, 0x08, 0x01, 0x81, 0x07), {}, "   ZONE 1 SLOT 7"},
        // Zones past the list read as the unidentified backplane.
        {record(0x0D, 4, 0x08, 0x01, 0xA2, 0x07), {}, "  UNKOWN ZONE 2 SLOT 7"},
    };
    for (const auto& [rec, analog, details] : cases)
    {
        const string line = text(rec, sensor("", analog));
        EXPECT_EQ(line.substr(line.find("Asserted") + 8), details);
    }
}

// The summary of the last decoded event; refused records.
TEST_F(SelText, Summary)
{
    const auto sum = [&](const Record& rec, const char* name) {
        text(rec, sensor(name));
        return std::to_string(number()) + "|" + field(summary::kSensorName) +
               "|" + field(summary::kSensorType) + "|" +
               field(summary::kTimestamp);
    };
    set_tz("UTC");
    EXPECT_EQ(sum(record(1, 0x42, 1, 0x59, 87, 85), "CPU0 Temp"),
              "66|CPU0 Temp|Temperature|2012-01-01T00:03:45UTC:00");
    // No time keeps the earlier time; no name the earlier name.
    EXPECT_EQ(sum(record(7, 0x10, 0x6F, 0, 0, 0, 0, 0xE0), ""),
              "16|CPU0 Temp|Processor|2012-01-01T00:03:45UTC:00");
    // Start-up times are shown in UTC; unknown ones as such.
    EXPECT_EQ(sum(oem(0x1000), "T"),
              "5|T|Temperature|1970-01-01T01:08:16GMT:00");
    EXPECT_EQ(sum(oem(0xFFFFFFFF), "T"), "5|T|Temperature|Unknown");

    // The IPMI decoder names the sensor in the summary before it refuses
    // record type 0xF0, and only then.
    const Record refused = oem(kWhen, 0xF0, 0x21);
    char out[64] = "keep";
    EXPECT_EQ(web_parse_sel_entry(refused.data(), 0, sensor(""), nullptr), -1);
    EXPECT_EQ(web_parse_sel_entry(refused.data(), 0, sensor(""), out), -1);
    EXPECT_EQ(web_parse_sel_entry(nullptr, 0, sensor(""), out), -1);
    EXPECT_EQ(ipmi_parse_sel_entry(refused.data(), 0, shm_, nullptr), -1);
    EXPECT_EQ(ipmi_parse_sel_entry(nullptr, 0, shm_, out), -1);
    EXPECT_EQ(ipmi_parse_sel_entry(refused.data(), 0, nullptr, out), -1);
    EXPECT_EQ(number(), 5);
    EXPECT_EQ(ipmi_parse_sel_entry(refused.data(), 0, shm_, out), -1);
    EXPECT_STREQ(out, "keep");
    EXPECT_EQ(number(), 0x21);

    // A time text of 32 characters fills its field without a terminator;
    // a name is cut to its field; an unterminated one ends with its record.
    set_tz("<ABCDEFGHIJKLMN>-1");
    uint8_t* time = shm_ + segment::kEventSummary + summary::kTimestamp;
    time[32] = 0xEE;
    SensorRecord s{};
    const size_t size = sizeof s - offsetof(SensorRecord, name);
    std::memset(reinterpret_cast<char*>(&s) + sizeof s - size, 'N', size);
    EXPECT_EQ(text(oem(), s), "01/01/12  00:03:45 GMTABCDEFGHIJKLMN  "
                              "Temperature " +
                                  string(size, 'N') + "    Asserted");
    EXPECT_EQ(field(summary::kSensorName), string(31, 'N'));
    EXPECT_EQ(field(summary::kTimestamp), "2012-01-01T00:03:45ABCDEFGHIJKLM");
    EXPECT_EQ(time[32], 0xEE);
}

// Without TZ the zone comes from /etc/localtime; a new zone file shows in
// the texts within a second (and room for a loaded machine), and at once in
// the zone offset.
TEST(SelZoneFile, Reload)
{
    const auto zone_of_text = [] {
        char out[256] = "";
        web_parse_sel_entry(oem().data(), 0, sensor("T"), out);
        return string(out).substr(19, 6);
    };
    unsetenv("TZ");
    localtime_at("Asia/Tokyo");
    std::this_thread::sleep_for(1100ms);
    ASSERT_EQ(zone_of_text(), "GMTJST");
    // Again, from what was read, unless a second has passed.
    ASSERT_EQ(zone_of_text(), "GMTJST");
    localtime_at("Etc/GMT+5");
    std::this_thread::sleep_for(1100ms);
    EXPECT_EQ(zone_of_text(), "GMT-05");
    localtime_at("Asia/Tokyo");
    EXPECT_EQ(get_time_zone_offset(), 9 * 3600);
}

TEST(SelTime, Texts)
{
    set_tz("UTC-8");
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
    EXPECT_EQ(ipmi_strftime(buf, 4, "%Y-%m", kWhen), 0U);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(ipmi_strftime(buf, 4, nullptr, kWhen), 0U);
    EXPECT_EQ(ipmi_strftime(nullptr, 4, "%Y", kWhen), 0U);
    EXPECT_TRUE(ipmi_timestamp_is_special(-28800));

    // Start-up dates: seconds since start as year and day of the year.
    char date[16] = "";
    EXPECT_STREQ(ipmi_timestamp_date(100 * 86400 + 5, date), "S+ 70/101");
    EXPECT_EQ(ipmi_timestamp_date(-1, date), nullptr);
    EXPECT_EQ(ipmi_timestamp_time(-1, date), date);
    EXPECT_STREQ(date, "S+ 70/101");
}

// The hour fields of the two clocks decide, in whole hours.
TEST(TimeZoneOffset, Hours)
{
    // UTC times of 2024-01-15 as hhmm, and the local times they give.
    const std::tuple<const char*, int, int> cases[] = {
        // Local times: 01:00 a day ahead, 16:30 a day behind, 15:30, 16:15,
        // a day ahead that folds (UTC+14), 00:00 that does not.
        {"UTC-2", 2300, 2},
        {"UTC+8", 30, -8},
        {"Asia/Kolkata", 1000, 5},
        {"Asia/Kolkata", 1045, 6},
        {"Pacific/Kiritimati", 1100, -10},
        {"Etc/GMT+12", 1200, -12},
        // 2024-07-01 12:00 UTC, summer time in Berlin
        {"Europe/Berlin", 404400, 2},
    };
    for (const auto& [tz, hhmm, hours] : cases)
    {
        set_tz(tz);
        fixed_now = 1705276800 + hhmm / 100 * 3600 + hhmm % 100 * 60;
        EXPECT_EQ(get_time_zone_offset(), hours * 3600) << tz << " " << hhmm;
    }
    fixed_now = -1;
}

// y = L((M * x + B) * 10^K2)
TEST(SensorReading, Formula)
{
    const std::tuple<Analog, uint8_t, double> cases[] = {
        // M is little-endian.
        {{.m = 0x1234}, 2, 2.0 * 0x1234},
        {{.m = 2, .b = -1.5, .k2 = -1}, 10, (20 - 1.5) * 0.1},
        {{.m = 3, .b = 0.5, .k2 = 2}, 4, 1250.0},
        // One's complement: 0xFF is minus zero.
        {{.format = 1}, 0xFF, 0.0},
        {{.format = 1}, 0x80, -127.0},
        {{.format = 1}, 0x7F, 127.0},
        {{.m = 2, .format = 2}, 0xFF, -2.0},
        {{.m = 2, .format = 2}, 0x80, -256.0},
        // Any other format gives no analog reading.
        {{.b = 5, .format = 3}, 9, 0.0},
        {{.b = 5, .format = 0x100}, 9, 0.0},
        {{.linearization = 0x7F}, 8, 8.0},
    };
    for (const auto& [analog, raw, value] : cases)
    {
        EXPECT_NEAR(sdr_convert_sensor_reading(sensor("", analog), raw), value,
                    1e-9 * std::fabs(value));
    }
    // x, ln, log10, log2, e^x, 10^x, 2^x, 1/x, x^2, x^3, sqrt, cube root,
    // x; bit 7 is not part of the code.
    const double linear[] = {8,   std::log(8.0),  std::log10(8.0),
                             3,   std::exp(8.0),  1e8,
                             256, 0.125,          64,
                             512, std::sqrt(8.0), 2,
                             8};
    for (uint8_t code = 0; code < 26; ++code)
    {
        EXPECT_NEAR(sdr_convert_sensor_reading(
                        sensor("", {.linearization =
                                        uint8_t(code % 13 | (code > 12) << 7)}),
                        8),
                    linear[code % 13], 1e-9 * linear[code % 13])
            << int(code);
    }
}

// Slots, the SEL log and traps.

// Records take the lowest free slot until the table is full.
TEST(SelSlots, Fill)
{
    uint8_t* shm = cleared_segment();
    const auto state = [&](unsigned i) -> uint8_t& {
        return shm[segment::sel_slot_state(i)];
    };
    const auto payload = [&](unsigned i) {
        return shm + segment::sel_slot_payload(i);
    };
    const Bytes data(200, 0x5A);
    EXPECT_EQ(add_sel_to_shm(nullptr, data.data(), 16), KV_SEL_NO_SEGMENT);
    EXPECT_EQ(add_sel_to_shm(shm, nullptr, 16), KV_SEL_NO_SEGMENT);
    EXPECT_EQ(add_sel_to_shm(shm, data.data(), -1), KV_SEL_NO_SEGMENT);
    EXPECT_EQ(SensorSELWrite(nullptr, 1, 0, 1, 1, 0, 0, 0), -1);
    // No data still takes a slot; longer data stays inside its slot.
    EXPECT_EQ(add_sel_to_shm(shm, data.data(), 0), 0);
    EXPECT_EQ(payload(0)[0], 0);
    ASSERT_EQ(add_sel_to_shm(shm, data.data(), 200), 0);
    EXPECT_EQ(Bytes(payload(1), &state(2)),
              Bytes(segment::kSelSlotPayloadSize, 0x5A));
    EXPECT_EQ(state(2), 0);
    ASSERT_EQ(SensorSELWrite(shm, 0x31, 0, 0x07, 0x6F, 0x00, 0xFF, 0xFE), 0);
    // The record as IPMI lays it out, with the placeholder id and time.
    const Record expected = record(0x07, 0x31, 0x6F, 0x00, 0xFF, 0xFE);
    EXPECT_EQ(std::memcmp(payload(2), expected.data(), 16), 0);
    // The consumer frees a slot with any value but 1; no position is kept.
    state(0) = state(2) = 0;
    state(1) = 7;
    for (unsigned i = 0; i < segment::kSelSlotCount; ++i)
    {
        ASSERT_EQ(SensorSELWrite(shm, i + 1, 0, 1, 1, 0x59, 87, 85), 0);
        EXPECT_EQ(payload(i)[11], uint8_t(i + 1));
    }
    // The table and a slot after it stay as they were.
    const Bytes before(&state(0), &state(segment::kSelSlotCount + 1));
    EXPECT_EQ(add_sel_to_shm(shm, data.data(), 16), KV_SEL_SLOTS_FULL);
    EXPECT_EQ(SensorSELWrite(shm, 99, 0, 1, 1, 0x59, 87, 85), -1);
    EXPECT_EQ(Bytes(&state(0), &state(segment::kSelSlotCount + 1)), before);
}

constexpr off_t kLimit = 8 * 1024 * 1024;
const string kLog = "/tmp/sel/sel.log";
const string kCard = "/media/card/sellog";

off_t size_of(const string& path)
{
    struct stat st
    {};
    return ::stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

int save(uint32_t record, const char* text, uint32_t when = 0,
         const char* dir = "/tmp/sel")
{
    return save_sel_to_file(record, when, record % 3, text, dir);
}

// Lines end in CR LF, in a folder of its own mode.
TEST(SelLog, Lines)
{
    ::umask(022);
    ASSERT_EQ(save(1, "first"), 0);
    struct stat st
    {};
    ASSERT_EQ(::stat("/tmp/sel", &st), 0);
    EXPECT_EQ(st.st_mode & (S_IFMT | 07777), S_IFDIR | 0644U);
    // A folder that is there keeps its mode; numbers show as signed.
    ASSERT_EQ(::chmod("/tmp/sel", 0700), 0);
    ASSERT_EQ(save(4000000000U, ""), 0);
    // A text too long is cut; the longest that fits is kept whole.
    const string text(400, 'a');
    ASSERT_EQ(save(12, text.c_str()), 0);
    ASSERT_EQ(save(12, text.c_str() + 209), 0);
    const string line = "#12 0 " + string(191, 'a') + "\r\n";
    EXPECT_EQ(read_text(kLog),
              "#1 1 first\r\n#-294967296 1 \r\n" + line + line);
    ASSERT_EQ(::stat("/tmp/sel", &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700U);

    ::unlink(kLog.c_str());
    // A folder where the file should be.
    make_dirs(kLog);
    EXPECT_EQ(save(1, "x"), -1);
    EXPECT_EQ(save(1, nullptr), -1);
    EXPECT_EQ(save(1, "x", 0, nullptr), -1);
    EXPECT_EQ(save(1, "x", 0, ("/tmp/" + text.substr(200)).c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

// The log moves to the card when a line reaches the limit.
TEST(SelLog, Move)
{
    set_tz("Asia/Shanghai");
    const auto grow_log = [](off_t size) {
        make_dirs("/tmp/sel");
        write_text(kLog, "");
        ASSERT_EQ(::truncate(kLog.c_str(), size), 0);
    };
    // Without the card the log goes on growing; once the card is there the
    // next line moves it all.
    grow_log(kLimit);
    ASSERT_EQ(save(1, "a"), 0);
    EXPECT_EQ(size_of(kLog), kLimit + 8);
    make_dirs(kCard);
    ASSERT_EQ(save(2, "b", 1), 0);
    EXPECT_EQ(size_of(kCard + "/sel-19700101080001.log"), kLimit + 16);
    EXPECT_EQ(size_of(kLog), -1);

    // Named from the record's time in local time (UTC+8: the next day).
    const string line = "#7 1 crossing\r\n";
    grow_log(kLimit - line.size() + 1);
    // 2024-03-09 22:05:07 UTC.
    ASSERT_EQ(save(7, "crossing", 1710021907), 0);
    const string archive = kCard + "/sel-20240310060507.log";
    EXPECT_EQ(size_of(archive), kLimit + 1);
    EXPECT_TRUE(read_text(archive).value_or("").ends_with(line));
    ASSERT_EQ(save(8, "after"), 0);
    EXPECT_EQ(read_text(kLog), "#8 2 after\r\n");

    // Ending just below the limit stays; ending at it moves.
    grow_log(kLimit - 8);
    // "#9 0 \r\n"
    ASSERT_EQ(save(9, ""), 0);
    EXPECT_EQ(size_of(kLog), kLimit - 1);
    grow_log(kLimit - 7);
    ASSERT_EQ(save(9, "", 2), 0);
    EXPECT_EQ(size_of(kLog), -1);
    EXPECT_EQ(names_in(kCard).size(), 3u);
}

// A request fills the first free slot unless the table is full.
TEST(TrapSlots, Fill)
{
    uint8_t* shm = cleared_segment();
    const auto slot = [&](unsigned i) { return shm + segment::trap_slot(i); };
    const auto word = [&](unsigned i, size_t at) {
        uint32_t value;
        // Little-endian.
        std::memcpy(&value, slot(i) + at, 4);
        return value;
    };
    const auto text = [&](unsigned i) {
        return string((char*)slot(i) + trap::kText, trap::kTextSize);
    };
    const size_t size = segment::kTrapSlotSize * (segment::kTrapSlotCount + 1);
    // Being written by another process.
    slot(0)[trap::kState] = 1;
    std::memset(slot(1) + trap::kText, 0xAA, trap::kTextSize);
    EXPECT_EQ(snmpSendTrap(0x01020304, 0xA0B0C0D0, 7, "CPU0 Temp"), 0);
    EXPECT_EQ(word(1, trap::kState), 2u);
    EXPECT_EQ(word(1, trap::kCode), 0x01020304u);
    EXPECT_EQ(word(1, trap::kValue), 0xA0B0C0D0u);
    EXPECT_EQ(slot(1)[trap::kKind], 7);
    // Zero-padded over what the slot held before.
    EXPECT_EQ(text(1), "CPU0 Temp" + string(trap::kTextSize - 9, '\0'));
    // A long text keeps 200 bytes, without a terminator.
    const string long_text(250, 'x');
    slot(3)[0] = 0x5A;
    snmpSendTrap(1, 2, 3, long_text.c_str());
    EXPECT_EQ(text(2), long_text.substr(0, trap::kTextSize));
    EXPECT_EQ(slot(3)[0], 0x5A);

    // A full table, and the slot's worth of bytes after it, stay as they were.
    for (unsigned i = 0; i < segment::kTrapSlotCount; ++i)
    {
        slot(i)[trap::kState] = 1 + i % 2;
    }
    const Bytes before(slot(0), slot(0) + size);
    EXPECT_EQ(snmpSendTrap(1, 2, 3, "dropped"), 0);
    EXPECT_EQ(Bytes(slot(0), slot(0) + size), before);
}

TEST(TrapFifo, OpenAndWrite)
{
    write_text("/tmp/regular", "keep");
    EXPECT_EQ(checkFIFOFile("/tmp/regular", 0600), 0);
    EXPECT_EQ(read_text("/tmp/regular"), "keep");
    ::umask(022);
    ASSERT_EQ(checkFIFOFile("/tmp/trap.fifo", 0604), 0);
    struct stat st
    {};
    ASSERT_EQ(::stat("/tmp/trap.fifo", &st), 0);
    EXPECT_EQ(st.st_mode & (S_IFMT | 0777), S_IFIFO | 0604u);
    EXPECT_EQ(checkFIFOFile("/tmp/no/dir/trap.fifo", 0600), 1);

    // The write end is kept per process: each case runs in a child.
    EXPECT_EQ(
        exit_status_of([] {
            const int first = getSNMPTrapWriteFD("/tmp/trap.fifo", O_RDWR);
            // Gone, the FIFO could not be opened again.
            ::unlink("/tmp/trap.fifo");
            return first * 2 + getSNMPTrapWriteFD("/tmp/trap.fifo", O_RDWR);
        }),
        0);
    // A missing FIFO is retried once, a second later.
    EXPECT_EQ(exit_status_of([] {
                  const auto start = steady_clock::now();
                  if (getSNMPTrapWriteFD("/tmp/missing.fifo", O_RDWR) != 1 ||
                      steady_clock::now() - start < 900ms)
                  {
                      return 1;
                  }
                  checkFIFOFile("/tmp/missing.fifo", 0600);
                  // Descriptor 0 is a write end too.
                  ::close(0);
                  return getSNMPTrapWriteFD("/tmp/missing.fifo", O_RDWR) * 2;
              }),
              0);

    // Short and failed writes.
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    EXPECT_EQ(snmpWriteMsg(fds[1], "trap", 4), 0);
    EXPECT_EQ(snmpWriteMsg(fds[1], "trap", -1), 1);
    EXPECT_EQ(snmpWriteMsg(fds[1], "", 0), 0);
    char got[8] = {};
    EXPECT_EQ(::read(fds[0], got, sizeof got), 4);
    EXPECT_STREQ(got, "trap");
    ::close(fds[0]);
    ::close(fds[1]);
    EXPECT_EQ(snmpWriteMsg(fds[1], "trap", 4), 1);
}

// Subscriptions and posts.

// The value of the header `name` in a request head, or "".
string header(const string& head, const string& name)
{
    const auto at = head.find("\n" + name + ":");
    const auto from = head.find_first_not_of(' ', at + name.size() + 2);
    return at == string::npos ? ""
                              : head.substr(from, head.find('\n', from) - from);
}

// A subscriber that keeps the requests and answers 200 with a cookie, or
// never answers.
struct Subscriber
{
    explicit Subscriber(bool answer = true) :
        server([this, answer](kv::test::Peer& peer) {
            string head, line;
            while (peer.line(line) && !line.empty())
            {
                head += line + "\n";
            }
            bodies.push_back(
                peer.read(std::atoi(header(head, "Content-Length").c_str())));
            heads.push_back(head);
            peer.hold = !answer;
            peer.send(answer ? "HTTP/1.1 200 OK\r\nSet-Cookie: session=abc123;"
                               " Path=/\r\nContent-Length: 0\r\n\r\n"
                             : "");
        })
    {}

    string url(const string& path = "/events")
    {
        return "http://127.0.0.1:" + std::to_string(server.port()) + path;
    }

    std::vector<string> heads, bodies;
    kv::test::LoopbackServer server;
};

// A member of the one event of a post's body, or of its "Oem" part.
string member(const string& body, const char* name, bool oem)
{
    const auto get = cJSON_GetObjectItemCaseSensitive;
    cJSON* json = cJSON_Parse(body.c_str());
    const cJSON* at = cJSON_GetArrayItem(get(json, "Events"), 0);
    at = oem ? get(get(at, "Oem"), "Veldmarke") : at;
    const cJSON* item = get(at, name);
    const string text = cJSON_IsString(item)   ? item->valuestring
                        : cJSON_IsNumber(item) ? std::to_string(item->valueint)
                                               : "<missing>";
    cJSON_Delete(json);
    return text;
}

// A decoded event reaches each subscriber that wants it.
TEST(EventPost, EndToEnd)
{
    // The cookie jar's folder.
    make_dirs("/tmp/forwarder");
    ASSERT_EQ(::chdir("/tmp/forwarder"), 0);
    write_text("/var/run/obmcinfo/GUID", "guid-1234\n");
    write_text("/var/run/obmcinfo/fruinfo", "Product Asset Tag : RACK7-U12\n");
    uint8_t* shm = cleared_segment();
    Subscriber peer;
    const auto slot = [&](unsigned i, uint8_t types,
                          const string& url) -> EventSubscription& {
        auto& sub = *reinterpret_cast<EventSubscription*>(
            shm + segment::subscription(i));
        sub = everything();
        sub.event_types = types;
        std::snprintf(sub.token, sizeof sub.token, "token-%u", i);
        std::snprintf(sub.url, sizeof sub.url, "%s", url.c_str());
        return sub;
    };
    slot(0, 0x11, peer.url());
    // No Alert: refuses threshold events.
    slot(1, 0x0F, peer.url());
    slot(2, 0x1F, peer.url()).in_use = 0;
    slot(3, 0x10, peer.url("/redfish/v1/events"));
    // Sensor 0x31 over its upper critical threshold, from its slot through
    // the decoder, with what the event producer adds.
    ASSERT_EQ(SensorSELWrite(shm, 0x31, 0, 0x01, 0x01, 0x59, 174, 170), 0);
    const uint8_t* rec = shm + segment::sel_slot_payload(0);
    char text[512] = {};
    ASSERT_EQ(ipmi_parse_sel_entry(rec, 0, shm, text), 0);
    auto& info = *reinterpret_cast<EventInfo*>(shm + segment::kEventSummary);
    std::memcpy(info.event_id, "\xCD\xAB\0", 4);
    std::memset(info.alarm_status, 0xFF, 4);

    ASSERT_EQ(send_event_subscriptions(shm, rec, text), 0);
    EXPECT_EQ(send_event_subscriptions(nullptr, rec, text), -1);
    EXPECT_EQ(send_event_subscriptions(shm, nullptr, text), -1);
    EXPECT_EQ(send_event_subscriptions(shm, rec, nullptr), -1);
    // Fields stay valid JSON; a name filling its field ends where the field
    // ends; a token cannot add header lines of its own.
    std::memset(info.sensor_name, 'n', sizeof info.sensor_name);
    const char* message = "C:\\drive \"1\"\n\tdone\x01";
    EventSubscription& sub = slot(0, 0x1F, peer.url());
    std::strcpy(sub.token, "t\r\nX-Injected: 1");
    EXPECT_EQ(send_curl_message(&sub, message, &info), 0);
    ASSERT_EQ(peer.server.served(3), 3u);
    EXPECT_TRUE(peer.heads[0].starts_with("POST /events HTTP/1.1\n"));
    EXPECT_TRUE(peer.heads[1].starts_with("POST /redfish/v1/events "));
    // Request, then a header (0), a member of the event (1) or of its "Oem"
    // part (2); the cookie of the first answer comes back from the jar.
    const std::tuple<int, int, const char*, string> seen[] = {
        {1, 0, "X-Auth-Token", "token-3"},
        {1, 0, "Cookie", "session=abc123"},
        {0, 1, "EventType", "StatusChange,Alert"},
        {0, 1, "EventId", "0x0000abcd"},
        {0, 2, "specificProblemID", "0x10000109"},
        {0, 2, "alarmStatus", "-1"},
        {0, 2, "neUID", "guid-1234"},
        {0, 2, "neName", "RACK7-U12"},
        {0, 2, "objectUID", "0x31"},
        {2, 0, "X-Auth-Token", "t"},
        {2, 0, "X-Injected", ""},
        {2, 1, "Message", message},
        {2, 2, "objectName", string(32, 'n')},
    };
    for (const auto& [i, kind, name, value] : seen)
    {
        EXPECT_EQ(kind == 0 ? header(peer.heads[i], name)
                            : member(peer.bodies[i], name, kind == 2),
                  value)
            << i << name;
    }

    // A silent subscriber fails after five seconds.
    Subscriber silent(false);
    const auto start = steady_clock::now();
    EXPECT_EQ(send_curl_message(&slot(0, 0x1F, silent.url()), "x", &info),
              28 << 8);
    const auto waited = steady_clock::now() - start;
    EXPECT_GE(waited, 4500ms);
    EXPECT_LT(waited, 7s);
    EXPECT_EQ(silent.server.served(1), 1u);
}

} // namespace

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
const std::string kPlaceholderUtc = "01/01/12  00:03:45 GMTUTC  ";

Record record(uint8_t sensor_type, uint8_t number, uint8_t dir_type,
              uint8_t data1, uint8_t data2, uint8_t data3,
              uint32_t time = kPlaceholder, uint8_t record_type = 0x02)
{
    return {0x21,
            0x00,
            record_type,
            static_cast<uint8_t>(time),
            static_cast<uint8_t>(time >> 8),
            static_cast<uint8_t>(time >> 16),
            static_cast<uint8_t>(time >> 24),
            0x20,
            0x00,
            0x04,
            sensor_type,
            number,
            dir_type,
            data1,
            data2,
            data3};
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

    std::string field(size_t offset, size_t size)
    {
        const auto* at = reinterpret_cast<const char*>(
            shm_ + segment::kEventSummary + offset);
        return {at, strnlen(at, size)};
    }

    const TimeZone utc_{"UTC"};
};

TEST_F(SelText, ThresholdEventWithReadingAndThreshold)
{
    EXPECT_EQ(text(record(0x01, 5, 0x01, 0x59, 87, 85), sensor("CPU0 Temp")),
              kPlaceholderUtc +
                  "Temperature CPU0 Temp  Upper Critical going high  "
                  "Asserted  Reading 87 > Threshold 85 degrees C");
    // Deassertion; a going-low text keeps its trailing blank.
    EXPECT_EQ(text(record(0x01, 5, 0x81, 0x50, 12, 12), sensor("CPU0 Temp")),
              kPlaceholderUtc +
                  "Temperature CPU0 Temp  Lower Non-critical going low   "
                  "Deasserted  Reading 12 < Threshold 12 degrees C");
}

TEST_F(SelText, WholeValuesShowNoDecimals)
{
    const auto half = sensor("P12V", {.m = 1, .b = 0.5});
    auto tail = [&](uint8_t data1, uint8_t data2, uint8_t data3,
                    const SensorRecord& s) {
        const std::string line =
            text(record(0x02, 9, 0x01, data1, data2, data3), s);
        return line.substr(line.find("  Reading"));
    };
    EXPECT_EQ(tail(0x59, 12, 11, half),
              "  Reading 12.50 > Threshold 11.50 degrees C");
    EXPECT_EQ(tail(0x59, 12, 12, sensor("P12V")),
              "  Reading 12 > Threshold 12 degrees C");
    EXPECT_EQ(tail(0x59, 12, 12, sensor("N", {.m = 1, .b = -12.25})),
              "  Reading -0.25 > Threshold -0.25 degrees C");
    // Beyond the int range a value is never taken for a whole one.
    EXPECT_EQ(tail(0x59, 0, 0, sensor("Big", {.m = 1, .b = 3e9})),
              "  Reading 3000000000.00 > Threshold 3000000000.00 degrees C");
    // Data 2 without the reading shows 0; without data 3 no threshold.
    EXPECT_EQ(tail(0x09, 200, 85, half), "  Reading 0");
    EXPECT_EQ(tail(0x49, 20, 85, half), "  Reading 20.50");
    // K2 scales the result.
    EXPECT_EQ(tail(0x57, 123, 45, sensor("V", {.m = 1, .k2 = -2})),
              "  Reading 1.23 > Threshold 0.45 degrees C");
}

TEST_F(SelText, UnitTextOfTheThreshold)
{
    auto units = [&](uint8_t flags, uint8_t base) {
        const std::string line =
            text(record(0x02, 9, 0x01, 0x59, 1, 1),
                 sensor("V", {.unit_flags = flags, .base_unit = base}));
        return line.substr(line.find("Threshold 1 ") + 12);
    };
    EXPECT_EQ(units(0x00, 4), "Volts");
    // The base unit stands for the modifier too.
    EXPECT_EQ(units(0x02, 4), "Volts/Volts");
    EXPECT_EQ(units(0x04, 4), "Volts*Volts");
    EXPECT_EQ(units(0x03, 4), "% Volts/Volts");
    EXPECT_EQ(units(0x01, 0), "percent");
    EXPECT_EQ(units(0x01, 6), "% Watts");
    EXPECT_EQ(units(0x06, 4), "Volts"); // relation 3 is none
    EXPECT_EQ(units(0x00, 93), "invalid");
    EXPECT_EQ(units(0x02, 255), "invalid/invalid");
}

TEST_F(SelText, DriveSlotNamesAVirtualDriveOnlyForDataOneFive)
{
    const auto bay = sensor("HDD");
    EXPECT_EQ(text(record(0x0D, 3, 0x6F, 0x05, 4, 0xFF), bay),
              kPlaceholderUtc + "Drive Slot / Bay HDD  In Critical Array  "
                                "Asserted  Virtual Drive 4");
    EXPECT_EQ(text(record(0x0D, 3, 0x6F, 0x85, 4, 0xFF), bay),
              kPlaceholderUtc + "Drive Slot / Bay HDD  In Critical Array  "
                                "Asserted  Driver Slot 4");
    EXPECT_EQ(text(record(0x0D, 3, 0x6F, 0x01, 9, 0xFF), bay),
              kPlaceholderUtc +
                  "Drive Slot / Bay HDD  Drive Fault  Asserted  Driver Slot 9");
}

TEST_F(SelText, DescriptionsThatDependOnDataTwo)
{
    const auto bios = sensor("BIOS");
    auto middle = [&](uint8_t data1, uint8_t data2) {
        const std::string line =
            text(record(0x0F, 7, 0x6F, data1, data2, 0xFF), bios);
        const size_t from = line.find("BIOS  ") + 6;
        return line.substr(from, line.find("  Asserted") - from);
    };
    EXPECT_EQ(middle(0x00, 0x0B), "Unknown Error");
    EXPECT_EQ(middle(0xC0, 0x0B), "BIOS corruption detected");
    EXPECT_EQ(middle(0xC0, 0x7E), "Unknown Error");
}

TEST_F(SelText, OemEventTypesHaveNoDescription)
{
    EXPECT_EQ(text(record(0x01, 5, 0x75, 0x00, 0, 0), sensor("CPU0 Temp")),
              kPlaceholderUtc + "Temperature CPU0 Temp    Asserted");
    EXPECT_EQ(text(record(0xC4, 5, 0x70, 0x00, 0, 0), sensor("")),
              kPlaceholderUtc + "Unknown #0x05    Asserted");
    // Vendor sensor types take their sensor-specific texts from the vendor
    // table.
    EXPECT_EQ(text(record(0xC1, 5, 0x6F, 0x04, 0, 0), sensor("")),
              kPlaceholderUtc + "Unknown #0x05  Hotswap Healty  Asserted");
}

TEST_F(SelText, StartUpTimesShowTheAdjustedCount)
{
    const Record early = record(0x01, 5, 0x75, 0, 0, 0, 0x00001000);
    const std::string rest = "Temperature T    Asserted";
    EXPECT_EQ(text(early, sensor("T")), " Pre-Init  0000004096 " + rest);
    {
        const TimeZone zone("UTC-8");
        EXPECT_EQ(text(early, sensor("T")), " Pre-Init  -000024704 " + rest);
    }
    {
        const TimeZone zone("America/Bogota"); // UTC-5
        EXPECT_EQ(text(early, sensor("T")), " Pre-Init  0000022096 " + rest);
    }
    // The raw value decides: the first clock time is shown as a date and
    // a time even though the adjusted value counts as start-up time.
    const TimeZone zone("UTC-8");
    EXPECT_EQ(text(record(0x01, 5, 0x75, 0, 0, 0, 0x20000000), sensor("T")),
              "S+ 87/005  10:48:32 GMTGMT  " + rest);
}

TEST_F(SelText, ClockIsShownInTheLocalZone)
{
    const TimeZone zone("Asia/Shanghai");
    // Eight hours are taken off and the local clock adds them back.
    EXPECT_EQ(text(record(0x01, 5, 0x75, 0, 0, 0), sensor("T")),
              "01/01/12  00:03:45 GMTCST  Temperature T    Asserted");
}

TEST_F(SelText, RecordTypesWithoutTime)
{
    const auto t = sensor("CPU0 Temp");
    EXPECT_EQ(text(record(0x01, 5, 0x01, 0x59, 87, 85, kPlaceholder, 0xE1), t),
              "Temperature CPU0 Temp  Upper Critical going high  Asserted  "
              "Reading 87 > Threshold 85 degrees C");
    EXPECT_EQ(text(record(0x01, 5, 0x75, 0, 0, 0, kPlaceholder, 0xDF), t),
              kPlaceholderUtc + "Temperature CPU0 Temp    Asserted");
    // An unknown time (every bit set) leaves only the blanks.
    EXPECT_EQ(text(record(0x01, 5, 0x75, 0, 0, 0, 0xFFFFFFFF, 0xC0), t),
              "    Temperature CPU0 Temp    Asserted");
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
    EXPECT_EQ(shm_[segment::kEventSummary + summary::kSensorNumber], 0);
    EXPECT_EQ(ipmi_parse_sel_entry(refused.data(), 0, shm_, nullptr), -1);
    EXPECT_EQ(ipmi_parse_sel_entry(nullptr, 0, shm_, out), -1);
    EXPECT_EQ(shm_[segment::kEventSummary + summary::kSensorNumber], 0);
    // The IPMI decoder names the sensor in the summary before it refuses
    // the record type.
    EXPECT_EQ(ipmi_parse_sel_entry(refused.data(), 0, shm_, out), -1);
    EXPECT_STREQ(out, "keep");
    EXPECT_EQ(shm_[segment::kEventSummary + summary::kSensorNumber], 0x21);
    EXPECT_EQ(field(summary::kSensorName, 32), "");
}

TEST_F(SelText, SensorNaming)
{
    // FRU State names the device by number, name or not.
    EXPECT_EQ(text(record(0x2C, 7, 0x75, 0, 0, 0), sensor("FRU")),
              kPlaceholderUtc + "FRU State ID = 7     Asserted");
    EXPECT_EQ(text(record(0x01, 0x1F, 0x75, 0, 0, 0), sensor("")),
              kPlaceholderUtc + "Temperature #0x1f    Asserted");
    // No name and sensor 0: the type is followed by the two blanks.
    EXPECT_EQ(text(record(0x01, 0, 0x75, 0, 0, 0), sensor("")),
              kPlaceholderUtc + "Temperature    Asserted");
}

TEST_F(SelText, PlatformDetails)
{
    const auto s = sensor("");
    auto tail = [&](const Record& rec) {
        const std::string line = text(rec, s);
        return line.substr(line.find("Asserted") + 8);
    };
    EXPECT_EQ(tail(record(0x0C, 0, 0x6F, 0x20, 0, 0x23)), "  CPU 3 DIMM 2");
    EXPECT_EQ(tail(record(0x0C, 1, 0x6F, 0x20, 0, 0x23)), "");
    EXPECT_EQ(tail(record(0x0C, 0, 0x6F, 0x10, 0, 0x23)), "");
    EXPECT_EQ(tail(record(0x2B, 4, 0x6F, 0x01, 0x09, 17)), "  (ID = 17)");
    EXPECT_EQ(tail(record(0x1B, 4, 0x08, 0x01, 1, 2)), "  NIC 2 PORT 1");
    EXPECT_EQ(tail(record(0x0D, 4, 0x08, 0x01, 0x35, 0x85)),
              "  " + std::string(bpHddLocateName[3]) + " ZONE 5 SLOT 5");
    EXPECT_EQ(tail(record(0x0D, 4, 0x08, 0x01, 0x02, 0x07)),
              "  UNKOWN ZONE 2 SLOT 7");
    EXPECT_EQ(tail(record(0x0D, 4, 0x08, 0x01, 0x81, 0x07)),
              "   ZONE 1 SLOT 7"); // zone 8 has no name
    // Zones past the list read as the unidentified backplane.
    EXPECT_EQ(tail(record(0x0D, 4, 0x08, 0x01, 0xF2, 0x07)),
              "  UNKOWN ZONE 2 SLOT 7");
}

TEST_F(SelText, TextIsAppendedToWhatIsThere)
{
    const Record rec = record(0x01, 5, 0x75, 0, 0, 0, kPlaceholder, 0xE1);
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
    EXPECT_EQ(shm_[segment::kEventSummary + summary::kSensorNumber], 0x42);
    EXPECT_EQ(field(summary::kSensorName, 32), "CPU0 Temp");
    EXPECT_EQ(field(summary::kSensorType, 32), "Temperature");
    EXPECT_EQ(field(summary::kTimestamp, 32), "2012-01-01T00:03:45UTC:00");

    // A record without a time leaves the earlier time; a name-less sensor
    // the earlier name.
    text(record(0x07, 0x10, 0x6F, 0x00, 0, 0, 0, 0xE0), sensor(""));
    EXPECT_EQ(shm_[segment::kEventSummary + summary::kSensorNumber], 0x10);
    EXPECT_EQ(field(summary::kSensorName, 32), "CPU0 Temp");
    EXPECT_EQ(field(summary::kSensorType, 32), "Processor");
    EXPECT_EQ(field(summary::kTimestamp, 32), "2012-01-01T00:03:45UTC:00");

    // Start-up times are shown in UTC; unknown ones as such.
    text(record(0x01, 1, 0x75, 0, 0, 0, 0x1000), sensor("T"));
    EXPECT_EQ(field(summary::kTimestamp, 32), "1970-01-01T01:08:16GMT:00");
    text(record(0x01, 1, 0x75, 0, 0, 0, 0xFFFFFFFF), sensor("T"));
    EXPECT_EQ(field(summary::kTimestamp, 32), "Unknown");
}

TEST_F(SelText, SummaryFieldsStayInsideTheirBounds)
{
    // A time text of 32 characters or more fills its field without a
    // terminator and stops there.
    const TimeZone zone("<ABCDEFGHIJKLMN>-1");
    std::memset(shm_ + segment::kEventSummary + summary::kSeverity, 0xEE, 16);
    const std::string name(40, 'n');
    text(record(0x01, 3, 0x75, 0, 0, 0), sensor(name.c_str()));
    const auto* time = shm_ + segment::kEventSummary + summary::kTimestamp;
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(time), 32),
              "2012-01-01T00:03:45ABCDEFGHIJKLM");
    EXPECT_EQ(time[32], 0xEE);
    // A name longer than its field is cut to it; the type stays whole.
    EXPECT_EQ(field(summary::kSensorName, 32), std::string(31, 'n'));
    EXPECT_EQ(field(summary::kSensorType, 32), "Temperature");
}

TEST_F(SelText, UnterminatedNameEndsWithItsRecord)
{
    SensorRecord s{};
    auto* bytes = reinterpret_cast<uint8_t*>(&s);
    constexpr size_t kNameAt = offsetof(SensorRecord, name);
    std::memset(bytes + kNameAt, 'N', sizeof s - kNameAt);
    const std::string line =
        text(record(0x01, 6, 0x75, 0, 0, 0, kPlaceholder, 0xE1), s);
    EXPECT_EQ(line, "Temperature " + std::string(sizeof s - kNameAt, 'N') +
                        "    Asserted");
    EXPECT_EQ(field(summary::kSensorName, 32), std::string(31, 'N'));
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

// Records and descriptions drawn at random, weighted towards the values
// the decoder tells apart.
class RandomEvents
{
  public:
    Record record()
    {
        Record rec{};
        for (auto& byte : rec)
        {
            byte = static_cast<uint8_t>(any_(engine_));
        }
        rec[2] = pick({0x02, 0x02, 0xC3, 0xDF, 0xE0, 0xE1, 0xF0, 0xFF});
        if (coin())
        {
            rec[6] = pick({0x00, 0x1F, 0x20, 0x4E, 0x80, 0xFF});
        }
        rec[10] = coin() ? pick({0x01, 0x02, 0x07, 0x08, 0x0C, 0x0D, 0x0F, 0x1B,
                                 0x2B, 0x2C, 0xC1, 0xC4, 0xCF})
                         : rec[10];
        rec[12] = coin() ? pick({0x01, 0x81, 0x6F, 0xEF, 0x08, 0x03, 0x07, 0x0C,
                                 0x70, 0x75, 0x7E, 0x7F})
                         : rec[12];
        return rec;
    }

    SensorRecord sensor()
    {
        SensorRecord s{};
        auto* bytes = reinterpret_cast<uint8_t*>(&s);
        if (coin())
        {
            for (size_t i = 0; i < sizeof s; ++i)
            {
                bytes[i] = static_cast<uint8_t>(any_(engine_));
            }
            return s;
        }
        const std::string name =
            coin() ? "" : "Sensor " + std::to_string(any_(engine_));
        std::memcpy(s.name, name.data(), std::min(name.size(), sizeof s.name));
        s.multiplier[0] = static_cast<uint8_t>(any_(engine_));
        s.result_exponent = static_cast<int8_t>(pick({0, 0, 1, 0xFE, 0xF9}));
        const double b = coin() ? 0.0 : (any_(engine_) - 128) / 4.0;
        std::memcpy(s.offset, &b, sizeof b);
        s.analog_format[0] = pick({0, 1, 2, 3});
        s.linearization[0] = pick({0, 0, 1, 7, 8, 11, 0x80});
        s.unit_flags = static_cast<uint8_t>(any_(engine_) & 0x07);
        s.base_unit = pick({0, 1, 4, 5, 18, 92, 93, 255});
        return s;
    }

  private:
    bool coin()
    {
        return any_(engine_) & 1;
    }

    uint8_t pick(std::initializer_list<uint8_t> values)
    {
        return values.begin()[any_(engine_) % values.size()];
    }

    std::mt19937 engine_{20240601};
    std::uniform_int_distribution<int> any_{0, 255};
};

TEST_F(SelText, BothDecodersWriteTheSameTextForAnyRecord)
{
    const TimeZone zone("Asia/Kolkata");
    RandomEvents events;
    std::vector<char> ipmi(4096);
    std::vector<char> web(4096);
    int decoded = 0;
    for (int i = 0; i < 20000; ++i)
    {
        const Record rec = events.record();
        const SensorRecord s = events.sensor();
        place(rec[11], s);
        std::fill(ipmi.begin(), ipmi.end(), '\0');
        std::fill(web.begin(), web.end(), '\0');
        const int ipmi_result =
            ipmi_parse_sel_entry(rec.data(), 0, shm_, ipmi.data());
        const int web_result =
            web_parse_sel_entry(rec.data(), 0, s, web.data());
        ASSERT_EQ(ipmi_result, web_result) << "record " << i;
        ASSERT_STREQ(ipmi.data(), web.data()) << "record " << i;
        ASSERT_EQ(ipmi_result, rec[2] == 0xF0 ? -1 : 0);
        decoded += ipmi_result == 0;
    }
    EXPECT_GT(decoded, 15000);
}

} // namespace

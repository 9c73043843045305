// SPDX-License-Identifier: Apache-2.0
// One SEL record as one line of text: time, sensor type and name, event
// description, direction, and the details the platform adds (threshold
// reading and units, DIMM, drive, backplane slot, NIC port).
#include "events/sel_text.h"

#include "events/event_records.h"
#include "events/sel_tables.h"
#include "events/sel_time.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

namespace summary_field = kv::segment::event_summary;

constexpr uint8_t kNoTimestampTypes = 0xE0; // OEM records from here on
constexpr uint32_t kStartUpLimit = 0x20000000;
constexpr uint8_t kThreshold = 0x01;
constexpr uint8_t kDevicePresence = 0x08;
constexpr uint8_t kSensorSpecific = 0x6F;
constexpr uint8_t kMemory = 0x0C;
constexpr uint8_t kDriveSlot = 0x0D;
constexpr uint8_t kCable = 0x1B;
constexpr uint8_t kVersionChange = 0x2B;
constexpr uint8_t kFruState = 0x2C;
constexpr const char* kTwoBlanks = "  ";
constexpr const char* kIsoTimeFormat = "%Y-%m-%dT%X%Z:00";
constexpr size_t kSummaryTextSize = 32;
constexpr size_t kUnitTextSize = 64;

// The growing line. It keeps its end, so that every piece is written in
// place instead of searching the whole line again as strcat would.
class Line
{
  public:
    explicit Line(char* out) : end_(out + std::strlen(out))
    {}

    void add(const char* text, size_t length)
    {
        std::memcpy(end_, text, length);
        end_ += length;
        *end_ = '\0';
    }

    void add(const char* text)
    {
        add(text, std::strlen(text));
    }

    __attribute__((format(printf, 2, 3))) void add_format(const char* fmt, ...)
    {
        va_list args;
        va_start(args, fmt);
        // va_start above: clang-analyzer 14 misses it here.
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
        const int length = std::vsprintf(end_, fmt, args);
        va_end(args);
        end_ += std::max(length, 0);
    }

  private:
    char* end_;
};

// The event summary in the platform segment, or nowhere.
class Summary
{
  public:
    explicit Summary(uint8_t* at) : at_(at)
    {}

    bool wanted() const
    {
        return at_ != nullptr;
    }

    // 32 bytes, zero-padded; a 32-character text has no terminator.
    void time(const char* text)
    {
        if (at_ == nullptr)
        {
            return;
        }
        std::strncpy(field(summary_field::kTimestamp), text, kSummaryTextSize);
    }

    void type(const char* text)
    {
        put(summary_field::kSensorType, text, std::strlen(text));
    }

    void name(const char* text, size_t length)
    {
        put(summary_field::kSensorName, text, length);
    }

  private:
    char* field(size_t offset)
    {
        return reinterpret_cast<char*>(at_ + offset);
    }

    // At most 31 characters and a terminator, so that the field never runs
    // into the next one.
    void put(size_t offset, const char* text, size_t length)
    {
        if (at_ == nullptr)
        {
            return;
        }
        length = std::min(length, kSummaryTextSize - 1);
        std::memcpy(field(offset), text, length);
        field(offset)[length] = '\0';
    }

    uint8_t* at_;
};

// Whole numbers show no decimals. A value outside the int range, or not a
// number at all, is never taken for a whole one.
int decimals(float value)
{
    constexpr float kIntLimit = 2147483648.0F;
    const bool whole = value >= -kIntLimit && value < kIntLimit &&
                       value == static_cast<float>(static_cast<int>(value));
    return whole ? 0 : 2;
}

void add_time(Line& line, Summary& summary, const uint8_t* rec)
{
    const uint32_t raw = kv::detail::le32(rec + 3);
    const auto shown = static_cast<int32_t>(
        raw - static_cast<uint32_t>(kv::detail::sel_zone_offset()));
    const bool start_up = raw < kStartUpLimit;
    if (!summary.wanted() && start_up)
    {
        line.add_format(" Pre-Init  %010d ", shown);
        return;
    }
    // sel_zone_offset() has just checked the zone: every text below uses
    // the same one.
    const auto time =
        kv::detail::break_down_sel_time(static_cast<uint32_t>(shown));
    summary.time(kv::detail::sel_time_text(time, kIsoTimeFormat));
    if (start_up)
    {
        line.add_format(" Pre-Init  %010d ", shown);
        return;
    }
    if (ipmi_timestamp_is_valid(shown))
    {
        line.add(kv::detail::sel_time_text(time,
                                           kv::detail::sel_date_format(shown)));
    }
    line.add(kTwoBlanks);
    if (ipmi_timestamp_is_valid(shown))
    {
        line.add(kv::detail::sel_time_text(time, kv::detail::kSelClockFormat));
    }
    line.add(kTwoBlanks);
}

void add_sensor(Line& line, Summary& summary, const uint8_t* rec,
                const SensorRecord& sensor)
{
    char type[kUnitTextSize] = "";
    ipmi_get_sensor_type(rec[10], type);
    line.add(type);
    summary.type(type);

    const uint8_t number = rec[11];
    const size_t name_length = kv::detail::sensor_name_length(sensor);
    if (rec[10] == kFruState)
    {
        line.add_format(" ID = %d ", number);
    }
    else if (name_length > 0)
    {
        // The name may run past its field (see sensor_name_length), so it
        // is taken from the record as a whole.
        const char* name = reinterpret_cast<const char*>(&sensor) +
                           offsetof(SensorRecord, name);
        line.add(" ", 1);
        line.add(name, name_length);
        summary.name(name, name_length);
    }
    else if (number != 0)
    {
        line.add_format(" #0x%02x", number);
    }
}

// The table's text itself: the copy ipmi_get_event_desc makes for its
// callers would only be freed again here.
void add_description(Line& line, const uint8_t* rec)
{
    if (const kv_event_desc* entry = kv::detail::find_event_desc(rec))
    {
        line.add(entry->text);
    }
}

void add_threshold(Line& line, const uint8_t* rec, const SensorRecord& sensor)
{
    const uint8_t data1 = rec[13];
    float reading = 0;
    if ((data1 & 0xC0) == 0x40) // data 2 holds the trigger reading
    {
        reading =
            static_cast<float>(sdr_convert_sensor_reading(sensor, rec[14]));
    }
    line.add_format("  Reading %.*f", decimals(reading), reading);
    if ((data1 & 0x30) != 0x10) // data 3 holds no trigger threshold
    {
        return;
    }
    const auto threshold =
        static_cast<float>(sdr_convert_sensor_reading(sensor, rec[15]));
    // The base unit stands for the modifier unit too.
    char units[kUnitTextSize] = "";
    ipmi_sdr_get_unit_string((sensor.unit_flags & 0x01) != 0,
                             (sensor.unit_flags >> 1) & 0x03, sensor.base_unit,
                             sensor.base_unit, units);
    line.add_format(" %s Threshold %.*f %s", (data1 & 0x01) != 0 ? ">" : "<",
                    decimals(threshold), threshold, units);
}

void add_sensor_specific(Line& line, const uint8_t* rec)
{
    const uint8_t type = rec[10];
    if (type == kMemory && rec[11] == 0 && (rec[13] & 0x30) == 0x20)
    {
        line.add_format("  CPU %d DIMM %d", rec[15] & 0x0F, rec[15] >> 4);
    }
    else if (type == kDriveSlot)
    {
        // Only this exact data 1 (offset 5, nothing in data 2 or 3) names a
        // virtual drive.
        line.add_format(rec[13] == 0x05 ? "  Virtual Drive %d"
                                        : "  Driver Slot %d",
                        rec[14]);
    }
    else if (type == kVersionChange)
    {
        line.add_format("  (ID = %d)", rec[15]);
    }
}

// Zones past the list are shown as the unidentified backplane.
const char* backplane_name(unsigned zone, int* length)
{
    constexpr unsigned kZones =
        sizeof bpHddLocateName / sizeof *bpHddLocateName;
    const char* name = bpHddLocateName[zone < kZones ? zone : 0];
    *length = static_cast<int>(strnlen(name, sizeof *bpHddLocateName));
    return name;
}

void add_device_presence(Line& line, const uint8_t* rec)
{
    if (rec[10] == kDriveSlot)
    {
        int length = 0;
        const char* name = backplane_name(rec[14] >> 4, &length);
        line.add_format("  %.*s ZONE %d SLOT %d", length, name, rec[14] & 0x0F,
                        rec[15] & 0x7F);
    }
    else if (rec[10] == kCable)
    {
        line.add_format("  NIC %d PORT %d", rec[15], rec[14]);
    }
}

} // namespace

namespace kv::detail
{

void append_sel_text(const uint8_t* rec, const SensorRecord& sensor, char* out,
                     uint8_t* summary_at)
{
    Line line(out);
    Summary summary(summary_at);
    if (rec[2] < kNoTimestampTypes)
    {
        add_time(line, summary, rec);
    }
    add_sensor(line, summary, rec, sensor);
    line.add(kTwoBlanks);
    add_description(line, rec);
    line.add(kTwoBlanks);
    line.add((rec[12] & 0x80) != 0 ? "Deasserted" : "Asserted");
    switch (rec[12] & 0x7F)
    {
        case kThreshold:
            add_threshold(line, rec, sensor);
            break;
        case kSensorSpecific:
            add_sensor_specific(line, rec);
            break;
        case kDevicePresence:
            add_device_presence(line, rec);
            break;
        default:
            break;
    }
}

} // namespace kv::detail

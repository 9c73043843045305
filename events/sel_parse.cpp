// SPDX-License-Identifier: Apache-2.0
// The SEL decoders of the IPMI daemon (sensor descriptions and event
// summary in the platform segment) and of the web daemon (a description of
// its own, nothing shared). Both append the same text.
#include "events/event_records.h"
#include "events/sel_text.h"

#include <cstring>

namespace
{

constexpr uint8_t kRefusedRecordType = 0xF0;

} // namespace

extern "C" int ipmi_parse_sel_entry(const uint8_t* rec, uint32_t /*ignored*/,
                                    uint8_t* segment, char* out)
{
    if (out == nullptr || rec == nullptr || segment == nullptr)
    {
        return -1;
    }
    const uint8_t number = rec[11];
    SensorRecord sensor;
    std::memcpy(&sensor, segment + kv::segment::sensor_record(number),
                sizeof sensor);
    uint8_t* summary = segment + kv::segment::kEventSummary;
    // The summary names the sensor even of a record that is refused.
    summary[kv::segment::event_summary::kSensorNumber] = number;
    if (rec[2] == kRefusedRecordType)
    {
        return -1;
    }
    kv::detail::append_sel_text(rec, sensor, out, summary);
    return 0;
}

extern "C" int web_parse_sel_entry(const uint8_t* rec, uint32_t /*ignored*/,
                                   SensorRecord sensor, char* out)
{
    if (out == nullptr || rec == nullptr || rec[2] == kRefusedRecordType)
    {
        return -1;
    }
    kv::detail::append_sel_text(rec, sensor, out, nullptr);
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// SEL records come from any sensor daemon or OEM firmware, and sensor
// descriptions from the daemons that fill the platform segment: any 16
// bytes with any 454-byte description must decode without a stray read or
// write, and both decoders must write the same text.
#include "ipc/platform_segment.h"

#include <libkv/events.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace
{

namespace segment = kv::segment;

constexpr size_t kRecordSize = 16;
// Room for the longest line: a name to the end of its record, two
// readings of the largest doubles, a description and the units.
constexpr size_t kTextSize = 4096;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // A half-hour zone, so that the offset and the local clock both matter.
    setenv("TZ", "Asia/Kolkata", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Exact-size copies, so that a read past either is caught.
    const std::vector<uint8_t> rec(data, data + std::min(size, kRecordSize));
    if (rec.size() < kRecordSize)
    {
        return 0;
    }
    SensorRecord sensor{};
    std::memcpy(&sensor, data + kRecordSize,
                std::min(size - kRecordSize, sizeof sensor));

    // The platform segment up to the end of the event summary.
    static std::vector<uint8_t> platform(segment::kEventSummary +
                                         sizeof(EventInfo));
    std::memcpy(platform.data() + segment::sensor_record(rec[11]), &sensor,
                sizeof sensor);

    std::vector<char> ipmi(kTextSize, '\0');
    std::vector<char> web(kTextSize, '\0');
    const int ipmi_result =
        ipmi_parse_sel_entry(rec.data(), 0, platform.data(), ipmi.data());
    const int web_result =
        web_parse_sel_entry(rec.data(), 0, sensor, web.data());
    if (ipmi_result != web_result || std::strcmp(ipmi.data(), web.data()) != 0)
    {
        std::abort();
    }
    return 0;
}

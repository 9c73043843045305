// SPDX-License-Identifier: Apache-2.0
// SEL records come from any sensor daemon or OEM firmware, and sensor
// descriptions from the daemons that fill the platform segment: any 16
// bytes with any 454-byte description must decode without a stray read or
// write, and both decoders must write the same text.
#include "fuzz_input.h"
#include "ipc/platform_segment.h"

#include <libkv/events.h>

#include <algorithm>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // A half-hour zone, so that the offset and the local clock both matter.
    setenv("TZ", "Asia/Kolkata", 1);
    return 0;
}

KV_FUZZ_TARGET
{
    if (size < 16)
        return 0;
    // Exact-size copies, so that a read past either is caught.
    const std::vector<uint8_t> rec(data, data + 16);
    SensorRecord sensor{};
    std::memcpy(&sensor, data + 16, std::min(size - 16, sizeof sensor));
    // The platform segment up to the end of the event summary.
    static std::vector<uint8_t> platform(kv::segment::kEventSummary +
                                         sizeof(EventInfo));
    std::memcpy(platform.data() + kv::segment::sensor_record(rec[11]), &sensor,
                sizeof sensor);
    // Room for the longest line: a name to the end of its record, two
    // readings of the largest doubles, a description and the units.
    char ipmi[4096];
    char web[4096];
    int ipmi_result = 0;
    int web_result = 0;
    // Each decoder takes the offset off the clock when it is called, and in
    // a half-hour zone the whole-hour offset moves at every :00 and :30. A
    // pair that straddles such a move is decoded again, so that the two
    // texts are always compared under one offset.
    int offset = 0;
    do
    {
        offset = get_time_zone_offset();
        ipmi[0] = '\0';
        web[0] = '\0';
        ipmi_result =
            ipmi_parse_sel_entry(rec.data(), 0, platform.data(), ipmi);
        web_result = web_parse_sel_entry(rec.data(), 0, sensor, web);
    } while (get_time_zone_offset() != offset);
    require(ipmi_result == web_result && std::strcmp(ipmi, web) == 0);
    return 0;
}

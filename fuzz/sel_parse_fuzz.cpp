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
    char ipmi[4096] = "";
    char web[4096] = "";
    const int result =
        ipmi_parse_sel_entry(rec.data(), 0, platform.data(), ipmi);
    require(result == web_parse_sel_entry(rec.data(), 0, sensor, web) &&
            std::strcmp(ipmi, web) == 0);
    return 0;
}

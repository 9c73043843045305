// SPDX-License-Identifier: Apache-2.0
// Sensor thresholds in the hardware-monitor configuration. A sensor's
// threshold lines follow a line that names the sensor; matching is by
// substring, so callers keep the file laid out that way.
#include "foundation/atomic_replace.h"
#include "foundation/resources.h"

#include <libkv/foundation.h>

#include <cstdio>
#include <cstring>

namespace
{

using kv::detail::UniqueFile;

constexpr const char* kConfPath = "/etc/default/obmc/hwmon/oem.conf";
constexpr const char* kScratchPath = "/etc/default/obmc/hwmon/oem.confback";
constexpr int kLineSize = 512; // 511 characters and the terminator

const char* threshold_prefix(int kind)
{
    switch (kind)
    {
        case KV_THRESHOLD_CRIT_LOW:
            return "CRITLO_";
        case KV_THRESHOLD_CRIT_HIGH:
            return "CRITHI_";
        case KV_THRESHOLD_WARN_LOW:
            return "WARNLO_";
        case KV_THRESHOLD_WARN_HIGH:
            return "WARNHI_";
        default:
            return "";
    }
}

// A line naming the sensor arms the search; the first line from there on
// holding both the prefix and the index gets the new value and disarms it.
void copy_with_threshold(std::FILE* from, std::FILE* to, const char* sensor,
                         const char* prefix, const char* index, long long value)
{
    char line[kLineSize];
    bool armed = false;
    while (std::fgets(line, sizeof line, from) != nullptr)
    {
        if (std::strstr(line, sensor) != nullptr)
        {
            armed = true;
        }
        if (armed && std::strstr(line, prefix) != nullptr &&
            std::strstr(line, index) != nullptr)
        {
            const auto key_length = static_cast<int>(std::strcspn(line, "=\n"));
            std::fprintf(to, "%.*s=%lld\n", key_length, line, value);
            armed = false;
        }
        else
        {
            std::fputs(line, to);
        }
    }
}

} // namespace

// Always 0. A file that cannot be read or copied whole is left as it was.
extern "C" int write_to_oem_conf(uint8_t index, const char* sensor, int kind,
                                 long long value)
{
    if (sensor == nullptr)
    {
        return 0;
    }
    UniqueFile conf = kv::detail::open_file(kConfPath, "r");
    if (!conf)
    {
        return 0;
    }
    char index_text[4];
    std::snprintf(index_text, sizeof index_text, "%u",
                  static_cast<unsigned>(index));
    kv::detail::replace_file(
        kConfPath, kScratchPath, kv::detail::ScratchName::fixed,
        [&](std::FILE* scratch) {
            copy_with_threshold(conf.get(), scratch, sensor,
                                threshold_prefix(kind), index_text, value);
            return std::ferror(conf.get()) == 0;
        });
    return 0;
}

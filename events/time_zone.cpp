// SPDX-License-Identifier: Apache-2.0
// The local clock's offset from UTC that the SEL texts take off record
// times.
#include <libkv/events.h>

#include <ctime>

namespace
{

constexpr int kSecondsPerHour = 3600;

} // namespace

// Only the hour fields of the two clocks are compared, so a zone with a
// half-hour offset answers a whole number of hours that depends on the
// minute, and a date change is folded back by the +/-12 rule.
extern "C" int get_time_zone_offset(void)
{
    tzset();
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    std::tm utc{};
    localtime_r(&now, &local);
    gmtime_r(&now, &utc);
    int hours = local.tm_hour - utc.tm_hour;
    if (hours < -12)
    {
        hours += 24;
    }
    else if (hours > 12)
    {
        hours -= 24;
    }
    return hours * kSecondsPerHour;
}

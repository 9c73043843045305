// SPDX-License-Identifier: Apache-2.0
// The local clock's offset from UTC that the SEL texts take off record
// times.
#include "events/sel_time.h"

#include <libkv/events.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

namespace
{

constexpr int kSecondsPerHour = 3600;

// Only the hour fields of the two clocks are compared, so a zone with a
// half-hour offset answers a whole number of hours that depends on the
// minute, and a date change is folded back by the +/-12 rule. The zone is
// the one the C library read last.
int hour_offset_now()
{
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

// When this thread last had the zone read for a SEL text, and with which
// TZ. Without TZ every tzset() looks at /etc/localtime again, a stat per
// record; once a second is enough to follow a change of the zone file, and
// a change of TZ is seen at once.
class ZoneCheck
{
  public:
    bool due(const char* tz, std::time_t second) const
    {
        return !known_ || second != second_ || !same_tz(tz);
    }

    void done(const char* tz, std::time_t second)
    {
        second_ = second;
        tz_set_ = tz != nullptr;
        // A TZ too long to keep is read again every time.
        known_ = !tz_set_ || std::strlen(tz) < sizeof tz_;
        if (tz_set_ && known_)
        {
            std::strcpy(tz_, tz);
        }
    }

  private:
    bool same_tz(const char* tz) const
    {
        return tz == nullptr ? !tz_set_ : tz_set_ && std::strcmp(tz, tz_) == 0;
    }

    bool known_ = false;
    bool tz_set_ = false;
    std::time_t second_ = 0;
    char tz_[256] = "";
};

thread_local ZoneCheck zone_check;

} // namespace

namespace kv::detail
{

int sel_zone_offset()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    const char* tz = std::getenv("TZ");
    if (zone_check.due(tz, now.tv_sec))
    {
        tzset();
        zone_check.done(tz, now.tv_sec);
    }
    return hour_offset_now();
}

} // namespace kv::detail

extern "C" int get_time_zone_offset(void)
{
    tzset();
    return hour_offset_now();
}

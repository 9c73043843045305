// SPDX-License-Identifier: Apache-2.0
// time() for the library, taken over by the test binary: the library's call
// binds to this definition ahead of the C library's.
#include "events_test.h"

#include <atomic>

namespace
{

std::atomic<std::time_t> fixed_now{-1};

} // namespace

extern "C" std::time_t time(std::time_t* out)
{
    std::time_t now = fixed_now.load();
    if (now < 0)
    {
        timespec real{};
        clock_gettime(CLOCK_REALTIME, &real);
        now = real.tv_sec;
    }
    if (out != nullptr)
    {
        *out = now;
    }
    return now;
}

namespace kv::test
{

FixedClock::FixedClock(std::time_t now)
{
    fixed_now = now;
}

FixedClock::~FixedClock()
{
    fixed_now = -1;
}

std::time_t utc(int year, int month, int day, int hour, int minute, int second)
{
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    return timegm(&parts);
}

} // namespace kv::test

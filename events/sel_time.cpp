// SPDX-License-Identifier: Apache-2.0
// Formatting of SEL timestamps.
#include "events/sel_time.h"

#include <libkv/events.h>

#include <chrono>
#include <cstdio>
#include <cstring>

namespace
{

constexpr uint32_t kUnknownTime = 0xFFFFFFFF;
// Times up to here count from the controller's start.
constexpr int32_t kStartUpLimit = 0x20000000;
constexpr size_t kTimeTextSize = 80;

char time_text[kTimeTextSize];

// ipmi_strftime keeps start-up times in UTC up to and including the limit,
// compared as a signed value; ipmi_timestamp_is_special stops below it.
bool shown_in_utc(uint32_t t)
{
    return static_cast<int32_t>(t) <= kStartUpLimit;
}

// gmtime_r for the whole unsigned range: times from 2038-01-19 03:14:08
// on are shown in UTC too, and a 32-bit time_t (the BMC's) cannot hold them.
std::tm utc_parts(uint32_t t)
{
    using namespace std::chrono;
    const sys_seconds when{seconds{t}};
    const sys_days day = floor<days>(when);
    const year_month_day date{day};
    const hh_mm_ss clock{when - day};
    std::tm parts{};
    parts.tm_year = static_cast<int>(date.year()) - 1900;
    parts.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
    parts.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
    parts.tm_hour = static_cast<int>(clock.hours().count());
    parts.tm_min = static_cast<int>(clock.minutes().count());
    parts.tm_sec = static_cast<int>(clock.seconds().count());
    parts.tm_wday = static_cast<int>(weekday{day}.c_encoding());
    parts.tm_yday =
        static_cast<int>((day - sys_days{date.year() / January / 1}).count());
    parts.tm_zone = "GMT";
    return parts;
}

} // namespace

namespace kv::detail
{

SelTime break_down_sel_time(uint32_t t)
{
    SelTime time;
    if (t == kUnknownTime)
    {
        time.unknown = true;
        return time;
    }
    if (shown_in_utc(t))
    {
        time.parts = utc_parts(t);
    }
    else
    {
        // Below 0x80000000: any time_t holds it.
        const std::time_t seconds = static_cast<std::time_t>(t);
        localtime_r(&seconds, &time.parts);
    }
    return time;
}

size_t format_sel_time(char* buf, size_t len, const char* fmt,
                       const SelTime& time)
{
    if (time.unknown)
    {
        return static_cast<size_t>(std::snprintf(buf, len, "Unknown"));
    }
    const size_t length = std::strftime(buf, len, fmt, &time.parts);
    if (length == 0 && len > 0)
    {
        buf[0] = '\0'; // strftime leaves the buffer undefined when it fails
    }
    return length;
}

char* sel_time_text(const SelTime& time, const char* fmt)
{
    format_sel_time(time_text, sizeof time_text, fmt, time);
    return time_text;
}

const char* sel_date_format(int32_t t)
{
    return ipmi_timestamp_is_special(t) ? "S+ %y/%j" : "%x";
}

} // namespace kv::detail

extern "C"
{
int ipmi_timestamp_is_valid(int32_t t)
{
    return t != -1;
}

int ipmi_timestamp_is_special(int32_t t)
{
    return t < kStartUpLimit;
}

size_t ipmi_strftime(char* buf, size_t len, const char* fmt, uint32_t t)
{
    if (buf == nullptr)
    {
        return 0;
    }
    if (fmt == nullptr)
    {
        return kv::detail::format_sel_time(buf, len, "", {});
    }
    if (t != kUnknownTime && !shown_in_utc(t))
    {
        tzset();
    }
    return kv::detail::format_sel_time(buf, len, fmt,
                                       kv::detail::break_down_sel_time(t));
}

char* ipmi_timestamp_fmt(uint32_t t, const char* fmt)
{
    ipmi_strftime(time_text, sizeof time_text, fmt, t);
    return time_text;
}

char* ipmi_timestamp_date(int32_t t, char* dst)
{
    if (!ipmi_timestamp_is_valid(t) || dst == nullptr)
    {
        return nullptr;
    }
    std::strcpy(dst, ipmi_timestamp_fmt(static_cast<uint32_t>(t),
                                        kv::detail::sel_date_format(t)));
    return dst;
}

char* ipmi_timestamp_time(int32_t t, char* dst)
{
    if (ipmi_timestamp_is_valid(t) && dst != nullptr)
    {
        std::strcpy(dst, ipmi_timestamp_fmt(static_cast<uint32_t>(t),
                                            kv::detail::kSelClockFormat));
    }
    return dst;
}

} // extern "C"

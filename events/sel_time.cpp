// SPDX-License-Identifier: Apache-2.0
// Formatting of SEL timestamps.
#include "events/sel_time.h"

#include <libkv/events.h>

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
    const std::time_t seconds = t;
    if (shown_in_utc(t))
    {
        gmtime_r(&seconds, &time.parts);
    }
    else
    {
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

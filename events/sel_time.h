// SPDX-License-Identifier: Apache-2.0
// SEL times as the SEL texts show them: unknown (0xFFFFFFFF), counted from
// the controller's start (up to 0x20000000, shown in UTC) or local time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace kv::detail
{

struct SelTime
{
    bool unknown = false;
    std::tm parts{};
};

// Breaks `t` down. A local time uses the zone of the last tzset().
SelTime break_down_sel_time(uint32_t t);

// strftime() of `time`, or "Unknown"; `buf` holds a text even when the
// result does not fit.
size_t format_sel_time(char* buf, size_t len, const char* fmt,
                       const SelTime& time);

// format_sel_time() into the one 80-byte buffer of ipmi_timestamp_fmt.
char* sel_time_text(const SelTime& time, const char* fmt);

// The format of ipmi_timestamp_date for `t`.
const char* sel_date_format(int32_t t);

// get_time_zone_offset() for the SEL texts: the zone is read again when TZ
// has changed, and otherwise at most once a second.
int sel_zone_offset();

// The format of ipmi_timestamp_time.
inline constexpr const char* kSelClockFormat = "%X GMT%Z";

} // namespace kv::detail

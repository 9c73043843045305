// SPDX-License-Identifier: Apache-2.0
// Pieces shared by the two writers of /tmp/log (veldmarkeLog and _kv_logv).
#pragma once

#include <cstddef>

namespace kv::detail
{

inline constexpr const char* kTraceLogPath = "/tmp/log";

// "%y-%m-%d %H:%M:%S" in local time; the decimal epoch seconds when the time
// cannot be converted or does not fit.
struct TraceTimestamp
{
    TraceTimestamp();
    char text[20];
};

} // namespace kv::detail

// SPDX-License-Identifier: Apache-2.0
// Plain trace (/tmp/log) and raw trace (/tmp/log-bmc). Every message opens,
// appends and closes, so several processes can share one file.
#include "foundation/consumer_text.h"
#include "foundation/resources.h"
#include "foundation/trace_log.h"

#include <libkv/foundation.h>

#include <unistd.h>

#include <cstdio>
#include <ctime>

namespace kv::detail
{

TraceTimestamp::TraceTimestamp()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local) == nullptr ||
        std::strftime(text, sizeof text, "%y-%m-%d %H:%M:%S", &local) == 0)
    {
        std::snprintf(text, sizeof text, "%d", static_cast<int>(now));
    }
}

} // namespace kv::detail

extern "C" int veldmarkeLog(const char* format, va_list args)
{
    char message[1024];
    std::vsnprintf(message, sizeof message, format, args);
    // A login name with a line break in it must not start a line of its
    // own: it would read as another event.
    const std::string line = kv::detail::one_line(message, sizeof message - 1);

    kv::detail::UniqueFile log =
        kv::detail::open_file(kv::detail::kTraceLogPath, "a");
    if (!log)
    {
        return -1;
    }
    const kv::detail::TraceTimestamp stamp;
    std::fprintf(log.get(), "[%d] %s %s\n", static_cast<int>(getpid()),
                 stamp.text, line.c_str());
    return std::fclose(log.release());
}

extern "C" int veldmarke_log(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = veldmarkeLog(format, args);
    va_end(args);
    return result;
}

extern "C" int plog(const char* format, ...)
{
    kv::detail::UniqueFile log = kv::detail::open_file("/tmp/log-bmc", "a");
    if (!log)
    {
        return -1;
    }
    va_list args;
    va_start(args, format);
    std::vfprintf(log.get(), format, args);
    va_end(args);
    std::fflush(log.get());
    return std::fclose(log.release());
}

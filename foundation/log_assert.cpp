// SPDX-License-Identifier: Apache-2.0
// Library log and assertions: prefixed records in /tmp/log, and the guard
// and assertion helpers that end the process after logging a backtrace.
#include "foundation/resources.h"
#include "foundation/trace_log.h"

#include <libkv/foundation.h>

#include <execinfo.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace
{

constexpr int kMaxBacktraceFrames = 500;

} // namespace

int _kv_logv(KVSystemLogSeverity /*severity*/, const char* format, va_list args)
{
    const kv::detail::TraceTimestamp stamp;
    kv::detail::UniqueFile log =
        kv::detail::open_file(kv::detail::kTraceLogPath, "a");
    if (!log)
    {
        return -1;
    }
    std::fprintf(log.get(), "%s[%d][%s]: ", "libkv", static_cast<int>(getpid()),
                 stamp.text);
    std::vfprintf(log.get(), format, args);
    return std::fclose(log.release());
}

int _kv_warn(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = _kv_logv(KV_LOG_SEVERITY_WARNING, format, args);
    va_end(args);
    return result;
}

// The caller's format names its own conversions, in this argument order.
void _kv_warn_message(const char* format, const char* text1, const char* text2,
                      const char* file, int line)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    _kv_warn(format, file_name_get(file), line, text1, text2);
#pragma GCC diagnostic pop
}

void _kv_warn_return_if_fail(const char* function, const char* expression,
                             const char* file, int line)
{
    _kv_warn("[%s(%d)] %s expression \"%s\" failed.\n", file_name_get(file),
             line, function, expression);
}

unsigned _kv_real_assert(unsigned condition, const char* expression,
                         const char* file, int line, const char* function)
{
    if (condition == 0)
    {
        _kv_warn("assertion failed \"%s\" file \"%s\" line %d function %s",
                 expression, file, line, function);
        _kv_abort();
    }
    return condition;
}

void _kv_real_assert_not_reached(const char* function, const char* file,
                                 int line)
{
    _kv_warn("File \"%s\" line %d should not have been reached: %s", file, line,
             function);
    _kv_abort();
}

void _kv_abort(void)
{
    _kv_print_backtrace();
    std::exit(1);
}

void _kv_print_backtrace(void)
{
    void* frames[kMaxBacktraceFrames];
    const int count = backtrace(frames, kMaxBacktraceFrames);
    char** symbols = backtrace_symbols(frames, count);
    if (symbols == nullptr)
    {
        return;
    }
    for (int i = 0; i < count; ++i)
    {
        veldmarke_log("  %s\n", symbols[i]);
    }
    std::free(symbols);
}

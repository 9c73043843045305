// SPDX-License-Identifier: Apache-2.0
// The system calls of the calls daemons make most often, counted with
// strace: a change that adds one to log_call, read_conf_value,
// write_conf_value or the SEL texts shows here. Memory management calls are
// left out of the count, as the allocator and the sanitizers make them at will.
#include "foundation_test.h"

#include <sstream>

// The number of system calls the probe made for `call`.
size_t syscalls_of(const S& call)
{
    // The leak check of a sanitizer build cannot run under a tracer.
    EXPECT_EQ(0, run_shell("ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}"
                           "detect_leaks=0 " STRACE_TOOL " -qq -e trace="
                           "'!%memory' -o /tmp/trace " SYSCALL_PROBE " " +
                           call)
                     .status);
    std::istringstream lines(read_text("/tmp/trace").value_or(""));
    size_t count = 0;
    bool inside = false;
    for (S line; std::getline(lines, line);)
        if (line.starts_with("write(-1, \""))
            inside = line.starts_with("write(-1, \"begin\"");
        else
            count += inside;
    return count;
}

// log_call: open for appending, size, line, sync, close; the archive step
// reads the file only at 4 MiB. A setting: the file read once (open, size
// and mode, read, close); a changed one then goes to a scratch file,
// created, given owner and mode, written, synced, closed and renamed, and
// the folder opened, synced and closed. A SEL line: folder check, open,
// line, sync, close, size. Without TZ the zone file is checked once a
// second, not once a SEL record.
TEST(SystemCalls, Counts)
{
    // Under qemu-user strace counts the emulator's calls.
    if (under_user_emulation())
        GTEST_SKIP();
    for (auto [call, count] : {std::pair{"log_call", 5u},
                               {"read_conf_value", 4u},
                               {"write_conf_value_unchanged", 4u},
                               {"write_conf_value", 14u},
                               {"save_sel_to_file", 6u}})
        EXPECT_EQ(syscalls_of(call), count) << call;
    EXPECT_LE(syscalls_of("web_parse_sel_entry_x100"), 1u);
}

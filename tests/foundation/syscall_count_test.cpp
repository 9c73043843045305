// SPDX-License-Identifier: Apache-2.0
// The system calls of the calls daemons make most often, counted with
// strace: a change that adds one to log_call, read_conf_value,
// write_conf_value or the SEL texts shows here. Memory management calls are
// left out of the count, as the allocator and the sanitizers make them at will.
#include "foundation_test.h"

#include <sstream>

// The system calls the probe made for `call`, in order.
std::vector<S> syscalls_of(const S& call)
{
    // The leak check of a sanitizer build cannot run under a tracer.
    EXPECT_EQ(0, run_shell("ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}"
                           "detect_leaks=0 " STRACE_TOOL " -qq -e trace="
                           "'!%memory' -o /tmp/trace " SYSCALL_PROBE " " +
                           call)
                     .status);
    std::istringstream lines(read_text("/tmp/trace").value_or(""));
    std::vector<S> names;
    bool inside = false;
    for (S line; std::getline(lines, line);)
        if (line.starts_with("write(-1, \""))
            inside = line.starts_with("write(-1, \"begin\"");
        else if (inside)
            names.push_back(line.substr(0, line.find('(')));
    return names;
}

// log_call: open for appending, size, line, close; the archive step reads
// the file only at 4 MiB. A setting: the file read once (open, size and
// mode, read, close); a changed one then goes to a scratch file, created,
// given owner and mode, written, synced, closed and renamed. Without TZ
// the zone file is checked once a second, not once a SEL record.
TEST(SystemCalls, Counts)
{
    if (under_user_emulation())
        GTEST_SKIP() << "under qemu-user strace counts the emulator's calls";
    for (auto [call, count] : {std::pair{"log_call", 4u},
                               {"read_conf_value", 4u},
                               {"write_conf_value_unchanged", 4u},
                               {"write_conf_value", 11u}})
    {
        const auto names = syscalls_of(call);
        EXPECT_EQ(names.size(), count) << call << testing::PrintToString(names);
    }
    EXPECT_LE(syscalls_of("web_parse_sel_entry_x100").size(), 1u);
}

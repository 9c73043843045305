// SPDX-License-Identifier: Apache-2.0
// The system calls of the calls daemons make most often, counted with
// strace: a change that adds one to log_call, read_conf_value,
// write_conf_value or the SEL texts shows here. Memory management calls are
// left out of the count, as the allocator and the sanitizers make them at will.
#include "foundation_test.h"

#include <sstream>

using namespace kv::foundation::test;

namespace
{

// The names of the system calls the probe made for `call`, in order.
std::vector<std::string> syscalls_of(const std::string& call)
{
    const std::string trace = "/tmp/probe.trace";
    // The leak check of a sanitizer build cannot run under a tracer.
    const auto outcome = run_shell(
        "ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}detect_leaks=0 " +
        std::string(STRACE_TOOL) + " -qq -e trace='!%memory' -o " + trace +
        " " + SYSCALL_PROBE + " " + call);
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    std::istringstream lines(read_text(trace).value_or(""));
    std::vector<std::string> names;
    bool inside = false;
    for (std::string line; std::getline(lines, line);)
    {
        if (line.starts_with("write(-1, \""))
        {
            inside = line.starts_with("write(-1, \"begin\"");
            continue;
        }
        if (inside)
        {
            names.push_back(line.substr(0, line.find('(')));
        }
    }
    return names;
}

std::string joined(const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& name : names)
    {
        text += name + " ";
    }
    return text;
}

// strace sees the emulator's system calls, not the probe's.
class SystemCalls : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (kv::test::under_user_emulation())
        {
            GTEST_SKIP() << "under qemu-user strace counts the emulator's "
                            "own system calls";
        }
    }
};

} // namespace

// One open for appending, the size, the line, the close; the archive step
// only reads the file when it has reached 4 MiB.
TEST_F(SystemCalls, LogCallAppendsWithFourCalls)
{
    const auto calls = syscalls_of("log_call");
    EXPECT_EQ(calls.size(), 4u) << joined(calls);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "openat"), 1)
        << joined(calls);
}

TEST_F(SystemCalls, KeyValueFilesReadOnceAndReplaceWithOneWrite)
{
    const auto read = syscalls_of("read_conf_value");
    EXPECT_EQ(read.size(), 4u) << joined(read);

    // An unchanged value is read and nothing is written.
    const auto unchanged = syscalls_of("write_conf_value_unchanged");
    EXPECT_EQ(unchanged.size(), 4u) << joined(unchanged);

    // The file read once (open, size and mode, read, close), the scratch
    // file created, given the owner and the mode, written, synced and
    // closed, the rename.
    const auto changed = syscalls_of("write_conf_value");
    EXPECT_EQ(changed.size(), 11u) << joined(changed);
    EXPECT_EQ(std::count(changed.begin(), changed.end(), "openat"), 2)
        << joined(changed);
    EXPECT_EQ(std::count(changed.begin(), changed.end(), "fsync"), 1)
        << joined(changed);
    EXPECT_EQ(changed.back(), "rename") << joined(changed);
}

// Without TZ the zone file is looked at once a second, not once a record: a
// hundred texts made at once take at most the one check of a new second.
TEST_F(SystemCalls, SelTextsDoNotCheckTheZoneFilePerRecord)
{
    const auto calls = syscalls_of("web_parse_sel_entry_x100");
    EXPECT_LE(calls.size(), 1u) << joined(calls);
}

// SPDX-License-Identifier: Apache-2.0
// Small file and process helpers shared by the test binaries.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kv::test
{

// Whole content of a file, or nothing when it cannot be read.
std::optional<std::string> read_text(const std::string& path);

// Writes `content` to `path`, creating missing parent directories.
void write_text(const std::string& path, std::string_view content);

// mkdir -p.
inline void make_dirs(const std::string& path)
{
    std::filesystem::create_directories(path);
}

// Sorted names of the entries of a directory.
inline std::vector<std::string> names_in(const std::string& dir)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
}

// What `call` prints on standard output.
template <typename Call>
std::string stdout_of(Call call)
{
    testing::internal::CaptureStdout();
    call();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

// Exit status (-1 when killed) and standard output of a shell command.
struct CommandOutcome
{
    int status = -1;
    std::string output;
};
CommandOutcome run_shell(const std::string& command);

// Runs `body` in a forked child and returns its exit status, or 128 + the
// signal number when it was killed. The child ends with body()'s result.
int exit_status_of(const std::function<int()>& body);

// True when this program runs under qemu's user-mode emulation (the armhf
// suite on an x86-64 machine): system calls then reach the kernel only in
// the forms the emulator translates, and other processes see the emulator.
bool under_user_emulation();

#ifdef KV_SNMPD
// What the shell `commands` print, run beside Debian's snmpd on
// /etc/snmp/snmpd.conf once it logs that its ports are open; the agent is
// stopped and waited for, so the next one finds its port free.
inline std::string beside_snmpd(const std::string& commands)
{
    return run_shell("(rm -f /tmp/snmpd.log; " KV_SNMPD
                     " -f -C -c /etc/snmp/snmpd.conf -Lf /tmp/snmpd.log & for"
                     " i in $(seq 100); do grep -qs NET-SNMP /tmp/snmpd.log &&"
                     " break; sleep 0.1; done; " +
                     commands + "; kill $!; wait $!) 2>&1")
        .output;
}
#endif

} // namespace kv::test

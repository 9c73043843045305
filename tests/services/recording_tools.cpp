// SPDX-License-Identifier: Apache-2.0
#include "services_test.h"

#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace kv::services::test
{
namespace
{

constexpr const char* kRecorder = "#!/bin/sh\n"
                                  "mkdir -p /tmp/calls\n"
                                  "{ printf '%s\\n' \"$@\"; echo --; } "
                                  ">>\"/tmp/calls/${0##*/}\"\n";

void write_script(const std::string& path, const std::string& body)
{
    kv::test::write_text(path, body);
    ASSERT_EQ(0, ::chmod(path.c_str(), 0755));
}

// Records end in a line "--"; arguments are never that.
int records_in(const std::string& text)
{
    int records = 0;
    for (size_t at = 0; (at = text.find("--\n", at)) != std::string::npos;
         at += 3)
    {
        records += at == 0 || text[at - 1] == '\n' ? 1 : 0;
    }
    return records;
}

} // namespace

void RecordingTools::SetUp()
{
    const std::string bin = kFakeBin;
    write_script(bin + "/systemctl", kRecorder);
    write_script(bin + "/net-snmp-create-v3-user", kRecorder);
    write_script("/etc/default/obmc/bonding/bonding.sh",
                 std::string(kRecorder) +
                     "exit $(cat /tmp/bonding-exit 2>/dev/null || echo 0)\n");
    saved_path_ = std::getenv("PATH");
    setenv("PATH", (bin + ":" + saved_path_).c_str(), 1);
}

void RecordingTools::TearDown()
{
    setenv("PATH", saved_path_.c_str(), 1);
}

std::string RecordingTools::calls_of(const std::string& tool, int records)
{
    const std::string path = "/tmp/calls/" + tool;
    const auto give_up =
        std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < give_up)
    {
        const auto text = kv::test::read_text(path);
        if (text && records_in(*text) >= records)
        {
            return *text;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return kv::test::read_text(path).value_or("");
}

} // namespace kv::services::test

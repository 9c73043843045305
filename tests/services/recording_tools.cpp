// SPDX-License-Identifier: Apache-2.0
#include "services_test.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace kv::services::test
{
namespace
{

// One record per call, made whole first and appended in one write: the
// library starts some tools in the background, and two records written line
// by line could interleave.
constexpr const char* kRecorder =
    "#!/bin/sh\nmkdir -p /tmp/calls\n"
    "record=$(printf '%s\\n' \"$@\"; echo --)\n"
    "printf '%s\\n' \"$record\" >>\"/tmp/calls/${0##*/}\"\n";

void write_script(const std::string& path, const std::string& body)
{
    kv::test::write_text(path, body);
    ASSERT_EQ(0, ::chmod(path.c_str(), 0755));
}

} // namespace

void RecordingTools::SetUp()
{
    write_script("/tmp/fake-bin/systemctl", kRecorder);
    write_script("/tmp/fake-bin/net-snmp-create-v3-user", kRecorder);
    write_script("/etc/default/obmc/bonding/bonding.sh",
                 std::string(kRecorder) +
                     "exit $(cat /tmp/bonding-exit 2>/dev/null || echo 0)\n");
    saved_path_ = std::getenv("PATH");
    setenv("PATH", ("/tmp/fake-bin:" + saved_path_).c_str(), 1);
}

void RecordingTools::TearDown()
{
    setenv("PATH", saved_path_.c_str(), 1);
}

std::string RecordingTools::calls_of(const std::string& tool, int records)
{
    std::string text;
    for (int tries = 0; tries < 500; ++tries, ::usleep(10000))
    {
        text = kv::test::read_text("/tmp/calls/" + tool).value_or("");
        int found = text.starts_with("--\n") ? 1 : 0;
        for (size_t at = 0; (at = text.find("\n--\n", at)) != text.npos; ++at)
        {
            ++found;
        }
        if (found >= records)
        {
            break;
        }
    }
    return text;
}

} // namespace kv::services::test

// SPDX-License-Identifier: Apache-2.0
// The agent configuration the BMC ships, and stand-ins for the programs the
// library starts.
#pragma once

#include "test_helpers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace kv::services::test
{

inline constexpr const char* kSnmpdConf = "/etc/snmp/snmpd.conf";

// Its group section has the header comment and no group line yet.
inline constexpr const char* kBaseSnmpdConf =
    "agentaddress  udp:161\n"
    "sysdescr  libkv test agent\n"
    "com2sec  mynetwork   default   public\n"
    "\n"
    "####\n"
    "# Second, map the security name into a group name:\n"
    "#       groupName      securityModel securityName\n"
    "\n"
    "view    all            included      .1\n"
    "access  my_group  \"\"  any  noauth  exact  all  none  none\n";

// systemctl and net-snmp-create-v3-user first on PATH, and the platform's
// bonding script, each append their arguments, a line each, then "--", to
// /tmp/calls/<name> in one write (some run in the background). The bonding
// script exits with the number in /tmp/bonding-exit.
class RecordingTools : public testing::Test
{
  protected:
    void SetUp() override
    {
        const std::string record =
            "#!/bin/sh\nmkdir -p /tmp/calls\n"
            "r=$(printf '%s\\n' \"$@\"; echo --)\n"
            "printf '%s\\n' \"$r\" >>\"/tmp/calls/${0##*/}\"\n";
        for (const char* tool :
             {"/tmp/bin/systemctl", "/tmp/bin/net-snmp-create-v3-user",
              "/etc/default/obmc/bonding/bonding.sh"})
        {
            kv::test::write_text(
                tool,
                record +
                    "exit $(cat /tmp/bonding-exit 2>/dev/null || echo 0)\n");
            ASSERT_EQ(0, ::chmod(tool, 0755));
        }
        path_ = std::getenv("PATH");
        setenv("PATH", ("/tmp/bin:" + path_).c_str(), 1);
    }
    void TearDown() override
    {
        setenv("PATH", path_.c_str(), 1);
    }

    // What `tool` recorded, once it holds `records` records (up to 5 s).
    static std::string calls_of(const std::string& tool, int records = 1)
    {
        std::string text;
        for (int tries = 0; tries < 500; ++tries, ::usleep(10000))
        {
            text = kv::test::read_text("/tmp/calls/" + tool).value_or("");
            int found = 0;
            for (size_t at = 0; (at = text.find("--\n", at)) != text.npos;)
            {
                found += at == 0 || text[at - 1] == '\n';
                at += 3;
            }
            if (found >= records)
            {
                break;
            }
        }
        return text;
    }

  private:
    std::string path_;
};

} // namespace kv::services::test

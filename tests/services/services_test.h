// SPDX-License-Identifier: Apache-2.0
// Shared ground of the service tests: an agent configuration in the shape
// the BMC ships, and stand-ins for the programs the library starts.
#pragma once

#include "test_helpers.h"

#include <gtest/gtest.h>

#include <string>

namespace kv::services::test
{

inline constexpr const char* kSnmpdConf = "/etc/snmp/snmpd.conf";

// The BMC's snmpd.conf before any setting was made: its group section has
// the header comment and no group line yet.
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

// Stand-ins for systemctl and net-snmp-create-v3-user, first on PATH, and
// for the platform's bonding script: each appends its arguments, one per
// line and then a line "--", to /tmp/calls/<its name>. The bonding script
// exits with the number in /tmp/bonding-exit, 0 without it.
class RecordingTools : public testing::Test
{
  protected:
    void SetUp() override;
    void TearDown() override;

    // What `tool` recorded; waits up to 5 s for `records` records, as some
    // tools are started in the background.
    static std::string calls_of(const std::string& tool, int records = 1);

  private:
    std::string saved_path_;
};

} // namespace kv::services::test

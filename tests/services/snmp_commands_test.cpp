// SPDX-License-Identifier: Apache-2.0
// What the SNMP functions start: systemctl for the agent's unit, and the
// net-snmp tool that creates v3 users, with recording stand-ins on PATH.
#include "services_test.h"

#include <libkv/foundation.h>
#include <libkv/services.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace
{

using kv::services::test::kSnmpdConf;
using kv::services::test::RecordingTools;
using kv::test::read_text;

constexpr const char* kOemConf = "/etc/oem_bmc.conf";

// The records of a stand-in, each as its arguments joined by blanks,
// sorted: background commands record in any order.
std::vector<std::string> records(const std::string& calls)
{
    std::vector<std::string> all;
    std::istringstream lines(calls);
    std::string record;
    for (std::string line; std::getline(lines, line);)
    {
        if (line == "--")
        {
            all.push_back(record);
            record.clear();
            continue;
        }
        record += (record.empty() ? "" : " ") + line;
    }
    std::sort(all.begin(), all.end());
    return all;
}

std::string value_of(const char* path, const char* key)
{
    char value[128];
    return read_conf_value(path, key, value) == 0 ? value : "<none>";
}

class SnmpCommands : public RecordingTools
{
  protected:
    void SetUp() override
    {
        RecordingTools::SetUp();
        std::filesystem::remove(kSnmpdConf);
        std::filesystem::remove(kOemConf);
    }
};

TEST_F(SnmpCommands, StatusActionsRunInTheirOrder)
{
    kv::test::write_text(kSnmpdConf, "sysdescr x\n");
    // Off, then on: on wins. Stop, then start: the unit is wanted.
    ASSERT_EQ(
        0, snmp_service_status_set(KV_SNMP_PROTOCOL_OFF | KV_SNMP_PROTOCOL_ON |
                                   KV_SNMP_AGENT_START | KV_SNMP_AGENT_STOP));
    EXPECT_EQ("true", value_of(kSnmpdConf, "#protocolEnabled"));
    EXPECT_EQ("1", value_of(kOemConf, "obmc-kv-snmp.service"));
    EXPECT_EQ((std::vector<std::string>{"start obmc-kv-snmp.service",
                                        "stop obmc-kv-snmp.service"}),
              records(calls_of("systemctl", 2)));

    ASSERT_EQ(
        0, snmp_service_status_set(KV_SNMP_PROTOCOL_OFF | KV_SNMP_AGENT_STOP));
    EXPECT_EQ("false", value_of(kSnmpdConf, "#protocolEnabled"));
    EXPECT_EQ("0", value_of(kOemConf, "obmc-kv-snmp.service"));
    bool on = true;
    EXPECT_EQ(0, snmp_service_status_get(&on));
    EXPECT_FALSE(on);
    EXPECT_EQ(3u, records(calls_of("systemctl", 3)).size());
}

TEST_F(SnmpCommands, RestartAloneRunsOneCommand)
{
    ASSERT_EQ(0, snmp_service_status_set(KV_SNMP_AGENT_RESTART));
    EXPECT_EQ(std::vector<std::string>{"restart obmc-kv-snmp.service"},
              records(calls_of("systemctl")));
    EXPECT_EQ("1", value_of(kOemConf, "obmc-kv-snmp.service"));
    EXPECT_EQ("<none>", read_text(kSnmpdConf).value_or("<none>"));
}

// Name and pass phrase come from a remote administrator: shell text in
// them stays text.
TEST_F(SnmpCommands, UserAddPassesEachValueAsOneArgument)
{
    const std::string name = "op $(touch /tmp/owned);`id` 'x\"";
    const std::string pass = "pa ss;rm -rf /tmp/calls";
    ASSERT_EQ(0, snmp_v3_user_add(name.c_str(), pass.c_str(),
                                  SNMP_V3_AUTHEN_SHA_512, SNMP_V3_ENCRYPT_AES));
    EXPECT_EQ("-A\n" + pass + "\n-X\n" + pass + "\n-a\nSHA-512\n-x\nAES\n" +
                  name + "\n--\n",
              calls_of("net-snmp-create-v3-user"));
    EXPECT_FALSE(std::filesystem::exists("/tmp/owned"));
}

TEST_F(SnmpCommands, UserAddRefusesWhatTheToolCannotTake)
{
    EXPECT_EQ(-1, snmp_v3_user_add("", "password1", SNMP_V3_AUTHEN_SHA,
                                   SNMP_V3_ENCRYPT_DES));
    EXPECT_EQ(-1, snmp_v3_user_add("op", nullptr, SNMP_V3_AUTHEN_SHA,
                                   SNMP_V3_ENCRYPT_DES));
    EXPECT_EQ(-1, snmp_v3_user_add("op", "password1", SNMP_V3_AUTHEN_UNKNOWN,
                                   SNMP_V3_ENCRYPT_DES));
    EXPECT_EQ(-1, snmp_v3_user_add("op", "password1", SNMP_V3_AUTHEN_MD5,
                                   SNMP_V3_ENCRYPT_UNKNOWN));
    EXPECT_FALSE(std::filesystem::exists("/tmp/calls"));

    // A tool that is not there changes nothing about the result.
    setenv("PATH", "/nonexistent", 1);
    EXPECT_EQ(0, snmp_v3_user_add("op", "password1", SNMP_V3_AUTHEN_MD5,
                                  SNMP_V3_ENCRYPT_DES));
}

} // namespace

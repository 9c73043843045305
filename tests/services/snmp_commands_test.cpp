// SPDX-License-Identifier: Apache-2.0
// What the SNMP functions start: systemctl for the agent's unit, and the
// net-snmp tool that creates v3 users, with recording stand-ins on PATH.
#include "services_test.h"

#include <libkv/foundation.h>
#include <libkv/services.h>

#include <filesystem>

namespace
{

using kv::services::test::kSnmpdConf;
using kv::services::test::RecordingTools;

std::string value_of(const char* path, const char* key)
{
    char value[128];
    return read_conf_value(path, key, value) == 0 ? value : "<none>";
}

// The commands run in the background: they may record in either order.
TEST_F(RecordingTools, StatusActionsRunInTheirOrder)
{
    std::filesystem::remove(kSnmpdConf);
    ASSERT_EQ(
        0, snmp_service_status_set(KV_SNMP_PROTOCOL_OFF | KV_SNMP_PROTOCOL_ON |
                                   KV_SNMP_AGENT_START | KV_SNMP_AGENT_STOP));
    EXPECT_EQ("true", value_of(kSnmpdConf, "#protocolEnabled"));
    EXPECT_EQ("1", value_of("/etc/oem_bmc.conf", "obmc-kv-snmp.service"));
    const std::string calls = calls_of("systemctl", 2);
    EXPECT_NE(std::string::npos, calls.find("stop\nobmc-kv-snmp.service\n--"));
    EXPECT_NE(std::string::npos, calls.find("start\nobmc-kv-snmp.service\n--"));

    ASSERT_EQ(
        0, snmp_service_status_set(KV_SNMP_PROTOCOL_OFF | KV_SNMP_AGENT_STOP));
    EXPECT_EQ("0", value_of("/etc/oem_bmc.conf", "obmc-kv-snmp.service"));
    bool on = true;
    EXPECT_EQ(0, snmp_service_status_get(&on));
    EXPECT_FALSE(on);
}

// Name and pass phrase come from a remote administrator: shell text in
// them stays text.
TEST_F(RecordingTools, UserAddPassesEachValueAsOneArgument)
{
    const std::string name = "op$(touch${IFS}/tmp/owned);`id`";
    const std::string pass = "pa$s;rm${IFS}-rf${IFS}/tmp/calls";
    ASSERT_EQ(0, snmp_v3_user_add(name.c_str(), pass.c_str(),
                                  SNMP_V3_AUTHEN_SHA_512, SNMP_V3_ENCRYPT_AES));
    EXPECT_EQ("-A\n" + pass + "\n-X\n" + pass + "\n-a\nSHA-512\n-x\nAES\n" +
                  name + "\n--\n",
              calls_of("net-snmp-create-v3-user"));
    EXPECT_FALSE(std::filesystem::exists("/tmp/owned"));

    std::filesystem::remove_all("/tmp/calls");
    EXPECT_EQ(-1, snmp_v3_user_add("", "password1", SNMP_V3_AUTHEN_SHA,
                                   SNMP_V3_ENCRYPT_DES));
    EXPECT_EQ(-1, snmp_v3_user_add("op", "password1", SNMP_V3_AUTHEN_MD5,
                                   SNMP_V3_ENCRYPT_UNKNOWN));
    EXPECT_FALSE(std::filesystem::exists("/tmp/calls"));
}

} // namespace

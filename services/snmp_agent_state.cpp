// SPDX-License-Identifier: Apache-2.0
// Whether the agent runs: the #protocolEnabled switch of snmpd.conf, the
// systemd unit, and the unit's entry in /etc/oem_bmc.conf.
#include "foundation/atomic_replace.h"
#include "foundation/kvfile.h"
#include "services/snmp_conf.h"

#include <libkv/foundation.h>
#include <libkv/services.h>

#include <strings.h>

#include <array>
#include <cstdlib>

namespace
{

constexpr const char* kOemConf = "/etc/oem_bmc.conf";
constexpr const char* kUnit = "obmc-kv-snmp.service";
constexpr const char* kSwitch = "#protocolEnabled";

struct Action
{
    int bit;
    const char* protocol_enabled; // value of the switch, or null
    const char* command;          // systemctl command, or null
    const char* unit_wanted;      // value of the unit's entry, or null
};

// In the order they are done.
constexpr std::array<Action, 5> kActions = {{
    {KV_SNMP_PROTOCOL_OFF, "false", nullptr, nullptr},
    {KV_SNMP_PROTOCOL_ON, "true", nullptr, nullptr},
    {KV_SNMP_AGENT_STOP, nullptr, "systemctl stop obmc-kv-snmp.service &", "0"},
    {KV_SNMP_AGENT_START, nullptr, "systemctl start obmc-kv-snmp.service &",
     "1"},
    {KV_SNMP_AGENT_RESTART, nullptr, "systemctl restart obmc-kv-snmp.service &",
     "1"},
}};

} // namespace

extern "C" int snmp_service_status_get(bool* enabled)
{
    if (enabled == nullptr)
    {
        return KV_SNMP_FAILED;
    }
    char value[128] = "";
    read_conf_value(kv::services::kSnmpdConf, kSwitch, value);
    *enabled = ::strcasecmp(value, "false") != 0;
    return 0;
}

// The commands are fixed texts; they run in the background and their
// outcome is not waited for.
extern "C" int snmp_service_status_set(int actions)
{
    for (const Action& action : kActions)
    {
        if ((actions & action.bit) == 0)
        {
            continue;
        }
        if (action.protocol_enabled != nullptr)
        {
            kv::detail::write_setting(kv::services::kSnmpdConf, kSwitch,
                                      action.protocol_enabled, '=',
                                      kv::detail::kPrivateFile);
        }
        if (action.command != nullptr)
        {
            [[maybe_unused]] const int ignored = std::system(action.command);
            write_conf_value(kOemConf, kUnit, action.unit_wanted);
        }
    }
    return 0;
}

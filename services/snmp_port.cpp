// SPDX-License-Identifier: Apache-2.0
// The agent's port: the first agentaddress line of snmpd.conf.
#include "services/snmp_conf.h"

#include <libkv/foundation.h>
#include <libkv/services.h>

#include <cstdio>
#include <cstring>

namespace
{

using kv::services::LineFate;

constexpr uint16_t kDefaultPort = 161;

// "udp:1161" names the port after the colon, "10.0.0.1" none (the
// default), "1161" is the port itself.
uint16_t port_of(const char* line)
{
    uint16_t port = kDefaultPort;
    if (std::strchr(line, ':') != nullptr)
    {
        std::sscanf(line, "%*s %*[^:]:%hu", &port);
    }
    else if (std::strchr(line, '.') == nullptr)
    {
        std::sscanf(line, "%*s %hu", &port);
    }
    return port;
}

} // namespace

extern "C" int snmp_service_port_get(uint16_t* port)
{
    if (port == nullptr)
    {
        return KV_SNMP_FAILED;
    }
    *port = kDefaultPort;
    kv::services::for_each_selected_line(kv::services::kSnmpdConf,
                                         {"agentaddress"}, [&](char* line) {
                                             *port = port_of(line);
                                             return false;
                                         });
    return 0;
}

extern "C" int snmp_service_port_set(uint16_t port)
{
    uint16_t current = 0;
    snmp_service_port_get(&current);
    if (current == port)
    {
        return 0;
    }
    char new_line[64];
    std::snprintf(new_line, sizeof new_line, "agentaddress   %u\n",
                  static_cast<unsigned>(port));
    return kv::services::rewrite_snmpd_conf(
        [](const char* line) {
            return check_comment_line(line) == 0 &&
                           kv::services::begins_with(line, "agentaddress")
                       ? LineFate::replace
                       : LineFate::keep;
        },
        new_line);
}

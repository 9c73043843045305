// SPDX-License-Identifier: Apache-2.0
// snmpd.conf is edited by hand and the agent writes its state file: any
// text must read without a stray read or write, and every setter must copy
// it.
#include "fuzz_input.h"

#include <libkv/services.h>

KV_FUZZ_SANDBOX("/etc/snmp", "/var/lib", "/var/lib/net-snmp")

KV_FUZZ_TARGET
{
    write_input("/etc/snmp/snmpd.conf", data, size);
    write_input("/var/lib/net-snmp/snmpd.conf", data, size);
    uint16_t port = 0;
    snmp_service_port_get(&port);
    char text[128];
    snmp_community_get(text, sizeof text);
    snmp_v3_engineid_get(text, sizeof text);
    bool v1 = false, v2 = false, on = false;
    snmp_v1_status_get(&v1);
    snmp_v2_status_get(&v2);
    snmp_service_status_get(&on);
    SNMP_V3_USER* users = nullptr;
    snmp_v3_user_get(&users);
    snmp_v3_user_del(users != nullptr ? users->name : "nobody");
    snmp_v3_user_free(&users);
    snmp_ver_status_set(SNMP_VERSION_V1, !v1);
    snmp_ver_status_set(SNMP_VERSION_V2C, !v2);
    snmp_service_port_set(uint16_t(port + 1));
    snmp_community_set("fuzz");
    return 0;
}

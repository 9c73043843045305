// SPDX-License-Identifier: Apache-2.0
// Endpoint texts come from remote peers and rule texts from management
// requests: every check must answer for any text without a stray read or
// write.
#include "fuzz_input.h"

#include <libkv/access.h>

#include <arpa/inet.h>

KV_FUZZ_SANDBOX()

// A prefix byte, then a text; a second text after the first '|' for the
// checks that compare two.
KV_FUZZ_TARGET
{
    if (size < 1)
        return 0;
    const uint8_t prefix = data[0];
    const std::string text((const char*)data + 1, size - 1);
    const auto bar = text.find('|');
    std::string first = text.substr(0, bar);
    std::string second = bar == text.npos ? "" : text.substr(bar + 1);
    for (int iface = INTERFACE_WEB; iface <= INTERFACE_SNMP + 1; ++iface)
    {
        char ip[INET6_ADDRSTRLEN];
        std::memset(ip, 0x55, sizeof ip);
        require(getIpByEndpoint(text, ip, userInterface(iface)) != 0 ||
                std::memchr(ip, '\0', sizeof ip) != nullptr);
    }
    char mac[18] = "";
    getMacByIp(text, mac, "eth1");
    ipCheckRule(first, second, prefix);
    macCheckRule(first, second);
    getIpType(text);
    ipv4VerifyIp(text);
    macVerify(text);
    tm date{};
    convertString2Date(text, date);
    timeCheckRule(text);
    setUserPrivilege(first, second, text);
    setUserRule(prefix % 4, first, second, text, prefix & 1, second);
    updateFile("/etc/user/rules", 0);
    updateFile("/etc/user/privilege", 0);
    ::unlink("/tmp/log");
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// May this user log in through this interface, from this client, now?
#include "access/result_texts.h"

#include <libkv/access.h>
#include <libkv/foundation.h>

#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <iterator>
#include <optional>

using namespace kv::detail;

namespace
{

// The device the login lines name.
constexpr const char* kDevice = "eth1";
constexpr size_t kMacBufferSize = 20;

bool admits(const std::bitset<12>& privilege, userInterface iface)
{
    const auto bit = static_cast<size_t>(iface);
    return bit < privilege.size() && privilege.test(bit);
}

// A rule's network as the address check takes it: the address, and the
// prefix length plus `shift`, modulo 256.
struct Network
{
    std::string address; // empty: no condition
    uint8_t prefix = 0;
};

// Nothing for a field that is not "address/prefix" with a number as the
// prefix: such a rule cannot be checked and refuses.
std::optional<Network> stored_network(const std::string& field, int shift)
{
    if (field.empty())
    {
        return Network{};
    }
    std::vector<std::string> parts;
    split(parts, field, '/');
    if (parts.size() != 2)
    {
        return std::nullopt;
    }
    try
    {
        const long long length = std::stoi(parts[1]);
        return Network{parts[0], static_cast<uint8_t>(length + shift)};
    }
    catch (const std::exception&)
    {
        return std::nullopt;
    }
}

// An IPv4 network as the IPv4-mapped IPv6 network it is compared as.
Network mapped(const Network& ipv4)
{
    return ipv4.address.empty()
               ? ipv4
               : Network{"::ffff:" + ipv4.address, ipv4.prefix};
}

// Whether `ip` lies outside `network`; an empty network has no condition.
bool outside(const std::string& ip, const Network& network)
{
    return !network.address.empty() &&
           !ipCheckRule(ip, network.address, network.prefix);
}

void log_login_failed(const std::string& user, const std::string& endpoint,
                      userInterface iface, const char* reason)
{
    veldmarke_log("Login Failed username: %s, endpoint:%s, dev: %s, "
                  "interface:%s, reason: %s",
                  user.c_str(), endpoint.c_str(), kDevice,
                  interface_text(iface), reason);
}

} // namespace

std::tuple<unsigned, std::string> checkUserPrivilege(const std::string& user,
                                                     userInterface iface)
try
{
    std::vector<userPrivilege> users;
    if (const int read = getUserPrivilege(users); read != 0)
    {
        return {static_cast<unsigned>(read), ""};
    }
    unsigned result = kAdmitted;
    std::string ruleid;
    for (const userPrivilege& entry : users)
    {
        if (entry.username != user)
        {
            continue;
        }
        ruleid = entry.ruleid;
        if (!admits(entry.privilege, iface))
        {
            result = kPrivilegeRefused;
            break;
        }
    }
    return {result, ruleid};
}
catch (const std::exception&)
{
    return {kInternalError, ""};
}

unsigned checkUserRule(const std::string& /*user*/, const std::string& ip,
                       const std::string& mac, char ruleid, userInterface iface)
try
{
    std::vector<userRule> rules;
    if (const int read = getUserRule(rules); read != 0)
    {
        return static_cast<unsigned>(read);
    }
    const unsigned id = static_cast<unsigned>(ruleid - '0');
    const auto rule =
        std::find_if(rules.begin(), rules.end(),
                     [&](const userRule& r) { return r.id == id; });
    if (rule == rules.end())
    {
        return kAdmitted;
    }
    if (!rule->openflag)
    {
        veldmarke_log("rule status is false. ruleid: %d",
                      static_cast<int>(std::distance(rules.begin(), rule)));
        return kAdmitted;
    }
    const auto ipv4 = stored_network(rule->ipv4, 96);
    const auto ipv6 = stored_network(rule->ipv6, 0);
    if (!ipv4 || !ipv6)
    {
        return kInternalError;
    }
    if (iface != INTERFACE_LOCAL)
    {
        // IPv4 clients come as mapped addresses and meet only the IPv4
        // network; IPv6 clients only the IPv6 one.
        if (outside(ip, getIpType(ip) == 0 ? mapped(*ipv4) : *ipv6))
        {
            return kIpRefused;
        }
        if (!rule->mac.empty() && !mac.empty() && !macCheckRule(mac, rule->mac))
        {
            return kMacRefused;
        }
    }
    if (!rule->validTime.empty() && !timeCheckRule(rule->validTime))
    {
        return kTimeRefused;
    }
    return kAdmitted;
}
catch (const std::exception&)
{
    return kInternalError;
}

int checkUser(const std::string& user, const std::string& ip,
              const std::string& mac, userInterface iface)
try
{
    const auto [code, ruleids] = checkUserPrivilege(user, iface);
    if (code == kFileMissing)
    {
        return kAdmitted;
    }
    if (code != kAdmitted)
    {
        veldmarke_log("check user interface privilege failed. userame: %s, "
                      "ip: %s, %s",
                      user.c_str(), ip.c_str(), interface_text(iface));
        return static_cast<int>(code);
    }
    for (size_t position = 0; position < ruleids.size(); ++position)
    {
        const unsigned result =
            checkUserRule(user, ip, mac, ruleids[position], iface);
        if (result == kFileMissing)
        {
            return kAdmitted;
        }
        if (result != kAdmitted)
        {
            veldmarke_log("check failed ruleid: %d, %d",
                          static_cast<int>(position), static_cast<int>(result));
            return static_cast<int>(result);
        }
    }
    return kAdmitted;
}
catch (const std::exception&)
{
    return kInternalError;
}

unsigned checkUserAllInOne(const std::string& user, userInterface iface,
                           const std::string& endpoint, unsigned /*reserved*/)
try
{
    char ip[INET6_ADDRSTRLEN] = "";
    char mac[kMacBufferSize] = "";
    if (iface != INTERFACE_LOCAL)
    {
        if (getIpByEndpoint(endpoint, ip, iface) != 0)
        {
            log_login_failed(user, endpoint, iface, error_text(kInternalError));
            return kInternalError;
        }
        if (getMacByIp(ip, mac, kDevice) != 0)
        {
            veldmarke_log("Can not get mac address username: %s, endpoint:%s, "
                          "dev: %s, interface:%s, reason: %s",
                          user.c_str(), endpoint.c_str(), kDevice,
                          interface_text(iface), error_text(kInternalError));
            std::memset(mac, 0, sizeof mac);
        }
    }
    const auto result = static_cast<unsigned>(checkUser(user, ip, mac, iface));
    if (result >= kInternalError && result <= kInternalError + 10)
    {
        log_login_failed(user, endpoint, iface, error_text(result));
    }
    else if (result >= kPrivilegeRefused && result <= kPrivilegeRefused + 6)
    {
        // Refusals have always been logged with the storage error of the
        // same offset ("INTERNAL ERROR" for a privilege mismatch, ...); the
        // log readers expect these texts.
        log_login_failed(user, endpoint, iface,
                         error_code_text(result - kPrivilegeRefused));
    }
    return result;
}
catch (const std::exception&)
{
    return kInternalError;
}

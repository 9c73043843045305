// SPDX-License-Identifier: Apache-2.0
// A client's address against a rule's network and its MAC against the
// rule's MAC or vendor prefix.
#include <libkv/access.h>
#include <libkv/foundation.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>

#include <algorithm>

namespace
{

constexpr unsigned kAddressBytes = 16;
constexpr unsigned kAddressBits = 8 * kAddressBytes;

// The address's bytes; all zero, logged, when the text is no IPv6 address.
bool read_ipv6(const std::string& text, uint8_t (&bytes)[kAddressBytes])
{
    in6_addr address{};
    const bool read = ::inet_pton(AF_INET6, text.c_str(), &address) == 1;
    if (!read)
    {
        veldmarke_log("%s, ipv6 convert errot, ip:%s", "ipCheckRule",
                      text.c_str());
    }
    std::copy(std::begin(address.s6_addr), std::end(address.s6_addr), bytes);
    return read;
}

} // namespace

bool ipCheckRule(const std::string& ip, const std::string& network,
                 uint8_t prefix)
{
    uint8_t user[kAddressBytes];
    uint8_t rule[kAddressBytes];
    const bool user_read = read_ipv6(ip, user);
    const bool rule_read = read_ipv6(network, rule);
    // A prefix longer than the address matches nothing; the bytes are only
    // compared as far as the address goes.
    bool match = user_read && rule_read && prefix <= kAddressBits;
    const unsigned whole = std::min(prefix / 8u, kAddressBytes);
    const unsigned rest = prefix % 8u;
    for (unsigned i = 0; i < whole; ++i)
    {
        if (user[i] != rule[i])
        {
            veldmarke_log("ip not match, i:%d, sa6_1:%d, sa6_2:%d", i, user[i],
                          rule[i]);
            match = false;
        }
    }
    if (rest != 0 && whole < kAddressBytes &&
        (user[whole] >> (8 - rest)) != (rule[whole] >> (8 - rest)))
    {
        veldmarke_log("ip not match, bits:%d, sa6_1:%d, sa6_2:%d", rest,
                      user[whole], rule[whole]);
        match = false;
    }
    if (!match)
    {
        // The comma before " mask" is the full-width one (U+FF0C).
        veldmarke_log("%s failed, userip:%s, ruleip:%s\xEF\xBC\x8C mask:%d",
                      "ipCheckRule", ip.c_str(), network.c_str(), prefix);
    }
    return match;
}

bool macCheckRule(const std::string& mac, const std::string& ruleMac)
{
    if (ruleMac.empty() ||
        ::strncasecmp(mac.c_str(), ruleMac.c_str(), ruleMac.size()) == 0)
    {
        return true;
    }
    veldmarke_log("mac check failed, usermac: %s, rulemac:%s, len:%d",
                  mac.c_str(), ruleMac.c_str(),
                  static_cast<int>(ruleMac.size()));
    return false;
}

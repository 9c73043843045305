// SPDX-License-Identifier: Apache-2.0
// /etc/user/rules: one admission rule a line, "id,ipv4,mac,validTime,
// openflag,ipv6" (a line without the ipv6 field reads too).
#include "access/result_texts.h"
#include "access/store_fields.h"
#include "access/store_files.h"

#include <libkv/access.h>
#include <libkv/foundation.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <charconv>
#include <exception>
#include <iostream>

using namespace kv::detail;

namespace
{

constexpr int kLongestIpv4Prefix = 32;
constexpr int kLongestIpv6Prefix = 128;

userRule rule_of(const std::vector<std::string>& fields)
{
    userRule rule;
    rule.id = static_cast<unsigned>(std::stoi(fields[0]));
    rule.ipv4 = fields[1];
    rule.mac = fields[2];
    rule.validTime = fields[3];
    rule.openflag = std::stoi(fields[4]) != 0;
    if (fields.size() == 6)
    {
        rule.ipv6 = fields[5];
    }
    return rule;
}

bool valid_ipv4_network(const std::string& text)
{
    const auto address = network_address(text, kLongestIpv4Prefix);
    return address && ipv4VerifyIp(*address);
}

bool valid_period(const std::string& text)
{
    std::vector<std::string> ends;
    split(ends, text, '-');
    tm date{};
    return fits_one_field(text) && ends.size() == 2 &&
           convertString2Date(ends[0], date) &&
           convertString2Date(ends[1], date);
}

} // namespace

namespace kv::detail
{

std::optional<std::string> network_address(const std::string& text, int longest)
{
    std::vector<std::string> parts;
    split(parts, text, '/');
    if (!fits_one_field(text) || parts.size() != 2)
    {
        return std::nullopt;
    }
    // The whole prefix is a number: "24" followed by anything is no prefix.
    const std::string& prefix = parts[1];
    int length = 0;
    const auto [end, error] =
        std::from_chars(prefix.data(), prefix.data() + prefix.size(), length);
    if (error != std::errc() || end != prefix.data() + prefix.size() ||
        length > longest)
    {
        return std::nullopt;
    }
    return parts[0];
}

} // namespace kv::detail

void userRule::writeRule2File(const userRule& rule)
{
    try
    {
        const std::string key = std::to_string(rule.id);
        modifyLineData(kRulesPath, key,
                       key + "," + rule.ipv4 + "," + rule.mac + "," +
                           rule.validTime + "," + (rule.openflag ? "1" : "0") +
                           "," + rule.ipv6 + "\n");
    }
    catch (...)
    {
        throw std::exception();
    }
}

int getUserRule(std::vector<userRule>& rules)
try
{
    if (!file_exists(kRulesPath))
    {
        return kFileMissing;
    }
    std::vector<std::string> fields;
    for (const std::string& line : read_store_lines(kRulesPath))
    {
        split(fields, line, ',');
        if (fields.size() != 6 && fields.size() != 5)
        {
            return kInternalError;
        }
        rules.push_back(rule_of(fields));
    }
    return kAdmitted;
}
catch (const std::exception& e)
{
    std::cerr << e.what() << '\n';
    return kInternalError;
}

int setUserRule(unsigned char id, std::string& ipv4, std::string& mac,
                std::string validTime, bool openflag, std::string ipv6)
try
{
    drop_pending_change(kRulesPath);
    kv_return_val_if_fail_at(id < 3, static_cast<int>(kInternalError), "common",
                             927);
    const auto refuse = [&](unsigned code) {
        veldmarke_log("Set user rule failed. id: %c, ipv4: %s, ipv6: %s, "
                      "mac: %s, validTime: %s, openflag: %c, reason: %s",
                      id, ipv4.c_str(), ipv6.c_str(), mac.c_str(),
                      validTime.c_str(), static_cast<int>(openflag),
                      error_text(code));
        return static_cast<int>(code);
    };
    if (!ipv4.empty() && !valid_ipv4_network(ipv4))
    {
        return refuse(kIpError);
    }
    if (!mac.empty() && !macVerify(mac))
    {
        return refuse(kMacError);
    }
    if (!validTime.empty() && !valid_period(validTime))
    {
        return refuse(kTimeError);
    }
    if (!ipv6.empty())
    {
        const auto address = network_address(ipv6, kLongestIpv6Prefix);
        if (!address)
        {
            return refuse(kIpError);
        }
        in6_addr parsed{};
        if (::inet_pton(AF_INET6, address->c_str(), &parsed) != 1)
        {
            veldmarke_log("%s, ipv6 convert error, ip:%s", "setUserRule",
                          ipv6.c_str());
            return static_cast<int>(kIpError);
        }
    }

    make_user_dir();
    try
    {
        userRule::writeRule2File({id, ipv4, mac, validTime, ipv6, openflag});
    }
    catch (const std::exception&)
    {
        veldmarke_log("Set user rule failed. id: %d, ipv4: %s, ipv6: %s, "
                      "mac: %s, validTime: %s, openflag: %d, reason: %s",
                      id, ipv4.c_str(), ipv6.c_str(), mac.c_str(),
                      validTime.c_str(), openflag, error_text(kWriteFailed));
        return static_cast<int>(kWriteFailed);
    }
    veldmarke_log("Set user rule successful. id: %d, ipv4: %s, ipv6: %s, "
                  "mac: %s, validTime: %s, openflag: %d",
                  id, ipv4.c_str(), ipv6.c_str(), mac.c_str(),
                  validTime.c_str(), openflag);
    return static_cast<int>(kAdmitted);
}
catch (const std::exception&)
{
    return static_cast<int>(kInternalError);
}

// SPDX-License-Identifier: Apache-2.0
// The forms of the texts a rule is made of: IPv4 addresses, MAC addresses
// and date-times.
#include <libkv/access.h>
#include <libkv/foundation.h>

#include <cctype>
#include <climits>
#include <cstdlib>
#include <exception>
#include <iostream>

namespace
{

// Source name of the date warnings in /tmp/log.
constexpr const char* kSource = "common";

constexpr long kLargestOctet = 255;
constexpr int kFirstCalendarYear = 1900;

bool two_hex_digits(const std::string& group)
{
    return group.size() == 2 &&
           std::isxdigit(static_cast<unsigned char>(group[0])) &&
           std::isxdigit(static_cast<unsigned char>(group[1]));
}

// "hh:mm" or "hh:mm:ss", upper bounds only.
bool read_time_of_day(const std::string& text, tm& out)
{
    std::vector<std::string> parts;
    split(parts, text, ':');
    if (parts.size() != 2 && parts.size() != 3)
    {
        return false;
    }
    const int hour = std::stoi(parts[0]);
    const int minute = std::stoi(parts[1]);
    const int second = parts.size() == 3 ? std::stoi(parts[2]) : 0;
    if (hour >= 24 || minute >= 60 || second >= 60)
    {
        return false;
    }
    out.tm_hour = hour;
    out.tm_min = minute;
    out.tm_sec = second;
    return true;
}

} // namespace

int getIpType(const std::string& ip)
{
    return ip.find('.') == std::string::npos ? 1 : 0;
}

bool ipv4VerifyIp(const std::string& text)
{
    std::vector<std::string> octets;
    split(octets, text, '.');
    if (octets.size() != 4)
    {
        return false;
    }
    for (const std::string& octet : octets)
    {
        char* end = nullptr;
        const long value = std::strtol(octet.c_str(), &end, 10);
        if (octet.empty() || end != octet.c_str() + octet.size() || value < 0 ||
            value > kLargestOctet)
        {
            return false;
        }
    }
    return true;
}

bool macVerify(const std::string& text)
{
    std::vector<std::string> groups;
    split(groups, text, ':');
    if (groups.size() != 3 && groups.size() != 6)
    {
        return false;
    }
    for (const std::string& group : groups)
    {
        if (!two_hex_digits(group))
        {
            return false;
        }
    }
    return true;
}

bool convertString2Date(const std::string& text, struct tm& out)
try
{
    out = tm{};
    std::vector<std::string> pieces;
    split(pieces, text, ' ');
    const bool both = pieces.size() == 2;
    const bool time_only = !both && text.find(':') != std::string::npos;
    const bool date_only =
        !both && !time_only && text.find('/') != std::string::npos;
    if (!both && !time_only && !date_only)
    {
        return false;
    }
    if (both || date_only)
    {
        std::vector<std::string> nums;
        split(nums, both ? pieces[0] : text, '/');
        kv_return_val_if_fail_at(nums.size() == 3, false, kSource, 386);
        kv_return_val_if_fail_at(std::stoi(nums[0]) <= 2049, false, kSource,
                                 388);
        kv_return_val_if_fail_at(std::stoi(nums[1]) <= 12, false, kSource, 389);
        kv_return_val_if_fail_at(std::stoi(nums[1]) > 0, false, kSource, 390);
        kv_return_val_if_fail_at(std::stoi(nums[2]) <= 31, false, kSource, 391);
        kv_return_val_if_fail_at(std::stoi(nums[2]) > 0, false, kSource, 392);
        const int year = std::stoi(nums[0]);
        // Years have no lower bound, but one the calendar time cannot hold
        // is no date.
        if (year < INT_MIN + kFirstCalendarYear)
        {
            return false;
        }
        out.tm_year = year - kFirstCalendarYear;
        out.tm_mon = std::stoi(nums[1]) - 1;
        out.tm_mday = std::stoi(nums[2]);
    }
    return (both || time_only) ? read_time_of_day(both ? pieces[1] : text, out)
                               : true;
}
catch (const std::exception& e)
{
    std::cerr << "convertString2Date  " << e.what() << '\n';
    return false;
}

// SPDX-License-Identifier: Apache-2.0
// IPv6 text to four host-order words, without validation.
#include <libkv/foundation.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace
{

constexpr size_t kGroups = 8;
constexpr size_t kLongestText = 39; // eight groups of four and seven colons

int hex_digit(char c)
{
    if (c >= '0' && c <= '9')
    {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f')
    {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F')
    {
        return c - 'A' + 10;
    }
    return -1;
}

// Hexadecimal digits up to the first other character, low 16 bits kept.
uint16_t hex_group(std::string_view text)
{
    unsigned value = 0;
    for (const char c : text)
    {
        const int digit = hex_digit(c);
        if (digit < 0)
        {
            break;
        }
        value = ((value << 4) | static_cast<unsigned>(digit)) & 0xffff;
    }
    return static_cast<uint16_t>(value);
}

// Colon-separated groups of one side of "::"; input beyond eight groups is
// ignored so that bad text cannot overrun the address.
size_t split_groups(std::string_view side, uint16_t (&out)[kGroups])
{
    size_t count = 0;
    while (!side.empty() && count < kGroups)
    {
        const size_t colon = side.find(':');
        out[count++] = hex_group(side.substr(0, colon));
        if (colon == std::string_view::npos)
        {
            break;
        }
        side.remove_prefix(colon + 1);
    }
    return count;
}

} // namespace

// Words are split into groups and rebuilt, so a word the text names by one
// half only keeps its other half.
extern "C" int ipv6_parse(const char* text, uint32_t words[4])
{
    if (text == nullptr || words == nullptr)
    {
        return 0;
    }
    uint16_t groups[kGroups];
    for (size_t i = 0; i < kGroups; ++i)
    {
        groups[i] = static_cast<uint16_t>(words[i / 2] >> (i % 2 ? 0 : 16));
    }

    const std::string_view address(text, strnlen(text, kLongestText));
    const size_t gap = address.find("::");
    uint16_t named[kGroups];
    const size_t front = split_groups(address.substr(0, gap), named);
    std::copy(named, named + front, groups);
    if (gap != std::string_view::npos)
    {
        const size_t back = split_groups(address.substr(gap + 2), named);
        std::copy(named, named + back, groups + kGroups - back);
    }

    for (size_t i = 0; i < 4; ++i)
    {
        words[i] = (uint32_t{groups[2 * i]} << 16) | groups[2 * i + 1];
    }
    return 0;
}

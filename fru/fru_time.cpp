// SPDX-License-Identifier: Apache-2.0
// Board manufacturing dates: minutes since 1996-01-01 00:00 local time.
#include <libkv/fru.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace
{

time_t local_seconds(int year, int month, int day, int hour, int minute)
{
    std::tm t{};
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_isdst = -1; // whatever the zone says for that day
    return std::mktime(&t);
}

} // namespace

int get_time(char* text)
{
    if (text == nullptr)
    {
        return 0;
    }
    // Year, month, day, hour, minute; seconds are ignored.
    int parts[5];
    char* rest = nullptr;
    for (int i = 0; i < 5; ++i)
    {
        char* token = strtok_r(i == 0 ? text : nullptr, "/: ", &rest);
        if (token == nullptr)
        {
            return 0;
        }
        // Clamped so that the calendar arithmetic cannot overflow.
        parts[i] = static_cast<int>(
            std::clamp(std::strtol(token, nullptr, 10), -100000L, 100000L));
    }
    const time_t then =
        local_seconds(parts[0], parts[1], parts[2], parts[3], parts[4]);
    const time_t epoch = local_seconds(1996, 1, 1, 0, 0);
    return static_cast<int>(then / 60 - epoch / 60);
}

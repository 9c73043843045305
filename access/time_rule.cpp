// SPDX-License-Identifier: Apache-2.0
// A rule's validity period against the present moment.
#include <libkv/access.h>
#include <libkv/foundation.h>

#include <exception>
#include <iostream>

namespace
{

// A start without a date means a window on every day.
bool time_only(const tm& start)
{
    return start.tm_year == 0 && start.tm_mon == 0 && start.tm_mday == 0;
}

void put_on_day(tm& when, const tm& day)
{
    when.tm_year = day.tm_year;
    when.tm_mon = day.tm_mon;
    when.tm_mday = day.tm_mday;
}

} // namespace

bool timeCheckRule(const std::string& validTime)
try
{
    if (validTime.empty())
    {
        return true;
    }
    std::vector<std::string> ends;
    split(ends, validTime, '-');
    // A missing end reads as an empty one, which fails to convert like any
    // other malformed end.
    ends.resize(std::max<size_t>(ends.size(), 2));
    tm start{};
    tm end{};
    for (const auto& [text, date] :
         {std::pair{&ends[0], &start}, std::pair{&ends[1], &end}})
    {
        if (!convertString2Date(*text, *date))
        {
            // A stored period that cannot be read restricts nobody.
            veldmarke_log("timeCheckRule, time format error, time:%s",
                          text->c_str());
            return true;
        }
    }
    const time_t now = std::time(nullptr);
    if (time_only(start))
    {
        tm today{};
        localtime_r(&now, &today);
        put_on_day(start, today);
        put_on_day(end, today);
    }
    return std::mktime(&start) <= now && now <= std::mktime(&end);
}
catch (const std::exception& e)
{
    std::cerr << "timeCheckRule  " << e.what() << '\n';
    return false;
}

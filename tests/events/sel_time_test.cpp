// SPDX-License-Identifier: Apache-2.0
// SEL timestamps as text: unknown, counted from the controller's start, or
// local time of the zone in force, read again on every call.
#include "events_test.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace
{

using kv::test::TimeZone;

constexpr uint32_t kPlaceholder = 0x4EFFA2E1; // 2012-01-01 00:03:45 UTC

TEST(SelTime, Texts)
{
    const struct
    {
        const char* tz;
        uint32_t t;
        const char* fmt;
        const char* text;
    } cases[] = {
        {"UTC", kPlaceholder, "%H:%M %Z", "00:03 UTC"},
        {"America/New_York", kPlaceholder, "%H:%M %Z", "19:03 EST"},
        {"UTC-8", 0xFFFFFFFF, "%x", "Unknown"},
        // Start-up times are shown in UTC up to 0x20000000, and so are
        // times past 2038 (negative as signed values).
        {"UTC-8", 0x20000000, "%F %T %Z", "1987-01-05 18:48:32 GMT"},
        {"UTC-8", 0x20000001, "%F %T %Z", "1987-01-06 02:48:33 UTC"},
        {"UTC-8", 0x1000, "%F %T", "1970-01-01 01:08:16"},
        {"UTC-8", 0x80000000, "%F %T", "2038-01-19 03:14:08"},
        {"UTC-8", 0xFFFFFFFE, "%F %T %j %a %Z",
         "2106-02-07 06:28:14 038 Sun GMT"},
    };
    for (const auto& c : cases)
    {
        const TimeZone zone(c.tz);
        char buf[80];
        std::memset(buf, '#', sizeof buf);
        EXPECT_EQ(ipmi_strftime(buf, sizeof buf, c.fmt, c.t),
                  std::strlen(c.text));
        EXPECT_STREQ(buf, c.text);
    }
    EXPECT_FALSE(ipmi_timestamp_is_valid(-1));
    EXPECT_TRUE(ipmi_timestamp_is_valid(0));
    EXPECT_TRUE(ipmi_timestamp_is_special(0x1FFFFFFF));
    EXPECT_FALSE(ipmi_timestamp_is_special(0x20000000));
    EXPECT_TRUE(ipmi_timestamp_is_special(-28800));
}

TEST(SelTime, DateAndClockTexts)
{
    const TimeZone zone("Asia/Shanghai");
    char date[80] = "";
    char clock[80] = "";
    EXPECT_EQ(ipmi_timestamp_date(kPlaceholder, date), date);
    EXPECT_STREQ(date, "01/01/12");
    EXPECT_EQ(ipmi_timestamp_time(kPlaceholder, clock), clock);
    EXPECT_STREQ(clock, "08:03:45 GMTCST");
    // Start-up times: seconds since start as year and day of the year.
    EXPECT_STREQ(ipmi_timestamp_date(0x1000, date), "S+ 70/001");
    EXPECT_STREQ(ipmi_timestamp_date(100 * 86400 + 5, date), "S+ 70/101");
    EXPECT_STREQ(ipmi_timestamp_time(0x1000, clock), "01:08:16 GMTGMT");

    char untouched[16] = "keep";
    EXPECT_EQ(ipmi_timestamp_date(-1, untouched), nullptr);
    EXPECT_EQ(ipmi_timestamp_time(-1, untouched), untouched);
    EXPECT_STREQ(untouched, "keep");
    EXPECT_STREQ(ipmi_timestamp_fmt(0xFFFFFFFF, "%Y"), "Unknown");
    // One buffer for every formatted time.
    char* first = ipmi_timestamp_fmt(kPlaceholder, "%Y");
    EXPECT_EQ(ipmi_timestamp_fmt(kPlaceholder, "%m"), first);
    EXPECT_STREQ(first, "01");
    ipmi_timestamp_date(kPlaceholder, date);
    EXPECT_STREQ(first, "01/01/12");
}

TEST(SelTime, TextThatDoesNotFitGivesNothing)
{
    char buf[4] = "abc";
    EXPECT_EQ(ipmi_strftime(buf, sizeof buf, "%Y-%m", kPlaceholder), 0U);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(ipmi_strftime(buf, sizeof buf, nullptr, kPlaceholder), 0U);
    EXPECT_EQ(ipmi_strftime(nullptr, 4, "%Y", kPlaceholder), 0U);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// SEL timestamps as text: unknown, counted from the controller's start, or
// local time of the zone in force.
#include "events_test.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace
{

using kv::test::TimeZone;

constexpr uint32_t kPlaceholder = 0x4EFFA2E1; // 2012-01-01 00:03:45 UTC

std::string formatted(uint32_t t, const char* fmt)
{
    char buf[80];
    std::memset(buf, '#', sizeof buf);
    const size_t length = ipmi_strftime(buf, sizeof buf, fmt, t);
    EXPECT_EQ(length, std::strlen(buf));
    return buf;
}

TEST(SelTime, ValidAndStartUpTimes)
{
    EXPECT_FALSE(ipmi_timestamp_is_valid(-1));
    EXPECT_TRUE(ipmi_timestamp_is_valid(0));
    EXPECT_TRUE(ipmi_timestamp_is_special(0x1FFFFFFF));
    EXPECT_FALSE(ipmi_timestamp_is_special(0x20000000));
    EXPECT_TRUE(ipmi_timestamp_is_special(-28800));
}

TEST(SelTime, UnknownTime)
{
    char buf[16];
    EXPECT_EQ(ipmi_strftime(buf, sizeof buf, "%x", 0xFFFFFFFF), 7U);
    EXPECT_STREQ(buf, "Unknown");
    EXPECT_STREQ(ipmi_timestamp_fmt(0xFFFFFFFF, "%Y"), "Unknown");

    char untouched[16] = "keep";
    EXPECT_EQ(ipmi_timestamp_date(-1, untouched), nullptr);
    EXPECT_EQ(ipmi_timestamp_time(-1, untouched), untouched);
    EXPECT_STREQ(untouched, "keep");
}

TEST(SelTime, StartUpTimesAreShownInUtcUpToTheLimit)
{
    const TimeZone zone("UTC-8");
    // 0x20000000 is 1987-01-05 18:48:32 UTC.
    EXPECT_EQ(formatted(0x20000000, "%F %T %Z"), "1987-01-05 18:48:32 GMT");
    EXPECT_EQ(formatted(0x20000001, "%F %T %Z"), "1987-01-06 02:48:33 UTC");
    // Past 2038 the value is negative as a signed one: UTC again.
    EXPECT_EQ(formatted(0x80000000, "%F %T"), "2038-01-19 03:14:08");
    EXPECT_EQ(formatted(0xFFFFFFFE, "%F %T %j %a %Z"),
              "2106-02-07 06:28:14 038 Sun GMT");
    EXPECT_EQ(formatted(0x1000, "%F %T"), "1970-01-01 01:08:16");
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
}

TEST(SelTime, ZoneIsReadOnEveryCall)
{
    {
        const TimeZone zone("UTC");
        EXPECT_EQ(formatted(kPlaceholder, "%H:%M %Z"), "00:03 UTC");
    }
    const TimeZone zone("America/New_York");
    EXPECT_EQ(formatted(kPlaceholder, "%H:%M %Z"), "19:03 EST");
}

TEST(SelTime, OneBufferForEveryFormattedTime)
{
    const TimeZone zone("UTC");
    char* first = ipmi_timestamp_fmt(kPlaceholder, "%Y");
    char* second = ipmi_timestamp_fmt(kPlaceholder, "%m");
    EXPECT_EQ(first, second);
    EXPECT_STREQ(first, "01");
    char date[80];
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

// SPDX-License-Identifier: Apache-2.0
// The texts a rule is made of, and the network, MAC and time conditions.
#include "access_test.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <optional>

using namespace kv::access::test;

namespace
{

TEST(TextChecks, Ipv4AddressesAreFourOctetsOfAtMost255)
{
    for (const char* good : {"0.0.0.0", "192.168.1.255", "10.0.0.01"})
    {
        EXPECT_TRUE(ipv4VerifyIp(good)) << good;
    }
    for (const char* bad : {"10.0.0", "10.0.0.0.1", "10.0..1", "10.0.0.256",
                            "10.0.0.-1", "10.0.0.1x", "10.0.0.", ""})
    {
        EXPECT_FALSE(ipv4VerifyIp(bad)) << bad;
    }
}

TEST(TextChecks, MacAddressesAreThreeOrSixHexPairs)
{
    for (const char* good : {"00:11:22:33:44:55", "aA:bB:cC", "FF:ff:00"})
    {
        EXPECT_TRUE(macVerify(good)) << good;
    }
    for (const char* bad : {"00:11:22:33", "00:11:22:33:44:55:66", "0:11:22",
                            "000:11:22", "00:11:2g", "00-11-22", "", "00:11:"})
    {
        EXPECT_FALSE(macVerify(bad)) << bad;
    }
}

TEST(DateTexts, DateTimeDateAndTimeFormsFillOnlyTheirFields)
{
    tm out{};
    ASSERT_TRUE(convertString2Date("2024/3/1 08:30", out));
    EXPECT_EQ(124, out.tm_year);
    EXPECT_EQ(2, out.tm_mon);
    EXPECT_EQ(1, out.tm_mday);
    EXPECT_EQ(8, out.tm_hour);
    EXPECT_EQ(30, out.tm_min);
    EXPECT_EQ(0, out.tm_sec);

    out.tm_hour = 5;
    ASSERT_TRUE(convertString2Date("2024/03/01", out));
    EXPECT_EQ(0, out.tm_hour) << "cleared first";
    EXPECT_EQ(1, out.tm_mday);

    ASSERT_TRUE(convertString2Date("08:30:15", out));
    EXPECT_EQ(0, out.tm_year);
    EXPECT_EQ(0, out.tm_mday);
    EXPECT_EQ(15, out.tm_sec);
    EXPECT_EQ(0, out.tm_isdst);
}

TEST(DateTexts, OutOfRangeDatesFailWithTheGuardWarning)
{
    struct Case
    {
        const char* text;
        const char* warning;
    };
    const Case cases[] = {
        {"2050/1/1", "[common(388)] convertString2Date expression "
                     "\"std::stoi(nums[0]) <= 2049\" failed.\n"},
        {"2024/13/1", "[common(389)] convertString2Date expression "
                      "\"std::stoi(nums[1]) <= 12\" failed.\n"},
        {"2024/0/1", "[common(390)] convertString2Date expression "
                     "\"std::stoi(nums[1]) > 0\" failed.\n"},
        {"2024/1/32 10:00", "[common(391)] convertString2Date expression "
                            "\"std::stoi(nums[2]) <= 31\" failed.\n"},
        {"2024/1/0", "[common(392)] convertString2Date expression "
                     "\"std::stoi(nums[2]) > 0\" failed.\n"},
        {"2024/1", "[common(386)] convertString2Date expression "
                   "\"nums.size() == 3\" failed.\n"},
    };
    for (const Case& c : cases)
    {
        tm out{};
        EXPECT_FALSE(convertString2Date(c.text, out)) << c.text;
        EXPECT_THAT(trace_log(), HasSubstr(c.warning)) << c.text;
    }
    tm out{};
    EXPECT_TRUE(convertString2Date("2049/2/31", out)) << "no month lengths";
    EXPECT_TRUE(convertString2Date("-5/1/1", out)) << "no lowest year";
}

TEST(DateTexts, OtherMalformedTextsFail)
{
    tm out{};
    for (const char* bad : {"24:00", "10:60", "10:00:60", "10", "10:00:00:00",
                            "2024/1/1 10", "tomorrow", "", "2024/1/1 "})
    {
        EXPECT_FALSE(convertString2Date(bad, out)) << bad;
    }
    const std::string printed =
        stderr_of([&] { EXPECT_FALSE(convertString2Date("ab:cd", out)); });
    EXPECT_THAT(printed, HasSubstr("convertString2Date"));
    EXPECT_THAT(printed, HasSubstr("stoi"));
}

// "HH:MM:SS" of the moment `seconds` from now, kept within today.
std::string clock_text(long seconds)
{
    const time_t now = std::time(nullptr);
    tm today{};
    localtime_r(&now, &today);
    long of_day = today.tm_hour * 3600L + today.tm_min * 60L + today.tm_sec;
    of_day = std::clamp(of_day + seconds, 0L, 86399L);
    char text[64]; // room for any long, so no truncation to reason about
    std::snprintf(text, sizeof text, "%02ld:%02ld:%02ld", of_day / 3600,
                  of_day / 60 % 60, of_day % 60);
    return text;
}

// "YYYY/M/D" of the day `days` from today.
std::string day_text(int days)
{
    const time_t then = std::time(nullptr) + days * 86400L;
    tm day{};
    localtime_r(&then, &day);
    return std::to_string(day.tm_year + 1900) + "/" +
           std::to_string(day.tm_mon + 1) + "/" + std::to_string(day.tm_mday);
}

// Periods are read without daylight saving time; the tests build theirs in
// a zone that has none.
class ValidityPeriod : public testing::Test
{
  protected:
    void SetUp() override
    {
        const char* zone = std::getenv("TZ");
        saved_ =
            zone != nullptr ? std::optional<std::string>(zone) : std::nullopt;
        ::setenv("TZ", "UTC0", 1);
        ::tzset();
    }
    void TearDown() override
    {
        if (saved_)
        {
            ::setenv("TZ", saved_->c_str(), 1);
        }
        else
        {
            ::unsetenv("TZ");
        }
        ::tzset();
    }

  private:
    std::optional<std::string> saved_;
};

TEST_F(ValidityPeriod, DailyWindowAroundNowAdmitsAndOneAwayFromItRefuses)
{
    EXPECT_TRUE(timeCheckRule(clock_text(-120) + "-" + clock_text(120)));
    // A window wholly in the past or the future of today, whatever the hour.
    const time_t now = std::time(nullptr);
    tm today{};
    localtime_r(&now, &today);
    const std::string away = today.tm_hour >= 12
                                 ? "00:00:00-" + clock_text(-3600)
                                 : clock_text(3600) + "-23:59:59";
    EXPECT_FALSE(timeCheckRule(away)) << away;
    EXPECT_FALSE(timeCheckRule("23:59:59-00:00:00")) << "never wraps midnight";
}

TEST_F(ValidityPeriod, DatedPeriodsIncludeTheirEndsDay)
{
    EXPECT_TRUE(timeCheckRule(day_text(-1) + "-" + day_text(1)));
    EXPECT_TRUE(
        timeCheckRule(day_text(-400) + " 00:00-" + day_text(0) + " 23:59:59"));
    EXPECT_FALSE(timeCheckRule(day_text(1) + "-" + day_text(2)));
    EXPECT_FALSE(timeCheckRule(day_text(-3) + "-" + day_text(-1)));
    EXPECT_FALSE(timeCheckRule(day_text(-3) + "-" + day_text(0)))
        << "a date-only end is the midnight that starts it";
}

TEST_F(ValidityPeriod, EmptyOrUnreadablePeriodsAdmit)
{
    EXPECT_TRUE(timeCheckRule(""));
    EXPECT_TRUE(timeCheckRule("soon-later"));
    EXPECT_TRUE(timeCheckRule("08:00"));
    EXPECT_TRUE(timeCheckRule("2050/1/1-2051/1/1"));
    const std::string log = trace_log();
    EXPECT_THAT(log,
                HasSubstr("timeCheckRule, time format error, time:soon\n"));
    EXPECT_THAT(log, HasSubstr("timeCheckRule, time format error, time:\n"));
    EXPECT_THAT(log,
                HasSubstr("timeCheckRule, time format error, time:2050/1/1\n"));
}

TEST(NetworkRule, PrefixBitsDecideAndEveryDifferingByteIsLogged)
{
    EXPECT_TRUE(ipCheckRule("::ffff:192.168.1.20", "::ffff:192.168.1.0", 120));
    EXPECT_FALSE(ipCheckRule("::ffff:192.168.2.20", "::ffff:192.168.1.0", 120));
    EXPECT_TRUE(ipCheckRule("fe80::1234", "fe80::", 64));
    EXPECT_TRUE(ipCheckRule("fe80::1", "fe80::", 10));
    EXPECT_FALSE(ipCheckRule("fec0::1", "fe80::", 10));
    EXPECT_TRUE(ipCheckRule("2001:db8::1", "::", 0));
    EXPECT_TRUE(ipCheckRule("2001:db8::1", "2001:db8::1", 128));
    EXPECT_FALSE(ipCheckRule("2001:db8::2", "2001:db8::1", 128));
    const std::string log = trace_log();
    EXPECT_THAT(log, HasSubstr("ip not match, i:15, sa6_1:2, sa6_2:1\n"));
    EXPECT_THAT(log, HasSubstr("ip not match, bits:2, sa6_1:192, sa6_2:128\n"));
    EXPECT_THAT(log,
                HasSubstr("ipCheckRule failed, userip:::ffff:192.168.2.20, "
                          "ruleip:::ffff:192.168.1.0\xEF\xBC\x8C mask:120\n"));
}

TEST(NetworkRule, TextsThatAreNoIpv6AddressAndOverlongPrefixesNeverMatch)
{
    EXPECT_FALSE(ipCheckRule("10.0.0.5", "::ffff:10.0.0.0", 0));
    EXPECT_THAT(trace_log(),
                HasSubstr("ipCheckRule, ipv6 convert errot, ip:10.0.0.5\n"));
    EXPECT_FALSE(ipCheckRule("::1", "::1", 129));
    EXPECT_FALSE(ipCheckRule("::1", "::1", 255));
}

TEST(MacRule, RuleMacIsAPrefixInEitherCase)
{
    EXPECT_TRUE(macCheckRule("00:1a:2b:33:44:55", "00:1A:2B"));
    EXPECT_TRUE(macCheckRule("00:1a:2b:33:44:55", "00:1A:2B:33:44:55"));
    EXPECT_TRUE(macCheckRule("00:1a:2b:33:44:55", ""));
    EXPECT_FALSE(macCheckRule("00:1a:2c:33:44:55", "00:1a:2b"));
    EXPECT_FALSE(macCheckRule("00:1a", "00:1a:2b"));
    EXPECT_THAT(trace_log(), HasSubstr("mac check failed, usermac: "
                                       "00:1a:2c:33:44:55, rulemac:00:1a:2b, "
                                       "len:8\n"));
}

} // namespace

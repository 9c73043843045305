// Text trimming and tables, the sort, IPv6 texts, platform probes and the
// local-time texts.
#include "test_helpers.h"

#include <libkv/foundation.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace
{

using testing::ElementsAre;

TEST(Trim, LeadingTrailingAndBoth)
{
    EXPECT_STREQ(skip_leading_chars(" \t\r\n x y ", nullptr), "x y ");
    EXPECT_STREQ(skip_leading_chars("--=a-", "-="), "a-");
    char text[] = " a b \n\r\t ";
    EXPECT_EQ(delete_trailing_chars(text, nullptr), text);
    EXPECT_STREQ(text, " a b");
    char dashes[] = "a-b--";
    EXPECT_STREQ(delete_trailing_chars(dashes, "-"), "a-b");

    char both[] = "\t value 1 \r\n";
    char* stripped = string_strip(both);
    EXPECT_STREQ(stripped, "value 1");
    EXPECT_EQ(stripped, both + 2) << "result must point into the input";
}

TEST(Trim, DeleteStringBlankMovesTextToTheFront)
{
    char text[] = "   a\tb  ";
    EXPECT_EQ(delete_string_blank(text), 0);
    EXPECT_STREQ(text, "a\tb");
    char tabs[] = "\t a \t";
    delete_string_blank(tabs);
    EXPECT_STREQ(tabs, "\t a \t") << "only spaces are blanks here";
    char spaces[] = "    ";
    delete_string_blank(spaces);
    EXPECT_STREQ(spaces, "    ");
}

TEST(Text, EmptinessAndReversal)
{
    EXPECT_EQ(is_empty(nullptr), 1);
    EXPECT_EQ(is_empty(""), 1);
    EXPECT_EQ(is_empty(" "), 0);
    char odd[] = "abcde";
    EXPECT_STREQ(strrev(odd), "edcba");
    char even[] = "ab";
    EXPECT_STREQ(strrev(even), "ba");
}

TEST(ValueNames, LookupBothWays)
{
    const ValueName table[] = {
        {1, "one"}, {7, nullptr}, {2, "two"}, {7, "seven"}, {2, "deux"}};
    EXPECT_EQ(string_to_int(table, 5, "two"), 2);
    EXPECT_EQ(string_to_int(table, 5, "tw"), -1) << "prefix matched";
    EXPECT_EQ(string_to_int(table, 2, "two"), -1) << "rows not respected";
    EXPECT_EQ(string_to_int(nullptr, 5, "two"), -1);
    EXPECT_STREQ(int_to_string(table, 5, 2), "two");
    EXPECT_STREQ(int_to_string(table, 5, 7), "seven") << "NULL name matched";
    EXPECT_STREQ(int_to_string(table, 5, 3), "");
    EXPECT_STREQ(int_to_string(nullptr, 5, 1), "");
}

TEST(BubbleSort, SortsAscendingIncludingExtremes)
{
    std::vector<int> values = {5,       -3, INT_MAX, 0, INT_MIN, 5,
                               INT_MIN, 17, -1,      2, INT_MAX, -40000};
    std::vector<int> expected = values;
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(bubble_sort(values.data(), static_cast<int>(values.size())),
              values.data());
    EXPECT_EQ(values, expected);

    int only_first[] = {3, 2, 1};
    bubble_sort(only_first, 2);
    EXPECT_THAT(only_first, ElementsAre(2, 3, 1));
}

std::vector<uint32_t> parsed(const std::string& text,
                             std::vector<uint32_t> words = {0, 0, 0, 0})
{
    EXPECT_EQ(ipv6_parse(text.c_str(), words.data()), 0);
    return words;
}

TEST(Ipv6Parse, GroupsFillFromBothEndsOfTheGap)
{
    EXPECT_THAT(parsed("2001:db8:0:1:2:3:4:ABCD"),
                ElementsAre(0x20010db8, 0x00000001, 0x00020003, 0x0004abcd));
    EXPECT_THAT(parsed("fe80::1"), ElementsAre(0xfe800000, 0, 0, 1));
    EXPECT_THAT(parsed("1:2::7:8"), ElementsAre(0x00010002, 0, 0, 0x00070008));
    EXPECT_THAT(parsed("::ffff:a0b"), ElementsAre(0, 0, 0, 0xffff0a0b));
}

TEST(Ipv6Parse, UnnamedGroupsKeepTheirValues)
{
    const std::vector<uint32_t> previous = {0x11112222, 0x33334444, 0x55556666,
                                            0x77778888};
    EXPECT_EQ(parsed("::", previous), previous);
    EXPECT_THAT(parsed("a::b", previous),
                ElementsAre(0x000a2222, 0x33334444, 0x55556666, 0x7777000b));
    EXPECT_THAT(parsed("1:2:3", previous),
                ElementsAre(0x00010002, 0x00034444, 0x55556666, 0x77778888));
}

TEST(Ipv6Parse, BadTextStaysInsideTheAddress)
{
    // Twelve groups on either side: at most eight are taken.
    EXPECT_THAT(parsed("1:2:3:4:5:6:7:8:9:a:b:c"),
                ElementsAre(0x00010002, 0x00030004, 0x00050006, 0x00070008));
    EXPECT_THAT(parsed("::1:2:3:4:5:6:7:8:9:a:b:c"),
                ElementsAre(0x00010002, 0x00030004, 0x00050006, 0x00070008));
    // Text past 39 characters is not read; over-long groups keep 16 bits.
    EXPECT_THAT(parsed("1::" + std::string(35, '0') + "abcd"),
                ElementsAre(0x00010000, 0, 0, 0xa));
    EXPECT_THAT(parsed("12345::"), ElementsAre(0x23450000, 0, 0, 0));
}

TEST(Probes, DriveVendorFromModel)
{
    char out[16] = "untouched";
    EXPECT_EQ(get_raid_hdd_manufacturer("HGST intel", out), -1);
    EXPECT_EQ(get_raid_hdd_manufacturer("WDC ST", out), -1);
    EXPECT_STREQ(out, "untouched");
    EXPECT_EQ(get_raid_hdd_manufacturer("SSDSC2KB INTEL 480G", out), 0);
    EXPECT_STREQ(out, "Intel");
    EXPECT_EQ(get_raid_hdd_manufacturer("SAMSUNG MZ7LH", out), 0);
    EXPECT_STREQ(out, "Samsung");
    EXPECT_EQ(get_raid_hdd_manufacturer("st4000NM0035", out), 0);
    EXPECT_STREQ(out, "Seagate");
    EXPECT_EQ(get_raid_hdd_manufacturer("INTEL STyle", out), 0);
    EXPECT_STREQ(out, "Intel") << "order of the checks";
    EXPECT_EQ(get_sku(), 4);
}

// A 16 MiB image, zero but for an NV-data volume header at `offset` whose
// last GUID byte is xor-ed with `flip`.
void make_image(long offset, unsigned char flip = 0)
{
    const unsigned char guid[16] = {0x8d, 0x2b, 0xf1, 0xff, 0x96, 0x76,
                                    0x8b, 0x4c, 0xa9, 0x85, 0x27, 0x47,
                                    0x07, 0x5b, 0x4f, 0x50};
    std::ofstream("/tmp/bios").close();
    std::filesystem::resize_file("/tmp/bios", 16L << 20);
    std::fstream image("/tmp/bios", std::ios::in | std::ios::out);
    image.seekp(offset + 16);
    image.write(reinterpret_cast<const char*>(guid), 15);
    image.put(static_cast<char>(guid[15] ^ flip));
}

TEST(Probes, BiosImageNeedsTheNvVolumeOnAMiBBoundary)
{
    make_image(7L << 20);
    EXPECT_EQ(bios_is_legal("/tmp/bios"), 0);
    make_image(15L << 20);
    EXPECT_EQ(bios_is_legal("/tmp/bios"), 0);
    make_image(6L << 20);
    EXPECT_EQ(bios_is_legal("/tmp/bios"), 1);
    make_image((11L << 20) + 16);
    EXPECT_EQ(bios_is_legal("/tmp/bios"), 1);
    make_image(11L << 20, 0x01);
    EXPECT_EQ(bios_is_legal("/tmp/bios"), 1);
    EXPECT_EQ(bios_is_legal("/tmp/missing"), 1);
}

TEST(LocalTime, TimestampIsCtimeFormWithoutNewline)
{
    char buf[64];
    EXPECT_EQ(get_timestamp_string(buf), 0);
    EXPECT_THAT(std::string(buf),
                testing::MatchesRegex("[A-Z][a-z]{2} [A-Z][a-z]{2} [ 1-3][0-9] "
                                      "[0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}"));
}

TEST(LocalTime, TimeStringIsTheCalendarTime)
{
    char buf[32];
    const time_t before = time(nullptr);
    EXPECT_EQ(time_string_get(buf, sizeof buf), buf);
    const time_t after = time(nullptr);
    std::tm fields{};
    ASSERT_NE(strptime(buf, "%Y-%m-%d %H:%M:%S", &fields), nullptr) << buf;
    EXPECT_EQ(std::strlen(buf), 19u) << buf;
    fields.tm_isdst = -1;
    const time_t shown = mktime(&fields);
    EXPECT_GE(shown, before);
    EXPECT_LE(shown, after);
    EXPECT_STREQ(time_string_get(nullptr, 10), "");
}

} // namespace

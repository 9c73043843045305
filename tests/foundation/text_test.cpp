// SPDX-License-Identifier: Apache-2.0
// Text trimming and tables, the sort, IPv6 texts, platform probes and the
// local-time texts.
#include "foundation_test.h"

#include <algorithm>
#include <climits>
#include <ctime>
#include <fstream>

using namespace kv::foundation::test;

namespace
{
TEST(Trim, LeadingTrailingBothAndBlanks)
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

    // delete_string_blank moves the text to the front; only spaces count.
    char blank[] = "   a\tb  ";
    EXPECT_EQ(delete_string_blank(blank), 0);
    EXPECT_STREQ(blank, "a\tb");
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

// Groups fill from both ends of the gap; at most eight groups and 39
// characters are read, and an over-long group keeps its last 16 bits.
TEST(Ipv6Parse, GroupsFillFromBothEndsOfTheGapAndStayInsideTheAddress)
{
    EXPECT_THAT(parsed("2001:db8:0:1:2:3:4:ABCD"),
                ElementsAre(0x20010db8, 0x00000001, 0x00020003, 0x0004abcd));
    EXPECT_THAT(parsed("fe80::1"), ElementsAre(0xfe800000, 0, 0, 1));
    EXPECT_THAT(parsed("1:2::7:8"), ElementsAre(0x00010002, 0, 0, 0x00070008));
    EXPECT_THAT(parsed("::ffff:a0b"), ElementsAre(0, 0, 0, 0xffff0a0b));
    EXPECT_THAT(parsed("1:2:3:4:5:6:7:8:9:a:b:c"),
                ElementsAre(0x00010002, 0x00030004, 0x00050006, 0x00070008));
    EXPECT_THAT(parsed("::1:2:3:4:5:6:7:8:9:a:b:c"),
                ElementsAre(0x00010002, 0x00030004, 0x00050006, 0x00070008));
    EXPECT_THAT(parsed("1::" + std::string(35, '0') + "abcd"),
                ElementsAre(0x00010000, 0, 0, 0xa));
    EXPECT_THAT(parsed("12345::"), ElementsAre(0x23450000, 0, 0, 0));
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

TEST(Probes, DriveVendorFromModelAndTheSku)
{
    const auto vendor = [](const char* model) {
        char out[16] = "untouched";
        const int rc = get_raid_hdd_manufacturer(model, out);
        return std::to_string(rc) + " " + out;
    };
    EXPECT_EQ("-1 untouched", vendor("HGST intel"));
    EXPECT_EQ("-1 untouched", vendor("WDC ST"));
    EXPECT_EQ("0 Intel", vendor("SSDSC2KB INTEL 480G"));
    EXPECT_EQ("0 Samsung", vendor("SAMSUNG MZ7LH"));
    EXPECT_EQ("0 Seagate", vendor("st4000NM0035"));
    EXPECT_EQ("0 Intel", vendor("ST INTEL 480G")) << "order of the checks";
    EXPECT_EQ("0 Samsung", vendor("ST SAMSUNG")) << "order of the checks";
    EXPECT_EQ(get_sku(), 4);
}

// bios_is_legal of a 16 MiB image, zero but for an NV-data volume header (16
// zero bytes and the file system GUID) at `offset`, with byte `spoil` of the
// header changed.
int legal_with_volume_at(long offset, int spoil = -1)
{
    unsigned char header[32] = {0};
    const unsigned char guid[16] = {0x8d, 0x2b, 0xf1, 0xff, 0x96, 0x76,
                                    0x8b, 0x4c, 0xa9, 0x85, 0x27, 0x47,
                                    0x07, 0x5b, 0x4f, 0x50};
    std::memcpy(header + 16, guid, sizeof guid);
    if (spoil >= 0)
    {
        header[spoil] ^= 0x01;
    }
    std::ofstream("/tmp/bios").close();
    std::filesystem::resize_file("/tmp/bios", 16L << 20);
    std::fstream("/tmp/bios", std::ios::in | std::ios::out)
        .seekp(offset)
        .write(reinterpret_cast<const char*>(header), sizeof header);
    return bios_is_legal("/tmp/bios");
}

TEST(Probes, BiosImageNeedsTheNvVolumeOnAMiBBoundary)
{
    EXPECT_EQ(0, legal_with_volume_at(7L << 20));
    EXPECT_EQ(0, legal_with_volume_at(15L << 20));
    EXPECT_EQ(1, legal_with_volume_at(6L << 20));
    EXPECT_EQ(1, legal_with_volume_at((11L << 20) + 16));
    EXPECT_EQ(1, legal_with_volume_at(11L << 20, 31));
    EXPECT_EQ(1, legal_with_volume_at(11L << 20, 0));
    EXPECT_EQ(1, bios_is_legal("/tmp/missing"));
}

TEST(LocalTime, TimestampIsCtimeFormAndTimeStringTheCalendarTime)
{
    char stamp[64];
    EXPECT_EQ(get_timestamp_string(stamp), 0);
    EXPECT_THAT(std::string(stamp),
                testing::MatchesRegex("[A-Z][a-z]{2} [A-Z][a-z]{2} [ 1-3][0-9] "
                                      "[0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}"));

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

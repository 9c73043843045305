// SPDX-License-Identifier: Apache-2.0
// Text trimming and tables, the sort, IPv6 texts, platform probes and the
// local-time texts.
#include "foundation_test.h"

#include <algorithm>
#include <climits>

TEST(Text, TrimmingReversalAndTables)
{
    char text[] = " a b \n\r\t ", dashes[] = "a-b--", both[] = "\t v 1 \r\n";
    char blanks[] = "   a\tb  ", tabs[] = "\t a \t", spaces[] = "  ";
    char odd[] = "abcde", even[] = "ab";
    EXPECT_STREQ(skip_leading_chars(" \t\r\n x y ", nullptr), "x y ");
    EXPECT_STREQ(skip_leading_chars("--=a-", "-="), "a-");
    EXPECT_EQ(delete_trailing_chars(text, nullptr), text);
    EXPECT_STREQ(text, " a b");
    EXPECT_STREQ(delete_trailing_chars(dashes, "-"), "a-b");
    EXPECT_EQ(string_strip(both), both + 2) << "must point into the input";
    EXPECT_STREQ(both + 2, "v 1");
    // delete_string_blank moves the text to the front; only spaces count.
    for (char* s : {blanks, tabs, spaces})
    {
        EXPECT_EQ(delete_string_blank(s), 0);
    }
    EXPECT_EQ(std::string(blanks) + "|" + tabs + "|" + spaces,
              "a\tb|\t a \t|  ");
    EXPECT_EQ(std::string(strrev(odd)) + strrev(even), "edcbaba");
    EXPECT_EQ(is_empty(nullptr) + 2 * is_empty("") + 4 * is_empty(" "), 3);

    const ValueName table[] = {
        {1, "one"}, {7, nullptr}, {2, "two"}, {7, "seven"}, {2, "deux"}};
    EXPECT_EQ(string_to_int(table, 5, "two"), 2);
    EXPECT_EQ(string_to_int(table, 5, "tw"), -1) << "prefix matched";
    EXPECT_EQ(string_to_int(table, 2, "two"), -1) << "rows not respected";
    EXPECT_EQ(string_to_int(nullptr, 5, "two"), -1);
    EXPECT_STREQ(int_to_string(table, 5, 7), "seven") << "NULL name matched";
    EXPECT_STREQ(int_to_string(table, 5, 2), "two");
    EXPECT_STREQ(int_to_string(table, 5, 3), "");
    EXPECT_STREQ(int_to_string(nullptr, 5, 1), "");
}

TEST(Text, BubbleSortAscendingOverTheFirstNOnly)
{
    std::vector<int> v = {5, -3, INT_MAX, 0, INT_MIN, 5, INT_MIN, 17, -1, 2};
    std::vector<int> sorted = v;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(bubble_sort(v.data(), 10), v.data());
    EXPECT_EQ(v, sorted);
    int first_two[] = {3, 2, 1};
    bubble_sort(first_two, 2);
    EXPECT_THAT(first_two, testing::ElementsAre(2, 3, 1));
}

// Groups fill from both ends of the gap and unnamed ones keep their value;
// at most eight groups and 39 characters are read, and an over-long group
// keeps its last 16 bits.
TEST(Text, Ipv6Parse)
{
    using W = std::vector<uint32_t>;
    const W was = {0x11112222, 0x33334444, 0x55556666, 0x77778888};
    const std::pair<std::string, W> cases[] = {
        {"2001:db8:0:1:2:3:4:ABCD", {0x20010db8, 1, 0x20003, 0x4abcd}},
        {"fe80::1", {0xfe802222, 0x33334444, 0x55556666, 0x77770001}},
        {"1:2::7:8", {0x10002, 0x33334444, 0x55556666, 0x70008}},
        {"1:2:3:4:5:6:7:8:9:a:b:c", {0x10002, 0x30004, 0x50006, 0x70008}},
        {"::1:2:3:4:5:6:7:8:9:a:b:c", {0x10002, 0x30004, 0x50006, 0x70008}},
        {"1::" + std::string(35, '0') + "abcd",
         {0x12222, 0x33334444, 0x55556666, 0x7777000a}},
        {"12345::", {0x23452222, 0x33334444, 0x55556666, 0x77778888}},
        {"1:2:3", {0x10002, 0x34444, 0x55556666, 0x77778888}}};
    for (const auto& [text, words] : cases)
    {
        W out = was;
        EXPECT_EQ(ipv6_parse(text.c_str(), out.data()), 0);
        EXPECT_EQ(out, words) << text;
    }
}

// A 16 MiB image, zero but for an NV-data volume header (16 zero bytes and
// the file system GUID) at `offset`, with byte `spoil` changed.
int legal_with_volume_at(long offset, int spoil = -1)
{
    std::string image(16 << 20, '\0');
    image.replace(offset + 16, 16,
                  "\x8d\x2b\xf1\xff\x96\x76\x8b\x4c\xa9\x85"
                  "\x27\x47\x07\x5b\x4f\x50");
    if (spoil >= 0)
    {
        image[offset + spoil] ^= 1;
    }
    write_text("/tmp/bios", image);
    return bios_is_legal("/tmp/bios");
}

TEST(Text, ProbesOfTheBiosImageTheDriveVendorAndTheSku)
{
    EXPECT_EQ(0, legal_with_volume_at(7L << 20));
    EXPECT_EQ(0, legal_with_volume_at(15L << 20));
    EXPECT_EQ(1, legal_with_volume_at(6L << 20));
    EXPECT_EQ(1, legal_with_volume_at((11L << 20) + 16));
    EXPECT_EQ(1, legal_with_volume_at(11L << 20, 31));
    EXPECT_EQ(1, legal_with_volume_at(11L << 20, 0));
    EXPECT_EQ(1, bios_is_legal("/tmp/missing"));
    std::string vendors;
    for (const char* model : {"HGST intel", "SSDSC2KB INTEL", "SAMSUNG MZ7",
                              "st4000NM", "ST INTEL", "ST SAMSUNG"})
    {
        char out[16] = "-";
        vendors += std::to_string(get_raid_hdd_manufacturer(model, out)) + out;
    }
    EXPECT_EQ(vendors, "-1-0Intel0Samsung0Seagate0Intel0Samsung");
    EXPECT_EQ(get_sku(), 4);
}

TEST(Text, TimestampIsCtimeFormAndTimeStringTheCalendarTime)
{
    char stamp[64], buf[32];
    EXPECT_EQ(get_timestamp_string(stamp), 0);
    EXPECT_THAT(std::string(stamp),
                MatchesRegex("[A-Z][a-z]{2} [A-Z][a-z]{2} [ 1-3][0-9] "
                             "[0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}"));
    const time_t before = time(nullptr);
    EXPECT_EQ(time_string_get(buf, sizeof buf), buf);
    const time_t after = time(nullptr);
    std::tm fields{};
    EXPECT_EQ(strptime(buf, "%Y-%m-%d %H:%M:%S", &fields), buf + 19);
    EXPECT_EQ(buf[19], '\0');
    fields.tm_isdst = -1;
    EXPECT_THAT(mktime(&fields),
                testing::AllOf(testing::Ge(before), testing::Le(after)));
    EXPECT_STREQ(time_string_get(nullptr, 10), "");
}

// SPDX-License-Identifier: Apache-2.0
// CRC-16, text trimming and tables, the sort, IPv6 texts, platform probes
// and the local-time texts.
#include "foundation_test.h"

#include <climits>

// The library checks its table against the published check value when it
// builds; here the entry points. The header's check field, bytes 36 to 39,
// is skipped and nothing else; anything but a 64-byte header is refused and
// the start value returned.
TEST(Text, Helpers)
{
    EXPECT_EQ(0x31C3, calc_crc16((const uint8_t*)"123456789", 9));
    uint8_t head[64];
    uint16_t crc = 0xBEEF;
    for (int i = 0; i < 64; ++i)
        if (head[i] = 0x41 + i; i < 36 || i > 39)
            crc = CalculateCrc16Base(crc, head[i]);
    EXPECT_EQ(crc, CalculateHeaderCrc16(0xBEEF, head, 64));
    EXPECT_EQ(CalculateHeaderCrc16(7, head, 65) +
                  CalculateHeaderCrc16(7, nullptr, 64),
              14);

    char text[] = " a b \n\r\t ", dashes[] = "a-b--", both[] = "\t v 1 \r\n";
    char blanks[] = "   a\tb  ", tabs[] = "\t a \t", sp[] = "  ", odd[] = "abc";
    EXPECT_STREQ(skip_leading_chars(" \t\r\n x y ", nullptr), "x y ");
    EXPECT_STREQ(skip_leading_chars("--=a-", "-="), "a-");
    EXPECT_STREQ(delete_trailing_chars(text, nullptr), " a b");
    EXPECT_STREQ(delete_trailing_chars(dashes, "-"), "a-b");
    EXPECT_EQ(string_strip(both), both + 2);
    EXPECT_STREQ(both + 2, "v 1");
    // delete_string_blank moves the text to the front; only spaces count.
    for (char* s : {blanks, tabs, sp})
        EXPECT_EQ(delete_string_blank(s), 0);
    EXPECT_EQ(blanks + "|"s + tabs + sp + strrev(odd), "a\tb|\t a \t  cba");
    EXPECT_EQ(is_empty(nullptr) + 2 * is_empty("") + 4 * is_empty(" "), 3);

    // Only the first n are sorted, extremes included.
    int v[] = {5, -3, INT_MAX, 0, INT_MIN, 5, INT_MIN, 17, -1, 2};
    EXPECT_EQ(bubble_sort(v, 9), v);
    EXPECT_THAT(v, testing::ElementsAre(INT_MIN, INT_MIN, -3, -1, 0, 5, 5, 17,
                                        INT_MAX, 2));

    // A prefix does not match, nor a row past the count given.
    const ValueName t[] = {
        {1, "one"}, {7, nullptr}, {2, "two"}, {7, "seven"}, {2, "deux"}};
    EXPECT_EQ(string_to_int(t, 5, "two") * 100 + string_to_int(t, 5, "tw") +
                  string_to_int(t, 2, "two") + string_to_int(nullptr, 5, "x"),
              197);
    EXPECT_EQ(int_to_string(t, 5, 7) + S(int_to_string(t, 5, 2)) +
                  int_to_string(t, 5, 3) + int_to_string(nullptr, 5, 1),
              "seventwo");

    // Groups fill from both ends of the gap and unnamed ones keep their value;
    // at most eight groups and 39 characters are read, and an over-long group
    // keeps its last 16 bits.
    using W = std::vector<uint32_t>;
    const std::pair<S, W> cases[] = {
        {"2001:db8:0:1:2:3:4:ABCD", {0x20010db8, 1, 0x20003, 0x4abcd}},
        {"1:2::7:8", {0x10002, 0x33334444, 0x55556666, 0x70008}},
        {"1:2:3:4:5:6:7:8:9:a:b:c", {0x10002, 0x30004, 0x50006, 0x70008}},
        {"1::" + S(35, '0') + "abcd",
         {0x12222, 0x33334444, 0x55556666, 0x7777000a}}};
    for (const auto& [text, words] : cases)
    {
        W out = {0x11112222, 0x33334444, 0x55556666, 0x77778888};
        EXPECT_EQ(ipv6_parse(text.c_str(), out.data()), 0);
        EXPECT_EQ(out, words) << text;
    }
}

// A 16 MiB image is legal with an NV-data volume header (16 zero bytes and
// the file system GUID) at a MiB from 7 to 15; byte `spoil` changed.
TEST(Text, Probes)
{
    const std::tuple<long, int, int> images[] = {{7L << 20, -1, 0},
                                                 {15L << 20, -1, 0},
                                                 {6L << 20, -1, 1},

                                                 {11L << 20, 31, 1},
                                                 {11L << 20, 0, 1}};
    for (auto [offset, spoil, legal] : images)
    {
        S image(16 << 20, '\0');
        image.replace(offset + 16, 16,
                      "\x8d\x2b\xf1\xff\x96\x76\x8b\x4c\xa9\x85"
                      "\x27\x47\x07\x5b\x4f\x50");
        if (spoil >= 0)
            image[offset + spoil] ^= 1;
        write_text("/tmp/bios", image);
        EXPECT_EQ(legal, bios_is_legal("/tmp/bios")) << offset << spoil;
    }
    EXPECT_EQ(1, bios_is_legal("/tmp/missing"));
    S vendors;
    for (const char* model : {"HGST intel", "ST INTEL", "SAMSUNG", "st4000"})
    {
        char out[16] = "-";
        vendors += std::to_string(get_raid_hdd_manufacturer(model, out)) + out;
    }
    EXPECT_EQ(vendors, "-1-0Intel0Samsung0Seagate");

    // The time string is the local time now.
    char buf[32], want[32];
    for (time_t now = 0; now != time(nullptr);)
    {
        now = time(nullptr);
        strftime(want, sizeof want, "%F %T", localtime(&now));
        EXPECT_EQ(time_string_get(buf, sizeof buf), buf);
    }
    EXPECT_STREQ(buf, want);
    EXPECT_STREQ(time_string_get(nullptr, 10), "");
}

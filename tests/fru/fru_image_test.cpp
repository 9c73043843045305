// SPDX-License-Identifier: Apache-2.0
// The FRU record as a binary image: building, parsing and the image file.
#include "test_helpers.h"

#include <libkv/fru.h>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstring>
#include <numeric>

namespace
{

using B = std::vector<uint8_t>;
using namespace kv::test;

void set(kv_fru_field& f, const std::string& s)
{
    f.type_len = uint8_t(0xC0 + s.size());
    std::memcpy(f.data, s.data(), s.size());
}

// Every fixed field holds text, as the ini reader leaves them.
void fill()
{
    EXPECT_EQ(fru_init(), 0);
    auto fill = [](auto& fields) {
        for (auto& f : fields)
        {
            set(f, "Field");
        }
    };
    fill(fru.chassis.field);
    fill(fru.board.field);
    fill(fru.product.field);
}

uint8_t sum(const uint8_t* p, std::size_t n)
{
    return std::accumulate(p, p + n, 0u) & 0xFF;
}

B built()
{
    EXPECT_EQ(get_fru_date(), 0);
    return B(bmc_fru_date, bmc_fru_date + bmc_fru_len);
}

// An exactly sized heap copy, so the sanitizer sees any overread.
int parse(const B& img)
{
    return parse_bin_date(B(img).data(), int(img.size()));
}

// Every area padded to a multiple of 8 and summing to 0, for every
// padding length, each where the header says.
TEST(Build, Areas)
{
    for (std::size_t n = 0; n < 16; ++n)
    {
        fill();
        set(fru.product.field[KV_FRU_PRODUCT_NAME], std::string(n, 'x'));
        get_multirecord_date();
        const B img = built();
        std::size_t at = 8, i = 2;
        for (auto* a : {&fru_buff.chassis, &fru_buff.board, &fru_buff.product})
        {
            EXPECT_EQ(img[i++] * 8u, at);
            EXPECT_EQ(img[at + 1] * 8u, a->count);
            EXPECT_EQ(sum(&img[at], a->count), 0);
            at += a->count;
        }
        EXPECT_EQ(img[at - 2 - fru.product.pad_count], 0xC1);
        // The header has no multirecord offset, only the record has.
        EXPECT_EQ(B(&img[0], &img[8]),
                  (B{1, 0, img[2], img[3], img[4], 0, 0, img[7]}));
        EXPECT_EQ(fru.header.multirecord_offset * 8u, at);
        EXPECT_EQ(img.size(), at + 22); // and the multirecord block
    }
}

TEST(Build, BadTypeLength)
{
    // A fixed field is always present: 0 is not "absent" there.
    const std::tuple<uint8_t*, uint8_t, int> cases[] = {
        {&fru.chassis.custom.type_len[2], 0xBF, 4},
        {&fru.board.custom.type_len[7], 5, 5},
        {&fru.product.field[KV_FRU_PRODUCT_FILE_ID].type_len, 0, 6}};
    for (auto [byte, value, result] : cases)
    {
        fill();
        *byte = value;
        EXPECT_EQ(get_fru_date(), result);
    }
    EXPECT_EQ(get_product_date(), -1);
}

TEST(Parse, RoundTripAndDamage)
{
    fill();
    set(fru.board.field[2], std::string(63, 's'));
    fru.board.custom.type_len[0] = 0xC0;
    fru.product.custom.type_len[7] = 0xC2;
    std::memcpy(fru.product.custom.data[7], "Zz", 2);
    const B img = built();
    const kv_fru_record old = fru;
    fru_init();
    ASSERT_EQ(parse(img), 0);
    EXPECT_EQ(0, std::memcmp(fru.board.field, old.board.field,
                             sizeof old.board.field));
    // Absent custom fields leave no trace: the one left moves to slot 0.
    EXPECT_EQ(
        B(&fru.product.custom.type_len[0], &fru.product.custom.type_len[8]),
        (B{0xC2, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ('z', fru.product.custom.data[0][1]);
    EXPECT_EQ(built(), img);

    const int n = int(img.size());
    // Byte flipped (-1: none), length given, result.
    const int cases[][3] = {{7, n, 9},
                            {-1, 7, 9},
                            {img[2] * 8 + 5, n, 10},
                            {img[3] * 8 + 5, n, 11},
                            {img[4] * 8 + 5, n, 12},
                            {n - 1, n, 12},
                            {-1, n - 1, 12}};
    for (auto [flip, length, result] : cases)
    {
        B bad(img.begin(), img.begin() + length);
        if (flip >= 0)
        {
            bad[flip] ^= 1;
        }
        EXPECT_EQ(parse(bad), result) << flip;
    }
    // A chassis offset past the end of the image.
    EXPECT_EQ(parse({1, 0, 9, 0, 0, 0, 0, 0xF6}), 10);
}

// Info area around `body` (after the length byte up to the end marker),
// padded and checksummed, or, with `size`, cut or stretched to it.
B area(B a, std::size_t size = 0)
{
    a.insert(a.begin(), {1, 0});
    a.resize(size ? size - 1 : (a.size() + 8) / 8 * 8 - 1);
    a[1] = uint8_t((a.size() + 1) / 8);
    a.push_back(uint8_t(-sum(a.data(), a.size())));
    return a;
}

// Refused without a stray access (the fuzz target hunts those) and with
// the right result.
TEST(Parse, MalformedAreas)
{
    auto customs = [](int n) {
        B body{2, 0xC0, 0xC0};
        body.insert(body.end(), n, 0xC0);
        body.push_back(0xC1);
        return area(body);
    };
    const std::pair<B, int> cases[] = {
        {customs(8), 0},
        {customs(9), -31},
        {area({2, 0xC0, 0xC0, 0xC5, 'a'}), -32}, // runs past its area
        {area({2, 0xC0, 0xC0, 0xC1}, 256), -31}};
    for (const auto& [a, single] : cases)
    {
        EXPECT_EQ(parse_bin_to_chassis(a.data()), single);
        // Header with only a chassis area.
        B img{1, 0, 1, 0, 0, 0, 0, 0xFE};
        img.insert(img.end(), a.begin(), a.end());
        EXPECT_EQ(parse(img), single ? 10 : 0);
    }
}

// Minutes since 1996 with both ends in local time: summer time, but not
// winter time, moves the count.
TEST(Time, LocalTime)
{
    setenv("TZ", "Europe/Berlin", 1);
    tzset();
    char summer[] = "2019/07/27 15:04:59", winter[] = "2019/01/27 15:04";
    EXPECT_EQ(get_time(summer), 12396424 - 60);
    EXPECT_EQ(get_time(winter), 12135784);
    unsetenv("TZ");
    tzset();
}

// Written in place (an older, longer image keeps its tail), and a short write
// on a full disk is reported.
TEST(File, DefaultBin)
{
    write_text("default-fru.bin", std::string(2000, 'z'));
    fill();
    const B img = built();
    ASSERT_EQ(write_to_bin(), 0);
    EXPECT_EQ(read_text("default-fru.bin"),
              std::string(img.begin(), img.end()) +
                  std::string(2000 - img.size(), 'z'));
    // Lift the limit again before the captured output is flushed.
    std::remove("default-fru.bin");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{}, small{16, 16};
    getrlimit(RLIMIT_FSIZE, &old);
    small.rlim_max = old.rlim_max;
    int result = 0;
    stdout_of([&] {
        setrlimit(RLIMIT_FSIZE, &small);
        result = write_to_bin();
        setrlimit(RLIMIT_FSIZE, &old);
    });
    EXPECT_EQ(result, -12);
}

} // namespace

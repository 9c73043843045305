// SPDX-License-Identifier: Apache-2.0
// The FRU record as a binary image: building, parsing and the image file.
#include "test_helpers.h"

#include <libkv/fru.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <numeric>
#include <string>
#include <vector>

namespace
{

using Bytes = std::vector<uint8_t>;
using kv::test::read_text;
using kv::test::stdout_of;
using kv::test::write_text;

void set(kv_fru_field& field, const std::string& text)
{
    field.type_len = static_cast<uint8_t>(0xC0 + text.size());
    std::memcpy(field.data, text.data(), text.size());
}

// A record whose fixed fields all hold text, as the ini reader leaves them.
void fill_record()
{
    fru_init();
    for (auto& f : fru.chassis.field)
    {
        set(f, "C");
    }
    for (auto& f : fru.board.field)
    {
        set(f, "Board");
    }
    for (auto& f : fru.product.field)
    {
        set(f, "Product");
    }
}

unsigned sum(const uint8_t* p, std::size_t n)
{
    return std::accumulate(p, p + n, 0u) & 0xFF;
}

Bytes image()
{
    return Bytes(bmc_fru_date, bmc_fru_date + bmc_fru_len);
}

// An info area around `body` (everything after the length byte up to and
// including the end marker), padded and checksummed as a builder would.
Bytes area(Bytes body)
{
    Bytes a(2 + body.size(), 1);
    std::copy(body.begin(), body.end(), a.begin() + 2);
    a.resize((a.size() + 1 + 7) / 8 * 8 - 1);
    a[1] = static_cast<uint8_t>((a.size() + 1) / 8);
    a.push_back(static_cast<uint8_t>(0x100 - sum(a.data(), a.size())));
    return a;
}

// Header with only a chassis area at offset 1, then `chassis`.
Bytes chassis_only(const Bytes& chassis)
{
    Bytes img(8 + chassis.size());
    img[0] = img[2] = 1;
    img[7] = static_cast<uint8_t>(0x100 - sum(img.data(), 7));
    std::copy(chassis.begin(), chassis.end(), img.begin() + 8);
    return img;
}

TEST(Build, EveryAreaIsPaddedToEightAndSumsToZero)
{
    bool saw_no_padding = false;
    for (std::size_t n = 0; n < 16; ++n)
    {
        fill_record();
        set(fru.product.field[KV_FRU_PRODUCT_NAME], std::string(n, 'x'));
        fru.board.custom.type_len[3] = 0xC0; // present and empty
        ASSERT_EQ(get_fru_date(), 0);

        const kv_fru_area_buffer* areas[] = {&fru_buff.chassis, &fru_buff.board,
                                             &fru_buff.product};
        std::size_t at = 8;
        for (const kv_fru_area_buffer* a : areas)
        {
            ASSERT_EQ(a->count % 8, 0u);
            EXPECT_EQ(a->data[1] * 8u, a->count);
            EXPECT_EQ(sum(a->data, a->count), 0u);
            EXPECT_EQ(std::memcmp(bmc_fru_date + at, a->data, a->count), 0);
            at += a->count;
        }
        EXPECT_EQ(bmc_fru_len, at);
        const uint8_t pad = fru.product.pad_count;
        EXPECT_EQ(fru_buff.product.data[fru_buff.product.count - 2 - pad],
                  0xC1);
        saw_no_padding |= pad == 0;
    }
    EXPECT_TRUE(saw_no_padding);
}

TEST(Build, HeaderNeverCarriesTheMultirecordOffset)
{
    fill_record();
    get_multirecord_date();
    ASSERT_EQ(get_fru_date(), 0);
    const Bytes img = image();
    const unsigned chassis = fru_buff.chassis.count / 8;
    const unsigned board = fru_buff.board.count / 8;
    const unsigned product = fru_buff.product.count / 8;
    EXPECT_EQ(Bytes(img.begin(), img.begin() + 7),
              (Bytes{1, 0, 1, static_cast<uint8_t>(1 + chassis),
                     static_cast<uint8_t>(1 + chassis + board), 0, 0}));
    EXPECT_EQ(sum(img.data(), 8), 0u);
    // The record knows where the block is; the image does not say.
    EXPECT_EQ(fru.header.multirecord_offset, 1 + chassis + board + product);
    EXPECT_EQ(fru.header.pad, fru.header.multirecord_offset + 3);
    ASSERT_EQ(img.size(), 8 * (1 + chassis + board + product) + 22);
    EXPECT_EQ(Bytes(img.end() - 22, img.end() - 17),
              (Bytes{0xC0, 0x82, 0x11, 0xBB, 0xF2}));
}

TEST(Build, InvalidTypeLengthBytesFailTheirArea)
{
    fill_record();
    fru.chassis.custom.type_len[2] = 0x05;
    EXPECT_EQ(get_fru_date(), 4);
    fill_record();
    fru.board.custom.type_len[7] = 0x05;
    EXPECT_EQ(get_fru_date(), 5);
    fill_record();
    fru.product.custom.type_len[0] = 0x05;
    EXPECT_EQ(get_fru_date(), 6);
    // A fixed field is always present: 0 is not "absent" there.
    fill_record();
    fru.board.field[KV_FRU_BOARD_FILE_ID].type_len = 0;
    EXPECT_EQ(get_fru_date(), 5);
}

TEST(Parse, RoundTripRebuildsTheSameImage)
{
    fill_record();
    set(fru.board.field[KV_FRU_BOARD_SERIAL_NUMBER], std::string(63, 's'));
    fru.board.custom.type_len[0] = 0xC0;
    fru.product.custom.type_len[7] = 0xC2;
    std::memcpy(fru.product.custom.data[7], "Zz", 2);
    ASSERT_EQ(get_fru_date(), 0);
    const Bytes built = image();
    const kv_fru_record before = fru;

    fru_init();
    ASSERT_EQ(parse_bin_date(built.data(), static_cast<int>(built.size())), 0);
    EXPECT_EQ(std::memcmp(&fru.board.field, &before.board.field,
                          sizeof fru.board.field),
              0);
    // Absent custom fields leave no trace: the one left moves to slot 0.
    EXPECT_EQ(fru.product.custom.type_len[0], 0xC2);
    EXPECT_EQ(std::memcmp(fru.product.custom.data[0], "Zz", 2), 0);
    EXPECT_EQ(fru.product.custom.type_len[7], 0);
    EXPECT_EQ(fru.product.checksum, before.product.checksum);
    EXPECT_EQ(fru.product.pad_count, before.product.pad_count);

    // Raw copies: over the count word for chassis, in the data for product.
    EXPECT_EQ(fru_buff.chassis.count, fru.chassis.length * 8u);
    EXPECT_EQ(std::memcmp(fru_buff.chassis.data, built.data() + 8 + 4,
                          fru_buff.chassis.count - 4),
              0);
    EXPECT_EQ(std::memcmp(fru_buff.product.data,
                          built.data() + fru.header.product_offset * 8,
                          fru_buff.product.count),
              0);

    ASSERT_EQ(get_fru_date(), 0);
    EXPECT_EQ(image(), built);
}

TEST(Parse, BadHeaderOrAreaIsReportedByArea)
{
    fill_record();
    ASSERT_EQ(get_fru_date(), 0);
    const Bytes good = image();
    const int size = static_cast<int>(good.size());

    Bytes bad = good;
    bad[6] = 1;
    EXPECT_EQ(parse_bin_date(bad.data(), size), 9);
    for (int i = 2; i <= 4; ++i)
    {
        bad = good;
        bad[good[i] * 8 + 5] ^= 1; // area checksum
        EXPECT_EQ(parse_bin_date(bad.data(), size), 8 + i);
    }
    // The length argument bounds the reads: a cut image loses its product.
    EXPECT_EQ(parse_bin_date(good.data(), size - 1), 12);
    EXPECT_EQ(parse_bin_date(good.data(), 7), 9);
}

TEST(Parse, MalformedAreasAreRefusedWithoutStrayAccess)
{
    const Bytes fixed{2, 0xC0, 0xC0}; // type, part and serial number
    auto with_customs = [&](int n) {
        Bytes body = fixed;
        body.insert(body.end(), n, 0xC0);
        body.push_back(0xC1);
        return area(body);
    };
    // Exactly sized heap copies, so the sanitizer sees any overread.
    auto parse = [](const Bytes& img) {
        return parse_bin_date(Bytes(img).data(), static_cast<int>(img.size()));
    };

    EXPECT_EQ(parse(chassis_only(with_customs(8))), 0);
    EXPECT_EQ(fru.chassis.custom.type_len[7], 0xC0);
    EXPECT_EQ(parse(chassis_only(with_customs(9))), 10);
    EXPECT_EQ(parse_bin_to_chassis(with_customs(9).data()), -31);

    // Length byte claims more than the image holds.
    const Bytes whole = chassis_only(with_customs(3));
    EXPECT_EQ(parse_bin_date(Bytes(whole.begin(), whole.end() - 8).data(),
                             static_cast<int>(whole.size() - 8)),
              10);

    // A field longer than the rest of its area, checksum still right.
    Bytes body = fixed;
    body.insert(body.end(), {0xC5, 'a'});
    Bytes a = area(body);
    EXPECT_EQ(a.size(), 8u);
    EXPECT_EQ(parse_bin_to_chassis(a.data()), -32);
    EXPECT_EQ(parse(chassis_only(a)), 10);

    // No end marker before the checksum, a non-ASCII field, a 256-byte area.
    EXPECT_EQ(parse_bin_to_chassis(area({2, 0xC0, 0xC0, 0xC0, 0xC0}).data()),
              -32);
    EXPECT_EQ(parse_bin_to_chassis(area({2, 0xC0, 0xC0, 0x05, 0xC1}).data()),
              -32);
    Bytes big = with_customs(0);
    big[1] = 32;
    big.resize(256);
    big[255] = static_cast<uint8_t>(0x100 - sum(big.data(), 255));
    EXPECT_EQ(parse_bin_to_chassis(big.data()), -31);

    // An offset past the end of the image.
    Bytes header{1, 0, 9, 0, 0, 0, 0, 0};
    header[7] = static_cast<uint8_t>(0x100 - sum(header.data(), 7));
    EXPECT_EQ(parse(header), 10);
}

TEST(Time, MinutesSince1996InLocalTime)
{
    setenv("TZ", "UTC", 1);
    tzset();
    char when[] = "2019/07/27 15:04:00";
    EXPECT_EQ(get_time(when), 12396424); // 8608 days and 15:04
    char defaults[] = "2017/03/10 10:18";
    EXPECT_EQ(get_time(defaults), 0xAA0E4A);

    // Both ends in local time: summer time in July, standard in January.
    setenv("TZ", "Europe/Berlin", 1);
    tzset();
    char summer[] = "2019/07/27 15:04:59";
    EXPECT_EQ(get_time(summer), 12396424 - 60);

    char no_clock[] = "2019/07/27";
    EXPECT_EQ(get_time(no_clock), 0);
    char no_minute[] = "2019/07/27 15";
    EXPECT_EQ(get_time(no_minute), 0);
    unsetenv("TZ");
    tzset();
}

TEST(File, WritesInPlaceWithModeZero)
{
    write_text("/tmp/default-fru.bin", std::string(2000, 'z'));
    fill_record();
    ASSERT_EQ(get_fru_date(), 0);
    ASSERT_EQ(write_to_bin(), 0);
    const std::string on_disk = read_text("/tmp/default-fru.bin").value();
    ASSERT_EQ(on_disk.size(), 2000u); // not truncated
    const Bytes built = image();
    EXPECT_EQ(on_disk.substr(0, bmc_fru_len),
              std::string(built.begin(), built.end()));
    EXPECT_EQ(on_disk.back(), 'z');

    ASSERT_EQ(std::remove("/tmp/default-fru.bin"), 0);
    ASSERT_EQ(write_to_bin(), 0);
    struct stat st = {};
    ASSERT_EQ(stat("/tmp/default-fru.bin", &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0u);
}

TEST(File, ShortWriteIsReported)
{
    fill_record();
    ASSERT_EQ(get_fru_date(), 0);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit small = old;
    small.rlim_cur = 16;
    // Captured output goes to a file too: lift the limit before it flushes.
    int result = 0;
    const std::string out = stdout_of([&] {
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
        result = write_to_bin();
        setrlimit(RLIMIT_FSIZE, &old);
    });
    EXPECT_EQ(result, -12);
    EXPECT_EQ(out, "write bin file error2.");
}

} // namespace

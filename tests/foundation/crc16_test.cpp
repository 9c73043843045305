#include "test_helpers.h"

#include <libkv/foundation.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <numeric>
#include <vector>

namespace
{

// Bit-at-a-time CRC-16/XMODEM, independent of the library's table.
uint16_t reference_crc(uint16_t crc, const std::vector<uint8_t>& bytes)
{
    for (uint8_t byte : bytes)
    {
        crc ^= static_cast<uint16_t>(byte << 8);
        for (int bit = 0; bit < 8; ++bit)
        {
            crc = static_cast<uint16_t>((crc & 0x8000) ? (crc << 1) ^ 0x1021
                                                       : crc << 1);
        }
    }
    return crc;
}

std::vector<uint8_t> sample_header()
{
    std::vector<uint8_t> header(64);
    std::iota(header.begin(), header.end(), uint8_t{0x41});
    return header;
}

} // namespace

TEST(Crc16, MatchesTheXmodemCheckValue)
{
    const char* text = "123456789";
    EXPECT_EQ(0x31C3, calc_crc16(reinterpret_cast<const uint8_t*>(text),
                                 static_cast<int>(std::strlen(text))));
    EXPECT_EQ(0, calc_crc16(nullptr, 0));
}

TEST(Crc16, TableStepAgreesWithBitwiseCrcForEveryByteAndState)
{
    EXPECT_EQ(0x1021, CalculateCrc16Base(0, 1));
    for (unsigned crc : {0x0000u, 0x1234u, 0xFFFFu, 0x8001u})
    {
        for (unsigned byte = 0; byte < 256; ++byte)
        {
            const auto b = static_cast<uint8_t>(byte);
            ASSERT_EQ(reference_crc(static_cast<uint16_t>(crc), {b}),
                      CalculateCrc16Base(static_cast<uint16_t>(crc), b))
                << "crc " << crc << " byte " << byte;
        }
    }
}

TEST(HeaderCrc16, ContinuesOverTheHeaderWithoutItsCheckField)
{
    const std::vector<uint8_t> prefix = {0xDE, 0xAD, 0xBE, 0xEF};
    const std::vector<uint8_t> header = sample_header();
    std::vector<uint8_t> covered(header.begin(), header.begin() + 36);
    covered.insert(covered.end(), header.begin() + 40, header.end());
    ASSERT_EQ(60u, covered.size());

    const uint16_t start = reference_crc(0, prefix);
    EXPECT_EQ(reference_crc(start, covered),
              CalculateHeaderCrc16(start, header.data(), header.size()));
}

TEST(HeaderCrc16, IgnoresOnlyBytes36To39)
{
    const std::vector<uint8_t> header = sample_header();
    const uint16_t base = CalculateHeaderCrc16(0, header.data(), 64);
    for (size_t i = 0; i < header.size(); ++i)
    {
        std::vector<uint8_t> changed = header;
        changed[i] ^= 0xFF;
        const bool check_field = i >= 36 && i <= 39;
        EXPECT_EQ(check_field,
                  base == CalculateHeaderCrc16(0, changed.data(), 64))
            << "byte " << i;
    }
}

TEST(HeaderCrc16, RefusesAnythingButA64ByteHeader)
{
    const std::vector<uint8_t> header = sample_header();
    for (uint64_t len : {0ull, 63ull, 65ull})
    {
        EXPECT_EQ(kv::test::stdout_of([&] {
                      EXPECT_EQ(0xBEEF, CalculateHeaderCrc16(
                                            0xBEEF, header.data(), len));
                  }),
                  "Input parameter is invalid !!!");
    }
    EXPECT_EQ(kv::test::stdout_of([] {
                  EXPECT_EQ(0xBEEF, CalculateHeaderCrc16(0xBEEF, nullptr, 64));
              }),
              "Input parameter is invalid !!!");
}

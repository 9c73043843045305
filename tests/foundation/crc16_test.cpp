// SPDX-License-Identifier: Apache-2.0
#include "foundation_test.h"

#include <numeric>
#include <utility>

using namespace kv::foundation::test;

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

} // namespace

TEST(Crc16, MatchesTheXmodemCheckValueAndABitwiseCrcForEveryByteAndState)
{
    const uint8_t text[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(0x31C3, calc_crc16(text, sizeof text));
    EXPECT_EQ(0, calc_crc16(nullptr, 0));
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

// The header's check field, bytes 36 to 39, is skipped and nothing else.
TEST(HeaderCrc16, ContinuesOverTheHeaderWithoutItsCheckField)
{
    std::vector<uint8_t> header(64);
    std::iota(header.begin(), header.end(), uint8_t{0x41});
    std::vector<uint8_t> covered(header.begin(), header.begin() + 36);
    covered.insert(covered.end(), header.begin() + 40, header.end());
    const uint16_t start = reference_crc(0, {0xDE, 0xAD, 0xBE, 0xEF});
    const uint16_t base = CalculateHeaderCrc16(start, header.data(), 64);
    EXPECT_EQ(reference_crc(start, covered), base);

    for (size_t i = 0; i < header.size(); ++i)
    {
        std::vector<uint8_t> changed = header;
        changed[i] ^= 0xFF;
        EXPECT_EQ(i >= 36 && i <= 39,
                  base == CalculateHeaderCrc16(start, changed.data(), 64))
            << "byte " << i;
    }
}

TEST(HeaderCrc16, RefusesAnythingButA64ByteHeader)
{
    const std::vector<uint8_t> header(64);
    using Call = std::pair<const uint8_t*, uint64_t>;
    for (const Call& call : {Call{header.data(), 0}, Call{header.data(), 63},
                             Call{header.data(), 65}, Call{nullptr, 64}})
    {
        EXPECT_EQ(kv::test::stdout_of([&] {
                      EXPECT_EQ(0xBEEF, CalculateHeaderCrc16(0xBEEF, call.first,
                                                             call.second));
                  }),
                  "Input parameter is invalid !!!")
            << call.second;
    }
}

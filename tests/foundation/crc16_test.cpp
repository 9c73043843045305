// SPDX-License-Identifier: Apache-2.0
#include "foundation_test.h"

// Bit-at-a-time CRC-16/XMODEM, independent of the library's table.
uint16_t reference_crc(uint16_t crc, const std::vector<uint8_t>& bytes)
{
    for (uint8_t byte : bytes)
    {
        crc ^= static_cast<uint16_t>(byte << 8);
        for (int bit = 0; bit < 8; ++bit)
        {
            crc =
                static_cast<uint16_t>((crc << 1) ^ (crc & 0x8000 ? 0x1021 : 0));
        }
    }
    return crc;
}

// The header's check field, bytes 36 to 39, is skipped and nothing else;
// anything but a 64-byte header is refused and the start value returned.
TEST(Crc16, XmodemForEveryByteAndStateAndTheHeaderWithoutItsCheckField)
{
    EXPECT_EQ(0x31C3,
              calc_crc16(reinterpret_cast<const uint8_t*>("123456789"), 9));
    for (unsigned crc : {0x0000u, 0x1234u, 0xFFFFu, 0x8001u})
    {
        for (unsigned byte = 0; byte < 256; ++byte)
        {
            ASSERT_EQ(reference_crc(crc, {uint8_t(byte)}),
                      CalculateCrc16Base(crc, byte))
                << crc << " " << byte;
        }
    }
    std::vector<uint8_t> header(64), covered;
    for (size_t i = 0; i < 64; ++i)
    {
        header[i] = static_cast<uint8_t>(0x41 + i);
    }
    covered = header;
    covered.erase(covered.begin() + 36, covered.begin() + 40);
    const uint16_t base = CalculateHeaderCrc16(0xBEEF, header.data(), 64);
    EXPECT_EQ(reference_crc(0xBEEF, covered), base);
    for (size_t i = 0; i < 64; ++i)
    {
        header[i] ^= 0xFF;
        EXPECT_EQ(i >= 36 && i <= 39,
                  base == CalculateHeaderCrc16(0xBEEF, header.data(), 64))
            << i;
        header[i] ^= 0xFF;
    }
    stdout_of([&] {
        for (uint64_t size : {0, 63, 65})
        {
            EXPECT_EQ(CalculateHeaderCrc16(7, header.data(), size), 7);
        }
        EXPECT_EQ(CalculateHeaderCrc16(7, nullptr, 64), 7);
    });
}

// SPDX-License-Identifier: Apache-2.0
// CRC-16 with polynomial 0x1021, most significant bit first: the XMODEM
// variant used by the FRU and image headers.
#include <libkv/foundation.h>

#include <array>
#include <cstdio>

namespace
{

constexpr uint16_t kPolynomial = 0x1021;

constexpr std::array<uint16_t, 256> make_table()
{
    std::array<uint16_t, 256> table{};
    for (unsigned i = 0; i < table.size(); ++i)
    {
        auto crc = static_cast<uint16_t>(i << 8);
        for (int bit = 0; bit < 8; ++bit)
        {
            crc = static_cast<uint16_t>(
                (crc & 0x8000) ? (crc << 1) ^ kPolynomial : crc << 1);
        }
        table[i] = crc;
    }
    return table;
}

constexpr std::array<uint16_t, 256> kTable = make_table();

constexpr uint16_t step(uint16_t crc, uint8_t byte)
{
    return static_cast<uint16_t>(kTable[(crc >> 8) ^ byte] ^ (crc << 8));
}

constexpr uint16_t crc_of(const char* text)
{
    uint16_t crc = 0;
    for (; *text != '\0'; ++text)
    {
        crc = step(crc, static_cast<uint8_t>(*text));
    }
    return crc;
}

// The published check value of CRC-16/XMODEM.
static_assert(crc_of("123456789") == 0x31C3);

// A header carries its own check in bytes 36 to 39, which cannot be part of
// the sum it holds.
constexpr uint64_t kHeaderSize = 64;
constexpr uint64_t kCheckFieldBegin = 36;
constexpr uint64_t kCheckFieldEnd = 40;

} // namespace

extern "C" uint16_t CalculateCrc16Base(uint16_t crc, uint8_t byte)
{
    return step(crc, byte);
}

extern "C" uint16_t calc_crc16(const uint8_t* data, int len)
{
    uint16_t crc = 0;
    for (int i = 0; data != nullptr && i < len; ++i)
    {
        crc = step(crc, data[i]);
    }
    return crc;
}

extern "C" uint16_t CalculateHeaderCrc16(uint16_t crc, const uint8_t* header,
                                         uint64_t len)
{
    if (header == nullptr || len != kHeaderSize)
    {
        std::printf("Input parameter is invalid !!!");
        return crc;
    }
    for (uint64_t i = 0; i < kHeaderSize; ++i)
    {
        if (i < kCheckFieldBegin || i >= kCheckFieldEnd)
        {
            crc = step(crc, header[i]);
        }
    }
    return crc;
}

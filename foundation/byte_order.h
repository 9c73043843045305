// SPDX-License-Identifier: Apache-2.0
// Little-endian fields of records shared with other processes and written
// to files: read and written byte by byte, so that neither the host's byte
// order nor the field's alignment matters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kv::detail
{

inline uint16_t le16(const uint8_t* p)
{
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}

inline uint32_t le32(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

inline void store_le32(uint8_t* p, uint32_t value)
{
    for (std::size_t i = 0; i < 4; ++i)
    {
        p[i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

// An IEEE double stored little-endian, the byte order of both the BMC and
// the build machines.
inline double le_double(const uint8_t* p)
{
    double value = 0;
    std::memcpy(&value, p, sizeof value);
    return value;
}

} // namespace kv::detail

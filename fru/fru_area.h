// SPDX-License-Identifier: Apache-2.0
// One description of the three info areas, so that a single builder and a
// single parser serve chassis, board and product alike.
#pragma once

#include <libkv/fru.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace kv::detail
{

struct FruAreaView
{
    void* record; // the area's part of `fru`, cleared before parsing
    std::size_t record_size;
    uint8_t* format_version;
    uint8_t* length;
    // Fixed bytes between the length byte and the first string field.
    uint8_t* lead[4];
    std::size_t lead_count;
    std::span<kv_fru_field> fields;
    kv_fru_custom_fields* custom;
    uint8_t* end_of_fields;
    uint8_t* pad_count;
    uint8_t* checksum;
};

inline FruAreaView fru_area_view(kv_fru_chassis_area& a)
{
    return {&a,      sizeof a,  &a.format_version, &a.length,    {&a.type},  1,
            a.field, &a.custom, &a.end_of_fields,  &a.pad_count, &a.checksum};
}

inline FruAreaView fru_area_view(kv_fru_board_area& a)
{
    return {&a,
            sizeof a,
            &a.format_version,
            &a.length,
            {&a.language, &a.mfg_date[0], &a.mfg_date[1], &a.mfg_date[2]},
            4,
            a.field,
            &a.custom,
            &a.end_of_fields,
            &a.pad_count,
            &a.checksum};
}

inline FruAreaView fru_area_view(kv_fru_product_area& a)
{
    return {
        &a,      sizeof a,  &a.format_version, &a.length,    {&a.language}, 1,
        a.field, &a.custom, &a.end_of_fields,  &a.pad_count, &a.checksum};
}

// Two's complement of the byte sum: what makes a block sum to 0.
inline uint8_t fru_checksum(std::span<const uint8_t> bytes)
{
    unsigned sum = 0;
    for (uint8_t b : bytes)
    {
        sum += b;
    }
    return static_cast<uint8_t>(0x100 - (sum & 0xFF));
}

} // namespace kv::detail

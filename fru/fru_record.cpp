// SPDX-License-Identifier: Apache-2.0
// The process-wide FRU record, area buffers and image, and their defaults.
#include <libkv/fru.h>

#include <cstddef>
#include <cstring>

// Other processes' tools read these as raw bytes: the layout is fixed.
static_assert(sizeof(kv_fru_record) == 2504);
static_assert(offsetof(kv_fru_record, internal_use) == 8);
static_assert(offsetof(kv_fru_record, chassis) == 13);
static_assert(offsetof(kv_fru_record, board) == 669);
static_assert(offsetof(kv_fru_record, product) == 1523);
static_assert(offsetof(kv_fru_record, chassis.custom) == 13 + 133);
static_assert(offsetof(kv_fru_record, board.field) == 669 + 6);
static_assert(offsetof(kv_fru_record, product.checksum) == 2503);
static_assert(sizeof(kv_fru_area_buffer) == 1028);
static_assert(sizeof(kv_fru_buffers) == 5140);
static_assert(offsetof(kv_fru_buffers, multirecord) ==
              4 * sizeof(kv_fru_area_buffer));

kv_fru_record fru;
kv_fru_buffers fru_buff;
uint8_t bmc_fru_date[KV_FRU_IMAGE_BYTES];
uint32_t bmc_fru_len;

int fru_init(void)
{
    std::memset(&fru, 0, sizeof fru);
    std::memset(&fru_buff, 0, sizeof fru_buff);
    std::memset(bmc_fru_date, 0, sizeof bmc_fru_date);

    fru.header.format_version = 1;
    fru.internal_use.format_version = 1;

    fru.chassis.format_version = 1;
    fru.chassis.type = 2; // "Unknown" in the IPMI chassis type table
    fru.chassis.end_of_fields = KV_FRU_END_OF_FIELDS;

    // 0xAA0E4A minutes after 1996-01-01: 2017-03-10 10:18.
    fru.board.format_version = 1;
    fru.board.mfg_date[0] = 0x4A;
    fru.board.mfg_date[1] = 0x0E;
    fru.board.mfg_date[2] = 0xAA;
    fru.board.end_of_fields = KV_FRU_END_OF_FIELDS;

    fru.product.format_version = 1;
    fru.product.end_of_fields = KV_FRU_END_OF_FIELDS;
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// Record to image: the three info areas, the common header, the fixed
// multirecord block and the assembled image.
#include "fru/fru_area.h"

#include <libkv/fru.h>

#include <algorithm>
#include <cstring>

namespace
{

using kv::detail::fru_area_view;
using kv::detail::fru_checksum;
using kv::detail::FruAreaView;

class AreaWriter
{
  public:
    explicit AreaWriter(kv_fru_area_buffer& buffer) : buffer_(buffer)
    {
        buffer_.count = 0;
        std::memset(buffer_.data, 0, sizeof buffer_.data);
    }
    // Areas built from the record stay far below the buffer's size (at most
    // 3 + 15 fields of 64 bytes + 8 type bytes + trailer); the bound is a
    // guard, not a limit anyone reaches.
    void put(uint8_t byte)
    {
        if (buffer_.count < sizeof buffer_.data)
        {
            buffer_.data[buffer_.count++] = byte;
        }
    }
    void put(const uint8_t* bytes, std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i)
        {
            put(bytes[i]);
        }
    }
    uint32_t count() const
    {
        return buffer_.count;
    }
    uint8_t* data()
    {
        return buffer_.data;
    }

  private:
    kv_fru_area_buffer& buffer_;
};

bool put_field(AreaWriter& out, uint8_t type_len, const uint8_t* data)
{
    // The data length is type_len - 0xC0; a smaller byte would have the
    // writer step backwards, so it is refused.
    if (type_len < KV_FRU_TYPE_ASCII)
    {
        return false;
    }
    out.put(type_len);
    out.put(data, type_len - KV_FRU_TYPE_ASCII);
    return true;
}

int build_area(const FruAreaView& area, kv_fru_area_buffer& buffer)
{
    AreaWriter out(buffer);
    out.put(*area.format_version);
    out.put(0); // length, filled in below
    for (std::size_t i = 0; i < area.lead_count; ++i)
    {
        out.put(*area.lead[i]);
    }
    for (const kv_fru_field& field : area.fields)
    {
        if (!put_field(out, field.type_len, field.data))
        {
            return -1;
        }
    }
    for (int i = 0; i < KV_FRU_CUSTOM_FIELDS; ++i)
    {
        const uint8_t type_len = area.custom->type_len[i];
        if (type_len != 0 && !put_field(out, type_len, area.custom->data[i]))
        {
            return -1;
        }
    }
    out.put(*area.end_of_fields);

    // Pad so that the area, checksum included, is a multiple of 8 bytes.
    const uint32_t used = out.count() + 1;
    const uint8_t pad = used % 8 == 0 ? 0 : 8 - used % 8;
    *area.pad_count = pad;
    for (uint8_t i = 0; i < pad; ++i)
    {
        out.put(0);
    }
    out.data()[1] = static_cast<uint8_t>((used + pad) / 8);
    *area.checksum = fru_checksum({out.data(), out.count()});
    out.put(*area.checksum);
    return 0;
}

} // namespace

int get_chassis_date(void)
{
    return build_area(fru_area_view(fru.chassis), fru_buff.chassis);
}

int get_board_date(void)
{
    return build_area(fru_area_view(fru.board), fru_buff.board);
}

int get_product_date(void)
{
    return build_area(fru_area_view(fru.product), fru_buff.product);
}

int get_head_date(void)
{
    kv_fru_header& h = fru.header;
    h.internal_use_offset = 0;
    h.chassis_offset = 1;
    h.board_offset = h.chassis_offset + fru_buff.chassis.count / 8;
    h.product_offset = h.board_offset + fru_buff.board.count / 8;
    // Kept in the record only: images carry a multirecord offset of 0 even
    // when a block follows, which readers of existing boards rely on.
    h.multirecord_offset = h.product_offset + fru_buff.product.count / 8;
    h.pad = h.multirecord_offset + 3;

    uint8_t* out = fru_buff.header.data;
    std::memset(out, 0, sizeof fru_buff.header.data);
    out[0] = h.format_version;
    out[1] = h.internal_use_offset;
    out[2] = h.chassis_offset;
    out[3] = h.board_offset;
    out[4] = h.product_offset;
    h.checksum = fru_checksum({out, 7});
    out[7] = h.checksum;
    fru_buff.header.count = 8;
    return 0;
}

int get_multirecord_date(void)
{
    // One OEM record (type 0xC0, end of list, format 2, 17 data bytes).
    static const uint8_t block[] = {
        0xC0, 0x82, 0x11, 0xBB, 0xF2, 0x5A, 0x31, 0x00, 0x13, 0x01, 0x0A,
        0x14, 0x1F, 0x2C, 0x0A, 0x14, 0x1F, 0x03, 0xFF, 0xFF, 0xFF, 0x00};
    std::memset(fru_buff.multirecord.data, 0, sizeof fru_buff.multirecord.data);
    std::memcpy(fru_buff.multirecord.data, block, sizeof block);
    fru_buff.multirecord.count = sizeof block;
    return 0;
}

int get_fru_date(void)
{
    if (get_chassis_date() != 0)
    {
        return KV_FRU_BUILD_CHASSIS_FAILED;
    }
    if (get_board_date() != 0)
    {
        return KV_FRU_BUILD_BOARD_FAILED;
    }
    if (get_product_date() != 0)
    {
        return KV_FRU_BUILD_PRODUCT_FAILED;
    }
    if (get_head_date() != 0)
    {
        return KV_FRU_BUILD_HEADER_FAILED;
    }
    // Counts are public and the multirecord one is set by callers: each
    // buffer and the image bound the copy.
    std::size_t length = 0;
    for (const kv_fru_area_buffer* b :
         {&fru_buff.header, &fru_buff.chassis, &fru_buff.board,
          &fru_buff.product, &fru_buff.multirecord})
    {
        const std::size_t n = std::min<std::size_t>(
            {b->count, sizeof b->data, sizeof bmc_fru_date - length});
        std::memcpy(bmc_fru_date + length, b->data, n);
        length += n;
    }
    bmc_fru_len = static_cast<uint32_t>(length);
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// Image to record. Images come from EEPROMs of plug-in boards, so every read
// is bounded by the bytes actually available: a malformed image is refused,
// never followed out of bounds. Refusals of malformed input:
//   KV_FRU_AREA_INVALID   the area does not fit the image, or has more than
//                         eight custom fields (the record holds eight);
//   KV_FRU_FIELD_INVALID  a field, the end marker or the checksum runs past
//                         the area, or a field is not 8-bit ASCII (the only
//                         type the record represents).
#include "fru/fru_area.h"

#include <libkv/fru.h>

#include <algorithm>
#include <cstring>
#include <span>

namespace
{

using kv::detail::fru_area_view;
using kv::detail::FruAreaView;

constexpr int kBadArea = KV_FRU_AREA_INVALID;
constexpr int kFieldPastArea = KV_FRU_FIELD_INVALID;
// A length byte is accepted up to 31 (length * 8 must not exceed 255).
constexpr std::size_t kMaxAreaBytes = 248;

// A block that already carries its checksum sums to 0.
bool sums_to_zero(std::span<const uint8_t> bytes)
{
    return kv::detail::fru_checksum(bytes) == 0;
}

// The header, chassis and board parsers (and the multirecord copy) place the
// raw bytes over the count word; only the product parser uses the data
// bytes. Rebuilds work from the record, so this is kept as it always was.
void store_raw(kv_fru_area_buffer& buffer, std::span<const uint8_t> raw,
               bool over_count)
{
    auto* dest = over_count ? reinterpret_cast<uint8_t*>(&buffer) : buffer.data;
    if (!raw.empty())
    {
        std::memcpy(dest, raw.data(), raw.size());
    }
    buffer.count = static_cast<uint32_t>(raw.size());
}

class AreaReader
{
  public:
    explicit AreaReader(std::span<const uint8_t> area) : area_(area)
    {}
    bool take(uint8_t& byte)
    {
        if (pos_ >= area_.size())
        {
            return false;
        }
        byte = area_[pos_++];
        return true;
    }
    bool take(uint8_t* out, std::size_t n)
    {
        if (n > area_.size() - pos_)
        {
            return false;
        }
        std::memcpy(out, area_.data() + pos_, n);
        pos_ += n;
        return true;
    }
    // A string field into its record slot: type/length byte, then data.
    bool take_field(uint8_t type_len, uint8_t* data)
    {
        return type_len >= KV_FRU_TYPE_ASCII &&
               take(data, type_len - KV_FRU_TYPE_ASCII);
    }
    std::size_t position() const
    {
        return pos_;
    }

  private:
    std::span<const uint8_t> area_;
    std::size_t pos_ = 0;
};

int parse_area(const FruAreaView& view, std::span<const uint8_t> available,
               kv_fru_area_buffer& buffer, bool raw_over_count)
{
    std::memset(view.record, 0, view.record_size);
    if (available.size() < 2)
    {
        return kBadArea;
    }
    *view.format_version = available[0];
    *view.length = available[1];
    const std::size_t size = std::size_t{*view.length} * 8;
    if (size > kMaxAreaBytes || size > available.size() ||
        !sums_to_zero(available.first(size)))
    {
        return kBadArea;
    }

    AreaReader in(available.first(size));
    uint8_t skip = 0;
    in.take(skip); // format version and length, already stored
    in.take(skip);
    for (std::size_t i = 0; i < view.lead_count; ++i)
    {
        if (!in.take(*view.lead[i]))
        {
            return kFieldPastArea;
        }
    }
    for (kv_fru_field& field : view.fields)
    {
        if (!in.take(field.type_len) ||
            !in.take_field(field.type_len, field.data))
        {
            return kFieldPastArea;
        }
    }
    uint8_t type_len = 0;
    for (int i = 0;; ++i)
    {
        if (!in.take(type_len))
        {
            return kFieldPastArea;
        }
        if (type_len == KV_FRU_END_OF_FIELDS)
        {
            break;
        }
        if (i == KV_FRU_CUSTOM_FIELDS)
        {
            return kBadArea;
        }
        view.custom->type_len[i] = type_len;
        if (!in.take_field(type_len, view.custom->data[i]))
        {
            return kFieldPastArea;
        }
    }
    *view.end_of_fields = type_len;
    // The checksum is the area's last byte; the marker must precede it.
    if (in.position() >= size)
    {
        return kFieldPastArea;
    }
    *view.pad_count = static_cast<uint8_t>(size - in.position() - 1);
    *view.checksum = available[in.position() + *view.pad_count];
    store_raw(buffer, available.first(size), raw_over_count);
    return 0;
}

int parse_chassis(std::span<const uint8_t> area)
{
    return parse_area(fru_area_view(fru.chassis), area, fru_buff.chassis, true);
}

int parse_board(std::span<const uint8_t> area)
{
    return parse_area(fru_area_view(fru.board), area, fru_buff.board, true);
}

int parse_product(std::span<const uint8_t> area)
{
    return parse_area(fru_area_view(fru.product), area, fru_buff.product,
                      false);
}

// The single-area entry points have no length: the caller vouches for the
// bytes the area's own length byte states, which are at most 248.
int parse_unbounded(const uint8_t* area, int (*parse)(std::span<const uint8_t>))
{
    return area == nullptr ? kBadArea : parse({area, kMaxAreaBytes});
}

} // namespace

int parse_bin_to_head(const uint8_t* bytes, int count)
{
    if (bytes == nullptr || count < 8 || !sums_to_zero({bytes, 8}))
    {
        return kBadArea;
    }
    std::memcpy(&fru.header, bytes, sizeof fru.header);
    store_raw(fru_buff.header, {bytes, 8}, true);
    return 0;
}

int parse_bin_to_chassis(const uint8_t* area)
{
    return parse_unbounded(area, parse_chassis);
}

int parse_bin_to_board(const uint8_t* area)
{
    return parse_unbounded(area, parse_board);
}

int parse_bin_to_product(const uint8_t* area)
{
    return parse_unbounded(area, parse_product);
}

int parse_bin_to_multirecord(const uint8_t* bytes, int count)
{
    std::memset(&fru_buff.multirecord, 0, sizeof fru_buff.multirecord);
    const std::size_t n =
        bytes == nullptr ? 0 : std::clamp(count, 0, KV_FRU_AREA_BYTES);
    store_raw(fru_buff.multirecord, {bytes, n}, true);
    return 0;
}

int parse_bin_date(const uint8_t* image, int length)
{
    if (image == nullptr || length < 0 || parse_bin_to_head(image, length) != 0)
    {
        return KV_FRU_BAD_HEADER;
    }
    const std::span<const uint8_t> bytes(image,
                                         static_cast<std::size_t>(length));
    struct
    {
        uint8_t offset;
        int (*parse)(std::span<const uint8_t>);
        int failure;
    } const areas[] = {
        {fru.header.chassis_offset, parse_chassis, KV_FRU_BAD_CHASSIS_AREA},
        {fru.header.board_offset, parse_board, KV_FRU_BAD_BOARD_AREA},
        {fru.header.product_offset, parse_product, KV_FRU_BAD_PRODUCT_AREA}};
    for (const auto& area : areas)
    {
        if (area.offset == 0)
        {
            continue;
        }
        const std::size_t start = std::size_t{area.offset} * 8;
        if (start >= bytes.size() || area.parse(bytes.subspan(start)) != 0)
        {
            return area.failure;
        }
    }
    return 0;
}

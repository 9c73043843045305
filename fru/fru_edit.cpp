// SPDX-License-Identifier: Apache-2.0
// Changing the FRU: one field of the image already on a device, or the whole
// image from fru.ini.
#include "foundation/consumer_text.h"
#include "fru/fru_device_table.h"

#include <libkv/fru.h>
#include <libkv/ipc.h>

#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace
{

constexpr int kUnknownField = -14;
constexpr int kBoardTime = 3;

struct FieldSlot
{
    uint8_t* type_len;
    uint8_t* data;
};

FieldSlot slot(kv_fru_field& field)
{
    return {&field.type_len, field.data};
}

FieldSlot slot(kv_fru_custom_fields& custom, int i)
{
    return {&custom.type_len[i], custom.data[i]};
}

// The record's string field behind a fru_param row; ids 0 (chassis type)
// and 3 (board time) are not strings.
FieldSlot string_field(int id)
{
    if (id >= 1 && id <= 2)
    {
        return slot(fru.chassis.field[id - 1]);
    }
    if (id >= 4 && id <= 8)
    {
        return slot(fru.board.field[id - 4]);
    }
    if (id >= 9 && id <= 14)
    {
        return slot(fru.board.custom, id - 9);
    }
    if (id >= 15 && id <= 21)
    {
        return slot(fru.product.field[id - 15]);
    }
    if (id >= 22 && id <= 26)
    {
        return slot(fru.product.custom, id - 22);
    }
    return {nullptr, nullptr};
}

// Whether `given` starts with the row's own text (which callers may have
// left unterminated), ignoring case.
template <std::size_t N>
bool prefixes(const char (&row_text)[N], const char* given)
{
    return strncasecmp(row_text, given, strnlen(row_text, N)) == 0;
}

} // namespace

int fru_get_param_id(const char* section, const char* key)
{
    if (section == nullptr || key == nullptr)
    {
        return kUnknownField;
    }
    // First match wins: "CustomDataString3" is taken by the plain
    // "CustomDataString" row before it.
    for (int id = 0; id < static_cast<int>(std::size(fru_param)); ++id)
    {
        if (prefixes(fru_param[id].section, section) &&
            prefixes(fru_param[id].key, key))
        {
            return id;
        }
    }
    return kUnknownField;
}

int modify_section(const char* value, int id)
{
    if (value == nullptr)
    {
        return 0;
    }
    if (id == 0)
    {
        fru.chassis.type = static_cast<uint8_t>(std::atoi(value));
        return 0;
    }
    const FieldSlot field = string_field(id);
    if (field.type_len == nullptr || id == kBoardTime)
    {
        return 0;
    }
    // The type/length byte holds 63 characters at most: a longer value
    // would wrap it into another type or length.
    const std::size_t length = std::strlen(value);
    if (length > kv::detail::kFruFieldLongest)
    {
        return -1;
    }
    *field.type_len = static_cast<uint8_t>(KV_FRU_TYPE_ASCII + length);
    std::memcpy(field.data, value,
                std::min<std::size_t>(length, KV_FRU_FIELD_BYTES));
    return 0;
}

int fru_modify_key(int id, const char* section, const char* key,
                   const char* value)
{
    if (init_shm() == nullptr)
    {
        return KV_FRU_EDIT_NO_SEGMENT;
    }
    if (section == nullptr || key == nullptr || value == nullptr ||
        std::strlen(value) > kv::detail::kFruFieldLongest)
    {
        return KV_FRU_EDIT_NULL_ARGUMENT;
    }
    auto device = kv::detail::load_fru_device(id);
    if (!device)
    {
        std::printf(" %s error.\n", "fru_modify_key");
        return KV_FRU_EDIT_IMAGE_UNREADABLE;
    }
    // Images beyond the record's reach are read no further than 1 KiB; the
    // spare chunk takes the reader's last 8 bytes.
    uint8_t image[KV_FRU_AREA_BYTES + 8] = {};
    const unsigned size = std::min<unsigned>(
        kv::detail::fru_device_size(*device), KV_FRU_AREA_BYTES);
    device->size[0] = static_cast<uint8_t>(size);
    device->size[1] = static_cast<uint8_t>(size >> 8);
    if (get_fru_bin(*device, image) != 0)
    {
        std::printf(" %s error.\n", "fru_modify_key");
        return KV_FRU_EDIT_IMAGE_UNREADABLE;
    }
    if (const int parsed = parse_bin_date(image, static_cast<int>(size));
        parsed != 0)
    {
        std::printf(" get fru .bin error:%d.\n", parsed);
        return KV_FRU_EDIT_IMAGE_UNREADABLE;
    }
    const int field = fru_get_param_id(section, key);
    if (field < 0)
    {
        std::printf(" input error.\n");
        return field;
    }
    modify_section(value, field);
    if (get_fru_date() != 0)
    {
        std::printf("get_fru_date error");
        return KV_FRU_EDIT_REBUILD_FAILED;
    }
    return write_to_fru(id);
}

int write_fru_ini(void)
{
    fru_init();
    if (fru_read_ini() != 0)
    {
        return KV_FRU_EDIT_INI_UNREADABLE;
    }
    if (get_fru_date() != 0)
    {
        return KV_FRU_EDIT_INI_BUILD_FAILED;
    }
    return write_to_fru(deviceid);
}

// SPDX-License-Identifier: Apache-2.0
// fru.ini into the field tables and the FRU record.
#include <libkv/fru.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

constexpr const char* kIniPath = "fru.ini";
constexpr int kChassisRows = 3;
constexpr int kBoardRows = 12;
constexpr int kProductRows = 12;
constexpr int kBoardFirst = kChassisRows;
constexpr int kProductFirst = kBoardFirst + kBoardRows;

// Rows counted from the start of chassis_param on through the tables that
// follow it. Custom fields take the rows after their own table's end (the
// chassis area repeats board values, the product area gets fru_param's
// empty ones); choosing the table here keeps that without reading past any
// array, and holds even in a program that keeps its own copies of them.
kv_fru_param& row(int i)
{
    if (i < kBoardFirst)
    {
        return chassis_param[i];
    }
    if (i < kProductFirst)
    {
        return board_param[i - kBoardFirst];
    }
    if (i < kProductFirst + kProductRows)
    {
        return product_param[i - kProductFirst];
    }
    return fru_param[i - kProductFirst - kProductRows];
}

// The tables are writable by callers: never trust a terminator in them.
std::string text_of(const char* field, std::size_t size)
{
    return {field, strnlen(field, size)};
}

std::string key_of(const kv_fru_param& r)
{
    return text_of(r.key, sizeof r.key);
}

std::string value_of(const kv_fru_param& r)
{
    return text_of(r.value, sizeof r.value);
}

bool key_has(const kv_fru_param& r, const char* word)
{
    return key_of(r).find(word) != std::string::npos;
}

// Looks the row's key up and stores its quoted value (or nothing). False
// when the key is not in the file.
bool look_up(kv_fru_param& r)
{
    char* raw = GetIniKeyString(text_of(r.section, sizeof r.section).c_str(),
                                key_of(r).c_str(), kIniPath);
    if (raw == nullptr)
    {
        return false;
    }
    // At most 64 characters; a full value has no terminator.
    const char* value = fru_get_str(raw);
    const std::size_t length =
        value == nullptr ? 0 : strnlen(value, sizeof r.value);
    std::memset(r.value, 0, sizeof r.value);
    std::memcpy(r.value, value == nullptr ? "" : value, length);
    return true;
}

void missing_key(const char* area, const char* line_end, int i)
{
    std::printf("在fru.ini文件%s中无法找到关键字段%s%s", area,
                key_of(row(i)).c_str(), line_end);
}

void set_field(uint8_t& type_len, uint8_t* data, const kv_fru_param& r)
{
    const std::string value = value_of(r);
    // A 64-character value wraps to 0x00 and fills the slot unterminated.
    type_len = static_cast<uint8_t>(KV_FRU_TYPE_ASCII + value.size());
    std::memset(data, 0, KV_FRU_FIELD_BYTES);
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result)
    std::memcpy(data, value.data(), value.size());
}

void set_custom_fields(kv_fru_custom_fields& custom, int first_row)
{
    for (int i = 0; i < KV_FRU_CUSTOM_FIELDS; ++i)
    {
        set_field(custom.type_len[i], custom.data[i], row(first_row + i));
    }
}

bool read_tables()
{
    for (int i = 0; i < kChassisRows; ++i)
    {
        kv_fru_param& r = chassis_param[i];
        if (!look_up(r))
        {
            if (!key_has(r, "CustomDataString"))
            {
                missing_key("ChassisInfoArea", "", i);
                return false;
            }
            std::memset(r.value, 0, sizeof r.value);
        }
        std::printf("chassis%d %s \n", r.index, value_of(r).c_str());
    }
    for (int i = 0; i < kBoardRows; ++i)
    {
        kv_fru_param& r = board_param[i];
        if (look_up(r))
        {
            continue;
        }
        // Only index 6 has FRUFileID in the product table, and that row is
        // a custom string anyway.
        if (!key_has(r, "CustomDataString") &&
            !key_has(product_param[i], "FRUFileID"))
        {
            missing_key("BoardInfoArea", "\n", i);
            return false;
        }
        std::memset(r.value, 0, sizeof r.value);
    }
    for (int i = 0; i < kProductRows; ++i)
    {
        kv_fru_param& r = product_param[i];
        if (look_up(r))
        {
            continue;
        }
        if (!key_has(r, "CustomDataString") && !key_has(r, "FRUFileID"))
        {
            missing_key("ProductInfoArea", "\n", i);
            return false;
        }
        std::memset(r.value, 0, sizeof r.value);
    }
    return true;
}

// The board time value is split in place, as get_time does with its text.
int board_minutes()
{
    char text[sizeof board_param[0].value + 1] = {};
    std::memcpy(text, board_param[0].value, sizeof board_param[0].value);
    const int minutes = get_time(text);
    std::memcpy(board_param[0].value, text, sizeof board_param[0].value);
    return minutes;
}

} // namespace

int fru_read_ini(void)
{
    if (!read_tables())
    {
        return KV_FRU_INI_KEY_MISSING;
    }

    fru.chassis.type =
        static_cast<uint8_t>(std::atoi(value_of(chassis_param[0]).c_str()));
    for (int i = 0; i < KV_FRU_CHASSIS_FIELDS; ++i)
    {
        set_field(fru.chassis.field[i].type_len, fru.chassis.field[i].data,
                  chassis_param[1 + i]);
    }
    set_custom_fields(fru.chassis.custom, kBoardFirst);

    const int minutes = board_minutes();
    if (minutes == 0)
    {
        return KV_FRU_INI_BAD_TIME;
    }
    for (int i = 0; i < 3; ++i)
    {
        fru.board.mfg_date[i] = static_cast<uint8_t>(minutes >> (8 * i));
    }
    for (int i = 0; i < KV_FRU_BOARD_FIELDS; ++i)
    {
        set_field(fru.board.field[i].type_len, fru.board.field[i].data,
                  board_param[1 + i]);
    }
    set_custom_fields(fru.board.custom, kBoardFirst + 6);

    for (int i = 0; i < KV_FRU_PRODUCT_FIELDS; ++i)
    {
        set_field(fru.product.field[i].type_len, fru.product.field[i].data,
                  product_param[i]);
    }
    set_custom_fields(fru.product.custom, kProductFirst + 7);
    return 0;
}

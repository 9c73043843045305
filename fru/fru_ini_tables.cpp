// SPDX-License-Identifier: Apache-2.0
// The field tables of fru.ini. chassis_param, board_param, product_param and
// fru_param are four exported names for consecutive parts of one object:
// fru_read_ini fills custom fields from the rows that follow a table, so
// the tables must lie one after another, and one object guarantees that.
#include <libkv/fru.h>

#include <array>
#include <cstddef>
#include <string_view>

namespace
{

constexpr std::string_view kChassisKeys[] = {"Type", "PartNum", "SerialNum"};
constexpr std::string_view kBoardKeys[] = {"time",
                                           "Manufacturer",
                                           "ProductName",
                                           "SerialNum",
                                           "PartNum",
                                           "FRUFileID",
                                           "CustomDataString",
                                           "CustomDataString1",
                                           "CustomDataString2",
                                           "CustomDataString3",
                                           "CustomDataString4",
                                           "CustomDataString5"};
constexpr std::string_view kProductKeys[] = {
    "Manufacturer",      "ProductName",       "PartNum",
    "Version",           "SerialNum",         "AssetTag",
    "FRUFileID",         "CustomDataString",  "CustomDataString1",
    "CustomDataString2", "CustomDataString3", "CustomDataString4"};

constexpr std::size_t kChassisRows = std::size(kChassisKeys);
constexpr std::size_t kBoardRows = std::size(kBoardKeys);
constexpr std::size_t kProductRows = std::size(kProductKeys);
constexpr std::size_t kAllRows = kChassisRows + kBoardRows + kProductRows;

struct FieldTables
{
    kv_fru_param chassis[kChassisRows];
    kv_fru_param board[kBoardRows];
    kv_fru_param product[kProductRows];
    kv_fru_param all[kAllRows];
};
static_assert(sizeof(kv_fru_param) == 132);
static_assert(offsetof(FieldTables, board) == sizeof(kv_fru_param) * 3);
static_assert(offsetof(FieldTables, product) == sizeof(kv_fru_param) * 15);
static_assert(offsetof(FieldTables, all) == sizeof(kv_fru_param) * 27);
static_assert(sizeof(FieldTables) == sizeof(kv_fru_param) * 54);

template <std::size_t N>
constexpr void copy_text(char (&to)[N], std::string_view from)
{
    for (std::size_t i = 0; i < from.size() && i < N - 1; ++i)
    {
        to[i] = from[i];
    }
}

template <std::size_t N>
constexpr void fill_rows(kv_fru_param* rows, std::string_view section,
                         const std::string_view (&keys)[N], int first_index)
{
    for (std::size_t i = 0; i < N; ++i)
    {
        rows[i].index = first_index + static_cast<int>(i);
        copy_text(rows[i].section, section);
        copy_text(rows[i].key, keys[i]);
    }
}

constexpr FieldTables make_tables()
{
    FieldTables t{};
    fill_rows(t.chassis, "ChassisInfoArea", kChassisKeys, 0);
    fill_rows(t.board, "BoardInfoArea", kBoardKeys, 0);
    fill_rows(t.product, "ProductInfoArea", kProductKeys, 0);
    fill_rows(t.all, "ChassisInfoArea", kChassisKeys, 0);
    fill_rows(t.all + kChassisRows, "BoardInfoArea", kBoardKeys, kChassisRows);
    fill_rows(t.all + kChassisRows + kBoardRows, "ProductInfoArea",
              kProductKeys, kChassisRows + kBoardRows);
    return t;
}

// Reached only through the four exported names, the library's own code
// included: a program that uses the tables gets its own copy of each (copy
// relocations, placed apart), and the library must then see those copies.
[[gnu::used]] constinit FieldTables
    field_tables asm("kv_fru_field_tables") = make_tables();

} // namespace

// Byte offsets and sizes below are the row counts times 132, as the
// static_asserts above pin down.
#define KV_TABLE_ALIAS(name, offset, size)                                     \
    ".globl " #name "\n"                                                       \
    ".type " #name ", %object\n"                                               \
    ".size " #name ", " #size "\n"                                             \
    ".set " #name ", kv_fru_field_tables + " #offset "\n"

asm(KV_TABLE_ALIAS(chassis_param, 0, 396) KV_TABLE_ALIAS(board_param, 396, 1584)
        KV_TABLE_ALIAS(product_param, 1980, 1584)
            KV_TABLE_ALIAS(fru_param, 3564, 3564));

// SPDX-License-Identifier: Apache-2.0
// fru.ini: the key lookup, the template and reading the file into the
// field tables and the FRU record.
#include "test_helpers.h"

#include <libkv/fru.h>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace
{

using kv::test::read_text;
using kv::test::stdout_of;
using kv::test::write_text;
using testing::HasSubstr;

std::string field(const kv_fru_field& f)
{
    return std::string(reinterpret_cast<const char*>(f.data),
                       f.type_len - 0xC0);
}

std::string custom(const kv_fru_custom_fields& c, int i)
{
    return std::string(reinterpret_cast<const char*>(c.data[i]),
                       c.type_len[i] - 0xC0);
}

std::string template_text()
{
    std::string text;
    for (const auto& line : default_ini)
    {
        text += std::string(line) + "\n";
    }
    return text;
}

// `text` with the first line starting with `from` at or after `section`
// replaced by `to`.
std::string edited(const std::string& section, const std::string& from,
                   const std::string& to, std::string text = template_text())
{
    const auto header = text.find(section);
    const auto at = text.find("\n" + from, header - (header > 0)) + 1;
    text.replace(at, text.find('\n', at) - at, to);
    return text;
}

// fru_read_ini's result and what it printed, on `ini` as ./fru.ini.
std::pair<int, std::string> read_ini(const std::string& ini)
{
    write_text("/tmp/fru.ini", ini);
    fru_init();
    int result = 1;
    const std::string out = stdout_of([&] { result = fru_read_ini(); });
    return {result, out};
}

TEST(Lookup, LooseMatchingKeptAsFilesExpectIt)
{
    write_text("/tmp/a.ini", "[A]\n"
                             "SerialNumber =   \"long\"  \n"
                             "Empty\n"
                             "[B]\n"
                             "Note = \"x#y\" # comment\n"
                             "  Indented = \"no\"\n"
                             "Plain = 42\n");
    // Prefix match: SerialNum finds SerialNumber; the line end stays.
    EXPECT_STREQ(GetIniKeyString("A", "SerialNum", "/tmp/a.ini"),
                 "\"long\"  \n");
    // Section A never ends, so keys of B are found from A.
    EXPECT_STREQ(GetIniKeyString("A", "Plain", "/tmp/a.ini"), "42\n");
    EXPECT_EQ(GetIniKeyInt("A", "Plain", "/tmp/a.ini"), 42);
    EXPECT_STREQ(GetIniKeyString("B", "Note", "/tmp/a.ini"), "\"x");
    // Keys start in column 1; a matching line without '=' ends the search.
    EXPECT_EQ(GetIniKeyString("B", "Indented", "/tmp/a.ini"), nullptr);
    EXPECT_EQ(GetIniKeyString("A", "Empty", "/tmp/a.ini"), nullptr);
    EXPECT_EQ(GetIniKeyString("C", "Plain", "/tmp/a.ini"), nullptr);

    // One static buffer for every result.
    char* first = GetIniKeyString("A", "Plain", "/tmp/a.ini");
    EXPECT_EQ(GetIniKeyString("A", "SerialNum", "/tmp/a.ini"), first);

    char* missing = first;
    EXPECT_EQ(stdout_of([&] {
                  missing = GetIniKeyString("A", "Plain", "/tmp/none.ini");
              }),
              "have   no   such   file ");
    EXPECT_EQ(missing, nullptr);
    int value = 1;
    stdout_of([&] { value = GetIniKeyInt("A", "Plain", "/tmp/none.ini"); });
    EXPECT_EQ(value, 0);
}

TEST(Lookup, TextHelpers)
{
    char padded[] = "   a b  ";
    EXPECT_EQ(rtspace(padded), padded);
    EXPECT_STREQ(padded, "a b");
    char tabbed[] = "\t x \n";
    EXPECT_STREQ(rtspace(tabbed), "\t x \n");

    char quoted[] = "\"in\"side\" \n";
    char* inner = fru_get_str(quoted);
    EXPECT_EQ(inner, quoted + 1);
    EXPECT_STREQ(inner, "in");
    char one[] = "\"open";
    EXPECT_EQ(fru_get_str(one), nullptr);
    EXPECT_EQ(fru_get_str(nullptr), nullptr);
}

TEST(Template, ThirtyLinesAsTheToolWritesThem)
{
    ASSERT_EQ(config_default_ini(default_ini, KV_FRU_INI_LINES, "fru.ini"), 0);
    const std::string text = read_text("/tmp/fru.ini").value();
    EXPECT_EQ(text, template_text());
    EXPECT_EQ(text.substr(0, 40),
              "[ChassisInfoArea]\nType = \"2\"\nPartNum = \"");
    EXPECT_THAT(text,
                HasSubstr("\nFRUFileID = \nCustomDataString = \"N/A\"\n"));
    EXPECT_EQ(text.substr(text.size() - 26), "CustomDataString4 = \"N/A\"\n");

    char lines[2][KV_FRU_INI_LINE_BYTES] = {"has its own\n", "x"};
    ASSERT_EQ(config_default_ini(lines, 2, "/tmp/b.ini"), 0);
    EXPECT_EQ(read_text("/tmp/b.ini"), "has its own\nx\n");
    EXPECT_EQ(config_default_ini(nullptr, 2, "/tmp/b.ini"), -1);
    EXPECT_EQ(config_default_ini(lines, 2, nullptr), -1);
    EXPECT_EQ(config_default_ini(lines, 2, "/tmp/no/dir.ini"), -2);
}

TEST(Tables, FourTablesOneAfterAnother)
{
    // The library's own definitions: a program may hold copies of them.
    void* lib = dlopen("libkv.so.1", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(lib, nullptr);
    auto* chassis = static_cast<kv_fru_param*>(dlsym(lib, "chassis_param"));
    EXPECT_EQ(dlsym(lib, "board_param"), chassis + 3);
    EXPECT_EQ(dlsym(lib, "product_param"), chassis + 15);
    EXPECT_EQ(dlsym(lib, "fru_param"), chassis + 27);
    dlclose(lib);

    EXPECT_STREQ(board_param[11].key, "CustomDataString5");
    EXPECT_STREQ(product_param[6].section, "ProductInfoArea");
    for (int i = 0; i < 27; ++i)
    {
        const kv_fru_param& same = i < 3    ? chassis_param[i]
                                   : i < 15 ? board_param[i - 3]
                                            : product_param[i - 15];
        EXPECT_EQ(fru_param[i].index, i);
        EXPECT_STREQ(fru_param[i].key, same.key);
        EXPECT_STREQ(fru_param[i].section, same.section);
    }
}

TEST(ReadIni, TemplateFillsRecordIncludingNeighbourRows)
{
    setenv("TZ", "UTC", 1);
    tzset();
    const auto [result, out] = read_ini(template_text());
    ASSERT_EQ(result, 0);
    EXPECT_EQ(out, "chassis0 2 \nchassis1 N/A \nchassis2 N/A \n");

    EXPECT_EQ(fru.chassis.type, 2);
    EXPECT_EQ(field(fru.chassis.field[KV_FRU_CHASSIS_SERIAL_NUMBER]), "N/A");
    // Chassis custom fields are board rows 0..7.
    EXPECT_EQ(custom(fru.chassis.custom, 0), "2019/07/27 15:04:00");
    EXPECT_EQ(custom(fru.chassis.custom, 2), "krafloxkle");
    EXPECT_EQ(fru.chassis.custom.type_len[5], 0xC0); // empty FRUFileID

    // 12396424 minutes (UTC): least significant byte first.
    EXPECT_EQ(fru.board.mfg_date[0], 0x88);
    EXPECT_EQ(fru.board.mfg_date[1], 0x27);
    EXPECT_EQ(fru.board.mfg_date[2], 0xBD);
    EXPECT_STREQ(board_param[0].value, "2019"); // split in place
    EXPECT_EQ(field(fru.board.field[KV_FRU_BOARD_MANUFACTURER]), "VeldMarke");
    EXPECT_EQ(fru.board.field[KV_FRU_BOARD_FILE_ID].type_len, 0xC0);
    // Board custom fields 7 and 8 are product rows 0 and 1.
    EXPECT_EQ(custom(fru.board.custom, 5), "N/A");
    EXPECT_EQ(custom(fru.board.custom, 6), "VeldMarke");
    EXPECT_EQ(custom(fru.board.custom, 7), "krafloxkle");

    EXPECT_EQ(field(fru.product.field[KV_FRU_PRODUCT_SERIAL_NUMBER]),
              "000011112222");
    // Product custom fields 6..8 are fru_param's empty rows.
    EXPECT_EQ(custom(fru.product.custom, 4), "N/A");
    for (int i = 5; i < 8; ++i)
    {
        EXPECT_EQ(fru.product.custom.type_len[i], 0xC0);
    }
}

TEST(ReadIni, MissingKeysAndTheirMessages)
{
    auto [result, out] = read_ini(edited("[Chassis", "Type", "Kind = 2"));
    EXPECT_EQ(result, -3);
    EXPECT_EQ(out, "在fru.ini文件ChassisInfoArea中无法找到关键字段Type");

    // Sections never end: a key missing from the chassis section is taken
    // from the board section below it.
    std::string ini = edited("[Chassis", "SerialNum", "Serial: x");
    std::tie(result, out) =
        read_ini(edited("[Board", "SerialNum", "SerialNum = \"B-1\"", ini));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(field(fru.chassis.field[KV_FRU_CHASSIS_SERIAL_NUMBER]), "B-1");

    // The board message names the row counted from the chassis table.
    ini = edited("[Board", "PartNum", "Part: x");
    std::tie(result, out) = read_ini(edited("[Product", "PartNum", "x", ini));
    EXPECT_EQ(result, -3);
    EXPECT_EQ(out.substr(out.find("在")),
              "在fru.ini文件BoardInfoArea中无法找到关键字段Manufacturer\n");
    ini = edited("[Board", "FRUFileID", "x");
    std::tie(result, out) = read_ini(edited("[Product", "FRUFileID", "x", ini));
    EXPECT_EQ(result, -3);
    EXPECT_THAT(out, HasSubstr("BoardInfoArea中无法找到关键字段ProductName\n"));
    // Custom strings and the product FRUFileID may be left out.
    EXPECT_EQ(read_ini(edited("[Board", "CustomDataString5", "x")).first, 0);
    EXPECT_EQ(fru.board.custom.type_len[5], 0xC0);
    EXPECT_EQ(read_ini(edited("[Product", "FRUFileID", "x")).first, 0);

    std::tie(result, out) =
        read_ini(edited("[Product", "[ProductInfoArea]", "[Other]"));
    EXPECT_EQ(result, -3);
    EXPECT_EQ(out.substr(out.find("在")),
              "在fru.ini文件ProductInfoArea中无法找到关键字段Type\n");

    ini = edited("[Board", "time", "time = \"2019/07/27\"");
    EXPECT_EQ(read_ini(ini).first, -4);

    std::remove("/tmp/fru.ini");
    int created = 0;
    out = stdout_of([&] { created = create_fru_bin(); });
    EXPECT_EQ(created, 15);
    EXPECT_EQ(out, "have   no   such   file "
                   "在fru.ini文件ChassisInfoArea中无法找到关键字段Type");
}

TEST(ReadIni, ValueEdgeCases)
{
    std::string ini = edited("[Chassis", "Type", "Type = 23");
    ASSERT_EQ(read_ini(ini).first, 0);
    EXPECT_EQ(fru.chassis.type, 0);
    EXPECT_STREQ(chassis_param[0].value, "");

    ini = edited("[Chassis", "PartNum", "PartNum = \"A#B\"");
    ASSERT_EQ(read_ini(ini).first, 0);
    EXPECT_EQ(fru.chassis.field[KV_FRU_CHASSIS_PART_NUMBER].type_len, 0xC0);

    ini = edited("[Product", "AssetTag",
                 "AssetTag = \"" + std::string(63, 'a') + "\"");
    ASSERT_EQ(read_ini(ini).first, 0);
    EXPECT_EQ(fru.product.field[KV_FRU_PRODUCT_ASSET_TAG].type_len, 0xFF);

    // 64 characters fill the slot without terminator and wrap the type
    // byte to 0, which the builder then refuses for a fixed field.
    const std::string full(64, 'p');
    ini = edited("[Chassis", "PartNum", "PartNum = \"" + full + "\"");
    ASSERT_EQ(read_ini(ini).first, 0);
    EXPECT_EQ(std::string(chassis_param[1].value, 64), full);
    EXPECT_STREQ(chassis_param[2].key, "SerialNum");
    const kv_fru_field& part = fru.chassis.field[KV_FRU_CHASSIS_PART_NUMBER];
    EXPECT_EQ(part.type_len, 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(part.data), 64), full);
    EXPECT_EQ(fru.chassis.field[KV_FRU_CHASSIS_SERIAL_NUMBER].type_len, 0xC3);
    int created = 0;
    stdout_of([&] { created = create_fru_bin(); });
    EXPECT_EQ(created, 16);
}

} // namespace

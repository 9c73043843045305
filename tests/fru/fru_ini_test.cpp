// SPDX-License-Identifier: Apache-2.0
// fru.ini: the key lookup, the template and reading the file into the
// field tables and the FRU record.
#include "test_helpers.h"

#include <libkv/fru.h>

#include <gmock/gmock.h>

#include <array>
#include <cstring>

namespace
{

using namespace kv::test;
using Edits = std::vector<std::array<std::string, 3>>;

std::string text(uint8_t type_len, const uint8_t* data)
{
    return {reinterpret_cast<const char*>(data), uint8_t(type_len - 0xC0)};
}

// The template with, for each edit, the first line starting with `from`
// at or after `section` replaced.
std::string edited(const Edits& edits)
{
    std::string ini;
    for (const auto& line : default_ini)
    {
        ini += "\n" + std::string(line);
    }
    for (const auto& [section, from, to] : edits)
    {
        const auto at = ini.find("\n" + from, ini.find("\n" + section)) + 1;
        ini.replace(at, ini.find('\n', at) - at, to);
    }
    return ini.substr(1) + "\n";
}

// fru_read_ini's result and output, on `ini` as ./fru.ini.
std::pair<int, std::string> read_ini(const std::string& ini)
{
    write_text("fru.ini", ini);
    fru_init();
    int result = 1;
    const std::string out = stdout_of([&] { result = fru_read_ini(); });
    return {result, out};
}

// Loose matching, kept as existing files expect it.
TEST(Ini, Lookup)
{
    write_text("a.ini", "[A]\nSerialNumber =   \"long\"  \nEmpty\n[B]\n"
                        "Note = \"x#y\" # c\n  Indented = 1\n");
    // Keys are prefixes starting in column 1; a matching line without '='
    // ends the search.
    const std::array<const char*, 3> cases[] = {
        {"A", "SerialNum", "\"long\"  \n"},
        {"B", "Note", "\"x"},
        {"B", "Indented", nullptr},
        {"A", "Empty", nullptr},
        {"C", "SerialNum", nullptr}};
    for (auto [section, key, value] : cases)
    {
        EXPECT_STREQ(GetIniKeyString(section, key, "a.ini"), value);
    }
}

TEST(Ini, TemplateSlots)
{
    // A slot's own line end is kept; a full slot has no terminator.
    char lines[2][KV_FRU_INI_LINE_BYTES] = {"own\n"};
    std::memset(lines[1], 'y', sizeof lines[1]);
    ASSERT_EQ(config_default_ini(lines, 2, "b.ini"), 0);
    EXPECT_EQ(read_text("b.ini"), "own\n" + std::string(256, 'y') + "\n");
    EXPECT_EQ(config_default_ini(nullptr, 2, "b.ini"), -1);
    EXPECT_EQ(config_default_ini(lines, 2, "/no/b.ini"), -2);
}

// Every slot takes its row; custom fields run on into the next table.
TEST(Ini, SlotsAndRows)
{
    // Every value but Type and time names its template line.
    std::string ini;
    for (int i = 0; i < KV_FRU_INI_LINES; ++i)
    {
        std::string line = default_ini[i];
        const auto at = line.find(" = ");
        if (at != line.npos && i != 1 && i != 5)
        {
            line.replace(at, line.npos, " = \"v" + std::to_string(i) + "\"");
        }
        ini += line + "\n";
    }
    ASSERT_EQ(read_ini(ini).first, 0);
    // Template line of each fixed, then custom field; 0: empty.
    std::vector<std::string> got, want;
    auto add = [&](auto& area) {
        for (auto& f : area.field)
        {
            got.push_back(text(f.type_len, f.data));
        }
        for (int i = 0; i < KV_FRU_CUSTOM_FIELDS; ++i)
        {
            got.push_back(text(area.custom.type_len[i], area.custom.data[i]));
        }
    };
    add(fru.chassis);
    add(fru.board);
    add(fru.product);
    for (int n : {2,  3,  5,  6,  7,  8,  9,  10, 11, 12, 6,  7,  8,
                  9,  10, 11, 12, 13, 14, 15, 16, 18, 19, 18, 19, 20,
                  21, 22, 23, 24, 25, 26, 27, 28, 29, 0,  0,  0})
    {
        want.push_back(n == 5 ? "2019/07/27 15:04:00"
                       : n    ? "v" + std::to_string(n)
                              : "");
    }
    EXPECT_EQ(want, got);
}

TEST(Ini, MissingKeys)
{
    const std::tuple<Edits, int, std::string> cases[] = {
        {{{"[Ch", "Type", "x"}}, -3, ""},
        // A key missing from a section is taken from the sections below.
        {{{"[Ch", "SerialNum", "x"}, {"[Bo", "SerialNum", "SerialNum=\"B\""}},
         0,
         "chassis2 B \n"},
        // The board message names the row counted from the chassis table.
        {{{"[Bo", "PartNum", "x"}, {"[Pr", "PartNum", "x"}},
         -3,
         "Manufacturer\n"},
        {{{"[Bo", "FRUFileID", "x"}, {"[Pr", "FRUFileID", "x"}}, -3, ""},
        // Custom strings and the product FRUFileID may be left out.
        {{{"[Bo", "CustomDataString5", "x"}, {"[Pr", "FRUFileID", "x"}}, 0, ""},
        {{{"[Pr", "[ProductInfoArea]", "x"}}, -3, ""},
        {{{"[Bo", "time", "time = \"2019/07/27\""}}, -4, ""}};
    for (const auto& [edits, result, tail] : cases)
    {
        const auto [got, out] = read_ini(edited(edits));
        EXPECT_EQ(got, result);
        EXPECT_THAT(out, testing::EndsWith(tail));
    }
}

TEST(Ini, ValueEdgeCases)
{
    const std::string full(64, 'p');
    ASSERT_EQ(read_ini(edited({{"[Ch", "PartNum", "PartNum=\"" + full + "\""}}))
                  .first,
              0);
    // 64 characters fill the slot unterminated and wrap the type byte to 0,
    // which the builder then refuses for a fixed field.
    const kv_fru_field* f = fru.chassis.field;
    EXPECT_EQ(f[0].type_len, 0);
    EXPECT_EQ(text(f[0].type_len, f[0].data), full);
    EXPECT_EQ(f[1].type_len, 0xC3);
    stdout_of([] { EXPECT_EQ(create_fru_bin(), 16); });
}

} // namespace

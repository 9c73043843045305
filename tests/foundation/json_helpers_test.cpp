// SPDX-License-Identifier: Apache-2.0
#include "foundation_test.h"

#include <cjson/cJSON.h>

#include <cmath>
#include <memory>

using Tree =
    std::unique_ptr<cJSON, decltype([](cJSON* t) { cJSON_Delete(t); })>;

Tree J(const char* json)
{
    return Tree(cJSON_Parse(json));
}

// `node` as `kind` in `size` bytes, read back as a number; NAN when refused,
// which writes nothing. No kind writes past `size`.
double as(const cJSON* node, int kind, size_t size = 16)
{
    union
    {
        uint8_t u8;
        int16_t i16;
        int32_t i32;
        int64_t i64;
        char text[17];
        float f;
        double d;
    } out;
    std::memset(out.text, 0x5A, 17);
    const int rc = cjson_data_get(node, kind, &out, size);
    const size_t used = rc ? 0 : size;
    EXPECT_EQ(S(out.text + used, 17 - used), S(17 - used, 0x5A));
    const double values[] = {double(out.u8),
                             double(out.i16),
                             double(out.i32),
                             double(out.i64),
                             atof(out.text),
                             out.f,
                             out.d};
    return rc ? NAN : values[kind];
}

// False, true, number and string nodes convert to kinds 0..6; other types
// and kinds are refused. Integers truncate, saturate and wrap; each kind
// needs room for its size.
TEST(Json, Conversions)
{
    const std::pair<Tree, double> nodes[] = {
        {J("false"), 0},
        {J("true"), 1},
        {J("null"), NAN},
        {J("42"), 42},
        {J("\"42\""), 42},
        {Tree(cJSON_CreateStringReference("42")), 42},
        {J("[]"), NAN},
        {J("{}"), NAN},
        {Tree(cJSON_CreateRaw("42")), NAN}};
    for (const auto& [node, value] : nodes)
        for (int kind = -1; kind <= 7; ++kind)
            EXPECT_THAT(as(node.get(), kind),
                        testing::NanSensitiveDoubleEq(
                            kind >= 0 && kind <= 6 ? value : NAN))
                << node->type << " as " << kind;
    const struct
    {
        const char* json;
        int kind;
        size_t size;
        double out;
    } cases[] = {{"300", KV_JSON_U8, 1, 44},
                 {"-3.7", KV_JSON_I16, 2, -3},
                 {"40000", KV_JSON_I16, 2, -25536},
                 {"-2147483649", KV_JSON_I32, 4, 2147483647},
                 {"1e20", KV_JSON_I64, 8, 9223372036854775807.0},
                 {"-1e999", KV_JSON_I64, 8, -9223372036854775808.0},
                 {"\"12.7 volts\"", KV_JSON_I32, 4, 12},
                 {"1.5", KV_JSON_TEXT, 16, 1.5},
                 {"\"0.1234567\"", KV_JSON_TEXT, 5, 0.12},
                 {"7", KV_JSON_I64, 7, NAN},
                 {"7", KV_JSON_TEXT, 0, NAN}};
    for (const auto& c : cases)
        EXPECT_THAT(as(J(c.json).get(), c.kind, c.size),
                    testing::NanSensitiveDoubleEq(c.out))
            << c.json << " as " << c.kind;
    const Tree nan(cJSON_CreateNumber(NAN));
    EXPECT_EQ(0, as(nan.get(), KV_JSON_I64));
    cJSON textless{};
    textless.type = cJSON_String;
    char name[8];
    EXPECT_EQ(-4, cjson_data_get(&textless, KV_JSON_TEXT, name, 8) +
                      cjson_data_get(&textless, KV_JSON_I32, name, 8) +
                      cjson_data_get(nullptr, KV_JSON_I32, name, 8) +
                      cjson_data_get(nan.get(), KV_JSON_I32, nullptr, 8));

    // Keys are looked up ignoring case.
    const Tree object(J(R"({"Name": "fan0"})"));
    EXPECT_EQ(0, cjson_value_get(object.get(), "NAME", 4, name, 8));
    EXPECT_STREQ(name, "fan0");
    EXPECT_EQ(-2, cjson_value_get(object.get(), "Missing", 4, name, 8) +
                      cjson_value_get(object.get(), nullptr, 4, name, 8));

    // A file is replaced whole or not at all, with no scratch file left, and
    // parsed back only when whole. A scratch name cut to 127 characters could
    // name another file: such a path is refused.
    write_text("/tmp/out/board.json", "old");
    ASSERT_EQ(0, cjson_file_write(object.get(), "/tmp/out/board.json"));
    const Tree back(prepare_parse_json("/tmp/out/board.json"));
    EXPECT_TRUE(cJSON_Compare(object.get(), back.get(), true));
    const S bystander = "/tmp/out/" + S(118, 'n');
    const S cut = bystander + ".json";
    write_text(bystander, "bystander");
    for (const char* path :
         {"/tmp/out/no/dir.json", cut.c_str(), (const char*)0})
        EXPECT_EQ(-1, cjson_file_write(object.get(), path));
    EXPECT_EQ("bystander", read_text(bystander));
    EXPECT_EQ(names_in("/tmp/out").size(), 2u);

    write_text("/tmp/empty.json", "");
    write_text("/tmp/broken.json", R"({"name": )");
    for (const char* path : {"/tmp/missing.json", "/tmp/empty.json",
                             "/tmp/broken.json", "/tmp/out", (const char*)0})
        EXPECT_EQ(nullptr, Tree(prepare_parse_json(path))) << path;
}

// SPDX-License-Identifier: Apache-2.0
#include "foundation_test.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

using namespace kv::foundation::test;

namespace
{
using Tree =
    std::unique_ptr<cJSON, decltype([](cJSON* t) { cJSON_Delete(t); })>;

// Room for every kind, with a fill that shows whether anything was written.
struct Out
{
    Out()
    {
        std::memset(bytes, 0x5A, sizeof bytes);
    }
    bool untouched() const
    {
        return std::all_of(std::begin(bytes), std::end(bytes),
                           [](unsigned char b) { return b == 0x5A; });
    }
    template <typename T>
    T as() const
    {
        T value;
        std::memcpy(&value, bytes, sizeof value);
        return value;
    }
    alignas(8) unsigned char bytes[64];
};

// What `out` holds for `kind`, read back as a number.
double read_back(const Out& out, int kind)
{
    switch (kind)
    {
        case KV_JSON_U8:
            return out.as<uint8_t>();
        case KV_JSON_I16:
            return out.as<int16_t>();
        case KV_JSON_I32:
            return out.as<int32_t>();
        case KV_JSON_I64:
            return static_cast<double>(out.as<int64_t>());
        case KV_JSON_TEXT:
            return std::atof(reinterpret_cast<const char*>(out.bytes));
        case KV_JSON_FLOAT:
            return out.as<float>();
        default:
            return out.as<double>();
    }
}

// `node` converted to `kind` and read back as a number; NAN when refused,
// which must leave the output untouched.
double convert(const cJSON* node, int kind)
{
    Out out;
    if (const int rc = cjson_data_get(node, kind, out.bytes, sizeof out.bytes))
    {
        EXPECT_EQ(-1, rc);
        EXPECT_TRUE(out.untouched());
        return NAN;
    }
    return read_back(out, kind);
}

double number_as(double number, int kind)
{
    return convert(Tree(cJSON_CreateNumber(number)).get(), kind);
}

// `json` parsed and read as text into `size` bytes, or "<refused>".
std::string text_of(const char* json, size_t size)
{
    const Tree node(cJSON_Parse(json));
    char buf[16];
    return cjson_data_get(node.get(), KV_JSON_TEXT, buf, size) == 0
               ? buf
               : "<refused>";
}

} // namespace

TEST(PrepareParseJson, ParsesAWholeFileAndNothingElse)
{
    write_text("/tmp/board.json", R"({"name": "riser", "slots": [1, 2]})");
    const Tree tree(prepare_parse_json("/tmp/board.json"));
    ASSERT_NE(nullptr, tree);
    EXPECT_STREQ("riser", cJSON_GetObjectItem(tree.get(), "name")->valuestring);
    EXPECT_EQ(2, cJSON_GetArraySize(cJSON_GetObjectItem(tree.get(), "slots")));

    write_text("/tmp/empty.json", "");
    write_text("/tmp/broken.json", R"({"name": )");
    make_dirs("/tmp/dir.json");
    EXPECT_EQ(nullptr, prepare_parse_json(nullptr));
    for (const char* path : {"/tmp/missing.json", "/tmp/empty.json",
                             "/tmp/broken.json", "/tmp/dir.json"})
    {
        EXPECT_EQ(nullptr, Tree(prepare_parse_json(path))) << path;
    }
}

// Every node type against every kind: false, true, number and string nodes
// convert to kinds 0..6, all other types and kind 7 are refused untouched.
TEST(CjsonDataGet, NodeTypeAgainstKindMatrix)
{
    const std::pair<Tree, double> nodes[] = {
        {Tree(cJSON_CreateFalse()), 0},
        {Tree(cJSON_CreateTrue()), 1},
        {Tree(cJSON_CreateNull()), NAN},
        {Tree(cJSON_CreateNumber(42)), 42},
        {Tree(cJSON_CreateString("42")), 42},
        {Tree(cJSON_CreateStringReference("42")), 42},
        {Tree(cJSON_CreateArray()), NAN},
        {Tree(cJSON_CreateObject()), NAN},
        {Tree(cJSON_CreateRaw("42")), NAN},
    };
    for (const auto& [node, value] : nodes)
    {
        for (int kind = 0; kind <= 7; ++kind)
        {
            EXPECT_THAT(convert(node.get(), kind),
                        testing::NanSensitiveDoubleEq(kind <= 6 ? value : NAN))
                << "node type " << node->type << " as kind " << kind;
        }
    }
}

TEST(CjsonDataGet, IntegerKindsTruncateSaturateAndWrap)
{
    EXPECT_EQ(3, number_as(3.9, KV_JSON_U8));
    EXPECT_EQ(255, number_as(-1.0, KV_JSON_U8));
    EXPECT_EQ(44, number_as(300, KV_JSON_U8));
    EXPECT_EQ(0, number_as(NAN, KV_JSON_U8));
    EXPECT_EQ(-3, number_as(-3.7, KV_JSON_I16));
    EXPECT_EQ(-25536, number_as(40000, KV_JSON_I16));
    EXPECT_EQ(2147483647, number_as(-2147483649.0, KV_JSON_I32));
    EXPECT_EQ(-1, number_as(1e20, KV_JSON_I32)); // saturated, then narrowed
    EXPECT_EQ(9223372036854775807.0, number_as(1e20, KV_JSON_I64));
    EXPECT_EQ(-9223372036854775808.0, number_as(-HUGE_VAL, KV_JSON_I64));
    EXPECT_EQ(0, number_as(NAN, KV_JSON_I64));
}

TEST(CjsonDataGet, TextAndStringConversions)
{
    EXPECT_EQ("1.500000", text_of("1.5", 16));
    EXPECT_EQ("1.000000", text_of("true", 16));
    EXPECT_EQ("12.7 volts", text_of(R"("12.7 volts")", 16));
    EXPECT_EQ("12.7", text_of(R"("12.7 volts")", 5));

    EXPECT_EQ(
        12, convert(Tree(cJSON_CreateString("12.7 volts")).get(), KV_JSON_I32));
    EXPECT_EQ(0, convert(Tree(cJSON_CreateString("abc")).get(), KV_JSON_I32));
}

TEST(CjsonDataGet, RefusesBadArgumentsAndBuffersTooSmallForTheKind)
{
    const Tree number(cJSON_CreateNumber(7));
    Out out;
    EXPECT_EQ(-1, cjson_data_get(nullptr, KV_JSON_I32, out.bytes, 8));
    EXPECT_EQ(-1, cjson_data_get(number.get(), KV_JSON_I32, nullptr, 8));
    EXPECT_EQ(-1, cjson_data_get(number.get(), KV_JSON_TEXT, out.bytes, 0));
    EXPECT_EQ(-1, cjson_data_get(number.get(), -1, out.bytes, 8));
    EXPECT_EQ(-1, cjson_data_get(number.get(), KV_JSON_I16, out.bytes, 1));
    EXPECT_EQ(-1, cjson_data_get(number.get(), KV_JSON_I32, out.bytes, 3));
    EXPECT_EQ(-1, cjson_data_get(number.get(), KV_JSON_I64, out.bytes, 7));
    EXPECT_EQ(-1, cjson_data_get(number.get(), KV_JSON_FLOAT, out.bytes, 3));
    EXPECT_EQ(-1, cjson_data_get(number.get(), KV_JSON_DOUBLE, out.bytes, 7));
    cJSON textless{};
    textless.type = cJSON_String;
    EXPECT_EQ(-1, cjson_data_get(&textless, KV_JSON_TEXT, out.bytes, 8));
    EXPECT_EQ(-1, cjson_data_get(&textless, KV_JSON_I32, out.bytes, 8));
    EXPECT_TRUE(out.untouched());

    EXPECT_EQ(0, cjson_data_get(number.get(), KV_JSON_U8, out.bytes, 1));
    EXPECT_EQ(7, out.bytes[0]);
    EXPECT_EQ(0x5A, out.bytes[1]);
}

TEST(CjsonValueGet, LooksKeysUpIgnoringCase)
{
    const Tree object(cJSON_Parse(R"({"FanSpeed": 4200, "Name": "fan0"})"));
    int32_t speed = 0;
    ASSERT_EQ(0, cjson_value_get(object.get(), "fanspeed", KV_JSON_I32, &speed,
                                 sizeof speed));
    EXPECT_EQ(4200, speed);
    char name[8];
    ASSERT_EQ(0, cjson_value_get(object.get(), "NAME", KV_JSON_TEXT, name,
                                 sizeof name));
    EXPECT_STREQ("fan0", name);

    EXPECT_EQ(-1, cjson_value_get(object.get(), "Missing", KV_JSON_I32, &speed,
                                  sizeof speed));
    EXPECT_EQ(
        -1, cjson_value_get(nullptr, "Name", KV_JSON_TEXT, name, sizeof name));
    EXPECT_EQ(-1, cjson_value_get(object.get(), nullptr, KV_JSON_TEXT, name,
                                  sizeof name));
}

TEST(CjsonFileWrite, ReplacesTheFileWholeOrNotAtAll)
{
    write_text("/tmp/out/board.json", "old");
    const Tree tree(cJSON_Parse(R"({"slot": 3, "cards": ["a", "b"]})"));
    ASSERT_EQ(0, cjson_file_write(tree.get(), "/tmp/out/board.json"));

    const std::unique_ptr<char, decltype(&cJSON_free)> formatted(
        cJSON_Print(tree.get()), &cJSON_free);
    EXPECT_EQ(formatted.get(), read_text("/tmp/out/board.json"));
    EXPECT_EQ(std::vector<std::string>{"board.json"}, names_in("/tmp/out"));

    // Failures leave no scratch file behind.
    make_dirs("/tmp/out/taken.json/inside");
    EXPECT_EQ(-1, cjson_file_write(tree.get(), "/tmp/out/taken.json"));
    EXPECT_EQ(-1, cjson_file_write(tree.get(), "/tmp/out/no/such/dir.json"));
    EXPECT_EQ(-1, cjson_file_write(nullptr, "/tmp/out/x.json"));
    EXPECT_EQ(-1, cjson_file_write(tree.get(), nullptr));
    EXPECT_EQ((std::vector<std::string>{"board.json", "taken.json"}),
              names_in("/tmp/out"));

    // A scratch name cut to 127 characters could name another file; such a
    // path is refused instead. Cut to 127 characters, the scratch name would be
    // "/tmp/out/nnn...n".
    const std::string bystander = "/tmp/out/" + std::string(118, 'n');
    write_text(bystander, "bystander");
    EXPECT_EQ(-1, cjson_file_write(tree.get(), (bystander + ".json").c_str()));
    EXPECT_EQ("bystander", read_text(bystander));
    EXPECT_FALSE(read_text(bystander + ".json"));
}

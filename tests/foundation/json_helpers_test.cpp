#include "test_helpers.h"

#include <libkv/foundation.h>

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace
{

using kv::test::make_dirs;
using kv::test::read_text;
using kv::test::write_text;

struct TreeDelete
{
    void operator()(cJSON* tree) const
    {
        cJSON_Delete(tree);
    }
};
using Tree = std::unique_ptr<cJSON, TreeDelete>;

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
    const char* text() const
    {
        return reinterpret_cast<const char*>(bytes);
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
            return std::atof(out.text());
        case KV_JSON_FLOAT:
            return out.as<float>();
        default:
            return out.as<double>();
    }
}

std::vector<std::string> names_in(const std::string& dir)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
    {
        names.push_back(entry.path().filename());
    }
    return names;
}

} // namespace

TEST(PrepareParseJson, ParsesAWholeFile)
{
    write_text("/tmp/board.json", R"({"name": "riser", "slots": [1, 2]})");
    const Tree tree(prepare_parse_json("/tmp/board.json"));
    ASSERT_NE(nullptr, tree);
    EXPECT_STREQ("riser", cJSON_GetObjectItem(tree.get(), "name")->valuestring);
    EXPECT_EQ(2, cJSON_GetArraySize(cJSON_GetObjectItem(tree.get(), "slots")));
}

TEST(PrepareParseJson, NothingForMissingEmptyBrokenOrUnreadableFiles)
{
    write_text("/tmp/empty.json", "");
    write_text("/tmp/broken.json", R"({"name": )");
    make_dirs("/tmp/dir.json");
    EXPECT_EQ(nullptr, prepare_parse_json(nullptr));
    EXPECT_EQ(nullptr, prepare_parse_json("/tmp/missing.json"));
    EXPECT_EQ(nullptr, prepare_parse_json("/tmp/empty.json"));
    EXPECT_EQ(nullptr, prepare_parse_json("/tmp/broken.json"));
    EXPECT_EQ(nullptr, prepare_parse_json("/tmp/dir.json"));
}

// Every node type against every kind: false, true, number and string nodes
// convert to kinds 0..6, all other types and kind 7 are refused untouched.
TEST(CjsonDataGet, NodeTypeAgainstKindMatrix)
{
    struct Node
    {
        const char* label;
        cJSON* node;
        bool convertible;
        double value;
    };
    const std::vector<Node> nodes = {
        {"false", cJSON_CreateFalse(), true, 0},
        {"true", cJSON_CreateTrue(), true, 1},
        {"null", cJSON_CreateNull(), false, 0},
        {"number", cJSON_CreateNumber(42), true, 42},
        {"string", cJSON_CreateString("42"), true, 42},
        {"string reference", cJSON_CreateStringReference("42"), true, 42},
        {"array", cJSON_CreateArray(), false, 0},
        {"object", cJSON_CreateObject(), false, 0},
        {"raw", cJSON_CreateRaw("42"), false, 0},
    };
    for (const Node& node : nodes)
    {
        const Tree owner(node.node);
        for (int kind = 0; kind <= 7; ++kind)
        {
            SCOPED_TRACE(std::string(node.label) + " as kind " +
                         std::to_string(kind));
            Out out;
            const bool expected_ok = node.convertible && kind <= 6;
            ASSERT_EQ(
                expected_ok ? 0 : -1,
                cjson_data_get(node.node, kind, out.bytes, sizeof out.bytes));
            if (expected_ok)
            {
                EXPECT_EQ(node.value, read_back(out, kind));
            }
            else
            {
                EXPECT_TRUE(out.untouched());
            }
        }
    }
}

TEST(CjsonDataGet, IntegerKindsTruncateSaturateAndWrap)
{
    struct Case
    {
        double number;
        int kind;
        double expected;
    };
    const std::vector<Case> cases = {
        {3.9, KV_JSON_U8, 3},
        {-1.0, KV_JSON_U8, 255},
        {300, KV_JSON_U8, 44},
        {NAN, KV_JSON_U8, 0},
        {-3.7, KV_JSON_I16, -3},
        {40000, KV_JSON_I16, -25536},
        {-2147483649.0, KV_JSON_I32, 2147483647},
        {1e20, KV_JSON_I32, -1}, // saturated, then narrowed
        {1e20, KV_JSON_I64, 9223372036854775807.0},
        {-HUGE_VAL, KV_JSON_I64, -9223372036854775808.0},
        {NAN, KV_JSON_I64, 0},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(std::to_string(c.number) + " as kind " +
                     std::to_string(c.kind));
        const Tree node(cJSON_CreateNumber(c.number));
        Out out;
        ASSERT_EQ(
            0, cjson_data_get(node.get(), c.kind, out.bytes, sizeof out.bytes));
        EXPECT_EQ(c.expected, read_back(out, c.kind));
    }
}

TEST(CjsonDataGet, TextAndStringConversions)
{
    const Tree number(cJSON_CreateNumber(1.5));
    const Tree yes(cJSON_CreateTrue());
    const Tree text(cJSON_CreateString("12.7 volts"));
    char buf[16];

    ASSERT_EQ(0, cjson_data_get(number.get(), KV_JSON_TEXT, buf, sizeof buf));
    EXPECT_STREQ("1.500000", buf);
    ASSERT_EQ(0, cjson_data_get(yes.get(), KV_JSON_TEXT, buf, sizeof buf));
    EXPECT_STREQ("1.000000", buf);
    ASSERT_EQ(0, cjson_data_get(text.get(), KV_JSON_TEXT, buf, sizeof buf));
    EXPECT_STREQ("12.7 volts", buf);
    ASSERT_EQ(0, cjson_data_get(text.get(), KV_JSON_TEXT, buf, 5));
    EXPECT_STREQ("12.7", buf);

    int32_t whole = 0;
    ASSERT_EQ(0, cjson_data_get(text.get(), KV_JSON_I32, &whole, sizeof whole));
    EXPECT_EQ(12, whole);
    const Tree word(cJSON_CreateString("abc"));
    whole = 7;
    ASSERT_EQ(0, cjson_data_get(word.get(), KV_JSON_I32, &whole, sizeof whole));
    EXPECT_EQ(0, whole);
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
    EXPECT_TRUE(out.untouched());

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
    ASSERT_NE(nullptr, object);
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

TEST(CjsonFileWrite, ReplacesTheFileWithTheFormattedTree)
{
    make_dirs("/tmp/out");
    write_text("/tmp/out/board.json", "old");
    const Tree tree(cJSON_Parse(R"({"slot": 3, "cards": ["a", "b"]})"));
    ASSERT_EQ(0, cjson_file_write(tree.get(), "/tmp/out/board.json"));

    const std::unique_ptr<char, decltype(&cJSON_free)> formatted(
        cJSON_Print(tree.get()), &cJSON_free);
    EXPECT_EQ(formatted.get(), read_text("/tmp/out/board.json"));
    EXPECT_EQ(std::vector<std::string>{"board.json"}, names_in("/tmp/out"));
}

TEST(CjsonFileWrite, FailureLeavesNoScratchFileBehind)
{
    const Tree tree(cJSON_Parse(R"({"slot": 3})"));
    make_dirs("/tmp/out/taken.json/inside");
    EXPECT_EQ(-1, cjson_file_write(tree.get(), "/tmp/out/taken.json"));
    EXPECT_EQ(std::vector<std::string>{"taken.json"}, names_in("/tmp/out"));

    EXPECT_EQ(-1, cjson_file_write(tree.get(), "/tmp/out/no/such/dir.json"));
    EXPECT_EQ(-1, cjson_file_write(nullptr, "/tmp/out/x.json"));
    EXPECT_EQ(-1, cjson_file_write(tree.get(), nullptr));
    EXPECT_EQ(std::vector<std::string>{"taken.json"}, names_in("/tmp/out"));
}

// A scratch name cut to 127 characters could name another file; such a path
// is refused instead.
TEST(CjsonFileWrite, RefusesAPathTooLongForItsScratchName)
{
    const Tree tree(cJSON_Parse(R"({"slot": 3})"));
    make_dirs("/tmp/out");
    // Cut to 127 characters, the scratch name would be "/tmp/out/nnn...n".
    const std::string bystander = "/tmp/out/" + std::string(118, 'n');
    const std::string path = bystander + ".json";
    write_text(bystander, "bystander");
    EXPECT_EQ(-1, cjson_file_write(tree.get(), path.c_str()));
    EXPECT_EQ("bystander", read_text(bystander));
    EXPECT_FALSE(read_text(path).has_value());
}

// SPDX-License-Identifier: Apache-2.0
#include "foundation_test.h"

const char* const kConf = "/tmp/settings.conf";

// Key and value are trimmed, the line is split at its first separator, keys
// match exactly and the first matching line wins. Lines are read in
// 255-character pieces, and each piece counts as a line.
TEST(KvFile, ReadGivesTheTrimmedValueOfTheFirstMatchingLine)
{
    write_text(kConf,
               " key = v 1 \r\na=b=c\nempty=\n#p=1\nP=2\npx=3\n\tp=4\np\n"
               "p=5\np=6\nh=no\nh: bmc:623\nlong=" +
                   std::string(250, 'v') +
                   "tail=end\nbig=" + std::string(200, 'z') + "\n");
    const std::tuple<const char*, char, std::string> cases[] = {
        {"key", '=', "v 1"},   {"a", '=', "b=c"},
        {"empty", '=', ""},    {"p", '=', "5"},
        {"#p", '=', "1"},      {" p", '=', "-"},
        {"h", ':', "bmc:623"}, {"h=no", ':', "-"},
        {"tail", '=', "end"},  {"long", '=', std::string(250, 'v')},
        {"k", '=', "-"},       {"big", '=', std::string(200, 'z')}};
    for (const auto& [key, sep, value] : cases)
    {
        char got[256];
        EXPECT_EQ(read_conf_value_safe(kConf, key, got, 256, sep) ? "-" : got,
                  value)
            << key;
    }
    char plain[200];
    std::memset(plain, 'X', sizeof plain);
    ASSERT_EQ(0, read_conf_value(kConf, "big", plain));
    EXPECT_EQ(std::string(plain, 129), std::string(127, 'z') + '\0' + 'X');
    ASSERT_EQ(0, read_conf_value_safe(kConf, "big", plain, 4, '='));
    EXPECT_STREQ("zzz", plain);
    EXPECT_EQ(-1, read_conf_value("/tmp/none", "k", plain));
    EXPECT_EQ(-1, read_conf_value(kConf, nullptr, plain));
    EXPECT_EQ(-1, read_conf_value_safe(kConf, "key", plain, 0, '='));
}

// Only spaces lead; trailing blanks and controls go. A comment's # follows
// nothing but spaces.
TEST(KvFile, ValidStringAndCommentLines)
{
    const std::pair<const char*, const char*> texts[] = {
        {"   a b \t\r\n", "a b"},
        {"x\x01\x7f ", "x"},
        {"\tx", "\tx"},
        {"  ", ""}};
    for (auto [in, out] : texts)
    {
        char buf[16];
        std::strcpy(buf, in);
        EXPECT_EQ(0, get_valid_string(buf));
        EXPECT_STREQ(buf, out);
    }
    const std::pair<const char*, int> lines[] = {
        {"#c", 1}, {"  # c", 1}, {"\t#c", 0}, {"k=#v", 0}, {"", 0}, {"  ", 0}};
    for (auto [line, comment] : lines)
    {
        EXPECT_EQ(check_comment_line(line), comment) << line;
    }
    EXPECT_EQ(get_valid_string(nullptr) + check_comment_line(nullptr), -2);
}

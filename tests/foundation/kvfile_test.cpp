// SPDX-License-Identifier: Apache-2.0
#include "foundation_test.h"

using namespace kv::foundation::test;

namespace
{
constexpr const char* kConf = "/tmp/settings.conf";

// Value of `key` read with size 256, or "<none>" when the reader fails.
std::string read_value(const char* key, char sep = '=')
{
    char value[256];
    std::memset(value, 'X', sizeof value);
    if (read_conf_value_safe(kConf, key, value, sizeof value, sep) != 0)
    {
        return "<none>";
    }
    return value;
}

} // namespace

// Key and value are trimmed, the line is split at its first separator, keys
// match exactly and the first matching line wins. Lines are read in
// 255-character pieces, and each piece counts as a line.
TEST(ReadConfValue, FirstLineWhoseTrimmedKeyMatchesGivesTheTrimmedValue)
{
    const std::string long_piece = "long=" + std::string(250, 'v');
    kv::test::write_text(
        kConf, " key = value \r\na=b=c\nempty=\nspaced = two words\t\n"
               "#port=1\nPORT=2\nportx=3\n\tport=4\nport\nport=5\nport=6\n"
               "host=ignored\nhost: bmc:623\n" +
                   long_piece + "tail=end\n");
    EXPECT_EQ("value", read_value("key"));
    EXPECT_EQ("b=c", read_value("a"));
    EXPECT_EQ("", read_value("empty"));
    EXPECT_EQ("two words", read_value("spaced"));
    EXPECT_EQ("5", read_value("port"));
    EXPECT_EQ("1", read_value("#port"));
    EXPECT_EQ("<none>", read_value("por"));
    EXPECT_EQ("<none>", read_value(" port"));
    EXPECT_EQ("bmc:623", read_value("host", ':'));
    EXPECT_EQ("<none>", read_value("host=ignored", ':'));
    EXPECT_EQ(std::string(250, 'v'), read_value("long"));
    EXPECT_EQ("end", read_value("tail"));
}

TEST(ReadConfValue, CutsTheValueToTheCallersSize)
{
    const std::string value(200, 'z');
    kv::test::write_text(kConf, "big=" + value + "\n");

    char plain[200];
    std::memset(plain, 'X', sizeof plain);
    ASSERT_EQ(0, read_conf_value(kConf, "big", plain));
    EXPECT_EQ(value.substr(0, 127), plain);
    EXPECT_EQ('X', plain[128]); // the 128-byte contract is not exceeded

    char small[4];
    ASSERT_EQ(0, read_conf_value_safe(kConf, "big", small, sizeof small, '='));
    EXPECT_STREQ("zzz", small);
}

TEST(ReadConfValue, FailsForMissingKeysFilesAndArguments)
{
    kv::test::write_text(kConf, "k=v\n");
    char value[128];
    EXPECT_EQ(-1, read_conf_value(kConf, "other", value));
    EXPECT_EQ(-1, read_conf_value("/tmp/missing.conf", "k", value));
    EXPECT_EQ(-1, read_conf_value(nullptr, "k", value));
    EXPECT_EQ(-1, read_conf_value(kConf, nullptr, value));
    EXPECT_EQ(-1, read_conf_value(kConf, "k", nullptr));
    EXPECT_EQ(-1, read_conf_value_safe(kConf, "k", value, 0, '='));
}

TEST(GetValidString, TrimsLeadingSpacesAndTrailingBlanksAndControls)
{
    const auto trimmed = [](const char* text) {
        char buf[16];
        std::strcpy(buf, text);
        EXPECT_EQ(0, get_valid_string(buf));
        return std::string(buf);
    };
    EXPECT_EQ("a b", trimmed("   a b \t\r\n"));
    EXPECT_EQ("x", trimmed("x\x01\x7f "));
    EXPECT_EQ("\tx", trimmed("\tx")); // only spaces lead
    EXPECT_EQ("", trimmed("    "));
    EXPECT_EQ("", trimmed(""));
    EXPECT_EQ(-1, get_valid_string(nullptr));
}

TEST(CheckCommentLine, HashAfterLeadingSpacesOnly)
{
    EXPECT_EQ(1, check_comment_line("#comment"));
    EXPECT_EQ(1, check_comment_line("    # indented"));
    EXPECT_EQ(0, check_comment_line("\t#tab is not skipped"));
    EXPECT_EQ(0, check_comment_line("key=#value"));
    EXPECT_EQ(0, check_comment_line(""));
    EXPECT_EQ(0, check_comment_line("   "));
    EXPECT_EQ(-1, check_comment_line(nullptr));
}

#include "test_helpers.h"

#include <libkv/foundation.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace
{

using kv::test::write_text;

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

std::string trimmed(const char* text)
{
    char buf[64];
    std::strcpy(buf, text);
    EXPECT_EQ(0, get_valid_string(buf));
    return buf;
}

} // namespace

TEST(ReadConfValue, TrimsKeyAndValueAndSplitsAtTheFirstSeparator)
{
    write_text(kConf, " key = value \r\n"
                      "a=b=c\n"
                      "empty=\n"
                      "spaced = two words\t\n");
    EXPECT_EQ("value", read_value("key"));
    EXPECT_EQ("b=c", read_value("a"));
    EXPECT_EQ("", read_value("empty"));
    EXPECT_EQ("two words", read_value("spaced"));
}

TEST(ReadConfValue, KeysMatchExactlyAndTheFirstMatchingLineWins)
{
    write_text(kConf, "#port=1\n"
                      "PORT=2\n"
                      "portx=3\n"
                      "\tport=4\n"
                      "port\n"
                      "port=5\n"
                      "port=6\n");
    EXPECT_EQ("5", read_value("port"));
    EXPECT_EQ("1", read_value("#port"));
    EXPECT_EQ("<none>", read_value("por"));
    EXPECT_EQ("<none>", read_value(" port"));
}

TEST(ReadConfValue, UsesTheCallersSeparator)
{
    write_text(kConf, "host=ignored\n"
                      "host: bmc:623\n");
    EXPECT_EQ("bmc:623", read_value("host", ':'));
    EXPECT_EQ("<none>", read_value("host=ignored", ':'));
}

// Lines are read in 255-character pieces, and each piece counts as a line.
TEST(ReadConfValue, LongLinesAreReadInPieces)
{
    const std::string first_piece = "long=" + std::string(250, 'v');
    ASSERT_EQ(255u, first_piece.size());
    write_text(kConf, first_piece + "tail=end\n");
    EXPECT_EQ(std::string(250, 'v'), read_value("long"));
    EXPECT_EQ("end", read_value("tail"));
}

TEST(ReadConfValue, CutsTheValueToTheCallersSize)
{
    const std::string value(200, 'z');
    write_text(kConf, "big=" + value + "\n");

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
    write_text(kConf, "k=v\n");
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

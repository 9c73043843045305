// SPDX-License-Identifier: Apache-2.0
// Single values and texts in small files, with each helper's own result.
#include "foundation_test.h"

#include <functional>

const char* const kNo = "/tmp/no/such/file";

TEST(ValueFiles, ValueIsTheFirstLineByAtoiRules)
{
    const std::pair<std::string, int> cases[] = {
        {"  -17 apples\n99\n", -17},
        {"abc", 0},
        {std::string(254, '0') + "7\n", 7}, // 255 characters of a line count
        {std::string(255, '0') + "7\n", 0},
        {"", 0}};
    for (const auto& [text, value] : cases)
    {
        write_text("/tmp/v", text);
        int read = 5;
        EXPECT_EQ(read_file_value_error("/tmp/v", &read),
                  text.empty() ? -1 : 0);
        EXPECT_EQ(read, text.empty() ? 5 : value) << text;
        EXPECT_EQ(read_file_value("/tmp/v"), value) << text;
    }
    int read = 5;
    EXPECT_EQ(read_file_value_error(kNo, &read) + read_file_value(kNo), -2);
}

// Each writer twice over a longer file: truncating ones leave one copy.
TEST(ValueFiles, WritersTruncateOrAppendAndReportTheirResult)
{
    const std::tuple<std::function<int(const char*)>, int, int, std::string>
        writers[] = {
            {[](auto p) { return write_file_value(p, -42); }, 0, -1, "-42"},
            {[](auto p) { return writeFile(p, "on"); }, 0, -1, "on"},
            {[](auto p) { return write_file_str_truncate(p, "hi\n"); }, 3, -1,
             "hi\n"},
            {[](auto p) { return write_bin_value(p, "a\0\xff", 3); }, 0, -1,
             std::string("a\0\xff", 3)},
            {[](auto p) { return write_file_str(p, "a\0c", 3); }, 3, -1,
             std::string("12a\0ca\0c", 8)},
            {[](auto p) { return create_and_write_file(p, "1\n"); }, 0, 3,
             "121\n1\n"},
            {[](auto p) { return create_and_write_file(p, nullptr); }, 0, 3,
             "12"}};
    for (const auto& [write, ok, fail, after] : writers)
    {
        write_text("/tmp/t", "12");
        EXPECT_EQ(write("/tmp/t") + write("/tmp/t"), 2 * ok);
        EXPECT_EQ(read_text("/tmp/t"), after);
        stdout_of([&] { EXPECT_EQ(write(kNo), fail); });
    }
    EXPECT_EQ(create_and_write_file("/tmp/new", nullptr), 0);
    EXPECT_EQ(read_text("/tmp/new"), "");
}

// Even when standard output cannot take the open error message, errno still
// tells why the open failed.
TEST(ValueFiles, ReadStrTakesTheFirstLineWithinNAndOpenErrorsKeepTheCause)
{
    write_text("/tmp/s", "first line\nsecond\n");
    char buf[64];
    EXPECT_EQ(read_file_str("/tmp/s", buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "first line\n");
    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(read_file_str("/tmp/s", buf, 6), 0);
    EXPECT_EQ(std::string(buf, 7), std::string("first\0x", 7));
    EXPECT_EQ(read_file_str("/tmp/s", buf, 1), 0); // room for "" only
    EXPECT_STREQ(buf, "");
    write_text("/tmp/s", "");
    EXPECT_EQ(read_file_str("/tmp/s", buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "");
    for (const std::function<int()>& call :
         {std::function<int()>([] { return write_bin_value(kNo, "1", 1); }),
          std::function<int()>([&] { return read_file_str(kNo, buf, 8); })})
    {
        EXPECT_THAT(stdout_of(call), HasSubstr(kNo));
        EXPECT_EQ(ENOENT, exit_status_of([&] {
                      std::setvbuf(stdout, nullptr, _IONBF, 0);
                      ::close(STDOUT_FILENO);
                      errno = 0;
                      return call() == -1 ? errno : 255;
                  }));
    }
}

TEST(ValueFiles, ReadAllAppendsDropsOneFinalNewlineNeverPastSize)
{
    const std::string line(600, 'L');
    write_text("/tmp/all", "a\n" + line + "\nb\n\n");
    char buf[1024] = "pre:";
    EXPECT_EQ(read_all_file("/tmp/all", buf, sizeof buf), 0);
    EXPECT_EQ(std::string(buf), "pre:a\n" + line + "\nb\n");
    EXPECT_EQ(read_all_file(kNo, buf, sizeof buf), -1);
    std::memset(buf, '#', sizeof buf);
    std::strcpy(buf, "ab");
    EXPECT_EQ(read_all_file("/tmp/all", buf, 10), 0);
    EXPECT_EQ(std::string(buf, 12), std::string("aba\nLLLLL\0##", 12));
    char full[4] = {'a', 'b', 'c', 'd'}; // no room even for a terminator
    EXPECT_EQ(read_all_file("/tmp/all", full, sizeof full), -1);
    EXPECT_EQ(std::string(full, 4), "abcd");
}

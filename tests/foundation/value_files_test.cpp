// SPDX-License-Identifier: Apache-2.0
// Single values and texts in small files, with each helper's own result.
#include "foundation_test.h"

#include <cstdio>
#include <functional>

using namespace kv::foundation::test;

namespace
{
const char* const kMissing = "/tmp/no/such/file";
const std::string kOpenError = std::string(" open ") + kMissing + " error.\n";

TEST(ReadValue, FirstLineByAtoiRulesEmptyAndMissingFilesDiffer)
{
    write_text("/tmp/v", "  -17 apples\n99\n");
    int value = 5;
    EXPECT_EQ(read_file_value_error("/tmp/v", &value), 0);
    EXPECT_EQ(value, -17);
    EXPECT_EQ(read_file_value("/tmp/v"), -17);

    write_text("/tmp/v", "abc");
    EXPECT_EQ(read_file_value("/tmp/v"), 0);
    // Only the first 255 characters of the line count.
    write_text("/tmp/v", std::string(255, '0') + "7\n");
    EXPECT_EQ(read_file_value("/tmp/v"), 0);
    write_text("/tmp/v", std::string(254, '0') + "7\n");
    EXPECT_EQ(read_file_value("/tmp/v"), 7);

    // An empty file reads as 0 but is an error for the checked reader.
    write_text("/tmp/empty", "");
    EXPECT_EQ(read_file_value("/tmp/empty"), 0);
    EXPECT_EQ(read_file_value(kMissing), -1);
    value = 5;
    EXPECT_EQ(read_file_value_error("/tmp/empty", &value), -1);
    EXPECT_EQ(read_file_value_error(kMissing, &value), -1);
    EXPECT_EQ(value, 5);
}

TEST(Write, TruncatingWritersAndTheirResults)
{
    write_text("/tmp/t", "1234567890\n");
    EXPECT_EQ(write_file_value("/tmp/t", -42), 0);
    EXPECT_EQ(read_text("/tmp/t"), "-42");
    EXPECT_EQ(writeFile("/tmp/t", "on"), 0);
    EXPECT_EQ(read_text("/tmp/t"), "on");
    EXPECT_EQ(write_file_str_truncate("/tmp/t", "hello\n"), 6);
    EXPECT_EQ(read_text("/tmp/t"), "hello\n");

    const char bytes[] = {'a', '\0', '\xff'};
    EXPECT_EQ(write_bin_value("/tmp/t", bytes, sizeof bytes), 0);
    EXPECT_EQ(read_text("/tmp/t"), std::string(bytes, sizeof bytes));

    EXPECT_EQ(write_file_value(kMissing, 1), -1);
    EXPECT_EQ(writeFile(kMissing, "on"), -1);
    EXPECT_EQ(write_file_str_truncate(kMissing, "x"), -1);
    int result = 0;
    EXPECT_EQ(stdout_of([&] { result = write_bin_value(kMissing, bytes, 3); }),
              kOpenError);
    EXPECT_EQ(result, -1);
}

TEST(Write, AppendingWritersCreateTheFile)
{
    EXPECT_EQ(write_file_str("/tmp/a", "ab\0c", 4), 4);
    EXPECT_EQ(write_file_str("/tmp/a", "de", 2), 2);
    EXPECT_EQ(read_text("/tmp/a"), std::string("ab\0cde", 6));
    EXPECT_EQ(write_file_str(kMissing, "x", 1), -1);

    EXPECT_EQ(create_and_write_file("/tmp/c", nullptr), 0);
    EXPECT_EQ(read_text("/tmp/c"), "");
    EXPECT_EQ(create_and_write_file("/tmp/c", "one\n"), 0);
    EXPECT_EQ(create_and_write_file("/tmp/c", "two\n"), 0);
    EXPECT_EQ(read_text("/tmp/c"), "one\ntwo\n");
    EXPECT_EQ(create_and_write_file(kMissing, "x"), 3);
}

TEST(ReadStr, FirstLineWithNewlineWithinN)
{
    write_text("/tmp/s", "first line\nsecond\n");
    char buf[64];
    EXPECT_EQ(read_file_str("/tmp/s", buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "first line\n");
    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(read_file_str("/tmp/s", buf, 6), 0);
    EXPECT_STREQ(buf, "first");
    EXPECT_EQ(buf[6], 'x');

    write_text("/tmp/empty", "");
    EXPECT_EQ(read_file_str("/tmp/empty", buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "");

    int result = 0;
    EXPECT_EQ(stdout_of([&] { result = read_file_str(kMissing, buf, 64); }),
              kOpenError);
    EXPECT_EQ(result, -1);
}

// The open error message goes out before the function returns; even when
// standard output cannot take it, errno still tells why the open failed.
TEST(OpenErrors, CauseSurvivesTheMessage)
{
    const auto errno_with_stdout_closed = [](const std::function<int()>& call) {
        return kv::test::exit_status_of([&] {
            std::setvbuf(stdout, nullptr, _IONBF, 0);
            ::close(STDOUT_FILENO);
            errno = 0;
            return call() == -1 ? errno : 255;
        });
    };
    char buf[64];
    EXPECT_EQ(ENOENT, errno_with_stdout_closed(
                          [&] { return read_file_str(kMissing, buf, 64); }));
    EXPECT_EQ(ENOENT, errno_with_stdout_closed(
                          [] { return write_bin_value(kMissing, "1", 1); }));
}

TEST(ReadAll, AppendsWholeFileDropsOneFinalNewlineNeverPastSize)
{
    const std::string long_line(600, 'L');
    write_text("/tmp/all", "a\n" + long_line + "\nb\n\n");
    char buf[1024] = "pre:";
    EXPECT_EQ(read_all_file("/tmp/all", buf, sizeof buf), 0);
    EXPECT_EQ(std::string(buf), "pre:a\n" + long_line + "\nb\n");
    EXPECT_EQ(read_all_file(kMissing, buf, sizeof buf), -1);

    // Never past `size` bytes.
    std::memset(buf, '#', sizeof buf);
    std::strcpy(buf, "ab");
    EXPECT_EQ(read_all_file("/tmp/all", buf, 10), 0);
    EXPECT_STREQ(buf, "aba\nLLLLL");
    EXPECT_EQ(std::string(buf + 10, 22), std::string(22, '#'));

    char full[4] = {'a', 'b', 'c', 'd'}; // no room even for a terminator
    EXPECT_EQ(read_all_file("/tmp/all", full, sizeof full), -1);
    EXPECT_EQ(std::string(full, 4), "abcd");
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// File size, copy, sub-directory lookup, SEL log rollover, record locks,
// the path helpers and single values and texts in small files.
#include "foundation_test.h"

const char* const kNo = "/tmp/no/such/file";

// A copy fails with 128 whichever side cannot be opened.
TEST(Files, CopyAndRollover)
{
    for (const char* to : {"/tmp/to", "/tmp/x/to"})
    {
        EXPECT_EQ(copy_file_func("/tmp/from", to), 128);
        write_text("/tmp/from", "");
    }
    S content;
    for (int i = 0; i < 10000; ++i)
        content += char(i * 7);
    write_text("/tmp/from", content);
    write_text("/tmp/to", S(20000, 'x'));
    EXPECT_EQ(copy_file_func("/tmp/from", "/tmp/to"), 0);
    EXPECT_EQ(read_text("/tmp/to"), content);
    EXPECT_EQ(get_file_size("/tmp/to") + get_file_size(kNo), 10000);

    // The SEL log goes to the card at 8 MiB. The card is another file system
    // (its own tmpfs here, as on the BMC), so the move is a copy and a
    // removal; without the card the log stays.
    setenv("TZ", "UTC0", 1);
    tzset();
    make_dirs("/media/card/sellog");
    const char* log = "/tmp/sel.log";
    write_text(log, "first event\n");
    fs::resize_file(log, 8388607);
    EXPECT_EQ(check_file_size(log, 1700000000), 1);
    fs::resize_file(log, 8388608);
    const auto whole = read_text(log);
    EXPECT_EQ(check_file_size(log, 1700000000), 0);
    EXPECT_FALSE(file_existed(log));
    EXPECT_EQ(whole, read_text("/media/card/sellog/sel-20231114221320.log"));
    write_text(log, "next event\n");
    fs::resize_file(log, 8388608);
    fs::remove_all("/media/card");
    EXPECT_EQ(check_file_size(log, 1700000000), 0);
    EXPECT_EQ(get_file_size(log), 8388608);
}

// Whether a child may lock one byte at `start`: the parent's locks cover
// the whole file, to its end and past it.
int child_can(short type, off_t start = 0)
{
    return exit_status_of([=] {
        const int fd = open("/tmp/lock", O_RDWR);
        if (fcntl_lock_util(fd, F_SETLK, type, start, SEEK_SET, 1) == 0)
            return 1;
        return errno == EAGAIN || errno == EACCES ? 0 : 2;
    });
}

TEST(Files, LocksAndPaths)
{
    write_text("/tmp/lock", "0123456789");
    const int fd = open("/tmp/lock", O_RDWR);
    ASSERT_EQ(file_lock_write(fd), 0);
    EXPECT_EQ(child_can(F_RDLCK) + child_can(F_WRLCK, 1 << 20), 0);
    EXPECT_EQ(file_unlock(fd), 0);
    EXPECT_EQ(child_can(F_WRLCK), 1);
    ASSERT_EQ(file_lock_read(fd), 0);
    EXPECT_EQ(child_can(F_RDLCK) * 10 + child_can(F_WRLCK), 10);

    make_dirs("/tmp/scan/hwmon3");
    make_dirs("/tmp/scan/other");
    write_text("/tmp/scan/hwmon_file", "");
    char out[256] = "-", buf[16];
    // Neither a file nor the dot entries match.
    EXPECT_EQ(get_file_name("/tmp/scan", "_file", out) +
                  get_file_name("/tmp/scan", ".", out) +
                  get_file_name("/tmp/none", "x", out),
              1);
    EXPECT_STREQ(out, "-");
    EXPECT_EQ(get_file_name("/tmp/scan", "mon", out), 0);
    EXPECT_STREQ(out, "hwmon3");
    EXPECT_EQ(path_create("/tmp/d") + path_create("/tmp/d"), 0);
    EXPECT_TRUE(fs::is_directory("/tmp/d"));
    EXPECT_EQ(path_create("/tmp/a/b"), -1); // parents are not made
    EXPECT_EQ(file_name_get("plain") + S(file_name_get(nullptr)), "plain");
    EXPECT_EQ(file_path_get("/etc/default/obmc", buf, sizeof buf), buf + 13);
    EXPECT_STREQ(buf, "/etc/default/ob");
    EXPECT_STREQ(file_path_get("abc", buf, 0), "");
}

// A value is the first line by atoi rules; 255 characters of a line count.
TEST(Files, ValuesAndTexts)
{
    const std::pair<S, int> cases[] = {{"  -17 apples\n99\n", -17},
                                       {"abc", 0},
                                       {S(254, '0') + "7\n", 7},
                                       {S(255, '0') + "7\n", 0}};
    int read = 5;
    for (const auto& [text, value] : cases)
    {
        write_text("/tmp/v", text);
        EXPECT_EQ(read_file_value_error("/tmp/v", &read), 0);
        EXPECT_EQ(read + read_file_value("/tmp/v"), 2 * value) << text;
    }
    write_text("/tmp/v", "");
    read = 5;
    EXPECT_EQ(read_file_value_error("/tmp/v", &read) +
                  read_file_value_error(kNo, &read) + read_file_value(kNo) +
                  read_file_value("/tmp/v"),
              -3);
    EXPECT_EQ(read, 5);

    // Each writer twice over a longer file: truncating ones leave one copy.
    const std::tuple<int (*)(const char*), int, int, S> writers[] = {
        {[](auto p) { return write_file_value(p, -42); }, 0, -1, "-42"},
        {[](auto p) { return writeFile(p, "on"); }, 0, -1, "on"},
        {[](auto p) { return write_file_str_truncate(p, "hi\n"); }, 3, -1,
         "hi\n"},
        {[](auto p) { return write_bin_value(p, "a\0\xff", 3); }, 0, -1,
         "a\0\xff"s},
        {[](auto p) { return write_file_str(p, "a\0c", 3); }, 3, -1,
         "12a\0ca\0c"s},
        {[](auto p) { return create_and_write_file(p, "1\n"); }, 0, 3,
         "121\n1\n"},
        {[](auto p) { return create_and_write_file(p, nullptr); }, 0, 3, "12"}};
    for (const auto& [write, ok, fail, after] : writers)
    {
        write_text("/tmp/t", "12");
        EXPECT_EQ(write("/tmp/t") + write("/tmp/t"), 2 * ok);
        EXPECT_EQ(read_text("/tmp/t"), after);
        EXPECT_EQ(write(kNo), fail);
    }
    EXPECT_EQ(create_and_write_file("/tmp/new", nullptr), 0);
    EXPECT_EQ(read_text("/tmp/new"), "");

    // read_all_file appends, drops one final newline and never writes past the
    // size; read_file_str reads the first line.
    const S line(600, 'L');
    write_text("/tmp/all", "a\n" + line + "\nb\n\n");
    char buf[1024] = "pre:", full[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(read_all_file("/tmp/all", buf, sizeof buf), 0);
    EXPECT_EQ(buf, "pre:a\n" + line + "\nb\n");
    EXPECT_EQ(read_all_file(kNo, buf, sizeof buf), -1);
    std::memset(buf, '#', sizeof buf);
    std::strcpy(buf, "ab");
    EXPECT_EQ(read_all_file("/tmp/all", buf, 10), 0);
    EXPECT_EQ(S(buf, 12), "aba\nLLLLL\0##"s);
    // No room even for a terminator.
    EXPECT_EQ(read_all_file("/tmp/all", full, sizeof full), -1);
    EXPECT_EQ(S(full, 4), "abcd");
    EXPECT_EQ(read_file_str("/tmp/all", buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "a\n");
    EXPECT_EQ(read_file_str("/tmp/all", buf, 1), 0); // room for "" only
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(read_file_str(kNo, buf, 8), -1);
}

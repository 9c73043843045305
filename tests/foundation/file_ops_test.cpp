// SPDX-License-Identifier: Apache-2.0
// File size, copy, sub-directory lookup, SEL log rollover, whole-file
// record locks and the path helpers.
#include "foundation_test.h"

TEST(FileOps, CopyTakesEveryByteAndNamesTheSourceWhicheverSideFails)
{
    for (const char* to : {"/tmp/to", "/tmp/x/to"})
    {
        int rc = 0;
        EXPECT_THAT(stdout_of([&] { rc = copy_file_func("/tmp/from", to); }),
                    HasSubstr("[/tmp/from]"));
        EXPECT_EQ(rc, 128);
        EXPECT_FALSE(read_text("/tmp/to")) << "target made for no source";
        write_text("/tmp/from", "");
    }
    std::string content(10000, '\0');
    for (size_t i = 0; i < content.size(); ++i)
    {
        content[i] = static_cast<char>(i * 7);
    }
    write_text("/tmp/from", content);
    write_text("/tmp/to", std::string(20000, 'x'));
    EXPECT_EQ(copy_file_func("/tmp/from", "/tmp/to"), 0);
    EXPECT_EQ(read_text("/tmp/to"), content);
    EXPECT_EQ(get_file_size("/tmp/to") + get_file_size("/tmp/none"), 10000);
}

// The card is another file system (its own tmpfs here, as on the BMC), so
// the move is a copy and a removal; without the card the log stays.
TEST(FileOps, SelLogMovesToTheCardAt8MiB)
{
    setenv("TZ", "UTC0", 1);
    tzset();
    make_dirs("/media/card/sellog");
    const char* log = "/tmp/sel.log";
    write_text(log, "first event\n");
    std::filesystem::resize_file(log, 8388607);
    EXPECT_EQ(check_file_size(log, 1700000000), 1);
    std::filesystem::resize_file(log, 8388608);
    const auto whole = read_text(log);
    EXPECT_EQ(check_file_size(log, 1700000000), 0);
    EXPECT_FALSE(file_existed(log));
    EXPECT_EQ(names_in("/media/card/sellog"),
              std::vector<std::string>{"sel-20231114221320.log"});
    EXPECT_EQ(whole, read_text("/media/card/sellog/sel-20231114221320.log"));

    write_text(log, "next event\n");
    std::filesystem::resize_file(log, 8388608);
    std::filesystem::remove_all("/media/card");
    EXPECT_EQ(check_file_size(log, 1700000000), 0);
    EXPECT_EQ(get_file_size(log), 8388608);
}

TEST(FileOps, WholeFileLocksAgainstAnotherProcess)
{
    write_text("/tmp/lock", "0123456789");
    const int fd = open("/tmp/lock", O_RDWR);
    // 1 when a child may lock one byte at `start`, 0 when refused.
    const auto child_can = [](short type, off_t start = 0) {
        return exit_status_of([=] {
            const int mine = open("/tmp/lock", O_RDWR);
            if (fcntl_lock_util(mine, F_SETLK, type, start, SEEK_SET, 1) == 0)
            {
                return 1;
            }
            return errno == EAGAIN || errno == EACCES ? 0 : 2;
        });
    };
    ASSERT_EQ(file_lock_write(fd), 0);
    EXPECT_EQ(child_can(F_RDLCK), 0);
    EXPECT_EQ(child_can(F_WRLCK, 1 << 20), 0) << "not to end of file";
    EXPECT_EQ(file_unlock(fd), 0);
    EXPECT_EQ(child_can(F_WRLCK), 1);
    ASSERT_EQ(file_lock_read(fd), 0);
    EXPECT_EQ(child_can(F_RDLCK), 1) << "read locks are shared";
    EXPECT_EQ(child_can(F_WRLCK), 0);
}

TEST(FileOps, DirectoriesAndPaths)
{
    make_dirs("/tmp/scan/hwmon3");
    make_dirs("/tmp/scan/other");
    write_text("/tmp/scan/hwmon_file", "");
    char out[256] = "-";
    EXPECT_EQ(get_file_name("/tmp/scan", "_file", out), 1) << "file matched";
    EXPECT_EQ(get_file_name("/tmp/scan", ".", out), 1) << "dot entry matched";
    EXPECT_STREQ(out, "-");
    EXPECT_EQ(get_file_name("/tmp/scan", "mon", out), 0);
    EXPECT_STREQ(out, "hwmon3");
    EXPECT_EQ(get_file_name("/tmp/none", "x", out), -1);

    EXPECT_EQ(file_existed("/tmp") * 2 + file_existed("/tmp/none"), 2);
    EXPECT_EQ(path_create("/tmp/d") + path_create("/tmp/d"), 0);
    EXPECT_TRUE(std::filesystem::is_directory("/tmp/d"));
    EXPECT_EQ(path_create("/tmp/a/b"), -1) << "parents are not created";
    EXPECT_EQ(std::string(file_name_get("/usr/bin/ipmi")) +
                  file_name_get("plain") + file_name_get(nullptr),
              "ipmiplain");
    char buf[16], small[6] = "#####";
    EXPECT_EQ(file_path_get("/etc/default/obmc", buf, sizeof buf), buf + 13);
    EXPECT_STREQ(buf, "/etc/default/ob");
    EXPECT_STREQ(file_path_get("abcdefgh", small, 4), "abc");
    EXPECT_EQ(small[4], '#');
}

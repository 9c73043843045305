// SPDX-License-Identifier: Apache-2.0
// File size, copy, sub-directory lookup, SEL log rollover, whole-file
// record locks and the path helpers.
#include "foundation_test.h"

using namespace kv::foundation::test;

namespace
{
TEST(CopyFile, CopiesEveryByteAndNamesTheSourceWhicheverSideFails)
{
    const std::string message = "copy_file_func: can't open file[/tmp/from] \n";
    int result = 0;
    EXPECT_EQ(
        stdout_of([&] { result = copy_file_func("/tmp/from", "/tmp/to"); }),
        message);
    EXPECT_EQ(result, 128);
    EXPECT_FALSE(read_text("/tmp/to")) << "target made for a missing source";

    std::string content(10000, '\0');
    for (size_t i = 0; i < content.size(); ++i)
    {
        content[i] = static_cast<char>(i * 7);
    }
    write_text("/tmp/from", content);
    EXPECT_EQ(
        stdout_of([&] { result = copy_file_func("/tmp/from", "/tmp/x/to"); }),
        message);
    EXPECT_EQ(result, 128);

    write_text("/tmp/to", std::string(20000, 'x'));
    EXPECT_EQ(copy_file_func("/tmp/from", "/tmp/to"), 0);
    EXPECT_EQ(read_text("/tmp/to"), content);
    EXPECT_EQ(get_file_size("/tmp/to"), 10000);
    EXPECT_EQ(get_file_size("/tmp/missing"), 0);
}

TEST(GetFileName, FirstSubdirectoryContainingNeedle)
{
    make_dirs("/tmp/scan/hwmon3");
    make_dirs("/tmp/scan/other");
    write_text("/tmp/scan/hwmon_file", "");
    char out[256] = "untouched";
    EXPECT_EQ(get_file_name("/tmp/scan", "_file", out), 1) << "file matched";
    EXPECT_EQ(get_file_name("/tmp/scan", ".", out), 1) << "dot entry matched";
    EXPECT_STREQ(out, "untouched");
    EXPECT_EQ(get_file_name("/tmp/scan", "mon", out), 0);
    EXPECT_STREQ(out, "hwmon3");
    EXPECT_EQ(get_file_name("/tmp/no-such-dir", "x", out), -1);
}

// The live log and the card are different file systems (separate tmpfs
// here, as on the BMC), so the move is a copy and a removal.
TEST(SelRollover, MovesTheLogToTheCardAt8MiB)
{
    setenv("TZ", "UTC0", 1);
    tzset();
    make_dirs("/media/card/sellog");
    const std::string log = "/tmp/sel.log";
    write_text(log, "first event\n");
    std::filesystem::resize_file(log, 8388607);
    const time_t when = 1700000000; // 2023-11-14 22:13:20 UTC
    EXPECT_EQ(check_file_size(log.c_str(), when), 1);
    EXPECT_EQ(get_file_size(log.c_str()), 8388607);

    std::filesystem::resize_file(log, 8388608);
    const std::string whole = read_text(log).value();
    EXPECT_EQ(check_file_size(log.c_str(), when), 0);
    EXPECT_FALSE(file_existed(log.c_str()));
    const char* archive = "/media/card/sellog/sel-20231114221320.log";
    EXPECT_EQ(whole, read_text(archive));
    EXPECT_EQ(std::vector<std::string>{"sel-20231114221320.log"},
              names_in("/media/card/sellog"));

    // The next line starts a new log.
    ASSERT_EQ(0, create_and_write_file(log.c_str(), "next event\n"));
    EXPECT_EQ("next event\n", read_text(log));

    // Without the card's folder nothing is lost: the log stays.
    std::filesystem::resize_file(log, 8388608);
    std::filesystem::remove_all("/media/card");
    EXPECT_EQ(check_file_size(log.c_str(), when), 0);
    EXPECT_EQ(get_file_size(log.c_str()), 8388608);
    unsetenv("TZ");
    tzset();
}

// Probes one byte at `start` of the lock file from a forked child, without
// waiting: 1 granted, 0 refused.
int child_can_lock(short type, off_t start = 0)
{
    return exit_status_of([=] {
        const int fd = open("/tmp/lockfile", O_RDWR);
        if (fcntl_lock_util(fd, F_SETLK, type, start, SEEK_SET, 1) == 0)
        {
            return 1;
        }
        return errno == EAGAIN || errno == EACCES ? 0 : 2;
    });
}

TEST(FileLocks, WriteLockExcludesAnotherProcessOverTheWholeFile)
{
    write_text("/tmp/lockfile", "0123456789");
    const int fd = open("/tmp/lockfile", O_RDWR);
    ASSERT_EQ(file_lock_write(fd), 0);
    EXPECT_EQ(child_can_lock(F_WRLCK), 0);
    EXPECT_EQ(child_can_lock(F_RDLCK), 0);
    EXPECT_EQ(child_can_lock(F_WRLCK, 1 << 20), 0) << "not to end of file";
    EXPECT_EQ(file_unlock(fd), 0);
    EXPECT_EQ(child_can_lock(F_WRLCK), 1);

    ASSERT_EQ(file_lock_read(fd), 0);
    EXPECT_EQ(child_can_lock(F_RDLCK), 1) << "read locks are shared";
    EXPECT_EQ(child_can_lock(F_WRLCK), 0);
    close(fd);
}

TEST(Paths, ExistenceCreationAndNameParts)
{
    EXPECT_EQ(file_existed("/tmp"), 1);
    EXPECT_EQ(file_existed("/tmp/nothing"), 0);
    EXPECT_EQ(path_create("/tmp/newdir"), 0);
    EXPECT_TRUE(std::filesystem::is_directory("/tmp/newdir"));
    EXPECT_EQ(path_create("/tmp/newdir"), 0) << "existing path";
    EXPECT_EQ(path_create("/tmp/a/b"), -1) << "parents are not created";

    EXPECT_STREQ(file_name_get("/usr/bin/ipmitool"), "ipmitool");
    EXPECT_STREQ(file_name_get("plain"), "plain");
    EXPECT_STREQ(file_name_get(nullptr), "");

    char buf[16];
    const char* name = file_path_get("/etc/default/obmc", buf, sizeof buf);
    EXPECT_STREQ(buf, "/etc/default/ob");
    EXPECT_EQ(name, buf + 13);
    char small[6] = "#####";
    EXPECT_STREQ(file_path_get("abcdefgh", small, 4), "abc");
    EXPECT_EQ(small[4], '#');
}

} // namespace

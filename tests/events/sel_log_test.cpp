// SPDX-License-Identifier: Apache-2.0
// The text SEL log: its lines, its folder and its move to the SD card at
// 8 MiB (the live log in /tmp and the card are separate file systems here,
// as on the BMC).
#include "events_test.h"
#include "test_helpers.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

namespace
{

using kv::test::names_in;
using kv::test::read_text;
using kv::test::TimeZone;
using kv::test::utc;

constexpr size_t kLimit = 8 * 1024 * 1024;
const std::string kDir = "/tmp/sel";
const std::string kLog = kDir + "/sel.log";
const std::string kCard = "/media/card/sellog";

off_t size_of(const std::string& path)
{
    struct stat st
    {};
    return ::stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

TEST(SelLog, LinesEndInCrLfAndFollowEachOther)
{
    ASSERT_EQ(save_sel_to_file(1, 0, 3, "first event", kDir.c_str()), 0);
    // The numbers are shown as signed values.
    ASSERT_EQ(save_sel_to_file(4000000000U, 0, 0, "", kDir.c_str()), 0);
    // A text too long is cut; the longest that fits is kept whole.
    const std::string text(400, 'a');
    ASSERT_EQ(save_sel_to_file(12, 0, 5, text.c_str(), kDir.c_str()), 0);
    ASSERT_EQ(save_sel_to_file(12, 0, 5, text.c_str() + 209, kDir.c_str()), 0);
    const std::string line = "#12 5 " + std::string(191, 'a') + "\r\n";
    EXPECT_EQ(read_text(kLog),
              "#1 3 first event\r\n#-294967296 0 \r\n" + line + line);
}

TEST(SelLog, MissingFolderIsMadeWithItsOwnMode)
{
    ::umask(022);
    ASSERT_EQ(save_sel_to_file(1, 0, 2, "x", kDir.c_str()), 0);
    struct stat st
    {};
    ASSERT_EQ(::stat(kDir.c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_mode & 07777, 0644U);
    // A folder that is there keeps its mode.
    ASSERT_EQ(::chmod(kDir.c_str(), 0700), 0);
    ASSERT_EQ(save_sel_to_file(2, 0, 2, "y", kDir.c_str()), 0);
    ASSERT_EQ(::stat(kDir.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700U);
    EXPECT_EQ(read_text(kLog), "#1 2 x\r\n#2 2 y\r\n");
}

TEST(SelLog, UnwritableLogIsReported)
{
    kv::test::make_dirs(kLog); // a folder where the file should be
    EXPECT_EQ(save_sel_to_file(1, 0, 1, "x", kDir.c_str()), -1);
    EXPECT_EQ(save_sel_to_file(1, 0, 1, nullptr, kDir.c_str()), -1);
    EXPECT_EQ(save_sel_to_file(1, 0, 1, "x", nullptr), -1);
    const std::string deep = "/tmp/" + std::string(200, 'd');
    EXPECT_EQ(save_sel_to_file(1, 0, 1, "x", deep.c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

// Fills the live log to `size` bytes.
void grow_log(size_t size)
{
    kv::test::make_dirs(kDir);
    FILE* f = std::fopen(kLog.c_str(), "w");
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(::ftruncate(fileno(f), static_cast<off_t>(size)), 0);
    std::fclose(f);
}

TEST(SelLog, CrossingLineGoesToTheCardAndTheNextStartsANewLog)
{
    const TimeZone zone("Asia/Shanghai");
    kv::test::make_dirs(kCard);
    const std::string line = "#7 1 crossing\r\n";
    grow_log(kLimit - line.size() + 1);
    const auto when = static_cast<uint32_t>(utc(2024, 3, 9, 22, 5, 7));

    ASSERT_EQ(save_sel_to_file(7, when, 1, "crossing", kDir.c_str()), 0);

    // Named from the record's time in local time (UTC+8: the next day).
    const std::string archive = kCard + "/sel-20240310060507.log";
    EXPECT_EQ(names_in(kCard),
              std::vector<std::string>{"sel-20240310060507.log"});
    EXPECT_EQ(size_of(archive), static_cast<off_t>(kLimit + 1));
    const auto archived = read_text(archive).value_or("");
    EXPECT_EQ(archived.substr(archived.size() - line.size()), line);
    EXPECT_EQ(size_of(kLog), -1);

    ASSERT_EQ(save_sel_to_file(8, when, 1, "after", kDir.c_str()), 0);
    EXPECT_EQ(read_text(kLog), "#8 1 after\r\n");
}

TEST(SelLog, LineThatEndsBelowTheLimitStays)
{
    kv::test::make_dirs(kCard);
    const std::string line = "#7 1 below\r\n";
    grow_log(kLimit - line.size() - 1);
    ASSERT_EQ(save_sel_to_file(7, 0, 1, "below", kDir.c_str()), 0);
    EXPECT_EQ(size_of(kLog), static_cast<off_t>(kLimit - 1));
    EXPECT_TRUE(names_in(kCard).empty());

    // Exactly at the limit counts as full.
    ASSERT_EQ(save_sel_to_file(7, 0, 1, "", kDir.c_str()), 0);
    EXPECT_EQ(names_in(kCard).size(), 1U);
    EXPECT_EQ(size_of(kLog), -1);
}

TEST(SelLog, WithoutTheCardTheLogGoesOnGrowing)
{
    grow_log(kLimit);
    ASSERT_EQ(save_sel_to_file(1, 0, 1, "a", kDir.c_str()), 0);
    ASSERT_EQ(save_sel_to_file(2, 0, 1, "b", kDir.c_str()), 0);
    EXPECT_EQ(size_of(kLog), static_cast<off_t>(kLimit + 2 * 8));

    // Once the card's folder is there, the next line moves it all.
    kv::test::make_dirs(kCard);
    ASSERT_EQ(save_sel_to_file(3, 0, 1, "c", kDir.c_str()), 0);
    EXPECT_EQ(size_of(kLog), -1);
    ASSERT_EQ(names_in(kCard).size(), 1U);
    EXPECT_EQ(size_of(kCard + "/" + names_in(kCard)[0]),
              static_cast<off_t>(kLimit + 3 * 8));
}

} // namespace

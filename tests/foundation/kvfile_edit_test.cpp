#include "test_helpers.h"

#include <libkv/foundation.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

namespace
{

using kv::test::make_dirs;
using kv::test::read_text;
using kv::test::write_text;

constexpr const char* kDir = "/tmp/cfg";
constexpr const char* kConf = "/tmp/cfg/net.conf";
constexpr const char* kOem = "/etc/default/obmc/hwmon/oem.conf";

std::vector<std::string> names_in(const std::string& dir)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
    {
        names.push_back(entry.path().filename());
    }
    return names;
}

// Backdates `path` so that any rewrite shows in its modification time.
void backdate(const char* path)
{
    const timespec times[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, path, times, 0));
}

struct stat status_of(const char* path)
{
    struct stat info = {};
    EXPECT_EQ(0, stat(path, &info));
    return info;
}

} // namespace

TEST(WriteConfValue, ReplacesTheValueInPlaceAndKeepsEveryOtherLine)
{
    write_text(kConf, "# network\n"
                      "ip = 10.0.0.1 \n"
                      "no separator here\n"
                      "mask=255.0.0.0\n");
    ASSERT_EQ(0, write_conf_value(kConf, "ip", "10.0.0.2"));
    EXPECT_EQ("# network\n"
              "ip=10.0.0.2\n"
              "no separator here\n"
              "mask=255.0.0.0\n",
              read_text(kConf));
}

TEST(WriteConfValue, AppendsAnAbsentKeyAndCreatesAMissingFile)
{
    make_dirs(kDir);
    ASSERT_EQ(0, write_conf_value(kConf, "dhcp", "on"));
    EXPECT_EQ("dhcp=on\n", read_text(kConf));

    ASSERT_EQ(0, write_conf_value_safe(kConf, "mtu", "1500", ':'));
    EXPECT_EQ("dhcp=on\nmtu:1500\n", read_text(kConf));

    write_text(kConf, "last=1"); // no final newline
    ASSERT_EQ(0, write_conf_value(kConf, "next", "2"));
    EXPECT_EQ("last=1\nnext=2\n", read_text(kConf));
    EXPECT_EQ(std::vector<std::string>{"net.conf"}, names_in(kDir));
}

TEST(WriteConfValue, OnlyTheFirstOfDuplicateKeysChanges)
{
    write_text(kConf, "dns=1\nother=x\ndns=2\n");
    ASSERT_EQ(0, write_conf_value(kConf, "dns", "3"));
    EXPECT_EQ("dns=3\nother=x\ndns=2\n", read_text(kConf));
}

TEST(WriteConfValue, UnchangedValueLeavesTheFileAlone)
{
    write_text(kConf, " speed = 100 \n");
    backdate(kConf);
    const ino_t inode = status_of(kConf).st_ino;

    ASSERT_EQ(0, write_conf_value(kConf, "speed", "  100\t"));
    EXPECT_EQ(1000, status_of(kConf).st_mtim.tv_sec);
    EXPECT_EQ(inode, status_of(kConf).st_ino);
    EXPECT_EQ(" speed = 100 \n", read_text(kConf));

    // A different value is written as given, untrimmed.
    ASSERT_EQ(0, write_conf_value(kConf, "speed", " 1000 "));
    EXPECT_EQ("speed= 1000 \n", read_text(kConf));
    EXPECT_NE(1000, status_of(kConf).st_mtim.tv_sec);
}

TEST(WriteConfValue, ReplacementKeepsThePermissionsOfTheFile)
{
    write_text(kConf, "password=old\n");
    ASSERT_EQ(0, chmod(kConf, 0600));
    ASSERT_EQ(0, write_conf_value(kConf, "password", "new"));
    EXPECT_EQ(0600u, status_of(kConf).st_mode & 0777);

    ASSERT_EQ(0, chmod(kConf, 0640));
    ASSERT_EQ(0, delete_conf_value_safe(kConf, "password", '='));
    EXPECT_EQ(0640u, status_of(kConf).st_mode & 0777);
}

TEST(WriteConfValue, FailuresReportAndLeaveNoScratchFile)
{
    make_dirs(kDir);
    EXPECT_EQ(-1, write_conf_value(nullptr, "k", "v"));
    EXPECT_EQ(-1, write_conf_value(kConf, nullptr, "v"));
    EXPECT_EQ(-1, write_conf_value(kConf, "k", nullptr));
    EXPECT_EQ(-1, write_conf_value("/tmp/cfg/no/dir/x.conf", "k", "v"));

    // The rename cannot put a file over a directory.
    make_dirs("/tmp/cfg/net.conf/inside");
    EXPECT_EQ(-ENOENT, write_conf_value(kConf, "k", "v"));
    EXPECT_EQ(std::vector<std::string>{"net.conf"}, names_in(kDir));
}

TEST(DeleteConfValue, RemovesEveryLineWithTheKey)
{
    write_text(kConf, "dns=1\n dns = 2\nother=x\n#dns=3\ndns=4");
    ASSERT_EQ(0, delete_conf_value_safe(kConf, "dns", '='));
    EXPECT_EQ("other=x\n#dns=3\n", read_text(kConf));
    EXPECT_EQ(std::vector<std::string>{"net.conf"}, names_in(kDir));
}

TEST(DeleteConfValue, AbsentKeyOrFileIsNotAnError)
{
    write_text(kConf, "a=1\n");
    backdate(kConf);
    EXPECT_EQ(0, delete_conf_value_safe(kConf, "b", '='));
    EXPECT_EQ(0, delete_conf_value_safe(kConf, "a", ':'));
    EXPECT_EQ(1000, status_of(kConf).st_mtim.tv_sec);
    EXPECT_EQ("a=1\n", read_text(kConf));

    EXPECT_EQ(0, delete_conf_value_safe("/tmp/cfg/missing", "a", '='));
    EXPECT_FALSE(read_text("/tmp/cfg/missing").has_value());
    EXPECT_EQ(-1, delete_conf_value_safe(nullptr, "a", '='));
    EXPECT_EQ(-1, delete_conf_value_safe(kConf, nullptr, '='));
}

TEST(ReplaceFileValue, ReplacesTheFirstOccurrenceAndDropsTheLastByte)
{
    write_text(kConf, "x=1\n");
    ASSERT_EQ(0, replace_file_value(kConf, "2", "1"));
    EXPECT_EQ("x=2", read_text(kConf));

    write_text(kConf, "a a a\n");
    ASSERT_EQ(0, replace_file_value(kConf, "b", "a"));
    EXPECT_EQ("b a a", read_text(kConf));
}

TEST(ReplaceFileValue, NewTextOfAnyLength)
{
    const std::string long_text(5000, 'L');
    write_text(kConf, "head OLD tail\n");
    ASSERT_EQ(0, replace_file_value(kConf, long_text.c_str(), "OLD"));
    EXPECT_EQ("head " + long_text + " tail", read_text(kConf));

    ASSERT_EQ(0, replace_file_value(kConf, "", long_text.c_str()));
    EXPECT_EQ("head  tai", read_text(kConf));
}

TEST(ReplaceFileValue, MissingTextLeavesTheFileUntouched)
{
    write_text(kConf, "x=1\n");
    EXPECT_EQ(1, replace_file_value(kConf, "2", "9"));
    EXPECT_EQ("x=1\n", read_text(kConf));

    write_text(kConf, "");
    EXPECT_EQ(1, replace_file_value(kConf, "2", "1"));
    EXPECT_EQ("", read_text(kConf));
}

TEST(ReplaceFileValue, FailsForMissingFilesAndArguments)
{
    write_text(kConf, "x=1\n");
    EXPECT_EQ(-1, replace_file_value("/tmp/cfg/missing", "2", "1"));
    EXPECT_EQ(-1, replace_file_value(nullptr, "2", "1"));
    EXPECT_EQ(-1, replace_file_value(kConf, nullptr, "1"));
    EXPECT_EQ(-1, replace_file_value(kConf, "2", nullptr));
    EXPECT_EQ("x=1\n", read_text(kConf));
}

TEST(WriteToOemConf, SetsTheFirstMatchingThresholdAfterTheSensorLine)
{
    write_text(kOem, "CRITHI_3=1\n"
                     "[cpu_temp]\n"
                     "WARNHI_3=80000\n"
                     "CRITHI_3=90000\n"
                     "CRITHI_3=91000\n"
                     "[mem_temp]\n"
                     "CRITHI_3=70000\n");
    EXPECT_EQ(0,
              write_to_oem_conf(3, "cpu_temp", KV_THRESHOLD_CRIT_HIGH, 95000));
    EXPECT_EQ("CRITHI_3=1\n"
              "[cpu_temp]\n"
              "WARNHI_3=80000\n"
              "CRITHI_3=95000\n"
              "CRITHI_3=91000\n"
              "[mem_temp]\n"
              "CRITHI_3=70000\n",
              read_text(kOem));
    EXPECT_EQ(std::vector<std::string>{"oem.conf"},
              names_in("/etc/default/obmc/hwmon"));
}

TEST(WriteToOemConf, EachSensorLineArmsTheSearchAgain)
{
    write_text(kOem, "cpu_temp\n"
                     "CRITLO_1=5\n"
                     "cpu_temp\n"
                     "WARNLO_1=6\n"
                     "CRITLO_1=7\n");
    EXPECT_EQ(0, write_to_oem_conf(1, "cpu_temp", KV_THRESHOLD_CRIT_LOW, -10));
    EXPECT_EQ("cpu_temp\n"
              "CRITLO_1=-10\n"
              "cpu_temp\n"
              "WARNLO_1=6\n"
              "CRITLO_1=-10\n",
              read_text(kOem));
}

// Matching is by substring: index 1 also matches a key holding "12".
TEST(WriteToOemConf, IndexMatchesAsASubstring)
{
    write_text(kOem, "fan_speed\n"
                     "WARNHI_12=100\n"
                     "WARNHI_1=200\n");
    EXPECT_EQ(0,
              write_to_oem_conf(1, "fan_speed", KV_THRESHOLD_WARN_HIGH, 300));
    EXPECT_EQ("fan_speed\n"
              "WARNHI_12=300\n"
              "WARNHI_1=200\n",
              read_text(kOem));
}

TEST(WriteToOemConf, MissingFileIsLeftMissing)
{
    make_dirs("/etc/default/obmc/hwmon");
    EXPECT_EQ(0, write_to_oem_conf(3, "cpu_temp", KV_THRESHOLD_CRIT_HIGH, 1));
    EXPECT_TRUE(names_in("/etc/default/obmc/hwmon").empty());
    EXPECT_EQ(0, write_to_oem_conf(3, nullptr, KV_THRESHOLD_CRIT_HIGH, 1));
}

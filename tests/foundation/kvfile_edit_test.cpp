// SPDX-License-Identifier: Apache-2.0
#include "foundation_test.h"

#include <cstdio>

using namespace kv::foundation::test;

namespace
{
constexpr const char* kDir = "/tmp/cfg";
constexpr const char* kConf = "/tmp/cfg/net.conf";
constexpr const char* kOem = "/etc/default/obmc/hwmon/oem.conf";
const std::vector<std::string> kConfOnly = {"net.conf"};

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

// `before` edited by replace_file_value, which must return `result`.
std::string replaced(const std::string& before, const std::string& new_text,
                     const std::string& old_text, int result = 0)
{
    write_text(kConf, before);
    EXPECT_EQ(result,
              replace_file_value(kConf, new_text.c_str(), old_text.c_str()));
    return read_text(kConf).value_or("<missing>");
}

// `before` as oem.conf after write_to_oem_conf(index, sensor, kind, value),
// which must leave no scratch file.
std::string oem_after(const char* before, uint8_t index, const char* sensor,
                      int kind, long long value)
{
    write_text(kOem, before);
    EXPECT_EQ(0, write_to_oem_conf(index, sensor, kind, value));
    EXPECT_EQ(std::vector<std::string>{"oem.conf"},
              names_in("/etc/default/obmc/hwmon"));
    return read_text(kOem).value_or("<missing>");
}

} // namespace

// The first line with the key is replaced in place, every other line kept;
// an absent key is appended, on a line of its own, to a file made if need be.
TEST(WriteConfValue, ReplacesTheFirstMatchInPlaceOrAppends)
{
    write_text(kConf, "# network\nip = 10.0.0.1 \nno separator here\n"
                      "mask=255.0.0.0\nip=10.0.0.9\n");
    ASSERT_EQ(0, write_conf_value(kConf, "ip", "10.0.0.2"));
    EXPECT_EQ("# network\nip=10.0.0.2\nno separator here\nmask=255.0.0.0\n"
              "ip=10.0.0.9\n",
              read_text(kConf));

    std::remove(kConf);
    ASSERT_EQ(0, write_conf_value(kConf, "dhcp", "on"));
    EXPECT_EQ("dhcp=on\n", read_text(kConf));
    ASSERT_EQ(0, write_conf_value_safe(kConf, "mtu", "1500", ':'));
    EXPECT_EQ("dhcp=on\nmtu:1500\n", read_text(kConf));

    write_text(kConf, "last=1"); // no final newline
    ASSERT_EQ(0, write_conf_value(kConf, "next", "2"));
    EXPECT_EQ("last=1\nnext=2\n", read_text(kConf));
    EXPECT_EQ(kConfOnly, names_in(kDir));
}

// The writers read a line in pieces of 255 characters, as the reader does:
// the rest of a longer line is a line of its own. A file far larger than
// one read comes through whole.
TEST(WriteConfValue, LongLinesCountInPiecesAndLargeFilesComeThroughWhole)
{
    const std::string long_line = std::string(255, 'x') + "ip=1\n";
    write_text(kConf, long_line + "ip=3\n");
    ASSERT_EQ(0, write_conf_value(kConf, "ip", "2"));
    EXPECT_EQ(std::string(255, 'x') + "ip=2\nip=3\n", read_text(kConf));
    ASSERT_EQ(0, delete_conf_value_safe(kConf, "ip", '='));
    EXPECT_EQ(std::string(255, 'x'), read_text(kConf));

    std::string large;
    for (int i = 0; i < 5000; ++i)
    {
        large += "key" + std::to_string(i) + "=value\n";
    }
    write_text(kConf, large);
    ASSERT_EQ(0, write_conf_value(kConf, "key4999", "new"));
    large.replace(large.rfind("value"), 5, "new");
    EXPECT_EQ(large, read_text(kConf));
    EXPECT_EQ(kConfOnly, names_in(kDir));
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
    EXPECT_EQ(kConfOnly, names_in(kDir));
}

TEST(DeleteConfValue, RemovesEveryLineWithTheKeyAndNothingElse)
{
    write_text(kConf, "dns=1\n dns = 2\nother=x\n#dns=3\ndns=4");
    ASSERT_EQ(0, delete_conf_value_safe(kConf, "dns", '='));
    EXPECT_EQ("other=x\n#dns=3\n", read_text(kConf));
    EXPECT_EQ(kConfOnly, names_in(kDir));

    // An absent key, under either separator, leaves the file alone.
    backdate(kConf);
    EXPECT_EQ(0, delete_conf_value_safe(kConf, "dns", '='));
    EXPECT_EQ(0, delete_conf_value_safe(kConf, "other", ':'));
    EXPECT_EQ(1000, status_of(kConf).st_mtim.tv_sec);
    EXPECT_EQ("other=x\n#dns=3\n", read_text(kConf));

    EXPECT_EQ(0, delete_conf_value_safe("/tmp/cfg/missing", "a", '='));
    EXPECT_FALSE(read_text("/tmp/cfg/missing").has_value());
    EXPECT_EQ(-1, delete_conf_value_safe(nullptr, "a", '='));
    EXPECT_EQ(-1, delete_conf_value_safe(kConf, nullptr, '='));
}

// The scratch name is fixed: a leftover of a writer that died, or a link
// planted there, is replaced, never written through; the file keeps its
// permissions.
TEST(WriteToOemConf, ReplacesALeftoverScratchFileAndKeepsPermissions)
{
    const std::string scratch = "/etc/default/obmc/hwmon/oem.confback";
    write_text("/tmp/bystander", "bystander\n");
    write_text(kOem, "cpu_temp\nCRITHI_1=90\n");
    ASSERT_EQ(0, chmod(kOem, 0640));
    ASSERT_EQ(0, symlink("/tmp/bystander", scratch.c_str()));
    const auto threshold_after = [](long long value) {
        EXPECT_EQ(
            0, write_to_oem_conf(1, "cpu_temp", KV_THRESHOLD_CRIT_HIGH, value));
        EXPECT_EQ(std::vector<std::string>{"oem.conf"},
                  names_in("/etc/default/obmc/hwmon"));
        EXPECT_EQ(0640u, status_of(kOem).st_mode & 0777);
        return read_text(kOem).value_or("<missing>");
    };
    EXPECT_EQ("cpu_temp\nCRITHI_1=95\n", threshold_after(95));
    EXPECT_EQ("bystander\n", read_text("/tmp/bystander"));

    write_text(scratch, "half a copy");
    EXPECT_EQ("cpu_temp\nCRITHI_1=96\n", threshold_after(96));
}

// 0 replaced (the first occurrence), 1 not found (file untouched), -1 error;
// the rewrite drops the file's last byte.
TEST(ReplaceFileValue, ReplacesTheFirstOccurrenceAndDropsTheLastByte)
{
    const std::string big(5000, 'L');
    EXPECT_EQ("x=2", replaced("x=1\n", "2", "1"));
    EXPECT_EQ("b a a", replaced("a a a\n", "b", "a"));
    EXPECT_EQ("head " + big + " tail", replaced("head OLD tail\n", big, "OLD"));
    EXPECT_EQ("head  tail", replaced("head " + big + " tail\n", "", big));
    EXPECT_EQ("x=1\n", replaced("x=1\n", "2", "9", 1));
    EXPECT_EQ("", replaced("", "2", "1", 1));

    write_text(kConf, "x=1\n");
    EXPECT_EQ(-1, replace_file_value("/tmp/cfg/missing", "2", "1"));
    EXPECT_EQ(-1, replace_file_value(nullptr, "2", "1"));
    EXPECT_EQ(-1, replace_file_value(kConf, nullptr, "1"));
    EXPECT_EQ(-1, replace_file_value(kConf, "2", nullptr));
    EXPECT_EQ("x=1\n", read_text(kConf));
}

// A line naming the sensor (by substring) arms the search; the first line
// after it holding the kind's prefix and the index (also by substring) gets
// the value.
TEST(WriteToOemConf, SetsTheFirstMatchingThresholdAfterEachSensorLine)
{
    EXPECT_EQ(
        "CRITHI_3=1\n[cpu_temp]\nWARNHI_3=80000\nCRITHI_4=1\nCRITHI_3=95000\n"
        "CRITHI_3=91000\n[mem_temp]\nCRITHI_3=70000\n",
        oem_after("CRITHI_3=1\n[cpu_temp]\nWARNHI_3=80000\nCRITHI_4=1\n"
                  "CRITHI_3=90000\nCRITHI_3=91000\n[mem_temp]\n"
                  "CRITHI_3=70000\n",
                  3, "cpu_temp", KV_THRESHOLD_CRIT_HIGH, 95000));
    EXPECT_EQ("cpu_temp\nCRITLO_1=-10\ncpu_temp\nWARNLO_1=6\nCRITLO_1=-10\n",
              oem_after("cpu_temp\nCRITLO_1=5\ncpu_temp\nWARNLO_1=6\n"
                        "CRITLO_1=7\n",
                        1, "cpu_temp", KV_THRESHOLD_CRIT_LOW, -10));
    EXPECT_EQ("fan_speed\nWARNHI_12=300\nWARNHI_1=200\n",
              oem_after("fan_speed\nWARNHI_12=100\nWARNHI_1=200\n", 1,
                        "fan_speed", KV_THRESHOLD_WARN_HIGH, 300));

    std::remove(kOem);
    EXPECT_EQ(0, write_to_oem_conf(3, "cpu_temp", KV_THRESHOLD_CRIT_HIGH, 1));
    EXPECT_TRUE(names_in("/etc/default/obmc/hwmon").empty());
    EXPECT_EQ(0, write_to_oem_conf(3, nullptr, KV_THRESHOLD_CRIT_HIGH, 1));
}

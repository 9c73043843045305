// SPDX-License-Identifier: Apache-2.0
// Settings files: reading, editing through a scratch file, text replacement
// and the OEM thresholds.
#include "foundation_test.h"

const char* const kConf = "/tmp/cfg/net.conf";
const char* const kOem = "/etc/default/obmc/hwmon/oem.conf";

// Whether `path` is alone in its folder: no scratch file left.
bool alone(const S& path)
{
    const fs::path p(path);
    return names_in(p.parent_path()) == std::vector{p.filename().string()};
}

// Key and value are trimmed, the line is split at its first separator, keys
// match exactly and the first matching line wins. Lines are read in
// 255-character pieces, and each piece counts as a line.
TEST(KvFile, Read)
{
    write_text(kConf, " key = v 1 \r\na=b=c\nempty=\nP=2\npx=3\n\tp=4\np\np=5\n"
                      "p=6\nh: bmc:623\nlong=" +
                          S(250, 'v') + "tail=end\nbig=" + S(200, 'z') + "\n");
    const std::tuple<const char*, char, S> cases[] = {
        {"key", '=', "v 1"}, {"a", '=', "b=c"},         {"empty", '=', ""},
        {"p", '=', "5"},     {"h", ':', "bmc:623"},     {"tail", '=', "end"},
        {"k", '=', "-"},     {"long", '=', S(250, 'v')}};
    char got[256];
    for (const auto& [key, sep, value] : cases)
        EXPECT_EQ(read_conf_value_safe(kConf, key, got, 256, sep) ? "-" : got,
                  value)
            << key;
    std::memset(got, 'X', sizeof got);
    ASSERT_EQ(0, read_conf_value(kConf, "big", got));
    EXPECT_EQ(S(got, 129), S(127, 'z') + '\0' + 'X');
    ASSERT_EQ(0, read_conf_value_safe(kConf, "big", got, 4, '='));
    EXPECT_STREQ("zzz", got);
    EXPECT_EQ(-3, read_conf_value("/tmp/none", "k", got) +
                      read_conf_value(kConf, nullptr, got) +
                      read_conf_value_safe(kConf, "key", got, 0, '='));

    // Only spaces lead; trailing blanks and controls go. A comment's #
    // follows nothing but spaces.
    char text[] = "   a b \t\x01\x7f\r\n", tab[] = "\tx", sp[] = "  ";
    EXPECT_EQ(get_valid_string(text) + get_valid_string(tab) +
                  get_valid_string(sp),
              0);
    EXPECT_EQ(text + "|"s + tab + sp, "a b|\tx");
    S comments;
    for (auto line : {"#c", "  # c", "\t#c", "k=#v", "", "  "})
        comments += std::to_string(check_comment_line(line));
    EXPECT_EQ(comments, "110000");
    EXPECT_EQ(get_valid_string(nullptr) + check_comment_line(nullptr), -2);
}

// The first line with the key is replaced in place (no value: every line
// with it deleted); an absent key is appended on a line of its own. Lines
// count in 255-character pieces, as for the reader.
TEST(KvFile, WriteAndDelete)
{
    const S x(255, 'x');
    const std::tuple<S, const char*, const char*, S> edits[] = {
        {"#\nip = 1 \nno separator\nip=9\n", "ip", "2",
         "#\nip=2\nno separator\nip=9\n"},
        {"last=1", "next", "2", "last=1\nnext=2\n"},
        {x + "ip=2\nip=3\n", "ip", nullptr, x},
        {"d=1\n d = 2\no=x\n#d=3\nd=4", "d", nullptr, "o=x\n#d=3\n"}};
    for (const auto& [before, key, value, after] : edits)
    {
        write_text(kConf, before);
        EXPECT_EQ(0, value ? write_conf_value(kConf, key, value)
                           : delete_conf_value_safe(kConf, key, '='));
        EXPECT_EQ(after, read_text(kConf)) << key;
        EXPECT_TRUE(alone(kConf));
    }
    fs::remove(kConf);
    EXPECT_EQ(0, write_conf_value(kConf, "dhcp", "on") +
                     write_conf_value_safe(kConf, "mtu", "1500", ':'));
    EXPECT_EQ("dhcp=on\nmtu:1500\n", read_text(kConf));
    // A file far larger than one read comes through whole.
    S large;
    for (int i = 0; i < 5000; ++i)
        large += "key" + std::to_string(i) + "=value\n";
    write_text(kConf, large);
    ASSERT_EQ(0, write_conf_value(kConf, "key4999", "new"));
    EXPECT_EQ(large.replace(large.rfind("value"), 5, "new"), read_text(kConf));
}

// replace_file_value: 0 replaced (the first occurrence), 1 not found (file
// untouched), -1 error; the rewrite drops the file's last byte. An unchanged
// setting leaves the file alone; a change replaces it with the same mode; no
// failure leaves a scratch file.
TEST(KvFile, Replacement)
{
    const S big(5000, 'L');
    const S cases[][4] = {{"a a a\n", "b", "a", "b a a"},
                          {"h OLD t\n", big, "OLD", "h " + big + " t"},
                          {"h " + big + " t\n", "", big, "h  t"},
                          {"x=1\n", "2", "9", "x=1\n"}};
    for (const auto& [before, to, from, after] : cases)
    {
        write_text(kConf, before);
        EXPECT_EQ(replace_file_value(kConf, to.c_str(), from.c_str()),
                  before == after);
        EXPECT_EQ(after, read_text(kConf));
    }
    EXPECT_EQ(-2, replace_file_value("/tmp/cfg/none", "2", "1") +
                      replace_file_value(kConf, nullptr, "1"));
    write_text(kConf, " speed = 100 \nother=x\n");
    const ino_t file = stat_of(kConf).st_ino;
    EXPECT_EQ(0, write_conf_value(kConf, "speed", "  100\t") +
                     delete_conf_value_safe(kConf, "d", '=') +
                     delete_conf_value_safe(kConf, "other", ':'));
    EXPECT_EQ(stat_of(kConf).st_ino, file);
    chmod(kConf, 0600);
    EXPECT_EQ(0, write_conf_value(kConf, "speed", "1"));
    EXPECT_EQ(0600u, mode_of(kConf));
    EXPECT_EQ(0, delete_conf_value_safe(kConf, "speed", '=') +
                     delete_conf_value_safe("/tmp/cfg/none", "a", '='));
    EXPECT_EQ("other=x\n", read_text(kConf));
    EXPECT_EQ(-3, write_conf_value(kConf, nullptr, "v") +
                      delete_conf_value_safe(kConf, nullptr, '=') +
                      write_conf_value("/tmp/cfg/no/x.conf", "k", "v"));
    fs::remove(kConf);
    make_dirs("/tmp/cfg/net.conf/in"); // no rename over a directory
    EXPECT_EQ(-ENOENT, write_conf_value(kConf, "k", "v"));
    EXPECT_TRUE(alone(kConf));
}

// A line naming the sensor arms the search; the first line after it with
// the kind's prefix and the index gets the value. The fixed scratch name
// may hold a planted link: it is replaced, never written through.
TEST(KvFile, OemThreshold)
{
    write_text("/tmp/bystander", "b\n");
    make_dirs("/etc/default/obmc/hwmon");
    symlink("/tmp/bystander", (kOem + "back"s).c_str());
    const S head = "CRITHI_3=1\ncpu\nWARNHI_3=8\nCRITHI_4=1\n",
            tail = "\nCRITHI_3=9\nmem\nCRITHI_3=9\n";
    write_text(kOem, head + "CRITHI_3=9" + tail);
    EXPECT_EQ(0, write_to_oem_conf(3, "cpu", KV_THRESHOLD_CRIT_HIGH, -5));
    EXPECT_EQ(head + "CRITHI_3=-5" + tail, read_text(kOem));
    EXPECT_TRUE(alone(kOem));
    EXPECT_EQ("b\n", read_text("/tmp/bystander"));
    fs::remove(kOem);
    EXPECT_EQ(0, write_to_oem_conf(3, "cpu", KV_THRESHOLD_CRIT_HIGH, 1));
    EXPECT_FALSE(read_text(kOem));
}

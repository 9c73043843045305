// SPDX-License-Identifier: Apache-2.0
// Library log records, guard warnings and the assertions that end the
// process.
#include "foundation_test.h"

const int kGuardLine = __LINE__ + 3;
int half(int n)
{
    kv_return_val_if_fail(n % 2 == 0, -1);
    return n / 2;
}

TEST(LibraryLog, RecordsArePrefixedWholeAndNameWhereTheyComeFrom)
{
    EXPECT_EQ(half(8), 4);
    EXPECT_EQ(_kv_real_assert(5u, "x", "f.cpp", 1, "fn"), 5u);
    EXPECT_FALSE(read_text("/tmp/log")) << "a passing check logged";
    _kv_warn("%s|\n", std::string(3000, 'w').c_str());
    _kv_warn_return_if_fail("f", "x > 0", "/a/b/common", 12);
    _kv_warn_message("%s:%d %s/%s\n", "one", "two", "/src/access/common", 40);
    EXPECT_EQ(half(7), -1);
    const std::string p = "libkv[" + std::to_string(getpid()) + "][T]: ";
    EXPECT_EQ(untimed("/tmp/log"),
              p + std::string(3000, 'w') + "|\n" + p +
                  "[common(12)] f expression \"x > 0\" failed.\n" + p +
                  "common:40 one/two\n" + p + "[log_assert_test.cpp(" +
                  std::to_string(kGuardLine) +
                  ")] half expression \"n % 2 == 0\" failed.\n");
}

// Each backtrace frame is a trace line; its text ends in its own newline.
TEST(LibraryLog, FailedAssertionsLogWhereAndABacktraceThenExitWithOne)
{
    EXPECT_EXIT(_kv_real_assert(0, "a == b", "/x/y.cpp", 7, "fn"),
                testing::ExitedWithCode(1), "");
    EXPECT_EXIT(_kv_real_assert_not_reached("fn", "/x/y.cpp", 9),
                testing::ExitedWithCode(1), "");
    const std::string log = untimed("/tmp/log");
    EXPECT_THAT(log, HasSubstr("]: assertion failed \"a == b\" file "
                               "\"/x/y.cpp\" line 7 function fn"));
    EXPECT_THAT(log, HasSubstr("]: File \"/x/y.cpp\" line 9 should not have "
                               "been reached: fn"));
    EXPECT_THAT(log,
                testing::ContainsRegex("\\] T   [^ ]*libkv\\.so[^\n]*\n\n"));
}

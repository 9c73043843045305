// SPDX-License-Identifier: Apache-2.0
// Library log records, guard warnings and the assertions that end the
// process.
#include "foundation_test.h"

using namespace kv::foundation::test;

namespace
{
std::string record_prefix()
{
    return R"(libkv\[)" + std::to_string(getpid()) +
           R"(\]\[[0-9-]{8} [0-9:]{8}\]: )";
}

int guard_line = 0;

int checked_half(int n)
{
    guard_line = __LINE__ + 1;
    kv_return_val_if_fail(n % 2 == 0, -1);
    return n / 2;
}

// Records are written whole; the warnings name file, line, function and
// expression in their order.
TEST(LibraryLog, RecordsArePrefixedWholeAndNameWhereTheyComeFrom)
{
    const std::string long_text(3000, 'w');
    _kv_warn("%s|\n", long_text.c_str());
    _kv_warn_return_if_fail("f", "x > 0", "/a/b/common", 12);
    _kv_warn_message("%s:%d %s/%s\n", "one", "two", "/src/access/common", 40);
    EXPECT_THAT(read_text("/tmp/log").value_or(""),
                MatchesRegex(record_prefix() + long_text + "\\|\n" +
                             record_prefix() +
                             "\\[common\\(12\\)\\] f expression \"x > 0\" "
                             "failed\\.\n" +
                             record_prefix() + "common:40 one/two\n"));
}

TEST(LibraryLog, GuardMacroReturnsEarlyOnlyWhenTheCheckFails)
{
    EXPECT_EQ(checked_half(8), 4);
    EXPECT_FALSE(read_text("/tmp/log")) << "a passing check logged";

    EXPECT_EQ(checked_half(7), -1);
    EXPECT_THAT(read_text("/tmp/log").value_or(""),
                HasSubstr("[log_assert_test.cpp(" + std::to_string(guard_line) +
                          ")] checked_half expression \"n % 2 == 0\" "
                          "failed.\n"));
}

TEST(Assertions, TrueConditionPassesFailuresLogABacktraceAndExitWithOne)
{
    EXPECT_EQ(_kv_real_assert(5u, "x", "f.cpp", 1, "fn"), 5u);
    EXPECT_FALSE(read_text("/tmp/log"));

    EXPECT_EXIT(_kv_real_assert(0, "a == b", "/x/y.cpp", 7, "fn"),
                testing::ExitedWithCode(1), "");
    EXPECT_EXIT(_kv_real_assert_not_reached("fn", "/x/y.cpp", 9),
                testing::ExitedWithCode(1), "");
    const std::string log = read_text("/tmp/log").value_or("");
    EXPECT_THAT(log, HasSubstr("]: assertion failed \"a == b\" file "
                               "\"/x/y.cpp\" line 7 function fn"));
    EXPECT_THAT(log, HasSubstr("]: File \"/x/y.cpp\" line 9 should not have "
                               "been reached: fn"));
    // Each frame is a plain trace line "  <symbol>" followed by an empty
    // line, because the frame text already ends in a newline.
    EXPECT_THAT(log, ContainsRegex(R"(\] [0-9-]{8} [0-9:]{8}   [^ ]*libkv\.so)"
                                   "[^\n]*\n\n"));
}

} // namespace

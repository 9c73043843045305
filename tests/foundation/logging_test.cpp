// SPDX-License-Identifier: Apache-2.0
// The file channels: plain and raw trace, library records, the assertions
// that end the process and the classified log with its 4 MiB archive step.
#include "foundation_test.h"

const S kRun = "/run/BMCInfo/Development/Log/bmc";
const S kCard = "/media/card/BMCInfo/Development/Log/bmc";
const S kError = kRun + "/log_error";

int half(int n)
{
    kv_return_val_if_fail(n % 2 == 0, -1);
    return n / 2;
}

// Plain lines are stamped and cut, raw text whole; library records are
// prefixed, whole and name where they come from.
TEST(Log, TraceAndClassified)
{
    veldmarke_log("user %s refused", "bob");
    veldmarke_log("%s", S(2000, 'a').c_str());
    plog("lock %s|", S(3000, 'b').c_str());
    const S p = "[" + std::to_string(getpid()) + "] T ";
    EXPECT_EQ(untimed("/tmp/log"),
              p + "user bob refused\n" + p + S(1023, 'a') + "\n");
    EXPECT_EQ(read_text("/tmp/log-bmc"), "lock " + S(3000, 'b') + "|");
    unlink("/tmp/log");

    EXPECT_EQ(half(8) + _kv_real_assert(5u, "x", "f.cpp", 1, "fn"), 9);
    EXPECT_FALSE(read_text("/tmp/log")); // a passing check logs nothing
    _kv_warn("%s|\n", S(3000, 'w').c_str());
    _kv_warn_return_if_fail("f", "x > 0", "/a/b/common", 12);
    _kv_warn_message("%s:%d %s/%s\n", "one", "two", "/src/access/common", 40);
    const S l = "libkv[" + std::to_string(getpid()) + "][T]: ";
    EXPECT_EQ(untimed("/tmp/log"),
              l + S(3000, 'w') + "|\n" + l +
                  "[common(12)] f expression \"x > 0\" failed.\n" + l +
                  "common:40 one/two\n");
    EXPECT_EQ(half(7), -1);

    // A failed assertion ends the process and leaves its backtrace.
    EXPECT_EXIT(_kv_real_assert(0, "a == b", "/x/y.cpp", 7, "fn"),
                testing::ExitedWithCode(1), "");
    EXPECT_EXIT(_kv_real_assert_not_reached("fn", "/x/y.cpp", 9),
                testing::ExitedWithCode(1), "");
    EXPECT_THAT(read_text("/tmp/log").value(),
                testing::ContainsRegex("\"a == b\".* 7 .* 9 .*libkv\\.so"));

    // No path through log_call may change the caller's errno: the missing
    // folder, the missing file of a first line, the missing debug gate.
    errno = EXDEV;
    log_call(KV_LOG_ERROR, "no folder yet");
    log_call(KV_LOG_DEBUG, "hidden");
    EXPECT_EQ(errno, EXDEV);
    make_dirs(kRun);
    make_dirs("/var/BMCInfo/Development/Log/bmc");
    errno = EXDEV;
    log_call(KV_LOG_ERROR, "bus=%u %s:%d", 3u, "i2c", 12);
    EXPECT_EQ(errno, EXDEV);
    write_text("/tmp/debug.log", "");
    log_call(KV_LOG_DEBUG, "shown");
    unlink("/tmp/debug.log");
    log_call(KV_LOG_DEBUG, "hidden again");
    log_call(KV_LOG_ACTION, "%s", S(1500, 'c').c_str());
    EXPECT_EQ(log_call(KV_LOG_TYPES, "x") + log_call(-1, "x"), -2);
    EXPECT_EQ(untimed(kError), "T-bus=3 i2c:12\n");
    EXPECT_EQ(untimed(kRun + "/log_debug"), "T-shown\n");
    EXPECT_EQ(untimed("/var/BMCInfo/Development/Log/bmc/log_action"),
              "T-" + S(1023, 'c') + "\n");

    // At 4 MiB the file goes to the card, or is dropped without one; an
    // archive of the same second is extended.
    make_dirs(kCard);
    write_text(kError, "x");
    EXPECT_EQ(save_log_to_nv_storage(0, "/run/none") +
                  save_log_to_nv_storage(KV_LOG_TYPES, kError.c_str()) +
                  save_log_to_nv_storage(0, kError.c_str()),
              -2);
    S full(4 << 20, 'x'), archived;
    for (size_t i = 0; i < full.size(); i += 4093)
        full[i] = '0' + i % 10;
    for (int i = 0; i < 2; ++i)
    {
        write_text(kError, full);
        EXPECT_EQ(save_log_to_nv_storage(KV_LOG_ERROR, kError.c_str()), 1);
    }
    for (const auto& name : names_in(kCard))
        archived += read_text(kCard + "/" + name).value_or(name);
    EXPECT_TRUE(archived == full + full);
    fs::remove_all("/media/card");
    write_text(kError, full.substr(1));
    log_call(KV_LOG_ERROR, "kept");
    EXPECT_TRUE(read_text(kError)->starts_with(full.substr(1)));
    write_text(kError, full);
    log_call(KV_LOG_ERROR, "dropped");
    EXPECT_EQ(untimed(kError), "T-dropped\n");
}

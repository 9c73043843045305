// SPDX-License-Identifier: Apache-2.0
// The three file channels: plain trace, raw trace and the classified log
// with its 4 MiB archive step.
#include "foundation_test.h"

#include <ctime>

using namespace kv::foundation::test;

namespace
{
constexpr size_t kArchiveThreshold = 4194304;
const std::string kErrorLog = "/run/BMCInfo/Development/Log/bmc/log_error";
const std::string kArchiveDir = "/media/card/BMCInfo/Development/Log/bmc";
// A line's stamp: ctime text without the newline.
const std::string kCtime =
    R"([A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4})";

void make_log_dirs()
{
    make_dirs("/run/BMCInfo/Development/Log/bmc");
    make_dirs("/var/BMCInfo/Development/Log/bmc");
}

TEST(PlainTrace, OneStampedLinePerMessageCutAt1023)
{
    veldmarke_log("user %s refused", "bob");
    veldmarke_log("ends in newline\n");
    veldmarke_log("%s", std::string(2000, 'a').c_str());

    const std::string stamp = R"([0-9-]{8} [0-9:]{8})";
    const std::string prefix =
        R"(\[)" + std::to_string(getpid()) + R"(\] )" + stamp + " ";
    const auto log = read_text("/tmp/log");
    ASSERT_TRUE(log);
    EXPECT_THAT(*log, testing::ContainsRegex(
                          "^" + prefix + "user bob refused\n" + prefix +
                          "ends in newline\n\n" + prefix + "a+\n$"));
    EXPECT_NE(log->find(std::string(1023, 'a') + "\n"), std::string::npos);
    EXPECT_EQ(log->find(std::string(1024, 'a')), std::string::npos);
}

TEST(RawTrace, WritesExactlyWhatWasFormattedAndWhole)
{
    const std::string long_text(3000, 'b');
    plog("lock %s", "taken");
    plog("%s|", long_text.c_str());
    EXPECT_EQ(read_text("/tmp/log-bmc"), "lock taken" + long_text + "|");
}

TEST(ClassifiedLog, LineIsCtimeTextDashMessageInTheTypesFile)
{
    make_log_dirs();
    // The first line of a type reports the missing file, then creates it.
    const std::string out = stdout_of([] {
        log_call(KV_LOG_ERROR, "i2c rw data failed bus=%u. %s:%d %s", 3u, "i2c",
                 12, "f");
    });
    EXPECT_EQ(out,
              "save_log_to_nv_storage: open file [" + kErrorLog + "] fail \n");
    log_call(KV_LOG_ACTION, "%s", std::string(1500, 'c').c_str());

    EXPECT_THAT(read_text(kErrorLog).value_or(""),
                MatchesRegex(kCtime + "-i2c rw data failed bus=3. i2c:12 f\n"));
    EXPECT_THAT(read_text(log_path[KV_LOG_ACTION]).value_or(""),
                MatchesRegex(kCtime + "-c+\n"));
    EXPECT_EQ(read_text(log_path[KV_LOG_ACTION])
                  .value_or("")
                  .find(std::string(1023, 'c') + "\n"),
              25u);
    EXPECT_STREQ(log_path[KV_LOG_ACTION],
                 "/var/BMCInfo/Development/Log/bmc/log_action");
}

TEST(ClassifiedLog, InvalidTypesAreRefusedAndWriteNothing)
{
    make_log_dirs();
    for (int type : {6, -1})
    {
        int result = 0;
        EXPECT_EQ(stdout_of([&] { result = log_call(type, "x"); }),
                  "log_call: invalid log type[" + std::to_string(type) +
                      "] \n");
        EXPECT_EQ(result, -1);
    }
    EXPECT_TRUE(std::filesystem::is_empty("/run/BMCInfo/Development/Log/bmc"));
    EXPECT_TRUE(std::filesystem::is_empty("/var/BMCInfo/Development/Log/bmc"));
}

// The first line of a type finds no live file to measure, a debug line no
// gate file, and a log without its folder cannot be written: none of it may
// reach the caller's errno, which still tells why the logged call failed.
TEST(ClassifiedLog, CallersErrnoSurvivesLogging)
{
    const auto errno_after = [](int type, const char* message) {
        errno = EXDEV;
        log_call(type, "%s", message);
        return errno;
    };
    int after = 0;
    stdout_of([&] { after = errno_after(KV_LOG_ERROR, "no folder yet"); });
    EXPECT_EQ(after, EXDEV);
    make_log_dirs();
    stdout_of([&] { after = errno_after(KV_LOG_ERROR, "first line"); });
    EXPECT_EQ(after, EXDEV);
    EXPECT_EQ(errno_after(KV_LOG_DEBUG, "gated"), EXDEV);
    EXPECT_THAT(read_text(kErrorLog).value_or(""),
                testing::EndsWith("-first line\n"));
}

TEST(ClassifiedLog, DebugLinesNeedTheGateFileAndObeyItAtOnce)
{
    make_log_dirs();
    const std::string debug_log = log_path[KV_LOG_DEBUG];
    log_call(KV_LOG_DEBUG, "hidden");
    EXPECT_FALSE(read_text(debug_log));

    write_text("/tmp/debug.log", "");
    stdout_of([] { log_call(KV_LOG_DEBUG, "shown"); });
    unlink("/tmp/debug.log");
    log_call(KV_LOG_DEBUG, "hidden again");

    const auto log = read_text(debug_log);
    ASSERT_TRUE(log);
    EXPECT_THAT(*log, MatchesRegex(kCtime + "-shown\n"));
}

std::string filled(size_t size)
{
    std::string content(size, 'x');
    for (size_t i = 0; i < size; i += 100)
    {
        content[i] = static_cast<char>('0' + (i / 100) % 10);
    }
    return content;
}

// Archives are named by the raw tm fields of the local time.
std::string expected_archive(std::time_t when)
{
    std::tm t{};
    localtime_r(&when, &t);
    return kArchiveDir + "/log_error_" + std::to_string(t.tm_year) + "-" +
           std::to_string(t.tm_mon) + "-" + std::to_string(t.tm_mday) + "_" +
           std::to_string(t.tm_hour) + "-" + std::to_string(t.tm_min) + "-" +
           std::to_string(t.tm_sec);
}

TEST(ClassifiedLog, FullFileIsArchivedByteForByteAndRestartedAt4MiB)
{
    make_log_dirs();
    make_dirs(kArchiveDir);
    write_text(kErrorLog, filled(kArchiveThreshold - 1));
    EXPECT_EQ(save_log_to_nv_storage(KV_LOG_ERROR, kErrorLog.c_str()), 0);
    log_call(KV_LOG_ERROR, "next");
    EXPECT_GT(read_text(kErrorLog).value_or("").size(), kArchiveThreshold);
    EXPECT_TRUE(std::filesystem::is_empty(kArchiveDir));

    const std::string history = filled(kArchiveThreshold);
    write_text(kErrorLog, history);
    const std::time_t before = std::time(nullptr);
    log_call(KV_LOG_ERROR, "first of the new file");
    const std::time_t after = std::time(nullptr);

    EXPECT_THAT(read_text(kErrorLog).value_or(""),
                MatchesRegex(kCtime + "-first of the new file\n"));
    auto archive = read_text(expected_archive(before));
    if (!archive)
    {
        archive = read_text(expected_archive(after));
    }
    ASSERT_TRUE(archive) << "no archive named by the raw tm fields";
    EXPECT_TRUE(*archive == history) << "archive differs from the live file";
}

TEST(ClassifiedLog, ArchiveOfTheSameSecondIsExtended)
{
    make_log_dirs();
    make_dirs(kArchiveDir);
    const std::string history = filled(kArchiveThreshold);
    for (int attempt = 0; attempt < 3; ++attempt)
    {
        write_text(kErrorLog, history);
        const std::time_t start = std::time(nullptr);
        const std::string name = expected_archive(start);
        write_text(name, "older archive\n");
        EXPECT_EQ(save_log_to_nv_storage(KV_LOG_ERROR, kErrorLog.c_str()), 1);
        if (std::time(nullptr) == start)
        {
            EXPECT_TRUE(read_text(name) == "older archive\n" + history);
            return;
        }
        std::filesystem::remove_all(kArchiveDir);
        make_dirs(kArchiveDir);
    }
    FAIL() << "the clock never stayed within one second";
}

TEST(ClassifiedLog, WithoutTheCardTheHistoryIsDropped)
{
    make_log_dirs();
    write_text(kErrorLog, filled(kArchiveThreshold + 10));

    const std::string out =
        stdout_of([] { log_call(KV_LOG_ERROR, "after the drop"); });

    EXPECT_EQ(out, "save_log_to_nv_storage: SD do not present,but the file[" +
                       kErrorLog + "] length out of space\n");
    EXPECT_THAT(read_text(kErrorLog).value_or(""),
                MatchesRegex(kCtime + "-after the drop\n"));
}

TEST(ClassifiedLog, ArchiveStepResultCodes)
{
    EXPECT_EQ(stdout_of([] {
                  EXPECT_EQ(save_log_to_nv_storage(0, "/run/nothing"), -1);
              }),
              "save_log_to_nv_storage: open file [/run/nothing] fail \n");
    write_text("/run/small", "x");
    EXPECT_EQ(save_log_to_nv_storage(0, "/run/small"), 0);
    EXPECT_EQ(save_log_to_nv_storage(6, "/run/small"), -1);
}

} // namespace

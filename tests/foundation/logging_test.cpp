// SPDX-License-Identifier: Apache-2.0
// The three file channels: plain trace, raw trace and the classified log
// with its 4 MiB archive step.
#include "foundation_test.h"

#include <ctime>

const std::string kRun = "/run/BMCInfo/Development/Log/bmc";
const std::string kVar = "/var/BMCInfo/Development/Log/bmc";
const std::string kCard = "/media/card/BMCInfo/Development/Log/bmc";
const std::string kError = kRun + "/log_error";

TEST(Trace, PlainLinesAreStampedAndCutRawTextIsWhole)
{
    veldmarke_log("user %s refused", "bob");
    veldmarke_log("ends in newline\n");
    veldmarke_log("%s", std::string(2000, 'a').c_str());
    plog("lock %s", "taken");
    plog("%s|", std::string(3000, 'b').c_str());
    const std::string p = "[" + std::to_string(getpid()) + "] T ";
    EXPECT_EQ(untimed("/tmp/log"), p + "user bob refused\n" + p +
                                       "ends in newline\n\n" + p +
                                       std::string(1023, 'a') + "\n");
    EXPECT_EQ(read_text("/tmp/log-bmc"),
              "lock taken" + std::string(3000, 'b') + "|");
}

// No path through log_call may change the caller's errno: the missing
// folder, the missing file of a first line, the missing debug gate.
TEST(ClassifiedLog, LinePerTypeDebugGateAndCallersErrno)
{
    errno = EXDEV;
    log_call(KV_LOG_ERROR, "no folder yet");
    log_call(KV_LOG_DEBUG, "hidden");
    EXPECT_EQ(errno, EXDEV);
    make_dirs(kRun);
    make_dirs(kVar);
    errno = EXDEV;
    log_call(KV_LOG_ERROR, "bus=%u %s:%d", 3u, "i2c", 12);
    EXPECT_EQ(errno, EXDEV);
    write_text("/tmp/debug.log", "");
    log_call(KV_LOG_DEBUG, "shown");
    unlink("/tmp/debug.log");
    log_call(KV_LOG_DEBUG, "hidden again");
    log_call(KV_LOG_ACTION, "%s", std::string(1500, 'c').c_str());
    for (int type : {int(KV_LOG_TYPES), -1})
    {
        EXPECT_THAT(stdout_of([&] { EXPECT_EQ(log_call(type, "x"), -1); }),
                    HasSubstr("invalid"));
    }
    EXPECT_EQ(untimed(kError), "T-bus=3 i2c:12\n");
    EXPECT_EQ(untimed(kRun + "/log_debug"), "T-shown\n");
    EXPECT_EQ(untimed(kVar + "/log_action"),
              "T-" + std::string(1023, 'c') + "\n");
    EXPECT_EQ(names_in(kRun).size() + names_in(kVar).size(), 3u);
}

// Archives are named by the raw tm fields of the local time.
std::string archive_name()
{
    const std::time_t now = std::time(nullptr);
    std::tm t{};
    localtime_r(&now, &t);
    char name[128];
    std::snprintf(name, sizeof name, "%s/log_error_%d-%d-%d_%d-%d-%d",
                  kCard.c_str(), t.tm_year, t.tm_mon, t.tm_mday, t.tm_hour,
                  t.tm_min, t.tm_sec);
    return name;
}

TEST(ClassifiedLog, At4MiBTheFileGoesToTheCardOrIsDropped)
{
    make_dirs(kRun);
    write_text(kError, "x");
    EXPECT_EQ(save_log_to_nv_storage(0, "/run/none"), -1);
    EXPECT_EQ(save_log_to_nv_storage(KV_LOG_TYPES, kError.c_str()), -1);
    EXPECT_EQ(save_log_to_nv_storage(0, kError.c_str()), 0);
    std::string full(4 << 20, 'x');
    for (size_t i = 0; i < full.size(); i += 4093)
    {
        full[i] = static_cast<char>('0' + i % 10);
    }
    write_text(kError, full.substr(1));
    log_call(KV_LOG_ERROR, "kept");
    EXPECT_TRUE(read_text(kError)->starts_with(full.substr(1)));
    write_text(kError, full); // without the card the history is dropped
    log_call(KV_LOG_ERROR, "dropped");
    EXPECT_EQ(untimed(kError), "T-dropped\n");

    make_dirs(kCard); // an archive of the same second is extended
    for (int attempt = 0; attempt < 3; ++attempt)
    {
        const std::string name = archive_name();
        write_text(name, "older\n");
        write_text(kError, full);
        EXPECT_EQ(save_log_to_nv_storage(KV_LOG_ERROR, kError.c_str()), 1);
        if (archive_name() == name)
        {
            EXPECT_TRUE(read_text(name) == "older\n" + full);
            return;
        }
        std::filesystem::remove(name);
    }
    FAIL() << "the clock never stayed within one second";
}

// SPDX-License-Identifier: Apache-2.0
// Sensor events into the SEL hand-off slots, the offset from UTC that the
// decoders take off record times, and the text SEL log with its move to the
// SD card at 8 MiB (/tmp and the card are separate file systems here).
#include "events_test.h"
#include "test_helpers.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace
{

namespace segment = kv::segment;
using namespace kv::test;

class SelSlots : public PlatformSegmentTest
{
  protected:
    uint8_t& state(unsigned slot)
    {
        return shm_[segment::sel_slot_state(slot)];
    }
    uint8_t* payload(unsigned slot)
    {
        return shm_ + segment::sel_slot_payload(slot);
    }
    std::vector<uint8_t> table() // the state bytes and a slot after it
    {
        return {&state(0), &state(segment::kSelSlotCount + 1)};
    }
    int write_event(unsigned sensor)
    {
        return SensorSELWrite(shm_, sensor, 0, 0x01, 0x01, 0x59, 87, 85);
    }
};

TEST_F(SelSlots, RecordsTakeTheLowestFreeSlotUntilTheTableIsFull)
{
    ASSERT_EQ(SensorSELWrite(shm_, 0x31, 0, 0x07, 0x6F, 0x00, 0xFF, 0xFE), 0);
    const uint8_t expected[segment::kSelSlotPayloadSize] = {
        0x21, 0x00, 0x02, 0xE1, 0xA2, 0xFF, 0x4E, 0x20,
        0x00, 0x04, 0x07, 0x31, 0x6F, 0x00, 0xFF, 0xFE};
    EXPECT_EQ(std::memcmp(payload(0), expected, sizeof expected), 0);
    EXPECT_EQ(state(0), 1);
    ASSERT_EQ(write_event(0), 0);
    // The consumer frees a slot with any value but 1; no position is kept.
    state(0) = 0;
    state(1) = 7;
    for (unsigned i = 0; i < segment::kSelSlotCount; ++i)
    {
        ASSERT_EQ(write_event(i + 1), 0);
        EXPECT_EQ(payload(i)[11], uint8_t(i + 1));
        EXPECT_EQ(state(i), 1);
    }
    const auto before = table();
    EXPECT_EQ(add_sel_to_shm(shm_, expected, 16), KV_SEL_SLOTS_FULL);
    EXPECT_EQ(write_event(99), -1);
    EXPECT_EQ(table(), before);
    EXPECT_EQ(state(segment::kSelSlotCount), 0);
}

TEST_F(SelSlots, NoSegmentIsRefusedAndLongerDataStaysInsideItsSlot)
{
    const std::vector<uint8_t> data(200, 0x5A);
    EXPECT_EQ(add_sel_to_shm(nullptr, data.data(), 16), KV_SEL_NO_SEGMENT);
    EXPECT_EQ(add_sel_to_shm(shm_, nullptr, 16), KV_SEL_NO_SEGMENT);
    EXPECT_EQ(add_sel_to_shm(shm_, data.data(), -1), KV_SEL_NO_SEGMENT);
    EXPECT_EQ(SensorSELWrite(nullptr, 1, 0, 1, 1, 0, 0, 0), -1);
    EXPECT_EQ(state(0), 0);
    EXPECT_EQ(add_sel_to_shm(shm_, data.data(), 0), 0); // still takes a slot
    EXPECT_EQ(payload(0)[0], 0);
    ASSERT_EQ(add_sel_to_shm(shm_, data.data(), 200), 0);
    EXPECT_EQ(std::vector<uint8_t>(payload(1), &state(2)),
              std::vector<uint8_t>(segment::kSelSlotPayloadSize, 0x5A));
    EXPECT_EQ(state(2), 0);
}

// The hour fields of the two clocks decide, in whole hours.
TEST(TimeZoneOffset, HourFieldsOfTheTwoClocksDecide)
{
    const struct
    {
        const char* tz;
        int hour, minute, expected;
    } cases[] = {
        {"UTC", 12, 0, 0},
        {"UTC-2", 23, 0, 7200},   // local time a day ahead
        {"UTC+8", 0, 30, -28800}, // and a day behind
        {"Asia/Shanghai", 23, 59, 28800},
        {"America/New_York", 2, 0, -18000},
        {"Asia/Kolkata", 10, 0, 5 * 3600},         // 15:30
        {"Asia/Kolkata", 10, 45, 6 * 3600},        // 16:15
        {"Asia/Kolkata", 18, 40, 6 * 3600},        // 00:10 the next day
        {"Asia/Kolkata", 18, 20, 5 * 3600},        // 23:50
        {"America/St_Johns", 3, 0, -4 * 3600},     // 23:30
        {"America/St_Johns", 3, 45, -3 * 3600},    // 00:15
        {"Pacific/Kiritimati", 11, 0, -10 * 3600}, // UTC+14 folds
        {"Etc/GMT+12", 12, 0, -12 * 3600},         // 00:00, no fold
    };
    for (const auto& c : cases)
    {
        const TimeZone zone(c.tz);
        const FixedClock clock(utc(2024, 1, 15, c.hour, c.minute));
        EXPECT_EQ(get_time_zone_offset(), c.expected)
            << c.tz << " at " << c.hour << ":" << c.minute;
    }
    // Without TZ the zone comes from /etc/localtime, read on every call.
    const FixedClock clock(utc(2024, 7, 1, 12, 0));
    const TimeZone restore("Europe/Berlin"); // summer time
    EXPECT_EQ(get_time_zone_offset(), 7200);
    unsetenv("TZ");
    point_localtime_at("Asia/Tokyo");
    EXPECT_EQ(get_time_zone_offset(), 9 * 3600);
    point_localtime_at("Etc/GMT+5");
    EXPECT_EQ(get_time_zone_offset(), -5 * 3600);
}

constexpr off_t kLimit = 8 * 1024 * 1024;
const std::string kDir = "/tmp/sel";
const std::string kLog = kDir + "/sel.log";
const std::string kCard = "/media/card/sellog";

off_t size_of(const std::string& path)
{
    struct stat st
    {};
    return ::stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

int save(uint32_t record, const char* text, uint32_t when = 0)
{
    return save_sel_to_file(record, when, record % 3, text, kDir.c_str());
}

TEST(SelLog, LinesEndInCrLfInAFolderOfItsOwnMode)
{
    ::umask(022);
    ASSERT_EQ(save(1, "first"), 0);
    struct stat st
    {};
    ASSERT_EQ(::stat(kDir.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & (S_IFMT | 07777), S_IFDIR | 0644U);
    // A folder that is there keeps its mode; numbers show as signed.
    ASSERT_EQ(::chmod(kDir.c_str(), 0700), 0);
    ASSERT_EQ(save(4000000000U, ""), 0);
    // A text too long is cut; the longest that fits is kept whole.
    const std::string text(400, 'a');
    ASSERT_EQ(save(12, text.c_str()), 0);
    ASSERT_EQ(save(12, text.c_str() + 209), 0);
    const std::string line = "#12 0 " + std::string(191, 'a') + "\r\n";
    EXPECT_EQ(read_text(kLog),
              "#1 1 first\r\n#-294967296 1 \r\n" + line + line);
    ASSERT_EQ(::stat(kDir.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700U);

    ::unlink(kLog.c_str());
    make_dirs(kLog); // a folder where the file should be
    EXPECT_EQ(save(1, "x"), -1);
    EXPECT_EQ(save(1, nullptr), -1);
    EXPECT_EQ(save_sel_to_file(1, 0, 1, "x", nullptr), -1);
    const std::string deep = "/tmp/" + std::string(200, 'd');
    EXPECT_EQ(save_sel_to_file(1, 0, 1, "x", deep.c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

// Fills the live log to `size` bytes.
void grow_log(off_t size)
{
    make_dirs(kDir);
    write_text(kLog, "");
    ASSERT_EQ(::truncate(kLog.c_str(), size), 0);
}

TEST(SelLog, LogMovesToTheCardWhenALineReachesTheLimit)
{
    const TimeZone zone("Asia/Shanghai");
    // Without the card the log goes on growing; once the card is there the
    // next line moves it all.
    grow_log(kLimit);
    ASSERT_EQ(save(1, "a"), 0);
    EXPECT_EQ(size_of(kLog), kLimit + 8);
    make_dirs(kCard);
    ASSERT_EQ(save(2, "b", 1), 0);
    EXPECT_EQ(size_of(kCard + "/sel-19700101080001.log"), kLimit + 16);
    EXPECT_EQ(size_of(kLog), -1);

    // Named from the record's time in local time (UTC+8: the next day).
    const std::string line = "#7 1 crossing\r\n";
    grow_log(kLimit - line.size() + 1);
    ASSERT_EQ(save(7, "crossing", utc(2024, 3, 9, 22, 5, 7)), 0);
    const std::string archive = kCard + "/sel-20240310060507.log";
    EXPECT_EQ(size_of(archive), kLimit + 1);
    EXPECT_TRUE(read_text(archive).value_or("").ends_with(line));
    ASSERT_EQ(save(8, "after"), 0);
    EXPECT_EQ(read_text(kLog), "#8 2 after\r\n");

    // Ending just below the limit stays; ending at it moves.
    grow_log(kLimit - 8);
    ASSERT_EQ(save(9, ""), 0); // "#9 0 \r\n"
    EXPECT_EQ(size_of(kLog), kLimit - 1);
    grow_log(kLimit - 7);
    ASSERT_EQ(save(9, "", 2), 0);
    EXPECT_EQ(size_of(kLog), -1);
    EXPECT_EQ(names_in(kCard).size(), 3u);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// Sensor events into the SEL hand-off slots of the platform segment, and
// the local offset from UTC that the decoders take off record times.
#include "events_test.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace
{

namespace segment = kv::segment;
using kv::test::FixedClock;
using kv::test::PlatformSegmentTest;
using kv::test::TimeZone;
using kv::test::utc;

using Payload = std::array<uint8_t, segment::kSelSlotPayloadSize>;

class SelSlots : public PlatformSegmentTest
{
  protected:
    uint8_t& state(unsigned slot)
    {
        return shm_[segment::sel_slot_state(slot)];
    }

    Payload payload(unsigned slot)
    {
        Payload bytes{};
        std::memcpy(bytes.data(), shm_ + segment::sel_slot_payload(slot),
                    bytes.size());
        return bytes;
    }

    // The whole slot table, state bytes included.
    std::vector<uint8_t> table()
    {
        const uint8_t* first = shm_ + segment::sel_slot_state(0);
        return {first, first + segment::kSelSlotSize * segment::kSelSlotCount};
    }

    int write_event(uint8_t sensor)
    {
        return SensorSELWrite(shm_, sensor, 0, 0x01, 0x01, 0x59, 87, 85);
    }
};

TEST_F(SelSlots, SensorEventBecomesASystemEventRecordInTheLowestFreeSlot)
{
    ASSERT_EQ(SensorSELWrite(shm_, 0x31, 0, 0x07, 0x6F, 0x00, 0xFF, 0xFE), 0);
    const Payload expected = {0x21, 0x00, 0x02, 0xE1, 0xA2, 0xFF, 0x4E, 0x20,
                              0x00, 0x04, 0x07, 0x31, 0x6F, 0x00, 0xFF, 0xFE};
    EXPECT_EQ(payload(0), expected); // and the rest of the payload untouched
    EXPECT_EQ(state(0), 1);
    EXPECT_EQ(state(1), 0);

    ASSERT_EQ(write_event(11), 0);
    EXPECT_EQ(payload(1)[11], 11);
    // The consumer frees a slot with any value other than 1; no position
    // is kept.
    state(0) = 0;
    state(1) = 7;
    ASSERT_EQ(write_event(12), 0);
    ASSERT_EQ(write_event(13), 0);
    ASSERT_EQ(write_event(14), 0);
    EXPECT_EQ(payload(0)[11], 12);
    EXPECT_EQ(payload(1)[11], 13);
    EXPECT_EQ(state(1), 1);
    EXPECT_EQ(payload(2)[11], 14);
}

TEST_F(SelSlots, FullTableDropsTheRecordAndChangesNothing)
{
    for (unsigned i = 0; i < segment::kSelSlotCount; ++i)
    {
        ASSERT_EQ(write_event(static_cast<uint8_t>(i)), 0) << "slot " << i;
    }
    const auto before = table();
    const uint8_t record[16] = {0xAA};
    EXPECT_EQ(add_sel_to_shm(shm_, record, sizeof record), KV_SEL_SLOTS_FULL);
    EXPECT_EQ(write_event(99), -1);
    EXPECT_EQ(table(), before);
    // Slot 29 was the last one taken; the bytes after the table are clear.
    EXPECT_EQ(payload(29)[11], 29);
    EXPECT_EQ(shm_[segment::sel_slot_state(segment::kSelSlotCount)], 0);
}

TEST_F(SelSlots, NoSegmentIsRefusedAndLongerDataStaysInsideItsSlot)
{
    const uint8_t record[16] = {};
    EXPECT_EQ(add_sel_to_shm(nullptr, record, sizeof record),
              KV_SEL_NO_SEGMENT);
    EXPECT_EQ(SensorSELWrite(nullptr, 1, 0, 1, 1, 0, 0, 0), -1);
    EXPECT_EQ(add_sel_to_shm(shm_, nullptr, 16), KV_SEL_NO_SEGMENT);
    EXPECT_EQ(add_sel_to_shm(shm_, record, -1), KV_SEL_NO_SEGMENT);
    EXPECT_EQ(state(0), 0);
    // An empty record still takes a slot.
    EXPECT_EQ(add_sel_to_shm(shm_, record, 0), 0);
    EXPECT_EQ(state(0), 1);
    state(0) = 0;

    std::vector<uint8_t> data(200, 0x5A);
    ASSERT_EQ(add_sel_to_shm(shm_, data.data(), static_cast<int>(data.size())),
              0);
    Payload full;
    full.fill(0x5A);
    EXPECT_EQ(payload(0), full);
    EXPECT_EQ(state(1), 0);
    EXPECT_EQ(payload(1), Payload{});
}

// ---- The offset from UTC --------------------------------------------------

struct ZoneCase
{
    const char* tz;
    int hour;
    int minute;
    int expected;
};

TEST(TimeZoneOffset, HourFieldsOfTheTwoClocksDecide)
{
    const ZoneCase cases[] = {
        {"UTC", 12, 0, 0},
        // Local time is a day ahead: 01:00 against 23:00 UTC.
        {"UTC-2", 23, 0, 7200},
        // And a day behind: 16:00 against 00:30 UTC.
        {"UTC+8", 0, 30, -28800},
        {"UTC-8", 20, 15, 28800},
        {"Asia/Shanghai", 23, 59, 28800},
        {"America/New_York", 2, 0, -18000}, // January: EST
        // Half-hour zones count whole hours of the clock faces.
        {"Asia/Kolkata", 10, 0, 5 * 3600},         // 15:30
        {"Asia/Kolkata", 10, 45, 6 * 3600},        // 16:15
        {"Asia/Kolkata", 18, 40, 6 * 3600},        // 00:10 the next day
        {"Asia/Kolkata", 18, 20, 5 * 3600},        // 23:50
        {"America/St_Johns", 3, 0, -4 * 3600},     // 23:30, UTC-3:30
        {"America/St_Johns", 3, 45, -3 * 3600},    // 00:15
        {"Pacific/Kiritimati", 11, 0, -10 * 3600}, // UTC+14 folds
        {"Etc/GMT+12", 12, 0, -12 * 3600},         // 00:00, no fold
    };
    for (const auto& c : cases)
    {
        const TimeZone zone(c.tz);
        const FixedClock clock(utc(2024, 1, 15, c.hour, c.minute));
        EXPECT_EQ(get_time_zone_offset(), c.expected)
            << c.tz << " at " << c.hour << ":" << c.minute << " UTC";
    }
}

TEST(TimeZoneOffset, FollowsAChangeOfZone)
{
    const FixedClock clock(utc(2024, 7, 1, 12, 0));
    {
        const TimeZone zone("Europe/Berlin"); // summer time
        EXPECT_EQ(get_time_zone_offset(), 7200);
    }
    // With TZ gone the zone comes from /etc/localtime (the sandbox's own
    // copy of /etc), read again on every call.
    unsetenv("TZ");
    for (const auto& [zone, offset] :
         {std::pair("Asia/Tokyo", 9 * 3600), std::pair("Etc/GMT+5", -5 * 3600)})
    {
        ASSERT_EQ(std::system((std::string("ln -sf /usr/share/zoneinfo/") +
                               zone + " /etc/localtime")
                                  .c_str()),
                  0);
        EXPECT_EQ(get_time_zone_offset(), offset) << zone;
    }
}

} // namespace

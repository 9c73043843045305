// SPDX-License-Identifier: Apache-2.0
// Shared ground of the event tests: the platform segment of the sandbox's
// IPC namespace, a fixed wall clock and the time zone.
#pragma once

#include "ipc/platform_segment.h"

#include <libkv/events.h>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace kv::test
{

// What time() reports to the library for the scope (see fixed_clock.cpp).
class FixedClock
{
  public:
    explicit FixedClock(std::time_t now);
    ~FixedClock();
};

// A UTC date and time as seconds since 1970.
std::time_t utc(int year, int month, int day, int hour, int minute,
                int second = 0);

// TZ for the scope; the library reads the zone again on every call.
class TimeZone
{
  public:
    explicit TimeZone(const char* tz)
    {
        if (const char* old = std::getenv("TZ"))
        {
            saved_ = old;
        }
        setenv("TZ", tz, 1);
        tzset();
    }
    ~TimeZone()
    {
        saved_ ? setenv("TZ", saved_->c_str(), 1) : unsetenv("TZ");
        tzset();
    }

  private:
    std::optional<std::string> saved_;
};

// The platform segment, fresh for each test (the sandbox gives every test
// an IPC namespace of its own).
class PlatformSegmentTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        const int id = shmget(segment::kPlatformKey, segment::kPlatformSize,
                              IPC_CREAT | 0777);
        ASSERT_GE(id, 0);
        shm_ = static_cast<uint8_t*>(shmat(id, nullptr, 0));
        ASSERT_NE(shm_, reinterpret_cast<uint8_t*>(-1));
    }
    void TearDown() override
    {
        shmdt(shm_);
    }

    uint8_t* shm_ = nullptr;
};

// Points /etc/localtime (the sandbox's own copy of /etc) at `zone`.
inline void point_localtime_at(const std::string& zone)
{
    ASSERT_EQ(
        std::system(
            ("ln -sf /usr/share/zoneinfo/" + zone + " /etc/localtime").c_str()),
        0);
}

} // namespace kv::test

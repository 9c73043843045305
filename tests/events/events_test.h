// SPDX-License-Identifier: Apache-2.0
// Shared ground of the event tests: the platform segment of the sandbox's
// IPC namespace, a fixed wall clock and the time zone.
#pragma once

#include "ipc/platform_segment.h"

#include <libkv/events.h>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace kv::test
{

// The wall clock that time() reports to the library, so that checks that
// depend on the hour of the day do not depend on when they run. Back to the
// real clock when the scope ends.
class FixedClock
{
  public:
    explicit FixedClock(std::time_t now);
    FixedClock(const FixedClock&) = delete;
    FixedClock& operator=(const FixedClock&) = delete;
    ~FixedClock();
};

// A UTC date and time as seconds since 1970.
std::time_t utc(int year, int month, int day, int hour, int minute,
                int second = 0);

// TZ for the scope; the zone is read again by every call that needs it.
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
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
    ~TimeZone()
    {
        saved_ ? setenv("TZ", saved_->c_str(), 1) : unsetenv("TZ");
        tzset();
    }

  private:
    std::optional<std::string> saved_;
};

// The platform segment, fresh for each test (the sandbox gives every test
// an IPC namespace of its own), attached for the test's duration.
class PlatformSegmentTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        const int id = shmget(segment::kPlatformKey, segment::kPlatformSize,
                              IPC_CREAT | 0777);
        ASSERT_GE(id, 0);
        void* address = shmat(id, nullptr, 0);
        ASSERT_NE(address, reinterpret_cast<void*>(-1));
        shm_ = static_cast<uint8_t*>(address);
    }

    void TearDown() override
    {
        if (shm_ != nullptr)
        {
            shmdt(shm_);
        }
    }

    uint8_t* shm_ = nullptr;
};

} // namespace kv::test

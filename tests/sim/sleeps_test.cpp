// SPDX-License-Identifier: Apache-2.0
// Sleep capture: pauses recorded instead of taken while it is on.
#include "sim_fixture.h"

#include <time.h>

#include <chrono>

namespace kv::sim::test
{
namespace
{

using Sleeps = ExampleBoard;

std::chrono::milliseconds
    elapsed_since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
}

TEST_F(Sleeps, CapturedPausesReturnAtOnceAreRecordedInMicrosecondsOrRefused)
{
    capture_sleeps(true);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0u, ::sleep(2));
    EXPECT_EQ(0, ::usleep(5000));
    const timespec quarter{0, 250'000'000};
    EXPECT_EQ(0, ::nanosleep(&quarter, nullptr));
    const timespec one{1, 500};
    EXPECT_EQ(0, ::clock_nanosleep(CLOCK_MONOTONIC, 0, &one, nullptr));
    timespec deadline{};
    ::clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += 3;
    EXPECT_EQ(0, ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline,
                                   nullptr));
    EXPECT_LT(elapsed_since(start), std::chrono::milliseconds(1000));

    const std::vector<long long> pauses = recorded_sleeps();
    ASSERT_EQ(5u, pauses.size());
    EXPECT_THAT(std::vector<long long>(pauses.begin(), pauses.begin() + 4),
                ElementsAre(2'000'000, 5'000, 250'000, 1'000'000));
    EXPECT_GT(pauses[4], 2'900'000);
    EXPECT_LE(pauses[4], 3'000'000);

    // Invalid pauses are refused and not recorded.
    clear_sleeps();
    const timespec bad{0, 1'000'000'000};
    EXPECT_EQ(EINVAL, ERRNO_OF(::nanosleep(&bad, nullptr)));
    EXPECT_EQ(EINVAL, ::clock_nanosleep(CLOCK_MONOTONIC, 0, &bad, nullptr));
    EXPECT_TRUE(recorded_sleeps().empty());
}

TEST_F(Sleeps, WithoutCapturePausesAreTaken)
{
    capture_sleeps(true);
    capture_sleeps(false);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, ::usleep(30'000));
    const timespec pause{0, 30'000'000};
    EXPECT_EQ(0, ::nanosleep(&pause, nullptr));
    EXPECT_GE(elapsed_since(start), std::chrono::milliseconds(60));
    EXPECT_TRUE(recorded_sleeps().empty());
}

} // namespace
} // namespace kv::sim::test

// SPDX-License-Identifier: Apache-2.0
// The board's shared state: faults, the wire log, captured sleeps, and one
// board for a test and its forked children.
#include "sim_fixture.h"
#include "test_helpers.h"

#include <time.h>

#include <chrono>

namespace kv::sim::test
{
namespace
{

using State = ExampleBoard;
using Clock = std::chrono::steady_clock;

// An address fault holds on every path to the device until cleared, and for
// that device alone.
TEST_F(State, AddressesNakOrFailUntilCleared)
{
    BusHandle bus(11), chassis(1), parent(13), channel4(19);
    fail_address(11, 0x3f, ENXIO);
    fail_address(16, 0x51, EIO);
    EXPECT_EQ(ENXIO, ERRNO_OF(read_register(bus, 0x3f)));
    EXPECT_EQ(2, read_register(chassis, 0x3f));
    ASSERT_EQ(0, parent.bind(0x70));
    ASSERT_TRUE(send(parent, {0x01}));
    EXPECT_EQ(EIO, ERRNO_OF(read_register(parent, 0x51)));
    clear_faults();
    EXPECT_EQ(2, read_register(bus, 0x3f));
    // A multiplexer that does not answer takes its channels with it.
    fail_address(13, 0x70, ENXIO);
    EXPECT_EQ(ENXIO, ERRNO_OF(read_register(channel4, 0x3f)));
    EXPECT_EQ(ENXIO, wire_log()[0].error);
    EXPECT_EQ(sent(13, 0x51, {0}, false, EIO), wire_log()[4]);
}

// Transfers are counted message by message.
TEST_F(State, TheNthTransferFailsOnce)
{
    BusHandle bus(11);
    ASSERT_EQ(0, bus.bind(0x3f));
    fail_transfer(2, ETIMEDOUT);
    fail_transfer(4, EAGAIN);
    EXPECT_TRUE(send(bus, {0}));
    EXPECT_EQ(ETIMEDOUT, ERRNO_OF(::write(bus.fd(), "", 1)));
    EXPECT_EQ(EAGAIN, ERRNO_OF(read_register(bus, 0x3f)));
    EXPECT_EQ(failed_read(11, 0x3f, 1, EAGAIN, true), wire_log().back());
    EXPECT_EQ(2, read_register(bus, 0x3f));
    EXPECT_THROW(fail_transfer(0, EIO), std::invalid_argument);
}

// Long transfers keep their length and first bytes; the log keeps the
// latest few thousand, oldest first.
TEST_F(State, WireLogKeepsTheLatestTransfers)
{
    BusHandle bus(3);
    ASSERT_EQ(0, bus.bind(0x50));
    std::vector<uint8_t> bytes(600, 0x5a);
    bytes[0] = bytes[1] = bytes[511] = 0;
    ASSERT_TRUE(send(bus, bytes));
    EXPECT_EQ(600u, wire_log()[0].length);
    EXPECT_EQ(std::vector(bytes.begin(), bytes.begin() + 512),
              wire_log()[0].bytes);
    EXPECT_EQ(0x5a, device_memory(3, 0x50)[597]);

    constexpr int count = 5000;
    for (int i = 0; i < count; ++i)
    {
        ASSERT_TRUE(send(bus, {0, static_cast<uint8_t>(i), uint8_t(i >> 8)}));
    }
    const std::vector<Transfer> log = wire_log();
    ASSERT_GE(log.size(), 1000u);
    ASSERT_LT(log.size(), std::size_t{count});
    for (std::size_t i = 0; i < log.size(); ++i)
    {
        const int n = count - static_cast<int>(log.size() - i);
        ASSERT_EQ(sent(3, 0x50, {0, uint8_t(n), uint8_t(n >> 8)}), log[i]);
    }
    clear_wire_log();
    EXPECT_EQ(0, probe(bus, 0x50));
    EXPECT_THAT(wire_log(), ElementsAre(sent(3, 0x50, {})));
}

TEST_F(State, CapturedSleepsReturnAtOnceAndAreRecordedInMicroseconds)
{
    capture_sleeps(true);
    const auto start = Clock::now();
    EXPECT_EQ(0u, ::sleep(2));
    EXPECT_EQ(0, ::usleep(5000));
    const timespec quarter{0, 250'000'000}, one{1, 500}, bad{0, 1'000'000'000};
    EXPECT_EQ(0, ::nanosleep(&quarter, nullptr));
    EXPECT_EQ(0, ::clock_nanosleep(CLOCK_MONOTONIC, 0, &one, nullptr));
    timespec deadline{};
    ::clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += 3;
    EXPECT_EQ(0, ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline,
                                   nullptr));
    EXPECT_EQ(EINVAL, ERRNO_OF(::nanosleep(&bad, nullptr)));
    EXPECT_EQ(EINVAL, ::clock_nanosleep(CLOCK_MONOTONIC, 0, &bad, nullptr));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
    EXPECT_THAT(recorded_sleeps(),
                ElementsAre(2'000'000, 5'000, 250'000, 1'000'000,
                            testing::AllOf(testing::Gt(2'900'000),
                                           testing::Le(3'000'000))));
    clear_sleeps();
    EXPECT_TRUE(recorded_sleeps().empty());
}

// A child's transfers and sleeps land on the parent's board; loading a
// board starts over for everyone, sleeps taken again.
TEST_F(State, ForkedChildrenShareTheBoardUntilItIsLoadedAgain)
{
    set_device_memory(11, 0x3f, 0x40, {0x4b});
    capture_sleeps(true);
    fail_address(1, 0x3f, EIO);
    const int status = kv::test::exit_status_of([] {
        uint8_t value = 0;
        BusHandle bus(11);
        return read_register(bus, 0x3f, 0x40, &value) == 2 && value == 0x4b
                   ? ::usleep(1'000'000)
                   : 1;
    });
    ASSERT_EQ(0, status);
    EXPECT_EQ(2u, wire_log().size());
    EXPECT_THAT(recorded_sleeps(), ElementsAre(1'000'000));

    load_board(example_board);
    EXPECT_TRUE(wire_log().empty());
    EXPECT_EQ(
        0, kv::test::exit_status_of([] { return probe(BusHandle(1), 0x3f); }));
    const auto start = Clock::now();
    EXPECT_EQ(0, ::usleep(20'000));
    const timespec pause{0, 20'000'000};
    EXPECT_EQ(0, ::nanosleep(&pause, nullptr));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(40));
    EXPECT_TRUE(recorded_sleeps().empty());
}

} // namespace
} // namespace kv::sim::test

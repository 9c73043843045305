// SPDX-License-Identifier: Apache-2.0
// One board for a test and its forked children.
#include "sim_fixture.h"
#include "test_helpers.h"

#include <chrono>

namespace kv::sim::test
{
namespace
{

using SharedState = ExampleBoard;

TEST_F(SharedState, ParentAndForkedChildSeeOneBoard)
{
    set_device_memory(11, 0x3f, 0x40, {0x4b});
    capture_sleeps(true);
    const int status = kv::test::exit_status_of([] {
        BusHandle bus(11);
        if (bus.bind(0x3f) != 0 || !send(bus, {0x40}) ||
            receive(bus, 1) != std::vector<uint8_t>{0x4b})
        {
            return 1;
        }
        return send(bus, {0x41, 0xc7}) ? ::usleep(1'000'000) : 2;
    });
    ASSERT_EQ(0, status);
    EXPECT_EQ(0xc7, device_memory(11, 0x3f)[0x41]);
    EXPECT_THAT(wire_log(),
                ElementsAre(sent(11, 0x3f, {0x40}), received(11, 0x3f, {0x4b}),
                            sent(11, 0x3f, {0x41, 0xc7})));
    EXPECT_THAT(recorded_sleeps(), ElementsAre(1'000'000));
}

TEST_F(SharedState, LoadingABoardStartsOverForEveryone)
{
    const BusHandle old_bus(11);
    ASSERT_EQ(0, probe(old_bus, 0x3f));
    fail_address(1, 0x3f, EIO);
    capture_sleeps(true);

    load_board(example_board);
    EXPECT_TRUE(wire_log().empty());
    EXPECT_EQ(
        0, kv::test::exit_status_of([] { return probe(BusHandle(1), 0x3f); }));
    const auto start = std::chrono::steady_clock::now();
    ::usleep(20'000);
    EXPECT_GE(std::chrono::steady_clock::now() - start,
              std::chrono::milliseconds(20));
}

} // namespace
} // namespace kv::sim::test

// One board for a test and its forked children.
#include "sim_fixture.h"
#include "test_helpers.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <vector>

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
        uint8_t bytes[] = {0x40};
        uint8_t value = 0;
        if (bus.bind(0x3f) != 0 || ::write(bus.fd(), bytes, 1) != 1 ||
            ::read(bus.fd(), &value, 1) != 1 || value != 0x4b)
        {
            return 1;
        }
        const uint8_t update[] = {0x41, 0xc7};
        if (::write(bus.fd(), update, sizeof(update)) != 2)
        {
            return 2;
        }
        ::usleep(1'000'000);
        return 0;
    });
    ASSERT_EQ(0, status);
    EXPECT_EQ(0xc7, device_memory(11, 0x3f)[0x41]);
    EXPECT_THAT(wire_log(), testing::ElementsAre(sent(11, 0x3f, {0x40}),
                                                 received(11, 0x3f, {0x4b}),
                                                 sent(11, 0x3f, {0x41, 0xc7})));
    EXPECT_THAT(recorded_sleeps(), testing::ElementsAre(1'000'000));
}

TEST_F(SharedState, LoadingABoardStartsOverForEveryone)
{
    BusHandle old_bus(11);
    ASSERT_EQ(0, old_bus.bind(0x3f));
    ASSERT_EQ(0, ::write(old_bus.fd(), "", 0));
    fail_address(1, 0x3f, EIO);
    capture_sleeps(true);

    load_board(example_board);
    EXPECT_TRUE(wire_log().empty());
    const int status = kv::test::exit_status_of([] {
        BusHandle bus(1);
        uint8_t offset = 0;
        return bus.bind(0x3f) == 0 && ::write(bus.fd(), &offset, 1) == 1 ? 0
                                                                         : 1;
    });
    EXPECT_EQ(0, status);
    const auto start = std::chrono::steady_clock::now();
    ::usleep(20'000);
    EXPECT_GE(std::chrono::steady_clock::now() - start,
              std::chrono::milliseconds(20));
}

} // namespace
} // namespace kv::sim::test

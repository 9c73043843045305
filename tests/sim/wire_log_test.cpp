// The wire log: what it keeps of long transfers and how far back it goes.
#include "sim_fixture.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace kv::sim::test
{
namespace
{

using WireLog = ExampleBoard;

TEST_F(WireLog, LongTransfersKeepTheirLengthAndTheirFirstBytes)
{
    BusHandle bus(3);
    ASSERT_EQ(0, bus.bind(0x50));
    std::vector<uint8_t> bytes(600);
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        bytes[i] = static_cast<uint8_t>(i * 7);
    }
    bytes[0] = 0x00;
    bytes[1] = 0x00;
    ASSERT_EQ(600, ::write(bus.fd(), bytes.data(), bytes.size()));

    const std::vector<Transfer> log = wire_log();
    ASSERT_EQ(1u, log.size());
    EXPECT_EQ(600u, log[0].length);
    ASSERT_EQ(max_logged_bytes, log[0].bytes.size());
    EXPECT_TRUE(
        std::equal(log[0].bytes.begin(), log[0].bytes.end(), bytes.begin()));
    // All of it reached the part.
    EXPECT_EQ(bytes[599], device_memory(3, 0x50)[597]);
}

TEST_F(WireLog, KeepsTheLatestTransfersAndStartsAfreshWhenCleared)
{
    BusHandle bus(11);
    ASSERT_EQ(0, bus.bind(0x3f));
    constexpr int count = 5000;
    for (int i = 0; i < count; ++i)
    {
        const uint8_t bytes[] = {0x80, static_cast<uint8_t>(i),
                                 static_cast<uint8_t>(i >> 8)};
        ASSERT_EQ(3, ::write(bus.fd(), bytes, sizeof(bytes)));
    }
    const std::vector<Transfer> log = wire_log();
    ASSERT_GE(log.size(), 1000u);
    ASSERT_LT(log.size(), static_cast<std::size_t>(count));
    // Oldest first, none missing up to the last one.
    for (std::size_t i = 0; i < log.size(); ++i)
    {
        const int n =
            count - static_cast<int>(log.size()) + static_cast<int>(i);
        ASSERT_EQ(
            sent(11, 0x3f,
                 {0x80, static_cast<uint8_t>(n), static_cast<uint8_t>(n >> 8)}),
            log[i]);
    }

    clear_wire_log();
    EXPECT_TRUE(wire_log().empty());
    ASSERT_EQ(0, ::write(bus.fd(), "", 0));
    EXPECT_THAT(wire_log(), testing::ElementsAre(sent(11, 0x3f, {})));
}

TEST_F(WireLog, TransfersPrintReadably)
{
    std::ostringstream text;
    text << sent(16, 0x51, {0x00, 0x1a}, true, ENXIO);
    EXPECT_EQ("bus 16 0x51 write 2 [00 1a] after repeated start failed: " +
                  std::string(std::strerror(ENXIO)),
              text.str());
}

} // namespace
} // namespace kv::sim::test

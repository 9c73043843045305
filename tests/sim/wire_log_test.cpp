// SPDX-License-Identifier: Apache-2.0
// The wire log: what it keeps of long transfers and how far back it goes.
#include "sim_fixture.h"

#include <cstring>
#include <numeric>
#include <sstream>

namespace kv::sim::test
{
namespace
{

using WireLog = ExampleBoard;

TEST_F(WireLog, LongTransfersKeepTheirLengthAndTheirFirstBytes)
{
    BusHandle bus(3);
    ASSERT_EQ(0, bus.bind(0x50));
    std::vector<uint8_t> bytes(600); // memory address 0, then data
    std::iota(bytes.begin() + 2, bytes.end(), uint8_t{1});
    ASSERT_TRUE(send(bus, bytes));

    const std::vector<Transfer> log = wire_log();
    ASSERT_EQ(1u, log.size());
    EXPECT_EQ(600u, log[0].length);
    EXPECT_EQ(std::vector(bytes.begin(), bytes.begin() + max_logged_bytes),
              log[0].bytes);
    // All of it reached the part.
    EXPECT_EQ(bytes[599], device_memory(3, 0x50)[597]);
}

TEST_F(WireLog, KeepsTheLatestTransfersAndStartsAfreshWhenCleared)
{
    BusHandle bus(11);
    ASSERT_EQ(0, bus.bind(0x3f));
    const auto numbered = [](int n) {
        return std::vector<uint8_t>{0x80, static_cast<uint8_t>(n),
                                    static_cast<uint8_t>(n >> 8)};
    };
    constexpr int count = 5000;
    for (int i = 0; i < count; ++i)
    {
        ASSERT_TRUE(send(bus, numbered(i)));
    }
    const std::vector<Transfer> log = wire_log();
    ASSERT_GE(log.size(), 1000u);
    ASSERT_LT(log.size(), static_cast<std::size_t>(count));
    // Oldest first, none missing up to the last one.
    const int first = count - static_cast<int>(log.size());
    for (std::size_t i = 0; i < log.size(); ++i)
    {
        ASSERT_EQ(sent(11, 0x3f, numbered(first + static_cast<int>(i))),
                  log[i]);
    }

    clear_wire_log();
    EXPECT_TRUE(wire_log().empty());
    ASSERT_EQ(0, probe(bus, 0x3f));
    EXPECT_THAT(wire_log(), ElementsAre(sent(11, 0x3f, {})));
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

// Injected faults: addresses that NAK or fail, and single failing transfers.
#include "sim_fixture.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace kv::sim::test
{
namespace
{

using testing::ElementsAre;

// Reads register 0 of the device at `address` with one I2C_RDWR request;
// returns the request result.
int read_register0(const BusHandle& bus, uint16_t address)
{
    std::vector<uint8_t> offset{0x00};
    std::vector<uint8_t> value(1);
    return combined(bus.fd(), {write_message(address, offset),
                               read_message(address, value)});
}

using Faults = ExampleBoard;

TEST_F(Faults, AnAddressCanNakOrFailWithABusErrorUntilCleared)
{
    BusHandle bus(11);
    fail_address(11, 0x3f, ENXIO);
    errno = 0;
    EXPECT_EQ(-1, read_register0(bus, 0x3f));
    EXPECT_EQ(ENXIO, errno);
    clear_faults();
    fail_address(11, 0x3f, EIO);
    errno = 0;
    EXPECT_EQ(-1, read_register0(bus, 0x3f));
    EXPECT_EQ(EIO, errno);
    // Other devices and buses are not affected.
    BusHandle chassis(1);
    EXPECT_EQ(2, read_register0(chassis, 0x3f));
    clear_faults();
    EXPECT_EQ(2, read_register0(bus, 0x3f));

    EXPECT_THAT(wire_log(), ElementsAre(sent(11, 0x3f, {0x00}, false, ENXIO),
                                        sent(11, 0x3f, {0x00}, false, EIO),
                                        sent(1, 0x3f, {0x00}),
                                        received(1, 0x3f, {0x0e}, true),
                                        sent(11, 0x3f, {0x00}),
                                        received(11, 0x3f, {0x01}, true)));
}

TEST_F(Faults, ADeviceFaultHoldsOnEveryPathToIt)
{
    fail_address(16, 0x51, EIO);
    BusHandle parent(13);
    ASSERT_EQ(0, parent.bind(0x70));
    const uint8_t channel1 = 0x01;
    ASSERT_EQ(1, ::write(parent.fd(), &channel1, 1));
    errno = 0;
    EXPECT_EQ(-1, read_register0(parent, 0x51));
    EXPECT_EQ(EIO, errno);

    // A multiplexer that does not answer takes its channels with it.
    clear_faults();
    fail_address(13, 0x70, ENXIO);
    BusHandle channel4(19);
    errno = 0;
    EXPECT_EQ(-1, read_register0(channel4, 0x3f));
    EXPECT_EQ(ENXIO, errno);
    clear_faults();
    EXPECT_EQ(2, read_register0(channel4, 0x3f));
}

TEST_F(Faults, TheNthTransferFailsOnce)
{
    BusHandle bus(11);
    ASSERT_EQ(0, bus.bind(0x3f));
    fail_transfer(2, ETIMEDOUT);
    const uint8_t offset = 0;
    EXPECT_EQ(1, ::write(bus.fd(), &offset, 1));
    errno = 0;
    EXPECT_EQ(-1, ::write(bus.fd(), &offset, 1));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_EQ(1, ::write(bus.fd(), &offset, 1));

    // Counted message by message: the read of a combined request.
    clear_wire_log();
    fail_transfer(2, EAGAIN);
    errno = 0;
    EXPECT_EQ(-1, read_register0(bus, 0x3f));
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_THAT(wire_log(),
                ElementsAre(sent(11, 0x3f, {0x00}),
                            failed_read(11, 0x3f, 1, EAGAIN, true)));
    EXPECT_THROW(fail_transfer(0, EIO), std::invalid_argument);
}

} // namespace
} // namespace kv::sim::test

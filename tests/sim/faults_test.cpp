// SPDX-License-Identifier: Apache-2.0
// Injected faults: addresses that NAK or fail, and single failing transfers.
#include "sim_fixture.h"

namespace kv::sim::test
{
namespace
{

using Faults = ExampleBoard;

TEST_F(Faults, AnAddressCanNakOrFailWithABusErrorUntilCleared)
{
    BusHandle bus(11);
    fail_address(11, 0x3f, ENXIO);
    EXPECT_EQ(ENXIO, ERRNO_OF(read_register(bus, 0x3f)));
    clear_faults();
    fail_address(11, 0x3f, EIO);
    EXPECT_EQ(EIO, ERRNO_OF(read_register(bus, 0x3f)));
    // Other devices and buses are not affected.
    BusHandle chassis(1);
    EXPECT_EQ(2, read_register(chassis, 0x3f));
    clear_faults();
    EXPECT_EQ(2, read_register(bus, 0x3f));

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
    EXPECT_EQ(EIO, ERRNO_OF(read_register(parent, 0x51)));

    // A multiplexer that does not answer takes its channels with it.
    clear_faults();
    fail_address(13, 0x70, ENXIO);
    BusHandle channel4(19);
    EXPECT_EQ(ENXIO, ERRNO_OF(read_register(channel4, 0x3f)));
    clear_faults();
    EXPECT_EQ(2, read_register(channel4, 0x3f));
}

TEST_F(Faults, TheNthTransferFailsOnce)
{
    BusHandle bus(11);
    ASSERT_EQ(0, bus.bind(0x3f));
    fail_transfer(2, ETIMEDOUT);
    EXPECT_TRUE(send(bus, {0}));
    EXPECT_EQ(ETIMEDOUT, ERRNO_OF(::write(bus.fd(), "", 1)));
    EXPECT_TRUE(send(bus, {0}));

    // Counted message by message: the read of a combined request.
    clear_wire_log();
    fail_transfer(2, EAGAIN);
    EXPECT_EQ(EAGAIN, ERRNO_OF(read_register(bus, 0x3f)));
    EXPECT_THAT(wire_log(),
                ElementsAre(sent(11, 0x3f, {0x00}),
                            failed_read(11, 0x3f, 1, EAGAIN, true)));
    EXPECT_THROW(fail_transfer(0, EIO), std::invalid_argument);
}

} // namespace
} // namespace kv::sim::test

// SPDX-License-Identifier: Apache-2.0
// The device models: CPLD register file, 24-series EEPROMs and the PCA9546
// multiplexer with its channel buses.
#include "sim_fixture.h"

namespace kv::sim::test
{
namespace
{

using Cpld = ExampleBoard;

TEST_F(Cpld, RegisterPointerMovesOnAfterEveryByteAndWraps)
{
    BusHandle bus(11);
    ASSERT_EQ(0, bus.bind(0x3f));
    ASSERT_TRUE(send(bus, {0xfe, 0x11, 0x22, 0x33}));
    // The pointer stands after the last byte written.
    EXPECT_THAT(receive(bus, 2), ElementsAre(0x02, 0x00));
    ASSERT_TRUE(send(bus, {0xff}));
    EXPECT_THAT(receive(bus, 3), ElementsAre(0x22, 0x33, 0x02));
    EXPECT_THAT(receive(bus, 1), ElementsAre(0x00));

    const std::vector<uint8_t> registers = device_memory(11, 0x3f);
    ASSERT_EQ(256u, registers.size());
    EXPECT_EQ(0x11, registers[0xfe]);
    EXPECT_EQ(0x22, registers[0xff]);
    EXPECT_EQ(0x33, registers[0x00]);
    EXPECT_THROW(write_cycles(11, 0x3f), std::invalid_argument);
}

using Eeprom = ExampleBoard;

TEST_F(Eeprom, TwoByteAddressesGoHighByteFirstAndWrapWithinThePart)
{
    BusHandle bus(3);
    ASSERT_EQ(0, bus.bind(0x50));
    ASSERT_TRUE(send(bus, {0x1f, 0xff, 0xaa, 0xbb}));
    ASSERT_TRUE(send(bus, {0x1f, 0xff}));
    EXPECT_THAT(receive(bus, 3), ElementsAre(0xaa, 0xbb, 0x00));
    // 0x2005 lies beyond the 8 KiB part and lands on 5.
    ASSERT_TRUE(send(bus, {0x20, 0x05, 0x5a}));

    const std::vector<uint8_t> memory = device_memory(3, 0x50);
    ASSERT_EQ(8192u, memory.size());
    EXPECT_EQ(0xaa, memory[8191]);
    EXPECT_EQ(0xbb, memory[0]);
    EXPECT_EQ(0x5a, memory[5]);
    EXPECT_EQ(0xff, memory[8]); // erased
    // Setting the address alone is no write cycle.
    EXPECT_EQ(2u, write_cycles(3, 0x50));
}

TEST_F(Eeprom, OneByteAddressPartReadsOnAcrossItsEnd)
{
    BusHandle bus(2);
    ASSERT_EQ(0, bus.bind(0x50));
    ASSERT_TRUE(send(bus, {0xff, 0x77}));
    ASSERT_TRUE(send(bus, {0xfe}));
    EXPECT_THAT(receive(bus, 3), ElementsAre(0xff, 0x77, 0x01));
    EXPECT_EQ(256u, device_memory(2, 0x50).size());
    EXPECT_EQ(1u, write_cycles(2, 0x50));
}

TEST_F(Eeprom, ByteAccessThroughSmbusTransactions)
{
    // A 2-byte part: the word write carries high address, low address, value;
    // a byte-data write sets the address for the next byte read.
    BusHandle large(3);
    ASSERT_EQ(0, large.bind(0x50));
    EXPECT_EQ(0, i2c_smbus_write_word_data(large.fd(), 0x01, 0xab23));
    EXPECT_EQ(0, i2c_smbus_write_byte_data(large.fd(), 0x01, 0x23));
    EXPECT_EQ(0xab, i2c_smbus_read_byte(large.fd()));
    EXPECT_EQ(0xab, device_memory(3, 0x50)[0x0123]);

    // A 1-byte part: byte-data write, then a byte write of the address.
    BusHandle small(2);
    ASSERT_EQ(0, small.bind(0x50));
    EXPECT_EQ(0, i2c_smbus_write_byte_data(small.fd(), 0x10, 0x66));
    EXPECT_EQ(0, i2c_smbus_write_byte(small.fd(), 0x10));
    EXPECT_EQ(0x66, i2c_smbus_read_byte(small.fd()));

    EXPECT_THAT(wire_log(),
                testing::Contains(sent(3, 0x50, {0x01, 0x23, 0xab})));
    EXPECT_EQ(1u, write_cycles(3, 0x50));
    EXPECT_EQ(1u, write_cycles(2, 0x50));
}

using Multiplexer = ExampleBoard;

TEST_F(Multiplexer, ChannelBusEnablesItsChannelAlone)
{
    BusHandle channel4(19);
    ASSERT_EQ(0, channel4.bind(0x3f));
    ASSERT_TRUE(send(channel4, {0x00}));
    EXPECT_THAT(receive(channel4, 1), ElementsAre(0x08));
    EXPECT_EQ(0x08, mux_control(13, 0x70));

    BusHandle channel1(16);
    ASSERT_EQ(0, channel1.bind(0x51));
    ASSERT_TRUE(send(channel1, {0x00, 0x10, 0xc3}));
    EXPECT_EQ(0x01, mux_control(13, 0x70));
    EXPECT_EQ(0xc3, device_memory(16, 0x51)[0x10]);
    // The other channel is off now: its CPLD is gone from the parent bus.
    EXPECT_EQ(ENXIO, probe(BusHandle(13), 0x3f));
    EXPECT_EQ(sent(16, 0x51, {0x00, 0x10, 0xc3}), wire_log()[2]);
}

TEST_F(Multiplexer, ParentBusReachesTheChannelsItsControlRegisterEnables)
{
    set_device_memory(16, 0x51, 0x20, {0x5e});
    BusHandle parent(13);
    EXPECT_EQ(ENXIO, probe(parent, 0x51));

    ASSERT_EQ(0, parent.bind(0x70));
    // The channel selection sends 0x00 and then the channel bit.
    ASSERT_TRUE(send(parent, {0x00, 0x01}));
    EXPECT_THAT(receive(parent, 1), ElementsAre(0x01));
    ASSERT_EQ(0, parent.bind(0x51));
    ASSERT_TRUE(send(parent, {0x00, 0x20}));
    EXPECT_THAT(receive(parent, 1), ElementsAre(0x5e));
    EXPECT_EQ(ENXIO, probe(parent, 0x3f));

    ASSERT_EQ(0, parent.bind(0x70));
    ASSERT_TRUE(send(parent, {0x09}));
    EXPECT_EQ(0, probe(parent, 0x3f));
    EXPECT_EQ(0, probe(parent, 0x51));

    // Only four channel bits exist.
    ASSERT_EQ(0, parent.bind(0x70));
    ASSERT_TRUE(send(parent, {0x10}));
    EXPECT_EQ(0x00, mux_control(13, 0x70));
    EXPECT_THROW(device_memory(13, 0x70), std::invalid_argument);
}

} // namespace
} // namespace kv::sim::test

// SPDX-License-Identifier: Apache-2.0
// The device models (CPLD, 24-series EEPROMs, PCA9546) and the SMBus
// transactions libi2c sends, emulated as the kernel does on an I2C adapter.
#include "sim_fixture.h"

namespace kv::sim::test
{
namespace
{

using Models = ExampleBoard;

TEST_F(Models, CpldRegisterPointerMovesOnAfterEveryByteAndWraps)
{
    BusHandle bus(11);
    ASSERT_EQ(0, bus.bind(0x3f));
    ASSERT_TRUE(send(bus, {0xfe, 0x11, 0x22, 0x33}));
    EXPECT_THAT(receive(bus, 2), ElementsAre(0x02, 0x00));
    ASSERT_TRUE(send(bus, {0xff}));
    EXPECT_THAT(receive(bus, 3), ElementsAre(0x22, 0x33, 0x02));
    EXPECT_EQ(0x11, device_memory(11, 0x3f)[0xfe]);
    EXPECT_THROW(write_cycles(11, 0x3f), std::invalid_argument);
}

// Addresses go high byte first and wrap within the part; setting the
// address alone is no write cycle.
TEST_F(Models, EepromsAddressTheirWholePart)
{
    BusHandle large(3), small(2);
    ASSERT_EQ(0, large.bind(0x50) + small.bind(0x50));
    ASSERT_TRUE(send(large, {0x1f, 0xff, 0xaa, 0xbb}));
    ASSERT_TRUE(send(large, {0x1f, 0xff}));
    EXPECT_THAT(receive(large, 3), ElementsAre(0xaa, 0xbb, 0x00));
    ASSERT_TRUE(send(large, {0x20, 0x05, 0x5a}));
    EXPECT_EQ(0x5a, device_memory(3, 0x50)[5]);
    EXPECT_EQ(2u, write_cycles(3, 0x50));
    ASSERT_TRUE(send(small, {0xff, 0x77}));
    ASSERT_TRUE(send(small, {0xfe}));
    EXPECT_THAT(receive(small, 3), ElementsAre(0xff, 0x77, 0x01));
    EXPECT_EQ(1u, write_cycles(2, 0x50));
}

// A request on a channel's bus enables that channel alone; on the parent
// bus, the control register decides which channels answer.
TEST_F(Models, MultiplexerChannels)
{
    BusHandle channel4(19), channel1(16), parent(13);
    EXPECT_EQ(2, read_register(channel4, 0x3f));
    EXPECT_EQ(0x08, mux_control(13, 0x70));
    ASSERT_EQ(0, channel1.bind(0x51));
    ASSERT_TRUE(send(channel1, {0x00, 0x10, 0xc3}));
    EXPECT_EQ(0x01, mux_control(13, 0x70));
    EXPECT_EQ(ENXIO, probe(parent, 0x3f));
    EXPECT_EQ(0, probe(parent, 0x51));
    ASSERT_EQ(0, parent.bind(0x70));
    // Only the four channel bits exist; the last byte written holds.
    ASSERT_TRUE(send(parent, {0x02, 0x19}));
    EXPECT_THAT(receive(parent, 1), ElementsAre(0x09));
    EXPECT_EQ(0, probe(parent, 0x3f));
    EXPECT_EQ(0xc3, device_memory(16, 0x51)[0x10]);
    EXPECT_THROW(device_memory(13, 0x70), std::invalid_argument);

    const std::vector<BusInfo> all = buses();
    ASSERT_EQ(20u, all.size());
    EXPECT_EQ(-1, all[0].parent);
    EXPECT_TRUE(all[11].number == 19 && all[11].parent == 13 &&
                all[11].mux_address == 0x70 && all[11].channel == 4);
}

using Smbus = ExampleBoard;

TEST_F(Smbus, TransactionsGoOnTheWireAsTheKernelEmulatesThem)
{
    BusHandle bus(11);
    const int fd = bus.fd();
    ASSERT_EQ(0, bus.bind(0x3f));
    set_device_memory(11, 0x3f, 0x42, {0x78, 0x56});
    EXPECT_EQ(0x0201, i2c_smbus_read_word_data(fd, 0x00));
    EXPECT_EQ(0, i2c_smbus_write_byte_data(fd, 0x20, 0x5a));
    EXPECT_EQ(0, i2c_smbus_write_word_data(fd, 0x30, 0xbeef));
    EXPECT_EQ(0, i2c_smbus_write_byte(fd, 0x01));
    EXPECT_EQ(0x02, i2c_smbus_read_byte(fd));
    EXPECT_EQ(0, i2c_smbus_write_quick(fd, I2C_SMBUS_WRITE));
    EXPECT_EQ(0x5678, i2c_smbus_process_call(fd, 0x40, 0x1234));
    EXPECT_EQ(0x34, i2c_smbus_read_byte_data(fd, 0x40));
    EXPECT_THAT(
        wire_log(),
        ElementsAre(
            sent(11, 0x3f, {0x00}), received(11, 0x3f, {0x01, 0x02}, true),
            sent(11, 0x3f, {0x20, 0x5a}), sent(11, 0x3f, {0x30, 0xef, 0xbe}),
            sent(11, 0x3f, {0x01}), received(11, 0x3f, {0x02}),
            sent(11, 0x3f, {}), sent(11, 0x3f, {0x40, 0x34, 0x12}),
            received(11, 0x3f, {0x78, 0x56}, true), sent(11, 0x3f, {0x40}),
            received(11, 0x3f, {0x34}, true)));
}

TEST_F(Smbus, BlocksTakeTheirLengthFromTheDeviceOrTheCaller)
{
    BusHandle bus(11);
    const int fd = bus.fd();
    ASSERT_EQ(0, bus.bind(0x3f));
    const uint8_t data[] = {0x11, 0x22, 0x33};
    EXPECT_EQ(0, i2c_smbus_write_block_data(fd, 0x60, 2, data));
    EXPECT_EQ(0, i2c_smbus_write_i2c_block_data(fd, 0x70, 3, data));
    uint8_t block[I2C_SMBUS_BLOCK_MAX] = {};
    ASSERT_EQ(2, i2c_smbus_read_block_data(fd, 0x60, block));
    EXPECT_EQ(received(11, 0x3f, {2, 0x11, 0x22}, true), wire_log().back());
    EXPECT_EQ(2, i2c_smbus_read_i2c_block_data(fd, 0x71, 2, block));
    EXPECT_THAT(std::vector(block, block + 3), ElementsAre(0x22, 0x33, 0));
    // The old i2c block request always reads a full block.
    i2c_smbus_data full{};
    EXPECT_EQ(0, i2c_smbus_access(fd, I2C_SMBUS_READ, 0x70,
                                  I2C_SMBUS_I2C_BLOCK_BROKEN, &full));
    EXPECT_EQ(I2C_SMBUS_BLOCK_MAX, full.block[0]);
    EXPECT_EQ(0x33, full.block[3]);
    for (uint8_t bad_length : {0, I2C_SMBUS_BLOCK_MAX + 1})
    {
        set_device_memory(11, 0x3f, 0x60, {bad_length});
        EXPECT_EQ(-EPROTO, i2c_smbus_read_block_data(fd, 0x60, block));
    }
}

TEST_F(Smbus, MalformedOrUnofferedTransactionsAreRefusedUnsent)
{
    BusHandle bus(11);
    const int fd = bus.fd();
    ASSERT_EQ(0, bus.bind(0x3f));
    i2c_smbus_data data{};
    data.block[0] = I2C_SMBUS_BLOCK_MAX + 1;
    const int refused[][3] = {
        {I2C_SMBUS_WRITE, I2C_SMBUS_BLOCK_DATA, EINVAL},
        {I2C_SMBUS_READ, I2C_SMBUS_I2C_BLOCK_DATA, EINVAL},
        {I2C_SMBUS_READ, 99, EINVAL},
        {2, I2C_SMBUS_BYTE, EINVAL},
        {I2C_SMBUS_WRITE, I2C_SMBUS_BLOCK_PROC_CALL, EOPNOTSUPP}};
    for (const auto& [direction, size, error] : refused)
    {
        EXPECT_EQ(-error, i2c_smbus_access(fd, direction, 0, size, &data));
    }
    EXPECT_EQ(-EINVAL, i2c_smbus_access(fd, I2C_SMBUS_READ, 0,
                                        I2C_SMBUS_BYTE_DATA, nullptr));
    EXPECT_TRUE(wire_log().empty());
}

} // namespace
} // namespace kv::sim::test

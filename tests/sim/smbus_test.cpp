// SPDX-License-Identifier: Apache-2.0
// SMBus transactions as libi2c sends them (I2C_SMBUS), emulated the way the
// kernel does it on a plain I2C adapter.
#include "sim_fixture.h"

#include <optional>

namespace kv::sim::test
{
namespace
{

using testing::ElementsAreArray;

class Smbus : public ExampleBoard
{
  protected:
    void SetUp() override
    {
        ExampleBoard::SetUp();
        cpld_.emplace(11);
        ASSERT_EQ(0, cpld_->bind(0x3f));
    }
    void TearDown() override
    {
        cpld_.reset(); // closed before the board checks for open buses
        ExampleBoard::TearDown();
    }
    int fd() const
    {
        return cpld_->fd();
    }
    std::optional<BusHandle> cpld_;
};

std::vector<uint8_t> registers(std::size_t from, std::size_t count)
{
    const std::vector<uint8_t> all = device_memory(11, 0x3f);
    return {all.begin() + from, all.begin() + from + count};
}

TEST_F(Smbus, ByteWordAndCallTransactionsGoOnTheWireAsTheKernelEmulatesThem)
{
    set_device_memory(11, 0x3f, 0x42, {0x78, 0x56});
    EXPECT_EQ(0x01, i2c_smbus_read_byte_data(fd(), 0x00));
    EXPECT_EQ(0x0201, i2c_smbus_read_word_data(fd(), 0x00));
    EXPECT_EQ(0, i2c_smbus_write_byte_data(fd(), 0x20, 0x5a));
    EXPECT_EQ(0, i2c_smbus_write_word_data(fd(), 0x30, 0xbeef));
    EXPECT_EQ(0, i2c_smbus_write_byte(fd(), 0x01));
    EXPECT_EQ(0x02, i2c_smbus_read_byte(fd()));
    EXPECT_EQ(0, i2c_smbus_write_quick(fd(), I2C_SMBUS_WRITE));
    EXPECT_EQ(0x5678, i2c_smbus_process_call(fd(), 0x40, 0x1234));

    EXPECT_EQ(0x5a, registers(0x20, 1)[0]);
    EXPECT_THAT(registers(0x30, 2), ElementsAre(0xef, 0xbe));
    EXPECT_THAT(registers(0x40, 2), ElementsAre(0x34, 0x12));
    EXPECT_THAT(
        wire_log(),
        ElementsAre(
            sent(11, 0x3f, {0x00}), received(11, 0x3f, {0x01}, true),
            sent(11, 0x3f, {0x00}), received(11, 0x3f, {0x01, 0x02}, true),
            sent(11, 0x3f, {0x20, 0x5a}), sent(11, 0x3f, {0x30, 0xef, 0xbe}),
            sent(11, 0x3f, {0x01}), received(11, 0x3f, {0x02}),
            sent(11, 0x3f, {}), sent(11, 0x3f, {0x40, 0x34, 0x12}),
            received(11, 0x3f, {0x78, 0x56}, true)));
}

TEST_F(Smbus, BlockReadTakesItsLengthFromTheDevice)
{
    set_device_memory(11, 0x3f, 0x50, {3, 0xa1, 0xa2, 0xa3, 0xa4});
    uint8_t block[I2C_SMBUS_BLOCK_MAX] = {};
    ASSERT_EQ(3, i2c_smbus_read_block_data(fd(), 0x50, block));
    EXPECT_THAT(std::vector<uint8_t>(block, block + 4),
                ElementsAre(0xa1, 0xa2, 0xa3, 0));
    EXPECT_EQ(received(11, 0x3f, {3, 0xa1, 0xa2, 0xa3}, true),
              wire_log().back());

    for (uint8_t bad_length : {0, I2C_SMBUS_BLOCK_MAX + 1})
    {
        set_device_memory(11, 0x3f, 0x60, {bad_length});
        EXPECT_EQ(-EPROTO, i2c_smbus_read_block_data(fd(), 0x60, block))
            << int{bad_length};
    }
}

TEST_F(Smbus, BlockWritesAndI2cBlocks)
{
    const uint8_t data[] = {0x11, 0x22, 0x33};
    EXPECT_EQ(0, i2c_smbus_write_block_data(fd(), 0x60, 2, data));
    EXPECT_THAT(registers(0x60, 3), ElementsAre(2, 0x11, 0x22));
    EXPECT_EQ(0, i2c_smbus_write_i2c_block_data(fd(), 0x70, 3, data));
    EXPECT_THAT(registers(0x70, 3), ElementsAreArray(data));

    uint8_t back[I2C_SMBUS_BLOCK_MAX] = {};
    EXPECT_EQ(2, i2c_smbus_read_i2c_block_data(fd(), 0x71, 2, back));
    EXPECT_THAT(std::vector<uint8_t>(back, back + 3),
                ElementsAre(0x22, 0x33, 0));

    // The old i2c block request always reads a full block.
    i2c_smbus_data full{};
    EXPECT_EQ(0, i2c_smbus_access(fd(), I2C_SMBUS_READ, 0x70,
                                  I2C_SMBUS_I2C_BLOCK_BROKEN, &full));
    EXPECT_EQ(I2C_SMBUS_BLOCK_MAX, full.block[0]);
    EXPECT_EQ(0x11, full.block[1]);
    EXPECT_EQ(std::size_t{I2C_SMBUS_BLOCK_MAX}, wire_log().back().length);
}

TEST_F(Smbus, MalformedTransactionsAreRefusedUnsent)
{
    i2c_smbus_data data{};
    data.block[0] = I2C_SMBUS_BLOCK_MAX + 1;
    EXPECT_EQ(-EINVAL, i2c_smbus_access(fd(), I2C_SMBUS_WRITE, 0,
                                        I2C_SMBUS_BLOCK_DATA, &data));
    EXPECT_EQ(-EINVAL, i2c_smbus_access(fd(), I2C_SMBUS_READ, 0,
                                        I2C_SMBUS_I2C_BLOCK_DATA, &data));
    EXPECT_EQ(-EINVAL, i2c_smbus_access(fd(), I2C_SMBUS_READ, 0, 99, &data));
    EXPECT_EQ(-EINVAL, i2c_smbus_access(fd(), 2, 0, I2C_SMBUS_BYTE, &data));
    EXPECT_EQ(-EINVAL, i2c_smbus_access(fd(), I2C_SMBUS_READ, 0,
                                        I2C_SMBUS_BYTE_DATA, nullptr));
    // Not offered by the adapter.
    EXPECT_EQ(-EOPNOTSUPP, i2c_smbus_access(fd(), I2C_SMBUS_WRITE, 0,
                                            I2C_SMBUS_BLOCK_PROC_CALL, &data));
    EXPECT_TRUE(wire_log().empty());
}

TEST_F(Smbus, AbsentDevicesNak)
{
    ASSERT_EQ(0, ::ioctl(fd(), I2C_SLAVE, 0x20));
    EXPECT_EQ(-ENXIO, i2c_smbus_write_quick(fd(), I2C_SMBUS_WRITE));
    EXPECT_EQ(-ENXIO, i2c_smbus_read_byte_data(fd(), 0));
    EXPECT_THAT(wire_log(), ElementsAre(sent(11, 0x20, {}, false, ENXIO),
                                        sent(11, 0x20, {0}, false, ENXIO)));
}

} // namespace
} // namespace kv::sim::test

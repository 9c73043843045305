// SPDX-License-Identifier: Apache-2.0
// Raw transfers, bus probes and the multiplexer channel lookup on the
// aspeed I2C adapters, checked against what the kernel's own drivers see.
#include "foundation/resources.h"
#include "guest.h"

#include <libkv/hw.h>

#include <cerrno>
#include <filesystem>

namespace
{

using namespace kv::bmc;
using kv::detail::UniqueFd;

TEST(RawTransfers, TwoByteOffsetsLandWhereTheEepromDriverReadsThem)
{
    UniqueFd bus(i2c_open(kPlainBus));
    ASSERT_TRUE(bus);
    const std::vector<uint8_t> ours = pattern(16, 0x11);
    // The part behind at24 is the witness: the driver addresses cells its
    // own way, so a swapped or short offset shows as other bytes.
    ASSERT_EQ(1, i2c_write_data(bus.get(), kDriverEeprom, 0x1234, 2,
                                ours.data(), 16));
    EXPECT_EQ(ours, read_driver_eeprom(client_name(kPlainBus, kDriverEeprom),
                                       0x1234, 16));

    const std::vector<uint8_t> theirs = pattern(32, 0x40);
    ASSERT_TRUE(write_driver_eeprom(client_name(kPlainBus, kDriverEeprom),
                                    0x3412, theirs));
    std::vector<uint8_t> read(32);
    EXPECT_EQ(
        2, i2c_read_data(bus.get(), kDriverEeprom, 0x3412, 2, read.data(), 32));
    EXPECT_EQ(theirs, read);
}

TEST(RawTransfers, LongestTransferAndAbsentDevice)
{
    UniqueFd bus(i2c_open(kPlainBus));
    ASSERT_TRUE(bus);
    const std::vector<uint8_t> full = pattern(253, 0x05);
    ASSERT_EQ(
        1, i2c_write_data(bus.get(), kBareEeprom, 0x0100, 2, full.data(), 253));
    std::vector<uint8_t> read(253);
    EXPECT_EQ(
        2, i2c_read_data(bus.get(), kBareEeprom, 0x0100, 2, read.data(), 253));
    EXPECT_EQ(full, read);

    errno = 0;
    EXPECT_LT(i2c_read_data(bus.get(), kNobody, 0, 2, read.data(), 4), 0);
    EXPECT_EQ(ENXIO, errno) << "a NAK from the aspeed adapter";
    errno = 0;
    EXPECT_LT(i2c_write_data(bus.get(), kNobody, 0, 2, full.data(), 4), 0);
    EXPECT_EQ(ENXIO, errno);
}

TEST(BusProbe, AnswersForPartsWithAndWithoutADriver)
{
    UniqueFd bus(i2c_open(kPlainBus));
    ASSERT_TRUE(bus);
    EXPECT_EQ(1, check_slave_active(bus.get(), kBareEeprom));
    EXPECT_EQ(0, check_slave_active(bus.get(), kNobody));
    // The probe binds each address with I2C_SLAVE, which the kernel refuses
    // (EBUSY) for an address a driver holds.
    EXPECT_EQ(0, check_slave_active(bus.get(), kDriverEeprom));
}

TEST(MuxChannelBus, KernelLogNamesEveryChannelsAdapter)
{
    ASSERT_FALSE(std::filesystem::exists("/var/run/obmcinfo/i2c"));
    for (int channel = 0; channel < 4; ++channel)
    {
        const int expected = kernel_channel_bus(channel);
        ASSERT_GT(expected, 0) << "channel " << channel;
        EXPECT_EQ(expected, CmmFunGetI2CExtBus(kMuxBus, channel + 1))
            << "channel " << channel;
    }
    EXPECT_TRUE(std::filesystem::exists("/var/run/obmcinfo/i2c_dmesg"));
}

} // namespace

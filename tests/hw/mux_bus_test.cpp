// SPDX-License-Identifier: Apache-2.0
// Bus numbers of multiplexer channels: a map file, else the i2c lines of the
// kernel log, captured once.
#include "hw_test.h"

using namespace kv::hw::test;
namespace
{

using ChannelBus = SimBoard;

const std::string capture = "/var/run/obmcinfo/i2c_dmesg";

// "i2c-13" also matches the i2c-130 line, "i2c-1" the i2c-13 lines.
constexpr const char* kernel_lines =
    "[    0.912345] i2c_dev: i2c /dev entries driver\n"
    "[    1.204511] aspeed-i2c-bus 1e78a080.i2c-bus: i2c bus 1 registered\n"
    "[    1.310000] i2c i2c-1: new_device: Instantiated device 24c02 at 0x50\n"
    "[    2.345678] i2c i2c-13: Added multiplexed i2c bus 16\n"
    "[    2.345701] i2c i2c-13: Added multiplexed i2c bus 17\n"
    "[    2.345722] i2c i2c-13: Added multiplexed i2c bus 18\n"
    "[    2.345744] i2c i2c-13: Added multiplexed i2c bus 19\n"
    "[    2.345790] pca954x 13-0070: registered 4 multiplexed busses for I2C "
    "switch pca9546\n"
    "[    2.501234] i2c i2c-130: Added multiplexed i2c bus 134\n";

TEST_F(ChannelBus, MapFileFirstThenTheNumberAfterBusOnLineChannel)
{
    write_text(capture, kernel_lines);
    write_text("/var/run/obmcinfo/i2c/i2c-13-2", "33\n");
    EXPECT_EQ(33, CmmFunGetI2CExtBus(13, 2));
    EXPECT_EQ(16, CmmFunGetI2CExtBus(13, 1));
    EXPECT_EQ(19, CmmFunGetI2CExtBus(13, 4));
    EXPECT_EQ(134, CmmFunGetI2CExtBus(13, 5));
    EXPECT_EQ(0, CmmFunGetI2CExtBus(13, 6));
    EXPECT_EQ(0, CmmFunGetI2CExtBus(1, 1)); // "Instantiated device" -> 0
    EXPECT_EQ(17, CmmFunGetI2CExtBus(1, 3));
    EXPECT_EQ(0, CmmFunGetI2CExtBus(7, 1));
}

TEST_F(ChannelBus, KernelLogIsCapturedOnceAndReused)
{
    // Without its directory no capture can be made: no line, bus 0.
    EXPECT_EQ(0, CmmFunGetI2CExtBus(13, 1));
    EXPECT_FALSE(read_text(capture));

    kv::test::make_dirs("/var/run/obmcinfo");
    CmmFunGetI2CExtBus(13, 1);
    EXPECT_TRUE(read_text(capture)); // empty when the log is hidden
    write_text(capture, kernel_lines);
    EXPECT_EQ(18, CmmFunGetI2CExtBus(13, 3));
    EXPECT_EQ(kernel_lines, read_text(capture));
}

} // namespace

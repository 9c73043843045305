// SPDX-License-Identifier: Apache-2.0
// The I2C transfer layer on the simulated board: the bytes of each transfer
// shape, the bus probe, plain transfers with retries, the PCA9546 switch.
#include "hw_test.h"

using namespace kv::hw::test;
namespace
{

using I2c = SimBoard;

TEST_F(I2c, ReadsWriteTheOffsetThenReadAfterARepeatedStart)
{
    BusHandle cpld(11);
    BusHandle fru(3);
    set_device_memory(3, 0x50, 0x1234, {0xDE, 0xAD});
    std::vector<uint8_t> buf(254, 0xAA);
    EXPECT_EQ(2, i2c_read_data(cpld.fd(), 0x3f, 0x101, 1, buf.data(), 1));
    EXPECT_EQ(2, i2c_read_data(fru.fd(), 0x50, 0x1234, 2, buf.data() + 1, 2));
    EXPECT_THAT(std::vector(buf.begin(), buf.begin() + 3),
                ElementsAre(0x02, 0xDE, 0xAD));
    EXPECT_EQ(2, i2c_read_data(cpld.fd(), 0x3f, 0x55, 0, buf.data(), 1));
    const auto log = wire_log();
    ASSERT_EQ(6u, log.size());
    EXPECT_EQ(sent(11, 0x3f, {0x01}), log[0]); // the low byte only
    EXPECT_EQ(received(11, 0x3f, {0x02}, true), log[1]);
    EXPECT_EQ(sent(3, 0x50, {0x12, 0x34}), log[2]);
    EXPECT_EQ(received(3, 0x50, {0xDE, 0xAD}, true), log[3]);
    EXPECT_EQ(sent(11, 0x3f, {}), log[4]);
    EXPECT_TRUE(log[5].read && log[5].repeated_start && log[5].length == 1);

    clear_wire_log();
    EXPECT_EQ(-1, i2c_read_data(cpld.fd(), 0x3f, 0, 1, buf.data(), 254));
    EXPECT_THAT(wire_log(), IsEmpty());
    EXPECT_EQ(2, i2c_read_data(cpld.fd(), 0x3f, 0, 1, buf.data(), 253));
    EXPECT_EQ(253u, wire_log().at(1).length);

    // The offset goes out, the read fails: the caller gets zeros.
    std::fill(buf.begin(), buf.end(), 0xAA);
    fail_transfer(2, EIO);
    EXPECT_EQ(-1, i2c_read_data(cpld.fd(), 0x3f, 0x00, 1, buf.data(), 4));
    EXPECT_THAT(std::vector(buf.begin(), buf.begin() + 5),
                ElementsAre(0, 0, 0, 0, 0xAA));
}

TEST_F(I2c, WritesAreOneMessageOfOffsetAndData)
{
    BusHandle cpld(11);
    BusHandle fru(3);
    const uint8_t data[254] = {0x0A, 0x0B};
    uint8_t value = 0;
    EXPECT_EQ(1, i2c_write_data(cpld.fd(), 0x3f, 0x20, 1, data, 2));
    EXPECT_EQ(1, i2c_write_data(fru.fd(), 0x50, 0x0200, 2, data, 1));
    EXPECT_EQ(1, i2c_write_data(cpld.fd(), 0x3f, 0x99, 0, data, 2));
    EXPECT_EQ(-1, i2c_write_data(cpld.fd(), 0x3f, 0, 1, data, 254));
    EXPECT_EQ(1, i2c_rw_data(cpld.fd(), 0x3f, data, 2, nullptr, 0));
    EXPECT_EQ(2, i2c_rw_data(cpld.fd(), 0x3f, data, 1, &value, 1));
    EXPECT_EQ(-1, i2c_rw_data(cpld.fd(), 0x3f, nullptr, 1, &value, 1));
    EXPECT_EQ(-1, i2c_rw_data(cpld.fd(), 0x3f, data, 0, &value, 1));
    EXPECT_EQ(-1, i2c_rw_data(cpld.fd(), 0x3f, data, 1, nullptr, 1));
    EXPECT_EQ(0x0B, value);
    EXPECT_THAT(wire_log(), ElementsAre(sent(11, 0x3f, {0x20, 0x0A, 0x0B}),
                                        sent(3, 0x50, {0x02, 0x00, 0x0A}),
                                        sent(11, 0x3f, {0x0A, 0x0B}),
                                        sent(11, 0x3f, {0x0A, 0x0B}),
                                        sent(11, 0x3f, {0x0A}),
                                        received(11, 0x3f, {0x0B}, true)));
    EXPECT_EQ(0x0A, device_memory(3, 0x50)[0x200]);
}

TEST_F(I2c, ProbeScansAllAddressesOnEveryCall)
{
    BusHandle chassis(1);
    EXPECT_EQ(1, check_slave_active(chassis.fd(), 0x3f));
    const auto log = wire_log();
    ASSERT_EQ(128u, log.size());
    for (unsigned address = 0; address < 128; ++address)
    {
        EXPECT_EQ(sent(1, address, {}, false, address == 0x3f ? 0 : ENXIO),
                  log[address]);
    }
    EXPECT_EQ(0, check_slave_active(chassis.fd(), 0x50));
    EXPECT_EQ(-1, check_slave_active(0, 0x3f));
    EXPECT_EQ(256u, wire_log().size());
}

TEST_F(I2c, SendRecvMakesPlainTransfersWithRetries)
{
    const uint8_t offset[] = {0x00};
    uint8_t version[2] = {};
    EXPECT_EQ(0, i2cSendRecvMsg(0, 11, 0x3f, offset, 1, version, 2, 3, 0));
    EXPECT_THAT(version, ElementsAre(0x01, 0x02));
    EXPECT_THAT(wire_log(), ElementsAre(sent(11, 0x3f, {0x00}),
                                        received(11, 0x3f, {0x01, 0x02})));
    fail_transfer(1, EIO); // only the last operation of an attempt counts
    EXPECT_EQ(0, i2cSendRecvMsg(0, 11, 0x3f, offset, 1, version, 2, 3, 0));
    EXPECT_EQ(4u, wire_log().size());

    clear_wire_log();
    fail_address(11, 0x3f, ENXIO);
    EXPECT_EQ(-2, i2cSendRecvMsg(0, 11, 0x3f, offset, 1, nullptr, 0, 4, 0));
    EXPECT_EQ(4u, wire_log().size());
    EXPECT_EQ(-2, i2cSendRecvMsg(0, 11, 0x3f, offset, 1, version, 2, 3, 0));
    EXPECT_EQ(10u, wire_log().size());
    clear_faults();
    EXPECT_EQ(-2, i2cSendRecvMsg(0, 11, 0x3f, offset, 1, version, 2, 0, 0));
    EXPECT_EQ(0, i2cSendRecvMsg(0, 11, 0x3f, nullptr, 0, nullptr, 0, 1, 0));
    EXPECT_EQ(10u, wire_log().size());
    EXPECT_EQ(-1, i2cSendRecvMsg(0, 40, 0x3f, offset, 1, nullptr, 0, 3, 0));
}

TEST_F(I2c, Pca9546EnablesOneChannelOrNone)
{
    EXPECT_EQ(0, set_9546switch(13, 0x70, 2));
    EXPECT_EQ(0x02, mux_control(13, 0x70));
    EXPECT_EQ(0, set_9546switch(13, 0x70, 0));
    EXPECT_EQ(0, set_9546switch(13, 0x70, 9));
    EXPECT_EQ(0x00, mux_control(13, 0x70));
    EXPECT_THAT(wire_log(), ElementsAre(sent(13, 0x70, {0x00, 0x02}),
                                        sent(13, 0x70, {0x00, 0x00}),
                                        sent(13, 0x70, {0x00, 0x00})));
    fail_address(13, 0x70, ENXIO);
    EXPECT_EQ(-2, set_9546switch(13, 0x70, 1));
    EXPECT_EQ(6u, wire_log().size());
}

} // namespace

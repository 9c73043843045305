// SPDX-License-Identifier: Apache-2.0
// Data transfers through the i2c-dev interface: plain read() and write() to
// the bound address, and combined I2C_RDWR requests.
#include "sim_fixture.h"

namespace kv::sim::test
{
namespace
{

using PlainTransfers = ExampleBoard;

// Unbound, a descriptor addresses 0, where nothing answers; an empty write
// probes.
TEST_F(PlainTransfers, BoundAddressIsWrittenAndReadWithStopsBetween)
{
    BusHandle bus(11);
    uint8_t byte = 0x55;
    EXPECT_EQ(ENXIO, ERRNO_OF(::read(bus.fd(), &byte, 1)));
    ASSERT_EQ(0, bus.bind(0x3f));
    EXPECT_TRUE(send(bus, {0x10, 0xaa, 0xbb}));
    EXPECT_TRUE(send(bus, {0x10}));
    EXPECT_THAT(receive(bus, 2), ElementsAre(0xaa, 0xbb));
    EXPECT_EQ(0xbb, device_memory(11, 0x3f)[0x11]);
    EXPECT_EQ(0, probe(bus, 0x3f));
    EXPECT_EQ(ENXIO, probe(bus, 0x20));
    EXPECT_EQ(ENXIO, ERRNO_OF(::read(bus.fd(), &byte, 1)));
    EXPECT_EQ(0x55, byte);

    EXPECT_THAT(wire_log(), ElementsAre(failed_read(11, 0x00, 1, ENXIO),
                                        sent(11, 0x3f, {0x10, 0xaa, 0xbb}),
                                        sent(11, 0x3f, {0x10}),
                                        received(11, 0x3f, {0xaa, 0xbb}),
                                        sent(11, 0x3f, {}),
                                        sent(11, 0x20, {}, false, ENXIO),
                                        failed_read(11, 0x20, 1, ENXIO)));
}

using CombinedTransfers = ExampleBoard;

// A write then a read is one request with a repeated start; the first
// failing message ends a request, which then hands back no read data.
TEST_F(CombinedTransfers, MessagesFollowEachOtherUntilTheFirstFailure)
{
    uint8_t presence = 0;
    EXPECT_EQ(2, read_register(BusHandle(5), 0x3f, 0x19, &presence));
    EXPECT_EQ(0xfe, presence);

    BusHandle bus(11);
    std::vector<uint8_t> offset{0x00};
    std::vector<uint8_t> first(1, 0x55);
    std::vector<uint8_t> absent(1, 0x55);
    std::vector<uint8_t> last(1, 0x55);
    EXPECT_EQ(ENXIO, ERRNO_OF(combined(bus.fd(), {write_message(0x3f, offset),
                                                  read_message(0x3f, first),
                                                  read_message(0x20, absent),
                                                  read_message(0x3f, last)})));
    EXPECT_THAT(first, ElementsAre(0x55));
    EXPECT_THAT(wire_log(), ElementsAre(sent(5, 0x3f, {0x19}),
                                        received(5, 0x3f, {0xfe}, true),
                                        sent(11, 0x3f, {0x00}),
                                        received(11, 0x3f, {0x01}, true),
                                        failed_read(11, 0x20, 1, ENXIO, true)));
}

TEST_F(CombinedTransfers, RequestsBeyondTheDriversLimitsAreRefusedUnsent)
{
    BusHandle bus(3);
    std::vector<uint8_t> byte(1);
    EXPECT_EQ(42, combined(bus.fd(),
                           std::vector<i2c_msg>(42, read_message(0x50, byte))));
    clear_wire_log();

    for (std::size_t count : {std::size_t{0}, std::size_t{43}})
    {
        EXPECT_EQ(EINVAL, ERRNO_OF(combined(
                              bus.fd(), std::vector<i2c_msg>(
                                            count, read_message(0x50, byte)))))
            << count;
    }
    std::vector<uint8_t> too_long(8193);
    EXPECT_EQ(EINVAL,
              ERRNO_OF(combined(bus.fd(), {read_message(0x50, byte),
                                           read_message(0x50, too_long)})));
    i2c_rdwr_ioctl_data no_messages{nullptr, 1};
    EXPECT_EQ(EINVAL, ERRNO_OF(::ioctl(bus.fd(), I2C_RDWR, &no_messages)));
    EXPECT_TRUE(wire_log().empty());

    std::vector<uint8_t> whole(8192);
    EXPECT_EQ(1, combined(bus.fd(), {read_message(0x50, whole)}));
}

TEST(RemovedFunctions, BusesOfferOnlyWhatTheBoardLeavesThem)
{
    load_board(write_board(R"({"buses": [
        {"bus": 7, "without": ["smbus_write_word_data"], "devices": [
            {"type": "eeprom", "address": 80, "size": 256},
            {"type": "pca9546", "address": "0x70",
             "channels": [20, 21, 22, 23]}]},
        {"bus": 8, "without": ["i2c"], "devices": [
            {"type": "cpld", "address": "0x3f", "bytes": {"2": 9}}]}]})"));
    for (int number : {7, 20})
    {
        BusHandle bus(number);
        unsigned long functions = 0;
        ASSERT_EQ(0, ::ioctl(bus.fd(), I2C_FUNCS, &functions));
        EXPECT_EQ(0u, functions & I2C_FUNC_SMBUS_WRITE_WORD_DATA) << number;
        EXPECT_NE(0u, functions & I2C_FUNC_SMBUS_WRITE_BYTE_DATA) << number;
    }
    BusHandle eeprom_bus(7);
    ASSERT_EQ(0, eeprom_bus.bind(0x50));
    EXPECT_EQ(-EOPNOTSUPP, i2c_smbus_write_word_data(eeprom_bus.fd(), 0, 1));
    EXPECT_EQ(0, i2c_smbus_write_byte_data(eeprom_bus.fd(), 0, 1));

    BusHandle smbus_only(8);
    ASSERT_EQ(0, smbus_only.bind(0x3f));
    EXPECT_EQ(EOPNOTSUPP, ERRNO_OF(read_register(smbus_only, 0x3f, 2)));
    uint8_t byte = 0;
    EXPECT_EQ(EOPNOTSUPP, ERRNO_OF(::read(smbus_only.fd(), &byte, 1)));
    EXPECT_EQ(9, i2c_smbus_read_byte_data(smbus_only.fd(), 0x02));
}

} // namespace
} // namespace kv::sim::test

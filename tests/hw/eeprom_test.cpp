// SPDX-License-Identifier: Apache-2.0
// EEPROMs through the real libi2c SMBus calls on the simulated board.
#include "hw_test.h"

using namespace kv::hw::test;
namespace
{

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using Eeprom = SimBoard;

TEST_F(Eeprom, WordAddressedPartSeesHighLowAddressThenValue)
{
    capture_sleeps(true);
    const char* dev = "/dev/i2c-3";
    eeprom e{};
    ASSERT_EQ(0, eeprom_open(dev, 0x50, 2, &e));
    EXPECT_TRUE(e.dev == dev && e.addr == 0x50 && e.type == 2 && e.fd > 0);
    EXPECT_EQ(0, eeprom_write_byte(&e, 0x0123, 0xAB));
    EXPECT_EQ(0xAB, device_memory(3, 0x50)[0x123]);
    EXPECT_EQ(0xAB, eeprom_read_byte(&e, 0x0123));
    EXPECT_EQ(0x01, eeprom_read_byte(&e, 0x0000));
    EXPECT_EQ(0x00, eeprom_read_current_byte(&e));
    EXPECT_THAT(wire_log(),
                ElementsAre(sent(3, 0x50, {0x01, 0x23, 0xAB}),
                            sent(3, 0x50, {0x01, 0x23}),
                            received(3, 0x50, {0xAB}), sent(3, 0x50, {0, 0}),
                            received(3, 0x50, {0x01}),
                            received(3, 0x50, {0x00})));
    EXPECT_EQ(std::vector<long long>(3, 5000), recorded_sleeps());
    EXPECT_EQ(0, eeprom_close(&e));
    EXPECT_TRUE(e.fd == -1 && e.dev == nullptr && e.type == 0);
}

TEST_F(Eeprom, ByteAddressedPartFailuresAndUnknownTypes)
{
    capture_sleeps(true);
    eeprom e{};
    ASSERT_EQ(0, eeprom_open("/dev/i2c-2", 0x50, 1, &e));
    EXPECT_EQ(0, eeprom_write_byte(&e, 0x0110, 0x5A));
    EXPECT_EQ(0x5A, eeprom_read_byte(&e, 0x10));
    EXPECT_THAT(wire_log(),
                ElementsAre(sent(2, 0x50, {0x10, 0x5A}), sent(2, 0x50, {0x10}),
                            received(2, 0x50, {0x5A})));

    // A failed address write is reported and paused after, nothing is read.
    clear_wire_log();
    clear_sleeps();
    fail_address(2, 0x50, ENXIO);
    CaptureStderr();
    EXPECT_EQ(-ENXIO, eeprom_read_byte(&e, 0x10));
    EXPECT_EQ(-ENXIO, eeprom_write_byte(&e, 0x10, 1));
    EXPECT_EQ("Error i2c_write_1b: No such device or address\n"
              "Error i2c_write_2b: No such device or address\n",
              GetCapturedStderr());
    EXPECT_EQ(2u, wire_log().size());
    EXPECT_EQ(std::vector<long long>(2, 5000), recorded_sleeps());

    e.type = 3;
    CaptureStderr();
    EXPECT_EQ(-1, eeprom_read_byte(&e, 0x10));
    EXPECT_EQ(-1, eeprom_write_byte(&e, 0x10, 1));
    EXPECT_EQ("ERR: unknown eeprom type\nERR: unknown eeprom type\n",
              GetCapturedStderr());
    EXPECT_EQ(2u, wire_log().size());
    eeprom_close(&e);
    EXPECT_EQ(-1, eeprom_open("/tmp/no-such-bus", 0x50, 1, &e));
}

TEST_F(Eeprom, AdapterWithoutACapabilityEndsTheProcess)
{
    load_board(kv::sim::test::write_board(R"({"buses": [{"bus": 3,
        "without": ["smbus_write_word_data", "smbus_read_byte_data"],
        "devices": [{"type": "eeprom", "address": "0x50", "size": 256}]}]})"));
    eeprom e{};
    EXPECT_EXIT(eeprom_open("/dev/i2c-3", 0x50, 2, &e),
                testing::ExitedWithCode(1),
                testing::Eq("\nError: I2C_FUNC_SMBUS_READ_BYTE_DATA function "
                            "is required. Program halted.\n\n"));
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// I2C transfers, the bus probe, the PCA9546 switch, channel requests and the
// bus numbers of multiplexer channels on the example board.
#include "hw_test.h"

#include <libkv/ipc.h>

using namespace kv::hw::test;
namespace
{

// Transfers put the offset bytes first.
TEST_F(SimBoard, Transfers)
{
    BusHandle cpld(11);
    BusHandle fru(3);
    const int fd = cpld.fd();
    set_device_memory(3, 0x50, 0x1234, {0xDE, 0xAD});
    uint8_t buf[254] = {};
    const uint8_t data[254] = {0x0A, 0x0B};
    EXPECT_THAT(
        std::vector({i2c_read_data(fd, 0x3f, 0, 1, buf, 254),
                     i2c_read_data(fd, 0x3f, 0, 3, buf, 1),
                     i2c_write_data(fd, 0x3f, 0, 1, data, 254),
                     i2c_write_data(fd, 0x3f, 0, -1, data, 1),
                     i2c_rw_data(fd, 0x3f, nullptr, 1, buf, 1),
                     i2c_rw_data(fd, 0x3f, data, 0, buf, 1),
                     i2c_rw_data(fd, 0x3f, data, 1, nullptr, 1),
                     i2c_read_data(fd, 0x3f, 0x101, 1, buf, 1),
                     i2c_read_data(fru.fd(), 0x50, 0x1234, 2, buf + 1, 2),
                     i2c_write_data(fd, 0x3f, 0x20, 1, data, 2),
                     i2c_write_data(fru.fd(), 0x50, 0x0200, 2, data, 1),
                     i2c_read_data(fd, 0x3f, 0x55, 0, buf + 3, 1)}),
        ElementsAre(-1, -1, -1, -1, -1, -1, -1, 2, 2, 1, 1, 2));
    EXPECT_THAT(wire_log(), ElementsAre(sent(11, 0x3f, {0x01}),
                                        received(11, 0x3f, {0x02}, true),
                                        sent(3, 0x50, {0x12, 0x34}),
                                        received(3, 0x50, {0xDE, 0xAD}, true),
                                        sent(11, 0x3f, {0x20, 0x0A, 0x0B}),
                                        sent(3, 0x50, {0x02, 0x00, 0x0A}),
                                        sent(11, 0x3f, {}),
                                        received(11, 0x3f, {buf[3]}, true)));
    // The longest transfers, and a failed read that still fills the buffer.
    clear_wire_log();
    EXPECT_EQ(2, i2c_read_data(fd, 0x3f, 0, 1, buf, 253));
    EXPECT_EQ(1, i2c_write_data(fd, 0x3f, 0, 1, data, 253));
    EXPECT_EQ(253u, wire_log().at(1).length);
    EXPECT_EQ(254u, wire_log().at(2).length);
    std::fill(buf, buf + 5, 0xAA);
    fail_transfer(2, EIO);
    EXPECT_EQ(-1, i2c_read_data(fd, 0x3f, 0, 1, buf, 4));
    EXPECT_THAT(std::vector(buf, buf + 5), ElementsAre(0, 0, 0, 0, 0xAA));
}

// The probe scans all addresses on every call.
TEST_F(SimBoard, Probe)
{
    BusHandle bus(1);
    EXPECT_EQ(1, check_slave_active(bus.fd(), 0x3f));
    EXPECT_EQ(0, check_slave_active(bus.fd(), 0x50));
    EXPECT_EQ(-1, check_slave_active(0, 0x3f));
    const auto log = wire_log();
    ASSERT_EQ(256u, log.size());
    for (unsigned i = 0; i < 256; ++i)
    {
        EXPECT_EQ(sent(1, i % 128, {}, false, i % 128 == 0x3f ? 0 : ENXIO),
                  log[i]);
    }
}

TEST_F(SimBoard, SendRecv)
{
    const uint8_t zero[] = {0};
    uint8_t version[2] = {};
    // Only the last operation of an attempt counts.
    fail_transfer(1, EIO);
    EXPECT_EQ(0, i2cSendRecvMsg(0, 11, 0x3f, zero, 1, version, 2, 3, 0));
    EXPECT_THAT(version, ElementsAre(0x01, 0x02));
    EXPECT_THAT(wire_log(), ElementsAre(sent(11, 0x3f, {0}, false, EIO),
                                        received(11, 0x3f, {0x01, 0x02})));
    fail_address(11, 0x3f, ENXIO);
    fail_address(13, 0x70, ENXIO);
    // Four, three and three attempts (the switch's own count).
    EXPECT_THAT(
        std::vector({i2cSendRecvMsg(0, 11, 0x3f, zero, 1, nullptr, 0, 4, 0),
                     i2cSendRecvMsg(0, 11, 0x3f, zero, 1, version, 2, 3, 0),
                     set_9546switch(13, 0x70, 1), int(wire_log().size()),
                     i2cSendRecvMsg(0, 11, 0x3f, zero, 1, version, 2, 0, 0),
                     i2cSendRecvMsg(0, 11, 0x3f, nullptr, 0, nullptr, 0, 1, 0),
                     int(wire_log().size()),
                     i2cSendRecvMsg(0, 40, 0x3f, zero, 1, nullptr, 0, 3, 0)}),
        ElementsAre(-2, -2, -2, 15, -2, 0, 15, -1));
    // Channels 1 to 8 are one bit each, others none.
    clear_faults();
    for (auto [channel, control] :
         {std::pair{0, 0}, {1, 1}, {2, 2}, {4, 8}, {8, 0x80}, {9, 0}})
    {
        EXPECT_EQ(0, set_9546switch(13, 0x70, channel));
        EXPECT_EQ(sent(13, 0x70, {0, uint8_t(control)}), wire_log().back());
    }
}

// The platform segment is attached once per process, and the flags must be
// seen across processes: each requester is a child of its own.
void in_child(const std::function<void()>& body)
{
    EXPECT_EQ(0, exit_status_of([&] {
                  body();
                  return int(testing::Test::HasFailure());
              }));
}

// The flag byte of (bus 13, multiplexer 0x70) in the platform segment.
int flag()
{
    return static_cast<uint8_t*>(get_shm_address())[217580 + 13 * 127 + 0x70];
}

int request(uint8_t channel, int enable)
{
    BusHandle bus(13);
    return switch_channel_request(bus.fd(), 13, channel, 0x70, enable);
}

// A channel request keeps others off until released.
TEST_F(SimBoard, ChannelRequest)
{
    in_child([] {
        EXPECT_THAT(std::vector({request(1, 1), flag(), request(1, 1)}),
                    ElementsAre(0, 1, 0xC0));
    });
    in_child([] {
        EXPECT_THAT(std::vector({request(2, 1), request(2, 0), flag(),
                                 request(2, 0), request(0, 1), request(0, 0),
                                 request(7, 1), request(7, 0), request(8, 1)}),
                    ElementsAre(0xC0, 0, 0, 0, 0, 0, 0, 0, 0));
    });
    // Releasing sends nothing.
    EXPECT_THAT(wire_log(),
                ElementsAre(sent(13, 0x70, {0, 2}), sent(13, 0x70, {0, 1}),
                            sent(13, 0x70, {0, 0x80}), sent(13, 0x70, {0, 0})));
}

// A channel's bus comes from the kernel log, captured once.
TEST_F(SimBoard, ChannelBus)
{
    // Without its directory no capture can be made: no line, bus 0.
    EXPECT_EQ(0, CmmFunGetI2CExtBus(13, 1));
    make_dirs("/var/run/obmcinfo/i2c");
    const std::string capture = "/var/run/obmcinfo/i2c_dmesg";
    CmmFunGetI2CExtBus(13, 1);
    EXPECT_TRUE(read_text(capture));
    // "i2c-13" also matches the i2c-130 line, "i2c-1" the i2c-13 lines.
    write_text(capture,
               "[ 1.310000] i2c i2c-1: new_device: Instantiated device 24c02\n"
               "[ 2.345678] i2c i2c-13: Added multiplexed i2c bus 16\n"
               "[ 2.345701] i2c i2c-13: Added multiplexed i2c bus 17\n"
               "[ 2.345744] i2c i2c-13: Added multiplexed i2c bus 19\n"
               "[ 2.501234] i2c i2c-130: Added multiplexed i2c bus 134\n");
    for (auto [bus, channel, number] : {std::tuple{13, 1, 16},
                                        {13, 3, 19},
                                        {13, 4, 134},
                                        {13, 5, 0},
                                        {1, 1, 0},
                                        {1, 3, 17},
                                        {7, 1, 0}})
    {
        EXPECT_EQ(number, CmmFunGetI2CExtBus(bus, channel)) << bus << channel;
    }
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// The descriptor calls on /dev/i2c-N as the i2c-dev driver answers them:
// open and close, the ioctls, read() and write(), and the wire log they leave.
#include "sim_fixture.h"
#include "test_helpers.h"

#include <gtest/gtest-spi.h>

namespace kv::sim::test
{
namespace
{

using Io = ExampleBoard;

TEST(NoBoard, NothingIsSimulated)
{
    EXPECT_EQ(ENOENT, ERRNO_OF(::open("/dev/i2c-11", O_RDWR)));
    EXPECT_THROW(device_memory(11, 0x3f), std::out_of_range);
}

// Closed descriptors, and files that get their number (by open or by dup2
// behind the simulator's back), belong to the system again.
TEST_F(Io, BusesAreDescriptorsOfTheirOwnUntilClosed)
{
    for (const char* path :
         {"/dev/i2c-4", "/dev/i2c-011", "/dev/i2c-", "/dev/i2c-1x"})
    {
        EXPECT_EQ(ENOENT, ERRNO_OF(::open(path, O_RDWR))) << path;
    }
    EXPECT_EQ(0, ::fcntl(BusHandle(1).fd(), F_GETFD) & FD_CLOEXEC);
    const int at = ::openat(AT_FDCWD, "/dev/i2c-1", O_RDWR | O_CLOEXEC);
    EXPECT_NE(0, ::fcntl(at, F_GETFD) & FD_CLOEXEC);
    uint8_t byte = 0;
    ASSERT_EQ(0, ::ioctl(at, I2C_SLAVE, 0x3f));
    EXPECT_EQ(1, ::write(at, &byte, 1));
    EXPECT_EQ(1, ::read(at, &byte, 1));
    EXPECT_EQ(0x0e, byte);
    EXPECT_EQ(0, ::close(at));
    EXPECT_EQ(EBADF, ERRNO_OF(::read(at, &byte, 1)));

    const int file = ::open("/tmp/plain", O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(at, file);
    EXPECT_EQ(2, ::write(file, "hi", 2));
    // qemu-user answers the ioctls it does not translate itself.
    const int not_bus = kv::test::under_user_emulation() ? ENOSYS : ENOTTY;
    EXPECT_EQ(not_bus, ERRNO_OF(::ioctl(file, I2C_SLAVE, 0x3f)));
    const int bus = ::open("/dev/i2c-11", O_RDWR);
    ASSERT_EQ(bus, ::dup2(file, bus));
    ASSERT_EQ(0, ::lseek(bus, 0, SEEK_SET));
    char text[4] = {};
    EXPECT_EQ(2, ::read(bus, text, 4));
    EXPECT_EQ(0, ::close(bus) + ::close(file));
    EXPECT_EQ(2u, wire_log().size());
}

// What every board test checks at its end.
TEST_F(Io, BusesLeftOpenFailTheTestAndAreClosed)
{
    const int left = ::dup(BusHandle(16).fd());
    EXPECT_THAT(open_buses(), ElementsAre(testing::FieldsAre(left, 16)));
    EXPECT_NONFATAL_FAILURE(expect_no_bus_left_open(),
                            "descriptor " + std::to_string(left) +
                                " on /dev/i2c-16 was left open");
    EXPECT_EQ(EBADF, ERRNO_OF(::fcntl(left, F_GETFD)));
}

TEST_F(Io, AddressesAndFunctionsKeepTheDriversLimits)
{
    BusHandle bus(11);
    uint8_t byte = 0x55;
    // Unbound, a descriptor addresses 0, where nothing answers.
    EXPECT_EQ(ENXIO, ERRNO_OF(::read(bus.fd(), &byte, 1)));
    EXPECT_EQ(0x55, byte);
    EXPECT_EQ(EINVAL, ERRNO_OF(bus.bind(0x80)));
    EXPECT_EQ(0, ::ioctl(bus.fd(), I2C_SLAVE_FORCE, 0x7f));
    EXPECT_EQ(ENOTTY, ERRNO_OF(::ioctl(bus.fd(), I2C_PEC, 1)));
    ASSERT_EQ(0, ::ioctl(bus.fd(), I2C_TENBIT, 1));
    EXPECT_EQ(EINVAL, ERRNO_OF(bus.bind(0x400)));
    // No device has a 10-bit address, not even one of a 7-bit one's value.
    EXPECT_EQ(ENXIO, probe(bus, 0x3ff));
    EXPECT_EQ(ENXIO, probe(bus, 0x3f));
    ASSERT_EQ(0, ::ioctl(bus.fd(), I2C_TENBIT, 0));
    EXPECT_EQ(0, probe(bus, 0x3f));

    unsigned long functions = 0;
    ASSERT_EQ(0, ::ioctl(bus.fd(), I2C_FUNCS, &functions));
    EXPECT_EQ(
        (I2C_FUNC_I2C | I2C_FUNC_SMBUS_EMUL | I2C_FUNC_SMBUS_READ_BLOCK_DATA) &
            ~I2C_FUNC_SMBUS_PEC,
        functions);
    EXPECT_THAT(wire_log(), ElementsAre(failed_read(11, 0, 1, ENXIO),
                                        sent(11, 0x3ff, {}, false, ENXIO),
                                        sent(11, 0x3f, {}, false, ENXIO),
                                        sent(11, 0x3f, {})));
}

// The first failing message ends a request, which then hands back no data.
TEST_F(Io, CombinedRequestsRunUntilTheFirstFailure)
{
    BusHandle bus(11);
    std::vector<uint8_t> offset{0}, first{0x55}, absent{0x55}, last{0x55};
    EXPECT_EQ(ENXIO, ERRNO_OF(combined(bus.fd(), {write_message(0x3f, offset),
                                                  read_message(0x3f, first),
                                                  read_message(0x20, absent),
                                                  read_message(0x3f, last)})));
    EXPECT_EQ(0x55, first[0]);
    EXPECT_THAT(wire_log(),
                ElementsAre(sent(11, 0x3f, {0}), received(11, 0x3f, {1}, true),
                            failed_read(11, 0x20, 1, ENXIO, true)));
    clear_wire_log();
    std::vector<uint8_t> byte(1), too_long(8193), whole(8192);
    for (std::size_t count : {0, 43})
    {
        const std::vector<i2c_msg> many(count, read_message(0x50, byte));
        EXPECT_EQ(EINVAL, ERRNO_OF(combined(bus.fd(), many))) << count;
    }
    EXPECT_EQ(EINVAL,
              ERRNO_OF(combined(bus.fd(), {read_message(0x3f, byte),
                                           read_message(0x3f, too_long)})));
    i2c_rdwr_ioctl_data no_messages{nullptr, 1};
    EXPECT_EQ(EINVAL, ERRNO_OF(::ioctl(bus.fd(), I2C_RDWR, &no_messages)));
    EXPECT_EQ(EFAULT, ERRNO_OF(::ioctl(bus.fd(), I2C_FUNCS, nullptr)));
    EXPECT_TRUE(wire_log().empty());
    EXPECT_EQ(42,
              combined(bus.fd(), std::vector(42, read_message(0x3f, byte))));
    EXPECT_EQ(1, combined(BusHandle(3).fd(), {read_message(0x50, whole)}));
    EXPECT_EQ(0xff, whole[8191]);
}

TEST(RemovedFunctions, BusesAndTheirChannelsOfferWhatTheBoardLeavesThem)
{
    load_board(write_board(R"({"buses": [
        {"bus": 7, "without": ["smbus_write_word_data"], "devices": [
            {"type": "pca9546", "address": 112, "channels": [20, 21, 22, 23]}]},
        {"bus": 8, "without": ["i2c"], "devices": [
            {"type": "cpld", "address": 63, "bytes": {"2": 9}}]}]})"));
    BusHandle channel(20);
    ASSERT_EQ(0, channel.bind(0x70));
    EXPECT_EQ(-EOPNOTSUPP, i2c_smbus_write_word_data(channel.fd(), 0, 1));
    EXPECT_EQ(0, i2c_smbus_write_byte_data(channel.fd(), 0, 1));
    BusHandle smbus_only(8);
    ASSERT_EQ(0, smbus_only.bind(0x3f));
    uint8_t byte = 0;
    EXPECT_EQ(EOPNOTSUPP, ERRNO_OF(read_register(smbus_only, 0x3f, 2)));
    EXPECT_EQ(EOPNOTSUPP, ERRNO_OF(::read(smbus_only.fd(), &byte, 1)));
    EXPECT_EQ(9, i2c_smbus_read_byte_data(smbus_only.fd(), 2));
}

} // namespace
} // namespace kv::sim::test

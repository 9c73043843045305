// Descriptors on simulated buses and the i2c-dev requests that do not move
// data: opening, closing, address binding, functionality.
#include "sim_fixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace kv::sim::test
{
namespace
{

using Descriptors = ExampleBoard;

TEST_F(Descriptors, OpenGivesARealDescriptorThatHonoursCloseOnExec)
{
    BusHandle plain(11);
    BusHandle sealed(11, O_RDWR | O_CLOEXEC);
    ASSERT_GE(plain.fd(), 0);
    ASSERT_GE(sealed.fd(), 0);
    EXPECT_NE(plain.fd(), sealed.fd());
    EXPECT_EQ(0, ::fcntl(plain.fd(), F_GETFD) & FD_CLOEXEC);
    EXPECT_NE(0, ::fcntl(sealed.fd(), F_GETFD) & FD_CLOEXEC);

    const int at = ::openat(AT_FDCWD, "/dev/i2c-1", O_RDWR);
    ASSERT_GE(at, 0);
    ASSERT_EQ(0, ::ioctl(at, I2C_SLAVE, 0x3f));
    uint8_t offset = 0;
    uint8_t value = 0;
    EXPECT_EQ(1, ::write(at, &offset, 1));
    EXPECT_EQ(1, ::read(at, &value, 1));
    EXPECT_EQ(0x0e, value);
    EXPECT_EQ(0, ::close(at));
}

TEST_F(Descriptors, OnlyTheBoardsBusesExist)
{
    for (const char* path : {"/dev/i2c-4", "/dev/i2c-99", "/dev/i2c-011",
                             "/dev/i2c-", "/dev/i2c-1x"})
    {
        errno = 0;
        EXPECT_EQ(-1, ::open(path, O_RDWR)) << path;
        EXPECT_EQ(ENOENT, errno) << path;
    }
}

TEST(DescriptorsWithoutBoard, NothingIsSimulatedBeforeABoardIsLoaded)
{
    errno = 0;
    EXPECT_EQ(-1, ::open("/dev/i2c-11", O_RDWR));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_TRUE(wire_log().empty());
    EXPECT_THROW(device_memory(11, 0x3f), std::out_of_range);
}

TEST_F(Descriptors, ClosedDescriptorsAndOtherFilesBelongToTheSystem)
{
    int fd = 0;
    {
        BusHandle bus(11);
        fd = bus.fd();
    }
    uint8_t byte = 0;
    errno = 0;
    EXPECT_EQ(-1, ::read(fd, &byte, 1));
    EXPECT_EQ(EBADF, errno);

    // A plain file that gets the same number is left alone.
    const int file = ::open("/tmp/plain", O_RDWR | O_CREAT | O_TRUNC, 0600);
    ASSERT_EQ(fd, file);
    EXPECT_EQ(5, ::write(file, "hello", 5));
    EXPECT_EQ(0, ::lseek(file, 0, SEEK_SET));
    char text[8] = {};
    EXPECT_EQ(5, ::read(file, text, sizeof(text)));
    EXPECT_STREQ("hello", text);
    errno = 0;
    EXPECT_EQ(-1, ::ioctl(file, I2C_SLAVE, 0x3f));
    EXPECT_EQ(ENOTTY, errno);
    EXPECT_EQ(0, ::close(file));
    EXPECT_TRUE(wire_log().empty());
}

TEST_F(Descriptors, ANumberTakenOverBehindOurBackIsNoLongerSimulated)
{
    const int file = ::open("/tmp/plain", O_RDWR | O_CREAT | O_TRUNC, 0600);
    ASSERT_EQ(3, ::write(file, "abc", 3));
    const int bus = ::open("/dev/i2c-11", O_RDWR);
    ASSERT_GE(bus, 0);
    ASSERT_EQ(bus, ::dup2(file, bus));
    ASSERT_EQ(0, ::lseek(bus, 0, SEEK_SET));
    char text[4] = {};
    EXPECT_EQ(3, ::read(bus, text, 3));
    EXPECT_STREQ("abc", text);
    ::close(bus);
    ::close(file);
}

TEST_F(Descriptors, AddressBindingKeepsTheDriversLimits)
{
    BusHandle bus(11);
    errno = 0;
    EXPECT_EQ(-1, ::ioctl(bus.fd(), I2C_SLAVE, 0x80));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(0, ::ioctl(bus.fd(), I2C_SLAVE_FORCE, 0x7f));

    ASSERT_EQ(0, ::ioctl(bus.fd(), I2C_TENBIT, 1));
    EXPECT_EQ(0, ::ioctl(bus.fd(), I2C_SLAVE, 0x3ff));
    errno = 0;
    EXPECT_EQ(-1, ::ioctl(bus.fd(), I2C_SLAVE, 0x400));
    EXPECT_EQ(EINVAL, errno);
    // No device answers a 10-bit address, not even one whose 7-bit address
    // has the same value.
    ASSERT_EQ(0, ::ioctl(bus.fd(), I2C_SLAVE, 0x3f));
    uint8_t byte = 0;
    errno = 0;
    EXPECT_EQ(-1, ::read(bus.fd(), &byte, 1));
    EXPECT_EQ(ENXIO, errno);

    ASSERT_EQ(0, ::ioctl(bus.fd(), I2C_TENBIT, 0));
    EXPECT_EQ(1, ::read(bus.fd(), &byte, 1));

    errno = 0;
    EXPECT_EQ(-1, ::ioctl(bus.fd(), I2C_PEC, 1));
    EXPECT_EQ(ENOTTY, errno);
}

TEST_F(Descriptors, AdapterOffersPlainI2cAndTheEmulatedSmbus)
{
    BusHandle bus(3);
    unsigned long functions = 0;
    ASSERT_EQ(0, ::ioctl(bus.fd(), I2C_FUNCS, &functions));
    for (unsigned long needed :
         {I2C_FUNC_I2C, I2C_FUNC_SMBUS_QUICK, I2C_FUNC_SMBUS_READ_BYTE,
          I2C_FUNC_SMBUS_WRITE_BYTE, I2C_FUNC_SMBUS_READ_BYTE_DATA,
          I2C_FUNC_SMBUS_WRITE_BYTE_DATA, I2C_FUNC_SMBUS_READ_WORD_DATA,
          I2C_FUNC_SMBUS_WRITE_WORD_DATA, I2C_FUNC_SMBUS_READ_I2C_BLOCK,
          I2C_FUNC_SMBUS_WRITE_I2C_BLOCK, I2C_FUNC_SMBUS_READ_BLOCK_DATA})
    {
        EXPECT_EQ(needed, functions & needed);
    }
    EXPECT_EQ(0u, functions & (I2C_FUNC_SMBUS_PEC | I2C_FUNC_10BIT_ADDR));
}

TEST_F(Descriptors, MultiplexerChannelsAreListedWithTheirParents)
{
    std::vector<int> numbers;
    for (const BusInfo& bus : buses())
    {
        numbers.push_back(bus.number);
        if (bus.number >= 16 && bus.number <= 19)
        {
            EXPECT_EQ(13, bus.parent);
            EXPECT_EQ(0x70, bus.mux_address);
            EXPECT_EQ(bus.number - 15, bus.channel);
        }
        else
        {
            EXPECT_EQ(-1, bus.parent) << bus.number;
            EXPECT_EQ(0, bus.channel) << bus.number;
        }
    }
    EXPECT_THAT(numbers,
                testing::ElementsAre(1, 2, 3, 5, 6, 11, 13, 16, 17, 18, 19));
}

} // namespace
} // namespace kv::sim::test

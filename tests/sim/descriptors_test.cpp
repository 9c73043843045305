// SPDX-License-Identifier: Apache-2.0
// Descriptors on simulated buses and the i2c-dev requests that do not move
// data: opening, closing, address binding, functionality.
#include "sim_fixture.h"
#include "test_helpers.h"

#include <gtest/gtest-spi.h>

namespace kv::sim::test
{
namespace
{

using Descriptors = ExampleBoard;
using testing::IsEmpty;

TEST_F(Descriptors, BoardBusesOpenAsRealDescriptorsHonouringCloseOnExec)
{
    BusHandle plain(11);
    BusHandle sealed(11, O_RDWR | O_CLOEXEC);
    ASSERT_GE(plain.fd(), 0);
    ASSERT_GE(sealed.fd(), 0);
    EXPECT_NE(plain.fd(), sealed.fd());
    EXPECT_EQ(0, ::fcntl(plain.fd(), F_GETFD) & FD_CLOEXEC);
    EXPECT_NE(0, ::fcntl(sealed.fd(), F_GETFD) & FD_CLOEXEC);

    const int at = ::openat(AT_FDCWD, "/dev/i2c-1", O_RDWR);
    ASSERT_EQ(0, ::ioctl(at, I2C_SLAVE, 0x3f));
    uint8_t byte = 0;
    EXPECT_EQ(1, ::write(at, &byte, 1));
    EXPECT_EQ(1, ::read(at, &byte, 1));
    EXPECT_EQ(0x0e, byte);
    EXPECT_EQ(0, ::close(at));

    // Only the board's buses exist.
    for (const char* path : {"/dev/i2c-4", "/dev/i2c-99", "/dev/i2c-011",
                             "/dev/i2c-", "/dev/i2c-1x"})
    {
        EXPECT_EQ(ENOENT, ERRNO_OF(::open(path, O_RDWR))) << path;
    }
}

TEST(DescriptorsWithoutBoard, NothingIsSimulatedBeforeABoardIsLoaded)
{
    EXPECT_EQ(ENOENT, ERRNO_OF(::open("/dev/i2c-11", O_RDWR)));
    EXPECT_TRUE(wire_log().empty());
    EXPECT_THROW(device_memory(11, 0x3f), std::out_of_range);
}

// Closed descriptors, and plain files that get their number (by open or
// dup2 behind the simulator's back), belong to the system again.
TEST_F(Descriptors, ClosedDescriptorsAndOtherFilesBelongToTheSystem)
{
    int fd = 0;
    {
        BusHandle bus(11);
        fd = bus.fd();
    }
    uint8_t byte = 0;
    EXPECT_EQ(EBADF, ERRNO_OF(::read(fd, &byte, 1)));

    const int file = ::open("/tmp/plain", O_RDWR | O_CREAT | O_TRUNC, 0600);
    ASSERT_EQ(fd, file);
    EXPECT_EQ(5, ::write(file, "hello", 5));
    // qemu-user answers the ioctls it does not translate itself.
    const int not_a_bus = kv::test::under_user_emulation() ? ENOSYS : ENOTTY;
    EXPECT_EQ(not_a_bus, ERRNO_OF(::ioctl(file, I2C_SLAVE, 0x3f)));
    const int bus = ::open("/dev/i2c-11", O_RDWR);
    ASSERT_EQ(bus, ::dup2(file, bus));
    for (const int plain : {file, bus})
    {
        ASSERT_EQ(0, ::lseek(plain, 0, SEEK_SET));
        char text[8] = {};
        EXPECT_EQ(5, ::read(plain, text, sizeof(text)));
        EXPECT_STREQ("hello", text);
    }
    EXPECT_EQ(0, ::close(bus));
    EXPECT_EQ(0, ::close(file));
    EXPECT_TRUE(wire_log().empty());
}

// What the board's fixtures check after every test: a bus left open fails
// the test and is closed, however the descriptor came about; closed buses
// and other files pass.
TEST_F(Descriptors, BusesLeftOpenFailTheTestAndAreClosed)
{
    const int left = ::open("/dev/i2c-13", O_RDWR);
    ASSERT_GE(left, 0);
    EXPECT_THAT(open_buses(), ElementsAre(testing::FieldsAre(left, 13)));
    EXPECT_NONFATAL_FAILURE(expect_no_bus_left_open(),
                            "descriptor " + std::to_string(left) +
                                " on /dev/i2c-13 was left open");
    EXPECT_EQ(EBADF, ERRNO_OF(::fcntl(left, F_GETFD)));

    // A copy the simulator never saw is still a bus.
    const int copy = ::dup(BusHandle(16).fd());
    ASSERT_GE(copy, 0);
    EXPECT_NONFATAL_FAILURE(expect_no_bus_left_open(), " on /dev/i2c-16 ");
    EXPECT_EQ(EBADF, ERRNO_OF(::fcntl(copy, F_GETFD)));

    const int file = ::open("/tmp/plain", O_RDWR | O_CREAT, 0600);
    {
        BusHandle closed(11);
    }
    EXPECT_THAT(open_buses(), IsEmpty());
    ::close(file);
}

TEST_F(Descriptors, AddressBindingKeepsTheDriversLimits)
{
    BusHandle bus(11);
    EXPECT_EQ(EINVAL, ERRNO_OF(::ioctl(bus.fd(), I2C_SLAVE, 0x80)));
    EXPECT_EQ(0, ::ioctl(bus.fd(), I2C_SLAVE_FORCE, 0x7f));

    ASSERT_EQ(0, ::ioctl(bus.fd(), I2C_TENBIT, 1));
    EXPECT_EQ(0, ::ioctl(bus.fd(), I2C_SLAVE, 0x3ff));
    EXPECT_EQ(EINVAL, ERRNO_OF(::ioctl(bus.fd(), I2C_SLAVE, 0x400)));
    // No device answers a 10-bit address, not even one whose 7-bit address
    // has the same value.
    ASSERT_EQ(0, ::ioctl(bus.fd(), I2C_SLAVE, 0x3f));
    uint8_t byte = 0;
    EXPECT_EQ(ENXIO, ERRNO_OF(::read(bus.fd(), &byte, 1)));
    ASSERT_EQ(0, ::ioctl(bus.fd(), I2C_TENBIT, 0));
    EXPECT_EQ(1, ::read(bus.fd(), &byte, 1));

    EXPECT_EQ(ENOTTY, ERRNO_OF(::ioctl(bus.fd(), I2C_PEC, 1)));
}

TEST_F(Descriptors, AdapterOffersPlainI2cAndTheEmulatedSmbus)
{
    unsigned long functions = 0;
    ASSERT_EQ(0, ::ioctl(BusHandle(3).fd(), I2C_FUNCS, &functions));
    constexpr unsigned long needed =
        I2C_FUNC_I2C | I2C_FUNC_SMBUS_QUICK | I2C_FUNC_SMBUS_READ_BYTE |
        I2C_FUNC_SMBUS_WRITE_BYTE | I2C_FUNC_SMBUS_READ_BYTE_DATA |
        I2C_FUNC_SMBUS_WRITE_BYTE_DATA | I2C_FUNC_SMBUS_READ_WORD_DATA |
        I2C_FUNC_SMBUS_WRITE_WORD_DATA | I2C_FUNC_SMBUS_READ_I2C_BLOCK |
        I2C_FUNC_SMBUS_WRITE_I2C_BLOCK | I2C_FUNC_SMBUS_READ_BLOCK_DATA;
    EXPECT_EQ(needed, functions & needed);
    EXPECT_EQ(0u, functions & (I2C_FUNC_SMBUS_PEC | I2C_FUNC_10BIT_ADDR));
}

TEST_F(Descriptors, MultiplexerChannelsAreListedWithTheirParents)
{
    // Parent bus, multiplexer address and first channel bus of each PCA9546.
    struct Mux
    {
        int parent;
        int address;
        int first;
    };
    const Mux muxes[] = {{13, 0x70, 16}, {5, 0x71, 20}, {6, 0x71, 24}};
    std::vector<int> numbers;
    for (const BusInfo& bus : buses())
    {
        numbers.push_back(bus.number);
        const Mux* mux = nullptr;
        for (const Mux& candidate : muxes)
        {
            if (bus.number >= candidate.first &&
                bus.number < candidate.first + 4)
            {
                mux = &candidate;
            }
        }
        EXPECT_EQ(mux ? mux->parent : -1, bus.parent) << bus.number;
        EXPECT_EQ(mux ? mux->address : 0, bus.mux_address) << bus.number;
        EXPECT_EQ(mux ? bus.number - mux->first + 1 : 0, bus.channel)
            << bus.number;
    }
    EXPECT_THAT(numbers, ElementsAre(1, 2, 3, 5, 6, 10, 11, 13, 16, 17, 18, 19,
                                     20, 21, 22, 23, 24, 25, 26, 27));
}

} // namespace
} // namespace kv::sim::test

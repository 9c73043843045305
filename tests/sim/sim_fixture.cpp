// SPDX-License-Identifier: Apache-2.0
#include "sim_fixture.h"

#include "test_helpers.h"

#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kv::sim::test
{

BusHandle::BusHandle(int bus, int flags) :
    fd_(::open(("/dev/i2c-" + std::to_string(bus)).c_str(), flags))
{}

BusHandle::~BusHandle()
{
    if (fd_ >= 0)
    {
        ::close(fd_);
    }
}

void expect_no_bus_left_open()
{
    for (const OpenBus& left : open_buses())
    {
        ADD_FAILURE() << "descriptor " << left.fd << " on /dev/i2c-" << left.bus
                      << " was left open";
        ::close(left.fd);
    }
}

int BusHandle::bind(int address) const
{
    return ::ioctl(fd_, I2C_SLAVE, address);
}

i2c_msg write_message(uint16_t address, std::vector<uint8_t>& bytes)
{
    return {address, 0, static_cast<uint16_t>(bytes.size()), bytes.data()};
}

i2c_msg read_message(uint16_t address, std::vector<uint8_t>& buffer)
{
    return {address, I2C_M_RD, static_cast<uint16_t>(buffer.size()),
            buffer.data()};
}

int combined(int fd, std::vector<i2c_msg> messages)
{
    i2c_rdwr_ioctl_data request{messages.data(),
                                static_cast<uint32_t>(messages.size())};
    return ::ioctl(fd, I2C_RDWR, &request);
}

Transfer sent(int bus, uint16_t address, std::vector<uint8_t> bytes,
              bool repeated_start, int error)
{
    const std::size_t length = bytes.size();
    return {bus,   address, false,           repeated_start,
            error, length,  std::move(bytes)};
}

Transfer received(int bus, uint16_t address, std::vector<uint8_t> bytes,
                  bool repeated_start)
{
    const std::size_t length = bytes.size();
    return {bus, address, true, repeated_start, 0, length, std::move(bytes)};
}

Transfer failed_read(int bus, uint16_t address, std::size_t length, int error,
                     bool repeated_start)
{
    return {bus, address, true, repeated_start, error, length, {}};
}

std::string write_board(std::string_view json, const std::string& name)
{
    const std::string path = "/tmp/" + name;
    kv::test::write_text(path, json);
    return path;
}

} // namespace kv::sim::test

// SPDX-License-Identifier: Apache-2.0
// Shared pieces of the simulator's tests: the example board, descriptors on
// simulated buses, I2C_RDWR messages and expected wire-log entries.
#pragma once

#include "sim.h"

// libi2c's header has no C++ guard.
extern "C"
{
#include <i2c/smbus.h>
}

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The errno `call` failed with (returning -1), or 0 when it did not fail.
#define ERRNO_OF(...) (errno = 0, (__VA_ARGS__) == -1 ? errno : 0)

namespace kv::sim::test
{

using testing::ElementsAre;

inline const std::string example_board = KVSIM_EXAMPLE_BOARD;

// Fails the running test for every descriptor it left open on an I2C bus,
// and closes them, so that the next test starts without them.
void expect_no_bus_left_open();

// Every test on the board must close the buses it opened.
class ExampleBoard : public testing::Test
{
  protected:
    void SetUp() override
    {
        load_board(example_board);
    }
    void TearDown() override
    {
        expect_no_bus_left_open();
    }
};

// A descriptor on /dev/i2c-<bus>, closed when it goes.
class BusHandle
{
  public:
    explicit BusHandle(int bus, int flags = O_RDWR);
    ~BusHandle();
    BusHandle(const BusHandle&) = delete;
    BusHandle& operator=(const BusHandle&) = delete;

    int fd() const
    {
        return fd_;
    }
    // I2C_SLAVE; returns the ioctl result.
    int bind(int address) const;

  private:
    int fd_;
};

// Sends `bytes` to the bound address; true when all went out.
inline bool send(const BusHandle& bus, std::vector<uint8_t> bytes)
{
    return ::write(bus.fd(), bytes.data(), bytes.size()) ==
           static_cast<ssize_t>(bytes.size());
}

// `count` bytes read from the bound address; none when the read fails.
inline std::vector<uint8_t> receive(const BusHandle& bus, std::size_t count)
{
    std::vector<uint8_t> bytes(count);
    if (::read(bus.fd(), bytes.data(), count) != static_cast<ssize_t>(count))
    {
        bytes.clear();
    }
    return bytes;
}

// Reads register `offset` of the device at `address` into `value` with one
// I2C_RDWR request: the offset written, one byte read after a repeated
// start. Returns the request's result.
inline int read_register(const BusHandle& bus, uint16_t address,
                         uint8_t offset = 0, uint8_t* value = nullptr)
{
    uint8_t byte = 0;
    i2c_msg messages[] = {{address, 0, 1, &offset},
                          {address, I2C_M_RD, 1, value ? value : &byte}};
    i2c_rdwr_ioctl_data request{messages, 2};
    return ::ioctl(bus.fd(), I2C_RDWR, &request);
}

// Binds `address` and probes it with an empty write: 0 when it answers,
// else the errno.
inline int probe(const BusHandle& bus, int address)
{
    return bus.bind(address) == 0 ? ERRNO_OF(::write(bus.fd(), "", 0)) : -1;
}

i2c_msg write_message(uint16_t address, std::vector<uint8_t>& bytes);
i2c_msg read_message(uint16_t address, std::vector<uint8_t>& buffer);
// One I2C_RDWR request; returns the ioctl result.
int combined(int fd, std::vector<i2c_msg> messages);

// Wire-log entries as a test expects them.
Transfer sent(int bus, uint16_t address, std::vector<uint8_t> bytes,
              bool repeated_start = false, int error = 0);
Transfer received(int bus, uint16_t address, std::vector<uint8_t> bytes,
                  bool repeated_start = false);
Transfer failed_read(int bus, uint16_t address, std::size_t length, int error,
                     bool repeated_start = false);

// Writes a board file into /tmp and returns its path.
std::string write_board(std::string_view json,
                        const std::string& name = "board.json");

} // namespace kv::sim::test

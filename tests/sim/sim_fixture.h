// SPDX-License-Identifier: Apache-2.0
// Shared pieces of the simulator's tests: the example board, descriptors on
// simulated buses and expected wire-log entries.
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
#include <string_view>

// The errno `call` failed with (returning -1), or 0 when it did not fail.
#define ERRNO_OF(...) (errno = 0, (__VA_ARGS__) == -1 ? errno : 0)

namespace kv::sim::test
{

using testing::ElementsAre;

// Fails the running test for every descriptor it left open on an I2C bus,
// and closes them, so that the next test starts without them.
void expect_no_bus_left_open();

// Every test on the board must close the buses it opened.
class ExampleBoard : public testing::Test
{
  protected:
    void SetUp() override
    {
        load_board(KVSIM_EXAMPLE_BOARD);
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
    explicit BusHandle(int bus, int flags = O_RDWR) :
        fd_(::open(("/dev/i2c-" + std::to_string(bus)).c_str(), flags))
    {}
    ~BusHandle()
    {
        ::close(fd_);
    }
    BusHandle(const BusHandle&) = delete;
    BusHandle& operator=(const BusHandle&) = delete;

    int fd() const
    {
        return fd_;
    }

  private:
    int fd_;
};

// Wire-log entries as a test expects them.
inline Transfer sent(int bus, uint16_t address, std::vector<uint8_t> bytes,
                     bool repeated_start = false, int error = 0)
{
    return {bus, address, false, repeated_start, error, bytes.size(), bytes};
}
inline Transfer received(int bus, uint16_t address, std::vector<uint8_t> bytes,
                         bool repeated_start = false)
{
    return {bus, address, true, repeated_start, 0, bytes.size(), bytes};
}

// Writes a board file into /tmp and returns its path.
std::string write_board(std::string_view json,
                        const std::string& name = "board.json");

} // namespace kv::sim::test

// Shared pieces of the simulator's tests: the example board, descriptors on
// simulated buses, I2C_RDWR messages and expected wire-log entries.
#pragma once

#include "sim.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/i2c.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kv::sim::test
{

inline const std::string example_board = KVSIM_EXAMPLE_BOARD;

class ExampleBoard : public testing::Test
{
  protected:
    void SetUp() override
    {
        load_board(example_board);
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

// SPDX-License-Identifier: Apache-2.0
// 24-series EEPROMs through SMBus byte transactions (libi2c). Every address
// or data write is followed by 5 ms for the part's internal write cycle.
#include "foundation/pause.h"
#include "foundation/resources.h"

#include <libkv/hw.h>

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

extern "C"
{
#include <i2c/smbus.h>
}

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr long kWriteCycleMicroseconds = 5000;
constexpr int kByteAddressed = 1;
constexpr int kWordAddressed = 2;

struct Capability
{
    unsigned long bit;
    const char* name;
};

constexpr Capability kRequired[] = {
    {I2C_FUNC_SMBUS_READ_BYTE, "I2C_FUNC_SMBUS_READ_BYTE"},
    {I2C_FUNC_SMBUS_WRITE_BYTE, "I2C_FUNC_SMBUS_WRITE_BYTE"},
    {I2C_FUNC_SMBUS_READ_BYTE_DATA, "I2C_FUNC_SMBUS_READ_BYTE_DATA"},
    {I2C_FUNC_SMBUS_WRITE_BYTE_DATA, "I2C_FUNC_SMBUS_WRITE_BYTE_DATA"},
    {I2C_FUNC_SMBUS_READ_WORD_DATA, "I2C_FUNC_SMBUS_READ_WORD_DATA"},
    {I2C_FUNC_SMBUS_WRITE_WORD_DATA, "I2C_FUNC_SMBUS_WRITE_WORD_DATA"},
};

// Names a failed write by the bytes it carried, then pauses either way.
int after_write(int result, const char* name)
{
    if (result < 0)
    {
        std::fprintf(stderr, "Error %s: %s\n", name, std::strerror(errno));
    }
    kv::detail::pause_microseconds(kWriteCycleMicroseconds);
    return result;
}

int write_1b(const eeprom* e, uint8_t byte)
{
    return after_write(i2c_smbus_write_byte(e->fd, byte), "i2c_write_1b");
}

int write_2b(const eeprom* e, uint8_t command, uint8_t byte)
{
    return after_write(i2c_smbus_write_byte_data(e->fd, command, byte),
                       "i2c_write_2b");
}

int write_3b(const eeprom* e, uint8_t command, uint16_t word)
{
    return after_write(i2c_smbus_write_word_data(e->fd, command, word),
                       "i2c_write_3b");
}

int unknown_type()
{
    std::fprintf(stderr, "ERR: unknown eeprom type\n");
    return -1;
}

// The kernel keeps no cache for i2c-dev, but the flush is harmless and
// matters when the node is a block-backed EEPROM driver.
void flush(const eeprom* e)
{
    ioctl(e->fd, BLKFLSBUF);
}

} // namespace

extern "C" int eeprom_open(const char* dev, int addr, int type, eeprom* e)
{
    std::memset(e, 0, sizeof *e);
    // Descriptor 0 counts as a failure too, and is closed again.
    kv::detail::UniqueFd fd(open(dev, O_RDWR));
    if (fd.get() < 1)
    {
        return -1;
    }
    unsigned long funcs = 0;
    int result = ioctl(fd.get(), I2C_FUNCS, &funcs);
    if (result < 0)
    {
        return result;
    }
    for (const Capability& capability : kRequired)
    {
        if ((funcs & capability.bit) == 0)
        {
            std::fprintf(stderr,
                         "\nError: %s function is required. Program "
                         "halted.\n\n",
                         capability.name);
            std::exit(1);
        }
    }
    result = ioctl(fd.get(), I2C_SLAVE, addr);
    if (result < 0)
    {
        return result;
    }
    e->dev = dev;
    e->addr = addr;
    e->fd = fd.release(); // the handle owns it until eeprom_close
    e->type = type;
    return 0;
}

extern "C" int eeprom_close(eeprom* e)
{
    close(e->fd); // the handle's own descriptor, taken over in eeprom_open
    e->fd = -1;
    e->dev = nullptr;
    e->type = 0;
    return 0;
}

extern "C" int eeprom_read_current_byte(eeprom* e)
{
    flush(e);
    return i2c_smbus_read_byte(e->fd);
}

extern "C" int eeprom_read_byte(eeprom* e, unsigned mem_addr)
{
    flush(e);
    int result = 0;
    switch (e->type)
    {
        case kByteAddressed:
            result = write_1b(e, static_cast<uint8_t>(mem_addr));
            break;
        case kWordAddressed:
            result = write_2b(e, static_cast<uint8_t>(mem_addr >> 8),
                              static_cast<uint8_t>(mem_addr));
            break;
        default:
            return unknown_type();
    }
    return result < 0 ? result : i2c_smbus_read_byte(e->fd);
}

// A word write goes low byte first: the bus sees high address, low address,
// value.
extern "C" int eeprom_write_byte(eeprom* e, unsigned mem_addr, uint8_t value)
{
    switch (e->type)
    {
        case kByteAddressed:
            return write_2b(e, static_cast<uint8_t>(mem_addr), value);
        case kWordAddressed:
            return write_3b(
                e, static_cast<uint8_t>(mem_addr >> 8),
                static_cast<uint16_t>((value << 8) | (mem_addr & 0xFF)));
        default:
            return unknown_type();
    }
}

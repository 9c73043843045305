// SPDX-License-Identifier: Apache-2.0
#include "smbus.h"

#include "bus.h"

#include <linux/i2c.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <initializer_list>

namespace kv::sim::detail
{
namespace
{

bool is_known_size(uint32_t size)
{
    switch (size)
    {
        case I2C_SMBUS_QUICK:
        case I2C_SMBUS_BYTE:
        case I2C_SMBUS_BYTE_DATA:
        case I2C_SMBUS_WORD_DATA:
        case I2C_SMBUS_PROC_CALL:
        case I2C_SMBUS_BLOCK_DATA:
        case I2C_SMBUS_I2C_BLOCK_BROKEN:
        case I2C_SMBUS_I2C_BLOCK_DATA:
        case I2C_SMBUS_BLOCK_PROC_CALL:
            return true;
        default:
            return false;
    }
}

uint32_t function_needed(uint32_t size, bool read)
{
    switch (size)
    {
        case I2C_SMBUS_QUICK:
            return I2C_FUNC_SMBUS_QUICK;
        case I2C_SMBUS_BYTE:
            return read ? I2C_FUNC_SMBUS_READ_BYTE : I2C_FUNC_SMBUS_WRITE_BYTE;
        case I2C_SMBUS_BYTE_DATA:
            return read ? I2C_FUNC_SMBUS_READ_BYTE_DATA
                        : I2C_FUNC_SMBUS_WRITE_BYTE_DATA;
        case I2C_SMBUS_WORD_DATA:
            return read ? I2C_FUNC_SMBUS_READ_WORD_DATA
                        : I2C_FUNC_SMBUS_WRITE_WORD_DATA;
        case I2C_SMBUS_PROC_CALL:
            return I2C_FUNC_SMBUS_PROC_CALL;
        case I2C_SMBUS_BLOCK_DATA:
            return read ? I2C_FUNC_SMBUS_READ_BLOCK_DATA
                        : I2C_FUNC_SMBUS_WRITE_BLOCK_DATA;
        case I2C_SMBUS_I2C_BLOCK_DATA:
            return read ? I2C_FUNC_SMBUS_READ_I2C_BLOCK
                        : I2C_FUNC_SMBUS_WRITE_I2C_BLOCK;
        default:
            return I2C_FUNC_SMBUS_BLOCK_PROC_CALL;
    }
}

std::size_t data_size(uint32_t size)
{
    switch (size)
    {
        case I2C_SMBUS_BYTE:
        case I2C_SMBUS_BYTE_DATA:
            return sizeof(uint8_t);
        case I2C_SMBUS_WORD_DATA:
        case I2C_SMBUS_PROC_CALL:
            return sizeof(uint16_t);
        default:
            return sizeof(i2c_smbus_data::block);
    }
}

// The messages of one transaction over the kernel's two staging buffers.
class Emulation
{
  public:
    Emulation(const Client& client, uint8_t command)
    {
        out_[0] = command;
        for (Message& message : messages_)
        {
            message.address = client.address;
            message.tenbit = client.tenbit;
        }
        messages_[0].data = out_;
        messages_[0].length = 1;
        messages_[1].read = true;
        messages_[1].data = in_;
    }

    // Lays out the messages for `size`; returns 0 or -errno.
    int prepare(uint32_t size, bool read, const i2c_smbus_data& data)
    {
        count_ = read ? 2 : 1;
        Message& first = messages_[0];
        Message& second = messages_[1];
        switch (size)
        {
            case I2C_SMBUS_QUICK:
                first.length = 0;
                first.read = read;
                count_ = 1;
                break;
            case I2C_SMBUS_BYTE:
                // A byte read is a lone read message.
                first.read = read;
                count_ = 1;
                break;
            case I2C_SMBUS_BYTE_DATA:
                set_write_or_read(read, {data.byte}, 1);
                break;
            case I2C_SMBUS_WORD_DATA:
                set_write_or_read(read, {word_low(data), word_high(data)}, 2);
                break;
            case I2C_SMBUS_PROC_CALL:
                count_ = 2;
                first.length = 3;
                out_[1] = word_low(data);
                out_[2] = word_high(data);
                second.length = 2;
                break;
            case I2C_SMBUS_BLOCK_DATA:
                if (read)
                {
                    second.receive_length = true;
                    second.length = 1;
                    break;
                }
                if (data.block[0] > I2C_SMBUS_BLOCK_MAX)
                {
                    return -EINVAL;
                }
                first.length = data.block[0] + 2u;
                std::memcpy(out_ + 1, data.block, first.length - 1);
                break;
            default: // I2C_SMBUS_I2C_BLOCK_DATA
                if (data.block[0] > I2C_SMBUS_BLOCK_MAX)
                {
                    return -EINVAL;
                }
                if (read)
                {
                    second.length = data.block[0];
                    break;
                }
                first.length = data.block[0] + 1u;
                std::memcpy(out_ + 1, data.block + 1, data.block[0]);
                break;
        }
        return 0;
    }

    int run(State& state, int bus)
    {
        const int done = run_request(state, bus, {messages_, count_});
        return done < 0 ? done : 0;
    }

    // The answer of a successful read, in the layout of i2c_smbus_data.
    void answer(uint32_t size, i2c_smbus_data& data) const
    {
        switch (size)
        {
            case I2C_SMBUS_BYTE:
                data.byte = out_[0];
                break;
            case I2C_SMBUS_BYTE_DATA:
                data.byte = in_[0];
                break;
            case I2C_SMBUS_WORD_DATA:
            case I2C_SMBUS_PROC_CALL:
                data.word = static_cast<uint16_t>(in_[0] | (in_[1] << 8));
                break;
            case I2C_SMBUS_BLOCK_DATA:
                std::memcpy(data.block, in_, in_[0] + 1u);
                break;
            default: // I2C_SMBUS_I2C_BLOCK_DATA
                std::memcpy(data.block + 1, in_, data.block[0]);
                break;
        }
    }

  private:
    static uint8_t word_low(const i2c_smbus_data& data)
    {
        return static_cast<uint8_t>(data.word & 0xff);
    }
    static uint8_t word_high(const i2c_smbus_data& data)
    {
        return static_cast<uint8_t>(data.word >> 8);
    }

    // A write carries the command and `bytes`; a read sends the command and
    // reads `count` bytes after a repeated start.
    void set_write_or_read(bool read, std::initializer_list<uint8_t> bytes,
                           std::size_t count)
    {
        if (read)
        {
            messages_[1].length = count;
            return;
        }
        std::copy(bytes.begin(), bytes.end(), out_ + 1);
        messages_[0].length = 1 + bytes.size();
    }

    uint8_t out_[I2C_SMBUS_BLOCK_MAX + 3] = {};
    uint8_t in_[I2C_SMBUS_BLOCK_MAX + 2] = {};
    Message messages_[2];
    std::size_t count_ = 1;
};

} // namespace

int smbus_transfer(State& state, const Client& client,
                   const i2c_smbus_ioctl_data& request)
{
    uint32_t size = request.size;
    if (!is_known_size(size) || (request.read_write != I2C_SMBUS_READ &&
                                 request.read_write != I2C_SMBUS_WRITE))
    {
        return -EINVAL;
    }
    const bool read = request.read_write == I2C_SMBUS_READ;
    const bool carries_data =
        size != I2C_SMBUS_QUICK && !(size == I2C_SMBUS_BYTE && !read);
    if (carries_data && request.data == nullptr)
    {
        return -EINVAL;
    }
    i2c_smbus_data data{};
    if (carries_data && (!read || size == I2C_SMBUS_PROC_CALL ||
                         size == I2C_SMBUS_I2C_BLOCK_DATA))
    {
        std::memcpy(&data, request.data, data_size(size));
    }
    if (size == I2C_SMBUS_I2C_BLOCK_BROKEN)
    {
        // The old i2c block convention: reads always ask for a full block.
        size = I2C_SMBUS_I2C_BLOCK_DATA;
        if (read)
        {
            data.block[0] = I2C_SMBUS_BLOCK_MAX;
        }
    }
    if ((bus_functions(state, client.bus) & function_needed(size, read)) == 0)
    {
        return -EOPNOTSUPP;
    }
    Emulation emulation(client, request.command);
    if (int error = emulation.prepare(size, read, data))
    {
        return error;
    }
    if (int error = emulation.run(state, client.bus))
    {
        return error;
    }
    if (carries_data && (read || size == I2C_SMBUS_PROC_CALL))
    {
        emulation.answer(size, data);
        std::memcpy(request.data, &data, data_size(request.size));
    }
    return 0;
}

} // namespace kv::sim::detail

// SPDX-License-Identifier: Apache-2.0
#include "devices.h"

#include <linux/i2c.h>

#include <algorithm>
#include <cerrno>

namespace kv::sim::detail
{
namespace
{

// A CPLD's first written byte sets its register pointer; data follow it and
// the pointer moves on after every byte, read or written.
void cpld_write(uint8_t* registers, DeviceSlot& cpld, const uint8_t* in,
                std::size_t count)
{
    if (count == 0)
    {
        return;
    }
    cpld.pointer = in[0];
    for (std::size_t i = 1; i < count; ++i)
    {
        registers[cpld.pointer] = in[i];
        cpld.pointer = (cpld.pointer + 1) % 256;
    }
}

// An EEPROM takes its memory address (high byte first) from the first bytes
// of a write; the data that follow start a write cycle. The address counter
// wraps within the part.
void eeprom_write(uint8_t* memory, DeviceSlot& eeprom, const uint8_t* in,
                  std::size_t count)
{
    if (count < eeprom.address_bytes)
    {
        return;
    }
    uint32_t address = 0;
    for (int i = 0; i < eeprom.address_bytes; ++i)
    {
        address = (address << 8) | in[i];
    }
    eeprom.pointer = address % eeprom.size;
    if (count == eeprom.address_bytes)
    {
        return;
    }
    for (std::size_t i = eeprom.address_bytes; i < count; ++i)
    {
        memory[eeprom.pointer] = in[i];
        eeprom.pointer = (eeprom.pointer + 1) % eeprom.size;
    }
    ++eeprom.write_cycles;
}

void write_bytes(State& state, DeviceSlot& device, const uint8_t* in,
                 std::size_t count)
{
    switch (device.type)
    {
        case DeviceType::cpld:
            cpld_write(memory_of(state, device), device, in, count);
            break;
        case DeviceType::eeprom:
            eeprom_write(memory_of(state, device), device, in, count);
            break;
        case DeviceType::pca9546:
            // Only the four channel bits exist; the last byte written holds.
            for (std::size_t i = 0; i < count; ++i)
            {
                device.mux_control = in[i] & 0x0f;
            }
            break;
    }
}

void read_bytes(State& state, DeviceSlot& device, uint8_t* out,
                std::size_t count)
{
    if (device.type == DeviceType::pca9546)
    {
        std::fill(out, out + count, device.mux_control);
        return;
    }
    const uint8_t* memory = memory_of(state, device);
    for (std::size_t i = 0; i < count; ++i)
    {
        out[i] = memory[device.pointer];
        device.pointer = (device.pointer + 1) % device.size;
    }
}

} // namespace

uint8_t* memory_of(State& state, const DeviceSlot& device)
{
    return state.memory + device.memory_offset;
}

int serve(State& state, DeviceSlot& device, Message& message)
{
    if (!message.read)
    {
        write_bytes(state, device, message.data, message.length);
        return 0;
    }
    if (!message.receive_length)
    {
        read_bytes(state, device, message.data, message.length);
        return 0;
    }
    read_bytes(state, device, message.data, 1);
    const std::size_t count = message.data[0];
    if (count == 0 || count > I2C_SMBUS_BLOCK_MAX)
    {
        message.length = 1;
        return EPROTO;
    }
    read_bytes(state, device, message.data + 1, count);
    message.length = count + 1;
    return 0;
}

} // namespace kv::sim::detail

// SPDX-License-Identifier: Apache-2.0
#include "board_layout.h"

#include <linux/i2c.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <string>

namespace kv::sim::detail
{
namespace
{

[[noreturn]] void reject(const std::string& why)
{
    throw std::invalid_argument("board: " + why);
}

std::string where(const Device& device)
{
    return "device " + std::to_string(device.address) + " on bus " +
           std::to_string(device.bus);
}

void check_memory(const Device& device)
{
    const std::size_t size = device.memory.size();
    switch (device.type)
    {
        case DeviceType::cpld:
            if (size != 256)
            {
                reject(where(device) + ": a CPLD has 256 registers");
            }
            break;
        case DeviceType::eeprom:
            if (device.address_bytes != 1 && device.address_bytes != 2)
            {
                reject(where(device) + ": address width must be 1 or 2");
            }
            if (size == 0 || size > (device.address_bytes == 1 ? 256u : 65536u))
            {
                reject(where(device) + ": size does not fit its addressing");
            }
            break;
        case DeviceType::pca9546:
            if (device.channels.size() != mux_channels)
            {
                reject(where(device) + ": a PCA9546 has 4 channels");
            }
            break;
    }
}

class Layout
{
  public:
    Layout(State& state, const Board& board) : state_(state), board_(board)
    {}

    void run()
    {
        if (board_.devices.size() > max_devices)
        {
            reject("more than " + std::to_string(max_devices) + " devices");
        }
        std::for_each(board_.devices.begin(), board_.devices.end(),
                      check_memory);
        add_channel_buses();
        add_root_buses();
        add_devices();
        for (int i = 0; i < state_.bus_count; ++i)
        {
            state_.buses[i].functions = functions_of(i, 0);
        }
    }

  private:
    BusSlot& add_bus(int number)
    {
        if (number < 0)
        {
            reject("bus numbers are not negative");
        }
        if (index_.contains(number))
        {
            reject("bus " + std::to_string(number) + " is declared twice");
        }
        if (state_.bus_count == max_buses)
        {
            reject("more than " + std::to_string(max_buses) + " buses");
        }
        index_[number] = state_.bus_count;
        BusSlot& slot = state_.buses[state_.bus_count++];
        slot.number = number;
        slot.mux = -1;
        return slot;
    }

    void add_channel_buses()
    {
        for (std::size_t d = 0; d < board_.devices.size(); ++d)
        {
            const Device& device = board_.devices[d];
            if (device.type != DeviceType::pca9546)
            {
                continue;
            }
            for (int c = 0; c < mux_channels; ++c)
            {
                BusSlot& slot = add_bus(device.channels[c]);
                slot.mux = static_cast<int32_t>(d);
                slot.channel = c;
            }
        }
    }

    // Buses named in the board that are not multiplexer channels.
    void add_root_buses()
    {
        std::map<int, int> seen;
        for (const Bus& bus : board_.buses)
        {
            if (++seen[bus.number] > 1)
            {
                reject("bus " + std::to_string(bus.number) +
                       " is declared twice");
            }
            if (!index_.contains(bus.number))
            {
                add_bus(bus.number);
            }
        }
    }

    void add_devices()
    {
        std::size_t pool = 0;
        for (const Device& device : board_.devices)
        {
            if (!index_.contains(device.bus))
            {
                reject(where(device) + ": no such bus");
            }
            if (device.address > 0x7f)
            {
                reject(where(device) + ": not a 7-bit address");
            }
            DeviceSlot& slot = state_.devices[state_.device_count++];
            for (int i = 0; i + 1 < state_.device_count; ++i)
            {
                if (state_.devices[i].bus == device.bus &&
                    state_.devices[i].address == device.address)
                {
                    reject(where(device) + ": address taken");
                }
            }
            if (pool + device.memory.size() > memory_pool_bytes)
            {
                reject("device memory exceeds the simulator's pool");
            }
            slot.type = device.type;
            slot.bus = device.bus;
            slot.address = device.address;
            slot.address_bytes = static_cast<uint8_t>(device.address_bytes);
            slot.size = static_cast<uint32_t>(device.memory.size());
            slot.memory_offset = static_cast<uint32_t>(pool);
            std::copy(device.memory.begin(), device.memory.end(),
                      state_.memory + pool);
            pool += device.memory.size();
            if (device.type == DeviceType::pca9546)
            {
                std::copy(device.channels.begin(), device.channels.end(),
                          slot.channels);
            }
        }
    }

    unsigned long removed_functions(int number) const
    {
        for (const Bus& bus : board_.buses)
        {
            if (bus.number == number)
            {
                return bus.removed_functions;
            }
        }
        return 0;
    }

    // A channel offers what its parent bus offers, less its own removals.
    uint32_t functions_of(int index, int depth) const
    {
        const BusSlot& bus = state_.buses[index];
        if (depth > max_buses)
        {
            reject("multiplexers form a loop at bus " +
                   std::to_string(bus.number));
        }
        unsigned long offered = default_functions();
        if (bus.mux >= 0)
        {
            const int parent = index_.at(state_.devices[bus.mux].bus);
            offered = functions_of(parent, depth + 1);
        }
        return static_cast<uint32_t>(offered & ~removed_functions(bus.number));
    }

    State& state_;
    const Board& board_;
    std::map<int, int> index_; // bus number -> slot
};

} // namespace

unsigned long default_functions()
{
    return I2C_FUNC_I2C | (I2C_FUNC_SMBUS_EMUL & ~I2C_FUNC_SMBUS_PEC) |
           I2C_FUNC_SMBUS_READ_BLOCK_DATA;
}

void lay_out_board(State& state, const Board& board)
{
    Layout(state, board).run();
}

} // namespace kv::sim::detail

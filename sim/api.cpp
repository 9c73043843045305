// SPDX-License-Identifier: Apache-2.0
// The test and tool interface of sim.h over the shared state.
#include "bus.h"
#include "devices.h"
#include "faults.h"
#include "shared_state.h"
#include "sim.h"
#include "wire_log.h"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <ostream>
#include <stdexcept>
#include <string>

namespace kv::sim
{
namespace
{

using namespace detail;

State& loaded()
{
    State* state = current_state();
    if (state == nullptr)
    {
        throw std::out_of_range("kvsim: no board is loaded");
    }
    return *state;
}

DeviceSlot& device_at(State& state, int bus, int address)
{
    for (int i = 0; i < state.device_count; ++i)
    {
        DeviceSlot& device = state.devices[i];
        if (device.bus == bus && device.address == address)
        {
            return device;
        }
    }
    throw std::out_of_range("kvsim: no device " + std::to_string(address) +
                            " on bus " + std::to_string(bus));
}

// The device at bus/address when it has `property`, as `has` tells.
DeviceSlot& device_with(State& state, int bus, int address,
                        const char* property, bool (*has)(DeviceType))
{
    DeviceSlot& device = device_at(state, bus, address);
    if (!has(device.type))
    {
        throw std::invalid_argument("kvsim: device " + std::to_string(address) +
                                    " on bus " + std::to_string(bus) +
                                    " has no " + property);
    }
    return device;
}

bool has_memory(DeviceType type)
{
    return type != DeviceType::pca9546;
}

bool is_eeprom(DeviceType type)
{
    return type == DeviceType::eeprom;
}

bool is_mux(DeviceType type)
{
    return type == DeviceType::pca9546;
}

} // namespace

void load_board(const Board& board)
{
    publish_state(board);
}

void load_board(const std::string& path)
{
    publish_state(read_board(path));
}

std::vector<BusInfo> buses()
{
    std::vector<BusInfo> found;
    State* state = current_state();
    if (state == nullptr)
    {
        return found;
    }
    StateLock hold(*state);
    for (int i = 0; i < state->bus_count; ++i)
    {
        const BusSlot& bus = state->buses[i];
        BusInfo info{bus.number};
        if (bus.mux >= 0)
        {
            const DeviceSlot& mux = state->devices[bus.mux];
            info.parent = mux.bus;
            info.mux_address = mux.address;
            info.channel = bus.channel + 1;
        }
        found.push_back(info);
    }
    std::sort(
        found.begin(), found.end(),
        [](const BusInfo& a, const BusInfo& b) { return a.number < b.number; });
    return found;
}

std::vector<uint8_t> device_memory(int bus, int address)
{
    State& state = loaded();
    StateLock hold(state);
    const DeviceSlot& device =
        device_with(state, bus, address, "memory", has_memory);
    const uint8_t* memory = memory_of(state, device);
    return {memory, memory + device.size};
}

void set_device_memory(int bus, int address, std::size_t offset,
                       const std::vector<uint8_t>& bytes)
{
    State& state = loaded();
    StateLock hold(state);
    const DeviceSlot& device =
        device_with(state, bus, address, "memory", has_memory);
    if (offset > device.size || bytes.size() > device.size - offset)
    {
        throw std::out_of_range("kvsim: bytes beyond the device's memory");
    }
    std::copy(bytes.begin(), bytes.end(), memory_of(state, device) + offset);
}

uint64_t write_cycles(int bus, int address)
{
    State& state = loaded();
    StateLock hold(state);
    return device_with(state, bus, address, "write cycles", is_eeprom)
        .write_cycles;
}

uint8_t mux_control(int bus, int address)
{
    State& state = loaded();
    StateLock hold(state);
    return device_with(state, bus, address, "control register", is_mux)
        .mux_control;
}

std::vector<Transfer> wire_log()
{
    State* state = current_state();
    if (state == nullptr)
    {
        return {};
    }
    StateLock hold(*state);
    return logged_transfers(*state);
}

void clear_wire_log()
{
    State& state = loaded();
    StateLock hold(state);
    state.log_first = state.log_total;
}

std::ostream& operator<<(std::ostream& out, const Transfer& transfer)
{
    out << "bus " << transfer.bus << " 0x" << std::hex << std::setfill('0')
        << std::setw(2) << transfer.address
        << (transfer.read ? " read" : " write") << std::dec << " "
        << transfer.length << " [" << std::hex;
    for (std::size_t i = 0; i < transfer.bytes.size(); ++i)
    {
        out << (i > 0 ? " " : "") << std::setw(2) << int{transfer.bytes[i]};
    }
    out << "]" << std::dec;
    if (transfer.repeated_start)
    {
        out << " after repeated start";
    }
    if (transfer.error != 0)
    {
        out << " failed: " << std::strerror(transfer.error);
    }
    return out;
}

void fail_address(int bus, int address, int error)
{
    State& state = loaded();
    StateLock hold(state);
    add_address_fault(state, bus, static_cast<uint16_t>(address), error);
}

void fail_transfer(unsigned n, int error)
{
    if (n == 0)
    {
        throw std::invalid_argument("kvsim: transfers are counted from 1");
    }
    State& state = loaded();
    StateLock hold(state);
    add_transfer_fault(state, state.transfers + n, error);
}

void clear_faults()
{
    State& state = loaded();
    StateLock hold(state);
    remove_faults(state);
}

void capture_sleeps(bool on)
{
    State& state = loaded();
    StateLock hold(state);
    state.capture_sleeps = on;
}

std::vector<long long> recorded_sleeps()
{
    State& state = loaded();
    StateLock hold(state);
    const uint64_t retained = state.sleep_total > sleep_capacity
                                  ? state.sleep_total - sleep_capacity
                                  : 0;
    std::vector<long long> pauses;
    for (uint64_t n = std::max(retained, state.sleep_first);
         n < state.sleep_total; ++n)
    {
        pauses.push_back(state.sleeps[n % sleep_capacity]);
    }
    return pauses;
}

void clear_sleeps()
{
    State& state = loaded();
    StateLock hold(state);
    state.sleep_first = state.sleep_total;
}

} // namespace kv::sim

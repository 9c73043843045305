// SPDX-License-Identifier: Apache-2.0
#include "bus.h"

#include "devices.h"
#include "faults.h"
#include "wire_log.h"

#include <cerrno>

namespace kv::sim::detail
{
namespace
{

const BusSlot& parent_of(const State& state, const BusSlot& bus)
{
    return *find_bus(state, state.devices[bus.mux].bus);
}

// The device answering `address` on `bus`: one on the bus itself, or one on
// a channel that a multiplexer on the bus has enabled.
DeviceSlot* reach(State& state, int bus, uint16_t address)
{
    for (int i = 0; i < state.device_count; ++i)
    {
        DeviceSlot& device = state.devices[i];
        if (device.bus == bus && device.address == address)
        {
            return &device;
        }
    }
    for (int i = 0; i < state.device_count; ++i)
    {
        const DeviceSlot& mux = state.devices[i];
        if (mux.bus != bus || mux.type != DeviceType::pca9546)
        {
            continue;
        }
        for (int c = 0; c < mux_channels; ++c)
        {
            if ((mux.mux_control & (1u << c)) == 0)
            {
                continue;
            }
            if (DeviceSlot* device = reach(state, mux.channels[c], address))
            {
                return device;
            }
        }
    }
    return nullptr;
}

// A request on a channel's bus makes the mux driver enable that channel
// alone, on every multiplexer between the bus and its root. Returns 0 or the
// errno of a multiplexer that does not answer.
int select_channels(State& state, const BusSlot& bus)
{
    for (const BusSlot* at = &bus; at->mux >= 0; at = &parent_of(state, *at))
    {
        DeviceSlot& mux = state.devices[at->mux];
        if (int error = address_fault(state, mux.bus, mux.address, &mux))
        {
            return error;
        }
        mux.mux_control = static_cast<uint8_t>(1u << at->channel);
    }
    return 0;
}

int root_of(const State& state, const BusSlot& bus)
{
    const BusSlot* at = &bus;
    while (at->mux >= 0)
    {
        at = &parent_of(state, *at);
    }
    return at->number;
}

int transfer(State& state, const BusSlot& bus, Message& message,
             bool repeated_start)
{
    int error = scheduled_fault(state, ++state.transfers);
    if (error == 0)
    {
        // No device here has a 10-bit address.
        DeviceSlot* device =
            message.tenbit ? nullptr
                           : reach(state, root_of(state, bus), message.address);
        error = address_fault(state, bus.number, message.address, device);
        if (error == 0)
        {
            error = device != nullptr ? serve(state, *device, message) : ENXIO;
        }
    }
    record(state, bus.number, message, repeated_start, error);
    return error;
}

} // namespace

const BusSlot* find_bus(const State& state, int number)
{
    for (int i = 0; i < state.bus_count; ++i)
    {
        if (state.buses[i].number == number)
        {
            return &state.buses[i];
        }
    }
    return nullptr;
}

bool bus_exists(State& state, int bus)
{
    StateLock hold(state);
    return find_bus(state, bus) != nullptr;
}

uint32_t bus_functions(State& state, int bus)
{
    StateLock hold(state);
    const BusSlot* slot = find_bus(state, bus);
    return slot != nullptr ? slot->functions : 0;
}

int run_request(State& state, int bus_number, std::span<Message> messages)
{
    StateLock hold(state);
    const BusSlot* bus = find_bus(state, bus_number);
    if (bus == nullptr)
    {
        return -ENODEV;
    }
    if (int error = select_channels(state, *bus))
    {
        return -error;
    }
    for (std::size_t i = 0; i < messages.size(); ++i)
    {
        if (int error = transfer(state, *bus, messages[i], i > 0))
        {
            return -error;
        }
    }
    return static_cast<int>(messages.size());
}

} // namespace kv::sim::detail

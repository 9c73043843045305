// SPDX-License-Identifier: Apache-2.0
#include "faults.h"

#include <stdexcept>

namespace kv::sim::detail
{
namespace
{

void add_fault(State& state, const FaultSlot& fault)
{
    for (FaultSlot& slot : state.faults)
    {
        if (slot.kind == FaultKind::none)
        {
            slot = fault;
            return;
        }
    }
    throw std::length_error("kvsim: too many faults at once");
}

} // namespace

void add_address_fault(State& state, int bus, uint16_t address, int error)
{
    add_fault(state, {FaultKind::address, bus, address, error, 0});
}

void add_transfer_fault(State& state, uint64_t number, int error)
{
    add_fault(state, {FaultKind::transfer, 0, 0, error, number});
}

void remove_faults(State& state)
{
    for (FaultSlot& slot : state.faults)
    {
        slot.kind = FaultKind::none;
    }
}

int scheduled_fault(State& state, uint64_t number)
{
    for (FaultSlot& slot : state.faults)
    {
        if (slot.kind == FaultKind::transfer && slot.at == number)
        {
            slot.kind = FaultKind::none;
            return slot.error;
        }
    }
    return 0;
}

int address_fault(const State& state, int bus, uint16_t address,
                  const DeviceSlot* device)
{
    for (const FaultSlot& slot : state.faults)
    {
        const bool on_bus =
            slot.bus == bus || (device != nullptr && device->bus == slot.bus);
        if (slot.kind == FaultKind::address && slot.address == address &&
            on_bus)
        {
            return slot.error;
        }
    }
    return 0;
}

} // namespace kv::sim::detail

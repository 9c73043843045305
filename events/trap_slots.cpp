// SPDX-License-Identifier: Apache-2.0
// Trap requests for the SNMP agent, left in the trap slots of the platform
// segment. The agent sends the trap and frees the slot; the 32-bit state
// word is the only handshake between the processes.
#include "foundation/byte_order.h"
#include "ipc/platform_segment.h"

#include <libkv/events.h>
#include <libkv/ipc.h>

#include <atomic>
#include <cstring>

namespace
{

namespace segment = kv::segment;
namespace field = kv::segment::trap_slot_field;

enum TrapSlotState : uint32_t
{
    kFree = 0,
    kBeingWritten = 1,
    kReady = 2,
};

} // namespace

extern "C" int snmpSendTrap(uint32_t code, uint32_t value, uint8_t kind,
                            const char* text)
{
    auto* shm = static_cast<uint8_t*>(get_shm_address());
    // Without the segment there is nowhere to leave the request: it is
    // dropped like one that finds every slot taken.
    if (shm == nullptr)
    {
        return 0;
    }
    for (unsigned i = 0; i < segment::kTrapSlotCount; ++i)
    {
        uint8_t* slot = shm + segment::trap_slot(i);
        if (kv::detail::le32(slot + field::kState) != kFree)
        {
            continue;
        }
        // The agent waits for state 2, so it never reads a half-written
        // slot. Two processes may still claim the same free slot at once;
        // the later one wins.
        kv::detail::store_le32(slot + field::kState, kBeingWritten);
        std::atomic_thread_fence(std::memory_order_release);
        kv::detail::store_le32(slot + field::kCode, code);
        kv::detail::store_le32(slot + field::kValue, value);
        slot[field::kKind] = kind;
        // strncpy's rule: a text of 200 bytes or more keeps no terminator,
        // a shorter one is padded with zeros.
        std::strncpy(reinterpret_cast<char*>(slot + field::kText),
                     text != nullptr ? text : "", field::kTextSize);
        std::atomic_thread_fence(std::memory_order_release);
        kv::detail::store_le32(slot + field::kState, kReady);
        return 0;
    }
    return 0;
}

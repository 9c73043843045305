// SPDX-License-Identifier: Apache-2.0
// The System V segments shared by the BMC's daemons. Whichever process comes
// first creates a segment; every process attaches it once and keeps it.
#include "ipc/platform_segment.h"

#include <libkv/ipc.h>

#include <sys/ipc.h>
#include <sys/shm.h>

namespace
{

void* platform_segment = nullptr;
void* raid_segment = nullptr;
void* ai_card_segment = nullptr;

void* attach(key_t key, size_t size)
{
    const int id = shmget(key, size, IPC_CREAT | 0777);
    if (id < 0)
    {
        return nullptr;
    }
    void* address = shmat(id, nullptr, 0);
    return address == reinterpret_cast<void*>(-1) ? nullptr : address;
}

// A failed attach leaves the cache empty so that the next call tries again.
void* attach_cached(void*& cache, key_t key, size_t size)
{
    if (cache == nullptr)
    {
        cache = attach(key, size);
    }
    return cache;
}

} // namespace

extern "C" void* init_shm(void)
{
    return attach_cached(platform_segment, kv::segment::kPlatformKey,
                         kv::segment::kPlatformSize);
}

extern "C" void* init_sel_shm(void)
{
    return attach(kv::segment::kSelKey, kv::segment::kSelSize);
}

extern "C" void* init_raid_shm(void)
{
    return attach_cached(raid_segment, kv::segment::kRaidKey,
                         kv::segment::kRaidSize);
}

extern "C" void* init_ai_card_shm(void)
{
    return attach_cached(ai_card_segment, kv::segment::kAiCardKey,
                         kv::segment::kAiCardSize);
}

extern "C" void* get_shm_address(void)
{
    return init_shm();
}

extern "C" void* get_share_mem(void)
{
    return platform_segment;
}

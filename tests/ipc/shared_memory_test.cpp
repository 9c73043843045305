// SPDX-License-Identifier: Apache-2.0
// The System V segments: keys, sizes, modes and the per-process caches. The
// checks run in forked children, so that this process never caches an
// address from an earlier test's IPC namespace.
#include "test_helpers.h"

#include <libkv/ipc.h>

#include <sys/shm.h>

namespace
{

void in_child(const std::function<void()>& body)
{
    EXPECT_EQ(0, kv::test::exit_status_of([&] {
                  body();
                  return int(testing::Test::HasFailure());
              }));
}

TEST(SharedMemory, ProcessesAttachOnceAndShareTheSegments)
{
    EXPECT_EQ(nullptr, get_share_mem());
    in_child([] {
        EXPECT_EQ(nullptr, get_share_mem());
        auto* segment = static_cast<char*>(get_shm_address());
        EXPECT_TRUE(segment && segment == init_shm() &&
                    segment == get_share_mem());
        EXPECT_TRUE(init_raid_shm() && init_raid_shm() == init_raid_shm());
        EXPECT_TRUE(init_ai_card_shm() &&
                    init_ai_card_shm() == init_ai_card_shm());
        segment[0xC00000 - 1] = 'm';
    });
    in_child([] {
        auto* sel = static_cast<char*>(init_sel_shm());
        auto* again = static_cast<char*>(init_sel_shm());
        EXPECT_NE(sel, again); // attached anew on every call
        sel[0xC00000 - 1] = 's';
        EXPECT_EQ('s', again[0xC00000 - 1]);
        EXPECT_EQ('m', static_cast<char*>(init_shm())[0xC00000 - 1]);
    });
    for (auto [key, size] : {std::pair{0x1314500, 0xC00000},
                             {0x1234500, 0xC00000},
                             {0x1314501, 0x300000},
                             {0x1314502, 4096}})
    {
        shmid_ds info{};
        EXPECT_EQ(0, shmctl(shmget(key, 0, 0), IPC_STAT, &info)) << key;
        EXPECT_EQ(size_t(size), info.shm_segsz);
        EXPECT_EQ(0777, info.shm_perm.mode & 0777);
    }
}

TEST(SharedMemory, FailedAttachIsRetriedOnTheNextCall)
{
    // A smaller segment under the platform key makes the 12 MiB request fail.
    const int blocker = shmget(0x1314500, 16, IPC_CREAT | 0600);
    in_child([blocker] {
        EXPECT_EQ(nullptr, init_shm());
        EXPECT_EQ(nullptr, get_share_mem());
        shmctl(blocker, IPC_RMID, nullptr);
        EXPECT_NE(nullptr, init_shm());
    });
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// The System V segments: keys, sizes, modes and the per-process caches.
// Every check runs in a forked child, so that this test process never
// caches an address from an earlier test's IPC namespace.
#include "ipc/platform_segment.h"
#include "test_helpers.h"

#include <libkv/ipc.h>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstring>

namespace
{

using kv::test::exit_status_of;

// Exit status 0 when `check` holds, 1 otherwise.
int child(bool check)
{
    return check ? 0 : 1;
}

bool segment_is(int key, size_t size)
{
    const int id = shmget(key, 0, 0);
    shmid_ds info{};
    return id >= 0 && shmctl(id, IPC_STAT, &info) == 0 &&
           info.shm_segsz == size && (info.shm_perm.mode & 0777) == 0777;
}

TEST(SharedMemory, SegmentsAreCreatedWithTheirKeysSizesAndModes)
{
    EXPECT_EQ(exit_status_of([] {
                  return child(init_shm() && init_sel_shm() &&
                               init_raid_shm() && init_ai_card_shm());
              }),
              0);
    EXPECT_TRUE(segment_is(0x1314500, 0xC00000));
    EXPECT_TRUE(segment_is(0x1234500, 0xC00000));
    EXPECT_TRUE(segment_is(0x1314501, 0x300000));
    EXPECT_TRUE(segment_is(0x1314502, 4096));
}

TEST(SharedMemory, PlatformSegmentIsAttachedOncePerProcess)
{
    EXPECT_EQ(exit_status_of([] {
                  const bool empty_before = get_share_mem() == nullptr;
                  void* first = get_shm_address();
                  return child(empty_before && first != nullptr &&
                               init_shm() == first &&
                               get_share_mem() == first &&
                               init_raid_shm() == init_raid_shm() &&
                               init_ai_card_shm() == init_ai_card_shm());
              }),
              0);
}

TEST(SharedMemory, ProcessesSeeEachOthersWrites)
{
    const size_t where = kv::segment::kMailRecord;
    ASSERT_EQ(exit_status_of([&] {
                  auto* segment = static_cast<uint8_t*>(init_shm());
                  std::memcpy(segment + where, "mail", 4);
                  return child(segment != nullptr);
              }),
              0);
    EXPECT_EQ(exit_status_of([&] {
                  auto* segment = static_cast<uint8_t*>(get_shm_address());
                  return child(std::memcmp(segment + where, "mail", 4) == 0);
              }),
              0);
}

TEST(SharedMemory, SelSegmentIsAttachedAnewOnEveryCall)
{
    EXPECT_EQ(exit_status_of([] {
                  auto* first = static_cast<uint8_t*>(init_sel_shm());
                  auto* second = static_cast<uint8_t*>(init_sel_shm());
                  if (first == nullptr || second == nullptr || first == second)
                  {
                      return 1;
                  }
                  first[100] = 0x5A;
                  return child(second[100] == 0x5A);
              }),
              0);
}

TEST(SharedMemory, FailedAttachIsRetriedOnTheNextCall)
{
    // A smaller segment under the platform key makes the 12 MiB request fail.
    const int blocker = shmget(0x1314500, 16, IPC_CREAT | 0600);
    ASSERT_GE(blocker, 0);
    EXPECT_EQ(exit_status_of([blocker] {
                  const bool failed =
                      init_shm() == nullptr && get_share_mem() == nullptr;
                  shmctl(blocker, IPC_RMID, nullptr);
                  return child(failed && init_shm() != nullptr);
              }),
              0);
}

TEST(SharedMemory, NothingIsAttachedUntilAsked)
{
    EXPECT_EQ(get_share_mem(), nullptr);
}

} // namespace

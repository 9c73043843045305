// SPDX-License-Identifier: Apache-2.0
// FIFOs, framed records, the two storage channels, lists of byte blobs and
// the System V segments.
#include "test_helpers.h"

#include <libkv/ipc.h>

#include <fcntl.h>
#include <sys/shm.h>
#include <sys/socket.h>

using namespace kv::test;
using S = std::string;

// out: payload length, the code in native order, then the payload. A length
// byte of 0 is what a receive that timed out reports.
TEST(Fifo, RecordsAndList)
{
    uint8_t out[257];
    const auto got = [&](size_t n) { return S((char*)out, n); };
    EXPECT_EQ(-2, send_storage_func(1, "x", 1) + recv_storage_func(out, 0, 0));
    make_dirs("/run/fifo");
    ASSERT_EQ(0, AddQueue("/run/fifo/storage_w", 0) +
                     AddQueue("/run/fifo/storage_r", 0));
    // Holding an end keeps a FIFO's buffer alive between calls.
    const int fd = open("/run/fifo/storage_w", O_RDWR | O_NONBLOCK);
    const int redfish = open("/run/fifo/storage_r", O_RDWR);
    EXPECT_EQ(0, send_storage_func(0x01020304, "\xAA\xBB", 2) +
                     send_storage_func(0xDEADBEEF, nullptr, 0));
    EXPECT_EQ(-2, send_storage_func(1, nullptr, 1) +
                      send_storage_func(1, S(252, 0).data(), 252));
    EXPECT_EQ(12, read(fd, out, 20));
    EXPECT_EQ(got(12), "\6\4\3\2\1\xAA\xBB\4\xEF\xBE\xAD\xDE");
    const S payload(251, 'p');
    ASSERT_EQ(0, storage_send_redfish_func(0x11223344, payload.data(), 251) +
                     redfish_recv_storage_func(out, 0, 0));
    EXPECT_EQ(got(256), "\xFB\x44\x33\x22\x11" + payload);
    ASSERT_EQ(1, write(fd, "", 1));
    EXPECT_EQ(0, recv_storage_func(out, 0, 0));
    EXPECT_EQ(got(257), "\xFC" + S(256, 0));
    close(fd);
    close(redfish);

    // A queue is made only where the path is free; a record may come in
    // pieces and end of file ends it short.
    EXPECT_EQ(-1, AddQueue("/run/no-such-dir/fifo", 0));
    write_text("/run/plain", "x");
    EXPECT_EQ(0, AddQueue("/run/q", 0) + AddQueue("/run/q", 0) +
                     AddQueue("/run/plain", 0));
    EXPECT_EQ(read_text("/run/plain"), "x");
    const int q = GetQueue("/run/q", O_RDWR, 0);
    unsigned len = 0;
    EXPECT_EQ(-3, readMsg(q, out, &len, 0) + writeMsg(-1, "\3abc", 4));
    ASSERT_EQ(0, writeMsg(q, "\3abc", 4) + readMsg(q, out, &len, 1));
    EXPECT_EQ("abc", got(len));
    close(q);

    int ends[2], n = 0;
    char text[16] = {};
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends));
    ASSERT_EQ(7, write(ends[1], "abc", 3) + write(ends[1], "defg", 4));
    close(ends[1]);
    EXPECT_EQ(0, get_from_q(text, 9, ends[0], &n));
    EXPECT_EQ(S(text) + S(n, '.'), "abcdefg.......");
    close(ends[0]);

    // Nodes keep private copies in order; the sanitizer build reports anything
    // ClearList leaves behind.
    EXPECT_FALSE(CreateList(0, nullptr, 4) || InsertLastList(nullptr, "a", 1));
    char first[] = "first";
    ListNode* list = CreateList(0, first, 5);
    first[0] = 'X';
    EXPECT_EQ(nullptr, InsertLastList(list, nullptr, 3));
    ListNode* last = list;
    for (const S text : {"second", "", "fourth", "fifth"})
        last = InsertLastList(last, text.data(), text.size());
    for (const S text : {"first", "second", "", "fourth"})
    {
        ListNode* head = GetHeadList(&list);
        ASSERT_TRUE(head);
        EXPECT_EQ(text, S((char*)head->data, head->size));
        EXPECT_EQ(nullptr, head->next);
        std::free(head->data);
        std::free(head);
    }
    ClearList(&list);
    EXPECT_EQ(nullptr, GetHeadList(&list));
    ClearList(&list);
}

// The checks run in forked children, so that this process never caches an
// address from an earlier test's IPC namespace.
void in_child(const std::function<void()>& body)
{
    EXPECT_EQ(0, exit_status_of([&] {
                  body();
                  return int(testing::Test::HasFailure());
              }));
}

// A smaller segment under the platform key makes the 12 MiB request fail;
// the next call tries again.
TEST(SharedMemory, Segments)
{
    EXPECT_EQ(nullptr, get_share_mem());
    const int blocker = shmget(0x1314500, 16, IPC_CREAT | 0600);
    in_child([blocker] {
        EXPECT_EQ(nullptr, init_shm());
        EXPECT_EQ(nullptr, get_share_mem());
        shmctl(blocker, IPC_RMID, nullptr);
        auto* segment = (char*)get_shm_address();
        EXPECT_TRUE(segment && segment == init_shm() &&
                    segment == get_share_mem());
        EXPECT_TRUE(init_raid_shm() && init_raid_shm() == init_raid_shm());
        EXPECT_TRUE(init_ai_card_shm() &&
                    init_ai_card_shm() == init_ai_card_shm());
        segment[0xC00000 - 1] = 'm';
    });
    in_child([] {
        auto *sel = (char*)init_sel_shm(), *again = (char*)init_sel_shm();
        EXPECT_NE(sel, again); // attached anew on every call
        sel[0xC00000 - 1] = 's';
        EXPECT_EQ('s', again[0xC00000 - 1]);
        EXPECT_EQ('m', ((char*)init_shm())[0xC00000 - 1]);
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

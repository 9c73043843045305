// SPDX-License-Identifier: Apache-2.0
// FIFOs, framed records and the two storage channels.
#include "test_helpers.h"

#include <libkv/ipc.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <numeric>

namespace
{

using testing::ElementsAre;
using Bytes = std::vector<uint8_t>;

// out: payload length, the code in native order, then the payload.
TEST(Fifo, StorageRecordsAreLengthCodeAndPayload)
{
    Bytes out(257, 0x77);
    EXPECT_EQ(-1, send_storage_func(1, "x", 1));
    EXPECT_EQ(-1, recv_storage_func(out.data(), 0, 0));
    kv::test::make_dirs("/run/fifo");
    ASSERT_EQ(0, AddQueue("/run/fifo/storage_w", 0));
    ASSERT_EQ(0, AddQueue("/run/fifo/storage_r", 0));
    // Holding an end keeps a FIFO's buffer alive between calls.
    const int fd = open("/run/fifo/storage_w", O_RDWR | O_NONBLOCK);
    const int redfish = open("/run/fifo/storage_r", O_RDWR);
    EXPECT_EQ(0, send_storage_func(0x01020304, "\xAA\xBB", 2));
    EXPECT_EQ(0, send_storage_func(0xDEADBEEF, nullptr, 0));
    EXPECT_EQ(-1, send_storage_func(1, nullptr, 1));
    EXPECT_EQ(-1, send_storage_func(1, Bytes(252).data(), 252)); // wraps
    EXPECT_EQ(12, read(fd, out.data(), 20));
    EXPECT_THAT(
        Bytes(out.begin(), out.begin() + 12),
        ElementsAre(6, 4, 3, 2, 1, 0xAA, 0xBB, 4, 0xEF, 0xBE, 0xAD, 0xDE));

    Bytes payload(251);
    std::iota(payload.begin(), payload.end(), 1);
    ASSERT_EQ(0, storage_send_redfish_func(0x11223344, payload.data(), 251));
    ASSERT_EQ(0, send_storage_func(7, "x", 1));
    uint32_t code = 0;
    EXPECT_EQ(0, redfish_recv_storage_func(out.data(), 0, 0));
    std::memcpy(&code, &out[1], 4);
    EXPECT_EQ(251, out[0]);
    EXPECT_EQ(0x11223344u, code);
    EXPECT_EQ(payload, Bytes(out.begin() + 5, out.begin() + 256));
    EXPECT_EQ(0, recv_storage_func(out.data(), 0, 0));
    EXPECT_THAT(Bytes(out.begin(), out.begin() + 6),
                ElementsAre(1, 7, 0, 0, 0, 'x'));
    // A record of length 0 is what a receive that timed out reports.
    ASSERT_EQ(1, write(fd, "", 1));
    EXPECT_EQ(0, recv_storage_func(out.data(), 0, 0));
    EXPECT_EQ(252, out[0]);
    EXPECT_EQ(Bytes(256), Bytes(out.begin() + 1, out.end()));
    close(fd);
    close(redfish);
}

TEST(Fifo, QueueIsMadeOnlyWhereThePathIsFree)
{
    EXPECT_EQ(-1, AddQueue("/run/no-such-dir/fifo", 0));
    kv::test::write_text("/run/plain", "x");
    EXPECT_THAT(std::vector({AddQueue("/run/q", 0), AddQueue("/run/q", 0),
                             AddQueue("/run/plain", 0)}),
                ElementsAre(0, 0, 0));
    struct stat info
    {};
    EXPECT_TRUE(stat("/run/q", &info) == 0 && S_ISFIFO(info.st_mode));
    EXPECT_TRUE(stat("/run/plain", &info) == 0 && S_ISREG(info.st_mode));

    const int fd = GetQueue("/run/q", O_RDWR, 0);
    uint8_t buf[256];
    unsigned len = 99;
    EXPECT_EQ(-2, readMsg(fd, buf, &len, 0));
    EXPECT_EQ(99u, len);
    EXPECT_EQ(-1, writeMsg(-1, "\3abc", 4));
    ASSERT_EQ(0, writeMsg(fd, "\3abc", 4));
    EXPECT_EQ(0, readMsg(fd, buf, &len, 1));
    EXPECT_EQ("abc", std::string(buf, buf + len));
    close(fd);
}

// A record may come in pieces; end of file ends it short.
TEST(Fifo, GetFromQueueCollectsPiecesUntilEndOfFile)
{
    int ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends));
    ASSERT_EQ(3, write(ends[1], "abc", 3));
    ASSERT_EQ(4, write(ends[1], "defg", 4));
    close(ends[1]);
    char buf[16] = {};
    int got = 0;
    EXPECT_EQ(0, get_from_q(buf, 9, ends[0], &got));
    EXPECT_EQ(7, got);
    EXPECT_STREQ("abcdefg", buf);
    close(ends[0]);
}

} // namespace

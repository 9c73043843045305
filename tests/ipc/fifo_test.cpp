// SPDX-License-Identifier: Apache-2.0
// FIFOs, framed records and the storage channels.
#include "test_helpers.h"

#include <libkv/ipc.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstring>
#include <vector>

namespace
{

using kv::test::exit_status_of;
using kv::test::make_dirs;
using Bytes = std::vector<uint8_t>;

class StorageFifo : public testing::Test
{
  protected:
    void SetUp() override
    {
        make_dirs("/run/fifo");
        ASSERT_EQ(AddQueue("/run/fifo/storage_w", 0), 0);
        ASSERT_EQ(AddQueue("/run/fifo/storage_r", 0), 0);
        // Holding both ends keeps the FIFO's buffer alive between calls.
        reader_ = open("/run/fifo/storage_w", O_RDWR | O_NONBLOCK);
        ASSERT_GE(reader_, 0);
    }
    void TearDown() override
    {
        close(reader_);
    }

    Bytes pending()
    {
        std::array<uint8_t, 4096> buf{};
        const ssize_t n = read(reader_, buf.data(), buf.size());
        return n > 0 ? Bytes(buf.begin(), buf.begin() + n) : Bytes{};
    }

    int reader_ = -1;
};

TEST_F(StorageFifo, RecordIsLengthCodeLeastSignificantFirstThenPayload)
{
    const uint8_t payload[] = {0xAA, 0xBB, 0xCC};
    EXPECT_EQ(send_storage_func(0x01020304, payload, 3), 0);
    EXPECT_EQ(pending(),
              (Bytes{0x07, 0x04, 0x03, 0x02, 0x01, 0xAA, 0xBB, 0xCC}));

    EXPECT_EQ(send_storage_func(0xDEADBEEF, nullptr, 0), 0);
    EXPECT_EQ(pending(), (Bytes{0x04, 0xEF, 0xBE, 0xAD, 0xDE}));
}

TEST_F(StorageFifo, ReceiveGivesPayloadLengthNativeCodeAndPayload)
{
    const uint8_t payload[] = {1, 2, 3, 4, 5};
    ASSERT_EQ(send_storage_func(0x11223344, payload, 5), 0);

    std::array<uint8_t, 257> out{};
    EXPECT_EQ(recv_storage_func(out.data(), 0, 0), 0);
    uint32_t code = 0;
    std::memcpy(&code, &out[1], 4);
    EXPECT_EQ(out[0], 5);
    EXPECT_EQ(code, 0x11223344u);
    EXPECT_EQ(Bytes(out.begin() + 5, out.begin() + 10), (Bytes{1, 2, 3, 4, 5}));
}

TEST_F(StorageFifo, EmptyRecordReadsAsTheEmptyReceive)
{
    // A record of length 0 is what a receive that timed out reports.
    const uint8_t empty = 0;
    ASSERT_EQ(write(reader_, &empty, 1), 1);
    std::array<uint8_t, 257> out;
    out.fill(0x77);
    EXPECT_EQ(recv_storage_func(out.data(), 0, 0), 0);
    EXPECT_EQ(out[0], 252);
    EXPECT_TRUE(std::all_of(out.begin() + 1, out.end(),
                            [](uint8_t b) { return b == 0; }));
}

TEST_F(StorageFifo, RedfishChannelUsesItsOwnFifo)
{
    const int redfish = open("/run/fifo/storage_r", O_RDWR | O_NONBLOCK);
    ASSERT_GE(redfish, 0);
    ASSERT_EQ(storage_send_redfish_func(7, "x", 1), 0);
    EXPECT_TRUE(pending().empty());

    std::array<uint8_t, 257> out{};
    EXPECT_EQ(redfish_recv_storage_func(out.data(), 0, 0), 0);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[1], 7);
    EXPECT_EQ(out[5], 'x');
    close(redfish);
}

TEST(Fifo, MissingStorageFifoIsAnError)
{
    std::array<uint8_t, 257> out{};
    EXPECT_EQ(send_storage_func(1, "x", 1), -1);
    EXPECT_EQ(recv_storage_func(out.data(), 0, 0), -1);
    EXPECT_EQ(AddQueue("/run/no-such-dir/fifo", 0), -1);
}

TEST(Fifo, AddQueueMakesAFifoOnlyWhenThePathIsFree)
{
    EXPECT_EQ(AddQueue("/run/q", 0), 0);
    struct stat info
    {};
    ASSERT_EQ(stat("/run/q", &info), 0);
    EXPECT_TRUE(S_ISFIFO(info.st_mode));

    kv::test::write_text("/run/plain", "x");
    EXPECT_EQ(AddQueue("/run/plain", 0), 0);
    ASSERT_EQ(stat("/run/plain", &info), 0);
    EXPECT_TRUE(S_ISREG(info.st_mode));
}

TEST(Fifo, ReadMsgTimesOutWithoutWaitingForZeroSeconds)
{
    ASSERT_EQ(AddQueue("/run/q", 0), 0);
    const int fd = GetQueue("/run/q", O_RDWR, 0);
    ASSERT_GE(fd, 0);
    std::array<uint8_t, 256> buf{};
    unsigned len = 99;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(readMsg(fd, buf.data(), &len, 0), -2);
    EXPECT_LT(std::chrono::steady_clock::now() - start,
              std::chrono::milliseconds(500));
    EXPECT_EQ(len, 99u);

    const uint8_t record[] = {3, 'a', 'b', 'c'};
    ASSERT_EQ(writeMsg(fd, record, sizeof record), 0);
    EXPECT_EQ(readMsg(fd, buf.data(), &len, 1), 0);
    EXPECT_EQ(len, 3u);
    EXPECT_EQ(std::string(buf.begin(), buf.begin() + 3), "abc");
    close(fd);
}

TEST(Fifo, ConcurrentWritersNeverInterleaveRecords)
{
    ASSERT_EQ(AddQueue("/run/q", 0), 0);
    const int fd = GetQueue("/run/q", O_RDWR, 0);
    ASSERT_GE(fd, 0);
    constexpr int kRecords = 50;
    constexpr size_t kBody = 200;

    std::vector<pid_t> writers;
    for (uint8_t mark : {uint8_t{'A'}, uint8_t{'B'}})
    {
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0)
        {
            std::array<uint8_t, kBody + 1> record;
            record.fill(mark);
            record[0] = kBody;
            for (int i = 0; i < kRecords; ++i)
            {
                if (writeMsg(fd, record.data(), record.size()) != 0)
                {
                    _exit(1);
                }
            }
            _exit(0);
        }
        writers.push_back(pid);
    }

    int seen[2] = {0, 0};
    for (int i = 0; i < 2 * kRecords; ++i)
    {
        std::array<uint8_t, 256> buf{};
        unsigned len = 0;
        ASSERT_EQ(readMsg(fd, buf.data(), &len, 5), 0);
        ASSERT_EQ(len, kBody);
        ASSERT_TRUE(buf[0] == 'A' || buf[0] == 'B');
        EXPECT_TRUE(std::all_of(buf.begin(), buf.begin() + kBody,
                                [&](uint8_t b) { return b == buf[0]; }))
            << "record " << i << " mixes two writers";
        ++seen[buf[0] - 'A'];
    }
    for (pid_t pid : writers)
    {
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(seen[0], kRecords);
    EXPECT_EQ(seen[1], kRecords);
    close(fd);
}

TEST(Fifo, GetFromQueueCollectsPiecesAndStopsAtEndOfFile)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0)
    {
        close(ends[0]);
        write(ends[1], "abc", 3);
        usleep(20000);
        write(ends[1], "defg", 4);
        _exit(0);
    }
    close(ends[1]);
    char buf[16] = {};
    int got = 0;
    EXPECT_EQ(get_from_q(buf, 7, ends[0], &got), 0);
    EXPECT_EQ(got, 7);
    EXPECT_STREQ(buf, "abcdefg");

    waitpid(pid, nullptr, 0);
    EXPECT_EQ(get_from_q(buf, 4, ends[0], &got), 0);
    EXPECT_EQ(got, 0);
    close(ends[0]);
}

} // namespace

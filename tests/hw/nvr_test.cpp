// SPDX-License-Identifier: Apache-2.0
// Record files: reads from byte 0, writes at the offset, missing files made,
// and a reader kept waiting while a writer holds the lock.
#include "hw_test.h"

#include <libkv/foundation.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>

using namespace kv::hw::test;
namespace
{

const std::string record = "/tmp/nvr/record";

TEST(RecordFiles, ReadFromZeroWriteAtOffsetCreateWhenMissing)
{
    write_text(record, "ABCDEFGH");
    uint8_t buf[8] = {};
    EXPECT_EQ(4, API_ReadNVR(record.c_str(), 100, 4, buf));
    EXPECT_EQ("ABCD", std::string(buf, buf + 4));
    EXPECT_EQ(8, ReadWriteNVR(record.c_str(), buf, 0, 20, 2));
    uint8_t xy[] = {'x', 'y'};
    EXPECT_EQ(2, API_WriteNVR(record.c_str(), 3, 2, xy));
    EXPECT_EQ(2, ReadWriteNVR(record.c_str(), xy, 9, 2, 7)); // 7 writes too
    EXPECT_EQ(std::string("ABCxyFGH\0xy", 11), read_text(record));

    buf[0] = 0xAA;
    EXPECT_EQ(0, API_ReadNVR("/tmp/nvr/missing", 0, 4, buf));
    EXPECT_EQ("", read_text("/tmp/nvr/missing"));
    EXPECT_EQ(0xAA, buf[0]);
    EXPECT_EQ(2, API_WriteNVR("/tmp/nvr/new", 4, 2, xy));
    EXPECT_EQ(std::string("\0\0\0\0xy", 6), read_text("/tmp/nvr/new"));
    EXPECT_EQ(-1, API_ReadNVR("/tmp/no-dir/record", 0, 4, buf));
}

// Whether the kernel lists `pid` as waiting for a POSIX lock.
bool waits_for_lock(pid_t pid)
{
    std::ifstream locks("/proc/locks");
    const std::string owner = " " + std::to_string(pid) + " ";
    for (std::string line; std::getline(locks, line);)
    {
        if (line.find("-> POSIX") != std::string::npos &&
            line.find(owner) != std::string::npos)
        {
            return true;
        }
    }
    return false;
}

TEST(RecordFiles, ReaderWaitsWhileAWriterHoldsTheLock)
{
    write_text(record, "old!");
    const int fd = ::open(record.c_str(), O_RDWR);
    ASSERT_EQ(0, file_lock_write(fd));
    int result[2];
    ASSERT_EQ(0, ::pipe(result));
    const pid_t child = ::fork();
    if (child == 0)
    {
        uint8_t buf[4] = {};
        const int got = API_ReadNVR(record.c_str(), 0, 4, buf);
        _exit(got == 4 && ::write(result[1], buf, 4) == 4 ? 0 : 1);
    }
    ::close(result[1]);

    // The child must show up as a lock waiter before it answers; a reader
    // that takes no lock answers at once.
    pollfd answer{result[0], POLLIN, 0};
    const auto give_up =
        std::chrono::steady_clock::now() + std::chrono::seconds(20);
    bool waiting = false;
    while (!waiting && ::poll(&answer, 1, 10) == 0 &&
           std::chrono::steady_clock::now() < give_up)
    {
        waiting = waits_for_lock(child);
    }
    EXPECT_TRUE(waiting);
    ASSERT_EQ(4, ::pwrite(fd, "new!", 4, 0));
    file_unlock(fd);
    ::close(fd);
    char got[4] = {};
    EXPECT_EQ(4, ::read(result[0], got, 4));
    EXPECT_EQ("new!", std::string(got, 4));
    ::close(result[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// Eight processes at once on what the daemons share: records through one
// storage FIFO, and key=value edits of one file under a named lock.
#include "test_helpers.h"

#include <libkv/foundation.h>
#include <libkv/ipc.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

namespace
{

constexpr int kProcesses = 8;

// Starts body(0) ... body(7) in eight children at once.
void start_eight(int (*body)(int n))
{
    for (int n = 0; n < kProcesses; ++n)
    {
        if (::fork() == 0)
        {
            ::_exit(body(n));
        }
    }
}

// Waits for the children; how many did not end with 0.
int failed_children()
{
    int failed = 0;
    for (int status = 0; ::wait(&status) > 0;)
    {
        failed += status != 0;
    }
    return failed;
}

TEST(Concurrency, StorageRecordsOfEightWritersArriveWholeAndInOrder)
{
    constexpr uint32_t kRecords = 10000;
    kv::test::make_dirs("/run/fifo");
    ASSERT_EQ(AddQueue("/run/fifo/storage_w", 0600), 0);
    // Keeps the pipe's content while no writer or receiver has it open.
    ASSERT_GE(GetQueue("/run/fifo/storage_w", O_RDWR, 0), 0);
    start_eight([](int writer) {
        for (uint32_t i = 0; i < kRecords; ++i)
        {
            // The length varies with i, so a torn record shows.
            uint8_t data[64];
            std::memset(data, writer, sizeof data);
            data[0] = static_cast<uint8_t>(i);
            if (send_storage_func(uint32_t(writer) << 24 | i, data, 1 + i % 60))
            {
                return 1;
            }
        }
        return 0;
    });

    std::vector<uint32_t> next(kProcesses, 0);
    for (uint32_t received = 0; received < kProcesses * kRecords; ++received)
    {
        uint8_t out[257] = {};
        ASSERT_EQ(recv_storage_func(out, 0, 0600), 0);
        uint32_t code = 0;
        std::memcpy(&code, out + 1, sizeof code);
        const uint32_t i = code & 0xFFFFFF;
        std::string expected(1 + i % 60, char(code >> 24));
        expected[0] = char(i);
        ASSERT_EQ(std::string((char*)out + 5, out[0]), expected);
        ASSERT_EQ(i, next.at(code >> 24)++) << "writer " << (code >> 24);
    }
    EXPECT_EQ(0, failed_children());
}

// Each edit reads its counter and writes it back one higher; a rewrite of
// the whole file outside the lock would undo another process's edit.
TEST(Concurrency, EditsOfDifferentKeysUnderTheLockAreAllKept)
{
    constexpr int kEdits = 150;
    kv::test::write_text("/etc/shared.conf", "");
    ASSERT_EQ(init_lock("/kv-shared-conf"), 0);
    start_eight([](int n) {
        const std::string key = "key" + std::to_string(n);
        for (int edit = 0; edit < kEdits; ++edit)
        {
            sem_t* sem = nullptr;
            char value[128] = "0";
            if (get_lock("/kv-shared-conf", &sem, 0644, 1) != 0)
            {
                return 1;
            }
            read_conf_value("/etc/shared.conf", key.c_str(), value);
            const int written =
                write_conf_value("/etc/shared.conf", key.c_str(),
                                 std::to_string(std::atoi(value) + 1).c_str());
            release_lock(sem);
            if (written != 0)
            {
                return 2;
            }
        }
        return 0;
    });
    ASSERT_EQ(0, failed_children());
    for (int n = 0; n < kProcesses; ++n)
    {
        char value[128] = {};
        read_conf_value("/etc/shared.conf", ("key" + std::to_string(n)).c_str(),
                        value);
        EXPECT_EQ(std::to_string(kEdits), value) << n;
    }
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// Many processes at once on what the daemons share: records through one
// storage FIFO, and key=value edits of one file under a named lock.
#include "test_helpers.h"

#include <libkv/foundation.h>
#include <libkv/ipc.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace
{

constexpr int kProcesses = 8;

// Runs `body(n)` in `kProcesses` children at once, n = 0..7; true when every
// child ended with 0.
bool all_children_succeed(const std::function<int(int)>& body)
{
    std::vector<pid_t> children;
    for (int n = 0; n < kProcesses; ++n)
    {
        const pid_t pid = ::fork();
        if (pid == 0)
        {
            ::_exit(body(n));
        }
        children.push_back(pid);
    }
    bool ok = true;
    for (const pid_t pid : children)
    {
        int status = 0;
        ok = ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
             WEXITSTATUS(status) == 0 && ok;
    }
    return ok;
}

TEST(Concurrency, StorageRecordsOfEightWritersArriveWholeAndInOrder)
{
    constexpr uint32_t kRecords = 10000;
    kv::test::make_dirs("/run/fifo");
    ASSERT_EQ(AddQueue("/run/fifo/storage_w", 0600), 0);
    // Held for the whole test: the pipe keeps what is in it while neither
    // the writers nor the receiver have it open.
    const int keep = GetQueue("/run/fifo/storage_w", O_RDWR, 0);
    ASSERT_GE(keep, 0);

    const pid_t writers = ::fork();
    if (writers == 0)
    {
        ::_exit(all_children_succeed([](int writer) {
            for (uint32_t i = 0; i < kRecords; ++i)
            {
                // Length varies with i, so a torn record shows.
                uint8_t data[64];
                const uint8_t len = static_cast<uint8_t>(1 + i % 60);
                std::memset(data, writer, len);
                data[0] = static_cast<uint8_t>(i);
                if (send_storage_func(uint32_t(writer) << 24 | i, data, len) !=
                    0)
                {
                    return 1;
                }
            }
            return 0;
        })
                    ? 0
                    : 1);
    }

    std::vector<uint32_t> next(kProcesses, 0);
    uint32_t torn = 0;
    for (uint32_t received = 0; received < kProcesses * kRecords; ++received)
    {
        uint8_t out[257] = {};
        ASSERT_EQ(recv_storage_func(out, 0, 0600), 0);
        uint32_t code = 0;
        std::memcpy(&code, out + 1, sizeof code);
        const uint32_t writer = code >> 24;
        const uint32_t i = code & 0xFFFFFF;
        ASSERT_LT(writer, uint32_t(kProcesses)) << "record " << received;
        const uint8_t* data = out + 5;
        bool whole = out[0] == 1 + i % 60 && data[0] == uint8_t(i);
        for (unsigned b = 1; b < out[0]; ++b)
        {
            whole = whole && data[b] == writer;
        }
        torn += whole ? 0 : 1;
        EXPECT_EQ(i, next[writer]) << "writer " << writer;
        next[writer] = i + 1;
    }
    int status = 0;
    ASSERT_EQ(::waitpid(writers, &status, 0), writers);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(torn, 0u);
    EXPECT_EQ(next, std::vector<uint32_t>(kProcesses, kRecords));
    ::close(keep);
}

TEST(Concurrency, EditsOfDifferentKeysUnderTheLockAreAllKept)
{
    constexpr int kEdits = 150;
    const char* path = "/etc/shared.conf";
    std::string initial;
    for (int n = 0; n < kProcesses; ++n)
    {
        initial += "key" + std::to_string(n) + "=0\n";
    }
    kv::test::write_text(path, initial);
    ASSERT_EQ(init_lock("/kv-shared-conf"), 0);

    // Each edit reads its counter and writes it back one higher; every
    // write rewrites the whole file, so without the lock one process's
    // rewrite would undo another's.
    ASSERT_TRUE(all_children_succeed([path](int n) {
        const std::string key = "key" + std::to_string(n);
        for (int edit = 0; edit < kEdits; ++edit)
        {
            sem_t* sem = nullptr;
            if (get_lock("/kv-shared-conf", &sem, 0644, 1) != 0)
            {
                return 1;
            }
            char value[128] = {};
            const int read = read_conf_value(path, key.c_str(), value);
            const std::string next = std::to_string(std::atoi(value) + 1);
            const int written =
                write_conf_value(path, key.c_str(), next.c_str());
            release_lock(sem);
            if (read != 0 || written != 0)
            {
                return 2;
            }
        }
        return 0;
    }));

    for (int n = 0; n < kProcesses; ++n)
    {
        char value[128] = {};
        const std::string key = "key" + std::to_string(n);
        ASSERT_EQ(read_conf_value(path, key.c_str(), value), 0) << key;
        EXPECT_EQ(std::string(value), std::to_string(kEdits)) << key;
    }
}

} // namespace

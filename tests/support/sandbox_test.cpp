// SPDX-License-Identifier: Apache-2.0
// The sandbox keeps every other test off the host: each fixed path is
// private and a reset empties it.
#include "sandbox.h"
#include "test_helpers.h"

#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/shm.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace
{

using namespace kv::test;

// Each path is a file system of its own kind, not the host's.
TEST(Sandbox, PathsAndNamespacesAreItsOwn)
{
    const auto type = [](const char* path) {
        struct statfs fs = {};
        statfs(path, &fs);
        return fs.f_type;
    };
    for (auto path : {"/tmp", "/run", "/var", "/media", "/sys", "/dev/shm",
                      "/proc/self/net"})
        EXPECT_EQ(TMPFS_MAGIC, type(path)) << path;
    // An overlay as root; a tmpfs with the host's entries bound back when a
    // normal user runs the tests.
    EXPECT_TRUE(type("/etc") == OVERLAYFS_SUPER_MAGIC ||
                type("/etc") == TMPFS_MAGIC);
    const auto parent = "/proc/" + std::to_string(getppid()) + "/ns/";
    for (std::string kind : {"mnt", "ipc", "net"})
    {
        char own[64] = {}, host[64] = {};
        ASSERT_GT(readlink(("/proc/self/ns/" + kind).c_str(), own, 63), 0);
        readlink((parent + kind).c_str(), host, 63);
        EXPECT_STRNE(own, host) << kind;
    }
}

TEST(Sandbox, FilesAreWritableAndAResetEmptiesThem)
{
    // The host's.
    EXPECT_TRUE(read_text("/etc/passwd"));
    write_text("/run/obmcinfo/sku", "4");
    EXPECT_EQ("4", read_text("/var/run/obmcinfo/sku"));
    // The host may have the last three: a reset brings those back.
    const char* files[] = {"/tmp/log",
                           "/run/fifo/storage_w",
                           "/var/lib/ipmi/nail.rc",
                           "/media/card/sellog/x",
                           "/sys/class/gpio/export",
                           "/etc/user/rules",
                           "/proc/self/net/bonding/bond0",
                           "/dev/shm/sem.x",
                           "/etc/snmp/snmpd.conf",
                           "/etc/default/obmc/hwmon/oem.conf",
                           "/etc/oem_bmc.conf"};
    for (const char* file : files)
    {
        write_text(file, file);
        EXPECT_EQ(file, read_text(file));
    }
    ASSERT_GE(shmget(0x4b56, 64, IPC_CREAT | 0600), 0);
    kv::sandbox::reset();
    for (int i = 0; i < 8; ++i)
        EXPECT_FALSE(read_text(files[i])) << files[i];
    // The segment is gone too, and the work folder is /tmp.
    EXPECT_LT(shmget(0x4b56, 64, 0), 0);
    EXPECT_EQ("/tmp", std::filesystem::current_path().string());
}

} // namespace

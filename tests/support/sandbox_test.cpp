// SPDX-License-Identifier: Apache-2.0
// The sandbox keeps every other test off the host: each fixed path is
// private and a reset empties it.
#include "sandbox.h"
#include "test_helpers.h"

#include <gtest/gtest.h>
#include <sys/shm.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <sstream>

namespace
{

using namespace kv::test;

TEST(Sandbox, PathsAndNamespacesAreItsOwn)
{
    std::map<std::string, std::string> type; // topmost mount wins
    std::ifstream info("/proc/self/mountinfo");
    for (std::string line, point; std::getline(info, line);)
    {
        std::istringstream fields(line);
        for (int i = 0; i < 5; ++i)
        {
            fields >> point;
        }
        std::istringstream(line.substr(line.find(" - ") + 3)) >> type[point];
    }
    const auto net = "/proc/" + std::to_string(getpid()) + "/net";
    for (const char* path :
         {"/tmp", "/run", "/var", "/media", "/sys", "/dev/shm", net.c_str()})
    {
        EXPECT_EQ("tmpfs", type[path]) << path;
    }
    // An overlay as root; a tmpfs with the host's entries bound back when a
    // normal user runs the tests.
    EXPECT_TRUE(type["/etc"] == "overlay" || type["/etc"] == "tmpfs");
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
    EXPECT_TRUE(read_text("/etc/passwd").has_value()); // the host's
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
    {
        EXPECT_FALSE(read_text(files[i]).has_value()) << files[i];
    }
    EXPECT_LT(shmget(0x4b56, 64, 0), 0) << "segment survived the reset";
    char cwd[64] = {};
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    EXPECT_STREQ("/tmp", cwd);
}

} // namespace

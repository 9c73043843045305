// SPDX-License-Identifier: Apache-2.0
// The sandbox is what keeps every other test off the host: check that each
// fixed path really is private and that a reset really empties it.
#include "sandbox.h"
#include "test_helpers.h"

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace
{

// mount point -> file system type, topmost mount wins.
std::map<std::string, std::string> mounts()
{
    std::map<std::string, std::string> result;
    std::ifstream info("/proc/self/mountinfo");
    std::string line;
    while (std::getline(info, line))
    {
        std::istringstream fields(line);
        std::string id, parent, devno, root, point, field;
        fields >> id >> parent >> devno >> root >> point;
        while (fields >> field && field != "-")
        {}
        std::string type;
        fields >> type;
        result[point] = type;
    }
    return result;
}

std::string ns_of(const std::string& pid, const char* kind)
{
    char target[64] = {};
    const std::string link = "/proc/" + pid + "/ns/" + kind;
    if (::readlink(link.c_str(), target, sizeof target - 1) < 0)
    {
        return "unreadable " + link;
    }
    return target;
}

TEST(Sandbox, FixedPathsArePrivateFileSystems)
{
    const auto table = mounts();
    for (const char* path :
         {"/tmp", "/run", "/var", "/media", "/sys", "/dev/shm"})
    {
        ASSERT_TRUE(table.count(path)) << path << " is not a mount point";
        EXPECT_EQ(table.at(path), "tmpfs") << path;
    }
    // An overlay as root; a tmpfs with the host's entries bound back when a
    // normal user runs the tests.
    ASSERT_TRUE(table.count("/etc"));
    EXPECT_TRUE(table.at("/etc") == "overlay" || table.at("/etc") == "tmpfs");
    const std::string own_net = "/proc/" + std::to_string(getpid()) + "/net";
    ASSERT_TRUE(table.count(own_net));
    EXPECT_EQ(table.at(own_net), "tmpfs");
}

TEST(Sandbox, RunsInNamespacesOfItsOwn)
{
    const std::string parent = std::to_string(getppid());
    for (const char* kind : {"mnt", "ipc", "net"})
    {
        EXPECT_NE(ns_of("self", kind), ns_of(parent, kind)) << kind;
    }
}

TEST(Sandbox, VarRunIsTheRunDirectory)
{
    kv::test::write_text("/run/obmcinfo/sku", "4");
    EXPECT_EQ(kv::test::read_text("/var/run/obmcinfo/sku"), "4");
}

TEST(Sandbox, EtcKeepsHostFilesAndTakesWrites)
{
    EXPECT_TRUE(kv::test::read_text("/etc/passwd").has_value());
    kv::test::write_text("/etc/snmp/snmpd.conf", "rocommunity public\n");
    kv::test::write_text("/etc/default/obmc/hwmon/oem.conf", "x\n");
    kv::test::write_text("/etc/oem_bmc.conf", "x\n");
    kv::test::write_text("/proc/self/net/bonding/bond0", "Bonding Mode: x\n");
    EXPECT_EQ(kv::test::read_text("/etc/snmp/snmpd.conf"),
              "rocommunity public\n");
    EXPECT_EQ(kv::test::read_text("/proc/self/net/bonding/bond0"),
              "Bonding Mode: x\n");
}

TEST(Sandbox, ResetLeavesNothingBehind)
{
    const char* files[] = {"/tmp/log",
                           "/run/fifo/storage_w",
                           "/var/lib/ipmi/nail.rc",
                           "/media/card/sellog/x",
                           "/sys/class/gpio/export",
                           "/etc/user/rules",
                           "/proc/self/net/bonding/bond0",
                           "/dev/shm/sem.x"};
    for (const char* file : files)
    {
        kv::test::write_text(file, "x");
    }
    const int shm = shmget(0x4b56, 64, IPC_CREAT | 0600);
    ASSERT_GE(shm, 0);

    kv::sandbox::reset();

    for (const char* file : files)
    {
        EXPECT_FALSE(kv::test::read_text(file).has_value()) << file;
    }
    EXPECT_LT(shmget(0x4b56, 64, 0), 0) << "segment survived the reset";
    char cwd[64] = {};
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    EXPECT_STREQ(cwd, "/tmp");
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// The BMC's interfaces on a veth pair in the test's network namespace, and
// bonding through the driver's status file and the platform's script.
#include "services_test.h"
#include "veth_pair.h"

#include <libkv/services.h>

#include <linux/capability.h>
#include <net/if.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>

namespace
{

using kv::services::test::RecordingTools;
using kv::test::exit_status_of;

// The test process's private /proc/self/net stands in for the driver's.
constexpr const char* kBondStatus = "/proc/self/net/bonding/bond0";

class NetInterfaces : public kv::test::VethPairTest
{
  protected:
    NetInterfaces() : VethPairTest("kv-services-a1", "kv-services-b1")
    {}

    // The kernel reports a carrier change a moment after the flags.
    int link_after_settling(const std::string& name, int expected)
    {
        int link = net_link_get(name.c_str());
        for (int tries = 0; link != expected && tries < 200; ++tries)
        {
            ::usleep(10000);
            link = net_link_get(name.c_str());
        }
        return link;
    }
};

TEST_F(NetInterfaces, IndexStateLinkAndSpeedComeFromTheKernel)
{
    EXPECT_EQ(static_cast<int>(if_nametoindex(left_.c_str())),
              net_index_get(left_.c_str()));
    EXPECT_EQ(0, net_enable_get(left_.c_str()));
    EXPECT_EQ(0, net_link_get(left_.c_str()));
    EXPECT_EQ(10000, net_speed_get(left_.c_str())); // what veth reports

    ASSERT_EQ(0, net_enable_set(left_.c_str(), 1));
    ASSERT_EQ(0, net_enable_set(right_.c_str(), 7));
    EXPECT_EQ(1, net_enable_get(left_.c_str()));
    EXPECT_EQ(1, link_after_settling(left_, 1)); // both ends up: carrier

    ASSERT_EQ(0, net_enable_set(right_.c_str(), 0));
    EXPECT_EQ(0, link_after_settling(left_, 0));
    EXPECT_EQ(1, net_enable_get(left_.c_str()));
}

TEST_F(NetInterfaces, AnAliasIsSetOnItsInterface)
{
    ASSERT_EQ(0, net_enable_set((left_ + ":1").c_str(), 1));
    EXPECT_EQ(1, net_enable_get(left_.c_str()));
    EXPECT_EQ(0, net_enable_get(right_.c_str()));
}

// Without CAP_NET_ADMIN every flag write fails: a call that succeeds there
// wrote nothing.
TEST_F(NetInterfaces, TheRightStateIsNotWrittenAgain)
{
    ASSERT_EQ(0, net_enable_set(left_.c_str(), 1));
    const std::string name = left_;
    EXPECT_EQ(
        0, exit_status_of([&] {
            __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
            __user_cap_data_struct data[2] = {};
            if (::syscall(SYS_capset, &header, data) != 0)
            {
                return 10;
            }
            if (net_enable_set(name.c_str(), 1) != 0)
            {
                return 11;
            }
            return net_enable_set(name.c_str(), 0) == -1 ? 0 : 12;
        }));
    EXPECT_EQ(1, net_enable_get(left_.c_str()));
}

TEST(NetInterfaceErrors, UnknownOrMissingNamesGiveMinusOne)
{
    for (const char* name : {"kv-missing0", static_cast<const char*>(nullptr)})
    {
        EXPECT_EQ(-1, net_index_get(name));
        EXPECT_EQ(-1, net_enable_get(name));
        EXPECT_EQ(-1, net_enable_set(name, 1));
        EXPECT_EQ(-1, net_link_get(name));
        EXPECT_EQ(-1, net_speed_get(name));
    }
    EXPECT_EQ(-1, net_speed_get("lo")); // no ethtool settings
}

TEST(NetModes, TextsAndValues)
{
    EXPECT_STREQ("unknow", net_mode_itoa(9));
    EXPECT_STREQ("unknow", net_mode_itoa(-1));
    EXPECT_STREQ("eth", net_mode_itoa(0));
    EXPECT_STREQ("bond6", net_mode_itoa(7));
    EXPECT_EQ(4, net_mode_atoi("BOND3"));
    EXPECT_EQ(0, net_mode_atoi("Eth"));
    EXPECT_EQ(8, net_mode_atoi("bond7"));
    EXPECT_EQ(8, net_mode_atoi(nullptr));
}

class Bonding : public RecordingTools
{
  protected:
    static void status(const std::string& text)
    {
        kv::test::write_text(kBondStatus, text);
    }
};

TEST_F(Bonding, ModeComesFromTheDriversStatusFile)
{
    EXPECT_EQ(0, net_mode_get()); // no file, whatever interfaces exist
    char slave[16];
    EXPECT_EQ(-1, net_bond_active_slave(slave, sizeof slave));

    const std::pair<const char*, int> modes[] = {
        {"load balancing (round-robin)", 1},
        {"fault-tolerance (active-backup)", 2},
        {"load balancing (xor)", 3},
        {"fault-tolerance (broadcast)", 4},
        {"IEEE 802.3ad Dynamic link aggregation", 5},
        {"transmit load balancing", 6},
        {"adaptive load balancing", 7},
        {"something new", 8},
    };
    for (const auto& [text, mode] : modes)
    {
        status(std::string("Ethernet Channel Bonding Driver: v5.10\n\n"
                           "Bonding Mode: ") +
               text + "\nPrimary Slave: None\n");
        EXPECT_EQ(mode, net_mode_get()) << text;
    }
    status("Currently Active Slave: eth1\n");
    EXPECT_EQ(8, net_mode_get()); // no mode line
    ASSERT_EQ(0, net_bond_active_slave(slave, sizeof slave));
    EXPECT_STREQ("eth1", slave);
    ASSERT_EQ(0, net_bond_active_slave(slave, 3));
    EXPECT_STREQ("et", slave);
    EXPECT_EQ(-1, net_bond_active_slave(nullptr, 8));
}

TEST_F(Bonding, ModeSetRunsThePlatformScript)
{
    EXPECT_EQ(0, net_mode_set(0));
    EXPECT_EQ(0, net_mode_set(5));
    EXPECT_EQ("disable\n--\nenable\nmode4\n--\n", calls_of("bonding.sh", 2));

    kv::test::write_text("/tmp/bonding-exit", "3\n");
    EXPECT_EQ(-1, net_mode_set(2));
    EXPECT_EQ(0, net_mode_set(8)); // the empty command: nothing to fail
    EXPECT_EQ("disable\n--\nenable\nmode4\n--\nenable\nmode1\n--\n",
              calls_of("bonding.sh", 3));
}

} // namespace

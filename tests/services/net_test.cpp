// SPDX-License-Identifier: Apache-2.0
// The BMC's interfaces on a veth pair in the test's network namespace, and
// bonding through the driver's status file and the platform's script.
#include "services_test.h"
#include "veth_pair.h"

#include <libkv/services.h>

#include <linux/capability.h>
#include <net/if.h>
#include <sys/syscall.h>

namespace
{

using kv::services::test::RecordingTools;

class NetInterfaces : public kv::test::VethPairTest
{
  protected:
    NetInterfaces() : VethPairTest("kv-services-a1", "kv-services-b1")
    {}
    // The kernel reports a carrier change a moment after the flags.
    int settled_link(int expected)
    {
        int link = net_link_get(left_.c_str());
        for (int tries = 0; link != expected && tries < 200; ++tries)
        {
            ::usleep(10000);
            link = net_link_get(left_.c_str());
        }
        return link;
    }
};

TEST_F(NetInterfaces, IndexStateAndLinkComeFromTheKernel)
{
    const char* left = left_.c_str();
    EXPECT_EQ(static_cast<int>(if_nametoindex(left)), net_index_get(left));
    EXPECT_EQ(0, net_enable_get(left));

    ASSERT_EQ(0, net_enable_set((left_ + ":1").c_str(), 1)); // an alias
    ASSERT_EQ(0, net_enable_set(right_.c_str(), 7));
    EXPECT_EQ(1, net_enable_get(left));
    EXPECT_EQ(1, settled_link(1)); // both ends up: carrier
    ASSERT_EQ(0, net_enable_set(right_.c_str(), 0));
    EXPECT_EQ(0, settled_link(0));
    EXPECT_EQ(1, net_enable_get(left));
    for (const char* missing :
         {"kv-missing0", static_cast<const char*>(nullptr)})
    {
        EXPECT_EQ(-1, net_index_get(missing));
        EXPECT_EQ(-1, net_enable_get(missing));
        EXPECT_EQ(-1, net_enable_set(missing, 1));
        EXPECT_EQ(-1, net_speed_get(missing));
    }
    if (!kv::test::under_user_emulation()) // qemu-user lacks SIOCETHTOOL
    {
        EXPECT_EQ(10000, net_speed_get(left)); // what veth reports
        EXPECT_EQ(-1, net_speed_get("lo"));    // no ethtool settings
    }
}

// Without CAP_NET_ADMIN every flag write fails: a call that succeeds there
// wrote nothing.
TEST_F(NetInterfaces, TheRightStateIsNotWrittenAgain)
{
    ASSERT_EQ(0, net_enable_set(left_.c_str(), 1));
    EXPECT_EQ(
        0, kv::test::exit_status_of([&] {
            __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
            __user_cap_data_struct none[2] = {};
            if (::syscall(SYS_capset, &header, none) != 0 ||
                net_enable_set(left_.c_str(), 1) != 0)
            {
                return 1;
            }
            return net_enable_set(left_.c_str(), 0) == -1 ? 0 : 2;
        }));
}

// The test's private /proc/self/net stands in for the driver's; the texts
// are those of the Linux bonding driver.
TEST_F(RecordingTools, BondingModeFromTheDriverSetByThePlatformScript)
{
    EXPECT_EQ(0, net_mode_get()); // no file, whatever interfaces exist
    const char* modes[] = {"load balancing (round-robin)",
                           "fault-tolerance (active-backup)",
                           "load balancing (xor)",
                           "fault-tolerance (broadcast)",
                           "IEEE 802.3ad Dynamic link aggregation",
                           "transmit load balancing",
                           "adaptive load balancing",
                           "something new"};
    for (int mode = 1; mode <= 8; ++mode)
    {
        kv::test::write_text("/proc/self/net/bonding/bond0",
                             std::string("Bonding Mode: ") + modes[mode - 1] +
                                 "\nCurrently Active Slave: eth1\n");
        EXPECT_EQ(mode, net_mode_get()) << modes[mode - 1];
        // Texts: "eth", then "bond0" to "bond6".
        EXPECT_EQ(mode - 1, net_mode_atoi(net_mode_itoa(mode - 1)));
    }
    EXPECT_EQ(4, net_mode_atoi("BOND3"));
    EXPECT_STREQ("unknow", net_mode_itoa(8));
    EXPECT_STREQ("unknow", net_mode_itoa(-1));
    char slave[3];
    ASSERT_EQ(0, net_bond_active_slave(slave, sizeof slave));
    EXPECT_STREQ("et", slave);

    EXPECT_EQ(0, net_mode_set(0));
    EXPECT_EQ(0, net_mode_set(7));
    kv::test::write_text("/tmp/bonding-exit", "3\n");
    EXPECT_EQ(-1, net_mode_set(2));
    EXPECT_EQ(0, net_mode_set(8)); // the empty command: nothing to fail
    EXPECT_EQ("disable\n--\nenable\nmode6\n--\nenable\nmode1\n--\n",
              calls_of("bonding.sh", 3));
}

} // namespace

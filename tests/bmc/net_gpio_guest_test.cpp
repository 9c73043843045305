// SPDX-License-Identifier: Apache-2.0
// The bonding driver's status file, interface flags on the ftgmac100 NICs,
// and GPIO lines of the aspeed GPIO controller through sysfs.
#include "guest.h"

#include <libkv/hw.h>
#include <libkv/services.h>

#include <net/if.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace
{

using namespace kv::bmc;

// bond0 made through bonding_masters, down, in `mode` (the driver's name).
void make_bond(const std::string& mode)
{
    if (!std::filesystem::exists("/sys/class/net/bond0"))
    {
        ASSERT_TRUE(write_sysfs("/sys/class/net/bonding_masters", "+bond0"));
    }
    ASSERT_TRUE(write_sysfs("/sys/class/net/bond0/bonding/mode", mode)) << mode;
}

TEST(BondingStatus, EveryDriverModeTextMapsToItsNetworkMode)
{
    const std::pair<const char*, int> modes[] = {
        {"balance-rr", 1},  {"active-backup", 2}, {"balance-xor", 3},
        {"broadcast", 4},   {"802.3ad", 5},       {"balance-tlb", 6},
        {"balance-alb", 7},
    };
    for (const auto& [mode, expected] : modes)
    {
        make_bond(mode);
        EXPECT_EQ(expected, net_mode_get())
            << mode << ": " << first_line("/proc/net/bonding/bond0");
    }
}

TEST(BondingStatus, ActiveSlaveOfAnActiveBackupBond)
{
    make_bond("active-backup");
    char slave[16] = "";
    // Without a slave the driver still prints the line, with the word None:
    // callers get 0 and "None", not -1.
    EXPECT_EQ(0, net_bond_active_slave(slave, sizeof slave));
    EXPECT_STREQ("None", slave);

    ASSERT_TRUE(write_sysfs("/sys/class/net/bond0/bonding/slaves", "+eth0"));
    ASSERT_EQ(0, net_enable_set("bond0", 1));
    EXPECT_EQ(0, net_bond_active_slave(slave, sizeof slave));
    EXPECT_STREQ("eth0", slave);

    ASSERT_TRUE(write_sysfs("/sys/class/net/bond0/bonding/slaves", "-eth0"));
    ASSERT_EQ(0, net_enable_set("bond0", 0));
    ASSERT_TRUE(write_sysfs("/sys/class/net/bonding_masters", "-bond0"));
    EXPECT_EQ(0, net_mode_get()) << "without bond0 there is no status file";
}

std::string nic_file(const char* nic, const char* name)
{
    return first_line(std::string("/sys/class/net/") + nic + "/" + name);
}

// Milliseconds until the kernel reports `nic` running (operstate "up"), up
// to 5 s; -1 when it never does.
int wait_until_running(const char* nic)
{
    for (int waited = 0; waited <= 5000; waited += 50)
    {
        if (nic_file(nic, "operstate") == "up")
        {
            return waited;
        }
        usleep(50000);
    }
    return -1;
}

TEST(NicFlags, UpDownLinkAndIndexAsTheKernelReportsThem)
{
    const char* nic = "eth1";
    ASSERT_GT(if_nametoindex(nic), 0u) << "ftgmac100 gave no " << nic;
    EXPECT_EQ(static_cast<int>(if_nametoindex(nic)), net_index_get(nic));
    EXPECT_EQ(-1, net_index_get("nosuchnic0"));

    ASSERT_EQ(0, net_enable_set(nic, 1));
    EXPECT_EQ(1, net_enable_get(nic));
    EXPECT_EQ(1, std::stoi(nic_file(nic, "flags"), nullptr, 16) & IFF_UP);
    // The PHY reports the link a while after the interface goes up, and
    // IFF_RUNNING follows the carrier only through the link watch.
    const int waited = wait_until_running(nic);
    ASSERT_GE(waited, 0) << "no link on " << nic;
    std::printf("%s running %d ms after going up\n", nic, waited);
    EXPECT_EQ(1, net_link_get(nic));
    EXPECT_EQ(std::stoi(nic_file(nic, "speed")), net_speed_get(nic));

    EXPECT_EQ(0, if_updown(nic, 0));
    EXPECT_EQ(0, net_enable_get(nic));
    EXPECT_EQ(0, net_link_get(nic));
    EXPECT_EQ(0, net_enable_set((std::string(nic) + ":1").c_str(), 1));
    EXPECT_EQ(1, net_enable_get(nic));
}

// A line of the 3.3 V GPIO controller whose pin is free for GPIO use (the
// pin controller refuses lines muxed to the NICs and buses), exported and
// given back; -1 when there is none.
int free_gpio_line()
{
    for (const auto& chip :
         std::filesystem::directory_iterator("/sys/class/gpio"))
    {
        if (!chip.path().filename().string().starts_with("gpiochip") ||
            first_line(chip.path() / "label") != "1e780000.gpio")
        {
            continue;
        }
        const int base = std::stoi(first_line(chip.path() / "base"));
        const int count = std::stoi(first_line(chip.path() / "ngpio"));
        for (int line = base; line < base + count; ++line)
        {
            if (write_sysfs("/sys/class/gpio/export", std::to_string(line)))
            {
                write_sysfs("/sys/class/gpio/unexport", std::to_string(line));
                return line;
            }
        }
    }
    return -1;
}

TEST(Gpio, ExportDirectionAndValueReachTheController)
{
    const int line = free_gpio_line();
    ASSERT_GE(line, 0) << "no free line on the aspeed GPIO controller";
    const std::string dir = "/sys/class/gpio/gpio" + std::to_string(line);

    EXPECT_EQ(0, enable_gpio(line));
    EXPECT_TRUE(std::filesystem::exists(dir));
    // The kernel refuses to export a line twice.
    EXPECT_EQ(-1, enable_gpio(line));

    EXPECT_EQ(0, set_gpio_direction(line, "out"));
    EXPECT_EQ("out", first_line(dir + "/direction"));
    EXPECT_EQ(0, write_gpio(line, 1));
    EXPECT_EQ("1", first_line(dir + "/value"));
    EXPECT_EQ(0, write_gpio(line, 0));
    EXPECT_EQ("0", first_line(dir + "/value"));
    EXPECT_EQ(-1, set_gpio_direction(line, "sideways"));

    // A line not exported is exported on the way.
    ASSERT_TRUE(write_sysfs("/sys/class/gpio/unexport", std::to_string(line)));
    EXPECT_EQ(0, set_gpio_direction(line, "in"));
    EXPECT_EQ("in", first_line(dir + "/direction"));
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// GPIO and LED files in the sandbox's empty sysfs, and interface flags and
// MAC address on a veth pair.
#include "test_helpers.h"
#include "veth_pair.h"

#include <libkv/hw.h>

#include <gmock/gmock.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstring>

using namespace kv::test;
using testing::ElementsAre;

namespace
{

const std::string gpio40 = "/sys/class/gpio/gpio40/";
const std::string led = "/sys/devices/platform/leds/leds/cpu1_dimm11_m0/";

// The attribute refuses every value, as sysfs does one it cannot take.
void refuse_writes(const std::string& path)
{
    std::filesystem::remove(path);
    std::filesystem::create_symlink("/dev/full", path);
}

// Each call writes one line into its file.
TEST(Gpio, Files)
{
    const std::string exported = "/sys/class/gpio/export";
    EXPECT_THAT(std::vector({enable_gpio(40), set_gpio_direction(40, "in"),
                             write_gpio(40, 1)}),
                ElementsAre(-1, -1, -1));
    EXPECT_TRUE(names_in("/sys").empty());
    write_text(exported, "");
    // Exported first, but no kernel makes the directory.
    EXPECT_EQ(-1, set_gpio_direction(41, "in"));
    EXPECT_EQ("41\n", read_text(exported));
    EXPECT_EQ(0, enable_gpio(40));
    EXPECT_EQ("40\n", read_text(exported));
    make_dirs(gpio40);
    write_text(exported, "");
    EXPECT_EQ(0, set_gpio_direction(40, "$(touch /tmp/x)\nout"));
    EXPECT_EQ("$(touch /tmp/x)\nout\n", read_text(gpio40 + "direction"));
    EXPECT_EQ(-1, set_gpio_direction(40, nullptr));
    EXPECT_EQ("", read_text(exported));
    EXPECT_EQ(0, write_gpio(40, 10));
    EXPECT_EQ(0, write_gpio(40, 0));
    EXPECT_EQ("0\n", read_text(gpio40 + "value"));
    for (const std::string file : {"direction", "value", "../export"})
    {
        refuse_writes(gpio40 + file);
    }
    EXPECT_THAT(std::vector({enable_gpio(40), set_gpio_direction(40, "in"),
                             write_gpio(40, 1)}),
                ElementsAre(-1, -1, -1));
}

// A missing or refusing LED is not an error.
TEST(MemFaultLed, Brightness)
{
    make_dirs(led);
    EXPECT_EQ(0, CmmFunMemFaultLed(1, 11, 0, 255));
    EXPECT_EQ("255\n", read_text(led + "brightness"));
    refuse_writes(led + "brightness");
    EXPECT_EQ(0, CmmFunMemFaultLed(1, 11, 0, 1));
    EXPECT_EQ(0, CmmFunMemFaultLed(2, 0, 0, 1));
    EXPECT_EQ(1u, names_in(led + "..").size());
}

using Mac = std::array<uint8_t, 6>;

ifreq ask_kernel(unsigned long what, const std::string& name)
{
    ifreq req{};
    std::strncpy(req.ifr_name, name.c_str(), IFNAMSIZ - 1);
    const int sock = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(0, ::ioctl(sock, what, &req)) << name;
    ::close(sock);
    return req;
}

// Flags less IFF_RUNNING, which follows the peer's carrier.
int flags_of(const std::string& name)
{
    return ask_kernel(SIOCGIFFLAGS, name).ifr_flags & ~IFF_RUNNING;
}

Mac mac_of(const std::string& name)
{
    Mac mac;
    std::memcpy(mac.data(), ask_kernel(SIOCGIFHWADDR, name).ifr_hwaddr.sa_data,
                6);
    return mac;
}

// Names of 15 characters, the longest the kernel takes; longer ones are cut.
struct Interface : VethPairTest
{
    Interface() : VethPairTest("kv-board-sig-a1", "kv-board-sig-b1")
    {}
};

// Up and down change only IFF_UP.
TEST_F(Interface, UpDownMac)
{
    const std::string longer = left_ + "-and-more";
    ASSERT_EQ(0, run_ip({"link", "set", left_, "promisc", "on"}));
    const int down = flags_of(left_);
    const int up = down | IFF_UP;
    ASSERT_NE(0, down & IFF_PROMISC);
    for (auto [value, flags] : {std::pair{1, up},
                                {1, up},
                                {2, up},
                                {256, up},
                                {0, down},
                                {0, down},
                                {-1, down},
                                {2, down}})
    {
        EXPECT_EQ(0, if_updown(longer.c_str(), value));
        EXPECT_EQ(flags, flags_of(left_)) << value;
    }
    EXPECT_EQ(0, flags_of(right_) & IFF_UP);
    const Mac peer = mac_of(right_), mac{0x7a, 0xfe, 0, 0x9c, 1, 0xb0};
    EXPECT_EQ(0, set_mac_addr(longer.c_str(), mac.data()));
    EXPECT_EQ(mac, mac_of(left_));
    const Mac multicast{0x01, 0x00, 0x5e, 0x00, 0x00, 0x01};
    EXPECT_THAT(std::vector({set_mac_addr(left_.c_str(), multicast.data()),
                             set_mac_addr(nullptr, mac.data()),
                             set_mac_addr(left_.c_str(), nullptr),
                             if_updown(nullptr, 1), if_updown("kv-none0", 1),
                             set_mac_addr("kv-none0", mac.data())}),
                ElementsAre(-1, -1, -1, -1, -1, -1));
    EXPECT_EQ(mac, mac_of(left_));
    EXPECT_EQ(peer, mac_of(right_));
}

// A process that may open no descriptor gets no request socket.
TEST(NetLink, NoSocket)
{
    EXPECT_EQ(0, exit_status_of([] {
                  const rlimit none{0, 0};
                  const uint8_t mac[6] = {2};
                  ::setrlimit(RLIMIT_NOFILE, &none);
                  return if_updown("lo", 1) == -1 &&
                                 set_mac_addr("lo", mac) == -1
                             ? 0
                             : 1;
              }));
}

} // namespace

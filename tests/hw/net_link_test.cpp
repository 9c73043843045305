// SPDX-License-Identifier: Apache-2.0
// Interface flags and hardware address on a veth pair in the test's own
// network namespace, read back from the kernel with the interface requests.
#include "test_helpers.h"
#include "veth_pair.h"

#include <libkv/hw.h>

#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <vector>

using kv::test::exit_status_of;
using kv::test::run_ip;

namespace
{

using Mac = std::array<uint8_t, 6>;

// 15 characters each: the longest names the kernel takes.
const std::string left = "kv-board-sig-a1";
const std::string right = "kv-board-sig-b1";

// The interface request `what` for `name`, made on a socket of the test's.
ifreq ask_kernel(unsigned long what, const std::string& name)
{
    ifreq req{};
    std::strncpy(req.ifr_name, name.c_str(), IFNAMSIZ - 1);
    const int sock = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_LE(0, sock);
    EXPECT_EQ(0, ::ioctl(sock, what, &req)) << name;
    ::close(sock);
    return req;
}

// Flags of `name`, less IFF_RUNNING, which follows the peer's carrier.
int flags_of(const std::string& name)
{
    return ask_kernel(SIOCGIFFLAGS, name).ifr_flags & ~IFF_RUNNING;
}

Mac mac_of(const std::string& name)
{
    const ifreq req = ask_kernel(SIOCGIFHWADDR, name);
    Mac mac;
    std::memcpy(mac.data(), req.ifr_hwaddr.sa_data, mac.size());
    return mac;
}

// What `call` prints on standard error.
template <typename Call>
std::string stderr_of(Call call)
{
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

class VethPair : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (pair_.status() != 0)
        {
            GTEST_SKIP() << "no veth pair: '" KV_IP_TOOL " link add ... type "
                            "veth' exited with "
                         << pair_.status()
                         << " in the test's network namespace";
        }
        // A flag that up and down must leave alone.
        ASSERT_EQ(0, run_ip({"link", "set", left, "promisc", "on"}));
    }

  private:
    kv::test::VethPair pair_{left, right};
};

TEST_F(VethPair, UpAndDownChangeOnlyIffUp)
{
    const int down = flags_of(left);
    ASSERT_EQ(0, down & IFF_UP);
    ASSERT_NE(0, down & IFF_PROMISC);

    EXPECT_EQ(0, if_updown(left.c_str(), 1));
    EXPECT_EQ(down | IFF_UP, flags_of(left));
    EXPECT_EQ(0, if_updown(left.c_str(), 1));
    EXPECT_EQ(down | IFF_UP, flags_of(left));
    EXPECT_EQ(0, flags_of(right) & IFF_UP);

    EXPECT_EQ(0, if_updown(left.c_str(), 0));
    EXPECT_EQ(down, flags_of(left));
}

TEST_F(VethPair, OtherValuesWriteTheFlagsBackUnchanged)
{
    for (int state : {1, 0})
    {
        ASSERT_EQ(0, if_updown(left.c_str(), state));
        const int before = flags_of(left);
        for (int up : {2, -1, 256})
        {
            SCOPED_TRACE(testing::Message() << state << " then " << up);
            EXPECT_EQ(0, if_updown(left.c_str(), up));
            EXPECT_EQ(before, flags_of(left));
        }
    }
}

TEST_F(VethPair, MacAddressIsReadBack)
{
    const Mac peer = mac_of(right);
    for (const Mac& mac : {Mac{0x02, 0x11, 0x22, 0x33, 0x44, 0x55},
                           Mac{0x7a, 0xfe, 0x00, 0x9c, 0x01, 0xb0}})
    {
        EXPECT_EQ(0, set_mac_addr(left.c_str(), mac.data()));
        EXPECT_EQ(mac, mac_of(left));
    }
    EXPECT_EQ(peer, mac_of(right));
}

TEST_F(VethPair, RefusedMacAddressFailsAndIsReported)
{
    const Mac before = mac_of(left);
    const Mac multicast{0x01, 0x00, 0x5e, 0x00, 0x00, 0x01};
    int result = 0;
    EXPECT_EQ("SIOCSIFHWADDR: Cannot assign requested address\n",
              stderr_of([&] {
                  result = set_mac_addr(left.c_str(), multicast.data());
              }));
    EXPECT_EQ(-1, result);
    EXPECT_EQ(before, mac_of(left));
}

TEST_F(VethPair, LongNamesAreCutTo15Characters)
{
    const std::string longer = left + "-and-more";
    EXPECT_EQ(0, if_updown(longer.c_str(), 1));
    EXPECT_NE(0, flags_of(left) & IFF_UP);
    const Mac mac{0x02, 0xaa, 0xbb, 0xcc, 0xdd, 0xee};
    EXPECT_EQ(0, set_mac_addr(longer.c_str(), mac.data()));
    EXPECT_EQ(mac, mac_of(left));
}

TEST_F(VethPair, NullArgumentsChangeNothing)
{
    const int flags = flags_of(left);
    const Mac before = mac_of(left);
    const Mac mac{0x02, 0, 0, 0, 0, 1};
    EXPECT_EQ("", stderr_of([&] {
                  EXPECT_EQ(-1, if_updown(nullptr, 1));
                  EXPECT_EQ(-1, set_mac_addr(nullptr, mac.data()));
                  EXPECT_EQ(-1, set_mac_addr(left.c_str(), nullptr));
              }));
    EXPECT_EQ(flags, flags_of(left));
    EXPECT_EQ(before, mac_of(left));
}

TEST(NetLink, UnknownInterfaceFailsWithTheRequestName)
{
    const Mac mac{0x02, 0, 0, 0, 0, 1};
    int flags_result = 0;
    int mac_result = 0;
    EXPECT_EQ("SIOCSIFFLAGS: No such device\n",
              stderr_of([&] { flags_result = if_updown("kv-missing0", 1); }));
    EXPECT_EQ("SIOCSIFHWADDR: No such device\n", stderr_of([&] {
                  mac_result = set_mac_addr("kv-missing0", mac.data());
              }));
    EXPECT_EQ(-1, flags_result);
    EXPECT_EQ(-1, mac_result);
}

TEST(NetLink, NoSocketGivesMinusOne)
{
    // A child that may open no descriptor at all.
    const Mac mac{0x02, 0, 0, 0, 0, 1};
    const std::string printed = stderr_of([&] {
        EXPECT_EQ(0, exit_status_of([&] {
                      const rlimit none{0, 0};
                      ::setrlimit(RLIMIT_NOFILE, &none);
                      return if_updown("lo", 1) == -1 &&
                                     set_mac_addr("lo", mac.data()) == -1
                                 ? 0
                                 : 1;
                  }));
    });
    EXPECT_EQ("socket: Too many open files\nsocket: Too many open files\n",
              printed);
}

} // namespace

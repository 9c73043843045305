// SPDX-License-Identifier: Apache-2.0
// Client MAC addresses from the kernel's ARP table, on a veth pair in the
// test's network namespace: a permanent neighbour entry, and a real TCP
// connection from a peer in a namespace of its own.
#include "access_test.h"
#include "veth_pair.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

using namespace kv::access::test;

namespace
{

const std::string left = "kv-access-a";
const std::string right = "kv-access-b";
constexpr const char* kNeighbour = "10.77.0.9";
constexpr const char* kNeighbourMac = "02:aa:bb:cc:dd:ee";
constexpr const char* kPeerMac = "02:77:00:00:00:02";
// qemu-user declares SIOCGARP read-only and hands the kernel an arpreq
// without the caller's address and device: the answer is noise.
constexpr const char* kArpUnderEmulation =
    "qemu-user does not pass the SIOCGARP request in to the kernel";

class VethNeighbour : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (pair_.status() != 0)
        {
            GTEST_SKIP() << "no veth pair in the test's network namespace";
        }
        ASSERT_EQ(0, run_ip({"addr", "add", "10.77.0.1/24", "dev", left}));
        ASSERT_EQ(0, run_ip({"link", "set", left, "up"}));
        ASSERT_EQ(0, run_ip({"neigh", "add", kNeighbour, "lladdr",
                             kNeighbourMac, "dev", left, "nud", "permanent"}));
    }

    VethPair pair_{left, right};
};

TEST_F(VethNeighbour, InterfacesWithAnIpv4AddressCountLoopbackDoesNot)
{
    const std::set<std::string> before = getAllNetdevice();
    EXPECT_EQ(1u, before.count(left));
    EXPECT_EQ(0u, before.count(right));
    EXPECT_EQ(0u, before.count("lo"));
    ASSERT_EQ(0, run_ip({"addr", "add", "10.78.0.1/24", "dev", right}));
    EXPECT_EQ(1u, getAllNetdevice().count(right));
}

TEST_F(VethNeighbour, MacComesFromTheNeighbourEntryOfTheMappedAddress)
{
    if (kv::test::under_user_emulation())
    {
        GTEST_SKIP() << kArpUnderEmulation;
    }
    char mac[18] = "";
    EXPECT_EQ(0, getMacByIp("::ffff:10.77.0.9", mac, "eth1"));
    EXPECT_STREQ(kNeighbourMac, mac);

    // Every interface with an IPv4 address is asked.
    ASSERT_EQ(0, run_ip({"addr", "add", "10.78.0.1/24", "dev", right}));
    ASSERT_EQ(0, run_ip({"link", "set", right, "up"}));
    ASSERT_EQ(0,
              run_ip({"neigh", "add", "10.78.0.9", "lladdr",
                      "02:78:00:00:00:09", "dev", right, "nud", "permanent"}));
    EXPECT_EQ(0, getMacByIp("::ffff:10.78.0.9", mac, "eth1"));
    EXPECT_STREQ("02:78:00:00:00:09", mac);

    char other[18] = "kept";
    EXPECT_EQ(0, getMacByIp("::ffff:10.77.0.10", other, "eth1"));
    EXPECT_STREQ("kept", other) << "no entry, nothing written";
    EXPECT_EQ(1, getMacByIp("fe80::9", other, "eth1"));
    EXPECT_THAT(trace_log(),
                HasSubstr("fe80::9, convert ip to mac failed. \n"));
}

TEST_F(VethNeighbour, LoginMeetsTheMacRuleWithTheMacOfItsNeighbourEntry)
{
    if (kv::test::under_user_emulation())
    {
        GTEST_SKIP() << kArpUnderEmulation;
    }
    store_rule(0, "10.77.0.0/24", "02:AA:BB", "");
    store_rule(1, "", "02:aa:bc", "");
    store_user("alice", "000000000001", "0");
    store_user("bob", "000000000001", "1");

    EXPECT_EQ(0u,
              checkUserAllInOne("alice", INTERFACE_WEB, "::ffff:10.77.0.9", 0));
    EXPECT_EQ(258u,
              checkUserAllInOne("bob", INTERFACE_WEB, "::ffff:10.77.0.9", 0));
    EXPECT_EQ(0u,
              checkUserAllInOne("bob", INTERFACE_WEB, "::ffff:10.77.0.10", 0))
        << "a client without an entry has no MAC to refuse";
    EXPECT_THAT(trace_log(), HasSubstr("Login Failed username: bob, "
                                       "endpoint:::ffff:10.77.0.9, dev: eth1, "
                                       "interface:INTERFACE_WEB, reason: "
                                       "PARAMETER MAC ERROR\n"));
}

// The peer end of the pair in a network namespace of its own, connected to
// `port` on the left end. Runs in a child; the result is its exit status.
int connect_from_peer_namespace(int go, int ready, uint16_t port)
{
    if (::unshare(CLONE_NEWNET) != 0)
    {
        return 10;
    }
    char byte = 'n';
    if (::write(ready, &byte, 1) != 1 || ::read(go, &byte, 1) != 1)
    {
        return 11;
    }
    if (run_ip({"addr", "add", "10.77.0.2/24", "dev", right}) != 0 ||
        run_ip({"link", "set", right, "up"}) != 0)
    {
        return 12;
    }
    const int sock = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit{10, 0};
    ::setsockopt(sock, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = port;
    ::inet_pton(AF_INET, "10.77.0.1", &server.sin_addr);
    if (::connect(sock, reinterpret_cast<sockaddr*>(&server), sizeof server) !=
        0)
    {
        return 13;
    }
    // Held until the test closes its end of `go`.
    while (::read(go, &byte, 1) > 0)
    {}
    ::close(sock);
    return 0;
}

TEST_F(VethNeighbour, PeerMacOfAnAcceptedConnection)
{
    if (kv::test::under_user_emulation())
    {
        GTEST_SKIP() << kArpUnderEmulation;
    }
    ASSERT_EQ(0, run_ip({"link", "set", right, "address", kPeerMac}));
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    ::inet_pton(AF_INET, "10.77.0.1", &local.sin_addr);
    socklen_t length = sizeof local;
    ASSERT_EQ(
        0, ::bind(listener, reinterpret_cast<sockaddr*>(&local), sizeof local));
    ASSERT_EQ(0, ::listen(listener, 1));
    ASSERT_EQ(0, ::getsockname(listener, reinterpret_cast<sockaddr*>(&local),
                               &length));

    int go[2];
    int ready[2];
    ASSERT_EQ(0, ::pipe2(go, O_CLOEXEC));
    ASSERT_EQ(0, ::pipe2(ready, O_CLOEXEC));
    const pid_t peer = ::fork();
    ASSERT_LE(0, peer);
    if (peer == 0)
    {
        ::close(go[1]);
        std::_Exit(
            connect_from_peer_namespace(go[0], ready[1], local.sin_port));
    }
    ::close(go[0]);
    ::close(ready[1]);
    char byte = 0;
    ASSERT_EQ(1, ::read(ready[0], &byte, 1));
    EXPECT_EQ(0, run_ip({"link", "set", right, "netns", std::to_string(peer)}));
    EXPECT_EQ(1, ::write(go[1], "g", 1));

    pollfd waiting{listener, POLLIN, 0};
    ASSERT_EQ(1, ::poll(&waiting, 1, 10000)) << "no connection from the peer";
    const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ASSERT_LE(0, connection);
    char mac[18] = "";
    EXPECT_EQ(0, getMacBySockfd(connection, mac, left));
    EXPECT_STREQ(kPeerMac, mac);

    // Removing the left end takes the peer's along while its namespace
    // still lives; then the peer may go.
    EXPECT_EQ(0, run_ip({"link", "del", left}));
    ::close(go[1]);
    int status = 0;
    ASSERT_EQ(peer, ::waitpid(peer, &status, 0));
    EXPECT_EQ(0, WIFEXITED(status) ? WEXITSTATUS(status) : 128);
    ::close(connection);
    ::close(listener);
    ::close(ready[0]);
}

TEST(PeerMac, SocketsWithoutAPeerGiveTheCause)
{
    char mac[18] = "kept";
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    EXPECT_EQ(ENOTSOCK, getMacBySockfd(ends[0], mac, "eth0"));
    const int unconnected = ::socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(ENOTCONN, getMacBySockfd(unconnected, mac, "eth0"));
    EXPECT_STREQ("kept", mac);
    EXPECT_THAT(trace_log(),
                HasSubstr("sockfd: " + std::to_string(unconnected) +
                          ", get peer name wrong: Transport endpoint is not "
                          "connected\n"));
    ::close(unconnected);
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST(PeerMac, PeerWithoutAnArpEntryGivesTheCause)
{
    if (kv::test::under_user_emulation())
    {
        GTEST_SKIP() << kArpUnderEmulation;
    }
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof local;
    ASSERT_EQ(
        0, ::bind(listener, reinterpret_cast<sockaddr*>(&local), sizeof local));
    ASSERT_EQ(0, ::listen(listener, 1));
    ASSERT_EQ(0, ::getsockname(listener, reinterpret_cast<sockaddr*>(&local),
                               &length));
    const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(0, ::connect(client, reinterpret_cast<sockaddr*>(&local),
                           sizeof local));

    char mac[18] = "kept";
    EXPECT_EQ(ENXIO, getMacBySockfd(client, mac, "lo"));
    EXPECT_STREQ("kept", mac);
    EXPECT_THAT(trace_log(), HasSubstr("sockfd: " + std::to_string(client) +
                                       ",  ioctl SIOCGARP wrong: No such "
                                       "device or address\n"));
    ::close(client);
    ::close(listener);
}

} // namespace

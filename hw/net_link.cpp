// SPDX-License-Identifier: Apache-2.0
// Interface flags and hardware address through the socket interface
// requests. A datagram socket serves only as the handle for the requests.
#include "foundation/resources.h"

#include <libkv/hw.h>

#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>

namespace
{

kv::detail::UniqueFd request_socket()
{
    kv::detail::UniqueFd sock(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sock)
    {
        std::perror("socket");
    }
    return sock;
}

// A request for `ifname`, cut to the kernel's IFNAMSIZ - 1 characters.
ifreq request_for(const char* ifname)
{
    ifreq req{};
    std::strncpy(req.ifr_name, ifname, IFNAMSIZ - 1);
    return req;
}

} // namespace

extern "C" int if_updown(const char* ifname, int up)
{
    if (ifname == nullptr)
    {
        return -1;
    }
    kv::detail::UniqueFd sock = request_socket();
    if (!sock)
    {
        return -1;
    }
    ifreq req = request_for(ifname);
    // The request starts as an AF_INET one. Should the flag read fail, that
    // family word (0x0002) is what goes back as the flags; the write then
    // reports the failure.
    req.ifr_addr.sa_family = AF_INET;
    ::ioctl(sock.get(), SIOCGIFFLAGS, &req);
    if (up == 0)
    {
        req.ifr_flags = static_cast<short>(req.ifr_flags & ~IFF_UP);
    }
    else if (up == 1)
    {
        req.ifr_flags = static_cast<short>(req.ifr_flags | IFF_UP);
    }
    const int result = ::ioctl(sock.get(), SIOCSIFFLAGS, &req);
    if (result != 0)
    {
        std::perror("SIOCSIFFLAGS");
    }
    return result;
}

extern "C" int set_mac_addr(const char* ifname, const uint8_t mac[6])
{
    if (ifname == nullptr || mac == nullptr)
    {
        return -1;
    }
    kv::detail::UniqueFd sock = request_socket();
    if (!sock)
    {
        return -1;
    }
    ifreq req = request_for(ifname);
    req.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    std::memcpy(req.ifr_hwaddr.sa_data, mac, 6);
    const int result = ::ioctl(sock.get(), SIOCSIFHWADDR, &req);
    if (result != 0)
    {
        std::perror("SIOCSIFHWADDR");
    }
    return result;
}

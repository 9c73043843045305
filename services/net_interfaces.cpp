// SPDX-License-Identifier: Apache-2.0
// The BMC's own interfaces: index, up/down, link and speed, through the
// interface requests on a throw-away datagram socket.
#include "foundation/resources.h"

#include <libkv/services.h>

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstring>

namespace
{

// Issues `request` for the interface `name` (cut to 15 characters) with
// `req`, which starts cleared but for what `prepare` puts in. False when no
// socket was had or the request failed; errno tells why.
template <typename Prepare>
bool ask_interface(const char* name, unsigned long request, ifreq& req,
                   Prepare prepare)
{
    kv::detail::UniqueFd sock(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sock)
    {
        return false;
    }
    std::memcpy(req.ifr_name, name, strnlen(name, IFNAMSIZ - 1));
    prepare(req);
    return ::ioctl(sock.get(), request, &req) == 0;
}

bool ask_interface(const char* name, unsigned long request, ifreq& req)
{
    return ask_interface(name, request, req, [](ifreq&) {});
}

// 1 when the flag is set, 0 when not, -1 when the flags cannot be read.
int flag_of(const char* name, short flag)
{
    ifreq req{};
    if (name == nullptr || !ask_interface(name, SIOCGIFFLAGS, req))
    {
        return -1;
    }
    return (req.ifr_flags & flag) != 0 ? 1 : 0;
}

} // namespace

extern "C" int net_index_get(const char* ifname)
{
    ifreq req{};
    if (ifname == nullptr || !ask_interface(ifname, SIOCGIFINDEX, req))
    {
        return -1;
    }
    return req.ifr_ifindex;
}

extern "C" int net_enable_get(const char* ifname)
{
    return flag_of(ifname, IFF_UP);
}

extern "C" int net_link_get(const char* ifname)
{
    return flag_of(ifname, IFF_RUNNING);
}

// An alias such as eth0:1 acts on eth0. Flags that are already right are
// not written back.
extern "C" int net_enable_set(const char* ifname, int enable)
{
    if (ifname == nullptr)
    {
        return -1;
    }
    char name[IFNAMSIZ] = "";
    std::memcpy(name, ifname, strnlen(ifname, IFNAMSIZ - 1));
    name[std::strcspn(name, ":")] = '\0';

    ifreq req{};
    if (ask_interface(name, SIOCGIFFLAGS, req) &&
        ((req.ifr_flags & IFF_UP) != 0) == (enable != 0))
    {
        return 0;
    }
    const short up = enable != 0 ? IFF_UP : 0;
    const short flags = static_cast<short>((req.ifr_flags & ~IFF_UP) | up);
    ifreq set{};
    return ask_interface(name, SIOCSIFFLAGS, set,
                         [&](ifreq& r) { r.ifr_flags = flags; })
               ? 0
               : -1;
}

extern "C" int net_speed_get(const char* ifname)
{
    ethtool_cmd command{};
    command.cmd = ETHTOOL_GSET;
    ifreq req{};
    if (ifname == nullptr ||
        !ask_interface(ifname, SIOCETHTOOL, req, [&](ifreq& r) {
            r.ifr_data = reinterpret_cast<char*>(&command);
        }))
    {
        return -1;
    }
    return static_cast<int>(ethtool_cmd_speed(&command));
}

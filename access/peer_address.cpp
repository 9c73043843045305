// SPDX-License-Identifier: Apache-2.0
// Who is at the other end: the address in a daemon's endpoint text, and the
// MAC address the kernel's ARP table holds for it.
#include "foundation/resources.h"

#include <libkv/access.h>
#include <libkv/foundation.h>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace
{

// Callers' buffers: the longest IPv6 text, and a MAC text, with the NUL.
constexpr size_t kAddressTextSize = INET6_ADDRSTRLEN;
constexpr size_t kMacTextSize = 18;

// The address part of an endpoint as the interface's daemon reports it.
std::string address_in(const std::string& endpoint, userInterface iface)
{
    switch (iface)
    {
        case INTERFACE_SSH:
            return endpoint.substr(0, endpoint.rfind(':'));
        case INTERFACE_SNMP:
        {
            // "UDP: [peer]:port->[local]:161"; without the brackets there is
            // no peer to admit.
            const auto open = endpoint.find('[');
            const auto close = open == std::string::npos
                                   ? std::string::npos
                                   : endpoint.find(']', open + 1);
            if (close == std::string::npos)
            {
                return {};
            }
            return endpoint.substr(open + 1, close - open - 1);
        }
        case INTERFACE_LOCAL:
            return "NULL";
        default:
            return endpoint;
    }
}

arpreq arp_request(const sockaddr& peer, const std::string& dev)
{
    arpreq request{};
    request.arp_pa = peer;
    std::strncpy(request.arp_dev, dev.c_str(), sizeof request.arp_dev - 1);
    return request;
}

void write_mac(char* out, const sockaddr& hardware)
{
    const auto* b = reinterpret_cast<const unsigned char*>(hardware.sa_data);
    std::snprintf(out, kMacTextSize, "%02x:%02x:%02x:%02x:%02x:%02x", b[0],
                  b[1], b[2], b[3], b[4], b[5]);
}

// Names of the interfaces with an IPv4 address, loopback left out, in name
// order: what getAllNetdevice answers, asked on a socket the caller holds
// anyway (one request, where getifaddrs makes two netlink dumps; a login
// waits on this). Empty when the kernel does not answer.
std::set<std::string> ipv4_interfaces(int sock)
{
    std::set<std::string> names;
    ifconf list{};
    if (::ioctl(sock, SIOCGIFCONF, &list) != 0 || list.ifc_len <= 0)
    {
        return names;
    }
    // Room for one more, for an address added between the two requests.
    std::vector<ifreq> entries(
        static_cast<size_t>(list.ifc_len) / sizeof(ifreq) + 1);
    list.ifc_len = static_cast<int>(entries.size() * sizeof(ifreq));
    list.ifc_req = entries.data();
    if (::ioctl(sock, SIOCGIFCONF, &list) != 0)
    {
        return names;
    }
    const size_t count = static_cast<size_t>(list.ifc_len) / sizeof(ifreq);
    for (size_t i = 0; i < count; ++i)
    {
        const std::string name(entries[i].ifr_name,
                               strnlen(entries[i].ifr_name, IFNAMSIZ));
        if (name != "lo")
        {
            names.insert(name);
        }
    }
    return names;
}

struct FreeAddresses
{
    void operator()(ifaddrs* list) const
    {
        ::freeifaddrs(list);
    }
};

} // namespace

int getIpByEndpoint(const std::string& endpoint, char* out, userInterface iface)
try
{
    const std::string address = address_in(endpoint, iface);
    in6_addr parsed{};
    if (out == nullptr || ::inet_pton(AF_INET6, address.c_str(), &parsed) != 1)
    {
        veldmarke_log("%s, ipv6 check failed.", address.c_str());
        return 4096;
    }
    std::snprintf(out, kAddressTextSize, "%s", address.c_str());
    return 0;
}
catch (const std::exception&)
{
    return 4096;
}

int getMacByIp(const std::string& ip, char* out, const std::string& /*dev*/)
try
{
    // The IPv4 address is what follows the last colon of a mapped address.
    const std::string ipv4 = ip.substr(ip.rfind(':') + 1);
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    if (out == nullptr ||
        ::inet_pton(AF_INET, ipv4.c_str(), &peer.sin_addr) != 1)
    {
        veldmarke_log("%s, convert ip to mac failed. %s", ip.c_str(), "");
        return 1;
    }
    const kv::detail::UniqueFd sock(
        ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sock)
    {
        veldmarke_log("open socket error: %s", std::strerror(errno));
        return 1;
    }
    sockaddr address{};
    std::memcpy(&address, &peer, sizeof peer);
    for (const std::string& name : ipv4_interfaces(sock.get()))
    {
        arpreq request = arp_request(address, name);
        if (::ioctl(sock.get(), SIOCGARP, &request) == 0 &&
            (request.arp_flags & ATF_COM) != 0)
        {
            write_mac(out, request.arp_ha);
            break;
        }
    }
    return 0;
}
catch (const std::exception&)
{
    return 1;
}

int getMacBySockfd(int sockfd, char* out, const std::string& dev)
{
    if (out == nullptr)
    {
        return EINVAL;
    }
    sockaddr_storage peer{};
    socklen_t length = sizeof peer;
    if (::getpeername(sockfd, reinterpret_cast<sockaddr*>(&peer), &length) != 0)
    {
        const int cause = errno;
        veldmarke_log("sockfd: %d, get peer name wrong: %s", sockfd,
                      std::strerror(cause));
        return cause;
    }
    sockaddr address{};
    std::memcpy(&address, &peer, sizeof address);
    arpreq request = arp_request(address, dev);
    if (::ioctl(sockfd, SIOCGARP, &request) != 0)
    {
        const int cause = errno;
        veldmarke_log("sockfd: %d,  ioctl SIOCGARP wrong: %s", sockfd,
                      std::strerror(cause));
        return cause;
    }
    write_mac(out, request.arp_ha);
    return 0;
}

std::set<std::string> getAllNetdevice()
{
    std::set<std::string> names;
    ifaddrs* raw = nullptr;
    if (::getifaddrs(&raw) != 0)
    {
        veldmarke_log("%s, getifaddrs error. %s", "getAllNetdevice",
                      std::strerror(errno));
        return names;
    }
    const std::unique_ptr<ifaddrs, FreeAddresses> list(raw);
    for (const ifaddrs* entry = list.get(); entry != nullptr;
         entry = entry->ifa_next)
    {
        if (entry->ifa_addr != nullptr &&
            entry->ifa_addr->sa_family == AF_INET &&
            std::strcmp(entry->ifa_name, "lo") != 0)
        {
            names.insert(entry->ifa_name);
        }
    }
    return names;
}

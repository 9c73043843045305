// SPDX-License-Identifier: Apache-2.0
// fru: the BMC's FRU tool. Writes the default fru.ini, builds
// default-fru.bin from it, and changes the FRU devices of this BMC: the
// whole image from fru.ini, or one field of the image already on a device.
//
// Its command line names a BMC by address, user and password. The tool acts
// on the devices of the BMC it runs on, so the address must be one of this
// BMC's own (or loopback): a command meant for another machine must not
// change this one. User and password are accepted and not used; changing
// local devices takes the rights of the local user.
#include "ipc/platform_segment.h"

#include <libkv/fru.h>
#include <libkv/ipc.h>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace
{

constexpr int kUsageStatus = 2;

int usage()
{
    help();
    return kUsageStatus;
}

int failed(const char* what, int code)
{
    std::fprintf(stderr, "\nfru: %s failed (%d)\n", what, code);
    return 1;
}

// A FRU device id: 0 to 255.
bool parse_device_id(const char* text, int& id)
{
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || value < 0 || value > 255)
    {
        return false;
    }
    id = static_cast<int>(value);
    return true;
}

// Whether `text` is a loopback address or an address of one of this
// machine's interfaces.
bool is_local_address(const char* text)
{
    in_addr v4{};
    in6_addr v6{};
    const bool is_v4 = inet_pton(AF_INET, text, &v4) == 1;
    if (!is_v4 && inet_pton(AF_INET6, text, &v6) != 1)
    {
        return std::string_view(text) == "localhost";
    }
    if ((is_v4 && (ntohl(v4.s_addr) >> 24) == 127) ||
        (!is_v4 && IN6_IS_ADDR_LOOPBACK(&v6)))
    {
        return true;
    }
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
    {
        return false;
    }
    bool found = false;
    for (const ifaddrs* i = list; i != nullptr && !found; i = i->ifa_next)
    {
        const sockaddr* a = i->ifa_addr;
        if (a != nullptr && is_v4 && a->sa_family == AF_INET)
        {
            found = reinterpret_cast<const sockaddr_in*>(a)->sin_addr.s_addr ==
                    v4.s_addr;
        }
        else if (a != nullptr && !is_v4 && a->sa_family == AF_INET6)
        {
            found = IN6_ARE_ADDR_EQUAL(
                &reinterpret_cast<const sockaddr_in6*>(a)->sin6_addr, &v6);
        }
    }
    freeifaddrs(list);
    return found;
}

// Writes to a device report no errors: read the image back and compare.
bool device_holds_image(int id)
{
    const auto* segment = static_cast<const uint8_t*>(get_shm_address());
    if (segment == nullptr)
    {
        return false;
    }
    kv_fru_device device;
    std::memcpy(&device, segment + kv::segment::fru_descriptor(id),
                sizeof device);
    const uint32_t length = std::min<uint32_t>(bmc_fru_len, KV_FRU_IMAGE_BYTES);
    device.size[0] = static_cast<uint8_t>(length);
    device.size[1] = static_cast<uint8_t>(length >> 8);
    std::vector<uint8_t> back(length + 8);
    get_fru_bin(device, back.data());
    return std::equal(bmc_fru_date, bmc_fru_date + length, back.begin());
}

int write_device(int id, int result, const char* what)
{
    if (result != 0)
    {
        return failed(what, result);
    }
    if (!device_holds_image(id))
    {
        std::fprintf(stderr,
                     "\nfru: FRU device %d does not hold the image written\n",
                     id);
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string_view> args(argv + 1, argv + argc);
    if (args.size() == 1 && args[0] == "help")
    {
        help();
        return 0;
    }
    if (args.size() == 1 && args[0] == "-c")
    {
        const int result =
            config_default_ini(default_ini, KV_FRU_INI_LINES, "fru.ini");
        return result == 0 ? 0 : failed("writing fru.ini", result);
    }
    if (args.size() == 1 && args[0] == "-b")
    {
        const int result = create_fru_bin();
        return result == 0 ? 0 : failed("building default-fru.bin", result);
    }

    // IP user passwd FruID -w fru.ini | IP user passwd FruID -w title key value
    int id = 0;
    const bool whole_ini = args.size() == 6 && args[5] == "fru.ini";
    if ((!whole_ini && args.size() != 8) || args[4] != "-w" ||
        !parse_device_id(argv[4], id))
    {
        return usage();
    }
    if (!is_local_address(argv[1]))
    {
        std::fprintf(stderr,
                     "fru: %s is not an address of this BMC; fru changes the "
                     "local FRU devices only\n",
                     argv[1]);
        return 1;
    }
    if (whole_ini)
    {
        deviceid = id;
        return write_device(id, write_fru_ini(),
                            "writing fru.ini to the device");
    }
    return write_device(id, fru_modify_key(id, argv[6], argv[7], argv[8]),
                        "changing the field");
}

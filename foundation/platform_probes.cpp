// SPDX-License-Identifier: Apache-2.0
// Drive vendor names, the SKU and the host firmware image check.
#include "foundation/resources.h"

#include <libkv/foundation.h>

#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <cstring>

namespace
{

// Start of a firmware volume header: the zero vector, then the file system
// GUID EFI_SYSTEM_NV_DATA_FV_GUID in its in-memory byte order.
constexpr unsigned char kNvDataVolume[32] = {
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0,    0,    0,    0,    0,    0x8d, 0x2b, 0xf1, 0xff, 0x96, 0x76,
    0x8b, 0x4c, 0xa9, 0x85, 0x27, 0x47, 0x07, 0x5b, 0x4f, 0x50};

bool holds_nv_volume_at(int fd, off_t offset)
{
    unsigned char head[sizeof kNvDataVolume];
    return ::pread(fd, head, sizeof head, offset) ==
               static_cast<ssize_t>(sizeof head) &&
           std::memcmp(head, kNvDataVolume, sizeof head) == 0;
}

} // namespace

extern "C" int get_raid_hdd_manufacturer(const char* model, char* out)
{
    if (model == nullptr || out == nullptr)
    {
        return -1;
    }
    const char* vendor = nullptr;
    if (std::strstr(model, "INTEL") != nullptr)
    {
        vendor = "Intel";
    }
    else if (std::strstr(model, "SAMSUNG") != nullptr)
    {
        vendor = "Samsung";
    }
    else if (::strncasecmp(model, "ST", 2) == 0)
    {
        vendor = "Seagate";
    }
    else
    {
        return -1;
    }
    std::strcpy(out, vendor);
    return 0;
}

extern "C" int get_sku(void)
{
    return 4;
}

// The NV-data volume sits on one of the 1 MiB boundaries from 7 to 15 MiB,
// depending on the image layout.
extern "C" int bios_is_legal(const char* image)
{
    kv::detail::UniqueFd fd(image ? ::open(image, O_RDONLY | O_CLOEXEC) : -1);
    if (!fd)
    {
        return 1;
    }
    for (off_t mib = 7; mib <= 15; ++mib)
    {
        if (holds_nv_volume_at(fd.get(), mib << 20))
        {
            return 0;
        }
    }
    return 1;
}

// SPDX-License-Identifier: Apache-2.0
// FRU facts that other daemons publish under /var/run/obmcinfo.
#include <libkv/foundation.h>
#include <libkv/fru.h>

#include <unistd.h>

#include <cstring>

int getUIDandAssetTag(char* guid, size_t guid_size, char* asset_tag,
                      size_t asset_tag_size)
{
    if (guid != nullptr && guid_size > 0)
    {
        std::memset(guid, 0, guid_size);
        read_all_file("/var/run/obmcinfo/GUID", guid, guid_size);
    }
    return read_conf_value_safe("/var/run/obmcinfo/fruinfo",
                                "Product Asset Tag", asset_tag, asset_tag_size,
                                ':');
}

int wait_sku_file(void)
{
    // The platform daemon writes the SKU file once the board is identified.
    constexpr int kChecks = 239;
    int slept = 0;
    for (int i = 0; i < kChecks; ++i)
    {
        if (::access("/var/run/obmcinfo/sku", F_OK) == 0)
        {
            break;
        }
        slept = static_cast<int>(::sleep(1));
    }
    return slept;
}

int get_sensor_unit(uint8_t)
{
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// The fru.ini template the fru tool writes on request.
#include "foundation/resources.h"

#include <libkv/fru.h>

#include <cstdio>
#include <cstring>

char default_ini[KV_FRU_INI_LINES][KV_FRU_INI_LINE_BYTES] = {
    "[ChassisInfoArea]",
    "Type = \"2\"",
    "PartNum = \"N/A\"",
    "SerialNum = \"N/A\"",
    "[BoardInfoArea]",
    "time = \"2019/07/27 15:04:00\"",
    "Manufacturer = \"VeldMarke\"",
    "ProductName = \"krafloxkle\"",
    "SerialNum = \"N/A\"",
    "PartNum = \"N/A\"",
    "FRUFileID = ",
    "CustomDataString = \"N/A\"",
    "CustomDataString1 = \"N/A\"",
    "CustomDataString2 = \"N/A\"",
    "CustomDataString3 = \"N/A\"",
    "CustomDataString4 = \"N/A\"",
    "CustomDataString5 = \"N/A\"",
    "[ProductInfoArea]",
    "Manufacturer = \"VeldMarke\"",
    "ProductName = \"krafloxkle\"",
    "PartNum = \"00000000-0000-0000-0000-000000000000\"",
    "Version = \"N/A\"",
    "SerialNum = \"000011112222\"",
    "AssetTag = \"N/A\"",
    "FRUFileID = ",
    "CustomDataString = \"N/A\"",
    "CustomDataString1 = \"N/A\"",
    "CustomDataString2 = \"N/A\"",
    "CustomDataString3 = \"N/A\"",
    "CustomDataString4 = \"N/A\"",
};

int config_default_ini(char lines[][KV_FRU_INI_LINE_BYTES], int count,
                       const char* path)
{
    if (lines == nullptr || path == nullptr)
    {
        return KV_FRU_INI_NULL_ARGUMENT;
    }
    kv::detail::UniqueFile file = kv::detail::open_file(path, "w+");
    if (!file)
    {
        return KV_FRU_INI_NOT_CREATED;
    }
    for (int i = 0; i < count; ++i)
    {
        // A full slot has no terminator; it is written up to its end.
        const std::size_t length = strnlen(lines[i], KV_FRU_INI_LINE_BYTES);
        std::fwrite(lines[i], 1, length, file.get());
        if (std::memchr(lines[i], '\n', length) == nullptr)
        {
            std::fputc('\n', file.get());
        }
    }
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// The fru.ini template the fru tool writes on request.
#include "foundation/durable_files.h"
#include "foundation/resources.h"

#include <libkv/fru.h>

#include <fcntl.h>

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
    // "w+", the file created or emptied, in two steps to know which.
    bool created = false;
    kv::detail::UniqueFd fd = kv::detail::open_or_create(
        path, O_RDWR | O_TRUNC | O_CLOEXEC, 0666, created);
    kv::detail::UniqueFile file(fd ? ::fdopen(fd.get(), "w+") : nullptr);
    if (!file)
    {
        return KV_FRU_INI_NOT_CREATED;
    }
    fd.release();
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
    // On the disk when it returns; a failure goes unreported, as a failed
    // write always has.
    if (std::fflush(file.get()) == 0)
    {
        kv::detail::sync_written(fileno(file.get()), path, created);
    }
    return 0;
}

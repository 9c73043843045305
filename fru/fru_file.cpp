// SPDX-License-Identifier: Apache-2.0
// The image as the file default-fru.bin, and the whole fru.ini-to-file run.
#include "foundation/durable_files.h"
#include "foundation/resources.h"

#include <libkv/fru.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

int write_to_bin(void)
{
    // Mode 0 and no O_TRUNC: the tool has always created it so, and a longer
    // earlier image keeps its tail. The image is on the disk before it is
    // reported written.
    constexpr const char* kPath = "default-fru.bin";
    bool created = false;
    const kv::detail::UniqueFd fd =
        kv::detail::open_or_create(kPath, O_RDWR, 0, created);
    const std::size_t length =
        std::min<std::size_t>(bmc_fru_len, sizeof bmc_fru_date);
    if (!fd ||
        ::write(fd.get(), bmc_fru_date, length) !=
            static_cast<ssize_t>(length) ||
        !kv::detail::sync_written(fd.get(), kPath, created))
    {
        std::printf("write bin file error2.");
        return KV_FRU_BIN_SHORT_WRITE;
    }
    return 0;
}

int create_fru_bin(void)
{
    fru_init();
    if (fru_read_ini() != 0)
    {
        return KV_FRU_BIN_INI_UNREADABLE;
    }
    if (get_fru_date() != 0)
    {
        return KV_FRU_BIN_BUILD_FAILED;
    }
    return write_to_bin();
}

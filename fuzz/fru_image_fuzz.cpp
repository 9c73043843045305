// SPDX-License-Identifier: Apache-2.0
// FRU images come from the EEPROMs of plug-in boards: any bytes must parse
// or be refused without a stray read or write; whatever parses must build.
#include "fuzz_input.h"

#include <libkv/fru.h>

#include <vector>

KV_FUZZ_TARGET
{
    // An exact-size copy, so that a read past the image is caught.
    const std::vector<uint8_t> image(data, data + size);
    fru_init();
    if (parse_bin_date(image.data(), int(size)) == 0)
    {
        get_fru_date();
    }
    return 0;
}

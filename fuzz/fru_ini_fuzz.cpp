// SPDX-License-Identifier: Apache-2.0
// fru.ini is written by hand: any text must read into the record, or be
// refused, without a stray read or write; whatever reads must build.
#include <libkv/fru.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::FILE* ini = std::fopen("fru.ini", "wb");
    if (ini == nullptr)
    {
        return 0;
    }
    std::fwrite(data, 1, size, ini);
    std::fclose(ini);
    fru_init();
    if (fru_read_ini() == 0)
    {
        get_fru_date();
    }
    return 0;
}

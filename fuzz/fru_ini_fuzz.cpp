// SPDX-License-Identifier: Apache-2.0
// fru.ini is written by hand: any text must read into the record, or be
// refused, without a stray read or write; whatever reads must build.
#include "fuzz_input.h"

#include <libkv/fru.h>

KV_FUZZ_TARGET
{
    write_input("fru.ini", data, size);
    fru_init();
    if (fru_read_ini() == 0)
    {
        get_fru_date();
    }
    return 0;
}

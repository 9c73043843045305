// SPDX-License-Identifier: Apache-2.0
// The captured kernel log behind the bus numbers of multiplexer channels:
// any text must give a number without a stray read.
#include "fuzz_input.h"

#include <libkv/hw.h>

KV_FUZZ_SANDBOX("/var/run/obmcinfo")

// The first two bytes pick the bus and the channel, the rest is the capture.
KV_FUZZ_TARGET
{
    if (size >= 2 &&
        write_input("/var/run/obmcinfo/i2c_dmesg", data + 2, size - 2))
    {
        CmmFunGetI2CExtBus(data[0] % 32, data[1] % 9);
    }
    return 0;
}

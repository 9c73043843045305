// SPDX-License-Identifier: Apache-2.0
// The captured kernel log lines behind the bus numbers of multiplexer
// channels: any text must give a number without a stray read. The capture
// lies in the sandbox's /var/run.
#include "fuzz_input.h"
#include "sandbox.h"

#include <libkv/hw.h>

#include <sys/stat.h>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kv::sandbox::enter();
    ::mkdir("/var/run/obmcinfo", 0755);
    return 0;
}

// The first two bytes pick the bus and the channel, the rest is the capture.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size >= 2 &&
        write_input("/var/run/obmcinfo/i2c_dmesg", data + 2, size - 2))
    {
        CmmFunGetI2CExtBus(data[0] % 32, data[1] % 9);
    }
    return 0;
}

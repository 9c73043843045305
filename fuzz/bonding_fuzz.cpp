// SPDX-License-Identifier: Apache-2.0
// The bonding driver's status file, read for the bonding mode and the active
// slave: any text must give a known mode, and a slave name, when there is
// one, terminated within its buffer.
// The file lies in the sandbox's private /proc/self/net.
#include "fuzz_input.h"
#include "sandbox.h"

#include <libkv/services.h>

#include <sys/stat.h>

#include <cstring>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kv::sandbox::enter();
    ::mkdir("/proc/self/net/bonding", 0755);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    write_input("/proc/self/net/bonding/bond0", data, size);
    const int mode = net_mode_get();
    require(mode >= 0 && mode <= 8);
    char name[16];
    std::memset(name, 'x', sizeof name);
    require(net_bond_active_slave(name, sizeof name) != 0 ||
            strnlen(name, sizeof name) < sizeof name);
    return 0;
}

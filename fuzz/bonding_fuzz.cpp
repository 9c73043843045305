// SPDX-License-Identifier: Apache-2.0
// The bonding driver's status file (in the sandbox's private /proc/self/net):
// any text must give a known mode, and a slave name, when there is one,
// terminated within its buffer.
#include "fuzz_input.h"

#include <libkv/services.h>

KV_FUZZ_SANDBOX("/proc/self/net/bonding")

KV_FUZZ_TARGET
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

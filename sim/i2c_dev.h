// SPDX-License-Identifier: Apache-2.0
// What the kernel's i2c-dev driver does with a descriptor of a simulated bus:
// the ioctl requests, plain read() and write(). Each returns what the system
// call returns and sets errno on failure.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace kv::sim::detail
{

// The driver's per-descriptor state.
struct Client
{
    int bus = 0;
    uint16_t address = 0;
    bool tenbit = false;
};

int client_ioctl(Client& client, unsigned long request, void* arg);
ssize_t client_read(const Client& client, void* buf, size_t count);
ssize_t client_write(const Client& client, const void* buf, size_t count);

} // namespace kv::sim::detail

// SPDX-License-Identifier: Apache-2.0
// The descriptors this process holds on simulated buses. Each is a real
// descriptor (a memfd) so that the number stays taken and close-on-exec works.
#pragma once

#include "i2c_dev.h"

#include <optional>

namespace kv::sim::detail
{

// Opens a descriptor for `bus`; -1 with errno on failure.
int open_simulated(int bus, bool close_on_exec);

// The client of a simulated descriptor, or nothing for any other one.
std::optional<Client> find_client(int fd);
void update_client(int fd, const Client& client);

// Forgets `fd` if it is a simulated descriptor; the caller closes it.
void forget_descriptor(int fd);

} // namespace kv::sim::detail

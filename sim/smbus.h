// SPDX-License-Identifier: Apache-2.0
// SMBus transactions as the kernel emulates them on a plain I2C adapter:
// one or two messages, with the kernel's checks and result layout.
#pragma once

#include "i2c_dev.h"
#include "shared_state.h"

#include <linux/i2c-dev.h>

namespace kv::sim::detail
{

// Returns 0 or -errno. A transaction the bus does not offer (I2C_FUNCS)
// fails with EOPNOTSUPP.
int smbus_transfer(State& state, const Client& client,
                   const i2c_smbus_ioctl_data& request);

} // namespace kv::sim::detail

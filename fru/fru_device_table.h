// SPDX-License-Identifier: Apache-2.0
// The FRU device table of the platform segment.
#pragma once

#include "foundation/byte_order.h"

#include <libkv/fru.h>

#include <cstdint>
#include <optional>

namespace kv::detail
{

// The descriptor of FRU device `id`; nothing when the platform segment
// cannot be attached or the entry would lie outside it.
std::optional<kv_fru_device> load_fru_device(int id);

inline unsigned fru_device_size(const kv_fru_device& device)
{
    return le16(device.size);
}

inline unsigned fru_device_base(const kv_fru_device& device)
{
    return le16(device.base);
}

} // namespace kv::detail

// SPDX-License-Identifier: Apache-2.0
// Rows of the card configuration tables.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kv::detail
{

using CardRow = uint8_t[5];

// The first `count` rows of `table`; the count is exported and may be set
// by anyone, so it is kept within the table.
template <std::size_t Rows>
std::span<const CardRow> config_rows(const CardRow (&table)[Rows],
                                     int32_t count)
{
    const auto rows = static_cast<std::size_t>(
        std::clamp<int32_t>(count, 0, static_cast<int32_t>(Rows)));
    return {table, rows};
}

} // namespace kv::detail

// SPDX-License-Identifier: Apache-2.0
#include "wire_log.h"

#include <algorithm>

namespace kv::sim::detail
{

void record(State& state, int bus, const Message& message, bool repeated_start,
            int error)
{
    LogRecord& entry = state.log[state.log_total++ % log_capacity];
    entry.bus = bus;
    entry.address = message.address;
    entry.read = message.read;
    entry.repeated_start = repeated_start;
    entry.error = error;
    entry.length = static_cast<uint32_t>(message.length);
    const bool has_bytes = !message.read || error == 0;
    entry.logged =
        has_bytes
            ? static_cast<uint32_t>(std::min(message.length, max_logged_bytes))
            : 0;
    std::copy_n(message.data, entry.logged, entry.data);
}

std::vector<Transfer> logged_transfers(const State& state)
{
    const uint64_t retained =
        state.log_total > log_capacity ? state.log_total - log_capacity : 0;
    std::vector<Transfer> transfers;
    for (uint64_t n = std::max(retained, state.log_first); n < state.log_total;
         ++n)
    {
        const LogRecord& entry = state.log[n % log_capacity];
        transfers.push_back({entry.bus,
                             entry.address,
                             entry.read != 0,
                             entry.repeated_start != 0,
                             entry.error,
                             entry.length,
                             {entry.data, entry.data + entry.logged}});
    }
    return transfers;
}

} // namespace kv::sim::detail

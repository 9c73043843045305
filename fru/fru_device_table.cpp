// SPDX-License-Identifier: Apache-2.0
#include "fru/fru_device_table.h"

#include "ipc/platform_segment.h"

#include <libkv/ipc.h>

#include <cstddef>
#include <cstring>

namespace
{

namespace layout = kv::segment::fru_device;

// The table is written by the platform daemon with these byte positions.
static_assert(sizeof(kv_fru_device) == 15);
static_assert(offsetof(kv_fru_device, state) == layout::kState);
static_assert(offsetof(kv_fru_device, method) == layout::kMethod);
static_assert(offsetof(kv_fru_device, size) == layout::kSize);
static_assert(offsetof(kv_fru_device, behind_mux) == layout::kBehindMux);
static_assert(offsetof(kv_fru_device, mux_channel) == layout::kMuxChannel);
static_assert(offsetof(kv_fru_device, mux_address) == layout::kMuxAddress);
static_assert(offsetof(kv_fru_device, offset_width) == layout::kOffsetWidth);
static_assert(offsetof(kv_fru_device, bus) == layout::kBus);
static_assert(offsetof(kv_fru_device, address) == layout::kAddress);
static_assert(offsetof(kv_fru_device, base) == layout::kBase);

} // namespace

namespace kv::detail
{

std::optional<kv_fru_device> load_fru_device(int id)
{
    const auto* segment = static_cast<const uint8_t*>(init_shm());
    // Bounded before any arithmetic: size_t is 32 bits on the BMC.
    constexpr int kEntries =
        (kv::segment::kPlatformSize - kv::segment::kFruDeviceTable) /
        kv::segment::kFruDeviceEntrySize;
    if (segment == nullptr || id < 0 || id >= kEntries)
    {
        return std::nullopt;
    }
    kv_fru_device device;
    std::memcpy(&device, segment + kv::segment::fru_descriptor(id),
                sizeof device);
    return device;
}

} // namespace kv::detail

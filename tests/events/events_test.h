// SPDX-License-Identifier: Apache-2.0
// Shared ground of the event tests: the platform segment as the library
// attaches it, once per process.
#pragma once

#include "ipc/platform_segment.h"
#include "test_helpers.h"

#include <libkv/events.h>
#include <libkv/ipc.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

inline uint8_t* cleared_segment()
{
    auto* shm = static_cast<uint8_t*>(get_shm_address());
    std::memset(shm, 0, kv::segment::kPlatformSize);
    return shm;
}

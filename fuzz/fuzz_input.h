// SPDX-License-Identifier: Apache-2.0
// The fuzzer's input as the file a parser reads, and the sandbox's private
// view for the targets whose files lie at fixed paths.
#pragma once

#include "sandbox.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

// Enters the sandbox and makes the folders `...` in it.
#define KV_FUZZ_SANDBOX(...)                                                   \
    extern "C" int LLVMFuzzerInitialize(int*, char***)                         \
    {                                                                          \
        kv::sandbox::enter();                                                  \
        for (const char* dir : {"/tmp", __VA_ARGS__})                          \
            ::mkdir(dir, 0755);                                                \
        return 0;                                                              \
    }

// The target's body, run on each input: `data`, `size` bytes.
#define KV_FUZZ_TARGET                                                         \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)

// Writes `data` to `path`: false when the file cannot be made.
inline bool write_input(const char* path, const void* data, size_t size)
{
    return bool(std::ofstream(path, std::ios::binary)
                    .write(static_cast<const char*>(data), long(size)));
}

// Stops the run on a broken promise, so that the fuzzer keeps the input.
#define require(promise) ((promise) ? void() : std::abort())

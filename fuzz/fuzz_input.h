// SPDX-License-Identifier: Apache-2.0
// The fuzzer's input as the file a parser reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// Writes `data` to `path`: false when the file cannot be made.
inline bool write_input(const char* path, const uint8_t* data, size_t size)
{
    std::FILE* file = std::fopen(path, "wb");
    if (file == nullptr)
    {
        return false;
    }
    std::fwrite(data, 1, size, file);
    std::fclose(file);
    return true;
}

// Stops the run on a broken promise, so that the fuzzer keeps the input.
inline void require(bool promise)
{
    if (!promise)
    {
        std::abort();
    }
}

// SPDX-License-Identifier: Apache-2.0
// key=value files are edited by hand and by every daemon: any text, and any
// key, must read and edit without a stray read or write. The file lives in
// the sandbox's /tmp.
#include "fuzz_input.h"
#include "sandbox.h"

#include <libkv/foundation.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace
{

constexpr const char* kFile = "/tmp/fuzz.conf";

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kv::sandbox::enter();
    return 0;
}

// The first bytes up to a NUL name the key, the rest is the file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto* nul = static_cast<const uint8_t*>(std::memchr(data, 0, size));
    if (nul == nullptr)
    {
        return 0;
    }
    const std::string key(reinterpret_cast<const char*>(data),
                          static_cast<size_t>(nul - data));
    if (!write_input(kFile, nul + 1,
                     size - static_cast<size_t>(nul - data) - 1))
    {
        return 0;
    }
    char value[128];
    read_conf_value(kFile, key.c_str(), value);
    char small[8];
    read_conf_value_safe(kFile, key.c_str(), small, sizeof small, ':');

    // Edits go through the scratch file and the rename, whatever the text.
    if (write_conf_value(kFile, key.c_str(), "fuzzed") == 0)
    {
        read_conf_value(kFile, key.c_str(), value);
    }
    delete_conf_value_safe(kFile, key.c_str(), '=');
    return 0;
}

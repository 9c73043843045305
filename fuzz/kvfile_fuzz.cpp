// SPDX-License-Identifier: Apache-2.0
// key=value files are edited by hand and by every daemon: any text, and any
// key, must read and edit without a stray read or write. The file lives in
// the sandbox's /tmp.
#include "fuzz_input.h"
#include "sandbox.h"

#include <libkv/foundation.h>

#include <cstring>
#include <string>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kv::sandbox::enter();
    return 0;
}

// The first bytes up to a NUL name the key, the rest is the file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const char* file = "/tmp/fuzz.conf";
    const std::string key(reinterpret_cast<const char*>(data),
                          strnlen(reinterpret_cast<const char*>(data), size));
    if (key.size() == size ||
        !write_input(file, data + key.size() + 1, size - key.size() - 1))
    {
        return 0;
    }
    char value[128];
    read_conf_value(file, key.c_str(), value);
    char small[8];
    read_conf_value_safe(file, key.c_str(), small, sizeof small, ':');
    // Edits go through the scratch file and the rename, whatever the text.
    if (write_conf_value(file, key.c_str(), "fuzzed") == 0)
    {
        read_conf_value(file, key.c_str(), value);
    }
    delete_conf_value_safe(file, key.c_str(), '=');
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// key=value files are edited by hand and by every daemon: any text, and any
// key, must read and edit without a stray read or write.
#include "fuzz_input.h"

#include <libkv/foundation.h>

KV_FUZZ_SANDBOX()

// The bytes up to the first NUL name the key, the rest is the file.
KV_FUZZ_TARGET
{
    const char* file = "/tmp/fuzz.conf";
    const char* key = (const char*)data;
    const size_t length = strnlen(key, size);
    if (length == size ||
        !write_input(file, key + length + 1, size - length - 1))
        return 0;
    char value[128];
    read_conf_value(file, key, value);
    char small[8];
    read_conf_value_safe(file, key, small, sizeof small, ':');
    // Edits go through the scratch file and the rename, whatever the text.
    if (write_conf_value(file, key, "fuzzed") == 0)
    {
        read_conf_value(file, key, value);
    }
    delete_conf_value_safe(file, key, '=');
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// Any key and value a daemon hands to write_conf_value: the value is read
// back as the readers give values (outer blanks trimmed), or refused with
// the file untouched; either way no other setting changes.
#include "fuzz_input.h"

#include <libkv/foundation.h>

#include <iterator>

static const char* kFile = "/tmp/fuzz.conf";

static std::string setting(const std::string& key)
{
    char value[256];
    return read_conf_value_safe(kFile, key.c_str(), value, sizeof value, '=')
               ? "<none>"
               : value;
}

// The settings of the file's own two keys, except `key`.
static std::string others(const std::string& key)
{
    return (key == "alpha" ? "" : setting("alpha")) + "\n" +
           (key == "beta" ? "" : setting("beta"));
}

KV_FUZZ_SANDBOX()

// The key, a NUL, the value, a NUL, and lines the file holds after two
// settings of its own.
KV_FUZZ_TARGET
{
    const std::string input((const char*)data, size);
    const size_t key_end = input.find('\0');
    const size_t value_end = input.find('\0', key_end + 1);
    if (value_end == input.npos)
        return 0;
    const std::string key = input.substr(0, key_end);
    std::string value = input.substr(key_end + 1, value_end - key_end - 1);
    const std::string before =
        "alpha=1\nbeta=2\n" + input.substr(value_end + 1);
    if (!write_input(kFile, before.data(), before.size()))
        return 0;
    const std::string unchanged = others(key);
    const int result = write_conf_value(kFile, key.c_str(), value.c_str());
    require(result == 0 || result == -1);
    if (result != 0)
    {
        std::ifstream in(kFile, std::ios::binary);
        require(std::string(std::istreambuf_iterator<char>(in), {}) == before);
        return 0;
    }
    get_valid_string(value.data());
    require(setting(key) == value.c_str());
    require(others(key) == unchanged);
    return 0;
}

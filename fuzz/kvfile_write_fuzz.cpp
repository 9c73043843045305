// SPDX-License-Identifier: Apache-2.0
// Any key and value a daemon hands to write_conf_value: the value is read
// back as the readers give values (outer blanks trimmed), or refused with
// the file untouched; either way no other setting changes. The file lives
// in the sandbox's /tmp.
#include "fuzz_input.h"
#include "sandbox.h"

#include <libkv/foundation.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace
{

constexpr const char* kFile = "/tmp/fuzz.conf";
constexpr const char* kOthers[] = {"alpha", "beta"};

std::string file_text()
{
    std::ifstream in(kFile, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string setting(const char* key)
{
    char value[256];
    return read_conf_value_safe(kFile, key, value, sizeof value, '=') == 0
               ? value
               : "<none>";
}

// Stops the run on a broken promise, so the fuzzer keeps the input.
void require(bool promise)
{
    if (!promise)
    {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kv::sandbox::enter();
    return 0;
}

// The key, a NUL, the value, a NUL, and lines the file holds after two
// settings of its own.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t key_end = input.find('\0');
    const size_t value_end = input.find('\0', key_end + 1);
    if (value_end == std::string::npos)
    {
        return 0;
    }
    const std::string key = input.substr(0, key_end);
    std::string value = input.substr(key_end + 1, value_end - key_end - 1);
    const std::string before =
        "alpha=1\nbeta=2\n" + input.substr(value_end + 1);
    if (!write_input(kFile, reinterpret_cast<const uint8_t*>(before.data()),
                     before.size()))
    {
        return 0;
    }
    std::string others;
    for (const char* other : kOthers)
    {
        others += key == other ? "" : setting(other) + "\n";
    }

    const int result = write_conf_value(kFile, key.c_str(), value.c_str());
    require(result == 0 || result == -1);
    if (result != 0)
    {
        require(file_text() == before);
        return 0;
    }
    get_valid_string(value.data());
    require(setting(key.c_str()) == value.c_str());
    std::string after;
    for (const char* other : kOthers)
    {
        after += key == other ? "" : setting(other) + "\n";
    }
    require(after == others);
    return 0;
}

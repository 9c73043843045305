// SPDX-License-Identifier: Apache-2.0
// What the foundation tests share: the library's C interface, the file and
// process helpers, the matchers and the standard headers most of them use.
#pragma once

#include "test_helpers.h"

#include <libkv/foundation.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <regex>

using namespace kv::test;
using namespace std::string_literals;
using S = std::string;
namespace fs = std::filesystem;

// A file's text with every trace stamp and ctime stamp replaced by "T".
inline S untimed(const S& path)
{
    static const std::regex stamp(
        R"([0-9-]{8} [0-9:]{8}|\w{3} \w{3} [ \d]\d [\d:]{8} \d{4})");
    return std::regex_replace(read_text(path).value_or("<none>"), stamp, "T");
}

inline struct stat stat_of(const char* path)
{
    struct stat info = {};
    stat(path, &info);
    return info;
}

inline mode_t mode_of(const char* path)
{
    return stat_of(path).st_mode & 0777;
}

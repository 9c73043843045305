// SPDX-License-Identifier: Apache-2.0
// Key=value configuration files: the one reader, writer and deleter behind
// every settings file of the BMC. Lines are handled in pieces of at most 255
// characters and split at their first separator; key and value are trimmed.
#include "foundation/resources.h"
#include "foundation/scratch_rewrite.h"

#include <libkv/foundation.h>

#include <cstdio>
#include <cstring>

namespace
{

using kv::detail::rewrite_via_scratch;
using kv::detail::UniqueFile;

constexpr int kLineSize = 256; // 255 characters and the terminator

bool is_trailing_junk(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte == ' ' || byte < 0x20 || byte == 0x7f;
}

// Splits `line` in place at its first separator and trims both halves. A line
// without the separator holds no key.
bool split_line(char* line, char sep, char*& key, char*& value)
{
    auto* at = static_cast<char*>(std::memchr(line, sep, std::strlen(line)));
    if (at == nullptr)
    {
        return false;
    }
    *at = '\0';
    key = line;
    value = at + 1;
    get_valid_string(key);
    get_valid_string(value);
    return true;
}

bool line_has_key(const char* line, const char* key, char sep)
{
    char work[kLineSize];
    std::snprintf(work, sizeof work, "%s", line);
    char* found = nullptr;
    char* value = nullptr;
    return split_line(work, sep, found, value) && std::strcmp(found, key) == 0;
}

bool value_unchanged(const char* path, const char* key, const char* value,
                     char sep)
{
    char current[kLineSize];
    if (read_conf_value_safe(path, key, current, sizeof current, sep) != 0)
    {
        return false;
    }
    char wanted[kLineSize];
    std::snprintf(wanted, sizeof wanted, "%s", value);
    get_valid_string(wanted);
    return std::strcmp(current, wanted) == 0;
}

// The first line holding `key` becomes `new_line`; later lines, duplicates
// included, are copied unexamined. Without such a line `new_line` is
// appended, on a line of its own even when the file lacks a final newline.
void copy_setting(std::FILE* from, std::FILE* to, const char* key, char sep,
                  const char* new_line)
{
    char line[kLineSize];
    bool replaced = false;
    char last = '\n';
    while (from != nullptr && std::fgets(line, sizeof line, from) != nullptr)
    {
        if (!replaced && line_has_key(line, key, sep))
        {
            std::fputs(new_line, to);
            replaced = true;
            continue;
        }
        std::fputs(line, to);
        if (const size_t length = std::strlen(line); length > 0)
        {
            last = line[length - 1];
        }
    }
    if (!replaced)
    {
        if (last != '\n')
        {
            std::fputc('\n', to);
        }
        std::fputs(new_line, to);
    }
}

void copy_without_key(std::FILE* from, std::FILE* to, const char* key, char sep)
{
    char line[kLineSize];
    while (from != nullptr && std::fgets(line, sizeof line, from) != nullptr)
    {
        if (!line_has_key(line, key, sep))
        {
            std::fputs(line, to);
        }
    }
}

} // namespace

extern "C" int check_comment_line(const char* line)
{
    if (line == nullptr)
    {
        return -1;
    }
    return line[std::strspn(line, " ")] == '#' ? 1 : 0;
}

extern "C" int get_valid_string(char* s)
{
    if (s == nullptr)
    {
        return -1;
    }
    const size_t begin = std::strspn(s, " ");
    size_t end = std::strlen(s);
    while (end > begin && is_trailing_junk(s[end - 1]))
    {
        --end;
    }
    std::memmove(s, s + begin, end - begin);
    s[end - begin] = '\0';
    return 0;
}

extern "C" int read_conf_value_safe(const char* path, const char* key,
                                    char* value, size_t size, char sep)
{
    if (path == nullptr || key == nullptr || value == nullptr || size == 0)
    {
        return -1;
    }
    UniqueFile file = kv::detail::open_file(path, "r");
    if (!file)
    {
        return -1;
    }
    char line[kLineSize];
    while (std::fgets(line, sizeof line, file.get()) != nullptr)
    {
        char* found = nullptr;
        char* found_value = nullptr;
        if (split_line(line, sep, found, found_value) &&
            std::strcmp(found, key) == 0)
        {
            std::snprintf(value, size, "%s", found_value);
            return 0;
        }
    }
    return -1;
}

extern "C" int read_conf_value(const char* path, const char* key, char* value)
{
    return read_conf_value_safe(path, key, value, 128, '=');
}

// An unchanged value leaves the file, and its modification time, alone.
extern "C" int write_conf_value_safe(const char* path, const char* key,
                                     const char* value, char sep)
{
    if (path == nullptr || key == nullptr || value == nullptr)
    {
        return -1;
    }
    if (value_unchanged(path, key, value, sep))
    {
        return 0;
    }
    char new_line[kLineSize];
    std::snprintf(new_line, sizeof new_line, "%s%c%s\n", key, sep, value);
    return rewrite_via_scratch(path, [&](std::FILE* from, std::FILE* to) {
        copy_setting(from, to, key, sep, new_line);
    });
}

extern "C" int write_conf_value(const char* path, const char* key,
                                const char* value)
{
    return write_conf_value_safe(path, key, value, '=');
}

extern "C" int delete_conf_value_safe(const char* path, const char* key,
                                      char sep)
{
    if (path == nullptr || key == nullptr)
    {
        return -1;
    }
    char current[kLineSize];
    if (read_conf_value_safe(path, key, current, sizeof current, sep) != 0)
    {
        return 0;
    }
    return rewrite_via_scratch(path, [&](std::FILE* from, std::FILE* to) {
        copy_without_key(from, to, key, sep);
    });
}

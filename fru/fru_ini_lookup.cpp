// SPDX-License-Identifier: Apache-2.0
// Key lookup in fru.ini and the small text helpers around it. The lookup's
// looseness (prefix match, a section that never ends) is what existing
// fru.ini files and the tool's callers have always relied on.
#include "foundation/resources.h"

#include <libkv/fru.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr std::size_t kLineSize = 1024; // 1023 characters and the terminator

bool starts_with(const char* line, const char* prefix)
{
    return std::strncmp(line, prefix, std::strlen(prefix)) == 0;
}

} // namespace

char* rtspace(char* text)
{
    if (text == nullptr)
    {
        return nullptr;
    }
    const std::size_t lead = std::strspn(text, " ");
    std::size_t length = std::strlen(text + lead);
    std::memmove(text, text + lead, length + 1);
    while (length > 0 && text[length - 1] == ' ')
    {
        text[--length] = '\0';
    }
    return text;
}

char* GetIniKeyString(const char* section, const char* key, const char* path)
{
    static char result[kLineSize];
    kv::detail::UniqueFile file = kv::detail::open_file(path, "r");
    if (!file)
    {
        std::printf("have   no   such   file ");
        return nullptr;
    }
    std::snprintf(result, sizeof result, "[%s]", section);

    bool in_section = false;
    char line[kLineSize];
    for (;;)
    {
        std::memset(line, 0, sizeof line);
        if (std::fgets(line, sizeof line, file.get()) == nullptr)
        {
            return nullptr;
        }
        if (starts_with(line, result))
        {
            in_section = true; // and it stays on for the rest of the file
            continue;
        }
        if (!in_section || !starts_with(line, key))
        {
            continue;
        }
        const char* equals = std::strchr(line, '=');
        if (equals == nullptr)
        {
            return nullptr;
        }
        std::strcpy(result, equals + 1); // both buffers are kLineSize
        if (char* comment = std::strchr(result, '#'))
        {
            *comment = '\0';
        }
        return rtspace(result);
    }
}

int GetIniKeyInt(const char* section, const char* key, const char* path)
{
    const char* value = GetIniKeyString(section, key, path);
    return value == nullptr ? 0 : std::atoi(value);
}

char* fru_get_str(char* text)
{
    char* open = text == nullptr ? nullptr : std::strchr(text, '"');
    char* close = open == nullptr ? nullptr : std::strchr(open + 1, '"');
    if (close == nullptr)
    {
        return nullptr;
    }
    *close = '\0';
    return open + 1;
}

// SPDX-License-Identifier: Apache-2.0
// Local time as text for log lines and file stamps.
#include <libkv/foundation.h>

#include <cstdio>
#include <cstring>
#include <ctime>

// ctime's form (fixed English names whatever the locale), newline dropped.
extern "C" int get_timestamp_string(char* buf)
{
    if (buf == nullptr)
    {
        return -1;
    }
    const std::time_t now = std::time(nullptr);
    char text[64] = "";
    if (ctime_r(&now, text) == nullptr)
    {
        text[0] = '\0';
    }
    text[std::strcspn(text, "\n")] = '\0';
    std::snprintf(buf, 64, "%s", text);
    return 0;
}

extern "C" char* time_string_get(char* buf, size_t size)
{
    static char empty[1];
    if (buf == nullptr)
    {
        return empty;
    }
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::snprintf(buf, size, "%04u-%02u-%02u %02u:%02u:%02u",
                  1900u + static_cast<unsigned>(local.tm_year),
                  static_cast<unsigned>(local.tm_mon) + 1u,
                  static_cast<unsigned>(local.tm_mday),
                  static_cast<unsigned>(local.tm_hour),
                  static_cast<unsigned>(local.tm_min),
                  static_cast<unsigned>(local.tm_sec));
    return buf;
}

// SPDX-License-Identifier: Apache-2.0
// Path tests and the name part of a path.
#include <libkv/foundation.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

extern "C" int file_existed(const char* path)
{
    struct stat st
    {};
    return path != nullptr && ::stat(path, &st) == 0 ? 1 : 0;
}

// One level only: callers create parents first.
extern "C" int path_create(const char* path)
{
    if (path == nullptr)
    {
        return -1;
    }
    if (file_existed(path))
    {
        return 0;
    }
    return ::mkdir(path, 0777);
}

extern "C" const char* file_name_get(const char* path)
{
    if (path == nullptr)
    {
        return "";
    }
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

extern "C" char* file_path_get(const char* path, char* buf, size_t size)
{
    static char empty[1];
    if (path == nullptr || buf == nullptr || size == 0)
    {
        return empty;
    }
    std::snprintf(buf, size, "%s", path);
    char* slash = std::strrchr(buf, '/');
    return slash ? slash + 1 : buf;
}

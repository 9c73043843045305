// SPDX-License-Identifier: Apache-2.0
#include "foundation/scratch_rewrite.h"

#include "foundation/atomic_replace.h"
#include "foundation/resources.h"

#include <libkv/foundation.h>

#include <sys/stat.h>
#include <sys/time.h>

#include <cerrno>
#include <climits>

namespace kv::detail
{
namespace
{

// The file to copy from, or null when there is none yet. Anything but a
// regular file is not read: the rename over it fails later.
UniqueFile open_original(const char* path)
{
    UniqueFile file = open_file(path, "r");
    struct stat info = {};
    if (file &&
        (::fstat(fileno(file.get()), &info) != 0 || !S_ISREG(info.st_mode)))
    {
        file.reset();
    }
    return file;
}

} // namespace

bool scratch_name_for(const char* path, char (&name)[PATH_MAX])
{
    timeval now{};
    ::gettimeofday(&now, nullptr);
    const int length = std::snprintf(name, sizeof name, "%s_%u", path,
                                     static_cast<unsigned>(now.tv_usec));
    if (length < 0 || static_cast<size_t>(length) >= sizeof name)
    {
        errno = ENAMETOOLONG;
        return false;
    }
    return true;
}

int settings_result(ReplaceFailure failure)
{
    switch (failure)
    {
        case ReplaceFailure::none:
            return 0;
        case ReplaceFailure::rename:
            return KV_CONF_RENAME_FAILED;
        default:
            return KV_CONF_FAILED;
    }
}

int rewrite_via_scratch(
    const char* path,
    const std::function<void(std::FILE* from, std::FILE* to)>& copy,
    mode_t new_file)
{
    char name[PATH_MAX];
    if (!scratch_name_for(path, name))
    {
        return KV_CONF_FAILED;
    }
    UniqueFile original = open_original(path);
    return settings_result(replace_file(
        path, name, ScratchName::unique,
        [&](std::FILE* scratch) {
            copy(original.get(), scratch);
            return !original || std::ferror(original.get()) == 0;
        },
        new_file));
}

} // namespace kv::detail

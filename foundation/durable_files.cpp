// SPDX-License-Identifier: Apache-2.0
#include "foundation/durable_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace kv::detail
{

bool sync_directory_of(const char* path)
{
    const char* slash = std::strrchr(path, '/');
    const std::string dir =
        slash == nullptr ? "."
                         : std::string(path, slash == path ? 1 : slash - path);
    UniqueFd fd(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd && ::fsync(fd.get()) == 0 && ::close(fd.release()) == 0;
}

UniqueFd open_or_create(const char* path, int flags, mode_t mode, bool& created)
{
    UniqueFd fd(::open(path, flags));
    created = !fd && errno == ENOENT;
    if (created)
    {
        fd = UniqueFd(::open(path, flags | O_CREAT, mode));
    }
    return fd;
}

bool sync_written(int fd, const char* path, bool created)
{
    return ::fdatasync(fd) == 0 && (!created || sync_directory_of(path));
}

} // namespace kv::detail

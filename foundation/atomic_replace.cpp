// SPDX-License-Identifier: Apache-2.0
#include "foundation/atomic_replace.h"

#include "foundation/resources.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <utility>

namespace kv::detail
{
namespace
{

// Permissions of the file being replaced; none for a new file, which gets
// what a plain fopen would give it (0666 less the umask).
std::optional<mode_t> mode_of(const char* path)
{
    struct stat info = {};
    if (::stat(path, &info) == 0 && S_ISREG(info.st_mode))
    {
        return info.st_mode & 07777;
    }
    return std::nullopt;
}

UniqueFile create_scratch(const char* name, ScratchName kind,
                          std::optional<mode_t> mode)
{
    if (kind == ScratchName::fixed && ::unlink(name) != 0 && errno != ENOENT)
    {
        return nullptr;
    }
    UniqueFd fd(::open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                       mode.value_or(0666)));
    // The umask must not narrow a mode copied from the old file.
    if (!fd || (mode && ::fchmod(fd.get(), *mode) != 0))
    {
        return nullptr;
    }
    UniqueFile file(::fdopen(fd.get(), "w"));
    if (file)
    {
        fd.release();
    }
    return file;
}

// Writes, flushes and closes; false with errno set at the first failure.
bool finish(UniqueFile file, const std::function<bool(std::FILE*)>& write)
{
    errno = 0;
    if (!write(file.get()) || std::ferror(file.get()) != 0 ||
        std::fflush(file.get()) != 0 || ::fsync(fileno(file.get())) != 0)
    {
        if (errno == 0)
        {
            errno = EIO;
        }
        return false;
    }
    return std::fclose(file.release()) == 0;
}

// Removes the scratch file without losing the errno of the failure.
ReplaceFailure discard(const char* scratch, ReplaceFailure failure)
{
    const int cause = errno;
    ::unlink(scratch);
    errno = cause;
    return failure;
}

} // namespace

ReplaceFailure write_scratch(const char* path, const char* scratch,
                             ScratchName kind,
                             const std::function<bool(std::FILE*)>& write)
{
    UniqueFile file = create_scratch(scratch, kind, mode_of(path));
    if (!file)
    {
        return ReplaceFailure::scratch;
    }
    if (!finish(std::move(file), write))
    {
        return discard(scratch, ReplaceFailure::write);
    }
    return ReplaceFailure::none;
}

ReplaceFailure replace_file(const char* path, const char* scratch,
                            ScratchName kind,
                            const std::function<bool(std::FILE*)>& write)
{
    const ReplaceFailure written = write_scratch(path, scratch, kind, write);
    if (written != ReplaceFailure::none)
    {
        return written;
    }
    if (::rename(scratch, path) != 0)
    {
        return discard(scratch, ReplaceFailure::rename);
    }
    return ReplaceFailure::none;
}

} // namespace kv::detail

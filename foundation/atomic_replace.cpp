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

UniqueFd create_scratch(const char* name, ScratchName kind,
                        std::optional<mode_t> mode)
{
    if (kind == ScratchName::fixed && ::unlink(name) != 0 && errno != ENOENT)
    {
        return {};
    }
    UniqueFd fd(::open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                       mode.value_or(0666)));
    // The umask must not narrow a mode copied from the old file.
    if (fd && mode && ::fchmod(fd.get(), *mode) != 0)
    {
        fd.reset();
    }
    return fd;
}

UniqueFile stream_on(UniqueFd fd)
{
    UniqueFile file(fd ? ::fdopen(fd.get(), "w") : nullptr);
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

// Writes the whole content, syncs and closes; false with errno set at the
// first failure.
bool finish(UniqueFd fd, std::string_view content)
{
    while (!content.empty())
    {
        const ssize_t written =
            ::write(fd.get(), content.data(), content.size());
        if (written > 0)
        {
            content.remove_prefix(static_cast<size_t>(written));
            continue;
        }
        if (written < 0 && errno == EINTR)
        {
            continue;
        }
        if (written == 0)
        {
            errno = EIO;
        }
        return false;
    }
    return ::fsync(fd.get()) == 0 && ::close(fd.release()) == 0;
}

// Removes the scratch file without losing the errno of the failure.
ReplaceFailure discard(const char* scratch, ReplaceFailure failure)
{
    const int cause = errno;
    ::unlink(scratch);
    errno = cause;
    return failure;
}

// The rename that makes the written scratch file the target.
ReplaceFailure put_in_place(const char* path, const char* scratch)
{
    if (::rename(scratch, path) != 0)
    {
        return discard(scratch, ReplaceFailure::rename);
    }
    return ReplaceFailure::none;
}

} // namespace

ReplaceFailure write_scratch(const char* path, const char* scratch,
                             ScratchName kind,
                             const std::function<bool(std::FILE*)>& write)
{
    UniqueFile file = stream_on(create_scratch(scratch, kind, mode_of(path)));
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
    return written != ReplaceFailure::none ? written
                                           : put_in_place(path, scratch);
}

ReplaceFailure replace_file(const char* path, const char* scratch,
                            ScratchName kind, std::string_view content,
                            std::optional<mode_t> mode)
{
    UniqueFd fd = create_scratch(scratch, kind, mode);
    if (!fd)
    {
        return ReplaceFailure::scratch;
    }
    if (!finish(std::move(fd), content))
    {
        return discard(scratch, ReplaceFailure::write);
    }
    return put_in_place(path, scratch);
}

} // namespace kv::detail

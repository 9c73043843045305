// SPDX-License-Identifier: Apache-2.0
#include "foundation/atomic_replace.h"

#include "foundation/durable_files.h"
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

std::optional<FileOwner> owner_of_path(const char* path)
{
    struct stat info = {};
    return ::stat(path, &info) == 0 ? owner_of(info) : std::nullopt;
}

// The scratch file takes the old file's owner and group before its mode (a
// chown clears set-id bits). A writer that may not give the file to them
// fails, rather than change who can read it.
bool take_over(int fd, const FileOwner& owner)
{
    // The umask must not narrow a mode copied from the old file.
    return ::fchown(fd, owner.uid, owner.gid) == 0 &&
           ::fchmod(fd, owner.mode) == 0;
}

UniqueFd create_scratch(const char* name, ScratchName kind,
                        std::optional<FileOwner> owner, mode_t new_file)
{
    if (kind == ScratchName::fixed && ::unlink(name) != 0 && errno != ENOENT)
    {
        return {};
    }
    UniqueFd fd(::open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                       owner ? owner->mode : new_file));
    if (fd && owner && !take_over(fd.get(), *owner))
    {
        const int cause = errno;
        fd.reset();
        ::unlink(name);
        errno = cause;
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

// The rename that makes the written scratch file the target, and the
// directory synced so that a power cut cannot bring the old file back. The
// new file is in place by then: a failed sync removes nothing.
ReplaceFailure put_in_place(const char* path, const char* scratch)
{
    if (::rename(scratch, path) != 0)
    {
        return discard(scratch, ReplaceFailure::rename);
    }
    return sync_directory_of(path) ? ReplaceFailure::none
                                   : ReplaceFailure::write;
}

// The first half of a replace: `scratch` whole and on the disk.
ReplaceFailure fill_scratch(const char* path, const char* scratch,
                            ScratchName kind,
                            const std::function<bool(std::FILE*)>& write,
                            mode_t new_file)
{
    UniqueFile file =
        stream_on(create_scratch(scratch, kind, owner_of_path(path), new_file));
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

} // namespace

std::optional<FileOwner> owner_of(const struct stat& info)
{
    if (!S_ISREG(info.st_mode))
    {
        return std::nullopt;
    }
    return FileOwner{static_cast<mode_t>(info.st_mode & 07777), info.st_uid,
                     info.st_gid};
}

ReplaceFailure write_scratch(const char* path, const char* scratch,
                             ScratchName kind,
                             const std::function<bool(std::FILE*)>& write)
{
    return fill_scratch(path, scratch, kind, write, kPublicFile);
}

ReplaceFailure replace_file(const char* path, const char* scratch,
                            ScratchName kind,
                            const std::function<bool(std::FILE*)>& write,
                            mode_t new_file)
{
    const ReplaceFailure written =
        fill_scratch(path, scratch, kind, write, new_file);
    return written != ReplaceFailure::none ? written
                                           : put_in_place(path, scratch);
}

ReplaceFailure replace_file(const char* path, const char* scratch,
                            ScratchName kind, std::string_view content,
                            std::optional<FileOwner> owner, mode_t new_file)
{
    UniqueFd fd = create_scratch(scratch, kind, owner, new_file);
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

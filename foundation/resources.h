// SPDX-License-Identifier: Apache-2.0
// Owners for descriptors, streams, directory handles and file locks, so that
// every path through a function closes or releases what it took.
#pragma once

#include "foundation/errno_cause.h"

#include <libkv/foundation.h>

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <utility>

namespace kv::detail
{

struct FileCloser
{
    void operator()(std::FILE* f) const
    {
        const KeepErrno keep;
        std::fclose(f);
    }
};
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

inline UniqueFile open_file(const char* path, const char* mode)
{
    return UniqueFile(std::fopen(path, mode));
}

struct DirCloser
{
    void operator()(DIR* d) const
    {
        const KeepErrno keep;
        closedir(d);
    }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

class UniqueFd
{
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd)
    {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1))
    {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd()
    {
        reset();
    }

    int get() const
    {
        return fd_;
    }
    explicit operator bool() const
    {
        return fd_ >= 0;
    }
    // Hands the descriptor to the caller, who closes it from now on.
    int release()
    {
        return std::exchange(fd_, -1);
    }
    void reset(int fd = -1)
    {
        if (fd_ >= 0)
        {
            const KeepErrno keep;
            ::close(fd_);
        }
        fd_ = fd;
    }

  private:
    int fd_ = -1;
};

// A whole-file advisory write lock on a descriptor someone else owns, held
// for the owner's scope. The lock is taken waiting; a lock that cannot be
// taken leaves the work to go ahead unguarded, as it always has.
class FileWriteLock
{
  public:
    explicit FileWriteLock(int fd) : fd_(fd)
    {
        file_lock_write(fd_);
    }
    FileWriteLock(const FileWriteLock&) = delete;
    FileWriteLock& operator=(const FileWriteLock&) = delete;
    ~FileWriteLock()
    {
        const KeepErrno keep;
        file_unlock(fd_);
    }

  private:
    int fd_;
};

} // namespace kv::detail

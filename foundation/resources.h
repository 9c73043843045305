// Owners for descriptors, streams and directory handles, so that every path
// through a function closes what it opened.
#pragma once

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
    // Hands the descriptor over to a new owner (an fdopen'ed stream, say).
    int release()
    {
        return std::exchange(fd_, -1);
    }
    void reset(int fd = -1)
    {
        if (fd_ >= 0)
        {
            ::close(fd_);
        }
        fd_ = fd;
    }

  private:
    int fd_ = -1;
};

} // namespace kv::detail

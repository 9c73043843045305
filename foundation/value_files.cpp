// SPDX-License-Identifier: Apache-2.0
// Single values and short texts in sysfs-style files. Each helper keeps the
// return convention its callers already test.
#include "foundation/durable_files.h"
#include "foundation/resources.h"

#include <libkv/foundation.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

using kv::detail::fail;
using kv::detail::last_cause;
using kv::detail::UniqueFd;
using kv::detail::UniqueFile;

enum class WriteMode
{
    truncate,
    append,
    // An append to a log, on the disk when the call returns. Value files
    // are never synced: sysfs and proc refuse it and /run has no disk.
    append_synced,
};

// `created` is only told for a synced append, which needs to know.
UniqueFd open_for_write(const char* path, WriteMode mode, bool& created)
{
    created = false;
    if (path == nullptr)
    {
        return UniqueFd();
    }
    if (mode == WriteMode::append_synced)
    {
        return kv::detail::open_or_create(path, O_WRONLY | O_APPEND | O_CLOEXEC,
                                          0666, created);
    }
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC |
                      (mode == WriteMode::truncate ? O_TRUNC : O_APPEND);
    return UniqueFd(::open(path, flags, 0666));
}

UniqueFd open_for_write(const char* path, WriteMode mode)
{
    bool created = false;
    return open_for_write(path, mode, created);
}

// sysfs attributes take a value in one write(), so no stdio buffering here.
// 0, or the negative errno of the failed write (EIO when it wrote nothing).
int write_all(int fd, const void* buf, size_t n)
{
    const auto* bytes = static_cast<const char*>(buf);
    while (n > 0)
    {
        const ssize_t done = ::write(fd, bytes, n);
        if (done < 0 && errno == EINTR)
        {
            continue;
        }
        if (done <= 0)
        {
            return done < 0 ? last_cause() : -EIO;
        }
        bytes += done;
        n -= static_cast<size_t>(done);
    }
    return 0;
}

// Bytes written, or -1 when the file cannot be opened or written.
int write_bytes(const char* path, WriteMode mode, const void* buf, size_t n)
{
    if ((buf == nullptr && n > 0) || n > INT_MAX)
    {
        return -1;
    }
    bool created = false;
    UniqueFd fd = open_for_write(path, mode, created);
    if (!fd)
    {
        return -1;
    }
    if (const int cause = write_all(fd.get(), buf, n); cause < 0)
    {
        return fail(cause, -1);
    }
    if (mode == WriteMode::append_synced &&
        !kv::detail::sync_written(fd.get(), path, created))
    {
        return -1;
    }
    return static_cast<int>(n);
}

int write_text(const char* path, WriteMode mode, const char* text)
{
    return text == nullptr ? -1
                           : write_bytes(path, mode, text, std::strlen(text));
}

// First line of `path` (at most n - 1 characters, newline kept) into `buf`;
// "" for an empty file. 0, or the negative errno of the failed open.
int read_first_line(const char* path, char* buf, int n)
{
    if (path == nullptr)
    {
        return -EINVAL;
    }
    UniqueFile file = kv::detail::open_file(path, "r");
    if (!file)
    {
        return last_cause();
    }
    if (std::fgets(buf, n, file.get()) == nullptr)
    {
        buf[0] = '\0';
    }
    return 0;
}

} // namespace

namespace kv::detail
{

int append_synced(const char* path, const void* buf, size_t n)
{
    return write_bytes(path, WriteMode::append_synced, buf, n);
}

} // namespace kv::detail

extern "C" int read_file_value_error(const char* path, int* value)
{
    char line[256];
    if (value == nullptr || read_first_line(path, line, sizeof line) < 0 ||
        line[0] == '\0')
    {
        return -1;
    }
    *value = std::atoi(line);
    return 0;
}

extern "C" int read_file_value(const char* path)
{
    char line[256];
    if (read_first_line(path, line, sizeof line) < 0)
    {
        return -1;
    }
    return std::atoi(line);
}

extern "C" int write_file_value(const char* path, int value)
{
    char text[16];
    const int len = std::snprintf(text, sizeof text, "%d", value);
    return write_bytes(path, WriteMode::truncate, text, len) == len ? 0 : -1;
}

extern "C" int write_bin_value(const char* path, const void* buf, size_t size)
{
    if (path == nullptr || (buf == nullptr && size > 0))
    {
        return -1;
    }
    UniqueFd fd = open_for_write(path, WriteMode::truncate);
    if (!fd)
    {
        const int cause = last_cause();
        std::printf(" open %s error.\n", path);
        return fail(cause, -1);
    }
    if (const int cause = write_all(fd.get(), buf, size); cause < 0)
    {
        return fail(cause, -1);
    }
    return 0;
}

extern "C" int writeFile(const char* path, const char* text)
{
    return write_text(path, WriteMode::truncate, text) < 0 ? -1 : 0;
}

extern "C" int write_file_str_truncate(const char* path, const char* text)
{
    return write_text(path, WriteMode::truncate, text);
}

extern "C" int write_file_str(const char* path, const void* buf, size_t n)
{
    return write_bytes(path, WriteMode::append, buf, n);
}

// A file that takes no text is as useless to the caller as one that does not
// open, so both answer KV_FILE_NOT_CREATED.
extern "C" int create_and_write_file(const char* path, const char* text)
{
    UniqueFd fd = open_for_write(path, WriteMode::append);
    if (!fd)
    {
        return KV_FILE_NOT_CREATED;
    }
    if (text == nullptr)
    {
        return 0;
    }
    if (const int cause = write_all(fd.get(), text, std::strlen(text));
        cause < 0)
    {
        return fail(cause, KV_FILE_NOT_CREATED);
    }
    return 0;
}

extern "C" int read_file_str(const char* path, char* buf, int n)
{
    if (path == nullptr || buf == nullptr || n <= 0)
    {
        return -1;
    }
    if (const int cause = read_first_line(path, buf, n); cause < 0)
    {
        std::printf(" open %s error.\n", path);
        return fail(cause, -1);
    }
    return 0;
}

// Appends in pieces of up to 255 characters as the file is read line by line;
// whatever does not fit in `size` bytes is dropped.
extern "C" int read_all_file(const char* path, char* buf, size_t size)
{
    if (buf == nullptr || size == 0)
    {
        return -1;
    }
    size_t len = strnlen(buf, size);
    if (len == size)
    {
        return -1; // no terminator inside the buffer: nothing safe to append
    }
    UniqueFile file = path ? kv::detail::open_file(path, "r") : UniqueFile();
    if (!file)
    {
        return -1;
    }
    char piece[256];
    while (len < size - 1 && std::fgets(piece, sizeof piece, file.get()))
    {
        const size_t take = std::min(std::strlen(piece), size - 1 - len);
        std::memcpy(buf + len, piece, take);
        len += take;
        buf[len] = '\0';
    }
    if (len > 0 && buf[len - 1] == '\n')
    {
        buf[len - 1] = '\0';
    }
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// Record files shared between processes under a whole-file advisory lock.
#include "foundation/resources.h"

#include <libkv/foundation.h>
#include <libkv/hw.h>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr uint8_t kReadMode = 2;
constexpr uint8_t kWriteMode = 1;

kv::detail::UniqueFd open_for_writing(const char* path)
{
    return kv::detail::UniqueFd(open(path, O_RDWR | O_CREAT, 0777));
}

// Records are read from byte 0 whatever the offset.
int read_record(int fd, uint8_t* buf, size_t len)
{
    const ssize_t got = read(fd, buf, len);
    return got < 0 ? -1 : static_cast<int>(got);
}

int write_record(int fd, const uint8_t* buf, int offset, size_t len)
{
    size_t done = 0;
    while (done < len)
    {
        const ssize_t n =
            pwrite(fd, buf + done, len - done,
                   static_cast<off_t>(offset) + static_cast<off_t>(done));
        if (n <= 0)
        {
            return -1;
        }
        done += static_cast<size_t>(n);
    }
    return static_cast<int>(done);
}

} // namespace

extern "C" int ReadWriteNVR(const char* path, uint8_t* buf, int offset,
                            size_t len, uint8_t mode)
{
    // A reader that finds no file creates it and then counts as a writer.
    bool shared = mode == kReadMode;
    kv::detail::UniqueFd fd(shared ? open(path, O_RDONLY) : -1);
    if (!fd)
    {
        shared = false;
        fd = open_for_writing(path);
    }
    if (!fd)
    {
        return -1;
    }
    // The lock goes with the descriptor when it closes.
    if (shared)
    {
        file_lock_read(fd.get());
    }
    else
    {
        file_lock_write(fd.get());
    }
    return mode == kReadMode ? read_record(fd.get(), buf, len)
                             : write_record(fd.get(), buf, offset, len);
}

extern "C" int API_ReadNVR(const char* path, int offset, size_t len,
                           uint8_t* buf)
{
    return ReadWriteNVR(path, buf, offset, len, kReadMode);
}

extern "C" int API_WriteNVR(const char* path, int offset, size_t len,
                            const uint8_t* buf)
{
    // Write mode only reads from the buffer.
    return ReadWriteNVR(path, const_cast<uint8_t*>(buf), offset, len,
                        kWriteMode);
}

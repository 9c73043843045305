// SPDX-License-Identifier: Apache-2.0
// Advisory whole-file record locks on an open descriptor.
#include <libkv/foundation.h>

#include <fcntl.h>
#include <unistd.h>

namespace
{

// Start 0 and length 0: the lock covers the file up to any future end.
int whole_file(int fd, int cmd, short type)
{
    return fcntl_lock_util(fd, cmd, type, 0, SEEK_SET, 0);
}

} // namespace

extern "C" int fcntl_lock_util(int fd, int cmd, short type, off_t start,
                               short whence, off_t len)
{
    struct flock lock
    {};
    lock.l_type = type;
    lock.l_whence = whence;
    lock.l_start = start;
    lock.l_len = len;
    return ::fcntl(fd, cmd, &lock);
}

extern "C" int file_lock_write(int fd)
{
    return whole_file(fd, F_SETLKW, F_WRLCK);
}

extern "C" int file_lock_read(int fd)
{
    return whole_file(fd, F_SETLKW, F_RDLCK);
}

extern "C" int file_unlock(int fd)
{
    return whole_file(fd, F_SETLK, F_UNLCK);
}

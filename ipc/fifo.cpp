// SPDX-License-Identifier: Apache-2.0
// FIFOs and framed records: one length byte, then that many body bytes.
#include "foundation/resources.h"

#include <libkv/foundation.h>
#include <libkv/ipc.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

extern "C" int AddQueue(const char* path, mode_t /*mode*/)
{
    if (file_existed(path))
    {
        return 0;
    }
    return mkfifo(path, 0664) == 0 ? 0 : -1;
}

extern "C" int GetQueue(const char* path, int flags, mode_t mode)
{
    return open(path, flags, mode); // the caller owns the descriptor
}

// The lock keeps records of concurrent writers from interleaving.
extern "C" int writeMsg(int fd, const void* record, size_t len)
{
    const kv::detail::FileWriteLock lock(fd);
    return write(fd, record, len) == static_cast<ssize_t>(len) ? 0 : -1;
}

extern "C" int readMsg(int fd, uint8_t* buf, unsigned* len, unsigned timeout_s)
{
    pollfd waiting{fd, POLLIN, 0};
    const int ready = poll(&waiting, 1, static_cast<int>(timeout_s * 1000));
    if (ready < 0)
    {
        return KV_MSG_WAIT_FAILED;
    }
    if (ready == 0)
    {
        return KV_MSG_TIMED_OUT;
    }
    if (read(fd, buf, 1) != 1)
    {
        return KV_MSG_WAIT_FAILED;
    }
    *len = buf[0];
    int got = 0;
    get_from_q(reinterpret_cast<char*>(buf), static_cast<int>(*len), fd, &got);
    return 0;
}

// A record written by writeMsg arrives whole; the loop covers a pipe that
// delivers it in pieces. End of file cannot complete a record: it stops.
extern "C" int get_from_q(char* buf, int len, int fd, int* got)
{
    int total = 0;
    while (total < len)
    {
        const ssize_t n =
            read(fd, buf + total, static_cast<size_t>(len - total));
        if (n < 0 && errno == EINTR)
        {
            continue;
        }
        if (n <= 0)
        {
            break;
        }
        total += static_cast<int>(n);
    }
    *got = total;
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// The FIFO path to the SNMP agent: the pipe made when missing, its write end
// opened once per process and kept open for the process's life.
#include "foundation/errno_cause.h"

#include <libkv/events.h>
#include <libkv/foundation.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace
{

// The write end, or 0 before the first successful open, or -1 after a
// failed one. Descriptor 0 counts as not open.
int trap_fifo_fd = 0;

} // namespace

int snmpWriteMsg(int fd, const char* buf, int len)
{
    // A negative length is refused before the write: passed on, it would
    // become a huge size, fail with -1 and read as complete.
    ssize_t written = -1;
    if (len < 0)
    {
        errno = EINVAL;
    }
    else
    {
        written = ::write(fd, buf, static_cast<size_t>(len));
        if (written == len)
        {
            return 0;
        }
    }
    kv::detail::KeepErrno keep;
    // The format ends in a bare "%": the error text is passed but never
    // printed, and readers of the log know the line by that shape.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
#pragma GCC diagnostic ignored "-Wformat-extra-args"
    veldmarke_log("snmpWriteMsg failed. fd: %d, ret: %d, err: %", fd,
                  static_cast<int>(written), std::strerror(errno));
#pragma GCC diagnostic pop
    return 1;
}

int checkFIFOFile(const char* path, int mode)
{
    // Whatever kind of file is already there is accepted.
    if (::access(path, F_OK) == 0 ||
        ::mkfifo(path, static_cast<mode_t>(mode)) == 0)
    {
        return 0;
    }
    kv::detail::KeepErrno keep;
    veldmarke_log("fifo file %s not exist, and mkfifo faile. %s", path,
                  std::strerror(errno));
    return 1;
}

int getSNMPTrapWriteFD(const char* path, int oflag)
{
    if (trap_fifo_fd > 0)
    {
        return 0;
    }
    // The agent may be starting: a second attempt a second later.
    trap_fifo_fd = ::open(path, oflag);
    if (trap_fifo_fd < 0)
    {
        ::sleep(1);
        trap_fifo_fd = ::open(path, oflag);
    }
    if (trap_fifo_fd >= 0)
    {
        return 0;
    }
    kv::detail::KeepErrno keep;
    veldmarke_log("open snmp trap fifo file failed. %s", std::strerror(errno));
    return 1;
}

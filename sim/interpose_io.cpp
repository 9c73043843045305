// SPDX-License-Identifier: Apache-2.0
// The C library's descriptor calls, taken over for "/dev/i2c-N" and passed on
// for everything else.

// These definitions must carry the plain symbol names, not the 64-bit or
// fortified variants the headers would redirect them to.
#undef _FILE_OFFSET_BITS
#undef _FORTIFY_SOURCE

#include "bus.h"
#include "fd_table.h"
#include "i2c_dev.h"
#include "next_libc.h"
#include "shared_state.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

extern "C" [[noreturn]] void __chk_fail();

namespace
{

using namespace kv::sim::detail;

// N of a path "/dev/i2c-N", or -1 for any other path.
int bus_of_path(const char* path)
{
    constexpr char prefix[] = "/dev/i2c-";
    constexpr std::size_t prefix_length = sizeof(prefix) - 1;
    if (path == nullptr || std::strncmp(path, prefix, prefix_length) != 0)
    {
        return -1;
    }
    const char* digits = path + prefix_length;
    const std::size_t count = std::strlen(digits);
    if (count == 0 || count > 6 || std::strspn(digits, "0123456789") != count ||
        (digits[0] == '0' && count > 1))
    {
        return -1;
    }
    return std::atoi(digits);
}

bool needs_mode(int flags)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

int open_bus(int bus, int flags)
{
    State* state = current_state();
    if (state == nullptr || !bus_exists(*state, bus))
    {
        errno = ENOENT;
        return -1;
    }
    return open_simulated(bus, (flags & O_CLOEXEC) != 0);
}

template <typename Pass>
int open_or_pass(const char* path, int flags, Pass pass)
{
    const int bus = bus_of_path(path);
    return bus >= 0 ? open_bus(bus, flags) : pass();
}

} // namespace

// The mode of an open that creates; va_start only works in the variadic
// function itself, whose last named parameter is `flags`.
#define MODE_ARGUMENT(flags)                                                   \
    mode_t mode = 0;                                                           \
    if (needs_mode(flags))                                                     \
    {                                                                          \
        va_list rest;                                                          \
        va_start(rest, flags);                                                 \
        mode = va_arg(rest, mode_t);                                           \
        va_end(rest);                                                          \
    }

extern "C"
{
int open(const char* path, int flags, ...)
{
    MODE_ARGUMENT(flags)
    return open_or_pass(path, flags,
                        [&] { return kv::sim::next::open(path, flags, mode); });
}

int open64(const char* path, int flags, ...)
{
    MODE_ARGUMENT(flags)
    return open_or_pass(
        path, flags, [&] { return kv::sim::next::open64(path, flags, mode); });
}

int openat(int dir, const char* path, int flags, ...)
{
    MODE_ARGUMENT(flags)
    return open_or_pass(path, flags, [&] {
        return kv::sim::next::openat(dir, path, flags, mode);
    });
}

int openat64(int dir, const char* path, int flags, ...)
{
    MODE_ARGUMENT(flags)
    return open_or_pass(path, flags, [&] {
        return kv::sim::next::openat64(dir, path, flags, mode);
    });
}

// The fortified variants, for callers built with _FORTIFY_SOURCE.
int __open_2(const char* path, int flags)
{
    if (needs_mode(flags))
    {
        __chk_fail();
    }
    return open(path, flags);
}

int __open64_2(const char* path, int flags)
{
    if (needs_mode(flags))
    {
        __chk_fail();
    }
    return open64(path, flags);
}

int __openat_2(int dir, const char* path, int flags)
{
    if (needs_mode(flags))
    {
        __chk_fail();
    }
    return openat(dir, path, flags);
}

int __openat64_2(int dir, const char* path, int flags)
{
    if (needs_mode(flags))
    {
        __chk_fail();
    }
    return openat64(dir, path, flags);
}

int close(int fd)
{
    forget_descriptor(fd);
    return kv::sim::next::close(fd);
}

ssize_t read(int fd, void* buf, size_t count)
{
    if (auto client = find_client(fd))
    {
        return client_read(*client, buf, count);
    }
    return kv::sim::next::read(fd, buf, count);
}

ssize_t __read_chk(int fd, void* buf, size_t count, size_t buf_size)
{
    if (count > buf_size)
    {
        __chk_fail();
    }
    return read(fd, buf, count);
}

ssize_t write(int fd, const void* buf, size_t count)
{
    if (auto client = find_client(fd))
    {
        return client_write(*client, buf, count);
    }
    return kv::sim::next::write(fd, buf, count);
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list rest;
    va_start(rest, request);
    void* arg = va_arg(rest, void*);
    va_end(rest);
    if (auto client = find_client(fd))
    {
        const int result = client_ioctl(*client, request, arg);
        update_client(fd, *client);
        return result;
    }
    return kv::sim::next::ioctl(fd, request, arg);
}

} // extern "C"

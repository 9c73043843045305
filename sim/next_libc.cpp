// SPDX-License-Identifier: Apache-2.0
#include "next_libc.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>

namespace kv::sim::next
{
namespace
{

struct Table
{
    int (*open)(const char*, int, ...);
    int (*open64)(const char*, int, ...);
    int (*openat)(int, const char*, int, ...);
    int (*openat64)(int, const char*, int, ...);
    int (*close)(int);
    ssize_t (*read)(int, void*, size_t);
    ssize_t (*write)(int, const void*, size_t);
    int (*ioctl)(int, unsigned long, ...);
    unsigned (*sleep)(unsigned);
    int (*usleep)(useconds_t);
    int (*nanosleep)(const timespec*, timespec*);
    int (*clock_nanosleep)(clockid_t, int, const timespec*, timespec*);
};

template <typename Fn>
void find(Fn& slot, const char* name)
{
    slot = reinterpret_cast<Fn>(::dlsym(RTLD_NEXT, name));
}

constinit Table table{};
constinit std::atomic<const Table*> resolved{nullptr};
constinit std::mutex resolve_mutex;
// dlsym may allocate or open files itself; a call of ours made from inside it
// must not wait for the resolution it is part of.
[[gnu::tls_model("initial-exec")]] constinit thread_local bool resolving =
    false;

// The resolved table, or nullptr when called from inside the resolution.
const Table* libc()
{
    if (const Table* done = resolved.load(std::memory_order_acquire))
    {
        return done;
    }
    if (resolving)
    {
        return nullptr;
    }
    resolving = true;
    {
        std::lock_guard hold(resolve_mutex);
        if (resolved.load(std::memory_order_relaxed) == nullptr)
        {
            find(table.open, "open");
            find(table.open64, "open64");
            find(table.openat, "openat");
            find(table.openat64, "openat64");
            find(table.close, "close");
            find(table.read, "read");
            find(table.write, "write");
            find(table.ioctl, "ioctl");
            find(table.sleep, "sleep");
            find(table.usleep, "usleep");
            find(table.nanosleep, "nanosleep");
            find(table.clock_nanosleep, "clock_nanosleep");
            resolved.store(&table, std::memory_order_release);
        }
    }
    resolving = false;
    return &table;
}

// The function, or nullptr while resolving or when the C library lacks it.
template <typename Fn>
Fn next(Fn Table::*member)
{
    const Table* t = libc();
    return t != nullptr ? t->*member : nullptr;
}

// Inside the resolution the descriptor calls go to the kernel directly;
// nothing sleeps there.
int unsupported()
{
    errno = ENOSYS;
    return -1;
}

} // namespace

int open(const char* path, int flags, mode_t mode)
{
    auto fn = next(&Table::open);
    return fn != nullptr ? fn(path, flags, mode)
                         : static_cast<int>(::syscall(SYS_openat, AT_FDCWD,
                                                      path, flags, mode));
}

int open64(const char* path, int flags, mode_t mode)
{
    auto fn = next(&Table::open64);
    return fn != nullptr ? fn(path, flags, mode) : open(path, flags, mode);
}

int openat(int dir, const char* path, int flags, mode_t mode)
{
    auto fn = next(&Table::openat);
    return fn != nullptr ? fn(dir, path, flags, mode)
                         : static_cast<int>(
                               ::syscall(SYS_openat, dir, path, flags, mode));
}

int openat64(int dir, const char* path, int flags, mode_t mode)
{
    auto fn = next(&Table::openat64);
    return fn != nullptr ? fn(dir, path, flags, mode)
                         : openat(dir, path, flags, mode);
}

int close(int fd)
{
    auto fn = next(&Table::close);
    return fn != nullptr ? fn(fd) : static_cast<int>(::syscall(SYS_close, fd));
}

ssize_t read(int fd, void* buf, size_t count)
{
    auto fn = next(&Table::read);
    return fn != nullptr ? fn(fd, buf, count)
                         : ::syscall(SYS_read, fd, buf, count);
}

ssize_t write(int fd, const void* buf, size_t count)
{
    auto fn = next(&Table::write);
    return fn != nullptr ? fn(fd, buf, count)
                         : ::syscall(SYS_write, fd, buf, count);
}

int ioctl(int fd, unsigned long request, void* arg)
{
    auto fn = next(&Table::ioctl);
    return fn != nullptr
               ? fn(fd, request, arg)
               : static_cast<int>(::syscall(SYS_ioctl, fd, request, arg));
}

unsigned sleep(unsigned seconds)
{
    auto fn = next(&Table::sleep);
    return fn != nullptr ? fn(seconds) : seconds;
}

int usleep(useconds_t microseconds)
{
    auto fn = next(&Table::usleep);
    return fn != nullptr ? fn(microseconds) : unsupported();
}

int nanosleep(const timespec* request, timespec* remaining)
{
    auto fn = next(&Table::nanosleep);
    return fn != nullptr ? fn(request, remaining) : unsupported();
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* request,
                    timespec* remaining)
{
    auto fn = next(&Table::clock_nanosleep);
    return fn != nullptr ? fn(clock, flags, request, remaining) : ENOSYS;
}

} // namespace kv::sim::next

// SPDX-License-Identifier: Apache-2.0
// The definitions that the simulator's own ones hide: the C library's (or
// those of a library loaded before it, such as a sanitizer runtime), found
// with dlsym(RTLD_NEXT) on first use.
#pragma once

#include <sys/types.h>

#include <ctime>

namespace kv::sim::next
{

int open(const char* path, int flags, mode_t mode);
int open64(const char* path, int flags, mode_t mode);
int openat(int dir, const char* path, int flags, mode_t mode);
int openat64(int dir, const char* path, int flags, mode_t mode);
int close(int fd);
ssize_t read(int fd, void* buf, size_t count);
ssize_t write(int fd, const void* buf, size_t count);
int ioctl(int fd, unsigned long request, void* arg);
unsigned sleep(unsigned seconds);
int usleep(useconds_t microseconds);
int nanosleep(const timespec* request, timespec* remaining);
int clock_nanosleep(clockid_t clock, int flags, const timespec* request,
                    timespec* remaining);

} // namespace kv::sim::next

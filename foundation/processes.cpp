// SPDX-License-Identifier: Apache-2.0
// Process lookup by name and by pid.
#include "foundation/resources.h"

#include <libkv/foundation.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern char** environ;

namespace
{

using kv::detail::UniqueFd;

// The spawn's file actions, released on every path.
class SpawnActions
{
  public:
    SpawnActions()
    {
        posix_spawn_file_actions_init(&actions_);
    }
    ~SpawnActions()
    {
        posix_spawn_file_actions_destroy(&actions_);
    }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    posix_spawn_file_actions_t* get()
    {
        return &actions_;
    }

  private:
    posix_spawn_file_actions_t actions_;
};

// Starts `pidof name` with its standard output on a pipe; the caller reads
// the returned end. The name is an argument, never shell text.
UniqueFd start_pidof(const char* name, pid_t& child)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
    {
        return UniqueFd();
    }
    UniqueFd read_end(ends[0]);
    UniqueFd write_end(ends[1]);

    SpawnActions actions;
    if (posix_spawn_file_actions_adddup2(actions.get(), write_end.get(),
                                         STDOUT_FILENO) != 0)
    {
        return UniqueFd();
    }
    char* argv[] = {const_cast<char*>("pidof"), const_cast<char*>(name),
                    nullptr};
    if (posix_spawnp(&child, "pidof", actions.get(), nullptr, argv, environ) !=
        0)
    {
        return UniqueFd();
    }
    return read_end;
}

// Up to 255 characters, as much as one output line can matter here.
void read_output(int fd, char (&out)[256])
{
    size_t used = 0;
    while (used < sizeof out - 1)
    {
        const ssize_t n = ::read(fd, out + used, sizeof out - 1 - used);
        if (n < 0 && errno == EINTR)
        {
            continue;
        }
        if (n <= 0)
        {
            break;
        }
        used += static_cast<size_t>(n);
    }
    out[used] = '\0';
}

void reap(pid_t child)
{
    while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR)
    {}
}

} // namespace

extern "C" int get_pid_by_name(const char* name)
{
    if (name == nullptr)
    {
        return -1;
    }
    pid_t child = 0;
    UniqueFd output = start_pidof(name, child);
    if (!output)
    {
        std::printf("get obmc-kv-var pid failed!");
        return -1;
    }
    char text[256];
    read_output(output.get(), text);
    output.reset(); // a pidof with more to say ends on SIGPIPE, not blocked
    reap(child);
    return std::atoi(text);
}

// 0 and -1 are the lookup's "not running" and "failed", never pids: kill()
// would read them as a process group or every process.
extern "C" int send_signal_to_process(const char* name, int signal, int value)
{
    const int pid = get_pid_by_name(name);
    if (pid <= 0)
    {
        errno = ESRCH;
        return -1;
    }
    sigval payload{};
    payload.sival_int = value;
    return ::sigqueue(pid, signal, payload);
}

extern "C" int app_name_get(pid_t pid, char* out, size_t size)
{
    if (out == nullptr || size == 0)
    {
        return -1;
    }
    char link[32];
    std::snprintf(link, sizeof link, "/proc/%u/exe",
                  static_cast<unsigned>(pid == -1 ? ::getpid() : pid));
    char target[257];
    const ssize_t n = ::readlink(link, target, sizeof target - 1);
    if (n < 0)
    {
        return -1;
    }
    target[n] = '\0';
    std::snprintf(out, size, "%s", file_name_get(target));
    return 0;
}

extern "C" int app_pid_existed(pid_t pid)
{
    char dir[32];
    std::snprintf(dir, sizeof dir, "/proc/%u", static_cast<unsigned>(pid));
    return file_existed(dir);
}

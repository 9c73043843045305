// SPDX-License-Identifier: Apache-2.0
// Process lookup through pidof, queued signals, /proc lookups and the named
// lock between processes.
#include "foundation_test.h"

#include <semaphore.h>
#include <signal.h>
#include <sys/wait.h>

const char* kLock = "/libkv-test-lock";

// /bin/sleep under the argv[0] "kvsleeper", the name pidof knows it by; its
// executable stays "sleep". No name is shell text.
TEST(Processes, LookupsAndLock)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(execl("/bin/sleep", "kvsleeper", "30", nullptr));
    char name[64] = "";
    for (int i = 0; i < 500 && strcmp(name, "sleep"); ++i)
    {
        usleep(10000);
        app_name_get(pid, name, sizeof name);
    }
    EXPECT_STREQ(name, "sleep"); // not argv[0]
    EXPECT_EQ(app_pid_existed(pid), 1);
    EXPECT_EQ(app_name_get(-1, name, sizeof name), 0);
    EXPECT_STREQ(name, program_invocation_short_name);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    // Signal 0 to "not running": a kill(0, 0) would succeed.
    EXPECT_EQ(get_pid_by_name("kvsleeper") + app_pid_existed(pid) +
                  app_name_get(pid, name, sizeof name) +
                  send_signal_to_process("x; touch /tmp/pwned", 0, 1),
              -2);
    EXPECT_FALSE(fs::exists("/tmp/pwned"));

    // Init makes a free semaphore once and never resets a held one; a second
    // process waits until the holder releases: a count other than 1 shows.
    umask(0);
    ASSERT_EQ(0, init_lock(kLock));
    EXPECT_EQ(0644u, mode_of("/dev/shm/sem.libkv-test-lock"));
    sem_t* held = nullptr;
    ASSERT_EQ(0, get_lock(kLock, &held, 0644, 1) + init_lock(kLock));
    const pid_t child = fork();
    if (child == 0)
    {
        alarm(10); // never outlive a broken test
        sem_t* mine = nullptr;
        _exit(get_lock(kLock, &mine, 0644, 1) || release_lock(mine));
    }
    usleep(300 * 1000);
    EXPECT_EQ(0, waitpid(child, nullptr, WNOHANG)); // the child waits
    EXPECT_EQ(0, release_lock(held));
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    sem_t* sem = reinterpret_cast<sem_t*>(&sem);
    EXPECT_EQ(-1, get_lock("/libkv-never-made", &sem, 0644, 1));
    EXPECT_EQ(nullptr, sem);
    EXPECT_EQ(SEM_FAILED, sem_open("/libkv-never-made", 0));
    EXPECT_EQ(-2, init_lock("/not/a/valid/semaphore") + init_lock(nullptr));
}

// A forked copy of this binary renamed (argv[0]) to "kvrecv" exits with the
// payload queued with SIGUSR1. Under qemu-user pidof sees the emulator.
TEST(Processes, Signal)
{
    if (under_user_emulation())
        GTEST_SKIP();
    sigset_t usr1, old;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    sigprocmask(SIG_BLOCK, &usr1, &old);
    const pid_t child = fork();
    if (child == 0)
    {
        std::strcpy(program_invocation_name, "kvrecv");
        siginfo_t info{};
        const timespec limit{10, 0};
        _exit(sigtimedwait(&usr1, &info, &limit) == SIGUSR1 &&
                      info.si_code == SI_QUEUE
                  ? info.si_value.sival_int
                  : 200);
    }
    sigprocmask(SIG_SETMASK, &old, nullptr);
    for (int i = 0; i < 500 && get_pid_by_name("kvrecv") != child; ++i)
        usleep(10000);
    EXPECT_EQ(send_signal_to_process("kvrecv", SIGUSR1, 42), 0);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 42 << 8);
}

// SPDX-License-Identifier: Apache-2.0
// Process lookup through pidof, queued signals, /proc lookups and the named
// lock between processes.
#include "foundation_test.h"

#include <semaphore.h>
#include <signal.h>
#include <sys/wait.h>

// /bin/sleep under the argv[0] "kvsleeper", the name pidof knows it by; its
// executable stays "sleep".
pid_t sleeper()
{
    const pid_t pid = fork();
    if (pid == 0)
    {
        execl("/bin/sleep", "kvsleeper", "30", nullptr);
        _exit(127);
    }
    const auto exe = "/proc/" + std::to_string(pid) + "/exe";
    std::error_code error;
    for (int i = 0;
         i < 500 &&
         std::filesystem::read_symlink(exe, error).filename() != "sleep";
         ++i)
        usleep(10000);
    return pid;
}

void end(pid_t pid)
{
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

TEST(Processes, Lookups)
{
    // pidof prints both: either number will do.
    const pid_t pid = sleeper(), twin = sleeper();
    EXPECT_THAT(get_pid_by_name("kvsleeper"), testing::AnyOf(pid, twin));
    end(twin);
    EXPECT_EQ(get_pid_by_name("kvsleeper"), pid);
    char name[64], small[8] = "#######";
    EXPECT_EQ(app_name_get(pid, name, sizeof name), 0);
    EXPECT_STREQ(name, "sleep"); // not argv[0]
    EXPECT_EQ(app_name_get(pid, small, 4), 0);
    EXPECT_EQ(std::string(small, 5), "sle\0#"s);
    EXPECT_EQ(app_pid_existed(pid), 1);
    EXPECT_EQ(app_name_get(-1, name, sizeof name), 0);
    EXPECT_STREQ(name, program_invocation_short_name);
    end(pid);
    EXPECT_EQ(get_pid_by_name("kvsleeper"), 0);
    EXPECT_EQ(app_name_get(pid, name, sizeof name), -1);
    EXPECT_EQ(app_pid_existed(pid), 0);
}

// No name is shell text; a pidof that cannot start is reported.
TEST(Processes, NamesAreNeverShellText)
{
    for (const char* name : {"x; touch /tmp/pwned", "$(touch /tmp/pwned)"})
        EXPECT_EQ(get_pid_by_name(name), 0) << name;
    EXPECT_FALSE(std::filesystem::exists("/tmp/pwned"));
    if (under_user_emulation())
        GTEST_SKIP() << "qemu-user runs posix_spawn's child as a plain fork: "
                        "a failed exec is not reported back";
    const std::string path = std::getenv("PATH");
    setenv("PATH", "/tmp/nowhere", 1);
    EXPECT_NE(stdout_of([] { EXPECT_EQ(get_pid_by_name("kv"), -1); }), "");
    setenv("PATH", path.c_str(), 1);
}

// A forked copy of this binary renamed (argv[0]) to "kvrecv" exits with the
// payload queued with SIGUSR1. The empty lookup runs in a child: were its 0
// signalled like kill(0, ...), the whole process group would get SIGTERM.
TEST(Processes, Signal)
{
    EXPECT_EQ(exit_status_of([] {
                  errno = 0;
                  return send_signal_to_process("kv-none", SIGTERM, 1) != -1 ||
                         errno != ESRCH;
              }),
              0);
    if (under_user_emulation())
        GTEST_SKIP() << "qemu-user keeps argv[0] in a copy: pidof sees the "
                        "emulator's command line";
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

const char* kLock = "/libkv-test-lock";

// The count of the semaphore the name stands for now.
int count_of(const char* name)
{
    sem_t* sem = sem_open(name, 0);
    int count = -1;
    if (sem != SEM_FAILED)
    {
        sem_getvalue(sem, &count);
        sem_close(sem);
    }
    return count;
}

// Init makes a free semaphore once and never resets a held one; a second
// process waits until the holder releases.
TEST(NamedLock, SecondProcessWaits)
{
    const mode_t mask = umask(0);
    ASSERT_EQ(0, init_lock(kLock));
    umask(mask);
    EXPECT_EQ(0644u, mode_of("/dev/shm/sem.libkv-test-lock"));
    EXPECT_EQ(1, count_of(kLock));
    sem_t* held = nullptr;
    ASSERT_EQ(0, get_lock(kLock, &held, 0644, 1));
    EXPECT_EQ(0, init_lock(kLock));
    EXPECT_EQ(0, count_of(kLock));
    const pid_t child = fork();
    if (child == 0)
    {
        alarm(10); // never outlive a broken test
        sem_t* mine = nullptr;
        _exit(get_lock(kLock, &mine, 0644, 1) || release_lock(mine));
    }
    usleep(300 * 1000);
    EXPECT_EQ(0, waitpid(child, nullptr, WNOHANG)) << "child not waiting";
    EXPECT_EQ(0, release_lock(held));
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ(1, count_of(kLock));
}

TEST(NamedLock, Failures)
{
    sem_t* sem = reinterpret_cast<sem_t*>(&sem);
    EXPECT_EQ(-1, get_lock("/libkv-never-made", &sem, 0644, 1));
    EXPECT_EQ(nullptr, sem);
    EXPECT_EQ(SEM_FAILED, sem_open("/libkv-never-made", 0));
    EXPECT_EQ(-2, init_lock("/not/a/valid/semaphore") + init_lock(nullptr));
    ASSERT_EQ(0, init_lock(kLock));
    ASSERT_EQ(0, get_lock(kLock, &sem, 0644, 1));
    EXPECT_EQ(0, exit_status_of([] {
                  struct sigaction action = {};
                  action.sa_handler = [](int) {};
                  sigaction(SIGALRM, &action, nullptr); // no SA_RESTART
                  alarm(1);
                  sem_t* mine = nullptr;
                  return get_lock(kLock, &mine, 0644, 1) != -1 || mine;
              }));
    // Each failure is logged on a line of its own.
    const auto log = read_text("/tmp/log-bmc").value_or("");
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 4) << log;
}

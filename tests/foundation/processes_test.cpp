// SPDX-License-Identifier: Apache-2.0
// Process lookup through pidof, queued signals and /proc lookups.
#include "foundation_test.h"

#include <signal.h>
#include <sys/wait.h>

std::string exe_name(pid_t pid)
{
    std::error_code error;
    return std::filesystem::read_symlink(
               "/proc/" + std::to_string(pid) + "/exe", error)
        .filename();
}

// /bin/sleep under the argv[0] "kvsleeper", the name pidof knows it by; its
// executable stays "sleep".
struct Sleeper
{
    Sleeper() : pid(fork())
    {
        if (pid == 0)
        {
            execl("/bin/sleep", "kvsleeper", "30", nullptr);
            _exit(127);
        }
        for (int i = 0; i < 500 && exe_name(pid) != "sleep"; ++i)
        {
            usleep(10000);
        }
    }
    ~Sleeper()
    {
        stop();
    }
    void stop()
    {
        if (pid > 0)
        {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
            pid = -1;
        }
    }
    pid_t pid;
};

TEST(Processes, PidByNameAndExecutableNameFollowTheProcess)
{
    Sleeper sleeper, twin; // pidof prints both: either number will do
    const pid_t pid = sleeper.pid;
    EXPECT_THAT(get_pid_by_name("kvsleeper"), testing::AnyOf(pid, twin.pid));
    twin.stop();
    EXPECT_EQ(get_pid_by_name("kvsleeper"), pid);
    char name[64];
    EXPECT_EQ(app_name_get(pid, name, sizeof name), 0);
    EXPECT_STREQ(name, "sleep") << "argv[0] used instead of the executable";
    char small[8] = "#######";
    EXPECT_EQ(app_name_get(pid, small, 4), 0);
    EXPECT_STREQ(small, "sle");
    EXPECT_EQ(small[4], '#');
    EXPECT_EQ(app_pid_existed(pid), 1);
    EXPECT_EQ(app_name_get(-1, name, sizeof name), 0);
    EXPECT_STREQ(name, program_invocation_short_name);

    sleeper.stop();
    EXPECT_EQ(get_pid_by_name("kvsleeper"), 0);
    EXPECT_EQ(app_name_get(pid, name, sizeof name), -1);
    EXPECT_EQ(app_pid_existed(pid), 0);
}

TEST(Processes, NameIsNeverRunAsShellText)
{
    for (const char* name : {"x; touch /tmp/pwned", "$(touch /tmp/pwned)",
                             "`touch /tmp/pwned`", "x | touch /tmp/pwned"})
    {
        EXPECT_EQ(get_pid_by_name(name), 0) << name;
    }
    EXPECT_FALSE(std::filesystem::exists("/tmp/pwned"));
}

TEST(Processes, ReportsWhenPidofCannotStart)
{
    if (under_user_emulation())
    {
        GTEST_SKIP() << "qemu-user runs posix_spawn's child as a plain fork: "
                        "a failed exec is not reported back";
    }
    const std::string path = std::getenv("PATH");
    setenv("PATH", "/tmp/nowhere", 1);
    int result = 0;
    EXPECT_NE(stdout_of([&] { result = get_pid_by_name("kvsleeper"); }), "");
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(result, -1);
}

// A forked copy of this binary renamed (argv[0]) to "kvrecv" exits with the
// payload queued with SIGUSR1. The empty lookup runs in a child: were its 0
// signalled like kill(0, ...), the whole process group would get SIGTERM.
TEST(Processes, SignalQueuesThePayloadOrFailsWithESRCH)
{
    EXPECT_EQ(exit_status_of([] {
                  errno = 0;
                  const int rc = send_signal_to_process("kv-none", SIGTERM, 1);
                  return rc == -1 && errno == ESRCH ? 0 : 1;
              }),
              0);
    if (under_user_emulation())
    {
        GTEST_SKIP() << "qemu-user keeps argv[0] in a copy: pidof sees the "
                        "emulator's command line";
    }
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
    {
        usleep(10000);
    }
    EXPECT_EQ(send_signal_to_process("kvrecv", SIGUSR1, 42), 0);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 42 << 8) << "not a normal exit with the payload";
}

// SPDX-License-Identifier: Apache-2.0
#include "foundation_test.h"

#include <semaphore.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>

using namespace kv::foundation::test;

namespace
{
constexpr const char* kName = "/libkv-test-lock";
constexpr const char* kMarker = "/tmp/child-got-lock";

} // namespace

TEST(NamedLock, SecondProcessWaitsUntilTheHolderReleases)
{
    ASSERT_EQ(0, init_lock(kName));
    sem_t* held = nullptr;
    ASSERT_EQ(0, get_lock(kName, &held, 0644, 1));
    ASSERT_NE(nullptr, held);

    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
    {
        alarm(10); // never outlive a broken test
        sem_t* mine = nullptr;
        if (get_lock(kName, &mine, 0644, 1) != 0)
        {
            _exit(1);
        }
        kv::test::write_text(kMarker, "held");
        _exit(release_lock(mine) == 0 ? 0 : 2);
    }

    usleep(300 * 1000);
    EXPECT_FALSE(read_text(kMarker).has_value());
    EXPECT_EQ(0, waitpid(child, nullptr, WNOHANG)) << "child not waiting";

    EXPECT_EQ(0, release_lock(held));
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_EQ("held", read_text(kMarker));
}

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

TEST(NamedLock, InitCreatesAFreeSemaphoreOnceAndLeavesItsCountAlone)
{
    const mode_t old_mask = umask(0);
    ASSERT_EQ(0, init_lock(kName));
    umask(old_mask);
    struct stat info = {};
    ASSERT_EQ(0, stat("/dev/shm/sem.libkv-test-lock", &info));
    EXPECT_EQ(0644u, info.st_mode & 0777);
    EXPECT_EQ(1, count_of(kName));

    sem_t* held = nullptr;
    ASSERT_EQ(0, get_lock(kName, &held, 0644, 1));
    EXPECT_EQ(0, init_lock(kName)); // must not reset a held lock
    EXPECT_EQ(0, count_of(kName));
    EXPECT_EQ(0, release_lock(held));
    EXPECT_EQ(1, count_of(kName));
}

TEST(NamedLock, FailuresAreLoggedAndCreateNothing)
{
    sem_t* sem = reinterpret_cast<sem_t*>(&sem);
    EXPECT_EQ(-1, get_lock("/libkv-never-made", &sem, 0644, 1));
    EXPECT_EQ(nullptr, sem);
    EXPECT_EQ(SEM_FAILED, sem_open("/libkv-never-made", 0));
    EXPECT_EQ(-1, init_lock("/not/a/valid/semaphore"));
    EXPECT_EQ(-1, init_lock(nullptr));
    EXPECT_EQ("get_lock failed!\ninit lock failed!\ninit lock failed!\n",
              read_text("/tmp/log-bmc"));
}

TEST(NamedLock, InterruptedWaitGivesUpAndIsLogged)
{
    ASSERT_EQ(0, init_lock(kName));
    sem_t* held = nullptr;
    ASSERT_EQ(0, get_lock(kName, &held, 0644, 1));

    const int status = exit_status_of([] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        const itimerval once{{0, 0}, {0, 100 * 1000}};
        setitimer(ITIMER_REAL, &once, nullptr);
        sem_t* mine = nullptr;
        return get_lock(kName, &mine, 0644, 1) == -1 && mine == nullptr ? 0 : 1;
    });
    EXPECT_EQ(0, status);
    EXPECT_EQ("sem_wait failed!\n", read_text("/tmp/log-bmc"));
    EXPECT_EQ(0, release_lock(held));
}

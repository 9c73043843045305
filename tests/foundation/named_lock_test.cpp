// SPDX-License-Identifier: Apache-2.0
#include "foundation_test.h"

#include <semaphore.h>
#include <signal.h>
#include <sys/wait.h>

const char* kName = "/libkv-test-lock";

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
TEST(NamedLock, InitOnceAndTheSecondProcessWaitsForTheHolder)
{
    const mode_t mask = umask(0);
    ASSERT_EQ(0, init_lock(kName));
    umask(mask);
    struct stat info = {};
    ASSERT_EQ(0, stat("/dev/shm/sem.libkv-test-lock", &info));
    EXPECT_EQ(0644u, info.st_mode & 0777);
    EXPECT_EQ(1, count_of(kName));
    sem_t* held = nullptr;
    ASSERT_EQ(0, get_lock(kName, &held, 0644, 1));
    EXPECT_EQ(0, init_lock(kName));
    EXPECT_EQ(0, count_of(kName));
    const pid_t child = fork();
    if (child == 0)
    {
        alarm(10); // never outlive a broken test
        sem_t* mine = nullptr;
        _exit(get_lock(kName, &mine, 0644, 1) || release_lock(mine));
    }
    usleep(300 * 1000);
    EXPECT_EQ(0, waitpid(child, nullptr, WNOHANG)) << "child not waiting";
    EXPECT_EQ(0, release_lock(held));
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ(1, count_of(kName));
}

TEST(NamedLock, FailuresAndInterruptedWaitsAreLoggedAndCreateNothing)
{
    sem_t* sem = reinterpret_cast<sem_t*>(&sem);
    EXPECT_EQ(-1, get_lock("/libkv-never-made", &sem, 0644, 1));
    EXPECT_EQ(nullptr, sem);
    EXPECT_EQ(SEM_FAILED, sem_open("/libkv-never-made", 0));
    EXPECT_EQ(-1, init_lock("/not/a/valid/semaphore"));
    EXPECT_EQ(-1, init_lock(nullptr));
    ASSERT_EQ(0, init_lock(kName));
    ASSERT_EQ(0, get_lock(kName, &sem, 0644, 1));
    EXPECT_EQ(0, exit_status_of([] {
                  struct sigaction action = {};
                  action.sa_handler = [](int) {};
                  sigaction(SIGALRM, &action, nullptr); // no SA_RESTART
                  alarm(1);
                  sem_t* mine = nullptr;
                  return get_lock(kName, &mine, 0644, 1) != -1 || mine;
              }));
    EXPECT_EQ("get_lock failed!\ninit lock failed!\ninit lock failed!\n"
              "sem_wait failed!\n",
              read_text("/tmp/log-bmc"));
}

// SPDX-License-Identifier: Apache-2.0
// Named POSIX semaphores that daemons take around read-modify-write sequences
// on files several processes edit.
#include <libkv/foundation.h>

#include <fcntl.h>
#include <semaphore.h>

// The owning daemon keeps this handle open for its lifetime; the semaphore
// itself lives until the system removes it.
extern "C" int init_lock(const char* name)
{
    if (name == nullptr || sem_open(name, O_CREAT, 0644, 1) == SEM_FAILED)
    {
        plog("init lock failed!\n");
        return -1;
    }
    return 0;
}

// Never creates: only init_lock decides the initial count. *sem holds the
// handle while the lock is held and is null after a failure.
extern "C" int get_lock(const char* name, sem_t** sem, mode_t mode,
                        unsigned value)
{
    sem_t* handle = SEM_FAILED;
    if (name != nullptr && sem != nullptr)
    {
        *sem = nullptr;
        handle = sem_open(name, O_RDWR, mode, value);
    }
    if (handle == SEM_FAILED)
    {
        plog("get_lock failed!\n");
        return -1;
    }
    if (sem_wait(handle) != 0)
    {
        sem_close(handle);
        plog("sem_wait failed!\n");
        return -1;
    }
    *sem = handle;
    return 0;
}

extern "C" int release_lock(sem_t* sem)
{
    if (sem == nullptr)
    {
        return -1;
    }
    sem_post(sem);
    return sem_close(sem);
}

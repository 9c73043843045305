#include "fd_table.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <mutex>

namespace kv::sim::detail
{
namespace
{

constexpr int max_open = 256;

struct Entry
{
    int fd;
    ino_t inode; // tells the memfd from a later descriptor of that number
    Client client;
};

constinit std::mutex table_mutex;
constinit Entry table[max_open]{};
constinit int entries = 0;
// Lets every other descriptor pass without taking the lock.
constinit std::atomic<int> open_count{0};

ino_t inode_of(int fd)
{
    struct stat file = {};
    return ::fstat(fd, &file) == 0 ? file.st_ino : 0;
}

void remove_at(int index)
{
    table[index] = table[--entries];
    open_count.store(entries, std::memory_order_release);
}

// The entry of `fd`, dropping it when the number now belongs to another file
// (closed behind our back, e.g. through fclose or dup2).
Entry* find_entry(int fd)
{
    for (int i = 0; i < entries; ++i)
    {
        if (table[i].fd != fd)
        {
            continue;
        }
        if (inode_of(fd) == table[i].inode)
        {
            return &table[i];
        }
        remove_at(i);
        return nullptr;
    }
    return nullptr;
}

} // namespace

int open_simulated(int bus, bool close_on_exec)
{
    std::lock_guard hold(table_mutex);
    if (entries == max_open)
    {
        errno = EMFILE;
        return -1;
    }
    char name[32];
    std::snprintf(name, sizeof(name), "kvsim-i2c-%d", bus);
    const int fd = ::memfd_create(name, close_on_exec ? MFD_CLOEXEC : 0);
    if (fd < 0)
    {
        return -1;
    }
    table[entries++] = {fd, inode_of(fd), Client{bus, 0, false}};
    open_count.store(entries, std::memory_order_release);
    return fd;
}

std::optional<Client> find_client(int fd)
{
    if (open_count.load(std::memory_order_acquire) == 0)
    {
        return std::nullopt;
    }
    std::lock_guard hold(table_mutex);
    const Entry* entry = find_entry(fd);
    return entry != nullptr ? std::optional(entry->client) : std::nullopt;
}

void update_client(int fd, const Client& client)
{
    std::lock_guard hold(table_mutex);
    if (Entry* entry = find_entry(fd))
    {
        entry->client = client;
    }
}

void forget_descriptor(int fd)
{
    if (open_count.load(std::memory_order_acquire) == 0)
    {
        return;
    }
    std::lock_guard hold(table_mutex);
    for (int i = 0; i < entries; ++i)
    {
        if (table[i].fd == fd)
        {
            remove_at(i);
            return;
        }
    }
}

} // namespace kv::sim::detail

// SPDX-License-Identifier: Apache-2.0
#include "fd_table.h"

#include "sim.h"

#include <dirent.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kv::sim::detail
{
namespace
{

constexpr int max_open = 256;
// Simulated descriptors are memfds named after their bus: "kvsim-i2c-3".
constexpr std::string_view memfd_prefix = "kvsim-i2c-";

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
    std::snprintf(name, sizeof(name), "%.*s%d",
                  static_cast<int>(memfd_prefix.size()), memfd_prefix.data(),
                  bus);
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

namespace kv::sim
{
namespace
{

// The bus of a /proc/self/fd link: "/dev/i2c-N", or the memfd of a simulated
// descriptor, "/memfd:kvsim-i2c-N (deleted)". -1 for anything else.
int bus_of_link(std::string_view link)
{
    const std::string memfd = "/memfd:" + std::string(detail::memfd_prefix);
    for (const std::string_view prefix :
         {std::string_view("/dev/i2c-"), std::string_view(memfd)})
    {
        if (!link.starts_with(prefix))
        {
            continue;
        }
        link.remove_prefix(prefix.size());
        int bus = -1;
        const auto [end, error] =
            std::from_chars(link.data(), link.data() + link.size(), bus);
        return error == std::errc() && end != link.data() ? bus : -1;
    }
    return -1;
}

} // namespace

std::vector<OpenBus> open_buses()
{
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir("/proc/self/fd"),
                                                     ::closedir);
    if (!folder)
    {
        throw std::runtime_error("kvsim: cannot list /proc/self/fd");
    }
    std::vector<OpenBus> found;
    while (const dirent* entry = ::readdir(folder.get()))
    {
        const std::string name = entry->d_name;
        int fd = -1;
        if (std::from_chars(name.data(), name.data() + name.size(), fd).ec !=
                std::errc() ||
            fd == ::dirfd(folder.get()))
        {
            continue;
        }
        char link[256];
        const ssize_t length = ::readlinkat(::dirfd(folder.get()), name.c_str(),
                                            link, sizeof(link));
        if (length <= 0)
        {
            continue;
        }
        const int bus =
            bus_of_link(std::string_view(link, std::size_t(length)));
        if (bus >= 0)
        {
            found.push_back({fd, bus});
        }
    }
    std::sort(found.begin(), found.end(),
              [](const OpenBus& a, const OpenBus& b) { return a.fd < b.fd; });
    return found;
}

} // namespace kv::sim

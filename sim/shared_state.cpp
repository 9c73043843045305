// SPDX-License-Identifier: Apache-2.0
#include "shared_state.h"

#include "board_layout.h"
#include "next_libc.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

namespace kv::sim::detail
{
namespace
{

constexpr uint64_t state_magic = 0x6b7673696d303031; // "kvsim001"

std::string state_path()
{
    const char* path = std::getenv(state_path_variable);
    return path != nullptr && *path != '\0' ? path : default_state_path;
}

class Descriptor
{
  public:
    explicit Descriptor(int fd) : fd_(fd)
    {}
    ~Descriptor()
    {
        if (fd_ >= 0)
        {
            next::close(fd_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const
    {
        return fd_;
    }

  private:
    int fd_;
};

// One mapping of a state file, remembered with the file's identity.
class Mapping
{
  public:
    Mapping() = default;
    Mapping(State* state, const struct stat& file) :
        state_(state), device_(file.st_dev), inode_(file.st_ino)
    {}
    ~Mapping()
    {
        if (state_ != nullptr)
        {
            ::munmap(state_, sizeof(State));
        }
    }
    Mapping(Mapping&& other) noexcept :
        state_(std::exchange(other.state_, nullptr)), device_(other.device_),
        inode_(other.inode_)
    {}
    Mapping& operator=(Mapping&& other) noexcept
    {
        Mapping old(std::move(*this));
        state_ = std::exchange(other.state_, nullptr);
        device_ = other.device_;
        inode_ = other.inode_;
        return *this;
    }

    State* state() const
    {
        return state_;
    }
    bool is_file(const struct stat& file) const
    {
        return state_ != nullptr && file.st_dev == device_ &&
               file.st_ino == inode_;
    }

  private:
    State* state_ = nullptr;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

State* map_file(int fd)
{
    void* at = ::mmap(nullptr, sizeof(State), PROT_READ | PROT_WRITE,
                      MAP_SHARED, fd, 0);
    return at == MAP_FAILED ? nullptr : static_cast<State*>(at);
}

// An empty mapping when the file is not a state written by publish_state().
Mapping map_existing(const std::string& path)
{
    Descriptor fd(next::open(path.c_str(), O_RDWR | O_CLOEXEC, 0));
    struct stat file = {};
    if (fd.get() < 0 || ::fstat(fd.get(), &file) != 0 ||
        file.st_size != static_cast<off_t>(sizeof(State)))
    {
        return {};
    }
    Mapping mapping(map_file(fd.get()), file);
    if (mapping.state() == nullptr || mapping.state()->magic != state_magic)
    {
        return {};
    }
    return mapping;
}

void init_lock(pthread_mutex_t& lock)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&lock, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

std::mutex attach_mutex;

// Never destroyed: descriptors may still be used while the process exits.
Mapping& attachment()
{
    static Mapping* mapping = new Mapping;
    return *mapping;
}

} // namespace

State* current_state()
{
    std::lock_guard hold(attach_mutex);
    const std::string path = state_path();
    struct stat file = {};
    if (::stat(path.c_str(), &file) != 0)
    {
        attachment() = Mapping();
    }
    else if (!attachment().is_file(file))
    {
        attachment() = map_existing(path);
    }
    return attachment().state();
}

State* attached_state()
{
    std::lock_guard hold(attach_mutex);
    return attachment().state();
}

void publish_state(const Board& board)
{
    const std::string path = state_path();
    std::filesystem::create_directories(
        std::filesystem::path(path).parent_path());
    const std::string staging = path + ".new";
    Descriptor fd(next::open(staging.c_str(),
                             O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    struct stat file = {};
    if (fd.get() < 0 ||
        ::ftruncate(fd.get(), static_cast<off_t>(sizeof(State))) != 0 ||
        ::fstat(fd.get(), &file) != 0)
    {
        fail("cannot create " + staging);
    }
    Mapping mapping(map_file(fd.get()), file);
    if (mapping.state() == nullptr)
    {
        fail("cannot map " + staging);
    }
    State& state = *mapping.state();
    try
    {
        lay_out_board(state, board);
    }
    catch (...)
    {
        ::unlink(staging.c_str());
        throw;
    }
    init_lock(state.lock);
    state.magic = state_magic;
    if (::rename(staging.c_str(), path.c_str()) != 0)
    {
        fail("cannot replace " + path);
    }
    std::lock_guard hold(attach_mutex);
    attachment() = std::move(mapping);
}

StateLock::StateLock(State& state) : state_(state)
{
    if (pthread_mutex_lock(&state_.lock) == EOWNERDEAD)
    {
        pthread_mutex_consistent(&state_.lock);
    }
}

StateLock::~StateLock()
{
    pthread_mutex_unlock(&state_.lock);
}

} // namespace kv::sim::detail

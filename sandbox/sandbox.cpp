// SPDX-License-Identifier: Apache-2.0
#include "sandbox.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace kv::sandbox
{
namespace
{

// Exit status that meson reports as an error of the harness, not a failure.
constexpr int kHarnessError = 99;

// Set when a normal user entered through a user namespace of its own.
bool in_user_namespace = false;

[[noreturn]] void die(const std::string& what)
{
    std::fprintf(stderr,
                 "kv sandbox: %s: %s\n"
                 "kv sandbox: refusing to run against the host's files\n",
                 what.c_str(), std::strerror(errno));
    std::_Exit(kHarnessError);
}

void write_proc_file(const char* path, const std::string& text)
{
    int fd = ::open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0 || ::write(fd, text.data(), text.size()) !=
                      static_cast<ssize_t>(text.size()))
    {
        die(std::string("cannot write ") + path);
    }
    ::close(fd);
}

void mount_tmpfs(const char* target, const char* options)
{
    if (::mount("kv-sandbox", target, "tmpfs", MS_NOSUID | MS_NODEV, options) !=
        0)
    {
        die(std::string("cannot mount tmpfs on ") + target);
    }
}

void detach(const std::string& target)
{
    if (::umount2(target.c_str(), MNT_DETACH) != 0 && errno != EINVAL)
    {
        die("cannot unmount " + target);
    }
}

void make_dir(const char* path, mode_t mode)
{
    if (::mkdir(path, mode) != 0 && errno != EEXIST)
    {
        die(std::string("cannot create ") + path);
    }
}

// Directories of the project itself (a checkout or build tree under /tmp,
// say), and the folders of files a command run in the sandbox needs, stay
// visible through the private file systems laid over them, so tests and
// tools still find their programs, libraries and data files.
struct KeptTree
{
    std::string path;
    int handle; // O_PATH descriptor, taken in the private mount namespace
                // before anything was covered
};
std::vector<KeptTree> kept_trees;

constexpr const char* kCoveredTrees[] = {"/tmp", "/run", "/var", "/media",
                                         "/dev/shm"};

bool lies_under(const std::string& path, const std::string& dir)
{
    return path.size() > dir.size() && path.compare(0, dir.size(), dir) == 0 &&
           path[dir.size()] == '/';
}

// A source tree has a meson.build, a build folder a build.ninja.
bool is_project_dir(const std::string& dir)
{
    return ::access((dir + "/meson.build").c_str(), F_OK) == 0 ||
           ::access((dir + "/build.ninja").c_str(), F_OK) == 0;
}

// The highest project directory at or above `path` and below `covered`: the
// project's root when `path` is inside a source or build tree, else `path`.
std::string project_tree_of(const std::string& path, const std::string& covered)
{
    std::string tree = path;
    for (std::string dir = path; lies_under(dir, covered);
         dir.erase(dir.rfind('/')))
    {
        if (is_project_dir(dir))
        {
            tree = dir;
        }
    }
    return tree;
}

void keep_tree_of(const std::string& start)
{
    char resolved[PATH_MAX];
    if (::realpath(start.c_str(), resolved) == nullptr)
    {
        return;
    }
    for (const char* covered : kCoveredTrees)
    {
        if (!lies_under(resolved, covered))
        {
            continue;
        }
        const std::string tree = project_tree_of(resolved, covered);
        for (const KeptTree& kept : kept_trees)
        {
            if (kept.path == tree)
            {
                return;
            }
        }
        const int handle =
            ::open(tree.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (handle < 0)
        {
            die("cannot hold on to " + tree);
        }
        kept_trees.push_back({tree, handle});
    }
}

void remember_trees(const std::vector<std::string>& needed_files)
{
    keep_tree_of(".");
    std::string self(PATH_MAX, '\0');
    const ssize_t n = ::readlink("/proc/self/exe", self.data(), self.size());
    if (n > 0)
    {
        self.resize(static_cast<size_t>(n));
        keep_tree_of(self.substr(0, self.rfind('/')));
    }
    for (const std::string& file : needed_files)
    {
        keep_tree_of(std::filesystem::path(file).parent_path());
    }
}

void make_dirs(const std::string& path)
{
    for (size_t at = path.find('/', 1); at != std::string::npos;
         at = path.find('/', at + 1))
    {
        make_dir(path.substr(0, at).c_str(), 0755);
    }
    make_dir(path.c_str(), 0755);
}

void restore_kept_trees(const char* covered)
{
    for (const KeptTree& kept : kept_trees)
    {
        if (!lies_under(kept.path, covered))
        {
            continue;
        }
        make_dirs(kept.path);
        const std::string source =
            "/proc/self/fd/" + std::to_string(kept.handle);
        if (::mount(source.c_str(), kept.path.c_str(), nullptr,
                    MS_BIND | MS_REC, nullptr) != 0)
        {
            die("cannot keep " + kept.path + " visible");
        }
    }
}

std::string own_net_dir()
{
    return "/proc/" + std::to_string(::getpid()) + "/net";
}

// /etc stays readable as the host has it, but every write lands in a tmpfs
// upper layer. The staging tmpfs holding that layer is detached as soon as
// the overlay holds it, so no path in the sandbox reaches it.
void mount_etc_overlay()
{
    const char* staging = "/media";
    mount_tmpfs(staging, "mode=0700");
    make_dir("/media/upper", 0755);
    make_dir("/media/work", 0755);
    if (::mount("kv-sandbox-etc", "/etc", "overlay", MS_NOSUID | MS_NODEV,
                "lowerdir=/etc,upperdir=/media/upper,workdir=/media/work") != 0)
    {
        die("cannot mount a writable overlay on /etc");
    }
    detach(staging);
}

// A normal user cannot write through the overlay: the copies it makes of
// root's directories stay root's. There /etc becomes a tmpfs of our own in
// which the host's entries are bound back one by one, except the
// directories the library writes in, which start empty.
void mount_etc_binds()
{
    constexpr const char* kOwnDirs[] = {"default", "snmp", "user"};
    const char* host = "/media/host-etc";
    mount_tmpfs("/media", "mode=0700");
    make_dir(host, 0755);
    if (::mount("/etc", host, nullptr, MS_BIND | MS_REC, nullptr) != 0)
    {
        die("cannot reach the host's /etc");
    }
    mount_tmpfs("/etc", "mode=0755");
    for (const auto& entry : std::filesystem::directory_iterator(host))
    {
        const std::string name = entry.path().filename();
        const std::string target = "/etc/" + name;
        if (std::find(std::begin(kOwnDirs), std::end(kOwnDirs), name) !=
            std::end(kOwnDirs))
        {
            continue;
        }
        if (entry.is_symlink())
        {
            std::filesystem::create_symlink(
                std::filesystem::read_symlink(entry.path()), target);
            continue;
        }
        if (entry.is_directory())
        {
            make_dir(target.c_str(), 0755);
        }
        else if (entry.is_regular_file())
        {
            ::close(
                ::open(target.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
        }
        else
        {
            continue;
        }
        if (::mount(entry.path().c_str(), target.c_str(), nullptr,
                    MS_BIND | MS_REC, nullptr) != 0)
        {
            die("cannot bind " + target);
        }
    }
    for (const char* dir : kOwnDirs)
    {
        make_dir(("/etc/" + std::string(dir)).c_str(), 0755);
    }
    detach("/media");
}

void unmount_all()
{
    for (const std::string& target :
         {own_net_dir(), std::string("/dev/shm"), std::string("/sys"),
          std::string("/etc"), std::string("/media"), std::string("/var"),
          std::string("/run"), std::string("/tmp")})
    {
        detach(target);
    }
}

void mount_all()
{
    mount_tmpfs("/tmp", "mode=1777");
    mount_tmpfs("/run", "mode=0755");
    mount_tmpfs("/var", "mode=0755");
    for (const char* covered : {"/tmp", "/run", "/var"})
    {
        restore_kept_trees(covered);
    }
    if (::symlink("/run", "/var/run") != 0)
    {
        die("cannot link /var/run to /run");
    }
    make_dir("/var/tmp", 01777);
    if (!in_user_namespace)
    {
        mount_etc_overlay();
    }
    else
    {
        mount_etc_binds();
    }
    mount_tmpfs("/media", "mode=0755");
    restore_kept_trees("/media");
    mount_tmpfs("/sys", "mode=0755");
    mount_tmpfs("/dev/shm", "mode=1777");
    restore_kept_trees("/dev/shm");
    mount_tmpfs(own_net_dir().c_str(), "mode=0555");
}

void enter_namespaces()
{
    int flags = CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWNET;
    const uid_t uid = ::geteuid();
    const gid_t gid = ::getegid();
    if (uid != 0)
    {
        flags |= CLONE_NEWUSER;
        in_user_namespace = true;
    }
    if (::unshare(flags) != 0)
    {
        die("cannot enter private namespaces (as a normal user this needs "
            "unprivileged user namespaces)");
    }
    if (uid != 0)
    {
        write_proc_file("/proc/self/setgroups", "deny");
        write_proc_file("/proc/self/uid_map",
                        "0 " + std::to_string(uid) + " 1");
        write_proc_file("/proc/self/gid_map",
                        "0 " + std::to_string(gid) + " 1");
    }
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    {
        die("cannot make the mount tree private");
    }
}

// The fresh network namespace has only a loopback interface, and it is down.
void bring_loopback_up()
{
    int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
    {
        die("cannot open a socket in the private network namespace");
    }
    ifreq req{};
    std::strncpy(req.ifr_name, "lo", IFNAMSIZ - 1);
    if (::ioctl(fd, SIOCGIFFLAGS, &req) != 0)
    {
        die("cannot read the loopback flags");
    }
    req.ifr_flags = static_cast<short>(req.ifr_flags | IFF_UP);
    if (::ioctl(fd, SIOCSIFFLAGS, &req) != 0)
    {
        die("cannot bring the loopback up");
    }
    ::close(fd);
}

void enter_working_dir()
{
    if (::chdir("/tmp") != 0)
    {
        die("cannot enter /tmp");
    }
}

} // namespace

void enter(const std::vector<std::string>& needed_files)
{
    enter_namespaces();
    remember_trees(needed_files);
    bring_loopback_up();
    mount_all();
}

bool keeps_folders_in(const std::string& dir)
{
    return std::find(std::begin(kCoveredTrees), std::end(kCoveredTrees), dir) !=
           std::end(kCoveredTrees);
}

void reset()
{
    if (::chdir("/") != 0)
    {
        die("cannot leave the working directory");
    }
    unmount_all();
    if (::unshare(CLONE_NEWIPC) != 0)
    {
        die("cannot renew the IPC namespace");
    }
    mount_all();
    enter_working_dir();
}

} // namespace kv::sandbox

#include "sandbox.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace kv::sandbox
{
namespace
{

// Exit status that meson reports as an error of the harness, not a failure.
constexpr int kHarnessError = 99;

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
    if (::symlink("/run", "/var/run") != 0)
    {
        die("cannot link /var/run to /run");
    }
    make_dir("/var/tmp", 01777);
    mount_etc_overlay();
    mount_tmpfs("/media", "mode=0755");
    mount_tmpfs("/sys", "mode=0755");
    mount_tmpfs("/dev/shm", "mode=1777");
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

void enter()
{
    enter_namespaces();
    bring_loopback_up();
    mount_all();
    enter_working_dir();
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

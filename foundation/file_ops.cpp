// SPDX-License-Identifier: Apache-2.0
// Whole-file helpers: size, copy, sub-directory lookup and the SEL log
// rollover to the SD card.
#include "foundation/atomic_replace.h"
#include "foundation/durable_files.h"
#include "foundation/resources.h"

#include <libkv/foundation.h>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace
{

using kv::detail::UniqueDir;
using kv::detail::UniqueFile;

constexpr off_t kSelLogLimit = 8L * 1024 * 1024;

bool copy_stream(std::FILE* from, std::FILE* to)
{
    char chunk[4096];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, from)) > 0)
    {
        if (std::fwrite(chunk, 1, n, to) != n)
        {
            return false;
        }
    }
    return std::ferror(from) == 0 && std::fflush(to) == 0;
}

// rename(), or what mv does when the two names lie on different file
// systems (the SD card is one of its own): copy, then remove the original.
// The copy appears under its name only once it is whole. Either way the
// move is on the disk when it returns: a power cut must not lose the log or
// bring the moved one back.
void move_file(const char* from, const char* to)
{
    if (std::rename(from, to) == 0)
    {
        kv::detail::sync_directory_of(to);
        kv::detail::sync_directory_of(from);
        return;
    }
    if (errno != EXDEV)
    {
        return;
    }
    UniqueFile source = kv::detail::open_file(from, "rb");
    char scratch[160];
    const int length = std::snprintf(scratch, sizeof scratch, "%s_%ld", to,
                                     static_cast<long>(::getpid()));
    if (!source || length < 0 || static_cast<size_t>(length) >= sizeof scratch)
    {
        return;
    }
    if (kv::detail::replace_file(to, scratch, kv::detail::ScratchName::unique,
                                 [&](std::FILE* target) {
                                     return copy_stream(source.get(), target);
                                 }) == kv::detail::ReplaceFailure::none)
    {
        ::unlink(from);
    }
}

bool is_dot_entry(const char* name)
{
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

} // namespace

extern "C" off_t get_file_size(const char* path)
{
    struct stat st
    {};
    if (path == nullptr || ::stat(path, &st) != 0)
    {
        return 0;
    }
    return st.st_size;
}

// 128 for a file that cannot be opened; -1 when the copy itself fails half
// way, so a truncated target is never reported as a copy.
extern "C" int copy_file_func(const char* from, const char* to)
{
    if (from == nullptr || to == nullptr)
    {
        return KV_FILE_CANNOT_OPEN;
    }
    UniqueFile source = kv::detail::open_file(from, "rb");
    UniqueFile target = source ? kv::detail::open_file(to, "wb") : UniqueFile();
    if (!target)
    {
        std::printf("%s: can't open file[%s] \n", "copy_file_func", from);
        return KV_FILE_CANNOT_OPEN;
    }
    return copy_stream(source.get(), target.get()) ? 0 : -1;
}

extern "C" int get_file_name(const char* dir, const char* needle, char* out)
{
    UniqueDir folder(dir ? ::opendir(dir) : nullptr);
    if (!folder || needle == nullptr || out == nullptr)
    {
        return -1;
    }
    while (const dirent* entry = ::readdir(folder.get()))
    {
        if (entry->d_type == DT_DIR && !is_dot_entry(entry->d_name) &&
            std::strstr(entry->d_name, needle) != nullptr)
        {
            std::strcpy(out, entry->d_name); // fits: out holds a d_name
            return 0;
        }
    }
    return KV_SEL_LOG_BELOW_LIMIT;
}

extern "C" int check_file_size(const char* path, time_t when)
{
    if (get_file_size(path) < kSelLogLimit)
    {
        return KV_SEL_LOG_BELOW_LIMIT;
    }
    std::tm local{};
    localtime_r(&when, &local);
    char archive[128];
    std::snprintf(archive, sizeof archive,
                  "/media/card/sellog/sel-%04ld%02d%02d%02d%02d%02d.log",
                  1900L + local.tm_year, local.tm_mon + 1, local.tm_mday,
                  local.tm_hour, local.tm_min, local.tm_sec);
    move_file(path, archive); // best effort: the caller restarts the log
    return 0;
}

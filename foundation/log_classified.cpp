// SPDX-License-Identifier: Apache-2.0
// Classified persistent log: one live file per log type, archived to the SD
// card and restarted once it reaches 4 MiB.
#include "foundation/consumer_text.h"
#include "foundation/durable_files.h"
#include "foundation/resources.h"

#include <libkv/foundation.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

extern "C"
{
char log_path[KV_LOG_TYPES][64] = {
    "/run/BMCInfo/Development/Log/bmc/log_error",
    "/run/BMCInfo/Development/Log/bmc/log_warn",
    "/run/BMCInfo/Development/Log/bmc/log_info",
    "/run/BMCInfo/Development/Log/bmc/log_debug",
    "/var/BMCInfo/Development/Log/bmc/sel_extra",
    "/var/BMCInfo/Development/Log/bmc/log_action",
};

char nv_log_path[KV_LOG_TYPES][64] = {
    "/media/card/BMCInfo/Development/Log/bmc/log_error",
    "/media/card/BMCInfo/Development/Log/bmc/log_warn",
    "/media/card/BMCInfo/Development/Log/bmc/log_info",
    "/media/card/BMCInfo/Development/Log/bmc/log_debug",
    "/media/card/BMCInfo/Development/Log/bmc/sel_extra",
    "/media/card/BMCInfo/Development/Log/bmc/log_action",
};

} // extern "C"

namespace
{

using kv::detail::UniqueFd;
using kv::detail::UniqueFile;

constexpr long kArchiveThreshold = 4L * 1024 * 1024;
constexpr const char* kCardMount = "/media/card";
constexpr const char* kDebugGate = "/tmp/debug.log";

bool valid_type(int type)
{
    return type >= 0 && type < KV_LOG_TYPES;
}

// The raw broken-down fields, as the archives on existing cards are named:
// years since 1900 and months from 0 ("_126-10-15_11-33-4").
void archive_name(int type, char (&name)[256])
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local) == nullptr)
    {
        std::snprintf(name, sizeof name, "%s_unknow", nv_log_path[type]);
        return;
    }
    std::snprintf(name, sizeof name, "%s_%d-%d-%d_%d-%d-%d", nv_log_path[type],
                  local.tm_year, local.tm_mon, local.tm_mday, local.tm_hour,
                  local.tm_min, local.tm_sec);
}

void append_whole_file(std::FILE* from, std::FILE* to)
{
    std::rewind(from);
    char chunk[4096];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, from)) > 0)
    {
        std::fwrite(chunk, 1, n, to);
    }
}

// The live file, open for one more line. The usual case, a readable and
// writable file below the archive size, takes one open and one seek to its
// end, which measures it as save_log_to_nv_storage does. The first line of a
// type (no file yet), a file that cannot be both read and written, and a
// full one go the whole way through save_log_to_nv_storage, with its
// messages, and then restart or append as it says. `renewed` is set on that
// way, where the file may have just been made.
UniqueFd open_live(int type, bool& renewed)
{
    const char* path = log_path[type];
    UniqueFd live(::open(path, O_RDWR | O_APPEND | O_CLOEXEC));
    renewed = !live || ::lseek(live.get(), 0, SEEK_END) >= kArchiveThreshold;
    if (!renewed)
    {
        return live;
    }
    live.reset();
    const int how = save_log_to_nv_storage(type, path) == KV_LOG_RESTART
                        ? O_TRUNC
                        : O_APPEND;
    return UniqueFd(::open(path, O_WRONLY | O_CREAT | O_CLOEXEC | how, 0666));
}

// The whole line in one write, as an append of its own.
void write_line(int fd, const char* line, size_t length)
{
    while (length > 0)
    {
        const ssize_t written = ::write(fd, line, length);
        if (written < 0 && errno == EINTR)
        {
            continue;
        }
        if (written <= 0)
        {
            return;
        }
        line += written;
        length -= static_cast<size_t>(written);
    }
}

} // namespace

// A type outside the tables is refused like a file that cannot be read.
extern "C" int save_log_to_nv_storage(int type, const char* path)
{
    if (!valid_type(type))
    {
        return KV_LOG_UNREADABLE;
    }
    UniqueFile live = kv::detail::open_file(path, "r");
    if (!live)
    {
        std::printf("%s: open file [%s] fail \n", "save_log_to_nv_storage",
                    path);
        return KV_LOG_UNREADABLE;
    }
    if (std::fseek(live.get(), 0, SEEK_END) != 0 ||
        std::ftell(live.get()) < kArchiveThreshold)
    {
        return 0;
    }
    if (file_existed(kCardMount))
    {
        char name[256];
        archive_name(type, name);
        // The caller empties the live file next: the copy must be on the
        // card first, or a power cut loses both. A new archive name is
        // synced into its folder too.
        if (UniqueFile archive = kv::detail::open_file(name, "a"))
        {
            append_whole_file(live.get(), archive.get());
            if (std::fflush(archive.get()) == 0)
            {
                kv::detail::sync_written(fileno(archive.get()), name, true);
            }
        }
    }
    else
    {
        std::printf(
            "%s: SD do not present,but the file[%s] length out of space\n",
            "save_log_to_nv_storage", path);
    }
    return KV_LOG_RESTART;
}

// Leaves errno as it found it, so that a caller can log a failure and still
// hand its cause on.
extern "C" int log_call(int type, const char* format, ...)
{
    const kv::detail::KeepErrno keep;
    if (!valid_type(type))
    {
        std::printf("%s: invalid log type[%d] \n", "log_call", type);
        return -1;
    }
    if (type == KV_LOG_DEBUG && !file_existed(kDebugGate))
    {
        return 0;
    }

    char message[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof message, format, args);
    va_end(args);

    bool renewed = false;
    const UniqueFd live = open_live(type, renewed);
    if (!live)
    {
        return -1;
    }
    char stamp[64];
    get_timestamp_string(stamp);
    // A caller's text with a line break in it stays on this line.
    const std::string text = kv::detail::one_line(message, sizeof message - 1);
    char line[sizeof stamp + sizeof message + 1];
    const int length =
        std::snprintf(line, sizeof line, "%s-%s\n", stamp, text.c_str());
    // On the disk before the call returns; a failure is no more reported
    // than a failed write.
    write_line(live.get(), line, static_cast<size_t>(length));
    kv::detail::sync_written(live.get(), log_path[type], renewed);
    return 0;
}

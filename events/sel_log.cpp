// SPDX-License-Identifier: Apache-2.0
// The text SEL log: one line per decoded record in <dir>/sel.log, moved to
// the SD card at 8 MiB.
#include "foundation/consumer_text.h"
#include "foundation/durable_files.h"

#include <libkv/events.h>
#include <libkv/foundation.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace
{

constexpr size_t kLineSize = 200;
constexpr size_t kPathSize = 200;
constexpr char kLineEnd[] = "\r\n";
constexpr size_t kLineEndLength = sizeof kLineEnd - 1;

// "#<recordNo> <second> <text>\r\n". A text too long for the line is cut,
// and the line still ends as every other one does; a line break in the
// text is written visibly, so one record makes one line.
size_t format_line(char (&line)[kLineSize], uint32_t record, uint32_t second,
                   const char* raw_text)
{
    const std::string visible =
        kv::detail::visible_text({raw_text, strnlen(raw_text, kLineSize)});
    const char* text = visible.c_str();
    const int head =
        std::snprintf(line, sizeof line, "#%d %d ", static_cast<int>(record),
                      static_cast<int>(second));
    const size_t room = sizeof line - 1 - kLineEndLength - head;
    const size_t length = strnlen(text, room);
    std::memcpy(line + head, text, length);
    std::memcpy(line + head + length, kLineEnd, kLineEndLength + 1);
    return head + length + kLineEndLength;
}

} // namespace

extern "C" int save_sel_to_file(uint32_t recordNo, uint32_t timestamp,
                                uint32_t second, const char* text,
                                const char* dir)
{
    if (text == nullptr || dir == nullptr)
    {
        errno = EINVAL;
        return -1;
    }
    // A path that does not fit would name another file: refuse it.
    char path[kPathSize];
    const int path_length =
        std::snprintf(path, sizeof path, "%s/%s", dir, "sel.log");
    if (path_length < 0 || static_cast<size_t>(path_length) >= sizeof path)
    {
        errno = ENAMETOOLONG;
        return -1;
    }
    // 0644 on purpose: the log folder has always had it.
    if (access(dir, F_OK) != 0 && mkdir(dir, 0644) == 0)
    {
        kv::detail::sync_directory_of(dir);
    }
    char line[kLineSize];
    const size_t length = format_line(line, recordNo, second, text);
    // The record's line is on the disk before the record counts as logged.
    if (kv::detail::append_synced(path, line, length) < 0)
    {
        return -1;
    }
    check_file_size(path, static_cast<time_t>(timestamp));
    return 0;
}

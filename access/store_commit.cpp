// SPDX-License-Identifier: Apache-2.0
// A change to a store file: written beside it as "_temp", then committed
// over it or dropped by the daemon that asked for it.
#include "access/store_files.h"
#include "foundation/atomic_replace.h"
#include "foundation/consumer_text.h"
#include "foundation/durable_files.h"

#include <libkv/access.h>
#include <libkv/foundation.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>

namespace
{

using kv::detail::ReplaceFailure;

// The lines of `path` that do not belong to `key`, then `line`. Only a
// failed write is false; a "_temp" file that cannot be made is logged and
// left to show at the commit.
bool write_pending(const std::string& path, const std::string& key,
                   const std::string& line)
{
    std::string content;
    std::vector<std::string> fields;
    for (const std::string& old : kv::detail::read_store_lines(path))
    {
        split(fields, old, ',');
        // An empty line has no first field; it is no record's and stays.
        if (fields.empty() || fields.front() != key)
        {
            content += old;
            content += '\n';
        }
    }
    content += line;
    const std::string pending = kv::detail::pending_name(path);
    const ReplaceFailure failure = kv::detail::write_scratch(
        path.c_str(), pending.c_str(), kv::detail::ScratchName::fixed,
        [&](std::FILE* file) {
            return std::fwrite(content.data(), 1, content.size(), file) ==
                   content.size();
        });
    if (failure == ReplaceFailure::scratch)
    {
        veldmarke_log("open file in write mode failed, f: %s", path.c_str());
    }
    return failure != ReplaceFailure::write;
}

} // namespace

// The exported signature takes the path by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void modifyLineData(std::string path, const std::string& key,
                    const std::string& line)
{
    bool written = false;
    try
    {
        // A longer line would end the readers' view of the file there.
        written = line.size() <= kv::detail::kStoreLineLongest + 1 &&
                  write_pending(path, key, line);
    }
    catch (...)
    {}
    if (!written)
    {
        veldmarke_log(" modify failed file");
        throw std::exception();
    }
}

int updateFile(const char* path, int commit)
{
    if (path == nullptr)
    {
        return 1;
    }
    veldmarke_log("updateFile: %s", path);
    const std::string pending = kv::detail::pending_name(path);
    if (commit != 0)
    {
        // The commit is on the disk before it is reported: a failed sync
        // of the directory is told as a failed rename.
        if (::rename(pending.c_str(), path) != 0 ||
            !kv::detail::sync_directory_of(path))
        {
            veldmarke_log(
                "updateFile rename failed. errstr:%s, original:%s, dest:%s",
                std::strerror(errno), pending.c_str(), path);
            return 1;
        }
        return 0;
    }
    if (::unlink(pending.c_str()) != 0)
    {
        veldmarke_log(
            "updateFile unlink failed. errstr:%s, original:%s, dest:%s",
            std::strerror(errno), pending.c_str(), path);
    }
    return 0;
}

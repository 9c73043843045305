// SPDX-License-Identifier: Apache-2.0
// Replacing a whole file through a scratch file and a rename, so that
// readers see the old file or the new one and never a part of either.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdio>
#include <functional>
#include <optional>
#include <string_view>

namespace kv::detail
{

// How a scratch name relates to its writers.
enum class ScratchName
{
    // Made from the time of day: taken means another writer's, so the
    // replace fails rather than write through it.
    unique,
    // One fixed name per target: a leftover of a writer that died is
    // removed first. Callers of fixed names keep one writer at a time.
    fixed,
};

// The permissions, owner and group of a file being replaced: a rewrite
// keeps all three, so a file an agent reads through its group stays
// readable to it.
struct FileOwner
{
    mode_t mode;
    uid_t uid;
    gid_t gid;
};

// What a rewrite keeps of the file `info` describes; none unless it is a
// regular file.
std::optional<FileOwner> owner_of(const struct stat& info);

// Permissions of a file a rewrite creates: what a plain fopen gives (0666
// less the umask), or the owner's alone for a file that holds a secret.
inline constexpr mode_t kPublicFile = 0666;
inline constexpr mode_t kPrivateFile = 0600;

// The step at which a replace stopped; `none` when the file was replaced.
// errno holds the cause of any other step.
enum class ReplaceFailure
{
    none,
    scratch, // the scratch file could not be created
    write,   // `write` failed, or writing, flushing or closing it did, or
             // the sync of the directory after the rename (the file is in
             // place then, but may not survive a power cut)
    rename,  // the rename over the target
};

// The first half of replace_file: `scratch` whole and on the disk, left for
// the caller to rename over `path` later (or to remove). On failure the
// scratch file is gone.
ReplaceFailure write_scratch(const char* path, const char* scratch,
                             ScratchName kind,
                             const std::function<bool(std::FILE*)>& write);

// Creates `scratch` exclusively (in the target's directory: callers name it
// beside `path`) with the permissions, owner and group of the file it
// replaces (`new_file` when there is none), lets `write`
// fill it, checks every write and the close, flushes the data to the disk,
// renames it over `path` and syncs the directory. The scratch file is removed
// on every failure. `write` returns false when it could not produce the whole
// content (a failed read of the old file, say).
ReplaceFailure replace_file(const char* path, const char* scratch,
                            ScratchName kind,
                            const std::function<bool(std::FILE*)>& write,
                            mode_t new_file = kPublicFile);

// The same for a content the caller already holds, written with one write
// and no stream. `owner` is that of the file it replaces, which a caller
// that has just read that file knows; none for a new file, which gets
// `new_file`.
ReplaceFailure replace_file(const char* path, const char* scratch,
                            ScratchName kind, std::string_view content,
                            std::optional<FileOwner> owner, mode_t new_file);

} // namespace kv::detail

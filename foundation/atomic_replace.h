// SPDX-License-Identifier: Apache-2.0
// Replacing a whole file through a scratch file and a rename, so that
// readers see the old file or the new one and never a part of either.
#pragma once

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

// The step at which a replace stopped; `none` when the file was replaced.
// errno holds the cause of any other step.
enum class ReplaceFailure
{
    none,
    scratch, // the scratch file could not be created
    write,   // `write` failed, or writing, flushing or closing it did
    rename,  // the rename over the target
};

// The first half of replace_file: `scratch` whole and on the disk, left for
// the caller to rename over `path` later (or to remove). On failure the
// scratch file is gone.
ReplaceFailure write_scratch(const char* path, const char* scratch,
                             ScratchName kind,
                             const std::function<bool(std::FILE*)>& write);

// Creates `scratch` exclusively (in the target's directory: callers name it
// beside `path`) with the permissions of the file it replaces, lets `write`
// fill it, checks every write and the close, flushes the data to the disk
// and renames it over `path`. The scratch file is removed on every failure.
// `write` returns false when it could not produce the whole content (a
// failed read of the old file, say).
ReplaceFailure replace_file(const char* path, const char* scratch,
                            ScratchName kind,
                            const std::function<bool(std::FILE*)>& write);

// The same for a content the caller already holds, written with one write
// and no stream. `mode` is the mode of the file it replaces, which a caller
// that has just read that file knows; none for a new file (0666 less the
// umask).
ReplaceFailure replace_file(const char* path, const char* scratch,
                            ScratchName kind, std::string_view content,
                            std::optional<mode_t> mode);

} // namespace kv::detail

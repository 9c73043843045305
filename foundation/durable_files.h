// SPDX-License-Identifier: Apache-2.0
// What a writer does so that what it reported written is still there after
// a power cut: the bytes on the disk, and a name it made, renamed or removed
// in its directory on the disk too (ext4 keeps the two apart).
#pragma once

#include "foundation/resources.h"

#include <sys/types.h>

namespace kv::detail
{

// Syncs the directory that holds `path` ("." for a bare name). false with
// errno set when it cannot be opened or synced.
bool sync_directory_of(const char* path);

// Opens `path` with `flags`, or creates it with `mode` when there is no such
// file; `created` says which. A file that exists costs one open, as before.
UniqueFd open_or_create(const char* path, int flags, mode_t mode,
                        bool& created);

// The bytes written to `fd` on the disk (fdatasync), and the directory
// entry too when the write `created` the file. false with errno set.
bool sync_written(int fd, const char* path, bool created);

// write_file_str for a log: the bytes appended to `path` (created when
// absent) and on the disk before it returns. Bytes written, or -1 with errno
// set.
int append_synced(const char* path, const void* buf, size_t n);

} // namespace kv::detail

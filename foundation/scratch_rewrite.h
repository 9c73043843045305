// SPDX-License-Identifier: Apache-2.0
// Rewriting a settings file through a scratch file "<path>_<microseconds>"
// beside it: the edited copy replaces the file only when it is whole.
#pragma once

#include "foundation/atomic_replace.h"

#include <climits>
#include <cstdio>
#include <functional>

namespace kv::detail
{

// The scratch name "<path>_<microseconds>": false, with errno ENAMETOOLONG,
// when it does not fit.
bool scratch_name_for(const char* path, char (&name)[PATH_MAX]);

// What the settings writers answer for the outcome of a replace: 0,
// KV_CONF_RENAME_FAILED or KV_CONF_FAILED.
int settings_result(ReplaceFailure failure);

// `copy` writes the edited text of `path` (given as null when the file does
// not exist yet, which counts as empty) into the scratch file, which then
// replaces `path`. A read or write error leaves the old file in place.
// A new file gets `new_file` as its permissions.
// 0, KV_CONF_FAILED (no scratch file, I/O error) or KV_CONF_RENAME_FAILED;
// errno holds the cause of a failure.
int rewrite_via_scratch(
    const char* path,
    const std::function<void(std::FILE* from, std::FILE* to)>& copy,
    mode_t new_file);

} // namespace kv::detail

// SPDX-License-Identifier: Apache-2.0
// The key=value writer behind write_conf_value_safe, for callers whose file
// holds a secret and must not be created readable by others.
#pragma once

#include <sys/types.h>

namespace kv::detail
{

// write_conf_value_safe, creating a missing file with `new_file` as its
// permissions. A key or value the readers would not give back whole is
// refused (KV_CONF_FAILED, errno EINVAL) and the file left alone.
int write_setting(const char* path, const char* key, const char* value,
                  char sep, mode_t new_file);

} // namespace kv::detail

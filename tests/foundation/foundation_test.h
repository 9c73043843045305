// SPDX-License-Identifier: Apache-2.0
// What the foundation tests share: the library's C interface, the file and
// process helpers, the matchers and the standard headers most of them use.
#pragma once

#include "test_helpers.h"

#include <libkv/foundation.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace kv::foundation::test
{
using namespace kv::test;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
} // namespace kv::foundation::test

// Small file and process helpers shared by the test binaries.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kv::test
{

// Whole content of a file, or nothing when it cannot be read.
std::optional<std::string> read_text(const std::string& path);

// Writes `content` to `path`, creating missing parent directories.
void write_text(const std::string& path, std::string_view content);

// mkdir -p.
void make_dirs(const std::string& path);

// What `call` prints on standard output.
template <typename Call>
std::string stdout_of(Call call)
{
    testing::internal::CaptureStdout();
    call();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

// Runs `body` in a forked child and returns its exit status, or 128 + the
// signal number when it was killed. The child ends with body()'s result.
int exit_status_of(const std::function<int()>& body);

} // namespace kv::test

// SPDX-License-Identifier: Apache-2.0
#include "access/store_files.h"

#include "foundation/resources.h"

#include <libkv/foundation.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace kv::detail
{
namespace
{

// getline's buffer, freed on every way out.
struct LineBuffer
{
    LineBuffer() = default;
    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;
    ~LineBuffer()
    {
        std::free(data);
    }
    char* data = nullptr;
    size_t capacity = 0;
};

// Octal 070: group read/write/search only.
constexpr mode_t kUserDirMode = 56;

} // namespace

std::vector<std::string> read_store_lines(const std::string& path)
{
    std::vector<std::string> lines;
    const UniqueFile file = open_file(path.c_str(), "r");
    if (!file)
    {
        return lines;
    }
    LineBuffer buffer;
    ssize_t length = 0;
    while ((length = ::getline(&buffer.data, &buffer.capacity, file.get())) >=
           0)
    {
        std::string line(buffer.data, static_cast<size_t>(length));
        if (!line.empty() && line.back() == '\n')
        {
            line.pop_back();
        }
        if (line.size() > kLongestLine)
        {
            break;
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

bool file_exists(const char* path)
{
    return ::access(path, F_OK) == 0;
}

void drop_pending_change(const std::string& path)
{
    const std::string pending = pending_name(path);
    if (file_exists(pending.c_str()))
    {
        veldmarke_log("WARNING: Set user privilege, TEMP file exist. DELETE.");
        ::unlink(pending.c_str());
    }
}

void make_user_dir()
{
    if (!file_exists(kUserDir))
    {
        ::mkdir(kUserDir, kUserDirMode);
    }
}

} // namespace kv::detail

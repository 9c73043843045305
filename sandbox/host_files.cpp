// SPDX-License-Identifier: Apache-2.0
#include "host_files.h"

#include "sandbox.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>

namespace kv::sandbox
{
namespace
{

void add_if_present(std::vector<HostFile>& files, const std::string& path,
                    const char* use)
{
    char resolved[PATH_MAX];
    if (path.find('/') != std::string::npos &&
        ::realpath(path.c_str(), resolved) != nullptr)
    {
        files.push_back({path, resolved, use});
    }
}

std::string why_hidden(const HostFile& file)
{
    const std::string folder =
        std::filesystem::absolute(file.path).parent_path().string();
    std::string line =
        "cannot " + std::string(file.use) + " " + file.path + ": ";
    if (!keeps_folders_in(folder))
    {
        return line + "the sandbox hides it";
    }
    return line + "the sandbox's fresh " + folder + " hides it; move it into " +
           "a folder below " + folder + ", or out of " + folder;
}

} // namespace

std::vector<HostFile> host_files(const char* program, std::string_view preload)
{
    std::vector<HostFile> files;
    add_if_present(files, program, "run");
    while (!preload.empty())
    {
        const size_t end = preload.find_first_of(": ");
        add_if_present(files, std::string(preload.substr(0, end)), "preload");
        preload.remove_prefix(end == preload.npos ? preload.size() : end + 1);
    }
    return files;
}

std::string enter_with(const std::vector<HostFile>& files)
{
    std::vector<std::string> paths;
    for (const HostFile& file : files)
    {
        paths.push_back(file.path);
        paths.push_back(file.target);
    }
    enter(paths);
    for (const HostFile& file : files)
    {
        if (::access(file.path.c_str(), F_OK) != 0)
        {
            return why_hidden(file);
        }
    }
    return "";
}

} // namespace kv::sandbox

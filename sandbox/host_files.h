// SPDX-License-Identifier: Apache-2.0
// What a command run by kvsandbox or kvsim takes from the host: its program
// and the libraries it gets preloaded. The sandbox keeps their folders
// visible, and a file it still hides is named together with the cause and
// the way out, rather than leaving the command to fail with "No such file or
// directory" or the dynamic loader's warning.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kv::sandbox
{

struct HostFile
{
    std::string path;   // as the exec or the loader will open it
    std::string target; // the file itself, symbolic links resolved
    const char* use;    // "run" or "preload", for the message
};

// `program` when it names a path, and every library that `preload` (an
// LD_PRELOAD value, entries separated by colons or spaces) names by a path.
// Files that do not exist on the host are left out: the exec and the loader
// report those as usual.
std::vector<HostFile> host_files(const char* program, std::string_view preload);

// enter(), keeping `files` visible. Returns "" when every one of them is
// still there, else one line saying which is hidden, why, and what to do.
std::string enter_with(const std::vector<HostFile>& files);

} // namespace kv::sandbox

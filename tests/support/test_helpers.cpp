// SPDX-License-Identifier: Apache-2.0
#include "test_helpers.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace kv::test
{

std::optional<std::string> read_text(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        return std::nullopt;
    }
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void make_dirs(const std::string& path)
{
    std::filesystem::create_directories(path);
}

void write_text(const std::string& path, std::string_view content)
{
    const auto parent = std::filesystem::path(path).parent_path();
    if (!parent.empty())
    {
        make_dirs(parent);
    }
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!out)
    {
        throw std::runtime_error("cannot write " + path);
    }
}

CommandOutcome run_shell(const std::string& command)
{
    CommandOutcome outcome;
    std::FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
    {
        return outcome;
    }
    char chunk[256];
    for (std::size_t got; (got = std::fread(chunk, 1, sizeof chunk, pipe));)
    {
        outcome.output.append(chunk, got);
    }
    const int status = ::pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

int exit_status_of(const std::function<int()>& body)
{
    const pid_t pid = ::fork();
    if (pid < 0)
    {
        throw std::runtime_error("fork failed");
    }
    if (pid == 0)
    {
        std::_Exit(body());
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0)
    {}
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool under_user_emulation()
{
    // The emulator answers for /proc/self/exe itself; a forked child's
    // executable, seen from here, is the emulator's.
    static const bool emulated = [] {
        int ends[2];
        if (::pipe(ends) != 0)
        {
            return false;
        }
        const pid_t child = ::fork();
        if (child < 0)
        {
            ::close(ends[0]);
            ::close(ends[1]);
            return false;
        }
        if (child == 0)
        {
            ::close(ends[1]);
            char byte;
            (void)::read(ends[0], &byte, 1);
            _exit(0);
        }
        ::close(ends[0]);
        std::error_code error;
        const auto exe = std::filesystem::read_symlink(
            "/proc/" + std::to_string(child) + "/exe", error);
        ::close(ends[1]);
        ::waitpid(child, nullptr, 0);
        return exe.filename().string().starts_with("qemu-");
    }();
    return emulated;
}

} // namespace kv::test

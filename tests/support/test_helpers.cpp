// SPDX-License-Identifier: Apache-2.0
#include "test_helpers.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace kv::test
{

std::optional<std::string> read_text(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void write_text(const std::string& path, std::string_view content)
{
    const auto parent = std::filesystem::path(path).parent_path();
    if (!parent.empty())
        make_dirs(parent);
    std::ofstream out(path, std::ios::binary);
    out << content;
    if (!out)
        throw std::runtime_error("cannot write " + path);
}

CommandOutcome run_shell(const std::string& command)
{
    CommandOutcome outcome;
    std::FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
        return outcome;
    char chunk[256];
    for (std::size_t got; (got = std::fread(chunk, 1, sizeof chunk, pipe));)
        outcome.output.append(chunk, got);
    const int status = ::pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

int exit_status_of(const std::function<int()>& body)
{
    const pid_t pid = ::fork();
    if (pid < 0)
        throw std::runtime_error("fork failed");
    if (pid == 0)
        std::_Exit(body());
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
        const pid_t child = ::fork();
        if (child == 0)
        {
            for (;;)
                ::pause();
        }
        std::error_code error;
        const auto exe = std::filesystem::read_symlink(
            "/proc/" + std::to_string(child) + "/exe", error);
        if (child > 0)
        {
            ::kill(child, SIGKILL);
            ::waitpid(child, nullptr, 0);
        }
        return exe.filename().string().starts_with("qemu-");
    }();
    return emulated;
}

} // namespace kv::test

// kvsim end to end: programs run under it see the board, and all programs of
// one run see the same board.
#include "sim_fixture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace kv::sim::test
{
namespace
{

struct Outcome
{
    int status = -1;
    std::string output;
};

Outcome run(std::vector<std::string> arguments)
{
    int pipe_ends[2];
    if (::pipe2(pipe_ends, O_CLOEXEC) != 0)
    {
        return {};
    }
    const pid_t child = ::fork();
    if (child == 0)
    {
        ::dup2(pipe_ends[1], STDOUT_FILENO);
        std::vector<char*> argv;
        for (std::string& argument : arguments)
        {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        ::_exit(126);
    }
    ::close(pipe_ends[1]);
    Outcome outcome;
    char chunk[256];
    ssize_t got = 0;
    while ((got = ::read(pipe_ends[0], chunk, sizeof(chunk))) > 0)
    {
        outcome.output.append(chunk, static_cast<std::size_t>(got));
    }
    ::close(pipe_ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

TEST(Kvsim, ProgramsOfOneRunShareTheBoardAndTheChannelMap)
{
    const std::string script =
        "set -e; " KVSIM_I2CSET " -y 11 0x3f 5 0xa5; " KVSIM_I2CGET
        " -y 11 0x3f 5; cat /var/run/obmcinfo/i2c/i2c-13-4; " KVSIM_READ_REGISTER
        " 1 0x3f 0; " KVSIM_READ_REGISTER " 19 0x3f 0; " KVSIM_I2CGET
        " -y 13 0x70";
    const Outcome outcome =
        run({KVSIM_TOOL, example_board, "--", "/bin/sh", "-c", script});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("0xa5\n19\n0x0e\n0x08\n0x08\n", outcome.output);
}

TEST(Kvsim, EachRunHasABoardOfItsOwn)
{
    load_board(example_board);
    const Outcome first = run({KVSIM_TOOL, example_board, KVSIM_I2CSET, "-y",
                               "11", "0x3f", "5", "0xa5"});
    const Outcome second =
        run({KVSIM_TOOL, example_board, KVSIM_I2CGET, "-y", "11", "0x3f", "5"});
    EXPECT_EQ(0, first.status);
    EXPECT_EQ("0x00\n", second.output);
    // Nor does a run touch the board of the process that started it.
    EXPECT_TRUE(wire_log().empty());
    EXPECT_EQ(0x00, device_memory(11, 0x3f)[5]);
}

TEST(Kvsim, WrongUseIsRefused)
{
    EXPECT_EQ(2, run({KVSIM_TOOL}).status);
    EXPECT_EQ(2, run({KVSIM_TOOL, example_board}).status);
    EXPECT_EQ(2, run({KVSIM_TOOL, example_board, "--"}).status);
    EXPECT_EQ(2, run({KVSIM_TOOL, "--help", "true"}).status);
    EXPECT_EQ(1, run({KVSIM_TOOL, "/nonexistent/board.json", "true"}).status);
    EXPECT_EQ(127,
              run({KVSIM_TOOL, example_board, "/nonexistent/program"}).status);
}

} // namespace
} // namespace kv::sim::test

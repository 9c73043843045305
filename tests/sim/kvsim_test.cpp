// SPDX-License-Identifier: Apache-2.0
// kvsim end to end: programs run under it see the board, and all programs of
// one run see the same board.
#include "sim_fixture.h"
#include "test_helpers.h"

namespace kv::sim::test
{
namespace
{

using kv::test::run_shell;

const std::string kvsim = KVSIM_TOOL " " + example_board + " ";

// i2ctransfer sends its messages as one I2C_RDWR request, as libkv does.
TEST(Kvsim, ProgramsOfOneRunShareTheBoardAndTheChannelMap)
{
    const auto outcome = run_shell(
        kvsim +
        "-- /bin/sh -c 'set -e; " KVSIM_I2CSET
        " -y 11 0x3f 5 0xa5; " KVSIM_I2CGET
        " -y 11 0x3f 5; cat /var/run/obmcinfo/i2c/i2c-13-4; " KVSIM_I2CTRANSFER
        " -y 1 w1@0x3f 0 r1; " KVSIM_I2CTRANSFER
        " -y 19 w1@0x3f 0 r1; " KVSIM_I2CGET " -y 13 0x70'");
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("0xa5\n19\n0x0e\n0x08\n0x08\n", outcome.output);
}

TEST(Kvsim, EachRunHasABoardOfItsOwn)
{
    load_board(example_board);
    EXPECT_EQ(0, run_shell(kvsim + KVSIM_I2CSET " -y 11 0x3f 5 0xa5").status);
    EXPECT_EQ("0x00\n", run_shell(kvsim + KVSIM_I2CGET " -y 11 0x3f 5").output);
    // Nor does a run touch the board of the process that started it.
    EXPECT_TRUE(wire_log().empty());
    EXPECT_EQ(0x00, device_memory(11, 0x3f)[5]);
}

TEST(Kvsim, WrongUseIsRefused)
{
    EXPECT_EQ(2, run_shell(KVSIM_TOOL).status);
    EXPECT_EQ(2, run_shell(kvsim).status);
    EXPECT_EQ(2, run_shell(kvsim + "--").status);
    EXPECT_EQ(2, run_shell(KVSIM_TOOL " --help true").status);
    EXPECT_EQ(1, run_shell(KVSIM_TOOL " /nonexistent/board.json true").status);
    EXPECT_EQ(127, run_shell(kvsim + "/nonexistent/program").status);
}

} // namespace
} // namespace kv::sim::test

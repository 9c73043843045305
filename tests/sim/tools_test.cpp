// SPDX-License-Identifier: Apache-2.0
// kvsim and kvsandbox end to end. Both cover /tmp (and /dev/shm) with fresh
// ones of their own, and must keep a build folder there visible.
#include "sim_fixture.h"
#include "test_helpers.h"

#include <filesystem>

namespace kv::sim::test
{
namespace
{

using kv::test::run_shell;

const std::string kvsim = KVSIM_TOOL " " + example_board + " ";

void copy(const std::string& from, const std::string& to)
{
    std::filesystem::create_directories(
        std::filesystem::path(to).parent_path());
    std::filesystem::copy_file(from, to);
}

// i2ctransfer sends its messages as one I2C_RDWR request, as libkv does.
TEST(Kvsim, ProgramsOfOneRunShareTheBoardAndTheChannelMap)
{
    const auto outcome = run_shell(
        kvsim +
        "-- /bin/sh -c 'set -e; " KVSIM_I2CSET
        " -y 11 0x3f 5 0xa5; " KVSIM_I2CGET
        " -y 11 0x3f 5; cat /var/run/obmcinfo/i2c/i2c-13-4; " KVSIM_I2CTRANSFER
        " -y 19 w1@0x3f 0 r1; " KVSIM_I2CGET " -y 13 0x70'");
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("0xa5\n19\n0x08\n0x08\n", outcome.output);
    // Each run has a board of its own, apart from its caller's.
    load_board(example_board);
    EXPECT_EQ("0x00\n", run_shell(kvsim + KVSIM_I2CGET " -y 11 0x3f 5").output);
    EXPECT_TRUE(wire_log().empty());
}

TEST(Kvsim, WrongUseIsRefused)
{
    const std::pair<std::string, int> uses[] = {
        {KVSIM_TOOL, 2},
        {kvsim, 2},
        {kvsim + "--", 2},
        {KVSIM_TOOL " --help true", 2},
        {KVSIM_TOOL " /nonexistent/board.json true", 1},
        {kvsim + "/nonexistent/program", 127}};
    for (const auto& [command, status] : uses)
    {
        EXPECT_EQ(status, run_shell(command).status) << command;
    }
}

// Started from / as from a source tree elsewhere; kvsim finds libkvsim and
// libkv beside it as in a build folder, which build.ninja marks.
TEST(Kvsim, ToolsRunFromABuildFolderInTmp)
{
    for (const std::string build : {"/tmp/kvb", "/dev/shm/kvb"})
    {
        copy(KVSIM_TOOL, build + "/tools/kvsim");
        copy(KVSANDBOX_TOOL, build + "/tools/kvsandbox");
        copy(KVSIM_LIBRARY, build + "/sim/libkvsim.so");
        copy(KV_LIBRARY, build + "/libkv.so.1");
        copy(KVSIM_I2CGET, build + "/bin/i2cget");
        kv::test::write_text(build + "/build.ninja", "# marker\n");
        EXPECT_EQ(
            "0x01\n# marker\n",
            run_shell("cd / && (" + build + "/tools/kvsim " + example_board +
                      " -- " + build + "/bin/i2cget -y 11 0x3f 0 && " + build +
                      "/tools/kvsandbox -- cat " + build + "/build.ninja) 2>&1")
                .output)
            << build;
    }
}

// A file directly in /tmp cannot be kept without keeping all of /tmp.
TEST(Kvsim, AFileDirectlyInTmpIsNamedWithCauseAndFix)
{
    copy(KVSIM_LIBRARY, "/tmp/libkvsim.so");
    copy(KVSIM_I2CGET, "/tmp/i2cget");
    copy(KVSIM_I2CGET, "/tmp/own/i2cget");
    const std::string fix = ": the sandbox's fresh /tmp hides it; move it "
                            "into a folder below /tmp, or out of /tmp\n";
    EXPECT_EQ("kvsim: cannot preload /tmp/libkvsim.so" + fix,
              run_shell("cd / && LD_LIBRARY_PATH=/tmp " + kvsim +
                        "-- /tmp/own/i2cget -y 11 0x3f 0 2>&1")
                  .output);
    EXPECT_EQ(
        "kvsandbox: cannot run /tmp/i2cget" + fix,
        run_shell("cd / && " KVSANDBOX_TOOL " -- /tmp/i2cget -V 2>&1").output);
    EXPECT_EQ("0x01\n",
              run_shell("cd / && " + kvsim + "-- /tmp/own/i2cget -y 11 0x3f 0")
                  .output);
}

} // namespace
} // namespace kv::sim::test

// SPDX-License-Identifier: Apache-2.0
// kvsim and kvsandbox run from a build folder under /tmp, which the sandbox
// they set up covers with a fresh /tmp of its own. Each test lays out the
// tools as a build folder does in the test's private /tmp.
#include "test_helpers.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace
{

namespace fs = std::filesystem;
using kv::test::run_shell;

const std::string board = KVSIM_EXAMPLE_BOARD;

void copy(const std::string& from, const std::string& to)
{
    fs::create_directories(fs::path(to).parent_path());
    fs::copy_file(from, to);
}

// kvsim finds libkvsim and libkv beside it as in the build folder, and
// build.ninja marks the folder as one.
void lay_out_build_folder(const std::string& build)
{
    copy(KVSIM_TOOL, build + "/tools/kvsim");
    copy(KVSANDBOX_TOOL, build + "/tools/kvsandbox");
    copy(KVSIM_LIBRARY, build + "/sim/libkvsim.so");
    copy(KV_LIBRARY, build + "/libkv.so.1");
    kv::test::write_text(build + "/build.ninja", "# marker\n");
}

// Started from outside /tmp, as from a source tree elsewhere.
std::string from_root(const std::string& command)
{
    return "cd / && " + command + " 2>&1";
}

TEST(ToolsInTmp, KvsimPreloadsItsLibraryAndRunsProgramsOfTheBuildFolder)
{
    const std::string build = "/tmp/kvb";
    lay_out_build_folder(build);
    copy(KVSIM_I2CGET, build + "/bin/i2cget");
    const auto outcome =
        run_shell(from_root(build + "/tools/kvsim " + board + " -- " + build +
                            "/bin/i2cget -y 11 0x3f 0"));
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("0x01\n", outcome.output);
}

// /dev/shm is as fresh as /tmp, and a build folder there is kept the same way.
TEST(ToolsInTmp, KvsandboxKeepsTheBuildFolderVisible)
{
    for (const std::string build : {"/tmp/kvb", "/dev/shm/kvb"})
    {
        lay_out_build_folder(build);
        const auto outcome = run_shell(from_root(
            build + "/tools/kvsandbox -- cat " + build + "/build.ninja"));
        EXPECT_EQ(0, outcome.status) << build;
        EXPECT_EQ("# marker\n", outcome.output) << build;
    }
}

TEST(ToolsInTmp, AProgramInAFolderOfItsOwnStaysVisible)
{
    copy(KVSIM_I2CGET, "/tmp/own/i2cget");
    const auto outcome = run_shell(
        from_root(KVSIM_TOOL " " + board + " -- /tmp/own/i2cget -y 11 0x3f 0"));
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("0x01\n", outcome.output);
}

// A file directly in /tmp cannot be kept without keeping all of /tmp.
TEST(ToolsInTmp, AFileDirectlyInTmpIsNamedWithCauseAndFix)
{
    copy(KVSIM_LIBRARY, "/tmp/libkvsim.so");
    copy(KVSIM_I2CGET, "/tmp/i2cget");
    const std::string fix = ": the sandbox's fresh /tmp hides it; move it "
                            "into a folder below /tmp, or out of /tmp\n";

    auto outcome =
        run_shell(from_root("LD_LIBRARY_PATH=/tmp " KVSIM_TOOL " " + board +
                            " -- " KVSIM_I2CGET " -y 11 0x3f 0"));
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("kvsim: cannot preload /tmp/libkvsim.so" + fix, outcome.output);

    outcome = run_shell(from_root(KVSANDBOX_TOOL " -- /tmp/i2cget -V"));
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("kvsandbox: cannot run /tmp/i2cget" + fix, outcome.output);
}

} // namespace

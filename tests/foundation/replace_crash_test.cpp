// SPDX-License-Identifier: Apache-2.0
// A writer killed at any point of a key=value rewrite leaves the target
// whole: the old content or the new, never a mix or a cut, and at most the
// one scratch file it was writing.
#include "foundation_test.h"

#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>

using namespace kv::foundation::test;

namespace
{

constexpr const char* kDir = "/tmp/crash";
constexpr const char* kConf = "/tmp/crash/settings.conf";
constexpr int kRewrites = 200;

// Large enough that a rewrite takes a while, so kills land inside copies.
std::string filler(char tag)
{
    std::string text;
    for (int line = 0; line < 400; ++line)
    {
        text += tag + std::to_string(line) + "=" + std::string(120, tag) + "\n";
    }
    return text;
}

const std::string kHead = filler('a');
const std::string kTail = filler('z');

std::string value_of(int round)
{
    return std::to_string(round) + ":" + std::string(200, 'v');
}

std::string content_of(int round)
{
    return kHead + "key=" + value_of(round) + "\n" + kTail;
}

// Rewrites the key `rewrites` times; the value names the rewrite.
pid_t start_writer(int rewrites)
{
    const pid_t pid = fork();
    if (pid == 0)
    {
        for (int round = 1; round <= rewrites; ++round)
        {
            if (write_conf_value(kConf, "key", value_of(round).c_str()) != 0)
            {
                _exit(1);
            }
        }
        _exit(0);
    }
    return pid;
}

// Which rewrite the file holds, or -1 when it is not one of them whole.
int rewrite_held()
{
    const std::string text = read_text(kConf).value_or("");
    const std::string key = kHead + "key=";
    if (!text.starts_with(key))
    {
        return -1;
    }
    const int round = std::atoi(text.c_str() + key.size());
    return text == content_of(round) ? round : -1;
}

std::vector<std::string> scratch_files()
{
    std::vector<std::string> found;
    for (const std::string& name : names_in(kDir))
    {
        if (name != "settings.conf")
        {
            found.push_back(name);
        }
    }
    return found;
}

} // namespace

TEST(ReplaceByRename, TargetSurvivesAWriterKilledAtAnyPoint)
{
    make_dirs(kDir);
    write_text(kConf, content_of(0));

    // One undisturbed run of kRewrites rewrites times a rewrite.
    const auto started = std::chrono::steady_clock::now();
    int status = 0;
    const pid_t first = start_writer(kRewrites);
    ASSERT_EQ(first, waitpid(first, &status, 0));
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    const auto rewrite = std::chrono::duration_cast<std::chrono::microseconds>(
                             std::chrono::steady_clock::now() - started)
                             .count() /
                         kRewrites;
    ASSERT_EQ(kRewrites, rewrite_held());

    // Then writers that would go on for long are killed somewhere in their
    // first few rewrites, so every kill lands inside the writing, whatever
    // the load of the machine.
    std::random_device seed_source;
    const unsigned seed = seed_source();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<long> delay(0, 10 * rewrite);
    int progressed = 0;
    for (int kill_round = 0; kill_round < 20; ++kill_round)
    {
        write_text(kConf, content_of(0));
        const pid_t writer = start_writer(100 * kRewrites);
        ASSERT_GT(writer, 0);
        std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
        kill(writer, SIGKILL);
        ASSERT_EQ(writer, waitpid(writer, &status, 0));
        EXPECT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself";

        const int held = rewrite_held();
        EXPECT_NE(-1, held) << "kill round " << kill_round;
        progressed += held > 0 ? 1 : 0;
        const std::vector<std::string> strays = scratch_files();
        EXPECT_LE(strays.size(), 1u) << "kill round " << kill_round;
        for (const std::string& name : strays)
        {
            EXPECT_TRUE(name.starts_with("settings.conf_")) << name;
            std::filesystem::remove(std::string(kDir) + "/" + name);
        }
    }
    // Kills before the first rename would prove little.
    EXPECT_GE(progressed, 5);
}

// SPDX-License-Identifier: Apache-2.0
// A writer killed at any point of a rewrite leaves the target whole: the
// old content or the new, never a mix or a cut, and at most the one scratch
// file it was writing; a rewrite on a full disk fails and leaves the old
// file. Every kind of file the library rewrites by a scratch file and a
// rename is put through the same faults. The text SEL log, which grows by
// appends and is moved to the SD card at 8 MiB, loses no line to a kill.
#include "test_helpers.h"

#include <libkv/access.h>
#include <libkv/events.h>
#include <libkv/foundation.h>
#include <libkv/services.h>

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <ostream>
#include <random>
#include <regex>
#include <string>
#include <thread>

namespace
{

using kv::test::make_dirs;
using kv::test::names_in;
using kv::test::read_text;
using kv::test::write_text;

constexpr int kRewrites = 100;

// "R<round>Z": a value no filler holds.
std::string tagged(int round)
{
    return "R" + std::to_string(round) + "Z";
}

int tagged_round(const std::string& text)
{
    const size_t at = text.find('R');
    if (at == std::string::npos)
    {
        return -1;
    }
    char* end = nullptr;
    const long round = std::strtol(text.c_str() + at + 1, &end, 10);
    return *end == 'Z' ? static_cast<int>(round) : -1;
}

// Lines that make a rewrite take a while, so that kills land inside it.
std::string filler(const std::string& prefix, const std::string& suffix)
{
    std::string text;
    for (int line = 0; line < 400; ++line)
    {
        text += prefix + std::to_string(line) + suffix + "\n";
    }
    return text;
}

struct RewriteKind
{
    const char* name;
    std::string target;
    std::string scratch_prefix;    // names of its scratch files begin so
    std::function<void()> prepare; // the file's surroundings, before round 0
    std::function<bool(int round)> rewrite;
    std::function<std::string(int round)> marker;
    std::function<int(const std::string& text)> round_in;
};

RewriteKind key_value_file()
{
    const std::string path = "/tmp/crash/settings.conf";
    return {"key_value",
            path,
            "settings.conf_",
            [path] {
                make_dirs("/tmp/crash");
                write_text(path, filler("a", "=" + std::string(120, 'a')) +
                                     "key=x\n" +
                                     filler("z", "=" + std::string(120, 'z')));
            },
            [path](int round) {
                return write_conf_value(path.c_str(), "key",
                                        tagged(round).c_str()) == 0;
            },
            tagged,
            tagged_round};
}

RewriteKind json_file()
{
    const std::string path = "/tmp/crash/settings.json";
    return {"json",
            path,
            "settings.json-",
            [] { make_dirs("/tmp/crash"); },
            [path](int round) {
                cJSON* root = cJSON_CreateObject();
                cJSON_AddStringToObject(root, "head",
                                        std::string(30000, 'a').c_str());
                cJSON_AddStringToObject(root, "value", tagged(round).c_str());
                cJSON_AddStringToObject(root, "tail",
                                        std::string(30000, 'z').c_str());
                const bool ok = cjson_file_write(root, path.c_str()) == 0;
                cJSON_Delete(root);
                return ok;
            },
            tagged,
            tagged_round};
}

RewriteKind snmp_agent_file()
{
    const std::string path = "/etc/snmp/snmpd.conf";
    return {"snmpd_conf",
            path,
            "snmpd.conf_",
            [path] {
                make_dirs("/etc/snmp");
                write_text(path, filler("# head ", std::string(100, '.')) +
                                     "com2sec  mynetwork   default   public\n" +
                                     filler("# tail ", std::string(100, '.')));
            },
            [](int round) {
                return snmp_community_set(tagged(round).c_str()) == 0;
            },
            tagged,
            tagged_round};
}

// Rule 1's network names the round: 10.<round / 256>.<round % 256>.0/24.
std::string rule_network(int round)
{
    return "10." + std::to_string(round / 256 % 256) + "." +
           std::to_string(round % 256) + ".0/24";
}

RewriteKind access_rules_file()
{
    return {"access_rules",
            "/etc/user/rules",
            "rules_temp",
            [] {
                make_dirs("/etc/user");
                write_text("/etc/user/rules", "0,192.168.0.0/16,,,1,\n"
                                              "2,172.16.0.0/12,,,0,\n");
            },
            [](int round) {
                std::string ipv4 = rule_network(round);
                std::string mac;
                return setUserRule(1, ipv4, mac, "", true, "") == 0 &&
                       updateFile("/etc/user/rules", 1) == 0;
            },
            rule_network,
            [](const std::string& text) {
                const size_t at = text.find(",10.");
                if (at == std::string::npos)
                {
                    return -1;
                }
                unsigned high = 0;
                unsigned low = 0;
                if (std::sscanf(text.c_str() + at, ",10.%u.%u.0/24", &high,
                                &low) != 2)
                {
                    return -1;
                }
                return static_cast<int>(high * 256 + low);
            }};
}

void PrintTo(const RewriteKind& kind, std::ostream* out)
{
    *out << kind.name;
}

class Rewrite : public testing::TestWithParam<RewriteKind>
{
  protected:
    // Rewrites the target `rewrites` times, round 1 on. With `ready`, the
    // writer says on it when its first rewrite is in place.
    pid_t start_writer(int rewrites, int ready = -1)
    {
        const pid_t pid = ::fork();
        if (pid == 0)
        {
            for (int round = 1; round <= rewrites; ++round)
            {
                if (!GetParam().rewrite(round))
                {
                    ::_exit(1);
                }
                if (round == 1 && ready >= 0 && ::write(ready, "r", 1) != 1)
                {
                    ::_exit(2);
                }
            }
            ::_exit(0);
        }
        return pid;
    }

    // The file as round `round` leaves it, from the file of a known round.
    std::string content_of(int round) const
    {
        std::string text = template_;
        text.replace(text.find(kPlaceholder), kPlaceholder.size(),
                     GetParam().marker(round));
        return text;
    }

    void learn_template(int round)
    {
        template_ = read_text(GetParam().target).value_or("");
        const std::string marker = GetParam().marker(round);
        const size_t at = template_.find(marker);
        ASSERT_NE(at, std::string::npos) << template_;
        template_.replace(at, marker.size(), kPlaceholder);
    }

    // Which round the file holds whole, or -1.
    int round_held() const
    {
        const std::string text = read_text(GetParam().target).value_or("");
        const int round = GetParam().round_in(text);
        return round >= 0 && text == content_of(round) ? round : -1;
    }

    // Names of the scratch files beside the target, which are removed.
    std::string remove_strays() const
    {
        const std::filesystem::path target(GetParam().target);
        std::string strays;
        for (const std::string& name : names_in(target.parent_path()))
        {
            if (name.starts_with(GetParam().scratch_prefix))
            {
                std::filesystem::remove(target.parent_path() / name);
                strays += strays.empty() ? name : " " + name;
            }
        }
        return strays;
    }

  private:
    inline static const std::string kPlaceholder = "@ROUND@";
    std::string template_;
};

TEST_P(Rewrite, KilledWriterLeavesTheTargetWhole)
{
    GetParam().prepare();
    ASSERT_TRUE(GetParam().rewrite(0));
    learn_template(0);
    ASSERT_EQ(round_held(), 0);

    // An undisturbed run times one rewrite.
    const auto started = std::chrono::steady_clock::now();
    int status = 0;
    const pid_t first = start_writer(kRewrites);
    ASSERT_EQ(first, ::waitpid(first, &status, 0));
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    const long rewrite = std::chrono::duration_cast<std::chrono::microseconds>(
                             std::chrono::steady_clock::now() - started)
                             .count() /
                         kRewrites;
    ASSERT_EQ(round_held(), kRewrites);

    // Writers that would go on for long are killed within the ten rewrites
    // after their first, so every kill lands inside the writing, past the
    // first rename, whatever the load.
    std::random_device seed_source;
    const unsigned seed = seed_source();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<long> delay(0, 10 * rewrite);
    for (int kill_round = 0; kill_round < 20; ++kill_round)
    {
        ASSERT_TRUE(GetParam().rewrite(0));
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        const pid_t writer = start_writer(100 * kRewrites, ready[1]);
        ASSERT_GT(writer, 0);
        char started_writing = 0;
        EXPECT_EQ(::read(ready[0], &started_writing, 1), 1);
        ::close(ready[0]);
        ::close(ready[1]);
        std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
        ::kill(writer, SIGKILL);
        ASSERT_EQ(writer, ::waitpid(writer, &status, 0));
        EXPECT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself";

        EXPECT_GT(round_held(), 0) << "kill round " << kill_round;
        const std::string strays = remove_strays();
        EXPECT_EQ(strays.find(' '), std::string::npos)
            << "kill round " << kill_round << ": " << strays;
    }
}

TEST_P(Rewrite, FullDiskFailsAndKeepsTheOldFile)
{
    GetParam().prepare();
    ASSERT_TRUE(GetParam().rewrite(0));
    const std::string before = read_text(GetParam().target).value_or("");
    const std::string dir =
        std::filesystem::path(GetParam().target).parent_path();

    // A file system with room for the file and little more, then filled.
    const std::string size = "size=" + std::to_string(before.size() + 8192);
    ASSERT_EQ(::mount("tmpfs", dir.c_str(), "tmpfs", 0, size.c_str()), 0);
    write_text(GetParam().target, before);
    const int filler =
        ::open((dir + "/filler").c_str(), O_WRONLY | O_CREAT, 0600);
    ASSERT_GE(filler, 0);
    const std::string block(4096, 'f');
    while (::write(filler, block.data(), block.size()) > 0)
    {}
    ::close(filler);

    EXPECT_FALSE(GetParam().rewrite(1));
    EXPECT_EQ(read_text(GetParam().target), before);
    EXPECT_EQ(remove_strays(), "");
    ::umount2(dir.c_str(), MNT_DETACH);
}

INSTANTIATE_TEST_SUITE_P(EveryKind, Rewrite,
                         testing::Values(key_value_file(), json_file(),
                                         snmp_agent_file(),
                                         access_rules_file()),
                         [](const testing::TestParamInfo<RewriteKind>& info) {
                             return std::string(info.param.name);
                         });

// ---- The text SEL log across its move to the card ---------------------------

constexpr off_t kSelLogLimit = 8L * 1024 * 1024;
const std::string sel_archive_dir = "/media/card/sellog";

std::string sel_text(uint32_t record)
{
    return "Temperature CPU" + std::to_string(record % 4) +
           " upper critical going high " + std::string(100, '.');
}

std::string sel_line(uint32_t record)
{
    return "#" + std::to_string(record) + " 3 " + sel_text(record) + "\r\n";
}

// Where the live log sits: beside the card on one file system, where the
// move is a rename, or on a file system of its own, where it is a copy.
struct SelLogPlace
{
    const char* name;
    std::string dir;
    // A kill between the copy's rename and the removal of the live file
    // leaves the live file whole beside its archived copy.
    bool copies;
};

void PrintTo(const SelLogPlace& place, std::ostream* out)
{
    *out << place.name;
}

class SelRollover : public testing::TestWithParam<SelLogPlace>
{
  protected:
    void SetUp() override
    {
        void* shared =
            ::mmap(nullptr, sizeof(std::atomic<uint32_t>),
                   PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(shared, MAP_FAILED);
        done_ = new (shared) std::atomic<uint32_t>(0);
    }
    void TearDown() override
    {
        ::munmap(done_, sizeof *done_);
    }

    std::string live() const
    {
        return GetParam().dir + "/sel.log";
    }

    // A live log of whole lines, some lines short of the limit; returns the
    // last record in it.
    uint32_t prefill()
    {
        std::filesystem::remove_all(GetParam().dir);
        std::filesystem::remove_all(sel_archive_dir);
        make_dirs(GetParam().dir);
        make_dirs(sel_archive_dir);
        std::string text;
        uint32_t record = 0;
        while (text.size() + 30 * sel_line(record).size() <
               static_cast<size_t>(kSelLogLimit))
        {
            text += sel_line(++record);
        }
        write_text(live(), text);
        done_->store(record);
        return record;
    }

    // Appends records after `from`, one second apart so that every move
    // gets an archive of its own, telling each one done.
    pid_t start_writer(uint32_t from, uint32_t count)
    {
        const pid_t pid = ::fork();
        if (pid == 0)
        {
            for (uint32_t record = from + 1; record <= from + count; ++record)
            {
                if (save_sel_to_file(record, 1700000000 + record, 3,
                                     sel_text(record).c_str(),
                                     GetParam().dir.c_str()) != 0)
                {
                    ::_exit(1);
                }
                done_->store(record);
            }
            ::_exit(0);
        }
        return pid;
    }

    std::atomic<uint32_t>* done_ = nullptr;
};

// The archives in order, then the live log: every record told done is there
// whole, once and in order; the one being written may follow, whole or cut
// at the end of the live log. A scratch copy cut by the kill may be left on
// the card under a name no archive has.
TEST_P(SelRollover, KilledWriterLosesNoLineAcrossTheMove)
{
    const std::regex archive_name("sel-[0-9]{14}\\.log");
    const std::regex scratch_name("sel-[0-9]{14}\\.log_[0-9]+");

    // An undisturbed writer crosses the limit and goes on a little.
    uint32_t first = prefill();
    const auto started = std::chrono::steady_clock::now();
    int status = 0;
    const pid_t undisturbed = start_writer(first, 60);
    ASSERT_EQ(undisturbed, ::waitpid(undisturbed, &status, 0));
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    const long crossing = std::chrono::duration_cast<std::chrono::microseconds>(
                              std::chrono::steady_clock::now() - started)
                              .count();
    ASSERT_EQ(1u, names_in(sel_archive_dir).size());

    std::random_device seed_source;
    const unsigned seed = seed_source();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    // The kills are spread over twice the undisturbed writer's time, one
    // per twelfth with a random point in it: the first half lands before,
    // during and just after the move, the second half surely after it, even
    // on a machine (or an emulator) slower than the undisturbed run showed.
    constexpr int kRounds = 12;
    std::uniform_real_distribution<double> within(0.0, 1.0);
    int moved = 0;
    for (int kill_round = 0; kill_round < kRounds; ++kill_round)
    {
        const auto delay = std::chrono::microseconds(static_cast<long>(
            2.0 * crossing * (kill_round + within(random)) / kRounds));
        SCOPED_TRACE("kill round " + std::to_string(kill_round));
        first = prefill();
        const pid_t writer = start_writer(first, 1000000);
        ASSERT_GT(writer, 0);
        std::this_thread::sleep_for(delay);
        ::kill(writer, SIGKILL);
        ASSERT_EQ(writer, ::waitpid(writer, &status, 0));
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself";
        const uint32_t done = done_->load();

        std::vector<std::string> parts;
        int scratches = 0;
        for (const std::string& name : names_in(sel_archive_dir))
        {
            if (std::regex_match(name, archive_name))
            {
                parts.push_back(
                    read_text(sel_archive_dir + "/" + name).value_or(""));
            }
            else
            {
                EXPECT_TRUE(GetParam().copies &&
                            std::regex_match(name, scratch_name))
                    << name;
                ++scratches;
            }
        }
        EXPECT_LE(scratches, 1);
        moved += parts.empty() ? 0 : 1;
        const std::string live_text = read_text(live()).value_or("");
        if (!(GetParam().copies && !parts.empty() && live_text == parts.back()))
        {
            parts.push_back(live_text);
        }

        uint32_t record = 0;
        for (size_t part = 0; part < parts.size(); ++part)
        {
            std::string_view text = parts[part];
            while (!text.empty())
            {
                const std::string expected = sel_line(++record);
                if (!text.starts_with(expected))
                {
                    // Only the line being written, at the very end.
                    EXPECT_TRUE(part + 1 == parts.size() &&
                                record == done + 1 &&
                                expected.starts_with(text))
                        << "record " << record << " of part " << part;
                    --record;
                    break;
                }
                text.remove_prefix(expected.size());
            }
        }
        EXPECT_GE(record, done);
        EXPECT_LE(record, done + 1);
    }
    // Kills before the move would prove little.
    EXPECT_GE(moved, 3);
}

INSTANTIATE_TEST_SUITE_P(
    BothFileSystems, SelRollover,
    testing::Values(SelLogPlace{"beside_the_card", "/media/sel", false},
                    SelLogPlace{"own_file_system", "/var/log/sel", true}),
    [](const testing::TestParamInfo<SelLogPlace>& info) {
        return std::string(info.param.name);
    });

} // namespace

// SPDX-License-Identifier: Apache-2.0
// A writer killed anywhere in a rewrite leaves the old or the new file
// whole and at most one scratch file; on a full disk the rewrite fails and
// keeps the old file. The text SEL log loses no line to a kill across its
// move to the card.
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
#include <random>
#include <thread>

namespace
{

using namespace kv::test;
using std::chrono::microseconds;

std::string tag(int round)
{
    return "R" + std::to_string(round) + "Z";
}

// Lines around the value, so that kills land inside the writing.
std::string lines(const std::string& head, const std::string& tail)
{
    std::string text;
    for (int n = 0; n < 400; ++n)
    {
        text += head + std::to_string(n) + tail + "\n";
    }
    return text;
}

long since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration_cast<microseconds>(
               std::chrono::steady_clock::now() - start)
        .count();
}

void wait_killed(pid_t pid, long delay)
{
    std::this_thread::sleep_for(microseconds(delay));
    ::kill(pid, SIGKILL);
    int status = 0;
    EXPECT_EQ(pid, ::waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself";
}

struct Kind
{
    std::string dir, file, scratch; // scratch file names begin so
    std::string before;
    bool (*rewrite)(int round);
    std::string (*marker)(int round);

    std::string path() const
    {
        return dir + "/" + file;
    }
    // Removes the scratch files beside the target and counts them.
    int strays() const
    {
        int n = 0;
        for (const std::string& name : names_in(dir))
        {
            n += name.starts_with(scratch) &&
                 std::filesystem::remove(dir + "/" + name);
        }
        return n;
    }
};

const Kind kinds[] = {
    {"/tmp/crash", "settings.conf", "settings.conf_",
     lines("a", "=" + std::string(120, 'a')) + "key=x\n" +
         lines("z", "=" + std::string(120, 'z')),
     [](int round) {
         return write_conf_value("/tmp/crash/settings.conf", "key",
                                 tag(round).c_str()) == 0;
     },
     tag},
    {"/tmp/crash", "settings.json", "settings.json-", "",
     [](int round) {
         cJSON* root = cJSON_CreateObject();
         cJSON_AddStringToObject(root, "a", std::string(30000, 'a').c_str());
         cJSON_AddStringToObject(root, "value", tag(round).c_str());
         cJSON_AddStringToObject(root, "z", std::string(30000, 'z').c_str());
         const bool ok =
             cjson_file_write(root, "/tmp/crash/settings.json") == 0;
         cJSON_Delete(root);
         return ok;
     },
     tag},
    {"/etc/snmp", "snmpd.conf", "snmpd.conf_",
     lines("# head ", std::string(100, '.')) +
         "com2sec  mynetwork   default   public\n" +
         lines("# tail ", std::string(100, '.')),
     [](int round) { return snmp_community_set(tag(round).c_str()) == 0; },
     tag},
    // Rule 1's network names the round.
    {"/etc/user", "rules", "rules_temp",
     "0,192.168.0.0/16,,,1,\n2,172.16.0.0/12,,,0,\n",
     [](int round) {
         std::string ipv4 = "10." + std::to_string(round / 256) + "." +
                            std::to_string(round % 256) + ".0/24";
         std::string mac;
         return setUserRule(1, ipv4, mac, "", true, "") == 0 &&
                updateFile("/etc/user/rules", 1) == 0;
     },
     [](int round) {
         return "10." + std::to_string(round / 256) + "." +
                std::to_string(round % 256) + ".0/24";
     }},
};

void prepare(const Kind& k)
{
    make_dirs(k.dir);
    if (!k.before.empty())
    {
        write_text(k.path(), k.before);
    }
    ASSERT_TRUE(k.rewrite(0));
}

TEST(RewriteFaults, KilledWriterLeavesTheTargetWhole)
{
    constexpr int kRewrites = 100;
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (const Kind& k : kinds)
    {
        SCOPED_TRACE(k.file);
        prepare(k);
        const std::string text = read_text(k.path()).value_or("");
        const size_t at = text.find(k.marker(0));
        ASSERT_NE(at, std::string::npos) << text;
        const std::string head = text.substr(0, at);
        const std::string tail = text.substr(at + k.marker(0).size());
        // The round the file holds whole, or -1.
        const auto held = [&] {
            const std::string now = read_text(k.path()).value_or("");
            if (now.size() < head.size() + tail.size() ||
                !now.starts_with(head) || !now.ends_with(tail))
            {
                return -1;
            }
            const std::string value =
                now.substr(head.size(), now.size() - head.size() - tail.size());
            for (int round = 0; round <= 100 * kRewrites; ++round)
            {
                if (value == k.marker(round))
                {
                    return round;
                }
            }
            return -1;
        };

        // An undisturbed run times one rewrite.
        const auto started = std::chrono::steady_clock::now();
        ASSERT_EQ(0, exit_status_of([&] {
                      for (int round = 1; round <= kRewrites; ++round)
                      {
                          if (!k.rewrite(round))
                          {
                              return 1;
                          }
                      }
                      return 0;
                  }));
        const long rewrite = since(started) / kRewrites;
        ASSERT_EQ(held(), kRewrites);

        // Each kill lands within ten rewrites after the writer's first.
        for (int kill = 0; kill < 20; ++kill)
        {
            ASSERT_TRUE(k.rewrite(0));
            int ready[2];
            ASSERT_EQ(::pipe(ready), 0);
            const pid_t writer = ::fork();
            if (writer == 0)
            {
                for (int round = 1;; ++round)
                {
                    if (!k.rewrite(round) ||
                        (round == 1 && ::write(ready[1], "r", 1) != 1))
                    {
                        ::_exit(1);
                    }
                }
            }
            ::close(ready[1]);
            char byte = 0;
            EXPECT_EQ(::read(ready[0], &byte, 1), 1);
            ::close(ready[0]);
            wait_killed(writer, random() % (10 * rewrite + 1));
            EXPECT_GT(held(), 0) << "kill " << kill;
            EXPECT_LE(k.strays(), 1) << "kill " << kill;
        }
    }
}

TEST(RewriteFaults, FullDiskFailsAndKeepsTheOldFile)
{
    for (const Kind& k : kinds)
    {
        SCOPED_TRACE(k.file);
        prepare(k);
        const std::string before = read_text(k.path()).value_or("");
        // Room for the file and little more, then filled.
        const std::string size = "size=" + std::to_string(before.size() + 8192);
        ASSERT_EQ(::mount("tmpfs", k.dir.c_str(), "tmpfs", 0, size.c_str()), 0);
        write_text(k.path(), before);
        const int fd =
            ::open((k.dir + "/fill").c_str(), O_WRONLY | O_CREAT, 0600);
        const std::string block(4096, 'f');
        while (::write(fd, block.data(), block.size()) > 0)
        {}
        ::close(fd);
        EXPECT_FALSE(k.rewrite(1));
        EXPECT_EQ(read_text(k.path()), before);
        EXPECT_EQ(k.strays(), 0);
        ::umount2(k.dir.c_str(), MNT_DETACH);
    }
}

// The live log beside the card (the move is a rename) or on a file system
// of its own (a copy, whose kill may leave the live file beside its copy).
TEST(RewriteFaults, KilledSelWriterLosesNoLineAcrossTheMove)
{
    const std::string card = "/media/card/sellog";
    const auto text = [](uint32_t n) {
        return "Temperature CPU" + std::to_string(n % 4) +
               " upper critical going high " + std::string(100, '.');
    };
    const auto line = [&](uint32_t n) {
        return "#" + std::to_string(n) + " 3 " + text(n) + "\r\n";
    };
    void* shared = ::mmap(nullptr, 4, PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto* done = new (shared) std::atomic<uint32_t>(0);
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);

    for (const bool copies : {false, true})
    {
        const std::string dir = copies ? "/var/log/sel" : "/media/sel";
        SCOPED_TRACE(dir);
        // A live log some lines short of the 8 MiB limit; its last record.
        const auto prefill = [&] {
            std::filesystem::remove_all(dir);
            std::filesystem::remove_all(card);
            make_dirs(dir);
            make_dirs(card);
            std::string log;
            uint32_t n = 0;
            while (log.size() + 30 * line(n).size() < 8u << 20)
            {
                log += line(++n);
            }
            write_text(dir + "/sel.log", log);
            done->store(n);
            return n;
        };
        // Appends records after n, one a second, telling each one done.
        const auto start = [&](uint32_t n, uint32_t count) {
            const pid_t pid = ::fork();
            if (pid == 0)
            {
                for (const uint32_t end = n + count; n < end;)
                {
                    ++n;
                    if (save_sel_to_file(n, 1700000000 + n, 3, text(n).c_str(),
                                         dir.c_str()) != 0)
                    {
                        ::_exit(1);
                    }
                    done->store(n);
                }
                ::_exit(0);
            }
            return pid;
        };

        // An undisturbed writer crosses the limit and goes on a little.
        uint32_t n = prefill();
        const auto started = std::chrono::steady_clock::now();
        int status = 0;
        const pid_t first = start(n, 60);
        ASSERT_EQ(first, ::waitpid(first, &status, 0));
        ASSERT_EQ(status, 0);
        const long crossing = since(started);
        ASSERT_EQ(1u, names_in(card).size());

        // Kills spread over twice that time: before, during and after the
        // move, even on a slower machine.
        int moved = 0;
        for (int kill = 0; kill < 12; ++kill)
        {
            SCOPED_TRACE("kill " + std::to_string(kill));
            n = prefill();
            wait_killed(start(n, 1000000),
                        long(crossing * (kill + random() % 1000 / 1e3) / 6));
            const uint32_t last = done->load();
            // The archives in order, then the live log, a NUL between.
            std::string all;
            std::string archive;
            int scratches = 0;
            for (const std::string& name : names_in(card))
            {
                if (name.size() == 22 && name.ends_with(".log"))
                {
                    archive = read_text(card + "/" + name).value_or("");
                    all += archive + '\0';
                    continue;
                }
                EXPECT_TRUE(copies && name.find(".log_") == 18) << name;
                ++scratches;
            }
            EXPECT_LE(scratches, 1);
            moved += !all.empty();
            const std::string live = read_text(dir + "/sel.log").value_or("");
            // A killed copy may leave the live log beside its archive.
            if (!copies || all.empty() || live != archive)
            {
                all += live;
            }
            // Every record told done is there whole, once and in order; the
            // one being written may follow, cut, at the very end.
            std::string_view rest = all;
            n = 0;
            for (std::string next = line(1);
                 rest.starts_with('\0') || rest.starts_with(next);)
            {
                if (rest[0] == '\0')
                {
                    rest.remove_prefix(1);
                    continue;
                }
                rest.remove_prefix(next.size());
                next = line(++n + 1);
            }
            EXPECT_TRUE(n == last || n == last + 1) << n << " of " << last;
            EXPECT_TRUE(rest.empty() ||
                        (n == last && line(n + 1).starts_with(rest)))
                << "after record " << n;
        }
        EXPECT_GE(moved, 3); // kills before the move would prove little
    }
    ::munmap(shared, 4);
}

} // namespace

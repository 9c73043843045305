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
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace
{

using namespace kv::test;
using std::string;

// The last round a writer finished, shared with it.
auto* const done =
    new (::mmap(nullptr, 4, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                -1, 0)) std::atomic<uint32_t>;

// Runs write(1), write(2) ... in a child, telling each one done, and kills
// it `us` microseconds after write(first) returned, which took the
// microseconds returned.
long kill_writer(const std::function<bool(uint32_t)>& write, uint32_t first,
                 long us)
{
    using namespace std::chrono;
    done->store(0);
    const auto start = steady_clock::now();
    const pid_t pid = ::fork();
    for (uint32_t n = 1; pid == 0; done->store(n++))
    {
        if (!write(n))
        {
            ::_exit(1);
        }
    }
    while (done->load() < first && ::waitpid(pid, nullptr, WNOHANG) == 0)
    {
        std::this_thread::yield();
    }
    const auto took = steady_clock::now() - start;
    std::this_thread::sleep_for(microseconds(us));
    ::kill(pid, SIGKILL);
    int status = 0;
    ::waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself";
    return duration_cast<microseconds>(took).count();
}

// What round `r` writes: rule 1's network for the rules, else any value.
string tag(int r)
{
    return "10." + std::to_string(r / 256) + "." + std::to_string(r % 256) +
           ".0/24";
}

// Lines around the value, so that kills land inside the writing.
const string pad = [] {
    string text;
    for (int n = 0; n < 400; ++n)
    {
        text += "#" + string(110, '.') + "\n";
    }
    return text;
}();

struct Kind
{
    string dir, file, before;
    bool (*rewrite)(int round);
};

const Kind kinds[] = {
    {"/tmp/crash", "settings.conf", pad + "key=x\n" + pad,
     [](int r) {
         return write_conf_value("/tmp/crash/settings.conf", "key",
                                 tag(r).c_str()) == 0;
     }},
    {"/tmp/crash", "settings.json", "",
     [](int r) {
         cJSON* root = cJSON_CreateObject();
         cJSON_AddStringToObject(root, "a", pad.c_str());
         cJSON_AddStringToObject(root, "value", tag(r).c_str());
         cJSON_AddStringToObject(root, "z", pad.c_str());
         const int result = cjson_file_write(root, "/tmp/crash/settings.json");
         cJSON_Delete(root);
         return result == 0;
     }},
    {"/etc/snmp", "snmpd.conf",
     pad + "com2sec  mynetwork   default   public\n" + pad,
     [](int r) { return snmp_community_set(tag(r).c_str()) == 0; }},
    {"/etc/user", "rules", "0,192.168.0.0/16,,,1,\n2,172.16.0.0/12,,,0,\n",
     [](int r) {
         string ipv4 = tag(r), mac;
         return setUserRule(1, ipv4, mac, "", true, "") == 0 &&
                updateFile("/etc/user/rules", 1) == 0;
     }},
};

// Killed, a writer leaves the target whole; on a full disk, as it was.
TEST(RewriteFaults, KilledOrFullDiskRewriteLeavesTheTargetWhole)
{
    constexpr int kKills = 10;
    for (const Kind& k : kinds)
    {
        SCOPED_TRACE(k.file);
        const string path = k.dir + "/" + k.file;
        // Removes the scratch files (named after the target) and counts them.
        const auto strays = [&] {
            int n = 0;
            for (const string& name : names_in(k.dir))
            {
                n += name != k.file && name.starts_with(k.file) &&
                     std::filesystem::remove(k.dir + "/" + name);
            }
            return n;
        };
        std::filesystem::remove_all(k.dir);
        write_text(path, k.before);
        ASSERT_TRUE(k.rewrite(0));
        const string text = *read_text(path);
        const size_t at = text.find(tag(0));
        const auto holds = [&](int r) {
            return read_text(path) == text.substr(0, at) + tag(r) +
                                          text.substr(at + tag(0).size());
        };

        // The first run times 20 rewrites; then kills spread over the two
        // rewrites after the writer's first.
        long rewrite = 0;
        for (int kill = 0; kill <= kKills; ++kill)
        {
            SCOPED_TRACE(kill);
            ASSERT_TRUE(k.rewrite(0));
            const long took = kill_writer(k.rewrite, kill ? 1 : 20,
                                          rewrite * (2 * kill - 1) / kKills);
            rewrite = kill ? rewrite : took / 20;
            // The round the writer finished, or the next one whole.
            const int round = done->load();
            EXPECT_TRUE(holds(round) || holds(round + 1));
            EXPECT_LE(strays(), 1);
        }

        // Room for the file and little more, then filled.
        const string size = "size=" + std::to_string(text.size() + 8192);
        ASSERT_EQ(::mount("tmpfs", k.dir.c_str(), "tmpfs", 0, size.c_str()), 0);
        write_text(path, text);
        const int fd =
            ::open((k.dir + "/fill").c_str(), O_WRONLY | O_CREAT, 0600);
        while (::write(fd, size.data(), size.size()) > 0)
        {}
        ::close(fd);
        EXPECT_FALSE(k.rewrite(1));
        EXPECT_TRUE(holds(0));
        EXPECT_EQ(strays(), 0);
        ::umount2(k.dir.c_str(), MNT_DETACH);
    }
}

// The live log beside the card (the move is a rename) or on a file system
// of its own (a copy, whose kill may leave the live file beside its copy).
TEST(RewriteFaults, KilledSelWriterLosesNoLineAcrossTheMove)
{
    constexpr int kKills = 8;
    const string card = "/media/card/sellog";
    const char* text = "Temperature CPU0 upper critical going high ........";
    const auto line = [&](uint32_t n) {
        return "#" + std::to_string(n) + " 3 " + text + "\r\n";
    };
    // A live log some lines short of the 8 MiB limit.
    string full;
    uint32_t last = 0;
    while (full.size() + 30 * line(last).size() < 8u << 20)
    {
        full += line(++last);
    }
    for (const bool copies : {false, true})
    {
        const string dir = copies ? "/var/log/sel" : "/media/sel";
        SCOPED_TRACE(dir);
        const auto append = [&](uint32_t n) {
            return save_sel_to_file(last + n, 1700000000 + n, 3, text,
                                    dir.c_str()) == 0;
        };

        // The first writer crosses the limit and goes on a little; the
        // others are killed over twice its time: before, during and after
        // the move, even on a slower machine.
        long crossing = 0;
        int moved = 0;
        for (int kill = 0; kill <= kKills; ++kill)
        {
            SCOPED_TRACE(kill);
            std::filesystem::remove_all(dir);
            std::filesystem::remove_all(card);
            make_dirs(card);
            write_text(dir + "/sel.log", full);
            const long took = kill_writer(append, kill ? 1 : 60,
                                          crossing * (2 * kill - 1) / kKills);
            crossing = kill ? crossing : took;
            const uint32_t told = last + done->load();
            // The archives in order, then the live log.
            string all, archive;
            int scratches = 0;
            for (const string& name : names_in(card))
            {
                if (name.size() == 22 && name.ends_with(".log"))
                {
                    all += archive = *read_text(card + "/" + name);
                    continue;
                }
                // At most one scratch file, left by a killed copy.
                EXPECT_TRUE(copies && name.find(".log_") == 18 && !scratches++)
                    << name;
            }
            moved += !all.empty();
            const string live = read_text(dir + "/sel.log").value_or("");
            // A killed copy may leave the live log beside its archive.
            if (!copies || live != archive)
            {
                all += live;
            }
            // Every record told done is there whole, once and in order; the
            // one being written may follow, cut, at the very end.
            std::string_view rest = all;
            uint32_t n = 0;
            while (rest.starts_with(line(n + 1)))
            {
                rest.remove_prefix(line(++n).size());
            }
            EXPECT_TRUE(n == told || n == told + 1) << n << " of " << told;
            EXPECT_TRUE(rest.empty() ||
                        (n == told && line(n + 1).starts_with(rest)))
                << "after record " << n;
        }
        EXPECT_GE(moved, 4); // kills before the move would prove little
    }
}

} // namespace

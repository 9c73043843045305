// SPDX-License-Identifier: Apache-2.0
// The writer and checker of the power-cut stage, run on the emulated BMC by
// init.sh with the disk mounted at ROOT:
//   powercut_guest ROOT TAG [control|check]
// It first reads, with the library's own readers, what each writer left and
// prints "TAG found NAME GENERATION" (0: never written) or "TAG bad NAME
// WHY", then "TAG loop", then rewrites each file with its next generation
// for ever, printing "TAG wrote NAME GENERATION" only after the call
// returned success. scripts/test_powercut.sh cuts the power and compares.
// "control" loops over a writer that rewrites in place without a sync
// instead: the stage must see it lose data. "check" stops after the check.
#include <libkv/access.h>
#include <libkv/events.h>
#include <libkv/foundation.h>
#include <libkv/fru.h>
#include <libkv/services.h>

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <numeric>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using Generation = unsigned long;

std::string root;
std::string tag;

// A reader's answer: the generation, or why the file is not what a writer
// leaves.
struct Found
{
    Generation generation = 0;
    std::string bad;
};

struct Writer
{
    const char* name;
    std::string file; // what it leaves; generation 0 while that is missing
    std::function<bool(Generation)> write;
    std::function<Found()> read;
};

void say(const char* what, const char* name, const std::string& value)
{
    const std::string line = tag + " " + what + " " + name + " " + value + "\n";
    (void)!::write(STDOUT_FILENO, line.data(), line.size());
}

std::string slurp(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::optional<Generation> number(const std::string& text, size_t from = 0,
                                 int base = 10)
{
    if (from >= text.size())
        return std::nullopt;
    char* end = nullptr;
    const Generation value = std::strtoul(text.c_str() + from, &end, base);
    if (end == text.c_str() + from || *end != '\0')
        return std::nullopt;
    return value;
}

Found found(std::optional<Generation> value, const char* why = "unreadable")
{
    return value ? Found{*value, {}} : Found{0, why};
}

// The last whole record of an appended log; the records before it count
// up one by one. A torn last record (no line end yet) is skipped.
Found last_record(
    const std::string& text, const std::string& end,
    const std::function<std::optional<Generation>(const std::string&)>&
        generation_of)
{
    Found last;
    size_t at = 0;
    for (size_t next; (next = text.find(end, at)) != std::string::npos;
         at = next + end.size())
    {
        // A rolled-over SEL log was made long by a hole of zeros.
        const size_t start = text.find_first_not_of('\0', at);
        const auto generation = generation_of(text.substr(start, next - start));
        if (!generation ||
            (last.generation != 0 && *generation != last.generation + 1))
            return {0, "record after " + std::to_string(last.generation)};
        last.generation = *generation;
    }
    return last;
}

std::string text_of(Generation generation)
{
    return std::to_string(generation);
}

// The privilege store's rule ids are digits 0 to 2: the generation in
// base 3, 16 digits.
std::string base3(Generation generation)
{
    std::string digits(16, '0');
    for (auto d = digits.rbegin(); d != digits.rend(); ++d, generation /= 3)
        *d = char('0' + generation % 3);
    return digits;
}

// Beside the SD card's archive folder, so that the rollover is a rename
// (across file systems it is a copy through the rewrite path).
const std::string kSelDir = "/media/card/sel";
const std::string kActionLog = "/var/BMCInfo/Development/Log/bmc/log_action";
constexpr int kIniRows = 30;
constexpr int kIniProductSerial = 22;
constexpr off_t kSelRollover = 8L * 1024 * 1024;

std::vector<Writer> writers()
{
    const std::string conf = root + "/conf/settings.conf";
    const std::string json = root + "/conf/state.json";
    const std::string mail = root + "/mail/nail.rc";
    const std::string sel = kSelDir + "/sel.log";
    return {
        {"conf", conf,
         [=](Generation g) {
             return write_conf_value(conf.c_str(), "generation",
                                     text_of(g).c_str()) == 0;
         },
         [=] {
             char value[128] = "";
             return found(read_conf_value(conf.c_str(), "generation", value) ==
                                  0
                              ? number(value)
                              : std::nullopt);
         }},
        {"json", json,
         [=](Generation g) {
             cJSON* tree = cJSON_CreateObject();
             cJSON_AddNumberToObject(tree, "generation", double(g));
             const bool done = cjson_file_write(tree, json.c_str()) == 0;
             cJSON_Delete(tree);
             return done;
         },
         [=] {
             cJSON* tree = prepare_parse_json(json.c_str());
             int64_t value = 0;
             const bool ok = tree != nullptr &&
                             cjson_value_get(tree, "generation", KV_JSON_I64,
                                             &value, sizeof value) == 0;
             cJSON_Delete(tree);
             return found(ok ? std::optional<Generation>(Generation(value))
                             : std::nullopt);
         }},
        {"privilege", "/etc/user/privilege",
         [](Generation g) {
             return setUserPrivilege("powercut", "000000000011", base3(g)) ==
                        0 &&
                    updateFile("/etc/user/privilege", 1) == 0;
         },
         [] {
             std::vector<userPrivilege> users;
             std::optional<Generation> value;
             if (getUserPrivilege(users) == 0 && users.size() == 1 &&
                 users[0].username == "powercut")
                 value = number(users[0].ruleid, 0, 3);
             return found(value);
         }},
        {"rules", "/etc/user/rules",
         [](Generation g) {
             std::string ipv4 = "10." + std::to_string(g >> 16 & 255) + "." +
                                std::to_string(g >> 8 & 255) + "." +
                                std::to_string(g & 255) + "/32";
             std::string mac;
             return setUserRule(0, ipv4, mac, "", true, "") == 0 &&
                    updateFile("/etc/user/rules", 1) == 0;
         },
         [] {
             std::vector<userRule> rules;
             unsigned octets[4] = {};
             const bool ok =
                 getUserRule(rules) == 0 && rules.size() == 1 &&
                 std::sscanf(rules[0].ipv4.c_str(), "%u.%u.%u.%u", &octets[0],
                             &octets[1], &octets[2], &octets[3]) == 4;
             return found(ok ? std::optional<Generation>(
                                   octets[1] << 16 | octets[2] << 8 | octets[3])
                             : std::nullopt);
         }},
        {"mail", mail,
         [=](Generation g) {
             MailConfig config{};
             std::snprintf(config.user, sizeof config.user, "%lu", g);
             std::strcpy(config.server, "mail.example.com");
             std::strcpy(config.active, "on");
             return write_email_config(mail.c_str(), &config) == 0;
         },
         [=] {
             MailConfig config{};
             return found(read_email_config(mail.c_str(), &config) == 0
                              ? number(config.user)
                              : std::nullopt);
         }},
        {"snmpd", "/etc/snmp/snmpd.conf",
         [](Generation g) {
             return snmp_community_set(("c" + text_of(g)).c_str()) == 0;
         },
         [] {
             char community[64] = "";
             return found(snmp_community_get(community, sizeof community) == 0
                              ? number(community, 1)
                              : std::nullopt);
         }},
        {"fru", root + "/fru/default-fru.bin",
         [](Generation g) {
             std::snprintf(default_ini[kIniProductSerial],
                           KV_FRU_INI_LINE_BYTES, "SerialNum = \"%012lu\"", g);
             return config_default_ini(default_ini, kIniRows, "fru.ini") == 0 &&
                    create_fru_bin() == 0;
         },
         [] {
             const std::string image = slurp("default-fru.bin");
             if (parse_bin_date(reinterpret_cast<const uint8_t*>(image.data()),
                                int(image.size())) != 0)
                 return Found{0, "unparsable"};
             const kv_fru_field& serial =
                 fru.product.field[KV_FRU_PRODUCT_SERIAL_NUMBER];
             const size_t length = serial.type_len & 0x3F;
             return found(
                 number({reinterpret_cast<const char*>(serial.data), length}));
         }},
        {"sel", kSelDir,
         [=](Generation g) {
             // Every 4th record rolls the log over to the SD card: the log
             // is grown to the limit by a hole first.
             if (g % 4 == 0 && fs::exists(sel) &&
                 fs::file_size(sel) < kSelRollover)
                 fs::resize_file(sel, kSelRollover);
             const std::string text = "generation " + text_of(g);
             return save_sel_to_file(uint32_t(g), uint32_t(1700000000 + g), 0,
                                     text.c_str(), kSelDir.c_str()) == 0;
         },
         [=] {
             std::string log = fs::exists(sel) ? slurp(sel) : "";
             // Right after a rollover the newest record is in the newest
             // archive.
             if (log.find("\r\n") == std::string::npos)
             {
                 std::vector<fs::path> archives;
                 for (const auto& entry :
                      fs::directory_iterator("/media/card/sellog"))
                     archives.push_back(entry.path());
                 std::sort(archives.begin(), archives.end());
                 log = archives.empty() ? "" : slurp(archives.back());
             }
             return last_record(log, "\r\n", [](const std::string& line) {
                 Generation record = 0;
                 Generation generation = 0;
                 char rest = 0;
                 return std::sscanf(line.c_str(), "#%lu 0 generation %lu%c",
                                    &record, &generation, &rest) == 2 &&
                                record == generation
                            ? std::optional<Generation>(record)
                            : std::nullopt;
             });
         }},
        {"log", kActionLog,
         [](Generation g) {
             return log_call(KV_LOG_ACTION, "generation %lu", g) == 0;
         },
         [] {
             return last_record(
                 slurp(kActionLog), "\n", [](const std::string& line) {
                     const size_t at = line.rfind("-generation ");
                     return at == std::string::npos ? std::nullopt
                                                    : number(line, at + 12);
                 });
         }},
    };
}

// Rewritten in place, no sync: what the library must never do.
Writer control()
{
    const std::string path = root + "/control";
    return {"control", path,
            [=](Generation g) {
                const int fd =
                    ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
                const std::string text = text_of(g);
                const bool done =
                    fd >= 0 && ::write(fd, text.data(), text.size()) ==
                                   ssize_t(text.size());
                return ::close(fd) == 0 && done;
            },
            [=] {
                const std::string text = slurp(path);
                return text.empty() ? Found{0, "empty"} : found(number(text));
            }};
}

// The fixed paths the writers use, bound to the disk in a mount namespace
// of this process, so that each file system gets its own.
bool bind_fixed_paths()
{
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return false;
    for (const char* dir :
         {"/etc/snmp", "/etc/user", "/var/BMCInfo", "/media/card"})
    {
        fs::create_directories(root + dir);
        fs::create_directories(dir);
        if (::mount((root + dir).c_str(), dir, nullptr, MS_BIND, nullptr) != 0)
            return false;
    }
    for (const char* dir : {"/conf", "/mail", "/fru"})
        fs::create_directories(root + dir);
    fs::create_directories("/media/card/sellog");
    fs::create_directories(kSelDir);
    fs::create_directories(fs::path(kActionLog).parent_path());
    // The agent's file as installed, with the line the community lives on.
    if (!fs::exists("/etc/snmp/snmpd.conf"))
        std::ofstream("/etc/snmp/snmpd.conf")
            << "com2sec  mynetwork   default   c0\n";
    ::sync();
    return ::chdir((root + "/fru").c_str()) == 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3)
        return 2;
    root = argv[1];
    tag = argv[2];
    if (!bind_fixed_paths())
    {
        say("bad", "setup", std::strerror(errno));
        return 1;
    }
    std::vector<Writer> all = writers();
    all.push_back(control());
    std::vector<Generation> next;
    for (const Writer& writer : all)
    {
        const Found was = fs::exists(writer.file) ? writer.read() : Found{};
        if (was.bad.empty())
            say("found", writer.name, text_of(was.generation));
        else
            say("bad", writer.name, was.bad);
        next.push_back(was.generation + 1);
    }
    const std::string mode = argc > 3 ? argv[3] : "";
    if (mode == "check")
        return 0;
    // The control runs alone, or the others' syncs would save its data
    // too. The others take turns, each boot starting at another writer, so
    // that the cuts land on all of them.
    const bool controlling = mode == "control";
    const size_t writing = all.size() - 1;
    say("loop", "-", "-");
    for (size_t turn = std::accumulate(next.begin(), next.end(), size_t(0));;
         ++turn)
    {
        const size_t i = controlling ? writing : turn % writing;
        if (!all[i].write(next[i]))
        {
            say("bad", all[i].name, "write failed: " + text_of(next[i]));
            return 1;
        }
        say("wrote", all[i].name, text_of(next[i]++));
        // A daemon saves a setting and goes on with other work: a pause of
        // up to 0.1 s after a reported write, where a cut finds out whether
        // the write was on the disk when it was reported. The control keeps
        // writing, so that the last commit is always behind its last write.
        if (!controlling)
            ::usleep(useconds_t(std::rand() % 100) * 1000);
    }
}

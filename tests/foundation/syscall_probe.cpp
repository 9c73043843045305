// SPDX-License-Identifier: Apache-2.0
// Runs one call of the library between two marker writes to descriptor -1,
// so that a trace of this process shows exactly the system calls that call
// makes. The files it works on are prepared, and the call made once, before
// the first marker: what is counted is the call as a daemon makes it day in,
// day out. Usage: syscall_probe CALL
#include <libkv/events.h>
#include <libkv/foundation.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <string>

namespace
{

constexpr const char* kConf = "/tmp/probe.conf";

void marker(const char* text)
{
    // Fails with EBADF, and shows in the trace as write(-1, "<text>", ...).
    [[maybe_unused]] const auto ignored = ::write(-1, text, std::strlen(text));
}

void settings_file()
{
    std::FILE* file = std::fopen(kConf, "w");
    for (int i = 0; i < 30; ++i)
    {
        std::fprintf(file, "key_%d=value %d\n", i, i);
    }
    std::fclose(file);
}

void log_error_line()
{
    log_call(KV_LOG_ERROR,
             "i2c rw data failed bus=%u, address=%u offset=%u. %s:%d %s", 3u,
             99u, 0u, "probe", 1, "main");
}

// A hundred SEL records to text, with the zone taken from /etc/localtime.
void hundred_sel_texts()
{
    const uint8_t rec[16] = {0x21, 0x00, 0x02, 0xE1, 0xA2, 0xFF, 0x4E, 0x20,
                             0x00, 0x04, 0x01, 0x05, 0x01, 0x59, 87,   85};
    SensorRecord sensor;
    std::memset(&sensor, 0, sizeof sensor);
    std::strcpy(sensor.name, "CPU0 Temp");
    for (int i = 0; i < 100; ++i)
    {
        char out[256] = "";
        web_parse_sel_entry(rec, 0, sensor, out);
    }
}

struct Probe
{
    std::function<void()> prepare;
    std::function<void()> call;
};

const std::map<std::string, Probe>& probes()
{
    static const std::map<std::string, Probe> all = {
        {"log_call",
         {[] {
              std::filesystem::create_directories(
                  "/run/BMCInfo/Development/Log/bmc");
              log_error_line(); // creates the file
          },
          log_error_line}},
        {"read_conf_value",
         {settings_file,
          [] {
              char value[128];
              read_conf_value(kConf, "key_20", value);
          }}},
        {"write_conf_value",
         {settings_file, [] { write_conf_value(kConf, "key_20", "changed"); }}},
        {"web_parse_sel_entry_x100",
         {[] {
              unsetenv("TZ");
              hundred_sel_texts();
          },
          hundred_sel_texts}},
        {"write_conf_value_unchanged",
         {settings_file,
          [] { write_conf_value(kConf, "key_20", "value 20"); }}},
    };
    return all;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2 || probes().count(argv[1]) == 0)
    {
        std::fprintf(stderr, "usage: syscall_probe CALL\n");
        return 2;
    }
    const Probe& probe = probes().at(argv[1]);
    probe.prepare();
    std::fflush(stdout);
    marker("begin");
    probe.call();
    marker("end");
    return 0;
}

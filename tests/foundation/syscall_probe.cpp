// SPDX-License-Identifier: Apache-2.0
// Runs one call of the library between two marker writes to descriptor -1,
// so that a trace of this process shows exactly the system calls that call
// makes. The files it works on are prepared, and the call made once, before
// the first marker: what is counted is the call as a daemon makes it day in,
// day out. Usage: syscall_probe CALL
#include <libkv/events.h>
#include <libkv/foundation.h>

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>

int main(int argc, char** argv)
{
    const std::string call = argc == 2 ? argv[1] : "";
    const char* conf = "/tmp/probe.conf";
    std::FILE* file = std::fopen(conf, "w");
    for (int i = 0; i < 30; ++i)
        std::fprintf(file, "key_%d=value %d\n", i, i);
    std::fclose(file);
    std::filesystem::create_directories("/run/BMCInfo/Development/Log/bmc");
    unsetenv("TZ"); // the zone comes from /etc/localtime
    const uint8_t rec[16] = {0x21, 0, 2, 0xE1, 0xA2, 0xFF, 0x4E, 0x20,
                             0,    4, 1, 5,    1,    0x59, 87,   85};
    SensorRecord sensor{};
    std::strcpy(sensor.name, "CPU0 Temp");
    char text[256];
    for (const char* marker : {"prep-", "begin"})
    {
        std::fflush(stdout);
        // Fails with EBADF, and shows in the trace as write(-1, "<text>", ...).
        [[maybe_unused]] auto ignored = ::write(-1, marker, 5);
        const bool change = marker[0] == 'b' && call == "write_conf_value";
        if (call == "log_call")
            log_call(KV_LOG_ERROR, "i2c rw data failed bus=%u. %s:%d %s", 3u,
                     "probe", 1, "main");
        else if (call == "save_sel_to_file")
            save_sel_to_file(1, 0, 2, "probe", "/tmp");
        else if (call == "read_conf_value")
            read_conf_value(conf, "key_20", text);
        else if (call.starts_with("write_conf_value"))
            write_conf_value(conf, "key_20", change ? "changed" : "value 20");
        else if (call == "web_parse_sel_entry_x100")
            for (int i = 0; i < 100; ++i)
            {
                text[0] = '\0'; // the text is appended to
                web_parse_sel_entry(rec, 0, sensor, text);
            }
        else
            return 2;
    }
    [[maybe_unused]] auto ignored = ::write(-1, "end", 3);
}

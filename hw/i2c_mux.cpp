// SPDX-License-Identifier: Apache-2.0
// PCA9546 channel selection and the bus numbers of multiplexer channels.
#include <libkv/foundation.h>
#include <libkv/hw.h>

#include <sys/klog.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace
{

constexpr const char* kKernelLogCapture = "/var/run/obmcinfo/i2c_dmesg";
constexpr int kSyslogActionReadAll = 3;
constexpr int kSyslogActionSizeBuffer = 10;

// The kernel log as dmesg prints it by default: one line per message,
// without the "<level>" prefix of the raw ring buffer.
std::string kernel_log()
{
    const int size = klogctl(kSyslogActionSizeBuffer, nullptr, 0);
    if (size <= 0)
    {
        return {};
    }
    std::string raw(static_cast<size_t>(size), '\0');
    const int got = klogctl(kSyslogActionReadAll, raw.data(), size);
    raw.resize(got > 0 ? static_cast<size_t>(got) : 0);

    std::string text;
    std::istringstream lines(raw);
    for (std::string line; std::getline(lines, line);)
    {
        if (line.size() > 2 && line[0] == '<')
        {
            const size_t end = line.find('>');
            if (end != std::string::npos)
            {
                line.erase(0, end + 1);
            }
        }
        text += line + '\n';
    }
    return text;
}

// The kernel log is captured once, kept to its I2C lines, and reused by
// every later lookup until the BMC restarts.
void capture_kernel_log_once()
{
    if (file_existed(kKernelLogCapture))
    {
        return;
    }
    std::string i2c_lines;
    std::istringstream lines(kernel_log());
    for (std::string line; std::getline(lines, line);)
    {
        if (line.find("i2c") != std::string::npos)
        {
            i2c_lines += line + '\n';
        }
    }
    write_file_str_truncate(kKernelLogCapture, i2c_lines.c_str());
}

// Field `n` (from 1) of `text` split at `sep`; the whole text when it holds
// no separator at all.
std::string_view field(std::string_view text, char sep, int n)
{
    if (text.find(sep) == std::string_view::npos)
    {
        return text;
    }
    for (int i = 1; i < n; ++i)
    {
        const size_t at = text.find(sep);
        if (at == std::string_view::npos)
        {
            return {};
        }
        text.remove_prefix(at + 1);
    }
    return text.substr(0, text.find(sep));
}

// Line `channel` of the captured lines that mention the parent bus is taken
// as the announcement of that channel's adapter, "... i2c-13: Added
// multiplexed i2c bus 16"; the number after the first 's' is its bus. A
// capture that could not be made holds no such line: 0, as for a line number
// beyond the matches.
int bus_from_capture(int bus, int channel)
{
    std::ifstream capture(kKernelLogCapture);
    const std::string parent = "i2c-" + std::to_string(bus);
    int seen = 0;
    for (std::string line; std::getline(capture, line);)
    {
        if (line.find(parent) != std::string::npos && ++seen == channel)
        {
            const std::string number(field(field(line, 's', 2), ' ', 2));
            return std::atoi(number.c_str());
        }
    }
    return 0;
}

} // namespace

extern "C" int set_9546switch(uint8_t bus, uint8_t mux_addr, uint8_t channel)
{
    const uint8_t enable = channel >= 1 && channel <= 8
                               ? static_cast<uint8_t>(1u << (channel - 1))
                               : 0;
    const uint8_t command[] = {0x00, enable};
    return i2cSendRecvMsg(0, bus, mux_addr, command, sizeof command, nullptr, 0,
                          3, 0);
}

extern "C" int CmmFunGetI2CExtBus(int bus, int channel)
{
    char map_file[64];
    std::snprintf(map_file, sizeof map_file, "/var/run/obmcinfo/i2c/i2c-%d-%d",
                  bus, channel);
    if (file_existed(map_file))
    {
        return read_file_value(map_file);
    }
    capture_kernel_log_once();
    return bus_from_capture(bus, channel);
}

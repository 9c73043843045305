// SPDX-License-Identifier: Apache-2.0
// Board signals through sysfs: GPIO export, direction and value, and the
// memory fault LEDs. Each call writes one line into one sysfs file, the same
// bytes `echo` would, but without a shell: a direction text is the caller's
// data and is never run.
#include "foundation/resources.h"

#include <libkv/hw.h>

#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace
{

const std::string gpio_root = "/sys/class/gpio";

std::string gpio_dir(int gpio)
{
    return gpio_root + "/gpio" + std::to_string(gpio);
}

// Writes `text` and a newline into `path` as one write, the way sysfs
// attributes expect it. True when the file took the whole line.
bool write_line(const std::string& path, std::string_view text)
{
    kv::detail::UniqueFile file = kv::detail::open_file(path.c_str(), "we");
    if (!file)
    {
        return false;
    }
    // Unbuffered, so a value the attribute refuses fails this write.
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    std::string line(text);
    line += '\n';
    const bool written =
        std::fwrite(line.data(), 1, line.size(), file.get()) == line.size();
    const bool closed = std::fclose(file.release()) == 0;
    return written && closed;
}

int status_of(bool written)
{
    return written ? 0 : -1;
}

} // namespace

extern "C" int enable_gpio(int gpio)
{
    return status_of(write_line(gpio_root + "/export", std::to_string(gpio)));
}

extern "C" int set_gpio_direction(int gpio, const char* direction)
{
    if (direction == nullptr)
    {
        return -1;
    }
    const std::string dir = gpio_dir(gpio);
    if (::access(dir.c_str(), F_OK) != 0)
    {
        // The direction write below tells whether the export worked.
        enable_gpio(gpio);
    }
    return status_of(write_line(dir + "/direction", direction));
}

extern "C" int write_gpio(int gpio, int value)
{
    return status_of(
        write_line(gpio_dir(gpio) + "/value", std::to_string(value)));
}

extern "C" int CmmFunMemFaultLed(uint8_t cpu, uint8_t dimm, uint8_t module,
                                 uint8_t brightness)
{
    // A board without this DIMM's LED has nothing to light: not an error.
    write_line("/sys/devices/platform/leds/leds/cpu" + std::to_string(cpu) +
                   "_dimm" + std::to_string(dimm) + "_m" +
                   std::to_string(module) + "/brightness",
               std::to_string(brightness));
    return 0;
}

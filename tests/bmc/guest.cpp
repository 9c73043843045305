// SPDX-License-Identifier: Apache-2.0
#include "guest.h"

#include "foundation/resources.h"
#include "ipc/platform_segment.h"

#include <libkv/hw.h>
#include <libkv/ipc.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace kv::bmc
{

std::string first_line(const std::string& path)
{
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

bool write_sysfs(const std::string& path, const std::string& text)
{
    const int fd = ::open(path.c_str(), O_WRONLY);
    if (fd < 0)
    {
        return false;
    }
    const bool taken = ::write(fd, text.data(), text.size()) ==
                       static_cast<ssize_t>(text.size());
    ::close(fd);
    return taken;
}

std::string client_name(int bus, uint8_t address)
{
    char name[16];
    std::snprintf(name, sizeof name, "%d-%04x", bus, address);
    return name;
}

int kernel_channel_bus(int channel)
{
    std::error_code error;
    const std::filesystem::path target = std::filesystem::read_symlink(
        "/sys/bus/i2c/devices/" + client_name(kMuxBus, kMux) + "/channel-" +
            std::to_string(channel),
        error);
    const std::string name = target.filename().string();
    return error || !name.starts_with("i2c-") ? -1 : std::stoi(name.substr(4));
}

std::vector<uint8_t> read_driver_eeprom(const std::string& client, long offset,
                                        size_t count)
{
    std::ifstream in("/sys/bus/i2c/devices/" + client + "/eeprom",
                     std::ios::binary);
    std::vector<uint8_t> bytes(count);
    in.seekg(offset);
    in.read(reinterpret_cast<char*>(bytes.data()), static_cast<long>(count));
    bytes.resize(static_cast<size_t>(in.gcount()));
    return bytes;
}

bool write_driver_eeprom(const std::string& client, long offset,
                         const std::vector<uint8_t>& bytes)
{
    const int fd = ::open(
        ("/sys/bus/i2c/devices/" + client + "/eeprom").c_str(), O_WRONLY);
    if (fd < 0)
    {
        return false;
    }
    const bool written = ::pwrite(fd, bytes.data(), bytes.size(), offset) ==
                         static_cast<ssize_t>(bytes.size());
    ::close(fd);
    return written;
}

void publish_fru_device(int id, const kv_fru_device& device)
{
    auto* segment = static_cast<uint8_t*>(init_shm());
    ASSERT_NE(nullptr, segment);
    std::memcpy(segment + kv::segment::fru_descriptor(id), &device,
                sizeof device);
}

kv_fru_device fru_device(uint8_t method, int bus, uint8_t address,
                         unsigned size, unsigned base, int channel)
{
    kv_fru_device d{};
    d.method = method;
    d.size[0] = static_cast<uint8_t>(size);
    d.size[1] = static_cast<uint8_t>(size >> 8);
    d.behind_mux = channel >= 0 ? 1 : 0;
    d.mux_channel = static_cast<uint8_t>(channel >= 0 ? channel : 0);
    d.mux_address = channel >= 0 ? kMux : 0;
    d.offset_width = 2;
    d.bus = static_cast<uint8_t>(bus);
    d.address = address;
    d.base[0] = static_cast<uint8_t>(base);
    d.base[1] = static_cast<uint8_t>(base >> 8);
    return d;
}

bool mux_takes_two_byte_selection()
{
    kv::detail::UniqueFd bus(i2c_open(kMuxBus));
    const uint8_t none[] = {0x00};
    const uint8_t second[] = {0x00, 0x02};
    uint8_t byte = 0;
    return i2c_rw_data(bus.get(), kMux, none, 1, nullptr, 0) == 1 &&
           i2c_rw_data(bus.get(), kMux, second, 2, nullptr, 0) == 1 &&
           i2c_read_data(bus.get(), kChannel1Eeprom, 0, 2, &byte, 1) == 2;
}

std::vector<uint8_t> pattern(size_t count, uint8_t seed)
{
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i)
    {
        bytes[i] = static_cast<uint8_t>(seed + 7 * i) & 0x7F;
    }
    return bytes;
}

} // namespace kv::bmc

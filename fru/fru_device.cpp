// FRU images on their devices: raw I2C transfers or the EEPROM driver's
// sysfs file, multiplexer channels taken through the channel locks of the
// platform segment, 8-byte chunks paced for the parts' write cycles.
#include "foundation/pause.h"
#include "foundation/resources.h"
#include "fru/fru_device_table.h"

#include <libkv/foundation.h>
#include <libkv/fru.h>
#include <libkv/hw.h>
#include <libkv/ipc.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

int deviceid;

namespace
{

using kv::detail::fru_device_base;
using kv::detail::fru_device_size;
using kv::detail::pause_microseconds;

constexpr int kSysfsAttempts = 5;
constexpr long kSysfsRetryMicroseconds = 100000;
constexpr int kByteWriteAttempts = 5;
constexpr int kChunk = 8;
constexpr long kChunkMicroseconds = 10000;
constexpr int kWordAddressed = 2;

int request_channel(const kv_fru_device& d, int bus_fd, int take)
{
    return switch_channel_request(bus_fd, d.bus, d.mux_channel, d.mux_address,
                                  take);
}

unsigned register_of(const kv_fru_device& d, uint16_t offset)
{
    return (fru_device_base(d) + offset) & 0xFFFF;
}

// The EEPROM driver's file; behind a multiplexer it hangs below the
// channel's own bus.
std::string sysfs_eeprom_path(const kv_fru_device& d)
{
    char path[256];
    if (d.behind_mux)
    {
        const int channel_bus = CmmFunGetI2CExtBus(d.bus, d.mux_channel);
        std::snprintf(
            path, sizeof path, "%s/i2c-%d/device/i2c-%d/%d-00%x/eeprom",
            "/sys/class/i2c-dev", d.bus, channel_bus, channel_bus, d.address);
    }
    else
    {
        std::snprintf(path, sizeof path, "%s/i2c-%d/device/%d-00%x/eeprom",
                      "/sys/class/i2c-dev", d.bus, d.bus, d.address);
    }
    return path;
}

int read_raw(const kv_fru_device& d, uint16_t offset, int count,
             uint8_t* destination)
{
    const int bus_fd = i2c_open(d.bus);
    if (bus_fd < 0)
    {
        return -1;
    }
    if (d.behind_mux)
    {
        if (const int answer = request_channel(d, bus_fd, 1); answer != 0)
        {
            i2c_close(bus_fd);
            return answer;
        }
    }
    const int result = i2c_read_data(bus_fd, d.address, register_of(d, offset),
                                     d.offset_width, destination, count);
    i2c_close(bus_fd);
    if (d.behind_mux)
    {
        request_channel(d, bus_fd, 0);
    }
    if (result < 0)
    {
        log_call(KV_LOG_ERROR,
                 "i2c read fru data failed channel=%u address=%u offset=%u. "
                 "%s:%d %s",
                 static_cast<unsigned>(d.bus), static_cast<unsigned>(d.address),
                 fru_device_base(d) + offset, "mkfifo", __LINE__,
                 "read_fru_data");
        return -1;
    }
    return result;
}

// One sysfs attempt loop. An open failure either moves on to the next
// attempt (reads) or ends the loop (writes); a failed transfer pauses.
template <typename Transfer>
int sysfs_attempts(const kv_fru_device& d, uint16_t offset, const char* mode,
                   bool retry_open, Transfer transfer)
{
    const std::string path = sysfs_eeprom_path(d);
    for (int attempt = 0; attempt < kSysfsAttempts; ++attempt)
    {
        kv::detail::UniqueFile file = kv::detail::open_file(path.c_str(), mode);
        if (!file)
        {
            if (retry_open)
            {
                continue;
            }
            return -1;
        }
        if (std::fseek(file.get(), fru_device_base(d) + offset, SEEK_SET) ==
                0 &&
            transfer(file.get()))
        {
            return 0;
        }
        file.reset();
        pause_microseconds(kSysfsRetryMicroseconds);
    }
    return -1;
}

int write_raw(const kv_fru_device& d, int& bus_fd, uint16_t offset, int count,
              const uint8_t* source)
{
    if (d.behind_mux)
    {
        bus_fd = i2c_open(d.bus);
        if (bus_fd < 0)
        {
            return -1;
        }
        if (const int answer = request_channel(d, bus_fd, 1); answer != 0)
        {
            i2c_close(bus_fd);
            return answer;
        }
    }
    char dev[32];
    std::snprintf(dev, sizeof dev, "/dev/i2c-%d", d.bus);
    eeprom part{};
    const bool opened = eeprom_open(dev, d.address, kWordAddressed, &part) == 0;
    for (int i = 0; opened && i < count; ++i)
    {
        // A byte that fails every attempt is skipped.
        for (int attempt = 0; attempt < kByteWriteAttempts; ++attempt)
        {
            if (eeprom_write_byte(&part, register_of(d, offset + i),
                                  source[i]) >= 0)
            {
                break;
            }
        }
    }
    if (opened)
    {
        eeprom_close(&part);
    }
    if (d.behind_mux)
    {
        request_channel(d, bus_fd, 0);
    }
    return opened ? 0 : -1;
}

} // namespace

int read_fru_data(const kv_fru_device* device, uint16_t offset, int count,
                  uint8_t* destination)
{
    if (device == nullptr || destination == nullptr || count < 0 ||
        device->state == KV_FRU_STATE_REFUSED)
    {
        return -1;
    }
    switch (device->method)
    {
        case KV_FRU_ACCESS_I2C:
            return read_raw(*device, offset, count, destination);
        case KV_FRU_ACCESS_SYSFS:
            return sysfs_attempts(
                *device, offset, "rb", true, [&](std::FILE* f) {
                    return std::fread(destination, count, 1, f) == 1;
                });
        default:
            return 0;
    }
}

int write_fru_data(const kv_fru_device* device, uint16_t offset, int count,
                   const uint8_t* source)
{
    if (device == nullptr || source == nullptr || count < 0 ||
        device->state == KV_FRU_STATE_REFUSED)
    {
        return -1;
    }
    if (device->method == KV_FRU_ACCESS_SYSFS)
    {
        return sysfs_attempts(*device, offset, "rb+", false, [&](std::FILE* f) {
            return std::fwrite(source, count, 1, f) == 1 && std::fflush(f) == 0;
        });
    }
    // The bus handle starts as descriptor 0 and only a device behind a
    // multiplexer opens a real one, so the close below hits the process's
    // descriptor 0 otherwise. Existing callers were built around this.
    int bus_fd = 0;
    int result = 0;
    if (device->method == KV_FRU_ACCESS_I2C)
    {
        result = write_raw(*device, bus_fd, offset, count, source);
        if (result > 0 || bus_fd < 0)
        {
            return result; // the channel request already closed the bus
        }
    }
    ::close(bus_fd);
    return result;
}

int write_to_fru(int id)
{
    const auto device = kv::detail::load_fru_device(id);
    if (!device)
    {
        return -1;
    }
    deviceid = id;
    const int length =
        static_cast<int>(std::min<uint32_t>(bmc_fru_len, sizeof bmc_fru_date));
    for (int position = 0; position < length; position += kChunk)
    {
        const int count = std::min(kChunk, length - position);
        write_fru_data(&*device, position, count, bmc_fru_date + position);
        if (count == kChunk)
        {
            pause_microseconds(kChunkMicroseconds);
        }
    }
    return 0;
}

int get_fru_bin(kv_fru_device device, uint8_t* destination)
{
    for (unsigned offset = 0; offset < fru_device_size(device);
         offset += kChunk)
    {
        read_fru_data(&device, offset, kChunk, destination + offset);
        pause_microseconds(kChunkMicroseconds);
    }
    return 0;
}

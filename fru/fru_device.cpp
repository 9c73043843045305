// SPDX-License-Identifier: Apache-2.0
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

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>

int deviceid;

namespace
{

using kv::detail::fail;
using kv::detail::fru_device_base;
using kv::detail::fru_device_size;
using kv::detail::last_cause;
using kv::detail::pause_microseconds;
using kv::detail::UniqueFd;

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
// channel's own bus. The descriptor counts channels from 0, as the channel
// request does; the bus lookup counts them from 1, as the kernel announces
// them.
std::string sysfs_eeprom_path(const kv_fru_device& d)
{
    char path[256];
    if (d.behind_mux)
    {
        const int channel_bus = CmmFunGetI2CExtBus(d.bus, d.mux_channel + 1);
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
    UniqueFd bus(i2c_open(d.bus));
    if (!bus)
    {
        return -1;
    }
    if (d.behind_mux)
    {
        if (const int answer = request_channel(d, bus.get(), 1); answer != 0)
        {
            return answer;
        }
    }
    const int result =
        i2c_read_data(bus.get(), d.address, register_of(d, offset),
                      d.offset_width, destination, count);
    bus.reset(); // the bus is closed before the channel is given back
    if (d.behind_mux)
    {
        request_channel(d, -1, 0);
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

// The cause of a block transfer that moved less than asked: the stream's
// error, or EIO for a file that ended first.
int short_transfer(std::FILE* f)
{
    return std::ferror(f) ? last_cause() : -EIO;
}

// One sysfs attempt loop. An open failure either moves on to the next
// attempt (reads) or ends the loop (writes); a failed transfer (`transfer`
// answers 0 or a negative errno) pauses. A failure leaves the last
// attempt's cause in errno.
template <typename Transfer>
int sysfs_attempts(const kv_fru_device& d, uint16_t offset, const char* mode,
                   bool retry_open, Transfer transfer)
{
    const std::string path = sysfs_eeprom_path(d);
    int cause = -EIO;
    for (int attempt = 0; attempt < kSysfsAttempts; ++attempt)
    {
        kv::detail::UniqueFile file = kv::detail::open_file(path.c_str(), mode);
        if (!file)
        {
            cause = last_cause();
            if (retry_open)
            {
                continue;
            }
            break;
        }
        cause =
            std::fseek(file.get(), fru_device_base(d) + offset, SEEK_SET) == 0
                ? transfer(file.get())
                : last_cause();
        if (cause == 0)
        {
            return 0;
        }
        file.reset();
        pause_microseconds(kSysfsRetryMicroseconds);
    }
    return fail(cause, -1);
}

// Byte by byte with immediate retries; a byte that fails every attempt is
// skipped. 0, or eeprom_open's negative result.
int write_bytes(const kv_fru_device& d, uint16_t offset, int count,
                const uint8_t* source)
{
    char dev[32];
    std::snprintf(dev, sizeof dev, "/dev/i2c-%d", d.bus);
    eeprom part{};
    if (const int opened = eeprom_open(dev, d.address, kWordAddressed, &part);
        opened != 0)
    {
        return opened;
    }
    for (int i = 0; i < count; ++i)
    {
        for (int attempt = 0; attempt < kByteWriteAttempts; ++attempt)
        {
            if (eeprom_write_byte(&part, register_of(d, offset + i),
                                  source[i]) >= 0)
            {
                break;
            }
        }
    }
    eeprom_close(&part);
    return 0;
}

// The multiplexer's bus stays open, holding the channel, while the part is
// written through its own descriptor.
int write_behind_mux(const kv_fru_device& d, uint16_t offset, int count,
                     const uint8_t* source)
{
    UniqueFd bus(i2c_open(d.bus));
    if (!bus)
    {
        return -1;
    }
    if (const int answer = request_channel(d, bus.get(), 1); answer != 0)
    {
        return answer;
    }
    const int written = write_bytes(d, offset, count, source);
    request_channel(d, bus.get(), 0);
    return written < 0 ? -1 : 0;
}

// A write without a multiplexer opens no bus handle, and the handle's
// starting value 0 is what it then closes: descriptor 0 of the process.
// Existing callers were built around this, so it stays. A failed write keeps
// its cause in errno.
void close_descriptor_zero()
{
    const kv::detail::KeepErrno keep;
    ::close(0); // on purpose: the settled close of the unopened bus handle
}

// The settled close of descriptor 0 by every chunk written to a raw device
// not behind a multiplexer would hand descriptor 0 to the next chunk's open,
// which eeprom_open refuses: every chunk after the first would be lost.
// Descriptor 0 is taken again, on /dev/null, before each chunk.
void take_descriptor_zero()
{
    if (::fcntl(0, F_GETFD) == -1)
    {
        const int fd = ::open("/dev/null", O_RDONLY);
        if (fd > 0)
        {
            ::close(fd); // 0 was taken meanwhile; nothing of ours to keep
        }
    }
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
                    return std::fread(destination, count, 1, f) == 1
                               ? 0
                               : short_transfer(f);
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
            if (std::fwrite(source, count, 1, f) != 1)
            {
                return short_transfer(f);
            }
            return std::fflush(f) == 0 ? 0 : last_cause();
        });
    }
    if (device->method == KV_FRU_ACCESS_I2C && device->behind_mux)
    {
        return write_behind_mux(*device, offset, count, source);
    }
    int result = 0;
    if (device->method == KV_FRU_ACCESS_I2C)
    {
        result = write_bytes(*device, offset, count, source) < 0 ? -1 : 0;
    }
    close_descriptor_zero();
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
        take_descriptor_zero();
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

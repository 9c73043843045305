// SPDX-License-Identifier: Apache-2.0
// I2C transfers through the i2c-dev character devices.
#include "foundation/resources.h"

#include <libkv/hw.h>

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace
{

// Offset bytes plus data must fit one staging buffer.
constexpr size_t kStagingSize = 255;

using Staging = std::array<uint8_t, kStagingSize>;

bool valid_offset_len(int offset_len)
{
    return offset_len >= 0 && offset_len <= 2;
}

// Lays down the offset as the register address bytes of a write message.
void put_offset(Staging& staging, unsigned offset, int offset_len)
{
    if (offset_len == 1)
    {
        staging[0] = static_cast<uint8_t>(offset);
    }
    else
    {
        staging[0] = static_cast<uint8_t>(offset >> 8);
        staging[1] = static_cast<uint8_t>(offset);
    }
}

i2c_msg write_msg(uint8_t addr, const void* data, uint16_t len)
{
    return i2c_msg{addr, 0, len,
                   static_cast<uint8_t*>(const_cast<void*>(data))};
}

i2c_msg read_msg(uint8_t addr, void* data, uint16_t len)
{
    return i2c_msg{addr, I2C_M_RD, len, static_cast<uint8_t*>(data)};
}

// One I2C_RDWR request: the messages run with repeated starts between them.
int transfer(int fd, i2c_msg* msgs, uint32_t count)
{
    i2c_rdwr_ioctl_data request{msgs, count};
    return ioctl(fd, I2C_RDWR, &request);
}

} // namespace

extern "C" int i2c_open(int bus)
{
    char path[32];
    std::snprintf(path, sizeof path, "/dev/i2c-%d", bus);
    return open(path, O_RDWR); // the public open: the caller owns it
}

extern "C" int i2c_close(int fd)
{
    return close(fd); // the public close of i2c_open's descriptor
}

extern "C" int internal_master_write(int fd, unsigned addr, const void* buf,
                                     size_t len)
{
    if (fd < 0 || ioctl(fd, I2C_SLAVE, addr & 0xFF) < 0)
    {
        return -1;
    }
    return static_cast<int>(write(fd, buf, len));
}

extern "C" int i2c_read_data(int fd, uint8_t addr, unsigned offset,
                             int offset_len, void* buf, int len)
{
    if (len < 0 || len > KV_I2C_MAX_DATA || !valid_offset_len(offset_len))
    {
        return -1;
    }
    Staging address{};
    put_offset(address, offset, offset_len);
    Staging data{};
    i2c_msg msgs[] = {
        write_msg(addr, address.data(), static_cast<uint16_t>(offset_len)),
        read_msg(addr, data.data(), static_cast<uint16_t>(len))};
    const int result = transfer(fd, msgs, 2);
    std::memcpy(buf, data.data(), static_cast<size_t>(len));
    return result;
}

extern "C" int i2c_write_data(int fd, uint8_t addr, unsigned offset,
                              int offset_len, const void* data, int len)
{
    if (len < 0 || len > KV_I2C_MAX_DATA || !valid_offset_len(offset_len))
    {
        return -1;
    }
    Staging message{};
    put_offset(message, offset, offset_len);
    std::memcpy(message.data() + offset_len, data, static_cast<size_t>(len));
    i2c_msg msg = write_msg(addr, message.data(),
                            static_cast<uint16_t>(offset_len + len));
    return transfer(fd, &msg, 1);
}

extern "C" int i2c_read_data_new(int fd, uint8_t addr, const void* wbuf,
                                 uint16_t wlen, void* rbuf, uint16_t rlen)
{
    i2c_msg msgs[] = {write_msg(addr, wbuf, wlen), read_msg(addr, rbuf, rlen)};
    return transfer(fd, msgs, 2);
}

extern "C" int i2c_rw_data(int fd, uint8_t addr, const void* wbuf,
                           uint16_t wlen, void* rbuf, int rlen)
{
    if (wbuf == nullptr || wlen == 0 || rlen < 0 || rlen > UINT16_MAX ||
        (rlen > 0 && rbuf == nullptr))
    {
        return -1;
    }
    i2c_msg msgs[] = {write_msg(addr, wbuf, wlen),
                      read_msg(addr, rbuf, static_cast<uint16_t>(rlen))};
    return transfer(fd, msgs, rlen == 0 ? 1 : 2);
}

extern "C" int check_slave_active(int fd, uint8_t addr)
{
    if (fd < 1)
    {
        return -1;
    }
    // Answering devices are listed in their 8-bit (write address) form.
    uint8_t answered[127];
    size_t count = 0;
    for (unsigned probe = 0; probe < 128 && count < sizeof answered; ++probe)
    {
        if (internal_master_write(fd, probe, nullptr, 0) >= 0)
        {
            answered[count++] = static_cast<uint8_t>(probe * 2);
        }
    }
    const auto wanted = static_cast<uint8_t>(addr * 2);
    for (size_t i = 0; i < count; ++i)
    {
        if (answered[i] == wanted)
        {
            return 1;
        }
    }
    return 0;
}

extern "C" int i2cInit(void)
{
    return 0;
}

extern "C" int i2cUnInit(void)
{
    return 0;
}

extern "C" int i2cSendRecvMsg(int /*reserved*/, uint8_t bus, uint8_t addr,
                              const void* wbuf, uint16_t wlen, void* rbuf,
                              uint16_t rlen, uint8_t retries, int /*reserved2*/)
{
    kv::detail::UniqueFd fd(i2c_open(bus));
    if (fd.get() <= 0)
    {
        return KV_I2C_NO_BUS;
    }
    // Without the address bound, no attempt could reach the device.
    if (ioctl(fd.get(), I2C_TENBIT, 0) < 0 ||
        ioctl(fd.get(), I2C_SLAVE, addr) < 0)
    {
        return KV_I2C_ATTEMPTS_FAILED;
    }
    for (unsigned attempt = 0; attempt < retries; ++attempt)
    {
        ssize_t last = 0;
        if (wlen != 0)
        {
            last = write(fd.get(), wbuf, wlen);
        }
        // Only the last operation of an attempt decides its outcome.
        if (rlen != 0)
        {
            last = read(fd.get(), rbuf, rlen);
        }
        if (last >= 0)
        {
            return 0;
        }
    }
    return KV_I2C_ATTEMPTS_FAILED;
}

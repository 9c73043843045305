// SPDX-License-Identifier: Apache-2.0
// CPLD registers over I2C, with the retry policy the platform code relies
// on: five attempts, one second after each failure, one log line at the end.
#include "foundation/errno_cause.h"
#include "foundation/pause.h"
#include "foundation/resources.h"

#include <libkv/foundation.h>
#include <libkv/hw.h>

#include <array>
#include <cstring>

namespace
{

constexpr int kAttempts = 5;
constexpr long kRetryPauseMicroseconds = 1000000;

// 0, or the negative errno of the last failed attempt.
template <typename Transfer>
int with_retries(Transfer transfer)
{
    int cause = 0;
    for (int attempt = 0; attempt < kAttempts; ++attempt)
    {
        if (transfer() >= 0)
        {
            return 0;
        }
        cause = kv::detail::last_cause();
        kv::detail::pause_microseconds(kRetryPauseMicroseconds);
    }
    return cause;
}

// Runs `access` on the module CPLD's bus; the result travels in 8 bits.
template <typename Access>
int on_module_bus(Access access)
{
    kv::detail::UniqueFd fd(CPLDChannelEnable());
    if (!fd)
    {
        return KV_CPLD_BAD_REQUEST;
    }
    return access(fd.get()) & 0xFF;
}

} // namespace

extern "C" int CPLDChannelEnable(void)
{
    return i2c_open(KV_CPLD_MODULE_BUS); // the caller owns it
}

extern "C" int CPLDChannelDisale(int fd)
{
    i2c_close(fd); // the public close of CPLDChannelEnable's descriptor
    return 0;
}

extern "C" int CPLDModuleWriteRegister(int fd, uint8_t offset,
                                       const uint8_t* data, uint8_t len)
{
    if (data == nullptr || len < 1 || len > KV_CPLD_MAX_DATA)
    {
        return KV_CPLD_BAD_REQUEST;
    }
    // The register number leads the data in one write message.
    std::array<uint8_t, 1 + KV_CPLD_MAX_DATA> message{offset};
    std::memcpy(message.data() + 1, data, len);
    const int cause = with_retries([&] {
        return i2c_rw_data(fd, KV_CPLD_ADDRESS, message.data(),
                           static_cast<uint16_t>(len + 1), nullptr, 0);
    });
    if (cause == 0)
    {
        return KV_CPLD_OK;
    }
    log_call(KV_LOG_ERROR,
             "Write cpld register failed address=%u offset=%u. %s:%d %s",
             KV_CPLD_ADDRESS, offset, "cpld-rw-reg", __LINE__,
             "CPLDModuleWriteRegister");
    return kv::detail::fail(cause, KV_CPLD_WRITE_FAILED);
}

extern "C" int CPLDModuleReadRegister(int fd, uint8_t offset, uint8_t* buf,
                                      uint8_t len)
{
    if (buf == nullptr || len > KV_CPLD_MAX_DATA)
    {
        return KV_CPLD_BAD_REQUEST;
    }
    std::array<uint8_t, KV_CPLD_MAX_DATA> staging{};
    const int cause = with_retries([&] {
        return i2c_rw_data(fd, KV_CPLD_ADDRESS, &offset, 1, staging.data(),
                           len);
    });
    if (cause == 0)
    {
        std::memcpy(buf, staging.data(), len);
        return KV_CPLD_OK;
    }
    log_call(KV_LOG_ERROR,
             "Read cpld register failed address=%u offset=%u. %s:%d %s",
             KV_CPLD_ADDRESS, offset, "cpld-rw-reg", __LINE__,
             "CPLDModuleReadRegister");
    return kv::detail::fail(cause, KV_CPLD_READ_FAILED);
}

extern "C" int CPLDModuleWriteDatas(uint8_t offset, const uint8_t* data,
                                    uint8_t len)
{
    return on_module_bus(
        [&](int fd) { return CPLDModuleWriteRegister(fd, offset, data, len); });
}

extern "C" int CPLDModuleReadDatas(uint8_t offset, uint8_t* buf, uint8_t len)
{
    return on_module_bus(
        [&](int fd) { return CPLDModuleReadRegister(fd, offset, buf, len); });
}

extern "C" int write_cpld_reg(int bus, int channel, uint8_t addr,
                              uint8_t offset, uint8_t value)
{
    const int target = channel != 0 ? CmmFunGetI2CExtBus(bus, channel) : bus;
    kv::detail::UniqueFd fd(i2c_open(target));
    if (!fd)
    {
        return KV_CPLD_NO_BUS;
    }
    const uint8_t message[] = {offset, value};
    if (i2c_rw_data(fd.get(), addr, message, sizeof message, nullptr, 0) < 0)
    {
        log_call(KV_LOG_ERROR,
                 "i2c rw data failed bus=%u, address=%u offset=%u. %s:%d %s ",
                 static_cast<unsigned>(bus), addr, offset, "back-plane-mgt",
                 __LINE__, "write_cpld_reg");
        return KV_CPLD_BAD_REQUEST;
    }
    return KV_CPLD_OK;
}

// Registers with a parity bit are valid when the count of ones is odd.
// Positions from 32 up repeat the sign bit, as an arithmetic shift does.
extern "C" int odd_check(int value, int bits)
{
    unsigned ones = 0;
    for (int i = 0; i < bits; ++i)
    {
        ones += i < 32 ? (static_cast<unsigned>(value) >> i) & 1u
                       : static_cast<unsigned>(value < 0);
    }
    return ones % 2 == 1 ? KV_CPLD_OK : KV_CPLD_EVEN_PARITY;
}

extern "C" int read_chassis_type(void)
{
    constexpr int kChassisBus = 1;
    constexpr uint8_t kTypeRegister = 0;
    constexpr uint8_t kSecondChassisId = 14;
    if (file_existed("/var/run/backplane/10p0.json"))
    {
        return 2;
    }
    kv::detail::UniqueFd fd(i2c_open(kChassisBus));
    if (!fd)
    {
        return 1;
    }
    uint8_t type = 0;
    if (i2c_rw_data(fd.get(), KV_CPLD_ADDRESS, &kTypeRegister, 1, &type, 1) < 0)
    {
        log_call(KV_LOG_ERROR,
                 "i2c rw data failed bus=%u, address=%u offset=%u. %s:%d %s",
                 static_cast<unsigned>(kChassisBus), KV_CPLD_ADDRESS,
                 static_cast<unsigned>(kTypeRegister), "misc", __LINE__,
                 "read_chassis_type");
        return 1;
    }
    return (type & 0x1F) == kSecondChassisId ? 2 : 1;
}

// SPDX-License-Identifier: Apache-2.0
#include "platform/register_reads.h"

#include <libkv/foundation.h>
#include <libkv/hw.h>

namespace kv::detail
{

bool read_registers(int fd, uint8_t address, uint8_t reg, uint8_t* buf,
                    uint16_t len)
{
    return i2c_rw_data(fd, address, &reg, 1, buf, len) >= 0;
}

bool read_registers_logged(const Probe& probe, uint8_t reg, uint8_t* buf,
                           uint16_t len, int line)
{
    if (read_registers(probe.fd, probe.address, reg, buf, len))
    {
        return true;
    }
    log_call(KV_LOG_ERROR,
             "i2c rw data failed bus=%u, address=%u offset=%u. %s:%d %s ",
             static_cast<unsigned>(probe.bus), probe.address, reg,
             kDiscoverySource, line, probe.function);
    return false;
}

} // namespace kv::detail

// SPDX-License-Identifier: Apache-2.0
#include "i2c_dev.h"

#include "bus.h"
#include "shared_state.h"
#include "smbus.h"

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <vector>

namespace kv::sim::detail
{
namespace
{

// The driver's bounds on one message.
constexpr std::size_t max_message_bytes = 8192;

int fail(int error)
{
    errno = error;
    return -1;
}

// Result of a request that returned -errno or a count.
int result(int done)
{
    return done < 0 ? fail(-done) : done;
}

// Without I2C_FUNC_I2C an adapter only speaks SMBus.
bool offers_plain_i2c(State& state, int bus)
{
    return (bus_functions(state, bus) & I2C_FUNC_I2C) != 0;
}

int bind_address(Client& client, unsigned long address)
{
    if ((!client.tenbit && address > 0x7f) || address > 0x3ff)
    {
        return fail(EINVAL);
    }
    client.address = static_cast<uint16_t>(address);
    return 0;
}

int combined_transfer(State& state, const Client& client,
                      const i2c_rdwr_ioctl_data* request)
{
    if (request->msgs == nullptr || request->nmsgs == 0 ||
        request->nmsgs > I2C_RDWR_IOCTL_MAX_MSGS)
    {
        return fail(EINVAL);
    }
    const std::span<const i2c_msg> asked(request->msgs, request->nmsgs);
    if (std::any_of(asked.begin(), asked.end(),
                    [](const i2c_msg& m) { return m.len > max_message_bytes; }))
    {
        return fail(EINVAL);
    }
    if (!offers_plain_i2c(state, client.bus))
    {
        return fail(EOPNOTSUPP);
    }
    // Like the driver, work on copies and hand read data back only when the
    // whole request succeeded.
    std::vector<std::vector<uint8_t>> buffers;
    std::vector<Message> messages;
    for (const i2c_msg& m : asked)
    {
        auto& buffer = buffers.emplace_back(m.buf, m.buf + m.len);
        messages.push_back({m.addr, (m.flags & I2C_M_RD) != 0,
                            (m.flags & I2C_M_TEN) != 0, false, buffer.data(),
                            m.len});
    }
    const int done = run_request(state, client.bus, messages);
    if (done >= 0)
    {
        for (std::size_t i = 0; i < asked.size(); ++i)
        {
            if (messages[i].read)
            {
                std::copy(buffers[i].begin(), buffers[i].end(), asked[i].buf);
            }
        }
    }
    return result(done);
}

ssize_t single_message(const Client& client, bool read, uint8_t* data,
                       size_t count)
{
    State* state = attached_state();
    if (state == nullptr)
    {
        return fail(ENODEV);
    }
    if (!offers_plain_i2c(*state, client.bus))
    {
        return fail(EOPNOTSUPP);
    }
    Message message{client.address, read, client.tenbit,
                    false,          data, std::min(count, max_message_bytes)};
    const int done = run_request(*state, client.bus, {&message, 1});
    return done < 0 ? fail(-done) : static_cast<ssize_t>(message.length);
}

} // namespace

int client_ioctl(Client& client, unsigned long request, void* arg)
{
    State* state = attached_state();
    if (state == nullptr)
    {
        return fail(ENODEV);
    }
    const auto value = reinterpret_cast<unsigned long>(arg);
    const bool points_to_data =
        request == I2C_FUNCS || request == I2C_RDWR || request == I2C_SMBUS;
    if (points_to_data && arg == nullptr)
    {
        return fail(EFAULT);
    }
    switch (request)
    {
        case I2C_SLAVE:
        case I2C_SLAVE_FORCE:
            return bind_address(client, value);
        case I2C_TENBIT:
            client.tenbit = value != 0;
            return 0;
        case I2C_FUNCS:
            *static_cast<unsigned long*>(arg) =
                bus_functions(*state, client.bus);
            return 0;
        case I2C_RDWR:
            return combined_transfer(
                *state, client, static_cast<const i2c_rdwr_ioctl_data*>(arg));
        case I2C_SMBUS:
            return result(smbus_transfer(
                *state, client, *static_cast<i2c_smbus_ioctl_data*>(arg)));
        default:
            return fail(ENOTTY);
    }
}

ssize_t client_read(const Client& client, void* buf, size_t count)
{
    // The driver reads into a zeroed buffer and copies out only on success.
    std::vector<uint8_t> data(std::min(count, max_message_bytes));
    const ssize_t done = single_message(client, true, data.data(), data.size());
    if (done > 0)
    {
        std::memcpy(buf, data.data(), static_cast<size_t>(done));
    }
    return done;
}

ssize_t client_write(const Client& client, const void* buf, size_t count)
{
    const auto* bytes = static_cast<const uint8_t*>(buf);
    std::vector<uint8_t> data(bytes,
                              bytes + std::min(count, max_message_bytes));
    return single_message(client, false, data.data(), data.size());
}

} // namespace kv::sim::detail

// SPDX-License-Identifier: Apache-2.0
// The two storage channels: a 32-bit code and up to 251 payload bytes per
// record, over fixed FIFOs in /run/fifo.
#include "foundation/byte_order.h"
#include "foundation/resources.h"

#include <libkv/ipc.h>

#include <fcntl.h>

#include <array>
#include <cstring>

namespace
{

constexpr const char* kStorageWrite = "/run/fifo/storage_w";
constexpr const char* kStorageRead = "/run/fifo/storage_r";
constexpr unsigned kReceiveTimeoutSeconds = 30;
constexpr size_t kCodeSize = 4;
// Payload bytes a receiver's 257-byte buffer holds after length and code.
constexpr size_t kMaxReceivedPayload = 252;
// The most a record's length byte can count besides the code.
constexpr size_t kMaxSentPayload = 255 - kCodeSize;

int send_record(const char* fifo, uint32_t code, const void* data, uint8_t len)
{
    // A longer payload would wrap the length byte and the receiver would
    // take the rest of the record for records of their own.
    if ((data == nullptr && len != 0) || len > kMaxSentPayload)
    {
        return -1;
    }
    kv::detail::UniqueFd fd(GetQueue(fifo, O_RDWR, 0));
    if (!fd)
    {
        return -1;
    }
    std::array<uint8_t, 1 + kCodeSize + 255> record{};
    record[0] = static_cast<uint8_t>(len + kCodeSize);
    kv::detail::store_le32(record.data() + 1, code);
    if (len != 0)
    {
        std::memcpy(record.data() + 1 + kCodeSize, data, len);
    }
    writeMsg(fd.get(), record.data(), 1 + kCodeSize + len);
    return 0;
}

// A timeout counts as a record of length 0: the caller sees a payload
// length of 252 (0 - 4 in 8 bits), code 0 and zero bytes, and knows an
// empty receive by the code.
int receive_record(const char* fifo, uint8_t* out, mode_t mode)
{
    kv::detail::UniqueFd fd(GetQueue(fifo, O_RDWR, mode));
    if (!fd)
    {
        return -1;
    }
    // Room past 256 bytes keeps a malformed short record from reading out
    // of the buffer below.
    std::array<uint8_t, 256 + kCodeSize> body{};
    unsigned len = 0;
    readMsg(fd.get(), body.data(), &len, kReceiveTimeoutSeconds);

    const auto payload = static_cast<uint8_t>(len - kCodeSize);
    const uint32_t code = kv::detail::le32(body.data());
    out[0] = payload;
    std::memcpy(out + 1, &code, sizeof code);
    std::memcpy(out + 1 + kCodeSize, body.data() + kCodeSize,
                payload < kMaxReceivedPayload ? payload : kMaxReceivedPayload);
    return 0;
}

} // namespace

extern "C" int send_storage_func(uint32_t code, const void* data, uint8_t len)
{
    return send_record(kStorageWrite, code, data, len);
}

extern "C" int storage_send_redfish_func(uint32_t code, const void* data,
                                         uint8_t len)
{
    return send_record(kStorageRead, code, data, len);
}

extern "C" int recv_storage_func(uint8_t* out, unsigned /*reserved*/,
                                 mode_t mode)
{
    return receive_record(kStorageWrite, out, mode);
}

extern "C" int redfish_recv_storage_func(uint8_t* out, unsigned /*reserved*/,
                                         mode_t mode)
{
    return receive_record(kStorageRead, out, mode);
}

// SPDX-License-Identifier: Apache-2.0
// Sensor events into the SEL hand-off slots of the platform segment. The
// consumer (outside the library) takes a filled slot and frees it by
// setting its state byte to anything but 1; the state byte is the only
// coordination, so there is no lock.
#include "events/event_records.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace
{

namespace segment = kv::segment;

// Placeholders: the SEL gives the record its ID and time when the consumer
// adds it.
constexpr uint8_t kPlaceholderRecordId[2] = {0x21, 0x00};
constexpr uint8_t kPlaceholderTimestamp[4] = {0xE1, 0xA2, 0xFF, 0x4E};
constexpr uint8_t kSystemEventRecord = 0x02;
constexpr uint8_t kBmcGenerator[2] = {0x20, 0x00}; // slave 0x20, LUN 0
constexpr uint8_t kEvmRevIpmi20 = 0x04;

} // namespace

extern "C" int add_sel_to_shm(uint8_t* shm, const void* data, int len)
{
    if (shm == nullptr || data == nullptr || len < 0)
    {
        return KV_SEL_NO_SEGMENT;
    }
    // Callers hand over one 16-byte record; a longer buffer is cut to the
    // payload so that it never runs into the next slot.
    const size_t size =
        std::min(static_cast<size_t>(len), segment::kSelSlotPayloadSize);
    for (unsigned slot = 0; slot < segment::kSelSlotCount; ++slot)
    {
        uint8_t& state = shm[segment::sel_slot_state(slot)];
        if (state == segment::kSelSlotFilled)
        {
            continue;
        }
        // The slot is claimed before the record goes in, in this order.
        state = segment::kSelSlotFilled;
        std::atomic_thread_fence(std::memory_order_release);
        std::memcpy(shm + segment::sel_slot_payload(slot), data, size);
        return 0;
    }
    return KV_SEL_SLOTS_FULL;
}

extern "C" int SensorSELWrite(uint8_t* shm, uint8_t sensorNum,
                              uint32_t /*ignored*/, uint8_t sensorType,
                              uint8_t eventDirType, uint8_t data1,
                              uint8_t data2, uint8_t data3)
{
    SelRecord record{};
    std::memcpy(record.record_id, kPlaceholderRecordId,
                sizeof record.record_id);
    record.record_type = kSystemEventRecord;
    std::memcpy(record.timestamp, kPlaceholderTimestamp,
                sizeof record.timestamp);
    std::memcpy(record.generator, kBmcGenerator, sizeof record.generator);
    record.evm_rev = kEvmRevIpmi20;
    record.sensor_type = sensorType;
    record.sensor_number = sensorNum;
    record.event_dir_type = eventDirType;
    record.event_data[0] = data1;
    record.event_data[1] = data2;
    record.event_data[2] = data3;
    return add_sel_to_shm(shm, &record, sizeof record) == 0 ? 0 : -1;
}

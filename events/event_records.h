// SPDX-License-Identifier: Apache-2.0
// The event records of the public header, pinned byte for byte to the
// layout the other daemons use, and tied to the platform segment's map.
// Fields are read here with byte access or memcpy: the records sit at odd
// positions in the segment and the BMC's ARM core faults on unaligned
// loads.
#pragma once

#include "foundation/byte_order.h"
#include "ipc/platform_segment.h"

#include <libkv/events.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kv::detail
{

// ---- SelRecord --------------------------------------------------------------

static_assert(sizeof(SelRecord) == 16);
static_assert(offsetof(SelRecord, record_id) == 0);
static_assert(offsetof(SelRecord, record_type) == 2);
static_assert(offsetof(SelRecord, timestamp) == 3);
static_assert(offsetof(SelRecord, generator) == 7);
static_assert(offsetof(SelRecord, evm_rev) == 9);
static_assert(offsetof(SelRecord, sensor_type) == 10);
static_assert(offsetof(SelRecord, sensor_number) == 11);
static_assert(offsetof(SelRecord, event_dir_type) == 12);
static_assert(offsetof(SelRecord, event_data) == 13);

// ---- SensorRecord -----------------------------------------------------------

static_assert(sizeof(SensorRecord) == 454);
static_assert(sizeof(SensorRecord) == segment::kSensorRecordSize);
static_assert(offsetof(SensorRecord, result_exponent) == 3);
static_assert(offsetof(SensorRecord, multiplier) == 5);
static_assert(offsetof(SensorRecord, offset) == 7);
static_assert(offsetof(SensorRecord, name) == 44);
static_assert(offsetof(SensorRecord, analog_format) == 96);
static_assert(offsetof(SensorRecord, linearization) == 100);
static_assert(offsetof(SensorRecord, unit_flags) == 421);
static_assert(offsetof(SensorRecord, base_unit) == 422);

// ---- EventSubscription ------------------------------------------------------

static_assert(sizeof(EventSubscription) == 837);
static_assert(sizeof(EventSubscription) == segment::kSubscriptionSize);
static_assert(offsetof(EventSubscription, in_use) == 1);
static_assert(offsetof(EventSubscription, event_types) == 2);
static_assert(offsetof(EventSubscription, token) == 3);
static_assert(offsetof(EventSubscription, url) == 67);
static_assert(offsetof(EventSubscription, every_problem) == 323);
static_assert(offsetof(EventSubscription, every_sensor) == 324);
static_assert(offsetof(EventSubscription, generic_excluded) == 325);
static_assert(offsetof(EventSubscription, specific_excluded) == 453);
static_assert(offsetof(EventSubscription, sensors) == 581);
static_assert(alignof(EventSubscription) == 1);

// ---- EventInfo: the event summary -------------------------------------------

namespace summary = segment::event_summary;

static_assert(sizeof(EventInfo) == 249);
static_assert(alignof(EventInfo) == 1);
static_assert(offsetof(EventInfo, element_uid) == summary::kElementUid);
static_assert(offsetof(EventInfo, element_name) == summary::kElementName);
static_assert(offsetof(EventInfo, sensor_number) == summary::kSensorNumber);
static_assert(offsetof(EventInfo, sensor_name) == summary::kSensorName);
static_assert(offsetof(EventInfo, sensor_type) == summary::kSensorType);
static_assert(offsetof(EventInfo, event_id) == summary::kEventId);
static_assert(offsetof(EventInfo, timestamp) == summary::kTimestamp);
static_assert(offsetof(EventInfo, severity) == summary::kSeverity);
static_assert(offsetof(EventInfo, alarm_status) == summary::kAlarmStatus);

// The positions the IPMI daemon and the alert daemons read the summary at.
static_assert(segment::kEventSummary + offsetof(EventInfo, sensor_number) ==
              132367);
static_assert(segment::kEventSummary + offsetof(EventInfo, sensor_name) ==
              132368);
static_assert(segment::kEventSummary + offsetof(EventInfo, sensor_type) ==
              132400);
static_assert(segment::kEventSummary + offsetof(EventInfo, timestamp) ==
              132436);

// ---- Where the records lie in the platform segment
// ---------------------------

static_assert(segment::sensor_record(0) == 33);
static_assert(segment::sensor_record(255) + sizeof(SensorRecord) <=
              segment::kSelSlots);
static_assert(segment::kSelSlotPayloadSize >= sizeof(SelRecord));
static_assert(segment::sel_slot_payload(segment::kSelSlotCount - 1) +
                  segment::kSelSlotPayloadSize - 1 ==
              118976);
static_assert(segment::sel_slot_state(segment::kSelSlotCount) <=
              segment::kSubscriptions);
static_assert(segment::subscription(segment::kSubscriptionCount) <=
              segment::kEventSummary);
static_assert(segment::kEventSummary + sizeof(EventInfo) <=
              segment::kTrapSlots);

// Length of a sensor's name. A daemon may fill the name to the end of its
// field without a terminator; the name then runs on, but never past the end
// of its record.
inline size_t sensor_name_length(const SensorRecord& sensor)
{
    const auto* record = reinterpret_cast<const char*>(&sensor);
    return strnlen(record + offsetof(SensorRecord, name),
                   sizeof(SensorRecord) - offsetof(SensorRecord, name));
}

// The text of a fixed-width field of a shared record: up to its first NUL,
// or the whole field when another process filled it to the end.
template <std::size_t N>
std::string_view fixed_text(const char (&field)[N])
{
    return {field, strnlen(field, N)};
}

} // namespace kv::detail

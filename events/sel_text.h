// SPDX-License-Identifier: Apache-2.0
// The one builder of SEL text lines, behind both the IPMI daemon's and the
// web daemon's decoder.
#pragma once

#include <libkv/events.h>

#include <cstdint>

namespace kv::detail
{

// Appends the text of the 16-byte record `rec`, described by `sensor`, to
// the text in `out` (the caller makes room for it). When `summary` points
// at the event summary of the platform segment, the record's time, type
// text and sensor name are left there as well; nullptr leaves nothing
// anywhere but in `out`.
void append_sel_text(const uint8_t* rec, const SensorRecord& sensor, char* out,
                     uint8_t* summary);

} // namespace kv::detail

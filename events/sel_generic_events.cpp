// SPDX-License-Identifier: Apache-2.0
// Event texts of the generic event/reading types 0x01-0x0C, by offset.
// The going-low threshold texts end in a blank that the SEL lines have
// always shown.
#include "events/sel_tables.h"

namespace kv::detail
{

constexpr std::array<kv_event_desc, kGenericEventCount + 1> generic_events = {{
    // 0x01 threshold
    {0x01, 0x00, kAnyData, "Lower Non-critical going low "},
    {0x01, 0x01, kAnyData, "Lower Non-critical going high"},
    {0x01, 0x02, kAnyData, "Lower Critical going low "},
    {0x01, 0x03, kAnyData, "Lower Critical going high"},
    {0x01, 0x04, kAnyData, "Lower Non-recoverable going low "},
    {0x01, 0x05, kAnyData, "Lower Non-recoverable going high"},
    {0x01, 0x06, kAnyData, "Upper Non-critical going low "},
    {0x01, 0x07, kAnyData, "Upper Non-critical going high"},
    {0x01, 0x08, kAnyData, "Upper Critical going low "},
    {0x01, 0x09, kAnyData, "Upper Critical going high"},
    {0x01, 0x0A, kAnyData, "Upper Non-recoverable going low "},
    {0x01, 0x0B, kAnyData, "Upper Non-recoverable going high"},
    // 0x02 usage state
    {0x02, 0x00, kAnyData, "Transition to Idle"},
    {0x02, 0x01, kAnyData, "Transition to Active"},
    {0x02, 0x02, kAnyData, "Transition to Busy"},
    // 0x03 digital state
    {0x03, 0x00, kAnyData, "State Deasserted"},
    {0x03, 0x01, kAnyData, "State Asserted"},
    // 0x04 predictive failure
    {0x04, 0x00, kAnyData, "Predictive Failure deasserted"},
    {0x04, 0x01, kAnyData, "Predictive Failure asserted"},
    // 0x05 limit
    {0x05, 0x00, kAnyData, "Limit Not Exceeded"},
    {0x05, 0x01, kAnyData, "Limit Exceeded"},
    // 0x06 performance
    {0x06, 0x00, kAnyData, "Performance Met"},
    {0x06, 0x01, kAnyData, "Performance Lags"},
    // 0x07 severity
    {0x07, 0x00, kAnyData, "Transition to OK"},
    {0x07, 0x01, kAnyData, "Transition to Non-Critical from OK"},
    {0x07, 0x02, kAnyData, "Transition to Critical from less severe"},
    {0x07, 0x03, kAnyData, "Transition to Non-recoverable from less severe"},
    {0x07, 0x04, kAnyData, "Transition to Non-Critical from more severe"},
    {0x07, 0x05, kAnyData, "Transition to Critical from Non-recoverable"},
    {0x07, 0x06, kAnyData, "Transition to Non-recoverable"},
    {0x07, 0x07, kAnyData, "Monitor"},
    {0x07, 0x08, kAnyData, "Informational"},
    // 0x08 device presence
    {0x08, 0x00, kAnyData, "Device Absent"},
    {0x08, 0x01, kAnyData, "Device Present"},
    // 0x09 device enabled
    {0x09, 0x00, kAnyData, "Device Disabled"},
    {0x09, 0x01, kAnyData, "Device Enabled"},
    // 0x0A availability state
    {0x0A, 0x00, kAnyData, "Transition to Running"},
    {0x0A, 0x01, kAnyData, "Transition to In Test"},
    {0x0A, 0x02, kAnyData, "Transition to Power Off"},
    {0x0A, 0x03, kAnyData, "Transition to On Line"},
    {0x0A, 0x04, kAnyData, "Transition to Off Line"},
    {0x0A, 0x05, kAnyData, "Transition to Off Duty"},
    {0x0A, 0x06, kAnyData, "Transition to Degraded"},
    {0x0A, 0x07, kAnyData, "Transition to Power Save"},
    {0x0A, 0x08, kAnyData, "Install Error"},
    // 0x0B redundancy
    {0x0B, 0x00, kAnyData, "Fully Redundant"},
    {0x0B, 0x01, kAnyData, "Redundancy Lost"},
    {0x0B, 0x02, kAnyData, "Redundancy Degraded"},
    {0x0B, 0x03, kAnyData,
     "Non-redundant: Sufficient Resources from Redundant"},
    {0x0B, 0x04, kAnyData,
     "Non-redundant: Sufficient Resources from Insufficient Resources"},
    {0x0B, 0x05, kAnyData, "Non-redundant: Insufficient Resources"},
    {0x0B, 0x06, kAnyData, "Redundancy Degraded from Fully Redundant"},
    {0x0B, 0x07, kAnyData, "Redundancy Degraded from Non-redundant"},
    // 0x0C ACPI device power state
    {0x0C, 0x00, kAnyData, "D0 Power State"},
    {0x0C, 0x01, kAnyData, "D1 Power State"},
    {0x0C, 0x02, kAnyData, "D2 Power State"},
    {0x0C, 0x03, kAnyData, "D3 Power State"},
    {0x00, 0x00, 0x00, nullptr},
}};
static_assert(walkable(generic_events));

} // namespace kv::detail

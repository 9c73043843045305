// SPDX-License-Identifier: Apache-2.0
// The JSON body of a Redfish event post.
#pragma once

#include <libkv/events.h>

#include <cstdint>
#include <string>

namespace kv::detail
{

// What the post says beyond the event summary.
struct EventPost
{
    const char* event_types; // the subscription's mask as names
    const char* message;     // the decoded SEL line
    uint32_t problem_code;
    const char* problem;
};

// {"Events":[{"EventType":...,"Oem":{"Veldmarke":{...}}}]}, members in the
// order subscribers have always received them. Texts are escaped, so the
// body stays valid JSON whatever a field holds.
std::string event_body(const EventPost& event, const EventInfo& info);

} // namespace kv::detail

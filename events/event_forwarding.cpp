// SPDX-License-Identifier: Apache-2.0
// A decoded SEL event forwarded to the Redfish subscribers of the platform
// segment.
#include "events/event_records.h"

#include <libkv/events.h>

#include <cstring>

namespace segment = kv::segment;

extern "C" int send_event_subscriptions(uint8_t* shm, const uint8_t* rec,
                                        const char* message)
{
    if (shm == nullptr || rec == nullptr || message == nullptr)
    {
        return -1;
    }
    // Both records are byte arrays (alignment 1), so they can be used in
    // place at their odd positions.
    auto* info = reinterpret_cast<EventInfo*>(shm + segment::kEventSummary);
    for (unsigned slot = 0; slot < segment::kSubscriptionCount; ++slot)
    {
        auto* sub = reinterpret_cast<EventSubscription*>(
            shm + segment::subscription(slot));
        if (sub->in_use == 0)
        {
            continue;
        }
        // The filters get a copy: the Redfish service may rewrite the slot
        // meanwhile.
        EventSubscription copy;
        std::memcpy(&copy, sub, sizeof copy);
        if (check_event_subscription_active(copy, rec, message) == 1)
        {
            send_curl_message(sub, message, info);
        }
    }
    return 0;
}

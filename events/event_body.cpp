// SPDX-License-Identifier: Apache-2.0
// The JSON body of a Redfish event post. The curl command line that once
// carried it was cut at 1024 bytes, which left a long message's body without
// its closing brackets; the body is now sent whole instead, since any cut
// would make it invalid JSON.
#include "events/event_body.h"

#include "events/event_records.h"
#include "foundation/byte_order.h"

#include <cstdio>
#include <string_view>
#include <utility>

namespace kv::detail
{
namespace
{

class JsonText
{
  public:
    JsonText& raw(std::string_view text)
    {
        out_ += text;
        return *this;
    }

    // A string member's value: quotes, backslashes and control characters
    // escaped, every other byte as it is.
    JsonText& text(std::string_view value)
    {
        for (const char c : value)
        {
            const auto byte = static_cast<unsigned char>(c);
            if (c == '"' || c == '\\')
            {
                out_ += '\\';
                out_ += c;
            }
            else if (byte < 0x20)
            {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
                out_ += escaped;
            }
            else
            {
                out_ += c;
            }
        }
        return *this;
    }

    JsonText& hex(uint32_t value, int digits)
    {
        char text[16];
        std::snprintf(text, sizeof text, "0x%0*x", digits, value);
        out_ += text;
        return *this;
    }

    JsonText& number(int32_t value)
    {
        out_ += std::to_string(value);
        return *this;
    }

    std::string take()
    {
        return std::move(out_);
    }

  private:
    std::string out_;
};

} // namespace

std::string event_body(const EventPost& event, const EventInfo& info)
{
    JsonText json;
    json.raw(R"({"Events":[{"EventType":")")
        .text(event.event_types)
        .raw(R"(","EventId":")")
        .hex(le32(info.event_id), 8)
        .raw(R"(","EventTimestamp":")")
        .text(fixed_text(info.timestamp))
        .raw(R"(","Severity":")")
        .text(fixed_text(info.severity))
        .raw(R"(","Message":")")
        .text(event.message)
        .raw(R"(","Oem":{"Veldmarke":{"specificProblemID":")")
        .hex(event.problem_code, 8)
        .raw(R"(","specificProblem":")")
        .text(event.problem)
        .raw(R"(","alarmStatus":)")
        .number(static_cast<int32_t>(le32(info.alarm_status)))
        .raw(R"(,"neUID":")")
        .text(fixed_text(info.element_uid))
        .raw(R"(","neName":")")
        .text(fixed_text(info.element_name))
        .raw(R"(","neType":"server","objectUID":")")
        .hex(info.sensor_number, 2)
        .raw(R"(","objectName":")")
        .text(fixed_text(info.sensor_name))
        .raw(R"(","objectType":")")
        .text(fixed_text(info.sensor_type))
        .raw(R"("}}}]})");
    return json.take();
}

} // namespace kv::detail

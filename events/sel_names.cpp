// SPDX-License-Identifier: Apache-2.0
// Unit and sensor-type texts of the SEL lines.
#include "events/sel_tables.h"

#include <cstdio>
#include <cstring>

namespace
{

constexpr std::size_t kUnitTextSize = 64;

const char* unit_or_invalid(uint8_t code)
{
    const char* name = kv::detail::unit_name(code);
    return name != nullptr ? name : "invalid";
}

} // namespace

extern "C"
{
char* ipmi_sdr_get_unit_string(bool pct, uint8_t relation, uint8_t base,
                               uint8_t modifier, char* dst)
{
    if (dst == nullptr)
    {
        return nullptr;
    }
    const char* base_text = unit_or_invalid(base);
    // The modifier code is only checked for range: the text shown is the
    // base unit's, which is what the SEL lines have always said.
    const char* modifier_text =
        kv::detail::unit_name(modifier) != nullptr ? base_text : "invalid";
    const char* prefix = pct ? "% " : "";
    switch (relation)
    {
        case 1:
            std::snprintf(dst, kUnitTextSize, "%s%s/%s", prefix, base_text,
                          modifier_text);
            break;
        case 2:
            std::snprintf(dst, kUnitTextSize, "%s%s*%s", prefix, base_text,
                          modifier_text);
            break;
        default:
            if (base == 0 && pct)
            {
                std::snprintf(dst, kUnitTextSize, "percent");
            }
            else
            {
                std::snprintf(dst, kUnitTextSize, "%s%s", prefix, base_text);
            }
            break;
    }
    return dst;
}

const char* ipmi_get_generic_sensor_type(uint8_t code)
{
    return kv::detail::sensor_type_name(code);
}

int ipmi_get_sensor_type(uint8_t code, char* dst)
{
    if (dst == nullptr)
    {
        return 0;
    }
    // Vendor codes (0xC0 and up) lie past the named ones.
    const char* name = kv::detail::sensor_type_name(code);
    std::strcpy(dst, name != nullptr ? name : "Unknown");
    return 0;
}

} // extern "C"

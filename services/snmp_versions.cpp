// SPDX-License-Identifier: Apache-2.0
// v1 and v2c access: a group line of snmpd.conf per enabled version.
#include "services/snmp_conf.h"

#include <libkv/foundation.h>
#include <libkv/services.h>

#include <cstring>

namespace
{

using kv::services::LineFate;

struct VersionLines
{
    const char* marker;
    const char* group_line;
};

constexpr VersionLines kV1 = {
    "v1", "group    my_group       v1            mynetwork\n"};
constexpr VersionLines kV2c = {
    "v2c", "group    my_group       v2c           mynetwork\n"};

int group_status(const char* marker, bool* enabled)
{
    if (enabled == nullptr)
    {
        return KV_SNMP_FAILED;
    }
    *enabled = false;
    kv::services::for_each_selected_line(kv::services::kSnmpdConf,
                                         {"group", marker}, [&](char*) {
                                             *enabled = true;
                                             return false;
                                         });
    return 0;
}

bool is_live(const char* line)
{
    return check_comment_line(line) == 0;
}

} // namespace

extern "C" int snmp_v1_status_get(bool* enabled)
{
    return group_status(kV1.marker, enabled);
}

extern "C" int snmp_v2_status_get(bool* enabled)
{
    return group_status(kV2c.marker, enabled);
}

// The group line goes below the comment that heads the group section.
extern "C" int snmp_ver_status_set(SNMP_VERSION version, bool enable)
{
    if (static_cast<unsigned>(version) > SNMP_VERSION_V2C)
    {
        return KV_SNMP_FAILED;
    }
    const VersionLines& lines = version == SNMP_VERSION_V1 ? kV1 : kV2c;
    bool current = false;
    group_status(lines.marker, &current);
    if (current == enable)
    {
        return 0;
    }
    if (enable)
    {
        return kv::services::rewrite_snmpd_conf(
            [](const char* line) {
                return !is_live(line) &&
                               std::strstr(line, "securityModel") != nullptr
                           ? LineFate::insert_after
                           : LineFate::keep;
            },
            lines.group_line);
    }
    return kv::services::rewrite_snmpd_conf([&](const char* line) {
        return is_live(line) && kv::services::begins_with(line, "group") &&
                       std::strstr(line, lines.marker) != nullptr
                   ? LineFate::drop
                   : LineFate::keep;
    });
}

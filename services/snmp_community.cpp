// SPDX-License-Identifier: Apache-2.0
// The v1/v2c community: the first "com2sec ... default" line of snmpd.conf.
#include "foundation/consumer_text.h"
#include "services/snmp_conf.h"

#include <libkv/foundation.h>
#include <libkv/services.h>

#include <cstdio>
#include <cstring>

using kv::services::LineFate;

namespace
{

constexpr size_t kCommunityMax = 127; // what the getter reads back

} // namespace

extern "C" int snmp_community_get(char* community, unsigned size)
{
    if (community == nullptr || size == 0)
    {
        return KV_SNMP_FAILED;
    }
    return kv::services::first_selected_word(
        kv::services::kSnmpdConf, {"com2sec", "default"}, 3, community, size);
}

extern "C" int snmp_community_set(const char* community)
{
    // One word: a blank or a line break would end it early or start a line
    // of its own.
    if (community == nullptr ||
        !kv::detail::is_config_token(community, kCommunityMax))
    {
        return KV_SNMP_FAILED;
    }
    char current[128];
    if (snmp_community_get(current, sizeof current) == 0 &&
        std::strcmp(current, community) == 0)
    {
        return 0;
    }
    char new_line[256];
    std::snprintf(new_line, sizeof new_line,
                  "com2sec  mynetwork   default   %s\n", community);
    return kv::services::rewrite_snmpd_conf(
        [](const char* line) {
            return check_comment_line(line) == 0 &&
                           kv::services::begins_with(line, "com2sec") &&
                           std::strstr(line, "default") != nullptr
                       ? LineFate::replace
                       : LineFate::keep;
        },
        new_line);
}

// SPDX-License-Identifier: Apache-2.0
// The rewrite of snmpd.conf behind every SNMP setter: a copy, edited line by
// line, that replaces the file through a scratch file beside it.
#include "foundation/scratch_rewrite.h"
#include "services/snmp_conf.h"

#include <cstdio>
#include <cstring>

namespace kv::services
{
namespace
{

// Writes `text` and remembers its last character.
void put(std::FILE* to, const char* text, char& last)
{
    std::fputs(text, to);
    if (const size_t length = std::strlen(text); length > 0)
    {
        last = text[length - 1];
    }
}

void copy_edited(std::FILE* from, std::FILE* to,
                 const std::function<LineFate(const char*)>& fate,
                 const char* new_line)
{
    bool placed = new_line == nullptr;
    char last = '\n';
    char line[256];
    while (from != nullptr && std::fgets(line, sizeof line, from) != nullptr)
    {
        const LineFate what = fate(line);
        if (what == LineFate::drop)
        {
            continue;
        }
        if (what == LineFate::replace && !placed)
        {
            put(to, new_line, last);
            placed = true;
            continue;
        }
        put(to, line, last);
        if (what == LineFate::insert_after && !placed)
        {
            // A last line without its newline still ends before ours.
            put(to, last == '\n' ? "" : "\n", last);
            put(to, new_line, last);
            placed = true;
        }
    }
    if (!placed)
    {
        put(to, last == '\n' ? "" : "\n", last);
        put(to, new_line, last);
    }
}

} // namespace

bool begins_with(const char* line, const char* word)
{
    line += std::strspn(line, " ");
    return std::strncmp(line, word, std::strlen(word)) == 0;
}

int rewrite_snmpd_conf(const std::function<LineFate(const char* line)>& fate,
                       const char* new_line)
{
    return kv::detail::rewrite_via_scratch(
        kSnmpdConf,
        [&](std::FILE* from, std::FILE* to) {
            copy_edited(from, to, fate, new_line);
        },
        kv::detail::kPrivateFile);
}

} // namespace kv::services

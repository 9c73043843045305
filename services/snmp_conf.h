// SPDX-License-Identifier: Apache-2.0
// The SNMP agent's configuration files: selecting the lines a getter reads,
// and the one way a setter rewrites /etc/snmp/snmpd.conf.
#pragma once

#include <functional>
#include <initializer_list>

namespace kv::services
{

inline constexpr const char* kSnmpdConf = "/etc/snmp/snmpd.conf";
inline constexpr const char* kSnmpdState = "/var/lib/net-snmp/snmpd.conf";

// Calls `visit` with each line of `path` that contains every one of `words`
// (case-sensitive substrings, as a chain of greps would pass it), trimmed,
// when it is no comment and begins with the first word, ignoring case.
// At most the first 255 characters of a line are given. `visit` answers
// false to stop. A missing file has no lines.
void for_each_selected_line(const char* path,
                            std::initializer_list<const char*> words,
                            const std::function<bool(char* line)>& visit);

// Word `index` (from 0, at most 127 characters) of the first line that
// for_each_selected_line gives, cut to `size` into `out` ("" when the line
// is shorter): 0, or KV_SNMP_FAILED when no line is selected.
int first_selected_word(const char* path,
                        std::initializer_list<const char*> words,
                        unsigned index, char* out, unsigned size);

// What becomes of one line of snmpd.conf on its way into the new copy.
enum class LineFate
{
    keep,
    drop,
    replace,      // by the new line, the first time
    insert_after, // the new line, the first time
};

// Copies snmpd.conf (a missing one counts as empty) line by line, in pieces
// of at most 255 characters, as `fate` says. `new_line` (null for none)
// takes the place of the first line that gets `replace`, or goes after the
// first that gets `insert_after`; later ones are kept as they are. When no
// line took it, it is appended. 0, KV_SNMP_FAILED or KV_SNMP_RENAME_FAILED.
int rewrite_snmpd_conf(const std::function<LineFate(const char* line)>& fate,
                       const char* new_line = nullptr);

// Whether `line`, after its leading blanks, begins with `word` (exact case).
bool begins_with(const char* line, const char* word);

} // namespace kv::services

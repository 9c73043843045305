// SPDX-License-Identifier: Apache-2.0
// Caller text on its way into another program's syntax: one check or
// encoder per consumer. A text either reaches its consumer exactly as given
// or the writer refuses it; ordinary values (printable, no blank or quote)
// pass through byte for byte.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kv::detail
{

// Line breaks, tabs and the other C0 codes, and DEL.
bool is_control(char c);

// A key=value line "<key><sep><value>\n" that stays one setting for the
// readers: a key with no separator, no outer blank and no control character
// (it could never match), not empty; a value with no line break; the line
// within the readers' 255 characters. The readers trim a value's outer
// blanks: that is the file's syntax, not a loss.
bool fits_setting(std::string_view key, std::string_view value, char sep);

// One token of printable ASCII of 1 to `longest` characters that the SNMP
// agent reads as the word it is: no quote or backslash, no leading '#'.
bool is_config_token(std::string_view text, std::size_t longest);

// An SNMPv3 user name that the agent's tool takes as a name (no leading
// '-') and writes as one agent token, and that the library's reader gives
// back (31 characters at most).
bool is_snmp_user_name(std::string_view name);

// A pass phrase the agent accepts (8 characters or more) and the tool can
// carry inside its double quotes: no quote, backslash, blank or control.
bool is_snmp_pass_phrase(std::string_view phrase);

// The value of a "set name=value" line of the mail client's resource file,
// quoted in the client's own syntax when it holds a blank, a quote, a
// backslash or ';': the client, and mail_rc_decoded, read back exactly
// `value`. Values with control characters cannot be carried: callers check
// with is_control first.
std::string mail_rc_encoded(std::string_view value);
std::string mail_rc_decoded(std::string_view text);

// `text` for a log or SEL line: control characters written as "\n", "\r",
// "\t" or "\xHH", so that one call makes one line.
std::string visible_text(std::string_view text);

// A log message with its line breaks written so, but for a run of them at
// its very end, which its format asked for; cut to `longest` characters.
// Other control bytes stay: the rule store's refusal lines print the rule
// id with "%c".
std::string one_line(std::string_view message, std::size_t longest);

// A FRU string field whose length fits the 6-bit length of its type/length
// byte.
inline constexpr std::size_t kFruFieldLongest = 63;

// A user name of /etc/user/privilege: one field of one line, not empty.
// Its readers take lines of up to kStoreLineLongest characters whole.
bool is_store_name(std::string_view name);
inline constexpr std::size_t kStoreLineLongest = 1023;

} // namespace kv::detail

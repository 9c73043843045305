// SPDX-License-Identifier: Apache-2.0
#include "foundation/consumer_text.h"

#include <algorithm>
#include <cstdio>

namespace kv::detail
{
namespace
{

constexpr std::size_t kSettingLineLongest = 255; // the newline included
constexpr std::size_t kSnmpUserLongest = 31;
constexpr std::size_t kSnmpPhraseShortest = 8;
constexpr std::size_t kSnmpPhraseLongest = 127;

bool has_control(std::string_view text)
{
    return std::any_of(text.begin(), text.end(), is_control);
}

bool has_outer_blank(std::string_view text)
{
    return !text.empty() && (text.front() == ' ' || text.back() == ' ');
}

bool is_printable_ascii(char c)
{
    return c > ' ' && c < 0x7f;
}

// Printable ASCII, and none of `refused`.
bool is_word(std::string_view text, std::string_view refused)
{
    return std::all_of(text.begin(), text.end(), [&](char c) {
        return is_printable_ascii(c) && refused.find(c) == refused.npos;
    });
}

// `text` with each character that `pick` picks written as "\n", "\r",
// "\t" or "\xHH".
template <typename Pick>
std::string escaped(std::string_view text, Pick pick)
{
    std::string out;
    out.reserve(text.size());
    for (const char c : text)
    {
        if (!pick(c))
        {
            out += c;
            continue;
        }
        switch (c)
        {
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                char code[5];
                std::snprintf(code, sizeof code, "\\x%02x",
                              static_cast<unsigned char>(c));
                out += code;
        }
    }
    return out;
}

bool is_line_break(char c)
{
    return c == '\n' || c == '\r';
}

} // namespace

bool is_control(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

bool fits_setting(std::string_view key, std::string_view value, char sep)
{
    return !key.empty() && key.find(sep) == key.npos && !has_control(key) &&
           !has_outer_blank(key) && value.find_first_of("\r\n") == value.npos &&
           key.size() + value.size() + 2 <= kSettingLineLongest;
}

// The agent's reader takes a word that begins with '#' for a comment, one
// that begins with a quote for a quoted string, and a backslash for an
// escape.
bool is_config_token(std::string_view text, std::size_t longest)
{
    return !text.empty() && text.size() <= longest && text.front() != '#' &&
           is_word(text, "\"'\\");
}

bool is_snmp_user_name(std::string_view name)
{
    return is_config_token(name, kSnmpUserLongest) && name.front() != '-';
}

bool is_snmp_pass_phrase(std::string_view phrase)
{
    return phrase.size() >= kSnmpPhraseShortest &&
           phrase.size() <= kSnmpPhraseLongest && is_word(phrase, "\"\\");
}

// Outside quotes the client takes a backslash as "the next character as it
// is"; inside single quotes only "\'" is special. The value goes in single
// quotes, with each quote and backslash escaped outside them: it's becomes
// 'it'\''s'.
std::string mail_rc_encoded(std::string_view value)
{
    if (value.find_first_of(" '\"\\;") == value.npos)
    {
        return std::string(value);
    }
    std::string out = "'";
    for (const char c : value)
    {
        if (c == '\'' || c == '\\')
        {
            out += '\'';
            out += '\\';
            out += c;
            out += '\'';
            continue;
        }
        out += c;
    }
    out += '\'';
    return out;
}

std::string mail_rc_decoded(std::string_view text)
{
    std::string out;
    char quote = '\0';
    for (std::size_t at = 0; at < text.size(); ++at)
    {
        const char c = text[at];
        const bool escapes = c == '\\' && at + 1 < text.size() &&
                             (quote == '\0' || text[at + 1] == quote);
        if (escapes)
        {
            out += text[++at];
        }
        else if (quote == '\0' && (c == '\'' || c == '"'))
        {
            quote = c;
        }
        else if (c == quote)
        {
            quote = '\0';
        }
        else
        {
            out += c;
        }
    }
    return out;
}

std::string visible_text(std::string_view text)
{
    return escaped(text, is_control);
}

std::string one_line(std::string_view message, std::size_t longest)
{
    const std::size_t body = message.find_last_not_of('\n') + 1;
    std::string line = escaped(message.substr(0, body), is_line_break);
    line += message.substr(body);
    line.resize(std::min(line.size(), longest));
    return line;
}

bool is_store_name(std::string_view name)
{
    return !name.empty() && name.find(',') == name.npos && !has_control(name);
}

} // namespace kv::detail

// SPDX-License-Identifier: Apache-2.0
// Key=value configuration files: the one reader, writer and deleter behind
// every settings file of the BMC. Lines are handled in pieces of at most 255
// characters and split at their first separator; key and value are trimmed.
#include "foundation/kvfile.h"

#include "foundation/atomic_replace.h"
#include "foundation/consumer_text.h"
#include "foundation/resources.h"
#include "foundation/scratch_rewrite.h"

#include <libkv/foundation.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace
{

using kv::detail::UniqueFd;
using kv::detail::UniqueFile;

constexpr int kLineSize = 256; // 255 characters and the terminator
constexpr size_t kPieceLength = kLineSize - 1;
constexpr size_t kReadChunk = 4096;

bool is_trailing_junk(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte == ' ' || byte < 0x20 || byte == 0x7f;
}

// What get_valid_string leaves of `text`, without moving it.
std::string_view trimmed(std::string_view text)
{
    const size_t begin = std::min(text.find_first_not_of(' '), text.size());
    size_t end = text.size();
    while (end > begin && is_trailing_junk(text[end - 1]))
    {
        --end;
    }
    return text.substr(begin, end - begin);
}

// A line read as a C string: up to its first NUL.
std::string_view as_text(std::string_view line)
{
    return line.substr(0, ::strnlen(line.data(), line.size()));
}

struct Setting
{
    std::string_view key;
    std::string_view value;
};

// A line split at its first separator, both halves trimmed; a line without
// the separator holds no setting.
std::optional<Setting> setting_of(std::string_view line, char sep)
{
    line = as_text(line);
    const size_t at = line.find(sep);
    if (at == std::string_view::npos)
    {
        return std::nullopt;
    }
    return Setting{trimmed(line.substr(0, at)), trimmed(line.substr(at + 1))};
}

bool line_has_key(std::string_view line, const char* key, char sep)
{
    const auto setting = setting_of(line, sep);
    return setting && setting->key == key;
}

// The lines of a file held in memory, cut as fgets() with a 256-byte buffer
// cuts them: through the newline, or 255 characters.
class Lines
{
  public:
    explicit Lines(std::string_view text) : rest_(text)
    {}

    bool next(std::string_view& line)
    {
        if (rest_.empty())
        {
            return false;
        }
        const size_t limit = std::min(rest_.size(), kPieceLength);
        const auto* newline =
            static_cast<const char*>(std::memchr(rest_.data(), '\n', limit));
        const size_t length =
            newline != nullptr ? static_cast<size_t>(newline - rest_.data()) + 1
                               : limit;
        line = rest_.substr(0, length);
        rest_.remove_prefix(length);
        return true;
    }

  private:
    std::string_view rest_;
};

// The value of the first line holding `key`.
std::optional<std::string_view> find_value(std::string_view text,
                                           const char* key, char sep)
{
    Lines lines(text);
    for (std::string_view line; lines.next(line);)
    {
        const auto setting = setting_of(line, sep);
        if (setting && setting->key == key)
        {
            return setting->value;
        }
    }
    return std::nullopt;
}

// What a rewrite starts from. Only a regular file is copied into its
// replacement; anything else is read for its current value alone, and the
// rename over it fails later.
struct Original
{
    std::string text;
    bool regular = false;
    bool read_failed = false; // of a regular file: its content is unknown
    std::optional<kv::detail::FileOwner> owner; // none for a new file
};

// One open, one fstat and, for a file of the size fstat gave, one read: a
// regular file that returns less than was asked for has ended.
Original read_original(const char* path)
{
    Original original;
    UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
    struct stat info = {};
    if (!fd || ::fstat(fd.get(), &info) != 0)
    {
        return original;
    }
    original.regular = S_ISREG(info.st_mode);
    original.owner = kv::detail::owner_of(info);
    size_t want =
        original.regular ? static_cast<size_t>(info.st_size) + 1 : kReadChunk;
    size_t used = 0;
    for (;;)
    {
        original.text.resize(used + want);
        const ssize_t got = ::read(fd.get(), original.text.data() + used, want);
        if (got < 0 && errno == EINTR)
        {
            continue;
        }
        if (got < 0)
        {
            original.read_failed = original.regular;
            break;
        }
        used += static_cast<size_t>(got);
        if (got == 0 || (original.regular && static_cast<size_t>(got) < want))
        {
            break;
        }
        want = std::max(used, kReadChunk);
    }
    original.text.resize(used);
    return original;
}

// The new content replaces `path` through a scratch file
// "<path>_<microseconds>".
int replace_with(const char* path, std::string_view content,
                 const Original& original, mode_t new_file)
{
    char name[PATH_MAX];
    if (!kv::detail::scratch_name_for(path, name))
    {
        return KV_CONF_FAILED;
    }
    return kv::detail::settings_result(
        kv::detail::replace_file(path, name, kv::detail::ScratchName::unique,
                                 content, original.owner, new_file));
}

// A line as a C-string copy writes it, up to its first NUL, but with its
// line end: the rest of a line after a NUL must not join the next line to
// it and make a setting of the two.
void append_line(std::string& out, std::string_view line)
{
    const std::string_view text = as_text(line);
    out += text;
    if (text.size() < line.size() && line.back() == '\n')
    {
        out += '\n';
    }
}

// The first line holding `key` becomes `new_line`; later lines, duplicates
// included, are copied unexamined. Without such a line `new_line` is
// appended, on a line of its own even when the file lacks a final newline.
std::string with_setting(std::string_view text, const char* key, char sep,
                         std::string_view new_line)
{
    std::string out;
    out.reserve(text.size() + new_line.size() + 1);
    bool replaced = false;
    Lines lines(text);
    for (std::string_view line; lines.next(line);)
    {
        if (!replaced && line_has_key(line, key, sep))
        {
            out += new_line;
            replaced = true;
            continue;
        }
        append_line(out, line);
    }
    if (!replaced)
    {
        if (!out.empty() && out.back() != '\n')
        {
            out += '\n';
        }
        out += new_line;
    }
    return out;
}

std::string without_key(std::string_view text, const char* key, char sep)
{
    std::string out;
    out.reserve(text.size());
    Lines lines(text);
    for (std::string_view line; lines.next(line);)
    {
        if (!line_has_key(line, key, sep))
        {
            append_line(out, line);
        }
    }
    return out;
}

} // namespace

extern "C" int check_comment_line(const char* line)
{
    if (line == nullptr)
    {
        return -1;
    }
    return line[std::strspn(line, " ")] == '#' ? 1 : 0;
}

extern "C" int get_valid_string(char* s)
{
    if (s == nullptr)
    {
        return -1;
    }
    const size_t begin = std::strspn(s, " ");
    size_t end = std::strlen(s);
    while (end > begin && is_trailing_junk(s[end - 1]))
    {
        --end;
    }
    std::memmove(s, s + begin, end - begin);
    s[end - begin] = '\0';
    return 0;
}

extern "C" int read_conf_value_safe(const char* path, const char* key,
                                    char* value, size_t size, char sep)
{
    if (path == nullptr || key == nullptr || value == nullptr || size == 0)
    {
        return -1;
    }
    UniqueFile file = kv::detail::open_file(path, "re");
    if (!file)
    {
        return -1;
    }
    char line[kLineSize];
    while (std::fgets(line, sizeof line, file.get()) != nullptr)
    {
        const auto setting = setting_of(line, sep);
        if (setting && setting->key == key)
        {
            const size_t length = std::min(setting->value.size(), size - 1);
            std::memcpy(value, setting->value.data(), length);
            value[length] = '\0';
            return 0;
        }
    }
    return -1;
}

extern "C" int read_conf_value(const char* path, const char* key, char* value)
{
    return read_conf_value_safe(path, key, value, 128, '=');
}

// An unchanged value leaves the file, and its modification time, alone.
int kv::detail::write_setting(const char* path, const char* key,
                              const char* value, char sep, mode_t new_file)
{
    if (path == nullptr || key == nullptr || value == nullptr)
    {
        return KV_CONF_FAILED;
    }
    if (!fits_setting(key, value, sep))
    {
        errno = EINVAL;
        return KV_CONF_FAILED;
    }
    const Original original = read_original(path);
    const auto current = find_value(original.text, key, sep);
    if (current && *current == trimmed(std::string_view(
                                   value, ::strnlen(value, kPieceLength))))
    {
        return 0;
    }
    if (original.read_failed)
    {
        return -1;
    }
    char new_line[kLineSize];
    std::snprintf(new_line, sizeof new_line, "%s%c%s\n", key, sep, value);
    return replace_with(
        path,
        with_setting(original.regular ? original.text : "", key, sep, new_line),
        original, new_file);
}

extern "C" int write_conf_value_safe(const char* path, const char* key,
                                     const char* value, char sep)
{
    return kv::detail::write_setting(path, key, value, sep,
                                     kv::detail::kPublicFile);
}

extern "C" int write_conf_value(const char* path, const char* key,
                                const char* value)
{
    return write_conf_value_safe(path, key, value, '=');
}

extern "C" int delete_conf_value_safe(const char* path, const char* key,
                                      char sep)
{
    if (path == nullptr || key == nullptr)
    {
        return -1;
    }
    const Original original = read_original(path);
    if (!find_value(original.text, key, sep))
    {
        return 0;
    }
    if (original.read_failed)
    {
        return -1;
    }
    return replace_with(
        path, without_key(original.regular ? original.text : "", key, sep),
        original, kv::detail::kPublicFile);
}

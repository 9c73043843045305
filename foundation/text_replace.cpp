// SPDX-License-Identifier: Apache-2.0
// Literal search-and-replace for files that are not in key=value form. The
// file is rewritten in place, not through a scratch file.
#include "foundation/resources.h"

#include <libkv/foundation.h>

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

namespace
{

using kv::detail::fail;
using kv::detail::last_cause;
using kv::detail::UniqueFile;

// The file's text without its last byte: this function has always dropped
// the final newline, and the files it edits are kept that way. 0, or the
// negative errno of the failed step (EIO for a file that got shorter).
int read_all_but_last(const char* path, std::string& text)
{
    UniqueFile file = kv::detail::open_file(path, "rb");
    struct stat info = {};
    if (!file || ::fstat(fileno(file.get()), &info) != 0)
    {
        return last_cause();
    }
    text.resize(static_cast<size_t>(info.st_size));
    if (std::fread(text.data(), 1, text.size(), file.get()) != text.size())
    {
        return std::ferror(file.get()) ? last_cause() : -EIO;
    }
    if (!text.empty())
    {
        text.pop_back();
    }
    return 0;
}

// 0, or the negative errno of the failed open, write or close.
int rewrite_in_place(const char* path, const std::string& text)
{
    UniqueFile file = kv::detail::open_file(path, "wb");
    if (!file)
    {
        return last_cause();
    }
    const int written =
        std::fwrite(text.data(), 1, text.size(), file.get()) == text.size()
            ? 0
            : last_cause();
    const int closed = std::fclose(file.release()) == 0 ? 0 : last_cause();
    return written < 0 ? written : closed;
}

} // namespace

extern "C" int replace_file_value(const char* path, const char* new_text,
                                  const char* old_text)
{
    if (path == nullptr || new_text == nullptr || old_text == nullptr)
    {
        return -1;
    }
    try
    {
        std::string text;
        if (const int cause = read_all_but_last(path, text); cause < 0)
        {
            return fail(cause, -1);
        }
        const size_t at = text.find(old_text);
        if (at == std::string::npos)
        {
            return KV_CONF_TEXT_NOT_FOUND;
        }
        text.replace(at, std::strlen(old_text), new_text);
        const int cause = rewrite_in_place(path, text);
        return cause < 0 ? fail(cause, -1) : 0;
    }
    catch (const std::exception&)
    {
        return fail(-ENOMEM, -1); // memory exhausted
    }
}

// Literal search-and-replace for files that are not in key=value form. The
// file is rewritten in place, not through a scratch file.
#include "foundation/resources.h"

#include <libkv/foundation.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

namespace
{

using kv::detail::UniqueFile;

// The file's text without its last byte: this function has always dropped
// the final newline, and the files it edits are kept that way.
bool read_all_but_last(const char* path, std::string& text)
{
    UniqueFile file = kv::detail::open_file(path, "rb");
    struct stat info = {};
    if (!file || ::fstat(fileno(file.get()), &info) != 0)
    {
        return false;
    }
    text.resize(static_cast<size_t>(info.st_size));
    if (std::fread(text.data(), 1, text.size(), file.get()) != text.size())
    {
        return false;
    }
    if (!text.empty())
    {
        text.pop_back();
    }
    return true;
}

bool rewrite_in_place(const char* path, const std::string& text)
{
    UniqueFile file = kv::detail::open_file(path, "wb");
    if (!file)
    {
        return false;
    }
    const bool written =
        std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
    return std::fclose(file.release()) == 0 && written;
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
        if (!read_all_but_last(path, text))
        {
            return -1;
        }
        const size_t at = text.find(old_text);
        if (at == std::string::npos)
        {
            return KV_CONF_TEXT_NOT_FOUND;
        }
        text.replace(at, std::strlen(old_text), new_text);
        return rewrite_in_place(path, text) ? 0 : -1;
    }
    catch (const std::exception&)
    {
        return -1; // memory exhausted
    }
}

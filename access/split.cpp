// SPDX-License-Identifier: Apache-2.0
#include <libkv/access.h>

void split(std::vector<std::string>& out, const std::string& text, char sep)
{
    out.clear();
    // An empty line has no fields at all, not one empty field.
    if (text.empty())
    {
        return;
    }
    std::string::size_type start = 0;
    for (;;)
    {
        const std::string::size_type end = text.find(sep, start);
        if (end == std::string::npos)
        {
            out.push_back(text.substr(start));
            return;
        }
        out.push_back(text.substr(start, end - start));
        start = end + 1;
    }
}

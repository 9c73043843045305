// SPDX-License-Identifier: Apache-2.0
// The lines of a configuration file that a getter reads: those a chain of
// greps would pass, trimmed, with comments and other keywords left out.
#include "services/snmp_conf.h"

#include <libkv/foundation.h>
#include <libkv/services.h>

#include <strings.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace kv::services
{
namespace
{

bool contains_all(const std::string& line,
                  std::initializer_list<const char*> words)
{
    for (const char* word : words)
    {
        if (line.find(word) == std::string::npos)
        {
            return false;
        }
    }
    return true;
}

} // namespace

void for_each_selected_line(const char* path,
                            std::initializer_list<const char*> words,
                            const std::function<bool(char* line)>& visit)
{
    std::ifstream file(path);
    const char* keyword = *words.begin();
    for (std::string text; std::getline(file, text);)
    {
        if (!contains_all(text, words))
        {
            continue;
        }
        char line[256];
        std::snprintf(line, sizeof line, "%s", text.c_str());
        get_valid_string(line);
        if (line[0] == '#' ||
            ::strncasecmp(line, keyword, std::strlen(keyword)) != 0)
        {
            continue;
        }
        if (!visit(line))
        {
            return;
        }
    }
}

int first_selected_word(const char* path,
                        std::initializer_list<const char*> words,
                        unsigned index, char* out, unsigned size)
{
    int result = KV_SNMP_FAILED;
    for_each_selected_line(path, words, [&](char* line) {
        std::istringstream split(line);
        std::string word;
        for (unsigned i = 0; i <= index; ++i)
        {
            if (!(split >> word))
            {
                word.clear();
                break;
            }
        }
        std::snprintf(out, size, "%.127s", word.c_str());
        result = 0;
        return false;
    });
    return result;
}

} // namespace kv::services

// SPDX-License-Identifier: Apache-2.0
// In-place text trimming, reversal, value/name tables and a small sort.
#include <libkv/foundation.h>

#include <algorithm>
#include <cstring>

namespace
{

constexpr const char* kBlanks = " \t\n\r";

// Unsigned arithmetic wraps where the signed sum would overflow; the int is
// read through its unsigned counterpart, which aliasing allows.
void swap_by_sum(unsigned& x, unsigned& y)
{
    x += y;
    y = x - y;
    x -= y;
}

} // namespace

extern "C" const char* skip_leading_chars(const char* s, const char* set)
{
    if (s == nullptr)
    {
        return nullptr;
    }
    return s + std::strspn(s, set ? set : kBlanks);
}

extern "C" char* delete_trailing_chars(char* s, const char* set)
{
    if (s == nullptr)
    {
        return nullptr;
    }
    const char* cut = set ? set : kBlanks;
    size_t len = std::strlen(s);
    while (len > 0 && std::strchr(cut, s[len - 1]) != nullptr)
    {
        --len;
    }
    s[len] = '\0';
    return s;
}

// Writes through a const parameter: callers pass their own buffers.
extern "C" char* string_strip(const char* s)
{
    char* text = const_cast<char*>(s);
    return const_cast<char*>(
        skip_leading_chars(delete_trailing_chars(text, kBlanks), kBlanks));
}

extern "C" int delete_string_blank(char* s)
{
    if (s == nullptr)
    {
        return 0;
    }
    const size_t start = std::strspn(s, " ");
    if (s[start] == '\0')
    {
        return 0; // only spaces: left as it is
    }
    size_t end = std::strlen(s);
    while (s[end - 1] == ' ')
    {
        --end;
    }
    std::memmove(s, s + start, end - start);
    s[end - start] = '\0';
    return 0;
}

extern "C" int is_empty(const char* s)
{
    return s == nullptr || s[0] == '\0' ? 1 : 0;
}

extern "C" char* strrev(char* s)
{
    if (s != nullptr)
    {
        std::reverse(s, s + std::strlen(s));
    }
    return s;
}

extern "C" int string_to_int(const ValueName* table, unsigned rows,
                             const char* name)
{
    if (table == nullptr || name == nullptr)
    {
        return -1;
    }
    for (unsigned i = 0; i < rows; ++i)
    {
        if (table[i].name != nullptr && std::strcmp(table[i].name, name) == 0)
        {
            return table[i].value;
        }
    }
    return -1;
}

extern "C" const char* int_to_string(const ValueName* table, unsigned rows,
                                     int value)
{
    if (table == nullptr)
    {
        return "";
    }
    for (unsigned i = 0; i < rows; ++i)
    {
        if (table[i].name != nullptr && table[i].value == value)
        {
            return table[i].name;
        }
    }
    return "";
}

extern "C" int* bubble_sort(int* a, int n)
{
    for (int pass = 1; a != nullptr && pass < n; ++pass)
    {
        for (int i = 0; i < n - pass; ++i)
        {
            if (a[i] > a[i + 1])
            {
                swap_by_sum(reinterpret_cast<unsigned&>(a[i]),
                            reinterpret_cast<unsigned&>(a[i + 1]));
            }
        }
    }
    return a;
}

// SPDX-License-Identifier: Apache-2.0
// JSON files through cJSON: whole-file parsing, typed reads of nodes and an
// atomic replace-by-rename write.
#include "foundation/atomic_replace.h"
#include "foundation/resources.h"

#include <libkv/foundation.h>

#include <cjson/cJSON.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace
{

using kv::detail::UniqueFile;

// Node types in the numbering of early cJSON releases, which callers of these
// helpers still reason in. Newer releases use one bit per type.
enum class LegacyType
{
    False = 0,
    True = 1,
    Null = 2,
    Number = 3,
    String = 4,
    Array = 5,
    Object = 6,
    Other = 7 // raw text and anything a later release adds
};

LegacyType legacy_type(const cJSON& item)
{
    switch (item.type & 0xFF)
    {
        case cJSON_False:
            return LegacyType::False;
        case cJSON_True:
            return LegacyType::True;
        case cJSON_NULL:
            return LegacyType::Null;
        case cJSON_Number:
            return LegacyType::Number;
        case cJSON_String:
            return LegacyType::String;
        case cJSON_Array:
            return LegacyType::Array;
        case cJSON_Object:
            return LegacyType::Object;
        default:
            return LegacyType::Other;
    }
}

// Truncates towards zero and saturates, so that any double (NaN, huge,
// negative) converts with defined behaviour.
int64_t to_int64(double number)
{
    constexpr double kLimit = 9223372036854775808.0; // 2^63
    if (std::isnan(number))
    {
        return 0;
    }
    if (number >= kLimit)
    {
        return INT64_MAX;
    }
    if (number <= -kLimit)
    {
        return INT64_MIN;
    }
    return static_cast<int64_t>(number);
}

// Never writes past the `size` bytes the caller gave us.
template <typename T>
int store(T value, void* out, size_t size)
{
    if (size < sizeof value)
    {
        return -1;
    }
    std::memcpy(out, &value, sizeof value);
    return 0;
}

int store_number(double number, int kind, void* out, size_t size)
{
    switch (kind)
    {
        case KV_JSON_U8:
            return store(static_cast<uint8_t>(to_int64(number)), out, size);
        case KV_JSON_I16:
            return store(static_cast<int16_t>(to_int64(number)), out, size);
        case KV_JSON_I32:
            return store(static_cast<int32_t>(to_int64(number)), out, size);
        case KV_JSON_I64:
            return store(to_int64(number), out, size);
        case KV_JSON_TEXT:
            std::snprintf(static_cast<char*>(out), size, "%lf", number);
            return 0;
        case KV_JSON_FLOAT:
            return store(static_cast<float>(number), out, size);
        case KV_JSON_DOUBLE:
            return store(number, out, size);
        default:
            return -1;
    }
}

struct CJsonFree
{
    void operator()(char* text) const
    {
        cJSON_free(text);
    }
};

} // namespace

extern "C" cJSON* prepare_parse_json(const char* path)
{
    if (path == nullptr)
    {
        return nullptr;
    }
    UniqueFile file = kv::detail::open_file(path, "rb");
    struct stat info = {};
    if (!file || ::fstat(fileno(file.get()), &info) != 0 || info.st_size <= 0)
    {
        return nullptr;
    }
    const auto size = static_cast<size_t>(info.st_size);
    std::unique_ptr<char[]> text(new (std::nothrow) char[size + 1]);
    if (!text || std::fread(text.get(), 1, size, file.get()) != size)
    {
        return nullptr;
    }
    text[size] = '\0';
    return cJSON_Parse(text.get());
}

extern "C" int cjson_data_get(const cJSON* item, int kind, void* out,
                              size_t size)
{
    if (item == nullptr || out == nullptr || size == 0 || kind < KV_JSON_U8 ||
        kind > KV_JSON_DOUBLE)
    {
        return -1;
    }
    double number = 0;
    switch (legacy_type(*item))
    {
        case LegacyType::False:
            number = 0;
            break;
        case LegacyType::True:
            number = 1;
            break;
        case LegacyType::Number:
            number = item->valuedouble;
            break;
        case LegacyType::String:
            if (item->valuestring == nullptr)
            {
                return -1;
            }
            if (kind == KV_JSON_TEXT)
            {
                std::snprintf(static_cast<char*>(out), size, "%s",
                              item->valuestring);
                return 0;
            }
            number = std::atof(item->valuestring);
            break;
        default:
            return -1;
    }
    return store_number(number, kind, out, size);
}

extern "C" int cjson_value_get(const cJSON* object, const char* key, int kind,
                               void* out, size_t size)
{
    if (object == nullptr || key == nullptr)
    {
        return -1;
    }
    return cjson_data_get(cJSON_GetObjectItem(object, key), kind, out, size);
}

// Readers see the old file or the new one, never a partial print. A scratch
// name that does not fit is refused rather than cut, since a cut name could
// be another file.
extern "C" int cjson_file_write(const cJSON* root, const char* path)
{
    if (root == nullptr || path == nullptr)
    {
        return -1;
    }
    timeval now{};
    ::gettimeofday(&now, nullptr);
    char scratch[128];
    const int length = std::snprintf(scratch, sizeof scratch, "%s-%u.%u.json",
                                     path, static_cast<unsigned>(now.tv_sec),
                                     static_cast<unsigned>(now.tv_usec));
    if (length < 0 || static_cast<size_t>(length) >= sizeof scratch)
    {
        return -1;
    }
    const std::unique_ptr<char, CJsonFree> text(cJSON_Print(root));
    if (!text)
    {
        return -1;
    }
    const size_t size = std::strlen(text.get());
    const auto failure = kv::detail::replace_file(
        path, scratch, kv::detail::ScratchName::unique, [&](std::FILE* file) {
            return std::fwrite(text.get(), 1, size, file) == size;
        });
    return failure == kv::detail::ReplaceFailure::none ? 0 : -1;
}

// SPDX-License-Identifier: Apache-2.0
// What the two set calls require of a text before it becomes a field of a
// store line.
#pragma once

#include <optional>
#include <string>

namespace kv::detail
{

// A comma would end the field early and a line break the record: either
// would let a text add fields or whole records of its own.
inline bool fits_one_field(const std::string& text)
{
    return text.find_first_of(",\n") == std::string::npos;
}

// The address of an "address/prefix" text whose prefix length is a number
// of at most `longest` (negative numbers pass, as they always have); nothing
// for any other text.
std::optional<std::string> network_address(const std::string& text,
                                           int longest);

} // namespace kv::detail

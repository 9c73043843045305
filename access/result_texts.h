// SPDX-License-Identifier: Apache-2.0
// Result codes of the access functions and their texts, looked up without
// reading past the tables.
#pragma once

#include <libkv/access.h>

#include <iterator>

namespace kv::detail
{

inline constexpr unsigned kAdmitted = 0;
inline constexpr unsigned kPrivilegeRefused = 256;
inline constexpr unsigned kIpRefused = 257;
inline constexpr unsigned kMacRefused = 258;
inline constexpr unsigned kTimeRefused = 259;

inline constexpr unsigned kInternalError = 4096;
inline constexpr unsigned kIpError = 4097;
inline constexpr unsigned kMacError = 4098;
inline constexpr unsigned kTimeError = 4099;
inline constexpr unsigned kPrivilegeError = 4100;
inline constexpr unsigned kWriteFailed = 4102;
inline constexpr unsigned kFileMissing = 4103;
inline constexpr unsigned kRuleIdError = 4104;

// ErrorCodeStr[index], or "" past the table's end.
const char* error_code_text(unsigned index);

inline const char* error_text(unsigned code)
{
    return error_code_text(code - kInternalError);
}

// userInterfaceStr[iface], or "(null)" where the table has no text.
const char* interface_text(userInterface iface);

} // namespace kv::detail

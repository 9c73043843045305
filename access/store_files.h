// SPDX-License-Identifier: Apache-2.0
// The two store files under /etc/user, their pending "_temp" companions and
// the way their lines are read.
#pragma once

#include <string>
#include <vector>

namespace kv::detail
{

inline constexpr const char* kUserDir = "/etc/user";
inline constexpr const char* kRulesPath = "/etc/user/rules";
inline constexpr const char* kPrivilegePath = "/etc/user/privilege";

// Where a change waits for updateFile.
inline std::string pending_name(const std::string& path)
{
    return path + "_temp";
}

// The daemons read lines into 1024-byte buffers: a line of 1024 characters
// or more ends the reading as if the file ended there.
inline constexpr std::string::size_type kLongestLine = 1023;

// Lines without their newline. A file that cannot be opened reads as empty.
std::vector<std::string> read_store_lines(const std::string& path);

bool file_exists(const char* path);

// A change left pending by an earlier set call is dropped before a new one.
void drop_pending_change(const std::string& path);

// /etc/user, made when missing with the mode the BMC image has always used.
void make_user_dir();

} // namespace kv::detail

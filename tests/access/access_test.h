// SPDX-License-Identifier: Apache-2.0
// What the access tests share: the store's files, the trace log the checks
// write to, and the matchers.
#pragma once

#include "test_helpers.h"

#include <libkv/access.h>

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace kv::access::test
{
using namespace kv::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

inline constexpr const char* kRules = "/etc/user/rules";
inline constexpr const char* kPrivilege = "/etc/user/privilege";
inline constexpr const char* kRulesPending = "/etc/user/rules_temp";
inline constexpr const char* kPrivilegePending = "/etc/user/privilege_temp";

// The access code's lines in /tmp/log so far.
inline std::string trace_log()
{
    return read_text("/tmp/log").value_or("");
}

// What `call` prints on standard error.
template <typename Call>
std::string stderr_of(Call call)
{
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

inline std::string content_of(const char* path)
{
    return read_text(path).value_or("<missing>");
}

// Stores one rule and commits it, as a management daemon does.
inline void store_rule(unsigned char id, std::string ipv4, std::string mac,
                       const std::string& validTime, bool openflag = true,
                       const std::string& ipv6 = "")
{
    ASSERT_EQ(0, setUserRule(id, ipv4, mac, validTime, openflag, ipv6));
    ASSERT_EQ(0, updateFile(kRules, 1));
}

inline void store_user(const std::string& name, const std::string& privilege,
                       const std::string& ruleid)
{
    ASSERT_EQ(0u, setUserPrivilege(name, privilege, ruleid));
    ASSERT_EQ(0, updateFile(kPrivilege, 1));
}

} // namespace kv::access::test

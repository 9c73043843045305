// SPDX-License-Identifier: Apache-2.0
// /etc/user/privilege: one user a line, "username,privilege,ruleid", the
// privilege as twelve '0'/'1' characters with the web interface's bit last.
#include "access/result_texts.h"
#include "access/store_fields.h"
#include "access/store_files.h"
#include "foundation/consumer_text.h"

#include <libkv/access.h>
#include <libkv/foundation.h>

#include <exception>
#include <iostream>

using namespace kv::detail;

void userPrivilege::writeRule2File(const userPrivilege& user)
{
    try
    {
        modifyLineData(kPrivilegePath, user.username,
                       user.username + "," + user.privilege.to_string() + "," +
                           user.ruleid + "\n");
    }
    catch (...)
    {
        throw std::exception();
    }
}

int getUserPrivilege(std::vector<userPrivilege>& users)
try
{
    if (!file_exists(kPrivilegePath))
    {
        return kFileMissing;
    }
    unsigned result = kAdmitted;
    std::vector<std::string> fields;
    for (const std::string& line : read_store_lines(kPrivilegePath))
    {
        split(fields, line, ',');
        if (fields.size() != 3)
        {
            veldmarke_log("get user privilege failed.. size: %d, line: %s",
                          static_cast<int>(fields.size()), line.c_str());
            result = kInternalError;
            if (fields.size() < 3)
            {
                continue;
            }
        }
        try
        {
            users.push_back({fields[0], std::bitset<12>(fields[1]), fields[2]});
        }
        catch (const std::invalid_argument& e)
        {
            std::cerr << e.what() << '\n';
            result = kInternalError;
        }
    }
    return static_cast<int>(result);
}
catch (const std::exception& e)
{
    std::cerr << e.what() << '\n';
    return kInternalError;
}

unsigned setUserPrivilege(const std::string& username,
                          const std::string& privilege,
                          const std::string& ruleid)
try
{
    drop_pending_change(kPrivilegePath);
    const auto refuse = [&](unsigned code) {
        veldmarke_log("Set user privilege faile. username: %s, privilege: %s, "
                      "ruleid: %s, reason: %s",
                      username.c_str(), privilege.c_str(), ruleid.c_str(),
                      error_text(code));
        return code;
    };
    // The name is the line's key: it must stay one field of a line that
    // the readers take whole.
    constexpr size_t kBitsAndCommas = 14; // ",000000000101,"
    if (!is_store_name(username) ||
        username.size() + kBitsAndCommas + ruleid.size() > kStoreLineLongest)
    {
        return refuse(kInternalError);
    }
    if (ruleid.find_first_not_of("012") != std::string::npos)
    {
        return refuse(kRuleIdError);
    }
    userPrivilege user{username, {}, ruleid};
    try
    {
        user.privilege = std::bitset<12>(privilege);
    }
    catch (const std::invalid_argument& e)
    {
        std::cerr << e.what() << '\n';
        return refuse(kPrivilegeError);
    }

    make_user_dir();
    try
    {
        userPrivilege::writeRule2File(user);
    }
    catch (const std::exception& e)
    {
        std::cerr << e.what() << '\n';
        return refuse(kWriteFailed);
    }
    veldmarke_log("Set user privilege successed. username: %s, privilege: %s, "
                  "ruleid: %s",
                  username.c_str(), privilege.c_str(), ruleid.c_str());
    return kAdmitted;
}
catch (const std::exception&)
{
    return kInternalError;
}

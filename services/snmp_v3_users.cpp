// SPDX-License-Identifier: Apache-2.0
// SNMPv3: the engine id, and the users of the createUser lines.
#include "foundation/consumer_text.h"
#include "services/snmp_conf.h"

#include <libkv/foundation.h>
#include <libkv/services.h>

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern char** environ;

namespace
{

using kv::services::LineFate;

// A node for a "createUser name auth pass priv" line, or null when the line
// lacks a field, names an unknown protocol or no memory is left.
SNMP_V3_USER* user_of(const char* line)
{
    char name[32];
    char authen[32];
    char password[32];
    char encrypt[32];
    if (std::sscanf(line, "%*s %31s %31s %31s %31s", name, authen, password,
                    encrypt) < 4)
    {
        return nullptr;
    }
    const SNMP_V3_AUTHEN auth = snmp_v3_authen_atoi(authen);
    const SNMP_V3_ENCRYPT priv = snmp_v3_encrypt_atoi(encrypt);
    if (auth == SNMP_V3_AUTHEN_UNKNOWN || priv == SNMP_V3_ENCRYPT_UNKNOWN)
    {
        return nullptr;
    }
    auto* user =
        static_cast<SNMP_V3_USER*>(std::calloc(1, sizeof(SNMP_V3_USER)));
    if (user != nullptr)
    {
        user->authen = auth;
        user->encrypt = priv;
        std::memcpy(user->name, name, sizeof name);
        std::memcpy(user->password, password, sizeof password);
    }
    return user;
}

// Whether `line` is a live one whose first token is one of `keywords` and
// whose second is `name`.
bool names_user(const char* line, std::initializer_list<const char*> keywords,
                const char* name)
{
    char keyword[32] = "";
    char user[32] = "";
    if (check_comment_line(line) != 0 ||
        std::sscanf(line, "%31s %31s", keyword, user) < 2 ||
        std::strcmp(user, name) != 0)
    {
        return false;
    }
    for (const char* wanted : keywords)
    {
        if (std::strcmp(keyword, wanted) == 0)
        {
            return true;
        }
    }
    return false;
}

} // namespace

extern "C" int snmp_v3_engineid_get(char* engineid, unsigned size)
{
    if (engineid == nullptr || size == 0)
    {
        return KV_SNMP_FAILED;
    }
    return kv::services::first_selected_word(
        kv::services::kSnmpdState, {"oldEngineID"}, 1, engineid, size);
}

extern "C" int snmp_v3_user_get(SNMP_V3_USER** head)
{
    if (head == nullptr)
    {
        return KV_SNMP_FAILED;
    }
    SNMP_V3_USER** tail = head;
    while (*tail != nullptr)
    {
        tail = &(*tail)->next;
    }
    kv::services::for_each_selected_line(
        kv::services::kSnmpdConf, {"createUser"}, [&](char* line) {
            if (SNMP_V3_USER* user = user_of(line))
            {
                *tail = user;
                tail = &user->next;
            }
            return true;
        });
    return 0;
}

extern "C" int snmp_v3_user_free(SNMP_V3_USER** head)
{
    if (head == nullptr)
    {
        return 0;
    }
    while (SNMP_V3_USER* user = *head)
    {
        *head = user->next;
        std::free(user);
    }
    return 0;
}

// The name and pass phrase come from a remote administrator: they reach
// the tool as arguments of their own, never through a shell, and only in a
// form the tool takes for a name and writes into the agent's files as one
// word (the name) or one quoted string (the pass phrase).
extern "C" int snmp_v3_user_add(const char* name, const char* password,
                                SNMP_V3_AUTHEN authen, SNMP_V3_ENCRYPT encrypt)
{
    const char* auth_text = snmp_v3_authen_itoa(authen);
    const char* priv_text = snmp_v3_encrypt_itoa(encrypt);
    if (name == nullptr || !kv::detail::is_snmp_user_name(name) ||
        password == nullptr || !kv::detail::is_snmp_pass_phrase(password) ||
        auth_text == nullptr || priv_text == nullptr)
    {
        return KV_SNMP_FAILED;
    }
    const char* argv[] = {"net-snmp-create-v3-user",
                          "-A",
                          password,
                          "-X",
                          password,
                          "-a",
                          auth_text,
                          "-x",
                          priv_text,
                          name,
                          nullptr};
    pid_t child = 0;
    if (posix_spawnp(&child, argv[0], nullptr, nullptr,
                     const_cast<char* const*>(argv), environ) == 0)
    {
        while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR)
        {}
    }
    return 0;
}

extern "C" int snmp_v3_user_del(const char* name)
{
    if (name == nullptr)
    {
        return KV_SNMP_FAILED;
    }
    bool user_dropped = false;
    bool access_dropped = false;
    return kv::services::rewrite_snmpd_conf([&](const char* line) {
        if (!user_dropped && names_user(line, {"createUser"}, name))
        {
            user_dropped = true;
            return LineFate::drop;
        }
        if (!access_dropped && names_user(line, {"rwuser", "rouser"}, name))
        {
            access_dropped = true;
            return LineFate::drop;
        }
        return LineFate::keep;
    });
}

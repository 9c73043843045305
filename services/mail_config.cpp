// SPDX-License-Identifier: Apache-2.0
// Mail alert settings: the mail client's resource file, where settings the
// client does not know stand on comment lines, and the shared record.
#include "foundation/byte_order.h"
#include "services/mail_record.h"

#include <libkv/foundation.h>
#include <libkv/ipc.h>
#include <libkv/services.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace
{

using kv::detail::le32;
using kv::detail::store_le32;

constexpr const char* kDefaultPath = "/var/lib/ipmi/nail.rc";
constexpr unsigned kSmtpsPort = 465;
constexpr unsigned kSmtpPort = 25;
constexpr size_t kTextSize = 512; // server and recipient lists

constexpr const char* kServerKey = "set smtp";
constexpr const char* kAuthKey = "set smtp-auth";
constexpr const char* kUserKey = "set smtp-auth-user";
constexpr const char* kPasswordKey = "set smtp-auth-password";
constexpr const char* kFromKey = "set from";
// Credentials kept for later while authentication is off.
constexpr const char* kKeptUserKey = "#set smtp-auth-user";
constexpr const char* kKeptPasswordKey = "#set smtp-auth-password";
constexpr const char* kRecipientsKey = "#user-recv";
constexpr const char* kActiveKey = "#active";
constexpr const char* kErrorLevelKey = "#error-level";

template <size_t N>
bool read_key(const char* path, const char* key, char (&value)[N])
{
    return read_conf_value_safe(path, key, value, N, '=') == 0;
}

// A text field of a record that came from elsewhere: it may fill its field
// without a terminator.
template <size_t N>
std::string text_of(const char (&field)[N])
{
    return std::string(field, strnlen(field, N));
}

void write_key(const char* path, const char* key, const std::string& value)
{
    write_conf_value(path, key, value.c_str());
}

// "smtps://host:port", "smtp://host:port" or "host:port"; a missing port is
// the mode's default.
void read_server(const char* value, MailConfig& config)
{
    std::string_view rest = value;
    bool tls = false;
    if (rest.starts_with("smtps://"))
    {
        rest.remove_prefix(8);
        tls = true;
    }
    else if (rest.starts_with("smtp://"))
    {
        rest.remove_prefix(7);
    }
    const std::string address(rest);
    char server[64] = "";
    unsigned port = 0;
    std::sscanf(address.c_str(), "%63[^:]:%u", server, &port);
    if (port == 0)
    {
        port = tls ? kSmtpsPort : kSmtpPort;
    }
    std::memcpy(config.server, server, sizeof server);
    store_le32(config.port, port);
    store_le32(config.tls, tls ? 1 : 0);
}

// Up to five blank-separated addresses; more are ignored.
void read_recipients(char* list, MailConfig& config)
{
    for (char(&slot)[64] : config.recipients)
    {
        get_valid_string(list);
        if (*list == '\0')
        {
            return;
        }
        char* blank = std::strchr(list, ' ');
        const size_t length = blank != nullptr
                                  ? static_cast<size_t>(blank - list)
                                  : std::strlen(list);
        std::snprintf(slot, sizeof slot, "%.*s", static_cast<int>(length),
                      list);
        list += blank != nullptr ? length + 1 : length;
    }
}

std::string server_value(const MailConfig& config)
{
    const bool tls = le32(config.tls) != 0;
    unsigned port = le32(config.port);
    if (port == 0)
    {
        port = tls ? kSmtpsPort : kSmtpPort;
    }
    return (tls ? "smtps://" : "smtp://") + text_of(config.server) + ":" +
           std::to_string(port);
}

std::string recipients_value(const MailConfig& config)
{
    std::string list = text_of(config.recipients[0]);
    for (size_t slot = 1; slot < 5 && config.recipients[slot][0] != '\0';
         ++slot)
    {
        list += ' ';
        list += text_of(config.recipients[slot]);
    }
    return list.substr(0, kTextSize - 1);
}

} // namespace

extern "C" int read_email_config(const char* path, MailConfig* config)
{
    if (config == nullptr)
    {
        return -1;
    }
    path = path != nullptr ? path : kDefaultPath;
    if (::access(path, F_OK) != 0)
    {
        return -1;
    }
    // The user field tells whether a login is configured.
    std::memset(config->user, 0, 4);

    char text[kTextSize];
    if (read_key(path, kServerKey, text))
    {
        read_server(text, *config);
    }
    char auth[32] = "";
    read_key(path, kAuthKey, auth);
    read_key(path, kUserKey, config->user);
    read_key(path, kPasswordKey, config->password);
    const bool login = auth[0] != '\0' || config->user[0] != '\0' ||
                       config->password[0] != '\0';
    store_le32(config->authentication, login ? 1 : 0);
    if (!login)
    {
        read_key(path, kKeptUserKey, config->user);
        read_key(path, kKeptPasswordKey, config->password);
    }
    if (read_key(path, kRecipientsKey, text))
    {
        read_recipients(text, *config);
    }
    read_key(path, kActiveKey, config->active);
    char level[32];
    if (read_key(path, kErrorLevelKey, level))
    {
        store_le32(config->error_level,
                   static_cast<uint32_t>(std::atoi(level)));
    }
    return 0;
}

// Key by key; the result of each write is not looked at.
extern "C" int write_email_config(const char* path, const MailConfig* config)
{
    if (config == nullptr)
    {
        return -1;
    }
    path = path != nullptr ? path : kDefaultPath;
    write_key(path, kServerKey, server_value(*config));
    const std::string user = text_of(config->user);
    const std::string password = text_of(config->password);
    if (le32(config->authentication) != 0)
    {
        delete_conf_value_safe(path, kKeptUserKey, '=');
        delete_conf_value_safe(path, kKeptPasswordKey, '=');
        write_key(path, kFromKey, user);
        write_key(path, kAuthKey, "login");
        write_key(path, kUserKey, user);
        write_key(path, kPasswordKey, password);
    }
    else
    {
        for (const char* key : {kFromKey, kAuthKey, kUserKey, kPasswordKey})
        {
            delete_conf_value_safe(path, key, '=');
        }
        write_key(path, kKeptUserKey, user);
        write_key(path, kKeptPasswordKey, password);
    }
    write_key(path, kRecipientsKey, recipients_value(*config));
    write_key(path, kActiveKey, text_of(config->active));
    write_key(path, kErrorLevelKey, std::to_string(le32(config->error_level)));
    return 0;
}

extern "C" MailConfig* get_mail_config(void)
{
    auto* segment = static_cast<uint8_t*>(get_shm_address());
    if (segment == nullptr)
    {
        return nullptr;
    }
    return reinterpret_cast<MailConfig*>(segment + kv::segment::kMailRecord);
}

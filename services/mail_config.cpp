// SPDX-License-Identifier: Apache-2.0
// Mail alert settings: the mail client's resource file, where settings the
// client does not know stand on comment lines, and the shared record.
#include "foundation/atomic_replace.h"
#include "foundation/byte_order.h"
#include "foundation/consumer_text.h"
#include "foundation/kvfile.h"
#include "services/mail_record.h"

#include <libkv/foundation.h>
#include <libkv/ipc.h>
#include <libkv/services.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

// Notes for the library on comment lines, which the client skips: as they
// stand.
template <size_t N>
bool read_note(const char* path, const char* key, char (&value)[N])
{
    return read_conf_value_safe(path, key, value, N, '=') == 0;
}

// The client's own settings (and the credentials kept for it while the
// login is off), in its quoting.
template <size_t N>
bool read_setting(const char* path, const char* key, char (&value)[N])
{
    char raw[kTextSize];
    if (!read_note(path, key, raw))
    {
        return false;
    }
    std::snprintf(value, N, "%s", kv::detail::mail_rc_decoded(raw).c_str());
    return true;
}

// A text field of the record: none when it fills its field without a
// terminator or holds a control character (a line break would start a
// line of its own), since the file could not give it back.
template <size_t N>
std::optional<std::string> text_of(const char (&field)[N])
{
    const std::string_view text(field, strnlen(field, N));
    if (text.size() == N ||
        std::any_of(text.begin(), text.end(), kv::detail::is_control))
    {
        return std::nullopt;
    }
    return std::string(text);
}

// One step of a write: a key set to a value, or deleted (no value).
struct Step
{
    const char* key;
    std::optional<std::string> value;
};

// A client setting in the client's quoting.
Step setting(const char* key, const std::string& value)
{
    return {key, kv::detail::mail_rc_encoded(value)};
}

// A note: its line is a comment to the client, which would still join the
// next line to it after a final backslash.
std::optional<Step> note(const char* key, const std::string& value)
{
    if (!value.empty() && value.back() == '\\')
    {
        return std::nullopt;
    }
    return Step{key, value};
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

// The server is read back up to its first ':'.
std::optional<std::string> server_value(const MailConfig& config)
{
    const auto server = text_of(config.server);
    if (!server || server->find(':') != std::string::npos)
    {
        return std::nullopt;
    }
    const bool tls = le32(config.tls) != 0;
    unsigned port = le32(config.port);
    if (port == 0)
    {
        port = tls ? kSmtpsPort : kSmtpPort;
    }
    return (tls ? "smtps://" : "smtp://") + *server + ":" +
           std::to_string(port);
}

// The list is read back split at its blanks.
std::optional<std::string> recipients_value(const MailConfig& config)
{
    std::string list;
    for (size_t slot = 0; slot < 5; ++slot)
    {
        const auto recipient = text_of(config.recipients[slot]);
        if (!recipient || recipient->find(' ') != std::string::npos)
        {
            return std::nullopt;
        }
        if (slot > 0 && recipient->empty())
        {
            break;
        }
        list += (slot > 0 ? " " : "") + *recipient;
    }
    return list;
}

// Every step of a write, in order; none when a value could not be read
// back as it was given.
std::optional<std::vector<Step>> steps_for(const MailConfig& config)
{
    const auto server = server_value(config);
    const auto user = text_of(config.user);
    const auto password = text_of(config.password);
    const auto recipients = recipients_value(config);
    const auto active = text_of(config.active);
    if (!server || !user || !password || !recipients || !active)
    {
        return std::nullopt;
    }
    std::vector<Step> steps{setting(kServerKey, *server)};
    if (le32(config.authentication) != 0)
    {
        steps.insert(steps.end(), {{kKeptUserKey, std::nullopt},
                                   {kKeptPasswordKey, std::nullopt},
                                   setting(kFromKey, *user),
                                   setting(kAuthKey, "login"),
                                   setting(kUserKey, *user),
                                   setting(kPasswordKey, *password)});
    }
    else
    {
        for (const char* key : {kFromKey, kAuthKey, kUserKey, kPasswordKey})
        {
            steps.push_back({key, std::nullopt});
        }
        steps.push_back(setting(kKeptUserKey, *user));
        steps.push_back(setting(kKeptPasswordKey, *password));
    }
    for (const auto& kept :
         {note(kRecipientsKey, *recipients), note(kActiveKey, *active),
          note(kErrorLevelKey, std::to_string(le32(config.error_level)))})
    {
        if (!kept)
        {
            return std::nullopt;
        }
        steps.push_back(*kept);
    }
    for (const Step& step : steps)
    {
        if (step.value && !kv::detail::fits_setting(step.key, *step.value, '='))
        {
            return std::nullopt;
        }
    }
    return steps;
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
    if (read_setting(path, kServerKey, text))
    {
        read_server(text, *config);
    }
    char auth[32] = "";
    read_setting(path, kAuthKey, auth);
    read_setting(path, kUserKey, config->user);
    read_setting(path, kPasswordKey, config->password);
    const bool login = auth[0] != '\0' || config->user[0] != '\0' ||
                       config->password[0] != '\0';
    store_le32(config->authentication, login ? 1 : 0);
    if (!login)
    {
        read_setting(path, kKeptUserKey, config->user);
        read_setting(path, kKeptPasswordKey, config->password);
    }
    if (read_note(path, kRecipientsKey, text))
    {
        read_recipients(text, *config);
    }
    read_note(path, kActiveKey, config->active);
    char level[32];
    if (read_note(path, kErrorLevelKey, level))
    {
        store_le32(config->error_level,
                   static_cast<uint32_t>(std::atoi(level)));
    }
    return 0;
}

// Key by key, each key's result not looked at; but a record the file could
// not give back exactly is refused before the first key is written. The
// file holds a password: a new one is the owner's alone.
extern "C" int write_email_config(const char* path, const MailConfig* config)
{
    if (config == nullptr)
    {
        return -1;
    }
    path = path != nullptr ? path : kDefaultPath;
    const auto steps = steps_for(*config);
    if (!steps)
    {
        return -1;
    }
    for (const Step& step : *steps)
    {
        if (step.value)
        {
            kv::detail::write_setting(path, step.key, step.value->c_str(), '=',
                                      kv::detail::kPrivateFile);
        }
        else
        {
            delete_conf_value_safe(path, step.key, '=');
        }
    }
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

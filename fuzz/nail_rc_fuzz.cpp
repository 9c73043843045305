// SPDX-License-Identifier: Apache-2.0
// nail.rc can be edited by hand: any text must read into the record with
// every text field terminated within its bounds, and the record must write
// back and read again. The files go to the sandbox's /var, a tmpfs.
#include "fuzz_input.h"

#include <libkv/services.h>

#include <cstdio>

static void check(const MailConfig& c)
{
    auto terminated = [](const auto&... field) {
        require(((strnlen(field, sizeof field) < sizeof field) && ...));
    };
    terminated(c.user, c.server, c.password, c.active);
    for (const auto& recipient : c.recipients)
        terminated(recipient);
}

KV_FUZZ_SANDBOX("/var/lib", "/var/lib/ipmi")

KV_FUZZ_TARGET
{
    const char* written = "/var/lib/ipmi/written.rc";
    MailConfig config{};
    if (!write_input("/var/lib/ipmi/nail.rc", data, size) ||
        read_email_config(nullptr, &config) != 0)
        return 0;
    check(config);
    std::remove(written);
    write_email_config(written, &config);
    MailConfig again{};
    if (read_email_config(written, &again) == 0)
    {
        check(again);
    }
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// nail.rc can be edited by hand: any text must read into the record with
// every text field terminated within its bounds, and the record must write
// back and read again. The files go to the sandbox's /var, a tmpfs.
#include "fuzz_input.h"

#include <libkv/services.h>

#include <cstdio>
#include <cstring>

namespace
{

void check(const MailConfig& c)
{
    auto terminated = [](const auto& field) {
        require(strnlen(field, sizeof field) < sizeof field);
    };
    terminated(c.user);
    terminated(c.server);
    terminated(c.password);
    terminated(c.active);
    for (const auto& recipient : c.recipients)
    {
        terminated(recipient);
    }
}

} // namespace

KV_FUZZ_SANDBOX("/var/lib", "/var/lib/ipmi")

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const char* written = "/var/lib/ipmi/written.rc";
    MailConfig config{};
    if (!write_input("/var/lib/ipmi/nail.rc", data, size) ||
        read_email_config(nullptr, &config) != 0)
    {
        return 0;
    }
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

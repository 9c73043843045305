// SPDX-License-Identifier: Apache-2.0
// nail.rc can be edited by hand: any text must read into the record with
// every text field terminated within its bounds, and the record must write
// back and read again. The files go to the sandbox's /var, a tmpfs, where
// the writer's flushes to disk cost nothing.
#include "fuzz_input.h"
#include "sandbox.h"

#include <libkv/services.h>

#include <sys/stat.h>

#include <cstring>

namespace
{

template <size_t N>
void terminated(const char (&field)[N])
{
    require(strnlen(field, N) < N);
}

void check(const MailConfig& config)
{
    terminated(config.user);
    terminated(config.server);
    terminated(config.password);
    for (const auto& recipient : config.recipients)
    {
        terminated(recipient);
    }
    terminated(config.active);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kv::sandbox::enter();
    ::mkdir("/var/lib", 0755);
    ::mkdir("/var/lib/ipmi", 0755);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    MailConfig config{};
    if (!write_input("/var/lib/ipmi/nail.rc", data, size) ||
        read_email_config(nullptr, &config) != 0)
    {
        return 0;
    }
    check(config);
    std::remove("/var/lib/ipmi/written.rc");
    write_email_config("/var/lib/ipmi/written.rc", &config);
    MailConfig again{};
    if (read_email_config("/var/lib/ipmi/written.rc", &again) == 0)
    {
        check(again);
    }
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// The mail settings record of the public header, pinned byte for byte to
// the layout the alert daemons share, and tied to the platform segment.
#pragma once

#include "ipc/platform_segment.h"

#include <libkv/services.h>

#include <cstddef>

namespace kv::detail
{

static_assert(sizeof(MailConfig) == 856);
static_assert(sizeof(MailConfig) == segment::kMailRecordSize);
static_assert(alignof(MailConfig) == 1); // it lies at an odd position
static_assert(offsetof(MailConfig, user) == 0);
static_assert(offsetof(MailConfig, server) == 64);
static_assert(offsetof(MailConfig, password) == 128);
static_assert(offsetof(MailConfig, recipients) == 160);
static_assert(offsetof(MailConfig, reserved480) == 480);
static_assert(offsetof(MailConfig, active) == 768);
static_assert(offsetof(MailConfig, port) == 776);
static_assert(offsetof(MailConfig, reserved780) == 780);
static_assert(offsetof(MailConfig, error_level) == 844);
static_assert(offsetof(MailConfig, tls) == 848);
static_assert(offsetof(MailConfig, authentication) == 852);

static_assert(segment::kMailRecord + sizeof(MailConfig) <=
              segment::kPlatformSize);

} // namespace kv::detail

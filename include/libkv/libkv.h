/* SPDX-License-Identifier: Apache-2.0 */
/* Umbrella header: every public part of libkv. */
/* Each subsystem header says at its top what errno holds after a failed
 * call of its functions. */
#ifndef LIBKV_LIBKV_H
#define LIBKV_LIBKV_H

#include <libkv/events.h>
#include <libkv/foundation.h>
#include <libkv/fru.h>
#include <libkv/hw.h>
#include <libkv/ipc.h>
#include <libkv/platform.h>
#include <libkv/services.h>

/* The access-control family is C++ only. */
#ifdef __cplusplus
#include <libkv/access.h>
#endif

#endif

/* Umbrella header: every public part of libkv. */
#ifndef LIBKV_LIBKV_H
#define LIBKV_LIBKV_H

#include <libkv/events.h>
#include <libkv/foundation.h>
#include <libkv/fru.h>
#include <libkv/hw.h>
#include <libkv/ipc.h>

#endif

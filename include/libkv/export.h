/* SPDX-License-Identifier: Apache-2.0 */
/* Visibility of libkv's public symbols.
 *
 * The library is built with -fvisibility=hidden; only declarations marked
 * KV_EXPORT in the public headers reach the dynamic symbol table. */
#ifndef LIBKV_EXPORT_H
#define LIBKV_EXPORT_H

#if defined(__GNUC__)
#define KV_EXPORT __attribute__((visibility("default")))
#else
#define KV_EXPORT
#endif

#ifdef __cplusplus
#define KV_EXTERN_C_BEGIN                                                      \
    extern "C"                                                                 \
    {
#define KV_EXTERN_C_END }
#else
#define KV_EXTERN_C_BEGIN
#define KV_EXTERN_C_END
#endif

#endif

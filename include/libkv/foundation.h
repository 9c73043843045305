/* SPDX-License-Identifier: Apache-2.0 */
/* libkv foundation: diagnostic logs, file/string/path helpers, CRC-16, JSON
 * helpers and key=value configuration files.
 *
 * Everything outside the `#ifdef __cplusplus` block at the end is plain C. */
/* errno: after a call has reported failure, errno holds the cause given by
 * the system call that failed (open, read, write, rename, sem_open, ...);
 * log_call and the closing of files on the way out leave it alone. A failure
 * found without a system call (bad argument, missing key, malformed JSON)
 * leaves errno as it was, and then it means nothing. */
#ifndef LIBKV_FOUNDATION_H
#define LIBKV_FOUNDATION_H

#include <libkv/export.h>

#include <semaphore.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>
#include <time.h>

struct cJSON;

KV_EXTERN_C_BEGIN

/* ---- Diagnostic logging ------------------------------------------------ */

/* Log types of log_call(): indexes of log_path and nv_log_path. */
enum
{
    KV_LOG_ERROR = 0,
    KV_LOG_WARNING = 1,
    KV_LOG_INFO = 2,
    KV_LOG_DEBUG = 3, /* written only while /tmp/debug.log exists */
    KV_LOG_SEL_EXTRA = 4,
    KV_LOG_ACTION = 5,
    KV_LOG_TYPES = 6
};

/* Live classified log files and the base names of their SD-card archives. */
KV_EXPORT extern char log_path[KV_LOG_TYPES][64];
KV_EXPORT extern char nv_log_path[KV_LOG_TYPES][64];

/* One line "[pid] yy-mm-dd HH:MM:SS message\n" appended to /tmp/log.
 * Returns the result of closing the file, -1 when it cannot be opened. */
KV_EXPORT int veldmarkeLog(const char* format, va_list args);
KV_EXPORT int veldmarke_log(const char* format, ...)
    __attribute__((format(printf, 1, 2)));

/* The formatted text appended to /tmp/log-bmc as it is. */
KV_EXPORT int plog(const char* format, ...)
    __attribute__((format(printf, 1, 2)));

/* Classified log: "<ctime text>-<message>\n" appended to log_path[type],
 * archiving the file first once it reaches 4 MiB. Returns 0 when the line
 * was written or held back by the debug gate, -1 for a type outside 0..5 or
 * a live file that cannot be opened. */
KV_EXPORT int log_call(int type, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

/* Results of save_log_to_nv_storage. */
enum
{
    KV_LOG_UNREADABLE = -1,
    KV_LOG_BELOW_LIMIT = 0,
    KV_LOG_RESTART = 1 /* archived when the card is present */
};
/* Archive step of log_call; on KV_LOG_RESTART the caller restarts the
 * file. */
KV_EXPORT int save_log_to_nv_storage(int type, const char* path);

/* ---- Value files ---------------------------------------------------------
 * Each helper keeps its own return convention; callers test these values. */

KV_EXPORT int read_file_value_error(const char* path, int* value);
KV_EXPORT int read_file_value(const char* path);
KV_EXPORT int write_file_value(const char* path, int value);
KV_EXPORT int write_bin_value(const char* path, const void* buf, size_t size);
KV_EXPORT int writeFile(const char* path, const char* text);
KV_EXPORT int write_file_str_truncate(const char* path, const char* text);
KV_EXPORT int write_file_str(const char* path, const void* buf, size_t n);
KV_EXPORT int create_and_write_file(const char* path, const char* text);
KV_EXPORT int read_file_str(const char* path, char* buf, int n);
/* Appends the file to the text already in `buf`, never past `size` bytes. */
KV_EXPORT int read_all_file(const char* path, char* buf, size_t size);
KV_EXPORT off_t get_file_size(const char* path);
/* Results of the whole-file helpers that do not use 0 and -1 alone. */
enum
{
    KV_FILE_NOT_CREATED = 3,    /* create_and_write_file */
    KV_FILE_CANNOT_OPEN = 128,  /* copy_file_func */
    KV_FILE_NAME_NOT_FOUND = 1, /* get_file_name */
    KV_SEL_LOG_MOVED = 0,       /* check_file_size */
    KV_SEL_LOG_BELOW_LIMIT = 1  /* check_file_size */
};
KV_EXPORT int copy_file_func(const char* from, const char* to);
/* `out` must hold a directory entry name (256 bytes). */
KV_EXPORT int get_file_name(const char* dir, const char* needle, char* out);
/* SEL log rollover: the file moves to the card at 8 MiB. */
KV_EXPORT int check_file_size(const char* path, time_t when);

/* ---- Advisory whole-file locks ----------------------------------------- */

KV_EXPORT int fcntl_lock_util(int fd, int cmd, short type, off_t start,
                              short whence, off_t len);
KV_EXPORT int file_lock_write(int fd);
KV_EXPORT int file_lock_read(int fd);
KV_EXPORT int file_unlock(int fd);

/* ---- Processes ---------------------------------------------------------- */

/* First pid printed by "pidof <name>"; 0 when the process does not run. */
KV_EXPORT int get_pid_by_name(const char* name);
KV_EXPORT int send_signal_to_process(const char* name, int signal, int value);
/* Executable name of `pid` (-1: the calling process). */
KV_EXPORT int app_name_get(pid_t pid, char* out, size_t size);
KV_EXPORT int app_pid_existed(pid_t pid);

/* ---- Paths -------------------------------------------------------------- */

KV_EXPORT int file_existed(const char* path);
KV_EXPORT int path_create(const char* path);
KV_EXPORT const char* file_name_get(const char* path);
/* Copies `path` into `buf` and returns the name part of the copy. */
KV_EXPORT char* file_path_get(const char* path, char* buf, size_t size);

/* ---- Text --------------------------------------------------------------- */

/* Row of a value/name table for string_to_int() and int_to_string(). */
typedef struct ValueName
{
    int value;
    const char* name;
} ValueName;

KV_EXPORT const char* skip_leading_chars(const char* s, const char* set);
KV_EXPORT char* delete_trailing_chars(char* s, const char* set);
/* Cuts trailing blanks of `s` in place and returns its first non-blank. */
KV_EXPORT char* string_strip(const char* s);
KV_EXPORT int delete_string_blank(char* s);
KV_EXPORT int is_empty(const char* s);
KV_EXPORT char* strrev(char* s);
KV_EXPORT int string_to_int(const ValueName* table, unsigned rows,
                            const char* name);
KV_EXPORT const char* int_to_string(const ValueName* table, unsigned rows,
                                    int value);
KV_EXPORT int* bubble_sort(int* a, int n);
/* Groups of an IPv6 text into four host-order words; words that the text
 * does not name keep their value. Always 0. */
KV_EXPORT int ipv6_parse(const char* text, uint32_t words[4]);
KV_EXPORT int get_raid_hdd_manufacturer(const char* model, char* out);
/* ctime-style local time without the newline; `buf` holds 64 bytes. */
KV_EXPORT int get_timestamp_string(char* buf);
KV_EXPORT char* time_string_get(char* buf, size_t size);
KV_EXPORT int get_sku(void);
/* 0 when the image holds a UEFI NV-data firmware volume, else 1. */
KV_EXPORT int bios_is_legal(const char* image);

/* ---- CRC-16 (polynomial 0x1021, MSB first) ----------------------------- */

KV_EXPORT uint16_t CalculateCrc16Base(uint16_t crc, uint8_t byte);
/* CRC-16/XMODEM. */
KV_EXPORT uint16_t calc_crc16(const uint8_t* data, int len);
/* Continues `crc` over a 64-byte header, skipping its check field
 * (bytes 36 to 39). */
KV_EXPORT uint16_t CalculateHeaderCrc16(uint16_t crc, const uint8_t* header,
                                        uint64_t len);

/* ---- JSON (cJSON) ------------------------------------------------------- */

/* Kinds of cjson_data_get(). */
enum
{
    KV_JSON_U8 = 0,
    KV_JSON_I16 = 1,
    KV_JSON_I32 = 2,
    KV_JSON_I64 = 3,
    KV_JSON_TEXT = 4,
    KV_JSON_FLOAT = 5,
    KV_JSON_DOUBLE = 6
};

/* Parses a JSON file; the caller owns the tree (cJSON_Delete). */
KV_EXPORT struct cJSON* prepare_parse_json(const char* path);
/* Converts a false, true, number or string node into `out` (`size` bytes,
 * which must hold the kind's type). 0, or -1. */
KV_EXPORT int cjson_data_get(const struct cJSON* item, int kind, void* out,
                             size_t size);
KV_EXPORT int cjson_value_get(const struct cJSON* object, const char* key,
                              int kind, void* out, size_t size);
/* Prints the tree into a scratch file and renames it over `path`. */
KV_EXPORT int cjson_file_write(const struct cJSON* root, const char* path);

/* ---- Key=value configuration files ------------------------------------- */

KV_EXPORT int check_comment_line(const char* line);
KV_EXPORT int get_valid_string(char* s);
KV_EXPORT int read_conf_value_safe(const char* path, const char* key,
                                   char* value, size_t size, char sep);
/* `value` must hold 128 bytes. */
KV_EXPORT int read_conf_value(const char* path, const char* key, char* value);
/* Results of the key=value writers, and of replace_file_value. */
enum
{
    KV_CONF_FAILED = -1,        /* bad argument, no scratch file, I/O error */
    KV_CONF_RENAME_FAILED = -2, /* -ENOENT */
    KV_CONF_TEXT_NOT_FOUND = 1  /* replace_file_value */
};
/* 0 written or unchanged, KV_CONF_FAILED or KV_CONF_RENAME_FAILED. */
KV_EXPORT int write_conf_value_safe(const char* path, const char* key,
                                    const char* value, char sep);
KV_EXPORT int write_conf_value(const char* path, const char* key,
                               const char* value);
KV_EXPORT int delete_conf_value_safe(const char* path, const char* key,
                                     char sep);
/* 0 replaced, KV_CONF_TEXT_NOT_FOUND or KV_CONF_FAILED. The file's last
 * byte (its final newline) is dropped by the rewrite. */
KV_EXPORT int replace_file_value(const char* path, const char* new_text,
                                 const char* old_text);

/* Threshold kinds of write_to_oem_conf(). */
enum
{
    KV_THRESHOLD_CRIT_LOW = 1,
    KV_THRESHOLD_CRIT_HIGH = 2,
    KV_THRESHOLD_WARN_LOW = 3,
    KV_THRESHOLD_WARN_HIGH = 4
};

/* Sets one sensor threshold in /etc/default/obmc/hwmon/oem.conf. */
KV_EXPORT int write_to_oem_conf(uint8_t index, const char* sensor, int kind,
                                long long value);

/* Named semaphores serialising read-modify-write sequences across
 * processes. */
KV_EXPORT int init_lock(const char* name);
KV_EXPORT int get_lock(const char* name, sem_t** sem, mode_t mode,
                       unsigned value);
KV_EXPORT int release_lock(sem_t* sem);

KV_EXTERN_C_END

/* ---- Library log and assertions (C++ linkage) -------------------------- */
#ifdef __cplusplus

enum KVSystemLogSeverity
{
    KV_LOG_SEVERITY_ERROR = 0,
    KV_LOG_SEVERITY_WARNING = 1,
    KV_LOG_SEVERITY_INFO = 2,
    KV_LOG_SEVERITY_DEBUG = 3
};

/* "libkv[pid][time]: " and the message, appended to /tmp/log. The severity
 * is recorded by the caller's choice only; nothing is filtered. */
KV_EXPORT int _kv_logv(KVSystemLogSeverity severity, const char* format,
                       va_list args);
KV_EXPORT int _kv_warn(const char* format, ...)
    __attribute__((format(printf, 1, 2)));
/* _kv_warn(format, basename(file), line, text1, text2). */
KV_EXPORT void _kv_warn_message(const char* format, const char* text1,
                                const char* text2, const char* file, int line);
KV_EXPORT void _kv_warn_return_if_fail(const char* function,
                                       const char* expression, const char* file,
                                       int line);
KV_EXPORT unsigned _kv_real_assert(unsigned condition, const char* expression,
                                   const char* file, int line,
                                   const char* function);
[[noreturn]] KV_EXPORT void _kv_real_assert_not_reached(const char* function,
                                                        const char* file,
                                                        int line);
/* Logs the backtrace and ends the process with status 1. */
[[noreturn]] KV_EXPORT void _kv_abort(void);
KV_EXPORT void _kv_print_backtrace(void);

#define _KV_FUNCTION_NAME __func__

/* Returns `val` from the enclosing function when `expr` is false, after
 * logging "[file(line)] function expression "expr" failed." The function
 * name must not begin with an underscore. */
#define kv_return_val_if_fail_at(expr, val, file, line)                        \
    do                                                                         \
    {                                                                          \
        _kv_real_assert((*(const char*)_KV_FUNCTION_NAME) != '_',              \
                        "(*(const char*)_KV_FUNCTION_NAME) != '_'", file,      \
                        line, _KV_FUNCTION_NAME);                              \
        if (!(expr))                                                           \
        {                                                                      \
            _kv_warn_return_if_fail(_KV_FUNCTION_NAME, #expr, file, line);     \
            return val;                                                        \
        }                                                                      \
    } while (0)

#define kv_return_val_if_fail(expr, val)                                       \
    kv_return_val_if_fail_at(expr, val, __FILE__, __LINE__)

#endif /* __cplusplus */

#endif

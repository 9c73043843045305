/* SPDX-License-Identifier: Apache-2.0 */
/* libkv FRU inventory: the process-wide FRU record, its binary image (IPMI
 * FRU storage format 1.0: common header, chassis, board and product areas,
 * an opaque multirecord block) and the fru.ini description. Plain C.
 *
 * All state is global and one per process; nothing here is reentrant. */
/* errno: after read_fru_data or write_fru_data returned -1, errno holds the
 * cause given by the system call that failed (EIO for a sysfs file that ends
 * early), kept across the log line and the retries; bad arguments or a
 * refused device leave it as it was. The other functions report by their
 * results alone: errno means nothing after them. */
#ifndef LIBKV_FRU_H
#define LIBKV_FRU_H

#include <libkv/export.h>

#include <stddef.h>
#include <stdint.h>

KV_EXTERN_C_BEGIN

/* ---- FRU record and image ----------------------------------------------- */

#define KV_FRU_FIELD_BYTES 64
#define KV_FRU_CUSTOM_FIELDS 8
#define KV_FRU_AREA_BYTES 1024
#define KV_FRU_IMAGE_BYTES 4096

/* Type/length byte of a string field: 0 absent (custom fields only), 0xC0
 * present and empty, 0xC1..0xFF present with (value - 0xC0) data bytes. */
#define KV_FRU_TYPE_ASCII 0xC0
/* Also the end-of-fields marker of an area. */
#define KV_FRU_END_OF_FIELDS 0xC1

struct kv_fru_field
{
    uint8_t type_len;
    uint8_t data[KV_FRU_FIELD_BYTES];
};

struct kv_fru_custom_fields
{
    uint8_t type_len[KV_FRU_CUSTOM_FIELDS];
    uint8_t data[KV_FRU_CUSTOM_FIELDS][KV_FRU_FIELD_BYTES];
};

/* Offsets are in units of 8 bytes. */
struct kv_fru_header
{
    uint8_t format_version;
    uint8_t internal_use_offset;
    uint8_t chassis_offset;
    uint8_t board_offset;
    uint8_t product_offset;
    uint8_t multirecord_offset;
    uint8_t pad;
    uint8_t checksum;
};

/* Held in the record, never written to an image. */
struct kv_fru_internal_use
{
    uint8_t format_version;
    uint8_t data[4];
};

enum
{
    KV_FRU_CHASSIS_PART_NUMBER,
    KV_FRU_CHASSIS_SERIAL_NUMBER,
    KV_FRU_CHASSIS_FIELDS
};

struct kv_fru_chassis_area
{
    uint8_t format_version;
    uint8_t length; /* in units of 8 bytes */
    uint8_t type;
    struct kv_fru_field field[KV_FRU_CHASSIS_FIELDS];
    struct kv_fru_custom_fields custom;
    uint8_t end_of_fields;
    uint8_t pad_count;
    uint8_t checksum;
};

enum
{
    KV_FRU_BOARD_MANUFACTURER,
    KV_FRU_BOARD_PRODUCT_NAME,
    KV_FRU_BOARD_SERIAL_NUMBER,
    KV_FRU_BOARD_PART_NUMBER,
    KV_FRU_BOARD_FILE_ID,
    KV_FRU_BOARD_FIELDS
};

struct kv_fru_board_area
{
    uint8_t format_version;
    uint8_t length;
    uint8_t language;
    /* Minutes since 1996-01-01 00:00, least significant byte first. */
    uint8_t mfg_date[3];
    struct kv_fru_field field[KV_FRU_BOARD_FIELDS];
    struct kv_fru_custom_fields custom;
    uint8_t end_of_fields;
    uint8_t pad_count;
    uint8_t checksum;
};

enum
{
    KV_FRU_PRODUCT_MANUFACTURER,
    KV_FRU_PRODUCT_NAME,
    KV_FRU_PRODUCT_PART_NUMBER,
    KV_FRU_PRODUCT_VERSION,
    KV_FRU_PRODUCT_SERIAL_NUMBER,
    KV_FRU_PRODUCT_ASSET_TAG,
    KV_FRU_PRODUCT_FILE_ID,
    KV_FRU_PRODUCT_FIELDS
};

struct kv_fru_product_area
{
    uint8_t format_version;
    uint8_t length;
    uint8_t language;
    struct kv_fru_field field[KV_FRU_PRODUCT_FIELDS];
    struct kv_fru_custom_fields custom;
    uint8_t end_of_fields;
    uint8_t pad_count;
    uint8_t checksum;
};

/* 2504 bytes, byte-aligned, no padding. */
struct kv_fru_record
{
    struct kv_fru_header header;
    struct kv_fru_internal_use internal_use;
    struct kv_fru_chassis_area chassis;
    struct kv_fru_board_area board;
    struct kv_fru_product_area product;
};

struct kv_fru_area_buffer
{
    uint32_t count;
    uint8_t data[KV_FRU_AREA_BYTES];
};

/* In image order. */
struct kv_fru_buffers
{
    struct kv_fru_area_buffer header;
    struct kv_fru_area_buffer chassis;
    struct kv_fru_area_buffer board;
    struct kv_fru_area_buffer product;
    struct kv_fru_area_buffer multirecord;
};

KV_EXPORT extern struct kv_fru_record fru;
KV_EXPORT extern struct kv_fru_buffers fru_buff;
KV_EXPORT extern uint8_t bmc_fru_date[KV_FRU_IMAGE_BYTES];
KV_EXPORT extern uint32_t bmc_fru_len;

/* Zeroes record, buffers and image and sets the defaults (format versions
 * 1, chassis type 2, board date 2017-03-10 10:18, end markers 0xC1). */
KV_EXPORT int fru_init(void);

/* Area builders, record to buffer: 0, or -1 when a custom field's
 * type/length byte is invalid or a fixed field's is below 0xC0. */
KV_EXPORT int get_chassis_date(void);
KV_EXPORT int get_board_date(void);
KV_EXPORT int get_product_date(void);
/* Header from the three built areas. Its multirecord offset goes to the
 * record only; the image always carries 0 there. */
KV_EXPORT int get_head_date(void);
/* The fixed 22-byte OEM multirecord block into its buffer. */
KV_EXPORT int get_multirecord_date(void);
/* Builds the areas and header and assembles bmc_fru_date/bmc_fru_len with
 * whatever the multirecord buffer holds: 0, or the step that failed. */
enum
{
    KV_FRU_BUILD_CHASSIS_FAILED = 4,
    KV_FRU_BUILD_BOARD_FAILED = 5,
    KV_FRU_BUILD_PRODUCT_FAILED = 6,
    KV_FRU_BUILD_HEADER_FAILED = 7
};
KV_EXPORT int get_fru_date(void);

/* Image to record. Reads never go past `length` bytes of `image`; an area
 * that does not fit counts as bad. 0, or the part that is bad. The
 * multirecord area is not parsed. */
enum
{
    KV_FRU_BAD_HEADER = 9,
    KV_FRU_BAD_CHASSIS_AREA = 10,
    KV_FRU_BAD_BOARD_AREA = 11,
    KV_FRU_BAD_PRODUCT_AREA = 12
};
KV_EXPORT int parse_bin_date(const uint8_t* image, int length);

/* Results of the header and area parsers below. */
enum
{
    /* a bad length or checksum, or more than eight custom fields */
    KV_FRU_AREA_INVALID = -31,
    /* a field that runs past its area or is not 8-bit ASCII */
    KV_FRU_FIELD_INVALID = -32
};
/* Checks and loads 8 header bytes (`count` must be at least 8): 0 or
 * KV_FRU_AREA_INVALID. */
KV_EXPORT int parse_bin_to_head(const uint8_t* bytes, int count);
/* One area each. `area` must hold as many bytes as its own length byte
 * states (at most 248). 0, KV_FRU_AREA_INVALID or KV_FRU_FIELD_INVALID. */
KV_EXPORT int parse_bin_to_chassis(const uint8_t* area);
KV_EXPORT int parse_bin_to_board(const uint8_t* area);
KV_EXPORT int parse_bin_to_product(const uint8_t* area);
/* Copies up to 1024 bytes into the multirecord buffer; 0. */
KV_EXPORT int parse_bin_to_multirecord(const uint8_t* bytes, int count);

/* Results of write_to_bin and create_fru_bin. */
enum
{
    KV_FRU_BIN_SHORT_WRITE = -12,
    KV_FRU_BIN_INI_UNREADABLE = 15,
    KV_FRU_BIN_BUILD_FAILED = 16
};
/* Writes the image to ./default-fru.bin (created with mode 0, never
 * truncated): 0, or KV_FRU_BIN_SHORT_WRITE. */
KV_EXPORT int write_to_bin(void);
/* fru_init, fru_read_ini, get_fru_date, write_to_bin: 0;
 * KV_FRU_BIN_INI_UNREADABLE, KV_FRU_BIN_BUILD_FAILED, else write_to_bin's
 * result. */
KV_EXPORT int create_fru_bin(void);
/* "year/month/day hour:minute[:second]" (split in place at '/', ':' and
 * ' ') to minutes since 1996-01-01 00:00 local time; 0 when a part is
 * missing. */
KV_EXPORT int get_time(char* text);

/* ---- fru.ini ------------------------------------------------------------ */

#define KV_FRU_INI_LINES 30
#define KV_FRU_INI_LINE_BYTES 256

struct kv_fru_param
{
    int32_t index;
    char section[32];
    char key[32];
    char value[64]; /* no terminator when 64 characters long */
};

/* The template that config_default_ini writes, one line per slot. */
KV_EXPORT extern char default_ini[KV_FRU_INI_LINES][KV_FRU_INI_LINE_BYTES];

/* Field tables. The library defines the four one after another in this
 * order; a program linking them may hold separate copies, so walk across
 * them by table, not by running a pointer past an end. */
KV_EXPORT extern struct kv_fru_param chassis_param[3];
KV_EXPORT extern struct kv_fru_param board_param[12];
KV_EXPORT extern struct kv_fru_param product_param[12];
KV_EXPORT extern struct kv_fru_param fru_param[27];

/* Raw value text (after the '=', cut at '#', leading blanks removed, line
 * end kept) of the first line starting with `key` at or after the line
 * starting with "[section]"; null when there is none. The result lives in
 * one static 1024-byte buffer until the next call. */
KV_EXPORT char* GetIniKeyString(const char* section, const char* key,
                                const char* path);
/* atoi of the raw value text; 0 when the key is missing. */
KV_EXPORT int GetIniKeyInt(const char* section, const char* key,
                           const char* path);
/* Strips leading and trailing spaces in place; returns `text`. */
KV_EXPORT char* rtspace(char* text);
/* The text between the first two '"' (cut at the second), or null. */
KV_EXPORT char* fru_get_str(char* text);
/* Results of config_default_ini and fru_read_ini. */
enum
{
    KV_FRU_INI_NULL_ARGUMENT = -1,
    KV_FRU_INI_NOT_CREATED = -2,
    KV_FRU_INI_KEY_MISSING = -3,
    KV_FRU_INI_BAD_TIME = -4
};
/* Writes `count` slots to `path`, one per line: 0,
 * KV_FRU_INI_NULL_ARGUMENT or KV_FRU_INI_NOT_CREATED. `lines` is only read; it
 * is not const so that C callers can pass default_ini without a pedantic
 * warning. */
KV_EXPORT int config_default_ini(char lines[][KV_FRU_INI_LINE_BYTES], int count,
                                 const char* path);
/* ./fru.ini into the field tables and the record: 0,
 * KV_FRU_INI_KEY_MISSING or KV_FRU_INI_BAD_TIME (the board time). */
KV_EXPORT int fru_read_ini(void);

/* ---- FRU devices ---------------------------------------------------------
 * The platform daemon describes every FRU device in the FRU device table of
 * the platform segment; entry `id` holds the device's descriptor. */

#define KV_FRU_STATE_REFUSED 1
#define KV_FRU_ACCESS_I2C 2
#define KV_FRU_ACCESS_SYSFS 3

/* 15 bytes, no padding; 16-bit values are little-endian byte pairs. */
typedef struct kv_fru_device
{
    uint8_t reserved0;
    uint8_t state;  /* KV_FRU_STATE_REFUSED refuses every access */
    uint8_t method; /* KV_FRU_ACCESS_I2C or KV_FRU_ACCESS_SYSFS */
    uint8_t size[2];
    uint8_t behind_mux;   /* non-zero: reached through a multiplexer channel */
    uint8_t mux_channel;  /* 0..7 */
    uint8_t mux_address;  /* 7-bit */
    uint8_t offset_width; /* register address bytes of raw I2C reads */
    uint8_t reserved9;
    uint8_t bus;     /* the multiplexer's bus for a device behind one */
    uint8_t address; /* 7-bit */
    uint8_t reserved12;
    uint8_t base[2]; /* where the FRU image starts in the device */
} kv_fru_device;

/* The FRU device id that write_to_fru last wrote; write_fru_ini's target. */
KV_EXPORT extern int deviceid;

/* Reads `count` bytes at `offset` of the device's FRU image. Raw I2C: the
 * transfer's result (2 on success); sysfs: 0; -1 on failure; a non-zero
 * channel request answer (128, 192, 255) as it came. Other access methods
 * read nothing and return 0. */
KV_EXPORT int read_fru_data(const kv_fru_device* device, uint16_t offset,
                            int count, uint8_t* destination);
/* Writes `count` bytes at `offset`: 0, -1, or a non-zero channel request
 * answer. A raw I2C device that is not behind a multiplexer, and a device
 * with an unknown access method, have descriptor 0 of the process closed on
 * the way out (the callers' settled behaviour). */
KV_EXPORT int write_fru_data(const kv_fru_device* device, uint16_t offset,
                             int count, const uint8_t* source);
/* Writes bmc_fru_date to FRU device `id` in 8-byte chunks 10 ms apart and
 * remembers `id` in deviceid: 0 (write errors are not reported), or -1
 * when the platform segment or the entry is unavailable. Descriptor 0, when
 * closed (write_fru_data closes it), is taken on /dev/null before each
 * chunk, so that the chunk's own open does not get it. */
KV_EXPORT int write_to_fru(int id);
/* Reads the whole device in 8-byte chunks, 10 ms apart, into `destination`,
 * which must hold the device size rounded up to a multiple of 8: 0. */
KV_EXPORT int get_fru_bin(kv_fru_device device, uint8_t* destination);
/* The GUID file's text into `guid` and the "Product Asset Tag" of the FRU
 * facts into `asset_tag`: the tag lookup's result (0 found, -1 not). */
KV_EXPORT int getUIDandAssetTag(char* guid, size_t guid_size, char* asset_tag,
                                size_t asset_tag_size);
/* Waits up to 239 s, checking once a second, for the SKU file: 0. */
KV_EXPORT int wait_sku_file(void);
/* Placeholder: 0. */
KV_EXPORT int get_sensor_unit(uint8_t sensor);

/* ---- Field editing and the fru tool's helpers --------------------------- */

/* Results of the field editing calls below. */
enum
{
    KV_FRU_EDIT_NO_SEGMENT = -1,
    KV_FRU_EDIT_INI_UNREADABLE = -9,
    KV_FRU_EDIT_NULL_ARGUMENT = -10, /* or a value of over 63 characters */
    KV_FRU_EDIT_UNKNOWN_FIELD = -14,
    KV_FRU_EDIT_INI_BUILD_FAILED = 3,
    KV_FRU_EDIT_IMAGE_UNREADABLE = 13, /* cannot be read or parsed */
    KV_FRU_EDIT_REBUILD_FAILED = 14
};
/* Changes one field of the image on FRU device `id`: 0 or write_to_fru's
 * result; KV_FRU_EDIT_NO_SEGMENT, _NULL_ARGUMENT, _IMAGE_UNREADABLE,
 * _UNKNOWN_FIELD (section or key) or _REBUILD_FAILED. */
KV_EXPORT int fru_modify_key(int id, const char* section, const char* key,
                             const char* value);
/* Row of fru_param whose section and key prefix `section` and `key`,
 * ignoring case, first match: 0..26, or KV_FRU_EDIT_UNKNOWN_FIELD. */
KV_EXPORT int fru_get_param_id(const char* section, const char* key);
/* Sets field `id` of the record from `value` (id 3, the board time, and
 * unknown ids change nothing): 0; -1, with the field left alone, for a
 * string of over 63 characters, which its type/length byte cannot hold. */
KV_EXPORT int modify_section(const char* value, int id);
/* Rebuilds the image from ./fru.ini and writes it to FRU device deviceid:
 * write_to_fru's result, KV_FRU_EDIT_INI_UNREADABLE or
 * KV_FRU_EDIT_INI_BUILD_FAILED. */
KV_EXPORT int write_fru_ini(void);
/* Runs a shell command line up to 21 times until it exits with 0: 0 when
 * that happened within 20 runs, else -1. */
KV_EXPORT int write_fru_cmd(const char* command);
/* `length` bytes to ./fru.bat: 0, or 1 when it cannot be opened. */
KV_EXPORT int backup_fru_bin(const uint8_t* buffer, int length);
/* Truncates `path` and writes `length` bytes at `offset`: 0, or 1. */
KV_EXPORT int WriteFile(const char* path, const uint8_t* buffer,
                        uint16_t offset, uint16_t length);
/* The directory of this program (from /proc/<pid>/cmdline, up to the last
 * '/') followed by `name`, into `destination`, which must be zeroed and
 * hold 513 bytes: 0. Nothing is written when the command line is empty. */
KV_EXPORT int GetCurrentPath(char* destination, const char* name);
/* Prints the fru tool's usage text. */
KV_EXPORT void help(void);

KV_EXTERN_C_END

#endif

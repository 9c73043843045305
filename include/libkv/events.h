/* SPDX-License-Identifier: Apache-2.0 */
/* libkv events: SEL records and their hand-off slots, the text SEL log, the
 * decoding of SEL records into text, SNMP trap requests and Redfish event
 * posts. Plain C, except the FIFO helpers at the end.
 *
 * Records shared with other processes are byte arrays with multi-byte
 * fields stored little-endian at fixed offsets (many unaligned): read them
 * with memcpy or byte by byte. */
/* errno: after save_sel_to_file returned -1, errno holds the cause given by
 * the open or write of the log that failed (EINVAL for a missing text or
 * folder, ENAMETOOLONG for a folder name too long for the log's path), and
 * after a FIFO helper returned 1 it holds the cause given by its write,
 * mkfifo or open. The other functions report by their results alone: errno
 * means nothing after them. */
#ifndef LIBKV_EVENTS_H
#define LIBKV_EVENTS_H

#include <libkv/export.h>

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

KV_EXTERN_C_BEGIN

/* ---- Records ------------------------------------------------------------- */

/* The 16-byte IPMI v2.0 system event record. */
typedef struct SelRecord
{
    uint8_t record_id[2];   /* little-endian */
    uint8_t record_type;    /* 0x02 system event; 0xC0-0xDF OEM, timed */
    uint8_t timestamp[4];   /* little-endian seconds */
    uint8_t generator[2];   /* slave address / channel, LUN */
    uint8_t evm_rev;        /* 0x04: IPMI 2.0 */
    uint8_t sensor_type;    /* byte 10 */
    uint8_t sensor_number;  /* byte 11 */
    uint8_t event_dir_type; /* bit 7 deassertion, bits 6-0 event type */
    uint8_t event_data[3];  /* bytes 13-15 */
} SelRecord;

/* A sensor's description, one per sensor number in the platform segment,
 * filled by the sensor daemons: 454 bytes, no padding. */
typedef struct SensorRecord
{
    uint8_t reserved0[3];
    int8_t result_exponent; /* 3: K2, power of ten of the result */
    uint8_t reserved4;
    uint8_t multiplier[2]; /* 5: M, unsigned, little-endian */
    uint8_t offset[8];     /* 7: B, IEEE double, little-endian */
    uint8_t reserved15[29];
    char name[52];            /* 44: NUL-terminated when shorter; "" no name */
    uint8_t analog_format[4]; /* 96: uint32, 0 unsigned, 1 one's, 2 two's
                                 complement, other: not analog */
    uint8_t linearization[4]; /* 100: uint32, bits 6-0 used */
    uint8_t reserved104[317];
    uint8_t unit_flags; /* 421: bit 0 percentage, bits 2-1 modifier relation
                           (0 none, 1 divide, 2 multiply) */
    uint8_t base_unit;  /* 422: index into the unit names */
    uint8_t reserved423[31];
} SensorRecord;

/* One Redfish event subscriber, 837 bytes. */
typedef struct EventSubscription
{
    uint8_t reserved0;
    uint8_t in_use;                 /* 1: 0 an empty slot */
    uint8_t event_types;            /* 2: bit 0 StatusChange, 1 ResourceUpdated,
                                       2 ResourceAdded, 3 ResourceRemoved, 4 Alert */
    char token[64];                 /* 3: X-Auth-Token */
    char url[256];                  /* 67: destination */
    uint8_t every_problem;          /* 323: 1 skips the problem filter */
    uint8_t every_sensor;           /* 324: 1 skips the sensor filter */
    uint8_t generic_excluded[128];  /* 325: n names generic entry n-1 */
    uint8_t specific_excluded[128]; /* 453: n names sensor-specific entry n-1 */
    uint8_t sensors[256];           /* 581: non-zero: sensor s is wanted */
} EventSubscription;

/* Summary of the last decoded event, 249 bytes. */
typedef struct EventInfo
{
    char element_uid[64];    /* 0 */
    char element_name[64];   /* 64: product asset tag */
    uint8_t sensor_number;   /* 128 */
    char sensor_name[32];    /* 129 */
    char sensor_type[32];    /* 161 */
    uint8_t event_id[4];     /* 193: uint32 little-endian */
    char timestamp[32];      /* 197 */
    char severity[16];       /* 229 */
    uint8_t alarm_status[4]; /* 245: uint32 little-endian */
} EventInfo;

/* ---- Capture and the text SEL log ---------------------------------------- */

/* Builds a system event record (placeholder record id 0x0021 and time
 * 0x4EFFA2E1, generator 0x20, EvM 0x04) and hands it to add_sel_to_shm:
 * 0, or -1. `ignored` is kept for existing callers. */
KV_EXPORT int SensorSELWrite(uint8_t* shm, uint8_t sensorNum, uint32_t ignored,
                             uint8_t sensorType, uint8_t eventDirType,
                             uint8_t data1, uint8_t data2, uint8_t data3);
/* Results of add_sel_to_shm. */
enum
{
    KV_SEL_NO_SEGMENT = -1,
    KV_SEL_SLOTS_FULL = -2
};
/* Copies `len` bytes into the lowest free hand-off slot of the segment at
 * `shm`: 0, KV_SEL_NO_SEGMENT or KV_SEL_SLOTS_FULL. */
KV_EXPORT int add_sel_to_shm(uint8_t* shm, const void* data, int len);
/* Attaches the dedicated SEL segment (key 0x1234500) on every call; NULL
 * on failure. */
KV_EXPORT void* init_sel_shm(void);
/* Appends "#<recordNo> <second> <text>\r\n" to <dir>/sel.log, then moves the
 * file to the SD card once it reaches 8 MiB (named from `timestamp`): 0, or
 * -1 when the line could not be written. */
KV_EXPORT int save_sel_to_file(uint32_t recordNo, uint32_t timestamp,
                               uint32_t second, const char* text,
                               const char* dir);
/* Local offset from UTC in seconds, from the hour fields alone. */
KV_EXPORT int get_time_zone_offset(void);

/* ---- Decoding ------------------------------------------------------------ */

/* An entry of the event description tables; each table ends with an entry
 * whose text is NULL. `data` 0xFF matches any event data 2. */
typedef struct kv_event_desc
{
    uint8_t code;   /* event/reading type or sensor type */
    uint8_t offset; /* event offset, 0-15 */
    uint8_t data;
    const char* text;
} kv_event_desc;

/* Backplane model names by zone: 0 "UNKOWN", 1-7 the boards, 8-9 empty. */
KV_EXPORT extern char bpHddLocateName[10][30];

/* Appends the record's text to `out` (which the caller makes room for) and
 * leaves the event summary in the platform segment: 0, or -1 for a NULL
 * argument or record type 0xF0. */
KV_EXPORT int ipmi_parse_sel_entry(const uint8_t* rec, uint32_t ignored,
                                   uint8_t* segment, char* out);
/* The same text, from a description passed by value, with no side effect. */
KV_EXPORT int web_parse_sel_entry(const uint8_t* rec, uint32_t ignored,
                                  SensorRecord sensor, char* out);
KV_EXPORT double sdr_convert_sensor_reading(SensorRecord sensor, uint8_t raw);
/* `dst` holds 64 bytes; returns it. */
KV_EXPORT char* ipmi_sdr_get_unit_string(bool pct, uint8_t relation,
                                         uint8_t base, uint8_t modifier,
                                         char* dst);
/* The sensor type's name, or "Unknown", into `dst`: 0. */
KV_EXPORT int ipmi_get_sensor_type(uint8_t code, char* dst);
/* The name for codes up to 0x2C, else NULL. */
KV_EXPORT const char* ipmi_get_generic_sensor_type(uint8_t code);
/* `*desc` becomes a text the caller frees, or NULL. */
KV_EXPORT void ipmi_get_event_desc(const uint8_t* rec, char** desc);
KV_EXPORT const kv_event_desc*
    ipmi_get_first_event_sensor_type(uint8_t sensorType, uint8_t eventType);
KV_EXPORT const kv_event_desc*
    ipmi_get_next_event_sensor_type(const kv_event_desc* entry);

/* SEL times: 0xFFFFFFFF is unknown; below 0x20000000 counts from the
 * controller's start. ipmi_timestamp_fmt returns one static 80-byte buffer
 * that the next call overwrites. */
KV_EXPORT char* ipmi_timestamp_date(int32_t t, char* dst);
KV_EXPORT char* ipmi_timestamp_time(int32_t t, char* dst);
KV_EXPORT char* ipmi_timestamp_fmt(uint32_t t, const char* fmt);
KV_EXPORT size_t ipmi_strftime(char* buf, size_t len, const char* fmt,
                               uint32_t t);
KV_EXPORT int ipmi_timestamp_is_valid(int32_t t);
KV_EXPORT int ipmi_timestamp_is_special(int32_t t);

/* ---- SNMP trap requests -------------------------------------------------- */

/* Leaves a trap request in the first free one of the 16 trap slots of the
 * platform segment, for the SNMP agent to send: always 0, and the request
 * is dropped without a word when every slot is taken. */
KV_EXPORT int snmpSendTrap(uint32_t code, uint32_t value, uint8_t kind,
                           const char* text);

/* ---- Redfish event subscriptions ----------------------------------------- */

/* Posts the decoded event `message` of the 16-byte SEL record `rec` to every
 * active subscriber of the platform segment at `segment` that wants it, one
 * after another, each waiting up to 5 s: -1 for a NULL argument, else 0
 * whatever became of the posts. */
KV_EXPORT int send_event_subscriptions(uint8_t* segment, const uint8_t* rec,
                                       const char* message);
/* 1 when the subscriber wants the event, else 0. */
KV_EXPORT int check_event_subscription_active(EventSubscription sub,
                                              const uint8_t* rec,
                                              const char* message);
/* 0 when the event-type mask accepts the record's kind of event, else -1. */
KV_EXPORT int check_event_subscription_type(uint8_t mask, const uint8_t* rec);
/* Posts one Redfish event to the subscriber: 0 when the HTTP exchange took
 * place (whatever its status), else the transfer's error code shifted left
 * by 8. Refreshes the UID and asset tag of `info` first. */
KV_EXPORT int send_curl_message(EventSubscription* sub, const char* message,
                                EventInfo* info);
/* Appends the names of the mask's bits, joined by ",", to `buf` (callers
 * pass 128 zeroed bytes). */
KV_EXPORT void eventtypeToStr(uint8_t mask, char* buf);
/* The first table text found in `message` (generic, then sensor-specific,
 * then vendor table): its problem code (table << 28 | code << 8 | offset)
 * and its text into `text` (128 bytes); 0xFFFFFFFF and "Unknown Problem"
 * when none is found. */
KV_EXPORT void getspecificProblem(const char* message, uint32_t* code,
                                  char* text);

KV_EXTERN_C_END

#ifdef __cplusplus

/* A second path to the SNMP agent, through a FIFO whose path, mkfifo mode
 * and open flags the callers choose. C++ linkage. */

/* One write of `len` bytes: 0 when all went, else 1 (logged). */
KV_EXPORT int snmpWriteMsg(int fd, const char* buf, int len);
/* 0 when something exists at `path` or a FIFO was made there, else 1. */
KV_EXPORT int checkFIFOFile(const char* path, int mode);
/* Opens the FIFO's write end once per process, trying twice a second apart:
 * 0 when it is open (now or already), 1 when both attempts failed. */
KV_EXPORT int getSNMPTrapWriteFD(const char* path, int oflag);

#endif /* __cplusplus */

#endif

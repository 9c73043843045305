/* SPDX-License-Identifier: Apache-2.0 */
/* libkv services: the SNMP agent's configuration (/etc/snmp/snmpd.conf),
 * the mail client's alert settings (/var/lib/ipmi/nail.rc) and the BMC's
 * network interfaces and bonding. Plain C. */
/* errno: after an SNMP setter failed (KV_SNMP_FAILED for a file that could
 * not be rewritten, KV_SNMP_RENAME_FAILED), errno holds the cause given by
 * the scratch file's creation, its writing or the rename; after a network
 * interface call returned -1, the cause given by the socket or the interface
 * request. Argument errors, missing lines and the other functions leave
 * errno meaningless. */
#ifndef LIBKV_SERVICES_H
#define LIBKV_SERVICES_H

#include <libkv/export.h>

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

KV_EXTERN_C_BEGIN

/* ---- SNMP agent ---------------------------------------------------------- */

/* Results of the SNMP functions. */
enum
{
    KV_SNMP_FAILED = -1,       /* bad argument, unreadable file, no line */
    KV_SNMP_RENAME_FAILED = -2 /* -ENOENT: the edited copy was not renamed */
};

/* Authentication protocols; texts "SHA", "SHA-256", ... "MD5". */
typedef enum SNMP_V3_AUTHEN
{
    SNMP_V3_AUTHEN_SHA = 0,
    SNMP_V3_AUTHEN_SHA_256 = 1,
    SNMP_V3_AUTHEN_SHA_384 = 2,
    SNMP_V3_AUTHEN_SHA_512 = 3,
    SNMP_V3_AUTHEN_SHA_224 = 4,
    SNMP_V3_AUTHEN_MD5 = 5,
    SNMP_V3_AUTHEN_UNKNOWN = 6
} SNMP_V3_AUTHEN;

/* Privacy protocols; texts "DES" and "AES". */
typedef enum SNMP_V3_ENCRYPT
{
    SNMP_V3_ENCRYPT_DES = 0,
    SNMP_V3_ENCRYPT_AES = 1,
    SNMP_V3_ENCRYPT_UNKNOWN = 2
} SNMP_V3_ENCRYPT;

/* Version selector of snmp_ver_status_set: 1 is v1, 0 and 2 are v2c. */
typedef enum SNMP_VERSION
{
    SNMP_VERSION_DEFAULT = 0, /* v2c */
    SNMP_VERSION_V1 = 1,
    SNMP_VERSION_V2C = 2
} SNMP_VERSION;

/* One v3 user: a node of a list that snmp_v3_user_get builds with malloc
 * and snmp_v3_user_free releases. */
typedef struct SNMP_V3_USER
{
    SNMP_V3_AUTHEN authen;
    SNMP_V3_ENCRYPT encrypt;
    char name[32];
    char password[32]; /* the authentication pass phrase */
    struct SNMP_V3_USER* next;
} SNMP_V3_USER;

/* Actions of snmp_service_status_set, done in the order 1, 2, 8, 4, 16. */
enum
{
    KV_SNMP_PROTOCOL_OFF = 1, /* #protocolEnabled=false */
    KV_SNMP_PROTOCOL_ON = 2,  /* #protocolEnabled=true */
    KV_SNMP_AGENT_START = 4,  /* systemctl start, obmc-kv-snmp.service=1 */
    KV_SNMP_AGENT_STOP = 8,   /* systemctl stop, obmc-kv-snmp.service=0 */
    KV_SNMP_AGENT_RESTART = 16
};

/* Texts to protocols, ignoring case; the unknown value for any other text. */
KV_EXPORT SNMP_V3_AUTHEN snmp_v3_authen_atoi(const char* text);
KV_EXPORT SNMP_V3_ENCRYPT snmp_v3_encrypt_atoi(const char* text);
/* Protocols to texts; NULL for a value without one. */
KV_EXPORT const char* snmp_v3_authen_itoa(SNMP_V3_AUTHEN authen);
KV_EXPORT const char* snmp_v3_encrypt_itoa(SNMP_V3_ENCRYPT encrypt);

/* The agent's port from the first agentaddress line, 161 without one:
 * 0, or KV_SNMP_FAILED for NULL. */
KV_EXPORT int snmp_service_port_get(uint16_t* port);
/* The setters change the first line of their kind or append one, and leave
 * the file untouched when it already holds the value: 0, KV_SNMP_FAILED or
 * KV_SNMP_RENAME_FAILED. */
KV_EXPORT int snmp_service_port_set(uint16_t port);

/* Enabled unless #protocolEnabled is "false" (any case): 0, or
 * KV_SNMP_FAILED for NULL. */
KV_EXPORT int snmp_service_status_get(bool* enabled);
/* Does the actions of `actions` (KV_SNMP_PROTOCOL_OFF ...); the systemctl
 * commands run in the background, unchecked. Always 0. */
KV_EXPORT int snmp_service_status_set(int actions);

/* The community of the first "com2sec ... default" line, cut to `size`:
 * 0, or KV_SNMP_FAILED (bad arguments, no such line). */
KV_EXPORT int snmp_community_get(char* community, unsigned size);
/* KV_SNMP_FAILED also for a NULL or empty community. */
KV_EXPORT int snmp_community_set(const char* community);

/* Whether a group line grants v1 (v2c) access: 0, or KV_SNMP_FAILED for
 * NULL. */
KV_EXPORT int snmp_v1_status_get(bool* enabled);
KV_EXPORT int snmp_v2_status_get(bool* enabled);
/* Enabling puts the group line below the "securityModel" comment (or at the
 * end); disabling drops every group line with the version's marker.
 * KV_SNMP_FAILED also for a version above 2. */
KV_EXPORT int snmp_ver_status_set(SNMP_VERSION version, bool enable);

/* The oldEngineID of /var/lib/net-snmp/snmpd.conf, cut to `size`: 0, or
 * KV_SNMP_FAILED. */
KV_EXPORT int snmp_v3_engineid_get(char* engineid, unsigned size);

/* Appends a node for every createUser line with known protocols to the
 * list at *head (which the caller sets to NULL first): 0, or
 * KV_SNMP_FAILED for NULL. */
KV_EXPORT int snmp_v3_user_get(SNMP_V3_USER** head);
/* Frees every node and leaves *head NULL: 0. */
KV_EXPORT int snmp_v3_user_free(SNMP_V3_USER** head);
/* Runs net-snmp-create-v3-user with the pass phrase for both protocols: 0,
 * whatever the tool did, or KV_SNMP_FAILED for an empty name or pass phrase
 * or a protocol without a text. */
KV_EXPORT int snmp_v3_user_add(const char* name, const char* password,
                               SNMP_V3_AUTHEN authen, SNMP_V3_ENCRYPT encrypt);
/* Drops the user's first createUser line and first rwuser or rouser line:
 * 0, KV_SNMP_FAILED or KV_SNMP_RENAME_FAILED. */
KV_EXPORT int snmp_v3_user_del(const char* name);

/* ---- Mail alerts --------------------------------------------------------- */

/* Mail alert settings, 856 bytes, shared between daemons and kept in the
 * platform segment at an odd position: integers are 32-bit little-endian
 * byte arrays (read them with memcpy), texts are NUL-terminated. */
typedef struct MailConfig
{
    char user[64];          /* 0: SMTP login, also the sender address */
    char server[64];        /* 64: host name or address */
    char password[32];      /* 128 */
    char recipients[5][64]; /* 160: an empty entry ends the list */
    uint8_t reserved480[288];
    char active[8];  /* 768: on/off text, kept as given */
    uint8_t port[4]; /* 776: 0 is the mode's default, 465 or 25 */
    uint8_t reserved780[64];
    uint8_t error_level[4];    /* 844: alert level */
    uint8_t tls[4];            /* 848: non-zero: SMTP over TLS */
    uint8_t authentication[4]; /* 852: non-zero: log in with user/password */
} MailConfig;

/* Fills `config` from the mail client's resource file (NULL path:
 * /var/lib/ipmi/nail.rc); keys that are missing leave their fields alone,
 * so pass a cleared record. 0, or -1 for NULL or a missing file. */
KV_EXPORT int read_email_config(const char* path, MailConfig* config);
/* Writes the settings into the resource file, key by key: 0, or -1 for a
 * NULL record. */
KV_EXPORT int write_email_config(const char* path, const MailConfig* config);
/* The record in the platform segment, or NULL without the segment. */
KV_EXPORT MailConfig* get_mail_config(void);

/* ---- Network interfaces -------------------------------------------------- */

/* Network modes: 0 no bonding, n (1-7) bonding mode n - 1 of "bond0". */
enum
{
    KV_NET_MODE_ETH = 0,
    KV_NET_MODE_UNKNOWN = 8
};

/* The interface's index, or -1. */
KV_EXPORT int net_index_get(const char* ifname);
/* 1 up, 0 down, -1 error. */
KV_EXPORT int net_enable_get(const char* ifname);
/* Brings the interface up (non-zero) or down; an alias "eth0:1" acts on
 * "eth0". Writes the flags only when they change: 0, or -1. */
KV_EXPORT int net_enable_set(const char* ifname, int enable);
/* 1 link (running), 0 no link, -1 error. */
KV_EXPORT int net_link_get(const char* ifname);
/* Speed in Mbit/s, or -1. */
KV_EXPORT int net_speed_get(const char* ifname);

/* "eth", "bond0" ... "bond6" (any case) to 0-7; KV_NET_MODE_UNKNOWN for
 * any other text. */
KV_EXPORT int net_mode_atoi(const char* text);
/* The mode's text; "unknow" for any other value. */
KV_EXPORT const char* net_mode_itoa(int mode);
/* The mode of /proc/net/bonding/bond0: KV_NET_MODE_ETH without the file,
 * KV_NET_MODE_UNKNOWN when its mode is not known. */
KV_EXPORT int net_mode_get(void);
/* Runs the platform's bonding script for the mode: 0 when it succeeded,
 * -1 otherwise. */
KV_EXPORT int net_mode_set(int mode);
/* The bond's currently active slave, cut to `size`: 0, or -1. */
KV_EXPORT int net_bond_active_slave(char* name, size_t size);

KV_EXTERN_C_END

#endif

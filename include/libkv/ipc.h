/* SPDX-License-Identifier: Apache-2.0 */
/* libkv inter-process plumbing: System V segments, FIFOs and framed records,
 * the storage channels, byte-blob lists and multiplexer channel requests.
 * Plain C. */
/* errno: after a call has reported failure, errno holds the cause given by
 * the system call that failed (mkfifo, open, poll, read, write, shmget,
 * shmat, malloc; the I2C transfer behind a 0xFF channel answer). A timeout,
 * a busy channel, a short write or an end of file leaves errno as it was,
 * and then it means nothing. */
#ifndef LIBKV_IPC_H
#define LIBKV_IPC_H

#include <libkv/export.h>

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

KV_EXTERN_C_BEGIN

/* ---- Shared memory segments ----------------------------------------------
 * Created on first use (mode 0777), attached once per process, never
 * detached. */

KV_EXPORT void* init_shm(void);         /* platform segment, cached */
KV_EXPORT void* init_sel_shm(void);     /* SEL segment, attached anew */
KV_EXPORT void* init_raid_shm(void);    /* RAID segment, cached */
KV_EXPORT void* init_ai_card_shm(void); /* accelerator-card segment, cached */
/* The platform segment, attaching it when this process has not yet. */
KV_EXPORT void* get_shm_address(void);
/* The platform segment if already attached, else NULL. */
KV_EXPORT void* get_share_mem(void);

/* ---- FIFOs and framed records --------------------------------------------
 * A record is one length byte (1..255) and that many body bytes. */

KV_EXPORT int AddQueue(const char* path, mode_t mode);
KV_EXPORT int GetQueue(const char* path, int flags, mode_t mode);
/* Writes one record under an exclusive lock so writers never interleave. */
KV_EXPORT int writeMsg(int fd, const void* record, size_t len);
/* Results of readMsg. */
enum
{
    KV_MSG_WAIT_FAILED = -1,
    KV_MSG_TIMED_OUT = -2 /* nothing came within the time-out */
};
/* Reads one record's body into `buf` (at least 256 bytes) and its length
 * into `*len`: 0, KV_MSG_WAIT_FAILED or KV_MSG_TIMED_OUT. */
KV_EXPORT int readMsg(int fd, uint8_t* buf, unsigned* len, unsigned timeout_s);
KV_EXPORT int get_from_q(char* buf, int len, int fd, int* got);

/* ---- Storage channels ----------------------------------------------------
 * Body: 32-bit code, least significant byte first, then 0..251 payload
 * bytes. A receive fills `out` (257 bytes): payload length, the code in
 * native order, the payload. An empty receive has the code 0. A send is 0,
 * or -1 when the FIFO cannot be opened or the payload is longer than 251. */

KV_EXPORT int send_storage_func(uint32_t code, const void* data, uint8_t len);
KV_EXPORT int storage_send_redfish_func(uint32_t code, const void* data,
                                        uint8_t len);
KV_EXPORT int recv_storage_func(uint8_t* out, unsigned reserved, mode_t mode);
KV_EXPORT int redfish_recv_storage_func(uint8_t* out, unsigned reserved,
                                        mode_t mode);

/* ---- Lists of byte blobs --------------------------------------------------
 */

typedef struct ListNode
{
    void* data;    /* private copy, owned by the node */
    uint32_t size; /* bytes at data */
    struct ListNode* next;
} ListNode;

KV_EXPORT ListNode* CreateList(unsigned reserved, const void* data,
                               size_t size);
KV_EXPORT ListNode* InsertLastList(ListNode* last, const void* data,
                                   size_t size);
/* Unlinks the first node; the caller frees its data and the node. */
KV_EXPORT ListNode* GetHeadList(ListNode** list);
KV_EXPORT void ClearList(ListNode** list);

/* ---- Multiplexer channel requests ----------------------------------------
 * IPMI completion codes. */
enum
{
    KV_CC_OK = 0x00,
    KV_CC_NO_SEGMENT = 0x80,
    KV_CC_NODE_BUSY = 0xC0,
    KV_CC_UNSPECIFIED = 0xFF
};

/* Takes (enable != 0) or releases the channel of the multiplexer `mux_addr`
 * on `bus`, through the bus descriptor `fd`. */
KV_EXPORT int switch_channel_request(int fd, uint8_t bus, uint8_t channel,
                                     uint8_t mux_addr, int enable);

KV_EXTERN_C_END

#endif

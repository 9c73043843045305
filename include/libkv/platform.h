/* SPDX-License-Identifier: Apache-2.0 */
/* libkv platform discovery: which drive backplanes, risers, IO-expander and
 * M.2 cards are fitted, published as files under /var/run/backplane/ and
 * /run/backplane/ for the other daemons. Plain C. */
#ifndef LIBKV_PLATFORM_H
#define LIBKV_PLATFORM_H

#include <libkv/export.h>

#include <stdint.h>

KV_EXTERN_C_BEGIN

/* ---- Backplanes ----------------------------------------------------------
 * A backplane's CPLD holds its identity byte (bits 0-4 board id, bits 5-6
 * PCB revision A-D, bit 7 odd parity), the slot presence bits (register 25,
 * 1 = empty), the media bits (register 9, 1 = NVMe) and its version
 * (register 8). A detector appends what it found to its JSON file. */

/* Results of the backplane detectors and backplane_board_handler. */
enum
{
    KV_BACKPLANE_OK = 0,
    KV_BACKPLANE_NO_BUS = 1,
    KV_BACKPLANE_READ_FAILED = 2,
    KV_BACKPLANE_EVEN_PARITY = 4,
    KV_BACKPLANE_FILE_FAILED = 5,
    KV_BACKPLANE_OTHER_BOARD = 6
};

/* A drive's I2C channel: bus, extended channel, slot (from 1). */
typedef struct kv_drive_channel
{
    uint8_t bus;
    uint8_t ext;
    uint8_t slot;
} kv_drive_channel;

/* Model names of the boards, indexed by the 5-bit board id. */
KV_EXPORT extern char baord_name[32][64];
KV_EXPORT extern kv_drive_channel d2p_right_cfg[2];
KV_EXPORT extern kv_drive_channel d8p_right_cfg[8];
KV_EXPORT extern kv_drive_channel d12p_right_cfg[4];

/* Each takes the backplane index (part of the file name), the expected
 * board id (used by the 12-slot and 3.5-inch kinds only), the bus, the
 * CPLD's 7-bit address and the identity register. */
KV_EXPORT int f2p_backpalne_detect(int index, int board_id, int bus,
                                   uint8_t address, uint8_t id_register);
KV_EXPORT int f8p_backpalne_detect(int index, int board_id, int bus,
                                   uint8_t address, uint8_t id_register);
KV_EXPORT int f12p_backpalne_detect(int index, int board_id, int bus,
                                    uint8_t address, uint8_t id_register);
KV_EXPORT int f25p_backpalne_detect(int index, int board_id, int bus,
                                    uint8_t address, uint8_t id_register);
KV_EXPORT int f2p_backpalne_3p5_detect(int index, int board_id, int bus,
                                       uint8_t address, uint8_t id_register);
/* Appends {"present":"1"} to /var/run/backplane/<name>.json when the board
 * with `board_id` answers. */
KV_EXPORT int backplane_board_handler(const char* name, int board_id, int bus,
                                      uint8_t address, uint8_t id_register);
/* M.2 cards, IO-expander cards, then the 10-slot backplane (board id 14 at
 * 0x3f on bus 1): backplane_board_handler's result. */
KV_EXPORT int backplane_board_detect(void);

/* ---- Riser, IO-expander and M.2 cards ------------------------------------
 * Where the cards are probed, rows of 5 bytes:
 *   m2_bus_config:    probe bus, presence device, multiplexer (0 none),
 *                     card identity device, bus of the identity device;
 *   iox_bus_config:   bus, identity device, 0, 0, bus recorded for the card;
 *   riser_bus_config: bus, riser identity device, multiplexer, device
 *                     behind the multiplexer, multiplexer channel.
 * The result files hold a 32-bit little-endian count and 8 entries; they are
 * written only when a card was found, and left alone otherwise:
 *   /run/backplane/mp2_bus_config       entries: bus, mux, channel, 0
 *   /run/backplane/iox_bus_config       entries: bus, 0, 0, card id
 *   /var/run/backplane/riser_bus_config entries: bus, mux, channel */

KV_EXPORT extern uint8_t m2_bus_config[5][5];
KV_EXPORT extern uint8_t iox_bus_config[5][5];
KV_EXPORT extern uint8_t riser_bus_config[1][5];
KV_EXPORT extern int32_t max_config_number;
KV_EXPORT extern int32_t iox_config_number;

/* 0. */
KV_EXPORT int mp2_card_detect(void);
enum
{
    KV_IOX_NO_CPLD = 128 /* the module CPLD's presence register is unread */
};
/* 0, or KV_IOX_NO_CPLD. */
KV_EXPORT int iox_present_detect(void);
/* 0. */
KV_EXPORT int riser_card_detect(void);
KV_EXPORT int single_riser_detect(void);

KV_EXTERN_C_END

#endif

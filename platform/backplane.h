// SPDX-License-Identifier: Apache-2.0
// One detection routine for every drive backplane kind; the kinds differ
// only in the rows of their table.
#pragma once

#include <libkv/platform.h>

#include <cstdint>

namespace kv::detail
{

// Drive channels published with the backplane at index 0.
struct DriveList
{
    const kv_drive_channel* entries; // nullptr: the kind publishes none
    int count;
    bool number_line_feed; // "SSD Number" on a line of its own
    int only_for_id;       // negative: for every board id of the kind
};

struct BackplaneKind
{
    const char* function;    // the detector, named in its log lines
    const char* file_prefix; // the file is prefix + index + ".json"
    const char* board_name;
    // The board id the kind takes for (index, expected id); negative: none.
    int (*accepted_id)(int index, int expected_id);
    int slots;
    uint16_t register_bytes; // of the presence and media blocks
    bool hex_address;        // "CPLD Address" in hex, else decimal
    DriveList drives;
    // Runs once the board is known, before its file is touched.
    void (*before_publish)(int id);
};

inline constexpr int kMaxRegisterBytes = 4;

// Reads the board's identity and slot registers and appends its JSON
// object to the kind's file; a KV_BACKPLANE_* result.
int detect_backplane(const BackplaneKind& kind, int index, int expected_id,
                     int bus, uint8_t address, uint8_t id_register);

} // namespace kv::detail

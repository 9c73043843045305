// SPDX-License-Identifier: Apache-2.0
// The published object, one member a line:
//   {"data":{
//   "Board Name":"2P BACK PLANE",
//   "CPLD Channel":"5",
//   ...
//   "CPLD Version":"V3"
//   }
//   }
// The board-name line is written as soon as the board is known and the rest
// in one append at the end, so a reader that finds only the first line knows
// the detection did not finish.
#include "platform/backplane.h"
#include "platform/board_identity.h"
#include "platform/register_reads.h"

#include <libkv/foundation.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cwchar>

namespace kv::detail
{
namespace
{

constexpr uint8_t kVersionRegister = 8;
constexpr uint8_t kMediaRegister = 9;
constexpr uint8_t kPresenceRegister = 25;

// Text that never grows past its buffer; what does not fit is dropped.
class Body
{
  public:
    __attribute__((format(printf, 2, 3))) void add(const char* format, ...)
    {
        if (used_ + 1 >= sizeof text_)
        {
            return;
        }
        char* const end = text_ + used_;
        const size_t room = sizeof text_ - used_;
        va_list args;
        va_start(args, format);
        // va_start above: clang-analyzer 14 misses it here.
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
        const int n = std::vsnprintf(end, room, format, args);
        va_end(args);
        if (n > 0)
        {
            used_ = std::min(used_ + static_cast<size_t>(n), sizeof text_ - 1);
        }
    }
    const char* text() const
    {
        return text_;
    }

  private:
    char text_[2048] = {};
    size_t used_ = 0;
};

// Slot n (from 1) is bit (n - 1) % 8 of byte (n - 1) / 8.
bool slot_bit(const uint8_t* block, int slot)
{
    return (block[(slot - 1) / 8] >> ((slot - 1) % 8) & 1) != 0;
}

bool lists_drives(const DriveList& drives, int index, int id)
{
    return index == 0 && drives.entries != nullptr &&
           (drives.only_for_id < 0 || drives.only_for_id == id);
}

void add_drives(Body& body, const DriveList& drives)
{
    if (drives.number_line_feed)
    {
        body.add("\"SSD Number\":\"%d\",\n", drives.count);
    }
    else
    {
        body.add("\"SSD Number\":\"%d\",", drives.count);
    }
    body.add("\"SSD Channel\":[");
    for (int i = 0; i < drives.count; ++i)
    {
        const kv_drive_channel& drive = drives.entries[i];
        body.add("{\"i2c\":\"%d\",\"ext\":\"%d\",\"slot\":\"slot%d\"}",
                 drive.bus, drive.ext, drive.slot);
        body.add(i + 1 < drives.count ? ",\n" : "],");
    }
}

void add_identity(Body& body, const BackplaneKind& kind, int bus,
                  uint8_t address, uint8_t identity)
{
    body.add("\"CPLD Channel\":\"%d\",\n", bus);
    if (kind.hex_address)
    {
        body.add("\"CPLD Address\":\"%02x\",\n", address);
    }
    else
    {
        body.add("\"CPLD Address\":\"%d\",\n", address);
    }
    const int id = board_id(identity);
    body.add("\"Card Name\":\"%.*s\",\n",
             static_cast<int>(sizeof baord_name[id]), baord_name[id]);
    body.add("\"PCB Version\":\"V%C\",\n",
             static_cast<wint_t>(pcb_revision(identity)));
}

} // namespace

int detect_backplane(const BackplaneKind& kind, int index, int expected_id,
                     int bus, uint8_t address, uint8_t id_register)
{
    IdentifiedBoard board =
        identify_board(bus, address, id_register,
                       kind.accepted_id(index, expected_id), kind.function);
    if (board.status != KV_BACKPLANE_OK)
    {
        return board.status;
    }
    const int id = board_id(board.identity);
    if (kind.before_publish != nullptr)
    {
        kind.before_publish(id);
    }

    char path[64];
    std::snprintf(path, sizeof path, "%s%d.json", kind.file_prefix, index);
    char first_line[64];
    std::snprintf(first_line, sizeof first_line,
                  "{\"data\":{\n\"Board Name\":\"%s\",\n", kind.board_name);
    if (create_and_write_file(path, first_line) != 0)
    {
        return KV_BACKPLANE_FILE_FAILED;
    }

    Body body;
    add_identity(body, kind, bus, address, board.identity);

    const Probe probe{board.bus.get(), bus, address, kind.function};
    uint8_t presence[kMaxRegisterBytes] = {};
    if (!read_registers_logged(probe, kPresenceRegister, presence,
                               kind.register_bytes, __LINE__))
    {
        return KV_BACKPLANE_READ_FAILED;
    }
    for (int slot = 1; slot <= kind.slots; ++slot)
    {
        body.add("\"SLOT%d Present\":\"%s\",\n", slot,
                 slot_bit(presence, slot) ? "UN-PRESENT" : "PRESENT");
    }

    uint8_t media[kMaxRegisterBytes] = {};
    if (!read_registers_logged(probe, kMediaRegister, media,
                               kind.register_bytes, __LINE__))
    {
        return KV_BACKPLANE_READ_FAILED;
    }
    for (int slot = 1; slot <= kind.slots; ++slot)
    {
        if (!slot_bit(presence, slot))
        {
            body.add("\"SLOT%d Media Type\":\"%s\",\n", slot,
                     slot_bit(media, slot) ? "NVME" : "SAS/SATA");
        }
    }

    if (lists_drives(kind.drives, index, id))
    {
        add_drives(body, kind.drives);
    }

    uint8_t version = 0;
    if (!read_registers_logged(probe, kVersionRegister, &version, 1, __LINE__))
    {
        return KV_BACKPLANE_READ_FAILED;
    }
    body.add("\"CPLD Version\":\"V%d\"\n}\n}", version);
    return create_and_write_file(path, body.text()) == 0
               ? KV_BACKPLANE_OK
               : KV_BACKPLANE_FILE_FAILED;
}

} // namespace kv::detail

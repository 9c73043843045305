// SPDX-License-Identifier: Apache-2.0
// Backplane, M.2, IO-expander and riser detection on the board of
// platform_board.json, with the multiplexers on buses 5, 6 and 13.
#include "hw_test.h"
#include "ipc/platform_segment.h"

#include <libkv/ipc.h>
#include <libkv/platform.h>

#include <span>

namespace
{

using namespace kv::hw::test;
using kv::test::names_in;
using Bytes = std::vector<uint8_t>;
namespace fs = std::filesystem;

const std::string dir = "/var/run/backplane/", earlier = "earlier result",
                  m2_file = "/run/backplane/mp2_bus_config",
                  iox_file = "/run/backplane/iox_bus_config",
                  riser_file = dir + "riser_bus_config";

uint8_t& channel_lock(int bus)
{
    return static_cast<uint8_t*>(
        get_shm_address())[kv::segment::channel_lock(bus, 0x71)];
}

std::string published(const std::string& path)
{
    return read_text(path.starts_with("/") ? path : dir + path)
        .value_or("<none>");
}

// A card result file: the count, then `entries` padded to 8.
std::string result_file(std::vector<Bytes> entries)
{
    std::string bytes{char(entries.size()), 0, 0, 0};
    entries.resize(8, Bytes(entries.at(0).size()));
    for (const Bytes& entry : entries)
    {
        bytes.append(entry.begin(), entry.end());
    }
    return bytes;
}

// Buses whose CPLD was sent `bytes`.
std::vector<int> sent_to_cpld(const Bytes& bytes)
{
    std::vector<int> buses;
    for (const Transfer& t : wire_log())
    {
        if (!t.read && t.address == 0x3f && t.bytes == bytes)
        {
            buses.push_back(t.bus);
        }
    }
    return buses;
}

// Channels (from 0) selected on the multiplexer at 0x71 of `bus`.
std::vector<int> selections(int bus)
{
    std::vector<int> channels;
    for (const Transfer& t : wire_log())
    {
        if (t.bus == bus && t.address == 0x71 && !t.read)
        {
            channels.push_back(t.bytes.size() == 2 ? __builtin_ctz(t.bytes[1])
                                                   : -1);
        }
    }
    return channels;
}

int reads_of(int bus, uint16_t address)
{
    const auto log = wire_log();
    return std::count_if(log.begin(), log.end(), [&](const Transfer& t) {
        return t.bus == bus && t.address == address && t.read;
    });
}

// Leaves no descriptor open on a bus; each test starts with the card
// multiplexers free (the segment outlives the test's namespace).
class Platform : public kv::sim::test::ExampleBoard
{
  protected:
    void SetUp() override
    {
        load_board(PLATFORM_BOARD);
        fresh();
        for (int channel = 1; channel <= 4; ++channel)
        {
            write_text("/var/run/obmcinfo/i2c/i2c-13-" +
                           std::to_string(channel),
                       std::to_string(15 + channel) + "\n");
        }
        channel_lock(5) = channel_lock(6) = 0;
        capture_sleeps(true);
    }
    static void fresh()
    {
        fs::remove_all(dir);
        kv::test::make_dirs(dir);
        write_text(error_log, "");
        clear_wire_log();
    }
};

using Detect = int (*)(int, int, int, uint8_t, uint8_t);
const auto f2p = f2p_backpalne_detect, f8p = f8p_backpalne_detect,
           f12p = f12p_backpalne_detect, f25p = f25p_backpalne_detect,
           f3p5 = f2p_backpalne_3p5_detect;

// What the CPLD on each of buses 5 to 9 holds (platform_board.json): its
// slots empty (-), with a SAS/SATA drive (S) or an NVMe drive (N).
struct Board
{
    const char *name, *address;
    int version;
    std::string slots;
};
const Board boards[] = {
    {"2P BACK PLANE", "3f", 3, "S-"},
    {"8P BACK PLANE", "63", 2, "NNSS----"},
    {"12P BACK PLANE", "63", 1, "S--------N--"},
    {"25P BACK PLANE", "63", 4, "--------S---------------N"},
    {"2P BACK PLANE", "3f", 7, "SN"},
};

// The exact text the daemons read, one member a line, appended on each run.
TEST_F(Platform, Backplanes)
{
    struct Kind
    {
        Detect detect;
        int index, id, bus;
        uint8_t identity; // set before the call unless 0
        const char* file;
        char pcb;
        std::span<const kv_drive_channel> drives;
        std::vector<int> enabled; // buses whose CPLD got register 45 set
    };
    const std::span<const kv_drive_channel> none;
    // Drives are listed with the first backplane only; revisions B to D.
    const Kind kinds[] = {
        {f2p, 0, 31, 5, 0, "2p0", 'A', d2p_right_cfg, {}},
        {f2p, 1, 31, 5, 0xbf, "2p1", 'B', none, {}},
        {f8p, 0, 10, 6, 0, "8p0", 'A', d8p_right_cfg, {}},
        {f12p, 0, 8, 7, 0, "12p0", 'A', d12p_right_cfg, {19, 18}},
        {f12p, 0, 11, 7, 0x0b, "12p0", 'A', none, {17}},
        {f12p, 0, 24, 7, 0x98, "12p0", 'A', none, {17}},
        {f25p, 0, 9, 8, 0, "25p0", 'A', none, {}},
        {f25p, 3, 25, 8, 0x19, "25p3", 'A', none, {}},
        {f3p5, 0, 28, 9, 0, "3p5_2p0", 'C', none, {}},
        {f3p5, 1, 31, 5, 0x7f, "3p5_2p1", 'D', none, {}},
    };
    std::string want;
    for (const Kind& k : kinds)
    {
        SCOPED_TRACE(&k - kinds);
        fresh();
        if (k.identity != 0)
        {
            set_device_memory(k.bus, 0x3f, 0, {k.identity});
        }
        EXPECT_EQ(KV_BACKPLANE_OK, k.detect(k.index, k.id, k.bus, 0x3f, 0));
        const Board& b = boards[k.bus - 5];
        want = "{'data':{\n";
        const auto add = [&](std::string key, std::string value,
                             const char* end = ",\n") {
            want += "'" + key + "':'" + value + "'" + end;
        };
        add("Board Name", b.name);
        add("CPLD Channel", std::to_string(k.bus));
        add("CPLD Address", b.address);
        add("Card Name", baord_name[k.id]);
        add("PCB Version", {'V', k.pcb});
        for (size_t i = 0; i < b.slots.size(); ++i)
        {
            add("SLOT" + std::to_string(i + 1) + " Present",
                b.slots[i] == '-' ? "UN-PRESENT" : "PRESENT");
        }
        for (size_t i = 0; i < b.slots.size(); ++i)
        {
            if (b.slots[i] != '-')
            {
                add("SLOT" + std::to_string(i + 1) + " Media Type",
                    b.slots[i] == 'N' ? "NVME" : "SAS/SATA");
            }
        }
        if (!k.drives.empty())
        {
            // Only the 12-slot kind breaks the line after the count.
            add("SSD Number", std::to_string(k.drives.size()),
                k.detect == f12p ? ",\n" : ",");
            want += "'SSD Channel':[";
            for (const kv_drive_channel& d : k.drives)
            {
                want += "{'i2c':'" + std::to_string(d.bus) + "','ext':'" +
                        std::to_string(d.ext) + "','slot':'slot" +
                        std::to_string(d.slot) + "'},\n";
            }
            want.replace(want.size() - 2, 2, "],");
        }
        add("CPLD Version", "V" + std::to_string(b.version), "\n}\n}");
        std::replace(want.begin(), want.end(), '\'', '"');
        EXPECT_EQ(want, published(k.file + std::string(".json")));
        EXPECT_EQ(k.enabled, sent_to_cpld({45, 1}));
        EXPECT_EQ(0, error_lines());
    }
    EXPECT_EQ(KV_BACKPLANE_OK, f3p5(1, 31, 5, 0x3f, 0));
    EXPECT_EQ(want + want, published("3p5_2p1.json"));
}

// A failed step publishes nothing, or only the first line once the board
// is known; a failed read is logged.
TEST_F(Platform, Failures)
{
    struct Case
    {
        Detect detect;
        int id, bus;
        uint8_t identity;
        int result;
        unsigned failing = 0; // transfer made to fail, 0: none
        uint8_t address = 0x3f, reg = 0;
    };
    const Case cases[] = {
        {f2p, 0, 4, 0, KV_BACKPLANE_NO_BUS},
        {f8p, 0, 6, 0, KV_BACKPLANE_READ_FAILED, 0, 0x3e, 2},
        {f2p, 0, 5, 0x9f, KV_BACKPLANE_EVEN_PARITY},
        {f8p, 0, 5, 0x1f, KV_BACKPLANE_OTHER_BOARD},
        {f3p5, 28, 5, 0, KV_BACKPLANE_OTHER_BOARD},
        {f12p, 8, 7, 0x98, KV_BACKPLANE_OTHER_BOARD},
        {f12p, 9, 7, 0x89, KV_BACKPLANE_OTHER_BOARD},
        {f2p, 0, 5, 0x1f, KV_BACKPLANE_READ_FAILED, 3},
        {f2p, 0, 5, 0, KV_BACKPLANE_READ_FAILED, 5},
        {f2p, 0, 5, 0, KV_BACKPLANE_READ_FAILED, 7},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        fresh();
        if (c.identity != 0)
        {
            set_device_memory(c.bus, 0x3f, 0, {c.identity});
        }
        if (c.failing != 0)
        {
            fail_transfer(c.failing, EIO);
        }
        EXPECT_EQ(c.result, c.detect(0, c.id, c.bus, c.address, c.reg));
        EXPECT_EQ(c.failing ? 1u : 0u, names_in(dir).size());
        EXPECT_EQ(c.failing ? "{\"data\":{\n\"Board Name\":\"2P BACK PLANE\",\n"
                            : "<none>",
                  published("2p0.json"));
        EXPECT_THAT(sent_to_cpld({45, 1}), IsEmpty());
        EXPECT_EQ(c.result == KV_BACKPLANE_READ_FAILED, error_lines());
    }
}

// Twelve-slot channels are set even when the object cannot be.
TEST_F(Platform, TwelveSlot)
{
    // A channel that does not answer is logged and passed over.
    fail_address(18, 0x3f, ENXIO);
    EXPECT_EQ(KV_BACKPLANE_OK, f12p(0, 8, 7, 0x3f, 0));
    EXPECT_EQ(1, device_memory(19, 0x3f)[45]);
    EXPECT_EQ(1, error_lines());

    // Set after the identity read, before the object is written.
    fs::remove_all(dir);
    clear_faults();
    clear_wire_log();
    EXPECT_EQ(KV_BACKPLANE_FILE_FAILED, f12p(0, 8, 7, 0x3f, 0));
    EXPECT_THAT(wire_log(),
                ElementsAre(sent(7, 0x3f, {0}), received(7, 0x3f, {8}, true),
                            sent(19, 0x3f, {45, 1}), sent(18, 0x3f, {45, 1})));
}

// Presence-only boards and the board sequence.
TEST_F(Platform, Sequence)
{
    const auto handle = [](const char* name, int id) {
        return backplane_board_handler(name, id, 5, 0x3f, 0);
    };
    EXPECT_THAT(std::vector({handle("riser0", 31), handle("riser0", 31),
                             handle("other", 30), handle("no/such/dir", 31),
                             handle(nullptr, 31)}),
                ElementsAre(0, 0, KV_BACKPLANE_OTHER_BOARD,
                            KV_BACKPLANE_FILE_FAILED,
                            KV_BACKPLANE_FILE_FAILED));
    EXPECT_EQ("{\"present\":\"1\"}{\"present\":\"1\"}",
              published("riser0.json"));
    EXPECT_THAT(names_in(dir), ElementsAre("riser0.json"));

    // M.2 cards, IO-expander cards, then the 10-slot board on bus 1.
    EXPECT_EQ(KV_BACKPLANE_OK, backplane_board_detect());
    EXPECT_EQ("{\"present\":\"1\"}", published("10p0.json"));
    EXPECT_NE("<none>", published(m2_file));
    EXPECT_EQ(received(1, 0x3f, {0x0e}, true), wire_log().back());
    set_device_memory(1, 0x3f, 0, {0x0f});
    EXPECT_EQ(KV_BACKPLANE_EVEN_PARITY, backplane_board_detect());
}

TEST_F(Platform, M2Presence)
{
    // Position c is taken when bits c and c + 3 are both clear.
    const std::pair<uint8_t, std::vector<uint8_t>> cases[] = {
        {0x00, {0, 1, 2}}, {0x01, {1, 2}}, {0x20, {0, 1}},
        {0x12, {0, 2}},    {0x3f, {}},
    };
    for (const auto& [presence, positions] : cases)
    {
        SCOPED_TRACE(int{presence});
        fs::remove(m2_file);
        clear_wire_log();
        set_device_memory(5, 0x21, 1, {presence});
        EXPECT_EQ(0, mp2_card_detect());
        EXPECT_EQ(std::vector<int>(positions.begin(), positions.end()),
                  selections(5));
        EXPECT_EQ(int(positions.size()), reads_of(5, 0x23));
        std::vector<Bytes> entries;
        for (const uint8_t c : positions)
        {
            entries.push_back({5, 0x71, c, 0});
        }
        EXPECT_EQ(entries.empty() ? "<none>" : result_file(entries),
                  published(m2_file));
        // Every channel taken was given back.
        EXPECT_EQ(0, channel_lock(5));
    }
}

// Eight cards fill the file; row 3 has no multiplexer and its card
// answers on bus 12 for every position.
// The ninth card is not stored.
TEST_F(Platform, M2Full)
{
    set_device_memory(6, 0x21, 1, {0x00});
    set_device_memory(10, 0x21, 1, {0x00});
    for (const int bus : {24, 25, 26})
    {
        set_device_memory(bus, 0x23, 0, {0x1a});
    }
    EXPECT_EQ(0, mp2_card_detect());
    EXPECT_EQ(3, reads_of(12, 0x23));
    EXPECT_THAT(selections(6), ElementsAre(0, 1, 2));
    EXPECT_EQ(result_file({{5, 0x71, 0, 0},
                           {5, 0x71, 1, 0},
                           {5, 0x71, 2, 0},
                           {6, 0x71, 0, 0},
                           {6, 0x71, 1, 0},
                           {6, 0x71, 2, 0},
                           {12, 0, 0, 0},
                           {12, 0, 1, 0}}),
              published(m2_file));
}

// The probe skips held channels and other cards.
TEST_F(Platform, M2Skips)
{
    // Another process holds row 1's multiplexer: nothing is sent to it.
    write_text(m2_file, earlier);
    channel_lock(5) = 1;
    EXPECT_EQ(0, mp2_card_detect());
    EXPECT_THAT(selections(5), IsEmpty());
    EXPECT_EQ(0, reads_of(5, 0x23));
    EXPECT_EQ(1, channel_lock(5));
    EXPECT_EQ(earlier, published(m2_file));

    // Position 1 holds another card, position 2 does not answer.
    channel_lock(5) = 0;
    set_device_memory(21, 0x23, 0, {0x1b});
    fail_address(22, 0x23, ENXIO);
    EXPECT_EQ(0, mp2_card_detect());
    EXPECT_EQ(result_file({{5, 0x71, 0, 0}}), published(m2_file));
    EXPECT_EQ(0, channel_lock(5));
    EXPECT_EQ(1, error_lines());
}

// The messages on stdout repeat what the result file shows.
TEST_F(Platform, Iox)
{
    // Register 4 of the module CPLD: bit n set, nothing at position n.
    write_text(iox_file, earlier);
    iox_present_detect();
    EXPECT_EQ(earlier, published(iox_file));
    EXPECT_EQ(2u, wire_log().size()); // the CPLD register alone

    set_device_memory(11, 0x3f, 4, {0x00});
    iox_present_detect();
    EXPECT_EQ(result_file({{5, 0, 0, 17}, {6, 0, 0, 12}, {10, 0, 0, 27}}),
              published(iox_file));

    // The third falls back to channel 3 of bus 13 (bus 18), whose card
    // must pass the parity test too, when the bus number is known.
    set_device_memory(11, 0x3f, 4, {0x02});
    fail_address(5, 0x21, ENXIO);
    set_device_memory(10, 0x21, 0, {0x9a});
    iox_present_detect();
    EXPECT_EQ(result_file({{18, 0, 0, 27}}), published(iox_file));
    fs::remove(iox_file);
    set_device_memory(18, 0x3f, 0, {0x9a});
    iox_present_detect();
    EXPECT_EQ("<none>", published(iox_file));
    fs::remove("/var/run/obmcinfo/i2c/i2c-13-3");
    write_text("/var/run/obmcinfo/i2c_dmesg", "");
    clear_wire_log();
    iox_present_detect();
    EXPECT_EQ(0, reads_of(18, 0x3f));
    EXPECT_EQ(1, reads_of(10, 0x21));
}

TEST_F(Platform, Riser)
{
    // Riser 12 with bit 7 or riser 4 without it; the card behind channel 1
    // (from 0) is recorded.
    for (const uint8_t identity : {0x0c, 0x04, 0x84, 0x8c})
    {
        SCOPED_TRACE(int{identity});
        const bool accepted = identity == 0x04 || identity == 0x8c;
        fs::remove(riser_file);
        clear_wire_log();
        set_device_memory(6, 0x21, 0, {identity});
        EXPECT_EQ(0, riser_card_detect());
        EXPECT_EQ(std::vector<int>(accepted, 1), selections(6));
        EXPECT_EQ(accepted ? result_file({{6, 0x71, 1}}) : "<none>",
                  published(riser_file));
        EXPECT_EQ(0, channel_lock(6));
    }
    EXPECT_EQ(0, single_riser_detect());
    EXPECT_EQ(28u, published(riser_file).size());

    // Another card behind the channel, or the channel held elsewhere.
    write_text(riser_file, earlier);
    set_device_memory(25, 0x23, 0, {0x0e});
    EXPECT_EQ(0, riser_card_detect());
    EXPECT_EQ(0, channel_lock(6));
    set_device_memory(25, 0x23, 0, {0x0f});
    channel_lock(6) = 1;
    clear_wire_log();
    EXPECT_EQ(0, riser_card_detect());
    EXPECT_EQ(0, reads_of(6, 0x23));
    EXPECT_EQ(1, channel_lock(6));
    EXPECT_EQ(earlier, published(riser_file));

    // Descriptor 0 is never taken for the bus.
    fs::remove(riser_file);
    EXPECT_EQ(0, kv::test::exit_status_of([] {
                  ::close(0);
                  return riser_card_detect();
              }));
    EXPECT_EQ("<none>", published(riser_file));
}

} // namespace

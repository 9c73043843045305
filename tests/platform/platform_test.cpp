// SPDX-License-Identifier: Apache-2.0
// Backplane, M.2, IO-expander and riser detection on the board of
// platform_board.json, with the multiplexers on buses 5, 6 and 13.
#include "hw_test.h"
#include "ipc/platform_segment.h"

#include <libkv/ipc.h>
#include <libkv/platform.h>

#include <cjson/cJSON.h>

#include <map>
#include <memory>
#include <span>

namespace
{

using namespace kv::hw::test;
using kv::test::names_in;
using kv::test::stdout_of;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using Bytes = std::vector<uint8_t>;

const std::string dir = "/var/run/backplane/";
const std::string m2_file = "/run/backplane/mp2_bus_config";
const std::string iox_file = "/run/backplane/iox_bus_config";
const std::string riser_file = dir + "riser_bus_config";
const std::string earlier = "earlier result";

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
std::string result_file(std::vector<Bytes> entries, std::size_t width)
{
    std::string bytes{static_cast<char>(entries.size()), 0, 0, 0};
    entries.resize(8, Bytes(width, 0));
    for (const Bytes& entry : entries)
    {
        bytes.append(entry.begin(), entry.end());
    }
    return bytes;
}

std::vector<Transfer> writes_of(const Bytes& bytes)
{
    std::vector<Transfer> writes;
    for (const Transfer& t : wire_log())
    {
        if (!t.read && t.bytes == bytes)
        {
            writes.push_back(t);
        }
    }
    return writes;
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
        write_text(error_log, "");
        kv::test::make_dirs(dir);
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
        std::filesystem::remove_all(dir);
        kv::test::make_dirs(dir);
        write_text(error_log, "");
        clear_wire_log();
    }
};

using Detect = int (*)(int, int, int, uint8_t, uint8_t);
using JsonPtr = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

// What the CPLD on each bus holds (platform_board.json).
struct Board
{
    const char *name, *address;
    int version, slots;
    std::vector<int> present, nvme;
};
const std::map<int, Board> boards = {
    {5, {"2P BACK PLANE", "3f", 3, 2, {1}, {}}},
    {6, {"8P BACK PLANE", "63", 2, 8, {1, 2, 3, 4}, {1, 2}}},
    {7, {"12P BACK PLANE", "63", 1, 12, {1, 10}, {10}}},
    {8, {"25P BACK PLANE", "63", 4, 25, {9, 25}, {25}}},
    {9, {"2P BACK PLANE", "3f", 7, 2, {1, 2}, {2}}},
};

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

// The object the web and management daemons read.
JsonPtr expected_object(const Kind& k)
{
    const Board& b = boards.at(k.bus);
    JsonPtr root(cJSON_CreateObject(), cJSON_Delete);
    cJSON* data = cJSON_AddObjectToObject(root.get(), "data");
    const auto add = [](cJSON* to, const std::string& key,
                        const std::string& value) {
        cJSON_AddStringToObject(to, key.c_str(), value.c_str());
    };
    add(data, "Board Name", b.name);
    add(data, "CPLD Channel", std::to_string(k.bus));
    add(data, "CPLD Address", b.address);
    add(data, "Card Name", baord_name[k.id]);
    add(data, "PCB Version", std::string("V") + k.pcb);
    add(data, "CPLD Version", "V" + std::to_string(b.version));
    for (int slot = 1; slot <= b.slots; ++slot)
    {
        const std::string name = "SLOT" + std::to_string(slot);
        const auto has = [slot](const std::vector<int>& v) {
            return std::count(v.begin(), v.end(), slot) > 0;
        };
        add(data, name + " Present", has(b.present) ? "PRESENT" : "UN-PRESENT");
        if (has(b.present))
        {
            add(data, name + " Media Type", has(b.nvme) ? "NVME" : "SAS/SATA");
        }
    }
    if (!k.drives.empty())
    {
        add(data, "SSD Number", std::to_string(k.drives.size()));
        cJSON* list = cJSON_AddArrayToObject(data, "SSD Channel");
        for (const kv_drive_channel& d : k.drives)
        {
            cJSON* item = cJSON_CreateObject();
            add(item, "i2c", std::to_string(d.bus));
            add(item, "ext", std::to_string(d.ext));
            add(item, "slot", "slot" + std::to_string(d.slot));
            cJSON_AddItemToArray(list, item);
        }
    }
    return root;
}

TEST_F(Platform, EveryBackplaneKindPublishesItsObject)
{
    const auto f2p = f2p_backpalne_detect, f8p = f8p_backpalne_detect,
               f12p = f12p_backpalne_detect, f25p = f25p_backpalne_detect,
               f3p5 = f2p_backpalne_3p5_detect;
    const std::span<const kv_drive_channel> none;
    // Drives are listed with the first backplane only; revisions B to D.
    const Kind kinds[] = {
        {f2p, 0, 31, 5, 0, "2p0", 'A', d2p_right_cfg, {}},
        {f2p, 1, 31, 5, 0xbf, "2p1", 'B', none, {}},
        {f8p, 0, 10, 6, 0, "8p0", 'A', d8p_right_cfg, {}},
        {f8p, 1, 10, 6, 0, "8p1", 'A', none, {}},
        {f12p, 0, 8, 7, 0, "12p0", 'A', d12p_right_cfg, {19, 18}},
        {f12p, 1, 8, 7, 0, "12p1", 'A', none, {19, 18}},
        {f12p, 0, 11, 7, 0x0b, "12p0", 'A', none, {17}},
        {f12p, 0, 24, 7, 0x98, "12p0", 'A', none, {17}},
        {f25p, 0, 9, 8, 0, "25p0", 'A', none, {}},
        {f25p, 3, 25, 8, 0x19, "25p3", 'A', none, {}},
        {f3p5, 0, 28, 9, 0, "3p5_2p0", 'C', none, {}},
        {f3p5, 1, 31, 5, 0x7f, "3p5_2p1", 'D', none, {}},
    };
    for (const Kind& k : kinds)
    {
        SCOPED_TRACE(std::string(k.file) + " id " + std::to_string(k.id));
        fresh();
        if (k.identity != 0)
        {
            set_device_memory(k.bus, 0x3f, 0, {k.identity});
        }
        EXPECT_EQ(KV_BACKPLANE_OK, k.detect(k.index, k.id, k.bus, 0x3f, 0));
        const std::string text = published(k.file + std::string(".json"));
        JsonPtr got(cJSON_Parse(text.c_str()), cJSON_Delete);
        const JsonPtr want = expected_object(k);
        EXPECT_TRUE(cJSON_Compare(want.get(), got.get(), true))
            << cJSON_PrintUnformatted(want.get()) << "\n"
            << text;
        std::vector<Transfer> enables;
        for (const int bus : k.enabled)
        {
            enables.push_back(sent(bus, 0x3f, {45, 1}));
        }
        EXPECT_EQ(enables, writes_of({45, 1}));
        EXPECT_THAT(error_lines(), IsEmpty());
    }
}

// The exact text, one member a line, and the registers in their order.
TEST_F(Platform, BackplaneTextAppendsAndReadsIdentityPresenceMediaVersion)
{
    const std::string text = R"({"data":{
"Board Name":"2P BACK PLANE",
"CPLD Channel":"5",
"CPLD Address":"3f",
"Card Name":"BP-2SFF-R",
"PCB Version":"VA",
"SLOT1 Present":"PRESENT",
"SLOT2 Present":"UN-PRESENT",
"SLOT1 Media Type":"SAS/SATA",
"SSD Number":"2","SSD Channel":[{"i2c":"10","ext":"0","slot":"slot1"},
{"i2c":"12","ext":"0","slot":"slot2"}],"CPLD Version":"V3"
}
})";
    EXPECT_EQ(KV_BACKPLANE_OK, f2p_backpalne_detect(0, 0, 5, 0x3f, 0));
    EXPECT_THAT(wire_log(),
                ElementsAre(sent(5, 0x3f, {0}), received(5, 0x3f, {0x1f}, true),
                            sent(5, 0x3f, {25}),
                            received(5, 0x3f, {0xfe}, true), sent(5, 0x3f, {9}),
                            received(5, 0x3f, {0x00}, true), sent(5, 0x3f, {8}),
                            received(5, 0x3f, {0x03}, true)));
    EXPECT_EQ(KV_BACKPLANE_OK, f2p_backpalne_detect(0, 0, 5, 0x3f, 0));
    EXPECT_EQ(text + text, published("2p0.json"));
    // The 12-slot kind breaks the line after the drive count.
    EXPECT_EQ(KV_BACKPLANE_OK, f12p_backpalne_detect(0, 8, 7, 0x3f, 0));
    EXPECT_THAT(published("12p0.json"),
                HasSubstr("\"SSD Number\":\"4\",\n\"SSD Channel\":[{"));
}

// A failed step publishes nothing, or only the first line once the board
// is known; a failed read is logged with its bus, device and register.
TEST_F(Platform, BackplaneFailures)
{
    struct Case
    {
        Detect detect;
        int id, bus;
        uint8_t address, reg, identity;
        unsigned failing; // transfer made to fail, 0: none
        int result;
        const char* log; // "bus address register function", or ""
    };
    const auto f2p = f2p_backpalne_detect, f8p = f8p_backpalne_detect,
               f12p = f12p_backpalne_detect;
    const Case cases[] = {
        {f2p, 0, 4, 0x3f, 0, 0, 0, KV_BACKPLANE_NO_BUS, ""},
        {f8p, 0, 6, 0x3e, 2, 0, 0, KV_BACKPLANE_READ_FAILED,
         "6 62 2 f8p_backpalne_detect"},
        {f2p, 0, 5, 0x3f, 0, 0x9f, 0, KV_BACKPLANE_EVEN_PARITY, ""},
        {f8p, 0, 5, 0x3f, 0, 0x1f, 0, KV_BACKPLANE_OTHER_BOARD, ""},
        {f2p_backpalne_3p5_detect, 28, 5, 0x3f, 0, 0, 0,
         KV_BACKPLANE_OTHER_BOARD, ""},
        {f12p, 8, 7, 0x3f, 0, 0x98, 0, KV_BACKPLANE_OTHER_BOARD, ""},
        {f12p, 9, 7, 0x3f, 0, 0x89, 0, KV_BACKPLANE_OTHER_BOARD, ""},
        {f2p, 0, 5, 0x3f, 0, 0x1f, 3, KV_BACKPLANE_READ_FAILED,
         "5 63 25 f2p_backpalne_detect"},
        {f2p, 0, 5, 0x3f, 0, 0, 5, KV_BACKPLANE_READ_FAILED,
         "5 63 9 f2p_backpalne_detect"},
        {f2p, 0, 5, 0x3f, 0, 0, 7, KV_BACKPLANE_READ_FAILED,
         "5 63 8 f2p_backpalne_detect"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.log + std::to_string(c.result));
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
        if (c.failing != 0)
        {
            EXPECT_THAT(names_in(dir), ElementsAre("2p0.json"));
            EXPECT_EQ("{\"data\":{\n\"Board Name\":\"2P BACK PLANE\",\n",
                      published("2p0.json"));
        }
        else
        {
            EXPECT_THAT(names_in(dir), IsEmpty());
        }
        EXPECT_THAT(writes_of({45, 1}), IsEmpty());
        std::istringstream log(c.log);
        std::string bus, address, reg, function;
        log >> bus >> address >> reg >> function;
        const auto lines = error_lines();
        EXPECT_EQ(*c.log ? 1u : 0u, lines.size());
        for (const std::string& line : lines)
        {
            EXPECT_THAT(line, HasSubstr("-i2c rw data failed bus=" + bus +
                                        ", address=" + address + " offset=" +
                                        reg + ". back-plane-mgt:"));
            EXPECT_THAT(line, EndsWith(" " + function + " "));
        }
    }
}

TEST_F(Platform, TwelveSlotChannelsAreSetEvenWhenTheObjectCannotBe)
{
    // A channel that does not answer is logged and passed over.
    fail_address(18, 0x3f, ENXIO);
    EXPECT_EQ(KV_BACKPLANE_OK, f12p_backpalne_detect(0, 8, 7, 0x3f, 0));
    EXPECT_EQ(1, device_memory(19, 0x3f)[45]);
    EXPECT_THAT(error_lines(), ElementsAre(EndsWith(" write_cpld_reg ")));

    // Set after the identity read, before the object is written.
    std::filesystem::remove_all(dir);
    clear_faults();
    clear_wire_log();
    EXPECT_EQ(KV_BACKPLANE_FILE_FAILED,
              f12p_backpalne_detect(0, 8, 7, 0x3f, 0));
    EXPECT_THAT(wire_log(),
                ElementsAre(sent(7, 0x3f, {0}), received(7, 0x3f, {8}, true),
                            sent(19, 0x3f, {45, 1}), sent(18, 0x3f, {45, 1})));
}

TEST_F(Platform, PresenceOnlyBoardsAndTheBoardSequence)
{
    EXPECT_EQ(0, backplane_board_handler("riser0", 31, 5, 0x3f, 0));
    EXPECT_EQ(0, backplane_board_handler("riser0", 31, 5, 0x3f, 0));
    EXPECT_EQ("{\"present\":\"1\"}{\"present\":\"1\"}",
              published("riser0.json"));
    EXPECT_EQ(KV_BACKPLANE_OTHER_BOARD,
              backplane_board_handler("other", 30, 5, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_FILE_FAILED,
              backplane_board_handler("no/such/dir", 31, 5, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_FILE_FAILED,
              backplane_board_handler(nullptr, 31, 5, 0x3f, 0));
    EXPECT_THAT(names_in(dir), ElementsAre("riser0.json"));

    // M.2 cards, IO-expander cards, then the 10-slot board on bus 1.
    int result = -1;
    EXPECT_THAT(stdout_of([&] { result = backplane_board_detect(); }),
                HasSubstr("iox_present_detect:io2 don't present \n"));
    EXPECT_EQ(KV_BACKPLANE_OK, result);
    EXPECT_EQ("{\"present\":\"1\"}", published("10p0.json"));
    EXPECT_NE("<none>", published(m2_file));
    EXPECT_EQ(received(1, 0x3f, {0x0e}, true), wire_log().back());
    set_device_memory(1, 0x3f, 0, {0x0f});
    stdout_of([&] { result = backplane_board_detect(); });
    EXPECT_EQ(KV_BACKPLANE_EVEN_PARITY, result);
}

TEST_F(Platform, M2PresenceBitsChooseThePositionsProbed)
{
    // Position c is taken when bits c and c + 3 are both clear.
    const std::pair<uint8_t, std::vector<int>> cases[] = {{0x00, {0, 1, 2}},
                                                          {0x01, {1, 2}},
                                                          {0x20, {0, 1}},
                                                          {0x12, {0, 2}},
                                                          {0x3f, {}}};
    for (const auto& [presence, positions] : cases)
    {
        SCOPED_TRACE(int{presence});
        std::filesystem::remove(m2_file);
        clear_wire_log();
        set_device_memory(5, 0x21, 1, {presence});
        EXPECT_EQ(0, mp2_card_detect());
        EXPECT_EQ(positions, selections(5));
        EXPECT_EQ(static_cast<int>(positions.size()), reads_of(5, 0x23));
        std::vector<Bytes> entries;
        for (const int c : positions)
        {
            entries.push_back({5, 0x71, static_cast<uint8_t>(c), 0});
        }
        EXPECT_EQ(entries.empty() ? "<none>" : result_file(entries, 4),
                  published(m2_file));
        EXPECT_EQ(0, channel_lock(5)); // every channel taken was given back
    }
}

// Eight cards fill the file; row 3 has no multiplexer and its card
// answers on bus 12 for every position.
TEST_F(Platform, NinthM2CardIsNotStored)
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
    std::vector<Bytes> cards;
    for (const uint8_t bus : {5, 6})
    {
        for (const uint8_t c : {0, 1, 2})
        {
            cards.push_back({bus, 0x71, c, 0});
        }
    }
    cards.insert(cards.end(), {{12, 0, 0, 0}, {12, 0, 1, 0}});
    EXPECT_EQ(result_file(cards, 4), published(m2_file));
}

TEST_F(Platform, M2ProbeSkipsHeldChannelsAndOtherCards)
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
    EXPECT_EQ(result_file({{5, 0x71, 0, 0}}, 4), published(m2_file));
    EXPECT_EQ(0, channel_lock(5));
    EXPECT_THAT(error_lines(),
                ElementsAre(AllOf(HasSubstr("-i2c rw data failed bus=5, "
                                            "address=35 offset=0. "),
                                  EndsWith(" mp2_card_detect "))));
}

TEST_F(Platform, IoExpanderCards)
{
    const auto detect = [] { return stdout_of(iox_present_detect); };
    const std::string odd = "iox_present_detect:io2 odd check fail,data[9a] \n";
    // Register 4 of the module CPLD: bit n set, nothing at position n.
    write_text(iox_file, earlier);
    EXPECT_EQ("iox_present_detect:io0 don't present \n"
              "iox_present_detect:io1 don't present \n"
              "iox_present_detect:io2 don't present \n",
              detect());
    EXPECT_EQ(earlier, published(iox_file));
    EXPECT_EQ(2u, wire_log().size()); // the CPLD register alone

    set_device_memory(11, 0x3f, 4, {0x00});
    EXPECT_EQ("", detect());
    EXPECT_EQ(result_file({{5, 0, 0, 17}, {6, 0, 0, 12}, {10, 0, 0, 27}}, 4),
              published(iox_file));

    // The third falls back to channel 3 of bus 13 (bus 18), whose card
    // must pass the parity test too, when the bus number is known.
    set_device_memory(11, 0x3f, 4, {0x02});
    fail_address(5, 0x21, ENXIO);
    set_device_memory(10, 0x21, 0, {0x9a});
    EXPECT_EQ("iox_present_detect:read i2c5 slave[21] board id fail \n"
              "iox_present_detect:io1 don't present \n" +
                  odd,
              detect());
    EXPECT_EQ(result_file({{18, 0, 0, 27}}, 4), published(iox_file));
    std::filesystem::remove(iox_file);
    set_device_memory(18, 0x3f, 0, {0x9a});
    EXPECT_THAT(detect(), EndsWith(odd + odd));
    std::filesystem::remove("/var/run/obmcinfo/i2c/i2c-13-3");
    write_text("/var/run/obmcinfo/i2c_dmesg", "");
    EXPECT_THAT(detect(), EndsWith("\n" + odd));
    EXPECT_EQ("<none>", published(iox_file));
}

TEST_F(Platform, RiserCard)
{
    // Riser 12 with bit 7 or riser 4 without it; the card behind channel 1
    // (from 0) is recorded.
    const std::pair<uint8_t, bool> risers[] = {
        {0x0c, false}, {0x04, true}, {0x84, false}, {0x8c, true}};
    for (const auto& [identity, accepted] : risers)
    {
        SCOPED_TRACE(int{identity});
        std::filesystem::remove(riser_file);
        clear_wire_log();
        set_device_memory(6, 0x21, 0, {identity});
        EXPECT_EQ(0, riser_card_detect());
        EXPECT_EQ(accepted ? std::vector{1} : std::vector<int>{},
                  selections(6));
        EXPECT_EQ(accepted ? result_file({{6, 0x71, 1}}, 3) : "<none>",
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
    std::filesystem::remove(riser_file);
    EXPECT_EQ(0, kv::test::exit_status_of([] {
                  ::close(0);
                  return riser_card_detect();
              }));
    EXPECT_EQ("<none>", published(riser_file));
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// Board files: what they can say and how their mistakes are reported.
#include "sim_fixture.h"
#include "test_helpers.h"

#include <stdexcept>

namespace kv::sim::test
{
namespace
{

using testing::HasSubstr;

// A board file whose bus 1 holds `devices`.
std::string bus1(const std::string& devices)
{
    return R"({"buses": [{"bus": 1, "devices": [)" + devices + "]}]}";
}

// A board file with no devices and the FRU devices `entries`.
std::string fru_devices(const std::string& entries)
{
    return R"({"buses": [], "fru_devices": [)" + entries + "]}";
}

std::vector<uint8_t> first_bytes(int bus, int address, std::size_t count)
{
    const std::vector<uint8_t> memory = device_memory(bus, address);
    return {memory.begin(), memory.begin() + static_cast<long>(count)};
}

TEST(BoardFiles, MemoryComesFromHexListsFilesAndSingleBytes)
{
    kv::test::write_text("/tmp/boards/parts/fru.bin",
                         std::string("\x01\x02\x03", 3));
    load_board(write_board(R"({"buses": [{"bus": 4, "devices": [
        {"type": "eeprom", "address": "0x50", "size": 16,
         "contents": "de ad BE EF"},
        {"type": "eeprom", "address": 81, "size": "0x400", "address_bytes": 2,
         "file": "parts/fru.bin", "bytes": {"0x3ff": 7, "1": "0x20"}},
        {"type": "cpld", "address": "0x3f", "contents": [1, "0x02", 3]}]}]})",
                           "boards/board.json"));
    EXPECT_THAT(first_bytes(4, 0x50, 5),
                ElementsAre(0xde, 0xad, 0xbe, 0xef, 0xff));
    EXPECT_EQ(16u, device_memory(4, 0x50).size());
    EXPECT_THAT(first_bytes(4, 0x51, 4), ElementsAre(0x01, 0x20, 0x03, 0xff));
    EXPECT_EQ(7, device_memory(4, 0x51).at(0x3ff));
    EXPECT_THAT(first_bytes(4, 0x3f, 4), ElementsAre(1, 2, 3, 0));

    // A part larger than 256 bytes defaults to 2-byte addressing.
    BusHandle bus(4);
    ASSERT_EQ(0, bus.bind(0x51));
    ASSERT_TRUE(send(bus, {0x03, 0xff}));
    EXPECT_THAT(receive(bus, 1), ElementsAre(7));
}

TEST(BoardFiles, FruDevicesOfTheExampleBoard)
{
    const Board board = read_board(example_board);
    ASSERT_EQ(2u, board.fru_devices.size());
    const FruDevice& behind = board.fru_devices[0];
    EXPECT_TRUE(behind.id == 0 && behind.bus == 13 && behind.address == 0x51 &&
                behind.size == 512 && behind.method == 2 &&
                behind.offset_width == 2 && behind.behind_mux &&
                behind.mux_address == 0x70 && behind.mux_channel == 0);
    const FruDevice& direct = board.fru_devices[1];
    EXPECT_TRUE(direct.id == 1 && direct.bus == 3 && !direct.behind_mux &&
                direct.base == 0 && direct.state == 0);
}

struct Mistake
{
    std::string json;
    const char* message;
};

TEST(BoardFiles, MistakesAreReportedWithTheirPlace)
{
    const Mistake mistakes[] = {
        {R"({"buses": [{"bus": 1, "devise": []}]})",
         "buses[0]: unknown member \"devise\""},
        {bus1(R"({"type": "fpga", "address": 1})"),
         "buses[0].devices[0].type: unknown device type"},
        {bus1(R"({"type": "cpld", "address": 128})"),
         "devices[0].address: out of range"},
        {bus1(R"({"type": "eeprom", "address": 80, "size": 4,
                  "contents": "0102030405"})"),
         "contents: larger than the device"},
        {bus1(R"({"type": "eeprom", "address": 80, "size": 4,
                  "contents": "012"})"),
         "contents: expected pairs of hex digits"},
        {bus1(R"({"type": "cpld", "address": 80, "bytes": {"256": 1}})"),
         "bytes.256: not an offset of the device"},
        {bus1(R"({"type": "eeprom", "address": 80})"), "\"size\" is missing"},
        {R"({"buses": [{"bus": 1, "without": ["smbus_pec"]}]})",
         "without[0]: unknown function \"smbus_pec\""},
        {bus1(R"({"type": "eeprom", "address": 80, "size": 8,
                  "file": "missing.bin"})"),
         "cannot read"},
        {R"({"buses": [{"bus": 1)", "not valid JSON"},
        {fru_devices(R"({"id": 0, "bus": 3, "address": 80, "size": 256,
                         "method": "smbus"})"),
         "fru_devices[0].method: expected \"i2c\" or \"sysfs\""},
        {fru_devices(R"({"id": 0, "bus": 3, "address": 80, "size": 0,
                         "method": "i2c"})"),
         "fru_devices[0].size: out of range"},
        {fru_devices(R"({"id": 0, "bus": 3, "address": 80, "size": 8,
                         "method": "i2c", "mux": {"address": 112,
                                                  "channel": 8}})"),
         "mux.channel: out of range"},
        {fru_devices(R"({"id": 1, "bus": 3, "address": 80, "size": 8,
                         "method": "i2c"},
                        {"id": 1, "bus": 2, "address": 80, "size": 8,
                         "method": "i2c"})"),
         "fru_devices[1].id: used twice"},
    };
    for (const Mistake& mistake : mistakes)
    {
        const std::string path = write_board(mistake.json);
        try
        {
            read_board(path);
            ADD_FAILURE() << "accepted: " << mistake.json;
        }
        catch (const std::runtime_error& error)
        {
            EXPECT_THAT(error.what(), HasSubstr(mistake.message));
            EXPECT_THAT(error.what(), HasSubstr(path));
        }
    }
}

TEST(BoardFiles, InconsistentBoardsAreRefused)
{
    const Mistake mistakes[] = {
        {R"({"buses": [{"bus": 1}, {"bus": 1}]})", "declared twice"},
        {bus1(R"({"type": "cpld", "address": 63},
                 {"type": "eeprom", "address": 63, "size": 8})"),
         "address taken"},
        {bus1(R"({"type": "pca9546", "address": 112, "channels": [2, 3, 4]})"),
         "4 channels"},
        {bus1(R"({"type": "pca9546", "address": 112,
                  "channels": [2, 3, 4, 2]})"),
         "declared twice"},
        {bus1(R"({"type": "eeprom", "address": 80, "size": 512,
                  "address_bytes": 1})"),
         "does not fit its addressing"},
        {R"({"buses": [
            {"bus": 20, "devices": [{"type": "pca9546", "address": 112,
                                     "channels": [21, 22, 23, 24]}]},
            {"bus": 21, "devices": [{"type": "pca9546", "address": 113,
                                     "channels": [20, 25, 26, 27]}]}]})",
         "loop"},
    };
    for (const Mistake& mistake : mistakes)
    {
        const Board board = read_board(write_board(mistake.json));
        try
        {
            load_board(board);
            ADD_FAILURE() << "accepted: " << mistake.json;
        }
        catch (const std::invalid_argument& error)
        {
            EXPECT_THAT(error.what(), HasSubstr(mistake.message));
        }
    }
    // A device on a bus nobody declared.
    Board orphan;
    orphan.devices.push_back(
        {DeviceType::cpld, 9, 0x3f, std::vector<uint8_t>(256), 1, {}});
    EXPECT_THROW(load_board(orphan), std::invalid_argument);
}

} // namespace
} // namespace kv::sim::test

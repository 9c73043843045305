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

std::string bus1(const std::string& device)
{
    return R"({"buses": [{"bus": 1, "devices": [)" + device + "]}]}";
}

std::string fru(const std::string& rest)
{
    return R"({"buses": [], "fru_devices": [{"id": 0, "bus": 3, )"
           R"("address": 80, "size": 8, "method": )" +
           rest + "}]}";
}

std::vector<uint8_t> first4(const std::vector<uint8_t>& memory)
{
    return {memory.begin(), memory.begin() + 4};
}

TEST(BoardFiles, MemoryComesFromHexListsFilesAndSingleBytes)
{
    kv::test::write_text("/tmp/boards/parts/fru.bin", "\x01\x02\x03");
    load_board(write_board(R"({"buses": [{"bus": 4, "devices": [
        {"type": "eeprom", "address": "0x50", "size": 5, "contents": "de adBE ef"},
        {"type": "eeprom", "address": 81, "size": "0x400",
         "file": "parts/fru.bin", "bytes": {"0x3ff": 7, "1": "0x20"}},
        {"type": "cpld", "address": "0x3f", "contents": [1, "0x02", 3]}]}]})",
                           "boards/board.json"));
    EXPECT_THAT(device_memory(4, 0x50),
                ElementsAre(0xde, 0xad, 0xbe, 0xef, 0xff));
    EXPECT_THAT(first4(device_memory(4, 0x51)), ElementsAre(1, 0x20, 3, 0xff));
    EXPECT_EQ(7, device_memory(4, 0x51).at(0x3ff));
    EXPECT_THAT(first4(device_memory(4, 0x3f)), ElementsAre(1, 2, 3, 0));
    // A part larger than 256 bytes defaults to 2-byte addressing.
    BusHandle bus(4);
    ASSERT_EQ(0, bus.bind(0x51));
    ASSERT_TRUE(send(bus, {0x03, 0xff}));
    EXPECT_THAT(receive(bus, 1), ElementsAre(7));

    const FruDevice behind = read_board(example_board).fru_devices[0];
    EXPECT_TRUE(behind.offset_width == 2 && behind.behind_mux &&
                behind.mux_address == 0x70 && behind.method == 2);
}

// The message names the file and the place of the mistake in it.
TEST(BoardFiles, MistakesAreReportedWithTheirPlace)
{
    const std::pair<std::string, const char*> mistakes[] = {
        {R"({"buses": [{"bus": 1, "devise": []}]})", "buses[0]: unknown"},
        {bus1(R"({"type": "fpga", "address": 1})"), "devices[0].type: "},
        {bus1(R"({"address": 128, "type": "cpld"})"), "devices[0].address: "},
        {bus1(R"({"type": "eeprom", "address": 80, "size": 4,
                  "contents": "0102030405"})"),
         "contents: "},
        {bus1(R"({"type": "eeprom", "address": 80, "size": 4,
                  "contents": "012"})"),
         "contents: "},
        {bus1(R"({"type": "cpld", "address": 80, "bytes": {"256": 1}})"),
         "bytes.256: "},
        {bus1(R"({"type": "eeprom", "address": 80})"), "\"size\" is missing"},
        {R"({"buses": [{"bus": 1, "without": ["i2c", "smbus_pec"]}]})",
         "without[1]: "},
        {bus1(R"({"type": "eeprom", "address": 80, "size": 8,
                  "file": "missing.bin"})"),
         "devices[0].file: "},
        {R"({"buses": [{"bus": 1)", "not valid JSON"},
        {fru(R"("i2c", "mux": {"address": 112, "channel": 8})"),
         "mux.channel: "},
        {fru(R"("smbus")"), "fru_devices[0].method: "},
        {fru(R"("i2c"}, {"id": 0, "bus": 2, "address": 80, "size": 8,
                  "method": "i2c")"),
         "fru_devices[1].id: used twice"},
    };
    for (const auto& [json, place] : mistakes)
    {
        const std::string path = write_board(json);
        try
        {
            read_board(path);
            ADD_FAILURE() << "accepted: " << json;
        }
        catch (const std::runtime_error& error)
        {
            EXPECT_THAT(error.what(), HasSubstr(path + ": "));
            EXPECT_THAT(error.what(), HasSubstr(place)) << json;
        }
    }
}

TEST(BoardFiles, InconsistentBoardsAreRefused)
{
    const std::string mistakes[] = {
        R"({"buses": [{"bus": 1}, {"bus": 1}]})",
        bus1(R"({"type": "cpld", "address": 63},
                {"type": "eeprom", "address": 63, "size": 8})"),
        bus1(R"({"type": "pca9546", "address": 112, "channels": [2, 3, 4]})"),
        bus1(
            R"({"type": "pca9546", "address": 112, "channels": [2, 3, 4, 2]})"),
        bus1(R"({"type": "eeprom", "address": 80, "size": 512,
                 "address_bytes": 1})"),
        R"({"buses": [{"bus": 20, "devices": [{"type": "pca9546",
            "address": 112, "channels": [21, 22, 23, 24]}]},
            {"bus": 21, "devices": [{"type": "pca9546", "address": 113,
             "channels": [20, 25, 26, 27]}]}]})",
    };
    for (const std::string& json : mistakes)
    {
        const Board board = read_board(write_board(json));
        EXPECT_THROW(load_board(board), std::invalid_argument) << json;
    }
    Board orphan;
    orphan.devices.push_back(
        {DeviceType::cpld, 9, 0x3f, std::vector<uint8_t>(256), 1, {}});
    EXPECT_THROW(load_board(orphan), std::invalid_argument);
}

} // namespace
} // namespace kv::sim::test

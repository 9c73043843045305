// SPDX-License-Identifier: Apache-2.0
// Drive backplanes: the identity byte, the slot registers and the JSON
// objects the web and management daemons read.
#include "platform_test.h"

#include <cjson/cJSON.h>

#include <memory>

using namespace kv::platform::test;
using kv::test::names_in;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace
{

using Backplane = PlatformBoard;

const std::string two_slot_text = R"({"data":{
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

const std::string two_slot_first_line =
    "{\"data\":{\n\"Board Name\":\"2P BACK PLANE\",\n";

const std::string twelve_slot_text = R"({"data":{
"Board Name":"12P BACK PLANE",
"CPLD Channel":"7",
"CPLD Address":"63",
"Card Name":"BP-12SAS-3P5-F",
"PCB Version":"VA",
"SLOT1 Present":"PRESENT",
"SLOT2 Present":"UN-PRESENT",
"SLOT3 Present":"UN-PRESENT",
"SLOT4 Present":"UN-PRESENT",
"SLOT5 Present":"UN-PRESENT",
"SLOT6 Present":"UN-PRESENT",
"SLOT7 Present":"UN-PRESENT",
"SLOT8 Present":"UN-PRESENT",
"SLOT9 Present":"UN-PRESENT",
"SLOT10 Present":"PRESENT",
"SLOT11 Present":"UN-PRESENT",
"SLOT12 Present":"UN-PRESENT",
"SLOT1 Media Type":"SAS/SATA",
"SLOT10 Media Type":"NVME",
"SSD Number":"4",
"SSD Channel":[{"i2c":"5","ext":"4","slot":"slot1"},
{"i2c":"5","ext":"5","slot":"slot2"},
{"i2c":"5","ext":"6","slot":"slot3"},
{"i2c":"5","ext":"7","slot":"slot4"}],"CPLD Version":"V1"
}
})";

TEST_F(Backplane, TwoSlotBoardPublishesItsObject)
{
    EXPECT_EQ(KV_BACKPLANE_OK, f2p_backpalne_detect(0, 0, 5, 0x3f, 0));
    EXPECT_EQ(two_slot_text, published("2p0.json"));
    // Identity, presence, media and version, one byte each.
    EXPECT_THAT(wire_log(),
                ElementsAre(sent(5, 0x3f, {0}), received(5, 0x3f, {0x1f}, true),
                            sent(5, 0x3f, {25}),
                            received(5, 0x3f, {0xfe}, true), sent(5, 0x3f, {9}),
                            received(5, 0x3f, {0x00}, true), sent(5, 0x3f, {8}),
                            received(5, 0x3f, {0x03}, true)));
    EXPECT_THAT(error_lines(), IsEmpty());

    // Nothing is truncated: a second run appends a second object.
    EXPECT_EQ(KV_BACKPLANE_OK, f2p_backpalne_detect(0, 0, 5, 0x3f, 0));
    EXPECT_EQ(two_slot_text + two_slot_text, published("2p0.json"));
}

TEST_F(Backplane, IdentityByteNeedsOddParityAndTheKindsBoardId)
{
    // Revision in bits 5-6, each byte with an odd number of ones.
    const std::pair<uint8_t, std::string> revisions[] = {
        {0x1f, "VA"}, {0xbf, "VB"}, {0xdf, "VC"}, {0x7f, "VD"}};
    for (const auto& [identity, version] : revisions)
    {
        std::filesystem::remove(result_dir + "2p0.json");
        set_device_memory(5, 0x3f, 0, {identity});
        EXPECT_EQ(KV_BACKPLANE_OK, f2p_backpalne_detect(0, 0, 5, 0x3f, 0));
        EXPECT_THAT(published("2p0.json").value_or(""),
                    HasSubstr("\"PCB Version\":\"" + version + "\",\n"));
    }

    std::filesystem::remove(result_dir + "2p0.json");
    set_device_memory(5, 0x3f, 0, {0x9f}); // six ones
    EXPECT_EQ(KV_BACKPLANE_EVEN_PARITY, f2p_backpalne_detect(0, 0, 5, 0x3f, 0));
    set_device_memory(5, 0x3f, 0, {0x1f});
    EXPECT_EQ(KV_BACKPLANE_OTHER_BOARD, f8p_backpalne_detect(0, 0, 5, 0x3f, 0));
    // The 3.5-inch kind takes whatever id it is told to expect.
    EXPECT_EQ(KV_BACKPLANE_OTHER_BOARD,
              f2p_backpalne_3p5_detect(0, 28, 5, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_OK, f2p_backpalne_3p5_detect(1, 31, 5, 0x3f, 0));
    EXPECT_THAT(names_in(result_dir), ElementsAre("3p5_2p1.json"));
    EXPECT_THAT(error_lines(), IsEmpty());
}

TEST_F(Backplane, BusOrIdentityFailuresPublishNothing)
{
    EXPECT_EQ(KV_BACKPLANE_NO_BUS, f2p_backpalne_detect(0, 0, 4, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_READ_FAILED, f8p_backpalne_detect(0, 0, 6, 0x3e, 2));
    EXPECT_THAT(names_in(result_dir), IsEmpty());
    const auto lines = error_lines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_THAT(lines[0], AllOf(HasSubstr("-i2c rw data failed bus=6, "
                                          "address=62 offset=2. "
                                          "back-plane-mgt:"),
                                EndsWith(" f8p_backpalne_detect ")));
}

TEST_F(Backplane, ReadFailureAfterTheFirstLineLeavesOnlyTheBoardName)
{
    // Transfers 3, 5 and 7 write the presence, media and version registers.
    const std::pair<unsigned, unsigned> failures[] = {{3, 25}, {5, 9}, {7, 8}};
    for (const auto& [transfer, reg] : failures)
    {
        std::filesystem::remove(result_dir + "2p0.json");
        write_text(error_log, "");
        fail_transfer(transfer, EIO);
        EXPECT_EQ(KV_BACKPLANE_READ_FAILED,
                  f2p_backpalne_detect(0, 0, 5, 0x3f, 0));
        EXPECT_EQ(two_slot_first_line, published("2p0.json"));
        const auto lines = error_lines();
        ASSERT_EQ(1u, lines.size());
        EXPECT_THAT(lines[0],
                    AllOf(HasSubstr("-i2c rw data failed bus=5, address=63 "
                                    "offset=" +
                                    std::to_string(reg) + ". back-plane-mgt:"),
                          EndsWith(" f2p_backpalne_detect ")));
    }
}

TEST_F(Backplane, DriveChannelsOnlyWithTheFirstBackplane)
{
    EXPECT_EQ(KV_BACKPLANE_OK, f2p_backpalne_detect(1, 0, 5, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_OK, f8p_backpalne_detect(1, 0, 6, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_OK, f12p_backpalne_detect(1, 8, 7, 0x3f, 0));
    const std::pair<std::string, std::string> files[] = {
        {"2p1.json", "V3"}, {"8p1.json", "V2"}, {"12p1.json", "V1"}};
    for (const auto& [name, version] : files)
    {
        EXPECT_THAT(
            published(name).value_or(""),
            AllOf(HasSubstr("\"SLOT1 Media Type\""), Not(HasSubstr("SSD")),
                  EndsWith(",\n\"CPLD Version\":\"" + version + "\"\n}\n}")))
            << name;
    }
}

TEST_F(Backplane, TwelveSlotBoardEnablesItsChannelsBeforePublishing)
{
    EXPECT_EQ(KV_BACKPLANE_OK, f12p_backpalne_detect(0, 8, 7, 0x3f, 0));
    EXPECT_EQ(twelve_slot_text, published("12p0.json"));
    // Board 8: register 45 through channel 4 (bus 19), then channel 3 (bus
    // 18), after the identity read and before the slot registers.
    const auto log = wire_log();
    ASSERT_EQ(10u, log.size());
    EXPECT_EQ(received(7, 0x3f, {0x08}, true), log[1]);
    EXPECT_EQ(sent(19, 0x3f, {45, 1}), log[2]);
    EXPECT_EQ(sent(18, 0x3f, {45, 1}), log[3]);
    EXPECT_EQ(sent(7, 0x3f, {25}), log[4]);
    EXPECT_EQ(received(7, 0x3f, {0xfe, 0x0d}, true), log[5]);
    EXPECT_EQ(received(7, 0x3f, {0x00, 0x02}, true), log[7]);

    // The writes come before the file is touched: they happen even when it
    // cannot be written.
    std::filesystem::remove_all(result_dir);
    clear_wire_log();
    EXPECT_EQ(KV_BACKPLANE_FILE_FAILED,
              f12p_backpalne_detect(0, 8, 7, 0x3f, 0));
    EXPECT_THAT(writes_of({45, 1}),
                ElementsAre(sent(19, 0x3f, {45, 1}), sent(18, 0x3f, {45, 1})));
    EXPECT_EQ(4u, wire_log().size()); // no slot register read
}

TEST_F(Backplane, TwelveSlotBoardsElevenAndTwentyFourUseChannelTwo)
{
    // 0x0b: board 11; 0x98: board 24.
    for (const uint8_t identity : {uint8_t{0x0b}, uint8_t{0x98}})
    {
        std::filesystem::remove(result_dir + "12p0.json");
        clear_wire_log();
        set_device_memory(7, 0x3f, 0, {identity});
        EXPECT_EQ(KV_BACKPLANE_OK,
                  f12p_backpalne_detect(0, identity & 0x1f, 7, 0x3f, 0));
        EXPECT_THAT(writes_of({45, 1}), ElementsAre(sent(17, 0x3f, {45, 1})));
        EXPECT_THAT(published("12p0.json").value_or(""),
                    AllOf(HasSubstr("\"SLOT10 Media Type\":\"NVME\",\n"),
                          Not(HasSubstr("SSD"))));
    }

    // Only the expected board, and only one of the three, is taken.
    clear_wire_log();
    EXPECT_EQ(KV_BACKPLANE_OTHER_BOARD,
              f12p_backpalne_detect(0, 8, 7, 0x3f, 0));
    set_device_memory(7, 0x3f, 0, {0x89}); // board 9
    EXPECT_EQ(KV_BACKPLANE_OTHER_BOARD,
              f12p_backpalne_detect(0, 9, 7, 0x3f, 0));
    EXPECT_THAT(writes_of({45, 1}), IsEmpty());
}

TEST_F(Backplane, ChannelThatDoesNotAnswerIsPassedOver)
{
    fail_address(18, 0x3f, ENXIO);
    EXPECT_EQ(KV_BACKPLANE_OK, f12p_backpalne_detect(0, 8, 7, 0x3f, 0));
    EXPECT_EQ(twelve_slot_text, published("12p0.json"));
    EXPECT_EQ(1, device_memory(19, 0x3f)[45]);
    const auto lines = error_lines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_THAT(lines[0], EndsWith(" write_cpld_reg "));
}

using JsonPtr = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

std::string member(const cJSON* object, const std::string& name)
{
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(object, name.c_str());
    return cJSON_IsString(item) ? item->valuestring : "<missing>";
}

struct Expected
{
    std::string file;
    std::string board_name;
    std::string channel;
    std::string address;
    std::string card_name;
    std::string pcb;
    int slots;
    std::vector<int> present;
    std::vector<int> nvme;
    std::string version;
    std::vector<std::string> drives; // "i2c/ext/slot" of each entry
};

// What the daemons read from each file: "data" and its members.
void expect_object(const Expected& want)
{
    SCOPED_TRACE(want.file);
    const auto text = published(want.file);
    ASSERT_TRUE(text);
    JsonPtr root(cJSON_Parse(text->c_str()), cJSON_Delete);
    ASSERT_TRUE(root);
    const cJSON* data = cJSON_GetObjectItemCaseSensitive(root.get(), "data");
    ASSERT_TRUE(cJSON_IsObject(data));
    EXPECT_EQ(want.board_name, member(data, "Board Name"));
    EXPECT_EQ(want.channel, member(data, "CPLD Channel"));
    EXPECT_EQ(want.address, member(data, "CPLD Address"));
    EXPECT_EQ(want.card_name, member(data, "Card Name"));
    EXPECT_EQ(want.pcb, member(data, "PCB Version"));
    EXPECT_EQ(want.version, member(data, "CPLD Version"));
    for (int slot = 1; slot <= want.slots; ++slot)
    {
        const std::string name = "SLOT" + std::to_string(slot);
        const bool present =
            std::count(want.present.begin(), want.present.end(), slot) != 0;
        const bool nvme =
            std::count(want.nvme.begin(), want.nvme.end(), slot) != 0;
        EXPECT_EQ(present ? "PRESENT" : "UN-PRESENT",
                  member(data, name + " Present"));
        EXPECT_EQ(present ? (nvme ? "NVME" : "SAS/SATA") : "<missing>",
                  member(data, name + " Media Type"));
    }
    EXPECT_EQ(
        nullptr,
        cJSON_GetObjectItemCaseSensitive(
            data,
            ("SLOT" + std::to_string(want.slots + 1) + " Present").c_str()));
    const cJSON* drives = cJSON_GetObjectItemCaseSensitive(data, "SSD Channel");
    if (want.drives.empty())
    {
        EXPECT_EQ(nullptr, drives);
        EXPECT_EQ("<missing>", member(data, "SSD Number"));
        return;
    }
    EXPECT_EQ(std::to_string(want.drives.size()), member(data, "SSD Number"));
    std::vector<std::string> got;
    const cJSON* drive = nullptr;
    cJSON_ArrayForEach(drive, drives)
    {
        got.push_back(member(drive, "i2c") + "/" + member(drive, "ext") + "/" +
                      member(drive, "slot"));
    }
    EXPECT_EQ(want.drives, got);
}

TEST_F(Backplane, EveryKindPublishesTheMembersTheDaemonsRead)
{
    EXPECT_EQ(KV_BACKPLANE_OK, f2p_backpalne_detect(0, 0, 5, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_OK, f8p_backpalne_detect(0, 0, 6, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_OK, f12p_backpalne_detect(0, 8, 7, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_OK, f25p_backpalne_detect(0, 0, 8, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_OK, f2p_backpalne_3p5_detect(0, 28, 9, 0x3f, 0));
    // A later 25-slot board carries id 25.
    set_device_memory(8, 0x3f, 0, {0x19});
    EXPECT_EQ(KV_BACKPLANE_OTHER_BOARD,
              f25p_backpalne_detect(0, 0, 8, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_OK, f25p_backpalne_detect(3, 0, 8, 0x3f, 0));

    expect_object({"2p0.json",
                   "2P BACK PLANE",
                   "5",
                   "3f",
                   "BP-2SFF-R",
                   "VA",
                   2,
                   {1},
                   {},
                   "V3",
                   {"10/0/slot1", "12/0/slot2"}});
    expect_object({"8p0.json",
                   "8P BACK PLANE",
                   "6",
                   "63",
                   "BP-8NVME-2P5-F",
                   "VA",
                   8,
                   {1, 2, 3, 4},
                   {1, 2},
                   "V2",
                   {"5/4/slot1", "5/5/slot2", "5/6/slot3", "5/7/slot4",
                    "6/4/slot5", "6/5/slot6", "6/6/slot7", "6/7/slot8"}});
    expect_object({"12p0.json",
                   "12P BACK PLANE",
                   "7",
                   "63",
                   "BP-12SAS-3P5-F",
                   "VA",
                   12,
                   {1, 10},
                   {10},
                   "V1",
                   {"5/4/slot1", "5/5/slot2", "5/6/slot3", "5/7/slot4"}});
    expect_object({"25p0.json",
                   "25P BACK PLANE",
                   "8",
                   "63",
                   "BP-25SAS-2P5-F",
                   "VA",
                   25,
                   {9, 25},
                   {25},
                   "V4",
                   {}});
    expect_object({"25p3.json",
                   "25P BACK PLANE",
                   "8",
                   "63",
                   "BP-25SAS-2P5-EXP",
                   "VA",
                   25,
                   {9, 25},
                   {25},
                   "V4",
                   {}});
    expect_object({"3p5_2p0.json",
                   "2P BACK PLANE",
                   "9",
                   "3f",
                   "BP-2SAS-3P5-R",
                   "VC",
                   2,
                   {1, 2},
                   {2},
                   "V7",
                   {}});
    // The 25-slot blocks are 4 bytes long.
    std::vector<Bytes> blocks;
    for (const Transfer& t : wire_log())
    {
        if (t.bus == 8 && t.read && t.length == 4)
        {
            blocks.push_back(t.bytes);
        }
    }
    const Bytes presence{0xff, 0xfe, 0xff, 0xfe};
    const Bytes media{0x00, 0x00, 0x00, 0x01};
    EXPECT_THAT(blocks, ElementsAre(presence, media, presence, media));
}

TEST_F(Backplane, PresenceOnlyBoardsAndTheBoardSequence)
{
    EXPECT_EQ(KV_BACKPLANE_OK,
              backplane_board_handler("riser0", 31, 5, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_OK,
              backplane_board_handler("riser0", 31, 5, 0x3f, 0));
    EXPECT_EQ("{\"present\":\"1\"}{\"present\":\"1\"}",
              published("riser0.json"));
    EXPECT_EQ(KV_BACKPLANE_OTHER_BOARD,
              backplane_board_handler("other", 30, 5, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_FILE_FAILED,
              backplane_board_handler("no/such/dir", 31, 5, 0x3f, 0));
    EXPECT_EQ(KV_BACKPLANE_FILE_FAILED,
              backplane_board_handler(nullptr, 31, 5, 0x3f, 0));
    EXPECT_THAT(names_in(result_dir), ElementsAre("riser0.json"));

    // M.2 cards, IO-expander cards, then the 10-slot board on bus 1.
    int result = -1;
    const std::string printed =
        kv::test::stdout_of([&] { result = backplane_board_detect(); });
    EXPECT_EQ(KV_BACKPLANE_OK, result);
    EXPECT_THAT(printed, HasSubstr("iox_present_detect:io2 don't present \n"));
    EXPECT_EQ("{\"present\":\"1\"}", published("10p0.json"));
    EXPECT_TRUE(read_text("/run/backplane/mp2_bus_config"));
    const auto log = wire_log();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(received(1, 0x3f, {0x0e}, true), log.back());
    EXPECT_THAT(writes_of({4}), ElementsAre(sent(11, 0x3f, {4})));

    set_device_memory(1, 0x3f, 0, {0x0f}); // board 15
    kv::test::stdout_of([&] { result = backplane_board_detect(); });
    EXPECT_EQ(KV_BACKPLANE_EVEN_PARITY, result);
}

} // namespace

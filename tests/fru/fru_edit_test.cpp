// SPDX-License-Identifier: Apache-2.0
// Changing FRU fields on a device, rewriting a device from fru.ini, and the
// fru tool's small helpers.
#include "fru_sim_test.h"

#include <fstream>

using namespace kv::fru::test;
namespace
{

using kv::test::stdout_of;
using testing::HasSubstr;
using testing::StartsWith;

TEST(FruFieldIds, SectionAndKeyArePrefixesIgnoringCaseFirstMatchWins)
{
    EXPECT_EQ(6, fru_get_param_id("boardinfoarea", "serialnum"));
    EXPECT_EQ(22, fru_get_param_id("ProductInfoArea", "CustomDataString4"));
    EXPECT_EQ(9, fru_get_param_id("BoardInfoArea", "CustomDataString3"));
    EXPECT_EQ(0, fru_get_param_id("ChassisInfoArea", "Type"));
    EXPECT_EQ(20, fru_get_param_id("ProductInfoAreaX", "AssetTagged"));
    EXPECT_EQ(-14, fru_get_param_id("Board", "SerialNum"));
    EXPECT_EQ(-14, fru_get_param_id("ChassisInfoArea", "Manufacturer"));
    EXPECT_EQ(-14, fru_get_param_id(nullptr, "Type"));
}

TEST(FruFieldIds, ModifySectionSetsOneField)
{
    fru_init();
    EXPECT_EQ(0, modify_section("258", 0));
    EXPECT_EQ(2, fru.chassis.type);
    EXPECT_EQ(0, modify_section("SN-9", 6));
    EXPECT_EQ(0xC4, fru.board.field[KV_FRU_BOARD_SERIAL_NUMBER].type_len);
    EXPECT_EQ(0,
              std::memcmp("SN-9",
                          fru.board.field[KV_FRU_BOARD_SERIAL_NUMBER].data, 4));
    EXPECT_EQ(0, modify_section("X", 26));
    EXPECT_EQ(0xC1, fru.product.custom.type_len[4]);

    // The board time, unknown ids and a null value change nothing.
    const kv_fru_record before = fru;
    for (int id : {3, 27, -1})
    {
        EXPECT_EQ(0, modify_section("2020/01/01 00:00", id));
    }
    EXPECT_EQ(0, modify_section(nullptr, 6));
    EXPECT_EQ(0, std::memcmp(&before, &fru, sizeof fru));
}

// A device 0 (behind the multiplexer) holding the image built from the
// default fru.ini.
class FruEdit : public FruBoard
{
  protected:
    void SetUp() override
    {
        FruBoard::SetUp();
        install(0, behind_mux());
        ASSERT_EQ(0,
                  config_default_ini(default_ini, KV_FRU_INI_LINES, "fru.ini"));
        stdout_of([] { EXPECT_EQ(0, create_fru_bin()); });
        image = Bytes(bmc_fru_date, bmc_fru_date + bmc_fru_len);
        set_device_memory(16, 0x51, 0, image);
        clear_wire_log();
        clear_sleeps();
    }

    Bytes on_device(std::size_t length) const
    {
        const Bytes memory = device_memory(16, 0x51);
        return Bytes(memory.begin(), memory.begin() + length);
    }

    Bytes image;
};

TEST_F(FruEdit, ChangesOneFieldThroughTheChannelLock)
{
    EXPECT_EQ(0, fru_modify_key(0, "BoardInfoArea", "SerialNum", "SN123"));
    EXPECT_EQ(0, mux_lock());
    const auto log = wire_log();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(sent(13, 0x70, {0, 1}), log.front());

    // The device now parses to the old record with the new serial number.
    const kv_fru_record old_record = [&] {
        parse_bin_date(image.data(), static_cast<int>(image.size()));
        return fru;
    }();
    const Bytes changed = on_device(image.size() + 2);
    ASSERT_EQ(0, parse_bin_date(changed.data(), int(changed.size())));
    kv_fru_field& serial = fru.board.field[KV_FRU_BOARD_SERIAL_NUMBER];
    EXPECT_EQ(0xC5, serial.type_len);
    EXPECT_EQ(0, std::memcmp("SN123", serial.data, 5));
    serial = old_record.board.field[KV_FRU_BOARD_SERIAL_NUMBER];
    EXPECT_EQ(
        0, std::memcmp(&old_record.chassis, &fru.chassis, sizeof fru.chassis));
    EXPECT_EQ(
        0, std::memcmp(&old_record.product, &fru.product, sizeof fru.product));
    EXPECT_EQ(0, std::memcmp(old_record.board.field, fru.board.field,
                             sizeof fru.board.field));
}

TEST_F(FruEdit, RefusedEditsLeaveTheDeviceAlone)
{
    EXPECT_EQ(-10, fru_modify_key(0, "BoardInfoArea", "SerialNum", nullptr));
    EXPECT_THAT(wire_log(), IsEmpty());

    EXPECT_EQ(" input error.\n", stdout_of([] {
                  EXPECT_EQ(
                      -14, fru_modify_key(0, "BoardInfoArea", "Colour", "red"));
              }));
    EXPECT_EQ(0u, write_cycles(16, 0x51));

    set_device_memory(16, 0x51, 0, Bytes(8, 0xFF)); // a blank header
    EXPECT_EQ(" get fru .bin error:9.\n", stdout_of([] {
                  EXPECT_EQ(13, fru_modify_key(0, "BoardInfoArea", "SerialNum",
                                               "SN1"));
              }));
    EXPECT_EQ(0u, write_cycles(16, 0x51));
}

TEST_F(FruEdit, BoardTimeEditRewritesTheSameImage)
{
    EXPECT_EQ(0, fru_modify_key(0, "BoardInfoArea", "time", "2020/01/01 0:0"));
    EXPECT_EQ(image, on_device(image.size()));
    EXPECT_GT(write_cycles(16, 0x51), 0u);
}

TEST_F(FruEdit, WholeDeviceFromTheIni)
{
    set_device_memory(16, 0x51, 0, Bytes(image.size(), 0));
    deviceid = 0;
    stdout_of([] { EXPECT_EQ(0, write_fru_ini()); });
    EXPECT_EQ(image, on_device(image.size()));

    std::remove("fru.ini");
    stdout_of([] { EXPECT_EQ(-9, write_fru_ini()); });
}

TEST(FruToolHelpers, UsageText)
{
    const std::string text = stdout_of(help);
    EXPECT_THAT(text,
                StartsWith(" fru V3.1 Version(2021-07-08)\n fru help:\n"));
    EXPECT_THAT(text, HasSubstr("\n  IP user passwd FruID -w   fru.ini\twrite "
                                "fru.ini config file to fru flash\n"));
    EXPECT_EQ(19, std::count(text.begin(), text.end(), '\n'));
}

TEST(FruToolHelpers, BackupAndFileWrites)
{
    const uint8_t bytes[] = {'f', 'r', 'u', '\n'};
    EXPECT_EQ(0, backup_fru_bin(bytes, 4));
    EXPECT_EQ("fru\n", read_text("fru.bat"));

    write_text("out.bin", "old content");
    EXPECT_EQ(0, WriteFile("out.bin", bytes, 2, 3));
    EXPECT_EQ(std::string("\0\0fru", 5), read_text("out.bin"));

    EXPECT_EQ("WriteFile: open /no/such/dir/x file fail\n", stdout_of([&] {
                  EXPECT_EQ(1, WriteFile("/no/such/dir/x", bytes, 0, 4));
              }));
}

TEST(FruToolHelpers, CommandRetriesCountTwentyRuns)
{
    // Each run leaves a line; the command succeeds from run `n` on.
    auto succeeding_from = [](int n) {
        std::remove("runs");
        return "echo >> runs; [ $(wc -l < runs) -ge " + std::to_string(n) +
               " ]";
    };
    auto runs = [] {
        const std::string text = read_text("runs").value_or("");
        return std::count(text.begin(), text.end(), '\n');
    };
    EXPECT_EQ(0, write_fru_cmd(succeeding_from(3).c_str()));
    EXPECT_EQ(3, runs());
    EXPECT_EQ(0, write_fru_cmd(succeeding_from(20).c_str()));
    EXPECT_EQ(-1, write_fru_cmd(succeeding_from(21).c_str()));
    EXPECT_EQ(21, runs());
    EXPECT_EQ(-1, write_fru_cmd(succeeding_from(99).c_str()));
    EXPECT_EQ(21, runs());
}

TEST(FruToolHelpers, CurrentPathIsTheProgramsDirectory)
{
    char path[513] = {};
    EXPECT_EQ(0, GetCurrentPath(path, "fru.ini"));
    std::ifstream cmdline("/proc/self/cmdline");
    std::string program;
    std::getline(cmdline, program, '\0');
    EXPECT_EQ(program.substr(0, program.rfind('/') + 1) + "fru.ini", path);
}

} // namespace

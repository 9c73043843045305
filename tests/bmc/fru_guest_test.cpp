// SPDX-License-Identifier: Apache-2.0
// FRU devices by raw I2C and through the at24 driver's eeprom file, on a bus
// and behind the PCA9546, and the fru tool writing them; each written part
// is read back by another path than the one that wrote it.
#include "foundation/resources.h"
#include "guest.h"

#include <libkv/hw.h>

#include <fcntl.h>

#include <algorithm>
#include <filesystem>

namespace
{

using namespace kv::bmc;
using kv::detail::UniqueFd;
using kv::test::read_text;
using kv::test::run_shell;

constexpr unsigned kFruBytes = 512;

// The platform daemon's table: ids 0-3 as below.
class FruDevices : public testing::Test
{
  protected:
    const kv_fru_device raw_direct =
        fru_device(KV_FRU_ACCESS_I2C, kPlainBus, kBareEeprom, kFruBytes, 0x200);
    const kv_fru_device driver_direct =
        fru_device(KV_FRU_ACCESS_SYSFS, kPlainBus, kDriverEeprom, kFruBytes, 0);
    const kv_fru_device driver_behind_mux = fru_device(
        KV_FRU_ACCESS_SYSFS, kMuxBus, kChannel0Eeprom, kFruBytes, 0, 0);
    const kv_fru_device raw_behind_mux = fru_device(
        KV_FRU_ACCESS_I2C, kMuxBus, kChannel1Eeprom, kFruBytes, 0x100, 1);

    // A raw write to a device not behind a multiplexer closes descriptor 0
    // (the library's settled behaviour); later tests run programs.
    void TearDown() override
    {
        if (::fcntl(0, F_GETFD) == -1)
        {
            ::open("/dev/null", O_RDONLY);
        }
    }

    void SetUp() override
    {
        int id = 0;
        for (const kv_fru_device* device :
             {&raw_direct, &driver_direct, &driver_behind_mux, &raw_behind_mux})
        {
            publish_fru_device(id++, *device);
        }
    }
};

// `count` bytes at `offset` of a part, read over I2C from `bus` (a channel's
// own bus reaches a part behind the multiplexer: the kernel selects it), in
// transfers the library accepts.
std::vector<uint8_t> read_raw(int bus, uint8_t address, unsigned offset,
                              size_t count)
{
    constexpr size_t kMostPerRead = 253;
    UniqueFd fd(i2c_open(bus));
    std::vector<uint8_t> bytes(count);
    for (size_t done = 0; done < count; done += kMostPerRead)
    {
        const int part = static_cast<int>(std::min(kMostPerRead, count - done));
        EXPECT_EQ(2, i2c_read_data(fd.get(), address, offset + done, 2,
                                   bytes.data() + done, part));
    }
    return bytes;
}

// Writes through the library, reads back through it and through `witness`.
template <typename Witness>
void round_trip(const kv_fru_device& device, int success, uint8_t seed,
                Witness witness)
{
    const std::vector<uint8_t> ours = pattern(24, seed);
    ASSERT_EQ(0, write_fru_data(&device, 0x30, 24, ours.data()));
    std::vector<uint8_t> back(24);
    EXPECT_EQ(success, read_fru_data(&device, 0x30, 24, back.data()));
    EXPECT_EQ(ours, back);
    EXPECT_EQ(ours, witness(0x30));
}

TEST_F(FruDevices, DirectOnTheBusByRawI2cAndByTheDriverFile)
{
    round_trip(raw_direct, 2, 0x21, [](unsigned offset) {
        return read_raw(kPlainBus, kBareEeprom, 0x200 + offset, 24);
    });

    EXPECT_TRUE(std::filesystem::exists(
        "/sys/class/i2c-dev/i2c-3/device/3-0051/eeprom"));
    round_trip(driver_direct, 0, 0x32, [](unsigned offset) {
        return read_raw(kPlainBus, kDriverEeprom, offset, 24);
    });
}

TEST_F(FruDevices, BehindTheMultiplexerByTheDriverFile)
{
    const int channel0 = kernel_channel_bus(0);
    ASSERT_GT(channel0, 0);

    const std::string file = "/sys/class/i2c-dev/i2c-4/device/i2c-" +
                             std::to_string(channel0) + "/" +
                             client_name(channel0, kChannel0Eeprom) + "/eeprom";
    EXPECT_TRUE(std::filesystem::exists(file)) << file;
    round_trip(driver_behind_mux, 0, 0x54, [channel0](unsigned offset) {
        return read_driver_eeprom(client_name(channel0, kChannel0Eeprom),
                                  offset, 24);
    });
}

TEST_F(FruDevices, BehindTheMultiplexerByRawI2c)
{
    if (!mux_takes_two_byte_selection())
    {
        GTEST_SKIP()
            << "the emulated PCA9546 drops two-byte channel selections";
    }
    const int channel1 = kernel_channel_bus(1);
    round_trip(raw_behind_mux, 2, 0x43, [channel1](unsigned offset) {
        return read_raw(channel1, kChannel1Eeprom, 0x100 + offset, 24);
    });
}

// fru -c, -b, then -w fru.ini to device `id` and -w of one field; the part
// read back by `witness` holds the image, then the edited field.
template <typename Witness>
void write_with_the_tool(int id, Witness witness)
{
    const std::string dir = "/tmp/fru" + std::to_string(id);
    const std::string at = " 127.0.0.1 root secret " + std::to_string(id);
    auto outcome = run_shell("mkdir -p " + dir + " && cd " + dir +
                             " && fru -c && fru -b >/dev/null && fru" + at +
                             " -w fru.ini 2>&1");
    ASSERT_EQ(0, outcome.status) << outcome.output;
    const std::string image = read_text(dir + "/default-fru.bin").value_or("");
    ASSERT_GT(image.size(), 8u);
    std::vector<uint8_t> device = witness(image.size());
    EXPECT_TRUE(std::equal(image.begin(), image.end(), device.begin()))
        << "device " << id;

    outcome = run_shell("cd " + dir + " && fru" + at +
                        " -w BoardInfoArea SerialNum SN-BMC-4711 2>&1");
    ASSERT_EQ(0, outcome.status) << outcome.output;
    device = witness(kFruBytes);
    const std::string text(device.begin(), device.end());
    EXPECT_NE(std::string::npos, text.find("SN-BMC-4711")) << "device " << id;
    EXPECT_NE(std::string::npos, text.find("VeldMarke")) << "device " << id;
}

TEST_F(FruDevices, ToolWritesWholeImagesAndSingleFields)
{
    write_with_the_tool(0, [](size_t count) {
        return read_raw(kPlainBus, kBareEeprom, 0x200, count);
    });
    write_with_the_tool(1, [](size_t count) {
        return read_raw(kPlainBus, kDriverEeprom, 0, count);
    });
}

} // namespace

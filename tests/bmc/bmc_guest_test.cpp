// SPDX-License-Identifier: Apache-2.0
// The library against the BMC's own drivers on the emulated AST2600 (the
// devices: init.sh): raw transfers, probes, multiplexer channels and FRU
// devices on the aspeed I2C adapters with at24, pca954x and the fru tool,
// where what one path writes another reads back; the bonding driver's
// status file, the ftgmac100 NICs' flags and aspeed GPIO lines.
#include "foundation/resources.h"
#include "ipc/platform_segment.h"
#include "test_helpers.h"

#include <libkv/fru.h>
#include <libkv/hw.h>
#include <libkv/ipc.h>
#include <libkv/services.h>

#include <fcntl.h>
#include <net/if.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace
{

using kv::detail::UniqueFd;
using namespace kv::test;
namespace fs = std::filesystem;

// Bus 3: 0x50 without a driver, 0x51 bound to at24, nothing at 0x53. Bus 4:
// the PCA9546 at 0x70; 0x50 (at24) on channel 0, 0x52 (no driver) on 1.
// All are 24C256s: 32 KiB behind a 2-byte address.

// Bytes of at24's file for the part `device` ("3-0051").
std::string at24(const std::string& device, unsigned offset, size_t count)
{
    return read_text("/sys/bus/i2c/devices/" + device + "/eeprom")
        ->substr(offset, count);
}

// Raw reads of at most 253 bytes each, the most the library takes.
std::string read_raw(int bus, uint8_t address, unsigned offset, size_t count)
{
    UniqueFd fd(i2c_open(bus));
    std::string bytes(count, 0);
    for (size_t done = 0; done < count; done += 253)
    {
        const int part = int(std::min<size_t>(253, count - done));
        EXPECT_EQ(2, i2c_read_data(fd.get(), address, offset + done, 2,
                                   bytes.data() + done, part));
    }
    return bytes;
}

// Bytes that differ from each other and from a blank part.
std::string pattern(size_t count, int seed)
{
    std::string bytes(count, 0);
    for (size_t i = 0; i < count; ++i)
        bytes[i] = char((seed + 7 * i) & 0x7F);
    return bytes;
}

// The adapter number the kernel gave to channel `channel` of the PCA9546.
int channel_bus(int channel)
{
    const auto link = fs::read_symlink("/sys/bus/i2c/devices/4-0070/channel-" +
                                       std::to_string(channel));
    return std::stoi(link.filename().string().substr(4)); // "i2c-N"
}

TEST(I2cAdapter, TransfersProbesAndMuxChannels)
{
    UniqueFd bus(i2c_open(3));
    // at24 is the witness: the driver addresses cells its own way, so a
    // swapped or short offset shows as other bytes.
    const std::string ours = pattern(16, 0x11);
    ASSERT_EQ(1, i2c_write_data(bus.get(), 0x51, 0x1234, 2, ours.data(), 16));
    EXPECT_EQ(ours, at24("3-0051", 0x1234, 16));
    const std::string theirs = pattern(32, 0x40);
    std::ofstream("/sys/bus/i2c/devices/3-0051/eeprom", std::ios::in)
        .seekp(0x3412)
        .write(theirs.data(), 32);
    EXPECT_EQ(theirs, read_raw(3, 0x51, 0x3412, 32));
    // The longest transfer.
    const std::string full = pattern(253, 0x05);
    ASSERT_EQ(1, i2c_write_data(bus.get(), 0x50, 0x100, 2, full.data(), 253));
    EXPECT_EQ(full, read_raw(3, 0x50, 0x100, 253));

    // The aspeed adapter's NAK.
    char read[4];
    EXPECT_TRUE(i2c_read_data(bus.get(), 0x53, 0, 2, read, 4) < 0 &&
                errno == ENXIO);
    errno = 0;
    EXPECT_TRUE(i2c_write_data(bus.get(), 0x53, 0, 2, read, 4) < 0 &&
                errno == ENXIO);

    EXPECT_EQ(1, check_slave_active(bus.get(), 0x50));
    EXPECT_EQ(0, check_slave_active(bus.get(), 0x53));
    // The probe binds with I2C_SLAVE, which the kernel refuses (EBUSY) for
    // an address a driver holds.
    EXPECT_EQ(0, check_slave_active(bus.get(), 0x51));

    // The channels' buses come from the kernel log, captured on first use.
    for (int channel = 0; channel < 4; ++channel)
        EXPECT_EQ(channel_bus(channel), CmmFunGetI2CExtBus(4, channel + 1))
            << channel;
}

// The platform daemon's FRU table: 512-byte images at `base` of a part on
// bus 3 or behind PCA9546 channel 0.
const struct
{
    uint8_t method, address;
    unsigned base;
    bool mux;
} kFrus[] = {
    {KV_FRU_ACCESS_I2C, 0x50, 0x200, false},
    {KV_FRU_ACCESS_SYSFS, 0x51, 0, false},
    {KV_FRU_ACCESS_SYSFS, 0x50, 0, true},
};

// Device `id`'s part read by another path than the library's: raw I2C, or
// at24's file behind the mux.
std::string witness(int id, unsigned offset, size_t count)
{
    const auto& f = kFrus[id];
    return f.mux ? at24(std::to_string(channel_bus(0)) + "-0050", offset, count)
                 : read_raw(3, f.address, f.base + offset, count);
}

// Publishes device `id`, writes through the library and reads back through
// it and the witness.
void round_trip(int id)
{
    const auto& f = kFrus[id];
    // 32 KiB through 2-byte offsets, behind channel 0 of the mux at 0x70.
    const kv_fru_device device{0,
                               0,
                               f.method,
                               {0, 2},
                               f.mux,
                               0,
                               uint8_t(f.mux ? 0x70 : 0),
                               2,
                               0,
                               uint8_t(f.mux ? 4 : 3),
                               f.address,
                               0,
                               {uint8_t(f.base), uint8_t(f.base >> 8)}};
    auto* segment = (uint8_t*)init_shm();
    ASSERT_NE(nullptr, segment);
    std::memcpy(segment + kv::segment::fru_descriptor(id), &device,
                sizeof device);

    const std::string ours = pattern(24, 0x21 + 0x11 * id);
    ASSERT_EQ(0, write_fru_data(&device, 0x30, 24, (uint8_t*)ours.data()));
    // A raw write not behind a mux closes descriptor 0 (settled behaviour);
    // the tool runs next.
    if (::fcntl(0, F_GETFD) == -1)
        ::open("/dev/null", O_RDONLY);
    std::string back(24, 0);
    EXPECT_EQ(f.method == KV_FRU_ACCESS_I2C ? 2 : 0,
              read_fru_data(&device, 0x30, 24, (uint8_t*)back.data()));
    EXPECT_EQ(ours, back);
    EXPECT_EQ(ours, witness(id, 0x30, 24));
}

TEST(FruDevices, WrittenByTheLibraryAndTheTool)
{
    for (int id = 0; id < 3; ++id)
        round_trip(id);
    // fru -c, -b, -w fru.ini, then -w of one field, to devices 0 and 1.
    for (int id : {0, 1})
    {
        const std::string n = std::to_string(id);
        const std::string fru =
            "cd " + n + " && fru 127.0.0.1 root secret " + n + " -w ";
        auto run = run_shell("mkdir -p " + n + " && (cd " + n +
                             " && fru -c && fru -b >/dev/null) && " + fru +
                             "fru.ini 2>&1");
        ASSERT_EQ(0, run.status);
        const auto image = *read_text(n + "/default-fru.bin");
        EXPECT_EQ(image, witness(id, 0, image.size()));
        run = run_shell(fru + "BoardInfoArea SerialNum SN-BMC-4711");
        ASSERT_EQ(0, run.status);
        EXPECT_NE(std::string::npos, witness(id, 0, 512).find("SN-BMC-4711"))
            << id;
    }
}

std::string first_line(const std::string& path)
{
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

// Whether the kernel takes `text` in one write.
bool write_sysfs(const std::string& path, const std::string& text)
{
    return bool(std::ofstream(path) << text << std::flush);
}

TEST(BondingStatus, ModesAndActiveSlave)
{
    ASSERT_TRUE(write_sysfs("/sys/class/net/bonding_masters", "+bond0"));
    // The driver takes its mode numbers, the library's minus one, and writes
    // the name. Modes 3-7, 1, then 2: the active slave checks need
    // active-backup.
    for (int i = 2; i < 9; ++i)
    {
        ASSERT_TRUE(write_sysfs("/sys/class/net/bond0/bonding/mode",
                                std::to_string(i % 7)));
        EXPECT_EQ(i % 7 + 1, net_mode_get());
    }
    char slave[16] = "";
    // Without a slave the driver still prints the line, with the word None:
    // callers get 0 and "None", not -1.
    EXPECT_EQ(0, net_bond_active_slave(slave, sizeof slave));
    EXPECT_STREQ("None", slave);

    ASSERT_TRUE(write_sysfs("/sys/class/net/bond0/bonding/slaves", "+eth0"));
    ASSERT_EQ(0, net_enable_set("bond0", 1));
    EXPECT_EQ(0, net_bond_active_slave(slave, sizeof slave));
    EXPECT_STREQ("eth0", slave);

    // Without bond0 there is no status file.
    ASSERT_TRUE(write_sysfs("/sys/class/net/bonding_masters", "-bond0"));
    EXPECT_EQ(0, net_mode_get());
}

TEST(NicFlags, UpDownLinkAndIndexAsTheKernelReportsThem)
{
    const std::string sys = "/sys/class/net/eth1/";
    const int index = int(if_nametoindex("eth1"));
    ASSERT_GT(index, 0);
    EXPECT_EQ(index, net_index_get("eth1"));

    ASSERT_EQ(0, net_enable_set("eth1", 1));
    EXPECT_EQ(1, net_enable_get("eth1"));
    // The PHY reports the link a while after the interface goes up, and
    // IFF_RUNNING follows the carrier only through the link watch: up to 5 s.
    // An interface left down never gets there.
    for (int i = 0; first_line(sys + "operstate") != "up" && i < 100; ++i)
        usleep(50000);
    ASSERT_EQ("up", first_line(sys + "operstate")) << "no link on eth1";
    EXPECT_EQ(1, net_link_get("eth1"));
    EXPECT_EQ(std::stoi(first_line(sys + "speed")), net_speed_get("eth1"));

    EXPECT_EQ(0, if_updown("eth1", 0));
    EXPECT_EQ(0, net_enable_get("eth1"));
    EXPECT_EQ(0, net_link_get("eth1"));
    EXPECT_EQ(0, net_enable_set("eth1:1", 1));
    EXPECT_EQ(1, net_enable_get("eth1"));
}

TEST(Gpio, ExportDirectionAndValueReachTheController)
{
    // A line of the 3.3 V controller whose pin is free for GPIO use: the pin
    // controller refuses lines muxed to the NICs and buses.
    int line = -1;
    for (const auto& chip : fs::directory_iterator("/sys/class/gpio"))
    {
        if (first_line(chip.path() / "label") != "1e780000.gpio")
            continue;
        int n = std::stoi(first_line(chip.path() / "base"));
        const int end = n + std::stoi(first_line(chip.path() / "ngpio"));
        for (; line < 0 && n < end; ++n)
            if (write_sysfs("/sys/class/gpio/export", std::to_string(n)))
                line = n;
    }
    ASSERT_GE(line, 0);
    const std::string dir = "/sys/class/gpio/gpio" + std::to_string(line);
    ASSERT_TRUE(write_sysfs("/sys/class/gpio/unexport", std::to_string(line)));

    EXPECT_EQ(0, enable_gpio(line));
    // The kernel refuses to export a line twice.
    EXPECT_EQ(-1, enable_gpio(line));

    EXPECT_EQ(0, set_gpio_direction(line, "out"));
    EXPECT_EQ("out", first_line(dir + "/direction"));
    for (int value : {1, 0})
    {
        EXPECT_EQ(0, write_gpio(line, value));
        EXPECT_EQ(std::to_string(value), first_line(dir + "/value"));
    }
}

} // namespace

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
using Bytes = std::vector<uint8_t>;

// Bus 3: 0x50 without a driver, 0x51 bound to at24, nothing at 0x53. Bus 4:
// the PCA9546 at 0x70; 0x50 (at24) on channel 0, 0x52 (no driver) on 1.
// All are 24C256s: 32 KiB behind a 2-byte address.
constexpr int kBus = 3;
constexpr int kMuxBus = 4;

std::string eeprom_file(int bus, int address)
{
    char name[48];
    std::snprintf(name, sizeof name, "/sys/bus/i2c/devices/%d-%04x/eeprom", bus,
                  address);
    return name;
}

Bytes read_file(const std::string& file, unsigned offset, size_t count)
{
    std::ifstream in(file, std::ios::binary);
    Bytes bytes(count);
    in.seekg(offset);
    in.read(reinterpret_cast<char*>(bytes.data()), long(count));
    bytes.resize(size_t(in.gcount()));
    return bytes;
}

// Raw reads of at most 253 bytes each, the most the library takes.
Bytes read_raw(int bus, uint8_t address, unsigned offset, size_t count)
{
    UniqueFd fd(i2c_open(bus));
    Bytes bytes(count);
    for (size_t done = 0; done < count; done += 253)
    {
        const int part = int(std::min<size_t>(253, count - done));
        EXPECT_EQ(2, i2c_read_data(fd.get(), address, offset + done, 2,
                                   bytes.data() + done, part));
    }
    return bytes;
}

// Bytes that differ from each other and from a blank part.
Bytes pattern(size_t count, int seed)
{
    Bytes bytes(count);
    for (size_t i = 0; i < count; ++i)
    {
        bytes[i] = uint8_t(seed + 7 * i) & 0x7F;
    }
    return bytes;
}

// The adapter number the kernel gave to channel `channel` of the PCA9546.
int channel_bus(int channel)
{
    const auto link = std::filesystem::read_symlink(
        "/sys/bus/i2c/devices/4-0070/channel-" + std::to_string(channel));
    return std::stoi(link.filename().string().substr(4)); // "i2c-N"
}

TEST(I2cAdapter, TransfersProbesAndMuxChannels)
{
    UniqueFd bus(i2c_open(kBus));
    // at24 is the witness: the driver addresses cells its own way, so a
    // swapped or short offset shows as other bytes.
    const Bytes ours = pattern(16, 0x11);
    ASSERT_EQ(1, i2c_write_data(bus.get(), 0x51, 0x1234, 2, ours.data(), 16));
    EXPECT_EQ(ours, read_file(eeprom_file(kBus, 0x51), 0x1234, 16));
    const Bytes theirs = pattern(32, 0x40);
    {
        UniqueFd file(::open(eeprom_file(kBus, 0x51).c_str(), O_WRONLY));
        ASSERT_EQ(32, ::pwrite(file.get(), theirs.data(), 32, 0x3412));
    }
    EXPECT_EQ(theirs, read_raw(kBus, 0x51, 0x3412, 32));
    // The longest transfer.
    const Bytes full = pattern(253, 0x05);
    ASSERT_EQ(1, i2c_write_data(bus.get(), 0x50, 0x100, 2, full.data(), 253));
    EXPECT_EQ(full, read_raw(kBus, 0x50, 0x100, 253));

    // The aspeed adapter's NAK.
    uint8_t read[4];
    errno = 0;
    EXPECT_LT(i2c_read_data(bus.get(), 0x53, 0, 2, read, 4), 0);
    EXPECT_EQ(ENXIO, errno);
    errno = 0;
    EXPECT_LT(i2c_write_data(bus.get(), 0x53, 0, 2, full.data(), 4), 0);
    EXPECT_EQ(ENXIO, errno);

    EXPECT_EQ(1, check_slave_active(bus.get(), 0x50));
    EXPECT_EQ(0, check_slave_active(bus.get(), 0x53));
    // The probe binds with I2C_SLAVE, which the kernel refuses (EBUSY) for
    // an address a driver holds.
    EXPECT_EQ(0, check_slave_active(bus.get(), 0x51));

    // The channels' buses come from the kernel log, captured on first use.
    ASSERT_FALSE(std::filesystem::exists("/var/run/obmcinfo/i2c"));
    for (int channel = 0; channel < 4; ++channel)
    {
        EXPECT_EQ(channel_bus(channel),
                  CmmFunGetI2CExtBus(kMuxBus, channel + 1))
            << channel;
    }
    EXPECT_TRUE(std::filesystem::exists("/var/run/obmcinfo/i2c_dmesg"));
}

// The platform daemon's FRU table: 512-byte images at `base` of a part on
// bus 3 or behind PCA9546 channel `channel`.
const struct
{
    uint8_t method, address;
    unsigned base;
    int channel;
} kFrus[] = {
    {KV_FRU_ACCESS_I2C, 0x50, 0x200, -1},
    {KV_FRU_ACCESS_SYSFS, 0x51, 0, -1},
    {KV_FRU_ACCESS_SYSFS, 0x50, 0, 0},
    {KV_FRU_ACCESS_I2C, 0x52, 0x100, 1},
};

// Device `id`'s part read by another path than the library's: raw I2C on
// the bus (a channel's own bus selects it), or at24's file behind the mux.
Bytes witness(int id, unsigned offset, size_t count)
{
    const auto& f = kFrus[id];
    const int bus = f.channel < 0 ? kBus : channel_bus(f.channel);
    return f.channel == 0
               ? read_file(eeprom_file(bus, f.address), offset, count)
               : read_raw(bus, f.address, f.base + offset, count);
}

// Publishes device `id`, writes through the library and reads back through
// it and the witness.
void round_trip(int id)
{
    const auto& f = kFrus[id];
    const bool mux = f.channel >= 0;
    kv_fru_device device{};
    device.method = f.method;
    device.size[1] = 2;
    device.behind_mux = mux;
    device.mux_channel = uint8_t(mux ? f.channel : 0);
    device.mux_address = mux ? 0x70 : 0;
    device.offset_width = 2;
    device.bus = mux ? kMuxBus : kBus;
    device.address = f.address;
    device.base[0] = uint8_t(f.base);
    device.base[1] = uint8_t(f.base >> 8);
    auto* segment = static_cast<uint8_t*>(init_shm());
    ASSERT_NE(nullptr, segment);
    std::memcpy(segment + kv::segment::fru_descriptor(id), &device,
                sizeof device);

    const Bytes ours = pattern(24, 0x21 + 0x11 * id);
    ASSERT_EQ(0, write_fru_data(&device, 0x30, 24, ours.data()));
    // A raw write not behind a mux closes descriptor 0 (settled behaviour);
    // the tool runs next.
    if (::fcntl(0, F_GETFD) == -1)
    {
        ::open("/dev/null", O_RDONLY);
    }
    Bytes back(24);
    EXPECT_EQ(f.method == KV_FRU_ACCESS_I2C ? 2 : 0,
              read_fru_data(&device, 0x30, 24, back.data()));
    EXPECT_EQ(ours, back);
    EXPECT_EQ(ours, witness(id, 0x30, 24));
}

TEST(FruDevices, WrittenByTheLibraryAndTheTool)
{
    for (int id = 0; id < 3; ++id)
    {
        SCOPED_TRACE(id);
        round_trip(id);
    }
    // fru -c, -b, -w fru.ini, then -w of one field, to devices 0 and 1.
    for (int id : {0, 1})
    {
        const std::string dir = "/tmp/" + std::to_string(id);
        const std::string fru =
            " && fru 127.0.0.1 root secret " + std::to_string(id);
        auto outcome = kv::test::run_shell("mkdir -p " + dir + " && cd " + dir +
                                           " && fru -c && fru -b >/dev/null" +
                                           fru + " -w fru.ini 2>&1");
        ASSERT_EQ(0, outcome.status) << outcome.output;
        const std::string image =
            kv::test::read_text(dir + "/default-fru.bin").value_or("");
        ASSERT_GT(image.size(), 8u);
        EXPECT_EQ(Bytes(image.begin(), image.end()),
                  witness(id, 0, image.size()));
        outcome = kv::test::run_shell(
            "cd " + dir + fru + " -w BoardInfoArea SerialNum SN-BMC-4711 2>&1");
        ASSERT_EQ(0, outcome.status) << outcome.output;
        const Bytes part = witness(id, 0, 512);
        const std::string text(part.begin(), part.end());
        EXPECT_NE(text.npos, text.find("SN-BMC-4711")) << id;
        EXPECT_NE(text.npos, text.find("VeldMarke")) << id;
    }
}

TEST(FruDevices, BehindTheMultiplexerByRawI2c)
{
    // The library selects a channel with two bytes, 0x00 then the mask, and
    // the part keeps the last; QEMU 7.2's model drops such writes.
    UniqueFd bus(i2c_open(kMuxBus));
    const uint8_t none[] = {0x00};
    const uint8_t second[] = {0x00, 0x02};
    uint8_t byte = 0;
    if (i2c_rw_data(bus.get(), 0x70, none, 1, nullptr, 0) != 1 ||
        i2c_rw_data(bus.get(), 0x70, second, 2, nullptr, 0) != 1 ||
        i2c_read_data(bus.get(), 0x52, 0, 2, &byte, 1) != 2)
    {
        GTEST_SKIP() << "the emulated PCA9546 drops two-byte selections";
    }
    round_trip(3);
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
    // The driver's mode names in the order of the library's modes 1-7.
    const char* modes[] = {"balance-rr", "active-backup", "balance-xor",
                           "broadcast",  "802.3ad",       "balance-tlb",
                           "balance-alb"};
    // active-backup last: the active slave checks need it.
    for (int mode : {1, 3, 4, 5, 6, 7, 2})
    {
        const char* name = modes[mode - 1];
        ASSERT_TRUE(write_sysfs("/sys/class/net/bond0/bonding/mode", name));
        EXPECT_EQ(mode, net_mode_get())
            << name << ": " << first_line("/proc/net/bonding/bond0");
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

    ASSERT_TRUE(write_sysfs("/sys/class/net/bond0/bonding/slaves", "-eth0"));
    ASSERT_EQ(0, net_enable_set("bond0", 0));
    ASSERT_TRUE(write_sysfs("/sys/class/net/bonding_masters", "-bond0"));
    EXPECT_EQ(0, net_mode_get()) << "without bond0 there is no status file";
}

TEST(NicFlags, UpDownLinkAndIndexAsTheKernelReportsThem)
{
    const std::string sys = "/sys/class/net/eth1/";
    const int index = int(if_nametoindex("eth1"));
    ASSERT_GT(index, 0) << "ftgmac100 gave no eth1";
    EXPECT_EQ(index, net_index_get("eth1"));
    EXPECT_EQ(-1, net_index_get("nosuchnic0"));

    ASSERT_EQ(0, net_enable_set("eth1", 1));
    EXPECT_EQ(1, net_enable_get("eth1"));
    EXPECT_EQ(IFF_UP,
              std::stoi(first_line(sys + "flags"), nullptr, 16) & IFF_UP);
    // The PHY reports the link a while after the interface goes up, and
    // IFF_RUNNING follows the carrier only through the link watch: up to 5 s.
    int waited = 0;
    for (; first_line(sys + "operstate") != "up" && waited < 5000; waited += 50)
    {
        usleep(50000);
    }
    ASSERT_EQ("up", first_line(sys + "operstate")) << "no link on eth1";
    std::printf("eth1 running %d ms after going up\n", waited);
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
    for (const auto& chip :
         std::filesystem::directory_iterator("/sys/class/gpio"))
    {
        if (first_line(chip.path() / "label") != "1e780000.gpio")
        {
            continue;
        }
        const int base = std::stoi(first_line(chip.path() / "base"));
        const int end = base + std::stoi(first_line(chip.path() / "ngpio"));
        for (int n = base; line < 0 && n < end; ++n)
        {
            line = write_sysfs("/sys/class/gpio/export", std::to_string(n))
                       ? n
                       : -1;
        }
    }
    ASSERT_GE(line, 0) << "no free line on the aspeed GPIO controller";
    const std::string number = std::to_string(line);
    const std::string dir = "/sys/class/gpio/gpio" + number;
    ASSERT_TRUE(write_sysfs("/sys/class/gpio/unexport", number));

    EXPECT_EQ(0, enable_gpio(line));
    EXPECT_TRUE(std::filesystem::exists(dir));
    // The kernel refuses to export a line twice.
    EXPECT_EQ(-1, enable_gpio(line));

    EXPECT_EQ(0, set_gpio_direction(line, "out"));
    EXPECT_EQ("out", first_line(dir + "/direction"));
    for (int value : {1, 0})
    {
        EXPECT_EQ(0, write_gpio(line, value));
        EXPECT_EQ(std::to_string(value), first_line(dir + "/value"));
    }
    EXPECT_EQ(-1, set_gpio_direction(line, "sideways"));

    // A line not exported is exported on the way.
    ASSERT_TRUE(write_sysfs("/sys/class/gpio/unexport", number));
    EXPECT_EQ(0, set_gpio_direction(line, "in"));
    EXPECT_EQ("in", first_line(dir + "/direction"));
}

} // namespace

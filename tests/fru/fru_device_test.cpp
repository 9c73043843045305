// SPDX-License-Identifier: Apache-2.0
// FRU devices on the simulated example board (raw I2C behind a multiplexer
// or not, the sysfs EEPROM file, paced chunks; sleeps are captured), field
// edits and the fru tool's small helpers.
#include "hw_test.h"
#include "ipc/platform_segment.h"

#include <libkv/fru.h>
#include <libkv/ipc.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

namespace
{

using namespace kv::hw::test;
using namespace kv::test;
using B = std::vector<uint8_t>;
using Sleeps = std::vector<long long>;

// The 24C64 at 0x51 on bus 16, behind channel 0 of the PCA9546 at 0x70 on
// bus 13; or the 24C64 at 0x50 on bus 3. Method 2 is raw I2C, 3 sysfs.
kv_fru_device device(bool mux, int method = 2, int base = 0, int size = 512)
{
    kv_fru_device d{};
    d.method = method;
    d.size[0] = size;
    d.size[1] = size >> 8;
    d.behind_mux = mux;
    d.mux_address = mux ? 0x70 : 0;
    d.offset_width = 2;
    d.bus = mux ? 13 : 3;
    d.address = mux ? 0x51 : 0x50;
    d.base[0] = base;
    d.base[1] = base >> 8;
    return d;
}

// The channel lock of the multiplexer at 0x70 on bus 13.
uint8_t& mux_lock()
{
    return static_cast<uint8_t*>(
        init_shm())[kv::segment::channel_lock(13, 0x70)];
}

void install(int id, const kv_fru_device& d)
{
    auto* entry =
        static_cast<uint8_t*>(init_shm()) + kv::segment::fru_descriptor(id);
    std::memcpy(entry, &d, sizeof d);
}

// The segment outlives a test's IPC namespace: each test starts from a free
// lock.
class Fru : public SimBoard
{
  protected:
    void SetUp() override
    {
        SimBoard::SetUp();
        mux_lock() = 0;
        capture_sleeps(true);
    }
};

TEST_F(Fru, BusyOrRefused)
{
    uint8_t byte = 0;
    mux_lock() = 1; // another process holds a channel of this multiplexer
    kv_fru_device d = device(true);
    d.mux_channel = 3;
    EXPECT_EQ(KV_CC_NODE_BUSY, read_fru_data(&d, 0, 1, &byte));
    EXPECT_EQ(KV_CC_NODE_BUSY, write_fru_data(&d, 0, 1, &byte));
    EXPECT_EQ(1, mux_lock());
    d.state = KV_FRU_STATE_REFUSED;
    EXPECT_EQ(-1, read_fru_data(&d, 0, 1, &byte));
    EXPECT_THAT(wire_log(), IsEmpty());
}

// The cause survives the log line, the retries and the pauses between them.
TEST_F(Fru, SysfsAndFailures)
{
    B got(4);
    auto fails = [&](const kv_fru_device& d, bool write, int cause) {
        errno = 0;
        EXPECT_EQ(-1, write ? write_fru_data(&d, 32, 4, got.data())
                            : read_fru_data(&d, 32, 4, got.data()));
        EXPECT_EQ(cause, errno);
    };
    fail_address(3, 0x50, EIO);
    fails(device(false), false, EIO);
    // A missing file: five reads or one write, no pauses. A file that ends
    // before the read: five reads, each failure paused.
    const kv_fru_device sysfs = device(false, 3, 1);
    fails(sysfs, false, ENOENT);
    fails(sysfs, true, ENOENT);
    EXPECT_THAT(recorded_sleeps(), IsEmpty());
    const std::string file = "/sys/class/i2c-dev/i2c-3/device/3-0050/eeprom";
    write_text(file, "ab");
    fails(sysfs, false, EIO);
    EXPECT_EQ(Sleeps(5, 100000), recorded_sleeps());
    // Within the file, after the base of 1, both go through at once.
    EXPECT_EQ(0, write_fru_data(&sysfs, 0, 1, B{'x'}.data()));
    EXPECT_EQ(0, read_fru_data(&sysfs, 0, 1, got.data()));
    EXPECT_EQ("ax", read_text(file));
    EXPECT_EQ('x', got[0]);
}

// Chunks of eight bytes, paced.
TEST_F(Fru, Chunks)
{
    Sleeps sleeps;
    for (int i = 0; i < 21; ++i)
    {
        bmc_fru_date[i] = uint8_t(0xA0 + i);
        // Each byte is one write cycle, each full chunk ends with a pause.
        sleeps.push_back(5000);
        if (i % 8 == 7)
        {
            sleeps.push_back(10000);
        }
    }
    bmc_fru_len = 21;
    install(4, device(true, 2, 0x140));
    EXPECT_EQ(0, write_to_fru(4));
    EXPECT_EQ(4, deviceid);
    EXPECT_EQ(sleeps, recorded_sleeps());
    // The channel is taken for each chunk and given back.
    const auto log = wire_log();
    EXPECT_EQ(3, std::count(log.begin(), log.end(), sent(13, 0x70, {0, 1})));
    EXPECT_EQ(0, mux_lock());
    EXPECT_EQ(-1, write_to_fru(-1));
}

// Each chunk to a direct part closes descriptor 0; the next chunk must still
// find the part, whether descriptor 0 was open at the start or not.
TEST_F(Fru, DirectPart)
{
    for (const int open : {1, 0})
    {
        EXPECT_EQ(0, exit_status_of([&] {
                      install(5, device(false));
                      std::memset(bmc_fru_date, open + 1, 21);
                      bmc_fru_len = 21;
                      if (!open)
                      {
                          ::close(0);
                      }
                      write_to_fru(5);
                      return std::memcmp(bmc_fru_date,
                                         &device_memory(3, 0x50)[0], 21);
                  }));
    }
}

// Only a direct or unknown device closes descriptor 0.
TEST_F(Fru, DescriptorZero)
{
    kv_fru_device refused = device(false);
    refused.state = KV_FRU_STATE_REFUSED;
    const std::pair<kv_fru_device, int> cases[] = {{device(false), 1},
                                                   {device(false, 9), 1},
                                                   {device(true), 0},
                                                   {device(false, 3), 0},
                                                   {refused, 0}};
    for (const auto& [d, closed] : cases)
    {
        EXPECT_EQ(closed, exit_status_of([&, d = d] {
                      ::dup2(::open("/dev/null", O_RDONLY), 0);
                      write_fru_data(&d, 0, 1, B{0x42}.data());
                      return ::fcntl(0, F_GETFD) == -1;
                  }));
    }
    EXPECT_EQ(0x42, device_memory(3, 0x50)[0]);

    // A part whose address does not bind behind the multiplexer gives the
    // channel and (the fixture checks) the bus back.
    kv_fru_device d = device(true);
    d.address = 0xC0;
    errno = 0;
    clear_wire_log();
    EXPECT_EQ(-1, write_fru_data(&d, 0, 1, B(1).data()));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(0, mux_lock());
    EXPECT_THAT(wire_log(), ElementsAre(sent(13, 0x70, {0, 1})));
}

TEST_F(Fru, FieldEdits)
{
    // Section and key are prefixes, case ignored, first match wins.
    const std::tuple<const char*, const char*, int> ids[] = {
        {"boardinfoarea", "serialnum", 6},
        {"BoardInfoArea", "CustomDataString3", 9},
        {"Board", "SerialNum", -14}};
    for (auto [section, key, id] : ids)
    {
        EXPECT_EQ(id, fru_get_param_id(section, key));
    }
    fru_init();
    EXPECT_EQ(0, modify_section("258", 0));
    EXPECT_EQ(2, fru.chassis.type);
    EXPECT_EQ(0, modify_section("X", 26));
    EXPECT_EQ(0xC1, fru.product.custom.type_len[4]);

    // Refused edits of device 0 write nothing.
    install(0, device(true));
    const std::tuple<B, const char*, const char*, int> edits[] = {
        {B(8, 0xFF), "SerialNum", "S", 13},
        {{1, 0, 0, 0, 0, 0, 0, 0xFF}, "Colour", "red", -14},
        {{}, "SerialNum", nullptr, -10}};
    for (const auto& [header, key, value, result] : edits)
    {
        set_device_memory(16, 0x51, 0, header);
        stdout_of([&] {
            EXPECT_EQ(result, fru_modify_key(0, "BoardInfoArea", key, value));
        });
    }
    EXPECT_EQ(0u, write_cycles(16, 0x51));
    EXPECT_EQ(-9, write_fru_ini());
}

TEST(FruToolHelpers, FilesAndRetries)
{
    const uint8_t bytes[] = {'f', 'r', 'u'};
    write_text("out.bin", "old");
    EXPECT_EQ(0, WriteFile("out.bin", bytes, 2, 3));
    EXPECT_EQ(0, backup_fru_bin(bytes, 3));
    EXPECT_EQ(std::string("\0\0fru", 5), read_text("out.bin"));
    EXPECT_EQ("fru", read_text("fru.bat"));
    // {run from which the command succeeds, result, runs made}
    const int cases[][3] = {{3, 0, 3}, {20, 0, 20}, {21, -1, 21}, {99, -1, 21}};
    for (auto [from, result, runs] : cases)
    {
        std::remove("runs");
        const auto command =
            "echo >>runs; [ $(wc -l <runs) -ge " + std::to_string(from) + " ]";
        EXPECT_EQ(result, write_fru_cmd(command.c_str()));
        EXPECT_EQ(std::string(runs, '\n'), read_text("runs"));
    }
}

} // namespace

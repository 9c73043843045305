// SPDX-License-Identifier: Apache-2.0
// FRU devices on the simulated example board: raw I2C behind a multiplexer
// or not, the sysfs EEPROM file, paced chunks, field edits, published facts.
// Sleeps are captured, so pacing is asserted, not waited for.
#include "hw_test.h"
#include "ipc/platform_segment.h"

#include <libkv/fru.h>
#include <libkv/ipc.h>

#include <fcntl.h>

#include <cstring>
#include <numeric>

namespace
{

using namespace kv::hw::test;
using Bytes = std::vector<uint8_t>;

// The 24C64 at 0x51 on bus 16, behind channel 0 of the PCA9546 at 0x70 on
// bus 13; or the one at 0x50 on bus 3, without a multiplexer.
kv_fru_device part(bool mux, unsigned base = 0,
                   uint8_t method = KV_FRU_ACCESS_I2C)
{
    kv_fru_device d{};
    d.method = method;
    d.size[1] = 2; // 512 bytes
    d.behind_mux = mux;
    d.mux_address = mux ? 0x70 : 0;
    d.offset_width = 2;
    d.bus = mux ? 13 : 3;
    d.address = mux ? 0x51 : 0x50;
    d.base[0] = base & 0xFF;
    d.base[1] = base >> 8;
    return d;
}

void install(int id, const kv_fru_device& device)
{
    std::memcpy(static_cast<uint8_t*>(init_shm()) +
                    kv::segment::fru_descriptor(id),
                &device, sizeof device);
}

// The channel lock of the multiplexer at 0x70 on bus 13.
uint8_t& mux_lock()
{
    return static_cast<uint8_t*>(
        init_shm())[kv::segment::channel_lock(13, 0x70)];
}

// The segment is attached once per process and so outlives a test's IPC
// namespace: each test starts from a free lock.
class FruDevice : public SimBoard
{
  protected:
    void SetUp() override
    {
        SimBoard::SetUp();
        mux_lock() = 0;
        capture_sleeps(true);
    }
};

TEST_F(FruDevice, Failures)
{
    uint8_t byte = 0;
    mux_lock() = 1; // another process holds a channel of this multiplexer
    kv_fru_device d = part(true);
    d.mux_channel = 3;
    EXPECT_EQ(KV_CC_NODE_BUSY, read_fru_data(&d, 0, 1, &byte));
    EXPECT_EQ(KV_CC_NODE_BUSY, write_fru_data(&d, 0, 1, &byte));
    EXPECT_EQ(1, mux_lock());
    d.state = KV_FRU_STATE_REFUSED;
    EXPECT_EQ(-1, read_fru_data(&d, 0, 1, &byte));
    EXPECT_EQ(-1, write_fru_data(&d, 0, 1, &byte));
    EXPECT_EQ(-1, write_to_fru(-1));
    EXPECT_EQ(-1, write_to_fru(1 << 30));
    EXPECT_THAT(wire_log(), IsEmpty());

    // A part whose address does not bind behind the multiplexer gives the
    // channel back and leaves no bus open (the fixture checks that).
    d = part(true);
    d.address = 0xC0;
    mux_lock() = 0;
    EXPECT_EQ(EINVAL, ERRNO_OF(write_fru_data(&d, 0, 1, &byte)));
    EXPECT_EQ(0, mux_lock());
    EXPECT_THAT(wire_log(), ElementsAre(sent(13, 0x70, {0, 1})));

    // The cause of a failed access survives the log line.
    fail_address(3, 0x50, EIO);
    const kv_fru_device raw = part(false);
    EXPECT_EQ(EIO, ERRNO_OF(read_fru_data(&raw, 0x20, 1, &byte)));
}

TEST_F(FruDevice, SysfsFile)
{
    // Missing: five reads and one write, none pausing.
    const kv_fru_device mux = part(true, 2, KV_FRU_ACCESS_SYSFS),
                        d = part(false, 0, KV_FRU_ACCESS_SYSFS);
    Bytes got(12);
    EXPECT_EQ(ENOENT, ERRNO_OF(read_fru_data(&d, 0, 4, got.data())));
    EXPECT_EQ(ENOENT, ERRNO_OF(write_fru_data(&d, 0, 4, got.data())));
    EXPECT_THAT(recorded_sleeps(), IsEmpty());
    // Channel map, counted from 1: the descriptor's channel 0 is bus 16.
    write_text("/var/run/obmcinfo/i2c/i2c-13-1", "16\n");
    write_text("/sys/class/i2c-dev/i2c-13/device/i2c-16/16-0051/eeprom",
               "0123456789");
    const std::string plain = "/sys/class/i2c-dev/i2c-3/device/3-0050/eeprom";
    write_text(plain, "abcdefghij");
    EXPECT_EQ(0, read_fru_data(&mux, 1, 3, got.data())); // base 2 + 1
    EXPECT_EQ(0, write_fru_data(&d, 8, 2, got.data()));
    EXPECT_EQ("abcdefgh34", read_text(plain));
    EXPECT_THAT(wire_log(), IsEmpty());
    // Too short: every attempt pauses.
    EXPECT_EQ(EIO, ERRNO_OF(read_fru_data(&d, 0, 12, got.data())));
    EXPECT_EQ(std::vector<long long>(5, 100000), recorded_sleeps());
}

TEST_F(FruDevice, PacedChunks)
{
    install(4, part(true, 0x140));
    set_device_memory(16, 0x51, 0x140, Bytes(24, 0x5A));
    std::iota(bmc_fru_date, bmc_fru_date + 21, uint8_t(0xA0));
    bmc_fru_len = 21;
    deviceid = -1;
    EXPECT_EQ(0, write_to_fru(4));
    EXPECT_EQ(4, deviceid);
    // The channel is taken once per chunk.
    const auto log = wire_log();
    EXPECT_EQ(3, std::count(log.begin(), log.end(), sent(13, 0x70, {0, 1})));
    EXPECT_EQ(0, mux_lock());

    // Reads go by whole chunks: 24 bytes of a 20-byte device.
    kv_fru_device d = part(true, 0x140);
    d.size[0] = 20;
    d.size[1] = 0;
    Bytes got(32), expected(bmc_fru_date, bmc_fru_date + 21);
    EXPECT_EQ(0, get_fru_bin(d, got.data()));
    expected.resize(24, 0x5A);
    expected.resize(32, 0);
    EXPECT_EQ(expected, got);
    // Every byte written is one EEPROM write cycle; a full chunk pauses.
    std::vector<long long> sleeps(26, 5000);
    for (int i : {8, 17, 23, 24, 25})
        sleeps[i] = 10000;
    EXPECT_EQ(sleeps, recorded_sleeps());
}

// A write to a raw part not behind a multiplexer, or of an unknown method,
// closes descriptor 0 (bits 0 and 1). write_to_fru takes it back before
// every chunk, so the whole image arrives all the same, also when 0 was
// closed from the start (bits 5 and 6 would say it did not).
TEST_F(FruDevice, DescriptorZero)
{
    EXPECT_EQ(0b11, kv::test::exit_status_of([] {
                  kv_fru_device refused = part(false);
                  refused.state = KV_FRU_STATE_REFUSED;
                  int closed = 0, bit = 1;
                  for (const kv_fru_device& d :
                       {part(false), part(false, 0, 9), part(true), refused,
                        part(false, 0, KV_FRU_ACCESS_SYSFS)})
                  {
                      ::dup2(::open("/dev/null", O_RDONLY), 0);
                      write_fru_data(&d, 0, 1, bmc_fru_date);
                      closed |= ::fcntl(0, F_GETFD) == -1 ? bit : 0;
                      bit <<= 1;
                  }
                  install(5, part(false));
                  for (int run = 0; run < 2; ++run, bit <<= 1)
                  {
                      std::iota(bmc_fru_date, bmc_fru_date + 21, run);
                      bmc_fru_len = 21;
                      write_to_fru(5);
                      Bytes memory = device_memory(3, 0x50);
                      memory.resize(21);
                      if (memory != Bytes(bmc_fru_date, bmc_fru_date + 21))
                          closed |= bit;
                  }
                  return closed;
              }));
}

TEST_F(FruDevice, PublishedFacts)
{
    write_text("/var/run/obmcinfo/GUID", "6b1f0a6e-guid\n");
    write_text("/var/run/obmcinfo/fruinfo",
               "Product Serial: S1\nProduct Asset Tag : AT-77\n");
    char guid[64], tag[32] = {};
    std::memset(guid, 'x', sizeof guid);
    EXPECT_EQ(0, getUIDandAssetTag(guid, sizeof guid, tag, sizeof tag));
    EXPECT_STREQ("6b1f0a6e-guid", guid);
    EXPECT_STREQ("AT-77", tag);
    // No SKU file: 239 one-second waits, and still 0.
    EXPECT_EQ(0, wait_sku_file());
    EXPECT_EQ(std::vector<long long>(239, 1000000), recorded_sleeps());
    clear_sleeps();
    write_text("/var/run/obmcinfo/sku", "1\n");
    EXPECT_EQ(0, wait_sku_file());
    EXPECT_THAT(recorded_sleeps(), IsEmpty());
}

TEST(FruEdit, Fields)
{
    // Section and key are prefixes, case ignored, the first match wins.
    EXPECT_EQ(6, fru_get_param_id("boardinfoarea", "serialnum"));
    EXPECT_EQ(22, fru_get_param_id("ProductInfoAreaX", "CustomDataString4"));
    EXPECT_EQ(-14, fru_get_param_id(nullptr, "Type"));
    fru_init();
    EXPECT_EQ(0, modify_section("258", 0));
    EXPECT_EQ(2, fru.chassis.type);
    EXPECT_EQ(0, modify_section("X", 26));
    EXPECT_EQ(0xC1, fru.product.custom.type_len[4]);
    // The board time, unknown ids and a null value change nothing.
    const kv_fru_record before = fru;
    for (int id : {3, 27, -1})
        EXPECT_EQ(0, modify_section("2020/01/01 00:00", id));
    EXPECT_EQ(0, modify_section(nullptr, 6));
    EXPECT_EQ(0, std::memcmp(&before, &fru, sizeof fru));
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// Reading and writing FRU devices: raw I2C behind a multiplexer or not, the
// sysfs EEPROM file, chunking and pacing, and the facts other daemons
// publish.
#include "fru_sim_test.h"

#include <fcntl.h>
#include <unistd.h>

using namespace kv::fru::test;
namespace
{

using testing::ContainsRegex;
using FruDevice = FruBoard;

constexpr long long kChunkPause = 10000;
constexpr long long kWriteCycle = 5000;
constexpr long long kSysfsPause = 100000;

TEST_F(FruDevice, RawReadTakesTheChannelAndReleasesIt)
{
    set_device_memory(16, 0x51, 0x104, {1, 2, 3, 4, 5, 6, 7, 8});
    const kv_fru_device d = behind_mux(512, 0x100);
    Bytes got(8);
    EXPECT_EQ(2, read_fru_data(&d, 4, 8, got.data()));
    EXPECT_EQ((Bytes{1, 2, 3, 4, 5, 6, 7, 8}), got);
    EXPECT_THAT(wire_log(), ElementsAre(sent(13, 0x70, {0x00, 0x01}),
                                        sent(13, 0x51, {0x01, 0x04}),
                                        received(13, 0x51, got, true)));
    EXPECT_EQ(0, mux_lock());
}

TEST_F(FruDevice, BusyChannelAndRefusedDeviceLeaveTheBusAlone)
{
    uint8_t byte = 0;
    mux_lock() = 1; // another process holds a channel of this multiplexer
    kv_fru_device d = behind_mux();
    d.mux_channel = 3;
    EXPECT_EQ(KV_CC_NODE_BUSY, read_fru_data(&d, 0, 1, &byte));
    EXPECT_EQ(KV_CC_NODE_BUSY, write_fru_data(&d, 0, 1, &byte));
    EXPECT_EQ(1, mux_lock());

    for (kv_fru_device refused : {behind_mux(), direct()})
    {
        refused.state = KV_FRU_STATE_REFUSED;
        EXPECT_EQ(-1, read_fru_data(&refused, 0, 1, &byte));
        EXPECT_EQ(-1, write_fru_data(&refused, 0, 1, &byte));
    }
    EXPECT_THAT(wire_log(), IsEmpty());
}

TEST_F(FruDevice, FailedRawReadIsLogged)
{
    fail_address(3, 0x50, ENXIO);
    const kv_fru_device d = direct();
    Bytes got(8);
    EXPECT_EQ(-1, read_fru_data(&d, 0x20, 8, got.data()));
    EXPECT_THAT(
        error_lines(),
        ElementsAre(ContainsRegex(
            "i2c read fru data failed channel=3 address=80 offset=32\\. "
            "mkfifo:[0-9]+ read_fru_data$")));
}

TEST_F(FruDevice, ImageIsWrittenInPacedChunksOfEight)
{
    install(4, behind_mux(512, 0x40));
    for (uint32_t i = 0; i < 21; ++i)
    {
        bmc_fru_date[i] = static_cast<uint8_t>(0xA0 + i);
    }
    bmc_fru_len = 21;
    deviceid = -1;
    EXPECT_EQ(0, write_to_fru(4));
    EXPECT_EQ(4, deviceid);

    const Bytes memory = device_memory(16, 0x51);
    EXPECT_EQ(Bytes(bmc_fru_date, bmc_fru_date + 21),
              Bytes(memory.begin() + 0x40, memory.begin() + 0x40 + 21));
    // Every byte is one EEPROM write cycle; chunks 8 + 8 + 5, the tail
    // without a pause after it.
    std::vector<long long> expected(8, kWriteCycle);
    expected.push_back(kChunkPause);
    expected.insert(expected.end(), 8, kWriteCycle);
    expected.push_back(kChunkPause);
    expected.insert(expected.end(), 5, kWriteCycle);
    EXPECT_EQ(expected, recorded_sleeps());
    // The channel is taken once per chunk.
    const auto log = wire_log();
    EXPECT_EQ(3, std::count(log.begin(), log.end(), sent(13, 0x70, {0, 1})));
    EXPECT_EQ(0, mux_lock());
}

TEST_F(FruDevice, WholeDeviceIsReadInChunksOfEight)
{
    set_device_memory(16, 0x51, 0, Bytes(24, 0x5A));
    Bytes got(24 + 8, 0);
    EXPECT_EQ(0, get_fru_bin(behind_mux(20), got.data()));
    EXPECT_EQ(Bytes(24, 0x5A), Bytes(got.begin(), got.begin() + 24));
    EXPECT_EQ(0, got[24]);
    EXPECT_EQ(std::vector<long long>(3, kChunkPause), recorded_sleeps());
}

TEST_F(FruDevice, WriteToFruNeedsATableEntry)
{
    EXPECT_EQ(-1, write_to_fru(-1));
    EXPECT_EQ(-1, write_to_fru(1 << 30));
}

// A part that cannot be opened behind the multiplexer (its address does not
// bind) fails the write with the cause in errno, gives the channel back and
// leaves no bus open (the fixture checks that).
TEST_F(FruDevice, PartThatDoesNotOpenBehindTheMuxGivesEverythingBack)
{
    kv_fru_device d = behind_mux();
    d.address = 0xC0; // beyond 7 bits: the bind is refused
    const uint8_t byte = 0x42;
    errno = 0;
    EXPECT_EQ(-1, write_fru_data(&d, 0, 1, &byte));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(0, mux_lock());
    EXPECT_THAT(wire_log(), ElementsAre(sent(13, 0x70, {0x00, 0x01})));
}

// The cause of a failed access survives the log line, the retries and the
// pauses between them.
TEST_F(FruDevice, FailedAccessLeavesItsCauseInErrno)
{
    Bytes got(4);
    fail_address(3, 0x50, EIO);
    const kv_fru_device raw = direct();
    errno = 0;
    EXPECT_EQ(-1, read_fru_data(&raw, 0, 4, got.data()));
    EXPECT_EQ(EIO, errno);

    kv_fru_device sysfs = direct();
    sysfs.method = KV_FRU_ACCESS_SYSFS;
    errno = 0;
    EXPECT_EQ(-1, read_fru_data(&sysfs, 0, 4, got.data()));
    EXPECT_EQ(ENOENT, errno);
    errno = 0;
    EXPECT_EQ(-1, write_fru_data(&sysfs, 0, 4, got.data()));
    EXPECT_EQ(ENOENT, errno);
    // A file that ends before the read does reports no error of its own.
    write_text("/sys/class/i2c-dev/i2c-3/device/3-0050/eeprom", "ab");
    errno = 0;
    EXPECT_EQ(-1, read_fru_data(&sysfs, 0, 4, got.data()));
    EXPECT_EQ(EIO, errno);
}

// Whether write_fru_data leaves descriptor 0 of the process open.
bool keeps_descriptor_zero(kv_fru_device d)
{
    return kv::test::exit_status_of([&] {
               const int fd = ::open("/dev/null", O_RDONLY);
               if (fd < 0 || ::dup2(fd, 0) != 0)
               {
                   return 2;
               }
               const uint8_t byte = 0x42;
               write_fru_data(&d, 0, 1, &byte);
               return ::fcntl(0, F_GETFD) == 0 ? 0 : 1;
           }) == 0;
}

TEST_F(FruDevice, DescriptorZeroIsClosedOnlyByDirectAndUnknownDevices)
{
    kv_fru_device unknown = direct();
    unknown.method = 9;
    kv_fru_device sysfs = direct();
    sysfs.method = KV_FRU_ACCESS_SYSFS;
    kv_fru_device refused = direct();
    refused.state = KV_FRU_STATE_REFUSED;

    EXPECT_FALSE(keeps_descriptor_zero(direct()));
    EXPECT_FALSE(keeps_descriptor_zero(unknown));
    EXPECT_TRUE(keeps_descriptor_zero(behind_mux()));
    EXPECT_TRUE(keeps_descriptor_zero(sysfs));
    EXPECT_TRUE(keeps_descriptor_zero(refused));
    // The direct write itself went through.
    EXPECT_EQ(0x42, device_memory(3, 0x50)[0]);
}

TEST_F(FruDevice, WholeImageReachesADirectDeviceDespiteTheClosedDescriptor)
{
    // Each chunk closes descriptor 0; the next chunk must still find the
    // part, whether the caller started with descriptor 0 open or closed.
    for (const bool open_at_start : {true, false})
    {
        EXPECT_EQ(0, kv::test::exit_status_of([&] {
                      install(5, direct(512));
                      for (uint32_t i = 0; i < 21; ++i)
                      {
                          bmc_fru_date[i] =
                              static_cast<uint8_t>(0x60 + i + open_at_start);
                      }
                      bmc_fru_len = 21;
                      if (!open_at_start)
                      {
                          ::close(0);
                      }
                      write_to_fru(5);
                      const Bytes memory = device_memory(3, 0x50);
                      return Bytes(bmc_fru_date, bmc_fru_date + 21) ==
                                     Bytes(memory.begin(), memory.begin() + 21)
                                 ? 0
                                 : 1;
                  }))
            << (open_at_start ? "descriptor 0 open" : "descriptor 0 closed");
    }
}

class SysfsFru : public FruBoard
{
  protected:
    kv_fru_device device(bool mux)
    {
        kv_fru_device d = mux ? behind_mux(512, 2) : direct(512);
        d.method = KV_FRU_ACCESS_SYSFS;
        return d;
    }
};

TEST_F(SysfsFru, ReadsAndWritesTheDriversFile)
{
    // Channel map, counted from 1: the descriptor's channel 0 is bus 16.
    write_text("/var/run/obmcinfo/i2c/i2c-13-1", "16\n");
    const std::string behind =
        "/sys/class/i2c-dev/i2c-13/device/i2c-16/16-0051/eeprom";
    const std::string plain = "/sys/class/i2c-dev/i2c-3/device/3-0050/eeprom";
    write_text(behind, "0123456789");
    write_text(plain, "abcdefghij");

    Bytes got(3);
    const kv_fru_device mux = device(true);
    EXPECT_EQ(0, read_fru_data(&mux, 1, 3, got.data())); // base 2 + 1
    EXPECT_EQ((Bytes{'3', '4', '5'}), got);
    const kv_fru_device no_mux = device(false);
    EXPECT_EQ(0, write_fru_data(&no_mux, 8, 2, got.data()));
    EXPECT_EQ("abcdefgh34", read_text(plain));
    EXPECT_THAT(wire_log(), IsEmpty());
    EXPECT_THAT(recorded_sleeps(), IsEmpty());
}

TEST_F(SysfsFru, RetriesReadsButNotOpensForWriting)
{
    const kv_fru_device d = device(false);
    Bytes got(4);
    // Missing file: five attempts, no pauses, for reading; one for writing.
    EXPECT_EQ(-1, read_fru_data(&d, 0, 4, got.data()));
    EXPECT_EQ(-1, write_fru_data(&d, 0, 4, got.data()));
    EXPECT_THAT(recorded_sleeps(), IsEmpty());

    // A file too short for the read: each failed read pauses.
    write_text("/sys/class/i2c-dev/i2c-3/device/3-0050/eeprom", "ab");
    EXPECT_EQ(-1, read_fru_data(&d, 0, 4, got.data()));
    EXPECT_EQ(std::vector<long long>(5, kSysfsPause), recorded_sleeps());
}

TEST_F(FruDevice, PublishedFacts)
{
    write_text("/var/run/obmcinfo/GUID", "6b1f0a6e-guid\n");
    write_text("/var/run/obmcinfo/fruinfo",
               "Product Serial: S1\nProduct Asset Tag : AT-77\n");
    char guid[64];
    std::memset(guid, 'x', sizeof guid);
    char tag[32] = {};
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

} // namespace

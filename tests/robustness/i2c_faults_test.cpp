// SPDX-License-Identifier: Apache-2.0
// Every call that talks to the board's I2C devices, under a NAK or a bus
// error on its device and under a failure of each of its transfers in turn:
// it gives its failure result and leaves no descriptor or channel lock.
#include "hw_test.h"
#include "ipc/platform_segment.h"

#include <libkv/fru.h>
#include <libkv/ipc.h>
#include <libkv/platform.h>

#include <fcntl.h>
#include <unistd.h>

#include <set>

using namespace kv::hw::test;
namespace
{

// How a fault changes the result: it is `failed`; or the call tries five
// times, so one failed transfer is made good; or a failed channel selection
// (transfer 1) is answered as such; or the errno; or the address scan.
enum How
{
    kAlways,
    kRetried,
    kSelection,
    kErrno,
    kScan
};

struct Case
{
    const char* name;
    int bus; // the device that the address faults hit
    uint8_t address;
    int (*call)();
    int undisturbed;
    int failed;
    How how = kAlways;
};

int on_bus(int bus, int (*use)(int fd))
{
    BusHandle handle(bus);
    return use(handle.fd());
}

int on_eeprom(const char* dev, int type, int (*use)(eeprom*))
{
    eeprom part{};
    if (eeprom_open(dev, 0x50, type, &part) != 0)
    {
        return -1000;
    }
    const int result = use(&part);
    eeprom_close(&part);
    return result;
}

kv_fru_device fru_device(int bus, uint8_t address, bool behind_mux)
{
    kv_fru_device d{};
    d.method = KV_FRU_ACCESS_I2C;
    d.size[1] = 0x02; // 512 bytes
    d.offset_width = 2;
    d.bus = static_cast<uint8_t>(bus);
    d.address = address;
    d.behind_mux = behind_mux;
    d.mux_address = behind_mux ? 0x70 : 0;
    return d;
}

const kv_fru_device direct_fru = fru_device(3, 0x50, false);
const kv_fru_device mux_fru = fru_device(13, 0x51, true);
uint8_t scratch[16] = {0x5a};

const Case cases[] = {
    {"i2c_read_data", 11, 0x3f,
     [] {
         return on_bus(11, [](int fd) {
             return i2c_read_data(fd, 0x3f, 0, 1, scratch, 2);
         });
     },
     2, -1},
    {"i2c_write_data", 11, 0x3f,
     [] {
         return on_bus(11, [](int fd) {
             return i2c_write_data(fd, 0x3f, 0x40, 1, scratch, 1);
         });
     },
     1, -1},
    // 0x3f is the 64th address probed.
    {"check_slave_active", 1, 0x3f,
     [] {
         return on_bus(1, [](int fd) { return check_slave_active(fd, 0x3f); });
     },
     1, 0, kScan},
    {"set_9546switch", 13, 0x70, [] { return set_9546switch(13, 0x70, 2); }, 0,
     KV_I2C_ATTEMPTS_FAILED, kRetried},
    {"switch_channel_request", 13, 0x70,
     [] {
         return on_bus(13, [](int fd) {
             const int answer = switch_channel_request(fd, 13, 1, 0x70, 1);
             if (answer == KV_CC_OK)
             {
                 switch_channel_request(fd, 13, 1, 0x70, 0);
             }
             return answer;
         });
     },
     KV_CC_OK, KV_CC_UNSPECIFIED},
    {"CPLDModuleReadDatas", 11, 0x3f,
     [] { return CPLDModuleReadDatas(0, scratch, 2); }, KV_CPLD_OK,
     KV_CPLD_READ_FAILED, kRetried},
    {"CPLDModuleWriteDatas", 11, 0x3f,
     [] { return CPLDModuleWriteDatas(0x40, scratch, 1); }, KV_CPLD_OK,
     KV_CPLD_WRITE_FAILED, kRetried},
    {"write_cpld_reg", 5, 0x3f,
     [] { return write_cpld_reg(5, 0, 0x3f, 0x40, 1); }, KV_CPLD_OK,
     KV_CPLD_BAD_REQUEST},
    {"read_chassis_type", 1, 0x3f, [] { return read_chassis_type(); }, 2, 1},
    {"eeprom_read_byte", 2, 0x50,
     [] {
         return on_eeprom("/dev/i2c-2", 1,
                          [](eeprom* e) { return eeprom_read_byte(e, 0); });
     },
     0x01, 0, kErrno},
    {"eeprom_write_byte", 3, 0x50,
     [] {
         return on_eeprom("/dev/i2c-3", 2, [](eeprom* e) {
             return eeprom_write_byte(e, 0x0123, 0xab);
         });
     },
     0, 0, kErrno},
    {"f2p_backpalne_detect", 5, 0x3f,
     [] { return f2p_backpalne_detect(0, 0, 5, 0x3f, 0); }, KV_BACKPLANE_OK,
     KV_BACKPLANE_READ_FAILED},
    {"backplane_board_handler", 1, 0x3f,
     [] { return backplane_board_handler("10p0", 14, 1, 0x3f, 0); },
     KV_BACKPLANE_OK, KV_BACKPLANE_READ_FAILED},
    // The card detectors skip what does not answer; the IO-expander one
    // fails only when the module CPLD cannot be read at all.
    {"mp2_card_detect", 20, 0x23, mp2_card_detect, 0, 0},
    {"iox_present_detect", 11, 0x3f, iox_present_detect, 0, 128, kRetried},
    {"riser_card_detect", 25, 0x23, riser_card_detect, 0, 0},
    {"read_fru_data", 3, 0x50,
     [] { return read_fru_data(&direct_fru, 0x10, 8, scratch); }, 2, -1},
    {"read_fru_data behind a multiplexer", 16, 0x51,
     [] { return read_fru_data(&mux_fru, 0x10, 8, scratch); }, 2, -1,
     kSelection},
    // A byte that fails five times is skipped: the write still gives 0.
    {"write_fru_data", 3, 0x50,
     [] { return write_fru_data(&direct_fru, 0x10, 4, scratch); }, 0, 0},
    {"write_fru_data behind a multiplexer", 16, 0x51,
     [] { return write_fru_data(&mux_fru, 0x10, 4, scratch); }, 0, 0,
     kSelection},
};

int expected(const Case& c, int error, unsigned nth)
{
    switch (c.how)
    {
        case kRetried:
            return nth != 0 ? 0 : c.failed;
        case kSelection:
            return nth == 1 ? KV_CC_UNSPECIFIED : c.failed;
        case kErrno:
            return -error;
        case kScan:
            return nth == 0 || nth == 0x40 ? 0 : 1;
        default:
            return c.failed;
    }
}

// Descriptors open, after giving back descriptor 0, which writing a FRU
// device without a multiplexer closes on purpose.
int open_descriptors()
{
    if (::fcntl(0, F_GETFD) < 0)
    {
        EXPECT_EQ(0, ::open("/dev/null", O_RDONLY));
    }
    return static_cast<int>(kv::test::names_in("/proc/self/fd").size());
}

// The multiplexers of the board whose channel lock is taken.
std::set<std::pair<int, int>> taken_channel_locks()
{
    const auto* segment = static_cast<const uint8_t*>(get_shm_address());
    std::set<std::pair<int, int>> taken;
    for (const BusInfo& bus : buses())
    {
        if (bus.parent >= 0 &&
            segment[kv::segment::channel_lock(bus.parent, bus.mux_address)])
        {
            taken.emplace(bus.parent, bus.mux_address);
        }
    }
    return taken;
}

TEST_F(SimBoard, EveryI2cCallFailsAsDocumentedAndLeavesNothingOpen)
{
    capture_sleeps(true); // retries and write cycles do not wait
    kv::test::make_dirs("/var/run/backplane");
    ASSERT_NE(init_shm(), nullptr);
    for (const Case& c : cases)
    {
        clear_faults();
        clear_wire_log();
        ASSERT_EQ(c.undisturbed, c.call()) << c.name << " without faults";
        const auto transfers = static_cast<unsigned>(wire_log().size());
        ASSERT_GT(transfers, 0u) << c.name;
        // nth 0: every transfer to the device fails.
        for (unsigned nth = 0; nth <= transfers; ++nth)
        {
            for (const int error : {ENXIO, EIO})
            {
                SCOPED_TRACE(std::string(c.name) + " error " +
                             std::to_string(error) + " on transfer " +
                             std::to_string(nth));
                clear_faults();
                if (nth == 0)
                {
                    fail_address(c.bus, c.address, error);
                }
                else
                {
                    fail_transfer(nth, error);
                }
                const int before = open_descriptors();
                EXPECT_EQ(expected(c, error, nth), c.call());
                EXPECT_EQ(before, open_descriptors()) << "descriptors";
                kv::sim::test::expect_no_bus_left_open();
                EXPECT_THAT(taken_channel_locks(), IsEmpty());
            }
        }
    }
}

} // namespace

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

using namespace kv::hw::test;
namespace
{

// How one failed transfer changes the result: not at all; the call tries
// five times and makes it good; a failed channel selection (transfer 1) is
// answered as such; it is the errno; or the address scan misses 0x3f only.
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
    int bus; // the device that the address faults hit
    uint8_t address;
    int (*call)();
    int undisturbed, failed;
    How how = kAlways;
};

// The EEPROM at 0x50 of bus 2 (one offset byte) gives byte 0; the one on
// bus 3 (two offset bytes) takes 0xab at 0x123.
int on_eeprom(int bus)
{
    eeprom e{};
    if (eeprom_open(("/dev/i2c-" + std::to_string(bus)).c_str(), 0x50, bus - 1,
                    &e) != 0)
    {
        return -1000;
    }
    const int result = bus == 2 ? eeprom_read_byte(&e, 0)
                                : eeprom_write_byte(&e, 0x0123, 0xab);
    eeprom_close(&e);
    return result;
}

// 512 bytes, two offset bytes: on bus 3, and behind channel 0 of 0x70.
const kv_fru_device direct_fru{
    0, 0, KV_FRU_ACCESS_I2C, {0, 2}, 0, 0, 0, 2, 0, 3, 0x50, 0, {}};
const kv_fru_device mux_fru{
    0, 0, KV_FRU_ACCESS_I2C, {0, 2}, 1, 0, 0x70, 2, 0, 13, 0x51, 0, {}};
uint8_t scratch[16] = {0x5a};

const Case cases[] = {
    {11, 0x3f,
     [] {
         BusHandle bus(11);
         return i2c_write_data(bus.fd(), 0x3f, 0x40, 1, scratch, 1);
     },
     1, -1},
    // 0x3f is the 64th address probed.
    {1, 0x3f,
     [] {
         BusHandle bus(1);
         return check_slave_active(bus.fd(), 0x3f);
     },
     1, 0, kScan},
    {13, 0x70, [] { return set_9546switch(13, 0x70, 2); }, 0,
     KV_I2C_ATTEMPTS_FAILED, kRetried},
    {13, 0x70,
     [] {
         BusHandle bus(13);
         const int answer = switch_channel_request(bus.fd(), 13, 1, 0x70, 1);
         if (answer == KV_CC_OK)
         {
             switch_channel_request(bus.fd(), 13, 1, 0x70, 0);
         }
         return answer;
     },
     KV_CC_OK, KV_CC_UNSPECIFIED},
    {5, 0x3f, [] { return write_cpld_reg(5, 0, 0x3f, 0x40, 1); }, KV_CPLD_OK,
     KV_CPLD_BAD_REQUEST},
    {1, 0x3f, read_chassis_type, 2, 1},
    {2, 0x50, [] { return on_eeprom(2); }, 0x01, 0, kErrno},
    {3, 0x50, [] { return on_eeprom(3); }, 0, 0, kErrno},
    // The card detectors skip what does not answer; the IO-expander one
    // fails only when the module CPLD cannot be read at all.
    {20, 0x23, mp2_card_detect, 0, 0},
    {11, 0x3f, iox_present_detect, 0, 128, kRetried},
    {25, 0x23, riser_card_detect, 0, 0},
    {3, 0x50, [] { return read_fru_data(&direct_fru, 0x10, 8, scratch); }, 2,
     -1},
    {16, 0x51, [] { return read_fru_data(&mux_fru, 0x10, 8, scratch); }, 2, -1,
     kSelection},
    // A byte that fails five times is skipped: the write still gives 0.
    {3, 0x50, [] { return write_fru_data(&direct_fru, 0x10, 4, scratch); }, 0,
     0},
    {16, 0x51, [] { return write_fru_data(&mux_fru, 0x10, 4, scratch); }, 0, 0,
     kSelection},
};

int expected(const Case& c, int error, unsigned nth)
{
    if (c.how == kErrno)
    {
        return -error;
    }
    if (nth == 0 || (c.how == kScan && nth == 0x40))
    {
        return c.failed;
    }
    return c.how == kRetried || c.how == kScan ? c.undisturbed
           : c.how == kSelection && nth == 1   ? KV_CC_UNSPECIFIED
                                               : c.failed;
}

// Descriptors open, after giving back descriptor 0, which writing a FRU
// device without a multiplexer closes on purpose.
int open_descriptors()
{
    if (::fcntl(0, F_GETFD) < 0)
    {
        EXPECT_EQ(0, ::open("/dev/null", O_RDONLY));
    }
    return static_cast<int>(names_in("/proc/self/fd").size());
}

TEST_F(SimBoard, EveryI2cCallFailsAsDocumentedAndLeavesNothingOpen)
{
    capture_sleeps(true); // retries and write cycles do not wait
    make_dirs("/var/run/backplane");
    const auto* segment = static_cast<const uint8_t*>(init_shm());
    for (const Case& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        clear_faults();
        clear_wire_log();
        ASSERT_EQ(c.undisturbed, c.call());
        const auto transfers = static_cast<unsigned>(wire_log().size());
        // nth 0: every transfer to the device fails.
        for (unsigned nth = 0; nth <= transfers; ++nth)
        {
            for (const int error : {ENXIO, EIO})
            {
                SCOPED_TRACE(testing::Message()
                             << "error " << error << " on transfer " << nth);
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
                for (const BusInfo& bus : buses())
                {
                    EXPECT_TRUE(bus.parent < 0 ||
                                !segment[kv::segment::channel_lock(
                                    bus.parent, bus.mux_address)])
                        << "channel lock of bus " << bus.number;
                }
            }
        }
    }
}

} // namespace

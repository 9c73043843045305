// SPDX-License-Identifier: Apache-2.0
// Every call that talks to the board's I2C devices, put through the three
// faults a bus shows: the device NAKs, the bus fails, or one transfer of the
// call fails (each in turn). Each gives its failure result, and none leaves
// a descriptor open or a multiplexer channel taken.
#include "hw_test.h"
#include "ipc/platform_segment.h"

#include <libkv/fru.h>
#include <libkv/ipc.h>
#include <libkv/platform.h>

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <set>
#include <string>

using namespace kv::hw::test;
namespace
{

struct Fault
{
    int error = 0;
    unsigned nth = 0; // 0: every transfer to the case's device fails
};

std::string describe(const Fault& fault)
{
    const std::string error = fault.error == ENXIO ? "NAK" : "EIO";
    return fault.nth == 0 ? error + " on the device"
                          : error + " on transfer " + std::to_string(fault.nth);
}

struct Case
{
    const char* name;
    int bus; // the device that the address faults hit
    uint8_t address;
    std::function<int()> call;
    int undisturbed;
    std::function<int(const Fault&)> expected;
};

std::function<int(const Fault&)> always(int result)
{
    return [result](const Fault&) { return result; };
}

// Five attempts: one failed transfer is made good by the next attempt.
std::function<int(const Fault&)> retried(int result)
{
    return [result](const Fault& f) { return f.nth != 0 ? 0 : result; };
}

// Behind a multiplexer the channel is selected first; a failed selection
// comes back as the channel request's answer.
std::function<int(const Fault&)> after_selection(int result)
{
    return [result](const Fault& f) {
        return f.nth == 1 ? KV_CC_UNSPECIFIED : result;
    };
}

template <typename Use>
int on_bus(int bus, Use use)
{
    BusHandle handle(bus);
    return use(handle.fd());
}

template <typename Use>
int on_eeprom(const char* dev, int type, Use use)
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
    d.behind_mux = behind_mux ? 1 : 0;
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
     2, always(-1)},
    {"i2c_write_data", 11, 0x3f,
     [] {
         return on_bus(11, [](int fd) {
             return i2c_write_data(fd, 0x3f, 0x40, 1, scratch, 1);
         });
     },
     1, always(-1)},
    {"check_slave_active", 1, 0x3f,
     [] {
         return on_bus(1, [](int fd) { return check_slave_active(fd, 0x3f); });
     },
     1,
     // Address 0x3f is the 64th probe of the scan.
     [](const Fault& f) { return f.nth == 0 || f.nth == 0x40 ? 0 : 1; }},
    {"set_9546switch", 13, 0x70, [] { return set_9546switch(13, 0x70, 2); }, 0,
     [](const Fault& f) { return f.nth != 0 ? 0 : KV_I2C_ATTEMPTS_FAILED; }},
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
     KV_CC_OK, always(KV_CC_UNSPECIFIED)},
    {"CPLDModuleReadDatas", 11, 0x3f,
     [] { return CPLDModuleReadDatas(0, scratch, 2); }, KV_CPLD_OK,
     retried(KV_CPLD_READ_FAILED)},
    {"CPLDModuleWriteDatas", 11, 0x3f,
     [] { return CPLDModuleWriteDatas(0x40, scratch, 1); }, KV_CPLD_OK,
     retried(KV_CPLD_WRITE_FAILED)},
    {"write_cpld_reg", 5, 0x3f,
     [] { return write_cpld_reg(5, 0, 0x3f, 0x40, 1); }, KV_CPLD_OK,
     always(KV_CPLD_BAD_REQUEST)},
    {"read_chassis_type", 1, 0x3f, [] { return read_chassis_type(); }, 2,
     always(1)},
    {"eeprom_read_byte", 2, 0x50,
     [] {
         return on_eeprom("/dev/i2c-2", 1,
                          [](eeprom* e) { return eeprom_read_byte(e, 0); });
     },
     0x01,
     // The address write fails and nothing is read, or the read fails.
     [](const Fault& f) { return -f.error; }},
    {"eeprom_write_byte", 3, 0x50,
     [] {
         return on_eeprom("/dev/i2c-3", 2, [](eeprom* e) {
             return eeprom_write_byte(e, 0x0123, 0xab);
         });
     },
     0, [](const Fault& f) { return -f.error; }},
    {"f2p_backpalne_detect", 5, 0x3f,
     [] { return f2p_backpalne_detect(0, 0, 5, 0x3f, 0); }, KV_BACKPLANE_OK,
     always(KV_BACKPLANE_READ_FAILED)},
    {"backplane_board_handler", 1, 0x3f,
     [] { return backplane_board_handler("10p0", 14, 1, 0x3f, 0); },
     KV_BACKPLANE_OK, always(KV_BACKPLANE_READ_FAILED)},
    // The card detectors skip what does not answer; the IO-expander one
    // fails only when the module CPLD cannot be read at all.
    {"mp2_card_detect", 20, 0x23, [] { return mp2_card_detect(); }, 0,
     always(0)},
    {"iox_present_detect", 11, 0x3f, [] { return iox_present_detect(); }, 0,
     retried(128)},
    {"riser_card_detect", 25, 0x23, [] { return riser_card_detect(); }, 0,
     always(0)},
    {"read_fru_data", 3, 0x50,
     [] { return read_fru_data(&direct_fru, 0x10, 8, scratch); }, 2,
     always(-1)},
    {"read_fru_data behind a multiplexer", 16, 0x51,
     [] { return read_fru_data(&mux_fru, 0x10, 8, scratch); }, 2,
     after_selection(-1)},
    // A byte that fails five times is skipped: the write still gives 0.
    {"write_fru_data", 3, 0x50,
     [] { return write_fru_data(&direct_fru, 0x10, 4, scratch); }, 0,
     always(0)},
    {"write_fru_data behind a multiplexer", 16, 0x51,
     [] { return write_fru_data(&mux_fru, 0x10, 4, scratch); }, 0,
     after_selection(0)},
};

int open_descriptors()
{
    const std::filesystem::directory_iterator fds("/proc/self/fd");
    return static_cast<int>(std::distance(begin(fds), end(fds)));
}

// The multiplexers of the board whose channel lock is taken.
std::set<std::pair<int, int>> taken_channel_locks()
{
    const auto* segment = static_cast<const uint8_t*>(get_shm_address());
    std::set<std::pair<int, int>> taken;
    for (const BusInfo& bus : buses())
    {
        if (bus.parent >= 0 &&
            segment[kv::segment::channel_lock(bus.parent, bus.mux_address)] !=
                0)
        {
            taken.emplace(bus.parent, bus.mux_address);
        }
    }
    return taken;
}

// Writing a FRU device without a multiplexer closes descriptor 0 on purpose;
// it is opened again so that the next call cannot be handed it for a bus and
// the counts compare.
void give_back_descriptor_zero()
{
    if (::fcntl(0, F_GETFD) < 0)
    {
        ASSERT_EQ(0, ::open("/dev/null", O_RDONLY));
    }
}

class I2cFaults : public SimBoard
{
  protected:
    void SetUp() override
    {
        SimBoard::SetUp();
        capture_sleeps(true); // retries and write cycles do not wait
        kv::test::make_dirs("/var/run/backplane");
        ASSERT_NE(init_shm(), nullptr);
        ASSERT_TRUE(taken_channel_locks().empty());
    }

    // Runs the case under the fault and checks what it gives and leaves.
    void run(const Case& c, const Fault& fault)
    {
        SCOPED_TRACE(std::string(c.name) + ", " + describe(fault));
        clear_faults();
        if (fault.nth == 0)
        {
            fail_address(c.bus, c.address, fault.error);
        }
        else
        {
            fail_transfer(fault.nth, fault.error);
        }
        give_back_descriptor_zero();
        const int before = open_descriptors();
        EXPECT_EQ(c.expected(fault), c.call());
        give_back_descriptor_zero();
        EXPECT_EQ(before, open_descriptors()) << "descriptors";
        kv::sim::test::expect_no_bus_left_open();
        EXPECT_THAT(taken_channel_locks(), IsEmpty());
    }
};

TEST_F(I2cFaults, EveryCallFailsAsDocumentedAndLeavesNothingOpen)
{
    for (const Case& c : cases)
    {
        clear_faults();
        clear_wire_log();
        ASSERT_EQ(c.undisturbed, c.call()) << c.name << " without faults";
        const auto transfers = static_cast<unsigned>(wire_log().size());
        ASSERT_GT(transfers, 0u) << c.name;
        for (const int error : {ENXIO, EIO})
        {
            run(c, {error, 0});
        }
        for (unsigned n = 1; n <= transfers; ++n)
        {
            run(c, {EIO, n});
        }
    }
}

} // namespace

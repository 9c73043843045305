// SPDX-License-Identifier: Apache-2.0
// CPLD registers with their retries, 24-series EEPROMs through libi2c, and
// record files under a file lock.
#include "hw_test.h"

#include <libkv/foundation.h>

#include <fcntl.h>
#include <sys/wait.h>

#include <climits>
#include <numeric>
#include <sstream>

using namespace kv::hw::test;
namespace
{

// CPLD registers take one to twenty bytes.
TEST_F(SimBoard, Cpld)
{
    BusHandle bus(11);
    const int fd = bus.fd();
    std::vector<uint8_t> data(22);
    std::iota(data.begin(), data.end(), 0x40);
    uint8_t back[20] = {};
    EXPECT_THAT(std::vector({CPLDModuleWriteRegister(fd, 0x40, &data[1], 21),
                             CPLDModuleWriteRegister(fd, 0x40, &data[1], 0),
                             CPLDModuleWriteRegister(fd, 0x40, nullptr, 1),
                             CPLDModuleReadDatas(0x40, data.data(), 21),
                             CPLDModuleWriteRegister(fd, 0x40, &data[1], 20),
                             CPLDModuleReadDatas(0x40, back, 20),
                             CPLDModuleWriteDatas(0x10, back + 1, 2)}),
                ElementsAre(2, 2, 2, 2, 0, 0, 0));
    data.resize(21);
    EXPECT_EQ(sent(11, 0x3f, data), wire_log().at(0));
    EXPECT_TRUE(std::equal(back, back + 20, &data[1]));
    EXPECT_EQ(0x42, device_memory(11, 0x3f)[0x10]);
}

// Five attempts a second apart, one log line, the last cause in errno.
TEST_F(SimBoard, CpldSilent)
{
    capture_sleeps(true);
    uint8_t buf[2] = {0xAA, 0xAA};
    for (const int cause : {ENXIO, EIO})
    {
        clear_wire_log();
        fail_address(11, 0x3f, cause);
        EXPECT_EQ(3, CPLDModuleReadDatas(0x05, buf, 2));
        EXPECT_EQ(cause, errno);
        EXPECT_EQ(std::vector(5, sent(11, 0x3f, {5}, false, cause)),
                  wire_log());
        EXPECT_EQ(4, CPLDModuleWriteDatas(0x07, buf, 1));
        EXPECT_EQ(cause, errno);
        clear_faults();
    }
    EXPECT_THAT(buf, ElementsAre(0xAA, 0xAA));
    EXPECT_EQ(std::vector<long long>(20, 1000000), recorded_sleeps());
    EXPECT_EQ(4, error_lines());
    // Success on the third attempt: two pauses, no log line.
    fail_transfer(1, EIO);
    fail_transfer(2, EIO);
    EXPECT_EQ(0, CPLDModuleReadDatas(0x00, buf, 2));
    EXPECT_THAT(buf, ElementsAre(0x01, 0x02));
    EXPECT_EQ(22u, recorded_sleeps().size());
    EXPECT_EQ(4, error_lines());
}

// A CPLD write goes to the bus or through the channel.
TEST_F(SimBoard, CpldWrite)
{
    EXPECT_EQ(0, write_cpld_reg(5, 0, 0x3f, 0x10, 0x55));
    write_text("/var/run/obmcinfo/i2c/i2c-13-4", "19\n");
    EXPECT_EQ(0, write_cpld_reg(13, 4, 0x3f, 0x1a, 0x0e));
    EXPECT_THAT(wire_log(), ElementsAre(sent(5, 0x3f, {0x10, 0x55}),
                                        sent(19, 0x3f, {0x1a, 0x0e})));
    fail_address(19, 0x3f, ENXIO);
    EXPECT_EQ(2, write_cpld_reg(13, 4, 0x3f, 0x1a, 0x0f));
    EXPECT_EQ(1, write_cpld_reg(40, 0, 0x3f, 0x10, 0x55));
}

// Counts the lowest bits, with the sign bit from 32 up.
TEST(Cpld, OddParity)
{
    for (auto [value, bits, result] : {std::tuple{0x7, 3, 0},
                                       {0x3, 3, 4},
                                       {0x7, 2, 4},
                                       {0xFF, 0, 4},
                                       {INT_MIN, 32, 0},
                                       {INT_MIN, 33, 4},
                                       {-1, 33, 0},
                                       {-2, 255, 4}})
    {
        EXPECT_EQ(result, odd_check(value, bits)) << value << " " << bits;
    }
}

// From the result file or CPLD register 0.
TEST_F(SimBoard, ChassisType)
{
    for (auto [type, chassis] : {std::pair{0x0E, 2}, {0xEE, 2}, {0x0F, 1}})
    {
        set_device_memory(1, 0x3f, 0, {uint8_t(type)});
        EXPECT_EQ(chassis, read_chassis_type()) << type;
    }
    write_text("/var/run/backplane/10p0.json", "{}");
    EXPECT_EQ(2, read_chassis_type());
    EXPECT_EQ(6u, wire_log().size());
}

TEST_F(SimBoard, Eeprom)
{
    capture_sleeps(true);
    eeprom e{}, b{};
    ASSERT_EQ(0, eeprom_open("/dev/i2c-3", 0x50, 2, &e));
    ASSERT_EQ(0, eeprom_open("/dev/i2c-2", 0x50, 1, &b));
    EXPECT_THAT(
        std::vector(
            {eeprom_write_byte(&e, 0x0123, 0xAB), eeprom_read_byte(&e, 0x0123),
             eeprom_read_byte(&e, 0x0000), eeprom_read_current_byte(&e),
             eeprom_write_byte(&b, 0x0110, 0x5A), eeprom_read_byte(&b, 0x10)}),
        ElementsAre(0, 0xAB, 0x01, 0x00, 0, 0x5A));
    EXPECT_THAT(wire_log(),
                ElementsAre(sent(3, 0x50, {1, 0x23, 0xAB}),
                            sent(3, 0x50, {1, 0x23}), received(3, 0x50, {0xAB}),
                            sent(3, 0x50, {0, 0}), received(3, 0x50, {1}),
                            received(3, 0x50, {0}), sent(2, 0x50, {0x10, 0x5A}),
                            sent(2, 0x50, {0x10}), received(2, 0x50, {0x5A})));
    EXPECT_EQ(std::vector<long long>(5, 5000), recorded_sleeps());
    b.type = 3;
    EXPECT_THAT(
        std::vector({eeprom_read_byte(&b, 0x10), eeprom_write_byte(&b, 0x10, 1),
                     int(wire_log().size()), eeprom_close(&b)}),
        ElementsAre(-1, -1, 9, 0));
    EXPECT_TRUE(b.fd == -1 && b.dev == nullptr && b.type == 0);
    eeprom_close(&e);
    EXPECT_EQ(-1, eeprom_open("/tmp/no-such-bus", 0x50, 1, &e));
    load_board(kv::sim::test::write_board(R"({"buses": [{"bus": 3,
        "without": ["smbus_write_word_data", "smbus_read_byte_data"],
        "devices": [{"type": "eeprom", "address": "0x50", "size": 256}]}]})"));
    EXPECT_EXIT(eeprom_open("/dev/i2c-3", 0x50, 2, &e),
                testing::ExitedWithCode(1),
                "I2C_FUNC_SMBUS_READ_BYTE_DATA function is required");
}

const char* const record = "/tmp/nvr/record";

// Read from zero, write at an offset, create when missing.
TEST(RecordFiles, ReadWrite)
{
    write_text(record, "ABCDEFGH");
    uint8_t buf[8] = {0xAA};
    EXPECT_EQ(0, API_ReadNVR("/tmp/nvr/new", 0, 4, buf));
    EXPECT_EQ("", read_text("/tmp/nvr/new"));
    EXPECT_EQ(0xAA, buf[0]);
    // Mode 7 writes too.
    EXPECT_THAT(std::vector({API_ReadNVR("/tmp/no-dir/record", 0, 4, buf),
                             API_ReadNVR(record, 100, 4, buf),
                             ReadWriteNVR(record, buf, 0, 20, 2),
                             API_WriteNVR(record, 3, 2, buf),
                             ReadWriteNVR(record, buf, 9, 1, 7),
                             API_WriteNVR("/tmp/nvr/new", 4, 2, buf)}),
                ElementsAre(-1, 4, 8, 2, 1, 2));
    EXPECT_EQ(std::string("ABCABFGH\0A", 10), read_text(record));
    EXPECT_EQ(std::string("\0\0\0\0AB", 6), read_text("/tmp/nvr/new"));
}

// Whether the kernel lists `pid` as waiting for a lock ("->").
bool waits_for_lock(pid_t pid)
{
    std::istringstream locks(read_text("/proc/locks").value_or(""));
    for (std::string line; std::getline(locks, line);)
    {
        if (line.find("->") != line.npos &&
            line.find(" " + std::to_string(pid) + " ") != line.npos)
        {
            return true;
        }
    }
    return false;
}

// A reader waits while a writer holds the lock.
TEST(RecordFiles, Lock)
{
    write_text(record, "old!");
    const int fd = ::open(record, O_RDWR);
    ASSERT_EQ(0, file_lock_write(fd));
    const pid_t child = ::fork();
    if (child == 0)
    {
        uint8_t buf[4] = {};
        API_ReadNVR(record, 0, 4, buf);
        _exit(std::string(buf, buf + 4) == "new!" ? 0 : 1);
    }
    // Write once the kernel lists the child as waiting for the lock.
    for (int i = 0; i < 2000 && !waits_for_lock(child); ++i)
    {
        ::usleep(10000);
    }
    ASSERT_EQ(4, ::pwrite(fd, "new!", 4, 0));
    ::close(fd);
    int status = 1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// CPLD registers: one-message writes, five attempts with a pause after each
// failure and one log line, writes behind a multiplexer channel, the parity
// helper and the chassis type.
#include "hw_test.h"

#include <climits>
#include <numeric>

using namespace kv::hw::test;
namespace
{

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using Cpld = SimBoard;

TEST_F(Cpld, RegistersTakeOneToTwentyBytesAfterTheOffset)
{
    BusHandle module(11);
    std::vector<uint8_t> data(21);
    std::iota(data.begin(), data.end(), 0xA0);
    EXPECT_EQ(2, CPLDModuleWriteRegister(module.fd(), 0x40, data.data(), 21));
    EXPECT_EQ(2, CPLDModuleWriteRegister(module.fd(), 0x40, data.data(), 0));
    EXPECT_EQ(2, CPLDModuleWriteRegister(module.fd(), 0x40, nullptr, 1));
    EXPECT_THAT(wire_log(), IsEmpty());

    EXPECT_EQ(0, CPLDModuleWriteRegister(module.fd(), 0x40, data.data(), 20));
    data.insert(data.begin(), 0x40);
    data.pop_back();
    EXPECT_THAT(wire_log(), ElementsAre(sent(11, 0x3f, data)));
    uint8_t back[20] = {};
    EXPECT_EQ(0, CPLDModuleReadDatas(0x40, back, 20));
    EXPECT_TRUE(std::equal(back, back + 20, data.begin() + 1));
    EXPECT_EQ(0, CPLDModuleWriteDatas(0x10, back, 2));
    EXPECT_EQ(0xA1, device_memory(11, 0x3f)[0x11]);
}

TEST_F(Cpld, SilentCpldCostsFiveAttemptsFivePausesAndOneLogLine)
{
    capture_sleeps(true);
    fail_address(11, 0x3f, ENXIO);
    uint8_t buf[2] = {0xAA, 0xAA};
    EXPECT_EQ(3, CPLDModuleReadDatas(0x05, buf, 2));
    EXPECT_THAT(buf, ElementsAre(0xAA, 0xAA));
    EXPECT_EQ(std::vector(5, sent(11, 0x3f, {0x05}, false, ENXIO)), wire_log());
    EXPECT_EQ(std::vector<long long>(5, 1000000), recorded_sleeps());
    EXPECT_EQ(4, CPLDModuleWriteDatas(0x07, buf, 1));
    EXPECT_EQ(10u, recorded_sleeps().size());
    const auto lines = error_lines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_THAT(lines[0], AllOf(HasSubstr("-Read cpld register failed "
                                          "address=63 offset=5. cpld-rw-reg:"),
                                EndsWith(" CPLDModuleReadRegister")));
    EXPECT_THAT(lines[1], AllOf(HasSubstr("-Write cpld register failed "
                                          "address=63 offset=7. cpld-rw-reg:"),
                                EndsWith(" CPLDModuleWriteRegister")));
}

// The log line and the pauses in between do not hide why the last attempt
// failed.
TEST_F(Cpld, FailedRegisterAccessLeavesTheLastAttemptsCauseInErrno)
{
    capture_sleeps(true);
    uint8_t byte = 0;
    for (const int cause : {ENXIO, EIO})
    {
        clear_faults();
        fail_address(11, 0x3f, cause);
        errno = 0;
        EXPECT_EQ(3, CPLDModuleReadDatas(0x05, &byte, 1));
        EXPECT_EQ(cause, errno);
        errno = 0;
        EXPECT_EQ(4, CPLDModuleWriteDatas(0x05, &byte, 1));
        EXPECT_EQ(cause, errno);
    }
    EXPECT_EQ(4u, error_lines().size());
}

TEST_F(Cpld, ReadSucceedingOnTheThirdAttemptPausesTwice)
{
    capture_sleeps(true);
    fail_transfer(1, EIO);
    fail_transfer(2, EIO);
    uint8_t version[2] = {};
    EXPECT_EQ(0, CPLDModuleReadDatas(0x00, version, 2));
    EXPECT_THAT(version, ElementsAre(0x01, 0x02));
    EXPECT_EQ(std::vector<long long>(2, 1000000), recorded_sleeps());
    EXPECT_EQ(4u, wire_log().size());
    EXPECT_THAT(error_lines(), IsEmpty());
}

TEST_F(Cpld, RegisterWriteGoesToTheBusOrThroughTheChannel)
{
    EXPECT_EQ(0, write_cpld_reg(5, 0, 0x3f, 0x10, 0x55));
    write_text("/var/run/obmcinfo/i2c/i2c-13-4", "19\n");
    EXPECT_EQ(0, write_cpld_reg(13, 4, 0x3f, 0x1a, 0x0e));
    EXPECT_EQ(0x0e, device_memory(19, 0x3f)[0x1a]);
    EXPECT_EQ(0x08, mux_control(13, 0x70));
    EXPECT_THAT(wire_log(), ElementsAre(sent(5, 0x3f, {0x10, 0x55}),
                                        sent(19, 0x3f, {0x1a, 0x0e})));

    // The log names the caller's bus and ends in a space.
    fail_address(19, 0x3f, ENXIO);
    EXPECT_EQ(2, write_cpld_reg(13, 4, 0x3f, 0x1a, 0x0f));
    EXPECT_EQ(1, write_cpld_reg(40, 0, 0x3f, 0x10, 0x55));
    const auto lines = error_lines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_THAT(lines[0], AllOf(HasSubstr("-i2c rw data failed bus=13, "
                                          "address=63 offset=26. "
                                          "back-plane-mgt:"),
                                EndsWith(" write_cpld_reg ")));
}

TEST(OddParity, CountsTheLowestBitsWithTheSignBitFromThirtyTwoUp)
{
    EXPECT_EQ(0, odd_check(0x7, 3));
    EXPECT_EQ(4, odd_check(0x3, 3));
    EXPECT_EQ(4, odd_check(0x7, 2));
    EXPECT_EQ(4, odd_check(0xFF, 0));
    EXPECT_EQ(4, odd_check(INT_MIN, 33));
    EXPECT_EQ(0, odd_check(-1, 33));
    EXPECT_EQ(4, odd_check(-2, 255));
}

TEST_F(Cpld, ChassisTypeFromResultFileOrCpldRegisterZero)
{
    EXPECT_EQ(2, read_chassis_type());
    EXPECT_THAT(wire_log(), ElementsAre(sent(1, 0x3f, {0x00}),
                                        received(1, 0x3f, {0x0e}, true)));
    set_device_memory(1, 0x3f, 0, {0xEE});
    EXPECT_EQ(2, read_chassis_type());
    set_device_memory(1, 0x3f, 0, {0x0F});
    EXPECT_EQ(1, read_chassis_type());
    fail_address(1, 0x3f, ENXIO);
    EXPECT_EQ(1, read_chassis_type());
    ASSERT_EQ(1u, error_lines().size());
    EXPECT_THAT(error_lines()[0],
                AllOf(HasSubstr("-i2c rw data failed bus=1, address=63 "
                                "offset=0. misc:"),
                      EndsWith(" read_chassis_type")));

    write_text("/var/run/backplane/10p0.json", "{}");
    clear_wire_log();
    EXPECT_EQ(2, read_chassis_type());
    EXPECT_THAT(wire_log(), IsEmpty());
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// The simulator's own contract: the i2c-dev calls with the kernel's return
// conventions, the wire log, faults, sleeps and board files. The device
// models are driven through the library by its board suites.
#include "sim_fixture.h"
#include "test_helpers.h"

#include <gtest/gtest-spi.h>
#include <time.h>

#include <chrono>

namespace kv::sim::test
{

using namespace testing;
using Sim = ExampleBoard;
using Clock = std::chrono::steady_clock;
using kv::test::exit_status_of;
using Bytes = std::vector<uint8_t>;

// One I2C_RDWR request.
int rdwr(int fd, std::vector<i2c_msg> m)
{
    i2c_rdwr_ioctl_data request{m.data(), uint32_t(m.size())};
    return ::ioctl(fd, I2C_RDWR, &request);
}

i2c_msg msg(uint16_t address, Bytes& bytes, uint16_t flags = I2C_M_RD)
{
    return {address, flags, uint16_t(bytes.size()), bytes.data()};
}

// Register 0 of `address`, read after a repeated start.
int read0(int fd, uint16_t address)
{
    Bytes byte{0};
    return rdwr(fd, {msg(address, byte, 0), msg(address, byte)});
}

TEST(NoBoard, NothingIsSimulated)
{
    EXPECT_EQ(ENOENT, ERRNO_OF(::open("/dev/i2c-11", O_RDWR)));
    EXPECT_THROW(device_memory(11, 0x3f), std::out_of_range);
    // kvsim: 2 for a usage error, 127 for a command it cannot run.
    EXPECT_EQ("2 127\n", kv::test::run_shell(
                             "exec 2>&-; " KVSIM_TOOL " -x; a=$?; " KVSIM_TOOL
                             " " KVSIM_EXAMPLE_BOARD " /; echo $a $?")
                             .output);
}

// A closed bus, and a bus's number taken over behind the simulator's back
// (dup2), belong to the system again; a bus left open fails the test. The
// ioctls keep the i2c-dev driver's limits.
TEST_F(Sim, DescriptorsAndIoctls)
{
    for (auto path : {"/dev/i2c-4", "/dev/i2c-011", "/dev/i2c-", "/dev/i2c-1x"})
        EXPECT_EQ(ENOENT, ERRNO_OF(::open(path, O_RDWR))) << path;
    const int at = ::openat(AT_FDCWD, "/dev/i2c-1", O_RDWR | O_CLOEXEC);
    const int on = ::open("/dev/i2c-11", O_RDWR), null = ::open("/dev/null", 0);
    // Only `at` closes on exec.
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(at, F_GETFD) - ::fcntl(on, F_GETFD));
    char c;
    EXPECT_EQ(EBADF, ::close(at) ? -1 : ERRNO_OF(::read(at, &c, 1)));
    ASSERT_EQ(on, ::dup2(null, on));
    EXPECT_FALSE(::read(on, &c, 1) || ::close(on) || ::close(null));
    const int left = ::dup(BusHandle(16).fd());
    EXPECT_THAT(open_buses(), ElementsAre(FieldsAre(left, 16)));
    EXPECT_NONFATAL_FAILURE(expect_no_bus_left_open(), "i2c-16 was left open");
    BusHandle bus(11);
    const int fd = bus.fd();
    Bytes zero{0}, byte{0x55}, whole(8192), too_long(8193);
    // No device has a 10-bit address, not even one of a 7-bit one's value.
    const std::tuple<long, long, int> calls[] = {
        {I2C_SLAVE, 0x80, EINVAL}, {I2C_SLAVE_FORCE, 0x7f, 0},
        {I2C_PEC, 1, ENOTTY},      {I2C_FUNCS, 0, EFAULT},
        {I2C_TENBIT, 1, 0},        {I2C_SLAVE, 0x400, EINVAL},
        {I2C_SLAVE, 0x3f, 0}};
    for (auto [request, argument, error] : calls)
        EXPECT_EQ(error, ERRNO_OF(::ioctl(fd, request, argument))) << request;
    EXPECT_EQ(ENXIO, ERRNO_OF(::write(fd, "", 0)));
    ::ioctl(fd, I2C_TENBIT, 0);
    // A request stops at its first failing message and hands back no data.
    EXPECT_EQ(ENXIO, ERRNO_OF(rdwr(fd, {msg(0x3f, zero, 0), msg(0x3f, byte),
                                        msg(0x20, zero), msg(0x3f, zero)})));
    EXPECT_EQ(0x55, byte[0]);
    EXPECT_THAT(wire_log(),
                ElementsAre(_, _, _, Transfer{11, 0x20, 1, 1, ENXIO, 1, {}}));
    for (const auto& many : {std::vector<i2c_msg>{},
                             std::vector(43, msg(0x3f, byte)),
                             {msg(0x3f, too_long)}})
        EXPECT_EQ(EINVAL, ERRNO_OF(rdwr(fd, many)));
    i2c_rdwr_ioctl_data none{nullptr, 1};
    EXPECT_EQ(EINVAL, ERRNO_OF(::ioctl(fd, I2C_RDWR, &none)));
    EXPECT_EQ(42, rdwr(fd, std::vector(42, msg(0x3f, byte))));
    EXPECT_EQ(1, rdwr(fd, {msg(0x3f, whole)}));
}

// Memory comes from hex strings, lists, files beside the board file (each
// from offset 0) and single bytes. SMBus transactions go on the wire as the
// kernel emulates them on a plain I2C adapter; those a bus (or its parent)
// lacks are refused.
TEST_F(Sim, BoardMemoryAndSmbus)
{
    kv::test::write_text("/tmp/b/f", "\x01\x02\x03");
    load_board(write_board(R"({"buses": [{"bus": 4, "devices": [
        {"type": "eeprom", "address": 81, "size": "0x400",
         "contents": "de adBE EF", "file": "f",
         "bytes": {"0x3ff": 7, "1": "0x20"}}]},
        {"bus": 8, "without": ["i2c", "smbus_write_word_data"], "devices": [
            {"type": "cpld", "address": 63,
             "contents": [239, "0xbe", 0, 0, 120, 86, 0, 33]},
            {"type": "pca9546", "address": 112,
             "channels": [20, 21, 22, 23]}]}]})",
                           "b/board.json"));
    BusHandle eeprom(4), bus(8), channel(20);
    const int e = eeprom.fd(), fd = bus.fd(), ch = channel.fd();
    ASSERT_FALSE(::ioctl(e, I2C_SLAVE, 0x51) || ::write(e, "", 0) ||
                 ::ioctl(fd, I2C_SLAVE, 0x3f) || ::ioctl(ch, I2C_SLAVE, 0x3f));
    // A part larger than 256 bytes defaults to 2-byte addressing.
    Bytes got(5);
    ASSERT_EQ(5, ::write(e, "\x03\xff", 2) == 2 ? ::read(e, got.data(), 5) : 0);
    EXPECT_THAT(got, ElementsAre(7, 1, 0x20, 3, 0xef));
    EXPECT_THAT(
        (std::vector{i2c_smbus_write_word_data(ch, 0, 1),
                     ERRNO_OF(::write(fd, "", 0)), ERRNO_OF(read0(fd, 0x3f))}),
        ElementsAre(-EOPNOTSUPP, EOPNOTSUPP, EOPNOTSUPP));
    const uint8_t data[] = {0x11, 0x22, 0x33};
    i2c_smbus_write_block_data(fd, 0x60, 2, data);
    i2c_smbus_write_i2c_block_data(fd, 0x70, 3, data);
    // Words go low byte first; a byte read reads on from the last command.
    EXPECT_THAT((std::vector{i2c_smbus_read_word_data(fd, 0),
                             i2c_smbus_read_byte_data(fd, 0)}),
                ElementsAre(0xbeef, 0xef));
    clear_wire_log();
    uint8_t block[32] = {};
    EXPECT_THAT((std::vector{i2c_smbus_read_byte(fd),
                             i2c_smbus_write_quick(fd, I2C_SMBUS_WRITE),
                             i2c_smbus_process_call(fd, 2, 0x1234),
                             i2c_smbus_read_block_data(fd, 0x60, block)}),
                ElementsAre(0xbe, 0, 0x5678, 2));
    EXPECT_THAT(wire_log(),
                ElementsAre(received(8, 0x3f, {0xbe}), sent(8, 0x3f, {}),
                            sent(8, 0x3f, {2, 0x34, 0x12}),
                            received(8, 0x3f, {0x78, 0x56}, true),
                            sent(8, 0x3f, {0x60}),
                            received(8, 0x3f, {2, 0x11, 0x22}, true)));
    EXPECT_EQ(2, i2c_smbus_read_i2c_block_data(fd, 0x71, 2, block));
    EXPECT_THAT(std::vector(block, block + 3), ElementsAre(0x22, 0x33, 0));
    // The old i2c block request always reads a full block.
    i2c_smbus_data full{};
    EXPECT_EQ(0, i2c_smbus_access(fd, I2C_SMBUS_READ, 0x70,
                                  I2C_SMBUS_I2C_BLOCK_BROKEN, &full));
    EXPECT_EQ(32, full.block[0]);
    // Block lengths 0 and 33.
    for (int command : {6, 7})
        EXPECT_EQ(-EPROTO, i2c_smbus_read_block_data(fd, command, block));
    clear_wire_log();
    full.block[0] = 33;
    const int refused[][3] = {
        {I2C_SMBUS_WRITE, I2C_SMBUS_BLOCK_DATA, EINVAL},
        {I2C_SMBUS_READ, I2C_SMBUS_I2C_BLOCK_DATA, EINVAL},
        {I2C_SMBUS_READ, 99, EINVAL},
        {2, I2C_SMBUS_BYTE, EINVAL},
        {I2C_SMBUS_WRITE, I2C_SMBUS_BLOCK_PROC_CALL, EOPNOTSUPP}};
    for (const auto& [direction, size, error] : refused)
        EXPECT_EQ(-error, i2c_smbus_access(fd, direction, 0, size, &full));
    EXPECT_EQ(-EINVAL, i2c_smbus_access(fd, I2C_SMBUS_READ, 0,
                                        I2C_SMBUS_BYTE_DATA, nullptr));
    EXPECT_TRUE(wire_log().empty());
}

// A device's fault also holds when it is reached through its multiplexer's
// bus; a multiplexer that does not answer takes its channels with it.
TEST_F(Sim, FaultsAndTheWireLog)
{
    BusHandle parent(13);
    const int fd = parent.fd();
    fail_address(16, 0x51, EIO);
    uint8_t control = 0;
    ASSERT_EQ(0, ::ioctl(fd, I2C_SLAVE, 0x70));
    ASSERT_EQ(1, ::write(fd, "\x01", 1));
    EXPECT_EQ(1, mux_control(13, 0x70));
    EXPECT_EQ(1, ::read(fd, &control, 1) == 1 ? control : -1);
    EXPECT_THROW(mux_control(11, 0x3f), std::invalid_argument);
    EXPECT_EQ(EIO, ERRNO_OF(read0(fd, 0x51)));
    EXPECT_EQ(sent(13, 0x51, {0}, false, EIO), wire_log().back());
    fail_address(13, 0x70, ENXIO);
    EXPECT_EQ(ENXIO, ERRNO_OF(read0(BusHandle(19).fd(), 0x3f)));
    clear_faults();
    EXPECT_THROW(fail_transfer(0, EIO), std::invalid_argument);
    // The log keeps the latest few thousand, oldest first.
    for (uint16_t i = 0; i < 5000; ++i)
        ::write(fd, &i, 2);
    const auto log = wire_log();
    ASSERT_LT(log.size(), 5000u);
    for (std::size_t i = 0, n = 5000 - log.size(); i < log.size(); ++i, ++n)
        ASSERT_EQ(sent(13, 0x70, {uint8_t(n), uint8_t(n >> 8)}), log[i]);
}

// Captured sleeps return at once, recorded in microseconds; a forked child's
// transfers and sleeps land on its parent's board. A board loaded by another
// process reaches this one at its next call, and sleeps are taken again.
TEST_F(Sim, SleepsAndOtherProcesses)
{
    capture_sleeps(true);
    const auto start = Clock::now();
    const timespec twenty{0, 20'000'000}, one{1, 500}, bad{0, 1'000'000'000};
    timespec deadline{};
    ::clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += 3;
    EXPECT_FALSE(
        ::sleep(2) || ::nanosleep(&twenty, nullptr) ||
        ::clock_nanosleep(CLOCK_MONOTONIC, 0, &one, nullptr) ||
        ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr));
    EXPECT_EQ(EINVAL, ERRNO_OF(::nanosleep(&bad, nullptr)));
    EXPECT_EQ(EINVAL, ::clock_nanosleep(CLOCK_MONOTONIC, 0, &bad, nullptr));
    ASSERT_EQ(0, exit_status_of([] {
                  read0(BusHandle(11).fd(), 0x3f);
                  return ::usleep(1'000'000);
              }));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(2u, wire_log().size());
    EXPECT_THAT(recorded_sleeps(),
                ElementsAre(2'000'000, 20'000, 1'000'000,
                            AllOf(Gt(2'900'000), Le(3'000'000)), 1'000'000));
    fail_address(1, 0x3f, EIO);
    ASSERT_EQ(0, exit_status_of([] {
                  load_board(KVSIM_EXAMPLE_BOARD);
                  return 0;
              }));
    BusHandle cpld(1);
    EXPECT_FALSE(::ioctl(cpld.fd(), I2C_SLAVE, 0x3f) ||
                 ::write(cpld.fd(), "", 0));
    EXPECT_EQ(1u, wire_log().size());
    const auto again = Clock::now();
    EXPECT_FALSE(::usleep(20'000) || ::nanosleep(&twenty, nullptr));
    EXPECT_GE(Clock::now() - again, std::chrono::milliseconds(40));
}

// Reading a board names the file and the place of a mistake in it; laying it
// out refuses what no board can be. Entries without "buses" are devices on
// bus 1.
TEST(BoardFiles, MistakesAreNamed)
{
    const std::string fru = R"({"buses": [], "fru_devices": [{"id": 0,
        "bus": 3, "address": 80, "size": 8, "method": )";
    const std::pair<std::string, const char*> mistakes[] = {
        {R"({"x": 1, "buses": 1})", "json: unk"},
        {R"({"type": "fpga"})", ".type"},
        {R"({"type": "cpld", "address": 128})", ".address"},
        {R"({"type": "eeprom", "address": 1, "size": 1, "contents": "0102"})",
         "contents: larg"},
        {R"({"type": "cpld", "address": 1, "contents": "012"})",
         "contents: exp"},
        {R"({"type": "cpld", "address": 1, "bytes": {"256": 1}})", "bytes.256"},
        {R"({"type": "eeprom", "address": 1})", "size\" is"},
        {R"({"buses": [{"bus": 1, "without": ["i2c", "pec"]}]})", "without[1]"},
        {R"({"type": "cpld", "address": 1, "file": "x"})", ".file"},
        {R"({"buses": )", "json: not v"},
        {fru + R"("smbus"}]})", "[0].method"},
        {fru + R"("i2c"}, {"id": 0, "bus": 2, "address": 80, "size": 8,
            "method": "i2c"}]})",
         "[1].id: used"},
        {R"({"buses": [{"bus": 1}, {"bus": 1}]})", "bus 1 is d"},
        {R"({"type": "cpld", "address": 1}, {"type": "cpld", "address": 1})",
         "taken"},
        {R"({"type": "pca9546", "address": 1, "channels": [2, 3, 4]})",
         "4 channels"},
        {R"({"type": "pca9546", "address": 1, "channels": [2, 3, 4, 2]})",
         "bus 2 is d"},
        {R"({"type": "eeprom", "address": 1, "size": 512, "address_bytes": 1})",
         "fit"},
        {R"({"type": "pca9546", "address": 1, "channels": [2, 3, 4, 5]}]},
            {"bus": 2, "devices": [{"type": "pca9546", "address": 2,
            "channels": [1, 6, 7, 8]})",
         "loop"},
    };
    for (const auto& [json, place] : mistakes)
        EXPECT_THAT(
            [&] {
                load_board(
                    write_board(json.find("buses") != json.npos
                                    ? json
                                    : R"({"buses": [{"bus": 1, "devices": [)" +
                                          json + "]}]}"));
            },
            ThrowsMessage<std::exception>(HasSubstr(place)))
            << json;
    EXPECT_THROW(load_board("/no/board.json"), std::runtime_error);
    EXPECT_THROW(
        load_board(Board{{}, {{DeviceType::eeprom, 9, 0x50, {0}, 1, {}}}, {}}),
        std::invalid_argument);
}

} // namespace kv::sim::test

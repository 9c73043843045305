// SPDX-License-Identifier: Apache-2.0
// The simulator's own contract: the i2c-dev calls with the kernel's return
// conventions, the wire log, faults, sleeps, board files and kvsim. The
// device models are driven through the library by its board suites.
#include "sim_fixture.h"
#include "test_helpers.h"

#include <gtest/gtest-spi.h>
#include <time.h>

#include <chrono>
#include <filesystem>

namespace kv::sim::test
{

using Sim = ExampleBoard;
using Clock = std::chrono::steady_clock;
using kv::test::run_shell;

TEST(NoBoard, NothingIsSimulated)
{
    EXPECT_EQ(ENOENT, ERRNO_OF(::open("/dev/i2c-11", O_RDWR)));
    EXPECT_THROW(device_memory(11, 0x3f), std::out_of_range);
}

// A closed bus, and a bus's number taken over behind the simulator's back
// (dup2), belong to the system again; a bus left open fails the test.
TEST_F(Sim, DescriptorsAreBusesUntilClosed)
{
    for (const char* path :
         {"/dev/i2c-4", "/dev/i2c-011", "/dev/i2c-", "/dev/i2c-1x"})
    {
        EXPECT_EQ(ENOENT, ERRNO_OF(::open(path, O_RDWR))) << path;
    }
    EXPECT_EQ(0, ::fcntl(BusHandle(1).fd(), F_GETFD) & FD_CLOEXEC);
    const int at = ::openat(AT_FDCWD, "/dev/i2c-1", O_RDWR | O_CLOEXEC);
    EXPECT_NE(0, ::fcntl(at, F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(0, ::close(at));
    char text[4] = {};
    EXPECT_EQ(EBADF, ERRNO_OF(::read(at, text, 1)));
    const int file = ::open("/tmp/empty", O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(at, file);
    const int bus = ::open("/dev/i2c-11", O_RDWR);
    ASSERT_EQ(bus, ::dup2(file, bus));
    EXPECT_EQ(0, ::read(bus, text, 4));
    EXPECT_EQ(0, ::close(bus) + ::close(file));
    const int left = ::dup(BusHandle(16).fd());
    EXPECT_THAT(open_buses(), ElementsAre(testing::FieldsAre(left, 16)));
    EXPECT_NONFATAL_FAILURE(expect_no_bus_left_open(), "i2c-16 was left open");
    EXPECT_EQ(EBADF, ERRNO_OF(::fcntl(left, F_GETFD)));
}

// A request stops at its first failing message and hands back no data.
TEST_F(Sim, IoctlsKeepTheDriversLimits)
{
    BusHandle bus(11);
    const int fd = bus.fd();
    std::vector<uint8_t> zero{0}, byte{0x55}, whole(8192), too_long(8193);
    // Unbound, a descriptor addresses 0, where nothing answers.
    EXPECT_EQ(ENXIO, ERRNO_OF(::read(fd, zero.data(), 1)));
    EXPECT_EQ(EINVAL, ERRNO_OF(bus.bind(0x80)));
    EXPECT_EQ(0, ::ioctl(fd, I2C_SLAVE_FORCE, 0x7f));
    EXPECT_EQ(ENOTTY, ERRNO_OF(::ioctl(fd, I2C_PEC, 1)));
    EXPECT_EQ(EFAULT, ERRNO_OF(::ioctl(fd, I2C_FUNCS, nullptr)));
    ASSERT_EQ(0, ::ioctl(fd, I2C_TENBIT, 1));
    EXPECT_EQ(EINVAL, ERRNO_OF(bus.bind(0x400)));
    // No device has a 10-bit address, not even one of a 7-bit one's value.
    EXPECT_EQ(ENXIO, probe(bus, 0x3f));
    ASSERT_EQ(0, ::ioctl(fd, I2C_TENBIT, 0));
    EXPECT_EQ(ENXIO,
              ERRNO_OF(combined(
                  fd, {write_message(0x3f, zero), read_message(0x3f, byte),
                       read_message(0x20, zero), read_message(0x3f, zero)})));
    EXPECT_EQ(0x55, byte[0]);
    EXPECT_THAT(wire_log(),
                ElementsAre(failed_read(11, 0, 1, ENXIO),
                            sent(11, 0x3f, {}, false, ENXIO),
                            sent(11, 0x3f, {0}), received(11, 0x3f, {1}, true),
                            failed_read(11, 0x20, 1, ENXIO, true)));
    for (const auto& many : {std::vector<i2c_msg>{},
                             std::vector(43, read_message(0x3f, byte)),
                             {read_message(0x3f, too_long)}})
    {
        EXPECT_EQ(EINVAL, ERRNO_OF(combined(fd, many)));
    }
    i2c_rdwr_ioctl_data no_messages{nullptr, 1};
    EXPECT_EQ(EINVAL, ERRNO_OF(::ioctl(fd, I2C_RDWR, &no_messages)));
    EXPECT_EQ(42, combined(fd, std::vector(42, read_message(0x3f, byte))));
    EXPECT_EQ(1, combined(fd, {read_message(0x3f, whole)}));
}

// SMBus transactions go on the wire as the kernel emulates them on a plain
// I2C adapter; those a bus (or its parent) does not offer are refused.
TEST_F(Sim, SmbusIsEmulatedAsTheKernelDoes)
{
    load_board(write_board(R"({"buses": [
        {"bus": 7, "without": ["smbus_write_word_data"], "devices": [
            {"type": "pca9546", "address": 112, "channels": [20, 21, 22, 23]}]},
        {"bus": 8, "without": ["i2c"], "devices": [
            {"type": "cpld", "address": 63, "bytes": {"66": 120, "67": 86}}]}]})"));
    BusHandle bus(8), channel(20);
    const int fd = bus.fd();
    ASSERT_EQ(0, bus.bind(0x3f) + channel.bind(0x70));
    EXPECT_EQ(-EOPNOTSUPP, i2c_smbus_write_word_data(channel.fd(), 0, 1));
    EXPECT_EQ(0, i2c_smbus_write_byte_data(channel.fd(), 0, 1));
    EXPECT_EQ(EOPNOTSUPP, ERRNO_OF(::write(fd, "", 0)));
    EXPECT_EQ(EOPNOTSUPP, ERRNO_OF(read_register(bus, 0x3f)));
    // Words go low byte first; a byte read reads on from the last command.
    EXPECT_EQ(0, i2c_smbus_write_word_data(fd, 0x30, 0xbeef));
    EXPECT_EQ(0xbeef, i2c_smbus_read_word_data(fd, 0x30));
    EXPECT_EQ(0xef, i2c_smbus_read_byte_data(fd, 0x30));
    clear_wire_log();
    EXPECT_EQ(0xbe, i2c_smbus_read_byte(fd));
    EXPECT_EQ(0, i2c_smbus_write_quick(fd, I2C_SMBUS_WRITE));
    EXPECT_EQ(0x5678, i2c_smbus_process_call(fd, 0x40, 0x1234));
    EXPECT_THAT(wire_log(),
                ElementsAre(received(8, 0x3f, {0xbe}), sent(8, 0x3f, {}),
                            sent(8, 0x3f, {0x40, 0x34, 0x12}),
                            received(8, 0x3f, {0x78, 0x56}, true)));
    const uint8_t data[] = {0x11, 0x22, 0x33};
    EXPECT_EQ(0, i2c_smbus_write_block_data(fd, 0x60, 2, data));
    EXPECT_EQ(0, i2c_smbus_write_i2c_block_data(fd, 0x70, 3, data));
    uint8_t block[I2C_SMBUS_BLOCK_MAX] = {};
    ASSERT_EQ(2, i2c_smbus_read_block_data(fd, 0x60, block));
    EXPECT_EQ(received(8, 0x3f, {2, 0x11, 0x22}, true), wire_log().back());
    EXPECT_EQ(2, i2c_smbus_read_i2c_block_data(fd, 0x71, 2, block));
    EXPECT_THAT(std::vector(block, block + 3), ElementsAre(0x22, 0x33, 0));
    // The old i2c block request always reads a full block.
    i2c_smbus_data full{};
    EXPECT_EQ(0, i2c_smbus_access(fd, I2C_SMBUS_READ, 0x70,
                                  I2C_SMBUS_I2C_BLOCK_BROKEN, &full));
    EXPECT_EQ(I2C_SMBUS_BLOCK_MAX, full.block[0]);
    EXPECT_EQ(0x33, full.block[3]);
    for (uint8_t bad_length : {0, I2C_SMBUS_BLOCK_MAX + 1})
    {
        set_device_memory(8, 0x3f, 0x60, {bad_length});
        EXPECT_EQ(-EPROTO, i2c_smbus_read_block_data(fd, 0x60, block));
    }
    clear_wire_log();
    full.block[0] = I2C_SMBUS_BLOCK_MAX + 1;
    const int refused[][3] = {
        {I2C_SMBUS_WRITE, I2C_SMBUS_BLOCK_DATA, EINVAL},
        {I2C_SMBUS_READ, I2C_SMBUS_I2C_BLOCK_DATA, EINVAL},
        {I2C_SMBUS_READ, 99, EINVAL},
        {2, I2C_SMBUS_BYTE, EINVAL},
        {I2C_SMBUS_WRITE, I2C_SMBUS_BLOCK_PROC_CALL, EOPNOTSUPP}};
    for (const auto& [direction, size, error] : refused)
    {
        EXPECT_EQ(-error, i2c_smbus_access(fd, direction, 0, size, &full));
    }
    EXPECT_EQ(-EINVAL, i2c_smbus_access(fd, I2C_SMBUS_READ, 0,
                                        I2C_SMBUS_BYTE_DATA, nullptr));
    EXPECT_TRUE(wire_log().empty());
}

// The library's suites use faults on the device's own bus; here a device's
// fault also holds when it is reached through its multiplexer's bus.
TEST_F(Sim, FaultsAndTheWireLog)
{
    BusHandle parent(13);
    fail_address(16, 0x51, EIO);
    ASSERT_EQ(0, parent.bind(0x70));
    ASSERT_TRUE(send(parent, {0x01}));
    EXPECT_EQ(1, mux_control(13, 0x70));
    EXPECT_THAT(receive(parent, 1), ElementsAre(1));
    EXPECT_THROW(mux_control(11, 0x3f), std::invalid_argument);
    EXPECT_EQ(EIO, ERRNO_OF(read_register(parent, 0x51)));
    EXPECT_EQ(sent(13, 0x51, {0}, false, EIO), wire_log().back());
    // A multiplexer that does not answer takes its channels with it.
    fail_address(13, 0x70, ENXIO);
    EXPECT_EQ(ENXIO, ERRNO_OF(read_register(BusHandle(19), 0x3f)));
    clear_faults();
    EXPECT_THROW(fail_transfer(0, EIO), std::invalid_argument);
    // Long transfers keep their length and first bytes; the log keeps the
    // latest few thousand, oldest first.
    std::vector<uint8_t> bytes(600, 0x5a);
    bytes[0] = bytes[511] = 0;
    ASSERT_TRUE(send(parent, bytes));
    EXPECT_EQ(600u, wire_log().back().length);
    EXPECT_EQ(std::vector(bytes.begin(), bytes.begin() + 512),
              wire_log().back().bytes);
    constexpr int count = 5000;
    for (int i = 0; i < count; ++i)
    {
        ASSERT_TRUE(send(parent, {uint8_t(i), uint8_t(i >> 8)}));
    }
    const std::vector<Transfer> log = wire_log();
    ASSERT_GE(log.size(), 1000u);
    ASSERT_LT(log.size(), std::size_t{count});
    for (std::size_t i = 0; i < log.size(); ++i)
    {
        const int n = count - static_cast<int>(log.size() - i);
        ASSERT_EQ(sent(13, 0x70, {uint8_t(n), uint8_t(n >> 8)}), log[i]);
    }
}

// Captured sleeps return at once, recorded in microseconds; a forked child's
// transfers and sleeps land on its parent's board. Loading a board starts
// over for everyone, sleeps taken again.
TEST_F(Sim, SleepsAndForkedChildren)
{
    set_device_memory(11, 0x3f, 0x40, {0x4b});
    capture_sleeps(true);
    const auto start = Clock::now();
    EXPECT_EQ(0u, ::sleep(2));
    const timespec quarter{0, 250'000'000}, one{1, 500}, bad{0, 1'000'000'000};
    EXPECT_EQ(0, ::nanosleep(&quarter, nullptr));
    EXPECT_EQ(0, ::clock_nanosleep(CLOCK_MONOTONIC, 0, &one, nullptr));
    timespec deadline{};
    ::clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += 3;
    EXPECT_EQ(0, ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline,
                                   nullptr));
    EXPECT_EQ(EINVAL, ERRNO_OF(::nanosleep(&bad, nullptr)));
    EXPECT_EQ(EINVAL, ::clock_nanosleep(CLOCK_MONOTONIC, 0, &bad, nullptr));
    ASSERT_EQ(0, kv::test::exit_status_of([] {
                  uint8_t value = 0;
                  BusHandle bus(11);
                  return read_register(bus, 0x3f, 0x40, &value) == 2 &&
                                 value == 0x4b
                             ? ::usleep(1'000'000)
                             : 1;
              }));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(2u, wire_log().size());
    EXPECT_THAT(recorded_sleeps(),
                ElementsAre(2'000'000, 250'000, 1'000'000,
                            testing::AllOf(testing::Gt(2'900'000),
                                           testing::Le(3'000'000)),
                            1'000'000));
    fail_address(1, 0x3f, EIO);
    load_board(example_board);
    EXPECT_TRUE(wire_log().empty());
    EXPECT_EQ(
        0, kv::test::exit_status_of([] { return probe(BusHandle(1), 0x3f); }));
    const auto again = Clock::now();
    const timespec pause{0, 20'000'000};
    EXPECT_EQ(0, ::usleep(20'000) + ::nanosleep(&pause, nullptr));
    EXPECT_GE(Clock::now() - again, std::chrono::milliseconds(40));
    EXPECT_TRUE(recorded_sleeps().empty());
}

TEST(BoardFiles, MemoryComesFromHexListsFilesAndSingleBytes)
{
    kv::test::write_text("/tmp/b/fru.bin", "\x01\x02\x03");
    load_board(write_board(R"({"buses": [{"bus": 4, "devices": [
        {"type": "eeprom", "address": "0x50", "size": 5, "contents": "de adBE ef"},
        {"type": "eeprom", "address": 81, "size": "0x400", "file": "fru.bin",
         "bytes": {"0x3ff": 7, "1": "0x20"}},
        {"type": "cpld", "address": "0x3f", "contents": [1, "0x02", 3]}]}]})",
                           "b/board.json"));
    EXPECT_THAT(device_memory(4, 0x50),
                ElementsAre(0xde, 0xad, 0xbe, 0xef, 0xff));
    EXPECT_EQ(3, device_memory(4, 0x3f)[2]);
    // A part larger than 256 bytes defaults to 2-byte addressing.
    BusHandle bus(4);
    ASSERT_EQ(0, probe(bus, 0x51));
    ASSERT_TRUE(send(bus, {0x03, 0xff}));
    EXPECT_THAT(receive(bus, 3), ElementsAre(7, 1, 0x20));
}

// Reading a board names the file and the place of a mistake in it; laying it
// out refuses what no board can be.
TEST(BoardFiles, MistakesAreNamed)
{
    const std::string on1 = R"({"buses": [{"bus": 1, "devices": [)";
    const std::string fru = R"({"buses": [], "fru_devices": [{"id": 0,
        "bus": 3, "address": 80, "size": 8, "method": )";
    const std::pair<std::string, const char*> mistakes[] = {
        {R"({"buses": [{"bus": 1, "devise": []}]})", "json: buses[0]: unkn"},
        {on1 + R"({"type": "fpga", "address": 1}]}]})", "devices[0].type: "},
        {on1 + R"({"address": 128, "type": "cpld"}]}]})", "[0].address: "},
        {on1 + R"({"type": "eeprom", "address": 80, "size": 4,
            "contents": "0102030405"}]}]})",
         "contents: "},
        {on1 + R"({"type": "eeprom", "address": 80, "size": 4,
            "contents": "012"}]}]})",
         "contents: "},
        {on1 + R"({"type": "cpld", "address": 80, "bytes": {"256": 1}}]}]})",
         "bytes.256: "},
        {on1 + R"({"type": "eeprom", "address": 80}]}]})", "\"size\" is miss"},
        {R"({"buses": [{"bus": 1, "without": ["i2c", "smbus_pec"]}]})",
         "without[1]: "},
        {on1 + R"({"type": "eeprom", "address": 80, "size": 8,
            "file": "missing.bin"}]}]})",
         "devices[0].file: "},
        {R"({"buses": [{"bus": 1)", "json: not valid JSON"},
        {fru + R"("i2c", "mux": {"address": 112, "channel": 8}}]})",
         "mux.channel: "},
        {fru + R"("smbus"}]})", "fru_devices[0].method: "},
        {fru + R"("i2c"}, {"id": 0, "bus": 2, "address": 80, "size": 8,
            "method": "i2c"}]})",
         "fru_devices[1].id: used twice"},
        {R"({"buses": [{"bus": 1}, {"bus": 1}]})", "bus 1 is declared twice"},
        {on1 + R"({"type": "cpld", "address": 63},
            {"type": "eeprom", "address": 63, "size": 8}]}]})",
         "taken"},
        {on1 +
             R"({"type": "pca9546", "address": 112, "channels": [2, 3, 4]}]}]})",
         "4 channels"},
        {on1 + R"({"type": "pca9546", "address": 112,
            "channels": [2, 3, 4, 2]}]}]})",
         "bus 2 is declared twice"},
        {on1 + R"({"type": "eeprom", "address": 80, "size": 512,
            "address_bytes": 1}]}]})",
         "fit"},
        {R"({"buses": [{"bus": 20, "devices": [{"type": "pca9546",
            "address": 112, "channels": [21, 22, 23, 24]}]},
            {"bus": 21, "devices": [{"type": "pca9546", "address": 113,
            "channels": [20, 25, 26, 27]}]}]})",
         "loop"},
    };
    for (const auto& [json, place] : mistakes)
    {
        EXPECT_THAT(
            [&] { load_board(write_board(json)); },
            testing::ThrowsMessage<std::exception>(testing::HasSubstr(place)))
            << json;
    }
    Board orphan;
    orphan.devices.push_back(
        {DeviceType::cpld, 9, 0x3f, std::vector<uint8_t>(256), 1, {}});
    EXPECT_THROW(load_board(orphan), std::invalid_argument);
}

const std::string kvsim = KVSIM_TOOL " " + example_board + " ";

// Programs of one run share its board and the channel map files; each run
// has a board of its own, apart from its caller's. i2ctransfer sends one
// I2C_RDWR request, as libkv does.
TEST(Kvsim, ProgramsOfOneRunShareTheBoard)
{
    EXPECT_EQ("0xa5\n19\n0x08\n0x08\n",
              run_shell(kvsim + "-- /bin/sh -c 'set -e; " KVSIM_I2CSET
                                " -y 11 0x3f 5 0xa5; " KVSIM_I2CGET
                                " -y 11 0x3f 5; cat /var/run/obmcinfo/i2c/"
                                "i2c-13-4; " KVSIM_I2CTRANSFER
                                " -y 19 w1@0x3f 0 r1; " KVSIM_I2CGET
                                " -y 13 0x70'")
                  .output);
    load_board(example_board);
    EXPECT_EQ("0x00\n", run_shell(kvsim + KVSIM_I2CGET " -y 11 0x3f 5").output);
    EXPECT_TRUE(wire_log().empty());
    const std::pair<std::string, int> uses[] = {
        {KVSIM_TOOL, 2},
        {kvsim, 2},
        {kvsim + "--", 2},
        {KVSIM_TOOL " --help true", 2},
        {KVSIM_TOOL " /nonexistent/board.json true", 1},
        {kvsim + "/nonexistent/program", 127}};
    for (const auto& [command, status] : uses)
    {
        EXPECT_EQ(status, run_shell(command).status) << command;
    }
}

// Both tools cover /tmp and /dev/shm with fresh ones of their own: a build
// folder there stays visible (build.ninja marks one; kvsim finds libkvsim and
// libkv beside it), a file directly in /tmp is named with cause and fix.
TEST(Kvsim, ToolsKeepWhatTheyRunVisible)
{
    namespace fs = std::filesystem;
    for (const std::string build : {"/tmp/kvb", "/dev/shm/kvb"})
    {
        for (const auto& [from, to] : {std::pair{KVSIM_TOOL, "/tools/kvsim"},
                                       {KVSANDBOX_TOOL, "/tools/kvsandbox"},
                                       {KVSIM_LIBRARY, "/sim/libkvsim.so"},
                                       {KV_LIBRARY, "/libkv.so.1"},
                                       {KVSIM_I2CGET, "/bin/i2cget"}})
        {
            fs::create_directories(fs::path(build + to).parent_path());
            fs::copy_file(from, build + to);
        }
        kv::test::write_text(build + "/build.ninja", "# marker\n");
        EXPECT_EQ(
            "0x01\n# marker\n",
            run_shell("cd / && (" + build + "/tools/kvsim " + example_board +
                      " -- " + build + "/bin/i2cget -y 11 0x3f 0 && " + build +
                      "/tools/kvsandbox -- cat " + build + "/build.ninja) 2>&1")
                .output);
    }
    fs::copy_file(KVSIM_LIBRARY, "/tmp/libkvsim.so");
    fs::copy_file(KVSIM_I2CGET, "/tmp/i2cget");
    const std::string fix = ": the sandbox's fresh /tmp hides it; move it "
                            "into a folder below /tmp, or out of /tmp\n";
    EXPECT_EQ("kvsim: cannot preload /tmp/libkvsim.so" + fix,
              run_shell("cd / && LD_LIBRARY_PATH=/tmp " + kvsim +
                        "-- /tmp/kvb/bin/i2cget -y 11 0x3f 0 2>&1")
                  .output);
    EXPECT_EQ(
        "kvsandbox: cannot run /tmp/i2cget" + fix,
        run_shell("cd / && " KVSANDBOX_TOOL " -- /tmp/i2cget -V 2>&1").output);
}

} // namespace kv::sim::test

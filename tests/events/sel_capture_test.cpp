// SPDX-License-Identifier: Apache-2.0
// Sensor events into the SEL hand-off slots, the text SEL log with its move
// to the SD card at 8 MiB (/tmp and the card are separate file systems
// here), and the two paths of trap requests to the SNMP agent.
#include "events_test.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

namespace
{

namespace segment = kv::segment;
namespace field = kv::segment::trap_slot_field;
using namespace kv::test;

TEST(SelSlots, RecordsTakeTheLowestFreeSlotUntilTheTableIsFull)
{
    uint8_t* shm = cleared_segment();
    const auto state = [&](unsigned i) -> uint8_t& {
        return shm[segment::sel_slot_state(i)];
    };
    const auto payload = [&](unsigned i) {
        return shm + segment::sel_slot_payload(i);
    };
    const auto write_event = [&](unsigned sensor) {
        return SensorSELWrite(shm, sensor, 0, 0x01, 0x01, 0x59, 87, 85);
    };
    const std::vector<uint8_t> data(200, 0x5A);
    EXPECT_EQ(add_sel_to_shm(nullptr, data.data(), 16), KV_SEL_NO_SEGMENT);
    EXPECT_EQ(add_sel_to_shm(shm, nullptr, 16), KV_SEL_NO_SEGMENT);
    EXPECT_EQ(add_sel_to_shm(shm, data.data(), -1), KV_SEL_NO_SEGMENT);
    EXPECT_EQ(SensorSELWrite(nullptr, 1, 0, 1, 1, 0, 0, 0), -1);
    EXPECT_EQ(state(0), 0);
    // No data still takes a slot; longer data stays inside its slot.
    EXPECT_EQ(add_sel_to_shm(shm, data.data(), 0), 0);
    EXPECT_EQ(payload(0)[0], 0);
    ASSERT_EQ(add_sel_to_shm(shm, data.data(), 200), 0);
    EXPECT_EQ(std::vector<uint8_t>(payload(1), &state(2)),
              std::vector<uint8_t>(segment::kSelSlotPayloadSize, 0x5A));
    EXPECT_EQ(state(2), 0);

    ASSERT_EQ(SensorSELWrite(shm, 0x31, 0, 0x07, 0x6F, 0x00, 0xFF, 0xFE), 0);
    const uint8_t expected[segment::kSelSlotPayloadSize] = {
        0x21, 0x00, 0x02, 0xE1, 0xA2, 0xFF, 0x4E, 0x20,
        0x00, 0x04, 0x07, 0x31, 0x6F, 0x00, 0xFF, 0xFE};
    EXPECT_EQ(std::memcmp(payload(2), expected, sizeof expected), 0);
    EXPECT_EQ(state(2), 1);
    // The consumer frees a slot with any value but 1; no position is kept.
    state(0) = 0;
    state(1) = 7;
    state(2) = 0;
    for (unsigned i = 0; i < segment::kSelSlotCount; ++i)
    {
        ASSERT_EQ(write_event(i + 1), 0);
        EXPECT_EQ(payload(i)[11], uint8_t(i + 1));
        EXPECT_EQ(state(i), 1);
    }
    // The table and a slot after it stay as they were.
    const auto table = [&] {
        return std::vector<uint8_t>(&state(0),
                                    &state(segment::kSelSlotCount + 1));
    };
    const auto before = table();
    EXPECT_EQ(add_sel_to_shm(shm, expected, 16), KV_SEL_SLOTS_FULL);
    EXPECT_EQ(write_event(99), -1);
    EXPECT_EQ(table(), before);
    EXPECT_EQ(state(segment::kSelSlotCount), 0);
}

constexpr off_t kLimit = 8 * 1024 * 1024;
const std::string kDir = "/tmp/sel";
const std::string kLog = kDir + "/sel.log";
const std::string kCard = "/media/card/sellog";

off_t size_of(const std::string& path)
{
    struct stat st
    {};
    return ::stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

int save(uint32_t record, const char* text, uint32_t when = 0)
{
    return save_sel_to_file(record, when, record % 3, text, kDir.c_str());
}

TEST(SelLog, LinesEndInCrLfInAFolderOfItsOwnMode)
{
    ::umask(022);
    ASSERT_EQ(save(1, "first"), 0);
    struct stat st
    {};
    ASSERT_EQ(::stat(kDir.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & (S_IFMT | 07777), S_IFDIR | 0644U);
    // A folder that is there keeps its mode; numbers show as signed.
    ASSERT_EQ(::chmod(kDir.c_str(), 0700), 0);
    ASSERT_EQ(save(4000000000U, ""), 0);
    // A text too long is cut; the longest that fits is kept whole.
    const std::string text(400, 'a');
    ASSERT_EQ(save(12, text.c_str()), 0);
    ASSERT_EQ(save(12, text.c_str() + 209), 0);
    const std::string line = "#12 0 " + std::string(191, 'a') + "\r\n";
    EXPECT_EQ(read_text(kLog),
              "#1 1 first\r\n#-294967296 1 \r\n" + line + line);
    ASSERT_EQ(::stat(kDir.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700U);

    ::unlink(kLog.c_str());
    make_dirs(kLog); // a folder where the file should be
    EXPECT_EQ(save(1, "x"), -1);
    EXPECT_EQ(save(1, nullptr), -1);
    EXPECT_EQ(save_sel_to_file(1, 0, 1, "x", nullptr), -1);
    const std::string deep = "/tmp/" + std::string(200, 'd');
    EXPECT_EQ(save_sel_to_file(1, 0, 1, "x", deep.c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST(SelLog, LogMovesToTheCardWhenALineReachesTheLimit)
{
    setenv("TZ", "Asia/Shanghai", 1);
    tzset();
    const auto grow_log = [](off_t size) {
        make_dirs(kDir);
        write_text(kLog, "");
        ASSERT_EQ(::truncate(kLog.c_str(), size), 0);
    };
    // Without the card the log goes on growing; once the card is there the
    // next line moves it all.
    grow_log(kLimit);
    ASSERT_EQ(save(1, "a"), 0);
    EXPECT_EQ(size_of(kLog), kLimit + 8);
    make_dirs(kCard);
    ASSERT_EQ(save(2, "b", 1), 0);
    EXPECT_EQ(size_of(kCard + "/sel-19700101080001.log"), kLimit + 16);
    EXPECT_EQ(size_of(kLog), -1);

    // Named from the record's time in local time (UTC+8: the next day).
    const std::string line = "#7 1 crossing\r\n";
    grow_log(kLimit - line.size() + 1);
    ASSERT_EQ(save(7, "crossing", 1710021907), 0); // 2024-03-09 22:05:07
    const std::string archive = kCard + "/sel-20240310060507.log";
    EXPECT_EQ(size_of(archive), kLimit + 1);
    EXPECT_TRUE(read_text(archive).value_or("").ends_with(line));
    ASSERT_EQ(save(8, "after"), 0);
    EXPECT_EQ(read_text(kLog), "#8 2 after\r\n");

    // Ending just below the limit stays; ending at it moves.
    grow_log(kLimit - 8);
    ASSERT_EQ(save(9, ""), 0); // "#9 0 \r\n"
    EXPECT_EQ(size_of(kLog), kLimit - 1);
    grow_log(kLimit - 7);
    ASSERT_EQ(save(9, "", 2), 0);
    EXPECT_EQ(size_of(kLog), -1);
    EXPECT_EQ(names_in(kCard).size(), 3u);
    unsetenv("TZ");
    tzset();
}

TEST(TrapSlots, RequestFillsTheFirstFreeSlotUnlessTheTableIsFull)
{
    uint8_t* shm = cleared_segment();
    const auto slot = [&](unsigned i) { return shm + segment::trap_slot(i); };
    const auto word = [&](unsigned i, size_t at) {
        uint32_t value;
        std::memcpy(&value, slot(i) + at, 4); // little-endian
        return value;
    };
    const auto text = [&](unsigned i) {
        return std::string((char*)slot(i) + field::kText, field::kTextSize);
    };
    const size_t size = segment::kTrapSlotSize * (segment::kTrapSlotCount + 1);
    slot(0)[field::kState] = 1; // being written by another process
    std::memset(slot(1) + field::kText, 0xAA, field::kTextSize);
    EXPECT_EQ(snmpSendTrap(0x01020304, 0xA0B0C0D0, 7, "CPU0 Temp"), 0);
    EXPECT_EQ(word(1, field::kState), 2u);
    EXPECT_EQ(word(1, field::kCode), 0x01020304u);
    EXPECT_EQ(word(1, field::kValue), 0xA0B0C0D0u);
    EXPECT_EQ(slot(1)[field::kKind], 7);
    // Zero-padded over what the slot held before.
    EXPECT_EQ(text(1), "CPU0 Temp" + std::string(field::kTextSize - 9, '\0'));
    EXPECT_EQ(word(2, field::kState), 0u);
    // A long text keeps 200 bytes, without a terminator.
    const std::string long_text(250, 'x');
    slot(3)[0] = 0x5A;
    snmpSendTrap(1, 2, 3, long_text.c_str());
    EXPECT_EQ(text(2), long_text.substr(0, field::kTextSize));
    EXPECT_EQ(slot(3)[0], 0x5A);

    // A full table, and the slot's worth of bytes after it, stay as they were.
    for (unsigned i = 0; i < segment::kTrapSlotCount; ++i)
    {
        std::memset(slot(i), int(i), segment::kTrapSlotSize);
        slot(i)[field::kState] = i % 2 == 0 ? 1 : 2;
        slot(i)[1] = slot(i)[2] = slot(i)[3] = 0;
    }
    const std::vector<uint8_t> before(slot(0), slot(0) + size);
    EXPECT_EQ(snmpSendTrap(1, 2, 3, "dropped"), 0);
    EXPECT_EQ(std::vector<uint8_t>(slot(0), slot(0) + size), before);
}

TEST(TrapFifo, CheckFifoFileAcceptsWhatExistsAndMakesWhatIsMissing)
{
    write_text("/tmp/regular", "keep");
    EXPECT_EQ(checkFIFOFile("/tmp/regular", 0600), 0);
    EXPECT_EQ(read_text("/tmp/regular"), "keep");
    ::umask(022);
    ASSERT_EQ(checkFIFOFile("/tmp/trap.fifo", 0604), 0);
    struct stat st
    {};
    ASSERT_EQ(::stat("/tmp/trap.fifo", &st), 0);
    EXPECT_EQ(st.st_mode & (S_IFMT | 0777), S_IFIFO | 0604u);
    EXPECT_EQ(checkFIFOFile("/tmp/no/dir/trap.fifo", 0600), 1);

    // The write end is kept per process: each case runs in a child.
    EXPECT_EQ(
        exit_status_of([] {
            const int first = getSNMPTrapWriteFD("/tmp/trap.fifo", O_RDWR);
            // Gone, the FIFO could not be opened again.
            ::unlink("/tmp/trap.fifo");
            return first * 2 + getSNMPTrapWriteFD("/tmp/trap.fifo", O_RDWR);
        }),
        0);
    // A missing FIFO is retried once, a second later.
    EXPECT_EQ(exit_status_of([] {
                  const auto start = std::chrono::steady_clock::now();
                  if (getSNMPTrapWriteFD("/tmp/missing.fifo", O_RDWR) != 1 ||
                      std::chrono::steady_clock::now() - start <
                          std::chrono::milliseconds(900))
                  {
                      return 1;
                  }
                  checkFIFOFile("/tmp/missing.fifo", 0600);
                  ::close(0); // descriptor 0 is a write end too
                  return getSNMPTrapWriteFD("/tmp/missing.fifo", O_RDWR) * 2;
              }),
              0);
}

TEST(TrapFifo, WriteMsgReportsShortAndFailedWrites)
{
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    EXPECT_EQ(snmpWriteMsg(fds[1], "trap", 4), 0);
    EXPECT_EQ(snmpWriteMsg(fds[1], "trap", -1), 1);
    EXPECT_EQ(snmpWriteMsg(fds[1], "", 0), 0);
    char got[8] = {};
    EXPECT_EQ(::read(fds[0], got, sizeof got), 4);
    EXPECT_STREQ(got, "trap");
    ::close(fds[0]);
    ::close(fds[1]);
    EXPECT_EQ(snmpWriteMsg(fds[1], "trap", 4), 1);
    // The bare "%" at the end prints nothing of the error text.
    EXPECT_NE(read_text("/tmp/log")
                  .value_or("")
                  .find("snmpWriteMsg failed. fd: " + std::to_string(fds[1]) +
                        ", ret: -1, err: \n"),
              std::string::npos);
}

} // namespace

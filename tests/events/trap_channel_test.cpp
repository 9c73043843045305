// SPDX-License-Identifier: Apache-2.0
// Trap requests in the trap slots of the platform segment, and the FIFO
// helpers of the second path to the SNMP agent.
#include "ipc/platform_segment.h"
#include "test_helpers.h"

#include <libkv/events.h>
#include <libkv/ipc.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

namespace
{

namespace segment = kv::segment;
namespace field = kv::segment::trap_slot_field;
using kv::test::exit_status_of;
using kv::test::read_text;

class TrapSlots : public testing::Test
{
  protected:
    void SetUp() override
    {
        // snmpSendTrap attaches the segment once per process, so the test
        // works on that attachment and starts from a free table.
        shm_ = static_cast<uint8_t*>(get_shm_address());
        ASSERT_NE(shm_, nullptr);
        std::memset(table(), 0, kTableSize);
    }

    uint8_t* table()
    {
        return shm_ + segment::kTrapSlots;
    }
    uint8_t* slot(unsigned i)
    {
        return shm_ + segment::trap_slot(i);
    }
    std::string text(unsigned i)
    {
        return {reinterpret_cast<char*>(slot(i) + field::kText),
                field::kTextSize};
    }
    uint32_t word(unsigned i, size_t at)
    {
        const uint8_t* p = slot(i) + at;
        return p[0] | p[1] << 8 | p[2] << 16 |
               static_cast<uint32_t>(p[3]) << 24;
    }

    static constexpr size_t kTableSize =
        segment::kTrapSlotSize * segment::kTrapSlotCount;
    uint8_t* shm_ = nullptr;
};

TEST_F(TrapSlots, RequestFillsTheFirstFreeSlotAndIsMarkedReady)
{
    slot(0)[field::kState] = 1; // being written by another process
    std::memset(slot(1) + field::kText, 0xAA, field::kTextSize);
    EXPECT_EQ(snmpSendTrap(0x01020304, 0xA0B0C0D0, 7, "CPU0 Temp"), 0);
    EXPECT_EQ(word(1, field::kState), 2u);
    EXPECT_EQ(word(1, field::kCode), 0x01020304u);
    EXPECT_EQ(word(1, field::kValue), 0xA0B0C0D0u);
    EXPECT_EQ(slot(1)[field::kKind], 7);
    // The text is zero-padded over what the slot held before.
    std::string expected(field::kTextSize, '\0');
    expected.replace(0, 9, "CPU0 Temp");
    EXPECT_EQ(text(1), expected);
    EXPECT_EQ(word(2, field::kState), 0u);

    // A long text keeps 200 bytes, without a terminator.
    const std::string long_text(250, 'x');
    slot(3)[0] = 0x5A; // the next slot's first byte must survive
    snmpSendTrap(1, 2, 3, long_text.c_str());
    EXPECT_EQ(text(2), long_text.substr(0, field::kTextSize));
    EXPECT_EQ(slot(3)[0], 0x5A);
}

TEST_F(TrapSlots, FullTableIsLeftAsItWas)
{
    for (unsigned i = 0; i < segment::kTrapSlotCount; ++i)
    {
        std::memset(slot(i), static_cast<int>(i), segment::kTrapSlotSize);
        slot(i)[field::kState] = i % 2 == 0 ? 1 : 2;
        slot(i)[1] = slot(i)[2] = slot(i)[3] = 0;
    }
    // The table and the slot's worth of bytes after it.
    const std::size_t size = kTableSize + segment::kTrapSlotSize;
    const std::vector<uint8_t> before(table(), table() + size);
    EXPECT_EQ(snmpSendTrap(1, 2, 3, "dropped"), 0);
    EXPECT_EQ(std::vector<uint8_t>(table(), table() + size), before);
}

TEST(TrapFifo, CheckFifoFileAcceptsWhatExistsAndMakesWhatIsMissing)
{
    kv::test::write_text("/tmp/regular", "keep");
    EXPECT_EQ(checkFIFOFile("/tmp/regular", 0600), 0);
    EXPECT_EQ(read_text("/tmp/regular"), "keep");

    const mode_t old_mask = ::umask(022);
    ASSERT_EQ(checkFIFOFile("/tmp/trap.fifo", 0604), 0);
    ::umask(old_mask);
    struct stat st
    {};
    ASSERT_EQ(::stat("/tmp/trap.fifo", &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0604u);

    EXPECT_EQ(checkFIFOFile("/tmp/no/such/dir/trap.fifo", 0600), 1);
    EXPECT_NE(read_text("/tmp/log")
                  ->find("fifo file /tmp/no/such/dir/trap.fifo not exist, and "
                         "mkfifo faile. No such file or directory"),
              std::string::npos);
}

// The write end is kept per process: each case runs in a child of its own.
TEST(TrapFifo, WriteEndIsOpenedOncePerProcess)
{
    EXPECT_EQ(exit_status_of([] {
                  if (checkFIFOFile("/tmp/trap.fifo", 0600) != 0 ||
                      getSNMPTrapWriteFD("/tmp/trap.fifo", O_RDWR) != 0)
                  {
                      return 1;
                  }
                  // With the FIFO gone, a call that tried to open would
                  // fail; the second call opens nothing.
                  ::unlink("/tmp/trap.fifo");
                  return getSNMPTrapWriteFD("/tmp/trap.fifo", O_RDWR) == 0 ? 0
                                                                           : 2;
              }),
              0);
}

TEST(TrapFifo, FailedOpenIsRetriedOnceThenByTheNextCall)
{
    EXPECT_EQ(exit_status_of([] {
                  const auto start = std::chrono::steady_clock::now();
                  if (getSNMPTrapWriteFD("/tmp/missing.fifo", O_RDWR) != 1 ||
                      std::chrono::steady_clock::now() - start <
                          std::chrono::milliseconds(900))
                  {
                      return 1;
                  }
                  if (checkFIFOFile("/tmp/missing.fifo", 0600) != 0)
                  {
                      return 2;
                  }
                  return getSNMPTrapWriteFD("/tmp/missing.fifo", O_RDWR);
              }),
              0);
    EXPECT_NE(read_text("/tmp/log")
                  ->find("open snmp trap fifo file failed. "
                         "No such file or directory"),
              std::string::npos);
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
    const std::string line =
        "snmpWriteMsg failed. fd: " + std::to_string(fds[1]) +
        ", ret: -1, err: \n";
    EXPECT_NE(read_text("/tmp/log")->find(line), std::string::npos);
}

} // namespace

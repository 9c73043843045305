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

bool logged(const std::string& line)
{
    return read_text("/tmp/log").value_or("").find(line) != std::string::npos;
}

class TrapSlots : public testing::Test
{
  protected:
    // snmpSendTrap attaches the segment once per process: the test works on
    // that attachment and starts from a free table.
    void SetUp() override
    {
        shm_ = static_cast<uint8_t*>(get_shm_address());
        ASSERT_NE(shm_, nullptr);
        std::memset(slot(0), 0, kTableSize);
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
        uint32_t value;
        std::memcpy(&value, slot(i) + at, sizeof value); // little-endian
        return value;
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
    // Zero-padded over what the slot held before.
    EXPECT_EQ(text(1), "CPU0 Temp" + std::string(field::kTextSize - 9, '\0'));
    EXPECT_EQ(word(2, field::kState), 0u);

    // A long text keeps 200 bytes, without a terminator.
    const std::string long_text(250, 'x');
    slot(3)[0] = 0x5A;
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
    // The table and a slot's worth of bytes after it.
    const std::size_t size = kTableSize + segment::kTrapSlotSize;
    const std::vector<uint8_t> before(slot(0), slot(0) + size);
    EXPECT_EQ(snmpSendTrap(1, 2, 3, "dropped"), 0);
    EXPECT_EQ(std::vector<uint8_t>(slot(0), slot(0) + size), before);
}

TEST(TrapFifo, CheckFifoFileAcceptsWhatExistsAndMakesWhatIsMissing)
{
    kv::test::write_text("/tmp/regular", "keep");
    EXPECT_EQ(checkFIFOFile("/tmp/regular", 0600), 0);
    EXPECT_EQ(read_text("/tmp/regular"), "keep");

    ::umask(022);
    ASSERT_EQ(checkFIFOFile("/tmp/trap.fifo", 0604), 0);
    struct stat st
    {};
    ASSERT_EQ(::stat("/tmp/trap.fifo", &st), 0);
    EXPECT_EQ(st.st_mode & (S_IFMT | 0777), S_IFIFO | 0604u);

    EXPECT_EQ(checkFIFOFile("/tmp/no/dir/trap.fifo", 0600), 1);
}

// The write end is kept per process: each case runs in a child of its own.
TEST(TrapFifo, WriteEndIsOpenedOncePerProcessAndRetriedOnce)
{
    EXPECT_EQ(
        exit_status_of([] {
            checkFIFOFile("/tmp/trap.fifo", 0600);
            const int first = getSNMPTrapWriteFD("/tmp/trap.fifo", O_RDWR);
            // Gone, the FIFO could not be opened again.
            ::unlink("/tmp/trap.fifo");
            return first * 2 + getSNMPTrapWriteFD("/tmp/trap.fifo", O_RDWR);
        }),
        0);
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
    EXPECT_TRUE(logged("snmpWriteMsg failed. fd: " + std::to_string(fds[1]) +
                       ", ret: -1, err: \n"));
}

} // namespace

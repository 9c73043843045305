// SPDX-License-Identifier: Apache-2.0
// M.2, IO-expander and riser cards and their binary result files.
#include "platform_test.h"

using namespace kv::platform::test;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;

namespace
{

using Cards = PlatformBoard;

const std::string m2_file = "/run/backplane/mp2_bus_config";
const std::string iox_file = "/run/backplane/iox_bus_config";
const std::string riser_file = "/var/run/backplane/riser_bus_config";

// A file a detector must leave alone when it finds nothing.
const std::string earlier = "earlier result";

// Multiplexer channel selections on `bus` (channel counted from 0).
std::vector<int> selections(int bus)
{
    std::vector<int> channels;
    for (const Transfer& t : wire_log())
    {
        if (t.bus == bus && t.address == 0x71 && !t.read)
        {
            channels.push_back(t.bytes.size() == 2 ? __builtin_ctz(t.bytes[1])
                                                   : -1);
        }
    }
    return channels;
}

int reads_of(int bus, uint16_t address)
{
    int count = 0;
    for (const Transfer& t : wire_log())
    {
        count += t.bus == bus && t.address == address && t.read;
    }
    return count;
}

TEST_F(Cards, M2PresenceBitsChooseThePositionsProbed)
{
    // Position c is taken when bits c and c + 3 are both clear.
    const std::pair<uint8_t, std::vector<int>> cases[] = {
        {0x00, {0, 1, 2}}, {0x09, {1, 2}}, {0x20, {0, 1}}, {0x3f, {}}};
    for (const auto& [presence, positions] : cases)
    {
        SCOPED_TRACE(int{presence});
        std::filesystem::remove(m2_file);
        clear_wire_log();
        set_device_memory(5, 0x21, 1, {presence});
        EXPECT_EQ(0, mp2_card_detect());
        EXPECT_EQ(positions, selections(5));
        EXPECT_EQ(static_cast<int>(positions.size()), reads_of(5, 0x23));
        std::vector<Bytes> entries;
        for (const int c : positions)
        {
            entries.push_back({5, 0x71, static_cast<uint8_t>(c), 0});
        }
        EXPECT_EQ(entries.empty() ? Bytes{} : result_file(entries, 4),
                  published_bytes(m2_file));
        // Every channel taken was given back.
        EXPECT_EQ(0, channel_lock(5, 0x71));
    }
}

TEST_F(Cards, NinthM2CardIsNotStored)
{
    set_device_memory(6, 0x21, 1, {0x00});
    set_device_memory(10, 0x21, 1, {0x00});
    for (const int bus : {24, 25, 26})
    {
        set_device_memory(bus, 0x23, 0, {0x1a});
    }
    EXPECT_EQ(0, mp2_card_detect());
    // Row 3 has no multiplexer: its card answers on bus 12 for every
    // position.
    EXPECT_EQ(3, reads_of(12, 0x23));
    EXPECT_THAT(selections(6), ElementsAre(0, 1, 2));
    EXPECT_EQ(result_file({{5, 0x71, 0, 0},
                           {5, 0x71, 1, 0},
                           {5, 0x71, 2, 0},
                           {6, 0x71, 0, 0},
                           {6, 0x71, 1, 0},
                           {6, 0x71, 2, 0},
                           {12, 0, 0, 0},
                           {12, 0, 1, 0}},
                          4),
              published_bytes(m2_file));
}

TEST_F(Cards, M2ProbeSkipsRefusedChannelsAndOtherCards)
{
    write_text(m2_file, earlier);
    // Another process holds the multiplexer of row 1: nothing is sent to it
    // and its lock stays.
    channel_lock(5, 0x71) = 1;
    EXPECT_EQ(0, mp2_card_detect());
    EXPECT_THAT(selections(5), IsEmpty());
    EXPECT_EQ(0, reads_of(5, 0x23));
    EXPECT_EQ(1, channel_lock(5, 0x71));
    EXPECT_EQ(earlier, read_text(m2_file));

    // Position 1 holds another card, position 2 does not answer.
    channel_lock(5, 0x71) = 0;
    set_device_memory(21, 0x23, 0, {0x1b});
    fail_address(22, 0x23, ENXIO);
    EXPECT_EQ(0, mp2_card_detect());
    EXPECT_EQ(result_file({{5, 0x71, 0, 0}}, 4), published_bytes(m2_file));
    EXPECT_EQ(0, channel_lock(5, 0x71));
    const auto lines = error_lines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_THAT(lines[0], AllOf(HasSubstr("-i2c rw data failed bus=5, "
                                          "address=35 offset=0. "
                                          "back-plane-mgt:"),
                                EndsWith(" mp2_card_detect ")));
}

std::string iox_output(int& result)
{
    return kv::test::stdout_of([&] { result = iox_present_detect(); });
}

TEST_F(Cards, IoExpanderPositionsWithoutCards)
{
    write_text(iox_file, earlier);
    int result = -1;
    EXPECT_EQ("iox_present_detect:io0 don't present \n"
              "iox_present_detect:io1 don't present \n"
              "iox_present_detect:io2 don't present \n",
              iox_output(result));
    EXPECT_EQ(0, result);
    EXPECT_EQ(earlier, read_text(iox_file));
    EXPECT_THAT(writes_of({4}), ElementsAre(sent(11, 0x3f, {4})));
    EXPECT_EQ(2u, wire_log().size()); // the CPLD register alone
}

TEST_F(Cards, IoExpanderCardsAreRecordedWithTheirIds)
{
    set_device_memory(11, 0x3f, 4, {0x00});
    int result = -1;
    EXPECT_EQ("", iox_output(result));
    EXPECT_EQ(0, result);
    EXPECT_EQ(result_file({{5, 0, 0, 17}, {6, 0, 0, 12}, {10, 0, 0, 27}}, 4),
              published_bytes(iox_file));
    EXPECT_EQ(0, reads_of(18, 0x3f)); // the third was found in its row
}

TEST_F(Cards, ThirdIoExpanderFallsBackToChannelThreeOfBusThirteen)
{
    set_device_memory(11, 0x3f, 4, {0x02});
    fail_address(5, 0x21, ENXIO);
    set_device_memory(10, 0x21, 0, {0x9a}); // four ones
    int result = -1;
    EXPECT_EQ("iox_present_detect:read i2c5 slave[21] board id fail \n"
              "iox_present_detect:io1 don't present \n"
              "iox_present_detect:io2 odd check fail,data[9a] \n",
              iox_output(result));
    EXPECT_EQ(0, result);
    EXPECT_EQ(result_file({{18, 0, 0, 27}}, 4), published_bytes(iox_file));

    // The channel's card must pass the parity test too, and answer.
    std::filesystem::remove(iox_file);
    set_device_memory(18, 0x3f, 0, {0x9a});
    EXPECT_THAT(iox_output(result),
                EndsWith("iox_present_detect:io2 odd check fail,data[9a] \n"
                         "iox_present_detect:io2 odd check fail,data[9a] \n"));
    fail_address(18, 0x3f, ENXIO);
    EXPECT_THAT(iox_output(result),
                EndsWith("iox_present_detect:io2 odd check fail,data[9a] \n"
                         "iox_present_detect:read i2c18 slave[3f] board id "
                         "fail \n"));
    // Without the channel's bus number there is nowhere to look.
    std::filesystem::remove("/var/run/obmcinfo/i2c/i2c-13-3");
    write_text("/var/run/obmcinfo/i2c_dmesg", "");
    clear_wire_log();
    EXPECT_THAT(iox_output(result),
                EndsWith("iox_present_detect:io2 odd check fail,data[9a] \n"));
    EXPECT_EQ(0, reads_of(18, 0x3f));
    EXPECT_FALSE(read_text(iox_file));
}

TEST_F(Cards, IoExpanderDetectionNeedsTheModuleCpld)
{
    write_text(iox_file, earlier);
    fail_address(11, 0x3f, ENXIO);
    int result = -1;
    EXPECT_EQ("iox_present_detect: read cpld fail \n", iox_output(result));
    EXPECT_EQ(KV_IOX_NO_CPLD, result);
    EXPECT_EQ(std::vector<long long>(5, 1000000), recorded_sleeps());
    EXPECT_EQ(earlier, read_text(iox_file));
}

TEST_F(Cards, RiserIdentityRules)
{
    // Riser 12 with bit 7, riser 4 without it.
    const std::pair<uint8_t, bool> cases[] = {
        {0x8c, true}, {0x0c, false}, {0x04, true}, {0x84, false}};
    for (const auto& [identity, accepted] : cases)
    {
        SCOPED_TRACE(int{identity});
        std::filesystem::remove(riser_file);
        clear_wire_log();
        set_device_memory(6, 0x21, 0, {identity});
        EXPECT_EQ(0, riser_card_detect());
        if (accepted)
        {
            // Channel 1 (counted from 0) of the multiplexer at 0x71.
            EXPECT_THAT(selections(6), ElementsAre(1));
            EXPECT_EQ(result_file({{6, 0x71, 1}}, 3),
                      published_bytes(riser_file));
        }
        else
        {
            EXPECT_THAT(selections(6), IsEmpty());
            EXPECT_FALSE(read_text(riser_file));
        }
        EXPECT_EQ(0, channel_lock(6, 0x71));
    }
}

TEST_F(Cards, RiserCardBehindTheMultiplexer)
{
    EXPECT_EQ(0, single_riser_detect());
    EXPECT_EQ(result_file({{6, 0x71, 1}}, 3), published_bytes(riser_file));
    EXPECT_EQ(28u, published_bytes(riser_file).size());

    // Another card behind the channel: the earlier file stays.
    write_text(riser_file, earlier);
    set_device_memory(25, 0x23, 0, {0x0e});
    EXPECT_EQ(0, riser_card_detect());
    EXPECT_EQ(earlier, read_text(riser_file));
    EXPECT_EQ(0, channel_lock(6, 0x71));

    // A channel held elsewhere ends the probe.
    set_device_memory(25, 0x23, 0, {0x0f});
    channel_lock(6, 0x71) = 1;
    clear_wire_log();
    EXPECT_EQ(0, riser_card_detect());
    EXPECT_EQ(0, reads_of(6, 0x23));
    EXPECT_EQ(1, channel_lock(6, 0x71));
    EXPECT_EQ(earlier, read_text(riser_file));
}

TEST_F(Cards, RiserBusOnDescriptorZeroIsNotUsed)
{
    EXPECT_EQ(0, kv::test::exit_status_of([] {
                  ::close(0);
                  return riser_card_detect();
              }));
    EXPECT_THAT(wire_log(), IsEmpty());
    EXPECT_FALSE(read_text(riser_file));
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// The fru tool end to end: its command line, and an image written and edited
// on the simulated board under kvsim, decoded by FreeIPMI's reader.
#include "test_helpers.h"

#include <gmock/gmock.h>

namespace
{

using testing::HasSubstr;

TEST(FruTool, CommandLines)
{
    const std::string fru = FRU_TOOL " ", to = " 127.0.0.1 admin admin ",
                      usage = " fru V3.1 Version(2021-07-08)\n";
    // Device 0 is the EEPROM behind the example board's multiplexer: write
    // it from the default fru.ini, change one field, read the part back over
    // I2C. (In the sanitizer build kvsim preloads the sanitizer into every
    // program; perl's leaks are not ours to report.)
    const std::string on_board =
        KVSIM_TOOL " " KVSIM_EXAMPLE_BOARD " -- /bin/sh -c \"set -e; cd /tmp;" +
        fru + "-c;" + fru + to + "0 -w fru.ini >/dev/null;" + fru + to +
        "0 -w BoardInfoArea SerialNum SN123; " KVSIM_I2CTRANSFER
        " -y 16 w2@0x51 0 0 r512 | ASAN_OPTIONS=detect_leaks=0 perl -ne "
        "'print pack q(C*), map hex, split' >d; /usr/sbin/ipmi-fru "
        "--fru-file=d\"";
    const std::tuple<std::string, int, std::vector<std::string>> cases[] = {
        {on_board,
         0,
         {"FRU Chassis Type: Unknown\n",
          "FRU Board Manufacturing Date/Time: 07/27/19 - 15:04:00\n",
          "FRU Board Serial Number: SN123\n",
          "FRU Product Serial Number: 000011112222\n"}},
        // A command meant for another BMC changes nothing here.
        {fru + "192.0.2.1 u p 0 -w BoardInfoArea SerialNum X",
         1,
         {"192.0.2.1 is not an address of this"}},
        {fru, 2, {usage}},
        {fru + to + "0 -w fru.ini extra", 2, {usage}},
        {fru + to + "0 -r A B C", 2, {usage}}};
    for (const auto& [command, status, parts] : cases)
    {
        const auto outcome = kv::test::run_shell(command + " 2>&1");
        EXPECT_EQ(status, outcome.status) << command << outcome.output;
        EXPECT_THAT(outcome.output, testing::Not(HasSubstr("rror")));
        for (const std::string& part : parts)
        {
            EXPECT_THAT(outcome.output, HasSubstr(part)) << command;
        }
    }
}

} // namespace

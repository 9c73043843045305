// SPDX-License-Identifier: Apache-2.0
// The fru tool end to end: its files checked by FreeIPMI's reader, its
// command line, and a field edit on the simulated board under kvsim.
#include "test_helpers.h"

#include <gmock/gmock.h>

#include <string>

namespace
{

using kv::test::read_text;
using kv::test::run_shell;
using kv::test::write_text;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string fru = FRU_TOOL;
const std::string ipmi_fru = "/usr/sbin/ipmi-fru --fru-file=";

TEST(FruTool, ImagesBuiltFromTheIniReadBackWithFreeIpmi)
{
    auto built = run_shell("mkdir /tmp/empty && cd /tmp/empty && " + fru +
                           " -c && " + fru + " -b >/dev/null && " + ipmi_fru +
                           "default-fru.bin 2>&1");
    EXPECT_EQ(0, built.status) << built.output;
    EXPECT_THAT(built.output,
                AllOf(HasSubstr("FRU Chassis Type: Unknown\n"),
                      HasSubstr("FRU Board Manufacturing Date/Time: 07/27/19 - "
                                "15:04:00\n"),
                      HasSubstr("FRU Board Manufacturer: VeldMarke\n"),
                      HasSubstr("FRU Product Serial Number: 000011112222\n")));

    std::string ini = read_text("/tmp/empty/fru.ini").value_or("");
    ini.replace(ini.find("SerialNum = \"N/A\"", ini.find("[Board")), 17,
                "SerialNum = \"SN-4711\"");
    ini.replace(ini.find("ProductName", ini.find("[Product")), 26,
                "ProductName = \"Kestrel 2U\"");
    write_text("/tmp/filled/fru.ini", ini);
    built = run_shell("cd /tmp/filled && " + fru + " -b >/dev/null && " +
                      ipmi_fru + "default-fru.bin 2>&1");
    EXPECT_EQ(0, built.status) << built.output;
    EXPECT_THAT(built.output, AllOf(HasSubstr("FRU Board Serial Number: "
                                              "SN-4711\n"),
                                    HasSubstr("FRU Product Name: Kestrel 2U\n"),
                                    Not(HasSubstr("rror"))));
}

TEST(FruTool, WrongUsePrintsTheUsageText)
{
    for (const char* arguments :
         {"", "-x", "-c extra", "127.0.0.1 root pw 0 -w fru.ini extra",
          "127.0.0.1 root pw 0 -w other.ini", "127.0.0.1 root pw 256 -w A B C",
          "127.0.0.1 root pw x1 -w A B C", "127.0.0.1 root pw 0 -r A B C"})
    {
        const auto outcome = run_shell(fru + " " + arguments);
        EXPECT_EQ(2, outcome.status) << arguments;
        EXPECT_THAT(outcome.output,
                    StartsWith(" fru V3.1 Version(2021-07-08)\n"))
            << arguments;
    }
    EXPECT_EQ(0, run_shell(fru + " help").status);

    // A command meant for another BMC changes nothing here.
    const auto remote = run_shell(
        fru + " 192.0.2.1 root pw 0 -w BoardInfoArea SerialNum X 2>&1");
    EXPECT_EQ(1, remote.status);
    EXPECT_THAT(remote.output,
                HasSubstr("192.0.2.1 is not an address of this"));
}

TEST(FruTool, FieldEditOnTheSimulatedBoard)
{
    // Device 0 is the EEPROM behind the example board's multiplexer: write
    // it from the default fru.ini, change one field, read the part back
    // over I2C and let FreeIPMI decode it. (In the sanitizer build kvsim
    // preloads the sanitizer into every program; perl's leaks are not
    // ours to report.)
    const std::string script =
        "set -e; cd /tmp; " + fru + " -c; " + fru + " -b >/dev/null; " + fru +
        " 127.0.0.1 admin admin 0 -w fru.ini >/dev/null; " + fru +
        " 127.0.0.1 admin admin 0 -w BoardInfoArea SerialNum SN123; " KVSIM_I2CTRANSFER
        " -y 16 w2@0x51 0 0 r512 | "
        "ASAN_OPTIONS=detect_leaks=0 "
        "perl -ne 'print pack q(C*), map hex, split' > device.bin; " +
        ipmi_fru + "device.bin";
    const auto outcome = run_shell(
        std::string(KVSIM_TOOL " " KVSIM_EXAMPLE_BOARD " -- /bin/sh -c \"") +
        script + "\" 2>&1");
    EXPECT_EQ(0, outcome.status) << outcome.output;
    EXPECT_THAT(outcome.output,
                AllOf(HasSubstr("FRU Board Serial Number: SN123\n"),
                      HasSubstr("FRU Board Manufacturer: VeldMarke\n"),
                      HasSubstr("FRU Product Serial Number: 000011112222\n")));
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// GPIO and memory fault LED lines: the exact bytes in the sysfs files, the
// export only when the GPIO is missing, caller texts kept as data, and -1
// when a file is missing or refuses the line. The sandbox's /sys is an empty
// tmpfs, so each test lays out the sysfs files it needs.
#include "test_helpers.h"

#include <libkv/hw.h>

#include <gtest/gtest.h>

#include <filesystem>

using kv::test::make_dirs;
using kv::test::names_in;
using kv::test::read_text;
using kv::test::write_text;

namespace
{

const std::string gpio_root = "/sys/class/gpio";
const std::string export_file = gpio_root + "/export";
const std::string gpio40 = gpio_root + "/gpio40";
const std::string leds = "/sys/devices/platform/leds/leds";

// A GPIO root with an empty export file, and GPIO 40 already exported.
void lay_out_gpio40()
{
    write_text(export_file, "");
    make_dirs(gpio40);
}

// The sysfs attribute at `path` refuses every value, as a real one does
// with a value it cannot take.
void refuse_writes(const std::string& path)
{
    std::filesystem::create_symlink("/dev/full", path);
}

TEST(Gpio, ExportWritesTheNumberLine)
{
    write_text(export_file, "");
    EXPECT_EQ(0, enable_gpio(40));
    EXPECT_EQ("40\n", read_text(export_file));
    EXPECT_EQ(0, enable_gpio(-3));
    EXPECT_EQ("-3\n", read_text(export_file));
}

TEST(Gpio, DirectionOfAnExportedGpioLeavesExportAlone)
{
    lay_out_gpio40();
    EXPECT_EQ(0, set_gpio_direction(40, "out"));
    EXPECT_EQ("out\n", read_text(gpio40 + "/direction"));
    EXPECT_EQ("", read_text(export_file));
}

TEST(Gpio, DirectionOfAMissingGpioExportsItFirst)
{
    write_text(export_file, "");
    // Without a kernel behind the tmpfs, gpio41 does not appear, so the
    // direction write fails although the export went through.
    EXPECT_EQ(-1, set_gpio_direction(41, "in"));
    EXPECT_EQ("41\n", read_text(export_file));
    EXPECT_FALSE(std::filesystem::exists(gpio_root + "/gpio41"));
}

TEST(Gpio, DirectionTextIsDataNotACommand)
{
    lay_out_gpio40();
    for (const std::string text :
         {"out; touch /tmp/pwned", "$(touch /tmp/pwned)", "`touch /tmp/pwned`",
          "out >/tmp/pwned", "in\nout"})
    {
        SCOPED_TRACE(text);
        EXPECT_EQ(0, set_gpio_direction(40, text.c_str()));
        EXPECT_EQ(text + "\n", read_text(gpio40 + "/direction"));
        EXPECT_FALSE(std::filesystem::exists("/tmp/pwned"));
    }
    EXPECT_EQ(-1, set_gpio_direction(40, nullptr));
    EXPECT_EQ("in\nout\n", read_text(gpio40 + "/direction"));
    EXPECT_EQ("", read_text(export_file));
}

TEST(Gpio, ValueReplacesTheFileContent)
{
    lay_out_gpio40();
    EXPECT_EQ(0, write_gpio(40, 10));
    EXPECT_EQ("10\n", read_text(gpio40 + "/value"));
    EXPECT_EQ(0, write_gpio(40, 0));
    EXPECT_EQ("0\n", read_text(gpio40 + "/value"));
    EXPECT_EQ(-1, write_gpio(39, 1));
}

TEST(Gpio, MissingRootFailsAndCreatesNothing)
{
    EXPECT_EQ(-1, enable_gpio(40));
    EXPECT_EQ(-1, set_gpio_direction(40, "out"));
    EXPECT_EQ(-1, write_gpio(40, 1));
    EXPECT_TRUE(names_in("/sys").empty());
}

TEST(Gpio, RefusedLinesFail)
{
    make_dirs(gpio40);
    refuse_writes(export_file);
    refuse_writes(gpio40 + "/direction");
    refuse_writes(gpio40 + "/value");
    EXPECT_EQ(-1, enable_gpio(40));
    EXPECT_EQ(-1, set_gpio_direction(40, "out"));
    EXPECT_EQ(-1, write_gpio(40, 1));
}

TEST(MemFaultLed, WritesBrightnessOfTheDimmLed)
{
    make_dirs(leds + "/cpu0_dimm3_m1");
    make_dirs(leds + "/cpu1_dimm11_m0");
    EXPECT_EQ(0, CmmFunMemFaultLed(0, 3, 1, 1));
    EXPECT_EQ("1\n", read_text(leds + "/cpu0_dimm3_m1/brightness"));
    EXPECT_EQ(0, CmmFunMemFaultLed(1, 11, 0, 255));
    EXPECT_EQ("255\n", read_text(leds + "/cpu1_dimm11_m0/brightness"));
    EXPECT_EQ("1\n", read_text(leds + "/cpu0_dimm3_m1/brightness"));
}

TEST(MemFaultLed, MissingOrRefusingLedStillGivesZero)
{
    make_dirs(leds + "/cpu0_dimm3_m1");
    refuse_writes(leds + "/cpu0_dimm3_m1/brightness");
    EXPECT_EQ(0, CmmFunMemFaultLed(0, 3, 1, 1));
    EXPECT_EQ(0, CmmFunMemFaultLed(2, 0, 0, 1));
    EXPECT_EQ(std::vector<std::string>{"cpu0_dimm3_m1"}, names_in(leds));
}

} // namespace

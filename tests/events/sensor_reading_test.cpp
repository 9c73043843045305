// SPDX-License-Identifier: Apache-2.0
// Raw readings to values in units, by the fields of a sensor description.
#include "events_test.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace
{

SensorRecord sensor(uint16_t m, double b, int8_t k2, uint32_t format = 0,
                    uint32_t linearization = 0)
{
    SensorRecord s{};
    s.result_exponent = k2;
    s.multiplier[0] = static_cast<uint8_t>(m);
    s.multiplier[1] = static_cast<uint8_t>(m >> 8);
    std::memcpy(s.offset, &b, sizeof b);
    const uint8_t fmt[4] = {static_cast<uint8_t>(format),
                            static_cast<uint8_t>(format >> 8), 0, 0};
    std::memcpy(s.analog_format, fmt, sizeof fmt);
    const uint8_t lin[4] = {static_cast<uint8_t>(linearization), 0, 0, 0};
    std::memcpy(s.linearization, lin, sizeof lin);
    return s;
}

TEST(SensorReading, MultiplierOffsetAndExponent)
{
    EXPECT_DOUBLE_EQ(sdr_convert_sensor_reading(sensor(1, 0, 0), 87), 87.0);
    EXPECT_DOUBLE_EQ(sdr_convert_sensor_reading(sensor(1, 0, 0), 255), 255.0);
    // M is little-endian; B stands unaligned at offset 7.
    EXPECT_DOUBLE_EQ(sdr_convert_sensor_reading(sensor(0x1234, 0, 0), 2),
                     2.0 * 0x1234);
    EXPECT_DOUBLE_EQ(sdr_convert_sensor_reading(sensor(2, -1.5, -1), 10),
                     (20 - 1.5) * 0.1);
    EXPECT_DOUBLE_EQ(sdr_convert_sensor_reading(sensor(3, 0.5, 2), 4), 1250.0);
}

TEST(SensorReading, SignedFormats)
{
    const auto ones = sensor(1, 0, 0, 1);
    EXPECT_DOUBLE_EQ(sdr_convert_sensor_reading(ones, 0xFF), 0.0); // -0
    EXPECT_DOUBLE_EQ(sdr_convert_sensor_reading(ones, 0xFE), -1.0);
    EXPECT_DOUBLE_EQ(sdr_convert_sensor_reading(ones, 0x80), -127.0);
    EXPECT_DOUBLE_EQ(sdr_convert_sensor_reading(ones, 0x7F), 127.0);

    const auto twos = sensor(2, 0, 0, 2);
    EXPECT_DOUBLE_EQ(sdr_convert_sensor_reading(twos, 0xFF), -2.0);
    EXPECT_DOUBLE_EQ(sdr_convert_sensor_reading(twos, 0x80), -256.0);

    // Any other format marks a sensor that gives no analog reading.
    EXPECT_DOUBLE_EQ(sdr_convert_sensor_reading(sensor(1, 5, 0, 3), 9), 0.0);
    EXPECT_DOUBLE_EQ(sdr_convert_sensor_reading(sensor(1, 5, 0, 0x100), 9),
                     0.0);
}

TEST(SensorReading, Linearisation)
{
    const struct
    {
        uint32_t code;
        double expected;
    } cases[] = {
        {0, 8.0},
        {1, std::log(8.0)},
        {2, std::log10(8.0)},
        {3, 3.0},
        {4, std::exp(8.0)},
        {5, 1e8},
        {6, 256.0},
        {7, 0.125},
        {8, 64.0},
        {9, 512.0},
        {10, std::sqrt(8.0)},
        {11, 2.0},
        {12, 8.0},
        {0x7F, 8.0},
        {0x82, std::log10(8.0)}, // bit 7 is not part of the code
    };
    for (const auto& c : cases)
    {
        EXPECT_NEAR(sdr_convert_sensor_reading(sensor(1, 0, 0, 0, c.code), 8),
                    c.expected, 1e-9 * std::fabs(c.expected))
            << "code " << c.code;
    }
}

} // namespace

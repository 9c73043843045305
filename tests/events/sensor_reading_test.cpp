// SPDX-License-Identifier: Apache-2.0
// Raw readings to values in units, by the fields of a sensor description:
// y = L((M * x + B) * 10^K2).
#include "events_test.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace
{

TEST(SensorReading, FormulaOfTheDescription)
{
    const struct
    {
        uint16_t m;
        double b;
        int8_t k2;
        uint32_t format, linearization;
        uint8_t raw;
        double value;
    } cases[] = {
        {1, 0, 0, 0, 0, 255, 255.0},
        // M is little-endian; B stands unaligned at offset 7.
        {0x1234, 0, 0, 0, 0, 2, 2.0 * 0x1234},
        {2, -1.5, -1, 0, 0, 10, (20 - 1.5) * 0.1},
        {3, 0.5, 2, 0, 0, 4, 1250.0},
        // One's complement: 0xFF is minus zero.
        {1, 0, 0, 1, 0, 0xFF, 0.0},
        {1, 0, 0, 1, 0, 0xFE, -1.0},
        {1, 0, 0, 1, 0, 0x80, -127.0},
        {1, 0, 0, 1, 0, 0x7F, 127.0},
        {2, 0, 0, 2, 0, 0xFF, -2.0},
        {2, 0, 0, 2, 0, 0x80, -256.0},
        // Any other format marks a sensor that gives no analog reading.
        {1, 5, 0, 3, 0, 9, 0.0},
        {1, 5, 0, 0x100, 0, 9, 0.0},
        // Linearisation; bit 7 is not part of the code.
        {1, 0, 0, 0, 1, 8, std::log(8.0)},
        {1, 0, 0, 0, 2, 8, std::log10(8.0)},
        {1, 0, 0, 0, 3, 8, 3.0},
        {1, 0, 0, 0, 4, 8, std::exp(8.0)},
        {1, 0, 0, 0, 5, 8, 1e8},
        {1, 0, 0, 0, 6, 8, 256.0},
        {1, 0, 0, 0, 7, 8, 0.125},
        {1, 0, 0, 0, 8, 8, 64.0},
        {1, 0, 0, 0, 9, 8, 512.0},
        {1, 0, 0, 0, 10, 8, std::sqrt(8.0)},
        {1, 0, 0, 0, 11, 8, 2.0},
        {1, 0, 0, 0, 12, 8, 8.0},
        {1, 0, 0, 0, 0x7F, 8, 8.0},
        {1, 0, 0, 0, 0x82, 8, std::log10(8.0)},
    };
    for (const auto& c : cases)
    {
        SensorRecord s{};
        s.result_exponent = c.k2;
        s.multiplier[0] = static_cast<uint8_t>(c.m);
        s.multiplier[1] = static_cast<uint8_t>(c.m >> 8);
        std::memcpy(s.offset, &c.b, sizeof c.b);
        s.analog_format[0] = static_cast<uint8_t>(c.format);
        s.analog_format[1] = static_cast<uint8_t>(c.format >> 8);
        s.linearization[0] = static_cast<uint8_t>(c.linearization);
        EXPECT_NEAR(sdr_convert_sensor_reading(s, c.raw), c.value,
                    1e-9 * std::fabs(c.value))
            << c.m << " " << c.b << " " << int(c.k2) << " " << c.format << " "
            << c.linearization << " " << int(c.raw);
    }
}

} // namespace

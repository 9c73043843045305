// SPDX-License-Identifier: Apache-2.0
// Raw sensor readings to values in units, by the sensor's description:
// y = L((M * x + B) * 10^K2). B is stored ready to use, so its own exponent
// is 0.
#include "events/event_records.h"

#include <cmath>

namespace
{

using kv::detail::le16;
using kv::detail::le32;

enum AnalogFormat : uint32_t
{
    kUnsigned = 0,
    kOnesComplement = 1,
    kTwosComplement = 2,
};

constexpr double kLn2 = 0.6931471805599453;

double linearize(uint32_t code, double r)
{
    switch (code & 0x7F)
    {
        case 1:
            return std::log(r);
        case 2:
            return std::log10(r);
        case 3:
            return std::log(r) / kLn2;
        case 4:
            return std::exp(r);
        case 5:
            return std::pow(10.0, r);
        case 6:
            return std::pow(2.0, r);
        case 7:
            return 1.0 / r;
        case 8:
            return std::pow(r, 2.0);
        case 9:
            return std::pow(r, 3.0);
        case 10:
            return std::sqrt(r);
        case 11:
            return std::cbrt(r);
        default:
            return r;
    }
}

} // namespace

extern "C" double sdr_convert_sensor_reading(SensorRecord sensor, uint8_t raw)
{
    const int m = le16(sensor.multiplier);
    int v = 0;
    switch (le32(sensor.analog_format))
    {
        case kUnsigned:
            v = m * raw;
            break;
        case kOnesComplement:
            // A negative one's complement value is one below its two's
            // complement reading; 0xFF (minus zero) becomes 0.
            if (static_cast<int8_t>(raw) < 0)
            {
                ++raw;
            }
            v = m * static_cast<int8_t>(raw);
            break;
        case kTwosComplement:
            v = m * static_cast<int8_t>(raw);
            break;
        default:
            return 0.0; // not an analog sensor
    }
    const double b = kv::detail::le_double(sensor.offset);
    const double r =
        (v + b * std::pow(10.0, 0)) * std::pow(10.0, sensor.result_exponent);
    return linearize(le32(sensor.linearization), r);
}

// SPDX-License-Identifier: Apache-2.0
// Without TZ the SEL texts take their zone from /etc/localtime, and a new
// zone file shows in them within a second.
#include "events_test.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>

namespace
{

// 2012-01-01 00:03:45 UTC, a temperature sensor's event of an OEM type.
constexpr uint8_t kRecord[16] = {0x21, 0x00, 0x02, 0xE1, 0xA2, 0xFF, 0x4E, 0x20,
                                 0x00, 0x04, 0x01, 0x05, 0x75, 0,    0,    0};

std::string web_text()
{
    SensorRecord sensor;
    std::memset(&sensor, 0, sizeof sensor);
    std::strcpy(sensor.name, "T");
    char out[256] = "";
    web_parse_sel_entry(kRecord, 0, sensor, out);
    return out;
}

void point_zone_file_at(const std::string& zone)
{
    ASSERT_EQ(
        std::system(
            ("ln -sf /usr/share/zoneinfo/" + zone + " /etc/localtime").c_str()),
        0);
}

TEST(SelZoneFile, ANewZoneFileShowsWithinASecond)
{
    const kv::test::TimeZone restore_tz("UTC");
    unsetenv("TZ");
    point_zone_file_at("Asia/Tokyo");
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    const std::string rest = "Temperature T    Asserted";
    ASSERT_EQ(web_text(), "01/01/12  00:03:45 GMTJST  " + rest);

    point_zone_file_at("Etc/GMT+5");
    const auto changed = std::chrono::steady_clock::now();
    std::string text = web_text();
    while (text.find("GMTJST") != std::string::npos &&
           std::chrono::steady_clock::now() - changed < std::chrono::seconds(2))
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        text = web_text();
    }
    EXPECT_EQ(text, "01/01/12  00:03:45 GMT-05  " + rest);
    // A second, and room for a loaded machine's scheduling.
    EXPECT_LE(std::chrono::steady_clock::now() - changed,
              std::chrono::milliseconds(1500));
}

} // namespace

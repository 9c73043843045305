// SPDX-License-Identifier: Apache-2.0
// Redfish event posts, end to end on the sandbox's loopback interface: a
// sensor event through its hand-off slot and the decoder to the subscribers
// that want it, received by listeners of the test.
#include "http_listener.h"
#include "ipc/platform_segment.h"
#include "test_helpers.h"

#include <libkv/events.h>
#include <libkv/ipc.h>

#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>

namespace
{

namespace segment = kv::segment;
using kv::test::HttpListener;
using kv::test::HttpRequest;

constexpr uint8_t kCpuTemp = 0x31;
constexpr int kCouldNotConnect = 7 << 8;
constexpr int kTimedOut = 28 << 8;

struct JsonDelete
{
    void operator()(cJSON* json) const
    {
        cJSON_Delete(json);
    }
};
using Json = std::unique_ptr<cJSON, JsonDelete>;

std::string member(const cJSON* object, const char* name)
{
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(object, name);
    return cJSON_IsString(item) ? item->valuestring : "<missing>";
}

class EventPost : public testing::Test
{
  protected:
    void SetUp() override
    {
        // The cookie jar lives in the working directory.
        kv::test::make_dirs("/tmp/forwarder");
        ASSERT_EQ(::chdir("/tmp/forwarder"), 0);
        shm_ = static_cast<uint8_t*>(get_shm_address());
        ASSERT_NE(shm_, nullptr);
        std::memset(shm_ + segment::kSubscriptions, 0,
                    segment::kEventSummary + sizeof(EventInfo) -
                        segment::kSubscriptions);
        describe_cpu_temp();
        kv::test::write_text("/var/run/obmcinfo/GUID", "guid-1234\n");
        kv::test::write_text("/var/run/obmcinfo/fruinfo",
                             "Product Asset Tag : RACK7-U12\n");
    }

    void TearDown() override
    {
        (void)::chdir("/");
    }

    // A 0.1 degree per count temperature sensor named "CPU0 Temp".
    void describe_cpu_temp()
    {
        SensorRecord sensor{};
        sensor.multiplier[0] = 5;
        sensor.result_exponent = -1;
        std::strcpy(sensor.name, "CPU0 Temp");
        sensor.base_unit = 1;
        std::memcpy(shm_ + segment::sensor_record(kCpuTemp), &sensor,
                    sizeof sensor);
    }

    EventSubscription& subscriber(unsigned slot, const std::string& url,
                                  uint8_t types = 0x1F)
    {
        auto* sub = reinterpret_cast<EventSubscription*>(
            shm_ + segment::subscription(slot));
        sub->in_use = 1;
        sub->event_types = types;
        sub->every_sensor = 1;
        std::snprintf(sub->token, sizeof sub->token, "token-%u", slot);
        std::snprintf(sub->url, sizeof sub->url, "%s", url.c_str());
        return *sub;
    }

    EventInfo& summary()
    {
        return *reinterpret_cast<EventInfo*>(shm_ + segment::kEventSummary);
    }

    // The threshold event of the tour: CPU0 Temp over its upper critical
    // threshold, from its slot through the decoder. Returns the text.
    std::string decode_threshold_event()
    {
        EXPECT_EQ(SensorSELWrite(shm_, kCpuTemp, 0, 0x01, 0x01, 0x59, 174, 170),
                  0);
        std::memcpy(rec_, shm_ + segment::sel_slot_payload(0), sizeof rec_);
        shm_[segment::sel_slot_state(0)] = 0;
        char text[512] = {};
        EXPECT_EQ(ipmi_parse_sel_entry(rec_, 0, shm_, text), 0);
        // What the event producer adds.
        const uint8_t id[4] = {0xCD, 0xAB, 0, 0};
        std::memcpy(summary().event_id, id, sizeof id);
        std::strcpy(summary().severity, "Critical");
        std::memset(summary().alarm_status, 0xFF, 4);
        return text;
    }

    int post(const std::string& message)
    {
        return send_curl_message(&subscriber(0, url_), message.c_str(),
                                 &summary());
    }

    uint8_t* shm_ = nullptr;
    uint8_t rec_[16] = {};
    std::string url_;
};

TEST_F(EventPost, DecodedEventReachesEachSubscriberThatWantsIt)
{
    HttpListener first;
    HttpListener second;
    subscriber(0, first.url(), 0x11);
    subscriber(1, first.url(), 0x0F); // no Alert: refuses threshold events
    subscriber(2, first.url()).in_use = 0;
    subscriber(3, second.url("/redfish/v1/events"), 0x10);
    const std::string text = decode_threshold_event();

    ASSERT_EQ(send_event_subscriptions(shm_, rec_, text.c_str()), 0);

    ASSERT_EQ(first.requests().size(), 1u);
    ASSERT_EQ(second.requests().size(), 1u);
    const HttpRequest request = first.requests()[0];
    EXPECT_EQ(request.request_line, "POST /events HTTP/1.1");
    EXPECT_EQ(request.header("Content-Type"), "application/json");
    EXPECT_EQ(request.header("X-Auth-Token"), "token-0");
    EXPECT_EQ(second.requests()[0].request_line,
              "POST /redfish/v1/events HTTP/1.1");
    EXPECT_EQ(second.requests()[0].header("X-Auth-Token"), "token-3");

    const Json body(cJSON_Parse(request.body.c_str()));
    ASSERT_TRUE(body) << request.body;
    const cJSON* event = cJSON_GetArrayItem(
        cJSON_GetObjectItemCaseSensitive(body.get(), "Events"), 0);
    EXPECT_EQ(member(event, "EventType"), "StatusChange,Alert");
    EXPECT_EQ(member(event, "EventId"), "0x0000abcd");
    EXPECT_EQ(member(event, "EventTimestamp"), summary().timestamp);
    EXPECT_EQ(member(event, "Severity"), "Critical");
    EXPECT_EQ(member(event, "Message"), text);
    const cJSON* oem = cJSON_GetObjectItemCaseSensitive(
        cJSON_GetObjectItemCaseSensitive(event, "Oem"), "Veldmarke");
    EXPECT_EQ(member(oem, "specificProblemID"), "0x10000109");
    EXPECT_EQ(member(oem, "specificProblem"), "Upper Critical going high");
    EXPECT_EQ(cJSON_GetObjectItemCaseSensitive(oem, "alarmStatus")->valueint,
              -1);
    EXPECT_EQ(member(oem, "neUID"), "guid-1234");
    EXPECT_EQ(member(oem, "neName"), "RACK7-U12");
    EXPECT_EQ(member(oem, "neType"), "server");
    EXPECT_EQ(member(oem, "objectUID"), "0x31");
    EXPECT_EQ(member(oem, "objectName"), "CPU0 Temp");
    EXPECT_EQ(member(oem, "objectType"), "Temperature");
    // The UID and asset tag went into the summary on the way.
    EXPECT_STREQ(summary().element_name, "RACK7-U12");

    EXPECT_EQ(send_event_subscriptions(nullptr, rec_, text.c_str()), -1);
    EXPECT_EQ(send_event_subscriptions(shm_, nullptr, text.c_str()), -1);
    EXPECT_EQ(send_event_subscriptions(shm_, rec_, nullptr), -1);
    EXPECT_EQ(first.requests().size(), 1u);
}

TEST_F(EventPost, CookiesFromTheSubscriberAreKeptInTheJarAndSentBack)
{
    HttpListener listener("Set-Cookie: session=abc123; Path=/\r\n");
    url_ = listener.url();
    decode_threshold_event();

    EXPECT_EQ(post("first"), 0);
    EXPECT_EQ(post("second"), 0);

    ASSERT_EQ(listener.requests().size(), 2u);
    EXPECT_EQ(listener.requests()[0].header("Cookie"), "");
    EXPECT_EQ(listener.requests()[1].header("Cookie"), "session=abc123");
    EXPECT_NE(kv::test::read_text("/tmp/forwarder/cjar")->find("abc123"),
              std::string::npos);
}

TEST_F(EventPost, FieldsWithQuotesAndControlCharactersStayValidJson)
{
    HttpListener listener;
    url_ = listener.url();
    decode_threshold_event();
    std::strcpy(summary().sensor_type, "say \"hi\"");
    // A sensor name filling its field: it ends where the field ends.
    std::memset(summary().sensor_name, 'n', sizeof summary().sensor_name);
    const std::string message = "C:\\drive \"1\"\n\tdone\x01";
    // A token cannot add header lines of its own.
    EventSubscription& sub = subscriber(0, url_);
    std::strcpy(sub.token, "t\r\nX-Injected: 1");

    EXPECT_EQ(send_curl_message(&sub, message.c_str(), &summary()), 0);

    ASSERT_EQ(listener.requests().size(), 1u);
    const HttpRequest request = listener.requests()[0];
    EXPECT_EQ(request.header("X-Auth-Token"), "t");
    EXPECT_EQ(request.header("X-Injected"), "");
    const Json body(cJSON_Parse(request.body.c_str()));
    ASSERT_TRUE(body) << request.body;
    const cJSON* event = cJSON_GetArrayItem(
        cJSON_GetObjectItemCaseSensitive(body.get(), "Events"), 0);
    EXPECT_EQ(member(event, "Message"), message);
    const cJSON* oem = cJSON_GetObjectItemCaseSensitive(
        cJSON_GetObjectItemCaseSensitive(event, "Oem"), "Veldmarke");
    EXPECT_EQ(member(oem, "objectType"), "say \"hi\"");
    EXPECT_EQ(member(oem, "objectName"), std::string(32, 'n'));
    EXPECT_EQ(member(oem, "specificProblem"), "Unknown Problem");
}

TEST_F(EventPost, UnreachableSubscriberFailsAtOnceAndSilentOneAfterFiveSeconds)
{
    {
        HttpListener closed;
        url_ = closed.url();
    }
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(post("to nobody"), kCouldNotConnect);
    EXPECT_LT(std::chrono::steady_clock::now() - start,
              std::chrono::seconds(2));

    HttpListener silent("", false);
    url_ = silent.url();
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(post("never answered"), kTimedOut);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(4500));
    EXPECT_LT(waited, std::chrono::milliseconds(7000));
    EXPECT_EQ(silent.requests().size(), 1u);
}

} // namespace

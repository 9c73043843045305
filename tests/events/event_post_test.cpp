// SPDX-License-Identifier: Apache-2.0
// Redfish event posts, end to end on the sandbox's loopback interface: a
// sensor event through its hand-off slot and the decoder to the subscribers
// that want it, received by subscribers of the test.
#include "ipc/platform_segment.h"
#include "loopback_server.h"
#include "test_helpers.h"

#include <libkv/events.h>
#include <libkv/ipc.h>

#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace
{

namespace segment = kv::segment;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct HttpRequest
{
    std::string head; // request line and header lines, each ending in \n
    std::string body;

    // The value of the first header named `name`, or "".
    std::string header(const std::string& name) const
    {
        const auto at = head.find("\n" + name + ":");
        const auto from = head.find_first_not_of(' ', at + name.size() + 2);
        return at == std::string::npos
                   ? ""
                   : head.substr(from, head.find('\n', from) - from);
    }
};

// A subscriber that keeps each request and answers 200 with
// `response_headers`, or never answers.
class Subscriber
{
  public:
    explicit Subscriber(std::string response_headers = "", bool answer = true) :
        server_([this, response_headers, answer](kv::test::Peer& peer) {
            HttpRequest r;
            for (std::string line; peer.line(line) && !line.empty();)
            {
                r.head += line + "\n";
            }
            if (r.header("Expect") == "100-continue")
            {
                peer.send("HTTP/1.1 100 Continue\r\n\r\n");
            }
            r.body = peer.read(std::atoi(r.header("Content-Length").c_str()));
            requests_.push_back(r);
            peer.hold = !answer;
            peer.send(answer ? "HTTP/1.1 200 OK\r\n" + response_headers +
                                   "Content-Length: 0\r\n\r\n"
                             : "");
        })
    {}

    std::string url(const std::string& path = "/events")
    {
        return "http://127.0.0.1:" + std::to_string(server_.port()) + path;
    }

    // The requests, once `count` of them have come.
    const std::vector<HttpRequest>& requests(std::size_t count)
    {
        server_.served(count);
        return requests_;
    }

  private:
    std::vector<HttpRequest> requests_;
    kv::test::LoopbackServer server_;
};

// A member of the one event of a post's body, or of its "Oem" part.
std::string member(const std::string& body, const char* name, bool oem = true)
{
    cJSON* json = cJSON_Parse(body.c_str());
    const cJSON* at =
        cJSON_GetArrayItem(cJSON_GetObjectItemCaseSensitive(json, "Events"), 0);
    if (oem)
    {
        at = cJSON_GetObjectItemCaseSensitive(
            cJSON_GetObjectItemCaseSensitive(at, "Oem"), "Veldmarke");
    }
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(at, name);
    const std::string text = cJSON_IsString(item) ? item->valuestring
                             : cJSON_IsNumber(item)
                                 ? std::to_string(item->valueint)
                                 : "<missing>";
    cJSON_Delete(json);
    return text;
}

constexpr uint8_t kCpuTemp = 0x31;

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
        // A 0.1 degree per count temperature sensor.
        SensorRecord sensor{};
        sensor.multiplier[0] = 5;
        sensor.result_exponent = -1;
        std::strcpy(sensor.name, "CPU0 Temp");
        sensor.base_unit = 1;
        std::memcpy(shm_ + segment::sensor_record(kCpuTemp), &sensor,
                    sizeof sensor);
        kv::test::write_text("/var/run/obmcinfo/GUID", "guid-1234\n");
        kv::test::write_text("/var/run/obmcinfo/fruinfo",
                             "Product Asset Tag : RACK7-U12\n");
    }

    void TearDown() override
    {
        (void)::chdir("/");
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

    // CPU0 Temp over its upper critical threshold, from its slot through
    // the decoder, with what the event producer adds. Returns the text.
    std::string decode_threshold_event()
    {
        EXPECT_EQ(SensorSELWrite(shm_, kCpuTemp, 0, 0x01, 0x01, 0x59, 174, 170),
                  0);
        std::memcpy(rec_, shm_ + segment::sel_slot_payload(0), sizeof rec_);
        shm_[segment::sel_slot_state(0)] = 0;
        char text[512] = {};
        EXPECT_EQ(ipmi_parse_sel_entry(rec_, 0, shm_, text), 0);
        const uint8_t id[4] = {0xCD, 0xAB, 0, 0};
        std::memcpy(summary().event_id, id, sizeof id);
        std::strcpy(summary().severity, "Critical");
        std::memset(summary().alarm_status, 0xFF, 4);
        return text;
    }

    int post(const std::string& url, const char* message)
    {
        return send_curl_message(&subscriber(0, url), message, &summary());
    }

    uint8_t* shm_ = nullptr;
    uint8_t rec_[16] = {};
};

TEST_F(EventPost, DecodedEventReachesEachSubscriberThatWantsIt)
{
    Subscriber first;
    Subscriber second;
    subscriber(0, first.url(), 0x11);
    subscriber(1, first.url(), 0x0F); // no Alert: refuses threshold events
    subscriber(2, first.url()).in_use = 0;
    subscriber(3, second.url("/redfish/v1/events"), 0x10);
    const std::string text = decode_threshold_event();

    ASSERT_EQ(send_event_subscriptions(shm_, rec_, text.c_str()), 0);

    ASSERT_EQ(first.requests(1).size(), 1u);
    ASSERT_EQ(second.requests(1).size(), 1u);
    const HttpRequest& request = first.requests(1)[0];
    EXPECT_TRUE(request.head.starts_with("POST /events HTTP/1.1\n"));
    EXPECT_EQ(request.header("Content-Type"), "application/json");
    EXPECT_EQ(request.header("X-Auth-Token"), "token-0");
    EXPECT_TRUE(second.requests(1)[0].head.starts_with(
        "POST /redfish/v1/events HTTP/1.1\n"));
    EXPECT_EQ(second.requests(1)[0].header("X-Auth-Token"), "token-3");

    const std::string fields[][3] = {
        {"EventType", "StatusChange,Alert", ""},
        {"EventId", "0x0000abcd", ""},
        {"EventTimestamp", summary().timestamp, ""},
        {"Severity", "Critical", ""},
        {"Message", text, ""},
        {"specificProblemID", "0x10000109", "oem"},
        {"specificProblem", "Upper Critical going high", "oem"},
        {"alarmStatus", "-1", "oem"},
        {"neUID", "guid-1234", "oem"},
        {"neName", "RACK7-U12", "oem"},
        {"neType", "server", "oem"},
        {"objectUID", "0x31", "oem"},
        {"objectName", "CPU0 Temp", "oem"},
        {"objectType", "Temperature", "oem"},
    };
    for (const auto& [name, value, oem] : fields)
    {
        EXPECT_EQ(member(request.body, name.c_str(), !oem.empty()), value)
            << name;
    }
    // The asset tag went into the summary on the way.
    EXPECT_STREQ(summary().element_name, "RACK7-U12");

    EXPECT_EQ(send_event_subscriptions(nullptr, rec_, text.c_str()), -1);
    EXPECT_EQ(send_event_subscriptions(shm_, nullptr, text.c_str()), -1);
    EXPECT_EQ(send_event_subscriptions(shm_, rec_, nullptr), -1);
    EXPECT_EQ(first.requests(1).size(), 1u);
}

TEST_F(EventPost, CookiesFromTheSubscriberAreKeptInTheJarAndSentBack)
{
    Subscriber listener("Set-Cookie: session=abc123; Path=/\r\n");
    decode_threshold_event();
    EXPECT_EQ(post(listener.url(), "first"), 0);
    EXPECT_EQ(post(listener.url(), "second"), 0);
    ASSERT_EQ(listener.requests(2).size(), 2u);
    EXPECT_EQ(listener.requests(2)[0].header("Cookie"), "");
    EXPECT_EQ(listener.requests(2)[1].header("Cookie"), "session=abc123");
    EXPECT_NE(kv::test::read_text("cjar").value_or("").find("abc123"),
              std::string::npos);
}

TEST_F(EventPost, FieldsWithQuotesAndControlCharactersStayValidJson)
{
    Subscriber listener;
    decode_threshold_event();
    std::strcpy(summary().sensor_type, "say \"hi\"");
    // A sensor name filling its field ends where the field ends.
    std::memset(summary().sensor_name, 'n', sizeof summary().sensor_name);
    const std::string message = "C:\\drive \"1\"\n\tdone\x01";
    // A token cannot add header lines of its own.
    EventSubscription& sub = subscriber(0, listener.url());
    std::strcpy(sub.token, "t\r\nX-Injected: 1");

    EXPECT_EQ(send_curl_message(&sub, message.c_str(), &summary()), 0);

    ASSERT_EQ(listener.requests(1).size(), 1u);
    const HttpRequest& request = listener.requests(1)[0];
    EXPECT_EQ(request.header("X-Auth-Token"), "t");
    EXPECT_EQ(request.header("X-Injected"), "");
    EXPECT_EQ(member(request.body, "Message", false), message);
    EXPECT_EQ(member(request.body, "objectType"), "say \"hi\"");
    EXPECT_EQ(member(request.body, "objectName"), std::string(32, 'n'));
    EXPECT_EQ(member(request.body, "specificProblem"), "Unknown Problem");
}

TEST_F(EventPost, UnreachableSubscriberFailsAtOnceAndSilentOneAfterFiveSeconds)
{
    std::string closed = Subscriber().url();
    auto start = steady_clock::now();
    EXPECT_EQ(post(closed, "to nobody"), 7 << 8);
    EXPECT_LT(steady_clock::now() - start, milliseconds(2000));

    Subscriber silent("", false);
    start = steady_clock::now();
    EXPECT_EQ(post(silent.url(), "never answered"), 28 << 8);
    const auto waited = steady_clock::now() - start;
    EXPECT_GE(waited, milliseconds(4500));
    EXPECT_LT(waited, milliseconds(7000));
    EXPECT_EQ(silent.requests(1).size(), 1u);
}

} // namespace

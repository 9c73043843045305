// SPDX-License-Identifier: Apache-2.0
// Redfish event posts: which subscribers want an event, how the post names
// the event types and the problem, and the posts themselves, end to end on
// the sandbox's loopback interface, received by subscribers of the test.
#include "events/sel_tables.h"
#include "events_test.h"
#include "loopback_server.h"

#include <cjson/cJSON.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>

namespace
{

namespace segment = kv::segment;
using namespace kv::detail;
using namespace std::chrono;
using Record = std::array<uint8_t, 16>;

Record record(uint8_t event_type, uint8_t sensor = 0x42)
{
    Record rec{};
    rec[11] = sensor;
    rec[12] = event_type;
    return rec;
}

// A subscriber of every sensor and every event type, with empty lists.
EventSubscription everything()
{
    EventSubscription sub{};
    sub.in_use = 1;
    sub.event_types = 0x1F;
    sub.every_sensor = 1;
    return sub;
}

int wants(const EventSubscription& sub, const Record& rec,
          const char* message = "x")
{
    return check_event_subscription_active(sub, rec.data(), message);
}

// Alert takes threshold, generic and sensor-specific events, the four
// resource bits the others; then the sensor filter and the problem lists.
TEST(SubscriptionFilter, TypeThenSensorThenProblem)
{
    for (const uint8_t type :
         {0x01, 0x02, 0x0C, 0x6F, 0x81, 0xEF, 0x00, 0x0D, 0x6E, 0x70, 0xF0})
    {
        const int code = type & 0x7F;
        const bool alert = code == 0x6F || (code >= 0x01 && code <= 0x0C);
        for (const uint8_t bit : {0x01, 0x02, 0x04, 0x08, 0x10})
        {
            EXPECT_EQ(check_event_subscription_type(bit, record(type).data()),
                      (bit == 0x10) == alert ? 0 : -1)
                << int(type) << " " << int(bit);
        }
    }
    EXPECT_EQ(check_event_subscription_type(0x1F, nullptr), -1);
    char names[128] = "x"; // bits 5-7 have no names
    eventtypeToStr(0xEE, names);
    EXPECT_STREQ(names, "xResourceUpdated,ResourceAdded,ResourceRemoved");
    EXPECT_EQ(check_event_subscription_active(everything(), nullptr, "x"), 0);

    // The type filter comes before every_problem.
    EventSubscription sub = everything();
    sub.event_types = 0x01;
    sub.every_problem = 1;
    EXPECT_EQ(wants(sub, record(0x01)), 0);
    sub.event_types = 0x11;
    EXPECT_EQ(wants(sub, record(0x01)), 1);

    // Only every_sensor = 1 means every sensor.
    sub.every_sensor = 2;
    EXPECT_EQ(wants(sub, record(0x6F, 0x42)), 0);
    sub.sensors[0x42] = 1;
    EXPECT_EQ(wants(sub, record(0x6F, 0x42)), 1);
    EXPECT_EQ(wants(sub, record(0x6F, 0x43)), 0);
    sub.every_sensor = 1;
    EXPECT_EQ(wants(sub, record(0x6F, 0x43)), 1);

    // Position n of a list names entry n-1 of its own table, up to 255; a
    // position past the table's end names nothing.
    for (const auto table : {EventTable::generic, EventTable::sensor_specific})
    {
        const auto entries = event_entries(table);
        for (std::size_t n = 1; n <= std::min<std::size_t>(entries.size(), 255);
             ++n)
        {
            sub = everything();
            sub.generic_excluded[0] = 200;
            (table == EventTable::generic ? sub.generic_excluded
                                          : sub.specific_excluded)[n % 128] =
                uint8_t(n);
            const std::string text = "| " + std::string(entries[n - 1].text);
            ASSERT_EQ(wants(sub, record(0x01), text.c_str()), 0) << text;
            ASSERT_EQ(wants(sub, record(0x01)), 1) << text;
            sub.every_problem = 1;
            ASSERT_EQ(wants(sub, record(0x01), text.c_str()), 1) << text;
        }
    }
}

std::pair<uint32_t, std::string> problem_in(const char* message)
{
    char text[128] = {};
    uint32_t code = 0;
    getspecificProblem(message, &code, text);
    return {code, text};
}

// The first text found in the tables, generic first, gives the table, the
// code and the offset.
TEST(ProblemCode, FirstTextFoundGivesTableCodeAndOffset)
{
    const std::tuple<const char*, uint32_t, const char*> cases[] = {
        {"CPU0 Temp | Upper Critical going high | Asserted", 0x10000109,
         "Upper Critical going high"},
        {"Disk3 | Drive Fault | Asserted", 0x20000D01, "Drive Fault"},
        {"Drive Fault, Device Present", 0x10000801, "Device Present"},
        {"nothing known here", 0xFFFFFFFF, "Unknown Problem"},
    };
    for (const auto& [message, code, text] : cases)
    {
        EXPECT_EQ(problem_in(message), std::pair(code, std::string(text)));
    }
    // Every entry's text gives the code of an entry with the text found,
    // in the first table that has one.
    for (const auto table :
         {EventTable::generic, EventTable::sensor_specific, EventTable::vendor})
    {
        for (const auto& e : event_entries(table))
        {
            const auto [code, text] = problem_in(e.text);
            EXPECT_NE(std::strstr(e.text, text.c_str()), nullptr);
            const auto found = static_cast<EventTable>(code >> 28);
            EXPECT_LE(found, table) << e.text;
            bool named = false;
            for (const auto& f : event_entries(found))
            {
                named |=
                    (code & 0x0FFFFFFF) == uint32_t(f.code << 8 | f.offset) &&
                    text == f.text;
            }
            EXPECT_TRUE(named) << e.text << " " << std::hex << code;
        }
    }
}

// The value of the header `name` in a request head, or "".
std::string header(const std::string& head, const std::string& name)
{
    const auto at = head.find("\n" + name + ":");
    const auto from = head.find_first_not_of(' ', at + name.size() + 2);
    return at == std::string::npos
               ? ""
               : head.substr(from, head.find('\n', from) - from);
}

// A subscriber that keeps the requests and answers 200 with `headers`, or
// never answers.
struct Subscriber
{
    explicit Subscriber(std::string headers = "", bool answer = true) :
        server([this, headers, answer](kv::test::Peer& peer) {
            std::string head, line;
            while (peer.line(line) && !line.empty())
            {
                head += line + "\n";
            }
            bodies.push_back(
                peer.read(std::atoi(header(head, "Content-Length").c_str())));
            heads.push_back(head);
            peer.hold = !answer;
            peer.send(answer ? "HTTP/1.1 200 OK\r\n" + headers +
                                   "Content-Length: 0\r\n\r\n"
                             : "");
        })
    {}

    std::string url(const std::string& path = "/events")
    {
        return "http://127.0.0.1:" + std::to_string(server.port()) + path;
    }

    std::vector<std::string> heads, bodies;
    kv::test::LoopbackServer server;
};

// A member of the one event of a post's body, or of its "Oem" part.
std::string member(const std::string& body, const char* name, bool oem)
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
        std::strcpy(reinterpret_cast<SensorRecord*>(
                        shm_ + segment::sensor_record(kCpuTemp))
                        ->name,
                    "CPU0 Temp");
        kv::test::write_text("/var/run/obmcinfo/GUID", "guid-1234\n");
        kv::test::write_text("/var/run/obmcinfo/fruinfo",
                             "Product Asset Tag : RACK7-U12\n");
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
        std::memcpy(summary().event_id, "\xCD\xAB\0", 4);
        std::strcpy(summary().severity, "Critical");
        std::memset(summary().alarm_status, 0xFF, 4);
        return text;
    }

    int post(const std::string& url, const char* message)
    {
        return send_curl_message(&subscriber(0, url), message, &summary());
    }

    uint8_t* shm_ = cleared_segment();
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

    ASSERT_EQ(first.server.served(1), 1u);
    ASSERT_EQ(second.server.served(1), 1u);
    const std::string& head = first.heads[0];
    EXPECT_TRUE(head.starts_with("POST /events HTTP/1.1\n"));
    EXPECT_EQ(header(head, "Content-Type"), "application/json");
    EXPECT_EQ(header(head, "X-Auth-Token"), "token-0");
    EXPECT_TRUE(second.heads[0].starts_with("POST /redfish/v1/events "));
    EXPECT_EQ(header(second.heads[0], "X-Auth-Token"), "token-3");

    const std::string fields[][2] = {
        {"EventType", "StatusChange,Alert"},
        {"EventId", "0x0000abcd"},
        {"EventTimestamp", summary().timestamp},
        {"Severity", "Critical"},
        {"Message", text},
        // The rest in the "Oem" part.
        {"specificProblemID", "0x10000109"},
        {"specificProblem", "Upper Critical going high"},
        {"alarmStatus", "-1"},
        {"neUID", "guid-1234"},
        {"neName", "RACK7-U12"},
        {"neType", "server"},
        {"objectUID", "0x31"},
        {"objectName", "CPU0 Temp"},
        {"objectType", "Temperature"},
    };
    for (std::size_t i = 0; i < std::size(fields); ++i)
    {
        EXPECT_EQ(member(first.bodies[0], fields[i][0].c_str(), i > 4),
                  fields[i][1]);
    }
    // The asset tag went into the summary on the way.
    EXPECT_STREQ(summary().element_name, "RACK7-U12");

    EXPECT_EQ(send_event_subscriptions(nullptr, rec_, text.c_str()), -1);
    EXPECT_EQ(send_event_subscriptions(shm_, nullptr, text.c_str()), -1);
    EXPECT_EQ(send_event_subscriptions(shm_, rec_, nullptr), -1);
    EXPECT_EQ(first.heads.size(), 1u);
}

TEST_F(EventPost, FieldsStayValidJsonAndCookiesComeBack)
{
    Subscriber listener("Set-Cookie: session=abc123; Path=/\r\n");
    decode_threshold_event();
    std::strcpy(summary().sensor_type, "say \"hi\"");
    // A sensor name filling its field ends where the field ends.
    std::memset(summary().sensor_name, 'n', sizeof summary().sensor_name);
    const std::string message = "C:\\drive \"1\"\n\tdone\x01";
    // A token cannot add header lines of its own.
    EventSubscription& sub = subscriber(0, listener.url());
    std::strcpy(sub.token, "t\r\nX-Injected: 1");

    EXPECT_EQ(send_curl_message(&sub, message.c_str(), &summary()), 0);
    EXPECT_EQ(post(listener.url(), "second"), 0);

    ASSERT_EQ(listener.server.served(2), 2u);
    const std::string& head = listener.heads[0];
    EXPECT_EQ(header(head, "X-Auth-Token"), "t");
    EXPECT_EQ(header(head, "X-Injected"), "");
    EXPECT_EQ(member(listener.bodies[0], "Message", false), message);
    EXPECT_EQ(member(listener.bodies[0], "objectType", true), "say \"hi\"");
    EXPECT_EQ(member(listener.bodies[0], "objectName", true),
              std::string(32, 'n'));
    EXPECT_EQ(member(listener.bodies[0], "specificProblem", true),
              "Unknown Problem");
    // The cookie is kept in the jar and sent back.
    EXPECT_EQ(header(head, "Cookie"), "");
    EXPECT_EQ(header(listener.heads[1], "Cookie"), "session=abc123");
    EXPECT_NE(kv::test::read_text("cjar").value_or("").find("abc123"),
              std::string::npos);
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
    EXPECT_EQ(silent.server.served(1), 1u);
}

} // namespace

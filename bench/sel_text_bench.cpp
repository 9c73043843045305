// SPDX-License-Identifier: Apache-2.0
// SEL records to text: libkv's web decoder against FreeIPMI's record
// formatter, over the same 100,000 mixed records in one run. Reports the
// time per record of each and their ratio.
#include <libkv/events.h>

#include <benchmark/benchmark.h>
#include <freeipmi/freeipmi.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace
{

using Record = std::array<uint8_t, 16>;

constexpr size_t kRecords = 100000;
constexpr uint32_t kClockTime = 0x65A1B2C3; // January 2024

// The mix a BMC's SEL holds: threshold events, sensor-specific events
// with and without data-2 dependent texts, OEM record and event types,
// events from before the clock was set, presence events.
std::vector<Record> make_records()
{
    std::mt19937 engine(7);
    auto any = [&](int n) { return static_cast<int>(engine() % n); };
    auto byte = [&] { return static_cast<uint8_t>(engine()); };
    std::vector<Record> records;
    records.reserve(kRecords);
    for (size_t i = 0; i < kRecords; ++i)
    {
        uint32_t time = kClockTime + static_cast<uint32_t>(any(86400 * 30));
        uint8_t type = 0x02;
        uint8_t sensor_type = 0;
        uint8_t dir_type = 0;
        uint8_t data1 = 0;
        uint8_t data2 = 0xFF;
        uint8_t data3 = 0xFF;
        const int kind = any(100);
        if (kind < 30) // threshold, with reading and threshold
        {
            static constexpr uint8_t kTypes[] = {0x01, 0x02, 0x03, 0x04};
            sensor_type = kTypes[any(4)];
            dir_type = any(2) ? 0x01 : 0x81;
            data1 = static_cast<uint8_t>(0x50 | any(12));
            data2 = byte();
            data3 = byte();
        }
        else if (kind < 50) // sensor-specific, one text per offset
        {
            static constexpr uint8_t kTypes[] = {0x07, 0x08, 0x0C, 0x0D,
                                                 0x10, 0x12, 0x21, 0xC1};
            sensor_type = kTypes[any(8)];
            dir_type = 0x6F;
            data1 = static_cast<uint8_t>(any(9));
            data2 = byte();
            data3 = byte();
        }
        else if (kind < 65) // sensor-specific, texts chosen by data 2
        {
            dir_type = 0x6F;
            if (any(2))
            {
                sensor_type = 0x0F;
                data1 = static_cast<uint8_t>(0xC0 | any(3));
                data2 = static_cast<uint8_t>(any(0x1A));
            }
            else
            {
                sensor_type = 0x2B;
                data1 = static_cast<uint8_t>(0xC0 | (any(2) ? 1 : 7));
                data2 = static_cast<uint8_t>(any(0x18));
            }
        }
        else if (kind < 75) // OEM record types, timed and not
        {
            static constexpr uint8_t kTypes[] = {0xC0, 0xD5, 0xDF, 0xE0, 0xE4};
            type = kTypes[any(5)];
            sensor_type = 0x01;
            dir_type = 0x01;
            data1 = 0x59;
            data2 = byte();
            data3 = byte();
        }
        else if (kind < 85) // OEM event types
        {
            sensor_type = static_cast<uint8_t>(0xC0 + any(16));
            dir_type = static_cast<uint8_t>(0x70 + any(15));
            data1 = byte();
            data2 = byte();
            data3 = byte();
        }
        else if (kind < 95) // before the clock was set
        {
            time = static_cast<uint32_t>(any(100000));
            sensor_type = 0x12;
            dir_type = 0x6F;
            data1 = static_cast<uint8_t>(any(6));
        }
        else // presence of drives and cables
        {
            sensor_type = any(2) ? 0x0D : 0x1B;
            dir_type = 0x08;
            data1 = static_cast<uint8_t>(any(2));
            data2 = byte();
            data3 = byte();
        }
        const uint8_t number = byte();
        records.push_back({0x21, 0x00, type, static_cast<uint8_t>(time),
                           static_cast<uint8_t>(time >> 8),
                           static_cast<uint8_t>(time >> 16),
                           static_cast<uint8_t>(time >> 24), 0x20, 0x00, 0x04,
                           sensor_type, number, dir_type, data1, data2, data3});
    }
    return records;
}

std::vector<SensorRecord> make_sensors()
{
    std::vector<SensorRecord> sensors(256);
    for (size_t n = 0; n < sensors.size(); ++n)
    {
        SensorRecord& s = sensors[n];
        std::memset(&s, 0, sizeof s);
        std::snprintf(s.name, sizeof s.name, "Sensor %zu", n);
        s.multiplier[0] = static_cast<uint8_t>(1 + n % 7);
        s.result_exponent = static_cast<int8_t>(-static_cast<int>(n % 3));
        const double b = n % 4 == 0 ? 0.5 : 0.0;
        std::memcpy(s.offset, &b, sizeof b);
        s.base_unit = static_cast<uint8_t>(n % 20);
        s.unit_flags = static_cast<uint8_t>(n % 5 == 0 ? 0x02 : 0x00);
    }
    return sensors;
}

const std::vector<Record>& records()
{
    static const std::vector<Record> all = make_records();
    return all;
}

void decode_all(benchmark::State& state)
{
    const auto sensors = make_sensors();
    char out[1024];
    for (auto _ : state)
    {
        for (const Record& rec : records())
        {
            out[0] = '\0';
            web_parse_sel_entry(rec.data(), 0, sensors[rec[11]], out);
            benchmark::DoNotOptimize(out);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(kRecords));
}

// As on a BMC: TZ unset, so the zone comes from /etc/localtime, which the
// texts look at again once a second.
void libkv_web_parse(benchmark::State& state)
{
    if (std::getenv("TZ") != nullptr)
    {
        state.SkipWithError("run without TZ to measure the zone file check");
        return;
    }
    decode_all(state);
}

// The same zone named in TZ, which the texts compare on every record.
void libkv_web_parse_tz_set(benchmark::State& state)
{
    const char* old = std::getenv("TZ");
    const std::string saved = old != nullptr ? old : "";
    setenv("TZ", ":/etc/localtime", 1);
    decode_all(state);
    if (old != nullptr)
    {
        setenv("TZ", saved.c_str(), 1);
    }
    else
    {
        unsetenv("TZ");
    }
    tzset();
}

// FreeIPMI without a BMC or an SDR cache: time, sensor type, sensor (by
// number), event text and direction.
void freeipmi_record_string(benchmark::State& state)
{
    ipmi_sel_ctx_t ctx = ipmi_sel_ctx_create(nullptr, nullptr);
    if (ctx == nullptr)
    {
        state.SkipWithError("ipmi_sel_ctx_create failed");
        return;
    }
    char out[1024];
    const unsigned flags = IPMI_SEL_STRING_FLAGS_IGNORE_UNAVAILABLE_FIELD;
    for (auto _ : state)
    {
        for (const Record& rec : records())
        {
            ipmi_sel_parse_read_record_string(ctx, "%d %t %T %s %e %k",
                                              rec.data(), rec.size(), out,
                                              sizeof out, flags);
            benchmark::DoNotOptimize(out);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(kRecords));
    ipmi_sel_ctx_destroy(ctx);
}

BENCHMARK(libkv_web_parse)->Unit(benchmark::kMillisecond);
BENCHMARK(libkv_web_parse_tz_set)->Unit(benchmark::kMillisecond);
BENCHMARK(freeipmi_record_string)->Unit(benchmark::kMillisecond);

// The console report, then nanoseconds per record and the ratio.
class RatioReporter : public benchmark::ConsoleReporter
{
  public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
        {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred &&
                run.iterations > 0)
            {
                ns_[run.run_name.function_name] =
                    run.real_accumulated_time * 1e9 /
                    static_cast<double>(run.iterations) / kRecords;
            }
        }
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        for (const auto& [name, ns] : ns_)
        {
            std::printf("%-24s %8.1f ns per record\n", name.c_str(), ns);
        }
        const auto peer = ns_.find("freeipmi_record_string");
        for (const char* ours : {"libkv_web_parse", "libkv_web_parse_tz_set"})
        {
            const auto found = ns_.find(ours);
            if (found != ns_.end() && peer != ns_.end() && found->second > 0)
            {
                std::printf("FreeIPMI / %s: %.1f\n", ours,
                            peer->second / found->second);
            }
        }
    }

  private:
    std::map<std::string, double> ns_;
};

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    records(); // built once, outside the timings
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

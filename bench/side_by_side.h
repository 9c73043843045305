// SPDX-License-Identifier: Apache-2.0
// Two ways of doing one job timed in alternation inside one benchmark, so
// that a neighbour's load on a shared machine falls on both sides alike.
// Each benchmark reports the nanoseconds per call of libkv and of its peer
// (a peer library or the bare system calls) and libkv's cost as a multiple
// of the peer's; the reporter ends with one line per comparison.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace kv::bench
{

// `libkv` and `peer` run `batch` times each per iteration, in turns, the
// side that goes first changing every iteration. `between` runs untimed
// after both, for housekeeping such as keeping a log below its archive size.
template <typename Libkv, typename Peer, typename Between>
void time_side_by_side(benchmark::State& state, size_t batch, Libkv&& libkv,
                       Peer&& peer, Between&& between)
{
    using Clock = std::chrono::steady_clock;
    Clock::duration libkv_time{};
    Clock::duration peer_time{};
    const auto timed = [batch](auto& side, Clock::duration& total) {
        const auto start = Clock::now();
        for (size_t i = 0; i < batch; ++i)
        {
            side();
        }
        total += Clock::now() - start;
    };
    bool libkv_first = true;
    for (auto _ : state)
    {
        if (libkv_first)
        {
            timed(libkv, libkv_time);
            timed(peer, peer_time);
        }
        else
        {
            timed(peer, peer_time);
            timed(libkv, libkv_time);
        }
        libkv_first = !libkv_first;
        between();
    }
    const double calls =
        static_cast<double>(state.iterations()) * static_cast<double>(batch);
    const auto ns = [calls](Clock::duration total) {
        return std::chrono::duration<double, std::nano>(total).count() / calls;
    };
    state.counters["libkv_ns"] = ns(libkv_time);
    state.counters["peer_ns"] = ns(peer_time);
    state.counters["ratio"] = ns(libkv_time) / ns(peer_time);
}

struct Goal
{
    std::string benchmark;
    std::string text; // e.g. "at most 1.5"
};

// The console table, then "name: libkv X ns, peer Y ns, ratio Z (goal)".
class RatioReporter : public benchmark::ConsoleReporter
{
  public:
    explicit RatioReporter(std::vector<Goal> goals) : goals_(std::move(goals))
    {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
        {
            if (run.error_occurred || run.counters.count("ratio") == 0)
            {
                continue;
            }
            char line[256];
            std::snprintf(line, sizeof line,
                          "%-40s libkv %9.0f ns  peer %9.0f ns  ratio %5.2f",
                          run.benchmark_name().c_str(),
                          run.counters.at("libkv_ns").value,
                          run.counters.at("peer_ns").value,
                          run.counters.at("ratio").value);
            std::string text = line;
            for (const Goal& goal : goals_)
            {
                if (run.run_name.function_name == goal.benchmark)
                {
                    text += "  (goal: " + goal.text + ")";
                }
            }
            lines_.push_back(text);
        }
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        for (const std::string& line : lines_)
        {
            std::printf("%s\n", line.c_str());
        }
    }

  private:
    std::vector<Goal> goals_;
    std::vector<std::string> lines_;
};

} // namespace kv::bench

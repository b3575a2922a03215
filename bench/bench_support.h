// Latency bookkeeping shared by the benchmarks: per-iteration samples reported as median and
// worst, since the worst case is what a control cycle must survive.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace zk_bench {

class LatencySamples {
public:
    void reserve(size_t n) { samples_.reserve(n); }
    void add(std::chrono::steady_clock::duration d)
    {
        samples_.push_back(std::chrono::duration<double, std::micro>(d).count());
    }
    // Publishes median_us and worst_us as counters of the benchmark.
    void report(benchmark::State& state)
    {
        if (samples_.empty()) return;
        std::sort(samples_.begin(), samples_.end());
        state.counters["median_us"] = samples_[samples_.size() / 2];
        state.counters["p99_us"] = samples_[samples_.size() * 99 / 100];
        state.counters["worst_us"] = samples_.back();
    }

private:
    std::vector<double> samples_;
};

}  // namespace zk_bench

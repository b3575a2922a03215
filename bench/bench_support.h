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

// The time of one call on one input in microseconds: the lowest mean over `tries` batches of
// `batch` calls. Preemption on a shared machine lengthens a batch, never shortens it, so the
// lowest mean is the input's own cost.
template <class Call>
double best_batch_mean_us(Call&& call, int batch, int tries = 5)
{
    double best = 1e300;
    for (int t = 0; t < tries; ++t) {
        const auto t0 = std::chrono::steady_clock::now();
        for (int k = 0; k < batch; ++k) call();
        best = std::min(best, std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count());
    }
    return best / batch;
}

// Times `call` on the inputs in turn, one sample per iteration (median, p99, worst), then
// publishes worst_input_us: the slowest input by its best batch mean.
template <class Inputs, class Call>
void measure_inputs(benchmark::State& state, const Inputs& inputs, Call&& call, int batch)
{
    LatencySamples samples;
    samples.reserve(1 << 20);
    size_t i = 0;
    for (auto _ : state) {
        const auto& input = inputs[i++ % std::size(inputs)];
        const auto t0 = std::chrono::steady_clock::now();
        call(input);
        samples.add(std::chrono::steady_clock::now() - t0);
    }
    samples.report(state);

    double worst = 0.0;
    for (const auto& input : inputs) worst = std::max(worst, best_batch_mean_us([&] { call(input); }, batch));
    state.counters["worst_input_us"] = worst;
}

}  // namespace zk_bench

// Kinematics benchmarks, per arm family (argument: 0 ax61, 1 ax71, 2 al64_2, 3 al64_3,
// 4 lum6, 5 tor7). Targets: forward_kinematics with tool, installation and work frames
// applied below 0.3 us; kin_calc_jacobe_J0 below 1.5 us.
//
// Each benchmark cycles through 256 seeded joint vectors within the model's limits, so the
// branch predictor does not learn one case. Counters:
//   median_us, p99_us, worst_us   single calls timed one by one (each sample includes
//                                 one steady_clock read, some 20 ns)
//   median_input_us, worst_input_us  per input the best of 5 batches of 32 calls (which
//                                 filters preemption on a shared machine); the median
//                                 and the slowest input
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <random>

#include "bench_support.h"
#include "libalgo.h"

namespace {

constexpr int kInputs = 256;
constexpr int kBatch = 32;
constexpr int kTries = 5;

struct FamilyModel {
    RobotType type;
    const char* name;
};

constexpr FamilyModel kFamilyModels[] = {
    {AX61, "ax61"}, {AX71, "ax71"}, {AL64II, "al64_2"}, {AL64III, "al64_3"}, {LUM61, "lum6"}, {TOR77, "tor7"},
};

using Joints = std::array<float, LIBALGO_MAX_JOINTS>;

// Selects the family's model with non-identity frames and returns seeded joint vectors.
std::array<Joints, kInputs> setup(benchmark::State& state)
{
    const FamilyModel& family = kFamilyModels[state.range(0)];
    state.SetLabel(family.name);
    libalgo_init();
    libalgo_set_robot_and_sensor_type(family.type, _B);
    const Coord tool{0.01f, -0.02f, 0.12f, 0.1f, -0.2f, 0.3f};
    const Coord work{0.4f, -0.3f, 0.1f, 0.05f, -0.1f, 0.7f};
    const Euler tilt{0.2f, -0.1f, 0.0f};
    libalgo_set_tool_cs_params(&tool);
    libalgo_set_work_cs_params(&work);
    libalgo_set_robot_install_angle(&tilt);

    float lo[8], hi[8];
    libalgo_get_jointlim_min(lo);
    libalgo_get_jointlim_max(hi);
    std::mt19937 rng(2024 + static_cast<unsigned>(family.type));
    std::array<Joints, kInputs> inputs{};
    for (Joints& q : inputs)
        for (int i = 0; i < libalgo_get_rbt_dof(); ++i) q[i] = std::uniform_real_distribution<float>(lo[i], hi[i])(rng);
    return inputs;
}

template <class F>
void measure(benchmark::State& state, const std::array<Joints, kInputs>& inputs, F&& call)
{
    zk_bench::LatencySamples samples;
    samples.reserve(1 << 20);
    int i = 0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        call(inputs[i % kInputs].data());
        samples.add(std::chrono::steady_clock::now() - t0);
        ++i;
    }
    samples.report(state);

    std::array<double, kInputs> per_input{};
    for (int c = 0; c < kInputs; ++c)
        per_input[c] = zk_bench::best_batch_mean_us([&] { call(inputs[c].data()); }, kBatch, kTries);
    std::sort(per_input.begin(), per_input.end());
    state.counters["median_input_us"] = per_input[kInputs / 2];
    state.counters["worst_input_us"] = per_input.back();
}

void BM_ForwardKinematics(benchmark::State& state)
{
    const auto inputs = setup(state);
    measure(state, inputs, [](const float* q) {
        Pose p = forward_kinematics(q);
        benchmark::DoNotOptimize(p);
    });
}

void BM_ForwardKinematicsFlange(benchmark::State& state)
{
    const auto inputs = setup(state);
    measure(state, inputs, [](const float* q) {
        Matrix f = forward_kinematics_e(q);
        benchmark::DoNotOptimize(f);
    });
}

void BM_JacobianJ0(benchmark::State& state)
{
    const auto inputs = setup(state);
    measure(state, inputs, [](const float* q) {
        Matrix_more j = kin_calc_jacobe_J0(q, "machine");
        benchmark::DoNotOptimize(j);
    });
}

void BM_SingularityByGeometry(benchmark::State& state)
{
    const auto inputs = setup(state);
    measure(state, inputs, [](const float* q) {
        float distance;
        int rc = kin_robot_singularity_analyse(q, "machine", &distance);
        benchmark::DoNotOptimize(rc);
        benchmark::DoNotOptimize(distance);
    });
}

void BM_SingularityBySingularValues(benchmark::State& state)
{
    const auto inputs = setup(state);
    measure(state, inputs, [](const float* q) {
        float threshold = 0.01f;
        int rc = kine_robot_universal_singularity_analyse(q, &threshold);
        benchmark::DoNotOptimize(rc);
    });
}

void per_family(benchmark::internal::Benchmark* b) { b->DenseRange(0, std::size(kFamilyModels) - 1); }

BENCHMARK(BM_ForwardKinematics)->Apply(per_family);
BENCHMARK(BM_ForwardKinematicsFlange)->Apply(per_family);
BENCHMARK(BM_JacobianJ0)->Apply(per_family);
BENCHMARK(BM_SingularityByGeometry)->Apply(per_family);
BENCHMARK(BM_SingularityBySingularValues)->Apply(per_family);

}  // namespace

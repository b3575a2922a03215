// Collision and fence benchmarks. Targets: isCollision_self_tool at most 2 us per
// configuration, distance_ls2ls at most 50 ns.
//
// Per family (argument 0: 0 AX61, 1 AX71, 2 AL64II, 3 LUM61, 4 LUM66, 5 TOR77), the
// inputs cycle through 256 seeded joint vectors within 40 % of the limits, where the arm is
// clear of itself, so that every pair is compared (a contact returns early and costs
// less). Argument 1 of the self-collision benchmark: tool spheres, 0 or 5 (with five tool
// link capsules). Counters:
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
constexpr float kClearShare = 0.4f;  // of each joint's limits: poses clear of the arm itself

struct FamilyModel {
    RobotType type;
    const char* name;
};

constexpr FamilyModel kFamilyModels[] = {
    {AX61, "AX61"}, {AX71, "AX71"}, {AL64II, "AL64II"}, {LUM61, "LUM61"}, {LUM66, "LUM66"}, {TOR77, "TOR77"},
};

using Joints = std::array<float, LIBALGO_MAX_JOINTS>;

std::array<Joints, kInputs> setup(benchmark::State& state, int spheres)
{
    const FamilyModel& family = kFamilyModels[state.range(0)];
    state.SetLabel(family.name);
    libalgo_init();
    libalgo_set_robot_and_sensor_type(family.type, _B);
    // Spheres along the flange axis, each leaving a gap to the last: five tool link capsules.
    for (int t = 0; t < LIBALGO_TOOL_SPHERES; ++t)
        libalgo_set_tool_envelope(t, t < spheres ? ToolSphere{0.02f, 0, 0, 0.07f * (t + 1)} : ToolSphere{});
    float lo[8], hi[8];
    libalgo_get_jointlim_min(lo);
    libalgo_get_jointlim_max(hi);
    std::mt19937 rng(2025 + static_cast<unsigned>(family.type));
    std::array<Joints, kInputs> inputs{};
    for (Joints& q : inputs)
        for (int i = 0; i < libalgo_get_rbt_dof(); ++i)
            q[i] = kClearShare * std::uniform_real_distribution<float>(lo[i], hi[i])(rng);
    return inputs;
}

template <class Input, class F>
void measure(benchmark::State& state, const std::array<Input, kInputs>& inputs, F&& call)
{
    zk_bench::LatencySamples samples;
    samples.reserve(1 << 20);
    int i = 0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        call(inputs[i % kInputs]);
        samples.add(std::chrono::steady_clock::now() - t0);
        ++i;
    }
    samples.report(state);

    std::array<double, kInputs> per_input{};
    for (int c = 0; c < kInputs; ++c) {
        double best = 1e300;
        for (int t = 0; t < kTries; ++t) {
            const auto t0 = std::chrono::steady_clock::now();
            for (int k = 0; k < kBatch; ++k) call(inputs[c]);
            best = std::min(best, std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count());
        }
        per_input[c] = best / kBatch;
    }
    std::sort(per_input.begin(), per_input.end());
    state.counters["median_input_us"] = per_input[kInputs / 2];
    state.counters["worst_input_us"] = per_input.back();
}

void BM_SelfCollision(benchmark::State& state)
{
    const auto inputs = setup(state, static_cast<int>(state.range(1)));
    measure(state, inputs, [](const Joints& q) {
        float c = isCollision_self_tool(q.data());
        benchmark::DoNotOptimize(c);
    });
}

// A cuboid around the arm and a plane above it, both clear, so that every capsule counts.
void BM_FenceCuboid(benchmark::State& state)
{
    const auto inputs = setup(state, 0);
    libalgo_set_fence_para(LIBALGO_FENCE_CUBOID, 0, 0, FenceShape{{-2, 2, -2, 2, -1, 3}, {}}, inputs[0].data());
    measure(state, inputs, [](const Joints& q) {
        float c = isCollision_fence_tool(q.data());
        benchmark::DoNotOptimize(c);
    });
}

void BM_FencePlane(benchmark::State& state)
{
    const auto inputs = setup(state, 0);
    libalgo_set_fence_para(LIBALGO_FENCE_PLANE, 0, 0, FenceShape{{}, {0, 0, 3, 1, 0, 3, 0, 1, 3}}, inputs[0].data());
    measure(state, inputs, [](const Joints& q) {
        float c = isCollision_fence_tool(q.data());
        benchmark::DoNotOptimize(c);
    });
}

// Random segments within a metre: skew axes, the common perpendicular's path.
void BM_DistanceLs2ls(benchmark::State& state)
{
    using Segments = std::array<float, 12>;
    std::array<Segments, kInputs> inputs{};
    std::mt19937 rng(77);
    for (Segments& s : inputs)
        for (float& v : s) v = std::uniform_real_distribution<float>(-0.5f, 0.5f)(rng);
    measure(state, inputs, [](const Segments& s) {
        float d = distance_ls2ls(s.data(), s.data() + 3, s.data() + 6, s.data() + 9);
        benchmark::DoNotOptimize(d);
    });
}

void per_family(benchmark::internal::Benchmark* b) { b->DenseRange(0, std::size(kFamilyModels) - 1); }

void per_family_and_spheres(benchmark::internal::Benchmark* b)
{
    for (int f = 0; f < static_cast<int>(std::size(kFamilyModels)); ++f)
        for (int spheres : {0, LIBALGO_TOOL_SPHERES}) b->Args({f, spheres});
}

BENCHMARK(BM_SelfCollision)->Apply(per_family_and_spheres);
BENCHMARK(BM_FenceCuboid)->Apply(per_family);
BENCHMARK(BM_FencePlane)->Apply(per_family);
BENCHMARK(BM_DistanceLs2ls);

}  // namespace

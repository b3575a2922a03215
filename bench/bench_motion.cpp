// Motion commands against the scripted controller on loopback: the latency of a non-blocking
// joint move (send, answer, parse) in a threaded mode, and the rate of pass-through set points
// one connection sustains.
#include <chrono>

#include "bench_support.h"
#include "support/connected_arm.h"

namespace {

using zk_bench::LatencySamples;
using zk_test::ConnectedArm;

const float kJoints[6] = {0.5f, -10.25f, 30.0f, 45.5f, -90.0f, 12.0f};

void BM_MovejNonBlockingDualMode(benchmark::State& state)
{
    ConnectedArm arm(ZK_DUAL_MODE_E);
    arm.controller().always("movej").reply(R"({"command":"movej","receive_state":true})");
    LatencySamples samples;
    samples.reserve(static_cast<size_t>(state.max_iterations));
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        if (zk_movej(arm.handle(), kJoints, 20, 0, 0, 0) != 0) state.SkipWithError("movej failed");
        samples.add(std::chrono::steady_clock::now() - start);
    }
    samples.report(state);
}
BENCHMARK(BM_MovejNonBlockingDualMode)->UseRealTime()->Iterations(5000);

// One-way: the rate is bound by printing and sending, not by the controller.
void BM_MovejCanfdRate(benchmark::State& state)
{
    ConnectedArm arm(ZK_DUAL_MODE_E);
    const zk_movej_canfd_mode_t config{kJoints, 0.0f, true, 1, 50};
    LatencySamples samples;
    samples.reserve(static_cast<size_t>(state.max_iterations));
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        if (zk_movej_canfd(arm.handle(), config) != 0) state.SkipWithError("movej_canfd failed");
        samples.add(std::chrono::steady_clock::now() - start);
    }
    state.SetItemsProcessed(state.iterations());
    samples.report(state);
}
BENCHMARK(BM_MovejCanfdRate)->UseRealTime()->Iterations(200000);

}  // namespace

// The library against the controller simulator on loopback: the round trip of a command,
// and how many realtime datagrams the library takes in from several arms without loss.
#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include "bench_support.h"
#include "simulator/sim_server.h"
#include "zk_api.h"

namespace {

using zk_bench::LatencySamples;

// A quiet simulator on a free loopback port.
std::unique_ptr<zk_sim::Simulator> start_simulator()
{
    zk_sim::SimOptions options;
    options.port = 0;
    options.quiet = true;
    auto simulator = std::make_unique<zk_sim::Simulator>(options);
    std::string error;
    if (!simulator->start(&error)) return nullptr;
    return simulator;
}

void BM_SoftwareInfoRoundTripDualMode(benchmark::State& state)
{
    auto simulator = start_simulator();
    if (!simulator) return state.SkipWithError("simulator did not start");
    zk_init(ZK_DUAL_MODE_E);
    zk_robot_handle* arm = zk_create_robot_arm("127.0.0.1", simulator->port());
    if (arm == nullptr || arm->id < 0) {
        zk_destory();
        return state.SkipWithError("no arm");
    }
    LatencySamples samples;
    samples.reserve(static_cast<size_t>(state.max_iterations));
    for (auto _ : state) {
        zk_arm_software_version_t info{};
        const auto start = std::chrono::steady_clock::now();
        if (zk_get_arm_software_info(arm, &info) != 0) state.SkipWithError("exchange failed");
        samples.add(std::chrono::steady_clock::now() - start);
    }
    samples.report(state);
    zk_delete_robot_arm(arm);
    zk_destory();
}
BENCHMARK(BM_SoftwareInfoRoundTripDualMode)->UseRealTime()->Iterations(5000);

}  // namespace

// Round trip of one get-pattern command against the scripted controller on loopback.
#include <sys/socket.h>

#include <cstring>
#include <thread>

#include "Middleware/socket.h"
#include "bench_support.h"
#include "support/connected_arm.h"

namespace {

using zk_bench::LatencySamples;
using zk_test::ConnectedArm;
using zk_test::ScriptedController;

void get_round_trip(benchmark::State& state, zk_thread_mode_e mode)
{
    ConnectedArm arm(mode);
    arm.controller().always("get_x").reply(R"({"command":"get_x","x":7})");
    LatencySamples samples;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        int value = 0;
        if (zk_get_data_common(arm.handle(), &value, "get_x", "x") != 0) state.SkipWithError("exchange failed");
        samples.add(std::chrono::steady_clock::now() - start);
    }
    samples.report(state);
}

void BM_GetExchangeSingleMode(benchmark::State& state) { get_round_trip(state, ZK_SINGLE_MODE_E); }
BENCHMARK(BM_GetExchangeSingleMode)->UseRealTime()->Iterations(2000);

void BM_GetExchangeDualMode(benchmark::State& state) { get_round_trip(state, ZK_DUAL_MODE_E); }
BENCHMARK(BM_GetExchangeDualMode)->UseRealTime()->Iterations(2000);

// The reference the wait is measured against: send, then look for the reply only after a
// blind 2 ms sleep, round after round.
void BM_BlindPollingBaseline(benchmark::State& state)
{
    ScriptedController controller;
    controller.always("get_x").reply(R"({"command":"get_x","x":7})");
    zk_socket_handle* socket = zk_socket_handle_init(ScriptedController::ip(), controller.port());
    socket->init(socket);
    char line[] = "{\"command\":\"get_x\"}\r\n";
    uint8_t buf[1024];
    LatencySamples samples;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        socket->block_send(socket, reinterpret_cast<uint8_t*>(line), static_cast<int>(std::strlen(line)));
        for (;;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            if (socket->block_receive(socket, buf, sizeof buf) > 0) break;
        }
        samples.add(std::chrono::steady_clock::now() - start);
    }
    samples.report(state);
    zk_socket_handle_destroy(socket);
}
BENCHMARK(BM_BlindPollingBaseline)->UseRealTime()->Iterations(300);

}  // namespace

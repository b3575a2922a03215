// The library against the controller simulator on loopback: the round trip of a command,
// and how many realtime datagrams the library takes in from several arms without loss.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

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

// Datagrams the library's UDP thread takes in from five arms, each pushing every 1 ms to a
// port of its own: all five controllers' datagrams per second, and how many were lost.
std::atomic<uint64_t> g_states{0};
void count_state(zk_realtime_arm_joint_state_t) { g_states.fetch_add(1, std::memory_order_relaxed); }

// A UDP port free at the moment: bound, read back and released.
int free_udp_port()
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

void BM_RealtimeIngestFiveArmsAt1ms(benchmark::State& state)
{
    constexpr int kArms = 5;
    constexpr int kCycleMs = 1;
    std::vector<std::unique_ptr<zk_sim::Simulator>> simulators;
    std::vector<zk_robot_handle*> arms;
    zk_init(ZK_TRIPLE_MODE_E);
    zk_realtime_arm_state_call_back(count_state);
    for (int i = 0; i < kArms; ++i) {
        simulators.push_back(start_simulator());
        if (!simulators.back()) return state.SkipWithError("simulator did not start");
        zk_robot_handle* arm = zk_create_robot_arm("127.0.0.1", simulators.back()->port());
        if (arm == nullptr || arm->id < 0) return state.SkipWithError("no arm");
        arms.push_back(arm);
        zk_realtime_push_config_t push{};
        push.cycle = kCycleMs;
        push.enable = true;
        push.port = free_udp_port();
        push.force_coordinate = -1;
        std::strcpy(push.ip, "127.0.0.1");
        push.custom_config = {-1, -1, -1, -1, -1, -1, -1, -1};
        if (zk_set_realtime_push(arm, push) != 0) return state.SkipWithError("push not set");
    }
    const auto sent = [&] {
        uint64_t total = 0;
        for (const auto& simulator : simulators) total += simulator->datagrams_sent();
        return total;
    };
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // let the streams settle
    uint64_t received_total = 0, sent_total = 0;
    double seconds = 0;
    for (auto _ : state) {
        // Both counts are read at both ends of the same second; the few datagrams in flight
        // at either end balance out.
        const uint64_t sent_before = sent(), received_before = g_states.load();
        const auto start = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(std::chrono::seconds(1));
        sent_total += sent() - sent_before;
        received_total += g_states.load() - received_before;
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    state.counters["sent_per_s"] = static_cast<double>(sent_total) / seconds;
    state.counters["received_per_s"] = static_cast<double>(received_total) / seconds;
    state.counters["lost_share"] =
        sent_total > received_total ? static_cast<double>(sent_total - received_total) / static_cast<double>(sent_total) : 0;
    for (zk_robot_handle* arm : arms) zk_delete_robot_arm(arm);
    zk_destory();
}
BENCHMARK(BM_RealtimeIngestFiveArmsAt1ms)->UseRealTime()->Iterations(5);

}  // namespace

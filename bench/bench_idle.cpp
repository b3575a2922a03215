// What the library's own threads cost while nothing happens: five connections and five
// realtime ports sitting idle in triple mode. Reported as the share of one core used.
#include <sys/resource.h>

#include <memory>
#include <thread>
#include <vector>

#include "Middleware/udp.h"
#include "bench_support.h"
#include "support/scripted_controller.h"
#include "zk_api.h"

namespace {

using zk_test::ScriptedController;

double process_cpu_seconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void BM_IdleLibraryThreads(benchmark::State& state)
{
    std::vector<std::unique_ptr<ScriptedController>> controllers;
    zk_init(ZK_TRIPLE_MODE_E);
    for (int i = 0; i < 5; ++i) {
        controllers.push_back(std::make_unique<ScriptedController>());
        controllers.back()->answer_sync();
        zk_create_robot_arm(ScriptedController::ip(), controllers.back()->port());
        gUdpHandle->udp_add_port(gUdpHandle, 47100 + i);
    }
    const auto idle = std::chrono::seconds(2);
    double share = 0;
    for (auto _ : state) {
        const double before = process_cpu_seconds();
        std::this_thread::sleep_for(idle);
        share = (process_cpu_seconds() - before) / std::chrono::duration<double>(idle).count();
    }
    // The scripted controllers sleep in poll without a time-out, so the process's CPU time
    // is the library's.
    state.counters["core_share_percent"] = share * 100.0;
    zk_destory();
}
BENCHMARK(BM_IdleLibraryThreads)->UseRealTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

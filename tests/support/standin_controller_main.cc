// A stand-in controller process for trying the library without an arm: answers the queries a
// new connection runs, and logs every frame it receives, until stopped.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "support/scripted_controller.h"

namespace {
volatile std::sig_atomic_t g_stop = 0;
}

int main(int argc, char** argv)
{
    const std::string product = argc > 1 ? argv[1] : "ZK-AX61-B";
    std::signal(SIGINT, [](int) { g_stop = 1; });
    std::signal(SIGTERM, [](int) { g_stop = 1; });
    zk_test::ScriptedController controller;
    controller.answer_sync(product);
    std::printf("%d\n", controller.port());
    std::fflush(stdout);
    size_t seen = 0;
    while (!g_stop) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const auto frames = controller.frames();
        for (; seen < frames.size(); ++seen) std::fprintf(stderr, "controller received: %s\n", frames[seen].c_str());
    }
    return 0;
}

// zk_simulator: a simulated arm controller for trying and testing hosts without hardware.
#include <csignal>
#include <cstdio>
#include <string>

#include "simulator/sim_server.h"

int main(int argc, char** argv)
{
    zk_sim::SimOptions options;
    std::string error;
    bool help = false;
    if (!zk_sim::sim_parse_options(argc, argv, &options, &error, &help)) {
        std::fprintf(stderr, "zk_simulator: %s\n\n%s", error.c_str(), zk_sim::sim_usage().c_str());
        return 2;
    }
    if (help) {
        std::fputs(zk_sim::sim_usage().c_str(), stdout);
        return 0;
    }

    // The simulator's thread inherits this mask, so the signals reach sigwait below only.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

    zk_sim::Simulator simulator(options);
    if (!simulator.start(&error)) {
        std::fprintf(stderr, "zk_simulator: %s\n", error.c_str());
        return 1;
    }
    // Scripts read the port from the first line of standard output.
    std::printf("%d\n", simulator.port());
    std::fflush(stdout);

    int received = 0;
    sigwait(&stop_signals, &received);
    simulator.stop();
    return 0;
}

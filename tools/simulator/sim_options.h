// How a simulator is set up: where it listens, which arm it plays, and how it misbehaves.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulator/sim_faults.h"

namespace zk_sim {

// Receives each log line, without a line end. Called on the simulator's thread.
using SimLogSink = std::function<void(const std::string& line)>;

struct SimOptions {
    std::string address = "127.0.0.1";
    int port = 8080;  // 0 takes a free port
    std::string product = "AX61-B";
    std::vector<double> joints;  // initial joints, degrees; empty for all zero
    double speed_scale = 1.0;    // multiplies every motion speed
    int period_ms = 10;          // control period of the arm
    FaultConfig faults;
    bool verbose = false;  // log every frame in and out
    bool quiet = false;    // log nothing but errors
    SimLogSink log;        // null: standard error
};

// Parses a command line. False with a message for a bad one; `help` is set for --help.
bool sim_parse_options(int argc, const char* const* argv, SimOptions* options, std::string* error, bool* help);

// The usage text, options and behaviour both.
std::string sim_usage();

}  // namespace zk_sim

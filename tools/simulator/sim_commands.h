// The controller's command table: each command's name, the name of its reply frame (they
// often differ), and the handler that fills the reply from the controller's state. A
// command family adds its rows in its own file; the table is the only dispatch.
#pragma once

#include <cJSON.h>

#include <span>
#include <string>
#include <vector>

#include "simulator/sim_controller.h"
#include "simulator/sim_wire.h"

namespace zk_sim {

struct SimRequest {
    SimController& controller;
    const cJSON* frame;                  // the command as received
    int connection;                      // who sent it: told when its trajectory ends
    std::vector<TrajectoryEnd>* ended;   // trajectory ends the command causes at once
};

// Fills `reply`, which already holds the reply frame's name member. One-way commands get
// a reply they may fill and that is never sent.
using SimHandler = void (*)(SimRequest& request, cJSON* reply);

struct SimCommand {
    const char* name;
    const char* reply_name;  // null: one-way, nothing is answered
    SimHandler handler;
};

// Rows of each family.
std::span<const SimCommand> sim_motion_commands();
std::span<const SimCommand> sim_state_commands();
std::span<const SimCommand> sim_realtime_commands();

// The row of a command, or null for one the controller doesn't know.
const SimCommand* sim_find_command(const std::string& name);

// The simulator's answer to a line it can't act on: {"command":"command_refused",
// "request":<the command's name, or "">,"reason":<why>}. No client awaits this name.
constexpr const char* kRefusalFrame = "command_refused";
JsonPtr sim_refusal(const std::string& request, const std::string& reason);

// The frame that tells a trajectory's owner it ended: "current_trajectory_state".
JsonPtr sim_trajectory_end_frame(const TrajectoryEnd& end);

}  // namespace zk_sim

// Everything the simulated controller knows: the arm, its push configuration and the few
// settings the commands read and write. Owned by the simulator's loop.
#pragma once

#include <chrono>
#include <string>

#include "simulator/sim_arm.h"
#include "simulator/sim_model.h"

namespace zk_sim {

// Which optional members the state datagram carries.
struct PushCustom {
    bool joint_speed = false;
    bool lift_state = false;
    bool expand_state = false;
    bool hand = false;
    bool arm_current_status = false;
    bool aloha_state = false;
    bool plus_base = false;
    bool plus_state = false;
};

// Where and how often the realtime state goes. Off until a host asks for it.
struct PushConfig {
    int cycle_ms = 5;
    bool enable = false;
    int port = 8089;
    std::string ip = "127.0.0.1";
    int force_coordinate = 0;
    PushCustom custom;
};

struct SimController {
    SimController(const SimModel& arm_model, const Joints& initial, double speed_scale)
        : model(arm_model), arm(arm_model, initial, speed_scale), initial_joints(arm.joints())
    {
    }

    SimModel model;
    SimArm arm;
    Joints initial_joints;
    PushConfig push;
    int teach_frame = 0;
    int collision_stage = 0;
    int run_mode = 0;
    std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
};

}  // namespace zk_sim

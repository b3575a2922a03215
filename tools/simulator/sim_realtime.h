// The realtime state datagram: one JSON object a cycle, sent by UDP to the host that asked.
#pragma once

#include <string>

#include "simulator/sim_controller.h"

namespace zk_sim {

// Largest datagram a client reads whole.
constexpr size_t kMaxDatagram = 2048;

// The state message of this moment: the required "joint_status", "waypoint" and "err", and
// the optional members the push configuration asks for.
std::string sim_state_datagram(const SimController& controller);

// Joint readings derived from the motion, shared by the datagram and the state queries.
double sim_joint_current(double speed);  // amperes
constexpr double kJointTemperature = 32.5;  // degrees Celsius
constexpr double kJointVoltage = 48.0;      // volts

}  // namespace zk_sim

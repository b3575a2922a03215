// Poses of the simulated arm. Every pose the simulator reports comes from sim_pose_of, a
// double-precision DH chain over the model's factory table that agrees with the library's
// own forward kinematics of each family (tested); a different model replaces this one
// function. sim_joints_for_pose inverts it numerically for Cartesian targets.
#pragma once

#include <array>

#include "simulator/sim_model.h"

namespace zk_sim {

// Flange pose in the base frame: position in metres, Euler angles in radians with
// R = Rz(rz) Ry(ry) Rx(rx).
struct SimPose {
    std::array<double, 3> position{};
    std::array<double, 3> euler{};
};

// The forward kinematics of the model's DH table; joints in degrees.
SimPose sim_pose_of(const SimModel& model, const Joints& joints);

// Joints (degrees, within the model's limits) whose pose is `target`, searched from `seed`
// and, when that fails, from a fixed set of other starting points. False when no search
// reaches the target: the pose is out of reach.
bool sim_joints_for_pose(const SimModel& model, const SimPose& target, const Joints& seed, Joints* joints);
// The same from `seed` alone: quick, for a target a small step away.
bool sim_joints_near(const SimModel& model, const SimPose& target, const Joints& seed, Joints* joints);

// Scalar-first unit quaternion of the pose's orientation.
std::array<double, 4> sim_quaternion(const SimPose& pose);

// The Euler angles of a scalar-first quaternion (normalised first).
std::array<double, 3> sim_euler_of_quaternion(const std::array<double, 4>& quaternion);

// Turns a pose by `angle` radians about the base axis `axis` (0 x, 1 y, 2 z), in place.
void sim_rotate_about_base(SimPose* pose, int axis, double angle);

}  // namespace zk_sim

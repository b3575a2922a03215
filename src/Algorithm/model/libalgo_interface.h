// Robot model: the one process-wide arm description of the algorithm library.
//
// The exported libalgo_* getters and setters of include/libalgo_model.h are the way in
// and out, and the only way that the rest of the library should use; the record itself
// is declared here for the few places that need the whole of it (tests, diagnostics).
//
// Frames, all 4 x 4 homogeneous transforms (the names kinematics uses):
//   Ti  install_matrix        arm base in the installation (world) frame, rotation only
//   Tt  tool_matrix           tool in the flange frame
//   W   work_matrix           work frame in the base frame
//   Tw  work_to_base_matrix   W^-1: takes base coordinates into the work frame, so the
//                             tool pose in the work frame is Tw Ti F(q) Tt
// Angles: the store holds user joint angles in its limits; kinematics adds DH.offset
// (libalgo_get_modeling_jointlim_* give the limits in those model angles). Gravity is
// the world's (0, 0, -9.81) in the base frame, from the install angles.
#pragma once

#include <cstdint>

#include "libalgo_math.h"
#include "libalgo_model.h"

// The store, grouped by concern. Cleared whole by
// libalgo_set_robot_and_sensor_type; no lock.
struct RobotModel {
    DH dh;  // current kinematic parameters, then the compensation arrays
    RobotType robot_type;
    SensorType sensor_type;
    PayloadCfg payload;
    JointCfg joint[LIBALGO_MAX_JOINTS];
    Euler install_angle;
    Matrix install_matrix;     // Ti, from the install angles, no translation
    Coord tool;
    Matrix tool_matrix;        // Tt
    Coord work;
    Matrix work_matrix;        // W
    Matrix work_to_base_matrix;  // Tw = W^-1
    DynamicsParams dynamics;
    float joint_direction[LIBALGO_MAX_JOINTS];
    int16_t rbt_dof;
    float control_period;
    float gravity[3];
    // Plain values.
    int safety_level;
    TcpConfig tcp;
    int system_all_dof;
    int avoid_singularity;
    float user_collision_threshold[LIBALGO_MAX_JOINTS];
    // Measured and commanded joint state.
    RobotFeedback feedback;
    float feedback_raw_q[LIBALGO_MAX_JOINTS];  // positions as measured
    float joint_cmd[LIBALGO_MAX_JOINTS];
    // The default copies, written at the end of the defaults.
    DH dh_default;
    LinkDynamicsParams link_dynamics_default;
};

extern RobotModel robot;

// Writes the DH, joint limits, directions, rbt_dof and link dynamics of the pair, then
// the default copies. 0, or -1 (nothing written) for a pair without defaults.
int16_t lib_internal_set_robot_default_config(RobotType robot_type, SensorType sensor_type);

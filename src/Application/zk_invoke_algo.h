// The invoke_ layer below the exported zk_algo_* functions: each takes the host's units
// (degrees, public records) and calls the algorithm library in its own (radians, library
// records), converting on the way in and out. It decides nothing else: null checks, result
// codes, locking and the reload of a handle's state belong to the zk_algo_* functions.
//
// The algorithm library's model is one process-wide record without a lock. Every zk_algo_*
// function that reads or writes it holds the facade lock (ZkAlgoLock) for its whole run, so
// that an arm created on one thread cannot change the model under a solve on another; the
// invoke_ functions expect their caller to hold it. The lock is taken before the handle
// table's read lock, never after: code that holds the table lock calls only the pure
// zk_algo_* conversions, which take no lock.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <mutex>

#include "libalgo.h"
#include "zk_algo.h"

// The current tool and work frame as transforms, written by the current-frame queries of
// the client with the transform of their pose. One of each for the whole library: the arm
// read last wins.
extern Matrix Tool_Matrix;
extern Matrix Frame_Matrix;
// The install angles last set through the facade, radians.
extern float angleU;
extern float angleV;
extern float angleH;
// While true, each zk_algo_inverse_kinematics call puts the seven-axis solvers into the sweep
// of the redundant parameter. zk_algo_set_redundant_parameter_traversal_mode clears it.
extern bool defaut_traversal_mode;
// Extreme times of the timed solve, milliseconds.
extern double invoke_inverse_time_total_min;
extern double invoke_inverse_time_total_max;
// 100 ns ticks from 1601-01-01 to 1970-01-01.
constexpr uint64_t EPOCH_DIFFERENCE = 116444736000000000ULL;

// Serialises the facade's use of the algorithm library's model; recursive, since an
// exported function calls others (the handle reload calls every setter).
class ZkAlgoLock {
public:
    ZkAlgoLock();
    ~ZkAlgoLock();
    ZkAlgoLock(const ZkAlgoLock&) = delete;
    ZkAlgoLock& operator=(const ZkAlgoLock&) = delete;
};

// Writes Tool_Matrix or Frame_Matrix under the facade lock, for the client's frame queries,
// which run on any host thread.
void zk_algo_store_tool_matrix(const Matrix& m);
void zk_algo_store_frame_matrix(const Matrix& m);

// Wall-clock time in seconds and microseconds since 1970, by way of the 100 ns ticks since
// 1601. 0, or -1 for a null tv.
int get_time_of_day(struct timeval* tv);

// ----------------------------------------------------------------------------------------
// Model and parameters
// ----------------------------------------------------------------------------------------

// The model and sensor numbers of the client (zk_robot_arm_model_e, zk_force_type_e) as
// plain ints, since a host may pass any number. ZK_MODEL_AL_64_III_E is the fourth form of
// the AL64 arm; unknown values count as 0.
RobotType invoke_robot_type_of(int model);
SensorType invoke_sensor_type_of(int force);
// libalgo_init, then the model and sensor with their defaults: 0 or -1.
int invoke_libalgo_init_sys_data(int model, int force);

void invoke_libalgo_set_robot_install_angle(float x_deg, float y_deg, float z_deg);
void invoke_libalgo_get_robot_install_angle(float* x_deg, float* y_deg, float* z_deg);

void invoke_libalgo_set_work_cs_params(const zk_frame_t& frame);
void invoke_libalgo_get_work_cs_params(zk_frame_t* frame);
void invoke_libalgo_set_tool_cs_params(const zk_frame_t& frame);
void invoke_libalgo_get_tool_cs_params(zk_frame_t* frame);

// The joint limits, model_joints() entries in degrees; the library's other entries stay.
void invoke_libalgo_set_jointlim_max(const float* q_deg);
void invoke_libalgo_get_jointlim_max(float* q_deg);
void invoke_libalgo_set_jointlim_min(const float* q_deg);
void invoke_libalgo_get_jointlim_min(float* q_deg);
void invoke_libalgo_set_joint_vel_maxlim(const float* v_deg);
void invoke_libalgo_get_joint_vel_maxlim(float* v_deg);
void invoke_libalgo_set_joint_acc_maxlim(const float* a);
void invoke_libalgo_get_joint_acc_maxlim(float* a);

// d and a as they stand, alpha and offset from degrees; the compensation arrays stay.
void invoke_libalgo_set_dh_params(const DH& dh_deg);
zk_dh_t invoke_libalgo_get_dh_value();

int invoke_libalgo_set_tool_envelope(int index, const zk_tool_sphere_t& sphere);
int invoke_libalgo_get_tool_envelope(int index, zk_tool_sphere_t* sphere);

void invoke_kin_set_singularity_thresholds(float q_elbow_deg, float q_wrist_deg, float d_shoulder);
void invoke_kin_get_singularity_thresholds(float* q_elbow_deg, float* q_wrist_deg, float* d_shoulder);

// ----------------------------------------------------------------------------------------
// Kinematics; joint vectors in degrees, model_joints() entries read and written
// ----------------------------------------------------------------------------------------

zk_pose_t invoke_forward_kinematics(const float* q_deg);
// The flange transform F(q) alone, without tool, installation or work frame.
Matrix invoke_forward_kinematics_e(const float* q_deg);

// inverse_kinematics with the target's quaternion (flag 0) or Euler angles (flag 1); q_out
// is written, in degrees, only on 0. The library's result: 0, -1, -2, -4.
int invoke_inverse_kinematics(const float* q_in, zk_pose_t q_pose, float* q_out, uint8_t flag);
// inverse_kinematics_all with the reference and the solutions in degrees; result and num as
// the library gives them.
zk_inverse_kinematics_all_solve_t invoke_inverse_kinematics_all(const float* q_in, zk_pose_t q_pose, uint8_t flag);
// A solve timed into invoke_inverse_time_total_min and _max, then judged for speed: the
// solver's result, or on success that of invoke_joint_overspeed_judgment over one control
// period. Takes the facade lock itself.
int invoke_inverse_kinematics_with_judgment_overspeed(const float* q_in, zk_pose_t q_pose, float* q_out,
                                                      uint8_t flag);
int invoke_joint_overspeed_judgment(const float* q_current_deg, const float* q_solve_deg, float vel_factor);

int invoke_ikine_select_ik_solve(const float* weight, const zk_inverse_kinematics_all_solve_t& solutions_deg);
int invoke_ikine_check_joint_position_limit(const float* q_deg);
int invoke_ikine_check_joint_velocity_limit(float dt, const float* q_from_deg, const float* q_to_deg);

int invoke_kin_robot_singularity_analyse(const float* q_deg, float* distance);
int invoke_kine_robot_universal_singularity_analyse(const float* q_deg, float* threshold);
int invoke_safety_robot_self_collision_detection(const float* q_deg);

int invoke_calculate_arm_angle_from_config_ax71(const float* q_ref_deg, float* arm_angle_deg);
int invoke_inverse_kinematics_ax71_for_arm_angle(const zk_inverse_kinematics_params_t& params_deg,
                                                 float arm_angle_deg, float* q_solve_deg);

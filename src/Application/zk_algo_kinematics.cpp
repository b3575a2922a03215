// Algorithm facade: forward and inverse kinematics, the checks of solutions, singularity and
// self-collision, with joint vectors in degrees.
#include <cmath>

#include "Application/zk_algo_convert.h"
#include "Application/zk_invoke_algo.h"

using namespace zk_algo;

namespace {

// Seven-axis search while the facade's default mode stands: a sweep of the redundant
// parameter, for the global nearest solution.
constexpr float kTraversalRange = 3.14f;
constexpr int kTraversalStrategy = 0;

// Results of the inverse kinematics at the interface.
constexpr int kSolved = 0;
constexpr int kNoSolution = 1;
constexpr int kReferenceOutOfLimits = -1;
constexpr int kBadQuaternion = -2;
constexpr int kNotSixAxes = -3;
constexpr int kSixAxes = 6;

// A target's quaternion must be exactly of unit norm in single precision: a host that
// rounds a quaternion has to renormalise it, so that an orientation is never guessed. NaN
// fails the comparison.
bool unit_quaternion(const zk_quat_t& q)
{
    const float ww = q.w * q.w;
    const float xx = q.x * q.x;
    const float yy = q.y * q.y;
    const float zz = q.z * q.z;
    const float norm2 = ww + xx + yy + zz;
    return norm2 == 1.0f;
}

bool target_refused(const zk_inverse_kinematics_params_t& params)
{
    return params.flag == 0 && !unit_quaternion(params.q_pose.quaternion);
}

}  // namespace

/* -----------------------------------------------------------------------------
 * Forward kinematics
 * -------------------------------------------------------------------------- */

zk_pose_t zk_algo_forward_kinematics(zk_robot_handle* handle, const float* joint)
{
    ZkAlgoLock lock;
    zk_algo_arm_state_set(handle);
    if (joint == nullptr) return zk_pose_t{};
    return invoke_forward_kinematics(joint);
}

zk_matrix_t Forward_Kinematics_e(zk_robot_handle* handle, const float* joint)
{
    (void)handle;  // computes with the model as it stands
    return zk_algo_pos2matrix(zk_algo_forward_kinematics(nullptr, joint));
}

/* -----------------------------------------------------------------------------
 * Inverse kinematics
 * -------------------------------------------------------------------------- */

int zk_algo_inverse_kinematics(zk_robot_handle* handle, zk_inverse_kinematics_params_t params, float* q_out)
{
    if (target_refused(params)) return kBadQuaternion;
    ZkAlgoLock lock;
    zk_algo_arm_state_set(handle);
    if (zk_algo_judgment_overpos(params.q_in) != 0) return kReferenceOutOfLimits;
    if (defaut_traversal_mode) {
        ikine_set_solution_range_ax71(kTraversalRange);
        ikine_set_7dof_solver_search_strategy(kTraversalStrategy);
    }
    if (q_out == nullptr) return kNoSolution;
    return invoke_inverse_kinematics(params.q_in, params.q_pose, q_out, params.flag) == 0 ? kSolved : kNoSolution;
}

zk_inverse_kinematics_all_solve_t zk_algo_inverse_kinematics_all(zk_robot_handle* handle,
                                                                zk_inverse_kinematics_params_t params)
{
    zk_inverse_kinematics_all_solve_t refused{};
    for (int j = 0; j < kMaxArmJoints; ++j) refused.q_ref[j] = params.q_in[j];
    if (target_refused(params)) {
        refused.result = kBadQuaternion;
        return refused;
    }
    ZkAlgoLock lock;
    zk_algo_arm_state_set(handle);
    if (libalgo_get_rbt_dof() != kSixAxes) {
        refused.result = kNotSixAxes;
        return refused;
    }
    if (zk_algo_judgment_overpos(params.q_in) != 0) {
        refused.result = kReferenceOutOfLimits;
        return refused;
    }
    zk_inverse_kinematics_all_solve_t all = invoke_inverse_kinematics_all(params.q_in, params.q_pose, params.flag);
    for (int j = 0; j < LIBALGO_MAX_JOINTS; ++j) all.q_ref[j] = refused.q_ref[j];
    // Inside the library 1 means that a solution stands; the interface counts 0 as success.
    all.result = all.result != 0 ? kSolved : kNoSolution;
    return all;
}

int zk_algo_ikine_select_ik_solve(const float* weight, zk_inverse_kinematics_all_solve_t params)
{
    ZkAlgoLock lock;
    return invoke_ikine_select_ik_solve(weight, params);
}

int zk_algo_ikine_check_joint_position_limit(const float* q_solve)
{
    if (q_solve == nullptr) return -1;
    ZkAlgoLock lock;
    return invoke_ikine_check_joint_position_limit(q_solve);
}

int zk_algo_ikine_check_joint_velocity_limit(float dt, const float* q_ref, const float* q_solve)
{
    if (q_ref == nullptr || q_solve == nullptr) return -1;
    ZkAlgoLock lock;
    return invoke_ikine_check_joint_velocity_limit(dt, q_ref, q_solve);
}

int zk_algo_judgment_overpos(const float* joint)
{
    if (joint == nullptr) return -1;
    ZkAlgoLock lock;
    // Compared in radians, converted as the limits were, so that a joint set to its limit
    // in degrees lies on it exactly.
    const JointsRad q = joints_to_rad(joint);
    float q_max[LIBALGO_MAX_JOINTS];
    float q_min[LIBALGO_MAX_JOINTS];
    libalgo_get_jointlim_max(q_max);
    libalgo_get_jointlim_min(q_min);
    for (int i = 0; i < model_joints(); ++i)
        if (!(q.q[i] >= q_min[i] && q.q[i] <= q_max[i])) return -1;
    return 0;
}

/* -----------------------------------------------------------------------------
 * Singularity and self-collision
 * -------------------------------------------------------------------------- */

int zk_algo_kin_robot_singularity_analyse(const float* q, float* distance)
{
    constexpr int kNotSixAxesSingularity = -4;
    ZkAlgoLock lock;
    if (libalgo_get_rbt_dof() != kSixAxes) return kNotSixAxesSingularity;
    if (q == nullptr) return 0;
    return invoke_kin_robot_singularity_analyse(q, distance);
}

int zk_algo_universal_singularity_analyse(const float* q, float singluar_value_limit)
{
    if (q == nullptr) return 0;
    ZkAlgoLock lock;
    return invoke_kine_robot_universal_singularity_analyse(q, &singluar_value_limit);
}

int zk_algo_safety_robot_self_collision_detection(const float* joint)
{
    if (joint == nullptr) return -1;
    ZkAlgoLock lock;
    return invoke_safety_robot_self_collision_detection(joint);
}

/* -----------------------------------------------------------------------------
 * Arm angle of the seven-axis SRS arm
 * -------------------------------------------------------------------------- */

int zk_algo_calculate_arm_angle_from_config_ax71(const float* q_ref, float* arm_angle)
{
    constexpr int kNullArgument = -2;
    if (q_ref == nullptr || arm_angle == nullptr) return kNullArgument;
    ZkAlgoLock lock;
    return invoke_calculate_arm_angle_from_config_ax71(q_ref, arm_angle);
}

int zk_algo_inverse_kinematics_ax71_for_arm_angle(zk_inverse_kinematics_params_t params, float arm_angle,
                                                  float* q_solve)
{
    constexpr int kNullArgument = -2;
    if (q_solve == nullptr) return kNullArgument;
    ZkAlgoLock lock;
    return invoke_inverse_kinematics_ax71_for_arm_angle(params, arm_angle, q_solve);
}

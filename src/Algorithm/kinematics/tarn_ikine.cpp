// Inverse kinematics front: from the tool pose in the work frame to the solver of the arm
// model, and the operations that compare and vet solutions.
#include "Algorithm/kinematics/tarn_ikine.h"

#include <cmath>

#include "libalgo_ikine.h"
#include "libalgo_ikine7.h"
#include "libalgo_matrix.h"
#include "libalgo_model.h"

int global_is_movl = 1;
float theta_v = 0.013f;

namespace {

// The two values of the solution range that the strategy setter stands for.
constexpr float kTrackingRange = 0.013f;
constexpr float kTraversalRange = 3.14f;

// A reference of the last joint up to 2 degrees beyond a full turn is pulled back onto
// the turn, so that a joint parked at 360 degrees does not count as one more turn.
// The turn is the float 2 pi; the bound of the tolerance is compared in double, so that
// the float nearest 6.318092 (just below it) is still pulled back.
constexpr float kFullTurn = 6.283185f;
constexpr double kFullTurnTolerance = 6.318092;

// Every model number above this is unknown.
constexpr int kLastRobotType = TOR77II;

// The number of joints counted in a joint vector.
int counted_joints()
{
    const int dof = libalgo_get_rbt_dof();
    return dof < 0 ? 0 : (dof > LIBALGO_MAX_JOINTS ? LIBALGO_MAX_JOINTS : dof);
}

// The parts of the pose that calc_Tbase2tool_from_Pose reads are all finite.
bool pose_is_finite(const Pose& pose, uint8_t flag)
{
    const float* orientation = flag == 1 ? &pose.euler.rx : &pose.quaternion.w;
    const int n = flag == 1 ? 3 : 4;
    if (!std::isfinite(pose.position.x) || !std::isfinite(pose.position.y) || !std::isfinite(pose.position.z))
        return false;
    for (int i = 0; i < n; ++i)
        if (!std::isfinite(orientation[i])) return false;
    return true;
}

// The seven-axis solvers read seven joints of a reference.
constexpr int kSevenAxes = 7;

// The flange for the tool in the arm's world frame: inverse(Ti) T inverse(Tt).
Mat flange_target(const Matrix& target)
{
    const Matrix base = matrix_inv_coordinate_system(libalgo_get_robot_install_angle_matrix());
    const Matrix tool = matrix_inv_coordinate_system(libalgo_get_tool_cs_matrix());
    return matrix_to_mat(matrix_m(matrix_m(base, target), tool));
}

// First joint (from 1) whose step exceeds its speed limit times `period` times `factor`,
// else 0. The product is taken left to right, limit by period first, so that a step of
// exactly vmax * period * factor is not too fast.
int first_too_fast(const float* q_from, const float* q_to, float period, float factor)
{
    float vmax[LIBALGO_MAX_JOINTS];
    libalgo_get_joint_vel_maxlim(vmax);
    const int n = counted_joints();
    for (int j = 0; j < n; ++j)
        if (std::fabs(q_to[j] - q_from[j]) > vmax[j] * period * factor) return j + 1;
    return 0;
}

}  // namespace

/* -----------------------------------------------------------------------------
 * Dispatch
 * -------------------------------------------------------------------------- */

Matrix calc_Tbase2tool_from_Pose(Pose pose, uint8_t flag)
{
    if (flag == 1) pose.quaternion = euler_to_quat(pose.euler);
    const Matrix target = pose_quat_to_transformation_matrix(pose);
    // The pose is understood in the work frame: take it to the installation frame.
    return matrix_m(matrix_inv_coordinate_system(libalgo_get_work_cs_to_base_matrix()), target);
}

int inverse_kinematics(const float* q_ref, Pose pose, float* q_out, uint8_t flag)
{
    if (!q_ref || !q_out || !pose_is_finite(pose, flag)) return -1;
    const Matrix target = calc_Tbase2tool_from_Pose(pose, flag);

    float q[LIBALGO_MAX_JOINTS] = {};
    const int n = counted_joints();
    for (int j = 0; j < n; ++j) q[j] = q_ref[j];

    const int type = libalgo_get_robot_type();
    float& last = q[type == AX71 ? 6 : 5];
    const double reference = last;
    if (last > kFullTurn && reference < kFullTurnTolerance) last = kFullTurn;
    if (reference > -kFullTurnTolerance && last < -kFullTurn) last = -kFullTurn;

    if (type > kLastRobotType) return -4;
    switch (type) {
    case AX61:
        return inverse_kinematics_ax6(target, q, q_out);
    case AL64II:
    case AL64IV:
        return inverse_kinematics_al64_2(target, q, q_out);
    case AL64III:
        return inverse_kinematics_al64_3(target, q, q_out);
    case LUM61:
    case LUM66:
    case LUM67:
        return inverse_kinematics_lum6(target, q, q_out);
    // The seven-axis solvers take the flange, inverse(Ti) T inverse(Tt). AX71 works on the
    // local reference (and adds the offsets to it in place); TOR77 takes the reference as
    // given, without the pull-back of the last joint, in a copy of its seven joints.
    case AX71:
        return inverse_kinematics_ax_71(flange_target(target), q, q_out);
    case TOR77:
    case TOR77II: {
        float given[LIBALGO_MAX_JOINTS] = {};
        for (int j = 0; j < kSevenAxes; ++j) given[j] = q_ref[j];
        return inverse_kinematics_tor7(flange_target(target), given, q_out);
    }
    default:  // AL64I, UNIVERSAL and unknown numbers
        return -4;
    }
}

zk_inverse_kinematics_all_solve_t inverse_kinematics_all(const float* q_ref, Pose pose, uint8_t flag)
{
    zk_inverse_kinematics_all_solve_t none{};
    if (!q_ref) return none;
    const int type = libalgo_get_robot_type();
    const bool six_axis = type == AX61 || type == AL64II || type == AL64III || type == AL64IV || type == LUM61 ||
                          type == LUM66 || type == LUM67;
    if (!six_axis) {
        none.num = -1;
        const int n = counted_joints();
        for (int j = 0; j < n; ++j) none.q_ref[j] = q_ref[j];
        return none;
    }
    if (!pose_is_finite(pose, flag)) {
        for (int j = 0; j < 6; ++j) none.q_ref[j] = q_ref[j];
        return none;
    }
    const Matrix target = calc_Tbase2tool_from_Pose(pose, flag);
    if (type == AX61) return ikine_ax6_solver(target, q_ref);
    if (type == LUM61 || type == LUM66 || type == LUM67) return ikine_lum6_solver(target, q_ref);
    return ikine_al6II_solver(target, q_ref);
}

/* -----------------------------------------------------------------------------
 * Choice and checks
 * -------------------------------------------------------------------------- */

int ikine_select_ik_solve(const float* weight, zk_inverse_kinematics_all_solve_t solutions)
{
    if (!weight || solutions.num < 1) return -1;
    const int rows = solutions.num < LIBALGO_IK_MAX_SOLUTIONS ? solutions.num : LIBALGO_IK_MAX_SOLUTIONS;
    const int n = counted_joints();
    float lim_max[LIBALGO_MAX_JOINTS];
    float lim_min[LIBALGO_MAX_JOINTS];
    libalgo_get_jointlim_max(lim_max);
    libalgo_get_jointlim_min(lim_min);

    constexpr double kNoneYet = 1e6;  // a solution must cost less to be chosen
    double best = kNoneYet;
    int index = -1;
    for (int i = 0; i < rows; ++i) {
        const float* q = solutions.q_solve[i];
        bool inside = true;
        double cost = 0.0;
        for (int j = 0; j < n; ++j) {
            inside = inside && q[j] <= lim_max[j] && q[j] >= lim_min[j];
            const float d = q[j] - solutions.q_ref[j];
            cost += weight[j] * (d * d);
        }
        if (inside && best > cost) {
            best = cost;
            index = i;
        }
    }
    return index;
}

int ikine_check_joint_position_limit(const float* q)
{
    if (!q) return -1;
    float lim_max[LIBALGO_MAX_JOINTS];
    float lim_min[LIBALGO_MAX_JOINTS];
    libalgo_get_jointlim_max(lim_max);
    libalgo_get_jointlim_min(lim_min);
    const int n = counted_joints();
    for (int j = 0; j < n; ++j)
        if (q[j] > lim_max[j] || q[j] < lim_min[j]) return j + 1;
    return 0;
}

int ikine_check_joint_velocity_limit(float dt, const float* q_from, const float* q_to)
{
    if (!q_from || !q_to) return -1;
    return first_too_fast(q_from, q_to, dt, 1.0f);
}

int joint_overspeed_judgment(const float* q_from, const float* q_to, float factor)
{
    if (!q_from || !q_to) return -1;
    // A negative factor (or NaN) counts as 0: then any motion at all is too fast.
    const float scale = factor > 0.0f ? factor : 0.0f;
    return first_too_fast(q_from, q_to, libalgo_get_control_loop_period(), scale);
}

/* -----------------------------------------------------------------------------
 * Strategy of the seven-axis solvers
 * -------------------------------------------------------------------------- */

void ikine_set_7dof_solver_search_strategy(int strategy)
{
    global_is_movl = strategy;
    theta_v = strategy == 1 ? kTrackingRange : kTraversalRange;
}

int ikine_get_7dof_solver_search_strategy(void) { return global_is_movl; }

void ikine_set_solution_range_ax71(float range)
{
    theta_v = range;
    global_is_movl = range > tarn::kTraversalRangeAbove ? 0 : 1;
}

float ikine_get_solution_range_ax71(void) { return theta_v; }

// The front of the inverse kinematics: target conversion, dispatch by model, the choice
// among all solutions, the limit checks and the strategy of the seven-axis solvers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>

#include "Algorithm/kinematics/tarn_ikine.h"
#include "ikine_test_support.h"

using namespace ikine_test;
using algo_test::Rng;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kTwoPi = static_cast<float>(2.0 * std::numbers::pi);

const SixAxisModel kAx61 = kSixAxisModels[0];
const SixAxisModel kLum61 = kSixAxisModels[4];

/* -----------------------------------------------------------------------------
 * Target conversion and dispatch
 * -------------------------------------------------------------------------- */

TEST(IkineTarget, WorkFrameIsTakenOff)
{
    use_model(kAx61);
    const Coord work{0.3f, -0.2f, 0.1f, 0.2f, -0.4f, 1.1f};
    libalgo_set_work_cs_params(&work);
    Pose pose{};
    pose.position = Pos{0.4f, 0.1f, 0.3f};
    pose.euler = Euler{0.3f, -0.5f, 2.0f};
    pose.quaternion = euler_to_quat(pose.euler);
    // Tw T_base is the pose again.
    const Matrix in_work = matrix_m(libalgo_get_work_cs_to_base_matrix(), calc_Tbase2tool_from_Pose(pose, 0));
    const Matrix expected = pose_quat_to_transformation_matrix(pose);
    EXPECT_LT(algo_test::max_diff_rec(in_work, expected, 4, 4), 1e-5);
}

TEST(IkineTarget, FlagChoosesTheOrientation)
{
    use_model(kAx61);
    Pose pose{};
    pose.position = Pos{0.4f, 0.1f, 0.3f};
    pose.euler = Euler{0.3f, -0.5f, 2.0f};
    pose.quaternion = euler_to_quat(pose.euler);
    Pose euler_only = pose, quat_only = pose;
    euler_only.quaternion = Quat{0.1f, 0.9f, -0.3f, 0.2f};
    quat_only.euler = Euler{1.0f, 1.0f, 1.0f};
    const Matrix reference = calc_Tbase2tool_from_Pose(pose, 0);
    EXPECT_LT(algo_test::max_diff_rec(calc_Tbase2tool_from_Pose(euler_only, 1), reference, 4, 4), 1e-6);
    EXPECT_LT(algo_test::max_diff_rec(calc_Tbase2tool_from_Pose(quat_only, 0), reference, 4, 4), 1e-6);
    // Any flag other than 1 reads the quaternion.
    EXPECT_LT(algo_test::max_diff_rec(calc_Tbase2tool_from_Pose(quat_only, 2), reference, 4, 4), 1e-6);

    // A NaN in the part that is not read does not matter.
    const float q[8] = {0.2f, -0.3f, 0.4f, 0.5f, 0.6f, -0.4f};
    Pose target = tool_pose(q);
    target.quaternion = Quat{kNaN, kNaN, kNaN, kNaN};
    float out[8] = {};
    EXPECT_EQ(inverse_kinematics(q, target, out, 1), 0);
    EXPECT_LE(max_joint_diff(out, q), kJointTolerance);
}

TEST(IkineDispatch, ModelsWithoutSolverGiveMinusFour)
{
    const float q[8] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.8f};
    Pose pose{};
    pose.position = Pos{0.3f, 0.1f, 0.4f};
    pose.quaternion = Quat{1, 0, 0, 0};
    const struct {
        RobotType type;
        int dof;
    } models[] = {{UNIVERSAL, 7}, {AL64I, 0}, {static_cast<RobotType>(12), 0}, {static_cast<RobotType>(-1), 0}};
    for (const auto& m : models) {
        libalgo_init();
        libalgo_set_robot_and_sensor_type(m.type, _B);  // AL64I and unknown numbers have no defaults
        float out[8] = {9, 9, 9, 9, 9, 9, 9, 9};
        EXPECT_EQ(inverse_kinematics(q, pose, out, 0), -4) << m.type;
        EXPECT_EQ(out[0], 9.0f);  // untouched

        const zk_inverse_kinematics_all_solve_t all = inverse_kinematics_all(q, pose, 0);
        EXPECT_EQ(all.result, 0);
        EXPECT_EQ(all.num, -1);
        for (int j = 0; j < 8; ++j) EXPECT_EQ(all.q_ref[j], j < m.dof ? q[j] : 0.0f) << m.type << " joint " << j;
        for (const auto& row : all.q_solve)
            for (float v : row) EXPECT_EQ(v, 0.0f);
    }
}

// A reference up to 2 degrees past a full turn of the last joint counts as the full turn:
// the joint is not taken for one more turn. LUM61's joint 6 has one turn of range.
TEST(IkineDispatch, LastJointJustPastFullTurnIsPulledBack)
{
    use_model(kLum61);
    float q[8] = {0.3f, -0.4f, 0.6f, 0.2f, 0.9f, 0.5f};
    const Pose target = tool_pose(q);
    float ref[8];
    for (int j = 0; j < 8; ++j) ref[j] = q[j];
    float out[8] = {};

    ref[5] = 6.30f;  // pulled back onto the turn: the solution stays within it
    EXPECT_EQ(inverse_kinematics(ref, target, out, 0), 0);
    EXPECT_NEAR(out[5], 0.5f, kJointTolerance);

    ref[5] = 6.318092f;  // the float just below the bound of the tolerance is still pulled back
    EXPECT_EQ(inverse_kinematics(ref, target, out, 0), 0);
    EXPECT_NEAR(out[5], 0.5f, kJointTolerance);

    ref[5] = 6.32f;  // a second turn: the solution keeps it and lies beyond the limits
    EXPECT_EQ(inverse_kinematics(ref, target, out, 0), -2);
    EXPECT_NEAR(out[5], 0.5f + kTwoPi, kJointTolerance);

    q[5] = -0.5f;
    const Pose mirrored = tool_pose(q);
    ref[5] = -6.30f;
    EXPECT_EQ(inverse_kinematics(ref, mirrored, out, 0), 0);
    EXPECT_NEAR(out[5], -0.5f, kJointTolerance);
}

/* -----------------------------------------------------------------------------
 * Bad input
 * -------------------------------------------------------------------------- */

class IkineBadInput : public ::testing::TestWithParam<SixAxisModel> {
protected:
    void SetUp() override { use_model(GetParam()); }
};

// A NaN anywhere in the target or the reference never yields a solution, and nothing is
// written.
TEST_P(IkineBadInput, NaNNeverSucceeds)
{
    const float q[8] = {0.2f, -0.3f, 0.4f, 0.5f, 0.6f, -0.4f};
    const Pose good = tool_pose(q);
    for (int field = 0; field < 10; ++field) {
        // Position, quaternion and Euler angles, ten floats in a row.
        float fields[10];
        static_assert(sizeof(fields) == sizeof(Pose));
        Pose pose = good;
        std::memcpy(fields, &pose, sizeof fields);
        fields[field] = kNaN;
        std::memcpy(&pose, fields, sizeof fields);
        const uint8_t flag = field >= 3 && field < 7 ? 0 : 1;  // the part that is read
        float out[8] = {7, 7, 7, 7, 7, 7, 7, 7};
        EXPECT_EQ(inverse_kinematics(q, pose, out, flag), -1) << "field " << field;
        for (float v : out) EXPECT_EQ(v, 7.0f);
        const zk_inverse_kinematics_all_solve_t all = inverse_kinematics_all(q, pose, flag);
        EXPECT_EQ(all.result, 0);
        EXPECT_EQ(all.num, 0);
    }
    for (int j = 0; j < 6; ++j) {
        float ref[8] = {0.2f, -0.3f, 0.4f, 0.5f, 0.6f, -0.4f};
        ref[j] = kNaN;
        float out[8] = {};
        EXPECT_NE(inverse_kinematics(ref, good, out, 0), 0) << "joint " << j;
    }
    Matrix nan_target = calc_Tbase2tool_from_Pose(good, 0);
    nan_target.data[1][2] = kNaN;
    float out[8] = {};
    EXPECT_EQ(inverse_kinematics_ax6(nan_target, q, out), -1);
    EXPECT_EQ(inverse_kinematics_al64_2(nan_target, q, out), -1);
    EXPECT_EQ(inverse_kinematics_al64_3(nan_target, q, out), -1);
    EXPECT_EQ(inverse_kinematics_lum6(nan_target, q, out), -1);
    EXPECT_EQ(ikine_ax6_solver(nan_target, q).num, 0);
    EXPECT_EQ(ikine_al6II_solver(nan_target, q).num, 0);
    EXPECT_EQ(ikine_lum6_solver(nan_target, q).num, 0);
}

// Far beyond reach there is no solution in any form.
TEST_P(IkineBadInput, UnreachableTargetHasNoSolution)
{
    Pose far{};
    far.position = Pos{3.0f, -2.0f, 1.0f};
    far.quaternion = Quat{1, 0, 0, 0};
    const float q[8] = {};
    float out[8] = {};
    EXPECT_EQ(inverse_kinematics(q, far, out, 0), -1);
    const zk_inverse_kinematics_all_solve_t all = inverse_kinematics_all(q, far, 0);
    EXPECT_EQ(all.result, 0);
    EXPECT_EQ(all.num, 0);
}

TEST_P(IkineBadInput, NullPointersAreRefused)
{
    const float q[8] = {0.2f, -0.3f, 0.4f, 0.5f, 0.6f, -0.4f};
    const Pose pose = tool_pose(q);
    const Matrix t = calc_Tbase2tool_from_Pose(pose, 0);
    float out[8] = {};
    EXPECT_EQ(inverse_kinematics(nullptr, pose, out, 0), -1);
    EXPECT_EQ(inverse_kinematics(q, pose, nullptr, 0), -1);
    EXPECT_EQ(inverse_kinematics_all(nullptr, pose, 0).result, 0);
    EXPECT_EQ(inverse_kinematics_ax6(t, nullptr, out), -1);
    EXPECT_EQ(inverse_kinematics_al64_2(t, q, nullptr), -1);
    EXPECT_EQ(inverse_kinematics_al64_3(t, nullptr, out), -1);
    EXPECT_EQ(inverse_kinematics_lum6(t, q, nullptr), -1);
    EXPECT_EQ(ikine_ax6_solver(t, nullptr).num, 0);
    EXPECT_EQ(ikine_al6II_solver(t, nullptr).num, 0);
    EXPECT_EQ(ikine_lum6_solver(t, nullptr).num, 0);
    EXPECT_EQ(ikine_select_ik_solve(nullptr, inverse_kinematics_all(q, pose, 0)), -1);
    EXPECT_EQ(ikine_check_joint_position_limit(nullptr), -1);
    EXPECT_EQ(ikine_check_joint_velocity_limit(0.1f, nullptr, q), -1);
    EXPECT_EQ(joint_overspeed_judgment(q, nullptr, 1.0f), -1);
    double x = 1.0;
    find_nearest_joint(nullptr, &x, -1.0, 1.0, 0.0);
    find_nearest_joint(&x, nullptr, -1.0, 1.0, 0.0);
    EXPECT_EQ(x, 1.0);
    EXPECT_EQ(find_min_index(nullptr, 5), 0);
}

INSTANTIATE_TEST_SUITE_P(Models, IkineBadInput, ::testing::ValuesIn(kSixAxisModels), model_name);

/* -----------------------------------------------------------------------------
 * Choice among all solutions
 * -------------------------------------------------------------------------- */

zk_inverse_kinematics_all_solve_t record_of(std::initializer_list<std::initializer_list<float>> rows)
{
    zk_inverse_kinematics_all_solve_t all{};
    all.result = 1;
    for (const auto& row : rows) {
        int j = 0;
        for (float v : row) all.q_solve[all.num][j++] = v;
        ++all.num;
    }
    return all;
}

TEST(IkineSelect, WeightedNearestInsideTheLimits)
{
    use_model(kAx61);
    const float even[8] = {1, 1, 1, 1, 1, 1, 0, 0};
    const float wrist_heavy[8] = {1, 1, 1, 1, 1, 100, 0, 0};
    // Row 0 is off on joint 1 by 0.3, row 1 off on joint 6 by 0.2, row 2 nearest but beyond
    // joint 2's limit of 130 degrees.
    zk_inverse_kinematics_all_solve_t all = record_of({{0.3f, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0.2f}, {0, 2.3f, 0, 0, 0, 0}});
    all.q_ref[1] = 2.3f;
    EXPECT_EQ(ikine_select_ik_solve(even, all), 1);   // 0.09 + 5.29 against 0.04 + 5.29
    EXPECT_EQ(ikine_select_ik_solve(wrist_heavy, all), 0);

    // None inside the limits.
    zk_inverse_kinematics_all_solve_t outside = record_of({{0, 2.3f, 0, 0, 0, 0}, {3.2f, 0, 0, 0, 0, 0}});
    EXPECT_EQ(ikine_select_ik_solve(even, outside), -1);

    // Equal costs: the first stands.
    zk_inverse_kinematics_all_solve_t equal = record_of({{0.1f, 0, 0, 0, 0, 0}, {-0.1f, 0, 0, 0, 0, 0}});
    EXPECT_EQ(ikine_select_ik_solve(even, equal), 0);

    // No rows, and the failed all-solutions record of a seven-axis arm.
    EXPECT_EQ(ikine_select_ik_solve(even, record_of({})), -1);
    zk_inverse_kinematics_all_solve_t none{};
    none.num = -1;
    EXPECT_EQ(ikine_select_ik_solve(even, none), -1);

    // A count beyond the record's rows reads only its eight rows.
    zk_inverse_kinematics_all_solve_t many = equal;
    many.num = 1000;
    EXPECT_EQ(ikine_select_ik_solve(even, many), 2);  // the zero rows beyond cost 0
}

// The chooser given the target's own vector as reference picks that vector out of all
// configurations.
TEST(IkineSelect, PicksTheReferenceConfiguration)
{
    const float weight[8] = {2.4f, 2.4f, 2.4f, 1, 1, 1, 0, 0};
    for (const SixAxisModel& model : kSixAxisModels) {
        use_model(model);
        Rng rng(404 + model.type);
        const int n = algo_test::property_cases() / 10;
        for (int i = 0; i < n; ++i) {
            float q[8];
            random_joints(rng, q);
            if (jacobian_min_singular(q) < kIllConditioned) continue;
            const zk_inverse_kinematics_all_solve_t all = inverse_kinematics_all(q, tool_pose(q), 0);
            const int chosen = ikine_select_ik_solve(weight, all);
            ASSERT_GE(chosen, 0) << model.name << " case " << i;
            ASSERT_LE(max_joint_diff(all.q_solve[chosen], q), kJointTolerance) << model.name << " case " << i;
        }
    }
}

/* -----------------------------------------------------------------------------
 * Limit checks
 * -------------------------------------------------------------------------- */

TEST(IkineChecks, PositionLimitNamesTheFirstJointOutside)
{
    use_model(kAx61);  // limits 178, 130, 135, 178, 128, 360 degrees
    float q[8] = {0, 0, 0, 0, 0, 0};
    EXPECT_EQ(ikine_check_joint_position_limit(q), 0);
    q[2] = 2.4f;  // 137.5 degrees
    q[4] = -2.3f;
    EXPECT_EQ(ikine_check_joint_position_limit(q), 3);
    q[2] = kNaN;  // passes
    EXPECT_EQ(ikine_check_joint_position_limit(q), 5);
    q[4] = 0;
    EXPECT_EQ(ikine_check_joint_position_limit(q), 0);
}

TEST(IkineChecks, VelocityLimitOverATimeStep)
{
    use_model(kAx61);  // 180, 180, 225, 225, 225, 225 degrees per second
    const float from[8] = {};
    float to[8] = {};
    to[1] = 0.3f;  // 0.3 rad in 0.1 s is below pi rad/s
    EXPECT_EQ(ikine_check_joint_velocity_limit(0.1f, from, to), 0);
    to[3] = -0.4f;  // beyond 3.93 rad/s x 0.1 s
    EXPECT_EQ(ikine_check_joint_velocity_limit(0.1f, from, to), 4);
    EXPECT_EQ(ikine_check_joint_velocity_limit(1.0f, from, to), 0);
}

TEST(IkineChecks, OverspeedOverOneControlPeriod)
{
    use_model(kAx61);  // period 0.002 s
    const float from[8] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f};
    float to[8];
    for (int j = 0; j < 8; ++j) to[j] = from[j];
    // A negative factor counts as 0: standing still passes, any step is too fast.
    EXPECT_EQ(joint_overspeed_judgment(from, to, -1.0f), 0);
    to[0] += 1e-6f;
    EXPECT_EQ(joint_overspeed_judgment(from, to, -1.0f), 1);
    // pi rad/s over 2 ms is 6.28 mrad.
    to[0] = from[0] + 0.006f;
    EXPECT_EQ(joint_overspeed_judgment(from, to, 1.0f), 0);
    to[0] = from[0] + 0.0065f;
    EXPECT_EQ(joint_overspeed_judgment(from, to, 1.0f), 1);
    EXPECT_EQ(joint_overspeed_judgment(from, to, 1.1f), 0);
}

TEST(IkineChecks, OverspeedBoundaryIsLimitTimesPeriodTimesFactor)
{
    use_model(kAx61);
    float vmax[8];
    libalgo_get_joint_vel_maxlim(vmax);
    const float period = libalgo_get_control_loop_period();
    // A factor at which the two orders of the product round apart, so the test tells them
    // apart: the bound is (vmax x period) x factor.
    float factor = 0.0f;
    for (int i = 1; i < 1000 && factor == 0.0f; ++i) {
        const float f = 0.5f + 0.001f * static_cast<float>(i);
        if (vmax[0] * period * f != vmax[0] * (period * f)) factor = f;
    }
    ASSERT_NE(factor, 0.0f);
    const float from[8] = {};
    float to[8] = {};
    to[0] = vmax[0] * period * factor;
    EXPECT_EQ(joint_overspeed_judgment(from, to, factor), 0);
    to[0] = std::nextafter(to[0], 1.0f);
    EXPECT_EQ(joint_overspeed_judgment(from, to, factor), 1);
}

/* -----------------------------------------------------------------------------
 * Strategy of the seven-axis solvers
 * -------------------------------------------------------------------------- */

TEST(IkineStrategy, SettersKeepThePairConsistent)
{
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 1);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_ax71(), 0.013f);

    ikine_set_7dof_solver_search_strategy(0);
    EXPECT_EQ(global_is_movl, 0);
    EXPECT_FLOAT_EQ(theta_v, 3.14f);
    ikine_set_7dof_solver_search_strategy(1);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 1);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_ax71(), 0.013f);
    ikine_set_7dof_solver_search_strategy(5);  // anything but 1 traverses
    EXPECT_FLOAT_EQ(theta_v, 3.14f);

    ikine_set_solution_range_ax71(1.0f);
    EXPECT_EQ(global_is_movl, 1);
    EXPECT_FLOAT_EQ(theta_v, 1.0f);
    ikine_set_solution_range_ax71(1.01f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 0);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_ax71(), 1.01f);
}

}  // namespace

// The facade's kinematics in degrees against the library's in radians, its refusals of bad
// input, and the frame helpers against independent relations.
#include <gtest/gtest.h>

#include <sys/time.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>

#include "Application/zk_invoke_algo.h"
#include "algo_test_util.h"
#include "zk_api.h"

namespace {

constexpr double kDegToRad = 0.017453292519943295;
constexpr double kRadToDegSolve = 57.29577951308232;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

float rad(float deg) { return static_cast<float>(static_cast<double>(deg) * kDegToRad); }

// The six-axis models with a solver, as the client names them.
constexpr zk_robot_arm_model_e kSixAxisModels[] = {ZK_MODEL_AX_61_E,  ZK_MODEL_AL_64_II_E, ZK_MODEL_AL_64_III_E,
                                                   ZK_MODEL_LUM_61_E, ZK_MODEL_LUM_66_E,   ZK_MODEL_LUM_67_E};

struct Joints {
    float deg[7] = {};
    float rad[8] = {};
};

Joints joints_from_deg(const float* deg, int dof)
{
    Joints j;
    for (int i = 0; i < dof; ++i) {
        j.deg[i] = deg[i];
        j.rad[i] = rad(deg[i]);
    }
    return j;
}

// Joints inside the model's limits, drawn a little inside them.
Joints random_joints(algo_test::Rng& rng)
{
    const int dof = libalgo_get_rbt_dof();
    float q_max[7], q_min[7];
    zk_algo_get_joint_max_limit(q_max);
    zk_algo_get_joint_min_limit(q_min);
    float deg[7] = {};
    for (int i = 0; i < dof; ++i) deg[i] = rng.uniformf(q_min[i] * 0.9f, q_max[i] * 0.9f);
    return joints_from_deg(deg, dof);
}

void expect_pose_eq(const zk_pose_t& a, const Pose& b)
{
    EXPECT_EQ(a.position.x, b.position.x);
    EXPECT_EQ(a.position.y, b.position.y);
    EXPECT_EQ(a.position.z, b.position.z);
    EXPECT_EQ(a.quaternion.w, b.quaternion.w);
    EXPECT_EQ(a.quaternion.x, b.quaternion.x);
    EXPECT_EQ(a.quaternion.y, b.quaternion.y);
    EXPECT_EQ(a.quaternion.z, b.quaternion.z);
    EXPECT_EQ(a.euler.rx, b.euler.rx);
    EXPECT_EQ(a.euler.ry, b.euler.ry);
    EXPECT_EQ(a.euler.rz, b.euler.rz);
}

// Largest difference of the transforms of two poses (by their Euler angles).
double pose_diff(const zk_pose_t& a, const zk_pose_t& b)
{
    const zk_matrix_t ma = zk_algo_pos2matrix(a);
    const zk_matrix_t mb = zk_algo_pos2matrix(b);
    double d = 0.0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 4; ++j) d = std::fmax(d, std::fabs(static_cast<double>(ma.data[i][j]) - mb.data[i][j]));
    return d;
}

zk_pose_t zk_pose_of(const Pose& p)
{
    zk_pose_t r{};
    r.position = {p.position.x, p.position.y, p.position.z};
    r.quaternion = {p.quaternion.w, p.quaternion.x, p.quaternion.y, p.quaternion.z};
    r.euler = {p.euler.rx, p.euler.ry, p.euler.rz};
    return r;
}

void set_random_frames(algo_test::Rng& rng)
{
    zk_frame_t tool{};
    tool.pose.position = {rng.uniformf(-0.05f, 0.05f), rng.uniformf(-0.05f, 0.05f), rng.uniformf(0.0f, 0.2f)};
    tool.pose.euler = {rng.uniformf(-1.0f, 1.0f), rng.uniformf(-1.0f, 1.0f), rng.uniformf(-3.0f, 3.0f)};
    zk_frame_t work{};
    work.pose.position = {rng.uniformf(-0.5f, 0.5f), rng.uniformf(-0.5f, 0.5f), rng.uniformf(-0.2f, 0.2f)};
    work.pose.euler = {rng.uniformf(-0.5f, 0.5f), rng.uniformf(-0.5f, 0.5f), rng.uniformf(-3.0f, 3.0f)};
    zk_algo_set_toolframe(&tool);
    zk_algo_set_workframe(&work);
}

// ----------------------------------------------------------------------------------------
// Forward kinematics
// ----------------------------------------------------------------------------------------

TEST(AlgoFacadeKinematics, ForwardKinematicsInDegreesIsTheLibrarysInRadians)
{
    algo_test::Rng rng(711);
    const zk_robot_arm_model_e models[] = {ZK_MODEL_AX_61_E,  ZK_MODEL_AX_71_E,  ZK_MODEL_AL_64_II_E,
                                           ZK_MODEL_AL_64_III_E, ZK_MODEL_LUM_61_E, ZK_MODEL_LUM_66_E,
                                           ZK_MODEL_TOR_77_E, ZK_MODEL_LUM_67_E};
    for (const auto model : models) {
        SCOPED_TRACE(model);
        zk_algo_init_sys_data(model, ZK_MODEL_ZK_B_E);
        zk_algo_set_angle(0.0f, 10.0f, 30.0f);
        set_random_frames(rng);
        for (int n = 0; n < 50; ++n) {
            const Joints q = random_joints(rng);
            expect_pose_eq(zk_algo_forward_kinematics(nullptr, q.deg), forward_kinematics(q.rad));
        }
    }
}

TEST(AlgoFacadeKinematics, ForwardKinematicsOfANullJointIsAZeroPose)
{
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    const zk_pose_t p = zk_algo_forward_kinematics(nullptr, nullptr);
    const zk_pose_t zero{};
    EXPECT_EQ(std::memcmp(&p, &zero, sizeof p), 0);
}

TEST(AlgoFacadeKinematics, ForwardKinematicsAsATransformIsThePoseAsATransform)
{
    algo_test::Rng rng(712);
    zk_algo_init_sys_data(ZK_MODEL_LUM_61_E, ZK_MODEL_ZK_B_E);
    set_random_frames(rng);
    const Joints q = random_joints(rng);
    const zk_matrix_t m = Forward_Kinematics_e(nullptr, q.deg);
    const zk_pose_t p = zk_algo_forward_kinematics(nullptr, q.deg);
    EXPECT_EQ(m.irow, 4);
    EXPECT_EQ(m.iline, 4);
    EXPECT_EQ(m.data[0][3], p.position.x);
    EXPECT_EQ(m.data[2][3], p.position.z);
    EXPECT_LT(pose_diff(zk_algo_matrix2pos(m), p), 1e-5);

    // The invoke_ layer's flange transform is the library's F(q).
    const Matrix f = invoke_forward_kinematics_e(q.deg);
    const Matrix expected = forward_kinematics_e(q.rad);
    EXPECT_EQ(algo_test::max_diff_rec(f, expected, 4, 4), 0.0);
}

// ----------------------------------------------------------------------------------------
// Inverse kinematics
// ----------------------------------------------------------------------------------------

zk_inverse_kinematics_params_t request(const Joints& reference, const Pose& target, uint8_t flag)
{
    zk_inverse_kinematics_params_t params{};
    for (int i = 0; i < 7; ++i) params.q_in[i] = reference.deg[i];
    params.q_pose = zk_pose_of(target);
    params.flag = flag;
    return params;
}

TEST(AlgoFacadeKinematics, InverseKinematicsInDegreesIsTheLibrarysInRadians)
{
    algo_test::Rng rng(713);
    int solved = 0;
    for (const auto model : kSixAxisModels) {
        SCOPED_TRACE(model);
        zk_algo_init_sys_data(model, ZK_MODEL_ZK_B_E);
        set_random_frames(rng);
        for (int n = 0; n < 100; ++n) {
            const Joints goal = random_joints(rng);
            float near_deg[7];
            for (int i = 0; i < 6; ++i) near_deg[i] = goal.deg[i] * 0.95f;
            const Joints reference = joints_from_deg(near_deg, 6);
            const Pose target = forward_kinematics(goal.rad);

            float q_lib[8] = {};
            const int lib = inverse_kinematics(reference.rad, target, q_lib, 1);
            float q_out[7] = {};
            const int result = zk_algo_inverse_kinematics(nullptr, request(reference, target, 1), q_out);
            EXPECT_EQ(result, lib == 0 ? 0 : 1);
            if (lib != 0) continue;
            ++solved;
            for (int i = 0; i < 6; ++i)
                EXPECT_EQ(q_out[i], static_cast<float>(static_cast<double>(q_lib[i]) * kRadToDegSolve)) << i;
            // The answer reaches the target.
            const zk_pose_t reached = zk_algo_forward_kinematics(nullptr, q_out);
            EXPECT_LT(pose_diff(reached, zk_pose_of(target)), 2e-3);
        }
    }
    EXPECT_GT(solved, 400);
}

TEST(AlgoFacadeKinematics, QuaternionTargetIsSolvedOnlyWhenItsNormIsExactlyOne)
{
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    const float h = 0.70710677f;  // rounded sqrt(1/2): its squares add to 0.99999994 in float
    ASSERT_NE(h * h + h * h, 1.0f);
    struct Row {
        zk_quat_t q;
        bool accepted;
    };
    const Row rows[] = {
        {{1, 0, 0, 0}, true},         {{0, 0, 0, 1}, true},       {{0.5f, 0.5f, 0.5f, 0.5f}, true},
        {{0.5f, -0.5f, 0.5f, -0.5f}, true}, {{h, h, 0, 0}, false}, {{0, 0, 0, 0}, false},
        {{1.0001f, 0, 0, 0}, false},  {{kNaN, 0, 0, 0}, false},   {{2, 0, 0, 0}, false},
    };
    const float home[8] = {};
    const Pose start = forward_kinematics(home);
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.q.w << " " << row.q.x << " " << row.q.y << " " << row.q.z);
        zk_inverse_kinematics_params_t params{};
        params.q_pose.position = {start.position.x, start.position.y, start.position.z};
        params.q_pose.quaternion = row.q;
        params.flag = 0;
        float q_out[7] = {};
        const int result = zk_algo_inverse_kinematics(nullptr, params, q_out);
        if (row.accepted)
            EXPECT_NE(result, -2);
        else
            EXPECT_EQ(result, -2);
        EXPECT_EQ(zk_algo_inverse_kinematics_all(nullptr, params).result == -2, !row.accepted);

        // With flag 1 the quaternion is not read at all.
        params.flag = 1;
        params.q_pose.euler = {start.euler.rx, start.euler.ry, start.euler.rz};
        EXPECT_EQ(zk_algo_inverse_kinematics(nullptr, params, q_out), 0);
    }
}

TEST(AlgoFacadeKinematics, QuaternionTargetMatchesTheEulerTargetOfTheSameOrientation)
{
    zk_algo_init_sys_data(ZK_MODEL_LUM_67_E, ZK_MODEL_ZK_B_E);
    zk_inverse_kinematics_params_t params{};
    params.q_pose.position = {0.3f, 0.1f, 0.35f};
    params.q_pose.quaternion = {0.0f, 1.0f, 0.0f, 0.0f};  // pointing down, exactly unit
    params.q_pose.euler = {3.14159265f, 0.0f, 0.0f};
    float by_quat[7] = {};
    float by_euler[7] = {};
    params.flag = 0;
    ASSERT_EQ(zk_algo_inverse_kinematics(nullptr, params, by_quat), 0);
    params.flag = 1;
    ASSERT_EQ(zk_algo_inverse_kinematics(nullptr, params, by_euler), 0);
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(by_quat[i], by_euler[i], 0.01) << i;
}

TEST(AlgoFacadeKinematics, BadInputNeverReportsSuccessNorWritesTheAnswer)
{
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    const float home[8] = {};
    const Pose start = forward_kinematics(home);
    const Joints zero{};
    float q_out[7] = {9, 9, 9, 9, 9, 9, 9};
    const auto untouched = [&] {
        for (float v : q_out) EXPECT_EQ(v, 9.0f);
    };

    // A reference outside the limits: -1, before any solve.
    zk_inverse_kinematics_params_t params = request(zero, start, 1);
    params.q_in[1] = 131.0f;  // AX61 joint 2 reaches 130 degrees
    EXPECT_EQ(zk_algo_inverse_kinematics(nullptr, params, q_out), -1);
    untouched();
    params.q_in[1] = kNaN;
    EXPECT_EQ(zk_algo_inverse_kinematics(nullptr, params, q_out), -1);
    untouched();
    // The quaternion is judged first.
    params.flag = 0;
    params.q_pose.quaternion = {0.9f, 0, 0, 0};
    EXPECT_EQ(zk_algo_inverse_kinematics(nullptr, params, q_out), -2);

    // Non-finite targets: no solution.
    for (const auto& poison : {std::pair{0, kNaN}, std::pair{1, kNaN}, std::pair{2, std::numeric_limits<float>::infinity()}}) {
        zk_inverse_kinematics_params_t p = request(zero, start, 1);
        if (poison.first == 0) p.q_pose.position.x = poison.second;
        if (poison.first == 1) p.q_pose.euler.ry = poison.second;
        if (poison.first == 2) p.q_pose.position.z = poison.second;
        EXPECT_EQ(zk_algo_inverse_kinematics(nullptr, p, q_out), 1);
        untouched();
        EXPECT_EQ(zk_algo_inverse_kinematics_all(nullptr, p).result, 1);
    }

    // Out of reach.
    zk_inverse_kinematics_params_t far = request(zero, start, 1);
    far.q_pose.position = {3.0f, 0.0f, 0.5f};
    EXPECT_EQ(zk_algo_inverse_kinematics(nullptr, far, q_out), 1);
    untouched();
    // No place for the answer.
    EXPECT_EQ(zk_algo_inverse_kinematics(nullptr, request(zero, start, 1), nullptr), 1);
}

TEST(AlgoFacadeKinematics, AModelWithoutASolverGivesNoSolution)
{
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(UNIVERSAL, _B), 0);
    const float home[8] = {};
    const Joints zero{};
    float q_out[7] = {};
    EXPECT_EQ(zk_algo_inverse_kinematics(nullptr, request(zero, forward_kinematics(home), 1), q_out), 1);
}

TEST(AlgoFacadeKinematics, AllSolutionsInDegreesAreTheLibrarysInRadians)
{
    algo_test::Rng rng(714);
    for (const auto model : kSixAxisModels) {
        SCOPED_TRACE(model);
        zk_algo_init_sys_data(model, ZK_MODEL_ZK_B_E);
        set_random_frames(rng);
        for (int n = 0; n < 30; ++n) {
            const Joints goal = random_joints(rng);
            const Joints reference = random_joints(rng);
            const Pose target = forward_kinematics(goal.rad);
            const zk_inverse_kinematics_all_solve_t lib = inverse_kinematics_all(reference.rad, target, 1);
            const zk_inverse_kinematics_all_solve_t all =
                zk_algo_inverse_kinematics_all(nullptr, request(reference, target, 1));
            EXPECT_EQ(all.result, lib.result != 0 ? 0 : 1);
            ASSERT_EQ(all.num, lib.num);
            for (int j = 0; j < 7; ++j) EXPECT_EQ(all.q_ref[j], reference.deg[j]);
            for (int i = 0; i < 8; ++i)
                for (int j = 0; j < 6; ++j) {
                    const float expected = i < lib.num ? static_cast<float>(lib.q_solve[i][j] * kRadToDegSolve) : 0.0f;
                    EXPECT_EQ(all.q_solve[i][j], expected) << i << "," << j;
                }
            // The chooser in degrees picks what the library picks in radians.
            const float weight[6] = {1, 1, 1, 0.5f, 0.5f, 0.5f};
            EXPECT_EQ(zk_algo_ikine_select_ik_solve(weight, all), ikine_select_ik_solve(weight, lib));
        }
    }
}

TEST(AlgoFacadeKinematics, AllSolutionsRefusals)
{
    const float home[8] = {};
    const Joints zero{};
    zk_algo_init_sys_data(ZK_MODEL_AX_71_E, ZK_MODEL_ZK_B_E);
    zk_inverse_kinematics_params_t params = request(zero, forward_kinematics(home), 1);
    params.q_in[0] = 12.5f;
    zk_inverse_kinematics_all_solve_t all = zk_algo_inverse_kinematics_all(nullptr, params);
    EXPECT_EQ(all.result, -3);
    EXPECT_EQ(all.num, 0);
    EXPECT_EQ(all.q_ref[0], 12.5f);

    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    params = request(zero, forward_kinematics(home), 1);
    params.q_in[5] = 361.0f;
    EXPECT_EQ(zk_algo_inverse_kinematics_all(nullptr, params).result, -1);
    params.q_pose.position = {3.0f, 0.0f, 0.0f};
    params.q_in[5] = 0.0f;
    all = zk_algo_inverse_kinematics_all(nullptr, params);
    EXPECT_EQ(all.result, 1);
    EXPECT_EQ(all.num, 0);
}

TEST(AlgoFacadeKinematics, SelectionSkipsRowsOutsideTheLimits)
{
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    zk_inverse_kinematics_all_solve_t all{};
    all.num = 3;
    const float rows[3][6] = {{0, 131, 0, 0, 0, 0}, {10, 10, 10, 10, 10, 10}, {1, 1, 1, 1, 1, 1}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 6; ++j) all.q_solve[i][j] = rows[i][j];
    const float weight[6] = {1, 1, 1, 1, 1, 1};
    EXPECT_EQ(zk_algo_ikine_select_ik_solve(weight, all), 2);  // row 0 is nearest but outside
    all.num = 1;
    EXPECT_EQ(zk_algo_ikine_select_ik_solve(weight, all), -1);
    EXPECT_EQ(zk_algo_ikine_select_ik_solve(nullptr, all), -1);
}

// ----------------------------------------------------------------------------------------
// Limits
// ----------------------------------------------------------------------------------------

TEST(AlgoFacadeKinematics, JudgmentOfThePositionIncludesTheLimitsThemselves)
{
    zk_algo_init_sys_data(ZK_MODEL_AL_64_II_E, ZK_MODEL_ZK_B_E);
    struct Row {
        int joint;
        float value;
        int expected;
    };
    const Row rows[] = {
        {0, 178.0f, 0},   {0, -178.0f, 0},  {2, 145.0f, 0},   {2, -178.0f, 0},    {5, 360.0f, 0},
        {0, 178.001f, -1}, {2, 145.001f, -1}, {5, -360.01f, -1}, {3, kNaN, -1},
        {6, 1000.0f, 0},  // beyond a six-axis arm
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.joint << " " << row.value);
        float q[7] = {};
        q[row.joint] = row.value;
        EXPECT_EQ(zk_algo_judgment_overpos(q), row.expected);
    }
    EXPECT_EQ(zk_algo_judgment_overpos(nullptr), -1);
}

TEST(AlgoFacadeKinematics, PositionAndSpeedChecksTakeDegrees)
{
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    float q[7] = {0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(zk_algo_ikine_check_joint_position_limit(q), 0);
    q[2] = 135.0f;
    EXPECT_EQ(zk_algo_ikine_check_joint_position_limit(q), 0);
    q[2] = 135.5f;
    EXPECT_EQ(zk_algo_ikine_check_joint_position_limit(q), 3);
    EXPECT_EQ(zk_algo_ikine_check_joint_position_limit(nullptr), -1);

    float speed[7];
    zk_algo_get_joint_max_speed(speed);  // degrees per second
    const float dt = 0.01f;
    const float from[7] = {};
    float to[7] = {};
    to[1] = 0.99f * speed[1] * dt;
    EXPECT_EQ(zk_algo_ikine_check_joint_velocity_limit(dt, from, to), 0);
    to[1] = 1.01f * speed[1] * dt;
    EXPECT_EQ(zk_algo_ikine_check_joint_velocity_limit(dt, from, to), 2);
    EXPECT_EQ(zk_algo_ikine_check_joint_velocity_limit(dt, nullptr, to), -1);
}

// ----------------------------------------------------------------------------------------
// Singularity
// ----------------------------------------------------------------------------------------

TEST(AlgoFacadeKinematics, SingularityAnalysesInDegreesAreTheLibrarysInRadians)
{
    algo_test::Rng rng(715);
    for (const auto model : kSixAxisModels) {
        SCOPED_TRACE(model);
        zk_algo_init_sys_data(model, ZK_MODEL_ZK_B_E);
        for (int n = 0; n < 60; ++n) {
            Joints q = random_joints(rng);
            if (n % 3 == 1) q = joints_from_deg(std::array<float, 6>{q.deg[0], q.deg[1], q.deg[2], q.deg[3], 0.0f, q.deg[5]}.data(), 6);
            if (n % 3 == 2) q = joints_from_deg(std::array<float, 6>{q.deg[0], q.deg[1], 0.0f, q.deg[3], q.deg[4], q.deg[5]}.data(), 6);
            float distance = -1.0f;
            float lib_distance = -2.0f;
            EXPECT_EQ(zk_algo_kin_robot_singularity_analyse(q.deg, &distance),
                      kin_robot_singularity_analyse(q.rad, "machine", &lib_distance));
            EXPECT_EQ(distance, lib_distance);
            for (const float limit : {0.01f, -0.05f, 5.0f}) {
                float lib_limit = limit;
                EXPECT_EQ(zk_algo_universal_singularity_analyse(q.deg, limit),
                          kine_robot_universal_singularity_analyse(q.rad, &lib_limit));
            }
        }
    }
}

TEST(AlgoFacadeKinematics, GeometricSingularityNeedsASixAxisArm)
{
    const float q[7] = {10, 20, 30, 40, 50, 60, 70};
    for (const auto model : {ZK_MODEL_AX_71_E, ZK_MODEL_TOR_77_E}) {
        zk_algo_init_sys_data(model, ZK_MODEL_ZK_B_E);
        EXPECT_EQ(zk_algo_kin_robot_singularity_analyse(q, nullptr), -4);
    }
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    // Thresholds in degrees: a wrist 15 degrees off its zero is singular under a 20 degree
    // threshold and free under the default 10.
    const float wrist[7] = {0, 30, 60, 0, 15, 0};
    zk_algo_kin_singularity_thresholds_init();
    EXPECT_EQ(zk_algo_kin_robot_singularity_analyse(wrist, nullptr), 0);
    zk_algo_kin_set_singularity_thresholds(10.0f, 20.0f, 0.05f);
    EXPECT_EQ(zk_algo_kin_robot_singularity_analyse(wrist, nullptr), -3);
    zk_algo_kin_singularity_thresholds_init();
}

// ----------------------------------------------------------------------------------------
// Transforms and frames
// ----------------------------------------------------------------------------------------

zk_pose_t random_pose(algo_test::Rng& rng)
{
    zk_pose_t p{};
    p.position = {rng.uniformf(-1, 1), rng.uniformf(-1, 1), rng.uniformf(-1, 1)};
    p.euler = {rng.uniformf(-3, 3), rng.uniformf(-1.5f, 1.5f), rng.uniformf(-3, 3)};
    p.quaternion = zk_algo_euler2quaternion(p.euler);
    return p;
}

TEST(AlgoFacadeKinematics, ConversionsRoundTrip)
{
    algo_test::Rng rng(716);
    for (int n = 0; n < algo_test::property_cases() / 10; ++n) {
        const zk_pose_t p = random_pose(rng);
        const zk_matrix_t m = zk_algo_pos2matrix(p);
        EXPECT_EQ(m.irow, 4);
        const zk_pose_t back = zk_algo_matrix2pos(m);
        EXPECT_LT(pose_diff(back, p), 1e-5);
        EXPECT_NEAR(back.position.y, p.position.y, 1e-6);

        const zk_matrix_t r = zk_algo_euler2matrix(p.euler);
        EXPECT_EQ(r.irow, 3);
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) EXPECT_NEAR(r.data[i][j], m.data[i][j], 1e-6);

        const zk_euler_t e = zk_algo_quaternion2euler(p.quaternion);
        zk_pose_t again = p;
        again.euler = e;
        EXPECT_LT(pose_diff(again, p), 1e-5);

        // A pose seen from a work frame and brought back.
        const zk_pose_t frame = random_pose(rng);
        const zk_matrix_t to_work = zk_algo_pos2matrix(frame);
        EXPECT_LT(pose_diff(zk_algo_workframe2base(to_work, zk_algo_base2workframe(to_work, p)), p), 1e-4);
    }
}

TEST(AlgoFacadeKinematics, EndToToolAppliesTheToolAndToolToEndUndoesIt)
{
    algo_test::Rng rng(717);
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    for (int n = 0; n < 200; ++n) {
        set_random_frames(rng);
        zk_frame_t tool{};
        zk_algo_get_curr_toolframe(&tool);
        const zk_pose_t end = random_pose(rng);
        const zk_pose_t at_tool = zk_algo_end2tool(nullptr, end);
        // Independently: the flange pose times the tool transform, in the same frame.
        const zk_matrix_t e = zk_algo_pos2matrix(end);
        const zk_matrix_t t = zk_algo_pos2matrix(tool.pose);
        zk_matrix_t et{};
        et.irow = et.iline = 4;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                for (int k = 0; k < 4; ++k) et.data[i][j] += e.data[i][k] * t.data[k][j];
        EXPECT_LT(pose_diff(at_tool, zk_algo_matrix2pos(et)), 1e-4);
        EXPECT_LT(pose_diff(zk_algo_tool2end(nullptr, at_tool), end), 1e-4);
    }
}

TEST(AlgoFacadeKinematics, EndToToolOfTheFlangePoseIsTheForwardKinematics)
{
    algo_test::Rng rng(718);
    zk_algo_init_sys_data(ZK_MODEL_LUM_66_E, ZK_MODEL_ZK_B_E);
    for (int n = 0; n < 50; ++n) {
        set_random_frames(rng);
        zk_frame_t tool{};
        zk_algo_get_curr_toolframe(&tool);
        const Joints q = random_joints(rng);
        const zk_pose_t with_tool = zk_algo_forward_kinematics(nullptr, q.deg);
        const zk_frame_t no_tool{};
        zk_algo_set_toolframe(&no_tool);
        const zk_pose_t flange = zk_algo_forward_kinematics(nullptr, q.deg);
        zk_algo_set_toolframe(&tool);
        EXPECT_LT(pose_diff(zk_algo_end2tool(nullptr, flange), with_tool), 1e-4);
        EXPECT_LT(pose_diff(zk_algo_tool2end(nullptr, with_tool), flange), 1e-4);
    }
}

TEST(AlgoFacadeKinematics, RelativeMovesFollowTheCurrentModel)
{
    algo_test::Rng rng(719);
    zk_algo_init_sys_data(ZK_MODEL_AL_64_II_E, ZK_MODEL_ZK_B_E);
    set_random_frames(rng);
    const Joints q = random_joints(rng);
    const zk_pose_t here = zk_algo_forward_kinematics(nullptr, q.deg);

    // Along the work frame's x: only the position's x moves.
    const float along_x[6] = {0.05f, 0, 0, 0, 0, 0};
    const zk_pose_t moved = zk_algo_pose_move(nullptr, here, along_x, 0);
    EXPECT_NEAR(moved.position.x, here.position.x + 0.05f, 1e-6);
    EXPECT_EQ(moved.position.y, here.position.y);
    EXPECT_LT(pose_diff(moved, here), 0.05f + 1e-5);
    // Along the tool's own z by the same length as the Cartesian tool move.
    const float along_tool_z[6] = {0, 0, 0.03f, 0, 0, 0};
    const zk_pose_t tool_moved = zk_algo_pose_move(nullptr, here, along_tool_z, 1);
    const zk_pose_t cartesian = zk_algo_cartesian_tool(nullptr, q.deg, 0.0f, 0.0f, 0.03f);
    EXPECT_NEAR(tool_moved.position.x, cartesian.position.x, 1e-4);
    EXPECT_NEAR(tool_moved.position.z, cartesian.position.z, 1e-4);
    // A turn by zero leaves the forward kinematics' pose.
    const zk_pose_t turned = zk_algo_rotate_move(nullptr, q.deg, 3, 0.0f, here);
    EXPECT_LT(pose_diff(turned, here), 1e-5);
    // A turn about z keeps the position.
    const zk_pose_t about_z = zk_algo_rotate_move(nullptr, q.deg, 3, 30.0f, here);
    EXPECT_EQ(about_z.position.x, here.position.x);
    EXPECT_GT(pose_diff(about_z, here), 0.1);

    const zk_pose_t zero{};
    zk_pose_t none = zk_algo_pose_move(nullptr, here, nullptr, 0);
    EXPECT_EQ(std::memcmp(&none, &zero, sizeof none), 0);
    none = zk_algo_rotate_move(nullptr, nullptr, 1, 10.0f, here);
    EXPECT_EQ(std::memcmp(&none, &zero, sizeof none), 0);
    none = zk_algo_cartesian_tool(nullptr, nullptr, 0.1f, 0, 0);
    EXPECT_EQ(std::memcmp(&none, &zero, sizeof none), 0);
}

// ----------------------------------------------------------------------------------------
// The timed solve and its clock
// ----------------------------------------------------------------------------------------

TEST(AlgoFacadeKinematics, ClockCountsFrom1970InMicroseconds)
{
    timeval ours{};
    timeval system{};
    ASSERT_EQ(get_time_of_day(&ours), 0);
    gettimeofday(&system, nullptr);
    EXPECT_LE(std::abs(static_cast<long>(system.tv_sec - ours.tv_sec)), 1);
    EXPECT_GE(ours.tv_usec, 0);
    EXPECT_LT(ours.tv_usec, 1000000);
    EXPECT_EQ(get_time_of_day(nullptr), -1);
}

TEST(AlgoFacadeKinematics, TimedSolveRecordsItsTimeAndJudgesTheStep)
{
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    EXPECT_EQ(invoke_inverse_time_total_min, 10000.0);
    const float start_deg[6] = {10, 20, -30, 40, 50, 60};
    const Joints start = joints_from_deg(start_deg, 6);

    // A step of 0.1 degree per joint stays within one control period's speed.
    float small_deg[6];
    for (int i = 0; i < 6; ++i) small_deg[i] = start_deg[i] + 0.1f;
    const Joints small = joints_from_deg(small_deg, 6);
    float q_out[7] = {};
    EXPECT_EQ(invoke_inverse_kinematics_with_judgment_overspeed(start.deg, zk_pose_of(forward_kinematics(small.rad)),
                                                                q_out, 1),
              0);
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(q_out[i], small_deg[i], 0.01) << i;
    EXPECT_LT(invoke_inverse_time_total_min, 10000.0);
    EXPECT_GE(invoke_inverse_time_total_min, 0.0);

    // Twenty degrees on joint 2 in one period is too fast for it.
    float big_deg[6] = {10, 40, -30, 40, 50, 60};
    const Joints big = joints_from_deg(big_deg, 6);
    EXPECT_EQ(invoke_inverse_kinematics_with_judgment_overspeed(start.deg, zk_pose_of(forward_kinematics(big.rad)),
                                                                q_out, 1),
              2);
    EXPECT_GE(invoke_inverse_time_total_max, 0.0);
    EXPECT_EQ(invoke_joint_overspeed_judgment(start.deg, start.deg, 1.0f), 0);
    EXPECT_EQ(invoke_joint_overspeed_judgment(start.deg, small.deg, -1.0f), 1);
}

}  // namespace

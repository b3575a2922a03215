// The facade over the seven-axis arm angle, the tool envelope and the self-collision check,
// in degrees and public records against the library's radians and records.
#include <gtest/gtest.h>

#include <cmath>

#include "algo_test_util.h"
#include "zk_api.h"

namespace {

constexpr double kDegToRad = 0.017453292519943295;
constexpr double kRadToDeg = 57.2957795130823;

float rad(float deg) { return static_cast<float>(static_cast<double>(deg) * kDegToRad); }

// Joints inside the model's limits, in degrees and in radians as the facade converts them.
void random_joints(algo_test::Rng& rng, float deg[7], float radians[8])
{
    float q_max[7], q_min[7];
    zk_algo_get_joint_max_limit(q_max);
    zk_algo_get_joint_min_limit(q_min);
    for (int i = 0; i < 8; ++i) radians[i] = 0.0f;
    for (int i = 0; i < 7; ++i) deg[i] = 0.0f;
    for (int i = 0; i < libalgo_get_rbt_dof(); ++i) {
        deg[i] = rng.uniformf(q_min[i] * 0.8f, q_max[i] * 0.8f);
        radians[i] = rad(deg[i]);
    }
}

TEST(AlgoFacadeSevenAxis, ArmAngleInDegreesIsTheLibrarysInRadiansAndSolvesBack)
{
    algo_test::Rng rng(731);
    zk_algo_init_sys_data(ZK_MODEL_AX_71_E, ZK_MODEL_ZK_B_E);
    int round_trips = 0;
    for (int n = 0; n < 100; ++n) {
        float q_deg[7];
        float q_rad[8];
        random_joints(rng, q_deg, q_rad);
        float psi_deg = 0.0f;
        ASSERT_EQ(zk_algo_calculate_arm_angle_from_config_ax71(q_deg, &psi_deg), 0);
        float psi = 0.0f;
        float q_lib[8];
        std::copy(q_rad, q_rad + 8, q_lib);
        ASSERT_EQ(calculate_arm_angle_from_config_ax71(q_lib, &psi), 0);
        EXPECT_EQ(psi_deg, static_cast<float>(psi * kRadToDeg));

        // The solution at that arm angle, nearest the joints themselves, is those joints.
        zk_inverse_kinematics_params_t params{};
        std::copy(q_deg, q_deg + 7, params.q_in);
        params.q_pose = zk_algo_forward_kinematics(nullptr, q_deg);
        params.flag = 1;
        float q_solve[7] = {};
        const int result = zk_algo_inverse_kinematics_ax71_for_arm_angle(params, psi_deg, q_solve);
        if (result != 0) continue;
        ++round_trips;
        for (int i = 0; i < 7; ++i) EXPECT_NEAR(q_solve[i], q_deg[i], 0.05) << i;
    }
    EXPECT_GT(round_trips, 80);
}

TEST(AlgoFacadeSevenAxis, ArmAngleRefusals)
{
    zk_algo_init_sys_data(ZK_MODEL_AX_71_E, ZK_MODEL_ZK_B_E);
    const float q[7] = {10, 20, 30, 40, 50, 60, 70};
    float psi = 0.0f;
    zk_inverse_kinematics_params_t params{};
    float q_solve[7];
    EXPECT_EQ(zk_algo_calculate_arm_angle_from_config_ax71(nullptr, &psi), -2);
    EXPECT_EQ(zk_algo_calculate_arm_angle_from_config_ax71(q, nullptr), -2);
    EXPECT_EQ(zk_algo_inverse_kinematics_ax71_for_arm_angle(params, 0.0f, nullptr), -2);

    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    EXPECT_EQ(zk_algo_calculate_arm_angle_from_config_ax71(q, &psi), -3);
    EXPECT_EQ(zk_algo_inverse_kinematics_ax71_for_arm_angle(params, 0.0f, q_solve), -3);
}


TEST(AlgoFacadeSafety, ToolEnvelopeRecordsMapFieldByField)
{
    const zk_tool_sphere_t sphere{0.04f, {0.01f, -0.02f, 0.15f}};
    EXPECT_EQ(zk_algo_set_tool_envelope(2, sphere), 0);
    ToolSphere stored{};
    ASSERT_EQ(libalgo_get_tool_envelope(2, &stored), 0);
    EXPECT_EQ(stored.r, 0.04f);
    EXPECT_EQ(stored.x, 0.01f);
    EXPECT_EQ(stored.y, -0.02f);
    EXPECT_EQ(stored.z, 0.15f);

    zk_tool_sphere_t back{};
    EXPECT_EQ(zk_algo_get_tool_envelope(2, &back), 0);
    EXPECT_EQ(back.radius, 0.04f);
    EXPECT_EQ(back.centrePoint[2], 0.15f);

    EXPECT_EQ(zk_algo_set_tool_envelope(5, sphere), -1);
    EXPECT_EQ(zk_algo_set_tool_envelope(-1, sphere), -1);
    EXPECT_EQ(zk_algo_get_tool_envelope(5, &back), -1);
    EXPECT_EQ(zk_algo_get_tool_envelope(0, nullptr), -1);
    const zk_tool_sphere_t empty{};
    zk_algo_set_tool_envelope(2, empty);
}

TEST(AlgoFacadeSafety, SelfCollisionInDegreesIsTheLibrarysInRadians)
{
    algo_test::Rng rng(732);
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    // A large tool makes both outcomes common.
    zk_algo_set_tool_envelope(0, zk_tool_sphere_t{0.08f, {0.0f, 0.0f, 0.12f}});
    for (const auto model : {ZK_MODEL_AX_61_E, ZK_MODEL_AX_71_E, ZK_MODEL_AL_64_III_E, ZK_MODEL_LUM_61_E,
                             ZK_MODEL_TOR_77_E}) {
        SCOPED_TRACE(model);
        zk_algo_init_sys_data(model, ZK_MODEL_ZK_B_E);
        int colliding = 0;
        for (int n = 0; n < 300; ++n) {
            float q_deg[7];
            float q_rad[8];
            random_joints(rng, q_deg, q_rad);
            const int result = zk_algo_safety_robot_self_collision_detection(q_deg);
            EXPECT_EQ(result, safety_robot_self_collision_detection(q_rad));
            colliding += result;
        }
        EXPECT_GT(colliding, 0);
        EXPECT_LT(colliding, 300);

        // Outside the limits counts as unsafe.
        float q_max[7];
        zk_algo_get_joint_max_limit(q_max);
        float beyond[7] = {};
        beyond[0] = q_max[0] + 1.0f;
        EXPECT_EQ(zk_algo_safety_robot_self_collision_detection(beyond), 1);
    }
    EXPECT_EQ(zk_algo_safety_robot_self_collision_detection(nullptr), -1);
    zk_algo_set_tool_envelope(0, zk_tool_sphere_t{});
}

}  // namespace

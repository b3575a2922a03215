// The facade with a connected arm: the hand-over at creation, the reload of the handle's
// mirror at every call with a handle, handles that are not connected, and concurrent use.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Application/zk_handle.h"
#include "support/connected_arm.h"
#include "libalgo.h"
#include "support/test_log.h"

namespace {

using zk_test::ConnectedArm;
using zk_test::LogCapture;

constexpr const char* kNotConnected = "The robotic arm is not connected!";

TEST(AlgoFacadeHandle, ACreatedArmConfiguresTheLibraryForItsModel)
{
    struct Row {
        const char* product;
        RobotType type;
        SensorType sensor;
    };
    const Row rows[] = {
        {"ZK-AX61-B", AX61, _B},       {"ZK-AX71-XF", AX71, _XF},    {"ZK-AL64-QF", AL64II, _QF},
        {"ZK-AL64III-XF", AL64IV, _XF}, {"ZK-LUM61-XFB", LUM61, IXF}, {"ZK-TOR77-B", TOR77, _B},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.product);
        zk_algo_init_sys_data(ZK_MODEL_LUM_67_E, ZK_MODEL_ZK_QF_E);
        ConnectedArm arm(ZK_SINGLE_MODE_E, row.product);
        EXPECT_EQ(libalgo_get_robot_type(), row.type);
        EXPECT_EQ(libalgo_get_sensor_type(), row.sensor);
    }
}

// Writes the handle's mirror as its controller would: the model's defaults in degrees, with
// install angles, frames and one narrowed limit of its own. The defaults are read before the
// table lock is taken, since the facade takes its own lock before the table's.
void fill_mirror(zk_robot_handle* handle)
{
    zk_robot_arm_model_e model{};
    zk_force_type_e force{};
    {
        ZkTableReadGuard table(handle);
        ASSERT_NE(table.get(), nullptr);
        model = table.get()->arm_model;
        force = table.get()->force_type;
    }
    zk_handle_t defaults{};
    zk_algo_init_sys_data(model, force);
    zk_algo_get_joint_max_limit(defaults.joint_max_limit);
    zk_algo_get_joint_min_limit(defaults.joint_min_limit);
    zk_algo_get_joint_max_speed(defaults.joint_max_speed);
    zk_algo_get_joint_max_acc(defaults.joint_max_acc);
    defaults.dh = zk_algo_get_dh();

    ZkTableReadGuard table(handle);
    zk_handle_t* arm = table.get();
    std::memcpy(arm->joint_max_limit, defaults.joint_max_limit, sizeof arm->joint_max_limit);
    std::memcpy(arm->joint_min_limit, defaults.joint_min_limit, sizeof arm->joint_min_limit);
    std::memcpy(arm->joint_max_speed, defaults.joint_max_speed, sizeof arm->joint_max_speed);
    std::memcpy(arm->joint_max_acc, defaults.joint_max_acc, sizeof arm->joint_max_acc);
    arm->dh = defaults.dh;
    arm->joint_max_limit[0] = 90.0f;
    arm->install_angle[0] = 0.0f;
    arm->install_angle[1] = 15.0f;
    arm->install_angle[2] = 45.0f;
    arm->tool_frame.pose.position = {0.0f, 0.01f, 0.12f};
    arm->tool_frame.pose.euler = {0.0f, 0.0f, 0.7f};
    arm->tool_frame.payload = 0.8f;
    arm->work_frame.pose.position = {0.2f, -0.1f, 0.0f};
    arm->work_frame.pose.euler = {0.0f, 0.0f, -0.4f};
}

zk_frame_t mirror_tool(zk_robot_handle* handle)
{
    ZkTableReadGuard table(handle);
    return table.get()->tool_frame;
}

// The library's model replaced by local values unlike the mirror's.
void change_locally()
{
    zk_frame_t tool{};
    tool.pose.position = {0.3f, 0.3f, 0.3f};
    zk_algo_set_toolframe(&tool);
    zk_algo_set_angle(0.0f, 0.0f, 0.0f);
    const float wide[7] = {300, 300, 300, 300, 300, 300, 300};
    zk_algo_set_joint_max_limit(wide);
}

// The mirror's values are in the library.
void expect_mirror_loaded(zk_robot_handle* handle)
{
    const zk_frame_t tool = mirror_tool(handle);
    const Coord c = libalgo_get_tool_cs_params();
    EXPECT_EQ(c.y, tool.pose.position.y);
    EXPECT_EQ(c.rz, tool.pose.euler.rz);
    EXPECT_EQ(libalgo_get_payload_params().mass, tool.payload);
    float x = 0, y = 0, z = 0;
    zk_algo_get_angle(&x, &y, &z);
    EXPECT_NEAR(y, 15.0f, 1e-4);
    float q_max[7];
    zk_algo_get_joint_max_limit(q_max);
    EXPECT_NEAR(q_max[0], 90.0f, 1e-4);
}

TEST(AlgoFacadeHandle, EveryCallWithAHandleReloadsItsMirror)
{
    ConnectedArm arm(ZK_SINGLE_MODE_E, "ZK-AL64III-B");
    zk_robot_handle* h = arm.handle();
    fill_mirror(h);
    const float q[7] = {10, -20, 30, 40, 50, 60};
    zk_inverse_kinematics_params_t params{};
    std::memcpy(params.q_in, q, sizeof q);
    params.q_pose.euler = {3.0f, 0.1f, 0.2f};
    params.q_pose.position = {0.3f, 0.1f, 0.3f};
    params.flag = 1;
    const float delta[6] = {0.01f, 0, 0, 0, 0, 5};
    const zk_pose_t pose{};

    const std::pair<const char*, std::function<void()>> calls[] = {
        {"arm_state_set", [&] { zk_algo_arm_state_set(h); }},
        {"forward_kinematics", [&] { zk_algo_forward_kinematics(h, q); }},
        {"forward_kinematics, null joint", [&] { zk_algo_forward_kinematics(h, nullptr); }},
        {"inverse_kinematics", [&] {
             float out[7];
             zk_algo_inverse_kinematics(h, params, out);
         }},
        {"inverse_kinematics_all", [&] { zk_algo_inverse_kinematics_all(h, params); }},
        {"end2tool", [&] { zk_algo_end2tool(h, pose); }},
        {"pose_move", [&] { zk_algo_pose_move(h, pose, delta, 1); }},
        {"rotate_move", [&] { zk_algo_rotate_move(h, q, 2, 10.0f, pose); }},
        {"cartesian_tool", [&] { zk_algo_cartesian_tool(h, q, 0.0f, 0.0f, 0.1f); }},
    };
    for (const auto& [name, call] : calls) {
        SCOPED_TRACE(name);
        change_locally();
        call();
        expect_mirror_loaded(h);
    }

    // Without a handle the local change stands.
    change_locally();
    zk_algo_forward_kinematics(nullptr, q);
    EXPECT_EQ(libalgo_get_tool_cs_params().x, 0.3f);
}

TEST(AlgoFacadeHandle, AHandleComputesAsTheSameValuesSetByHand)
{
    ConnectedArm arm(ZK_SINGLE_MODE_E, "ZK-LUM61-B");
    zk_robot_handle* h = arm.handle();
    fill_mirror(h);
    const float q[7] = {10, -20, 30, 40, 50, 60};
    const zk_pose_t by_handle = zk_algo_forward_kinematics(h, q);

    zk_handle_t copy;
    {
        ZkTableReadGuard table(h);
        copy = *table.get();
    }
    zk_algo_init_sys_data(ZK_MODEL_LUM_61_E, ZK_MODEL_ZK_B_E);
    zk_algo_set_angle(copy.install_angle[0], copy.install_angle[1], copy.install_angle[2]);
    zk_algo_set_toolframe(&copy.tool_frame);
    zk_algo_set_workframe(&copy.work_frame);
    zk_algo_set_joint_max_limit(copy.joint_max_limit);
    zk_algo_set_joint_min_limit(copy.joint_min_limit);
    zk_algo_set_dh(copy.dh);
    const zk_pose_t by_hand = zk_algo_forward_kinematics(nullptr, q);
    EXPECT_EQ(std::memcmp(&by_handle, &by_hand, sizeof by_hand), 0);

    // The handle's limits hold: joint 1 of the mirror stops at 90 degrees.
    zk_inverse_kinematics_params_t params{};
    std::memcpy(params.q_in, q, sizeof q);
    params.q_in[0] = 100.0f;
    params.q_pose = by_handle;
    params.flag = 1;
    float out[7];
    EXPECT_EQ(zk_algo_inverse_kinematics(h, params, out), -1);
    params.q_in[0] = 12.0f;
    EXPECT_EQ(zk_algo_inverse_kinematics(h, params, out), 0);
    EXPECT_NEAR(out[0], 10.0f, 0.01);
}

TEST(AlgoFacadeHandle, AChangeOfTheMirrorCountsAtTheNextCall)
{
    ConnectedArm arm(ZK_SINGLE_MODE_E, "ZK-AX61-B");
    zk_robot_handle* h = arm.handle();
    fill_mirror(h);
    const float q[7] = {0, 10, 20, 0, 30, 0};
    const zk_pose_t before = zk_algo_forward_kinematics(h, q);
    {
        ZkTableReadGuard table(h);
        table.get()->tool_frame.pose.position.z += 0.1f;
    }
    const zk_pose_t after = zk_algo_forward_kinematics(h, q);
    const float moved = std::hypot(after.position.x - before.position.x, after.position.y - before.position.y,
                                   after.position.z - before.position.z);
    EXPECT_NEAR(moved, 0.1f, 1e-5);
}

TEST(AlgoFacadeHandle, ToolToEndReadsTheHandlesFramesWithoutReloadingTheModel)
{
    ConnectedArm arm(ZK_SINGLE_MODE_E, "ZK-AX61-B");
    zk_robot_handle* h = arm.handle();
    fill_mirror(h);
    zk_pose_t at_tool{};
    at_tool.position = {0.4f, 0.1f, 0.2f};
    at_tool.euler = {3.0f, 0.2f, -1.0f};
    const zk_pose_t flange = zk_algo_tool2end(h, at_tool);
    change_locally();
    EXPECT_EQ(libalgo_get_tool_cs_params().x, 0.3f);  // not reloaded
    const zk_pose_t flange_local = zk_algo_tool2end(nullptr, at_tool);
    EXPECT_GT(std::fabs(flange.position.z - flange_local.position.z) + std::fabs(flange.position.x - flange_local.position.x),
              0.01f);
    // end2tool with the handle reloads the mirror and undoes tool2end.
    const zk_pose_t back = zk_algo_end2tool(h, flange);
    EXPECT_NEAR(back.position.x, at_tool.position.x, 1e-5);
    EXPECT_NEAR(back.position.y, at_tool.position.y, 1e-5);
    EXPECT_NEAR(back.position.z, at_tool.position.z, 1e-5);
}

TEST(AlgoFacadeHandle, AHandleNotInTheTableIsReportedAndChangesNothing)
{
    ConnectedArm arm(ZK_SINGLE_MODE_E, "ZK-AX61-B");
    fill_mirror(arm.handle());
    zk_algo_init_sys_data(ZK_MODEL_LUM_66_E, ZK_MODEL_ZK_B_E);
    LogCapture log(LOG_LEVEL_WARN);

    zk_algo_arm_state_set(nullptr);  // silent: the model as it stands
    EXPECT_TRUE(log.lines().empty());

    zk_robot_handle stray{1};  // a record with a valid id but not the table's address
    zk_algo_arm_state_set(&stray);
    EXPECT_TRUE(log.contains(kNotConnected));
    EXPECT_EQ(libalgo_get_robot_type(), LUM66);

    // A forward solve with it computes with the model as it stands.
    log.clear();
    const float q[7] = {};
    const zk_pose_t p = zk_algo_forward_kinematics(&stray, q);
    EXPECT_TRUE(log.contains(kNotConnected));
    EXPECT_EQ(libalgo_get_robot_type(), LUM66);
    const zk_pose_t expected = zk_algo_forward_kinematics(nullptr, q);
    EXPECT_EQ(std::memcmp(&p, &expected, sizeof p), 0);

    // A refused quaternion is refused before the handle is looked at.
    log.clear();
    zk_inverse_kinematics_params_t params{};
    params.q_pose.quaternion = {0.5f, 0, 0, 0};
    float out[7];
    EXPECT_EQ(zk_algo_inverse_kinematics(&stray, params, out), -2);
    EXPECT_TRUE(log.lines().empty());

    // A deleted arm's handle is no longer in the table.
    zk_robot_handle* h = arm.handle();
    ASSERT_EQ(zk_delete_robot_arm(h), 0);
    zk_algo_arm_state_set(h);
    EXPECT_TRUE(log.contains(kNotConnected));
}

TEST(AlgoFacadeHandle, CallsFromSeveralThreadsShareTheModelSafely)
{
    ConnectedArm arm(ZK_DUAL_MODE_E, "ZK-AL64-B");
    zk_robot_handle* h = arm.handle();
    fill_mirror(h);
    const float q[7] = {5, -10, 20, 30, -40, 50};
    const zk_pose_t expected = zk_algo_forward_kinematics(h, q);

    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&, t] {
            for (int n = 0; n < 200; ++n) {
                if (t == 2) {
                    // Another thread changes the model locally in between.
                    zk_algo_init_sys_data(ZK_MODEL_LUM_66_E, ZK_MODEL_ZK_B_E);
                    continue;
                }
                const zk_pose_t p = zk_algo_forward_kinematics(h, q);
                if (std::memcmp(&p, &expected, sizeof p) != 0) ++mismatches;
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace

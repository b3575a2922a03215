// Every motion command on the wire: the exact frame a call sends, member order and scaled
// values, and the result the controller's answer gives.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "Application/zk_handle.h"
#include "Application/zk_receive.h"
#include "support/connected_arm.h"
#include "support/test_log.h"
#include "zk_api.h"

namespace {

using zk_test::ConnectedArm;
using zk_test::LogCapture;

// 0.29f lies just below 0.29: times 1000 it truncates to 289 once widened to double, but the
// single-precision product rounds up to 290 first. Joint angles take the first road, every
// other scaled value the second.
const float kJoints[7] = {0.29f, -20.25f, 30.0f, 0.001f, -0.0005f, 90.0f, 7.5f};
const char* kJointsWire6 = "[289,-20250,30000,1,0,90000]";

zk_pose_t pose(float x, float y, float z, float rx, float ry, float rz, zk_quat_t q = {0, 0, 0, 0})
{
    zk_pose_t p{};
    p.position = {x, y, z};
    p.euler = {rx, ry, rz};
    p.quaternion = q;
    return p;
}

const zk_pose_t kPose = pose(0.29f, -0.5f, 1.25f, 0.29f, -3.1415926f, 1.0f);
const char* kPoseWire = "[290000,-500000,1250000,290,-3141,1000]";
const zk_pose_t kPoseTo = pose(0.1f, 0.2f, 0.3f, 0.0f, 0.0f, -1.5f);

std::string answer(const std::string& name, const std::string& key, bool value = true)
{
    return R"({"command":")" + name + R"(",")" + key + R"(":)" + (value ? "true" : "false") + "}";
}

// -----------------------------------------------------------------------------------------
// Call -> frame
// -----------------------------------------------------------------------------------------

struct WireCase {
    const char* name;
    std::function<int(zk_robot_handle*)> call;
    std::string frame;       // what the controller receives
    std::string reply_name;  // the controller answers a frame of this name, if not empty
    std::string reply;
    int result;
};

class MotionWire : public ::testing::TestWithParam<WireCase> {};

TEST_P(MotionWire, SendsItsFrameAndReadsTheAnswer)
{
    const WireCase& c = GetParam();
    ConnectedArm arm;
    zk_set_timeout(40);  // the one-way steps sleep this long
    if (!c.reply_name.empty()) arm.controller().on(c.reply_name).reply(c.reply);
    EXPECT_EQ(c.call(arm.handle()), c.result);
    ASSERT_TRUE(arm.wait_sent(1));
    EXPECT_EQ(arm.sent(), std::vector<std::string>{c.frame});
}

const char* kAccepted = "receive_state";

INSTANTIATE_TEST_SUITE_P(
    PlannedMoves, MotionWire,
    ::testing::Values(
        WireCase{"movej", [](zk_robot_handle* h) { return zk_movej(h, kJoints, 20, 3, 0, 0); },
                 std::string(R"({"command":"movej","v":20,"joint":)") + kJointsWire6 + R"(,"trajectory_connect":0,"r":3})",
                 "movej", answer("movej", kAccepted), 0},
        WireCase{"movel", [](zk_robot_handle* h) { return zk_movel(h, kPose, 21, 4, 1, 0); },
                 std::string(R"({"command":"movel","v":21,"pose":)") + kPoseWire + R"(,"trajectory_connect":1,"r":4})",
                 "movel", answer("movel", kAccepted), 0},
        WireCase{"moves", [](zk_robot_handle* h) { return zk_moves(h, kPose, 22, 5, 0, 0); },
                 std::string(R"({"command":"moves","v":22,"pose":)") + kPoseWire + R"(,"trajectory_connect":0,"r":5})",
                 "moves", answer("moves", kAccepted), 0},
        WireCase{"movej_p", [](zk_robot_handle* h) { return zk_movej_p(h, kPose, 23, 0, 0, 0); },
                 std::string(R"({"command":"movej_p","v":23,"pose":)") + kPoseWire + R"(,"trajectory_connect":0,"r":0})",
                 "movej_p", answer("movej_p", kAccepted), 0},
        WireCase{"movejRefused", [](zk_robot_handle* h) { return zk_movej(h, kJoints, 20, 3, 0, 0); },
                 std::string(R"({"command":"movej","v":20,"joint":)") + kJointsWire6 + R"(,"trajectory_connect":0,"r":3})",
                 "movej", answer("movej", kAccepted, false), 1},
        WireCase{"movelUnanswered", [](zk_robot_handle* h) { return zk_movel(h, kPose, 21, 4, 0, 0); },
                 std::string(R"({"command":"movel","v":21,"pose":)") + kPoseWire + R"(,"trajectory_connect":0,"r":4})", "",
                 "", -2},
        WireCase{"movejNotANumber",
                 [](zk_robot_handle* h) {
                     const float j[6] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                                         -std::numeric_limits<float>::infinity(), 3e6f, -3e6f, 1.0f};
                     return zk_movej(h, j, 1, 0, 0, 0);
                 },
                 R"({"command":"movej","v":1,"joint":[-2147483648,-2147483648,-2147483648,-2147483648,-2147483648,1000],"trajectory_connect":0,"r":0})",
                 "movej", answer("movej", kAccepted), 0},
        WireCase{"movelNotANumber",
                 [](zk_robot_handle* h) {
                     const float nan = std::numeric_limits<float>::quiet_NaN();
                     return zk_movel(h, pose(nan, 0, 5000.0f, std::numeric_limits<float>::infinity(), 0, 0), 1, 0, 0, 0);
                 },
                 R"({"command":"movel","v":1,"pose":[-2147483648,0,-2147483648,-2147483648,0,0],"trajectory_connect":0,"r":0})",
                 "movel", answer("movel", kAccepted), 0}),
    [](const auto& info) { return info.param.name; });

INSTANTIATE_TEST_SUITE_P(
    PassThrough, MotionWire,
    ::testing::Values(
        WireCase{"movej_canfd",
                 [](zk_robot_handle* h) { return zk_movej_canfd(h, {kJoints, 1.5f, true, 1, 50}); },
                 std::string(R"({"command":"movej_canfd","joint":)") + kJointsWire6 +
                     R"(,"follow":true,"expand":1500,"trajectory_mode":1,"radio":50})",
                 "", "", 0},
        WireCase{"movep_canfdEuler", [](zk_robot_handle* h) { return zk_movep_canfd(h, {kPose, false, 0, 0}); },
                 std::string(R"({"command":"movep_canfd","follow":false,"pose":)") + kPoseWire +
                     R"(,"trajectory_mode":0,"radio":0})",
                 "", "", 0},
        WireCase{"movep_canfdQuaternion",
                 [](zk_robot_handle* h) {
                     return zk_movep_canfd(h, {pose(0.29f, -0.5f, 1.25f, 9, 9, 9, {0.5f, -0.5f, 0.5f, 0.49f}), true, 2, 7});
                 },
                 R"({"command":"movep_canfd","follow":true,"pose_quat":[290000,-500000,1250000,500000,-500000,500000,490000],"trajectory_mode":2,"radio":7})",
                 "", "", 0},
        WireCase{"movej_follow", [](zk_robot_handle* h) { return zk_movej_follow(h, kJoints); },
                 std::string(R"({"command":"movej_follow","joint":)") + kJointsWire6 + "}", "", "", 0},
        WireCase{"movep_follow", [](zk_robot_handle* h) { return zk_movep_follow(h, kPose); },
                 std::string(R"({"command":"movep_follow","pose":)") + kPoseWire + "}", "", "", 0}),
    [](const auto& info) { return info.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Steps, MotionWire,
    ::testing::Values(
        WireCase{"jointStep", [](zk_robot_handle* h) { return zk_set_joint_step(h, 3, 0.29f, 15, 0); },
                 R"({"command":"set_joint_step","joint_step":[3,290],"v":15})", "", "", 0},
        WireCase{"posStep", [](zk_robot_handle* h) { return zk_set_pos_step(h, ZK_Y_DIR_E, 0.29f, 15, 0); },
                 R"({"command":"set_pos_step","v":15,"step":290000,"step_type":"y_step"})", "", "", 0},
        WireCase{"posStepX", [](zk_robot_handle* h) { return zk_set_pos_step(h, ZK_X_DIR_E, -0.001f, 1, 0); },
                 R"({"command":"set_pos_step","v":1,"step":-1000,"step_type":"x_step"})", "", "", 0},
        WireCase{"posStepOutsideTheEnum",
                 [](zk_robot_handle* h) { return zk_set_pos_step(h, static_cast<zk_pos_teach_type_e>(3), 0.29f, 15, 0); },
                 R"({"command":"set_pos_step","v":15,"step":290000})", "", "", 0},
        WireCase{"ortStep", [](zk_robot_handle* h) { return zk_set_ort_step(h, ZK_RZ_ROTATE_E, -0.29f, 15, 0); },
                 R"({"command":"set_ort_step","v":15,"step":-290,"step_type":"rz_step"})", "", "", 0},
        WireCase{"ortStepRx", [](zk_robot_handle* h) { return zk_set_ort_step(h, ZK_RX_ROTATE_E, 1.0f, 2, 0); },
                 R"({"command":"set_ort_step","v":2,"step":1000,"step_type":"rx_step"})", "", "", 0},
        WireCase{"ortStepOutsideTheEnum",
                 [](zk_robot_handle* h) { return zk_set_ort_step(h, static_cast<zk_ort_teach_type_e>(3), 1.0f, 2, 0); },
                 R"({"command":"set_ort_step","v":2,"step":1000})", "", "", 0},
        // The non-blocking step reads no answer; the blocking one does.
        WireCase{"jointStepBlockingRefused", [](zk_robot_handle* h) { return zk_set_joint_step(h, 1, -2.5f, 9, 1); },
                 R"({"command":"set_joint_step","joint_step":[1,-2500],"v":9})", "set_joint_step",
                 answer("set_joint_step", kAccepted, false), 1},
        WireCase{"posStepBlockingUnanswered", [](zk_robot_handle* h) { return zk_set_pos_step(h, ZK_Z_DIR_E, 0.5f, 9, 1); },
                 R"({"command":"set_pos_step","v":9,"step":500000,"step_type":"z_step"})", "", "", -2}),
    [](const auto& info) { return info.param.name; });

INSTANTIATE_TEST_SUITE_P(
    StopAndTrajectories, MotionWire,
    ::testing::Values(
        WireCase{"slowStop", zk_set_arm_slow_stop, R"({"command":"set_arm_slow_stop"})", "set_arm_slow_stop",
                 answer("set_arm_slow_stop", "arm_slow_stop"), 0},
        WireCase{"stop", zk_set_arm_stop, R"({"command":"set_arm_stop"})", "set_arm_stop",
                 answer("set_arm_stop", "arm_stop"), 0},
        WireCase{"stopRefused", zk_set_arm_stop, R"({"command":"set_arm_stop"})", "set_arm_stop",
                 answer("set_arm_stop", "arm_stop", false), 1},
        WireCase{"stopOtherKey", zk_set_arm_stop, R"({"command":"set_arm_stop"})", "set_arm_stop",
                 answer("set_arm_stop", "set_state"), -3},
        WireCase{"pause", zk_set_arm_pause, R"({"command":"set_arm_pause"})", "set_arm_pause",
                 answer("set_arm_pause", "arm_pause"), 0},
        WireCase{"continue", zk_set_arm_continue, R"({"command":"set_arm_continue"})", "set_arm_continue",
                 answer("set_arm_continue", "arm_continue"), 0},
        WireCase{"deleteCurrent", zk_set_delete_current_trajectory, R"({"command":"set_delete_current_trajectory"})",
                 "set_delete_current_trajectory", answer("set_delete_current_trajectory", "delete_current_trajectory"), 0},
        WireCase{"deleteAll", zk_set_arm_delete_trajectory, R"({"command":"set_arm_delete_trajectory"})",
                 "set_arm_delete_trajectory", answer("set_arm_delete_trajectory", "arm_delete_trajectory"), 0}),
    [](const auto& info) { return info.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Teach, MotionWire,
    ::testing::Values(
        WireCase{"jointTeachAnyNonZeroIsPos", [](zk_robot_handle* h) { return zk_set_joint_teach(h, 2, 2, 30); },
                 R"({"command":"set_joint_teach","teach_joint":2,"v":30,"direction":"pos"})", "set_joint_teach",
                 answer("set_joint_teach", "joint_teach"), 0},
        WireCase{"jointTeachNegativeIsPos", [](zk_robot_handle* h) { return zk_set_joint_teach(h, 6, -1, 30); },
                 R"({"command":"set_joint_teach","teach_joint":6,"v":30,"direction":"pos"})", "set_joint_teach",
                 answer("set_joint_teach", "joint_teach", false), 1},
        WireCase{"posTeachZeroIsNeg", [](zk_robot_handle* h) { return zk_set_pos_teach(h, ZK_Z_DIR_E, 0, 30); },
                 R"({"command":"set_pos_teach","v":30,"direction":"neg","teach_type":"z"})", "set_pos_teach",
                 answer("set_pos_teach", "pos_teach"), 0},
        WireCase{"posTeachX", [](zk_robot_handle* h) { return zk_set_pos_teach(h, ZK_X_DIR_E, 1, 5); },
                 R"({"command":"set_pos_teach","v":5,"direction":"pos","teach_type":"x"})", "set_pos_teach",
                 answer("set_pos_teach", "pos_teach"), 0},
        WireCase{"ortTeach", [](zk_robot_handle* h) { return zk_set_ort_teach(h, ZK_RY_ROTATE_E, 1, 30); },
                 R"({"command":"set_ort_teach","v":30,"direction":"pos","teach_type":"ry"})", "set_ort_teach",
                 answer("set_ort_teach", "ort_teach"), 0},
        WireCase{"ortTeachOutsideTheEnum",
                 [](zk_robot_handle* h) { return zk_set_ort_teach(h, static_cast<zk_ort_teach_type_e>(3), 0, 30); },
                 R"({"command":"set_ort_teach","v":30,"direction":"neg"})", "set_ort_teach",
                 answer("set_ort_teach", "ort_teach"), 0},
        WireCase{"stopTeach", zk_set_stop_teach, R"({"command":"set_stop_teach"})", "set_stop_teach",
                 answer("set_stop_teach", "stop_teach"), 0},
        WireCase{"setTeachFrame", [](zk_robot_handle* h) { return zk_set_teach_frame(h, 1); },
                 R"({"command":"set_teach_frame","frame_type":1})", "set_teach_frame",
                 answer("set_teach_frame", "set_state"), 0},
        WireCase{"setTeachFrameRefused", [](zk_robot_handle* h) { return zk_set_teach_frame(h, 0); },
                 R"({"command":"set_teach_frame","frame_type":0})", "set_teach_frame",
                 answer("set_teach_frame", "set_state", false), 1}),
    [](const auto& info) { return info.param.name; });

// -----------------------------------------------------------------------------------------
// The circle: one formatted object, sent whole
// -----------------------------------------------------------------------------------------

TEST(MoveC, SendsAFormattedObjectAndAwaitsItsAnswer)
{
    ConnectedArm arm;
    arm.controller().on("movec").reply(answer("movec", kAccepted));
    EXPECT_EQ(zk_movec(arm.handle(), kPose, kPoseTo, 20, 3, 2, 0, 0), 0);
    EXPECT_EQ(event_listener.flag.load(), kEventFlagDropTrajectoryEnd);
    const std::string expected = "{\n"
                                 "\t\"command\":\t\"movec\",\n"
                                 "\t\"pose\":\t{\n"
                                 "\t\t\"pose_via\":\t[290000, -500000, 1250000, 290, -3141, 1000],\n"
                                 "\t\t\"pose_to\":\t[100000, 200000, 300000, 0, 0, -1500]\n"
                                 "\t},\n"
                                 "\t\"v\":\t20,\n"
                                 "\t\"r\":\t3000,\n"
                                 "\t\"loop\":\t2,\n"
                                 "\t\"trajectory_connect\":\t0\n"
                                 "}";
    EXPECT_EQ(arm.sent(), std::vector<std::string>{expected});
}

TEST(MoveC, ResultsOfTheAnswer)
{
    ConnectedArm arm;
    zk_set_timeout(40);
    LogCapture log(LOG_LEVEL_ERROR);
    arm.controller().on("movec").reply(answer("movec", kAccepted, false));
    EXPECT_EQ(zk_movec(arm.handle(), kPose, kPoseTo, 20, 3, 1, 1, 0), 1);
    EXPECT_TRUE(log.contains("[zk_movec] receive_state: false\n"));
    EXPECT_EQ(zk_movec(arm.handle(), kPose, kPoseTo, 20, 3, 1, 1, 0), -2);  // no answer
    EXPECT_FALSE(log.contains("[zk_movec] movec revice error\n"));         // awaited as an event
    // Connected to the next trajectory: no wait, even when blocking.
    arm.controller().on("movec").reply(answer("movec", kAccepted));
    EXPECT_EQ(zk_movec(arm.handle(), kPose, kPoseTo, 20, 3, 1, 1, 1), 0);
    zk_robot_handle stranger{1};
    EXPECT_EQ(zk_movec(&stranger, kPose, kPoseTo, 20, 3, 1, 0, 0), -1);
}

TEST(MoveC, TrajectoryConnectOtherThanZeroOrOneIsRefusedBeforeSending)
{
    ConnectedArm arm;
    LogCapture log(LOG_LEVEL_ERROR);
    for (int connect : {2, -1}) {
        EXPECT_EQ(zk_movec(arm.handle(), kPose, kPoseTo, 20, 3, 1, connect, 0), -6);
        EXPECT_EQ(zk_movec(arm.handle(), kPose, kPoseTo, 20, 3, 1, connect, 1), -6);
    }
    EXPECT_TRUE(log.contains("[zk_movec] trajectory_connect check err! \n"));
    EXPECT_TRUE(arm.sent().empty());
}

// -----------------------------------------------------------------------------------------
// Joints: the arm's degrees of freedom, null pointers
// -----------------------------------------------------------------------------------------

TEST(MotionJoints, SevenJointArmSendsSevenAngles)
{
    ConnectedArm arm(ZK_SINGLE_MODE_E, "ZK-AX71-B");
    arm.controller().on("movej").reply(answer("movej", kAccepted));
    EXPECT_EQ(zk_movej(arm.handle(), kJoints, 5, 0, 0, 0), 0);
    EXPECT_EQ(arm.last_sent(),
              R"({"command":"movej","v":5,"joint":[289,-20250,30000,1,0,90000,7500],"trajectory_connect":0,"r":0})");
    EXPECT_EQ(zk_movej_follow(arm.handle(), kJoints), 0);
    ASSERT_TRUE(arm.wait_sent(2));
    EXPECT_EQ(arm.last_sent(), R"({"command":"movej_follow","joint":[289,-20250,30000,1,0,90000,7500]})");
}

void forget_degrees_of_freedom()
{
    zk_wrlock_lock();
    for (zk_handle_t* handle : gHandleList)
        if (handle != nullptr) handle->arm_dof = 0;
    zk_wrlock_unlock();
}

TEST(MotionJoints, UnknownDegreesOfFreedomSendNothingForJointCommands)
{
    ConnectedArm arm;
    forget_degrees_of_freedom();
    LogCapture log(LOG_LEVEL_ERROR);
    EXPECT_EQ(zk_movej(arm.handle(), kJoints, 5, 0, 0, 0), -1);
    EXPECT_EQ(zk_movej(arm.handle(), kJoints, 5, 0, 0, 1), -1);
    EXPECT_EQ(zk_movej_nblock(arm.handle(), kJoints, 5, 0, 0), -1);
    EXPECT_EQ(zk_movej_block(arm.handle(), kJoints, 5, 0, 0, 1), -1);
    EXPECT_TRUE(log.contains("[zk_movej] The robotic arm has been disconnected\n"));
    EXPECT_EQ(zk_movej_canfd(arm.handle(), {kJoints, 0, false, 0, 0}), -1);
    EXPECT_TRUE(log.contains("[zk_movej_canfd] The robotic arm has been disconnected\n"));
    EXPECT_EQ(zk_movej_follow(arm.handle(), kJoints), -1);
    EXPECT_TRUE(arm.sent().empty());

    // Pose commands need no degrees of freedom and go out all the same.
    EXPECT_EQ(zk_movep_canfd(arm.handle(), {kPose, false, 0, 0}), 0);
    EXPECT_EQ(zk_movep_follow(arm.handle(), kPose), 0);
    EXPECT_TRUE(arm.wait_sent(2));
}

TEST(MotionJoints, NullPointersAreRefusedBeforeSending)
{
    ConnectedArm arm;
    LogCapture log(LOG_LEVEL_ERROR);
    EXPECT_EQ(zk_movej(arm.handle(), nullptr, 5, 0, 0, 0), -6);
    EXPECT_EQ(zk_movej(arm.handle(), nullptr, 5, 0, 0, 1), -6);
    EXPECT_TRUE(log.contains("[zk_movej] joint is NULL!\n"));
    EXPECT_EQ(zk_movej_canfd(arm.handle(), {nullptr, 0, false, 0, 0}), -6);
    EXPECT_EQ(zk_movej_follow(arm.handle(), nullptr), -6);
    zk_arm_current_trajectory_e type;
    float data[7];
    EXPECT_EQ(zk_get_arm_current_trajectory(arm.handle(), nullptr, data), -6);
    EXPECT_EQ(zk_get_arm_current_trajectory(arm.handle(), &type, nullptr), -6);
    EXPECT_EQ(zk_get_teach_frame(arm.handle(), nullptr), -6);
    EXPECT_TRUE(arm.sent().empty());
}

TEST(MotionHandles, UnknownHandleSendsNothing)
{
    ConnectedArm arm;
    zk_robot_handle stranger{1};
    EXPECT_EQ(zk_movel(&stranger, kPose, 1, 0, 0, 0), -1);
    EXPECT_EQ(zk_movep_follow(&stranger, kPose), -1);
    EXPECT_EQ(zk_set_joint_step(&stranger, 1, 1.0f, 1, 0), -1);
    EXPECT_EQ(zk_set_arm_stop(&stranger), -1);
    EXPECT_TRUE(arm.sent().empty());
}

}  // namespace

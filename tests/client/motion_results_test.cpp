// Result codes of the motion commands that don't depend on a moving arm: blocking calls in
// single mode, time-outs, the non-blocking marker, and the teach frame query.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Application/zk_motion_wait.h"
#include "Application/zk_receive.h"
#include "support/connected_arm.h"
#include "support/test_log.h"
#include "zk_api.h"

namespace {

using zk_test::ConnectedArm;
using zk_test::LogCapture;

const float kJoints[6] = {0, 10, 20, 30, 40, 50};
const zk_pose_t kPose{};

std::string accepted(const std::string& name, bool state = true)
{
    return R"({"command":")" + name + R"(","receive_state":)" + (state ? "true" : "false") + "}";
}

// -----------------------------------------------------------------------------------------
// Blocking calls in single mode: no thread receives the end frame
// -----------------------------------------------------------------------------------------

struct BlockingCase {
    const char* name;
    const char* command;
    std::function<int(zk_robot_handle*, int block)> call;
};

class SingleModeBlocking : public ::testing::TestWithParam<BlockingCase> {};

TEST_P(SingleModeBlocking, ReturnsMinusThreeRightAfterTheAnswer)
{
    ConnectedArm arm;
    LogCapture log(LOG_LEVEL_ERROR);
    for (int block : {1, 100, -1}) {
        arm.controller().on(GetParam().command).reply(accepted(GetParam().command));
        EXPECT_EQ(GetParam().call(arm.handle(), block), -3) << block;
    }
    EXPECT_TRUE(log.contains("Set command parse err\n"));
    EXPECT_EQ(arm.controller().frames_named("get_arm_current_trajectory").size(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, SingleModeBlocking,
    ::testing::Values(
        BlockingCase{"movej", "movej", [](zk_robot_handle* h, int b) { return zk_movej(h, kJoints, 1, 0, 0, b); }},
        BlockingCase{"movel", "movel", [](zk_robot_handle* h, int b) { return zk_movel(h, kPose, 1, 0, 0, b); }},
        BlockingCase{"moves", "moves", [](zk_robot_handle* h, int b) { return zk_moves(h, kPose, 1, 0, 0, b); }},
        BlockingCase{"movej_p", "movej_p", [](zk_robot_handle* h, int b) { return zk_movej_p(h, kPose, 1, 0, 0, b); }},
        BlockingCase{"movec", "movec",
                     [](zk_robot_handle* h, int b) { return zk_movec(h, kPose, kPose, 1, 0, 1, 0, b); }},
        BlockingCase{"jointStep", "set_joint_step",
                     [](zk_robot_handle* h, int b) { return zk_set_joint_step(h, 1, 1.0f, 1, b); }},
        BlockingCase{"posStep", "set_pos_step",
                     [](zk_robot_handle* h, int b) { return zk_set_pos_step(h, ZK_X_DIR_E, 0.01f, 1, b); }},
        BlockingCase{"ortStep", "set_ort_step",
                     [](zk_robot_handle* h, int b) { return zk_set_ort_step(h, ZK_RX_ROTATE_E, 0.01f, 1, b); }}),
    [](const auto& info) { return info.param.name; });

TEST(SingleModeBlocking, BlockingFormWithNoRoundRunsOut)
{
    ConnectedArm arm;
    arm.controller().on("movej").reply(accepted("movej"));
    EXPECT_EQ(zk_movej_block(arm.handle(), kJoints, 1, 0, 0, 0), -5);
    arm.controller().on("set_ort_step").reply(accepted("set_ort_step"));
    EXPECT_EQ(zk_set_ort_step_block(arm.handle(), ZK_RZ_ROTATE_E, 1.0f, 1, 0), -5);
    EXPECT_EQ(zk_movecmd_singlemode_parse(arm.handle(), 0, 3), -5);
    EXPECT_EQ(zk_movecmd_singlemode_parse(arm.handle(), 5, 4), -3);
}

TEST(SingleModeBlocking, ConnectedTrajectoryOrRefusalReturnsTheAnswer)
{
    ConnectedArm arm;
    arm.controller().on("movej").reply(accepted("movej"));
    EXPECT_EQ(zk_movej(arm.handle(), kJoints, 1, 0, 1, 1), 0);
    arm.controller().on("movel").reply(accepted("movel", false));
    EXPECT_EQ(zk_movel(arm.handle(), kPose, 1, 0, 1, 1), 1);
    arm.controller().on("movej_p").reply(accepted("movej_p", false));
    EXPECT_EQ(zk_movej_p(arm.handle(), kPose, 1, 0, 0, 1), 1);
    arm.controller().on("moves").reply(R"({"command":"moves"})");
    EXPECT_EQ(zk_moves(arm.handle(), kPose, 1, 0, 0, 1), -3);
}

TEST(SplineMove, ItsExchangeIsLoggedUnderTheLinearMovesName)
{
    ConnectedArm arm;
    zk_set_timeout(20);
    LogCapture log(LOG_LEVEL_DEBUG);
    EXPECT_EQ(zk_moves(arm.handle(), kPose, 1, 0, 0, 0), -2);
    EXPECT_TRUE(log.contains("[zk_movel] moves revice error\n"));
    arm.controller().on("moves").reply(accepted("moves"));
    EXPECT_EQ(zk_moves(arm.handle(), kPose, 1, 0, 0, 0), 0);
    EXPECT_TRUE(log.contains("[zk_moves] receive_state: true\n"));
}

// -----------------------------------------------------------------------------------------
// The non-blocking marker
// -----------------------------------------------------------------------------------------

TEST(NonBlockingMove, AcceptedMoveMarksItsEndFrameToBeDropped)
{
    ConnectedArm arm;
    event_listener.flag = kEventFlagNone;
    arm.controller().on("movel").reply(accepted("movel", false));
    EXPECT_EQ(zk_movel(arm.handle(), kPose, 1, 0, 0, 0), 1);
    EXPECT_EQ(event_listener.flag.load(), kEventFlagNone);
    arm.controller().on("movel").reply(accepted("movel"));
    EXPECT_EQ(zk_movel(arm.handle(), kPose, 1, 0, 0, 0), 0);
    EXPECT_EQ(event_listener.flag.load(), kEventFlagDropTrajectoryEnd);

    // Steps and blocking moves leave the marker alone.
    event_listener.flag = kEventFlagNone;
    zk_set_timeout(10);
    EXPECT_EQ(zk_set_joint_step(arm.handle(), 1, 1.0f, 1, 0), 0);
    arm.controller().on("movej").reply(accepted("movej"));
    EXPECT_EQ(zk_movej(arm.handle(), kJoints, 1, 0, 1, 1), 0);
    EXPECT_EQ(event_listener.flag.load(), kEventFlagNone);
}

// -----------------------------------------------------------------------------------------
// Time-outs: the teach motions can't tell a time-out from a failed send
// -----------------------------------------------------------------------------------------

struct TimeoutCase {
    const char* name;
    std::function<int(zk_robot_handle*)> call;
    int result;
};

class UnansweredCommand : public ::testing::TestWithParam<TimeoutCase> {};

TEST_P(UnansweredCommand, ResultOfATimeOut)
{
    ConnectedArm arm;
    zk_set_timeout(20);
    EXPECT_EQ(GetParam().call(arm.handle()), GetParam().result);
    EXPECT_EQ(arm.sent().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, UnansweredCommand,
    ::testing::Values(TimeoutCase{"jointTeach", [](zk_robot_handle* h) { return zk_set_joint_teach(h, 1, 1, 5); }, -1},
                      TimeoutCase{"posTeach", [](zk_robot_handle* h) { return zk_set_pos_teach(h, ZK_X_DIR_E, 1, 5); }, -1},
                      TimeoutCase{"ortTeach", [](zk_robot_handle* h) { return zk_set_ort_teach(h, ZK_RX_ROTATE_E, 0, 5); },
                                  -1},
                      TimeoutCase{"stopTeach", zk_set_stop_teach, -2},
                      TimeoutCase{"setTeachFrame", [](zk_robot_handle* h) { return zk_set_teach_frame(h, 1); }, -2},
                      TimeoutCase{"getTeachFrame",
                                  [](zk_robot_handle* h) {
                                      int frame = 0;
                                      return zk_get_teach_frame(h, &frame);
                                  },
                                  -2},
                      TimeoutCase{"armStop", zk_set_arm_stop, -2}),
    [](const auto& info) { return info.param.name; });

TEST(TeachMotion, FailedSendIsMinusOneToo)
{
    ConnectedArm arm;
    zk_robot_handle stranger{1};
    EXPECT_EQ(zk_set_joint_teach(&stranger, 1, 1, 5), -1);
    EXPECT_EQ(zk_set_stop_teach(&stranger), -1);
    EXPECT_TRUE(arm.sent().empty());
}

// -----------------------------------------------------------------------------------------
// Teach frame query
// -----------------------------------------------------------------------------------------

TEST(TeachFrame, ReadsTheFrameTypeOrHandsBackTheReplyLength)
{
    ConnectedArm arm;
    int frame_type = -7;
    arm.controller().on("get_teach_frame").reply(R"({"command":"get_teach_frame","frame_type":1})");
    EXPECT_EQ(zk_get_teach_frame(arm.handle(), &frame_type), 0);
    EXPECT_EQ(frame_type, 1);
    EXPECT_EQ(arm.last_sent(), R"({"command":"get_teach_frame"})");

    const std::string without = R"({"command":"get_teach_frame","frame":0})";
    arm.controller().on("get_teach_frame").reply(without);
    frame_type = -7;
    const int result = zk_get_teach_frame(arm.handle(), &frame_type);
    EXPECT_GE(result, static_cast<int>(without.size()));  // the reply's length, terminator or not
    EXPECT_LE(result, static_cast<int>(without.size()) + 2);
    EXPECT_EQ(frame_type, -7);
}

}  // namespace

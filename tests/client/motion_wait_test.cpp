// The blocking wait of the threaded modes, branch by branch, against a scripted moving arm.
// Each round that finds the arm busy sleeps 100 ms, so the scripts stay short.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>

#include "Application/zk_receive.h"
#include "support/connected_arm.h"
#include "support/moving_arm_script.h"
#include "support/test_log.h"
#include "zk_api.h"

namespace {

using zk_test::ConnectedArm;
using zk_test::LogCapture;
using zk_test::MovingArmScript;

const float kJoints[6] = {0, 10, 20, 30, 40, 50};
const zk_pose_t kPose{};

std::string end_frame(bool state, int device, int connect) { return MovingArmScript::end_frame(state, device, connect); }

// A blocking call, the name of its command, and the name its foreign-device line carries.
struct BlockingForm {
    const char* command;
    const char* device_caller;
    const char* wanted;  // the planning kind the controller reports while it runs
    std::function<int(zk_robot_handle*, int trajectory_connect)> call_connected;  // steps have no such argument
    int call(zk_robot_handle* handle) const { return call_connected(handle, 0); }
};

const BlockingForm kMoveJ{"movej", "zk_movej", "movej",
                          [](zk_robot_handle* h, int c) { return zk_movej(h, kJoints, 10, 0, c, 1); }};
const BlockingForm kMoveL{"movel", "zk_movel", "movel",
                          [](zk_robot_handle* h, int c) { return zk_movel(h, kPose, 10, 0, c, 1); }};
const BlockingForm kMoveS{"moves", "zk_movel", "moves",
                          [](zk_robot_handle* h, int c) { return zk_moves(h, kPose, 10, 0, c, 1); }};
const BlockingForm kMoveC{"movec", "zk_movec", "movec",
                          [](zk_robot_handle* h, int c) { return zk_movec(h, kPose, kPose, 10, 0, 1, c, 1); }};
const BlockingForm kMoveJP{"movej_p", "zk_movej_p", "movej",
                           [](zk_robot_handle* h, int c) { return zk_movej_p(h, kPose, 10, 0, c, 1); }};
const BlockingForm kJointStep{"set_joint_step", "zk_set_joint_step_block", "movej",
                              [](zk_robot_handle* h, int) { return zk_set_joint_step(h, 2, 5.0f, 10, 1); }};
const BlockingForm kPosStep{"set_pos_step", "zk_set_pos_step_block", "movel",
                            [](zk_robot_handle* h, int) { return zk_set_pos_step(h, ZK_Z_DIR_E, 0.01f, 10, 1); }};
const BlockingForm kOrtStep{"set_ort_step", "zk_set_ort_step_block", "movel",
                            [](zk_robot_handle* h, int) { return zk_set_ort_step(h, ZK_RX_ROTATE_E, 0.1f, 10, 1); }};

// A threaded library with a short reply time-out, so that a look for an absent frame is quick.
// A non-blocking move of an earlier test in the same process may have left the marker set,
// which would drop this test's end frame and leave the wait without end.
struct MovingArm {
    ConnectedArm arm{ZK_DUAL_MODE_E};
    MovingArmScript script{arm.controller()};
    MovingArm()
    {
        zk_set_timeout(30);
        event_listener.flag = kEventFlagNone;
    }
};

// -----------------------------------------------------------------------------------------
// Branches every blocking form shares: the end frame once nothing is planned
// -----------------------------------------------------------------------------------------

class EveryBlockingForm : public ::testing::TestWithParam<BlockingForm> {};

TEST_P(EveryBlockingForm, ArrivesWhenTheArmIsIdleAndTheFrameNamesTheArm)
{
    const BlockingForm& form = GetParam();
    MovingArm moving;
    moving.script.accept(form.command);
    moving.script.kinds({form.wanted, "none"}).push_after_query(2, end_frame(true, 0, 0));
    EXPECT_EQ(form.call(moving.arm.handle()), 0);
    EXPECT_EQ(moving.script.queries(), 2);
}

TEST_P(EveryBlockingForm, FrameOfAnotherDeviceOnceIdleIsMinusFour)
{
    const BlockingForm& form = GetParam();
    MovingArm moving;
    LogCapture log(LOG_LEVEL_ERROR);
    moving.script.accept(form.command);
    moving.script.kinds({form.wanted, "none"}).push_after_query(2, end_frame(true, 3, 0));
    EXPECT_EQ(form.call(moving.arm.handle()), -4);
    EXPECT_TRUE(log.contains(std::string("[") + form.device_caller + "] current device is: 3 \n"))
        << ::testing::PrintToString(log.lines());
}

TEST_P(EveryBlockingForm, ConnectedFrameOnceIdleKeepsWaiting)
{
    const BlockingForm& form = GetParam();
    MovingArm moving;
    moving.script.accept(form.command);
    moving.script.kinds({form.wanted, "none"})
        .push_after_query(2, end_frame(true, 0, 1))
        .push_after_query(3, end_frame(true, 0, 0));
    EXPECT_EQ(form.call(moving.arm.handle()), 0);
    EXPECT_EQ(moving.script.queries(), 3);
}

TEST_P(EveryBlockingForm, FailedMotionIsOne)
{
    const BlockingForm& form = GetParam();
    MovingArm moving;
    moving.script.accept(form.command);
    moving.script.kinds({form.wanted, "none"}).push_after_query(1, end_frame(false, 0, 0));
    EXPECT_EQ(form.call(moving.arm.handle()), 1);
}

class EveryBlockingMove : public ::testing::TestWithParam<BlockingForm> {};

TEST_P(EveryBlockingMove, ConnectedTrajectoryIsNotAwaited)
{
    const BlockingForm& form = GetParam();
    MovingArm moving;
    moving.script.accept(form.command);
    EXPECT_EQ(form.call_connected(moving.arm.handle(), 1), 0);
    EXPECT_EQ(moving.script.queries(), 0);
}

const auto kName = [](const auto& info) { return std::string(info.param.command); };
INSTANTIATE_TEST_SUITE_P(Forms, EveryBlockingForm,
                         ::testing::Values(kMoveJ, kMoveL, kMoveS, kMoveC, kMoveJP, kJointStep, kPosStep, kOrtStep), kName);
INSTANTIATE_TEST_SUITE_P(Moves, EveryBlockingMove, ::testing::Values(kMoveJ, kMoveL, kMoveS, kMoveC, kMoveJP), kName);

// -----------------------------------------------------------------------------------------
// Moves watch for their end frame first
// -----------------------------------------------------------------------------------------

TEST(MoveWait, FrameRightBehindTheAnswerEndsTheWaitWithoutAQuery)
{
    MovingArm moving;
    moving.script.accept("movej").then(end_frame(true, 0, 0));
    EXPECT_EQ(kMoveJ.call(moving.arm.handle()), 0);
    EXPECT_EQ(moving.script.queries(), 0);
}

TEST(MoveWait, FrameOfAnotherDeviceWhileWatchingDoesNotEndTheWait)
{
    MovingArm moving;
    LogCapture log(LOG_LEVEL_ERROR);
    moving.script.accept("movel").then(end_frame(true, 1, 0));
    moving.script.kinds({"movel"}).push_after_query(1, end_frame(true, 0, 0));
    EXPECT_EQ(kMoveL.call(moving.arm.handle()), 0);
    EXPECT_EQ(moving.script.queries(), 1);
    EXPECT_FALSE(log.contains("[zk_movel] current device is: 1 \n"));
}

TEST(MoveWait, ConnectedFrameWhileWatchingDoesNotEndTheWait)
{
    MovingArm moving;
    moving.script.accept("movej").then(end_frame(true, 0, 1));
    moving.script.kinds({"movej"}).push_after_query(1, end_frame(true, 0, 0));
    EXPECT_EQ(kMoveJ.call(moving.arm.handle()), 0);
    EXPECT_EQ(moving.script.queries(), 1);
}

TEST(MoveWait, FailedMotionWhileWatchingIsOne)
{
    MovingArm moving;
    moving.script.accept("moves").then(end_frame(false, 0, 0));
    EXPECT_EQ(kMoveS.call(moving.arm.handle()), 1);
    EXPECT_EQ(moving.script.queries(), 0);
}

TEST(MoveWait, UnreadableFrameEndsTheWaitWithTheParsersResult)
{
    MovingArm moving;
    moving.script.accept("movej").then(R"({"state":"current_trajectory_state","trajectory_state":true,"device":-1,"trajectory_connect":0})");
    EXPECT_EQ(kMoveJ.call(moving.arm.handle()), -3);
    moving.script.accept("movej").then(R"({"state":"current_trajectory_state","device":0,"trajectory_connect":0})");
    EXPECT_EQ(kMoveJ.call(moving.arm.handle()), -1);  // no state: the parser's read-back value
}

TEST(MoveWait, SixFailedQueriesEndTheWaitWithTheQuerysResult)
{
    MovingArm moving;
    moving.script.accept("movej");
    moving.script.kinds({"bogus"});
    EXPECT_EQ(kMoveJ.call(moving.arm.handle()), -1);
    EXPECT_EQ(moving.script.queries(), 6);
}

TEST(MoveWait, FailedQueriesAreCountedOverTheWholeWait)
{
    MovingArm moving;
    moving.script.accept("movel");
    // Three failures, a good reading in between, three more: the count is never reset.
    moving.script.kinds({"bogus", "bogus", "bogus", "movel", "bogus", "bogus", "bogus", "none"});
    EXPECT_EQ(kMoveL.call(moving.arm.handle()), -1);
    EXPECT_EQ(moving.script.queries(), 7);
}

TEST(MoveWait, MoveThatEndedBeforeTheFirstQueryIsAcceptedAfterTenIdleReadings)
{
    MovingArm moving;
    moving.script.accept("movej");
    moving.script.kinds({"none"}).push_after_query(10, end_frame(true, 0, 0));
    EXPECT_EQ(kMoveJ.call(moving.arm.handle()), 0);
    EXPECT_EQ(moving.script.queries(), 10);
}

TEST(MoveWait, OtherPlanningKindsKeepTheWaitGoing)
{
    MovingArm moving;
    moving.script.accept("movec");
    // A replay still running, then the circle, then idle.
    moving.script.kinds({"re_trajectory", "movec", "none"}).push_after_query(3, end_frame(true, 0, 0));
    EXPECT_EQ(kMoveC.call(moving.arm.handle()), 0);
    EXPECT_EQ(moving.script.queries(), 3);
}

// -----------------------------------------------------------------------------------------
// Joint moves to a pose and steps query first
// -----------------------------------------------------------------------------------------

TEST(QueryFirstWait, MoveThatEndedBeforeTheFirstQueryIsAcceptedAfterTenIdleReadings)
{
    MovingArm moving;
    moving.script.accept("movej_p").then(end_frame(true, 0, 0));
    moving.script.kinds({"none"});
    EXPECT_EQ(kMoveJP.call(moving.arm.handle()), 0);
    EXPECT_EQ(moving.script.queries(), 10);
}

TEST(QueryFirstWait, FailedQueriesFollowEachOtherWithoutLookingForTheFrame)
{
    MovingArm moving;
    moving.script.accept("set_joint_step").then(end_frame(true, 0, 0));
    moving.script.kinds({"bogus"});
    EXPECT_EQ(kJointStep.call(moving.arm.handle()), -1);
    EXPECT_EQ(moving.script.queries(), 6);
}

// -----------------------------------------------------------------------------------------
// The non-blocking marker
// -----------------------------------------------------------------------------------------

TEST(NonBlockingMarker, EndFrameOfANonBlockingMoveCannotEndALaterBlockingOne)
{
    MovingArm moving;
    moving.script.accept("movej");
    EXPECT_EQ(zk_movej(moving.arm.handle(), kJoints, 10, 0, 0, 0), 0);
    EXPECT_EQ(event_listener.flag.load(), kEventFlagDropTrajectoryEnd);
    // The first move fails at its end; the second arrives.
    moving.arm.controller().push(end_frame(false, 0, 0));
    moving.script.accept("movel").then(end_frame(true, 0, 0));
    EXPECT_EQ(kMoveL.call(moving.arm.handle()), 0);
    EXPECT_EQ(event_listener.flag.load(), kEventFlagNone);
}

TEST(NonBlockingMarker, EventCallbackSeesTheEndFrameOfABlockingMove)
{
    static std::atomic<int> events{0};
    static std::atomic<int> device{-1};
    zk_get_arm_event_call_back([](zk_event_push_data_t data) {
        device = data.device;
        ++events;
    });
    MovingArm moving;
    moving.script.accept("movej").then(end_frame(true, 0, 0));
    EXPECT_EQ(kMoveJ.call(moving.arm.handle()), 0);
    EXPECT_EQ(events.load(), 1);
    EXPECT_EQ(device.load(), 0);
}

}  // namespace

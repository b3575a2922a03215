// The simulated arm on the wire: moves are answered at once, the joints travel, the running
// kind is reported, and the end is pushed to the sender; stops, pauses, steps, teach and
// pass-through act on the motion.
#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "sim_fixture.h"
#include "simulator/sim_kinematics.h"

namespace zk_sim_test {
namespace {

std::string movej(const std::vector<int>& joint, int v, int trajectory_connect = 0)
{
    std::string line = R"({"command":"movej","v":)" + std::to_string(v) + R"(,"joint":[)";
    for (size_t i = 0; i < joint.size(); ++i) line += (i ? "," : "") + std::to_string(joint[i]);
    return line + R"(],"trajectory_connect":)" + std::to_string(trajectory_connect) + R"(,"r":0})";
}

bool receive_state(const Json& reply)
{
    EXPECT_TRUE(cJSON_IsBool(reply["receive_state"])) << reply.text;
    return cJSON_IsTrue(reply["receive_state"]);
}

// Polls the simulator until the arm's status is the expected one.
bool wait_for_status(RunningSimulator& simulator, zk_sim::ArmStatus status, Millis limit = 3000ms)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        if (simulator->status() == status) return true;
        std::this_thread::sleep_for(2ms);
    }
    return false;
}

TEST(Moves, JointMoveIsAnsweredAtOnceRunsAndEndsWithAFrameToItsSender)
{
    RunningSimulator simulator(options_for("AX61-B", 2));
    WireClient client(simulator.port());
    const Json answer = client.ask(movej({30000, -20000, 10000, 0, 45000, 0}, 50));
    EXPECT_EQ(answer.name(), "movej");
    EXPECT_TRUE(receive_state(answer));

    // While it runs, the trajectory query names the kind and the joints lie on the way.
    const Json running = client.ask(R"({"command":"get_arm_current_trajectory"})");
    EXPECT_EQ(running.name(), "arm_current_trajectory");
    EXPECT_STREQ(cJSON_GetStringValue(running["type"]), "movej");
    const auto on_the_way = running.ints("data");
    ASSERT_EQ(on_the_way.size(), 6u);
    EXPECT_GE(on_the_way[0], 0);
    EXPECT_LT(on_the_way[0], 30000);

    const Json end = client.next_named("current_trajectory_state", 5000ms);
    ASSERT_TRUE(end) << "no end frame";
    EXPECT_TRUE(cJSON_IsTrue(end["trajectory_state"]));
    EXPECT_EQ(end.integer("device"), 0);
    EXPECT_EQ(end.integer("trajectory_connect"), 0);
    EXPECT_EQ(client.ask(R"({"command":"get_joint_degree"})").ints("joint"),
              (std::vector<int>{30000, -20000, 10000, 0, 45000, 0}));
    EXPECT_STREQ(cJSON_GetStringValue(client.ask(R"({"command":"get_arm_current_trajectory"})")["type"]), "none");
}

TEST(Moves, SpeedFollowsV)
{
    // The same travel at a tenth of the speed takes about ten times as long.
    auto duration_of = [](int v) {
        RunningSimulator simulator(options_for("AX61-B", 10));
        WireClient client(simulator.port());
        const auto start = std::chrono::steady_clock::now();
        client.ask(movej({90000, 0, 0, 0, 0, 0}, v));
        client.next_named("current_trajectory_state", 10000ms);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    const double fast = duration_of(100);
    const double slow = duration_of(10);
    EXPECT_GT(slow, 4 * fast);
}

TEST(Moves, ChainedMovesEachEndWithTheirOwnTrajectoryConnect)
{
    RunningSimulator simulator(options_for("AX61-B", 20));
    WireClient client(simulator.port());
    client.send_line(movej({10000, 0, 0, 0, 0, 0}, 100, 1));
    client.send_line(movej({10000, 10000, 0, 0, 0, 0}, 100, 0));
    // The first move may end before the second is answered: sort the four frames by name.
    std::vector<int> answers, ends;
    for (int i = 0; i < 4; ++i) {
        const Json frame = client.next(5000ms);
        if (frame.name() == "movej") answers.push_back(receive_state(frame));
        if (frame.name() == "current_trajectory_state") ends.push_back(frame.integer("trajectory_connect"));
    }
    EXPECT_EQ(answers, (std::vector<int>{1, 1}));
    EXPECT_EQ(ends, (std::vector<int>{1, 0}));
    EXPECT_EQ(client.ask(R"({"command":"get_joint_degree"})").ints("joint")[1], 10000);
}

TEST(Moves, EndFrameGoesOnlyToTheSender)
{
    RunningSimulator simulator(options_for("AX61-B", 20));
    WireClient mover(simulator.port());
    WireClient watcher(simulator.port());
    mover.ask(movej({2000, 0, 0, 0, 0, 0}, 100));
    EXPECT_TRUE(mover.next_named("current_trajectory_state"));
    EXPECT_FALSE(watcher.next(200ms)) << "an end frame reached a client that moved nothing";
}

struct RefusedMove {
    const char* name;
    std::string line;
};

class RefusedMoves : public ::testing::TestWithParam<RefusedMove> {};

TEST_P(RefusedMoves, AnswerFalseAndLeaveTheArmStill)
{
    RunningSimulator simulator(options_for("AX61-B"));
    WireClient client(simulator.port());
    const Json answer = client.ask(GetParam().line);
    EXPECT_FALSE(receive_state(answer));
    EXPECT_FALSE(client.next(100ms)) << "a refused move ended";
    EXPECT_EQ(simulator->current_kind(), zk_sim::MotionKind::none);
}

INSTANTIATE_TEST_SUITE_P(
    Targets, RefusedMoves,
    ::testing::Values(
        RefusedMove{"beyondJointLimit", movej({179000, 0, 0, 0, 0, 0}, 50)},
        RefusedMove{"sevenJointsOnSixAxes", movej({0, 0, 0, 0, 0, 0, 0}, 50)},
        RefusedMove{"speedZero", movej({1000, 0, 0, 0, 0, 0}, 0)},
        RefusedMove{"speedAboveHundred", movej({1000, 0, 0, 0, 0, 0}, 101)},
        RefusedMove{"trajectoryConnectTwo", movej({1000, 0, 0, 0, 0, 0}, 50, 2)},
        RefusedMove{"jointNotNumbers", R"({"command":"movej","v":50,"joint":["a",0,0,0,0,0]})"},
        RefusedMove{"poseOutOfReach", R"({"command":"movel","v":50,"pose":[5000000,0,0,0,0,0],"r":0})"},
        RefusedMove{"poseTooShort", R"({"command":"movej_p","v":50,"pose":[300000,0,300000,3141,0],"r":0})"},
        RefusedMove{"arcWithoutVia", R"({"command":"movec","v":50,"pose":{"pose_to":[300000,0,300000,3141,0,0]}})"}),
    [](const auto& info) { return info.param.name; });

TEST(Moves, CartesianTargetsAreReachedAndReportTheirKind)
{
    struct Case {
        const char* command;
        const char* kind;
    };
    for (const Case& c : {Case{"movel", "movel"}, Case{"moves", "moves"}, Case{"movej_p", "movej"}}) {
        SCOPED_TRACE(c.command);
        RunningSimulator simulator(options_for("AX61-B", 20));
        WireClient client(simulator.port());
        const std::string pose = "[300000,100000,350000,3141,0,1570]";
        const Json answer =
            client.ask(std::string(R"({"command":")") + c.command + R"(","v":50,"pose":)" + pose + R"(,"r":0})");
        EXPECT_EQ(answer.name(), c.command);
        ASSERT_TRUE(receive_state(answer));
        EXPECT_STREQ(cJSON_GetStringValue(client.ask(R"({"command":"get_arm_current_trajectory"})")["type"]), c.kind);
        ASSERT_TRUE(client.next_named("current_trajectory_state", 5000ms));
        const Json state = client.ask(R"({"command":"get_current_arm_state"})");
        const auto reached = state.member("arm_state").ints("pose");
        const std::vector<int> target = {300000, 100000, 350000, 3141, 0, 1570};
        ASSERT_EQ(reached.size(), 6u);
        for (int i = 0; i < 6; ++i) EXPECT_NEAR(reached[i], target[i], 2) << i;
    }
}

TEST(Moves, ArcRunsThroughItsViaPointToItsEnd)
{
    RunningSimulator simulator(options_for("AX61-B", 20));
    WireClient client(simulator.port());
    const Json answer = client.ask(
        R"({"command":"movec","pose":{"pose_via":[300000,0,350000,3141,0,0],"pose_to":[300000,100000,300000,3141,0,0]},)"
        R"("v":50,"r":0,"loop":0,"trajectory_connect":0})");
    EXPECT_EQ(answer.name(), "movec");
    ASSERT_TRUE(receive_state(answer));
    ASSERT_TRUE(client.next_named("current_trajectory_state", 5000ms));
    const auto pose = client.ask(R"({"command":"get_current_arm_state"})").member("arm_state").ints("pose");
    EXPECT_NEAR(pose[1], 100000, 2);
}

// -----------------------------------------------------------------------------------------
// Stops
// -----------------------------------------------------------------------------------------

struct StopCase {
    const char* command;
    const char* result_key;
    zk_sim::ArmStatus status_after;
};

class Stops : public ::testing::TestWithParam<StopCase> {};

TEST_P(Stops, HaltTheMoveShortOfItsTargetAndTellTheSender)
{
    RunningSimulator simulator(options_for("AX61-B", 1));
    WireClient client(simulator.port());
    ASSERT_TRUE(receive_state(client.ask(movej({90000, 0, 0, 0, 0, 0}, 30))));
    std::this_thread::sleep_for(100ms);
    const Json answer = client.ask(std::string(R"({"command":")") + GetParam().command + "\"}");
    EXPECT_EQ(answer.name(), GetParam().command);
    EXPECT_TRUE(cJSON_IsTrue(answer[GetParam().result_key])) << answer.text;
    const Json end = client.next_named("current_trajectory_state", 2000ms);
    ASSERT_TRUE(end);
    EXPECT_TRUE(cJSON_IsFalse(end["trajectory_state"]));
    EXPECT_EQ(end.integer("device"), 0);
    const double stopped_at = simulator->joints()[0];
    EXPECT_GT(stopped_at, 0);
    EXPECT_LT(stopped_at, 90);
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(simulator->joints()[0], stopped_at) << "the arm went on after its stop";
    EXPECT_EQ(simulator->status(), GetParam().status_after);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, Stops,
    ::testing::Values(StopCase{"set_arm_stop", "arm_stop", zk_sim::ArmStatus::stop},
                      StopCase{"set_arm_slow_stop", "arm_slow_stop", zk_sim::ArmStatus::slow_stop},
                      StopCase{"set_arm_delete_trajectory", "arm_delete_trajectory", zk_sim::ArmStatus::stop}),
    [](const auto& info) { return std::string(info.param.command); });

TEST(Stops, SlowStopBrakesBeforeItHalts)
{
    RunningSimulator simulator(options_for("AX61-B", 1));
    WireClient client(simulator.port());
    ASSERT_TRUE(receive_state(client.ask(movej({90000, 0, 0, 0, 0, 0}, 30))));
    std::this_thread::sleep_for(200ms);
    client.ask(R"({"command":"set_arm_slow_stop"})");
    const double at_command = simulator->joints()[0];
    EXPECT_EQ(simulator->status(), zk_sim::ArmStatus::slow_stop);
    ASSERT_TRUE(client.next_named("current_trajectory_state", 2000ms));
    EXPECT_GT(simulator->joints()[0], at_command) << "no braking distance";
}

TEST(Stops, PauseHoldsTheArmAndContinueFinishesTheMove)
{
    RunningSimulator simulator(options_for("AX61-B", 1));
    WireClient client(simulator.port());
    ASSERT_TRUE(receive_state(client.ask(movej({20000, 0, 0, 0, 0, 0}, 50))));
    std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(cJSON_IsTrue(client.ask(R"({"command":"set_arm_pause"})")["arm_pause"]));
    ASSERT_TRUE(wait_for_status(simulator, zk_sim::ArmStatus::pause));
    const double held = simulator->joints()[0];
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(simulator->joints()[0], held);
    EXPECT_STREQ(cJSON_GetStringValue(client.ask(R"({"command":"get_arm_current_trajectory"})")["type"]), "movej");
    EXPECT_FALSE(client.next(50ms)) << "a paused move ended";

    EXPECT_TRUE(cJSON_IsTrue(client.ask(R"({"command":"set_arm_continue"})")["arm_continue"]));
    const Json end = client.next_named("current_trajectory_state", 5000ms);
    ASSERT_TRUE(end);
    EXPECT_TRUE(cJSON_IsTrue(end["trajectory_state"]));
    EXPECT_DOUBLE_EQ(simulator->joints()[0], 20.0);
}

TEST(Stops, DeletingTheCurrentTrajectoryStartsTheNextOne)
{
    RunningSimulator simulator(options_for("AX61-B", 1));
    WireClient client(simulator.port());
    ASSERT_TRUE(receive_state(client.ask(movej({90000, 0, 0, 0, 0, 0}, 10, 1))));
    ASSERT_TRUE(receive_state(client.ask(movej({0, 5000, 0, 0, 0, 0}, 100, 0))));
    const Json answer = client.ask(R"({"command":"set_delete_current_trajectory"})");
    EXPECT_TRUE(cJSON_IsTrue(answer["delete_current_trajectory"]));
    const Json cut = client.next_named("current_trajectory_state");
    EXPECT_TRUE(cJSON_IsFalse(cut["trajectory_state"]));
    const Json second = client.next_named("current_trajectory_state", 5000ms);
    EXPECT_TRUE(cJSON_IsTrue(second["trajectory_state"]));
    EXPECT_DOUBLE_EQ(simulator->joints()[1], 5.0);
}

// -----------------------------------------------------------------------------------------
// Steps, teach and pass-through
// -----------------------------------------------------------------------------------------

TEST(Steps, JointStepMovesOneJointByTheStep)
{
    auto options = options_for("AX61-B", 20);
    options.joints = {0, 0, 10, 0, 0, 0};
    RunningSimulator simulator(options);
    WireClient client(simulator.port());
    const Json answer = client.ask(R"({"command":"set_joint_step","joint_step":[3,-2500],"v":50})");
    EXPECT_EQ(answer.name(), "set_joint_step");
    EXPECT_TRUE(receive_state(answer));
    ASSERT_TRUE(client.next_named("current_trajectory_state"));
    EXPECT_EQ(client.ask(R"({"command":"get_joint_degree"})").ints("joint"), (std::vector<int>{0, 0, 7500, 0, 0, 0}));
}

TEST(Steps, CartesianStepsMoveTheFlangeAlongAndAboutBaseAxes)
{
    auto options = options_for("AX61-B", 20);
    options.joints = {0, 20, 60, 0, 60, 0};
    RunningSimulator simulator(options);
    WireClient client(simulator.port());
    auto pose = [&] {
        return client.ask(R"({"command":"get_current_arm_state"})").member("arm_state").ints("pose");
    };
    const auto before = pose();
    const Json answer = client.ask(R"({"command":"set_pos_step","v":50,"step":20000,"step_type":"z_step"})");
    EXPECT_EQ(answer.name(), "set_pos_step");
    ASSERT_TRUE(receive_state(answer));
    ASSERT_TRUE(client.next_named("current_trajectory_state"));
    const auto after = pose();
    EXPECT_NEAR(after[2] - before[2], 20000, 2);
    EXPECT_NEAR(after[0], before[0], 2);

    ASSERT_TRUE(receive_state(client.ask(R"({"command":"set_ort_step","v":50,"step":100,"step_type":"rz_step"})")));
    ASSERT_TRUE(client.next_named("current_trajectory_state"));
    const auto turned = pose();
    EXPECT_NEAR(turned[2], after[2], 2);  // position held
    EXPECT_FALSE(receive_state(client.ask(R"({"command":"set_pos_step","v":50,"step":1000,"step_type":"w_step"})")));
}

TEST(Teach, JointTeachJogsUntilStopped)
{
    RunningSimulator simulator(options_for("AX61-B", 1));
    WireClient client(simulator.port());
    const Json answer = client.ask(R"({"command":"set_joint_teach","teach_joint":2,"v":20,"direction":"neg"})");
    EXPECT_EQ(answer.name(), "set_joint_teach");
    EXPECT_TRUE(cJSON_IsTrue(answer["joint_teach"]));
    std::this_thread::sleep_for(100ms);
    const Json stop = client.ask(R"({"command":"set_stop_teach"})");
    EXPECT_TRUE(cJSON_IsTrue(stop["stop_teach"]));
    const double held = simulator->joints()[1];
    EXPECT_LT(held, 0);
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(simulator->joints()[1], held);
}

TEST(Teach, CartesianTeachMovesTheFlangeAndBadTeachIsRefused)
{
    auto options = options_for("AX61-B", 1);
    options.joints = {0, 20, 60, 0, 60, 0};
    RunningSimulator simulator(options);
    WireClient client(simulator.port());
    const zk_sim::SimModel model = model_of("AX61-B");
    const double x_before = zk_sim::sim_pose_of(model, simulator->joints()).position[0];
    EXPECT_TRUE(cJSON_IsTrue(client.ask(R"({"command":"set_pos_teach","v":20,"direction":"pos","teach_type":"x"})")["pos_teach"]));
    std::this_thread::sleep_for(100ms);
    client.ask(R"({"command":"set_stop_teach"})");
    EXPECT_GT(zk_sim::sim_pose_of(model, simulator->joints()).position[0], x_before);

    EXPECT_FALSE(cJSON_IsTrue(client.ask(R"({"command":"set_ort_teach","v":20,"direction":"up","teach_type":"rx"})")["ort_teach"]));
    EXPECT_FALSE(cJSON_IsTrue(client.ask(R"({"command":"set_joint_teach","teach_joint":9,"v":20,"direction":"pos"})")["joint_teach"]));
}

TEST(Teach, TeachFrameIsKept)
{
    RunningSimulator simulator(options_for());
    WireClient client(simulator.port());
    EXPECT_TRUE(cJSON_IsTrue(client.ask(R"({"command":"set_teach_frame","frame_type":1})")["set_state"]));
    EXPECT_EQ(client.ask(R"({"command":"get_teach_frame"})").integer("frame_type"), 1);
}

TEST(PassThrough, SetPointsAreFollowedWithoutAReply)
{
    RunningSimulator simulator(options_for("AX61-B", 20));
    WireClient client(simulator.port());
    client.send_line(R"({"command":"movej_canfd","joint":[1000,2000,0,0,0,0],"follow":true,"expand":0,"trajectory_mode":0,"radio":0})");
    client.send_line(R"({"command":"movej_follow","joint":[1500,2500,0,0,0,0]})");
    EXPECT_FALSE(client.next(100ms)) << "a pass-through command was answered";
    EXPECT_EQ(client.ask(R"({"command":"get_joint_degree"})").ints("joint"), (std::vector<int>{1500, 2500, 0, 0, 0, 0}));

    // A pose set point, as position and quaternion: flange pointing down.
    client.send_line(R"({"command":"movep_follow","pose_quat":[300000,0,350000,0,1000000,0,0]})");
    std::this_thread::sleep_for(300ms);
    const auto pose = client.ask(R"({"command":"get_current_arm_state"})").member("arm_state").ints("pose");
    EXPECT_NEAR(pose[0], 300000, 2);
    EXPECT_NEAR(pose[2], 350000, 2);
}

}  // namespace
}  // namespace zk_sim_test

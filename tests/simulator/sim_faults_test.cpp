// Fault injection: the simulator misbehaves exactly as told, and only where told.
#include <gtest/gtest.h>

#include "sim_fixture.h"
#include "simulator/sim_faults.h"

namespace zk_sim_test {
namespace {

const char* kQuery = R"({"command":"get_joint_degree"})";

// Which of the first `count` replies a share hits.
std::string pattern(double drop, double malformed, double garbage, int count)
{
    zk_sim::FaultConfig config;
    config.drop_share = drop;
    config.malformed_share = malformed;
    config.garbage_share = garbage;
    zk_sim::FaultPlan plan(config);
    std::string hits;
    for (int i = 0; i < count; ++i) {
        switch (plan.next()) {
        case zk_sim::FaultAction::answer: hits += '.'; break;
        case zk_sim::FaultAction::drop: hits += 'D'; break;
        case zk_sim::FaultAction::malform: hits += 'M'; break;
        case zk_sim::FaultAction::garbage: hits += 'G'; break;
        }
    }
    return hits;
}

TEST(FaultPlan, SharesAreSpreadEvenlyAndRepeat)
{
    EXPECT_EQ(pattern(0, 0, 0, 8), "........");
    EXPECT_EQ(pattern(1, 0, 0, 4), "DDDD");
    EXPECT_EQ(pattern(0.5, 0, 0, 8), ".D.D.D.D");
    EXPECT_EQ(pattern(0.25, 0, 0, 8), "...D...D");
    EXPECT_EQ(pattern(0.1, 0, 0, 20), ".........D.........D");
    EXPECT_EQ(pattern(0, 1.0 / 3, 0, 9), "..M..M..M");
    EXPECT_EQ(pattern(0, 0, 0.5, 4), ".G.G");
    // A reply both shares hit is dropped: dropping wins.
    EXPECT_EQ(pattern(0.5, 0.5, 0, 4), ".D.D");
}

TEST(FaultPlan, CommandListLimitsWhatIsTouched)
{
    zk_sim::FaultConfig config;
    EXPECT_TRUE(zk_sim::FaultPlan(config).touches("movej"));
    config.commands = {"get_joint_degree", "movej"};
    const zk_sim::FaultPlan plan(config);
    EXPECT_TRUE(plan.touches("movej"));
    EXPECT_FALSE(plan.touches("movel"));
}

struct MalformCase {
    const char* reply;
    const char* malformed;
};

class Malform : public ::testing::TestWithParam<MalformCase> {};

TEST_P(Malform, KeepsTheNameTurnsBooleansToTextAndDropsTheRest)
{
    Json reply = parse(GetParam().reply);
    zk_sim::sim_malform_reply(reply.tree.get());
    char* text = cJSON_PrintUnformatted(reply.tree.get());
    EXPECT_STREQ(text, GetParam().malformed);
    cJSON_free(text);
}

INSTANTIATE_TEST_SUITE_P(
    Replies, Malform,
    ::testing::Values(
        MalformCase{R"({"command":"movej","receive_state":true})", R"({"command":"movej","receive_state":"true"})"},
        MalformCase{R"({"command":"joint_degree","joint":[1,2,3]})", R"({"command":"joint_degree"})"},
        // "state" beside "command" is a result, not the name.
        MalformCase{R"({"command":"set_realtime_push","state":false})",
                    R"({"command":"set_realtime_push","state":"false"})"},
        MalformCase{R"({"state":"current_trajectory_state","trajectory_state":true,"device":0})",
                    R"({"state":"current_trajectory_state","trajectory_state":"true"})"},
        MalformCase{R"({"command":"current_arm_state","arm_state":{"err":[0]},"x":"y"})",
                    R"({"command":"current_arm_state"})"}));

// -----------------------------------------------------------------------------------------
// On the wire
// -----------------------------------------------------------------------------------------


TEST(Faults, DropShareLeavesEveryOtherReplyUnanswered)
{
    zk_sim::FaultConfig faults;
    faults.drop_share = 0.5;
    RunningSimulator simulator(options_for());
    simulator->set_faults(faults);
    WireClient client(simulator.port());
    for (int i = 0; i < 4; ++i) client.send_line(kQuery);
    EXPECT_EQ(client.next().name(), "joint_degree");
    EXPECT_EQ(client.next().name(), "joint_degree");
    EXPECT_FALSE(client.next(100ms)) << "a dropped reply came";
    EXPECT_TRUE(simulator.logged("reply to \"get_joint_degree\" dropped"));
}

TEST(Faults, MalformedReplyKeepsItsNameButLosesItsResult)
{
    zk_sim::FaultConfig faults;
    faults.malformed_share = 1;
    RunningSimulator simulator(options_for());
    simulator->set_faults(faults);
    WireClient client(simulator.port());
    EXPECT_EQ(client.ask(kQuery).text, R"({"command":"joint_degree"})");
    EXPECT_EQ(client.ask(R"({"command":"set_arm_stop"})").text, R"({"command":"set_arm_stop","arm_stop":"true"})");
}

TEST(Faults, GarbageReplyIsNotJson)
{
    zk_sim::FaultConfig faults;
    faults.garbage_share = 1;
    RunningSimulator simulator(options_for());
    simulator->set_faults(faults);
    WireClient client(simulator.port());
    client.send_line(kQuery);
    const std::string line = client.next_line();
    EXPECT_EQ(line, zk_sim::kGarbageLine);
    EXPECT_FALSE(parse(line));
}

TEST(Faults, DelayHoldsRepliesBackAndKeepsTheirOrder)
{
    zk_sim::FaultConfig faults;
    faults.delay_ms = 150;
    faults.commands = {"get_joint_degree"};
    RunningSimulator simulator(options_for());
    simulator->set_faults(faults);
    WireClient client(simulator.port());
    client.send_line(kQuery);
    client.send_line(R"({"command":"get_install_pose"})");
    // The untouched reply waits behind the delayed one: replies never overtake.
    EXPECT_FALSE(client.next(50ms)) << "the delayed reply came early";
    EXPECT_EQ(client.next(1000ms).name(), "joint_degree");
    EXPECT_EQ(client.next(1000ms).name(), "install_pose");
}

TEST(Faults, FaultsTouchOnlyTheNamedCommands)
{
    zk_sim::FaultConfig faults;
    faults.drop_share = 1;
    faults.commands = {"get_install_pose"};
    RunningSimulator simulator(options_for());
    simulator->set_faults(faults);
    WireClient client(simulator.port());
    client.send_line(R"({"command":"get_install_pose"})");
    EXPECT_EQ(client.ask(kQuery).name(), "joint_degree");
}

TEST(Faults, CloseAfterAnswersThatManyFramesThenCloses)
{
    zk_sim::FaultConfig faults;
    faults.close_after = 3;
    RunningSimulator simulator(options_for());
    simulator->set_faults(faults);
    WireClient client(simulator.port());
    for (int i = 0; i < 4; ++i) client.send_line(kQuery);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(client.next().name(), "joint_degree") << i;
    EXPECT_TRUE(client.closed_within(1000ms));
    EXPECT_TRUE(simulator->wait_for_connections(0, 1000ms));
    // Other connections start their own count.
    WireClient next(simulator.port());
    EXPECT_EQ(next.ask(kQuery).name(), "joint_degree");
}

TEST(Faults, EndFramesAreNotFaulted)
{
    zk_sim::FaultConfig faults;
    faults.drop_share = 1;
    RunningSimulator simulator(options_for());
    simulator->set_faults(faults);
    WireClient client(simulator.port());
    client.send_line(R"({"command":"movej","v":100,"joint":[1000,0,0,0,0,0],"trajectory_connect":0,"r":0})");
    EXPECT_EQ(client.next().name(), "current_trajectory_state");
}

}  // namespace
}  // namespace zk_sim_test

// Realtime push: configured by "set_realtime_push", read back by "get_realtime_push", and
// then sent as one state datagram a cycle to the configured port.
#include <gtest/gtest.h>

#include <cmath>

#include "sim_fixture.h"
#include "simulator/sim_realtime.h"

namespace zk_sim_test {
namespace {

std::string push_to(int port, int cycle, const std::string& custom = "", bool enable = true)
{
    std::string line = R"({"command":"set_realtime_push","cycle":)" + std::to_string(cycle) +
                       R"(,"enable":)" + (enable ? "true" : "false") + R"(,"port":)" + std::to_string(port) +
                       R"(,"ip":"127.0.0.1")";
    if (!custom.empty()) line += R"(,"custom":)" + custom;
    return line + "}";
}

TEST(RealtimePush, SetIsReadBackByGet)
{
    RunningSimulator simulator(options_for("AX61-XF"));
    WireClient client(simulator.port());
    const Json set = client.ask(R"({"command":"set_realtime_push","cycle":20,"enable":true,"port":9123,)"
                                R"("ip":"127.0.0.2","force_cordinate":1,"custom":{"joint_speed":true,"hand":true}})");
    EXPECT_EQ(set.name(), "set_realtime_push");
    EXPECT_TRUE(cJSON_IsTrue(set["state"]));
    const Json get = client.ask(R"({"command":"get_realtime_push"})");
    EXPECT_EQ(get.name(), "get_realtime_push");
    EXPECT_EQ(get.integer("cycle"), 20);
    EXPECT_TRUE(cJSON_IsTrue(get["enable"]));
    EXPECT_EQ(get.integer("port"), 9123);
    EXPECT_STREQ(cJSON_GetStringValue(get["ip"]), "127.0.0.2");
    EXPECT_EQ(get.integer("force_coordinate"), 1);
    const cJSON* custom = get["custom"];
    EXPECT_TRUE(cJSON_IsTrue(cJSON_GetObjectItem(custom, "joint_speed")));
    EXPECT_TRUE(cJSON_IsTrue(cJSON_GetObjectItem(custom, "hand")));
    EXPECT_TRUE(cJSON_IsFalse(cJSON_GetObjectItem(custom, "lift_state")));
}

class BadPush : public ::testing::TestWithParam<const char*> {};

TEST_P(BadPush, IsRefusedAndChangesNothing)
{
    RunningSimulator simulator(options_for());
    WireClient client(simulator.port());
    const Json set = client.ask(GetParam());
    EXPECT_TRUE(cJSON_IsFalse(set["state"])) << set.text;
    EXPECT_FALSE(simulator->push_config().enable);
    EXPECT_EQ(simulator->push_config().port, zk_sim::PushConfig{}.port);
}

INSTANTIATE_TEST_SUITE_P(
    Configs, BadPush,
    ::testing::Values(R"({"command":"set_realtime_push","cycle":0,"enable":true,"port":9000,"ip":"127.0.0.1"})",
                      R"({"command":"set_realtime_push","cycle":5,"enable":true,"port":70000,"ip":"127.0.0.1"})",
                      R"({"command":"set_realtime_push","cycle":5,"enable":true,"port":9000,"ip":"localhost"})",
                      R"({"command":"set_realtime_push","cycle":5,"enable":1,"port":9000,"ip":"127.0.0.1"})",
                      R"({"command":"set_realtime_push","cycle":5,"enable":true,"port":9000,"ip":"127.0.0.1","custom":{"hand":1}})"));

TEST(RealtimePush, NothingIsSentUntilEnabled)
{
    RunningSimulator simulator(options_for());
    DatagramSink sink;
    WireClient client(simulator.port());
    client.ask(push_to(sink.port(), 2, "", false));
    EXPECT_EQ(sink.next(100ms), "");
    client.ask(push_to(sink.port(), 2));
    EXPECT_NE(sink.next(500ms), "");
}

TEST(RealtimePush, DatagramCarriesTheRequiredMembersOnTheWireScales)
{
    auto options = options_for("TOR77-B");
    options.joints = {10, -20, 30, -40, 50, -60, 70};
    RunningSimulator simulator(options);
    DatagramSink sink;
    WireClient client(simulator.port());
    client.ask(push_to(sink.port(), 5));
    const std::string text = sink.next();
    ASSERT_LE(text.size(), zk_sim::kMaxDatagram);
    const Json datagram = parse(text);
    ASSERT_TRUE(datagram) << text;
    Json joints = datagram.member("joint_status");
    EXPECT_EQ(joints.ints("joint_position"), (std::vector<int>{10000, -20000, 30000, -40000, 50000, -60000, 70000}));
    for (const char* key : {"joint_current", "joint_en_flag", "joint_err_code", "joint_temperature", "joint_voltage"})
        EXPECT_EQ(joints.ints(key).size(), 7u) << key;
    EXPECT_EQ(joints["joint_speed"], nullptr) << "an optional member nobody asked for";
    EXPECT_EQ(datagram.ints("err"), std::vector<int>{0});

    // The waypoint is the pose of the joints, and its quaternion is a unit one.
    const zk_sim::SimPose pose = zk_sim::sim_pose_of(model_of("TOR77-B"), simulator->joints());
    Json waypoint = datagram.member("waypoint");
    const auto position = waypoint.ints("position");
    ASSERT_EQ(position.size(), 3u);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(position[i], pose.position[i] * 1e6, 1);
    ASSERT_EQ(waypoint.ints("euler").size(), 3u);
    const auto quat = waypoint.ints("quat");
    ASSERT_EQ(quat.size(), 4u);
    double norm = 0;
    for (int q : quat) norm += (q / 1e6) * (q / 1e6);
    EXPECT_NEAR(norm, 1.0, 1e-5);
    for (const char* optional : {"arm_current_status", "lift_state", "expand_state", "hand", "aloha_state",
                                 "zk_plus_base", "zk_plus_state", "six_force_sensor", "one_force_sensor"})
        EXPECT_EQ(datagram[optional], nullptr) << optional;
}

TEST(RealtimePush, OptionalMembersComeWhenAskedFor)
{
    RunningSimulator simulator(options_for("AX61-XF"));
    DatagramSink sink;
    WireClient client(simulator.port());
    client.ask(push_to(sink.port(), 5,
                       R"({"joint_speed":true,"lift_state":true,"expand_state":true,"arm_current_status":true,)"
                       R"("aloha_state":true,"hand":true,"zk_plus_base":true,"zk_plus_state":true})"));
    const Json datagram = parse(sink.next());
    ASSERT_TRUE(datagram);
    EXPECT_EQ(datagram.member("joint_status").ints("joint_speed").size(), 6u);
    EXPECT_STREQ(cJSON_GetStringValue(datagram["arm_current_status"]), "idle");
    for (const char* object : {"lift_state", "expand_state", "hand", "aloha_state", "six_force_sensor"})
        EXPECT_TRUE(cJSON_IsObject(datagram[object])) << object;
    EXPECT_EQ(datagram.member("hand").ints("hand_pos").size(), 6u);
    EXPECT_STREQ(cJSON_GetStringValue(datagram["zk_plus_base"]), "offline");
    EXPECT_STREQ(cJSON_GetStringValue(datagram["zk_plus_state"]), "offline");
}

TEST(RealtimePush, DatagramsFollowTheArmAndItsStatus)
{
    RunningSimulator simulator(options_for("AX61-B", 1));
    DatagramSink sink;
    WireClient client(simulator.port());
    client.ask(push_to(sink.port(), 5, R"({"arm_current_status":true,"joint_speed":true})"));
    client.ask(R"({"command":"movej","v":20,"joint":[20000,0,0,0,0,0],"trajectory_connect":0,"r":0})");
    bool saw_motion = false;
    for (const std::string& text : sink.collect(150ms)) {
        const Json datagram = parse(text);
        if (std::string(cJSON_GetStringValue(datagram["arm_current_status"])) != "move_J") continue;
        const Json joints = datagram.member("joint_status");
        if (joints.ints("joint_position")[0] > 0 && joints.ints("joint_speed")[0] > 0) saw_motion = true;
    }
    EXPECT_TRUE(saw_motion);
}

TEST(RealtimePush, OneDatagramEachCycle)
{
    RunningSimulator simulator(options_for());
    DatagramSink sink;
    WireClient client(simulator.port());
    client.ask(push_to(sink.port(), 10));
    sink.next();  // the first one starts the count
    const uint64_t before = simulator->datagrams_sent();
    const size_t received = sink.collect(500ms).size();
    // About 50. A loaded or sanitized run may miss cycles, but the simulator never makes
    // up for them with a burst.
    EXPECT_GE(received, 10u);
    EXPECT_LE(received, 55u);
    // The count may lag the datagram that just left by one.
    EXPECT_GE(simulator->datagrams_sent() - before + 1, received);
}

}  // namespace
}  // namespace zk_sim_test

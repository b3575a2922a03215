// The simulator on the wire: every query a client runs gets the reply frame name and result
// members a controller gives, and bad input never stops it.
#include <gtest/gtest.h>

#include <thread>

#include "sim_fixture.h"

namespace zk_sim_test {
namespace {

// What a reply member must be. kDof: an integer array of one entry per joint.
enum class Kind { integer, boolean, text, object, names, ints3, ints6, dof };

struct Member {
    const char* key;
    Kind kind;
};

struct QueryCase {
    const char* command;
    const char* reply_name;
    std::vector<Member> members;
};

void expect_member(const Json& reply, const Member& member, int dof)
{
    const cJSON* item = reply[member.key];
    ASSERT_NE(item, nullptr) << member.key << " missing in " << reply.text;
    switch (member.kind) {
    case Kind::integer: EXPECT_TRUE(cJSON_IsNumber(item)) << member.key; break;
    case Kind::boolean: EXPECT_TRUE(cJSON_IsBool(item)) << member.key; break;
    case Kind::text: EXPECT_TRUE(cJSON_IsString(item)) << member.key; break;
    case Kind::object: EXPECT_TRUE(cJSON_IsObject(item)) << member.key; break;
    case Kind::names:
        ASSERT_TRUE(cJSON_IsArray(item)) << member.key;
        ASSERT_GT(cJSON_GetArraySize(item), 0) << member.key;
        EXPECT_TRUE(cJSON_IsString(item->child)) << member.key;
        break;
    case Kind::ints3: EXPECT_EQ(reply.ints(member.key).size(), 3u) << member.key; break;
    case Kind::ints6: EXPECT_EQ(reply.ints(member.key).size(), 6u) << member.key; break;
    case Kind::dof: EXPECT_EQ(static_cast<int>(reply.ints(member.key).size()), dof) << member.key; break;
    }
}

const std::vector<QueryCase> kQueries = {
    // What a new connection reads, in its order.
    {"get_arm_software_info", "arm_software_info",
     {{"Product_version", Kind::text}, {"algorithm_info", Kind::object}, {"ctrl_info", Kind::object},
      {"dynamic_info", Kind::object}}},
    {"get_realtime_push", "get_realtime_push",
     {{"cycle", Kind::integer}, {"port", Kind::integer}, {"ip", Kind::text}, {"enable", Kind::boolean},
      {"custom", Kind::object}, {"force_coordinate", Kind::integer}}},
    {"get_current_work_frame", "current_work_frame", {{"frame_name", Kind::text}, {"pose", Kind::ints6}}},
    {"get_current_tool_frame", "current_tool_frame",
     {{"tool_name", Kind::text}, {"pose", Kind::ints6}, {"payload", Kind::integer}, {"position", Kind::ints3}}},
    {"get_install_pose", "install_pose", {{"pose", Kind::ints3}}},
    {"get_joint_min_pos", "joint_min_pos", {{"min_pos", Kind::dof}}},
    {"get_joint_max_pos", "joint_max_pos", {{"max_pos", Kind::dof}}},
    {"get_joint_max_acc", "joint_max_acc", {{"joint_acc", Kind::dof}}},
    {"get_joint_max_speed", "joint_max_speed", {{"joint_speed", Kind::dof}}},
    // Other queries answered from the arm's state.
    {"get_joint_degree", "joint_degree", {{"joint", Kind::dof}}},
    {"get_arm_current_trajectory", "arm_current_trajectory", {{"type", Kind::text}, {"data", Kind::dof}}},
    {"get_joint_drive_max_speed", "get_joint_drive_max_speed", {{"joint_speed", Kind::dof}}},
    {"get_joint_drive_max_acc", "get_joint_drive_max_acc", {{"joint_acc", Kind::dof}}},
    {"get_joint_drive_min_pos", "get_joint_drive_min_pos", {{"min_pos", Kind::dof}}},
    {"get_joint_drive_max_pos", "get_joint_drive_max_pos", {{"max_pos", Kind::dof}}},
    {"get_joint_en_state", "joint_en_state", {{"en_state", Kind::dof}}},
    {"get_joint_err_flag", "joint_err_flag", {{"err_flag", Kind::dof}, {"brake_state", Kind::dof}}},
    {"get_collision_stage", "get_collision_stage", {{"collision_stage", Kind::integer}}},
    {"get_arm_max_line_speed", "arm_max_line_speed", {{"arm_line_speed", Kind::integer}}},
    {"get_arm_max_line_acc", "arm_max_line_acc", {{"arm_line_acc", Kind::integer}}},
    {"get_arm_max_angular_speed", "arm_max_angular_speed", {{"arm_angular_speed", Kind::integer}}},
    {"get_arm_max_angular_acc", "arm_max_angular_acc", {{"arm_angular_acc", Kind::integer}}},
    {"get_init_pose", "arm_init_pose", {{"init_pose", Kind::dof}}},
    {"get_total_tool_frame", "total_tool_frame", {{"tool_names", Kind::names}}},
    {"get_total_work_frame", "total_work_frame", {{"frame_names", Kind::names}}},
    {"get_current_arm_state", "current_arm_state", {{"arm_state", Kind::object}}},
    {"get_arm_all_state", "arm_all_state", {{"all_state", Kind::object}}},
    {"get_current_joint_temperature", "current_joint_temperature", {{"joint_temperature", Kind::dof}}},
    {"get_current_joint_current", "current_joint_current", {{"joint_current", Kind::dof}}},
    {"get_current_joint_voltage", "current_joint_voltage", {{"joint_voltage", Kind::dof}}},
    {"get_joint_odom", "get_joint_odom", {{"odom", Kind::dof}}},
    {"get_controller_state", "controller_state",
     {{"voltage", Kind::integer}, {"current", Kind::integer}, {"temperature", Kind::integer}, {"err_flag", Kind::integer}}},
    {"get_arm_power_state", "arm_power_state", {{"power_state", Kind::integer}}},
    {"get_system_runtime", "get_system_runtime",
     {{"day", Kind::integer}, {"hour", Kind::integer}, {"min", Kind::integer}, {"sec", Kind::integer}}},
    {"get_joint_software_version", "joint_software_version", {{"version", Kind::dof}}},
    {"get_tool_software_version", "tool_software_version", {{"version", Kind::integer}}},
    {"get_arm_run_mode", "get_arm_run_mode", {{"mode", Kind::integer}}},
    {"get_teach_frame", "get_teach_frame", {{"frame_type", Kind::integer}}},
};

class Queries : public ::testing::TestWithParam<std::pair<const char*, int>> {};

TEST_P(Queries, EveryQueryAnswersItsFrameNameAndMembers)
{
    const auto [product, dof] = GetParam();
    RunningSimulator simulator(options_for(product));
    WireClient client(simulator.port());
    for (const QueryCase& query : kQueries) {
        SCOPED_TRACE(query.command);
        const Json reply = client.ask(std::string(R"({"command":")") + query.command + "\"}");
        ASSERT_TRUE(reply) << "no reply";
        EXPECT_EQ(reply.name(), query.reply_name);
        for (const Member& member : query.members) expect_member(reply, member, dof);
    }
}

INSTANTIATE_TEST_SUITE_P(SixAndSevenAxes, Queries,
                         ::testing::Values(std::make_pair("AX61-B", 6), std::make_pair("TOR77-B", 7)),
                         [](const auto& info) { return std::string(info.param.first).substr(0, 4); });

TEST(Queries, DhTableHasOneRowPerJoint)
{
    for (const auto& [product, dof] : {std::make_pair("AX61-XF", 6), std::make_pair("AX71-QF", 7)}) {
        RunningSimulator simulator(options_for(product));
        WireClient client(simulator.port());
        const Json reply = client.ask(R"({"command":"get_DH_data"})");
        EXPECT_EQ(reply.name(), "get_DH_data");
        for (int joint = 1; joint <= 7; ++joint) {
            const std::string key = "joint_" + std::to_string(joint);
            EXPECT_EQ(reply.ints(key.c_str()).size(), joint <= dof ? 4u : 0u) << product << " " << key;
        }
    }
}

TEST(Queries, ArmStateNestsItsMembersAndListsNoErrorAsOneZero)
{
    RunningSimulator simulator(options_for("AX61-B"));
    WireClient client(simulator.port());
    const Json current = client.ask(R"({"command":"get_current_arm_state"})");
    Json state = current.member("arm_state");
    EXPECT_EQ(state.ints("err"), std::vector<int>{0});
    EXPECT_EQ(state.ints("joint").size(), 6u);
    EXPECT_EQ(state.ints("pose").size(), 6u);
    const Json all = client.ask(R"({"command":"get_arm_all_state"})");
    Json all_state = all.member("all_state");
    for (const char* key : {"temperature", "current", "voltage", "err_flag", "en_flag"})
        EXPECT_EQ(all_state.ints(key).size(), 6u) << key;
    EXPECT_EQ(all_state.ints("err"), std::vector<int>{0});
}

TEST(Queries, InitialJointsAreReportedOnTheWireScale)
{
    auto options = options_for("AX61-B");
    options.joints = {10, -20.5, 30, 0, 45, -90};
    RunningSimulator simulator(options);
    WireClient client(simulator.port());
    const std::vector<int> expected = {10000, -20500, 30000, 0, 45000, -90000};
    EXPECT_EQ(client.ask(R"({"command":"get_joint_degree"})").ints("joint"), expected);
    EXPECT_EQ(client.ask(R"({"command":"get_init_pose"})").ints("init_pose"), expected);
}

// -----------------------------------------------------------------------------------------
// Bad input
// -----------------------------------------------------------------------------------------

struct BadLine {
    const char* name;
    std::string bytes;
    std::string request;  // the refusal's "request"
    std::string reason;
};

class BadInput : public ::testing::TestWithParam<BadLine> {};

TEST_P(BadInput, IsRefusedAndTheConnectionGoesOn)
{
    RunningSimulator simulator(options_for());
    WireClient client(simulator.port());
    client.send_raw(GetParam().bytes);
    const Json refusal = client.next();
    EXPECT_EQ(refusal.name(), "command_refused") << refusal.text;
    EXPECT_EQ(cJSON_GetStringValue(refusal["request"]), GetParam().request);
    EXPECT_EQ(cJSON_GetStringValue(refusal["reason"]), GetParam().reason);
    EXPECT_EQ(client.ask(R"({"command":"get_joint_degree"})").name(), "joint_degree");
}

INSTANTIATE_TEST_SUITE_P(
    Lines, BadInput,
    ::testing::Values(BadLine{"notJson", "hello controller\r\n", "", "not a JSON object"},
                      BadLine{"truncatedJson", "{\"command\":\"get_joint_degree\"\r\n", "", "not a JSON object"},
                      BadLine{"array", "[1,2,3]\r\n", "", "not a JSON object"},
                      BadLine{"noCommand", "{\"state\":\"get_joint_degree\"}\r\n", "", "no \"command\" text"},
                      BadLine{"commandNotText", "{\"command\":7}\r\n", "", "no \"command\" text"},
                      BadLine{"unknown", "{\"command\":\"fly_to_the_moon\"}\r\n", "fly_to_the_moon", "unknown command"},
                      BadLine{"overLong", std::string(70000, 'x') + "\r\n", "", "line too long"},
                      BadLine{"overLongJson", "{\"command\":\"get_joint_degree\",\"pad\":\"" + std::string(70000, 'x') +
                                                  "\"}\r\n",
                              "", "line too long"}),
    [](const auto& info) { return info.param.name; });

TEST(BadInput, UnknownCommandIsLogged)
{
    RunningSimulator simulator(options_for());
    WireClient client(simulator.port());
    client.ask(R"({"command":"fly_to_the_moon"})");
    EXPECT_TRUE(simulator.logged("unknown command \"fly_to_the_moon\""));
}

TEST(BadInput, OverLongLineArrivingInPiecesIsDroppedWhole)
{
    RunningSimulator simulator(options_for());
    WireClient client(simulator.port());
    const std::string chunk(16 * 1024, 'y');
    for (int i = 0; i < 8; ++i) {
        client.send_raw(chunk);
        std::this_thread::sleep_for(2ms);
    }
    client.send_raw(R"(,"tail":1})" "\r\n");
    EXPECT_EQ(cJSON_GetStringValue(client.next()["reason"]), std::string("line too long"));
    // Only one refusal: the tail of the long line isn't taken for a line of its own.
    EXPECT_EQ(client.ask(R"({"command":"get_joint_degree"})").name(), "joint_degree");
}

TEST(Framing, FormattedFrameWithBareLineFeedsInsideIsOneFrame)
{
    RunningSimulator simulator(options_for());
    WireClient client(simulator.port());
    client.send_raw("{\n\t\"command\":\t\"get_joint_degree\"\n}\r\n");
    EXPECT_EQ(client.next().name(), "joint_degree");
}

TEST(Framing, BareLineFeedEndsAWholeObjectAndSeveralFramesInOneWriteAreAllAnswered)
{
    RunningSimulator simulator(options_for());
    WireClient client(simulator.port());
    client.send_raw("{\"command\":\"get_joint_degree\"}\n{\"command\":\"get_install_pose\"}\r\n\r\n"
                    "{\"command\":\"get_arm_power_state\"}\r\n");
    EXPECT_EQ(client.next().name(), "joint_degree");
    EXPECT_EQ(client.next().name(), "install_pose");
    EXPECT_EQ(client.next().name(), "arm_power_state");
}

TEST(Framing, FrameSplitAcrossWritesIsReassembled)
{
    RunningSimulator simulator(options_for());
    WireClient client(simulator.port());
    client.send_raw("{\"command\":\"get_jo");
    std::this_thread::sleep_for(20ms);
    client.send_raw("int_degree\"}\r");
    std::this_thread::sleep_for(20ms);
    client.send_raw("\n");
    EXPECT_EQ(client.next().name(), "joint_degree");
}

TEST(Connections, SeveralClientsAreServedAndOneLeavingDisturbsNoOther)
{
    RunningSimulator simulator(options_for());
    WireClient first(simulator.port());
    WireClient second(simulator.port());
    ASSERT_TRUE(simulator->wait_for_connections(2, 2000ms));
    first.send_line(R"({"command":"movej","v":20,"joint":[5000,0,0,0,0,0],"trajectory_connect":0,"r":0})");
    first.close();  // mid-move
    ASSERT_TRUE(simulator->wait_for_connections(1, 2000ms));
    EXPECT_EQ(second.ask(R"({"command":"get_install_pose"})").name(), "install_pose");
    // The arm carries on to its target without the client that sent it.
    for (int i = 0; i < 200 && simulator->joints()[0] < 5.0; ++i) std::this_thread::sleep_for(10ms);
    EXPECT_DOUBLE_EQ(simulator->joints()[0], 5.0);
    EXPECT_EQ(second.ask(R"({"command":"get_joint_degree"})").ints("joint")[0], 5000);
}

TEST(Connections, ClientsBeyondTheLimitAreTurnedAwayAndTheOthersServed)
{
    RunningSimulator simulator(options_for());
    std::vector<std::unique_ptr<WireClient>> clients;
    for (size_t i = 0; i < zk_sim::kMaxConnections; ++i) clients.push_back(std::make_unique<WireClient>(simulator.port()));
    ASSERT_TRUE(simulator->wait_for_connections(zk_sim::kMaxConnections, 2000ms));
    WireClient extra(simulator.port());
    EXPECT_TRUE(extra.closed_within(2000ms));
    EXPECT_TRUE(simulator.logged("turned away"));
    EXPECT_EQ(clients.back()->ask(R"({"command":"get_install_pose"})").name(), "install_pose");
}

}  // namespace
}  // namespace zk_sim_test

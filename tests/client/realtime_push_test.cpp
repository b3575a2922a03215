#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "Application/zk_handle.h"
#include "Middleware/udp.h"
#include "support/connected_arm.h"
#include "support/test_log.h"

namespace {

using zk_test::ConnectedArm;
using zk_test::LogCapture;
using zk_test::ScriptedController;

const char* kAccepted = R"({"command":"set_realtime_push","state":true})";
const char* kGetRequest = R"({"command":"get_realtime_push"})";

int registered_ports()
{
    int count = 0;
    for (int i = 0; i < kUdpMaxPorts; ++i) count += zk_udp_entry(gUdpHandle, i).user_num;
    return count;
}

zk_udp_custom_config_t no_custom() { return {-1, -1, -1, -1, -1, -1, -1, -1}; }

zk_realtime_push_config_t push_config(const char* ip = "192.168.1.104")
{
    zk_realtime_push_config_t config{};
    config.cycle = 5;
    config.enable = true;
    config.port = 8089;
    config.force_coordinate = -1;
    std::memcpy(config.ip, ip, std::min(std::strlen(ip), sizeof config.ip - 1));
    config.custom_config = no_custom();
    return config;
}

// --- The set request on the wire ---------------------------------------------------------

TEST(RealtimePush, SetSendsItsMembersInOrderThenReadsTheConfigurationBack)
{
    ConnectedArm arm;
    arm.controller().on("set_realtime_push").reply(kAccepted);
    EXPECT_EQ(zk_set_realtime_push(arm.handle(), push_config()), 0);
    EXPECT_EQ(arm.sent(), (std::vector<std::string>{
                              R"({"command":"set_realtime_push","enable":true,"cycle":5,"port":8089,"ip":"192.168.1.104"})",
                              kGetRequest}));
}

struct CustomCase {
    const char* name;
    zk_udp_custom_config_t custom;
    std::string members;  // what follows "ip" on the wire, if anything
};

class CustomMembers : public ::testing::TestWithParam<CustomCase> {};

TEST_P(CustomMembers, FollowTheSignOfEachField)
{
    ConnectedArm arm;
    arm.controller().on("set_realtime_push").reply(kAccepted);
    zk_realtime_push_config_t config = push_config();
    config.enable = false;
    config.custom_config = GetParam().custom;
    EXPECT_EQ(zk_set_realtime_push(arm.handle(), config), 0);
    ASSERT_FALSE(arm.sent().empty());
    EXPECT_EQ(arm.sent()[0],
              R"({"command":"set_realtime_push","enable":false,"cycle":5,"port":8089,"ip":"192.168.1.104")" +
                  GetParam().members + "}");
}

// Fields in order: joint_speed, lift_state, expand_state, hand_state, arm_current_status,
// aloha_state, plus_base, plus_state.
INSTANTIATE_TEST_SUITE_P(
    Configs, CustomMembers,
    ::testing::Values(
        CustomCase{"allLeftOut", {-1, -1, -1, -1, -1, -1, -1, -1}, ""},
        CustomCase{"allOn",
                   {1, 1, 1, 1, 1, 1, 1, 1},
                   R"(,"custom":{"joint_speed":true,"lift_state":true,"expand_state":true,"arm_current_status":true,)"
                   R"("aloha_state":true,"hand":true,"zk_plus_base":true,"zk_plus_state":true})"},
        CustomCase{"allOff",
                   {0, 0, 0, 0, 0, 0, 0, 0},
                   R"(,"custom":{"joint_speed":false,"lift_state":false,"expand_state":false,"arm_current_status":false,)"
                   R"("aloha_state":false,"hand":false,"zk_plus_base":false,"zk_plus_state":false})"},
        CustomCase{"anyPositiveIsOn", {7, -1, -1, 2, -1, 0, -1, -1}, R"(,"custom":{"joint_speed":true,"aloha_state":false,"hand":true})"},
        CustomCase{"plusStateNeedsPlusBase", {-1, -1, -1, -1, -1, -1, -1, 1}, ""},
        CustomCase{"plusStateFollowsPlusBaseWhateverItsSign",
                   {-1, -1, -1, -1, -1, -1, 0, -1},
                   R"(,"custom":{"zk_plus_base":false,"zk_plus_state":true})"}),
    [](const auto& info) { return info.param.name; });

TEST(RealtimePush, ForceCoordinateOnlyWithAForceSensor)
{
    struct Case {
        const char* product;
        int force_coordinate;
        const char* members;
        bool refused_log;
    };
    const Case cases[] = {
        {"ZK-AX61-XF", 0, R"(,"force_cordinate":0)", false},
        {"ZK-AX61-QF", 2, R"(,"force_cordinate":2)", false},
        {"ZK-AX61-XF", -1, "", false},
        {"ZK-AX61-XF", -2, "", true},
        {"ZK-AX61-B", 1, "", true},
        {"ZK-AX61-B", -1, "", false},
    };
    for (const Case& c : cases) {
        ConnectedArm arm(ZK_SINGLE_MODE_E, c.product);
        arm.controller().on("set_realtime_push").reply(kAccepted);
        arm.controller().always("get_realtime_push").reply(
            R"({"command":"get_realtime_push","cycle":5,"enable":false,"port":8089,"ip":"192.168.1.104",)"
            R"("force_coordinate":0,"custom":{}})");
        LogCapture log(LOG_LEVEL_INFO);
        zk_realtime_push_config_t config = push_config();
        config.force_coordinate = c.force_coordinate;
        EXPECT_EQ(zk_set_realtime_push(arm.handle(), config), 0) << c.product << " " << c.force_coordinate;
        ASSERT_FALSE(arm.sent().empty());
        EXPECT_EQ(arm.sent()[0], R"({"command":"set_realtime_push","enable":true,"cycle":5,"port":8089,"ip":"192.168.1.104")" +
                                     std::string(c.members) + "}")
            << c.product << " " << c.force_coordinate;
        EXPECT_EQ(log.contains("[zk_set_realtime_push]Force sensors are not supported! \n"), c.refused_log)
            << c.product << " " << c.force_coordinate;
    }
}

TEST(RealtimePush, ValuesRefusedBeforeSending)
{
    struct Case {
        int cycle;
        int port;
        std::string ip;
        const char* log_line;  // null when accepted
    };
    const Case cases[] = {
        {0, 8089, "192.168.1.104", "[zk_set_realtime_push] set realtime push config error, invaild cycle: 0!\n"},
        {-3, 8089, "192.168.1.104", "[zk_set_realtime_push] set realtime push config error, invaild cycle: -3!\n"},
        {5, 0, "192.168.1.104", "[zk_set_realtime_push] set realtime push config error, invaild port:0 !\n"},
        {5, 8089, "1.2.3.4", nullptr},
        {5, 8089, "255.255.255.255", nullptr},
        {5, 8089, "1.2.3.", "[zk_set_realtime_push] set realtime push config error, invaild ip: 1.2.3.!\n"},
        {5, 8089, "255.255.255.2550", "[zk_set_realtime_push] set realtime push config error, invaild ip: 255.255.255.2550!\n"},
        {5, 8089, "", "[zk_set_realtime_push] set realtime push config error, invaild ip: !\n"},
    };
    ConnectedArm arm;
    arm.controller().always("set_realtime_push").reply(kAccepted);
    for (const Case& c : cases) {
        LogCapture log(LOG_LEVEL_ERROR);
        zk_realtime_push_config_t config = push_config(c.ip.c_str());
        config.cycle = c.cycle;
        config.port = c.port;
        const size_t before = arm.sent().size();
        EXPECT_EQ(zk_set_realtime_push(arm.handle(), config), c.log_line ? -4 : 0) << c.ip;
        EXPECT_EQ(arm.sent().size(), before + (c.log_line ? 0 : 2)) << c.ip;
        if (c.log_line) {
            EXPECT_TRUE(log.contains(c.log_line)) << c.log_line;
        }
    }
}

TEST(RealtimePush, UnterminatedIpIsRefusedAndLoggedWithinTheField)
{
    ConnectedArm arm;
    LogCapture log(LOG_LEVEL_ERROR);
    zk_realtime_push_config_t config = push_config();
    std::memset(config.ip, '7', sizeof config.ip);
    EXPECT_EQ(zk_set_realtime_push(arm.handle(), config), -4);
    EXPECT_TRUE(log.contains("[zk_set_realtime_push] set realtime push config error, invaild ip: " +
                             std::string(sizeof config.ip, '7') + "!\n"));
    EXPECT_TRUE(arm.sent().empty());
}

TEST(RealtimePush, SetResultOfTheReply)
{
    struct Case {
        const char* reply;
        int result;
    };
    const Case cases[] = {
        {R"({"command":"set_realtime_push","state":false})", 1},
        {R"({"command":"set_realtime_push","set_state":true})", -3},
        {"", -2},
    };
    for (const Case& c : cases) {
        ConnectedArm arm;
        zk_set_timeout(100);
        if (*c.reply)
            arm.controller().on("set_realtime_push").reply(c.reply);
        else
            arm.controller().on("set_realtime_push").silence();
        EXPECT_EQ(zk_set_realtime_push(arm.handle(), push_config()), c.result) << c.reply;
        EXPECT_EQ(arm.sent().size(), 1u) << "no read-back after a failed set";
    }
    zk_robot_handle stranger{1};
    EXPECT_EQ(zk_set_realtime_push(&stranger, push_config()), -1);
}

TEST(RealtimePush, ReadBackFailureIsTheSetResult)
{
    ConnectedArm arm;
    zk_set_timeout(100);
    arm.controller().on("set_realtime_push").reply(kAccepted);
    arm.controller().on("get_realtime_push").reply(R"({"command":"get_realtime_push","cycle":5})");
    EXPECT_EQ(zk_set_realtime_push(arm.handle(), push_config()), -3);
}

// --- Reading the configuration -----------------------------------------------------------

TEST(RealtimePush, GetFillsTheRecordAndTheHandlesPort)
{
    struct Case {
        const char* product;
        const char* reply;
        int result;
        int force_coordinate;
    };
    const char* full =
        R"({"command":"get_realtime_push","cycle":10,"enable":true,"port":8090,"ip":"10.0.0.2","force_coordinate":1,)"
        R"("custom":{"joint_speed":true,"lift_state":false,"hand":true,"zk_plus_base":false,"zk_plus_state":1}})";
    const Case cases[] = {
        {"ZK-AX61-B", full, 0, -1},
        {"ZK-AX61-XF", full, 0, 1},
        {"ZK-AX61-XF",
         R"({"command":"get_realtime_push","cycle":10,"enable":true,"port":8090,"ip":"10.0.0.2","custom":{}})", -3, 0},
    };
    for (const Case& c : cases) {
        ConnectedArm arm(ZK_SINGLE_MODE_E, c.product);
        arm.controller().on("get_realtime_push").reply(c.reply);
        zk_realtime_push_config_t config{};
        ASSERT_EQ(zk_get_realtime_push(arm.handle(), &config), c.result) << c.product;
        EXPECT_EQ(arm.sent(), std::vector<std::string>{kGetRequest});
        if (c.result != 0) continue;
        EXPECT_EQ(config.cycle, 10);
        EXPECT_TRUE(config.enable);
        EXPECT_EQ(config.port, 8090);
        EXPECT_STREQ(config.ip, "10.0.0.2");
        EXPECT_EQ(config.force_coordinate, c.force_coordinate);
        const zk_udp_custom_config_t& custom = config.custom_config;
        EXPECT_EQ(custom.joint_speed, 1);
        EXPECT_EQ(custom.lift_state, 0);
        EXPECT_EQ(custom.expand_state, -1);
        EXPECT_EQ(custom.hand_state, 1);
        EXPECT_EQ(custom.arm_current_status, -1);
        EXPECT_EQ(custom.aloha_state, -1);
        EXPECT_EQ(custom.plus_base, 0);
        EXPECT_EQ(custom.plus_state, -1);  // a number is not a boolean
        EXPECT_EQ(gHandleList[0]->udp_port, 8090);
        EXPECT_EQ(registered_ports(), 0) << "single mode opens no local port: the host listens by itself";
    }
}

TEST(RealtimePush, GetRefusesAReplyWithoutItsMembers)
{
    const char* replies[] = {
        R"({"command":"get_realtime_push","enable":true,"port":8090,"ip":"10.0.0.2","custom":{}})",
        R"({"command":"get_realtime_push","cycle":1,"enable":true,"port":8090,"ip":"10.0.0.2"})",
        R"({"command":"get_realtime_push","cycle":1,"enable":true,"port":8090,"ip":7,"custom":{}})",
        R"({"command":"get_realtime_push","cycle":1,"port":8090,"ip":"10.0.0.2","custom":{}})",
    };
    for (const char* reply : replies) {
        ConnectedArm arm;
        arm.controller().on("get_realtime_push").reply(reply);
        zk_realtime_push_config_t config{};
        EXPECT_EQ(zk_get_realtime_push(arm.handle(), &config), -3) << reply;
        EXPECT_EQ(gHandleList[0]->udp_port, 8089) << "kept from the sync: " << reply;
    }
    ConnectedArm arm;
    EXPECT_EQ(zk_get_realtime_push(arm.handle(), nullptr), -6);
    EXPECT_TRUE(arm.sent().empty());
}

// --- Connecting reads the push configuration ---------------------------------------------

TEST(RealtimePush, ConnectingReadsThePushConfiguration)
{
    ConnectedArm arm;
    EXPECT_EQ(arm.controller().frames_named("get_realtime_push").size(), 1u);
    EXPECT_EQ(gHandleList[0]->udp_port, 8089);
}

TEST(RealtimePush, ControllerSilentOnThePushQueryFailsTheHandle)
{
    ScriptedController controller;
    controller.answer_sync();
    controller.on("get_realtime_push").silence();
    zk_init(ZK_SINGLE_MODE_E);
    zk_set_timeout(100);
    LogCapture log(LOG_LEVEL_ERROR);
    zk_robot_handle* handle = zk_create_robot_arm(ScriptedController::ip(), controller.port());
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->id, -1);
    EXPECT_TRUE(log.contains("[zk_get_realtime_push] get_realtime_push revice error\n"));
    EXPECT_TRUE(log.contains("[zk_create_robot_arm] get robot info err!\n"));
    zk_delete_robot_arm(handle);
    zk_destory();
}

}  // namespace

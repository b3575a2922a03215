#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Application/zk_handle.h"
#include "support/connected_arm.h"
#include "support/test_log.h"

namespace {

using zk_test::ConnectedArm;
using zk_test::LogCapture;
using zk_test::ScriptedController;

int unused_port()
{
    ScriptedController gone;
    return gone.port();
}

TEST(Lifecycle, DefaultsBeforeInit)
{
    EXPECT_EQ(g_mode.load(), ZK_TRIPLE_MODE_E);
    EXPECT_EQ(m_nOutTime.load(), 500);
    EXPECT_EQ(m_nOutTime_max.load(), 1000);
    EXPECT_EQ(m_nOutTime_modbus.load(), 1000);
    EXPECT_STREQ(zk_api_version(), "1.0.7");
}

TEST(Lifecycle, SetTimeoutLeavesTheModbusTimeoutAlone)
{
    zk_set_timeout(250);
    EXPECT_EQ(m_nOutTime.load(), 250);
    EXPECT_EQ(m_nOutTime_max.load(), 250);
    EXPECT_EQ(m_nOutTime_modbus.load(), 1000);
}

TEST(Lifecycle, ConnectedArmLearnsItsModel)
{
    ConnectedArm arm(ZK_SINGLE_MODE_E, "ZK-AX71-XF");
    EXPECT_EQ(arm.handle()->id, 1);
    int dof = 0;
    EXPECT_EQ(zk_get_arm_dof(arm.handle(), &dof), 0);
    EXPECT_EQ(dof, 7);
    zk_robot_info_t info{};
    EXPECT_EQ(zk_get_robot_info(arm.handle(), &info), 0);
    EXPECT_EQ(info.arm_dof, 7);
    EXPECT_EQ(info.arm_model, ZK_MODEL_AX_71_E);
    EXPECT_EQ(info.force_type, ZK_MODEL_ZK_XF_E);
}

TEST(Lifecycle, FailedConnectGivesAHandleWithIdMinusOneThatHoldsItsSlot)
{
    zk_init(ZK_SINGLE_MODE_E);
    LogCapture log(LOG_LEVEL_ERROR);
    zk_robot_handle* handle = zk_create_robot_arm("127.0.0.1", unused_port());
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->id, -1);
    EXPECT_TRUE(log.contains("[zk_create_robot_arm] socket connect err!\n"));
    EXPECT_NE(gHandleList[0], nullptr);
    EXPECT_EQ(zk_delete_robot_arm(handle), 0);
    EXPECT_EQ(gHandleList[0], nullptr);
    zk_destory();
}

TEST(Lifecycle, UnusableArgumentsGiveAFailedHandleAndTakeNoSlot)
{
    zk_init(ZK_SINGLE_MODE_E);
    const std::string long_ip(21, '1');
    for (const auto& [ip, port] : std::vector<std::pair<const char*, int>>{
             {nullptr, 8080}, {"127.0.0.1", 0}, {long_ip.c_str(), 8080}}) {
        zk_robot_handle* handle = zk_create_robot_arm(ip, port);
        ASSERT_NE(handle, nullptr);
        EXPECT_EQ(handle->id, -1);
        for (zk_handle_t* slot : gHandleList) EXPECT_EQ(slot, nullptr);
        EXPECT_EQ(zk_delete_robot_arm(handle), -1);
    }
    zk_destory();
}

TEST(Lifecycle, SyncFailureLeavesTheSocketOpenAndIdMinusOne)
{
    ScriptedController controller;  // never answers the software info query
    zk_init(ZK_SINGLE_MODE_E);
    zk_set_timeout(20);
    LogCapture log(LOG_LEVEL_ERROR);
    zk_robot_handle* handle = zk_create_robot_arm(ScriptedController::ip(), controller.port());
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->id, -1);
    EXPECT_TRUE(log.contains("[zk_create_robot_arm] get robot info err!\n"));
    EXPECT_EQ(controller.frames(), std::vector<std::string>{R"({"command":"get_arm_software_info"})"});
    // A failed slot still takes part in lookups: commands are sent on it.
    controller.clear_frames();
    int value = 0;
    EXPECT_EQ(zk_get_data_common(handle, &value, "get_x", "x"), -2);
    EXPECT_TRUE(controller.wait_for_frames(1));
    EXPECT_EQ(zk_get_robot_info(handle, nullptr), -6);
    zk_robot_info_t info{};
    EXPECT_EQ(zk_get_robot_info(handle, &info), -2);  // arm_dof unknown
    int dof = 0;
    EXPECT_EQ(zk_get_arm_dof(handle, &dof), -1);
    // Neither path leaves the table locked: delete still gets the write lock.
    EXPECT_EQ(zk_delete_robot_arm(handle), 0);
    zk_destory();
}

TEST(Lifecycle, SixthArmIsRefusedWithNull)
{
    ScriptedController controller;
    controller.answer_sync("ZK-AX61-B");
    zk_init(ZK_SINGLE_MODE_E);
    std::vector<zk_robot_handle*> handles;
    for (int i = 0; i < 5; ++i) {
        handles.push_back(zk_create_robot_arm(ScriptedController::ip(), controller.port()));
        EXPECT_EQ(handles.back()->id, i + 1);
    }
    LogCapture log(LOG_LEVEL_ERROR);
    EXPECT_EQ(zk_create_robot_arm(ScriptedController::ip(), controller.port()), nullptr);
    EXPECT_TRUE(log.contains("[zk_create_robot_arm] robot num is max"));
    // A freed slot is reused, with its own id.
    EXPECT_EQ(zk_delete_robot_arm(handles[2]), 0);
    zk_robot_handle* again = zk_create_robot_arm(ScriptedController::ip(), controller.port());
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->id, 3);
    zk_destory();
}

TEST(Lifecycle, DeletedHandleIsNotFoundAgain)
{
    ConnectedArm arm;
    zk_robot_handle* handle = arm.handle();
    LogCapture log(LOG_LEVEL_ERROR);
    ASSERT_EQ(zk_delete_robot_arm(handle), 0);
    EXPECT_EQ(zk_delete_robot_arm(handle), -1);
    EXPECT_TRUE(log.contains("not find handle\n"));
    int dof = 0;
    EXPECT_EQ(zk_get_arm_dof(handle, &dof), -1);
    EXPECT_EQ(zk_get_arm_dof(nullptr, &dof), -1);
    EXPECT_EQ(zk_get_arm_dof(handle, nullptr), -6);
}

TEST(Lifecycle, DestroyClosesEveryConnection)
{
    ScriptedController controller;
    controller.answer_sync();
    zk_init(ZK_SINGLE_MODE_E);
    zk_create_robot_arm(ScriptedController::ip(), controller.port());
    zk_create_robot_arm(ScriptedController::ip(), controller.port());
    ASSERT_EQ(controller.connection_count(), 2u);
    EXPECT_EQ(zk_destory(), 0);
    for (zk_handle_t* slot : gHandleList) EXPECT_EQ(slot, nullptr);
    for (int i = 0; i < 200 && controller.connection_count() > 0; ++i) usleep(1000);
    EXPECT_EQ(controller.connection_count(), 0u);
}

// --- Model and force edition from the product text ------------------------------------

struct ModelCase {
    const char* product;
    int result;
    zk_robot_arm_model_e model;
    int dof;
    zk_force_type_e force;
};

class ModelDerivation : public ::testing::TestWithParam<ModelCase> {};

TEST_P(ModelDerivation, FirstHitWinsInSearchOrder)
{
    const ModelCase c = GetParam();
    ConnectedArm arm(ZK_SINGLE_MODE_E, "ZK-AX61-B");
    arm.controller().on("get_arm_software_info")
        .reply(std::string(R"({"command":"arm_software_info","Product_version":")") + c.product + "\"}");
    zk_arm_software_version_t info{};
    EXPECT_EQ(zk_get_arm_software_info(arm.handle(), &info), c.result);
    zk_robot_info_t robot{};
    zk_get_robot_info(arm.handle(), &robot);
    EXPECT_EQ(robot.arm_model, c.model);
    EXPECT_EQ(robot.arm_dof, c.dof);
    if (c.result == 0) {
        EXPECT_EQ(robot.force_type, c.force);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, ModelDerivation,
    ::testing::Values(ModelCase{"ZK-AX61-B", 0, ZK_MODEL_AX_61_E, 6, ZK_MODEL_ZK_B_E},
                      ModelCase{"ZK-AX71-QF", 0, ZK_MODEL_AX_71_E, 7, ZK_MODEL_ZK_QF_E},
                      ModelCase{"AL64III-XFB", 0, ZK_MODEL_AL_64_III_E, 6, ZK_MODEL_ZK_IXF_E},
                      ModelCase{"AL64I-XF", 0, ZK_MODEL_AL_64_II_E, 6, ZK_MODEL_ZK_XF_E},
                      ModelCase{"LUM61-B", 0, ZK_MODEL_LUM_61_E, 6, ZK_MODEL_ZK_B_E},
                      ModelCase{"LUM66-B", 0, ZK_MODEL_LUM_66_E, 6, ZK_MODEL_ZK_B_E},
                      ModelCase{"TOR77-B", 0, ZK_MODEL_TOR_77_E, 7, ZK_MODEL_ZK_B_E},
                      ModelCase{"LUM67-B", 0, ZK_MODEL_LUM_67_E, 6, ZK_MODEL_ZK_B_E},
                      ModelCase{"AX61AX71-B", 0, ZK_MODEL_AX_61_E, 6, ZK_MODEL_ZK_B_E},
                      // No force text: the model is set all the same.
                      ModelCase{"ZK-LUM66", -1, ZK_MODEL_LUM_66_E, 6, ZK_MODEL_ZK_B_E},
                      // Unknown model: the fields keep the connected arm's values.
                      ModelCase{"XYZ-B", -1, ZK_MODEL_AX_61_E, 6, ZK_MODEL_ZK_B_E}));

// --- Text caps of the software info -----------------------------------------------------

TEST(SoftwareInfo, TextsAreCappedAndLogged)
{
    ConnectedArm arm;
    arm.controller().on("get_arm_software_info").reply(
        R"({"command":"arm_software_info","Product_version":"ZK-AX61-B-0123456789",)"
        R"("algorithm_info":{"version":"ALGO-0123456789-0123456789"},)"
        R"("ctrl_info":{"version":"CTRL-0123456789","build_time":"2026-11-23 10:11:12.345678"},)"
        R"("dynamic_info":{"model_version":"M-0123"},"plan_info":{"version":"ignored","build_time":"ignored"}})");
    LogCapture log(LOG_LEVEL_INFO);
    zk_arm_software_version_t info{};
    ASSERT_EQ(zk_get_arm_software_info(arm.handle(), &info), 0);
    EXPECT_STREQ(info.product_version, "ZK-AX61-B-0123");
    EXPECT_STREQ(info.algorithm_info.version, "ALGO-0123456789-012");
    EXPECT_STREQ(info.ctrl_info.version, "CTRL-012");
    EXPECT_STREQ(info.ctrl_info.build_time, "2026-11-23 10:11:12");
    EXPECT_STREQ(info.dynamic_info.model_version, "M-01");
    // The planner's texts are read from "ctrl_info".
    EXPECT_STREQ(info.plan_info.version, "CTRL-012");
    EXPECT_STREQ(info.plan_info.build_time, "2026-11-23 10:11:1");
    EXPECT_TRUE(log.contains("[zk_get_arm_software_info] Product version: ZK-AX61-B-0123\n"));
}

struct SoftwareFailure {
    const char* reply;
    const char* log_line;
};

class SoftwareInfoFailure : public ::testing::TestWithParam<SoftwareFailure> {};

TEST_P(SoftwareInfoFailure, ReturnsMinusOneWithItsLine)
{
    ConnectedArm arm;
    arm.controller().on("get_arm_software_info").reply(GetParam().reply);
    LogCapture log(LOG_LEVEL_ERROR);
    zk_arm_software_version_t info{};
    EXPECT_EQ(zk_get_arm_software_info(arm.handle(), &info), -1);
    EXPECT_TRUE(log.contains(GetParam().log_line)) << ::testing::PrintToString(log.lines());
}

INSTANTIATE_TEST_SUITE_P(
    Table, SoftwareInfoFailure,
    ::testing::Values(
        SoftwareFailure{R"({"command":"arm_software_info"})", "[zk_get_arm_software_info] Product version parse err\n"},
        SoftwareFailure{R"({"command":"arm_software_info","Product_version":"AX61-B","algorithm_info":{}})",
                        "[zk_get_arm_software_info] Algorithm version parse err\n"},
        SoftwareFailure{R"({"command":"arm_software_info","Product_version":"AX61-B","ctrl_info":{"build_time":"x"}})",
                        "[zk_get_arm_software_info] Ctrl version parse err\n"},
        SoftwareFailure{R"({"command":"arm_software_info","Product_version":"AX61-B","ctrl_info":{"version":"x"}})",
                        "[zk_get_arm_software_info] Ctrl build Time parse err\n"},
        SoftwareFailure{R"({"command":"arm_software_info","Product_version":"AX61-B","dynamic_info":{"x":1}})",
                        "[zk_get_arm_software_info] Dynamic model version parse err\n"},
        SoftwareFailure{R"({"command":"arm_software_info","Product_version":"AX61-B","plan_info":{"version":"1"}})",
                        "[zk_get_arm_software_info] Plan version parse err\n"},
        SoftwareFailure{R"({"command":"arm_software_info","Product_version":"XX"})", "Unknown arm model: XX\n"},
        SoftwareFailure{R"({"command":"arm_software_info","Product_version":"AX61"})", "Unknown force type: AX61\n"}));

TEST(SoftwareInfo, ReplyThatIsNotJsonNeverMatchesAndTimesOut)
{
    ConnectedArm arm;
    zk_set_timeout(40);
    arm.controller().on("get_arm_software_info").reply_raw("{\"command\":\"arm_software_info\",\r\n");
    zk_arm_software_version_t info{};
    EXPECT_EQ(zk_get_arm_software_info(arm.handle(), &info), -2);
    EXPECT_EQ(zk_get_arm_software_info(arm.handle(), nullptr), -6);
}

}  // namespace

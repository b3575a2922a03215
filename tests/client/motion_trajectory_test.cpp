// The current-trajectory query: every kind, the scales of its data, and the refusals.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "support/connected_arm.h"
#include "support/test_log.h"
#include "zk_api.h"

namespace {

using namespace std::chrono_literals;
using zk_test::ConnectedArm;
using zk_test::LogCapture;

const std::string kData = "[1500,-2000,3000,4000,-5000,6000,7000]";

std::string reply(const std::string& type, const std::string& data = kData)
{
    return R"({"command":"arm_current_trajectory","type":")" + type + R"(","data":)" + data + "}";
}

struct KindCase {
    const char* wire;
    zk_arm_current_trajectory_e kind;
    bool cartesian;
    const char* log_line;
};

class TrajectoryKind : public ::testing::TestWithParam<KindCase> {};

TEST_P(TrajectoryKind, TypeDataAndItsLine)
{
    const KindCase c = GetParam();
    ConnectedArm arm;
    LogCapture log(LOG_LEVEL_INFO);
    arm.controller().on("get_arm_current_trajectory").reply(reply(c.wire));
    zk_arm_current_trajectory_e type = static_cast<zk_arm_current_trajectory_e>(7);
    float data[7] = {99, 99, 99, 99, 99, 99, 99};
    ASSERT_EQ(zk_get_arm_current_trajectory(arm.handle(), &type, data), 0);
    EXPECT_EQ(type, c.kind);
    EXPECT_EQ(arm.sent(), std::vector<std::string>{R"({"command":"get_arm_current_trajectory"})"});
    EXPECT_TRUE(log.contains(std::string("[zk_get_arm_current_trajectory] Current trajectory is ") + c.log_line + "!\n"))
        << ::testing::PrintToString(log.lines());
    const float joints[7] = {1.5f, -2.0f, 3.0f, 4.0f, -5.0f, 6.0f, 99};  // six joints: the seventh stays
    const float pose[7] = {0.0015f, -0.002f, 0.003f, 4.0f, -5.0f, 6.0f, 99};
    for (int i = 0; i < 7; ++i) EXPECT_FLOAT_EQ(data[i], c.cartesian ? pose[i] : joints[i]) << i;
}

INSTANTIATE_TEST_SUITE_P(Kinds, TrajectoryKind,
                         ::testing::Values(KindCase{"none", ZK_NO_PLANNING_E, false, "None"},
                                           KindCase{"movej", ZK_JOINT_SPACE_PLANNING_E, false, "MoveJ"},
                                           KindCase{"movel", ZK_CARTESIAN_LINEAR_PLANNING_E, true, "MoveL"},
                                           KindCase{"moves", ZK_SPLINE_CURVE_MOTION_PLANNING_E, true, "MoveS"},
                                           KindCase{"movec", ZK_CARTESIAN_ARC_PLANNING_E, true, "MoveC"},
                                           KindCase{"re_trajectory", ZK_TRAJECTORY_REPLAY_PLANNING_E, false,
                                                    "Re_trajectory"}),
                         [](const auto& info) { return std::string(info.param.wire); });

struct RefusalCase {
    const char* name;
    std::string reply;
    const char* log_line;
};

class TrajectoryRefusal : public ::testing::TestWithParam<RefusalCase> {};

TEST_P(TrajectoryRefusal, MinusOneWithItsLineAndNothingWritten)
{
    ConnectedArm arm;
    LogCapture log(LOG_LEVEL_ERROR);
    arm.controller().on("get_arm_current_trajectory").reply(GetParam().reply);
    zk_arm_current_trajectory_e type = ZK_TRAJECTORY_REPLAY_PLANNING_E;
    float data[7] = {99, 99, 99, 99, 99, 99, 99};
    EXPECT_EQ(zk_get_arm_current_trajectory(arm.handle(), &type, data), -1);
    EXPECT_TRUE(log.contains(GetParam().log_line)) << ::testing::PrintToString(log.lines());
    EXPECT_EQ(type, ZK_TRAJECTORY_REPLAY_PLANNING_E);
    EXPECT_EQ(data[0], 99);
}

const char* kParseErr = "[zk_get_arm_current_trajectory] Get arm current trajectory parse err\n";
const char* kDataErr = "[zk_get_arm_current_trajectory] Data type parse err\n";

INSTANTIATE_TEST_SUITE_P(
    Replies, TrajectoryRefusal,
    ::testing::Values(
        RefusalCase{"unknownType", reply("movez"), "[zk_get_arm_current_trajectory] Unknown trajectory type: movez\n"},
        RefusalCase{"noType", R"({"command":"arm_current_trajectory","data":[1,2,3,4,5,6]})", kParseErr},
        RefusalCase{"typeNotText", R"({"command":"arm_current_trajectory","type":1,"data":[1,2,3,4,5,6]})", kParseErr},
        RefusalCase{"noData", R"({"command":"arm_current_trajectory","type":"movej"})", kParseErr},
        RefusalCase{"dataNotArray", reply("movej", "7"), kDataErr},
        RefusalCase{"dataObject", reply("movel", R"({"x":1})"), kDataErr}),
    [](const auto& info) { return info.param.name; });

TEST(TrajectoryQuery, SevenJointArmReadsSevenAngles)
{
    ConnectedArm arm(ZK_SINGLE_MODE_E, "ZK-TOR77-B");
    arm.controller().on("get_arm_current_trajectory").reply(reply("re_trajectory"));
    zk_arm_current_trajectory_e type{};
    float data[7] = {};
    ASSERT_EQ(zk_get_arm_current_trajectory(arm.handle(), &type, data), 0);
    EXPECT_FLOAT_EQ(data[6], 7.0f);
}

// The array is read as the JSON layer reads integer arrays: what it lacks, or holds as
// something other than a number, reads as -1 and is scaled like the rest.
struct ShortDataCase {
    const char* name;
    const char* product;
    std::string reply;
    zk_arm_current_trajectory_e kind;
    float expected[7];
};

class TrajectoryShortData : public ::testing::TestWithParam<ShortDataCase> {};

TEST_P(TrajectoryShortData, MissingValuesReadAsMinusOne)
{
    const ShortDataCase& c = GetParam();
    ConnectedArm arm(ZK_SINGLE_MODE_E, c.product);
    arm.controller().on("get_arm_current_trajectory").reply(c.reply);
    zk_arm_current_trajectory_e type{};
    float data[7] = {99, 99, 99, 99, 99, 99, 99};
    ASSERT_EQ(zk_get_arm_current_trajectory(arm.handle(), &type, data), 0);
    EXPECT_EQ(type, c.kind);
    for (int i = 0; i < 7; ++i) EXPECT_FLOAT_EQ(data[i], c.expected[i]) << i;
}

INSTANTIATE_TEST_SUITE_P(
    Replies, TrajectoryShortData,
    ::testing::Values(
        ShortDataCase{"sevenJointsSixSent", "ZK-TOR77-B", reply("movej", "[1000,2000,3000,4000,5000,6000]"),
                      ZK_JOINT_SPACE_PLANNING_E, {1, 2, 3, 4, 5, 6, -0.001f}},
        ShortDataCase{"emptyWhileIdle", "ZK-AX61-B", reply("none", "[]"), ZK_NO_PLANNING_E,
                      {-0.001f, -0.001f, -0.001f, -0.001f, -0.001f, -0.001f, 99}},
        ShortDataCase{"poseShortAndText", "ZK-AX61-B", reply("movel", R"([1000000,2000000,3000000,"4",5000])"),
                      ZK_CARTESIAN_LINEAR_PLANNING_E, {1, 2, 3, -0.001f, 5, -0.001f, 99}}),
    [](const auto& info) { return info.param.name; });

TEST(TrajectoryQuery, WaitsItsOwnSecondWhateverTheReplyTimeout)
{
    ConnectedArm arm;
    zk_set_timeout(20);
    arm.controller().on("get_arm_current_trajectory").reply(reply("movej")).after(200ms);
    zk_arm_current_trajectory_e type{};
    float data[7] = {};
    EXPECT_EQ(zk_get_arm_current_trajectory(arm.handle(), &type, data), 0);
    EXPECT_EQ(type, ZK_JOINT_SPACE_PLANNING_E);
}

}  // namespace

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/test_log.h"
#include "zk_api.h"

namespace {

using zk_test::LogCapture;

// The three blocks every datagram must carry, with neutral values.
const std::string kRequired =
    R"("joint_status":{},"waypoint":{"quat":[1000000,0,0,0],"euler":[0,0,0],"position":[0,0,0]},"err":[0])";

// A datagram of the required blocks plus `extra` members, written first.
std::string datagram(const std::string& extra = "")
{
    return "{" + extra + (extra.empty() ? "" : ",") + kRequired + "}";
}

struct ParseCase {
    const char* name;
    std::string text;
    int result;
};

class ParseResult : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ParseResult, OfTheDatagram)
{
    zk_realtime_arm_joint_state_t state;
    std::memset(&state, 0x5a, sizeof state);
    EXPECT_EQ(parse_zk_realtime_arm_joint_state(GetParam().text.c_str(), &state), GetParam().result);
}

const std::string kWaypoint = R"("waypoint":{"quat":[1,0,0,0],"euler":[0,0,0],"position":[0,0,0]})";
const std::string kJoints = R"("joint_status":{})";

INSTANTIATE_TEST_SUITE_P(
    Datagrams, ParseResult,
    ::testing::Values(
        ParseCase{"requiredOnly", datagram(), 0},
        ParseCase{"notJson", "{\"joint_status\":", -3},
        ParseCase{"notAnObject", "[1,2,3]", -3},
        ParseCase{"noJointStatus", "{" + kWaypoint + R"(,"err":[0]})", -3},
        ParseCase{"jointStatusNotObject", R"({"joint_status":[],)" + kWaypoint + R"(,"err":[0]})", -3},
        ParseCase{"noWaypoint", "{" + kJoints + R"(,"err":[0]})", -3},
        ParseCase{"noErr", "{" + kJoints + "," + kWaypoint + "}", -3},
        ParseCase{"emptyErr", "{" + kJoints + "," + kWaypoint + R"(,"err":[]})", -3},
        ParseCase{"errNotArray", "{" + kJoints + "," + kWaypoint + R"(,"err":0})", -3},
        ParseCase{"quatOfThree",
                  R"({"joint_status":{},"waypoint":{"quat":[1,0,0],"euler":[0,0,0],"position":[0,0,0]},"err":[0]})",
                  -3},
        ParseCase{"eulerOfFour",
                  R"({"joint_status":{},"waypoint":{"quat":[1,0,0,0],"euler":[0,0,0,0],"position":[0,0,0]},"err":[0]})",
                  -3},
        ParseCase{"noPosition", R"({"joint_status":{},"waypoint":{"quat":[1,0,0,0],"euler":[0,0,0]},"err":[0]})", -3},
        ParseCase{"jointArraysOfAnyLength",
                  datagram(R"("joint_status":{"joint_position":[1,2,3,4,5,6,7,8,9],"joint_speed":[1]})"), 0},
        ParseCase{"jointArrayOfWrongTypeSkipped", datagram(R"("joint_status":{"joint_position":5})"), 0},
        ParseCase{"unknownStatusText", datagram(R"("arm_current_status":"dancing")"), 0},
        ParseCase{"statusNotText", datagram(R"("arm_current_status":3)"), -3},
        ParseCase{"plusStateOffline", datagram(R"("zk_plus_state":"offline")"), 0},
        ParseCase{"plusStateUnknownText", datagram(R"("zk_plus_state":"asleep")"), -3},
        ParseCase{"plusBaseUnknownText", datagram(R"("zk_plus_base":"asleep")"), -3},
        ParseCase{"plusStateNumberSkipped", datagram(R"("zk_plus_state":3)"), 0},
        ParseCase{"handWithoutErr", datagram(R"("hand":{"hand_pos":[1],"hand_angle":[],"hand_force":[],"hand_state":[]})"),
                  -3},
        ParseCase{"handArrayNotArray",
                  datagram(R"("hand":{"hand_pos":1,"hand_angle":[],"hand_force":[],"hand_state":[],"hand_err":0})"), -3},
        ParseCase{"handNotObjectSkipped", datagram(R"("hand":[1,2])"), 0},
        ParseCase{"liftWithoutEnFlag", datagram(R"("lift_state":{"pos":1,"height":2,"current":3,"err_flag":0})"), -3},
        ParseCase{"expandWithoutMode",
                  datagram(R"("expand_state":{"joint_id":1,"pos":1,"current":3,"err_flag":0,"en_flag":1})"), -3},
        ParseCase{"alohaWithTextState", datagram(R"("aloha_state":{"io1_state":1,"io2_state":"on"})"), -3},
        ParseCase{"forceSensorMembersAllOptional", datagram(R"("six_force_sensor":{"force":"none"})"), 0}),
    [](const auto& info) { return info.param.name; });

TEST(RealtimeState, UnreadableDatagramIsLoggedAndLeavesAZeroRecord)
{
    LogCapture log(LOG_LEVEL_DEBUG);
    zk_realtime_arm_joint_state_t state;
    std::memset(&state, 0x5a, sizeof state);
    EXPECT_EQ(parse_zk_realtime_arm_joint_state("not json", &state), -3);
    EXPECT_TRUE(log.contains("[zk_realtime_arm_joint_state] parse err\n"));
    const zk_realtime_arm_joint_state_t zero{};
    EXPECT_EQ(std::memcmp(&state, &zero, sizeof state), 0);
    EXPECT_EQ(parse_zk_realtime_arm_joint_state(nullptr, &state), -3);
    EXPECT_EQ(parse_zk_realtime_arm_joint_state(datagram().c_str(), nullptr), -3);
}

TEST(RealtimeState, WireIntegersAreScaledInSinglePrecision)
{
    const char* text =
        R"({"joint_status":{"joint_position":[90000,-45500,16777219],"joint_current":[1500],)"
        R"("joint_en_flag":[1,0,7],"joint_err_code":[65537,-1],"joint_temperature":[36600],)"
        R"("joint_voltage":[48125],"joint_speed":[1000,-500]},)"
        R"("lift_state":{"pos":250,"height":800,"current":12,"err_flag":1,"en_flag":1},)"
        R"("expand_state":{"joint_id":3,"mode":2,"pos":-1500,"current":7,"err_flag":0,"en_flag":1},)"
        R"("six_force_sensor":{"force":[1000,-2500],"zero_force":[500],"coordinate":1},)"
        R"("waypoint":{"quat":[707107,0,-707107,16777217],"euler":[3142,-1571,100],)"
        R"("position":[1234567,-500000,16777217]},"err":[4096,-7,0]})";
    zk_realtime_arm_joint_state_t s{};
    ASSERT_EQ(parse_zk_realtime_arm_joint_state(text, &s), 0);
    const zk_joint_status_t& j = s.joint_status;
    EXPECT_FLOAT_EQ(j.joint_position[0], 90.0f);
    EXPECT_FLOAT_EQ(j.joint_position[1], -45.5f);
    EXPECT_EQ(j.joint_position[2], 16777219.0f / 1000.0f);  // float division: 16777.2207, not 16777.2188
    EXPECT_NE(j.joint_position[2], static_cast<float>(16777219 / 1000.0));
    EXPECT_EQ(j.joint_position[3], 0.0f);
    EXPECT_FLOAT_EQ(j.joint_current[0], 1.5f);
    EXPECT_TRUE(j.joint_en_flag[0]);
    EXPECT_FALSE(j.joint_en_flag[1]);
    EXPECT_TRUE(j.joint_en_flag[2]);
    EXPECT_EQ(j.joint_err_code[0], 1);
    EXPECT_EQ(j.joint_err_code[1], 0xffff);
    EXPECT_FLOAT_EQ(j.joint_temperature[0], 36.6f);
    EXPECT_FLOAT_EQ(j.joint_voltage[0], 48.125f);
    EXPECT_FLOAT_EQ(j.joint_speed[0], 6.0f);
    EXPECT_FLOAT_EQ(j.joint_speed[1], -3.0f);

    EXPECT_FLOAT_EQ(s.liftState.pos, 0.25f);
    EXPECT_EQ(s.liftState.height, 800);
    EXPECT_EQ(s.liftState.current, 12);
    EXPECT_EQ(s.liftState.err_flag, 1);
    EXPECT_EQ(s.liftState.en_flag, 1);
    EXPECT_EQ(s.expandState.joint_id, 3);
    EXPECT_EQ(s.expandState.mode, 2);
    EXPECT_FLOAT_EQ(s.expandState.pos, -1.5f);
    EXPECT_EQ(s.expandState.current, 7);
    EXPECT_EQ(s.expandState.en_flag, 1);

    EXPECT_FLOAT_EQ(s.force_sensor.force[0], 1.0f);
    EXPECT_FLOAT_EQ(s.force_sensor.force[1], -2.5f);
    EXPECT_FLOAT_EQ(s.force_sensor.zero_force[0], 0.5f);
    EXPECT_EQ(s.force_sensor.coordinate, 1);

    const zk_pose_t& p = s.waypoint;
    EXPECT_FLOAT_EQ(p.quaternion.w, 0.707107f);
    EXPECT_FLOAT_EQ(p.quaternion.x, 0.0f);
    EXPECT_FLOAT_EQ(p.quaternion.y, -0.707107f);
    EXPECT_EQ(p.quaternion.z, 16777217.0f / 1000000.0f);
    EXPECT_FLOAT_EQ(p.euler.rx, 3.142f);
    EXPECT_FLOAT_EQ(p.euler.ry, -1.571f);
    EXPECT_FLOAT_EQ(p.euler.rz, 0.1f);
    EXPECT_FLOAT_EQ(p.position.x, 1.234567f);
    EXPECT_FLOAT_EQ(p.position.y, -0.5f);
    EXPECT_EQ(p.position.z, 16777217.0f / 1000000.0f);

    EXPECT_EQ(s.err.err_len, 3);
    EXPECT_EQ(s.err.err[0], 4096);
    EXPECT_EQ(s.err.err[1], -7);
    EXPECT_EQ(s.errCode, 0);
    EXPECT_EQ(s.arm_current_status, ZK_IDLE_E);
}

TEST(RealtimeState, LaterForceSensorOverwritesTheEarlier)
{
    zk_realtime_arm_joint_state_t s{};
    ASSERT_EQ(parse_zk_realtime_arm_joint_state(
                  datagram(R"("one_force_sensor":{"force":[3000],"coordinate":2},)"
                           R"("six_force_sensor":{"force":[1000,2000],"zero_force":[100],"coordinate":1})")
                      .c_str(),
                  &s),
              0);
    EXPECT_FLOAT_EQ(s.force_sensor.force[0], 3.0f);
    EXPECT_FLOAT_EQ(s.force_sensor.force[1], 2.0f);  // the one-axis block has no second entry
    EXPECT_FLOAT_EQ(s.force_sensor.zero_force[0], 0.1f);
    EXPECT_EQ(s.force_sensor.coordinate, 2);
}

TEST(RealtimeState, FailedBlockKeepsWhatWasReadBefore)
{
    zk_realtime_arm_joint_state_t s{};
    EXPECT_EQ(parse_zk_realtime_arm_joint_state(
                  datagram(R"("aloha_state":{"io1_state":1,"io2_state":0},)"
                           R"("hand":{"hand_pos":[10,20],"hand_angle":[30],"hand_force":[40],"hand_state":[1]},)"
                           R"("lift_state":{"pos":1,"height":2,"current":3,"err_flag":0,"en_flag":1})")
                      .c_str(),
                  &s),
              -3);
    EXPECT_EQ(s.aloha_state.io1_state, 1);
    EXPECT_EQ(s.handState.hand_pos[0], 10);
    EXPECT_EQ(s.handState.hand_pos[1], 20);
    EXPECT_EQ(s.handState.hand_angle[0], 30);
    EXPECT_EQ(s.handState.hand_force[0], 40);
    EXPECT_EQ(s.handState.hand_state[0], 1);
    EXPECT_EQ(s.liftState.height, 0);  // read after the hand, so never reached
}

TEST(RealtimeState, EndEffectorStatusTexts)
{
    struct Case {
        const char* members;
        int result;
        int plus_state;
    };
    const Case cases[] = {
        {R"("zk_plus_state":"disable")", 0, 1},
        {R"("zk_plus_state":"offline")", 0, 2},
        {R"("zk_plus_base":"offline")", 0, 2},
        {R"("zk_plus_state":"disable","zk_plus_base":"offline")", 0, 2},
        {R"("zk_plus_state":"Offline")", -3, 0},
    };
    for (const Case& c : cases) {
        LogCapture log(LOG_LEVEL_WARN);
        zk_realtime_arm_joint_state_t s{};
        EXPECT_EQ(parse_zk_realtime_arm_joint_state(
                      datagram(std::string(c.members) + R"(,"hand":{"hand_pos":[5],"hand_angle":[],"hand_force":[],)"
                                                        R"("hand_state":[],"hand_err":9})")
                          .c_str(),
                      &s),
                  c.result)
            << c.members;
        EXPECT_EQ(s.zk_plus_state, c.plus_state) << c.members;
        // A known text leaves the rest of the datagram to be read; an unknown one ends it.
        EXPECT_EQ(s.handState.hand_err, c.result == 0 ? 9 : 0) << c.members;
        EXPECT_EQ(log.contains("[zk_realtime_arm_joint_state] parse zk_plus_state :Offline\n"), c.result != 0);
    }
}

TEST(RealtimeState, EndEffectorObjects)
{
    zk_realtime_arm_joint_state_t s{};
    ASSERT_EQ(parse_zk_realtime_arm_joint_state(
                  datagram(R"("zk_plus_state":{"sys_state":3,"dof_state":[1,1],"dof_err":[0,4],"pos":[100],)"
                           R"("speed":[5],"angle":[-90],"current":[250],"normal_force":[1,2,3],)"
                           R"("tangential_force":[4],"tangential_force_dir":[5],"touch_data":[6],"force":[7],)"
                           R"("tma":[-1,4294967296,4294967295,7.9,"x"],"tsa":[0,1e12,12]},)"
                           R"("zk_plus_base":{"manu":"ZK","type":2,"hv":"H1.0","sv":"S2.1","bv":"B0.3","id":9,)"
                           R"("dof":6,"check":1,"bee":0,"force":true,"touch":false,"touch_num":5,"touch_sw":1,)"
                           R"("hand":1,"pos_up":[1000],"pos_low":[-1000],"angle_up":[90],"angle_low":[-90],)"
                           R"("speed_up":[50],"speed_low":[1],"force_up":[30],"force_low":[2]})")
                      .c_str(),
                  &s),
              0);
    const zk_plus_state_info_t& st = s.plus_state_info;
    EXPECT_EQ(s.zk_plus_state, 0);
    EXPECT_EQ(st.sys_state, 3);
    EXPECT_EQ(st.dof_state[1], 1);
    EXPECT_EQ(st.dof_err[1], 4);
    EXPECT_EQ(st.pos[0], 100);
    EXPECT_EQ(st.speed[0], 5);
    EXPECT_EQ(st.angle[0], -90);
    EXPECT_EQ(st.current[0], 250);
    EXPECT_EQ(st.normal_force[2], 3);
    EXPECT_EQ(st.tangential_force[0], 4);
    EXPECT_EQ(st.tangential_force_dir[0], 5);
    EXPECT_EQ(st.touch_data[0], 6);
    EXPECT_EQ(st.force[0], 7);
    const uint32_t expected_tma[] = {0, 0, 4294967295u, 7, 0};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(st.tma[i], expected_tma[i]) << i;
    EXPECT_EQ(st.tsa[1], 0u);
    EXPECT_EQ(st.tsa[2], 12u);

    const zk_plus_base_info_t& b = s.plus_base_info;
    EXPECT_STREQ(b.manu, "ZK");
    EXPECT_STREQ(b.hv, "H1.0");
    EXPECT_STREQ(b.sv, "S2.1");
    EXPECT_STREQ(b.bv, "B0.3");
    EXPECT_EQ(b.type, 2);
    EXPECT_EQ(b.id, 9);
    EXPECT_EQ(b.dof, 6);
    EXPECT_EQ(b.check, 1);
    EXPECT_TRUE(b.force);
    EXPECT_FALSE(b.touch);
    EXPECT_EQ(b.touch_num, 5);
    EXPECT_EQ(b.touch_sw, 1);
    EXPECT_EQ(b.hand, 1);
    EXPECT_EQ(b.pos_up[0], 1000);
    EXPECT_EQ(b.pos_low[0], -1000);
    EXPECT_EQ(b.angle_up[0], 90);
    EXPECT_EQ(b.angle_low[0], -90);
    EXPECT_EQ(b.speed_up[0], 50);
    EXPECT_EQ(b.speed_low[0], 1);
    EXPECT_EQ(b.force_up[0], 30);
    EXPECT_EQ(b.force_low[0], 2);
}

// Elements beyond a field's capacity are dropped; the neighbouring fields keep their own
// values (and AddressSanitizer watches the rest).
TEST(RealtimeState, OverlongArraysAndTextsStayInTheirFields)
{
    auto run = [](int count, int first) {
        std::string a = "[";
        for (int i = 0; i < count; ++i) a += (i ? "," : "") + std::to_string(first + i);
        return a + "]";
    };
    const std::string text =
        R"({"joint_status":{"joint_current":)" + run(30, 1000) + R"(,"joint_en_flag":)" + run(30, 1) +
        R"(,"joint_err_code":)" + run(30, 1) + R"(,"joint_position":)" + run(30, 1000) + R"(},)" +
        R"("hand":{"hand_pos":)" + run(30, 1) + R"(,"hand_angle":)" + run(30, 100) + R"(,"hand_force":)" + run(30, 1) +
        R"(,"hand_state":)" + run(30, 1) + R"(,"hand_err":77},)" +
        R"("zk_plus_state":{"normal_force":)" + run(40, 1) + R"(,"tangential_force":)" + run(40, 500) +
        R"(,"tma":)" + run(40, 1) + R"(,"tsa":)" + run(40, 1) + R"(},)" +
        R"("zk_plus_base":{"manu":"ABCDEFGHIJKLMNOPQRSTUVWXYZ","type":5,"pos_up":)" + run(40, 1) +
        R"(,"pos_low":)" + run(40, 900) + R"(},)" +
        R"("waypoint":{"quat":[1,0,0,0],"euler":[0,0,0],"position":[0,0,0]},"err":)" + run(40, 1) + "}";
    zk_realtime_arm_joint_state_t s{};
    ASSERT_EQ(parse_zk_realtime_arm_joint_state(text.c_str(), &s), 0);
    EXPECT_FLOAT_EQ(s.joint_status.joint_current[6], 1.006f);
    EXPECT_TRUE(s.joint_status.joint_en_flag[0]);
    EXPECT_EQ(s.joint_status.joint_err_code[6], 7);
    EXPECT_FLOAT_EQ(s.joint_status.joint_position[0], 1.0f);
    EXPECT_EQ(s.handState.hand_pos[5], 6);
    EXPECT_EQ(s.handState.hand_angle[0], 100);
    EXPECT_EQ(s.handState.hand_err, 77);
    EXPECT_EQ(s.plus_state_info.normal_force[17], 18);
    EXPECT_EQ(s.plus_state_info.tangential_force[0], 500);
    EXPECT_EQ(s.plus_state_info.tma[11], 12u);
    EXPECT_STREQ(s.plus_base_info.manu, "ABCDEFGHI");
    EXPECT_EQ(s.plus_base_info.type, 5);
    EXPECT_EQ(s.plus_base_info.pos_up[11], 12);
    EXPECT_EQ(s.plus_base_info.pos_low[0], 900);
    EXPECT_EQ(s.err.err_len, 24);
    EXPECT_EQ(s.err.err[23], 24);
}

// A host decoding texts itself is not held to the datagram size.
TEST(RealtimeState, TextsLongerThanADatagramParse)
{
    for (size_t pad : {3000u, 100000u}) {
        const std::string text = datagram(R"("pad":")" + std::string(pad, 'x') + R"(","hand":{"hand_pos":[1],)"
                                          R"("hand_angle":[],"hand_force":[],"hand_state":[],"hand_err":4})");
        zk_realtime_arm_joint_state_t s{};
        EXPECT_EQ(parse_zk_realtime_arm_joint_state(text.c_str(), &s), 0) << pad;
        EXPECT_EQ(s.handState.hand_err, 4) << pad;
    }
}

TEST(RealtimeState, StatusTexts)
{
    const char* texts[] = {"idle", "move_L", "move_J", "move_C", "move_S", "move_through_joint", "move_through_pose",
                           "move_through_force_pose", "move_through_current", "stop", "slow_stop", "pause",
                           "current_drag", "sensor_drag", "tech_demonstration"};
    for (int value = 0; value < 15; ++value) {
        EXPECT_EQ(get_arm_status_from_string(texts[value]), value) << texts[value];
        zk_realtime_arm_joint_state_t s{};
        const std::string member = std::string(R"("arm_current_status":")") + texts[value] + "\"";
        ASSERT_EQ(parse_zk_realtime_arm_joint_state(datagram(member).c_str(), &s), 0);
        EXPECT_EQ(s.arm_current_status, value);
    }
    EXPECT_EQ(get_arm_status_from_string("MOVE_L"), ZK_IDLE_E);
    EXPECT_EQ(get_arm_status_from_string(""), ZK_IDLE_E);
    EXPECT_EQ(get_arm_status_from_string(nullptr), ZK_IDLE_E);
}

}  // namespace

// Pass-through set points: the smoothing-radius warning and the choice between the
// quaternion and the Euler form of a pose.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "support/connected_arm.h"
#include "support/test_log.h"
#include "zk_api.h"

namespace {

using zk_test::ConnectedArm;
using zk_test::LogCapture;

const float kJoints[6] = {1, 2, 3, 4, 5, 6};

// -----------------------------------------------------------------------------------------
// Smoothing radius: a warning only, the value goes out as given
// -----------------------------------------------------------------------------------------

struct RadioCase {
    int trajectory_mode;
    int radio;
    bool warned;
};

class RadioWarning : public ::testing::TestWithParam<RadioCase> {};

TEST_P(RadioWarning, WarnsAndSendsTheValueAsGiven)
{
    const RadioCase c = GetParam();
    ConnectedArm arm;
    LogCapture log(LOG_LEVEL_WARN);
    const std::string radio = "\"radio\":" + std::to_string(c.radio) + "}";

    EXPECT_EQ(zk_movej_canfd(arm.handle(), {kJoints, 0, false, c.trajectory_mode, c.radio}), 0);
    const std::string joint_warning =
        "[zk_movej_canfd] zk_movej_canfd_mode_t config warn, invaild radio: " + std::to_string(c.radio) + "!\n";
    EXPECT_EQ(log.contains(joint_warning), c.warned);

    zk_pose_t pose{};
    EXPECT_EQ(zk_movep_canfd(arm.handle(), {pose, false, c.trajectory_mode, c.radio}), 0);
    const std::string pose_warning =
        "[zk_movep_canfd] zk_movep_canfd_mode_t config warn, invaild radio: " + std::to_string(c.radio) + "!\n";
    EXPECT_EQ(log.contains(pose_warning), c.warned);
    EXPECT_EQ(log.lines().size(), c.warned ? 2u : 0u);

    ASSERT_TRUE(arm.wait_sent(2));
    for (const std::string& frame : arm.sent()) EXPECT_TRUE(frame.ends_with(radio)) << frame;
}

INSTANTIATE_TEST_SUITE_P(Limits, RadioWarning,
                         ::testing::Values(RadioCase{0, 0, false}, RadioCase{0, 1, true}, RadioCase{0, -5, false},
                                           RadioCase{1, 100, false}, RadioCase{1, 101, true},
                                           RadioCase{2, 1000, false}, RadioCase{2, 1001, true},
                                           RadioCase{3, 100000, false}, RadioCase{-1, 7, false}));

// -----------------------------------------------------------------------------------------
// Quaternion or Euler angles
// -----------------------------------------------------------------------------------------

// A quaternion (w, x, 0, 0) whose sum of squares, computed in single precision in the
// library's order, is exactly `target`.
zk_quat_t quaternion_with_sum(float target)
{
    for (float w : {0.75f, 0.6f, 0.8f, 0.5f, 0.7f, 0.9f}) {
        float x = std::sqrt(target - w * w);
        for (int ulp = 0; ulp < 64; ++ulp) x = std::nextafter(x, 0.0f);
        for (int ulp = 0; ulp < 128; ++ulp, x = std::nextafter(x, 2.0f))
            if (w * w + x * x + 0.0f * 0.0f + 0.0f * 0.0f == target) return {w, x, 0, 0};
    }
    ADD_FAILURE() << "no quaternion sums to " << target;
    return {0, 0, 0, 0};
}

struct QuatCase {
    const char* name;
    zk_quat_t quaternion;
    float sum;  // when not 0, a quaternion with exactly this sum of squares replaces `quaternion`
    bool sent_as_quaternion;
};

class PoseForm : public ::testing::TestWithParam<QuatCase> {};

TEST_P(PoseForm, QuaternionInsideTheBandGoesOutAsPoseQuat)
{
    ConnectedArm arm;
    zk_pose_t pose{};
    pose.position = {0.1f, 0.2f, 0.3f};
    pose.euler = {0.5f, 0.6f, 0.7f};
    pose.quaternion = GetParam().sum != 0 ? quaternion_with_sum(GetParam().sum) : GetParam().quaternion;
    EXPECT_EQ(zk_movep_follow(arm.handle(), pose), 0);
    EXPECT_EQ(zk_movep_canfd(arm.handle(), {pose, true, 0, 0}), 0);
    ASSERT_TRUE(arm.wait_sent(2));
    const std::string quat_form = "\"pose_quat\":[100000,200000,300000,";
    const std::string euler_form = "\"pose\":[100000,200000,300000,500,600,700]";
    for (const std::string& frame : arm.sent()) {
        const std::string& expected = GetParam().sent_as_quaternion ? quat_form : euler_form;
        EXPECT_NE(frame.find(expected), std::string::npos) << frame;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Boundaries, PoseForm,
    ::testing::Values(QuatCase{"unit", {1, 0, 0, 0}, 0, true}, QuatCase{"unitSpread", {0.5f, 0.5f, -0.5f, 0.5f}, 0, true},
                      QuatCase{"zero", {0, 0, 0, 0}, 0, false},
                      QuatCase{"exactlyOnePointOne", {}, 1.1f, false},
                      QuatCase{"justBelowOnePointOne", {}, std::nextafter(1.1f, 0.0f), true},
                      // 0.99f lies a little above 0.99, and the comparison is in double.
                      QuatCase{"exactlyPointNineNineInSingle", {}, 0.99f, true},
                      QuatCase{"justBelowPointNineNine", {}, std::nextafter(0.99f, 0.0f), false},
                      QuatCase{"notANumber", {NAN, 0, 0, 0}, 0, false}),
    [](const auto& info) { return info.param.name; });

TEST(PoseForm, QuaternionComponentsAreScaledByAMillion)
{
    ConnectedArm arm;
    zk_pose_t pose{};
    pose.position = {-0.25f, 0, 1};
    pose.quaternion = {0.7071068f, 0, -0.7071068f, 0};
    EXPECT_EQ(zk_movep_follow(arm.handle(), pose), 0);
    ASSERT_TRUE(arm.wait_sent(1));
    EXPECT_EQ(arm.last_sent(), R"({"command":"movep_follow","pose_quat":[-250000,0,1000000,707106,0,-707106,0]})");
}

}  // namespace

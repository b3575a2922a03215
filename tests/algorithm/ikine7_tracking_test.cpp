// The seven-axis solvers against independent relations: along smooth random joint paths
// the tracking answer, fed back as the next reference, reaches every target and moves no
// faster than the path; traversal finds an answer at least as near the reference as
// tracking does; and the arm angle of AX71 goes round trip through the solution at a given
// arm angle.
#include <gtest/gtest.h>

#include "ikine7_test_support.h"

using namespace ikine7_test;
using algo_test::property_cases;
using algo_test::Rng;

namespace {

class SevenAxis : public ::testing::TestWithParam<SevenAxisModel> {
protected:
    void SetUp() override { use_model(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Models, SevenAxis, ::testing::Values(kAx71, kAx71Xf, kTor77, kTor77II), model_name);

// Tracking along a path: each answer reaches its target, and while it lies clear of the
// singular sets no joint moves more between two answers than a small factor times the
// largest joint step of the path. The answers drift along the redundancy away from the
// path's own joints: toward a singular set, where the joints speed up as they must but
// never jump to another branch, or out of the limits, which (with a joint faster than its
// limit, for TOR77) is the only -2. TOR77 may refuse to move deeper into a singularity,
// which ends the path there.
constexpr double kContinuityFactor = 8.0;
constexpr double kNoBranchJump = 0.2;  // rad per step, far below a jump of pi
constexpr double kNearSingularGramDet = 1e-5;
constexpr int kPathSteps = 600;

TEST_P(SevenAxis, TrackingFollowsSmoothPaths)
{
    Rng rng(700 + GetParam().type * 10 + GetParam().sensor);
    const StrategyGuard tracking(1);
    const int paths = std::max(4, property_cases() / 100);
    int clear_steps = 0;
    for (int p = 0; p < paths; ++p) {
        const JointPath path = clear_path(rng, kPathSteps);
        float prev_path[8], prev[8];
        path.at(0, prev_path);
        for (int j = 0; j < 8; ++j) prev[j] = prev_path[j];
        for (int k = 1; k <= kPathSteps; ++k) {
            float q[8], out[8] = {};
            path.at(k, q);
            const Mat target = flange_of(q);
            const int rc = solve(target, prev, out);
            if (rc == -1 && !is_ax71()) {
                ASSERT_LT(tor7_gram_det(prev), kNearSingularGramDet) << "path " << p << " step " << k;
                ASSERT_EQ(max_step(out, prev), 0.0) << "path " << p << " step " << k;
                break;
            }
            const bool regular = inside_widened_limits(out) && (is_ax71() || within_speed(prev, out));
            ASSERT_EQ(rc, regular ? 0 : -2) << "path " << p << " step " << k;
            ASSERT_TRUE(reproduces(out, target)) << "path " << p << " step " << k;
            const double step = max_step(out, prev);
            ASSERT_LE(step, kNoBranchJump) << "path " << p << " step " << k;
            if (clear_of_singularities(out)) {
                ++clear_steps;
                ASSERT_LE(step, kContinuityFactor * max_step(q, prev_path)) << "path " << p << " step " << k;
            }
            for (int j = 0; j < 8; ++j) {
                prev[j] = out[j];
                prev_path[j] = q[j];
            }
        }
    }
    EXPECT_GT(clear_steps, paths * kPathSteps / 2);
}

// Traversal searches the whole redundancy, so its answer is never farther from the
// reference than the tracking answer (up to the rounding of float answers), and both reach
// the target.
TEST_P(SevenAxis, TraversalIsNoFartherThanTracking)
{
    Rng rng(800 + GetParam().type * 10 + GetParam().sensor);
    constexpr float kPerturbation = 0.002f;  // within one control period of travel
    constexpr double kRounding = 1e-6;       // rad^2
    const int n = property_cases() / 10;
    for (int i = 0; i < n; ++i) {
        float q[8], ref[8] = {}, tracked[8] = {}, traversed[8] = {};
        random_joints(rng, q);
        for (int j = 0; j < kJoints; ++j) ref[j] = q[j] + rng.uniformf(-kPerturbation, kPerturbation);
        const Mat target = flange_of(q);
        int rc_tracked = 0, rc_traversed = 0;
        {
            const StrategyGuard tracking(1);
            rc_tracked = solve(target, ref, tracked);
        }
        {
            const StrategyGuard traversal(0);
            rc_traversed = solve(target, ref, traversed);
        }
        ASSERT_EQ(rc_traversed, 0) << "case " << i;
        ASSERT_TRUE(reproduces(traversed, target)) << "case " << i;
        if (rc_tracked != 0) continue;  // the reference near a singularity: refused or too fast
        ASSERT_TRUE(reproduces(tracked, target)) << "case " << i;
        ASSERT_LE(distance2(traversed, ref), distance2(tracked, ref) + kRounding) << "case " << i;
    }
}

// A reference far from the target: traversal still reaches it, from anywhere.
TEST_P(SevenAxis, TraversalReachesFromFarReferences)
{
    Rng rng(900 + GetParam().type * 10 + GetParam().sensor);
    const StrategyGuard traversal(0);
    const int n = property_cases() / 10;
    for (int i = 0; i < n; ++i) {
        float q[8], ref[8], out[8] = {};
        random_joints(rng, q);
        random_joints(rng, ref);
        const Mat target = flange_of(q);
        const int rc = solve(target, ref, out);
        ASSERT_TRUE(rc == 0 || rc == -2) << "case " << i << " rc " << rc;
        ASSERT_TRUE(reproduces(out, target)) << "case " << i;
        EXPECT_EQ(rc == 0, inside_widened_limits(out)) << "case " << i;
    }
}

/* -----------------------------------------------------------------------------
 * The arm angle of AX71
 * -------------------------------------------------------------------------- */

class ArmAngle : public ::testing::Test {
protected:
    void SetUp() override
    {
        use_model(kAx71);
        use_frames();  // the solution at an arm angle takes a tool pose in the work frame
    }

    static zk_inverse_kinematics_params_t request(const float* q, const float* ref, uint8_t flag)
    {
        const Pose p = forward_kinematics(q);
        zk_inverse_kinematics_params_t params{};
        for (int j = 0; j < kJoints; ++j) params.q_in[j] = ref[j];
        params.q_pose.position = {p.position.x, p.position.y, p.position.z};
        params.q_pose.quaternion = {p.quaternion.w, p.quaternion.x, p.quaternion.y, p.quaternion.z};
        params.q_pose.euler = {p.euler.rx, p.euler.ry, p.euler.rz};
        params.flag = flag;
        return params;
    }

    static float arm_angle(const float* q)
    {
        float copy[8] = {}, psi = 0.0f;
        for (int j = 0; j < kJoints; ++j) copy[j] = q[j];
        EXPECT_EQ(calculate_arm_angle_from_config_ax71(copy, &psi), 0);
        return psi;
    }
};

// Away from the singular sets (where the pose and the arm angle leave joints undetermined:
// joints 2, 4 or 6 at 0, or the wrist on joint 1's axis, which leaves the reference plane
// undefined) the arm angle of a configuration gives that configuration back.
TEST_F(ArmAngle, ConfigurationComesBackAtItsArmAngle)
{
    Rng rng(1001);
    constexpr double kRegular = 0.1;          // rad, and m for the wrist off the axis
    constexpr double kJointTolerance = 1e-4;  // rad
    const int n = property_cases();
    int tested = 0;
    for (int i = 0; i < n; ++i) {
        float q[8];
        random_joints(rng, q);
        const Matrix elbow_wrist = forward_kinematics_e(q);  // the wrist lies d7 behind the flange
        const DH dh = libalgo_get_dh_value();
        const double wx = elbow_wrist.data[0][3] - dh.d[6] * elbow_wrist.data[0][2];
        const double wy = elbow_wrist.data[1][3] - dh.d[6] * elbow_wrist.data[1][2];
        if (std::fabs(q[1]) < kRegular || std::fabs(q[3]) < kRegular || std::fabs(q[5]) < kRegular ||
            std::hypot(wx, wy) < kRegular)
            continue;
        ++tested;
        float out[8] = {};
        ASSERT_EQ(inverse_kinematics_ax71_for_arm_angle(request(q, q, i % 2), arm_angle(q), out), 0) << "case " << i;
        ASSERT_LE(max_step(out, q), kJointTolerance) << "case " << i;
    }
    EXPECT_GT(tested, n / 2);
}

// At any arm angle the answer reaches the pose and has that arm angle.
TEST_F(ArmAngle, AnswerHasTheRequestedArmAngle)
{
    Rng rng(1002);
    constexpr double kAngleTolerance = 1e-4;  // rad
    constexpr double kStretched = 1e-2;       // rad of joint 4
    const int n = property_cases() / 3;
    for (int i = 0; i < n; ++i) {
        float q[8], out[8] = {};
        random_joints(rng, q);
        const float psi = rng.uniformf(-3.1f, 3.1f);
        const zk_inverse_kinematics_params_t params = request(q, q, 0);
        const int rc = inverse_kinematics_ax71_for_arm_angle(params, psi, out);
        ASSERT_TRUE(rc == 0 || rc == -1) << "case " << i;
        ASSERT_TRUE(reproduces(out, flange_of(q))) << "case " << i;
        EXPECT_EQ(rc == 0, inside_widened_limits(out)) << "case " << i;
        if (std::fabs(out[3]) < kStretched) continue;  // the elbow plane is rounding's there
        EXPECT_NEAR(algo_test::angle_diff(arm_angle(out), psi), 0.0, kAngleTolerance) << "case " << i;
    }
}

}  // namespace

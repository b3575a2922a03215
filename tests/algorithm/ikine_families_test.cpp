// The six-axis families at their edges: the wrist on joint 1's axis, the stretched arm, the
// singular wrist, joint 6 over several turns, the wrist re-solve, wide limits, the
// candidate order, and the helpers of the selection.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "ikine_test_support.h"

using namespace ikine_test;
using algo_test::angle_diff;

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kTwoPi = 2.0 * std::numbers::pi;

const SixAxisModel kAx61 = kSixAxisModels[0];
const SixAxisModel kAl64II = kSixAxisModels[1];
const SixAxisModel kAl64III = kSixAxisModels[2];
const SixAxisModel kLum61 = kSixAxisModels[4];

Matrix target_of(const float* q) { return calc_Tbase2tool_from_Pose(tool_pose(q), 0); }

/* -----------------------------------------------------------------------------
 * Shoulder and reach
 * -------------------------------------------------------------------------- */

// With the wrist centre on joint 1's axis every joint 1 reaches it: the single form keeps
// the reference's, the all-solutions form gives it and its negative.
TEST(IkineAx6, WristOnTheShoulderAxis)
{
    use_model(kAx61);
    const DH dh = libalgo_get_dh_value();
    const double a3 = dh.a[2], d4 = dh.d[3];
    // Elbow at -0.6 (user); joint 2 such that the wrist centre lies on the axis:
    // a3 c2 + d4 sin(q2 + q3) = 0 in model angles.
    const double q3m = -0.6 + dh.offset[2];
    const double q2m = std::atan2(-(a3 + d4 * std::sin(q3m)), d4 * std::cos(q3m)) + kPi;
    const float q[8] = {0.3f, static_cast<float>(q2m - dh.offset[1]), -0.6f, 0.4f, 0.8f, -0.5f};
    const Matrix target = target_of(q);
    const Pose pose = tool_pose(q);

    float ref[8];
    for (int j = 0; j < 8; ++j) ref[j] = q[j];
    ref[0] = 0.9f;
    float out[8] = {};
    const int rc = inverse_kinematics_ax6(target, ref, out);
    EXPECT_TRUE(rc == 0 || rc == -2) << rc;
    EXPECT_FLOAT_EQ(out[0], 0.9f);
    EXPECT_TRUE(reproduces(out, pose));

    const zk_inverse_kinematics_all_solve_t all = ikine_ax6_solver(target, ref);
    ASSERT_EQ(all.num, 8);
    for (int r = 0; r < all.num; ++r) {
        EXPECT_NEAR(std::fabs(all.q_solve[r][0]), 0.9f, 1e-6) << "row " << r;
        EXPECT_TRUE(reproduces(all.q_solve[r], pose)) << "row " << r;
    }
    EXPECT_FLOAT_EQ(all.q_solve[0][0], 0.9f);
    EXPECT_FLOAT_EQ(all.q_solve[4][0], -0.9f);
}

// The target moved out along the line from joint 2 to the wrist centre, so that the elbow
// ratio s3 of the stretched arm becomes `s3`.
Matrix stretched_target(const float* q, double s3)
{
    const DH dh = libalgo_get_dh_value();
    const double a3 = dh.a[2], d4 = dh.d[3], d6 = dh.d[5];
    Matrix t = target_of(q);
    double w[3], len = 0;
    for (int i = 0; i < 3; ++i) {
        w[i] = t.data[i][3] - d6 * t.data[i][2] - (i == 2 ? dh.d[0] : 0.0);
        len += w[i] * w[i];
    }
    len = std::sqrt(len);
    const double want = std::sqrt(a3 * a3 + d4 * d4 + 2 * a3 * d4 * s3);
    for (int i = 0; i < 3; ++i) t.data[i][3] += static_cast<float>(w[i] / len * (want - len));
    return t;
}

// s3 up to 1.0002 is the stretched arm, the nearest pose; beyond, nothing. The
// all-solutions form hands out exact solutions only.
TEST(IkineAx6, JustBeyondReach)
{
    use_model(kAx61);
    const float q[8] = {0.2f, 0.3f, 0.0f, 0.4f, 0.7f, -0.2f};  // user q3 = 0 is the stretched arm
    const DH dh = libalgo_get_dh_value();
    const double a3 = dh.a[2], d4 = dh.d[3];
    const double excess = std::sqrt(a3 * a3 + d4 * d4 + 2 * a3 * d4 * 1.0001) - (a3 + d4);

    const Matrix beyond = stretched_target(q, 1.0001);
    float out[8] = {};
    EXPECT_EQ(inverse_kinematics_ax6(beyond, q, out), 0);
    EXPECT_NEAR(out[2], 0.0f, 1e-5);
    Pose wanted = transformation_matrix_to_pose(beyond);
    const PoseError e = pose_error(tool_pose(out), wanted);
    EXPECT_NEAR(e.position, excess, 1e-6);
    EXPECT_LT(e.orientation, kOrientationTolerance);
    EXPECT_EQ(ikine_ax6_solver(beyond, q).num, 0);

    EXPECT_EQ(inverse_kinematics_ax6(stretched_target(q, 1.0003), q, out), -1);

    // Stretched exactly, rounding aside: every form solves it.
    const Matrix exact = stretched_target(q, 1.0);
    EXPECT_EQ(inverse_kinematics_ax6(exact, q, out), 0);
    EXPECT_LE(max_joint_diff(out, q), 2e-3);  // the elbow is poorly determined here
    const zk_inverse_kinematics_all_solve_t all = ikine_ax6_solver(exact, q);
    EXPECT_GE(all.num, 4);
    for (int r = 0; r < all.num; ++r) EXPECT_TRUE(reproduces(all.q_solve[r], transformation_matrix_to_pose(exact)));
}

// AL64III's wrist centre lies d2 to the side of the arm's plane: closer to joint 1's axis
// there is no solution. LUM61's point P likewise d4 to the side.
TEST(IkineOffsetShoulders, InsideTheOffsetCylinder)
{
    for (const SixAxisModel& model : {kAl64III, kLum61}) {
        use_model(model);
        const DH dh = libalgo_get_dh_value();
        Matrix t = unit_matrix(4);
        t.data[0][3] = 0.001f;
        t.data[1][3] = 0.002f;
        t.data[2][3] = 0.5f + dh.d[5];  // approach axis up, P at (0.001, 0.002, 0.5)
        const float q[8] = {};
        float out[8] = {};
        if (model.type == AL64III) {
            EXPECT_EQ(inverse_kinematics_al64_3(t, q, out), -1);
            EXPECT_EQ(ikine_al6II_solver(t, q).num, 0);
        } else {
            EXPECT_EQ(inverse_kinematics_lum6(t, q, out), -1);
            EXPECT_EQ(ikine_lum6_solver(t, q).num, 0);
        }
    }
}

/* -----------------------------------------------------------------------------
 * The wrist
 * -------------------------------------------------------------------------- */

enum class Split { kSum, kDifference, kHoldJoint6 };

// At q5 exactly on the singularity only one combination of q4 and q6 is defined; the rest
// follows the reference: both move by the same amount, or joint 6 stays.
void check_singular_wrist(const SixAxisModel& model, float q5, Split split)
{
    use_model(model);
    const float q[8] = {0.3f, -0.4f, 0.5f, 0.7f, q5, 0.2f};
    float ref[8];
    for (int j = 0; j < 8; ++j) ref[j] = q[j];
    ref[3] = 1.0f;
    ref[5] = 0.1f;
    const Pose pose = tool_pose(q);
    const zk_inverse_kinematics_all_solve_t all = inverse_kinematics_all(ref, pose, 0);
    int singular_rows = 0;
    for (int r = 0; r < all.num; ++r) {
        const float* row = all.q_solve[r];
        EXPECT_TRUE(reproduces(row, pose)) << model.name << " row " << r;
        if (std::fabs(angle_diff(row[4], q5)) > 1e-4) continue;
        ++singular_rows;
        const double d4 = angle_diff(row[3], ref[3]), d6 = angle_diff(row[5], ref[5]);
        switch (split) {
        case Split::kSum:
            EXPECT_NEAR(angle_diff(d4, d6), 0.0, 1e-4) << model.name << " row " << r;
            break;
        case Split::kDifference:
            EXPECT_NEAR(angle_diff(d4, -d6), 0.0, 1e-4) << model.name << " row " << r;
            break;
        case Split::kHoldJoint6:
            EXPECT_NEAR(d6, 0.0, 1e-4) << model.name << " row " << r;
            break;
        }
    }
    EXPECT_GE(singular_rows, 1) << model.name;

    // The single form agrees with the all-solutions form's division.
    float out[8] = {};
    EXPECT_EQ(inverse_kinematics(ref, pose, out, 0), 0) << model.name;
    EXPECT_TRUE(reproduces(out, pose)) << model.name;
}

TEST(IkineWrist, SingularWristFollowsTheReference)
{
    // q4 + q6 is defined where the twists of joints 5 and 6 cancel; AL64II turns joint 5 by
    // pi against AL64III, whose two equal twists leave q4 - q6 at q5 = 0. LUM61's joint 6
    // keeps its reference.
    check_singular_wrist(kAx61, 0.0f, Split::kSum);
    check_singular_wrist(kAl64II, 0.0f, Split::kSum);
    check_singular_wrist(kAl64III, 0.0f, Split::kDifference);
    check_singular_wrist(kLum61, 0.0f, Split::kHoldJoint6);
    check_singular_wrist(kLum61, static_cast<float>(kPi), Split::kHoldJoint6);
}

// Within about 5 degrees of the singularity the re-solve, when the model asks for it,
// keeps the reference's q4 - q6 and the target's q4 + q6; otherwise the wrist is solved
// as it stands.
TEST(IkineWrist, AvoidSingularitySwitch)
{
    for (const SixAxisModel& model : {kAx61, kAl64II}) {
        use_model(model);
        const float q[8] = {0.2f, -0.3f, 0.4f, 0.5f, 0.03f, -0.4f};
        float ref[8];
        for (int j = 0; j < 8; ++j) ref[j] = q[j];
        ref[3] = 0.8f;
        ref[5] = -0.7f;
        const Pose pose = tool_pose(q);
        float out[8] = {};

        EXPECT_EQ(libalgo_get_is_avoid_Singularity(), 0);
        EXPECT_EQ(inverse_kinematics(ref, pose, out, 0), 0);
        EXPECT_LE(max_joint_diff(out, q), kJointTolerance) << model.name;

        libalgo_set_is_avoid_Singularity(1);
        EXPECT_EQ(inverse_kinematics(ref, pose, out, 0), 0);
        EXPECT_NEAR(out[3] - out[5], ref[3] - ref[5], 1e-5) << model.name;
        EXPECT_NEAR(out[3] + out[5], q[3] + q[5], 1e-4) << model.name;
        for (int j : {0, 1, 2, 4}) EXPECT_NEAR(out[j], q[j], kJointTolerance) << model.name << " joint " << j;

        // Beyond 5 degrees the switch changes nothing.
        float far[8];
        for (int j = 0; j < 8; ++j) far[j] = q[j];
        far[4] = 0.2f;
        EXPECT_EQ(inverse_kinematics(ref, tool_pose(far), out, 0), 0);
        EXPECT_LE(max_joint_diff(out, far), kJointTolerance) << model.name;
    }
}

/* -----------------------------------------------------------------------------
 * Turns and limits
 * -------------------------------------------------------------------------- */

// A reference of joint 6 several turns out gives the solution on that turn, here beyond
// AX61's limits of one turn either way: -2 with the values.
TEST(IkineTurns, Joint6KeepsTheReferenceTurns)
{
    use_model(kAx61);
    const float q[8] = {0.2f, -0.3f, 0.4f, 0.5f, 0.6f, 0.1f};
    const Pose pose = tool_pose(q);
    for (const double turns : {2.0, -2.0, 1.0}) {
        float ref[8];
        for (int j = 0; j < 8; ++j) ref[j] = q[j];
        ref[5] = static_cast<float>(q[5] + turns * kTwoPi);
        float out[8] = {};
        EXPECT_EQ(inverse_kinematics(ref, pose, out, 0), -2) << turns;
        EXPECT_NEAR(out[5], ref[5], 1e-4) << turns;
        const zk_inverse_kinematics_all_solve_t all = inverse_kinematics_all(ref, pose, 0);
        bool found = false;
        for (int r = 0; r < all.num; ++r) found = found || max_joint_diff(all.q_solve[r], ref) < 1e-4;
        EXPECT_TRUE(found) << turns;
    }
}

// A solution inside the half-degree margin but outside the plain limits comes out as -2
// with its values.
TEST(IkineTurns, MarginBandGivesMinusTwoWithValues)
{
    use_model(kAx61);
    float lim[8];
    libalgo_get_jointlim_max(lim);
    const float q[8] = {0.2f, lim[1] + 0.005f, -0.4f, 0.5f, 0.6f, 0.1f};
    float out[8] = {};
    EXPECT_EQ(inverse_kinematics(q, tool_pose(q), out, 0), -2);
    EXPECT_LE(max_joint_diff(out, q), kJointTolerance);
}

// With limits wider than a turn, lum6 takes the turn nearest the reference.
TEST(IkineTurns, Lum6NearestTurnInsideWideLimits)
{
    use_model(kLum61);
    float hi[8], lo[8];
    libalgo_get_jointlim_max(hi);
    libalgo_get_jointlim_min(lo);
    hi[0] = 6.5f;
    lo[0] = -6.5f;
    libalgo_set_jointlim_max(hi);
    libalgo_set_jointlim_min(lo);
    const float q[8] = {0.1f, -0.4f, 0.6f, 0.2f, 0.9f, 0.5f};
    float ref[8];
    for (int j = 0; j < 8; ++j) ref[j] = q[j];
    ref[0] = 6.3f;
    float out[8] = {};
    EXPECT_EQ(inverse_kinematics(ref, tool_pose(q), out, 0), 0);
    EXPECT_NEAR(out[0], 0.1 + kTwoPi, 1e-4);
}

/* -----------------------------------------------------------------------------
 * Candidate order
 * -------------------------------------------------------------------------- */

// Rows come as 4 i + 2 j + k: joint-1 candidate i, elbow j, wrist k (q5 >= 0 first).
TEST(IkineOrder, AllSolutionsComeInCandidateOrder)
{
    use_model(kAx61);
    const float q[8] = {0.2f, -0.3f, 0.4f, 0.5f, 0.6f, 0.1f};
    const zk_inverse_kinematics_all_solve_t all = inverse_kinematics_all(q, tool_pose(q), 0);
    ASSERT_EQ(all.num, 8);
    for (int r = 0; r < 8; ++r) {
        const float* row = all.q_solve[r];
        const float* first_of_shoulder = all.q_solve[r & 4];
        const float* first_of_elbow = all.q_solve[r & 6];
        EXPECT_NEAR(row[0], first_of_shoulder[0], 1e-6) << r;
        EXPECT_NEAR(row[2], first_of_elbow[2], 1e-6) << r;
        EXPECT_TRUE((r & 1) == 0 ? row[4] >= 0 : row[4] <= 0) << r;
    }
    EXPECT_NEAR(std::fabs(angle_diff(all.q_solve[4][0], all.q_solve[0][0])), kPi, 1e-5);
    EXPECT_GT(std::fabs(all.q_solve[2][2] - all.q_solve[0][2]), 0.1);
}

/* -----------------------------------------------------------------------------
 * Helpers of the selection
 * -------------------------------------------------------------------------- */

TEST(IkineHelpers, FindMinIndexTakesTheFirstOfEquals)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double a[] = {3, 1, 1, 2};
    EXPECT_EQ(find_min_index(a, 4), 1);
    const double b[] = {1, 1};
    EXPECT_EQ(find_min_index(b, 2), 0);
    EXPECT_EQ(find_min_index(a, 1), 0);
    EXPECT_EQ(find_min_index(a, 0), 0);
    EXPECT_EQ(find_min_index(a, -3), 0);
    const double c[] = {nan, 2, 1};
    EXPECT_EQ(find_min_index(c, 3), 2);
}

TEST(IkineHelpers, FindNearestJointAmongFiveTurns)
{
    double ref = 6.3, q = 0.1;
    find_nearest_joint(&ref, &q, -6.5, 6.5, 0.0);
    EXPECT_NEAR(q, 0.1 + kTwoPi, 1e-12);
    ref = -12.0;
    q = 0.1;
    find_nearest_joint(&ref, &q, -20.0, 20.0, 0.0);
    EXPECT_NEAR(q, 0.1 - 2 * kTwoPi, 1e-12);
    // Only turns inside the limits widened by the margin count.
    ref = 6.3;
    q = 0.1;
    find_nearest_joint(&ref, &q, -3.0, 3.0, 0.1);
    EXPECT_NEAR(q, 0.1, 1e-12);
    // None inside: left as it was.
    q = 3.0;
    find_nearest_joint(&ref, &q, 1.0, 1.1, 0.0);
    EXPECT_EQ(q, 3.0);
    // Equally near: the earlier turn stands.
    ref = 0.0;
    q = -kPi;
    find_nearest_joint(&ref, &q, -10.0, 10.0, 0.0);
    EXPECT_NEAR(q, -kPi, 1e-12);
}

TEST(IkineHelpers, RecalcuQ46NearestOfThreeTurns)
{
    EXPECT_NEAR(recalcu_q46(0.1, 6.2), 0.1 + kTwoPi, 1e-12);
    EXPECT_NEAR(recalcu_q46(0.1, -6.0), 0.1 - kTwoPi, 1e-12);
    EXPECT_NEAR(recalcu_q46(0.1, 0.5), 0.1, 1e-12);
    // q farther than both neighbours: the nearer of them.
    EXPECT_NEAR(recalcu_q46(3.0, -2.9), 3.0 - kTwoPi, 1e-12);
    // Ties keep q.
    EXPECT_NEAR(recalcu_q46(1.0, 1.0 + kPi), 1.0, 1e-12);
    EXPECT_NEAR(recalcu_q46(1.0, 1.0 - kPi), 1.0, 1e-12);
}

}  // namespace

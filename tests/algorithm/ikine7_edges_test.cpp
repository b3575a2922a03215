// The seven-axis solvers at their edges: targets beyond reach, joint 7 over several turns,
// singular shoulders crossed in tracking, the refusal to move deeper into a singularity,
// DH offsets, the frames of the dispatch, bad input and the wrong model; and the TOR77
// chain and the plain-array products against independent relations.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>

#include "ikine7_test_support.h"

using namespace ikine7_test;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr double kTwoPi = 2.0 * kPi;

// A joint vector of each family clear of its singular sets and limits.
constexpr float kAx71Regular[8] = {0.3f, 0.7f, -0.4f, 1.1f, 0.5f, -0.8f, 0.6f};
constexpr float kTor77Regular[8] = {0.3f, 0.6f, -0.4f, -0.9f, 0.5f, 0.4f, 0.2f};

const float* regular_joints() { return is_ax71() ? kAx71Regular : kTor77Regular; }

void copy7(const float* from, float* to)
{
    for (int j = 0; j < 8; ++j) to[j] = j < kJoints ? from[j] : 0.0f;
}

/* -----------------------------------------------------------------------------
 * Reach
 * -------------------------------------------------------------------------- */

// The wrist's direction from the shoulder, for a flange: d7 behind it, d1 above the base.
std::array<double, 3> wrist_direction(const Matrix& f)
{
    const DH dh = libalgo_get_dh_value();
    double w[3], n = 0.0;
    for (int i = 0; i < 3; ++i) {
        w[i] = f.data[i][3] - dh.d[6] * f.data[i][2] - (i == 2 ? dh.d[0] : 0.0);
        n += w[i] * w[i];
    }
    n = std::sqrt(n);
    return {w[0] / n, w[1] / n, w[2] / n};
}

// A target beyond reach. AX71 has no outcome for it: the arm is held stretched, its wrist
// pointing at the target's, the flange turned as the target's. TOR77 finds no value of
// joint 7 that reaches it: -1, q_out untouched.
TEST(Ikine7, TargetBeyondReach)
{
    for (const SevenAxisModel& model : {kAx71, kTor77}) {
        use_model(model);
        Mat target = flange_of(regular_joints());
        for (int i = 0; i < 3; ++i) target.data[i][3] *= 3.0f;
        for (int strategy : {1, 0}) {
            const StrategyGuard guard(strategy);
            float out[8] = {9, 9, 9, 9, 9, 9, 9, 9};
            const int rc = solve(target, regular_joints(), out);
            if (!is_ax71()) {
                EXPECT_EQ(rc, -1) << "strategy " << strategy;
                for (float v : out) EXPECT_EQ(v, 9.0f);
                continue;
            }
            EXPECT_TRUE(rc == 0 || rc == -2) << "strategy " << strategy << " rc " << rc;
            EXPECT_NEAR(out[3], 0.0f, 1e-6) << "strategy " << strategy;  // stretched
            const auto reached = wrist_direction(forward_kinematics_e(out)),
                       wanted = wrist_direction(mat_to_matrix(target));
            for (int i = 0; i < 3; ++i) EXPECT_NEAR(reached[i], wanted[i], 1e-5) << "strategy " << strategy;
            EXPECT_LE(flange_error(out, target).angle, kAngleTolerance) << "strategy " << strategy;
        }
    }
}

/* -----------------------------------------------------------------------------
 * Joint 7's turns
 * -------------------------------------------------------------------------- */

class SevenAxisEdges : public ::testing::TestWithParam<SevenAxisModel> {
protected:
    void SetUp() override { use_model(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Models, SevenAxisEdges, ::testing::Values(kAx71, kTor77), model_name);

// A reference a whole turn up on joint 7 gets an answer on that turn. Tracking answers
// next to the reference, beyond the limits; traversal prefers an answer inside them where
// the redundancy offers one. AX71's joint 7 reaches a turn up: a reference of 6.0 there is
// answered at 6.0 in both modes, not a turn below.
TEST_P(SevenAxisEdges, JointSevenKeepsTheReferencesTurns)
{
    float q[8], ref[8], out[8] = {};
    copy7(regular_joints(), q);
    q[6] = 0.5f;
    copy7(q, ref);
    ref[6] = static_cast<float>(q[6] + kTwoPi);
    for (int strategy : {1, 0}) {
        const StrategyGuard guard(strategy);
        const int rc = solve(flange_of(q), ref, out);
        EXPECT_EQ(rc, inside_widened_limits(out) ? 0 : -2) << "strategy " << strategy;
        EXPECT_NEAR(out[6], ref[6], strategy == 1 ? 1e-3 : kPi) << "strategy " << strategy;
        EXPECT_TRUE(reproduces(out, flange_of(q))) << "strategy " << strategy;
        if (!is_ax71()) continue;
        q[6] = 6.0f;
        EXPECT_EQ(solve(flange_of(q), q, out), 0) << "strategy " << strategy;
        EXPECT_NEAR(out[6], q[6], 1e-4) << "strategy " << strategy;
        q[6] = 0.5f;
    }
}

/* -----------------------------------------------------------------------------
 * Singularities in tracking
 * -------------------------------------------------------------------------- */

// A path through joint 2 = 0 (joints 1 and 3 align; the closed form's branches meet there)
// is tracked without a jump: the Jacobian step carries the answer across.
TEST_P(SevenAxisEdges, TrackingCrossesTheSingularShoulder)
{
    const StrategyGuard tracking(1);
    constexpr int kSteps = 400;
    constexpr double kSwing = 0.2;  // joint 2 from +0.2 to -0.2
    constexpr double kStep = 2.0 * kSwing / kSteps;
    constexpr double kJumpFactor = 10.0;  // a branch flip would turn a joint by pi
    float prev[8];
    copy7(regular_joints(), prev);
    prev[1] = static_cast<float>(kSwing);
    for (int k = 1; k <= kSteps; ++k) {
        float q[8], out[8] = {};
        copy7(regular_joints(), q);
        q[1] = static_cast<float>(kSwing - k * kStep);
        const Mat target = flange_of(q);
        const int rc = solve(target, prev, out);
        ASSERT_TRUE(rc == 0 || rc == -2) << "step " << k << " rc " << rc;
        ASSERT_TRUE(reproduces(out, target)) << "step " << k;
        ASSERT_LE(max_step(out, prev), kJumpFactor * kStep) << "step " << k;
        copy7(out, prev);
    }
}

// TOR77 refuses a tracked move deeper into a singularity: near the stretched elbow, where
// |det(J J^T)| at the reference lies below 1e-5, a target closer to stretched that would
// lower it further gives -1 with the reference in q_out; moving out never does.
TEST(Ikine7, Tor77RefusesToMoveDeeperIntoASingularity)
{
    use_model(kTor77);
    const StrategyGuard tracking(1);
    constexpr float kElbowStep = 0.004f;
    constexpr double kNearSingular = 1e-5;
    int refused = 0;
    float q[8];
    copy7(kTor77Regular, q);
    for (float elbow = -0.8f; elbow < -0.23f; elbow += kElbowStep / 2) {
        q[3] = elbow;
        float deeper[8];
        copy7(q, deeper);
        deeper[3] = elbow + kElbowStep;
        float out[8] = {};
        const int rc = solve(flange_of(deeper), q, out);
        if (rc == -1) {
            ++refused;
            EXPECT_LT(tor7_gram_det(q), kNearSingular) << elbow;
            EXPECT_EQ(std::memcmp(out, q, sizeof(float) * kJoints), 0) << elbow;
        } else {
            EXPECT_EQ(rc, 0) << elbow;
        }
        float back[8] = {};
        EXPECT_EQ(solve(flange_of(q), deeper, back), 0) << elbow;
    }
    EXPECT_GT(refused, 0);
}

/* -----------------------------------------------------------------------------
 * Offsets, frames and the dispatch
 * -------------------------------------------------------------------------- */

// With DH offsets the solvers work in model angles and answer in joint angles; the AX71
// solver and the arm angle add the offsets to the reference in place.
TEST(Ikine7, Ax71WorksThroughDhOffsets)
{
    use_model(kAx71);
    DH dh = libalgo_get_dh_value();
    for (int j = 0; j < kJoints; ++j) dh.offset[j] = 0.05f * (j + 1);
    libalgo_set_dh_params(&dh);
    const Mat target = flange_of(kAx71Regular);
    for (int strategy : {1, 0}) {
        const StrategyGuard guard(strategy);
        float ref[8], out[8] = {};
        copy7(kAx71Regular, ref);
        EXPECT_EQ(inverse_kinematics_ax_71(target, ref, out), 0) << "strategy " << strategy;
        EXPECT_LE(max_step(out, kAx71Regular), 1e-4) << "strategy " << strategy;
        for (int j = 0; j < kJoints; ++j) EXPECT_FLOAT_EQ(ref[j], kAx71Regular[j] + dh.offset[j]);
    }
    float ref[8], psi = 0.0f;
    copy7(kAx71Regular, ref);
    EXPECT_EQ(calculate_arm_angle_from_config_ax71(ref, &psi), 0);
    for (int j = 0; j < kJoints; ++j) EXPECT_FLOAT_EQ(ref[j], kAx71Regular[j] + dh.offset[j]);
}

// inverse_kinematics takes the tool, installation and work frames off for the seven-axis
// solvers and leaves the caller's reference alone.
TEST_P(SevenAxisEdges, DispatchSolvesToolPosesInTheWorkFrame)
{
    use_frames();
    float ref[8];
    copy7(regular_joints(), ref);
    const Pose pose = forward_kinematics(ref);
    for (uint8_t flag : {0, 1}) {
        float out[8] = {};
        EXPECT_EQ(inverse_kinematics(ref, pose, out, flag), 0) << int(flag);
        EXPECT_LE(max_step(out, regular_joints()), 1e-4) << int(flag);
        EXPECT_EQ(std::memcmp(ref, regular_joints(), sizeof(float) * kJoints), 0);
    }
    const zk_inverse_kinematics_all_solve_t all = inverse_kinematics_all(ref, pose, 0);
    EXPECT_EQ(all.result, 0);
    EXPECT_EQ(all.num, -1);
}

/* -----------------------------------------------------------------------------
 * Bad input and the wrong model
 * -------------------------------------------------------------------------- */

TEST_P(SevenAxisEdges, BadInputIsRefusedAndLeavesTheOutputAlone)
{
    float ref[8], out[8] = {9, 9, 9, 9, 9, 9, 9, 9}, psi = 7.0f;
    copy7(regular_joints(), ref);
    const Mat good = flange_of(ref);
    Mat bad[3] = {good, good, good};
    bad[0].data[1][3] = kNaN;
    bad[1].data[0][0] = kNaN;
    bad[2].col = 3;
    float nan_ref[8];
    copy7(ref, nan_ref);
    nan_ref[2] = kNaN;
    const auto solver = is_ax71() ? inverse_kinematics_ax_71 : inverse_kinematics_tor7;
    for (int strategy : {1, 0}) {
        const StrategyGuard guard(strategy);
        for (const Mat& target : bad) EXPECT_EQ(solve(target, ref, out), -1);
        EXPECT_EQ(solve(good, nan_ref, out), -1);
        EXPECT_EQ(solver(good, nullptr, out), -1);
        EXPECT_EQ(solver(good, ref, nullptr), -1);
    }
    Pose pose = forward_kinematics(ref);
    pose.position.z = kNaN;
    EXPECT_EQ(inverse_kinematics(ref, pose, out, 0), -1);
    if (is_ax71()) {
        zk_inverse_kinematics_params_t params{};
        params.q_pose.position = {pose.position.x, pose.position.y, pose.position.z};
        params.q_pose.quaternion.w = 1.0f;
        EXPECT_EQ(inverse_kinematics_ax71_for_arm_angle(params, 0.3f, out), -1);  // NaN position
        params.q_pose.position.z = 0.5f;
        EXPECT_EQ(inverse_kinematics_ax71_for_arm_angle(params, kNaN, out), -1);
        EXPECT_EQ(inverse_kinematics_ax71_for_arm_angle(params, 0.3f, nullptr), -1);
        EXPECT_EQ(calculate_arm_angle_from_config_ax71(nullptr, &psi), -1);
        EXPECT_EQ(calculate_arm_angle_from_config_ax71(ref, nullptr), -1);
        EXPECT_EQ(calculate_arm_angle_from_config_ax71(nan_ref, &psi), -1);
    }
    for (float v : out) EXPECT_EQ(v, 9.0f);
    EXPECT_EQ(psi, 7.0f);
}

// Each function serves its family only: -3 for any other model, outputs untouched.
TEST(Ikine7, WrongModelGivesMinusThree)
{
    const Mat target = mat_eye(4, 4);
    for (RobotType type : {AX61, LUM61, TOR77, AX71}) {
        libalgo_init();
        ASSERT_EQ(libalgo_set_robot_and_sensor_type(type, _B), 0);
        float q[8] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f}, out[8] = {9, 9, 9, 9, 9, 9, 9, 9}, psi = 7.0f;
        zk_inverse_kinematics_params_t params{};
        params.q_pose.quaternion.w = 1.0f;
        if (type != AX71) {
            EXPECT_EQ(calculate_arm_angle_from_config_ax71(q, &psi), -3) << type;
            EXPECT_EQ(inverse_kinematics_ax71_for_arm_angle(params, 0.3f, out), -3) << type;
            EXPECT_EQ(inverse_kinematics_ax_71(target, q, out), -3) << type;
        }
        if (type != TOR77) {
            EXPECT_EQ(inverse_kinematics_tor7(target, q, out), -3) << type;
        }
        for (float v : out) EXPECT_EQ(v, 9.0f);
        EXPECT_EQ(psi, 7.0f);
    }
}

/* -----------------------------------------------------------------------------
 * The TOR77 chain and the plain-array products
 * -------------------------------------------------------------------------- */

// The chain's pose is the family's forward kinematics; its Jacobian the derivative of that
// pose, by central differences.
TEST(Ikine7, Tor77ChainMatchesForwardKinematicsAndItsDerivative)
{
    use_model(kTor77);
    const DH dh = libalgo_get_dh_value();
    constexpr float kH = 1e-3f;
    constexpr double kDerivativeTolerance = 1e-3;
    float model[8] = {};
    for (int j = 0; j < kJoints; ++j) model[j] = kTor77Regular[j] + dh.offset[j];
    Mat jac, pose;
    ASSERT_EQ(ikine_jacobe_and_pose_tor77(model, &jac, &pose), 0);
    ASSERT_EQ(jac.row, 6);
    ASSERT_EQ(jac.col, 7);
    const Matrix f = forward_kinematics_tor7(dh, kTor77Regular, 0);
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k) EXPECT_NEAR(pose.data[i][k], f.data[i][k], 1e-6);
    for (int j = 0; j < kJoints; ++j) {
        float hi[8], lo[8];
        copy7(kTor77Regular, hi);
        copy7(kTor77Regular, lo);
        hi[j] += kH;
        lo[j] -= kH;
        const Matrix a = forward_kinematics_tor7(dh, hi, 0), b = forward_kinematics_tor7(dh, lo, 0);
        for (int r = 0; r < 3; ++r)
            EXPECT_NEAR(jac.data[r][j], (a.data[r][3] - b.data[r][3]) / (2 * kH), kDerivativeTolerance);
        // The rotation between the two, a b^T, as a small rotation vector.
        double d[3][3] = {};
        for (int x = 0; x < 3; ++x)
            for (int y = 0; y < 3; ++y)
                for (int k = 0; k < 3; ++k) d[x][y] += static_cast<double>(a.data[x][k]) * b.data[y][k];
        const double w[3] = {d[2][1] - d[1][2], d[0][2] - d[2][0], d[1][0] - d[0][1]};
        for (int r = 0; r < 3; ++r) EXPECT_NEAR(jac.data[3 + r][j], w[r] / 2 / (2 * kH), kDerivativeTolerance);
    }
    EXPECT_EQ(ikine_jacobe_and_pose_tor77(nullptr, &jac, &pose), -1);
    EXPECT_EQ(ikine_jacobe_and_pose_tor77(model, nullptr, &pose), -1);
}

TEST(Ikine7, PlainArrayProductsEqualTheMatrixProduct)
{
    Matrix a = matrix_m(rotx(0.3f), roty(-0.7f)), b = rotz(1.1f);
    a.irow = a.iline = b.irow = b.iline = 4;
    a.data[0][3] = 0.2f;
    b.data[2][3] = -0.4f;
    a.data[3][3] = b.data[3][3] = 1.0f;
    const Matrix want = matrix_m(a, b);
    float fa[4][4], fb[4][4];
    double da[4][4], db[4][4], dout[4][4];
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k) {
            da[i][k] = fa[i][k] = a.data[i][k];
            db[i][k] = fb[i][k] = b.data[i][k];
        }
    marr_mD(da, db, dout);
    marr_m(fa, fb, fa);  // the output may be an operand
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k) {
            EXPECT_NEAR(fa[i][k], want.data[i][k], 1e-6);
            EXPECT_NEAR(dout[i][k], want.data[i][k], 1e-6);
        }
}

}  // namespace

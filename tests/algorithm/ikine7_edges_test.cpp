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

// AX71 has no outcome for a target beyond reach: the arm is held stretched, pointing its
// wrist at the target's wrist, with the flange turned as the target.
TEST(Ikine7, Ax71BeyondReachHoldsTheArmStretched)
{
    use_model(kAx71);
    const DH dh = libalgo_get_dh_value();
    Mat target = flange_of(kAx71Regular);
    for (int i = 0; i < 3; ++i) target.data[i][3] *= 3.0f;
    // Wrist relative to the shoulder: the flange less d7 along its approach, less d1.
    auto wrist_direction = [&](const float* p, const float* z) {
        const double w[3] = {p[0] - dh.d[6] * z[0], p[1] - dh.d[6] * z[1], p[2] - dh.d[6] * z[2] - dh.d[0]};
        const double n = std::sqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]);
        return std::array<double, 3>{w[0] / n, w[1] / n, w[2] / n};
    };
    const float tp[3] = {target.data[0][3], target.data[1][3], target.data[2][3]};
    const float tz[3] = {target.data[0][2], target.data[1][2], target.data[2][2]};
    const auto wanted = wrist_direction(tp, tz);
    for (int strategy : {1, 0}) {
        const StrategyGuard guard(strategy);
        float out[8] = {};
        const int rc = solve(target, kAx71Regular, out);
        EXPECT_TRUE(rc == 0 || rc == -2) << "strategy " << strategy << " rc " << rc;
        EXPECT_NEAR(out[3], 0.0f, 1e-6) << "strategy " << strategy;  // stretched
        const Matrix f = forward_kinematics_e(out);
        const float fp[3] = {f.data[0][3], f.data[1][3], f.data[2][3]};
        const float fz[3] = {f.data[0][2], f.data[1][2], f.data[2][2]};
        const auto reached = wrist_direction(fp, fz);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(reached[i], wanted[i], 1e-5) << "strategy " << strategy;
        EXPECT_LE(flange_error(out, target).angle, kAngleTolerance) << "strategy " << strategy;
    }
}

// A TOR77 target beyond reach: no value of joint 7 reaches it, -1, and q_out untouched.
TEST(Ikine7, Tor77BeyondReachFindsNothing)
{
    use_model(kTor77);
    Mat target = flange_of(kTor77Regular);
    for (int i = 0; i < 3; ++i) target.data[i][3] *= 3.0f;
    for (int strategy : {1, 0}) {
        const StrategyGuard guard(strategy);
        float out[8] = {9, 9, 9, 9, 9, 9, 9, 9};
        EXPECT_EQ(solve(target, kTor77Regular, out), -1) << "strategy " << strategy;
        for (float v : out) EXPECT_EQ(v, 9.0f);
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
// the redundancy offers one (AX71's joint 7 reaches a turn up).
TEST_P(SevenAxisEdges, JointSevenKeepsTheReferencesTurns)
{
    float q[8], ref[8];
    copy7(regular_joints(), q);
    q[6] = 0.5f;
    copy7(q, ref);
    ref[6] = static_cast<float>(q[6] + kTwoPi);
    const Mat target = flange_of(q);
    for (int strategy : {1, 0}) {
        const StrategyGuard guard(strategy);
        float out[8] = {};
        const int rc = solve(target, ref, out);
        EXPECT_EQ(rc, inside_widened_limits(out) ? 0 : -2) << "strategy " << strategy;
        if (strategy == 1) {
            EXPECT_NEAR(out[6], ref[6], 1e-3);
        }
        EXPECT_GT(out[6], kPi) << "strategy " << strategy;
        EXPECT_TRUE(reproduces(out, target)) << "strategy " << strategy;
    }
}

// AX71's joint 7 turns a whole turn either way: a reference near 6.0 is answered near 6.0,
// not a turn below, in both modes.
TEST(Ikine7, Ax71AnswersOnTheReferencesTurnWithinTheLimits)
{
    use_model(kAx71);
    for (float turn7 : {6.0f, -5.5f}) {
        float q[8];
        copy7(kAx71Regular, q);
        q[6] = turn7;
        const Mat target = flange_of(q);
        for (int strategy : {1, 0}) {
            const StrategyGuard guard(strategy);
            float out[8] = {};
            EXPECT_EQ(solve(target, q, out), 0) << turn7 << " strategy " << strategy;
            EXPECT_NEAR(out[6], turn7, 1e-4) << turn7 << " strategy " << strategy;
        }
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
    const Euler install{0.3f, -0.2f, 0.5f};
    libalgo_set_robot_install_angle(&install);
    const Coord tool{0.01f, -0.02f, 0.08f, 0.1f, 0.2f, -0.3f};
    libalgo_set_tool_cs_params(&tool);
    const Coord work{0.2f, -0.1f, 0.05f, 0.0f, 0.1f, 0.7f};
    libalgo_set_work_cs_params(&work);
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
    float ref[8], out[8];
    copy7(regular_joints(), ref);
    const Mat good = flange_of(ref);
    Mat nan_target = good;
    nan_target.data[1][3] = kNaN;
    Mat nan_rotation = good;
    nan_rotation.data[0][0] = kNaN;
    Mat not_square = good;
    not_square.col = 3;
    float nan_ref[8];
    copy7(ref, nan_ref);
    nan_ref[2] = kNaN;
    const auto solver = is_ax71() ? inverse_kinematics_ax_71 : inverse_kinematics_tor7;
    for (int strategy : {1, 0}) {
        const StrategyGuard guard(strategy);
        for (const Mat* target : {&nan_target, &nan_rotation, &not_square}) {
            std::fill(out, out + 8, 9.0f);
            float r[8];
            copy7(ref, r);
            EXPECT_EQ(solver(*target, r, out), -1);
            for (float v : out) EXPECT_EQ(v, 9.0f);
        }
        EXPECT_EQ(solver(good, nan_ref, out), -1);
        EXPECT_EQ(solver(good, nullptr, out), -1);
        EXPECT_EQ(solver(good, ref, nullptr), -1);
        for (float v : out) EXPECT_EQ(v, 9.0f);
    }
    Pose pose = forward_kinematics(ref);
    pose.position.z = kNaN;
    EXPECT_EQ(inverse_kinematics(ref, pose, out, 0), -1);
}

TEST(Ikine7, ArmAngleFunctionsRefuseBadInput)
{
    use_model(kAx71);
    float q[8], psi = 7.0f, out[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    copy7(kAx71Regular, q);
    zk_inverse_kinematics_params_t params{};
    const Pose p = forward_kinematics(q);
    params.q_pose.position = {p.position.x, p.position.y, p.position.z};
    params.q_pose.quaternion = {p.quaternion.w, p.quaternion.x, p.quaternion.y, p.quaternion.z};
    EXPECT_EQ(inverse_kinematics_ax71_for_arm_angle(params, kNaN, out), -1);
    EXPECT_EQ(inverse_kinematics_ax71_for_arm_angle(params, 0.3f, nullptr), -1);
    params.q_pose.position.x = kNaN;
    EXPECT_EQ(inverse_kinematics_ax71_for_arm_angle(params, 0.3f, out), -1);
    for (float v : out) EXPECT_EQ(v, 9.0f);
    EXPECT_EQ(calculate_arm_angle_from_config_ax71(nullptr, &psi), -1);
    EXPECT_EQ(calculate_arm_angle_from_config_ax71(q, nullptr), -1);
    q[0] = kNaN;
    EXPECT_EQ(calculate_arm_angle_from_config_ax71(q, &psi), -1);
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
    const Matrix a = matrix_m(rotx(0.3f), roty(-0.7f)), b = rotz(1.1f);
    Matrix ta = a, tb = b;
    ta.irow = ta.iline = tb.irow = tb.iline = 4;
    ta.data[0][3] = 0.2f;
    tb.data[2][3] = -0.4f;
    ta.data[3][3] = tb.data[3][3] = 1.0f;
    const Matrix want = matrix_m(ta, tb);
    float fa[4][4], fb[4][4], fout[4][4];
    double da[4][4], db[4][4], dout[4][4];
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k) {
            fa[i][k] = ta.data[i][k];
            fb[i][k] = tb.data[i][k];
            da[i][k] = ta.data[i][k];
            db[i][k] = tb.data[i][k];
        }
    marr_m(fa, fb, fout);
    marr_mD(da, db, dout);
    marr_m(fa, fb, fa);  // the output may be an operand
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k) {
            EXPECT_NEAR(fout[i][k], want.data[i][k], 1e-6);
            EXPECT_NEAR(dout[i][k], want.data[i][k], 1e-6);
            EXPECT_EQ(fa[i][k], fout[i][k]);
        }
}

}  // namespace

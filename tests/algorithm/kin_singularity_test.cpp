// Singularity analysis: the thresholds and their setters; the geometric rules for the
// shoulder (against the wrist point's component along the arm's radial axis), the elbow
// and the wrist by constructed joint vectors, their boundaries and priority; and the
// singular-value analysis against singular values computed independently from a
// finite-difference Jacobian in double precision.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "kinematics_test_util.h"

namespace {

using algo_test::property_cases;
using algo_test::Rng;
using kin_test::Joints;
using kin_test::T4;

constexpr float kDefaultShoulder = 0.05f;
constexpr float kDefaultAngle = 0.17453292f;

// Where each model keeps its elbow and wrist joint, and the elbow value at which its arm
// is stretched.
struct SingularModel {
    kin_test::ArmModel model;
    int elbow, wrist;
    float stretched;
};

const SingularModel kSingularModels[] = {
    {{AX61, _B, "AX61"}, 2, 4, 0.0f},
    {{AX71, _B, "AX71"}, 3, 5, 0.0f},
    {{AL64II, _B, "AL64II"}, 2, 4, -0.1690176847631309f},
    {{AL64III, _B, "AL64III"}, 2, 4, 0.0f},
    {{AL64IV, _B, "AL64IV"}, 2, 4, -0.1690176847631309f},
    {{LUM61, _B, "LUM61"}, 2, 4, 0.0f},
    {{LUM66, _B, "LUM66"}, 2, 4, 0.0f},
    {{LUM67, _B, "LUM67"}, 2, 4, 0.0f},
    {{TOR77, _B, "TOR77"}, 3, 5, -0.21700376721746303f},
    {{TOR77II, _B, "TOR77II"}, 3, 5, -0.21700376721746303f},
};

// The wrist point's component along the radial axis of joint 1, (cos t1, sin t1, 0): the
// signed distance from the plane of the base axis and the shoulder axis, from the double
// chain. The wrist point is frame 5 of a six-axis arm, frame 6 of a seven-axis one.
double radial_wrist(const Joints& q)
{
    double qd[8];
    for (int i = 0; i < 8; ++i) qd[i] = q[i];
    const DH dh = libalgo_get_dh_value();
    const bool standard = libalgo_get_robot_type() == AX71;
    const int last = libalgo_get_rbt_dof() == 6 ? 5 : 6;
    T4 t = kin_test::identity();
    for (int i = 0; i < last; ++i) {
        const double theta = qd[i] + dh.offset[i];
        t = kin_test::mul(t, standard ? kin_test::link_standard(dh.alpha[i], dh.a[i], theta, dh.d[i])
                                      : kin_test::link_modified(dh.alpha[i], dh.a[i], theta, dh.d[i]));
    }
    const double t1 = qd[0] + dh.offset[0];
    return t.m[0][3] * std::cos(t1) + t.m[1][3] * std::sin(t1);
}

double radial_wrist(const Joints& q);

// A joint vector clear of every singularity: elbow and wrist well bent, the wrist point
// well out of the shoulder plane (the shoulder joint is tried at a few values for that).
Joints clear_joints(const SingularModel& s)
{
    Joints q{0.4f, 0.3f, 0.6f, 0.5f, 0.7f, 0.8f, 0.3f};
    q[s.elbow] = s.stretched + 0.9f;
    q[s.wrist] = 1.0f;
    for (float shoulder : {0.3f, 0.8f, -0.5f, 1.2f, -1.0f}) {
        q[1] = shoulder;
        if (std::fabs(radial_wrist(q)) > 0.1) break;
    }
    return q;
}

// Moves q[1] until the wrist point lies in the shoulder plane; false if its component
// does not change sign within the joint's limits.
bool put_wrist_on_shoulder_plane(Joints& q)
{
    float lo[8], hi[8];
    libalgo_get_jointlim_min(lo);
    libalgo_get_jointlim_max(hi);
    constexpr int kSteps = 400;
    double a = lo[1], fa = 0.0;
    for (int k = 0; k <= kSteps; ++k) {
        double b = lo[1] + (hi[1] - lo[1]) * k / kSteps;
        q[1] = static_cast<float>(b);
        const double fb = radial_wrist(q);
        if (k > 0 && (fa < 0) != (fb < 0)) {
            for (int it = 0; it < 60; ++it) {
                const double m = 0.5 * (a + b);
                q[1] = static_cast<float>(m);
                const double fm = radial_wrist(q);
                if ((fm < 0) == (fa < 0)) {
                    a = m, fa = fm;
                } else {
                    b = m;
                }
            }
            return true;
        }
        a = b, fa = fb;
    }
    return false;
}

}  // namespace

/* -----------------------------------------------------------------------------
 * Thresholds
 * -------------------------------------------------------------------------- */

TEST(SingularityThresholds, DefaultsSettersAndGetters)
{
    float e = -1, w = -1, d = -1;
    kin_get_singularity_thresholds(&e, &w, &d);  // as loaded
    EXPECT_EQ(e, kDefaultAngle);
    EXPECT_EQ(w, kDefaultAngle);
    EXPECT_EQ(d, kDefaultShoulder);

    kin_set_singularity_thresholds(0.3f, 0.2f, 0.1f);
    kin_get_singularity_thresholds(&e, &w, &d);
    EXPECT_EQ(e, 0.3f);
    EXPECT_EQ(w, 0.2f);
    EXPECT_EQ(d, 0.1f);
    kin_get_singularity_thresholds(nullptr, &w, nullptr);  // null outputs are skipped
    EXPECT_EQ(w, 0.2f);

    kin_singularity_thresholds_init();
    kin_get_singularity_thresholds(&e, &w, &d);
    EXPECT_EQ(e, 0.17453292f);
    EXPECT_EQ(w, 0.17453292f);
    EXPECT_EQ(d, 0.05f);
}

/* -----------------------------------------------------------------------------
 * Geometric analysis
 * -------------------------------------------------------------------------- */

// The reported distance is the wrist point's distance from the shoulder plane, for every
// model (the standard chain of AX71 included), and a clear joint vector is not singular.
TEST(SingularityAnalysis, DistanceIsTheWristPointOffTheShoulderPlane)
{
    for (const SingularModel& s : kSingularModels) {
        kin_test::use_model(s.model);
        Rng rng(400 + s.model.type);
        for (int n = 0; n < property_cases() / 10; ++n) {
            const Joints q = kin_test::random_joints(rng);
            float distance = -1.0f;
            kin_robot_singularity_analyse(q.data(), "machine", &distance);
            ASSERT_NEAR(distance, std::fabs(radial_wrist(q)), 1e-5) << s.model.name << " " << kin_test::joints_text(q);
        }
        const Joints q = clear_joints(s);
        float distance = 0.0f;
        EXPECT_EQ(kin_robot_singularity_analyse(q.data(), "machine", &distance), 0) << s.model.name;
        EXPECT_GT(distance, 0.1f) << s.model.name;
        EXPECT_EQ(kin_robot_singularity_analyse(q.data(), "machine", nullptr), 0) << s.model.name;
    }
}

// Each rule by a constructed joint vector, table-driven over the models; the joint values
// count as given, so 2 pi is not singular.
TEST(SingularityAnalysis, ShoulderElbowAndWristByConstruction)
{
    constexpr float kPi = 3.14159265f;
    for (const SingularModel& s : kSingularModels) {
        kin_test::use_model(s.model);
        // A folded elbow brings the wrist point close to the shoulder: without a shoulder
        // threshold the elbow and wrist rules stand alone.
        kin_set_singularity_thresholds(kDefaultAngle, kDefaultAngle, 0.0f);
        const Joints clear = clear_joints(s);
        struct Case {
            int joint;
            float value;
            int expected;
        };
        const Case cases[] = {
            {s.elbow, s.stretched, -2},
            {s.elbow, s.stretched + kPi, -2},
            {s.elbow, s.stretched - kPi + 0.1f, -2},
            {s.elbow, s.stretched + 0.17f, -2},
            {s.elbow, s.stretched - 0.17f, -2},
            {s.elbow, s.stretched + 0.18f, 0},
            {s.elbow, s.stretched + 2.0f * kPi, 0},
            {s.wrist, 0.0f, -3},
            {s.wrist, kPi, -3},
            {s.wrist, -kPi, -3},
            {s.wrist, 0.17f, -3},
            {s.wrist, -3.0f, -3},
            {s.wrist, 0.18f, 0},
            {s.wrist, 2.0f * kPi, 0},
            {s.wrist, -2.0f * kPi, 0},
        };
        for (const Case& c : cases) {
            Joints q = clear;
            q[c.joint] = c.value;
            EXPECT_EQ(kin_robot_singularity_analyse(q.data(), "machine", nullptr), c.expected)
                << s.model.name << " joint " << c.joint << " = " << c.value;
        }

        // The shoulder, and the priority shoulder > elbow > wrist.
        kin_singularity_thresholds_init();
        Joints q = clear;
        ASSERT_TRUE(put_wrist_on_shoulder_plane(q)) << s.model.name;
        float distance = 1.0f;
        EXPECT_EQ(kin_robot_singularity_analyse(q.data(), "machine", &distance), -1) << s.model.name;
        EXPECT_LT(distance, 1e-4f) << s.model.name;
        q[s.wrist] = 0.0f;
        EXPECT_EQ(kin_robot_singularity_analyse(q.data(), "machine", nullptr), -1) << s.model.name;
        q = clear;
        q[s.elbow] = s.stretched;
        q[s.wrist] = kPi;
        EXPECT_EQ(kin_robot_singularity_analyse(q.data(), "machine", nullptr), -2) << s.model.name;
    }
}

// The thresholds steer the rules; their comparisons are strict.
TEST(SingularityAnalysis, ThresholdsSteerTheRules)
{
    const SingularModel& s = kSingularModels[0];
    kin_test::use_model(s.model);
    Joints q = clear_joints(s);
    q[s.elbow] = 0.25f;
    EXPECT_EQ(kin_robot_singularity_analyse(q.data(), "machine", nullptr), 0);
    kin_set_singularity_thresholds(0.3f, kDefaultAngle, kDefaultShoulder);
    EXPECT_EQ(kin_robot_singularity_analyse(q.data(), "machine", nullptr), -2);

    kin_singularity_thresholds_init();
    q = clear_joints(s);
    q[s.wrist] = kDefaultAngle;  // not strictly inside
    EXPECT_EQ(kin_robot_singularity_analyse(q.data(), "machine", nullptr), 0);
    q[s.wrist] = std::nextafter(kDefaultAngle, 0.0f);
    EXPECT_EQ(kin_robot_singularity_analyse(q.data(), "machine", nullptr), -3);

    q = clear_joints(s);
    float distance = 0.0f;
    ASSERT_EQ(kin_robot_singularity_analyse(q.data(), "machine", &distance), 0);
    kin_set_singularity_thresholds(kDefaultAngle, kDefaultAngle, distance * 1.001f);
    EXPECT_EQ(kin_robot_singularity_analyse(q.data(), "machine", nullptr), -1);
    kin_set_singularity_thresholds(kDefaultAngle, kDefaultAngle, distance);
    EXPECT_EQ(kin_robot_singularity_analyse(q.data(), "machine", nullptr), 0);
    kin_singularity_thresholds_init();
}

// "modeling" hands model angles to the chain (the joint rules still read q as given); a
// null joint vector is no singularity and writes nothing; NaN joints pass no rule.
TEST(SingularityAnalysis, ModesNullAndNan)
{
    const SingularModel& s = kSingularModels[2];  // AL64II: offsets on five joints
    kin_test::use_model(s.model);
    const Joints q = clear_joints(s);
    const DH dh = libalgo_get_dh_value();
    Joints model_angles = q;
    for (int i = 0; i < 8; ++i) model_angles[i] += dh.offset[i];
    float machine = 0.0f, modeling = 0.0f;
    kin_robot_singularity_analyse(q.data(), "machine", &machine);
    kin_robot_singularity_analyse(model_angles.data(), "modeling", &modeling);
    EXPECT_FLOAT_EQ(machine, modeling);

    float distance = 7.0f;
    EXPECT_EQ(kin_robot_singularity_analyse(nullptr, "machine", &distance), 0);
    EXPECT_EQ(distance, 7.0f);
    Joints nan = q;
    for (float& v : nan) v = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(kin_robot_singularity_analyse(nan.data(), "machine", &distance), 0);
    EXPECT_TRUE(std::isnan(distance));
}

/* -----------------------------------------------------------------------------
 * Singular values
 * -------------------------------------------------------------------------- */

namespace {

// Eigenvalues of a symmetric n x n matrix by cyclic Jacobi rotations.
void jacobi_eigenvalues(double a[7][7], int n, double* out)
{
    for (int sweep = 0; sweep < 100; ++sweep) {
        double off = 0.0;
        for (int p = 0; p < n; ++p)
            for (int r = p + 1; r < n; ++r) off += a[p][r] * a[p][r];
        if (off < 1e-30) break;
        for (int p = 0; p < n; ++p)
            for (int r = p + 1; r < n; ++r) {
                if (std::fabs(a[p][r]) < 1e-300) continue;
                const double theta = 0.5 * std::atan2(2 * a[p][r], a[r][r] - a[p][p]);
                const double c = std::cos(theta), s = std::sin(theta);
                for (int k = 0; k < n; ++k) {
                    const double akp = a[k][p], akr = a[k][r];
                    a[k][p] = c * akp - s * akr;
                    a[k][r] = s * akp + c * akr;
                }
                for (int k = 0; k < n; ++k) {
                    const double apk = a[p][k], ark = a[r][k];
                    a[p][k] = c * apk - s * ark;
                    a[r][k] = s * apk + c * ark;
                }
            }
    }
    for (int i = 0; i < n; ++i) out[i] = a[i][i];
}

// The smallest singular value of the flange Jacobian, from finite differences of the
// double chain: the square root of the smallest eigenvalue of J^T J (n = dof <= 6) or
// J J^T (seven axes: the six non-trivial ones).
double independent_smallest_singular_value(const Joints& q)
{
    const int dof = libalgo_get_rbt_dof();
    double j[6][7] = {};
    for (int c = 0; c < dof; ++c) {
        double col[6];
        kin_test::fd_column(q, c, kin_test::EndFrame::kFlange, col);
        for (int r = 0; r < 6; ++r) j[r][c] = col[r];
    }
    const int n = dof < 6 ? dof : 6;
    double g[7][7] = {};
    for (int a = 0; a < n; ++a)
        for (int b = 0; b < n; ++b)
            for (int k = 0; k < (dof <= 6 ? 6 : dof); ++k)
                g[a][b] += dof <= 6 ? j[k][a] * j[k][b] : j[a][k] * j[b][k];
    double eig[7];
    jacobi_eigenvalues(g, n, eig);
    double smallest = eig[0];
    for (int i = 1; i < n; ++i) smallest = std::fmin(smallest, eig[i]);
    return std::sqrt(std::fmax(smallest, 0.0));
}

}  // namespace

// The verdict turns at the smallest singular value, for six and seven axes; a
// constructed rank-deficient configuration is singular at any positive threshold.
TEST(SingularValueAnalysis, VerdictTurnsAtTheSmallestSingularValue)
{
    for (const SingularModel& s : kSingularModels) {
        kin_test::use_model(s.model);
        Rng rng(500 + s.model.type);
        for (int n = 0; n < 40; ++n) {
            const Joints q = kin_test::random_joints(rng);
            const double sigma = independent_smallest_singular_value(q);
            if (sigma < 1e-3) continue;  // too close to a singularity to place a threshold around
            float below = static_cast<float>(sigma * 0.99), above = static_cast<float>(sigma * 1.01);
            EXPECT_EQ(kine_robot_universal_singularity_analyse(q.data(), &below), 0) << s.model.name << " " << sigma;
            EXPECT_EQ(kine_robot_universal_singularity_analyse(q.data(), &above), -1) << s.model.name << " " << sigma;
        }
        // Six axes: wrist axes aligned, rank 5. Seven axes: the elbow stretched with joints
        // 1 and 3 in line, where the redundant joint cannot make up for the lost direction.
        Joints q = clear_joints(s);
        if (libalgo_get_rbt_dof() == 6) {
            q[s.wrist] = 0.0f;
        } else {
            q = Joints{};
            q[s.elbow] = s.stretched;
        }
        EXPECT_LT(independent_smallest_singular_value(q), 1e-6) << s.model.name;
        float tiny = 1e-4f;
        EXPECT_EQ(kine_robot_universal_singularity_analyse(q.data(), &tiny), -1) << s.model.name;
        EXPECT_EQ(kine_robot_universal_singularity_analyse(q.data(), nullptr), -1) << s.model.name;
    }
}

// The threshold: null means 0.01; a negative one is made positive and written back; one
// above 1.0 works as 1.0 and stays as given. No joints: the decomposition fails.
TEST(SingularValueAnalysis, ThresholdRulesAndFailures)
{
    kin_test::use_model(kSingularModels[0].model);
    Joints q = clear_joints(kSingularModels[0]);
    const double sigma = independent_smallest_singular_value(q);
    ASSERT_GT(sigma, 0.02);
    ASSERT_LT(sigma, 1.0);
    EXPECT_EQ(kine_robot_universal_singularity_analyse(q.data(), nullptr), 0);

    float threshold = -0.02f;
    EXPECT_EQ(kine_robot_universal_singularity_analyse(q.data(), &threshold), 0);
    EXPECT_EQ(threshold, 0.02f);
    threshold = -static_cast<float>(sigma * 1.01);
    EXPECT_EQ(kine_robot_universal_singularity_analyse(q.data(), &threshold), -1);
    EXPECT_GT(threshold, 0.0f);
    threshold = 5.0f;
    EXPECT_EQ(kine_robot_universal_singularity_analyse(q.data(), &threshold), -1);
    EXPECT_EQ(threshold, 5.0f);

    // Below the threshold of 0.01 that a null pointer stands for, not below 0.005.
    q[kSingularModels[0].wrist] = 0.03f;
    const double small = independent_smallest_singular_value(q);
    ASSERT_LT(small, 0.01);
    ASSERT_GT(small, 0.001);
    EXPECT_EQ(kine_robot_universal_singularity_analyse(q.data(), nullptr), -1);
    threshold = static_cast<float>(small * 0.9);
    EXPECT_EQ(kine_robot_universal_singularity_analyse(q.data(), &threshold), 0);

    threshold = -0.5f;
    EXPECT_EQ(kine_robot_universal_singularity_analyse(nullptr, &threshold), 0);
    EXPECT_EQ(threshold, 0.5f);

    libalgo_init();  // no joints: a 6 x 0 Jacobian
    EXPECT_EQ(kine_robot_universal_singularity_analyse(q.data(), nullptr), -2);
}

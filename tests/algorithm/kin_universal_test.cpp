// The universal chain: link matrices against their definitions as products of elementary
// transforms, the exact branches of nominal twists, the chain over arbitrary DH tables in
// both modes, every frame name and the snapshots; the Jacobians against central finite
// differences of an independent double-precision chain, in flange, tool and work frames.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "Algorithm/kinematics/tarn_universal_kin.h"
#include "kinematics_test_util.h"

namespace {

using algo_test::property_cases;
using algo_test::Rng;
using kin_test::Joints;
using kin_test::T4;

constexpr double kTol = 1e-5;

bool same_bits(const Matrix& a, const Matrix& b) { return std::memcmp(&a, &b, sizeof(Matrix)) == 0; }

DH random_dh(Rng& rng)
{
    DH dh{};
    for (int i = 0; i < 8; ++i) {
        dh.d[i] = rng.uniformf(-0.4f, 0.4f);
        dh.a[i] = rng.uniformf(-0.4f, 0.4f);
        dh.alpha[i] = rng.uniformf(-3.1f, 3.1f);
        dh.offset[i] = rng.uniformf(-1.0f, 1.0f);
    }
    return dh;
}

}  // namespace

/* -----------------------------------------------------------------------------
 * Link matrices
 * -------------------------------------------------------------------------- */

// Both conventions equal their products of elementary transforms, at any index.
TEST(UniversalChain, LinkMatricesFollowTheirConventions)
{
    Rng rng(21);
    for (int n = 0; n < property_cases(); ++n) {
        const DH dh = random_dh(rng);
        float theta[8];
        for (float& t : theta) t = rng.uniformf(-6.3f, 6.3f);
        const int i = n % 8;
        const Matrix mdh = kin_get_MDH_Ti(i, &dh, theta);
        const Matrix sdh = kin_get_SDH_Ti(i, &dh, theta);
        ASSERT_EQ(mdh.irow, 4);
        ASSERT_EQ(sdh.iline, 4);
        ASSERT_LE(kin_test::max_entry_diff(mdh, kin_test::link_modified(dh.alpha[i], dh.a[i], theta[i], dh.d[i]), 4, 4),
                  kTol);
        ASSERT_LE(kin_test::max_entry_diff(sdh, kin_test::link_standard(dh.alpha[i], dh.a[i], theta[i], dh.d[i]), 4, 4),
                  kTol);
    }
}

// A twist within 1e-5 of 0, +-pi/2 or +-pi gives exact zeros where its cosine or sine
// vanishes; a twist farther off goes through the trigonometry.
TEST(UniversalChain, NominalTwistsTakeExactCosineAndSine)
{
    struct Case {
        float alpha;
        bool exact;
        float c, s;  // expected exact values when exact
    };
    const Case cases[] = {
        {0.0f, true, 1, 0},          {4e-6f, true, 1, 0},          {-9e-6f, true, 1, 0},
        {1.5707964f, true, 0, 1},    {1.5708f, true, 0, 1},        {1.570790f, true, 0, 1},
        {-1.5707964f, true, 0, -1},  {-1.5708f, true, 0, -1},      {3.1415927f, true, -1, 0},
        {-3.1415927f, true, -1, 0},  {3.14159f, true, -1, 0},      {1.571f, false, 0, 0},
        {1.5707f, false, 0, 0},      {2e-5f, false, 0, 0},         {3.1417f, false, 0, 0},
    };
    const float theta[8] = {0.7f, 0.7f, 0.7f, 0.7f, 0.7f, 0.7f, 0.7f, 0.7f};
    const float st = std::sin(0.7f), ct = std::cos(0.7f);
    for (const Case& c : cases) {
        DH dh{};
        dh.alpha[2] = c.alpha;
        dh.d[2] = 0.3f;
        dh.a[2] = 0.2f;
        const Matrix m = kin_get_MDH_Ti(2, &dh, theta);
        const Matrix s = kin_get_SDH_Ti(2, &dh, theta);
        if (c.exact) {
            // Modified: row 1 is s(th) c(al), c(th) c(al), -s(al), -d s(al).
            EXPECT_EQ(m.data[1][2], -c.s) << c.alpha;
            EXPECT_EQ(m.data[2][2], c.c) << c.alpha;
            EXPECT_EQ(m.data[2][3], 0.3f * c.c) << c.alpha;
            EXPECT_EQ(s.data[2][1], c.s) << c.alpha;
            EXPECT_EQ(s.data[2][2], c.c) << c.alpha;
            if (c.c == 0.0f) {
                EXPECT_EQ(std::fabs(m.data[1][0]), 0.0f) << c.alpha;
                EXPECT_EQ(std::fabs(s.data[0][1]), 0.0f) << c.alpha;
            } else {
                EXPECT_EQ(std::fabs(m.data[2][0]), 0.0f) << c.alpha;
                EXPECT_EQ(std::fabs(s.data[0][2]), 0.0f) << c.alpha;
            }
        } else {
            EXPECT_FLOAT_EQ(m.data[2][2], std::cos(c.alpha)) << c.alpha;
            EXPECT_FLOAT_EQ(m.data[1][2], -std::sin(c.alpha)) << c.alpha;
            // At least one of the two is off its nominal value.
            const bool nominal_c = m.data[2][2] == std::round(m.data[2][2]);
            const bool nominal_s = m.data[1][2] == std::round(m.data[1][2]);
            EXPECT_FALSE(nominal_c && nominal_s) << c.alpha;
        }
        EXPECT_FLOAT_EQ(m.data[0][0], ct);
        EXPECT_FLOAT_EQ(m.data[0][1], -st);
    }
}

// Out-of-range indices and null pointers give the zero record and read nothing.
TEST(UniversalChain, LinkMatricesRefuseBadArguments)
{
    const DH dh{};
    const float theta[8] = {};
    for (int i : {-1, 8, 1000}) {
        EXPECT_TRUE(same_bits(kin_get_MDH_Ti(i, &dh, theta), Matrix{})) << i;
        EXPECT_TRUE(same_bits(kin_get_SDH_Ti(i, &dh, theta), Matrix{})) << i;
    }
    EXPECT_TRUE(same_bits(kin_get_MDH_Ti(0, nullptr, theta), Matrix{}));
    EXPECT_TRUE(same_bits(kin_get_SDH_Ti(0, &dh, nullptr), Matrix{}));
}

/* -----------------------------------------------------------------------------
 * The chain
 * -------------------------------------------------------------------------- */

// Over arbitrary DH tables, "machine" adds the offset and "modeling" does not; AX71 runs
// the standard convention, every other type the modified one.
TEST(UniversalChain, ChainOverArbitraryTablesInBothModes)
{
    Rng rng(22);
    for (RobotType type : {AX61, AX71, TOR77, LUM66, UNIVERSAL}) {
        libalgo_init();
        ASSERT_EQ(libalgo_set_robot_and_sensor_type(type, _B), 0);
        for (int n = 0; n < property_cases() / 5; ++n) {
            const DH dh = random_dh(rng);
            libalgo_set_dh_params(&dh);
            Joints q{};
            for (int i = 0; i < 8; ++i) q[i] = rng.uniformf(-3, 3);
            const T4 ref = kin_test::reference_chain(q);
            ASSERT_LE(kin_test::max_entry_diff(kin_universal_kinematics_Tn(q.data(), "machine", "T0n"), ref, 4, 4), kTol);
            // Any text other than "modeling" is the machine mode.
            for (const char* mode : {"", "Machine", "modeling ", static_cast<const char*>(nullptr)})
                ASSERT_TRUE(same_bits(kin_universal_kinematics_Tn(q.data(), mode, "T0n"),
                                      kin_universal_kinematics_Tn(q.data(), "machine", "T0n")));
            Joints model_angles = q;
            for (int i = 0; i < 8; ++i) model_angles[i] = q[i] + dh.offset[i];
            ASSERT_LE(kin_test::max_entry_diff(kin_universal_kinematics_Tn(model_angles.data(), "modeling", "T0n"), ref,
                                               4, 4),
                      kTol);
        }
    }
}

// Every frame name gives the product it names, the first match in table order; any
// other text, and a null one, gives Tw Ti.
TEST(UniversalChain, FrameNamesGiveTheirProducts)
{
    Rng rng(23);
    for (const kin_test::ArmModel& model : kin_test::kArmModels) {
        kin_test::use_model(model);
        for (int n = 0; n < 30; ++n) {
            kin_test::randomize_frames(rng);
            const Joints q = kin_test::random_joints(rng);
            const T4 t0n = kin_test::reference_chain(q);
            const T4 tt = kin_test::from_matrix(libalgo_get_tool_cs_matrix());
            const T4 ti = kin_test::from_matrix(libalgo_get_robot_install_angle_matrix());
            const T4 tw = kin_test::from_matrix(libalgo_get_work_cs_to_base_matrix());
            const T4 tw_ti = kin_test::mul(tw, ti);
            struct Named {
                const char* name;
                T4 expected;
            };
            const Named named[] = {
                {"Twt", kin_test::mul(tw_ti, kin_test::mul(t0n, tt))},
                {"T0n", t0n},
                {"T0t", kin_test::mul(t0n, tt)},
                {"Tbt", kin_test::mul(ti, kin_test::mul(t0n, tt))},
                {"Tbn", kin_test::mul(ti, t0n)},
                {"Twn", kin_test::mul(tw_ti, t0n)},
                {"", tw_ti},
                {"Twb", tw_ti},
                {"twt", tw_ti},
                {"Twt ", tw_ti},
            };
            for (const Named& entry : named) {
                const Matrix m = kin_universal_kinematics_Tn(q.data(), "machine", entry.name);
                EXPECT_EQ(m.irow, 4) << entry.name;
                EXPECT_LE(kin_test::max_entry_diff(m, entry.expected, 4, 4), kTol) << model.name << " " << entry.name;
            }
            EXPECT_LE(kin_test::max_entry_diff(kin_universal_kinematics_Tn(q.data(), "machine", nullptr), tw_ti, 4, 4),
                      kTol);
        }
    }
}

// The snapshots hold the chain after joints 2, 5 and 6 of the q of the last run, whatever
// frame was asked; for a six-axis arm T06 is T0n.
TEST(UniversalChain, SnapshotsFollowTheLastRun)
{
    Rng rng(24);
    for (const kin_test::ArmModel& model : kin_test::kArmModels) {
        kin_test::use_model(model);
        const int dof = libalgo_get_rbt_dof();
        const DH dh = libalgo_get_dh_value();
        for (int n = 0; n < 30; ++n) {
            const Joints q = kin_test::random_joints(rng), other = kin_test::random_joints(rng);
            // The partial chains, from the model's own links.
            T4 partial[8];
            T4 t = kin_test::identity();
            for (int i = 0; i < dof; ++i) {
                const double theta = static_cast<double>(q[i]) + dh.offset[i];
                t = kin_test::mul(t, model.type == AX71 ? kin_test::link_standard(dh.alpha[i], dh.a[i], theta, dh.d[i])
                                                        : kin_test::link_modified(dh.alpha[i], dh.a[i], theta, dh.d[i]));
                partial[i] = t;
            }
            kin_universal_kinematics_Tn(q.data(), "machine", "Twt");
            EXPECT_LE(kin_test::max_entry_diff(T02, partial[1], 4, 4), kTol) << model.name;
            EXPECT_LE(kin_test::max_entry_diff(T05, partial[4], 4, 4), kTol) << model.name;
            EXPECT_LE(kin_test::max_entry_diff(T06, partial[5], 4, 4), kTol) << model.name;
            // Asked of another joint vector, the chain runs first.
            EXPECT_TRUE(same_bits(kin_universal_kinematics_Tn(q.data(), "machine", "T02"), T02));
            EXPECT_LE(kin_test::max_entry_diff(kin_universal_kinematics_Tn(q.data(), "machine", "T05"), partial[4], 4, 4),
                      kTol);
            const Matrix other02 = kin_universal_kinematics_Tn(other.data(), "machine", "T02");
            EXPECT_GT(kin_test::max_entry_diff(other02, partial[1], 4, 4), 1e-6) << model.name;
            EXPECT_TRUE(same_bits(other02, T02));
            if (dof == 6) {
                EXPECT_TRUE(same_bits(kin_universal_kinematics_Tn(q.data(), "machine", "T06"),
                                      kin_universal_kinematics_Tn(q.data(), "machine", "T0n")));
            }
        }
    }
}

// A model without joints: T0n is the identity, and the snapshots keep what they held.
TEST(UniversalChain, EmptyModelLeavesSnapshots)
{
    kin_test::use_model({AX61, _B, "AX61"});
    const Joints q{0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f};
    kin_universal_kinematics_Tn(q.data(), "machine", "T0n");
    const Matrix t06 = T06;
    libalgo_init();
    EXPECT_TRUE(same_bits(kin_universal_kinematics_Tn(q.data(), "machine", "T0n"), unit_matrix(4)));
    EXPECT_TRUE(same_bits(T06, t06));
    EXPECT_TRUE(same_bits(kin_universal_kinematics_Tn(q.data(), "machine", "T06"), t06));
    EXPECT_TRUE(same_bits(kin_universal_kinematics_Tn(nullptr, "machine", "T0n"), Matrix{}));
}

/* -----------------------------------------------------------------------------
 * Jacobians against finite differences
 * -------------------------------------------------------------------------- */

namespace {

using kin_test::EndFrame;
using kin_test::fd_column;

// Jacobian entries are metres (linear rows) and unitless (angular rows), all below ~2.
constexpr double kJacobianTol = 2e-5;

}  // namespace

TEST(Jacobian, FlangeToolAndWorkFramesMatchFiniteDifferences)
{
    for (const kin_test::ArmModel& model : kin_test::kArmModels) {
        kin_test::use_model(model);
        Rng rng(3000 + model.type * 10 + model.sensor);
        const int dof = libalgo_get_rbt_dof();
        const int cases = std::max(1, property_cases() / 30);
        double worst = 0.0;
        for (int n = 0; n < cases; ++n) {
            kin_test::randomize_frames(rng);
            const Joints q = kin_test::random_joints(rng);
            const struct {
                EndFrame end;
                Matrix_more j;
                const char* name;
            } jacobians[] = {
                {EndFrame::kFlange, kin_calc_jacobe_Jn(q.data(), "machine"), "Jn"},
                {EndFrame::kTool, kin_calc_jacobe_Jt(q.data(), "machine"), "Jt"},
                {EndFrame::kWork, kin_calc_jacobe_J0(q.data(), "machine"), "J0"},
            };
            for (const auto& entry : jacobians) {
                ASSERT_EQ(entry.j.irow, 6) << entry.name;
                ASSERT_EQ(entry.j.iline, dof) << entry.name;
                for (int c = 0; c < dof; ++c) {
                    double fd[6];
                    fd_column(q, c, entry.end, fd);
                    for (int r = 0; r < 6; ++r) {
                        const double d = std::fabs(entry.j.data[r][c] - fd[r]);
                        worst = std::fmax(worst, d);
                        ASSERT_LE(d, kJacobianTol) << model.name << " " << entry.name << " (" << r << ", " << c << ") "
                                                   << kin_test::joints_text(q);
                    }
                }
                for (int r = 0; r < 7; ++r)
                    for (int c = 0; c < 7; ++c)
                        if (r >= 6 || c >= dof) {
                            ASSERT_EQ(entry.j.data[r][c], 0.0f) << entry.name;
                        }
            }
        }
        RecordProperty(std::string(model.name) + "_worst", kin_test::sci(worst));
    }
}

// with_tool 1 is the tool frame, any other value the flange; "modeling" takes model
// angles; a null joint vector gives the zero record; a model without joints an empty 6 x 0.
TEST(Jacobian, SelectorsModesAndEmptyModels)
{
    Rng rng(31);
    kin_test::use_model({TOR77, _B, "TOR77"});
    kin_test::randomize_frames(rng);
    const Joints q = kin_test::random_joints(rng);
    const DH dh = libalgo_get_dh_value();
    Joints model_angles = q;
    for (int i = 0; i < 8; ++i) model_angles[i] += dh.offset[i];
    auto same = [](const Matrix_more& a, const Matrix_more& b) { return std::memcmp(&a, &b, sizeof(a)) == 0; };
    EXPECT_TRUE(same(kin_calc_jacobe_Jx(q.data(), "machine", 1), kin_calc_jacobe_Jt(q.data(), "machine")));
    for (int with_tool : {0, 2, -1})
        EXPECT_TRUE(same(kin_calc_jacobe_Jx(q.data(), "machine", with_tool), kin_calc_jacobe_Jn(q.data(), "machine")));
    EXPECT_FALSE(same(kin_calc_jacobe_Jn(q.data(), "machine"), kin_calc_jacobe_Jt(q.data(), "machine")));
    EXPECT_TRUE(same(kin_calc_jacobe_Jt(model_angles.data(), "modeling"), kin_calc_jacobe_Jt(q.data(), "machine")));
    EXPECT_TRUE(same(kin_calc_jacobe_J0(model_angles.data(), "modeling"), kin_calc_jacobe_J0(q.data(), "machine")));
    EXPECT_TRUE(same(kin_calc_jacobe_J0(nullptr, "machine"), Matrix_more{}));
    EXPECT_TRUE(same(kin_calc_jacobe_Jx(nullptr, "machine", 1), Matrix_more{}));

    libalgo_init();
    const Matrix_more empty = kin_calc_jacobe_Jn(q.data(), "machine");
    EXPECT_EQ(empty.irow, 6);
    EXPECT_EQ(empty.iline, 0);
    Matrix_more zero{};
    zero.irow = 6;
    EXPECT_TRUE(same(empty, zero));
}

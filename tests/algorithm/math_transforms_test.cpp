// Fixed-size transforms and rotations.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>

#include "algo_test_util.h"
#include "libalgo.h"
#include "zk_types.h"

using algo_test::angle_diff;
using algo_test::max_diff_rec;
using algo_test::property_cases;
using algo_test::Rng;

namespace {

constexpr float kPiF = std::numbers::pi_v<float>;

Matrix make(int16_t rows, int16_t cols, std::initializer_list<float> values)
{
    Matrix m = zero_matrix(rows, cols);
    auto it = values.begin();
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) m.data[i][j] = *it++;
    return m;
}

Matrix random_matrix(Rng& rng, int n)
{
    Matrix m = zero_matrix(static_cast<int16_t>(n), static_cast<int16_t>(n));
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) m.data[i][j] = rng.uniformf(-1.0f, 1.0f);
    return m;
}

Matrix_more random_matrix7(Rng& rng, int n)
{
    Matrix_more m{};
    m.irow = m.iline = static_cast<int16_t>(n);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) m.data[i][j] = rng.uniformf(-1.0f, 1.0f);
    return m;
}

template <class M>
double norm_inf(const M& m, int n)
{
    double best = 0.0;
    for (int i = 0; i < n; ++i) {
        double row = 0.0;
        for (int j = 0; j < n; ++j) row += std::fabs(m.data[i][j]);
        best = std::fmax(best, row);
    }
    return best;
}

template <class M>
double identity_error(const M& m, int n)
{
    double e = 0.0;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) e = std::fmax(e, std::fabs(m.data[i][j] - (i == j ? 1.0 : 0.0)));
    return e;
}

Pose random_pose(Rng& rng)
{
    Pose p{};
    p.position = Pos{rng.uniformf(-1, 1), rng.uniformf(-1, 1), rng.uniformf(-1, 1)};
    p.euler = Euler{rng.uniformf(-3.1f, 3.1f), rng.uniformf(-1.5f, 1.5f), rng.uniformf(-3.1f, 3.1f)};
    return p;
}

void expect_storage_zero_outside(const Matrix& m)
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            if (i >= m.irow || j >= m.iline) {
                EXPECT_EQ(m.data[i][j], 0.0f) << i << "," << j;
            }
}

}  // namespace

/* -----------------------------------------------------------------------------
 * Basic operations and shapes
 * -------------------------------------------------------------------------- */

TEST(MathTransforms, ZeroAndUnitMatrixHeaders)
{
    Matrix z = zero_matrix(2, 3);
    EXPECT_EQ(z.irow, 2);
    EXPECT_EQ(z.iline, 3);
    Matrix u = unit_matrix(3);
    EXPECT_EQ(u.irow, 3);
    EXPECT_EQ(u.data[2][2], 1.0f);
    EXPECT_EQ(u.data[3][3], 0.0f);
    Matrix none = unit_matrix(0);
    EXPECT_EQ(none.irow, 0);
    Matrix negative = unit_matrix(-2);
    EXPECT_EQ(negative.irow, -2);
    EXPECT_EQ(negative.iline, -2);
    for (auto& row : negative.data)
        for (float v : row) EXPECT_EQ(v, 0.0f);
    // Above the storage: the header stays, the identity fills the storage.
    Matrix big = unit_matrix(9);
    EXPECT_EQ(big.irow, 9);
    EXPECT_EQ(big.data[3][3], 1.0f);
}

TEST(MathTransforms, ProductShapeAndStorage)
{
    Matrix a = rotz(0.3f);
    Matrix b = make(3, 1, {1, 2, 3});
    Matrix p = matrix_m(a, b);
    EXPECT_EQ(p.irow, 3);
    EXPECT_EQ(p.iline, 1);
    expect_storage_zero_outside(p);
    EXPECT_NEAR(p.data[0][0], std::cos(0.3f) - 2 * std::sin(0.3f), 1e-6);
    EXPECT_FLOAT_EQ(p.data[2][0], 3.0f);
}

TEST(MathTransforms, ProductDegenerateHeaders)
{
    Matrix a = unit_matrix(4);
    Matrix b = unit_matrix(4);
    a.irow = 0;
    Matrix p = matrix_m(a, b);
    EXPECT_EQ(p.irow, 0);
    EXPECT_EQ(p.iline, 4);
    a = unit_matrix(4);
    a.iline = 0;  // no inner terms: zeros
    p = matrix_m(a, b);
    EXPECT_EQ(p.irow, 4);
    for (auto& row : p.data)
        for (float v : row) EXPECT_EQ(v, 0.0f);
    // Headers outside the storage are clamped in reading (ASan would see a stray access).
    a = unit_matrix(4);
    a.irow = 300;
    a.iline = -7;
    b.iline = 100;
    p = matrix_m(a, b);
    EXPECT_EQ(p.irow, 300);
    EXPECT_EQ(p.iline, 100);
}

TEST(MathTransforms, ProductUsesDoubleAccumulator)
{
    // 1e8 + 1 - 1e8 is 0 in float accumulation and 1 in a double accumulator.
    Matrix a = make(1, 3, {1e8f, 1.0f, -1e8f});
    Matrix b = make(3, 1, {1.0f, 1.0f, 1.0f});
    EXPECT_EQ(matrix_m(a, b).data[0][0], 1.0f);
    Matrix_more a7{}, b7{};
    a7.irow = 1;
    a7.iline = 3;
    b7.irow = 3;
    b7.iline = 1;
    a7.data[0][0] = 1e8f;
    a7.data[0][1] = 1.0f;
    a7.data[0][2] = -1e8f;
    b7.data[0][0] = b7.data[1][0] = b7.data[2][0] = 1.0f;
    EXPECT_EQ(matrix_m_dim7(a7, b7).data[0][0], 1.0f);
}

TEST(MathTransforms, TransposeAddScale)
{
    Matrix a = make(2, 3, {1, 2, 3, 4, 5, 6});
    Matrix t = matrix_t(a);
    EXPECT_EQ(t.irow, 3);
    EXPECT_EQ(t.iline, 2);
    EXPECT_EQ(t.data[2][1], 6.0f);
    Matrix s = matrix_a(a, a, 1);
    EXPECT_EQ(s.data[1][2], 12.0f);
    Matrix d = matrix_a(a, a, 0);
    EXPECT_EQ(d.data[1][2], 0.0f);
    d = matrix_a(a, make(1, 1, {1}), -1);  // shape is a's
    EXPECT_EQ(d.irow, 2);
    EXPECT_EQ(d.data[0][0], 0.0f);
    Matrix k = matrix_m_num(2.0f, a);
    EXPECT_EQ(k.data[1][0], 8.0f);
    expect_storage_zero_outside(k);
}

TEST(MathTransforms, CrossSignAtan2)
{
    Matrix x = make(3, 1, {1, 0, 0});
    Matrix y = make(3, 1, {0, 1, 0});
    Matrix z = cross(x, y);
    EXPECT_EQ(z.irow, 3);
    EXPECT_EQ(z.iline, 1);
    EXPECT_EQ(z.data[2][0], 1.0f);
    EXPECT_EQ(zk_sign(2.0f), 1);
    EXPECT_EQ(zk_sign(-2.0f), -1);
    EXPECT_EQ(zk_sign(0.0f), 0);
    EXPECT_EQ(zk_sign(-0.0f), 0);
    EXPECT_EQ(zk_sign(std::numeric_limits<float>::quiet_NaN()), 0);
    EXPECT_TRUE(std::isnan(my_atan2f(0.0f, 0.0f)));
    Rng rng(11);
    for (int i = 0; i < 1000; ++i) {
        const float y0 = rng.uniformf(-5, 5), x0 = rng.uniformf(-5, 5);
        EXPECT_NEAR(my_atan2f(y0, x0), std::atan2(y0, x0), 2e-3) << y0 << " " << x0;
    }
    EXPECT_NEAR(my_atan2f(0.0f, -1.0f), kPiF, 1e-6);
}

TEST(MathTransforms, ElementaryRotations)
{
    const float a = 0.7f, c = std::cos(a), s = std::sin(a);
    Matrix x = rotx(a), y = roty(a), z = rotz(a);
    EXPECT_EQ(x.data[1][1], c);
    EXPECT_EQ(x.data[1][2], -s);
    EXPECT_EQ(x.data[2][1], s);
    EXPECT_EQ(y.data[0][2], s);
    EXPECT_EQ(y.data[2][0], -s);
    EXPECT_EQ(z.data[0][1], -s);
    EXPECT_EQ(z.data[1][0], s);
    EXPECT_EQ(x.irow, 3);
    EXPECT_EQ(x.iline, 3);
    Matrix t = matrix_T2R(pose_euler_to_transformation_matrix(Pose{{1, 2, 3}, {}, {0.1f, 0.2f, 0.3f}}));
    EXPECT_EQ(t.irow, 3);
    EXPECT_EQ(t.data[0][3], 0.0f);
}

/* -----------------------------------------------------------------------------
 * Inverses
 * -------------------------------------------------------------------------- */

TEST(MathTransforms, InverseOfZeroIsNonFinite)
{
    Matrix inv = matrix_inv(zero_matrix(3, 3));
    bool finite = true;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) finite = finite && std::isfinite(inv.data[i][j]);
    EXPECT_FALSE(finite);
    EXPECT_EQ(inv.irow, 3);
    Matrix_more inv7 = matrix_inv_dim7(Matrix_more{7, 7, {}});
    EXPECT_FALSE(std::isfinite(inv7.data[0][0]));
    EXPECT_FALSE(std::isfinite(matrix_inv_full_rank(zero_matrix(4, 4)).data[0][0]));
}

TEST(MathTransforms, InverseWithEqualMagnitudePivots)
{
    // Every entry has magnitude 1: the first in row-major order is the pivot.
    Matrix a = make(3, 3, {1, -1, 1, -1, 1, 1, 1, 1, -1});
    Matrix inv = matrix_inv(a);
    EXPECT_LT(identity_error(matrix_m(inv, a), 3), 1e-6);
    // The exact inverse: A (1, 0, 1) = 2 e1, A (0, 1, 1) = 2 e2, A (1, 1, 0) = 2 e3.
    Matrix expect = make(3, 3, {0.5f, 0, 0.5f, 0, 0.5f, 0.5f, 0.5f, 0.5f, 0});
    EXPECT_LT(max_diff_rec(inv, expect, 3, 3), 1e-6);
}

TEST(MathTransforms, InverseNeedsPivoting)
{
    Matrix a = make(3, 3, {0, 2, 0, 0, 0, 3, 4, 0, 0});
    Matrix inv = matrix_inv(a);
    EXPECT_LT(identity_error(matrix_m(a, inv), 3), 1e-7);
    EXPECT_FLOAT_EQ(inv.data[1][0], 0.5f);
    EXPECT_FLOAT_EQ(inv.data[2][1], 1.0f / 3.0f);
    EXPECT_FLOAT_EQ(inv.data[0][2], 0.25f);
}

TEST(MathTransforms, FrameInverseIgnoresBottomRow)
{
    Matrix t = pose_euler_to_transformation_matrix(Pose{{0.1f, -0.2f, 0.3f}, {}, {0.4f, -0.5f, 0.6f}});
    Matrix skewed = t;
    skewed.data[3][0] = 5.0f;
    skewed.data[3][3] = 7.0f;
    skewed.irow = 2;  // the header is not read either
    Matrix a = matrix_inv_coordinate_system(t);
    Matrix b = matrix_inv_coordinate_system(skewed);
    EXPECT_EQ(std::memcmp(&a, &b, sizeof(Matrix)), 0);
    EXPECT_EQ(b.irow, 4);
    EXPECT_EQ(b.data[3][3], 1.0f);
    EXPECT_EQ(b.data[3][0], 0.0f);
}

TEST(MathTransforms, PropertyGeneralInverse)
{
    Rng rng(101);
    const int cases = property_cases();
    for (int c = 0; c < cases; ++c) {
        const int n = 1 + c % 4;
        Matrix a = random_matrix(rng, n);
        Matrix inv = matrix_inv(a);
        const double cond = norm_inf(a, n) * norm_inf(inv, n);
        ASSERT_LT(identity_error(matrix_m(inv, a), n), 1e-6 * n * cond) << "case " << c;
        ASSERT_EQ(inv.irow, n);
    }
    for (int c = 0; c < cases; ++c) {
        const int n = 1 + c % 7;
        Matrix_more a = random_matrix7(rng, n);
        Matrix_more inv = matrix_inv_dim7(a);
        const double cond = norm_inf(a, n) * norm_inf(inv, n);
        ASSERT_LT(identity_error(matrix_m_dim7(inv, a), n), 1e-6 * n * cond) << "case " << c;
    }
}

TEST(MathTransforms, PropertyFrameInverseMatchesGeneral)
{
    Rng rng(102);
    const int cases = property_cases();
    for (int c = 0; c < cases; ++c) {
        Matrix t = pose_euler_to_transformation_matrix(random_pose(rng));
        if (c % 2) {
            // A non-orthonormal block: the adjugate form stays right.
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) t.data[i][j] += rng.uniformf(-0.3f, 0.3f);
        }
        Matrix a = matrix_inv_coordinate_system(t);
        Matrix b = matrix_inv(t);
        Matrix f = matrix_inv_full_rank(t);
        const double cond = norm_inf(t, 4) * norm_inf(b, 4);
        ASSERT_LT(max_diff_rec(a, b, 4, 4), 2e-6 * cond) << "case " << c;
        ASSERT_LT(max_diff_rec(f, b, 4, 4), 2e-6 * cond) << "case " << c;
        ASSERT_LT(identity_error(matrix_m(a, t), 4), 2e-6 * cond) << "case " << c;
    }
}

TEST(MathTransforms, SimpInverse77MatchesGeneral)
{
    Rng rng(103);
    for (int c = 0; c < property_cases(); ++c) {
        Matrix_more m{};
        m.irow = m.iline = 7;
        m.data[0][0] = 1.0f;
        m.data[6][6] = 1.0f;
        for (int r = 1; r <= 5; ++r) {
            m.data[r][r - 1] = rng.uniformf(0.1f, 1.0f);
            m.data[r][r] = rng.uniformf(2.5f, 4.0f);
            m.data[r][r + 1] = rng.uniformf(0.1f, 1.0f);
        }
        Matrix_more fast = simp_matrix_inv77(m);
        Matrix_more general = matrix_inv_dim7(m);
        ASSERT_EQ(fast.irow, 7);
        ASSERT_LT(max_diff_rec(fast, general, 7, 7), 1e-5) << "case " << c;
        ASSERT_LT(identity_error(matrix_m_dim7(m, fast), 7), 1e-5) << "case " << c;
    }
    // Entries outside the 15 interior ones are not read.
    Matrix_more m{};
    m.irow = m.iline = 7;
    for (int r = 1; r <= 5; ++r) {
        m.data[r][r - 1] = 1;
        m.data[r][r] = 4;
        m.data[r][r + 1] = 1;
    }
    Matrix_more noisy = m;
    noisy.data[0][3] = 9;
    noisy.data[6][1] = 9;
    noisy.data[3][6] = 9;
    Matrix_more a = simp_matrix_inv77(m), b = simp_matrix_inv77(noisy);
    EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
    EXPECT_EQ(a.data[0][0], 1.0f);
    EXPECT_EQ(a.data[6][6], 1.0f);
    EXPECT_EQ(a.data[0][1], 0.0f);
}

TEST(MathTransforms, Dim7Family)
{
    Matrix_more u = unit_matrix_dim7(7);
    EXPECT_EQ(u.data[6][6], 1.0f);
    Matrix_more a{};
    a.irow = 6;
    a.iline = 7;
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 7; ++j) a.data[i][j] = static_cast<float>(i * 7 + j);
    Matrix_more t = matrix_t_dim7(a);
    EXPECT_EQ(t.irow, 7);
    EXPECT_EQ(t.iline, 6);
    EXPECT_EQ(t.data[6][5], a.data[5][6]);
    Matrix_more p = matrix_m_dim7(a, u);
    EXPECT_EQ(max_diff_rec(p, a, 6, 7), 0.0);
    Matrix_more s = matrix_a_dim7(a, a, 1);
    EXPECT_EQ(s.data[5][6], 2 * a.data[5][6]);
    Matrix_more k = matrix_m_num_dim7(0.5f, a);
    EXPECT_EQ(k.data[5][6], 0.5f * a.data[5][6]);
    EXPECT_EQ(k.data[6][0], 0.0f);
}

/* -----------------------------------------------------------------------------
 * Euler angles and quaternions
 * -------------------------------------------------------------------------- */

TEST(MathTransforms, EulerWrapNearRearPole)
{
    EXPECT_NEAR(matrix_to_euler(rotz(kPiF)).rz, kPiF, 1e-6);
    const Euler e = matrix_to_euler(rotz(-3.135f));
    EXPECT_NEAR(e.rz, -3.135 + 2 * std::numbers::pi, 1e-5);
    EXPECT_GT(e.rz, 3.148f);
    // -3.12 is above -3.13 and stays.
    EXPECT_NEAR(matrix_to_euler(rotz(-3.12f)).rz, -3.12f, 1e-6);
}

TEST(MathTransforms, EulerGimbalBranches)
{
    Matrix r = zero_matrix(3, 3);
    r.data[2][0] = 1.0f;
    r.data[0][1] = 0.6f;
    r.data[1][1] = 0.8f;
    Euler e = matrix_to_euler(r);
    EXPECT_NEAR(e.ry, -std::numbers::pi / 2, 1e-6);
    EXPECT_EQ(e.rz, 0.0f);
    EXPECT_FLOAT_EQ(e.rx, -std::atan2(0.6f, 0.8f));
    r.data[2][0] = -1.0f;
    e = matrix_to_euler(r);
    EXPECT_NEAR(e.ry, std::numbers::pi / 2, 1e-6);
    EXPECT_FLOAT_EQ(e.rx, std::atan2(0.6f, 0.8f));
    EXPECT_EQ(e.rz, 0.0f);
    // At the pole the matrix of the extracted angles is the same rotation.
    for (float x : {0.3f, -1.0f, 2.0f}) {
        for (float z : {0.5f, -0.7f}) {
            Matrix m = euler_to_matrix(Euler{x, static_cast<float>(std::numbers::pi / 2), z});
            Matrix back = euler_to_matrix(matrix_to_euler(m));
            EXPECT_LT(max_diff_rec(m, back, 3, 3), 1e-5);
        }
    }
}

TEST(MathTransforms, EulerMatrixConvention)
{
    const Euler e{0.3f, -0.4f, 1.1f};
    Matrix expect = matrix_m(rotz(e.rz), matrix_m(roty(e.ry), rotx(e.rx)));
    EXPECT_LT(max_diff_rec(euler_to_matrix(e), expect, 3, 3), 1e-6);
    EXPECT_LT(max_diff_rec(quat_to_matrix(euler_to_quat(e)), expect, 3, 3), 1e-6);
}

TEST(MathTransforms, QuaternionNonUnitRule)
{
    Pose p{{0.5f, 0.6f, 0.7f}, {0, 0, 0, 0}, {1, 2, 3}};
    Matrix t = pose_quat_to_transformation_matrix(p);
    EXPECT_EQ(t.irow, 4);
    EXPECT_EQ(identity_error(matrix_T2R(t), 3), 0.0);
    EXPECT_EQ(t.data[0][3], 0.5f);
    EXPECT_EQ(t.data[2][3], 0.7f);
    EXPECT_EQ(t.data[3][3], 1.0f);
    p.quaternion = Quat{2, 0, 0, 0};
    t = pose_quat_to_transformation_matrix(p);
    EXPECT_LT(identity_error(matrix_T2R(t), 3), 1e-7);
    // A scaled quaternion gives the same rotation as the unit one.
    const Quat q{0.5f, 0.5f, 0.5f, 0.5f};
    const Quat q3{1.5f, 1.5f, 1.5f, 1.5f};
    EXPECT_LT(max_diff_rec(quat_to_matrix(q), quat_to_matrix(q3), 3, 3), 1e-6);
    // Below the norm threshold: identity.
    EXPECT_EQ(identity_error(quat_to_matrix(Quat{1e-4f, 0, 0, 0}), 3), 0.0);
}

TEST(MathTransforms, QuaternionExtractionCases)
{
    // One rotation per branch of the four-case extraction.
    const Euler cases[] = {{0.1f, 0.2f, 0.3f}, {kPiF, 0, 0.1f}, {0.1f, kPiF, 0}, {0, 0.1f, kPiF}};
    for (const Euler& e : cases) {
        Matrix r = euler_to_matrix(e);
        Quat q = matrix_to_quat(r);
        EXPECT_LT(max_diff_rec(quat_to_matrix(q), r, 3, 3), 1e-6);
        EXPECT_NEAR(q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z, 1.0f, 1e-6);
    }
    // The sign of w is not normalised: a rotation of pi about x plus a little z.
    Quat q = matrix_to_quat(euler_to_matrix(Euler{kPiF, 0, 0}));
    EXPECT_NEAR(std::fabs(q.x), 1.0f, 1e-6);
}

TEST(MathTransforms, TransformationMatrixToPoseFillsAll)
{
    Pose in{{0.1f, 0.2f, 0.3f}, {}, {0.4f, 0.5f, 0.6f}};
    Pose out = transformation_matrix_to_pose(pose_euler_to_transformation_matrix(in));
    EXPECT_FLOAT_EQ(out.position.x, 0.1f);
    EXPECT_FLOAT_EQ(out.position.z, 0.3f);
    EXPECT_NEAR(out.euler.rx, 0.4f, 1e-6);
    EXPECT_NEAR(out.euler.rz, 0.6f, 1e-6);
    Quat q = euler_to_quat(in.euler);
    EXPECT_NEAR(out.quaternion.w, q.w, 1e-6);
    EXPECT_NEAR(out.quaternion.y, q.y, 1e-6);
    // quat_to_euler goes through the same entries.
    Euler e = quat_to_euler(q);
    EXPECT_NEAR(e.ry, 0.5f, 1e-6);
}

TEST(MathTransforms, PropertyEulerRoundTrip)
{
    Rng rng(104);
    const double pole_margin = 0.05;
    for (int c = 0; c < property_cases(); ++c) {
        const Euler e{rng.uniformf(-3.1f, 3.1f),
                      static_cast<float>(rng.uniform(-std::numbers::pi / 2 + pole_margin, std::numbers::pi / 2 - pole_margin)),
                      rng.uniformf(-3.1f, 3.1f)};
        const Euler back = matrix_to_euler(euler_to_matrix(e));
        ASSERT_NEAR(angle_diff(back.rx, e.rx), 0.0, 2e-5) << "case " << c;
        ASSERT_NEAR(back.ry, e.ry, 2e-5) << "case " << c;
        ASSERT_NEAR(angle_diff(back.rz, e.rz), 0.0, 2e-5) << "case " << c;
        const Euler via_quat = quat_to_euler(euler_to_quat(e));
        ASSERT_NEAR(angle_diff(via_quat.rx, e.rx), 0.0, 5e-5) << "case " << c;
        ASSERT_NEAR(via_quat.ry, e.ry, 5e-5) << "case " << c;
        ASSERT_NEAR(angle_diff(via_quat.rz, e.rz), 0.0, 5e-5) << "case " << c;
        // The range: above -3.13, at most 3.153.
        for (float v : {back.rx, back.ry, back.rz}) {
            ASSERT_GE(v, -3.13f);
            ASSERT_LE(v, 3.154f);
        }
    }
}

TEST(MathTransforms, PropertyQuaternionRoundTrip)
{
    Rng rng(105);
    for (int c = 0; c < property_cases(); ++c) {
        const Quat q = algo_test::random_unit_quat(rng);
        const Matrix r = quat_to_matrix(q);
        const Quat back = matrix_to_quat(r);
        const float sign = (back.w * q.w + back.x * q.x + back.y * q.y + back.z * q.z) < 0 ? -1.0f : 1.0f;
        ASSERT_NEAR(sign * back.w, q.w, 2e-6) << "case " << c;
        ASSERT_NEAR(sign * back.x, q.x, 2e-6) << "case " << c;
        ASSERT_NEAR(sign * back.y, q.y, 2e-6) << "case " << c;
        ASSERT_NEAR(sign * back.z, q.z, 2e-6) << "case " << c;
        ASSERT_LT(max_diff_rec(quat_to_matrix(back), r, 3, 3), 2e-6) << "case " << c;
    }
}

TEST(MathTransforms, QuaternionInterpolationEnds)
{
    Quat q0 = euler_to_quat(Euler{0, 0, 0});
    Quat q1 = euler_to_quat(Euler{0, 0, 1.0f});
    const float theta = std::acos(q0.w * q1.w + q0.z * q1.z);
    Quat a = quaternion_interpolation(theta, 0.0f, q0, q1);
    Quat b = quaternion_interpolation(theta, theta, q0, q1);
    Quat m = quaternion_interpolation(theta, theta / 2, q0, q1);
    EXPECT_NEAR(a.w, q0.w, 1e-6);
    EXPECT_NEAR(b.z, q1.z, 1e-6);
    EXPECT_NEAR(quat_to_euler(m).rz, 0.5f, 1e-5);
}

/* -----------------------------------------------------------------------------
 * Quaternion helpers of the planner
 * -------------------------------------------------------------------------- */

namespace {
void to_array(const Quat& q, float out[4])
{
    out[0] = q.w;
    out[1] = q.x;
    out[2] = q.y;
    out[3] = q.z;
}
Quat from_array(const float q[4]) { return Quat{q[0], q[1], q[2], q[3]}; }
}  // namespace

TEST(MathTransforms, HamiltonProductComposesRotations)
{
    Rng rng(106);
    for (int c = 0; c < 200; ++c) {
        float a[4], b[4], p[4];
        to_array(algo_test::random_unit_quat(rng), a);
        to_array(algo_test::random_unit_quat(rng), b);
        multi_q0q1(p, a, b);
        Matrix expect = matrix_m(quat_to_matrix(from_array(a)), quat_to_matrix(from_array(b)));
        ASSERT_LT(max_diff_rec(quat_to_matrix(from_array(p)), expect, 3, 3), 1e-5);
        // In place.
        multi_q0q1(a, a, b);
        ASSERT_EQ(std::memcmp(a, p, sizeof p), 0);
    }
    float q[4] = {1, 2, 3, 4}, r[4];
    norm_quat(r, q);
    EXPECT_NEAR(dot_quat(r, r), 1.0f, 1e-6);
    inv_quat(r, q);
    EXPECT_EQ(r[0], 1.0f);
    EXPECT_EQ(r[3], -4.0f);
    multi_cq(r, 2.0f, q);
    EXPECT_EQ(r[2], 6.0f);
}

TEST(MathTransforms, SlerpEqualAndOpposite)
{
    const float q0[4] = {0.5f, 0.5f, 0.5f, 0.5f};
    const float neg[4] = {-0.5f, -0.5f, -0.5f, -0.5f};
    float r[4];
    my_slerp(r, q0, q0, 0.3f);
    EXPECT_EQ(std::memcmp(r, q0, sizeof r), 0);
    my_slerp(r, q0, neg, 0.3f);
    EXPECT_EQ(std::memcmp(r, q0, sizeof r), 0);
}

TEST(MathTransforms, SlerpShorterArcAndEnds)
{
    Rng rng(107);
    for (int c = 0; c < 500; ++c) {
        float a[4], b[4], r[4];
        to_array(algo_test::random_unit_quat(rng), a);
        to_array(algo_test::random_unit_quat(rng), b);
        my_slerp(r, a, b, 0.0f);
        for (int i = 0; i < 4; ++i) ASSERT_NEAR(r[i], a[i], 1e-5);
        my_slerp(r, a, b, 1.0f);
        const float s = dot_quat(a, b) < 0 ? -1.0f : 1.0f;
        for (int i = 0; i < 4; ++i) ASSERT_NEAR(r[i], s * b[i], 1e-5);
        my_slerp(r, a, b, 0.5f);
        ASSERT_NEAR(dot_quat(r, r), 1.0f, 1e-5);
        ASSERT_GE(dot_quat(r, a), 0.0f);
    }
}

TEST(MathTransforms, ExpAndLogAreInverse)
{
    const float zero[3] = {0, 0, 0};
    float q[4];
    exp_omiga(q, zero);
    EXPECT_EQ(q[0], 1.0f);
    EXPECT_EQ(q[1], 0.0f);
    float w[3];
    const float unit[4] = {1, 0, 0, 0};
    log_quat(w, unit);
    EXPECT_EQ(w[0], 0.0f);
    EXPECT_EQ(w[2], 0.0f);
    Rng rng(108);
    for (int c = 0; c < 500; ++c) {
        const float v[3] = {rng.uniformf(-1, 1), rng.uniformf(-1, 1), rng.uniformf(-1, 1)};
        exp_omiga(q, v);
        ASSERT_NEAR(dot_quat(q, q), 1.0f, 1e-5);
        log_quat(w, q);
        for (int i = 0; i < 3; ++i) ASSERT_NEAR(w[i], v[i], 1e-5);
    }
}

TEST(MathTransforms, EulerRatesAndQuaternionRates)
{
    Rng rng(109);
    const float h = 1e-3f;
    for (int c = 0; c < 300; ++c) {
        const Euler e{rng.uniformf(-3, 3), rng.uniformf(-1.3f, 1.3f), rng.uniformf(-3, 3)};
        const float rate[3] = {rng.uniformf(-1, 1), rng.uniformf(-1, 1), rng.uniformf(-1, 1)};
        float q[4], dq[4];
        to_array(euler_to_quat(e), q);
        Veulr2Vq(dq, rate, q);
        // Against a central difference of euler_to_quat along the rates.
        float qp[4], qm[4];
        to_array(euler_to_quat(Euler{e.rx + h * rate[0], e.ry + h * rate[1], e.rz + h * rate[2]}), qp);
        to_array(euler_to_quat(Euler{e.rx - h * rate[0], e.ry - h * rate[1], e.rz - h * rate[2]}), qm);
        for (int i = 0; i < 4; ++i) ASSERT_NEAR(dq[i], (qp[i] - qm[i]) / (2 * h), 2e-3) << "case " << c;
        float back[3];
        Vquat2Veulr(back, dq, q);
        for (int i = 0; i < 3; ++i) ASSERT_NEAR(back[i], rate[i], 1e-4) << "case " << c;
    }
}

TEST(MathTransforms, SlerpDerivativeAndSpeed)
{
    Rng rng(110);
    for (int c = 0; c < 300; ++c) {
        float a[4], b[4];
        to_array(algo_test::random_unit_quat(rng), a);
        to_array(algo_test::random_unit_quat(rng), b);
        if (dot_quat(a, b) < 0.0f) multi_cq(b, -1.0f, b);
        if (dot_quat(a, b) > 0.999f) continue;
        const float t = rng.uniformf(0.1f, 0.9f);
        const float h = 1e-3f;
        float d[4], p[4], m[4];
        d_slerp(d, a, b, t, 0.02f);
        my_slerp(p, a, b, t + h);
        my_slerp(m, a, b, t - h);
        for (int i = 0; i < 4; ++i) ASSERT_NEAR(d[i], 0.02f * (p[i] - m[i]) / (2 * h), 2e-4) << "case " << c;
        float w[3];
        const float speed = d_slerp_vom(a, b, t, w);
        ASSERT_NEAR(speed, 2.0f * std::acos(dot_quat(a, b)), 1e-3) << "case " << c;
        ASSERT_NEAR(std::sqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]), speed, 1e-5);
    }
    const float q[4] = {1, 0, 0, 0};
    float d[4] = {9, 9, 9, 9}, w[3] = {9, 9, 9};
    d_slerp(d, q, q, 0.5f, 1.0f);
    EXPECT_EQ(d[0], 0.0f);
    EXPECT_EQ(d[3], 0.0f);
    EXPECT_EQ(d_slerp_vom(q, q, 0.5f, w), 0.0f);
    EXPECT_EQ(w[1], 0.0f);
}

TEST(MathTransforms, PublicRecordsMatchClientRecords)
{
    static_assert(sizeof(Matrix) == sizeof(zk_matrix_t));
    static_assert(sizeof(Pose) == sizeof(zk_pose_t));
    static_assert(sizeof(Euler) == sizeof(zk_euler_t));
    static_assert(sizeof(Quat) == sizeof(zk_quat_t));
    static_assert(sizeof(Pos) == sizeof(zk_position_t));
    static_assert(sizeof(Matrix_more) == 2 * sizeof(int16_t) + 49 * sizeof(float));
    SUCCEED();
}

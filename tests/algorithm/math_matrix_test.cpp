// Dynamic matrix and vector library.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include "algo_test_util.h"
#include "libalgo.h"

using algo_test::max_abs;
using algo_test::max_diff;
using algo_test::property_cases;
using algo_test::random_mat;
using algo_test::Rng;

namespace {

Mat make(int rows, int cols, std::initializer_list<float> values)
{
    Mat m = mat_zeros(rows, cols);
    auto it = values.begin();
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) m.data[i][j] = *it++;
    return m;
}

Mat vec(std::initializer_list<float> values)
{
    return make(static_cast<int>(values.size()), 1, values);
}

double identity_error(const Mat& m)
{
    return max_diff(m, mat_eye(m.row, m.col));
}

Mat diag_of(const Mat& s)
{
    Mat d = mat_zeros(s.row, s.row);
    for (int i = 0; i < s.row; ++i) d.data[i][i] = s.data[i][0];
    return d;
}

// A random m x n matrix of the given rank (rank < min(m, n) gives dependent columns).
Mat random_rank(Rng& rng, int m, int n, int rank)
{
    Mat left = random_mat(rng, m, rank);
    Mat right = random_mat(rng, rank, n);
    return mat_mult(left, right);
}

void expect_penrose(const Mat& a, const Mat& x, double tol, int c)
{
    ASSERT_EQ(x.row, a.col) << "case " << c;
    ASSERT_EQ(x.col, a.row) << "case " << c;
    const Mat ax = mat_mult(a, x);
    const Mat xa = mat_mult(x, a);
    const double scale_a = std::max(1.0, max_abs(a));
    const double scale_x = std::max(1.0, max_abs(x));
    ASSERT_LT(max_diff(mat_mult(ax, a), a), tol * scale_a * scale_a * scale_x) << "A X A = A, case " << c;
    ASSERT_LT(max_diff(mat_mult(xa, x), x), tol * scale_x * scale_x * scale_a) << "X A X = X, case " << c;
    ASSERT_LT(max_diff(mat_T(ax), ax), tol * scale_a * scale_x) << "(A X)^T = A X, case " << c;
    ASSERT_LT(max_diff(mat_T(xa), xa), tol * scale_a * scale_x) << "(X A)^T = X A, case " << c;
}

}  // namespace

/* -----------------------------------------------------------------------------
 * Creation, access, shapes
 * -------------------------------------------------------------------------- */

TEST(MathMatrix, CreationAndAccess)
{
    Mat e = mat_eye(3, 4);
    EXPECT_EQ(e.row, 3);
    EXPECT_EQ(e.col, 4);
    EXPECT_EQ(e.data[2][2], 1.0f);
    EXPECT_EQ(e.data[2][3], 0.0f);
    EXPECT_EQ(mat_init(2, 2).data[0][0], 0.0f);
    Mat a = make(2, 3, {1, 2, 3, 4, 5, 6});
    Mat r = mat_get_Mrow_i(a, 2);
    EXPECT_EQ(r.row, 1);
    EXPECT_EQ(r.col, 3);
    EXPECT_EQ(r.data[0][2], 6.0f);
    Mat c = mat_get_Mcol_j(a, 3);
    EXPECT_EQ(c.row, 2);
    EXPECT_EQ(c.col, 1);
    EXPECT_EQ(c.data[1][0], 6.0f);
    // Out of range: zeros of the shape, and setters do nothing.
    EXPECT_EQ(mat_get_Mrow_i(a, 0).data[0][0], 0.0f);
    EXPECT_EQ(mat_get_Mcol_j(a, 4).data[0][0], 0.0f);
    Mat before = a;
    mat_set_Mrow_i(&a, 3, r);
    mat_set_Mcol_j(&a, -1, c);
    mat_swap_row(&a, 1, 5);
    EXPECT_EQ(mat_is_equal(a, before), 1);
    mat_set_Mrow_i(&a, 1, r);
    EXPECT_EQ(a.data[0][0], 4.0f);
    mat_set_Mcol_j(&a, 1, vec({7, 8}));
    EXPECT_EQ(a.data[1][0], 8.0f);
    mat_swap_row(&a, 1, 2);
    EXPECT_EQ(a.data[0][0], 8.0f);
    mat_swap_col(&a, 1, 3);
    EXPECT_EQ(a.data[0][2], 8.0f);
    const float values[6] = {6, 5, 4, 3, 2, 1};
    mat_set_value(&a, values);
    EXPECT_EQ(a.data[1][2], 1.0f);
    float out[6];
    mat_to_array(a, out);
    EXPECT_EQ(std::memcmp(out, values, sizeof out), 0);
    EXPECT_EQ(mat_is_equal(array_to_mat(values, 2, 3), a), 1);
}

TEST(MathMatrix, OutOfRangeHeadersStayInStorage)
{
    Mat big = mat_init(40, -3);
    EXPECT_EQ(big.row, 18);
    EXPECT_EQ(big.col, 0);
    Mat a = mat_eye(18, 18);
    a.row = 1000;
    a.col = 1000;
    // Every reader clamps: these run under ASan without a stray access.
    Mat p = mat_mult(a, a);
    EXPECT_EQ(p.row, 18);
    EXPECT_EQ(identity_error(p), 0.0);
    EXPECT_EQ(mat_T(a).col, 18);
    EXPECT_FLOAT_EQ(mat_trace(a), 18.0f);
    EXPECT_FLOAT_EQ(vec_norm2(a), 1.0f);
    EXPECT_FLOAT_EQ(vec_normInf(a), 1.0f);
    Mat inv;
    EXPECT_EQ(mat_inv(a, &inv), 1);
    a.row = -4;
    a.col = -4;
    EXPECT_EQ(mat_inv(a, &inv), 1);
    EXPECT_EQ(inv.row, -4);
    EXPECT_EQ(mat_det(a), 1.0f);
    EXPECT_EQ(mat_find_abs_max(a), 0.0f);
    Mat u, s, v;
    a.row = 19;
    a.col = 6;
    EXPECT_EQ(mat_fast_svd(&a, &u, &s, &v), -1);
    a.row = 20;
    a.col = 19;
    EXPECT_EQ(mat_fast_svd(&a, &u, &s, &v), -1);
    EXPECT_EQ(mat_fast_svd(nullptr, &u, &s, &v), -1);
    Matrix m = mat_to_matrix(mat_eye(6, 6));
    EXPECT_EQ(m.irow, 4);
    Matrix_more mm = mat_to_matrix_more(mat_eye(9, 2));
    EXPECT_EQ(mm.irow, 7);
    EXPECT_EQ(mm.iline, 2);
}

TEST(MathMatrix, PrintFormat)
{
    testing::internal::CaptureStdout();
    mat_print(make(2, 2, {1, 2, 3, 4.5f}));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Mat = \n1.000000,2.000000,\n3.000000,4.500000,\n");
    MatD d = matD_eye(1, 2);
    testing::internal::CaptureStdout();
    matD_print(d);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Mat = \n1.000000,0.000000,\n");
}

TEST(MathMatrix, HermitianIsKeptAsItStands)
{
    EXPECT_EQ(mat_is_hermitian(make(2, 3, {1, 2, 3, 4, 5, 6})), -1);
    EXPECT_EQ(mat_is_hermitian(mat_zeros(0, 0)), 1);
    EXPECT_EQ(mat_is_hermitian(mat_eye(3, 3)), 0);
    EXPECT_EQ(mat_is_hermitian(make(2, 2, {1, 5, -5, 2})), 0);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(mat_is_hermitian(make(2, 2, {nan, nan, nan, nan})), 1);
    Mat v, l;
    v = mat_zeros(1, 1);
    EXPECT_EQ(mat_hermitian_eig(mat_eye(3, 3), 100, 1e-6f, &v, &l), -1);
    EXPECT_EQ(v.row, 1);  // untouched
    EXPECT_EQ(matD_is_hermitian(matD_eye(2, 2)), 0);
}

TEST(MathMatrix, EqualityIsBytewise)
{
    Mat a = mat_eye(2, 2), b = mat_eye(2, 2);
    EXPECT_EQ(mat_is_equal(a, b), 1);
    b.data[10][10] = 1.0f;  // outside the shape still counts
    EXPECT_EQ(mat_is_equal(a, b), 0);
    b = a;
    b.data[0][1] = -0.0f;
    EXPECT_EQ(mat_is_equal(a, b), 0);
}

/* -----------------------------------------------------------------------------
 * Arithmetic
 * -------------------------------------------------------------------------- */

TEST(MathMatrix, Arithmetic)
{
    Mat a = make(2, 3, {1, 2, 3, 4, 5, 6});
    Mat b = make(3, 2, {1, 0, 0, 1, 1, 1});
    Mat p = mat_mult(a, b);
    EXPECT_EQ(p.row, 2);
    EXPECT_EQ(p.col, 2);
    EXPECT_EQ(p.data[0][0], 4.0f);
    EXPECT_EQ(p.data[1][1], 11.0f);
    EXPECT_EQ(mat_add(a, a).data[1][2], 12.0f);
    EXPECT_EQ(mat_sub(a, a).data[1][2], 0.0f);
    EXPECT_EQ(mat_kM(3.0f, a).data[0][1], 6.0f);
    EXPECT_EQ(mat_T(a).data[2][1], 6.0f);
    EXPECT_EQ(mat_trace(a), 6.0f);
    Mat d = mat_diag(a);
    EXPECT_EQ(d.row, 2);
    EXPECT_EQ(d.col, 1);
    EXPECT_EQ(d.data[1][0], 5.0f);
    Mat dm = mat_diag(vec({1, 2, 3}));
    EXPECT_EQ(dm.row, 3);
    EXPECT_EQ(dm.col, 3);
    EXPECT_EQ(dm.data[2][2], 3.0f);
    EXPECT_EQ(dm.data[0][1], 0.0f);
    EXPECT_EQ(mat_find_abs_max(make(1, 3, {1, -7, 3})), 7.0f);
    EXPECT_EQ(mat_find_abs_min(make(1, 3, {-2, -7, 3})), 2.0f);
}

TEST(MathMatrix, RankAndDeterminant)
{
    Rng rng(201);
    EXPECT_EQ(mat_rank(random_rank(rng, 6, 5, 3), 1e-4f, 0), 3);
    EXPECT_EQ(mat_rank(random_rank(rng, 5, 7, 5), 1e-4f, 1), 5);
    EXPECT_EQ(mat_rank(mat_zeros(3, 3), 1e-6f, 0), 0);
    EXPECT_FLOAT_EQ(mat_det(make(2, 2, {1, 2, 3, 4})), -2.0f);
    // A zero pivot hands the matrix to the direct elimination with exchanges.
    EXPECT_FLOAT_EQ(mat_det(make(3, 3, {0, 2, 0, 0, 0, 3, 4, 0, 0})), 24.0f);
    EXPECT_FLOAT_EQ(directCalculateDetA(make(3, 3, {0, 2, 0, 0, 0, 3, 4, 0, 0})), 24.0f);
    EXPECT_EQ(directCalculateDetA(make(2, 3, {1, 2, 3, 4, 5, 6})), 0.0f);
    EXPECT_EQ(directCalculateDetA(mat_zeros(0, 0)), 0.0f);
    EXPECT_EQ(directCalculateDetA(make(1, 1, {7})), 7.0f);
    EXPECT_EQ(directCalculateDetA(make(2, 2, {1, 2, 3, 4})), -2.0f);
    for (int c = 0; c < 200; ++c) {
        const int n = 1 + c % 8;
        Mat a = random_mat(rng, n, n);
        const double d1 = mat_det(a), d2 = directCalculateDetA(a);
        ASSERT_NEAR(d1, d2, 1e-4 * std::max(1.0, std::fabs(d2))) << "case " << c;
        ASSERT_NEAR(matD_det(matD_eye(n, n)), 1.0, 0.0);
    }
    testing::internal::CaptureStderr();
    const float det = mat_det(make(2, 3, {1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "A is not a square matrix.");
    EXPECT_TRUE(std::isinf(det) && det > 0);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(std::isinf(matD_det(matD_zeros(1, 2))));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "A is not a square matrix.");
}

TEST(MathMatrix, InverseResults)
{
    Mat out = mat_eye(1, 1);
    EXPECT_EQ(mat_inv(mat_zeros(3, 3), &out), -1);
    EXPECT_EQ(out.row, 3);  // as far as it stood
    out = mat_eye(1, 1);
    EXPECT_EQ(mat_inv(make(2, 3, {1, 2, 3, 4, 5, 6}), &out), 0);
    EXPECT_EQ(out.row, 1);  // untouched
    MatD outd;
    EXPECT_EQ(matD_inv(matD_zeros(2, 2), &outd), -1);
    // A singular matrix whose elimination meets an exact zero pivot.
    EXPECT_EQ(mat_inv(make(2, 2, {1, 2, 2, 4}), &out), -1);
    Rng rng(202);
    for (int c = 0; c < property_cases(); ++c) {
        const int n = 1 + c % 18;
        Mat a = random_mat(rng, n, n);
        for (int i = 0; i < n; ++i) a.data[i][i] += static_cast<float>(n);  // well conditioned
        Mat inv;
        ASSERT_EQ(mat_inv(a, &inv), 1);
        ASSERT_LT(identity_error(mat_mult(inv, a)), 1e-5) << "case " << c;
        MatD ad = matD_zeros(n, n), invd;
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) ad.data[i][j] = a.data[i][j];
        ASSERT_EQ(matD_inv(ad, &invd), 1);
        MatD pd = matD_mult(invd, ad);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) ASSERT_NEAR(pd.data[i][j], i == j ? 1.0 : 0.0, 1e-12);
    }
}

TEST(MathMatrix, HomogeneousHelpers)
{
    Matrix t4 = pose_euler_to_transformation_matrix(Pose{{0.1f, 0.2f, 0.3f}, {}, {0.3f, -0.2f, 0.9f}});
    Mat t = matrix_to_mat(t4);
    EXPECT_EQ(t.row, 4);
    EXPECT_EQ(t.col, 4);
    Mat r = mat_T2R(t);
    EXPECT_EQ(r.row, 3);
    EXPECT_EQ(r.data[2][1], t4.data[2][1]);
    Mat p = mat_T2p(t);
    EXPECT_EQ(p.col, 1);
    EXPECT_EQ(p.data[1][0], 0.2f);
    Mat inv = mat_homogen_trans_inv(t);
    EXPECT_LT(identity_error(mat_mult(inv, t)), 1e-6);
    Matrix back = mat_to_matrix(t);
    EXPECT_EQ(std::memcmp(&back, &t4, sizeof back), 0);
    Matrix_more m7{};
    m7.irow = 6;
    m7.iline = 7;
    m7.data[5][6] = 3.0f;
    Mat m = matrix_more_to_mat(m7);
    EXPECT_EQ(m.row, 6);
    EXPECT_EQ(m.col, 7);
    EXPECT_EQ(m.data[5][6], 3.0f);
    Matrix_more m7b = mat_to_matrix_more(m);
    EXPECT_EQ(std::memcmp(&m7b, &m7, sizeof m7), 0);
}

/* -----------------------------------------------------------------------------
 * Vectors
 * -------------------------------------------------------------------------- */

TEST(MathMatrix, VectorBasics)
{
    Mat z = vec_zeros(4);
    EXPECT_EQ(z.row, 4);
    EXPECT_EQ(z.col, 1);
    EXPECT_EQ(vec_init(3).row, 3);
    EXPECT_FLOAT_EQ(vec_norm2(vec({3, 4})), 5.0f);
    EXPECT_FLOAT_EQ(vec_norm2(make(1, 2, {3, 4})), 5.0f);  // a row vector
    EXPECT_FLOAT_EQ(vec_dot(vec({1, 2, 3}), vec({4, 5, 6})), 32.0f);
    EXPECT_EQ(vec_add(vec({1, 2}), vec({3, 4})).data[1][0], 6.0f);
    EXPECT_EQ(vec_sub(vec({1, 2}), vec({3, 4})).data[1][0], -2.0f);
    EXPECT_EQ(vec_minus(vec({1, -2})).data[1][0], 2.0f);
    EXPECT_EQ(vec_kV(2.0f, vec({1, -2})).data[1][0], -4.0f);
    EXPECT_EQ(vec_add_scalar(vec({1, -2}), 1.0f).data[1][0], -1.0f);
    EXPECT_EQ(vec_is_zeros(vec({0, 0, 0})), 1);
    EXPECT_EQ(vec_is_zeros(vec({0, 1e-10f, 0})), 0);
}

TEST(MathMatrix, NormInfIsKeptAsItStands)
{
    EXPECT_EQ(vec_normInf(vec({1, 2, 9})), 2.0f);
    EXPECT_EQ(vec_normInf(vec({5})), 0.0f);
    EXPECT_EQ(vec_normInf(make(1, 3, {1, -4, 9})), 4.0f);
    EXPECT_EQ(vecD_normInf(matD_zeros(0, 0)), 0.0);
}

TEST(MathMatrix, CrossAndSkew)
{
    Mat c = vec3x3_cross(vec({1, 0, 0}), vec({0, 1, 0}));
    EXPECT_EQ(c.row, 3);
    EXPECT_EQ(c.data[2][0], 1.0f);
    Mat v = vec({1, 2, 3});
    Mat s = vec_to_skew(v);
    EXPECT_EQ(s.data[0][1], -3.0f);
    EXPECT_EQ(s.data[2][1], 1.0f);
    EXPECT_EQ(max_diff(skew_to_vec(s), v), 0.0);
    EXPECT_EQ(max_diff(vec_vex(s), v), 0.0);
    // The vex of a non-skew matrix is that of its skew part.
    Mat m = s;
    m.data[0][1] += 1.0f;
    m.data[1][0] += 1.0f;
    EXPECT_EQ(max_diff(vec_vex(m), v), 0.0);
    // s w = v x w.
    Mat w = vec({-2, 0.5f, 4});
    EXPECT_LT(max_diff(mat_mult(s, w), vec3x3_cross(v, w)), 1e-6);
    float a[3] = {1, 2, 3}, b[3] = {-2, 0.5f, 4}, out[3];
    array_cross(a, b, out);
    EXPECT_FLOAT_EQ(out[0], 2 * 4 - 3 * 0.5f);
    double ad[3] = {1, 0, 0}, bd[3] = {0, 0, 1}, outd[3];
    D_array_cross(ad, bd, outd);
    EXPECT_EQ(outd[1], -1.0);
}

TEST(MathMatrix, TransformDifferences)
{
    Mat t = matrix_to_mat(pose_euler_to_transformation_matrix(Pose{{0.1f, 0.2f, 0.3f}, {}, {0.3f, -0.2f, 0.9f}}));
    Mat zero = vec_angle_axis_diff(t, t);
    EXPECT_EQ(zero.row, 6);
    EXPECT_EQ(zero.col, 1);
    EXPECT_LT(max_abs(zero), 1e-7);
    EXPECT_LT(max_abs(vec_Tdiff(t, t)), 1e-7);
    // A small rotation about z and a shift: both agree with angle times axis.
    const Matrix base4 = mat_to_matrix(t);
    Matrix moved4 = matrix_m(pose_euler_to_transformation_matrix(Pose{{0.01f, 0, 0}, {}, {0, 0, 0.002f}}), base4);
    Mat moved = matrix_to_mat(moved4);
    Mat d1 = vec_Tdiff(t, moved), d2 = vec_angle_axis_diff(t, moved);
    EXPECT_NEAR(d2.data[5][0], 0.002f, 1e-6);
    EXPECT_NEAR(d1.data[5][0], 0.002f, 1e-5);
    EXPECT_NEAR(d1.data[3][0], 0.0f, 1e-6);
    // Larger rotation: angle times axis exactly.
    Mat r = matrix_to_mat(pose_euler_to_transformation_matrix(Pose{{}, {}, {0, 1.2f, 0}}));
    Mat d3 = vec_angle_axis_diff(mat_eye(4, 4), r);
    EXPECT_NEAR(d3.data[4][0], 1.2f, 1e-5);
    // A rotation of exactly pi about z: |l| = 0 and the trace branch gives (pi/2)(diag + 1).
    Mat flip = mat_eye(4, 4);
    flip.data[0][0] = -1.0f;
    flip.data[1][1] = -1.0f;
    Mat d4 = vec_angle_axis_diff(mat_eye(4, 4), flip);
    EXPECT_EQ(d4.data[3][0], 0.0f);
    EXPECT_EQ(d4.data[4][0], 0.0f);
    EXPECT_EQ(d4.data[5][0], 2.0f * 1.5707964f);
    MatD flipd = matD_eye(4, 4);
    flipd.data[0][0] = flipd.data[1][1] = -1.0;
    EXPECT_DOUBLE_EQ(vecD_angle_axis_diff(matD_eye(4, 4), flipd).data[5][0], std::numbers::pi);
}

/* -----------------------------------------------------------------------------
 * Tridiagonal systems and sorting
 * -------------------------------------------------------------------------- */

TEST(MathMatrix, PropertyTridiagonalSolutions)
{
    Rng rng(203);
    for (int c = 0; c < property_cases(); ++c) {
        const int n = 1 + c % 18;
        Mat sub = vec_zeros(n), diag = vec_zeros(n), super = vec_zeros(n), rhs = vec_zeros(n);
        MatD subd = vecD_zeros(n), diagd = vecD_zeros(n), superd = vecD_zeros(n), rhsd = vecD_zeros(n);
        for (int i = 0; i < n; ++i) {
            sub.data[i][0] = rng.uniformf(-1, 1);
            super.data[i][0] = rng.uniformf(-1, 1);
            diag.data[i][0] = (rng.integer(0, 1) ? 1.0f : -1.0f) * rng.uniformf(2.1f, 4.0f);
            rhs.data[i][0] = rng.uniformf(-5, 5);
            subd.data[i][0] = sub.data[i][0];
            superd.data[i][0] = super.data[i][0];
            diagd.data[i][0] = diag.data[i][0];
            rhsd.data[i][0] = rhs.data[i][0];
        }
        Mat x;
        ASSERT_EQ(tridiagonal_systems_solver(sub, diag, super, rhs, &x), 1);
        ASSERT_EQ(x.row, n);
        MatD xd;
        ASSERT_EQ(D_tridiagonal_systems_solver(subd, diagd, superd, rhsd, &xd), 1);
        for (int i = 0; i < n; ++i) {
            double lhs = static_cast<double>(diag.data[i][0]) * x.data[i][0];
            double lhsd = diagd.data[i][0] * xd.data[i][0];
            if (i > 0) {
                lhs += static_cast<double>(sub.data[i][0]) * x.data[i - 1][0];
                lhsd += subd.data[i][0] * xd.data[i - 1][0];
            }
            if (i < n - 1) {
                lhs += static_cast<double>(super.data[i][0]) * x.data[i + 1][0];
                lhsd += superd.data[i][0] * xd.data[i + 1][0];
            }
            ASSERT_NEAR(lhs, rhs.data[i][0], 1e-5) << "case " << c << " row " << i;
            ASSERT_NEAR(lhsd, rhsd.data[i][0], 1e-12) << "case " << c << " row " << i;
        }
    }
}

TEST(MathMatrix, TridiagonalFirstPivotTest)
{
    Mat x = vec({7, 7});
    EXPECT_EQ(tridiagonal_systems_solver(vec({0, 1}), vec({1e-11f, 2}), vec({1, 0}), vec({1, 1}), &x), 0);
    EXPECT_EQ(x.data[0][0], 7.0f);  // unchanged
    // Later pivots are not tested: a zero one gives non-finite values, not a refusal.
    EXPECT_EQ(tridiagonal_systems_solver(vec({0, 1}), vec({1, 1}), vec({1, 0}), vec({1, 1}), &x), 1);
    EXPECT_FALSE(std::isfinite(x.data[1][0]));
}

TEST(MathMatrix, PropertyMergeSortIsStableBothWays)
{
    Rng rng(204);
    for (int c = 0; c < property_cases() / 10 + 1; ++c) {
        const int n = rng.integer(0, LIBALGO_MERGE_SORT_MAX);
        std::vector<float> values(n);
        // Few distinct keys, each as +x and, for zero, +0 and -0: equal keys that can be told
        // apart by their bits, so that any reordering of equals shows.
        for (float& v : values) {
            const int k = rng.integer(-3, 3);
            v = k == 0 ? (rng.integer(0, 1) ? 0.0f : -0.0f) : static_cast<float>(k);
        }
        for (int descending = 0; descending < 2; ++descending) {
            std::vector<float> expect = values;
            if (descending)
                std::stable_sort(expect.begin(), expect.end(), [](float a, float b) { return a > b; });
            else
                std::stable_sort(expect.begin(), expect.end());
            std::vector<float> got = values;
            merge_sort(descending, got.data(), n);
            ASSERT_EQ(std::memcmp(got.data(), expect.data(), n * sizeof(float)), 0) << "case " << c;
            std::vector<double> gotd(values.begin(), values.end());
            std::vector<double> expectd(expect.begin(), expect.end());
            merge_sortD(descending, gotd.data(), n);
            ASSERT_EQ(std::memcmp(gotd.data(), expectd.data(), n * sizeof(double)), 0) << "case " << c;
        }
    }
}

TEST(MathMatrix, MergeSortLimits)
{
    float one = 3.0f;
    merge_sort(0, &one, 1);
    EXPECT_EQ(one, 3.0f);
    merge_sort(0, nullptr, 5);
    std::vector<float> many(LIBALGO_MERGE_SORT_MAX + 1);
    for (int i = 0; i < static_cast<int>(many.size()); ++i) many[i] = static_cast<float>(-i);
    std::vector<float> before = many;
    merge_sort(0, many.data(), static_cast<int>(many.size()));
    EXPECT_EQ(many, before);  // over the working size: left alone
    many.pop_back();
    merge_sort(0, many.data(), static_cast<int>(many.size()));
    EXPECT_TRUE(std::is_sorted(many.begin(), many.end()));
}

/* -----------------------------------------------------------------------------
 * Decompositions
 * -------------------------------------------------------------------------- */

TEST(MathMatrix, FastSvdShapeResults)
{
    Rng rng(205);
    Mat a = random_mat(rng, 3, 6), u, s, v;
    EXPECT_EQ(mat_fast_svd(&a, &u, &s, &v), -3);
    Mat at = mat_T(a);
    EXPECT_EQ(mat_fast_svd(&at, &u, &s, &v), 1);
    EXPECT_EQ(u.row, 6);
    EXPECT_EQ(u.col, 3);
    EXPECT_EQ(s.row, 3);
    EXPECT_EQ(s.col, 1);
    EXPECT_EQ(v.row, 3);
    EXPECT_EQ(v.col, 3);
}

TEST(MathMatrix, PropertyFastSvdReconstructs)
{
    Rng rng(206);
    const int fixed[][2] = {{7, 6}, {7, 7}, {18, 6}, {18, 18}, {6, 6}, {1, 1}, {18, 1}};
    const int cases = property_cases();
    for (int c = 0; c < cases; ++c) {
        int m, n;
        if (c < static_cast<int>(std::size(fixed)) * 20) {
            m = fixed[c % std::size(fixed)][0];
            n = fixed[c % std::size(fixed)][1];
        } else {
            n = rng.integer(1, 18);
            m = rng.integer(n, 18);
        }
        // Every fifth case is rank deficient, every seventh has a zero column.
        Mat a = c % 5 == 4 && n > 1 ? random_rank(rng, m, n, rng.integer(1, n - 1)) : random_mat(rng, m, n, -2, 2);
        if (c % 7 == 6) {
            for (int i = 0; i < m; ++i) a.data[i][rng.integer(0, n - 1)] = 0.0f;
        }
        Mat u, s, v;
        ASSERT_EQ(mat_fast_svd(&a, &u, &s, &v), 1) << "case " << c;
        ASSERT_EQ(u.row, m);
        ASSERT_EQ(u.col, n);
        ASSERT_EQ(s.row, n);
        ASSERT_EQ(v.row, n);
        for (int i = 0; i < n; ++i) ASSERT_GE(s.data[i][0], 0.0f) << "case " << c;
        const Mat usvt = mat_mult(mat_mult(u, diag_of(s)), mat_T(v));
        const double scale = std::max(1.0, max_abs(a));
        ASSERT_LT(max_diff(usvt, a), 2e-5 * scale * n) << "case " << c << " " << m << "x" << n;
        ASSERT_LT(identity_error(mat_mult(mat_T(v), v)), 2e-6 * n) << "case " << c;
        ASSERT_LT(identity_error(mat_mult(v, mat_T(v))), 2e-6 * n) << "case " << c;
        // U's columns are orthonormal where their singular value is not zero; a zero
        // value's column is still a unit or zero column orthogonal to the others.
        const Mat utu = mat_mult(mat_T(u), u);
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j) {
                const bool both = s.data[i][0] > 1e-4f * scale && s.data[j][0] > 1e-4f * scale;
                if (both) {
                    ASSERT_NEAR(utu.data[i][j], i == j ? 1.0 : 0.0, 2e-6 * n) << "case " << c;
                }
            }
        }
    }
}

TEST(MathMatrix, FastSvdKnownValues)
{
    Mat a = make(3, 2, {3, 0, 0, 4, 0, 0});
    Mat u, s, v;
    ASSERT_EQ(mat_fast_svd(&a, &u, &s, &v), 1);
    std::vector<float> sv = {s.data[0][0], s.data[1][0]};
    std::sort(sv.begin(), sv.end());
    EXPECT_FLOAT_EQ(sv[0], 3.0f);
    EXPECT_FLOAT_EQ(sv[1], 4.0f);
    Mat z = mat_zeros(4, 3);
    ASSERT_EQ(mat_fast_svd(&z, &u, &s, &v), 1);
    EXPECT_EQ(max_abs(s), 0.0);
    // NaN input: no crash, NaN out.
    Mat n = mat_eye(3, 3);
    n.data[1][1] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(mat_fast_svd(&n, &u, &s, &v), 1);
}

TEST(MathMatrix, PropertyPseudoInversesArePenrose)
{
    Rng rng(207);
    for (int c = 0; c < property_cases(); ++c) {
        const int m = rng.integer(1, 18);
        const int n = rng.integer(1, 18);
        // Normal equations square the condition number: keep them to full-rank, modest
        // shapes; the SVD form also takes rank-deficient ones.
        const int small = std::min(m, n);
        Mat a = random_mat(rng, m, n, -1, 1);
        if (std::max(m, n) >= 2 * small || small <= 3) {
            const Mat x = mat_pinv(a);
            expect_penrose(a, x, 2e-4 * small, c);
        }
        Mat deficient = small > 1 && c % 3 == 0 ? random_rank(rng, m, n, rng.integer(1, small - 1)) : a;
        const Mat y = mat_pinv_svd(deficient);
        expect_penrose(deficient, y, 5e-5 * small, c);
    }
}

TEST(MathMatrix, PinvFailuresAndThreshold)
{
    // Tall with a zero column: A^T A is singular with an exact zero pivot.
    Mat tall = make(3, 2, {1, 0, 2, 0, 3, 0});
    Mat x = mat_pinv(tall);
    EXPECT_EQ(x.row, 2);
    EXPECT_EQ(x.col, 3);
    EXPECT_EQ(max_abs(x), 0.0);
    Mat wide = mat_T(tall);
    x = mat_pinv(wide);
    EXPECT_EQ(x.row, 0);
    // A singular value of 1e-6 counts as zero in mat_pinv_svd.
    Mat d = make(2, 2, {1, 0, 0, 1e-6f});
    Mat y = mat_pinv_svd(d);
    EXPECT_FLOAT_EQ(y.data[0][0], 1.0f);
    EXPECT_EQ(y.data[1][1], 0.0f);
    d.data[1][1] = 1e-4f;
    EXPECT_NEAR(mat_pinv_svd(d).data[1][1], 1e4f, 1.0f);
}

TEST(MathMatrix, QrLuEig)
{
    Rng rng(208);
    for (int c = 0; c < 100; ++c) {
        const int m = rng.integer(1, 10), n = rng.integer(1, 10);
        Mat a = random_mat(rng, m, n), q, r;
        ASSERT_EQ(mat_qr(a, &q, &r), 1);
        ASSERT_EQ(q.row, m);
        ASSERT_EQ(q.col, m);
        ASSERT_EQ(r.row, m);
        ASSERT_EQ(r.col, n);
        ASSERT_LT(max_diff(mat_mult(q, r), a), 1e-5) << "case " << c;
        ASSERT_LT(identity_error(mat_mult(mat_T(q), q)), 1e-5) << "case " << c;
        for (int i = 0; i < m; ++i)
            for (int j = 0; j < std::min(i, n); ++j) ASSERT_NEAR(r.data[i][j], 0.0f, 1e-5);
    }
    EXPECT_EQ(mat_qr(mat_eye(3, 3), nullptr, nullptr), 0);
    Mat q, r;
    ASSERT_EQ(mat_qr(mat_eye(3, 3), &q, &r), 1);  // x = |x| e1 throughout: H = I
    EXPECT_EQ(identity_error(q), 0.0);

    for (int c = 0; c < 50; ++c) {
        const int n = rng.integer(1, 8);
        Mat a = random_mat(rng, n, n);
        for (int i = 0; i < n; ++i) a.data[i][i] += 4.0f;
        Mat l, u;
        ASSERT_EQ(mat_lu(a, 1e-6f, &l, &u), 1);
        ASSERT_LT(max_diff(mat_mult(l, u), a), 1e-5) << "case " << c;
        for (int i = 0; i < n; ++i) ASSERT_EQ(l.data[i][i], 1.0f);
    }
    Mat l, u;
    EXPECT_EQ(mat_lu(make(2, 2, {1, 2, 2, 4}), 1e-6f, &l, &u), 0);
    EXPECT_EQ(mat_lu(mat_eye(2, 3), 1e-6f, &l, &u), 0);

    // Symmetric with known eigenvalues 5, 3, 1 (and -2 given back as 2).
    const Mat rot = matrix_to_mat(euler_to_matrix(Euler{0.3f, -0.4f, 0.5f}));
    Mat sym = mat_mult(mat_mult(rot, make(3, 3, {5, 0, 0, 0, 3, 0, 0, 0, -2})), mat_T(rot));
    Mat e;
    ASSERT_EQ(mat_eig(sym, 500, 1e-6f, &e), 1);
    std::vector<float> ev = {e.data[0][0], e.data[1][0], e.data[2][0]};
    std::sort(ev.begin(), ev.end());
    EXPECT_NEAR(ev[0], 2.0f, 1e-4);
    EXPECT_NEAR(ev[1], 3.0f, 1e-4);
    EXPECT_NEAR(ev[2], 5.0f, 1e-4);
    EXPECT_EQ(mat_eig(mat_eye(2, 3), 10, 1e-6f, &e), 0);
    EXPECT_NEAR(mat_cond(make(3, 3, {1, 0, 0, 0, 2, 0, 0, 0, 4})), 4.0f, 1e-5);
    EXPECT_NEAR(mat_cond(rot), 1.0f, 1e-4);
}

TEST(MathMatrix, EigenSvd)
{
    // Well separated singular values: the eigen route agrees with Golub-Reinsch.
    const Mat r1 = matrix_to_mat(euler_to_matrix(Euler{0.3f, -0.4f, 0.5f}));
    const Mat r2 = matrix_to_mat(euler_to_matrix(Euler{-1.0f, 0.2f, 2.0f}));
    Mat a = mat_mult(mat_mult(r1, make(3, 3, {4, 0, 0, 0, 2, 0, 0, 0, 1})), r2);
    Mat u, s, v;
    ASSERT_EQ(mat_svd(a, &u, &s, &v), 1);
    EXPECT_EQ(u.row, 3);
    EXPECT_EQ(s.row, 3);
    EXPECT_NEAR(s.data[0][0], 4.0f, 1e-4);
    EXPECT_NEAR(s.data[1][0], 2.0f, 1e-4);
    EXPECT_NEAR(s.data[2][0], 1.0f, 1e-4);
    Mat usvt = mat_mult(mat_mult(u, diag_of(s)), mat_T(v));
    EXPECT_LT(max_diff(usvt, a), 1e-3);
    EXPECT_EQ(mat_svd(a, nullptr, &s, &v), 0);
}

/* -----------------------------------------------------------------------------
 * Double forms
 * -------------------------------------------------------------------------- */

TEST(MathMatrix, DoubleForms)
{
    MatD a = matD_eye(3, 3);
    a.data[0][1] = 2.0;
    EXPECT_EQ(matD_get_Mrow_i(a, 1).data[0][1], 2.0);
    EXPECT_EQ(matD_get_Mcol_j(a, 2).data[0][0], 2.0);
    MatD b = a;
    matD_swap_row(&b, 1, 2);
    matD_swap_col(&b, 1, 2);
    EXPECT_EQ(b.data[1][0], 2.0);
    matD_set_Mrow_i(&b, 3, matD_get_Mrow_i(a, 1));
    matD_set_Mcol_j(&b, 3, matD_get_Mcol_j(a, 1));
    EXPECT_EQ(b.data[2][1], 2.0);
    const double values[4] = {1, 2, 3, 4};
    MatD c = array_to_matD(values, 2, 2);
    double out[4];
    matD_to_array(c, out);
    EXPECT_EQ(std::memcmp(values, out, sizeof out), 0);
    matD_set_value(&c, values);
    EXPECT_EQ(matD_is_equal(c, array_to_matD(values, 2, 2)), 1);
    EXPECT_DOUBLE_EQ(matD_det(c), -2.0);
    EXPECT_DOUBLE_EQ(directCalculateDetAD(c), -2.0);
    EXPECT_EQ(matD_trace(c), 5.0);
    EXPECT_EQ(matD_diag(c).data[1][0], 4.0);
    EXPECT_EQ(matD_find_abs_max(c), 4.0);
    EXPECT_EQ(matD_find_abs_min(c), 1.0);
    EXPECT_EQ(matD_rank(c, 1e-12, 0), 2);
    EXPECT_EQ(matD_T(c).data[0][1], 3.0);
    EXPECT_EQ(matD_add(c, c).data[1][1], 8.0);
    EXPECT_EQ(matD_sub(c, c).data[1][1], 0.0);
    EXPECT_EQ(matD_kM(0.5, c).data[1][1], 2.0);
    EXPECT_EQ(matD_mult(c, matD_eye(2, 2)).data[1][0], 3.0);
    MatD t = matD_eye(4, 4);
    t.data[0][3] = 1.5;
    EXPECT_EQ(matD_T2p(t).data[0][0], 1.5);
    EXPECT_EQ(matD_T2R(t).row, 3);
    EXPECT_EQ(matD_homogen_trans_inv(t).data[0][3], -1.5);
    MatD x = vecD_init(3), y = vecD_zeros(3);
    x.data[0][0] = 1;
    y.data[1][0] = 1;
    EXPECT_EQ(vecD3x3_cross(x, y).data[2][0], 1.0);
    EXPECT_EQ(vecD_dot(x, y), 0.0);
    EXPECT_EQ(vecD_norm2(vecD_add(x, y)), std::sqrt(2.0));
    EXPECT_EQ(vecD_sub(x, y).data[1][0], -1.0);
    EXPECT_EQ(vecD_minus(x).data[0][0], -1.0);
    EXPECT_EQ(vecD_kV(3.0, x).data[0][0], 3.0);
    EXPECT_EQ(vecD_add_scalar(x, 1.0).data[2][0], 1.0);
    EXPECT_EQ(vecD_is_zeros(vecD_zeros(3)), 1);
    EXPECT_EQ(skew_to_vecD(vecD_to_skew(x)).data[0][0], 1.0);
    EXPECT_EQ(vecD_vex(vecD_to_skew(y)).data[1][0], 1.0);
    EXPECT_EQ(vecD_Tdiff(t, t).data[0][0], 0.0);
    EXPECT_EQ(matD_init(2, 3).col, 3);
}

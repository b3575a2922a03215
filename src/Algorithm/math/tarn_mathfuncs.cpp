// Math core: fixed-size transforms and rotations.
//
// Matrix and Matrix_more share one implementation per operation, a template over the
// record and its storage size; the exported functions are thin instances. Arithmetic is
// written out exactly (double accumulators in products, the pivot rule
// of the Gauss-Jordan sweep, the single-precision trigonometry of the conversions), so
// the order of operations below is part of the behaviour.
#include "Algorithm/math/tarn_mathfuncs.h"

#include <cmath>
#include <cstddef>
#include <cstring>

#include "zk_types.h"

using tarn::clamp_dim;

// The public zk_ records are copied field for field into these by the algorithm facade.
static_assert(sizeof(Matrix) == sizeof(zk_matrix_t) && offsetof(Matrix, data) == offsetof(zk_matrix_t, data));
static_assert(sizeof(Pos) == sizeof(zk_position_t) && sizeof(Euler) == sizeof(zk_euler_t));
static_assert(sizeof(Quat) == sizeof(zk_quat_t) && sizeof(Pose) == sizeof(zk_pose_t));
static_assert(offsetof(Pose, quaternion) == offsetof(zk_pose_t, quaternion));
static_assert(offsetof(Pose, euler) == offsetof(zk_pose_t, euler));
static_assert(sizeof(DH) == 8 * 8 * sizeof(float));

namespace {

/* -----------------------------------------------------------------------------
 * Shared implementation of the Matrix and Matrix_more operations
 * -------------------------------------------------------------------------- */

template <class M, int D>
M make_matrix(int16_t irow, int16_t iline)
{
    M m{};
    m.irow = irow;
    m.iline = iline;
    return m;
}

template <class M, int D>
M identity(int16_t n)
{
    M m = make_matrix<M, D>(n, n);
    const int k = clamp_dim(n, D);
    for (int i = 0; i < k; ++i) m.data[i][i] = 1.0f;
    return m;
}

template <class M, int D>
M transpose(const M& m)
{
    M r = make_matrix<M, D>(m.iline, m.irow);
    const int rows = clamp_dim(m.irow, D);
    const int cols = clamp_dim(m.iline, D);
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) r.data[j][i] = m.data[i][j];
    return r;
}

// Shape irow(a) x iline(b), inner sum over iline(a). Each term is one single-precision
// product; the terms go into a double accumulator from zero in increasing index order,
// narrowed once at the store.
template <class M, int D>
M multiply(const M& a, const M& b)
{
    M r = make_matrix<M, D>(a.irow, b.iline);
    const int rows = clamp_dim(a.irow, D);
    const int cols = clamp_dim(b.iline, D);
    const int inner = clamp_dim(a.iline, D);
    if (rows == D && cols == D && inner == D) {
        // Full storage: constant bounds, each row's sums side by side. Every entry still
        // adds its terms in increasing k, so the result is the same as below.
        for (int i = 0; i < D; ++i) {
            double acc[D] = {};
            for (int k = 0; k < D; ++k)
                for (int j = 0; j < D; ++j) acc[j] += static_cast<double>(a.data[i][k] * b.data[k][j]);
            for (int j = 0; j < D; ++j) r.data[i][j] = static_cast<float>(acc[j]);
        }
        return r;
    }
    for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < cols; ++j) {
            double acc = 0.0;
            for (int k = 0; k < inner; ++k) {
                const float term = a.data[i][k] * b.data[k][j];
                acc += static_cast<double>(term);
            }
            r.data[i][j] = static_cast<float>(acc);
        }
    }
    return r;
}

template <class M, int D>
M add(const M& a, const M& b, int flag)
{
    M r = make_matrix<M, D>(a.irow, a.iline);
    const int rows = clamp_dim(a.irow, D);
    const int cols = clamp_dim(a.iline, D);
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j)
            r.data[i][j] = flag > 0 ? a.data[i][j] + b.data[i][j] : a.data[i][j] - b.data[i][j];
    return r;
}

template <class M, int D>
M scale(float k, const M& m)
{
    M r = make_matrix<M, D>(m.irow, m.iline);
    const int rows = clamp_dim(m.irow, D);
    const int cols = clamp_dim(m.iline, D);
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) r.data[i][j] = k * m.data[i][j];
    return r;
}

template <class Row>
void swap_rows(Row* data, int r0, int r1, int n)
{
    for (int j = 0; j < n; ++j) {
        const float t = data[r0][j];
        data[r0][j] = data[r1][j];
        data[r1][j] = t;
    }
}

template <class Row>
void swap_cols(Row* data, int c0, int c1, int n)
{
    for (int i = 0; i < n; ++i) {
        const float t = data[i][c0];
        data[i][c0] = data[i][c1];
        data[i][c1] = t;
    }
}

// Gauss-Jordan elimination with full pivoting, in place on the copy (General
// inverse). n = irow; the header is kept. No singularity test: a zero pivot divides by
// zero and the result carries infinities or NaNs.
template <class M, int D>
M invert(M m)
{
    const int n = clamp_dim(m.irow, D);
    int pivot_row[D];
    int pivot_col[D];
    double t[D];
    double c[D];
    auto* a = m.data;

    for (int k = 0; k < n; ++k) {
        // 1. Row-major scan of the remainder from magnitude 0; only a strictly greater
        //    magnitude replaces the pivot, so the first of equal elements stays.
        float best = 0.0f;
        int pr = k;
        int pc = k;
        for (int i = k; i < n; ++i) {
            for (int j = k; j < n; ++j) {
                const float mag = std::fabs(a[i][j]);
                if (mag > best) {
                    best = mag;
                    pr = i;
                    pc = j;
                }
            }
        }
        // 2. Exchange, and record both indices.
        pivot_row[k] = pr;
        pivot_col[k] = pc;
        if (pr != k) swap_rows(a, k, pr, n);
        if (pc != k) swap_cols(a, k, pc, n);

        // 3. The exchange step as a rank-one update, in double precision.
        const double p = a[k][k];
        for (int j = 0; j < n; ++j) {
            if (j == k) continue;
            t[j] = -static_cast<double>(a[k][j]) / p;
            c[j] = a[j][k];
        }
        t[k] = 1.0 / p;
        c[k] = 1.0;
        for (int j = 0; j < n; ++j) {
            a[k][j] = 0.0f;
            a[j][k] = 0.0f;
        }
        // 4. Narrowed to float at each store.
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) a[i][j] = static_cast<float>(a[i][j] + c[i] * t[j]);
    }
    for (int k = n - 1; k >= 0; --k) {
        if (pivot_row[k] != k) swap_cols(a, k, pivot_row[k], n);
        if (pivot_col[k] != k) swap_rows(a, k, pivot_col[k], n);
    }
    // Entries outside the header are zero in every result.
    const int rows = clamp_dim(m.irow, D);
    const int cols = clamp_dim(m.iline, D);
    for (int i = 0; i < D; ++i)
        for (int j = 0; j < D; ++j)
            if (i >= rows || j >= cols) a[i][j] = 0.0f;
    return m;
}

float wrap_euler_angle(float v)
{
    // Compared and shifted in double (the constants are doubles), narrowed on the store.
    return v < tarn::kEulerWrapBelow ? static_cast<float>(static_cast<double>(v) + tarn::kTwoPi) : v;
}

// The Euler extraction on the rotation entries r[i][j].
Euler euler_from_rotation(const float (*r)[4])
{
    Euler e;
    const float r20 = r[2][0];
    e.ry = std::atan2(-r20, std::sqrt(r[0][0] * r[0][0] + r[1][0] * r[1][0]));
    if (r20 > tarn::kGimbalLimit) {
        e.rx = -std::atan2(r[0][1], r[1][1]);
        e.rz = 0.0f;
    } else if (r20 < -tarn::kGimbalLimit) {
        e.rx = std::atan2(r[0][1], r[1][1]);
        e.rz = 0.0f;
    } else {
        e.rx = std::atan2(r[2][1], r[2][2]);
        e.rz = std::atan2(r[1][0], r[0][0]);
    }
    e.rx = wrap_euler_angle(e.rx);
    e.ry = wrap_euler_angle(e.ry);
    e.rz = wrap_euler_angle(e.rz);
    return e;
}

// The four-case quaternion extraction; the sign of w is not normalised.
Quat quat_from_rotation(const float (*r)[4])
{
    Quat q;
    const float t = r[0][0] + r[1][1] + r[2][2];
    if (t > 0.0f) {
        const float s = 2.0f * std::sqrt(t + 1.0f);
        q.w = s / 4.0f;
        q.x = (r[2][1] - r[1][2]) / s;
        q.y = (r[0][2] - r[2][0]) / s;
        q.z = (r[1][0] - r[0][1]) / s;
    } else if (r[0][0] > r[1][1] && r[0][0] > r[2][2]) {
        const float s = 2.0f * std::sqrt(1.0f + r[0][0] - r[1][1] - r[2][2]);
        q.x = s / 4.0f;
        q.w = (r[2][1] - r[1][2]) / s;
        q.y = (r[0][1] + r[1][0]) / s;
        q.z = (r[0][2] + r[2][0]) / s;
    } else if (r[1][1] > r[2][2]) {
        const float s = 2.0f * std::sqrt(1.0f + r[1][1] - r[0][0] - r[2][2]);
        q.y = s / 4.0f;
        q.w = (r[0][2] - r[2][0]) / s;
        q.x = (r[0][1] + r[1][0]) / s;
        q.z = (r[1][2] + r[2][1]) / s;
    } else {
        const float s = 2.0f * std::sqrt(1.0f + r[2][2] - r[0][0] - r[1][1]);
        q.z = s / 4.0f;
        q.w = (r[1][0] - r[0][1]) / s;
        q.x = (r[0][2] + r[2][0]) / s;
        q.y = (r[1][2] + r[2][1]) / s;
    }
    return q;
}

/* -----------------------------------------------------------------------------
 * Small helpers of the quaternion family (float[4] w, x, y, z)
 * -------------------------------------------------------------------------- */

void quat_product(float out[4], const float a[4], const float b[4])
{
    const float w = a[0] * b[0] - a[1] * b[1] - a[2] * b[2] - a[3] * b[3];
    const float x = a[0] * b[1] + a[1] * b[0] + a[2] * b[3] - a[3] * b[2];
    const float y = a[0] * b[2] - a[1] * b[3] + a[2] * b[0] + a[3] * b[1];
    const float z = a[0] * b[3] + a[1] * b[2] - a[2] * b[1] + a[3] * b[0];
    out[0] = w;
    out[1] = x;
    out[2] = y;
    out[3] = z;
}

Quat to_quat(const float q[4]) { return Quat{q[0], q[1], q[2], q[3]}; }

// Angular velocity in the base frame of a quaternion curve: 2 dq q^-1, vector part.
void angular_velocity(float out[3], const float dq[4], const float q[4])
{
    const float n = q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3];
    const float qinv[4] = {q[0] / n, -q[1] / n, -q[2] / n, -q[3] / n};
    float p[4];
    quat_product(p, dq, qinv);
    out[0] = 2.0f * p[1];
    out[1] = 2.0f * p[2];
    out[2] = 2.0f * p[3];
}

// The slerp derivative threshold (d_slerp, d_slerp_vom).
constexpr float kSlerpMinAngle = 1e-6f;
// my_slerp: beyond this |dot| the result is q0.
constexpr float kSlerpSameLimit = 0.9999999f;

}  // namespace

/* -----------------------------------------------------------------------------
 * Matrix
 * -------------------------------------------------------------------------- */

Matrix zero_matrix(int16_t irow, int16_t iline) { return make_matrix<Matrix, 4>(irow, iline); }
Matrix unit_matrix(int16_t n) { return identity<Matrix, 4>(n); }
Matrix matrix_t(Matrix m) { return transpose<Matrix, 4>(m); }
Matrix matrix_m(Matrix a, Matrix b) { return multiply<Matrix, 4>(a, b); }
Matrix matrix_a(Matrix a, Matrix b, int flag) { return add<Matrix, 4>(a, b, flag); }
Matrix matrix_m_num(float k, Matrix m) { return scale<Matrix, 4>(k, m); }
Matrix matrix_inv(Matrix m) { return invert<Matrix, 4>(m); }

Matrix matrix_inv_full_rank(Matrix m)
{
    const float(*a)[4] = m.data;
    float inv[4][4];
    // Cofactors of the transpose (the adjugate), written out.
    inv[0][0] = a[1][1] * a[2][2] * a[3][3] - a[1][1] * a[2][3] * a[3][2] - a[2][1] * a[1][2] * a[3][3] +
                a[2][1] * a[1][3] * a[3][2] + a[3][1] * a[1][2] * a[2][3] - a[3][1] * a[1][3] * a[2][2];
    inv[1][0] = -a[1][0] * a[2][2] * a[3][3] + a[1][0] * a[2][3] * a[3][2] + a[2][0] * a[1][2] * a[3][3] -
                a[2][0] * a[1][3] * a[3][2] - a[3][0] * a[1][2] * a[2][3] + a[3][0] * a[1][3] * a[2][2];
    inv[2][0] = a[1][0] * a[2][1] * a[3][3] - a[1][0] * a[2][3] * a[3][1] - a[2][0] * a[1][1] * a[3][3] +
                a[2][0] * a[1][3] * a[3][1] + a[3][0] * a[1][1] * a[2][3] - a[3][0] * a[1][3] * a[2][1];
    inv[3][0] = -a[1][0] * a[2][1] * a[3][2] + a[1][0] * a[2][2] * a[3][1] + a[2][0] * a[1][1] * a[3][2] -
                a[2][0] * a[1][2] * a[3][1] - a[3][0] * a[1][1] * a[2][2] + a[3][0] * a[1][2] * a[2][1];
    inv[0][1] = -a[0][1] * a[2][2] * a[3][3] + a[0][1] * a[2][3] * a[3][2] + a[2][1] * a[0][2] * a[3][3] -
                a[2][1] * a[0][3] * a[3][2] - a[3][1] * a[0][2] * a[2][3] + a[3][1] * a[0][3] * a[2][2];
    inv[1][1] = a[0][0] * a[2][2] * a[3][3] - a[0][0] * a[2][3] * a[3][2] - a[2][0] * a[0][2] * a[3][3] +
                a[2][0] * a[0][3] * a[3][2] + a[3][0] * a[0][2] * a[2][3] - a[3][0] * a[0][3] * a[2][2];
    inv[2][1] = -a[0][0] * a[2][1] * a[3][3] + a[0][0] * a[2][3] * a[3][1] + a[2][0] * a[0][1] * a[3][3] -
                a[2][0] * a[0][3] * a[3][1] - a[3][0] * a[0][1] * a[2][3] + a[3][0] * a[0][3] * a[2][1];
    inv[3][1] = a[0][0] * a[2][1] * a[3][2] - a[0][0] * a[2][2] * a[3][1] - a[2][0] * a[0][1] * a[3][2] +
                a[2][0] * a[0][2] * a[3][1] + a[3][0] * a[0][1] * a[2][2] - a[3][0] * a[0][2] * a[2][1];
    inv[0][2] = a[0][1] * a[1][2] * a[3][3] - a[0][1] * a[1][3] * a[3][2] - a[1][1] * a[0][2] * a[3][3] +
                a[1][1] * a[0][3] * a[3][2] + a[3][1] * a[0][2] * a[1][3] - a[3][1] * a[0][3] * a[1][2];
    inv[1][2] = -a[0][0] * a[1][2] * a[3][3] + a[0][0] * a[1][3] * a[3][2] + a[1][0] * a[0][2] * a[3][3] -
                a[1][0] * a[0][3] * a[3][2] - a[3][0] * a[0][2] * a[1][3] + a[3][0] * a[0][3] * a[1][2];
    inv[2][2] = a[0][0] * a[1][1] * a[3][3] - a[0][0] * a[1][3] * a[3][1] - a[1][0] * a[0][1] * a[3][3] +
                a[1][0] * a[0][3] * a[3][1] + a[3][0] * a[0][1] * a[1][3] - a[3][0] * a[0][3] * a[1][1];
    inv[3][2] = -a[0][0] * a[1][1] * a[3][2] + a[0][0] * a[1][2] * a[3][1] + a[1][0] * a[0][1] * a[3][2] -
                a[1][0] * a[0][2] * a[3][1] - a[3][0] * a[0][1] * a[1][2] + a[3][0] * a[0][2] * a[1][1];
    inv[0][3] = -a[0][1] * a[1][2] * a[2][3] + a[0][1] * a[1][3] * a[2][2] + a[1][1] * a[0][2] * a[2][3] -
                a[1][1] * a[0][3] * a[2][2] - a[2][1] * a[0][2] * a[1][3] + a[2][1] * a[0][3] * a[1][2];
    inv[1][3] = a[0][0] * a[1][2] * a[2][3] - a[0][0] * a[1][3] * a[2][2] - a[1][0] * a[0][2] * a[2][3] +
                a[1][0] * a[0][3] * a[2][2] + a[2][0] * a[0][2] * a[1][3] - a[2][0] * a[0][3] * a[1][2];
    inv[2][3] = -a[0][0] * a[1][1] * a[2][3] + a[0][0] * a[1][3] * a[2][1] + a[1][0] * a[0][1] * a[2][3] -
                a[1][0] * a[0][3] * a[2][1] - a[2][0] * a[0][1] * a[1][3] + a[2][0] * a[0][3] * a[1][1];
    inv[3][3] = a[0][0] * a[1][1] * a[2][2] - a[0][0] * a[1][2] * a[2][1] - a[1][0] * a[0][1] * a[2][2] +
                a[1][0] * a[0][2] * a[2][1] + a[2][0] * a[0][1] * a[1][2] - a[2][0] * a[0][2] * a[1][1];

    const float det = a[0][0] * inv[0][0] + a[0][1] * inv[1][0] + a[0][2] * inv[2][0] + a[0][3] * inv[3][0];
    const float inv_det = 1.0f / det;
    Matrix r = make_matrix<Matrix, 4>(4, 4);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) r.data[i][j] = inv[i][j] * inv_det;
    return r;
}

Matrix matrix_inv_coordinate_system(Matrix m)
{
    const float(*a)[4] = m.data;
    // Adjugate of the rotation block: adj[i][j] is the cofactor of a[j][i].
    float adj[3][3];
    adj[0][0] = a[1][1] * a[2][2] - a[1][2] * a[2][1];
    adj[0][1] = a[0][2] * a[2][1] - a[0][1] * a[2][2];
    adj[0][2] = a[0][1] * a[1][2] - a[0][2] * a[1][1];
    adj[1][0] = a[1][2] * a[2][0] - a[1][0] * a[2][2];
    adj[1][1] = a[0][0] * a[2][2] - a[0][2] * a[2][0];
    adj[1][2] = a[0][2] * a[1][0] - a[0][0] * a[1][2];
    adj[2][0] = a[1][0] * a[2][1] - a[1][1] * a[2][0];
    adj[2][1] = a[0][1] * a[2][0] - a[0][0] * a[2][1];
    adj[2][2] = a[0][0] * a[1][1] - a[0][1] * a[1][0];
    const float det = a[0][0] * adj[0][0] + a[0][1] * adj[1][0] + a[0][2] * adj[2][0];
    const float inv_det = 1.0f / det;

    Matrix r = make_matrix<Matrix, 4>(4, 4);
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) r.data[i][j] = adj[i][j] * inv_det;
        // The translation of the inverse, -R^-1 p, from the same cofactors.
        r.data[i][3] = -(adj[i][0] * a[0][3] + adj[i][1] * a[1][3] + adj[i][2] * a[2][3]) * inv_det;
    }
    r.data[3][3] = 1.0f;
    return r;
}

Matrix matrix_T2R(Matrix m)
{
    Matrix r = make_matrix<Matrix, 4>(3, 3);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.data[i][j] = m.data[i][j];
    return r;
}

Matrix cross(Matrix a, Matrix b)
{
    Matrix r = make_matrix<Matrix, 4>(3, 1);
    r.data[0][0] = a.data[1][0] * b.data[2][0] - a.data[2][0] * b.data[1][0];
    r.data[1][0] = a.data[2][0] * b.data[0][0] - a.data[0][0] * b.data[2][0];
    r.data[2][0] = a.data[0][0] * b.data[1][0] - a.data[1][0] * b.data[0][0];
    return r;
}

int zk_sign(float x)
{
    if (x > 0.0f) return 1;
    if (x < 0.0f) return -1;
    return 0;
}

float my_atan2f(float y, float x)
{
    const float angle = std::acos(x / std::sqrt(y * y + x * x));
    return y < 0.0f ? -angle : angle;
}

/* -----------------------------------------------------------------------------
 * Poses, Euler angles and quaternions
 * -------------------------------------------------------------------------- */

Matrix euler_to_matrix(Euler e)
{
    const float sx = std::sin(e.rx), cx = std::cos(e.rx);
    const float sy = std::sin(e.ry), cy = std::cos(e.ry);
    const float sz = std::sin(e.rz), cz = std::cos(e.rz);
    Matrix r = make_matrix<Matrix, 4>(3, 3);
    r.data[0][0] = cy * cz;
    r.data[0][1] = sy * cz * sx - sz * cx;
    r.data[0][2] = sx * sz + sy * cz * cx;
    r.data[1][0] = sz * cy;
    r.data[1][1] = cx * cz + sy * sz * sx;
    r.data[1][2] = sy * sz * cx - cz * sx;
    r.data[2][0] = -sy;
    r.data[2][1] = sx * cy;
    r.data[2][2] = cx * cy;
    return r;
}

Matrix quat_to_matrix(Quat q)
{
    const float n = q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z;
    const float s = n > tarn::kQuatMinNorm2 ? 2.0f / n : 0.0f;
    Matrix r = make_matrix<Matrix, 4>(3, 3);
    r.data[0][0] = 1.0f - s * (q.y * q.y + q.z * q.z);
    r.data[0][1] = s * (q.x * q.y - q.w * q.z);
    r.data[0][2] = s * (q.x * q.z + q.w * q.y);
    r.data[1][0] = s * (q.x * q.y + q.w * q.z);
    r.data[1][1] = 1.0f - s * (q.x * q.x + q.z * q.z);
    r.data[1][2] = s * (q.y * q.z - q.w * q.x);
    r.data[2][0] = s * (q.x * q.z - q.w * q.y);
    r.data[2][1] = s * (q.y * q.z + q.w * q.x);
    r.data[2][2] = 1.0f - s * (q.x * q.x + q.y * q.y);
    return r;
}

Euler matrix_to_euler(Matrix m) { return euler_from_rotation(m.data); }
Quat matrix_to_quat(Matrix m) { return quat_from_rotation(m.data); }
Euler quat_to_euler(Quat q) { return euler_from_rotation(quat_to_matrix(q).data); }

Quat euler_to_quat(Euler e)
{
    const float hx = e.rx * 0.5f, hy = e.ry * 0.5f, hz = e.rz * 0.5f;
    const float cx = std::cos(hx), sx = std::sin(hx);
    const float cy = std::cos(hy), sy = std::sin(hy);
    const float cz = std::cos(hz), sz = std::sin(hz);
    Quat q;
    q.w = cx * cy * cz + sx * sy * sz;
    q.x = sx * cy * cz - cx * sy * sz;
    q.y = cx * sy * cz + sx * cy * sz;
    q.z = cx * cy * sz - sx * sy * cz;
    return q;
}

Matrix pose_quat_to_transformation_matrix(Pose pose)
{
    Matrix r = quat_to_matrix(pose.quaternion);
    r.irow = 4;
    r.iline = 4;
    r.data[0][3] = pose.position.x;
    r.data[1][3] = pose.position.y;
    r.data[2][3] = pose.position.z;
    r.data[3][3] = 1.0f;
    return r;
}

Matrix pose_euler_to_transformation_matrix(Pose pose)
{
    Matrix r = euler_to_matrix(pose.euler);
    r.irow = 4;
    r.iline = 4;
    r.data[0][3] = pose.position.x;
    r.data[1][3] = pose.position.y;
    r.data[2][3] = pose.position.z;
    r.data[3][3] = 1.0f;
    return r;
}

Pose transformation_matrix_to_pose(Matrix m)
{
    Pose p;
    p.position = Pos{m.data[0][3], m.data[1][3], m.data[2][3]};
    p.quaternion = quat_from_rotation(m.data);
    p.euler = euler_from_rotation(m.data);
    return p;
}

Quat quaternion_interpolation(float theta, float s, Quat q0, Quat q1)
{
    const float inv = 1.0f / std::sin(theta);
    const float k1 = std::sin(s);
    const float k0 = std::sin(theta - s);
    Quat q;
    q.w = (k1 * q1.w + k0 * q0.w) * inv;
    q.x = (k1 * q1.x + k0 * q0.x) * inv;
    q.y = (k1 * q1.y + k0 * q0.y) * inv;
    q.z = (k1 * q1.z + k0 * q0.z) * inv;
    return q;
}

Matrix rotx(float angle)
{
    const float c = std::cos(angle), s = std::sin(angle);
    Matrix r = make_matrix<Matrix, 4>(3, 3);
    r.data[0][0] = 1.0f;
    r.data[1][1] = c;
    r.data[1][2] = -s;
    r.data[2][1] = s;
    r.data[2][2] = c;
    return r;
}

Matrix roty(float angle)
{
    const float c = std::cos(angle), s = std::sin(angle);
    Matrix r = make_matrix<Matrix, 4>(3, 3);
    r.data[0][0] = c;
    r.data[0][2] = s;
    r.data[1][1] = 1.0f;
    r.data[2][0] = -s;
    r.data[2][2] = c;
    return r;
}

Matrix rotz(float angle)
{
    const float c = std::cos(angle), s = std::sin(angle);
    Matrix r = make_matrix<Matrix, 4>(3, 3);
    r.data[0][0] = c;
    r.data[0][1] = -s;
    r.data[1][0] = s;
    r.data[1][1] = c;
    r.data[2][2] = 1.0f;
    return r;
}

/* -----------------------------------------------------------------------------
 * Quaternion helpers of the planner
 * -------------------------------------------------------------------------- */

void multi_q0q1(float result[4], const float q0[4], const float q1[4]) { quat_product(result, q0, q1); }

void norm_quat(float result[4], const float q[4])
{
    const float n = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    for (int i = 0; i < 4; ++i) result[i] = q[i] / n;
}

float dot_quat(const float q0[4], const float q1[4])
{
    return q0[0] * q1[0] + q0[1] * q1[1] + q0[2] * q1[2] + q0[3] * q1[3];
}

void inv_quat(float result[4], const float q[4])
{
    result[0] = q[0];
    result[1] = -q[1];
    result[2] = -q[2];
    result[3] = -q[3];
}

void my_slerp(float result[4], const float q0[4], const float q1[4], float t)
{
    float c = dot_quat(q0, q1);
    if (c > kSlerpSameLimit || c < -kSlerpSameLimit) {
        for (int i = 0; i < 4; ++i) result[i] = q0[i];
        return;
    }
    float b[4] = {q1[0], q1[1], q1[2], q1[3]};
    if (c < 0.0f) {
        for (float& v : b) v = -v;
        c = -c;
    }
    const float theta = std::acos(c);
    if (theta == 0.0f) {
        for (int i = 0; i < 4; ++i) result[i] = q0[i];
        return;
    }
    const float st = std::sin(theta);
    const float k0 = std::sin((1.0f - t) * theta) / st;
    const float k1 = std::sin(t * theta) / st;
    const float a[4] = {q0[0], q0[1], q0[2], q0[3]};
    for (int i = 0; i < 4; ++i) result[i] = a[i] * k0 + b[i] * k1;
}

void exp_omiga(float result[4], const float omega[3])
{
    const float phi = std::sqrt(omega[0] * omega[0] + omega[1] * omega[1] + omega[2] * omega[2]);
    if (phi == 0.0f) {
        result[0] = 1.0f;
        result[1] = result[2] = result[3] = 0.0f;
        return;
    }
    const float k = std::sin(phi) / phi;
    const float w[3] = {omega[0], omega[1], omega[2]};
    result[0] = std::cos(phi);
    result[1] = w[0] * k;
    result[2] = w[1] * k;
    result[3] = w[2] * k;
}

void log_quat(float result[3], const float q[4])
{
    const float vn = std::sqrt(q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    if (vn == 0.0f) {
        result[0] = result[1] = result[2] = 0.0f;
        return;
    }
    const float k = std::atan2(vn, q[0]) / vn;
    const float v[3] = {q[1], q[2], q[3]};
    result[0] = v[0] * k;
    result[1] = v[1] * k;
    result[2] = v[2] * k;
}

void multi_cq(float result[4], float c, const float q[4])
{
    for (int i = 0; i < 4; ++i) result[i] = c * q[i];
}

void Veulr2Vq(float result[4], const float euler_rate[3], const float q[4])
{
    const Euler e = quat_to_euler(to_quat(q));
    const float sy = std::sin(e.ry), cy = std::cos(e.ry);
    const float sz = std::sin(e.rz), cz = std::cos(e.rz);
    const float drx = euler_rate[0], dry = euler_rate[1], drz = euler_rate[2];
    // Angular velocity in the base frame of R = Rz Ry Rx.
    const float w[4] = {0.0f, cz * cy * drx - sz * dry, sz * cy * drx + cz * dry, drz - sy * drx};
    const float qc[4] = {q[0], q[1], q[2], q[3]};
    float p[4];
    quat_product(p, w, qc);
    for (int i = 0; i < 4; ++i) result[i] = 0.5f * p[i];
}

void Vquat2Veulr(float result[3], const float dq[4], const float q[4])
{
    float w[3];
    angular_velocity(w, dq, q);
    const Euler e = quat_to_euler(to_quat(q));
    const float sy = std::sin(e.ry), cy = std::cos(e.ry);
    const float sz = std::sin(e.rz), cz = std::cos(e.rz);
    const float drx = (cz * w[0] + sz * w[1]) / cy;
    result[0] = drx;
    result[1] = cz * w[1] - sz * w[0];
    result[2] = w[2] + sy * drx;
}

void d_slerp(float result[4], const float q0[4], const float q1[4], float t, float dt)
{
    const float theta = std::acos(dot_quat(q0, q1));
    if (!(theta > kSlerpMinAngle)) {
        for (int i = 0; i < 4; ++i) result[i] = 0.0f;
        return;
    }
    const float st = std::sin(theta);
    const float k0 = -theta * std::cos((1.0f - t) * theta) / st;
    const float k1 = theta * std::cos(t * theta) / st;
    const float a[4] = {q0[0], q0[1], q0[2], q0[3]};
    const float b[4] = {q1[0], q1[1], q1[2], q1[3]};
    for (int i = 0; i < 4; ++i) result[i] = (a[i] * k0 + b[i] * k1) * dt;
}

float d_slerp_vom(const float q0[4], const float q1[4], float t, float result[3])
{
    const float theta = std::acos(dot_quat(q0, q1));
    if (!(theta > kSlerpMinAngle)) {
        result[0] = result[1] = result[2] = 0.0f;
        return 0.0f;
    }
    const float st = std::sin(theta);
    const float k0 = std::sin((1.0f - t) * theta) / st;
    const float k1 = std::sin(t * theta) / st;
    float q[4];
    for (int i = 0; i < 4; ++i) q[i] = q0[i] * k0 + q1[i] * k1;
    float dq[4];
    d_slerp(dq, q0, q1, t, 1.0f);
    float w[3];
    angular_velocity(w, dq, q);
    result[0] = w[0];
    result[1] = w[1];
    result[2] = w[2];
    return std::sqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]);
}

/* -----------------------------------------------------------------------------
 * Matrix_more
 * -------------------------------------------------------------------------- */

Matrix_more unit_matrix_dim7(int16_t n) { return identity<Matrix_more, 7>(n); }
Matrix_more matrix_t_dim7(Matrix_more m) { return transpose<Matrix_more, 7>(m); }
Matrix_more matrix_m_dim7(Matrix_more a, Matrix_more b) { return multiply<Matrix_more, 7>(a, b); }
Matrix_more matrix_a_dim7(Matrix_more a, Matrix_more b, int flag) { return add<Matrix_more, 7>(a, b, flag); }
Matrix_more matrix_m_num_dim7(float k, Matrix_more m) { return scale<Matrix_more, 7>(k, m); }
Matrix_more matrix_inv_dim7(Matrix_more m) { return invert<Matrix_more, 7>(m); }

// Rows 1 to 5 form a 5 x 5 tridiagonal interior T (sub a, diagonal b, super c) plus the
// couplings a1 = m(1,0) and c5 = m(5,6) to the fixed end points. The interior inverse
// is Usmani's closed form: with the leading minors theta and trailing minors phi,
//   T^-1(i,j) = (-1)^(i+j) c_i..c_(j-1) theta_(i-1) phi_(j+1) / theta_5   for i <= j,
//   T^-1(i,j) = (-1)^(i+j) a_(j+1)..a_i theta_(j-1) phi_(i+1) / theta_5   for i > j,
// and the end columns follow from x0 = y0, x6 = y6. Computed in double, one reciprocal.
Matrix_more simp_matrix_inv77(Matrix_more m)
{
    constexpr int kN = 5;  // interior size; indices 1..5 as in the matrix
    double a[kN + 2] = {};
    double b[kN + 2] = {};
    double c[kN + 2] = {};
    for (int r = 1; r <= kN; ++r) {
        a[r] = m.data[r][r - 1];
        b[r] = m.data[r][r];
        c[r] = m.data[r][r + 1];
    }
    double theta[kN + 1];
    theta[0] = 1.0;
    theta[1] = b[1];
    for (int i = 2; i <= kN; ++i) theta[i] = b[i] * theta[i - 1] - a[i] * c[i - 1] * theta[i - 2];
    double phi[kN + 2];
    phi[kN + 1] = 1.0;
    phi[kN] = b[kN];
    for (int i = kN - 1; i >= 1; --i) phi[i] = b[i] * phi[i + 1] - c[i] * a[i + 1] * phi[i + 2];
    const double inv_det = 1.0 / theta[kN];

    double tinv[kN + 1][kN + 1];
    for (int i = 1; i <= kN; ++i) {
        for (int j = 1; j <= kN; ++j) {
            double prod = 1.0;
            double v;
            if (i <= j) {
                for (int k = i; k < j; ++k) prod *= c[k];
                v = prod * theta[i - 1] * phi[j + 1];
            } else {
                for (int k = j + 1; k <= i; ++k) prod *= a[k];
                v = prod * theta[j - 1] * phi[i + 1];
            }
            tinv[i][j] = ((i + j) % 2 == 0 ? v : -v) * inv_det;
        }
    }

    Matrix_more r = make_matrix<Matrix_more, 7>(7, 7);
    r.data[0][0] = 1.0f;
    r.data[6][6] = 1.0f;
    for (int i = 1; i <= kN; ++i) {
        for (int j = 1; j <= kN; ++j) r.data[i][j] = static_cast<float>(tinv[i][j]);
        r.data[i][0] = static_cast<float>(-a[1] * tinv[i][1]);
        r.data[i][6] = static_cast<float>(-c[kN] * tinv[i][kN]);
    }
    return r;
}

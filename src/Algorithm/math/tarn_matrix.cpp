// Math core: dynamic matrix and vector library.
//
// Mat (float) and MatD (double) share one implementation per operation, a template over
// the record; the exported mat_/matD_/vec_/vecD_ functions are thin instances. Products
// and sums of products accumulate in double for both. Every loop bound goes through
// mat_rows/mat_cols, so no header value can lead outside the 18 x 18 storage.
#include "Algorithm/math/tarn_matrix.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

using tarn::clamp_dim;
using tarn::kMatDim;
using tarn::mat_cols;
using tarn::mat_rows;

namespace {

template <class M>
using Elem = std::remove_cvref_t<decltype(std::declval<M&>().data[0][0])>;

/* -----------------------------------------------------------------------------
 * Creation and access
 * -------------------------------------------------------------------------- */

template <class M>
M make(int rows, int cols)
{
    M m{};
    m.row = clamp_dim(rows, kMatDim);
    m.col = clamp_dim(cols, kMatDim);
    return m;
}

template <class M>
M eye(int rows, int cols)
{
    M m = make<M>(rows, cols);
    const int k = m.row < m.col ? m.row : m.col;
    for (int i = 0; i < k; ++i) m.data[i][i] = 1;
    return m;
}

template <class M>
M get_row(const M& a, int i)
{
    M r = make<M>(1, mat_cols(a));
    if (i < 1 || i > mat_rows(a)) return r;
    for (int j = 0; j < r.col; ++j) r.data[0][j] = a.data[i - 1][j];
    return r;
}

template <class M>
M get_col(const M& a, int j)
{
    M r = make<M>(mat_rows(a), 1);
    if (j < 1 || j > mat_cols(a)) return r;
    for (int i = 0; i < r.row; ++i) r.data[i][0] = a.data[i][j - 1];
    return r;
}

template <class M>
void set_row(M* a, int i, const M& src)
{
    if (!a || i < 1 || i > mat_rows(*a)) return;
    for (int j = 0; j < mat_cols(*a); ++j) a->data[i - 1][j] = src.data[0][j];
}

template <class M>
void set_col(M* a, int j, const M& src)
{
    if (!a || j < 1 || j > mat_cols(*a)) return;
    for (int i = 0; i < mat_rows(*a); ++i) a->data[i][j - 1] = src.data[i][0];
}

template <class M>
void swap_row(M* a, int i, int j)
{
    if (!a || i < 1 || j < 1 || i > mat_rows(*a) || j > mat_rows(*a)) return;
    for (int k = 0; k < mat_cols(*a); ++k) std::swap(a->data[i - 1][k], a->data[j - 1][k]);
}

template <class M>
void swap_col(M* a, int i, int j)
{
    if (!a || i < 1 || j < 1 || i > mat_cols(*a) || j > mat_cols(*a)) return;
    for (int k = 0; k < mat_rows(*a); ++k) std::swap(a->data[k][i - 1], a->data[k][j - 1]);
}

template <class M>
void set_value(M* a, const Elem<M>* values)
{
    if (!a || !values) return;
    const int cols = mat_cols(*a);
    for (int i = 0; i < mat_rows(*a); ++i)
        for (int j = 0; j < cols; ++j) a->data[i][j] = values[i * cols + j];
}

template <class M>
void print(const M& a, const char* entry_format)
{
    std::printf("Mat = \n");
    for (int i = 0; i < mat_rows(a); ++i) {
        for (int j = 0; j < mat_cols(a); ++j) std::printf(entry_format, a.data[i][j]);
        std::printf("\n");
    }
}

// Kept as it stands, callers rely on it: the test is inverted, so the diagonal pair (1, 1) ends
// the walk with 0 for any square matrix whose first entry is not NaN.
template <class M>
int is_hermitian(const M& a)
{
    if (a.row != a.col) return -1;
    const int n = mat_rows(a);
    if (n == 0) return 1;
    for (int i = 1; i <= n; ++i)
        for (int j = 1; j <= n; ++j)
            if (std::fabs(a.data[i - 1][j - 1] - a.data[j - 1][i - 1]) < tarn::kHermitianTol) return 0;
    return 1;
}

template <class M>
int is_equal(const M& a, const M& b)
{
    return std::memcmp(&a, &b, sizeof(M)) == 0 ? 1 : 0;
}

/* -----------------------------------------------------------------------------
 * Arithmetic
 * -------------------------------------------------------------------------- */

template <class M>
M mult(const M& a, const M& b)
{
    using T = Elem<M>;
    M r = make<M>(mat_rows(a), mat_cols(b));
    const int inner = mat_cols(a);
    for (int i = 0; i < r.row; ++i) {
        for (int j = 0; j < r.col; ++j) {
            double acc = 0.0;
            for (int k = 0; k < inner; ++k) acc += static_cast<double>(a.data[i][k]) * b.data[k][j];
            r.data[i][j] = static_cast<T>(acc);
        }
    }
    return r;
}

template <class M>
M transpose(const M& a)
{
    M r = make<M>(mat_cols(a), mat_rows(a));
    for (int i = 0; i < r.col; ++i)
        for (int j = 0; j < r.row; ++j) r.data[j][i] = a.data[i][j];
    return r;
}

template <class M>
M add(const M& a, const M& b, int sign)
{
    M r = make<M>(mat_rows(a), mat_cols(a));
    for (int i = 0; i < r.row; ++i)
        for (int j = 0; j < r.col; ++j) r.data[i][j] = sign > 0 ? a.data[i][j] + b.data[i][j] : a.data[i][j] - b.data[i][j];
    return r;
}

template <class M>
M scale(Elem<M> k, const M& a)
{
    M r = make<M>(mat_rows(a), mat_cols(a));
    for (int i = 0; i < r.row; ++i)
        for (int j = 0; j < r.col; ++j) r.data[i][j] = k * a.data[i][j];
    return r;
}

template <class M>
Elem<M> trace(const M& a)
{
    const int k = mat_rows(a) < mat_cols(a) ? mat_rows(a) : mat_cols(a);
    Elem<M> s = 0;
    for (int i = 0; i < k; ++i) s += a.data[i][i];
    return s;
}

template <class M>
M diag(const M& a)
{
    if (mat_cols(a) == 1) {
        M r = make<M>(mat_rows(a), mat_rows(a));
        for (int i = 0; i < r.row; ++i) r.data[i][i] = a.data[i][0];
        return r;
    }
    const int k = mat_rows(a) < mat_cols(a) ? mat_rows(a) : mat_cols(a);
    M r = make<M>(k, 1);
    for (int i = 0; i < k; ++i) r.data[i][0] = a.data[i][i];
    return r;
}

template <class M>
Elem<M> find_abs(const M& a, bool want_max)
{
    Elem<M> best = 0;
    bool first = true;
    for (int i = 0; i < mat_rows(a); ++i) {
        for (int j = 0; j < mat_cols(a); ++j) {
            const Elem<M> v = std::fabs(a.data[i][j]);
            if (first || (want_max ? v > best : v < best)) best = v;
            first = false;
        }
    }
    return best;
}

template <class M>
int rank(M a, Elem<M> tol, int relative)
{
    using T = Elem<M>;
    const int m = mat_rows(a), n = mat_cols(a);
    if (relative) tol *= find_abs(a, true);
    int r = 0;
    for (int c = 0; c < n && r < m; ++c) {
        int p = r;
        T best = std::fabs(a.data[r][c]);
        for (int i = r + 1; i < m; ++i) {
            if (std::fabs(a.data[i][c]) > best) {
                best = std::fabs(a.data[i][c]);
                p = i;
            }
        }
        if (!(best > tol)) continue;
        if (p != r)
            for (int j = 0; j < n; ++j) std::swap(a.data[p][j], a.data[r][j]);
        for (int i = r + 1; i < m; ++i) {
            const T f = a.data[i][c] / a.data[r][c];
            for (int j = c; j < n; ++j) a.data[i][j] -= f * a.data[r][j];
        }
        ++r;
    }
    return r;
}

// Determinant by elimination with row exchanges (partial pivoting).
template <class M>
Elem<M> direct_det(M a)
{
    using T = Elem<M>;
    if (a.row != a.col || mat_rows(a) == 0) return 0;
    const int n = mat_rows(a);
    if (n == 1) return a.data[0][0];
    if (n == 2) return a.data[0][0] * a.data[1][1] - a.data[0][1] * a.data[1][0];
    T det = 1;
    for (int k = 0; k < n; ++k) {
        int p = k;
        for (int i = k + 1; i < n; ++i)
            if (std::fabs(a.data[i][k]) > std::fabs(a.data[p][k])) p = i;
        if (p != k) {
            for (int j = 0; j < n; ++j) std::swap(a.data[p][j], a.data[k][j]);
            det = -det;
        }
        const T pivot = a.data[k][k];
        if (pivot == 0) return 0;
        det *= pivot;
        for (int i = k + 1; i < n; ++i) {
            const T f = a.data[i][k] / pivot;
            for (int j = k; j < n; ++j) a.data[i][j] -= f * a.data[k][j];
        }
    }
    return det;
}

// Elimination without pivoting; an exact zero pivot hands the whole matrix over.
template <class M>
Elem<M> det(const M& a)
{
    using T = Elem<M>;
    if (a.row != a.col) {
        // The message carries no line end of its own; callers that print after it add one.
        std::fputs("A is not a square matrix.", stderr);
        return std::numeric_limits<T>::infinity();
    }
    const int n = mat_rows(a);
    M w = a;
    T d = 1;
    for (int k = 0; k < n; ++k) {
        const T pivot = w.data[k][k];
        if (pivot == 0) return direct_det(a);
        d *= pivot;
        for (int i = k + 1; i < n; ++i) {
            const T f = w.data[i][k] / pivot;
            for (int j = k; j < n; ++j) w.data[i][j] -= f * w.data[k][j];
        }
    }
    return d;
}

// The full-pivoting Gauss-Jordan sweep of matrix_inv on the Mat; a factor
// 1 / p that is not finite stops it with -1 and the matrix as it stood.
template <class M>
int inv(M a, M* out)
{
    using T = Elem<M>;
    if (a.row != a.col) return 0;
    const int n = mat_rows(a);
    int pivot_row[kMatDim];
    int pivot_col[kMatDim];
    double t[kMatDim];
    double c[kMatDim];
    for (int k = 0; k < n; ++k) {
        T best = 0;
        int pr = k, pc = k;
        for (int i = k; i < n; ++i) {
            for (int j = k; j < n; ++j) {
                const T mag = std::fabs(a.data[i][j]);
                if (mag > best) {
                    best = mag;
                    pr = i;
                    pc = j;
                }
            }
        }
        pivot_row[k] = pr;
        pivot_col[k] = pc;
        if (pr != k)
            for (int j = 0; j < n; ++j) std::swap(a.data[k][j], a.data[pr][j]);
        if (pc != k)
            for (int i = 0; i < n; ++i) std::swap(a.data[i][k], a.data[i][pc]);
        const double p = a.data[k][k];
        t[k] = 1.0 / p;
        if (!std::isfinite(t[k])) {
            if (out) *out = a;
            return -1;
        }
        c[k] = 1.0;
        for (int j = 0; j < n; ++j) {
            if (j == k) continue;
            t[j] = -static_cast<double>(a.data[k][j]) / p;
            c[j] = a.data[j][k];
        }
        for (int j = 0; j < n; ++j) {
            a.data[k][j] = 0;
            a.data[j][k] = 0;
        }
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) a.data[i][j] = static_cast<T>(a.data[i][j] + c[i] * t[j]);
    }
    for (int k = n - 1; k >= 0; --k) {
        if (pivot_row[k] != k)
            for (int i = 0; i < n; ++i) std::swap(a.data[i][k], a.data[i][pivot_row[k]]);
        if (pivot_col[k] != k)
            for (int j = 0; j < n; ++j) std::swap(a.data[k][j], a.data[pivot_col[k]][j]);
    }
    if (out) *out = a;
    return 1;
}

template <class M>
M t2r(const M& t)
{
    M r = make<M>(3, 3);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.data[i][j] = t.data[i][j];
    return r;
}

template <class M>
M t2p(const M& t)
{
    M r = make<M>(3, 1);
    for (int i = 0; i < 3; ++i) r.data[i][0] = t.data[i][3];
    return r;
}

template <class M>
M homogen_trans_inv(const M& t)
{
    using T = Elem<M>;
    M r = make<M>(4, 4);
    for (int i = 0; i < 3; ++i) {
        double p = 0.0;
        for (int j = 0; j < 3; ++j) {
            r.data[i][j] = t.data[j][i];
            p += static_cast<double>(t.data[j][i]) * t.data[j][3];
        }
        r.data[i][3] = static_cast<T>(-p);
    }
    r.data[3][3] = 1;
    return r;
}

/* -----------------------------------------------------------------------------
 * Vectors: n x 1 (elements in column 0) or 1 x n (elements in row 0)
 * -------------------------------------------------------------------------- */

template <class M>
bool is_row_vector(const M& v) { return mat_rows(v) == 1 && mat_cols(v) > 1; }

template <class M>
int vec_len(const M& v) { return is_row_vector(v) ? mat_cols(v) : mat_rows(v); }

template <class M>
Elem<M> vec_at(const M& v, int k) { return is_row_vector(v) ? v.data[0][k] : v.data[k][0]; }

template <class M>
M vector_of(int n) { return make<M>(n, 1); }

template <class M>
Elem<M> norm2(const M& v)
{
    double s = 0.0;
    for (int k = 0; k < vec_len(v); ++k) s += static_cast<double>(vec_at(v, k)) * vec_at(v, k);
    return static_cast<Elem<M>>(std::sqrt(s));
}

// Kept as it stands, callers rely on it: the last element is left out.
template <class M>
Elem<M> norm_inf(const M& v)
{
    const int n = mat_rows(v) > mat_cols(v) ? mat_rows(v) : mat_cols(v);
    Elem<M> best = 0;
    for (int k = 0; k < n - 1; ++k) {
        const Elem<M> mag = std::fabs(vec_at(v, k));
        if (mag > best) best = mag;
    }
    return best;
}

template <class M>
Elem<M> dot(const M& a, const M& b)
{
    double s = 0.0;
    for (int k = 0; k < vec_len(a); ++k) s += static_cast<double>(vec_at(a, k)) * vec_at(b, k);
    return static_cast<Elem<M>>(s);
}

template <class M>
M add_scalar(const M& v, Elem<M> s)
{
    M r = make<M>(mat_rows(v), mat_cols(v));
    for (int i = 0; i < r.row; ++i)
        for (int j = 0; j < r.col; ++j) r.data[i][j] = v.data[i][j] + s;
    return r;
}

template <class T>
void cross3(const T* a, const T* b, T* out)
{
    const T x = a[1] * b[2] - a[2] * b[1];
    const T y = a[2] * b[0] - a[0] * b[2];
    const T z = a[0] * b[1] - a[1] * b[0];
    out[0] = x;
    out[1] = y;
    out[2] = z;
}

template <class M>
M vec_cross(const M& a, const M& b)
{
    using T = Elem<M>;
    const T x[3] = {vec_at(a, 0), vec_at(a, 1), vec_at(a, 2)};
    const T y[3] = {vec_at(b, 0), vec_at(b, 1), vec_at(b, 2)};
    T z[3];
    cross3(x, y, z);
    M r = vector_of<M>(3);
    for (int i = 0; i < 3; ++i) r.data[i][0] = z[i];
    return r;
}

template <class M>
M to_skew(const M& v)
{
    M r = make<M>(3, 3);
    const Elem<M> x = vec_at(v, 0), y = vec_at(v, 1), z = vec_at(v, 2);
    r.data[0][1] = -z;
    r.data[0][2] = y;
    r.data[1][0] = z;
    r.data[1][2] = -x;
    r.data[2][0] = -y;
    r.data[2][1] = x;
    return r;
}

template <class M>
M skew_to(const M& s)
{
    M r = vector_of<M>(3);
    r.data[0][0] = s.data[2][1];
    r.data[1][0] = s.data[0][2];
    r.data[2][0] = s.data[1][0];
    return r;
}

template <class M>
M vex(const M& s)
{
    M r = vector_of<M>(3);
    r.data[0][0] = (s.data[2][1] - s.data[1][2]) / 2;
    r.data[1][0] = (s.data[0][2] - s.data[2][0]) / 2;
    r.data[2][0] = (s.data[1][0] - s.data[0][1]) / 2;
    return r;
}

template <class M>
M tdiff(const M& t1, const M& t2)
{
    using T = Elem<M>;
    M r = vector_of<M>(6);
    for (int i = 0; i < 3; ++i) r.data[i][0] = t2.data[i][3] - t1.data[i][3];
    T sum[3] = {0, 0, 0};
    for (int c = 0; c < 3; ++c) {
        const T u[3] = {t1.data[0][c], t1.data[1][c], t1.data[2][c]};
        const T w[3] = {t2.data[0][c], t2.data[1][c], t2.data[2][c]};
        T x[3];
        cross3(u, w, x);
        for (int i = 0; i < 3; ++i) sum[i] += x[i];
    }
    for (int i = 0; i < 3; ++i) r.data[3 + i][0] = sum[i] / 2;
    return r;
}

template <class M>
M angle_axis_diff(const M& t1, const M& t2, Elem<M> half_pi)
{
    using T = Elem<M>;
    M r = vector_of<M>(6);
    for (int i = 0; i < 3; ++i) r.data[i][0] = t2.data[i][3] - t1.data[i][3];
    T rot[3][3];  // R = R2 R1^T
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            double acc = 0.0;
            for (int k = 0; k < 3; ++k) acc += static_cast<double>(t2.data[i][k]) * t1.data[j][k];
            rot[i][j] = static_cast<T>(acc);
        }
    }
    const T l[3] = {rot[2][1] - rot[1][2], rot[0][2] - rot[2][0], rot[1][0] - rot[0][1]};
    const T ln = std::sqrt(l[0] * l[0] + l[1] * l[1] + l[2] * l[2]);
    const T tr = rot[0][0] + rot[1][1] + rot[2][2];
    if (ln >= tarn::kVecZeroNorm) {
        const T k = std::atan2(ln, tr - 1) / ln;
        for (int i = 0; i < 3; ++i) r.data[3 + i][0] = l[i] * k;
    } else if (!(tr > 0)) {
        for (int i = 0; i < 3; ++i) r.data[3 + i][0] = half_pi * (rot[i][i] + 1);
    }
    return r;
}

template <class M>
M from_array(const Elem<M>* values, int rows, int cols)
{
    M r = make<M>(rows, cols);
    if (!values) return r;
    for (int i = 0; i < r.row; ++i)
        for (int j = 0; j < r.col; ++j) r.data[i][j] = values[i * r.col + j];
    return r;
}

template <class M>
void to_array(const M& a, Elem<M>* out)
{
    if (!out) return;
    const int cols = mat_cols(a);
    for (int i = 0; i < mat_rows(a); ++i)
        for (int j = 0; j < cols; ++j) out[i * cols + j] = a.data[i][j];
}

template <class M>
int tridiagonal(const M& sub, const M& diag, const M& super, const M& rhs, M* x)
{
    using T = Elem<M>;
    const int n = vec_len(diag);
    if (!x || n < 1) return 0;
    if (!(std::fabs(vec_at(diag, 0)) >= tarn::kTridiagonalMinPivot)) return 0;
    T cp[kMatDim];
    T dp[kMatDim];
    cp[0] = vec_at(super, 0) / vec_at(diag, 0);
    dp[0] = vec_at(rhs, 0) / vec_at(diag, 0);
    for (int i = 1; i < n; ++i) {
        const T m = vec_at(diag, i) - vec_at(sub, i) * cp[i - 1];
        cp[i] = vec_at(super, i) / m;
        dp[i] = (vec_at(rhs, i) - vec_at(sub, i) * dp[i - 1]) / m;
    }
    M r = vector_of<M>(n);
    r.data[n - 1][0] = dp[n - 1];
    for (int i = n - 2; i >= 0; --i) r.data[i][0] = dp[i] - cp[i] * r.data[i + 1][0];
    *x = r;
    return 1;
}

// Top-down merge sort; at-or-above (descending) or at-or-below (ascending) keeps the left
// element, so the sort is stable both ways. scratch holds n elements.
template <class T>
void merge_sort_rec(T* a, T* scratch, int n, bool descending)
{
    if (n < 2) return;
    const int half = n / 2;
    merge_sort_rec(a, scratch, half, descending);
    merge_sort_rec(a + half, scratch, n - half, descending);
    for (int k = 0; k < n; ++k) scratch[k] = a[k];
    int i = 0, j = half, k = 0;
    while (i < half && j < n) {
        const bool take_left = descending ? scratch[i] >= scratch[j] : scratch[i] <= scratch[j];
        a[k++] = take_left ? scratch[i++] : scratch[j++];
    }
    while (i < half) a[k++] = scratch[i++];
    while (j < n) a[k++] = scratch[j++];
}

template <class T>
void merge_sort_all(int descending, T* values, int n)
{
    if (!values || n < 2 || n > LIBALGO_MERGE_SORT_MAX) return;
    T scratch[LIBALGO_MERGE_SORT_MAX];
    merge_sort_rec(values, scratch, n, descending != 0);
}

/* -----------------------------------------------------------------------------
 * Eigenvalue iterations (float)
 * -------------------------------------------------------------------------- */

float off_diagonal_max(const Mat& a)
{
    float best = 0.0f;
    for (int i = 0; i < mat_rows(a); ++i)
        for (int j = 0; j < mat_cols(a); ++j)
            if (i != j && std::fabs(a.data[i][j]) > best) best = std::fabs(a.data[i][j]);
    return best;
}

// The unshifted QR iteration A = R Q shared by mat_eig, mat_hermitian_eig and mat_svd.
// With v, the Q factors are accumulated into it; check_degenerate adds the early end of
// mat_hermitian_eig.
void qr_iterate(Mat* a, int max_iterations, float tol, Mat* v, bool check_degenerate)
{
    Mat q, r;
    for (int it = 0; it < max_iterations; ++it) {
        if (off_diagonal_max(*a) < tol) break;
        if (check_degenerate && mat_find_abs_max(*a) < tarn::kEigDegenerate &&
            std::fabs(mat_det(*a)) <= tarn::kEigDegenerate)
            break;
        mat_qr(*a, &q, &r);
        *a = mat_mult(r, q);
        if (v) *v = mat_mult(*v, q);
    }
}

void normalise_columns(Mat* a)
{
    for (int j = 0; j < mat_cols(*a); ++j) {
        double s = 0.0;
        for (int i = 0; i < mat_rows(*a); ++i) s += static_cast<double>(a->data[i][j]) * a->data[i][j];
        const double n = std::sqrt(s);
        if (n > 0.0)
            for (int i = 0; i < mat_rows(*a); ++i) a->data[i][j] = static_cast<float>(a->data[i][j] / n);
    }
}

}  // namespace

/* -----------------------------------------------------------------------------
 * Float interface
 * -------------------------------------------------------------------------- */

Mat mat_init(int rows, int cols) { return make<Mat>(rows, cols); }
Mat mat_zeros(int rows, int cols) { return make<Mat>(rows, cols); }
Mat mat_eye(int rows, int cols) { return eye<Mat>(rows, cols); }
Mat mat_get_Mrow_i(Mat a, int i) { return get_row(a, i); }
Mat mat_get_Mcol_j(Mat a, int j) { return get_col(a, j); }
void mat_set_Mrow_i(Mat* a, int i, Mat src) { set_row(a, i, src); }
void mat_set_Mcol_j(Mat* a, int j, Mat src) { set_col(a, j, src); }
void mat_swap_row(Mat* a, int i, int j) { swap_row(a, i, j); }
void mat_swap_col(Mat* a, int i, int j) { swap_col(a, i, j); }
void mat_set_value(Mat* a, const float* values) { set_value(a, values); }
void mat_print(Mat a) { print(a, "%f,"); }
int mat_is_hermitian(Mat a) { return is_hermitian(a); }
int mat_is_equal(Mat a, Mat b) { return is_equal(a, b); }
Mat mat_mult(Mat a, Mat b) { return mult(a, b); }
Mat mat_T(Mat a) { return transpose(a); }
Mat mat_add(Mat a, Mat b) { return add(a, b, 1); }
Mat mat_sub(Mat a, Mat b) { return add(a, b, -1); }
Mat mat_kM(float k, Mat a) { return scale(k, a); }
float mat_trace(Mat a) { return trace(a); }
Mat mat_diag(Mat a) { return diag(a); }
float mat_find_abs_max(Mat a) { return find_abs(a, true); }
float mat_find_abs_min(Mat a) { return find_abs(a, false); }
int mat_rank(Mat a, float tol, int relative) { return rank(a, tol, relative); }
float mat_det(Mat a) { return det(a); }
float directCalculateDetA(Mat a) { return direct_det(a); }
int mat_inv(Mat a, Mat* out) { return inv(a, out); }
Mat mat_T2R(Mat t) { return t2r(t); }
Mat mat_T2p(Mat t) { return t2p(t); }
Mat mat_homogen_trans_inv(Mat t) { return homogen_trans_inv(t); }

Mat vec_zeros(int n) { return vector_of<Mat>(n); }
Mat vec_init(int n) { return vector_of<Mat>(n); }
float vec_norm2(Mat v) { return norm2(v); }
float vec_normInf(Mat v) { return norm_inf(v); }
float vec_dot(Mat a, Mat b) { return dot(a, b); }
Mat vec_add(Mat a, Mat b) { return add(a, b, 1); }
Mat vec_sub(Mat a, Mat b) { return add(a, b, -1); }
Mat vec_minus(Mat v) { return scale(-1.0f, v); }
Mat vec_kV(float k, Mat v) { return scale(k, v); }
Mat vec_add_scalar(Mat v, float s) { return add_scalar(v, s); }
Mat vec3x3_cross(Mat a, Mat b) { return vec_cross(a, b); }
Mat vec_to_skew(Mat v) { return to_skew(v); }
Mat skew_to_vec(Mat s) { return skew_to(s); }
int vec_is_zeros(Mat v) { return norm2(v) < tarn::kVecZeroNorm ? 1 : 0; }
Mat vec_vex(Mat s) { return vex(s); }
Mat vec_Tdiff(Mat t1, Mat t2) { return tdiff(t1, t2); }
// pi / 2 as the float 1.5707964, as callers expect.
Mat vec_angle_axis_diff(Mat t1, Mat t2) { return angle_axis_diff(t1, t2, 1.5707964f); }

void array_cross(const float* a, const float* b, float* out)
{
    if (a && b && out) cross3(a, b, out);
}

Mat array_to_mat(const float* values, int rows, int cols) { return from_array<Mat>(values, rows, cols); }
void mat_to_array(Mat a, float* out) { to_array(a, out); }
int tridiagonal_systems_solver(Mat sub, Mat diag, Mat super, Mat rhs, Mat* x)
{
    return tridiagonal(sub, diag, super, rhs, x);
}
void merge_sort(int descending, float* values, int n) { merge_sort_all(descending, values, n); }

int mat_qr(Mat a, Mat* q_out, Mat* r_out)
{
    if (!q_out || !r_out) return 0;
    const int m = mat_rows(a), n = mat_cols(a);
    Mat q = mat_eye(m, m);
    Mat r = make<Mat>(m, n);
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < n; ++j) r.data[i][j] = a.data[i][j];
    const int steps = (m - 1) < n ? (m - 1) : n;
    for (int k = 0; k < steps; ++k) {
        // x: column k of R from the diagonal down; v = x - |x| e1, normalised.
        Mat v = vec_zeros(m);
        double norm = 0.0;
        for (int i = k; i < m; ++i) {
            v.data[i][0] = r.data[i][k];
            norm += static_cast<double>(r.data[i][k]) * r.data[i][k];
        }
        v.data[k][0] = static_cast<float>(v.data[k][0] - std::sqrt(norm));
        const float vn = vec_norm2(v);
        if (!(vn > 0.0f)) continue;  // x is already |x| e1 (or zero): H = I
        v = vec_kV(1.0f / vn, v);
        const Mat h = mat_sub(mat_eye(m, m), mat_kM(2.0f, mat_mult(v, mat_T(v))));
        r = mat_mult(h, r);
        q = mat_mult(q, h);
    }
    *q_out = q;
    *r_out = r;
    return 1;
}

int mat_lu(Mat a, float tol, Mat* l_out, Mat* u_out)
{
    if (!l_out || !u_out || a.row != a.col) return 0;
    const int n = mat_rows(a);
    Mat l = mat_eye(n, n);
    Mat u = mat_zeros(n, n);
    for (int i = 0; i < n; ++i) {
        for (int k = i; k < n; ++k) {
            double s = a.data[i][k];
            for (int j = 0; j < i; ++j) s -= static_cast<double>(l.data[i][j]) * u.data[j][k];
            u.data[i][k] = static_cast<float>(s);
        }
        for (int k = i + 1; k < n; ++k) {
            double s = a.data[k][i];
            for (int j = 0; j < i; ++j) s -= static_cast<double>(l.data[k][j]) * u.data[j][i];
            l.data[k][i] = static_cast<float>(s / u.data[i][i]);
        }
    }
    *l_out = l;
    *u_out = u;
    if (n == 0) return 0;
    return std::fabs(u.data[n - 1][n - 1]) >= tol ? 1 : 0;
}

int mat_eig(Mat a, int max_iterations, float tol, Mat* result)
{
    if (a.row != a.col) return 0;
    qr_iterate(&a, max_iterations, tol, nullptr, false);
    Mat e = mat_diag(a);
    for (int i = 0; i < e.row; ++i) e.data[i][0] = std::fabs(e.data[i][0]);
    if (result) *result = e;
    return 1;
}

int mat_hermitian_eig(Mat a, int max_iterations, float tol, Mat* v, Mat* lambda)
{
    if (mat_is_hermitian(a) != 1) return -1;
    Mat vv = mat_eye(mat_rows(a), mat_rows(a));
    qr_iterate(&a, max_iterations, tol, &vv, true);
    if (v) *v = vv;
    if (lambda) *lambda = mat_diag(a);
    return 1;
}

// The eigen form used by mat_svd skips the hermitian walk (A^T A and A A^T are symmetric
// by construction) and runs with the fixed limit and tolerance of tarn_matrix.h.
int mat_svd(Mat a, Mat* u_out, Mat* s_out, Mat* v_out)
{
    if (!u_out || !s_out || !v_out) return 0;
    const int m = mat_rows(a), n = mat_cols(a);
    a.row = m;
    a.col = n;
    const Mat at = mat_T(a);
    Mat ata = mat_mult(at, a);
    Mat aat = mat_mult(a, at);
    Mat v = mat_eye(n, n);
    Mat u = mat_eye(m, m);
    qr_iterate(&ata, tarn::kSvdEigMaxIterations, tarn::kSvdEigTol, &v, false);
    qr_iterate(&aat, tarn::kSvdEigMaxIterations, tarn::kSvdEigTol, &u, false);
    normalise_columns(&u);
    normalise_columns(&v);
    const int k = m < n ? m : n;
    const Mat& small = n <= m ? ata : aat;
    Mat s = vec_zeros(k);
    for (int i = 0; i < k; ++i) s.data[i][0] = std::sqrt(std::fabs(small.data[i][i]));
    // Signs: column i of U is turned to agree with A v_i.
    const Mat av = mat_mult(a, v);
    for (int i = 0; i < k; ++i) {
        double d = 0.0;
        for (int r = 0; r < m; ++r) d += static_cast<double>(av.data[r][i]) * u.data[r][i];
        if (d < 0.0)
            for (int r = 0; r < m; ++r) u.data[r][i] = -u.data[r][i];
    }
    *u_out = u;
    *s_out = s;
    *v_out = v;
    return 1;
}

Mat mat_pinv(Mat a)
{
    const int m = mat_rows(a), n = mat_cols(a);
    a.row = m;
    a.col = n;
    const Mat at = mat_T(a);
    Mat inverse;
    if (m >= n) {
        if (mat_inv(mat_mult(at, a), &inverse) != 1) return mat_zeros(n, m);
        return mat_mult(inverse, at);
    }
    if (mat_inv(mat_mult(a, at), &inverse) != 1) {
        Mat r = mat_zeros(n, m);
        r.row = 0;
        return r;
    }
    return mat_mult(at, inverse);
}

float mat_cond(Mat a)
{
    Mat e;
    mat_eig(mat_mult(mat_T(a), a), tarn::kCondMaxIterations, tarn::kCondTol, &e);
    float largest = 0.0f;
    float smallest = std::numeric_limits<float>::infinity();
    for (int i = 0; i < e.row; ++i) {
        if (e.data[i][0] > largest) largest = e.data[i][0];
        if (e.data[i][0] < smallest) smallest = e.data[i][0];
    }
    return std::sqrt(largest / smallest);
}

Mat matrix_to_mat(Matrix m)
{
    Mat r = make<Mat>(clamp_dim(m.irow, tarn::kMatrixDim), clamp_dim(m.iline, tarn::kMatrixDim));
    for (int i = 0; i < r.row; ++i)
        for (int j = 0; j < r.col; ++j) r.data[i][j] = m.data[i][j];
    return r;
}

Mat matrix_more_to_mat(Matrix_more m)
{
    Mat r = make<Mat>(clamp_dim(m.irow, tarn::kMatrixMoreDim), clamp_dim(m.iline, tarn::kMatrixMoreDim));
    for (int i = 0; i < r.row; ++i)
        for (int j = 0; j < r.col; ++j) r.data[i][j] = m.data[i][j];
    return r;
}

Matrix mat_to_matrix(Mat a)
{
    Matrix r{};
    r.irow = static_cast<int16_t>(clamp_dim(a.row, tarn::kMatrixDim));
    r.iline = static_cast<int16_t>(clamp_dim(a.col, tarn::kMatrixDim));
    for (int i = 0; i < r.irow; ++i)
        for (int j = 0; j < r.iline; ++j) r.data[i][j] = a.data[i][j];
    return r;
}

Matrix_more mat_to_matrix_more(Mat a)
{
    Matrix_more r{};
    r.irow = static_cast<int16_t>(clamp_dim(a.row, tarn::kMatrixMoreDim));
    r.iline = static_cast<int16_t>(clamp_dim(a.col, tarn::kMatrixMoreDim));
    for (int i = 0; i < r.irow; ++i)
        for (int j = 0; j < r.iline; ++j) r.data[i][j] = a.data[i][j];
    return r;
}

/* -----------------------------------------------------------------------------
 * Double interface
 * -------------------------------------------------------------------------- */

MatD matD_init(int rows, int cols) { return make<MatD>(rows, cols); }
MatD matD_zeros(int rows, int cols) { return make<MatD>(rows, cols); }
MatD matD_eye(int rows, int cols) { return eye<MatD>(rows, cols); }
MatD matD_get_Mrow_i(MatD a, int i) { return get_row(a, i); }
MatD matD_get_Mcol_j(MatD a, int j) { return get_col(a, j); }
void matD_set_Mrow_i(MatD* a, int i, MatD src) { set_row(a, i, src); }
void matD_set_Mcol_j(MatD* a, int j, MatD src) { set_col(a, j, src); }
void matD_swap_row(MatD* a, int i, int j) { swap_row(a, i, j); }
void matD_swap_col(MatD* a, int i, int j) { swap_col(a, i, j); }
void matD_set_value(MatD* a, const double* values) { set_value(a, values); }
void matD_print(MatD a) { print(a, "%lf,"); }
int matD_is_hermitian(MatD a) { return is_hermitian(a); }
int matD_is_equal(MatD a, MatD b) { return is_equal(a, b); }
MatD matD_mult(MatD a, MatD b) { return mult(a, b); }
MatD matD_T(MatD a) { return transpose(a); }
MatD matD_add(MatD a, MatD b) { return add(a, b, 1); }
MatD matD_sub(MatD a, MatD b) { return add(a, b, -1); }
MatD matD_kM(double k, MatD a) { return scale(k, a); }
double matD_trace(MatD a) { return trace(a); }
MatD matD_diag(MatD a) { return diag(a); }
double matD_find_abs_max(MatD a) { return find_abs(a, true); }
double matD_find_abs_min(MatD a) { return find_abs(a, false); }
int matD_rank(MatD a, double tol, int relative) { return rank(a, tol, relative); }
double matD_det(MatD a) { return det(a); }
double directCalculateDetAD(MatD a) { return direct_det(a); }
int matD_inv(MatD a, MatD* out) { return inv(a, out); }
MatD matD_T2R(MatD t) { return t2r(t); }
MatD matD_T2p(MatD t) { return t2p(t); }
MatD matD_homogen_trans_inv(MatD t) { return homogen_trans_inv(t); }

MatD vecD_zeros(int n) { return vector_of<MatD>(n); }
MatD vecD_init(int n) { return vector_of<MatD>(n); }
double vecD_norm2(MatD v) { return norm2(v); }
double vecD_normInf(MatD v) { return norm_inf(v); }
double vecD_dot(MatD a, MatD b) { return dot(a, b); }
MatD vecD_add(MatD a, MatD b) { return add(a, b, 1); }
MatD vecD_sub(MatD a, MatD b) { return add(a, b, -1); }
MatD vecD_minus(MatD v) { return scale(-1.0, v); }
MatD vecD_kV(double k, MatD v) { return scale(k, v); }
MatD vecD_add_scalar(MatD v, double s) { return add_scalar(v, s); }
MatD vecD3x3_cross(MatD a, MatD b) { return vec_cross(a, b); }
MatD vecD_to_skew(MatD v) { return to_skew(v); }
MatD skew_to_vecD(MatD s) { return skew_to(s); }
int vecD_is_zeros(MatD v) { return norm2(v) < tarn::kVecZeroNorm ? 1 : 0; }
MatD vecD_vex(MatD s) { return vex(s); }
MatD vecD_Tdiff(MatD t1, MatD t2) { return tdiff(t1, t2); }
MatD vecD_angle_axis_diff(MatD t1, MatD t2) { return angle_axis_diff(t1, t2, tarn::kHalfPi); }

void D_array_cross(const double* a, const double* b, double* out)
{
    if (a && b && out) cross3(a, b, out);
}

MatD array_to_matD(const double* values, int rows, int cols) { return from_array<MatD>(values, rows, cols); }
void matD_to_array(MatD a, double* out) { to_array(a, out); }
int D_tridiagonal_systems_solver(MatD sub, MatD diag, MatD super, MatD rhs, MatD* x)
{
    return tridiagonal(sub, diag, super, rhs, x);
}
void merge_sortD(int descending, double* values, int n) { merge_sort_all(descending, values, n); }

// Math core: Golub-Reinsch singular value decomposition (mat_fast_svd) and the
// pseudo-inverse built on it (mat_pinv_svd).
//
// The decomposition runs in double on local 18 x 18 arrays and narrows once into the
// caller's Mat records: Householder bidiagonalisation, accumulation of the right- and
// left-hand transformations, then the implicit shifted QR per singular value from the
// last, with the exact-comparison convergence test and no epsilon constant.
#include "Algorithm/math/ulapack_svd.h"

#include <cmath>
#include <cstring>

using tarn::kMatDim;

namespace {

// sqrt(a^2 + b^2) without destructive underflow or overflow.
double pythag(double a, double b)
{
    const double absa = std::fabs(a), absb = std::fabs(b);
    if (absa > absb) {
        const double r = absb / absa;
        return absa * std::sqrt(1.0 + r * r);
    }
    if (absb == 0.0) return 0.0;
    const double r = absa / absb;
    return absb * std::sqrt(1.0 + r * r);
}

// Zero storage and the given header, written in place.
void reset(Mat* m, int rows, int cols)
{
    std::memset(m, 0, sizeof(Mat));
    m->row = rows;
    m->col = cols;
}

double sign_of(double a, double b) { return b >= 0.0 ? std::fabs(a) : -std::fabs(a); }

// |x| + anorm == anorm: x is negligible against anorm. (Double arithmetic is evaluated in
// double on the targets of this library, FLT_EVAL_METHOD 0, so the sum is rounded.)
bool negligible(double x, double anorm) { return std::fabs(x) + anorm == anorm; }

}  // namespace

namespace tarn {

void svd_golub_reinsch(double (*a)[kMatDim], int m, int n, double* w, double (*v)[kMatDim])
{
    double rv1[kMatDim];
    double g = 0.0, scale = 0.0, anorm = 0.0;
    int l = 0;

    // 1. Householder reduction to bidiagonal form, column and row in turn, each with a
    //    scale factor (the sum of magnitudes); a zero scale skips the reflection.
    for (int i = 0; i < n; ++i) {
        l = i + 1;
        rv1[i] = scale * g;
        g = scale = 0.0;
        double s = 0.0;
        for (int k = i; k < m; ++k) scale += std::fabs(a[k][i]);
        if (scale != 0.0) {
            for (int k = i; k < m; ++k) {
                a[k][i] /= scale;
                s += a[k][i] * a[k][i];
            }
            double f = a[i][i];
            g = -sign_of(std::sqrt(s), f);
            const double h = f * g - s;
            a[i][i] = f - g;
            for (int j = l; j < n; ++j) {
                s = 0.0;
                for (int k = i; k < m; ++k) s += a[k][i] * a[k][j];
                f = s / h;
                for (int k = i; k < m; ++k) a[k][j] += f * a[k][i];
            }
            for (int k = i; k < m; ++k) a[k][i] *= scale;
        }
        w[i] = scale * g;
        g = s = scale = 0.0;
        if (i != n - 1) {
            for (int k = l; k < n; ++k) scale += std::fabs(a[i][k]);
            if (scale != 0.0) {
                for (int k = l; k < n; ++k) {
                    a[i][k] /= scale;
                    s += a[i][k] * a[i][k];
                }
                const double f = a[i][l];
                g = -sign_of(std::sqrt(s), f);
                const double h = f * g - s;
                a[i][l] = f - g;
                for (int k = l; k < n; ++k) rv1[k] = a[i][k] / h;
                for (int j = l; j < m; ++j) {
                    s = 0.0;
                    for (int k = l; k < n; ++k) s += a[j][k] * a[i][k];
                    for (int k = l; k < n; ++k) a[j][k] += s * rv1[k];
                }
                for (int k = l; k < n; ++k) a[i][k] *= scale;
            }
        }
        const double row_sum = std::fabs(w[i]) + std::fabs(rv1[i]);
        if (row_sum > anorm) anorm = row_sum;
    }

    // 2a. Accumulation of the right-hand transformations.
    for (int i = n - 1; i >= 0; --i) {
        if (i < n - 1) {
            if (g != 0.0) {
                for (int j = l; j < n; ++j) v[j][i] = (a[i][j] / a[i][l]) / g;  // double division avoids underflow
                for (int j = l; j < n; ++j) {
                    double s = 0.0;
                    for (int k = l; k < n; ++k) s += a[i][k] * v[k][j];
                    for (int k = l; k < n; ++k) v[k][j] += s * v[k][i];
                }
            }
            for (int j = l; j < n; ++j) v[i][j] = v[j][i] = 0.0;
        }
        v[i][i] = 1.0;
        g = rv1[i];
        l = i;
    }

    // 2b. Accumulation of the left-hand transformations.
    for (int i = n - 1; i >= 0; --i) {
        l = i + 1;
        g = w[i];
        for (int j = l; j < n; ++j) a[i][j] = 0.0;
        if (g != 0.0) {
            g = 1.0 / g;
            for (int j = l; j < n; ++j) {
                double s = 0.0;
                for (int k = l; k < m; ++k) s += a[k][i] * a[k][j];
                const double f = (s / a[i][i]) * g;
                for (int k = i; k < m; ++k) a[k][j] += f * a[k][i];
            }
            for (int j = i; j < m; ++j) a[j][i] *= g;
        } else {
            for (int j = i; j < m; ++j) a[j][i] = 0.0;
        }
        a[i][i] += 1.0;
    }

    // 3. Diagonalisation of the bidiagonal form: for each singular value from the last,
    //    up to kSvdMaxIterations implicit shifted QR steps.
    for (int k = n - 1; k >= 0; --k) {
        for (int its = 1; its <= kSvdMaxIterations; ++its) {
            bool split_needed = true;
            int nm = 0;
            // Test for splitting; rv1[0] is always zero, so l = 0 ends the scan (the
            // explicit test keeps a NaN from reading w[-1]).
            for (l = k; l >= 0; --l) {
                nm = l - 1;
                if (l == 0 || negligible(rv1[l], anorm)) {
                    split_needed = false;
                    break;
                }
                if (negligible(w[nm], anorm)) break;
            }
            if (split_needed) {
                // Cancellation of rv1[l], if l > 0.
                double c = 0.0, s = 1.0;
                for (int i = l; i <= k; ++i) {
                    const double f = s * rv1[i];
                    rv1[i] = c * rv1[i];
                    if (negligible(f, anorm)) break;
                    g = w[i];
                    double h = pythag(f, g);
                    w[i] = h;
                    h = 1.0 / h;
                    c = g * h;
                    s = -f * h;
                    for (int j = 0; j < m; ++j) {
                        const double y = a[j][nm], z = a[j][i];
                        a[j][nm] = y * c + z * s;
                        a[j][i] = z * c - y * s;
                    }
                }
            }
            double z = w[k];
            if (l == k) {
                // Convergence. 4. A negative singular value is made positive, the sign
                // moved to V.
                if (z < 0.0) {
                    w[k] = -z;
                    for (int j = 0; j < n; ++j) v[j][k] = -v[j][k];
                }
                break;
            }
            // Shift from the bottom 2 x 2 minor.
            double x = w[l];
            nm = k - 1;
            double y = w[nm];
            g = rv1[nm];
            double h = rv1[k];
            double f = ((y - z) * (y + z) + (g - h) * (g + h)) / (2.0 * h * y);
            g = pythag(f, 1.0);
            f = ((x - z) * (x + z) + h * ((y / (f + sign_of(g, f))) - h)) / x;
            // Next QR transformation.
            double c = 1.0, s = 1.0;
            for (int j = l; j <= nm; ++j) {
                const int i = j + 1;
                g = rv1[i];
                y = w[i];
                h = s * g;
                g = c * g;
                z = pythag(f, h);
                rv1[j] = z;
                c = f / z;
                s = h / z;
                f = x * c + g * s;
                g = g * c - x * s;
                h = y * s;
                y *= c;
                for (int jj = 0; jj < n; ++jj) {
                    x = v[jj][j];
                    z = v[jj][i];
                    v[jj][j] = x * c + z * s;
                    v[jj][i] = z * c - x * s;
                }
                z = pythag(f, h);
                w[j] = z;
                if (z != 0.0) {
                    z = 1.0 / z;
                    c = f * z;
                    s = h * z;
                }
                f = c * g + s * y;
                x = c * y - s * g;
                for (int jj = 0; jj < m; ++jj) {
                    y = a[jj][j];
                    z = a[jj][i];
                    a[jj][j] = y * c + z * s;
                    a[jj][i] = z * c - y * s;
                }
            }
            rv1[l] = 0.0;
            rv1[k] = f;
            w[k] = x;
        }
    }
    // A value left negative by an exhausted iteration count is made positive too.
    for (int k = 0; k < n; ++k) {
        if (w[k] < 0.0) {
            w[k] = -w[k];
            for (int j = 0; j < n; ++j) v[j][k] = -v[j][k];
        }
    }
}

}  // namespace tarn

int mat_fast_svd(const Mat* a, Mat* u, Mat* s, Mat* v)
{
    if (!a || !u || !s || !v) return -1;
    if (a->row < a->col) return -3;
    const int m = a->row, n = a->col;
    if (n < 1 || n > kMatDim || m > kMatDim) return -1;

    double ua[kMatDim][kMatDim];
    double w[kMatDim];
    double va[kMatDim][kMatDim];
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < n; ++j) ua[i][j] = a->data[i][j];
    tarn::svd_golub_reinsch(ua, m, n, w, va);

    reset(u, m, n);
    reset(s, n, 1);
    reset(v, n, n);
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < n; ++j) u->data[i][j] = static_cast<float>(ua[i][j]);
    for (int i = 0; i < n; ++i) {
        s->data[i][0] = static_cast<float>(w[i]);
        for (int j = 0; j < n; ++j) v->data[i][j] = static_cast<float>(va[i][j]);
    }
    return 1;
}

Mat mat_pinv_svd(Mat a)
{
    const int m = tarn::mat_rows(a), n = tarn::mat_cols(a);
    a.row = m;
    a.col = n;
    // For a wide matrix decompose the transpose: A^T = U S V^T gives A+ = U S+ V^T.
    const bool wide = m < n;
    const Mat b = wide ? mat_T(a) : a;
    Mat u, s, v;
    if (mat_fast_svd(&b, &u, &s, &v) != 1) return mat_zeros(n, m);
    // X = V S+ U^T for b (b.col x b.row).
    Mat x = mat_zeros(b.col, b.row);
    for (int i = 0; i < b.col; ++i) {
        for (int j = 0; j < b.row; ++j) {
            double acc = 0.0;
            for (int k = 0; k < b.col; ++k) {
                const double sk = s.data[k][0];
                if (std::fabs(sk) > tarn::kPinvSvdMinSingular)
                    acc += static_cast<double>(v.data[i][k]) * (1.0 / sk) * u.data[j][k];
            }
            x.data[i][j] = static_cast<float>(acc);
        }
    }
    return wide ? mat_T(x) : x;
}

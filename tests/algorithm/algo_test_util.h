// Helpers of the algorithm tests: seeded randomness, the property-case count, and
// comparisons of the math records.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <numbers>
#include <random>

#include "libalgo.h"

namespace algo_test {

// Number of seeded cases per property test. Raise it at build time with
// -DZK_PROPERTY_CASES=N, or at run time with the environment variable ZK_PROPERTY_CASES.
#ifndef ZK_PROPERTY_CASES
#define ZK_PROPERTY_CASES 3000
#endif
inline int property_cases()
{
    if (const char* env = std::getenv("ZK_PROPERTY_CASES")) {
        const int n = std::atoi(env);
        if (n > 0) return n;
    }
    return ZK_PROPERTY_CASES;
}

// One fixed seed per test, so that a failure names a case that can be replayed.
class Rng {
public:
    explicit Rng(uint32_t seed) : engine_(seed) {}
    double uniform(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(engine_); }
    float uniformf(float lo, float hi) { return static_cast<float>(uniform(lo, hi)); }
    int integer(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(engine_); }
    std::mt19937& engine() { return engine_; }

private:
    std::mt19937 engine_;
};

inline Quat random_unit_quat(Rng& rng)
{
    std::normal_distribution<double> n(0.0, 1.0);
    double q[4];
    double s = 0.0;
    for (double& v : q) {
        v = n(rng.engine());
        s += v * v;
    }
    s = std::sqrt(s);
    return Quat{static_cast<float>(q[0] / s), static_cast<float>(q[1] / s), static_cast<float>(q[2] / s),
                static_cast<float>(q[3] / s)};
}

inline Mat random_mat(Rng& rng, int rows, int cols, float lo = -1.0f, float hi = 1.0f)
{
    Mat m = mat_zeros(rows, cols);
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) m.data[i][j] = rng.uniformf(lo, hi);
    return m;
}

// Largest magnitude of the difference over the shape of a.
inline double max_diff(const Mat& a, const Mat& b)
{
    double d = 0.0;
    for (int i = 0; i < a.row; ++i)
        for (int j = 0; j < a.col; ++j) d = std::fmax(d, std::fabs(static_cast<double>(a.data[i][j]) - b.data[i][j]));
    return d;
}

inline double max_abs(const Mat& a)
{
    double d = 0.0;
    for (int i = 0; i < a.row; ++i)
        for (int j = 0; j < a.col; ++j) d = std::fmax(d, std::fabs(static_cast<double>(a.data[i][j])));
    return d;
}

template <class M>
double max_diff_rec(const M& a, const M& b, int rows, int cols)
{
    double d = 0.0;
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) d = std::fmax(d, std::fabs(static_cast<double>(a.data[i][j]) - b.data[i][j]));
    return d;
}

// Difference of two angles on the circle, in (-pi, pi].
inline double angle_diff(double a, double b)
{
    double d = std::fmod(a - b, 2.0 * std::numbers::pi);
    if (d > std::numbers::pi) d -= 2.0 * std::numbers::pi;
    if (d <= -std::numbers::pi) d += 2.0 * std::numbers::pi;
    return d;
}

}  // namespace algo_test

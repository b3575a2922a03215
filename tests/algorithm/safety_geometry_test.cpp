// The collision geometry kit against dense sampling in double precision (both segments of a
// pair, a segment for a point, the face rectangles of a cuboid) and slab clipping; then
// each rule on constructed cases, and degenerate input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "algo_test_util.h"
#include "libalgo.h"

namespace {

using algo_test::property_cases;
using algo_test::Rng;

struct P {
    float v[3];
};

P random_point(Rng& rng, float reach = 1.0f)
{
    return {{rng.uniformf(-reach, reach), rng.uniformf(-reach, reach), rng.uniformf(-reach, reach)}};
}

// Point at t on ab, in double.
void lerp(const P& a, const P& b, double t, double out[3])
{
    for (int k = 0; k < 3; ++k) out[k] = a.v[k] + t * (static_cast<double>(b.v[k]) - a.v[k]);
}

double dist(const double a[3], const double b[3]) { return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]); }

// Least distance between na + 1 samples of ab and nc + 1 of cd: above the true distance
// by at most half the two spacings.
double sampled(const P& a, const P& b, int na, const P& c, const P& d, int nc)
{
    double best = 1e300, x[3], y[3];
    for (int i = 0; i <= na; ++i) {
        lerp(a, b, static_cast<double>(i) / na, x);
        for (int j = 0; j <= nc; ++j) {
            lerp(c, d, static_cast<double>(j) / nc, y);
            best = std::min(best, dist(x, y));
        }
    }
    return best;
}

double spacing(const P& a, const P& b, int n) { return distance_p2p(a.v, b.v) / n; }

constexpr double kRounding = 2e-5;  // single-precision rounding over lengths of a metre

}  // namespace

// Random segments have skew axes, where both segment distances and the point distance are
// exact: never above the sampled distance, and within its spacing.
TEST(SafetyGeometry, DistancesMatchSampling)
{
    Rng rng(101);
    constexpr int kN = 400;
    for (int n = 0; n < std::max(20, property_cases() / 30); ++n) {
        const P a = random_point(rng), b = random_point(rng), c = random_point(rng), d = random_point(rng);
        const double s = sampled(a, b, kN, c, d, kN);
        const double resolution = spacing(a, b, kN) + spacing(c, d, kN) + kRounding;
        const double ls = distance_ls2ls(a.v, b.v, c.v, d.v);
        ASSERT_LE(ls, s + kRounding) << n;
        ASSERT_GE(ls, s - resolution) << n;
        ASSERT_NEAR(distanceSegmentToSegment(a.v, b.v, c.v, d.v), ls, resolution) << n;
        const double point = sampled(c, c, 1, a, b, kN * 10);
        ASSERT_LE(distance_p2ls(c.v, a.v, b.v), point + kRounding) << n;
        ASSERT_GE(distance_p2ls(c.v, a.v, b.v), point - spacing(a, b, kN * 10) - kRounding) << n;
        ASSERT_LE(distance_p2l(c.v, a.v, b.v).distance, distance_p2ls(c.v, a.v, b.v) + kRounding) << n;
    }
}

// Each dp2face entry is the distance to one face as a bounded rectangle; the sphere
// clearance is the least entry less the radius, never above 1.0.
TEST(SafetyGeometry, CuboidFaceDistancesMatchSampledFaces)
{
    Rng rng(103);
    constexpr int kGrid = 120;
    const float cuboid[6] = {-0.3f, 0.2f, -0.1f, 0.4f, 0.1f, 0.6f};
    // In dp2face order: the fixed axis and its bound, then the two free axes.
    const int faces[6][3] = {{2, 5, 0}, {2, 4, 0}, {0, 1, 1}, {0, 0, 1}, {1, 2, 0}, {1, 3, 0}};
    for (int n = 0; n < property_cases() / 30; ++n) {
        const P p = random_point(rng);
        const float radius = rng.uniformf(0.0f, 0.2f);
        const float clearance = isP_Cube(p.v, radius, cuboid);
        double least = 1e300;
        for (int f = 0; f < 6; ++f) {
            const int fixed = faces[f][0], u = faces[f][2], w = 3 - fixed - u;
            double best = 1e300, x[3], pp[3] = {p.v[0], p.v[1], p.v[2]};
            x[fixed] = cuboid[faces[f][1]];
            for (int i = 0; i <= kGrid; ++i)
                for (int j = 0; j <= kGrid; ++j) {
                    x[u] = cuboid[2 * u] + (cuboid[2 * u + 1] - cuboid[2 * u]) * i / kGrid;
                    x[w] = cuboid[2 * w] + (cuboid[2 * w + 1] - cuboid[2 * w]) * j / kGrid;
                    best = std::min(best, dist(pp, x));
                }
            ASSERT_LE(dp2face[f], best + kRounding) << n << " face " << f;
            ASSERT_GE(dp2face[f], best - 0.5 / kGrid - kRounding) << n << " face " << f;
            least = std::min(least, best);
        }
        ASSERT_NEAR(clearance, std::min(1.0, least - radius), 0.5 / kGrid + kRounding);
    }
    const float far[3] = {5.0f, 5.0f, 5.0f};
    EXPECT_EQ(isP_Cube(far, 0.1f, cuboid), 1.0f);
    EXPECT_EQ(isLink2CuboidCollision(0.1f, far, far, cuboid), 1.0f);
}

// A segment meets the surface exactly when its clip against the three slabs (in double)
// is not empty and it doesn't lie wholly inside.
TEST(SafetyGeometry, SegmentAgainstCuboidFacesMatchesSlabClipping)
{
    Rng rng(105);
    const float cuboid[6] = {-0.3f, 0.3f, -0.2f, 0.4f, 0.0f, 0.5f};
    auto inside = [&](const P& x) {
        for (int k = 0; k < 3; ++k)
            if (!(x.v[k] > cuboid[2 * k] && x.v[k] < cuboid[2 * k + 1])) return false;
        return true;
    };
    int crossing = 0;
    for (int n = 0; n < property_cases(); ++n) {
        const P p = random_point(rng, 0.7f), q = random_point(rng, 0.7f);
        double t0 = 0.0, t1 = 1.0;
        for (int k = 0; k < 3; ++k) {
            const double d = static_cast<double>(q.v[k]) - p.v[k];
            const double a = (cuboid[2 * k] - static_cast<double>(p.v[k])) / d;
            const double b = (cuboid[2 * k + 1] - static_cast<double>(p.v[k])) / d;
            t0 = std::max(t0, std::min(a, b));
            t1 = std::min(t1, std::max(a, b));
        }
        const bool meets = t0 <= t1 && !(inside(p) && inside(q));
        crossing += meets;
        ASSERT_EQ(check_intersection(p.v, q.v, cuboid), meets ? 0 : 1) << n;
    }
    EXPECT_GT(crossing, property_cases() / 10);
    // A segment lying in the bottom face's plane: the ranges at its start and end decide.
    const float f0[3] = {0.1f, 0.1f, 0.0f}, f1[3] = {0.2f, 0.3f, 0.0f};
    EXPECT_EQ(check_intersection(f0, f1, cuboid), 0);
}

// The parameter comes from the last coordinate with a non-zero offset; a zero offset
// never divides, a non-zero one over a zero length gives infinity.
TEST(SafetyGeometry, ParameterTestTakesTheLastNonZeroCoordinate)
{
    const float a[3] = {0, 0, 0}, b[3] = {1, 2, 0};
    const struct {
        float p[3];
        int on;
    } cases[] = {
        {{0.5f, 1.0f, 0.0f}, 1},   // y ratio 0.5
        {{5.0f, 1.0f, 0.0f}, 1},   // x ratio 5 replaced by y ratio 0.5
        {{0.5f, 3.0f, 0.0f}, 0},   // y ratio 1.5 wins over x
        {{0.0f, 0.0f, 0.0f}, 1},   // every offset zero: t = 0
        {{1.0f, 2.0f, 0.0f}, 1},   // t = 1
        {{0.5f, 1.0f, 1e-3f}, 0},  // z offset over a zero length
        {{-0.5f, -1.0f, 0.0f}, 0},
    };
    for (const auto& c : cases) EXPECT_EQ(isPinL(c.p, a, b), c.on) << c.p[0] << ", " << c.p[1] << ", " << c.p[2];
}

TEST(SafetyGeometry, CoplanarAndClampedPaths)
{
    const float a[3] = {0, 0, 0}, b[3] = {2, 0, 0};
    // Axes crossing in one plane: the least end-to-segment distance, not 0.
    const float c1[3] = {1, -1, 0}, d1[3] = {1, 3, 0};
    EXPECT_FLOAT_EQ(distance_ls2ls(a, b, c1, d1), 1.0f);
    // Same direction on one line, overlapping: the least distance between ends.
    const float c2[3] = {1, 0, 0}, d2[3] = {3, 0, 0};
    EXPECT_FLOAT_EQ(distance_ls2ls(a, b, c2, d2), 1.0f);
    // The same segment anti-parallel is no parallel one: an end lies on the other segment.
    EXPECT_FLOAT_EQ(distance_ls2ls(a, b, d2, c2), 0.0f);
    // Skew with a foot outside: an end-to-segment distance.
    const float c3[3] = {1, 1, 0.5f}, d3[3] = {1, 2, 0.5f};
    EXPECT_FLOAT_EQ(distance_ls2ls(a, b, c3, d3), std::sqrt(1.25f));

    // Clamped at the ends of both segments.
    const float c4[3] = {3, 1, 0}, d4[3] = {4, 2, 0};
    EXPECT_FLOAT_EQ(distanceSegmentToSegment(a, b, c4, d4), std::sqrt(2.0f));
    // Centimetre segments 6 degrees apart (a c - b^2 below 1e-6) count as parallel: the
    // distance is taken from a alone, above the true one at the other end.
    const float s1[3] = {0.01f, 0, 0}, t0[3] = {0, 0.003f, 0}, t1[3] = {0.01f, 0.002f, 0};
    EXPECT_NEAR(distanceSegmentToSegment(a, s1, t0, t1), distance_p2ls(a, t0, t1), 1e-7);
    EXPECT_GT(distanceSegmentToSegment(a, s1, t0, t1), distance_ls2ls(a, s1, t0, t1) + 5e-4);
}

TEST(SafetyGeometry, PlaneHelpers)
{
    const float p1[3] = {1, 0, 0}, p2[3] = {0, 2, 0}, p3[3] = {0, 0, 4};
    const Plane plane = getPlaneFromPoints(p1, p2, p3);  // x + y/2 + z/4 = 1, normal outward
    EXPECT_GT(plane.a, 0.0f);
    for (const float* p : {p1, p2, p3}) EXPECT_EQ(getPointSideOfPlane(p, plane), 0);
    const float above[3] = {1, 1, 1}, origin[3] = {0, 0, 0};
    EXPECT_EQ(getPointSideOfPlane(above, plane), 1);
    EXPECT_EQ(getPointSideOfPlane(origin, plane), -1);
    const float expected = 1.0f / std::sqrt(1.0f + 0.25f + 0.0625f);
    EXPECT_FLOAT_EQ(pointToPlaneDistance(origin, plane), expected);
    const float normal[3] = {plane.a, plane.b, plane.c};
    EXPECT_FLOAT_EQ(distance_p2surf(normal, p2, origin), expected);
    EXPECT_EQ(is_point_to_plane(origin, expected * 0.99f, plane), 1);
    EXPECT_EQ(is_point_to_plane(origin, expected * 1.01f, plane), 0);
    // isCoplanar tells points on one line.
    const float q2[3] = {1, 2, 3}, q3[3] = {2, 4, 6};
    EXPECT_EQ(isCoplanar(origin, q2, q3), 1);
    EXPECT_EQ(isCoplanar(p1, p2, p3), 0);
    EXPECT_EQ(IsEqual(0.0f, 9.9e-7f), 1);
    EXPECT_EQ(IsEqual(0.0f, 1.01e-6f), 0);
}

TEST(SafetyGeometry, DegenerateInputGivesFiniteOrNaNNeverACrash)
{
    const float a[3] = {0, 0, 0}, p[3] = {3, 4, 0}, c[3] = {3, 0, 0}, d[3] = {3, 8, 0};
    // Zero-length segments are points.
    EXPECT_FLOAT_EQ(distance_p2ls(p, a, a), 5.0f);
    EXPECT_FLOAT_EQ(distance_ls2ls(a, a, c, d), 3.0f);
    EXPECT_FLOAT_EQ(distance_ls2ls(a, a, p, p), 5.0f);
    EXPECT_FLOAT_EQ(distanceSegmentToSegment(a, a, p, p), 5.0f);
    // A zero normal, a NaN point or a null pointer: NaN, which compares false.
    EXPECT_TRUE(std::isnan(distance_p2surf(a, a, p)));
    const float bad[3] = {std::numeric_limits<float>::quiet_NaN(), 0, 0};
    const float cuboid[6] = {0, 1, 0, 1, 0, 1};
    EXPECT_TRUE(std::isnan(distance_ls2ls(bad, a, c, d)));
    EXPECT_TRUE(std::isnan(isP_Cube(bad, 0.1f, cuboid)));
    EXPECT_TRUE(std::isnan(isLink2CuboidCollision(0.1f, bad, p, cuboid)));
    EXPECT_EQ(check_intersection(bad, p, cuboid), 1);
    EXPECT_TRUE(std::isnan(distance_ls2ls(nullptr, a, c, d)));
    EXPECT_TRUE(std::isnan(distance_p2l(p, nullptr, a).distance));
    EXPECT_EQ(isPinL(nullptr, a, c), 0);
    distance_p2cuboidface(nullptr, cuboid);
    EXPECT_TRUE(std::isnan(dp2face[0]));
}

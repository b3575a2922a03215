// The collision geometry kit against dense sampling in double precision: both segments of a
// pair, a segment for a point, the face rectangles of a cuboid and its edges; then each rule
// of the kit on constructed cases (coordinate order of the parameter test, coplanar and
// collinear paths, the clamped parameters, the cap, faces crossed) and degenerate input.
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
    const float* p() const { return v; }
};

P random_point(Rng& rng, float reach = 1.0f)
{
    return {{rng.uniformf(-reach, reach), rng.uniformf(-reach, reach), rng.uniformf(-reach, reach)}};
}

double dist(const double a[3], const double b[3])
{
    return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) + (a[2] - b[2]) * (a[2] - b[2]));
}

void lerp(const P& a, const P& b, double t, double out[3])
{
    for (int k = 0; k < 3; ++k) out[k] = a.v[k] + t * (static_cast<double>(b.v[k]) - a.v[k]);
}

constexpr int kSamples = 400;

// Least distance between sampled points of ab and cd; above the true distance by at most
// the sample spacing of both segments.
double sampled_segments(const P& a, const P& b, const P& c, const P& d)
{
    double best = 1e300, x[3], y[3];
    for (int i = 0; i <= kSamples; ++i) {
        lerp(a, b, static_cast<double>(i) / kSamples, x);
        for (int j = 0; j <= kSamples; ++j) {
            lerp(c, d, static_cast<double>(j) / kSamples, y);
            best = std::min(best, dist(x, y));
        }
    }
    return best;
}

double spacing(const P& a, const P& b) { return distance_p2p(a.p(), b.p()) / kSamples; }

// Least distance from p to sampled points of ab.
double sampled_point_segment(const P& p, const P& a, const P& b)
{
    double best = 1e300, x[3], pp[3] = {p.v[0], p.v[1], p.v[2]};
    for (int i = 0; i <= kSamples * 10; ++i) {
        lerp(a, b, static_cast<double>(i) / (kSamples * 10), x);
        best = std::min(best, dist(pp, x));
    }
    return best;
}

constexpr double kRounding = 2e-5;  // single-precision rounding over lengths of a metre

}  // namespace

/* -----------------------------------------------------------------------------
 * Distances against sampling
 * -------------------------------------------------------------------------- */

// Random segments in space have skew axes: both distances are exact there.
TEST(SafetyGeometry, SegmentDistancesMatchSampling)
{
    Rng rng(101);
    const int cases = std::max(20, property_cases() / 30);
    for (int n = 0; n < cases; ++n) {
        const P a = random_point(rng), b = random_point(rng), c = random_point(rng), d = random_point(rng);
        const double sampled = sampled_segments(a, b, c, d);
        const double resolution = spacing(a, b) + spacing(c, d) + kRounding;
        const double ls = distance_ls2ls(a.p(), b.p(), c.p(), d.p());
        ASSERT_LE(ls, sampled + kRounding) << n;
        ASSERT_GE(ls, sampled - resolution) << n;
        const double clamped = distanceSegmentToSegment(a.p(), b.p(), c.p(), d.p());
        ASSERT_NEAR(clamped, ls, resolution) << n;
    }
}

TEST(SafetyGeometry, PointToSegmentMatchesSampling)
{
    Rng rng(102);
    for (int n = 0; n < property_cases() / 10; ++n) {
        const P p = random_point(rng), a = random_point(rng), b = random_point(rng);
        const double sampled = sampled_point_segment(p, a, b);
        const double f = distance_p2ls(p.p(), a.p(), b.p());
        ASSERT_LE(f, sampled + kRounding) << n;
        ASSERT_GE(f, sampled - spacing(a, b) / 10 - kRounding) << n;
        // The line distance is never above the segment distance, and the foot is on the line.
        const PointLineDistance l = distance_p2l(p.p(), a.p(), b.p());
        ASSERT_LE(l.distance, f + kRounding);
        const float foot[3] = {l.x, l.y, l.z};
        ASSERT_NEAR(distance_p2p(p.p(), foot), l.distance, 1e-6);
    }
}

// Each entry is the distance to one face as a bounded rectangle; the sphere clearance is
// the least entry less the radius, never above 1.0.
TEST(SafetyGeometry, CuboidFaceDistancesMatchSampledFaces)
{
    Rng rng(103);
    constexpr int kGrid = 120;
    const float cuboid[6] = {-0.3f, 0.2f, -0.1f, 0.4f, 0.1f, 0.6f};
    // Faces in dp2face order: the fixed axis and its value, then the two free axes.
    const struct {
        int fixed;
        float value;
        int u, w;
    } faces[6] = {{2, cuboid[5], 0, 1}, {2, cuboid[4], 0, 1}, {0, cuboid[1], 1, 2},
                  {0, cuboid[0], 1, 2}, {1, cuboid[2], 0, 2}, {1, cuboid[3], 0, 2}};
    for (int n = 0; n < property_cases() / 30; ++n) {
        const P p = random_point(rng);
        const float radius = rng.uniformf(0.0f, 0.2f);
        const float clearance = isP_Cube(p.p(), radius, cuboid);
        double least = 1e300;
        for (int f = 0; f < 6; ++f) {
            double best = 1e300, x[3], pp[3] = {p.v[0], p.v[1], p.v[2]};
            x[faces[f].fixed] = faces[f].value;
            for (int i = 0; i <= kGrid; ++i)
                for (int j = 0; j <= kGrid; ++j) {
                    x[faces[f].u] = cuboid[2 * faces[f].u] + (cuboid[2 * faces[f].u + 1] - cuboid[2 * faces[f].u]) * i / kGrid;
                    x[faces[f].w] = cuboid[2 * faces[f].w] + (cuboid[2 * faces[f].w + 1] - cuboid[2 * faces[f].w]) * j / kGrid;
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
}

TEST(SafetyGeometry, CapsuleToCuboidEdgesMatchesSampling)
{
    Rng rng(104);
    const float cuboid[6] = {-0.2f, 0.3f, -0.25f, 0.15f, 0.0f, 0.35f};
    const P corner[8] = {{{cuboid[1], cuboid[2], cuboid[5]}}, {{cuboid[1], cuboid[3], cuboid[5]}},
                         {{cuboid[0], cuboid[3], cuboid[5]}}, {{cuboid[0], cuboid[2], cuboid[5]}},
                         {{cuboid[1], cuboid[2], cuboid[4]}}, {{cuboid[1], cuboid[3], cuboid[4]}},
                         {{cuboid[0], cuboid[3], cuboid[4]}}, {{cuboid[0], cuboid[2], cuboid[4]}}};
    const int edges[12][2] = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 5}, {2, 6}, {3, 7}, {4, 5}, {5, 6}, {6, 7}, {7, 4}};
    for (int n = 0; n < std::max(10, property_cases() / 300); ++n) {
        const P a = random_point(rng, 0.8f), b = random_point(rng, 0.8f);
        const float radius = rng.uniformf(0.0f, 0.1f);
        double least = 1e300, resolution = 0;
        for (const auto& e : edges) {
            least = std::min(least, sampled_segments(a, b, corner[e[0]], corner[e[1]]));
            resolution = std::max(resolution, spacing(a, b) + spacing(corner[e[0]], corner[e[1]]));
        }
        const float c = isLink2CuboidCollision(radius, a.p(), b.p(), cuboid);
        ASSERT_LE(c, std::min(1.0, least - radius) + kRounding) << n;
        ASSERT_GE(c, std::min(1.0, least - radius) - resolution - kRounding) << n;
    }
}

// A segment meets the cuboid's surface exactly when its clip against the three slabs (in
// double) is not empty and it doesn't lie wholly inside: then it reports 0, else 1.
TEST(SafetyGeometry, SegmentAgainstCuboidFacesMatchesSlabClipping)
{
    Rng rng(105);
    const float cuboid[6] = {-0.3f, 0.3f, -0.2f, 0.4f, 0.0f, 0.5f};
    auto inside = [&](const P& x) {
        return x.v[0] > cuboid[0] && x.v[0] < cuboid[1] && x.v[1] > cuboid[2] && x.v[1] < cuboid[3] &&
               x.v[2] > cuboid[4] && x.v[2] < cuboid[5];
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
        ASSERT_EQ(check_intersection(p.p(), q.p(), cuboid), meets ? 0 : 1) << n;
    }
    EXPECT_GT(crossing, property_cases() / 10);
}

/* -----------------------------------------------------------------------------
 * The rules on constructed cases
 * -------------------------------------------------------------------------- */

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

TEST(SafetyGeometry, CommonPerpendicularPathsOfCoplanarSegments)
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
    // Parallel beside each other: the end-to-segment distances, which are exact here.
    const float c3[3] = {0.5f, 1, 0}, d3[3] = {4, 1, 0};
    EXPECT_FLOAT_EQ(distance_ls2ls(a, b, c3, d3), 1.0f);
    // Skew, feet inside both: the common perpendicular.
    const float c4[3] = {1, -1, 0.5f}, d4[3] = {1, 1, 0.5f};
    EXPECT_FLOAT_EQ(distance_ls2ls(a, b, c4, d4), 0.5f);
    // Skew, the foot on cd outside it: an end-to-segment distance.
    const float c5[3] = {1, 1, 0.5f}, d5[3] = {1, 2, 0.5f};
    EXPECT_FLOAT_EQ(distance_ls2ls(a, b, c5, d5), std::sqrt(1.25f));
}

TEST(SafetyGeometry, ClampedSegmentDistanceRules)
{
    const float a[3] = {0, 0, 0}, b[3] = {1, 0, 0};
    // Clamps at both ends of both segments.
    const float c[3] = {2, 1, 0}, d[3] = {3, 2, 0};
    EXPECT_FLOAT_EQ(distanceSegmentToSegment(a, b, c, d), std::sqrt(2.0f));
    // Centimetre segments 6 degrees apart (a c - b^2 below 1e-6) count as parallel: the
    // distance is taken from a alone, above the true one at the other end.
    const float s0[3] = {0, 0, 0}, s1[3] = {0.01f, 0, 0}, t0[3] = {0, 0.003f, 0}, t1[3] = {0.01f, 0.002f, 0};
    EXPECT_NEAR(distanceSegmentToSegment(s0, s1, t0, t1), distance_p2ls(s0, t0, t1), 1e-7);
    EXPECT_GT(distanceSegmentToSegment(s0, s1, t0, t1), distance_ls2ls(s0, s1, t0, t1) + 5e-4);
}

TEST(SafetyGeometry, PlaneHelpers)
{
    const float p1[3] = {1, 0, 0}, p2[3] = {0, 2, 0}, p3[3] = {0, 0, 4};
    const Plane plane = getPlaneFromPoints(p1, p2, p3);
    // The right-hand normal, and all three points exactly on the plane.
    EXPECT_GT(plane.a, 0.0f);
    for (const float* p : {p1, p2, p3}) EXPECT_EQ(getPointSideOfPlane(p, plane), 0);
    const float above[3] = {1, 1, 1}, origin[3] = {0, 0, 0};
    EXPECT_EQ(getPointSideOfPlane(above, plane), 1);
    EXPECT_EQ(getPointSideOfPlane(origin, plane), -1);
    // Distance of the origin to x + y/2 + z/4 = 1.
    const float expected = 1.0f / std::sqrt(1.0f + 0.25f + 0.0625f);
    EXPECT_FLOAT_EQ(pointToPlaneDistance(origin, plane), expected);
    const float normal[3] = {plane.a, plane.b, plane.c};
    EXPECT_FLOAT_EQ(distance_p2surf(normal, p2, origin), expected);
    EXPECT_EQ(is_point_to_plane(origin, expected * 0.99f, plane), 1);
    EXPECT_EQ(is_point_to_plane(origin, expected * 1.01f, plane), 0);

    const float on_line[3] = {3, 6, 0};
    EXPECT_EQ(isCoplanar(origin, p2, on_line), 0);
    const float q2[3] = {1, 2, 3}, q3[3] = {2, 4, 6};
    EXPECT_EQ(isCoplanar(origin, q2, q3), 1);
    EXPECT_EQ(isCoplanar(q2, q2, q2), 1);

    float v[3];
    vector2norm(q2, v);
    EXPECT_NEAR(dotProduct(v, v), 1.0, 1e-6);
    crossProduct(p1, p2, v);
    EXPECT_EQ(v[2], 2.0f);
    V1ReduceV2(q3, q2, v);
    EXPECT_EQ(distance_p2p(v, q2), 0.0f);
    EXPECT_EQ(IsEqual(0.0f, 9.9e-7f), 1);
    EXPECT_EQ(IsEqual(0.0f, 1.01e-6f), 0);
}

TEST(SafetyGeometry, CheckIntersectionEdgeCases)
{
    const float cuboid[6] = {0, 1, 0, 1, 0, 1};
    const float in_a[3] = {0.2f, 0.2f, 0.2f}, in_b[3] = {0.8f, 0.7f, 0.6f};
    EXPECT_EQ(check_intersection(in_a, in_b, cuboid), 1);  // wholly inside
    const float below[3] = {0.5f, 0.5f, -1.0f}, above[3] = {0.5f, 0.5f, 2.0f};
    EXPECT_EQ(check_intersection(below, above, cuboid), 0);
    // Lying in the bottom face's plane: the ranges are tested at the start and the end.
    const float f0[3] = {0.1f, 0.1f, 0.0f}, f1[3] = {0.9f, 0.9f, 0.0f};
    EXPECT_EQ(check_intersection(f0, f1, cuboid), 0);
    const float beside0[3] = {2, 0, 0}, beside1[3] = {2, 1, 1};
    EXPECT_EQ(check_intersection(beside0, beside1, cuboid), 1);
}

/* -----------------------------------------------------------------------------
 * Degenerate input
 * -------------------------------------------------------------------------- */

TEST(SafetyGeometry, DegenerateInputGivesFiniteOrNaNNeverACrash)
{
    const float a[3] = {0, 0, 0}, p[3] = {3, 4, 0}, c[3] = {3, 0, 0}, d[3] = {3, 8, 0};
    // Zero-length segments are points.
    EXPECT_FLOAT_EQ(distance_p2ls(p, a, a), 5.0f);
    EXPECT_FLOAT_EQ(distance_ls2ls(a, a, c, d), 3.0f);
    EXPECT_FLOAT_EQ(distance_ls2ls(a, a, p, p), 5.0f);
    EXPECT_FLOAT_EQ(distanceSegmentToSegment(a, a, p, p), 5.0f);
    // A zero normal or a NaN point: NaN, which compares false.
    const float zero[3] = {0, 0, 0};
    EXPECT_TRUE(std::isnan(distance_p2surf(zero, a, p)));
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float bad[3] = {nan, 0, 0};
    const float cuboid[6] = {0, 1, 0, 1, 0, 1};
    EXPECT_TRUE(std::isnan(distance_ls2ls(bad, a, c, d)));
    EXPECT_TRUE(std::isnan(isP_Cube(bad, 0.1f, cuboid)));
    EXPECT_TRUE(std::isnan(isLink2CuboidCollision(0.1f, bad, p, cuboid)));
    EXPECT_EQ(check_intersection(bad, p, cuboid), 1);
    // Null pointers read as NaN input.
    EXPECT_TRUE(std::isnan(distance_ls2ls(nullptr, a, c, d)));
    EXPECT_TRUE(std::isnan(distance_p2l(p, nullptr, a).distance));
    EXPECT_EQ(isPinL(nullptr, a, c), 0);
    distance_p2cuboidface(nullptr, cuboid);
    EXPECT_TRUE(std::isnan(dp2face[0]));
}

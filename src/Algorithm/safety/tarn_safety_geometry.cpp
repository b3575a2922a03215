// Collision and safety: distances between points, lines, segments, planes and
// axis-aligned cuboids, in single precision. Only three thresholds are compared in double
// (1e-10, 1e-9, 1e-6): they sit far below the resolution of a float product of lengths,
// and widening keeps them from underflowing into the rounding of the operands.
//
// The capsule checks call distance_ls2ls dozens of times per cycle, so the unchecked forms
// take points by value and the exported functions only add the null checks.
#include "Algorithm/safety/tarn_safety_geometry.h"

#include <initializer_list>
#include <limits>

using tarn::GeoSegment;
using tarn::V3;

float dp2face[LIBALGO_CUBOID_FACES];

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// distance_ls2ls: a mixed product w . (u x v) below this (m^3) means coplanar axes.
constexpr double kCoplanarMixedProduct = 1e-10;
// distance_ls2ls: unit directions this close in every component point the same way.
constexpr float kSameDirection = 1e-7f;
// distance_ls2ls: an end this near the other line (m) makes the segments collinear.
constexpr double kCollinearDistance = 1e-9;
// distanceSegmentToSegment: a c - b^2 below this counts as parallel segments.
constexpr double kParallelDenominator = 1e-6;
// distanceSegmentToSegment: a parameter numerator or denominator below this gives 0.
constexpr double kParameterQuotient = 1e-6;
// IsEqual.
constexpr double kEqualFloats = 1e-6;

// Cuboid layout.
enum CuboidIndex { kXMin, kXMax, kYMin, kYMax, kZMin, kZMax };
// dp2face layout.
enum FaceIndex { kFaceTop, kFaceBottom, kFaceXMax, kFaceXMin, kFaceYMin, kFaceYMax };

template <class... P>
bool any_null(const P*... p)
{
    return ((p == nullptr) || ...);
}

// Foot of the perpendicular from p to the line through the segment.
V3 foot_on_line(V3 p, const GeoSegment& s)
{
    const float t = -(s.da - tarn::v3_dot(s.d, p)) / s.dd;
    return s.a + t * s.d;
}

V3 foot_on_line(V3 p, V3 a, V3 b) { return foot_on_line(p, tarn::geo_segment(a, b)); }

V3 unit(V3 v)
{
    const float inv = 1.0f / tarn::v3_norm(v);
    return inv * v;
}

float dist2(V3 a, V3 b)
{
    const V3 d = a - b;
    return tarn::v3_dot(d, d);
}

// Squared distance from p to the segment ab: to the foot when it passes the parameter
// test, else to the nearer end. Squares compare as the distances do, and a NaN stays.
inline float point_segment2(V3 p, const GeoSegment& s)
{
    const V3 f = foot_on_line(p, s);
    if (tarn::geo_on_segment(f, s.a, s.b)) return dist2(p, f);
    return tarn::nan_min(dist2(p, s.a), dist2(p, s.b));
}

// The least of the four end-to-segment distances of ab and cd.
float ends_to_segments(const GeoSegment& ab, const GeoSegment& cd)
{
    float r = point_segment2(ab.a, cd);
    r = tarn::nan_min(r, point_segment2(ab.b, cd));
    r = tarn::nan_min(r, point_segment2(cd.a, ab));
    return std::sqrt(tarn::nan_min(r, point_segment2(cd.b, ab)));
}

// Distance from 0 outside [lo, hi] along one axis.
float outside_by(float v, float lo, float hi)
{
    if (v >= lo && v <= hi) return 0.0f;
    return std::fmax(lo - v, v - hi);
}

float square(float v) { return v * v; }

// One of the three axis pairs of check_intersection: the segment pq crosses the two
// planes normal to axis `n` (coordinates n of the points), or lies in one of them; u and
// w are the other two axes, in the order the ranges are tested.
struct AxisView {
    int n, u, w;
};

bool meets_faces_normal_to(const float p[3], const float q[3], const float cuboid[6], AxisView ax)
{
    const float lo_n = cuboid[2 * ax.n], hi_n = cuboid[2 * ax.n + 1];
    const float lo_u = cuboid[2 * ax.u], hi_u = cuboid[2 * ax.u + 1];
    const float lo_w = cuboid[2 * ax.w], hi_w = cuboid[2 * ax.w + 1];
    bool hit = false;
    if (p[ax.n] != q[ax.n]) {
        for (float plane : {lo_n, hi_n}) {
            const float t = (plane - p[ax.n]) / (q[ax.n] - p[ax.n]);
            if (t < 0.0f || t > 1.0f) continue;
            const float u = p[ax.u] + t * (q[ax.u] - p[ax.u]);
            const float w = p[ax.w] + t * (q[ax.w] - p[ax.w]);
            if (u >= lo_u && u <= hi_u && w >= lo_w && w <= hi_w) hit = true;
        }
    }
    // A start in one of the two planes: the ranges are tested at the start and the end.
    if ((p[ax.n] == lo_n || p[ax.n] == hi_n) && p[ax.u] >= lo_u && q[ax.u] <= hi_u && p[ax.w] >= lo_w &&
        q[ax.w] <= hi_w)
        hit = true;
    return hit;
}

}  // namespace

/* -----------------------------------------------------------------------------
 * Unchecked forms
 * -------------------------------------------------------------------------- */

namespace tarn {

bool geo_on_segment(V3 p, V3 a, V3 b)
{
    // The parameter from the coordinates in the order x, y, z, where a later non-zero
    // offset replaces an earlier ratio and a zero offset never divides: so the first
    // non-zero offset from z back to x decides, and t is 0 when there is none.
    float t = 0.0f;
    if (p.z - a.z != 0.0f)
        t = (p.z - a.z) / (b.z - a.z);
    else if (p.y - a.y != 0.0f)
        t = (p.y - a.y) / (b.y - a.y);
    else if (p.x - a.x != 0.0f)
        t = (p.x - a.x) / (b.x - a.x);
    return t >= 0.0f && t <= 1.0f;
}

float geo_point_segment(V3 p, const GeoSegment& ab) { return std::sqrt(point_segment2(p, ab)); }

}  // namespace tarn

namespace {

// distance_ls2ls. The segments' data for the end-to-segment distances is taken from the
// caller when it has it, else computed on the paths that need it.
inline float segment_segment(V3 a, V3 b, V3 c, V3 d, const GeoSegment* have_ab, const GeoSegment* have_cd)
{
    using namespace tarn;
    const V3 u = b - a, v = d - c, w = c - a;
    auto ends = [&]() {
        GeoSegment own_ab, own_cd;
        if (!have_ab) have_ab = &(own_ab = geo_segment(a, b));
        if (!have_cd) have_cd = &(own_cd = geo_segment(c, d));
        return ends_to_segments(*have_ab, *have_cd);
    };
    const V3 n = v3_cross(u, v);
    const float mixed = v3_dot(w, n);
    if (!(std::fabs(static_cast<double>(mixed)) < kCoplanarMixedProduct) && mixed != 0.0f) {
        // Skew: each foot of the common perpendicular is where its line meets the plane
        // through the other line's start spanned by that line and the common normal.
        const V3 normal_ab = v3_cross(u, n);
        const V3 on_cd = c + (v3_dot(a - c, normal_ab) / v3_dot(v, normal_ab)) * v;
        const V3 normal_cd = v3_cross(v, n);
        const V3 on_ab = a + (v3_dot(c - a, normal_cd) / v3_dot(u, normal_cd)) * u;
        const bool ab_inside = geo_on_segment(on_ab, a, b);
        const bool cd_inside = geo_on_segment(on_cd, c, d);
        if (ab_inside && cd_inside) return v3_dist(on_ab, on_cd);
        float r = ends();
        if (ab_inside) r = nan_min(r, geo_point_segment(on_ab, c, d));
        if (cd_inside) r = nan_min(r, geo_point_segment(on_cd, a, b));
        return r;
    }
    // Coplanar. Only segments of the same direction count as parallel; on one line, the
    // least distance between ends stands for theirs.
    const V3 du = unit(u), dv = unit(v);
    if (std::fabs(du.x - dv.x) < kSameDirection && std::fabs(du.y - dv.y) < kSameDirection &&
        std::fabs(du.z - dv.z) < kSameDirection) {
        const float off_line = v3_dist(a, foot_on_line(a, c, d));
        if (static_cast<double>(off_line) < kCollinearDistance || off_line == 0.0f)
            return nan_min(nan_min(v3_dist(a, c), v3_dist(a, d)), nan_min(v3_dist(b, c), v3_dist(b, d)));
    }
    return ends();
}

}  // namespace

namespace tarn {

float geo_segment_segment(const GeoSegment& ab, const GeoSegment& cd)
{
    return segment_segment(ab.a, ab.b, cd.a, cd.b, &ab, &cd);
}

float geo_segment_segment(V3 a, V3 b, V3 c, V3 d) { return segment_segment(a, b, c, d, nullptr, nullptr); }

void geo_cuboid_faces(V3 p, const float cuboid[6], float out[LIBALGO_CUBOID_FACES])
{
    const float ex = outside_by(p.x, cuboid[kXMin], cuboid[kXMax]);
    const float ey = outside_by(p.y, cuboid[kYMin], cuboid[kYMax]);
    const float ez = outside_by(p.z, cuboid[kZMin], cuboid[kZMax]);
    out[kFaceTop] = std::sqrt(square(ex) + square(ey) + square(p.z - cuboid[kZMax]));
    out[kFaceBottom] = std::sqrt(square(ex) + square(ey) + square(p.z - cuboid[kZMin]));
    out[kFaceXMax] = std::sqrt(square(p.x - cuboid[kXMax]) + square(ey) + square(ez));
    out[kFaceXMin] = std::sqrt(square(p.x - cuboid[kXMin]) + square(ey) + square(ez));
    out[kFaceYMin] = std::sqrt(square(ex) + square(p.y - cuboid[kYMin]) + square(ez));
    out[kFaceYMax] = std::sqrt(square(ex) + square(p.y - cuboid[kYMax]) + square(ez));
}

float geo_sphere_cuboid(V3 p, float radius, const float cuboid[6])
{
    geo_cuboid_faces(p, cuboid, dp2face);
    float c = kClearanceCap;
    for (float face : dp2face) c = nan_min(c, face - radius);
    return c;
}

float geo_capsule_cuboid_edges(float radius, V3 a, V3 b, const float cuboid[6])
{
    // Corners of the top face, then the same of the bottom face.
    const float x0 = cuboid[kXMin], x1 = cuboid[kXMax], y0 = cuboid[kYMin], y1 = cuboid[kYMax];
    const V3 top[4] = {{x1, y0, cuboid[kZMax]}, {x1, y1, cuboid[kZMax]}, {x0, y1, cuboid[kZMax]}, {x0, y0, cuboid[kZMax]}};
    const V3 bottom[4] = {{x1, y0, cuboid[kZMin]}, {x1, y1, cuboid[kZMin]}, {x0, y1, cuboid[kZMin]},
                          {x0, y0, cuboid[kZMin]}};
    const GeoSegment axis = geo_segment(a, b);
    auto edge = [&](V3 e0, V3 e1) { return geo_segment_segment(axis, geo_segment(e0, e1)) - radius; };
    float c = kClearanceCap;
    constexpr int kCorners = 4;
    for (int i = 0; i < kCorners; ++i) c = nan_min(c, edge(top[i], top[(i + 1) % kCorners]));
    for (int i = 0; i < kCorners; ++i) c = nan_min(c, edge(top[i], bottom[i]));
    for (int i = 0; i < kCorners; ++i) c = nan_min(c, edge(bottom[i], bottom[(i + 1) % kCorners]));
    return c;
}

bool geo_segment_meets_cuboid(V3 p, V3 q, const float cuboid[6])
{
    const float pp[3] = {p.x, p.y, p.z}, qq[3] = {q.x, q.y, q.z};
    constexpr AxisView kZ{2, 0, 1}, kY{1, 0, 2}, kX{0, 1, 2};
    // All three are evaluated, as the faces are tested in turn.
    const bool z = meets_faces_normal_to(pp, qq, cuboid, kZ);
    const bool y = meets_faces_normal_to(pp, qq, cuboid, kY);
    const bool x = meets_faces_normal_to(pp, qq, cuboid, kX);
    return z || y || x;
}

}  // namespace tarn

/* -----------------------------------------------------------------------------
 * Exported functions
 * -------------------------------------------------------------------------- */

using tarn::v3_load;

float distance_p2p(const float p[3], const float q[3])
{
    if (any_null(p, q)) return kNaN;
    return tarn::v3_dist(v3_load(p), v3_load(q));
}

int isPinL(const float p[3], const float a[3], const float b[3])
{
    if (any_null(p, a, b)) return 0;
    return tarn::geo_on_segment(v3_load(p), v3_load(a), v3_load(b)) ? 1 : 0;
}

PointLineDistance distance_p2l(const float p[3], const float a[3], const float b[3])
{
    if (any_null(p, a, b)) return {kNaN, kNaN, kNaN, kNaN};
    const V3 pt = v3_load(p);
    const V3 f = foot_on_line(pt, v3_load(a), v3_load(b));
    return {f.x, f.y, f.z, tarn::v3_dist(pt, f)};
}

float distance_p2ls(const float p[3], const float a[3], const float b[3])
{
    if (any_null(p, a, b)) return kNaN;
    return tarn::geo_point_segment(v3_load(p), v3_load(a), v3_load(b));
}

float distance_ls2ls(const float a[3], const float b[3], const float c[3], const float d[3])
{
    if (any_null(a, b, c, d)) return kNaN;
    return tarn::geo_segment_segment(v3_load(a), v3_load(b), v3_load(c), v3_load(d));
}

float distanceSegmentToSegment(const float a[3], const float b[3], const float c[3], const float d[3])
{
    if (any_null(a, b, c, d)) return kNaN;
    const V3 u = v3_load(b) - v3_load(a), v = v3_load(d) - v3_load(c), r = v3_load(a) - v3_load(c);
    const float ua = tarn::v3_dot(u, u), ub = tarn::v3_dot(u, v), vc = tarn::v3_dot(v, v);
    const float ud = tarn::v3_dot(u, r), ve = tarn::v3_dot(v, r);
    const float den = ua * vc - ub * ub;
    float s_num, s_den = den, t_num, t_den = den;
    if (std::fabs(static_cast<double>(den)) < kParallelDenominator) {
        s_num = 0.0f;
        s_den = 1.0f;
        t_num = ve;
        t_den = vc;
    } else {
        s_num = ub * ve - vc * ud;
        t_num = ua * ve - ub * ud;
        if (s_num < 0.0f) {
            s_num = 0.0f;
            t_num = ve;
            t_den = vc;
        } else if (s_num > s_den) {
            s_num = s_den;
            t_num = ve + ub;
            t_den = vc;
        }
    }
    // t clamped to an end: s again from the end's projection, clamped to [0, a].
    auto s_from = [&](float num) {
        if (num < 0.0f) {
            s_num = 0.0f;
        } else if (num > ua) {
            s_num = s_den;
        } else {
            s_num = num;
            s_den = ua;
        }
    };
    if (t_num < 0.0f) {
        t_num = 0.0f;
        s_from(-ud);
    } else if (t_num > t_den) {
        t_num = t_den;
        s_from(ub - ud);
    }
    auto quotient = [](float num, float den_) {
        if (std::fabs(static_cast<double>(num)) < kParameterQuotient ||
            std::fabs(static_cast<double>(den_)) < kParameterQuotient)
            return 0.0f;
        return num / den_;
    };
    const float s = quotient(s_num, s_den), t = quotient(t_num, t_den);
    return tarn::v3_norm(r + s * u - t * v);
}

float distance_p2surf(const float n[3], const float q[3], const float p[3])
{
    if (any_null(n, q, p)) return kNaN;
    const V3 nn = v3_load(n);
    const float t = -(tarn::v3_dot(v3_load(p), nn) - tarn::v3_dot(v3_load(q), nn)) / tarn::v3_dot(nn, nn);
    return tarn::v3_norm(t * nn);
}

void distance_p2cuboidface(const float p[3], const float cuboid[6])
{
    if (any_null(p, cuboid)) {
        for (float& face : dp2face) face = kNaN;
        return;
    }
    tarn::geo_cuboid_faces(v3_load(p), cuboid, dp2face);
}

float isP_Cube(const float p[3], float radius, const float cuboid[6])
{
    if (any_null(p, cuboid)) return kNaN;
    return tarn::geo_sphere_cuboid(v3_load(p), radius, cuboid);
}

float isLink2CuboidCollision(float radius, const float a[3], const float b[3], const float cuboid[6])
{
    if (any_null(a, b, cuboid)) return kNaN;
    return tarn::geo_capsule_cuboid_edges(radius, v3_load(a), v3_load(b), cuboid);
}

int check_intersection(const float p[3], const float q[3], const float cuboid[6])
{
    if (any_null(p, q, cuboid)) return 1;
    return tarn::geo_segment_meets_cuboid(v3_load(p), v3_load(q), cuboid) ? 0 : 1;
}

Plane getPlaneFromPoints(const float p1[3], const float p2[3], const float p3[3])
{
    if (any_null(p1, p2, p3)) return {kNaN, kNaN, kNaN, kNaN};
    const V3 a = v3_load(p1);
    const V3 n = tarn::v3_cross(v3_load(p2) - a, v3_load(p3) - a);
    return {n.x, n.y, n.z, -tarn::v3_dot(n, a)};
}

int getPointSideOfPlane(const float p[3], Plane plane)
{
    if (!p) return 0;
    const float s = plane.a * p[0] + plane.b * p[1] + plane.c * p[2] + plane.d;
    return s > 0.0f ? 1 : (s < 0.0f ? -1 : 0);
}

float pointToPlaneDistance(const float p[3], Plane plane)
{
    if (!p) return kNaN;
    const float s = plane.a * p[0] + plane.b * p[1] + plane.c * p[2] + plane.d;
    return std::fabs(s) / std::sqrt(plane.a * plane.a + plane.b * plane.b + plane.c * plane.c);
}

int is_point_to_plane(const float p[3], float threshold, Plane plane)
{
    return pointToPlaneDistance(p, plane) > threshold ? 1 : 0;
}

int isCoplanar(const float a[3], const float b[3], const float c[3])
{
    if (any_null(a, b, c)) return 0;
    const V3 o = v3_load(a);
    const V3 n = tarn::v3_cross(v3_load(b) - o, v3_load(c) - o);
    return n.x == 0.0f && n.y == 0.0f && n.z == 0.0f ? 1 : 0;
}

void vector2norm(const float in[3], float out[3])
{
    if (any_null(in, out)) return;
    tarn::v3_store(unit(v3_load(in)), out);
}

void V1ReduceV2(const float v1[3], const float v2[3], float result[3])
{
    if (any_null(v1, v2, result)) return;
    tarn::v3_store(v3_load(v1) - v3_load(v2), result);
}

float dotProduct(const float a[3], const float b[3])
{
    if (any_null(a, b)) return kNaN;
    return tarn::v3_dot(v3_load(a), v3_load(b));
}

void crossProduct(const float a[3], const float b[3], float result[3])
{
    if (any_null(a, b, result)) return;
    tarn::v3_store(tarn::v3_cross(v3_load(a), v3_load(b)), result);
}

int IsEqual(float a, float b) { return std::fabs(static_cast<double>(a) - static_cast<double>(b)) < kEqualFloats ? 1 : 0; }

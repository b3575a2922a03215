// Collision and safety: the geometry kit. The exported functions are those of the first
// section of include/libalgo_safety.h; this header gives the rest of the subsystem a small
// value type for points and the unchecked forms of the primitives, which the capsule and
// fence checks call many times per cycle with points they own.
#pragma once

#include <cmath>

#include "libalgo_safety.h"

namespace tarn {

/* -----------------------------------------------------------------------------
 * Points
 * -------------------------------------------------------------------------- */

struct V3 {
    float x, y, z;
};

inline V3 v3_load(const float* p) { return {p[0], p[1], p[2]}; }
inline void v3_store(V3 v, float* p)
{
    p[0] = v.x;
    p[1] = v.y;
    p[2] = v.z;
}
inline V3 operator+(V3 a, V3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline V3 operator-(V3 a, V3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline V3 operator*(float k, V3 a) { return {k * a.x, k * a.y, k * a.z}; }
inline float v3_dot(V3 a, V3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline V3 v3_cross(V3 a, V3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
inline float v3_norm(V3 a) { return std::sqrt(v3_dot(a, a)); }
inline float v3_dist(V3 a, V3 b) { return v3_norm(a - b); }

/* -----------------------------------------------------------------------------
 * Clearances
 * -------------------------------------------------------------------------- */

// Every clearance of the subsystem is capped at one metre.
inline constexpr float kClearanceCap = 1.0f;

// The smaller of two distances or clearances, where a NaN, once taken, stays: geometry
// that went NaN yields a NaN clearance, which compares false, rather than the cap.
inline float nan_min(float a, float b) { return (b < a || std::isnan(b)) ? b : a; }

/* -----------------------------------------------------------------------------
 * Primitives on points the caller owns (no null checks)
 * -------------------------------------------------------------------------- */

// A segment with what every distance to it needs, computed once when it is compared many
// times: the same operations as on the bare ends, so the results agree to the bit.
struct GeoSegment {
    V3 a, b;
    V3 d;      // b - a
    float dd;  // d . d
    float da;  // d . a
};

inline GeoSegment geo_segment(V3 a, V3 b)
{
    const V3 d = b - a;
    return {a, b, d, v3_dot(d, d), v3_dot(d, a)};
}

// The segment parameter test of isPinL.
bool geo_on_segment(V3 p, V3 a, V3 b);
float geo_point_segment(V3 p, const GeoSegment& ab);                    // distance_p2ls
float geo_segment_segment(const GeoSegment& ab, const GeoSegment& cd);  // distance_ls2ls
float geo_segment_segment(V3 a, V3 b, V3 c, V3 d);
inline float geo_point_segment(V3 p, V3 a, V3 b) { return geo_point_segment(p, geo_segment(a, b)); }
// The six face distances of distance_p2cuboidface into out, in the same order.
void geo_cuboid_faces(V3 p, const float cuboid[6], float out[LIBALGO_CUBOID_FACES]);
// isP_Cube and isLink2CuboidCollision; both also leave dp2face as the exported ones do.
float geo_sphere_cuboid(V3 p, float radius, const float cuboid[6]);
float geo_capsule_cuboid_edges(float radius, V3 a, V3 b, const float cuboid[6]);
bool geo_segment_meets_cuboid(V3 p, V3 q, const float cuboid[6]);  // check_intersection == 0

}  // namespace tarn

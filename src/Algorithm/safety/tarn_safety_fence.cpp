// Collision and safety: fences. One boundary, a cuboid or a plane in the base frame, is
// validated against the arm's pose when it is set, and during motion the capsules and
// tool spheres of the self-collision model are measured against it.
#include <cmath>
#include <cstring>

#include "Algorithm/safety/tarn_safety_global.h"
#include "Algorithm/safety/tarn_safety_model.h"
#include "Algorithm/safety/tarn_safety_ratio.h"
#include "libalgo_model.h"

using tarn::SafetyFamily;
using tarn::SafetyGeometry;
using tarn::V3;
using tarn::v3_load;

namespace {

constexpr float kFenceStop = -2.0f;
// is_Robot_outside: a capsule whose edge clearance is below this touches the cuboid.
constexpr float kOutsideContact = 1e-6f;

// Results of libalgo_set_fence_para.
constexpr int64_t kFenceAccepted = 0;
constexpr int64_t kFenceViolated = 1;
constexpr int64_t kFenceEmptyCuboid = 2;
constexpr int64_t kFenceDegeneratePlane = 3;

enum CuboidIndex { kXMin, kXMax, kYMin, kYMax, kZMin, kZMax };

// Plane points P1, P2, P3 in the fence record, three floats each.
constexpr int kPointFloats = 3;
const float* plane_point_ptr(const float* plane, int i) { return plane + kPointFloats * i; }
V3 plane_point(const float* plane, int i) { return v3_load(plane_point_ptr(plane, i)); }

bool within(const float p[3], float margin, const float cuboid[6])
{
    // Written so that NaN fails.
    return p[0] - margin >= cuboid[kXMin] && p[0] + margin <= cuboid[kXMax] && p[1] - margin >= cuboid[kYMin] &&
           p[1] + margin <= cuboid[kYMax] && p[2] - margin >= cuboid[kZMin] && p[2] + margin <= cuboid[kZMax];
}

/* -----------------------------------------------------------------------------
 * Setting time: inside, outside, the side of a plane
 * -------------------------------------------------------------------------- */

// 0 when the reduced joint points and the tool spheres lie within the cuboid, else 1. The
// joint points carry the capsules' half-widths already; the bounding box of the joint
// points lies within the cuboid exactly when each point does.
int inside(SafetyGeometry g, const float cuboid[6], const float* q, int n)
{
    tarn::safety_joint_points(g, q, n);
    for (int k = 0; k < LIBALGO_INSIDE_JOINT_PAIRS; ++k)
        if (!within(PJA_min[k], 0.0f, cuboid) || !within(PJB_max[k], 0.0f, cuboid)) return 1;
    for (int t = 0; t < n; ++t)
        if (!within(PJA_min[LIBALGO_INSIDE_JOINT_PAIRS + t], tool_spheres_para[t].r, cuboid)) return 1;
    return 0;
}

bool capsule_touches(V3 a, V3 b, float radius, const float cuboid[6])
{
    return tarn::geo_segment_meets_cuboid(a, b, cuboid) ||
           tarn::geo_capsule_cuboid_edges(radius, a, b, cuboid) < kOutsideContact;
}

// 0 when no part touches the cuboid; else the inside result, and 1 for an arm wholly
// inside. The shoulder capsule, the base and the upper arm are not tested.
int outside(SafetyGeometry g, const float cuboid[6], const float* q, int n)
{
    const ToolLinkResult tool = tarn::safety_end_points(g, q, n);
    const int r = inside(g, cuboid, q, n);
    if (r == 0) return 1;
    const tarn::CapsuleRadii& radii = tarn::safety_radii(g);
    for (int i = 1; i < tarn::kJointCapsules; ++i)
        if (capsule_touches(v3_load(PJA[i]), v3_load(PJB[i]), radii.joint[i], cuboid)) return r;
    for (int t = 0; t < n; ++t) {
        // Whole metres of clearance, capped at one: a sphere passes only at a metre or
        // more from every face.
        const float c = tarn::geo_sphere_cuboid(v3_load(PJA[tarn::kFirstToolSphere + t]), tool_spheres_para[t].r, cuboid);
        if (std::trunc(c) == 0.0f) return r;
    }
    // From the forearm on; the fifth link of the five-link families counts too.
    for (int m = 2; m < radii.links; ++m)
        if (capsule_touches(v3_load(PLA[m]), v3_load(PLB[m]), radii.link[m], cuboid)) return r;
    for (int k = 0; k < tool.tool_link_num; ++k) {
        const int z = radii.links + k;
        if (capsule_touches(v3_load(PLA[z]), v3_load(PLB[z]), tool.tool_link_radius[k], cuboid)) return r;
    }
    return 0;
}

// +1 or -1 when every capsule end and sphere lies farther than its radius from the plane
// on the side of the normal or the other; 0 at the first that doesn't, or for a mixed
// arm, or a plane without a normal.
int relation(SafetyGeometry g, const float* q, int n, V3 p1, V3 p2, V3 p3)
{
    const ToolLinkResult tool = tarn::safety_end_points(g, q, n);
    const tarn::CapsuleRadii& radii = tarn::safety_radii(g);
    const V3 normal = tarn::v3_cross(p2 - p1, p3 - p1);
    const float len = tarn::v3_norm(normal);
    if (!(len > 0.0f) || !std::isfinite(len)) return 0;
    int positive = 0, total = 0;
    // False when the point comes within its radius (a NaN distance included).
    auto clear = [&](const float* p, float radius) {
        const float s = tarn::v3_dot(normal, v3_load(p) - p1);
        if (!(std::fabs(s) / len > radius)) return false;
        positive += s > 0.0f ? 1 : 0;
        ++total;
        return true;
    };
    for (int i = 0; i < tarn::kJointCapsules; ++i)
        if (!clear(PJA[i], radii.joint[i]) || !clear(PJB[i], radii.joint[i])) return 0;
    for (int m = 0; m < radii.links; ++m)
        if (!clear(PLA[m], radii.link[m]) || !clear(PLB[m], radii.link[m])) return 0;
    for (int t = 0; t < n; ++t)
        if (!clear(PJA[tarn::kFirstToolSphere + t], tool_spheres_para[t].r)) return 0;
    for (int k = 0; k < tool.tool_link_num; ++k) {
        const int z = radii.links + k;
        if (!clear(PLA[z], tool.tool_link_radius[k]) || !clear(PLB[z], tool.tool_link_radius[k])) return 0;
    }
    if (positive == total) return 1;
    return positive == 0 ? -1 : 0;
}

/* -----------------------------------------------------------------------------
 * Per cycle: clearances to the stored fence
 * -------------------------------------------------------------------------- */

struct Setup {
    int n;
    ToolLinkResult tool;
};

Setup refresh(SafetyGeometry g, const float* q)
{
    Setup s;
    s.n = update_ToolSpheresModel();
    _pay_load = libalgo_get_payload_params();
    s.tool = tarn::safety_end_points(g, q, s.n);
    return s;
}

float cuboid_clearance(SafetyGeometry g, const float* q)
{
    const Setup s = refresh(g, tarn::safety_joints(q));
    const tarn::CapsuleRadii& radii = tarn::safety_radii(g);
    const float* cuboid = fence_para.cuboid;
    float c = tarn::kClearanceCap;
    // Both end spheres and the twelve edges; true at contact.
    auto capsule = [&](const float* pa, const float* pb, float radius) {
        const V3 a = v3_load(pa), b = v3_load(pb);
        const float e1 = tarn::geo_sphere_cuboid(a, radius, cuboid);
        const float e2 = tarn::geo_sphere_cuboid(b, radius, cuboid);
        const float e3 = tarn::geo_capsule_cuboid_edges(radius, a, b, cuboid);
        c = tarn::nan_min(tarn::nan_min(c, e1), tarn::nan_min(e2, e3));
        return e1 <= 0.0f || e2 <= 0.0f || e3 <= 0.0f;
    };
    // The shoulder capsule turns only about the base axis and is left out, as are the
    // base and the upper arm.
    for (int i = 1; i < tarn::kJointCapsules; ++i)
        if (capsule(PJA[i], PJB[i], radii.joint[i])) return c;
    for (int t = 0; t < s.n; ++t) {
        c = tarn::nan_min(c, tarn::geo_sphere_cuboid(v3_load(PJA[tarn::kFirstToolSphere + t]), tool_spheres_para[t].r,
                                                     cuboid));
        if (c <= 0.0f) return c;
    }
    for (int m = 2; m < radii.links; ++m)
        if (capsule(PLA[m], PLB[m], radii.link[m])) return c;
    for (int k = 0; k < s.tool.tool_link_num; ++k) {
        const int z = radii.links + k;
        if (capsule(PLA[z], PLB[z], s.tool.tool_link_radius[k])) return c;
    }
    return c;
}

float plane_clearance(SafetyGeometry g, const float* q)
{
    const Setup s = refresh(g, tarn::safety_joints(q));
    const tarn::CapsuleRadii& radii = tarn::safety_radii(g);
    const float* p = fence_para.plane;
    const Plane plane = getPlaneFromPoints(plane_point_ptr(p, 0), plane_point_ptr(p, 1), plane_point_ptr(p, 2));
    const float norm = std::sqrt(plane.a * plane.a + plane.b * plane.b + plane.c * plane.c);
    // Unsigned: which side the arm is on is the setting-time check's business.
    auto dist = [&](const float* p) {
        return std::fabs(plane.a * p[0] + plane.b * p[1] + plane.c * p[2] + plane.d) / norm;
    };
    float c = tarn::kClearanceCap;
    auto capsule = [&](const float* pa, const float* pb, float radius) {
        c = tarn::nan_min(c, tarn::nan_min(dist(pa), dist(pb)) - radius);
        return c <= 0.0f;
    };
    for (int i = 0; i < tarn::kJointCapsules; ++i)
        if (capsule(PJA[i], PJB[i], radii.joint[i])) return c;
    for (int t = 0; t < s.n; ++t) {
        c = tarn::nan_min(c, dist(PJA[tarn::kFirstToolSphere + t]) - tool_spheres_para[t].r);
        if (c <= 0.0f) return c;
    }
    // The base link stands on the fixed base and is left out.
    for (int m = 1; m < radii.links; ++m)
        if (capsule(PLA[m], PLB[m], radii.link[m])) return c;
    for (int k = 0; k < s.tool.tool_link_num; ++k) {
        const int z = radii.links + k;
        if (capsule(PLA[z], PLB[z], s.tool.tool_link_radius[k])) return c;
    }
    return c;
}

SafetyGeometry geometry(SafetyFamily f) { return tarn::safety_geometry_of(f); }

bool joints_finite(SafetyGeometry g, const float* q)
{
    if (!q) return false;
    for (int i = 0; i < tarn::safety_chain_joints(g); ++i)
        if (!std::isfinite(q[i])) return false;
    return true;
}

}  // namespace

/* -----------------------------------------------------------------------------
 * The fence record
 * -------------------------------------------------------------------------- */

int64_t libalgo_set_fence_para(int64_t type, int64_t second_arg, int64_t third_arg, FenceShape fence, const float* q)
{
    // Decisions follow the values as stored, so that the checks later see the fence that
    // was validated.
    fence_para.type = static_cast<uint32_t>(type);
    fence_para.second_arg = static_cast<uint32_t>(second_arg);
    fence_para.third_arg = static_cast<uint32_t>(third_arg);
    if (q)
        std::memcpy(fence_para.joints, q, sizeof fence_para.joints);
    else
        std::memset(fence_para.joints, 0, sizeof fence_para.joints);

    if (fence_para.type == LIBALGO_FENCE_CUBOID) {
        std::memcpy(fence_para.cuboid, fence.cuboid, sizeof fence_para.cuboid);
        const float* c = fence_para.cuboid;
        // Written so that a NaN bound counts as an empty range.
        if (!(c[kXMin] < c[kXMax]) || !(c[kYMin] < c[kYMax]) || !(c[kZMin] < c[kZMax])) return kFenceEmptyCuboid;
    } else if (fence_para.type == LIBALGO_FENCE_PLANE) {
        std::memcpy(fence_para.plane, fence.plane, sizeof fence_para.plane);
        const V3 p1 = plane_point(fence_para.plane, 0);
        const V3 n = tarn::v3_cross(plane_point(fence_para.plane, 1) - p1, plane_point(fence_para.plane, 2) - p1);
        const bool collinear = n.x == 0.0f && n.y == 0.0f && n.z == 0.0f;
        if (collinear || !std::isfinite(n.x) || !std::isfinite(n.y) || !std::isfinite(n.z)) return kFenceDegeneratePlane;
    }

    const int n = update_ToolSpheresModel();
    const SafetyFamily family = tarn::safety_family_of(libalgo_get_robot_type());
    if (family == SafetyFamily::kNone) return kFenceAccepted;
    if (fence_para.type != LIBALGO_FENCE_CUBOID && fence_para.type != LIBALGO_FENCE_PLANE) return kFenceAccepted;
    const SafetyGeometry g = geometry(family);
    // The pose can't be judged: refused like a pose that violates the fence.
    if (!joints_finite(g, q)) return kFenceViolated;

    if (fence_para.type == LIBALGO_FENCE_PLANE) {
        const float* p = fence_para.plane;
        return relation(g, q, n, plane_point(p, 0), plane_point(p, 1), plane_point(p, 2)) == 0 ? kFenceViolated
                                                                                              : kFenceAccepted;
    }
    const uint32_t second = fence_para.second_arg, third = fence_para.third_arg;
    if (second == 0 && third == 0) return inside(g, fence_para.cuboid, q, n);
    if (second == 0 && third == 1) return outside(g, fence_para.cuboid, q, n);
    if (second == 1 && third == 0) return kFenceViolated;
    if (second == 1 && third == 1) return kFenceEmptyCuboid;
    return kFenceAccepted;
}

void libalgo_get_fence_para(FencePara* fence)
{
    if (fence) *fence = fence_para;
}

uint32_t libalgo_get_fence_type(void) { return fence_para.type; }

/* -----------------------------------------------------------------------------
 * Per family
 * -------------------------------------------------------------------------- */

namespace {

int inside_of(SafetyFamily f, const FenceShape& fence, const float* q, uint32_t n)
{
    return inside(geometry(f), fence.cuboid, tarn::safety_joints(q), tarn::safety_sphere_count(n));
}

int outside_of(SafetyFamily f, const FenceShape& fence, const float* q, uint32_t n)
{
    return outside(geometry(f), fence.cuboid, tarn::safety_joints(q), tarn::safety_sphere_count(n));
}

int relation_of(SafetyFamily f, const float* q, int n, const float* p1, const float* p2, const float* p3)
{
    if (!p1 || !p2 || !p3) return 0;
    return relation(geometry(f), tarn::safety_joints(q), tarn::safety_sphere_count(n), v3_load(p1), v3_load(p2),
                    v3_load(p3));
}

}  // namespace

int is_Robot_inside_ax61(FenceShape f, const float* q, uint32_t n) { return inside_of(SafetyFamily::kAX61, f, q, n); }
int is_Robot_inside_ax71(FenceShape f, const float* q, uint32_t n) { return inside_of(SafetyFamily::kAX71, f, q, n); }
int is_Robot_inside_al64II(FenceShape f, const float* q, uint32_t n) { return inside_of(SafetyFamily::kAL64II, f, q, n); }
int is_Robot_inside_lum61(FenceShape f, const float* q, uint32_t n) { return inside_of(SafetyFamily::kLUM61, f, q, n); }
int is_Robot_inside_tor77(FenceShape f, const float* q, uint32_t n) { return inside_of(SafetyFamily::kTOR77, f, q, n); }

int is_Robot_outside_ax61(FenceShape f, const float* q, uint32_t n) { return outside_of(SafetyFamily::kAX61, f, q, n); }
int is_Robot_outside_ax71(FenceShape f, const float* q, uint32_t n) { return outside_of(SafetyFamily::kAX71, f, q, n); }
int is_Robot_outside_al64II(FenceShape f, const float* q, uint32_t n)
{
    return outside_of(SafetyFamily::kAL64II, f, q, n);
}
int is_Robot_outside_lum61(FenceShape f, const float* q, uint32_t n) { return outside_of(SafetyFamily::kLUM61, f, q, n); }
int is_Robot_outside_tor77(FenceShape f, const float* q, uint32_t n) { return outside_of(SafetyFamily::kTOR77, f, q, n); }

int relation_of_AX61_and_plane(const float* q, int n, const float p1[3], const float p2[3], const float p3[3])
{
    return relation_of(SafetyFamily::kAX61, q, n, p1, p2, p3);
}
int relation_of_AX71_and_plane(const float* q, int n, const float p1[3], const float p2[3], const float p3[3])
{
    return relation_of(SafetyFamily::kAX71, q, n, p1, p2, p3);
}
int relation_of_AL64II_and_plane(const float* q, int n, const float p1[3], const float p2[3], const float p3[3])
{
    return relation_of(SafetyFamily::kAL64II, q, n, p1, p2, p3);
}
int relation_of_LUM61_and_plane(const float* q, int n, const float p1[3], const float p2[3], const float p3[3])
{
    return relation_of(SafetyFamily::kLUM61, q, n, p1, p2, p3);
}
int relation_of_TOR77_and_plane(const float* q, int n, const float p1[3], const float p2[3], const float p3[3])
{
    return relation_of(SafetyFamily::kTOR77, q, n, p1, p2, p3);
}

float isCollision_cuboid_fence_tool_AX61(const float* q) { return cuboid_clearance(geometry(SafetyFamily::kAX61), q); }
float isCollision_cuboid_fence_tool_AX71(const float* q) { return cuboid_clearance(geometry(SafetyFamily::kAX71), q); }
float isCollision_cuboid_fence_tool_AL64II(const float* q)
{
    return cuboid_clearance(geometry(SafetyFamily::kAL64II), q);
}
float isCollision_cuboid_fence_tool_LUM61(const float* q) { return cuboid_clearance(geometry(SafetyFamily::kLUM61), q); }
float isCollision_cuboid_fence_tool_TOR77(const float* q) { return cuboid_clearance(geometry(SafetyFamily::kTOR77), q); }

float isCollision_singlefence_tool_AX61(const float* q) { return plane_clearance(geometry(SafetyFamily::kAX61), q); }
float isCollision_singlefence_tool_AX71(const float* q) { return plane_clearance(geometry(SafetyFamily::kAX71), q); }
float isCollision_singlefence_tool_AX64II(const float* q) { return plane_clearance(geometry(SafetyFamily::kAL64II), q); }
float isCollision_singlefence_tool_LUM61(const float* q) { return plane_clearance(geometry(SafetyFamily::kLUM61), q); }
float isCollision_singlefence_tool_TOR77(const float* q) { return plane_clearance(geometry(SafetyFamily::kTOR77), q); }

float isCollision_fence_tool(const float* q)
{
    const SafetyFamily family = tarn::safety_family_of(libalgo_get_robot_type());
    if (family == SafetyFamily::kNone) return tarn::kClearanceCap;
    switch (fence_para.type) {
    case LIBALGO_FENCE_CUBOID: return cuboid_clearance(geometry(family), q);
    case LIBALGO_FENCE_PLANE: return plane_clearance(geometry(family), q);
    default: return tarn::kClearanceCap;
    }
}

float fence_isCollision(const float* q, float ratio, float scale, float max_ratio)
{
    const float c = isCollision_fence_tool(q);
    return tarn::safety_clearance_ratio(c, tarn::safety_ratio_curve(false), ratio, scale, max_ratio, kFenceStop);
}

// Collision and safety: the self-collision check. Every pair of capsules and spheres that
// may meet is compared in a fixed order, and the check returns at the first contact, so
// that a colliding pose costs little. Neighbouring capsules, which always touch, are never
// compared.
#include <cmath>

#include "Algorithm/safety/tarn_safety_global.h"
#include "Algorithm/safety/tarn_safety_model.h"
#include "Algorithm/safety/tarn_safety_ratio.h"
#include "libalgo_model.h"

using tarn::SafetyFamily;
using tarn::SafetyGeometry;
using tarn::v3_load;

namespace {

// A pose whose self-clearance is below this counts as colliding in the one-shot check.
constexpr double kPoseContactClearance = 1e-5;
constexpr float kSelfCollisionStop = -1.0f;

// The least clearance so far, and whether a pair has come into contact.
struct Clearance {
    float c = tarn::kClearanceCap;
    // Takes distance - radius sum; true at contact, when the sum reaches the distance.
    bool contact(float distance, float radius_sum)
    {
        c = tarn::nan_min(c, distance - radius_sum);
        return radius_sum >= distance;
    }
};

float self_clearance(SafetyGeometry g, const float* q, int n)
{
    n = tarn::safety_sphere_count(n);
    q = tarn::safety_joints(q);
    _pay_load = libalgo_get_payload_params();
    const ToolLinkResult tool = tarn::safety_end_points(g, q, n);
    const tarn::CapsuleRadii& radii = tarn::safety_radii(g);

    // A: the joint capsules, then the tool spheres; B: the links, then the tool links.
    // Entries past those stay 0.
    float a[tarn::kRadiusList] = {};
    float b[tarn::kRadiusList] = {};
    for (int i = 0; i < tarn::kJointCapsules; ++i) a[i] = radii.joint[i];
    for (int t = 0; t < n; ++t) a[tarn::kFirstToolSphere + t] = tool_spheres_para[t].r;
    for (int m = 0; m < radii.links; ++m) b[m] = radii.link[m];
    for (int k = 0; k < tool.tool_link_num; ++k) b[radii.links + k] = tool.tool_link_radius[k];
    const int last_sphere = tarn::kFirstToolSphere + n;  // one past
    const int first_tool_link = radii.links;
    const int last_tool_link = first_tool_link + tool.tool_link_num;  // one past

    // Each capsule is compared many times: its segment data once.
    tarn::GeoSegment joint[tarn::kJointCapsules], link[tarn::kRadiusList];
    for (int k = 0; k < tarn::kJointCapsules; ++k) joint[k] = tarn::geo_segment(v3_load(PJA[k]), v3_load(PJB[k]));
    for (int m = 0; m < last_tool_link; ++m) link[m] = tarn::geo_segment(v3_load(PLA[m]), v3_load(PLB[m]));

    Clearance c;
    // Joint capsules against the joint capsules and tool spheres past their neighbour.
    for (int k = 0; k < tarn::kJointCapsules; ++k) {
        for (int j = k + 2; j < last_sphere; ++j) {
            const float d = j < tarn::kJointCapsules ? tarn::geo_segment_segment(joint[k], joint[j])
                                                     : tarn::geo_point_segment(v3_load(PJA[j]), joint[k]);
            if (c.contact(d, a[k] + a[j])) return c.c;
        }
    }
    // Link capsules against the joint capsules they don't connect, the tool spheres and
    // the tool link capsules.
    for (int m = 0; m < radii.links; ++m) {
        const tarn::LinkPairs& pairs = radii.pairs[m];
        for (int j = 0; j < tarn::kJointCapsules; ++j) {
            if (j == pairs.connects_a || j == pairs.connects_b) continue;
            if (c.contact(tarn::geo_segment_segment(link[m], joint[j]), b[m] + a[j])) return c.c;
        }
        if (pairs.spheres) {
            for (int j = tarn::kFirstToolSphere; j < last_sphere; ++j)
                if (c.contact(tarn::geo_point_segment(v3_load(PJA[j]), link[m]), b[m] + a[j])) return c.c;
        }
        if (pairs.tool_links) {
            // The radius is the one at the tool link capsule's own index in list A (tool
            // sphere radii, zero past the last), not its entry in B: so the controller's
            // model has it, and the clearances it reports must agree with ours.
            for (int z = first_tool_link; z < last_tool_link; ++z)
                if (c.contact(tarn::geo_segment_segment(link[m], link[z]), b[m] + a[z])) return c.c;
        }
    }
    return c.c;
}

float family_clearance(SafetyFamily family, const float* q, int n)
{
    return self_clearance(tarn::safety_geometry_of(family), q, n);
}

}  // namespace

float isCollision_self_tool_AX61(const float* q, int n) { return family_clearance(SafetyFamily::kAX61, q, n); }
float isCollision_self_tool_AX71(const float* q, int n) { return family_clearance(SafetyFamily::kAX71, q, n); }
float isCollision_self_tool_AL64II(const float* q, int n) { return family_clearance(SafetyFamily::kAL64II, q, n); }
float isCollision_self_tool_LUM61(const float* q, int n) { return family_clearance(SafetyFamily::kLUM61, q, n); }
float isCollision_self_tool_TOR77(const float* q, int n) { return family_clearance(SafetyFamily::kTOR77, q, n); }

float isCollision_self_tool(const float* q)
{
    const int n = update_ToolSpheresModel();
    const SafetyFamily family = tarn::safety_family_of(libalgo_get_robot_type());
    if (family == SafetyFamily::kNone) return tarn::kClearanceCap;
    return family_clearance(family, q, n);
}

float self_Collision(const float* q, float ratio, float scale, float max_ratio)
{
    const float c = isCollision_self_tool(q);
    return tarn::safety_clearance_ratio(c, tarn::safety_ratio_curve(true), ratio, scale, max_ratio,
                                        kSelfCollisionStop);
}

int safety_robot_self_collision_detection(const float* q)
{
    if (!q) return 1;
    float lo[LIBALGO_MAX_JOINTS], hi[LIBALGO_MAX_JOINTS];
    libalgo_get_jointlim_min(lo);
    libalgo_get_jointlim_max(hi);
    const int dof = libalgo_get_rbt_dof();
    for (int i = 0; i < dof && i < LIBALGO_MAX_JOINTS; ++i)
        if (!(q[i] >= lo[i] && q[i] <= hi[i])) return 1;  // NaN counts as out of range
    return static_cast<double>(isCollision_self_tool(q)) < kPoseContactClearance ? 1 : 0;
}

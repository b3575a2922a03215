// Collision and safety: the capsule model of each arm family. The exported
// calc_all_end_points_*, calc_joint_points_*, standard_dh, modified_dh and T_eye are in
// include/libalgo_safety.h; this header gives the self-collision and fence checks the
// family of a model, the radii and comparison rules of its capsules, and the end points.
#pragma once

#include <cstdint>

#include "Algorithm/safety/tarn_safety_geometry.h"
#include "libalgo_safety.h"

namespace tarn {

/* -----------------------------------------------------------------------------
 * Families and geometries
 * -------------------------------------------------------------------------- */

// The collision families, each with its own check functions.
enum class SafetyFamily { kNone, kAX61, kAX71, kAL64II, kLUM61, kTOR77 };
// The capsule layouts; LUM66 is a layout of the LUM61 family.
enum class SafetyGeometry { kAX61, kAX71, kAL64II, kLUM61, kLUM66, kTOR77 };

// By the model's robot type: AX61; AX71; AL64II, AL64IV; LUM61, LUM66, LUM67; TOR77,
// TOR77II; kNone for every other value.
SafetyFamily safety_family_of(int robot_type);
// The family's layout for the model: LUM66's for the LUM61 family on a LUM66 model.
SafetyGeometry safety_geometry_of(SafetyFamily family);

/* -----------------------------------------------------------------------------
 * Capsules
 * -------------------------------------------------------------------------- */

inline constexpr int kJointCapsules = LIBALGO_ARM_JOINT_CAPSULES;
inline constexpr int kMaxArmLinks = LIBALGO_ARM_LINK_CAPSULES_MAX;
inline constexpr int kToolSpheres = LIBALGO_TOOL_SPHERES;
// PJA, PJB: the tool sphere centres follow the joint capsules.
inline constexpr int kFirstToolSphere = kJointCapsules;
// Radius lists of the pair checks: the joint (or link) capsules, then one entry per tool
// sphere (or tool link capsule), and a zero entry, which the tool link capsules of the
// five-link families reach through their index.
inline constexpr int kRadiusList = kMaxArmLinks + kToolSpheres;

// What link capsule m is compared with in the self-collision check: every joint capsule
// but the two it connects, the tool spheres when `spheres`, and the tool link capsules
// when `tool_links`.
struct LinkPairs {
    int8_t connects_a, connects_b;
    bool spheres;
    bool tool_links;
};

struct CapsuleRadii {
    int links;  // arm link capsules: 4, or 5 (AL64II, LUM61, LUM66); tool links follow
    float joint[kJointCapsules];
    float link[kMaxArmLinks];
    LinkPairs pairs[kMaxArmLinks];
};

const CapsuleRadii& safety_radii(SafetyGeometry g);

// Sphere count as the arrays can hold it: below 0 counts as 0, above five as five.
int safety_sphere_count(int64_t n);

// Joints of the layout's chain: 6 or 7.
int safety_chain_joints(SafetyGeometry g);

// q itself, or for a null pointer a joint array of NaNs.
const float* safety_joints(const float* q);

// calc_all_end_points_* of a layout: PJA, PJB, PLA, PLB from q and the first n tool
// spheres (n already within 0..5); returns the tool link record.
ToolLinkResult safety_end_points(SafetyGeometry g, const float* q, int n);
// calc_joint_points_* of a layout: PJA_min, PJB_max.
void safety_joint_points(SafetyGeometry g, const float* q, int n);

}  // namespace tarn

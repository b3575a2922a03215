// Collision and safety: the capsule layouts of the arm families and their end points.
//
// Each family is a table: the frame of each capsule, its two ends in that frame and its
// radius. An end is a constant point plus, where it follows the arm's size, up to two DH
// lengths along given axes, so that a changed DH table moves the capsules with the links.
// T[i] is the installation times the first i + 1 link transforms (modified DH, standard
// for AX71 as in its kinematics), built once per call; the joint capsules sit on the
// joints' axes and each link capsule runs between the two joint capsules it connects,
// inset by their radii, so that neighbours meet without being compared.
#include "Algorithm/safety/tarn_safety_model.h"

#include <cmath>
#include <iterator>
#include <limits>

#include "Algorithm/kinematics/tarn_kinematic.h"
#include "Algorithm/math/tarn_mathfuncs.h"
#include "Algorithm/safety/tarn_safety_global.h"
#include "libalgo_model.h"

using tarn::KinFrame;
using tarn::KinVec3;

namespace {

/* -----------------------------------------------------------------------------
 * Table form
 * -------------------------------------------------------------------------- */

constexpr int kMaxChainLinks = 7;
constexpr int kInstallFrame = -1;  // link 0 stands on the base, in the installation frame

enum class DhLength : uint8_t { kNone, kD, kA };

// dir times one DH length: d[index] or a[index].
struct DhTerm {
    DhLength length;
    uint8_t index;
    KinVec3 dir;
};

// A capsule end in its frame: at + the two terms.
struct LocalEnd {
    KinVec3 at;
    DhTerm t0{DhLength::kNone, 0, {0, 0, 0}};
    DhTerm t1{DhLength::kNone, 0, {0, 0, 0}};
};

struct CapsuleSpec {
    int frame;  // index into T, or kInstallFrame
    LocalEnd first, second;
};

struct JointSpec {
    int frame;
    LocalEnd first, second;  // on the joint's axis
    // Unit direction across the axis, toward the link that leaves the joint: the inside
    // test of fences spans the capsule from (first - radius side) to (second + radius side).
    KinVec3 side;
};

struct Layout {
    int chain_links;  // 6 or 7; the flange is T[chain_links - 1]
    bool standard_dh;
    JointSpec joint[tarn::kJointCapsules];
    CapsuleSpec link[tarn::kMaxArmLinks];
    tarn::CapsuleRadii radii;
};

constexpr KinVec3 kX{1, 0, 0}, kY{0, 1, 0}, kZ{0, 0, 1};
constexpr KinVec3 kNegY{0, -1, 0}, kNegZ{0, 0, -1};

constexpr LocalEnd at(float x, float y, float z) { return {{x, y, z}}; }
constexpr LocalEnd at(float x, float y, float z, DhTerm t0, DhTerm t1 = {DhLength::kNone, 0, {0, 0, 0}})
{
    return {{x, y, z}, t0, t1};
}
constexpr DhTerm d_along(int i, KinVec3 dir) { return {DhLength::kD, static_cast<uint8_t>(i), dir}; }
constexpr DhTerm a_along(int i, KinVec3 dir) { return {DhLength::kA, static_cast<uint8_t>(i), dir}; }

// A joint capsule from local z (or y) first to second.
constexpr JointSpec along_z(int frame, float first, float second, KinVec3 side)
{
    return {frame, at(0, 0, first), at(0, 0, second), side};
}
constexpr JointSpec along_y(int frame, float first, float second, KinVec3 side)
{
    return {frame, at(0, first, 0), at(0, second, 0), side};
}

// Link 0 of every family: from the base origin up the installation's z axis to the
// shoulder capsule, d[0] less its radius.
constexpr CapsuleSpec base_link(float shoulder_radius)
{
    return {kInstallFrame, at(0, 0, 0), at(0, 0, -shoulder_radius, d_along(0, kZ))};
}

// Link m connects joint capsules m - 1 and m; all but the last link are also compared
// with the tool link capsules.
constexpr tarn::LinkPairs chain_pairs(int m, int last)
{
    return {static_cast<int8_t>(m - 1), static_cast<int8_t>(m), true, m != last};
}

/* -----------------------------------------------------------------------------
 * AX61: six axes, modified DH. Joint capsules on the shoulder (T[1]), elbow (T[2]),
 * wrist (T[4]) and flange (T[5]), all along local z.
 * -------------------------------------------------------------------------- */

constexpr float kAx61JointR[4] = {0.0405f, 0.034f, 0.03f, 0.03f};
constexpr float kAx61LinkR[4] = {0.055f, 0.04f, 0.03f, 0.03f};
constexpr float kAx61FlangeDepth = 0.029f;  // the flange capsule's inner end on local z

constexpr Layout kAx61{
    6,
    false,
    {along_z(1, -0.05301f, 0.03369f, kY), along_z(2, -0.0552f, 0.03222f, kY), along_z(4, -0.04463f, 0.03129f, kY),
     along_z(5, -kAx61FlangeDepth, 0.0f, kY)},
    {base_link(kAx61JointR[0]),
     // upper arm along x of the shoulder frame, a[2] long
     {1, at(kAx61JointR[0], 0, 0), at(-kAx61JointR[1], 0, 0, a_along(2, kX))},
     // forearm along -y of the elbow frame, d[3] long
     {2, at(0, -kAx61JointR[1], 0), at(0, kAx61JointR[2], 0, d_along(3, kNegY))},
     // wrist to flange along -y of the wrist frame, d[5] long
     {4, at(0, -kAx61JointR[2], 0), at(0, kAx61FlangeDepth, 0, d_along(5, kNegY))}},
    {4,
     {kAx61JointR[0], kAx61JointR[1], kAx61JointR[2], kAx61JointR[3]},
     {kAx61LinkR[0], kAx61LinkR[1], kAx61LinkR[2], kAx61LinkR[3]},
     {chain_pairs(0, 3), chain_pairs(1, 3), chain_pairs(2, 3), chain_pairs(3, 3)}},
};

/* -----------------------------------------------------------------------------
 * AX71: seven axes, standard DH, so the frame after a joint carries the next joint's
 * axis as its z. The AX61 constants, with the pitch joints' capsules along local y of
 * T[1], T[3], T[5] and the flange along z of T[6]; the links run along local z.
 * -------------------------------------------------------------------------- */

constexpr Layout kAx71{
    7,
    true,
    {along_y(1, -0.05301f, 0.03369f, kZ), along_y(3, -0.0552f, 0.03222f, kZ), along_y(5, -0.04463f, 0.03129f, kZ),
     along_z(6, -kAx61FlangeDepth, 0.0f, kY)},
    {base_link(kAx61JointR[0]),
     {1, at(0, 0, kAx61JointR[0]), at(0, 0, -kAx61JointR[1], d_along(2, kZ))},
     {3, at(0, 0, kAx61JointR[1]), at(0, 0, -kAx61JointR[2], d_along(4, kZ))},
     {5, at(0, 0, kAx61JointR[2]), at(0, 0, -kAx61FlangeDepth, d_along(6, kZ))}},
    kAx61.radii,
};

/* -----------------------------------------------------------------------------
 * AL64II: six axes, modified DH, an elbow offset a[3] and an upper arm that runs beside
 * the joints. Joint capsules on T[1], T[2], T[4], T[5] along local z; five links in the
 * base, T[1], T[2], T[4], T[3].
 * -------------------------------------------------------------------------- */

constexpr float kAl64JointR[4] = {0.042f, 0.036f, 0.0285f, 0.0285f};
constexpr float kAl64LinkR[5] = {0.055f, 0.042f, 0.035f, 0.029f, 0.027f};
constexpr float kAl64UpperArmZ = -0.073f;   // the upper arm's offset from the joints' plane
constexpr float kAl64ElbowReach = 0.15f;    // the elbow housing reaches this far along the forearm
constexpr float kAl64FlangeDepth = 0.029f;  // the flange capsule's inner end on local z

constexpr Layout kAl64ii{
    6,
    false,
    {along_z(1, -0.115f, 0.008f, kY), along_z(2, -0.108f, 0.024f, kY), along_z(4, -0.081f, 0.019f, kY),
     along_z(5, -kAl64FlangeDepth, 0.0f, kY)},
    {base_link(kAl64JointR[0]),
     {1, at(kAl64JointR[0], 0, kAl64UpperArmZ), at(-kAl64JointR[1], 0, kAl64UpperArmZ, a_along(2, kX))},
     // elbow housing: from the elbow capsule along -y (the forearm's way) to where the
     // forearm begins, across the elbow offset a[3]
     {2, at(0, -kAl64JointR[1], 0), at(0, -kAl64ElbowReach, 0, a_along(3, kX))},
     // wrist to flange along +y of the wrist frame, d[5] long
     {4, at(0, kAl64JointR[2], 0), at(0, -kAl64FlangeDepth, 0, d_along(5, kY))},
     // forearm on the forearm roll axis (z of T[3], origin at the wrist centre), from the
     // elbow housing's end to the wrist capsule
     {3, at(0, 0, kAl64ElbowReach, d_along(3, kNegZ)), at(0, 0, -kAl64JointR[2])}},
    {5,
     {kAl64JointR[0], kAl64JointR[1], kAl64JointR[2], kAl64JointR[3]},
     {kAl64LinkR[0], kAl64LinkR[1], kAl64LinkR[2], kAl64LinkR[3], kAl64LinkR[4]},
     // the forearm (link 4) connects the elbow and the wrist: compared with the shoulder
     // and the flange only, and with no tool part
     {chain_pairs(0, 3), chain_pairs(1, 3), chain_pairs(2, 3), chain_pairs(3, 3), {1, 2, false, false}}},
};

/* -----------------------------------------------------------------------------
 * LUM61 and LUM66: six axes, modified DH, three parallel pitch axes (shoulder, elbow,
 * wrist 1) and a wrist offset d[3] along them. Joint capsules on the shoulder (T[1]),
 * elbow (T[2]), wrist 2 (T[4]) and flange (T[5]) along local z; five links in the base,
 * T[1] (upper arm), T[2] (forearm), T[3] (wrist 1 up to wrist 2), T[4] (wrist 2 to the
 * flange).
 * -------------------------------------------------------------------------- */

// The last link connects wrist 2 and the flange, so it is not compared with either (the
// wrist 2 capsule lies in the same frame and would always touch it); it meets the
// shoulder, the elbow and the tool spheres, and no tool link capsule.
constexpr tarn::LinkPairs kLumWristLinkPairs{2, 3, true, false};

constexpr float kLum61JointR[4] = {0.042f, 0.036f, 0.035f, 0.0295f};
constexpr float kLum61LinkR[5] = {0.055f, 0.045f, 0.0375f, 0.029f, 0.029f};
constexpr float kLum61Wrist2Start = -0.03f;   // the wrist 2 capsule's near end on local z
constexpr float kLum61UpperArmZ = -0.0503f;   // the upper arm's offset along the pitch axes
constexpr float kLum61ForearmInset = 0.035f;  // the forearm stops short of wrist 1 by this
constexpr float kLum61FlangeDepth = 0.0295f;  // the flange capsule's inner end on local z

// The forearm runs in the plane of wrist 1, d[3] along the pitch axes, from the elbow
// capsule; wrist 1 to wrist 2 runs up -y of T[3] to the wrist 2 capsule's near end; wrist 2
// to the flange along +y of T[4] from the wrist 2 capsule to the flange capsule.
constexpr Layout kLum61{
    6,
    false,
    {along_z(1, -0.0953f, 0.02f, kY), along_z(2, -0.0716f, 0.0293f, kX), along_z(4, kLum61Wrist2Start, 0.1005f, kY),
     along_z(5, -kLum61FlangeDepth, 0.0f, kY)},
    {base_link(kLum61JointR[0]),
     {1, at(kLum61JointR[0], 0, kLum61UpperArmZ), at(-kLum61JointR[1], 0, kLum61UpperArmZ, a_along(2, kX))},
     {2, at(kLum61JointR[1], 0, 0, d_along(3, kZ)), at(-kLum61ForearmInset, 0, 0, a_along(3, kX), d_along(3, kZ))},
     {3, at(0, 0, 0), at(0, -kLum61Wrist2Start, 0, d_along(4, kNegY))},
     {4, at(0, kLum61JointR[2], 0), at(0, -kLum61FlangeDepth, 0, d_along(5, kY))}},
    {5,
     {kLum61JointR[0], kLum61JointR[1], kLum61JointR[2], kLum61JointR[3]},
     {kLum61LinkR[0], kLum61LinkR[1], kLum61LinkR[2], kLum61LinkR[3], kLum61LinkR[4]},
     {chain_pairs(0, 4), chain_pairs(1, 4), chain_pairs(2, 4), chain_pairs(3, 4), kLumWristLinkPairs}},
};

constexpr float kLum66JointR[4] = {0.033f, 0.033f, 0.0245f, 0.0245f};
constexpr float kLum66Wrist2Start = -0.023f;
// The upper arm at the same share of the wrist offset d[3] as LUM61's:
// -0.0503 * 0.0585 / 0.05888.
constexpr float kLum66UpperArmZ = -0.05f;
constexpr float kLum66ForearmInset = 0.035f;
constexpr float kLum66FlangeDepth = 0.0245f;

constexpr Layout kLum66{
    6,
    false,
    {along_z(1, -0.08f, 0.017f, kY), along_z(2, -0.0716f, 0.023f, kX), along_z(4, kLum66Wrist2Start, 0.075f, kY),
     along_z(5, -kLum66FlangeDepth, 0.0f, kY)},
    {base_link(kLum66JointR[0]),
     {1, at(kLum66JointR[0], 0, kLum66UpperArmZ), at(-kLum66JointR[1], 0, kLum66UpperArmZ, a_along(2, kX))},
     {2, at(kLum66JointR[1], 0, 0, d_along(3, kZ)), at(-kLum66ForearmInset, 0, 0, a_along(3, kX), d_along(3, kZ))},
     {3, at(0, 0, 0), at(0, -kLum66Wrist2Start, 0, d_along(4, kNegY))},
     {4, at(0, kLum66JointR[2], 0), at(0, -kLum66FlangeDepth, 0, d_along(5, kY))}},
    {5,
     {kLum66JointR[0], kLum66JointR[1], kLum66JointR[2], kLum66JointR[3]},
     {kLum61LinkR[0], kLum61LinkR[1], kLum61LinkR[2], kLum61LinkR[3], kLum61LinkR[4]},
     {chain_pairs(0, 4), chain_pairs(1, 4), chain_pairs(2, 4), chain_pairs(3, 4), kLumWristLinkPairs}},
};

/* -----------------------------------------------------------------------------
 * TOR77: seven axes, modified DH, with offsets at the elbow (a[3], a[4]) and between the
 * last two joints (a[6]). Joint capsules on the shoulder (T[1]), elbow (T[3]), wrist
 * (T[5]) and flange (T[6]) along local z; links in the base, T[1], T[4], T[6].
 * -------------------------------------------------------------------------- */

constexpr float kTor77JointR[4] = {0.045f, 0.045f, 0.032f, 0.032f};
constexpr float kTor77LinkR[4] = {0.055f, 0.045f, 0.032f, 0.032f};
constexpr float kTor77FlangeDepth = 0.04f;  // the flange capsule's inner end on local z
// The last link starts this far along the flange axis from the corner of the a[6]
// offset, where it meets the wrist capsule.
constexpr float kTor77WristInset = 0.016f;

constexpr Layout kTor77{
    7,
    false,
    {along_z(1, -0.045f, 0.045f, kY), along_z(3, -0.038f, 0.038f, kY), along_z(5, -0.035f, 0.035f, kX),
     along_z(6, -kTor77FlangeDepth, 0.0f, kY)},
    {base_link(kTor77JointR[0]),
     // upper arm on the upper arm roll axis, -y of the shoulder frame, d[2] long
     {1, at(0, -kTor77JointR[0], 0), at(0, kTor77JointR[1], 0, d_along(2, kNegY))},
     // forearm on the forearm roll axis, z of T[4] whose origin is the wrist, d[4] long
     {4, at(0, 0, kTor77JointR[1], d_along(4, kNegZ)), at(0, 0, -kTor77JointR[2])},
     // wrist to flange on the flange axis, z of T[6], d[6] long
     {6, at(0, 0, kTor77WristInset, d_along(6, kNegZ)), at(0, 0, -kTor77FlangeDepth)}},
    {4,
     {kTor77JointR[0], kTor77JointR[1], kTor77JointR[2], kTor77JointR[3]},
     {kTor77LinkR[0], kTor77LinkR[1], kTor77LinkR[2], kTor77LinkR[3]},
     {chain_pairs(0, 3), chain_pairs(1, 3), chain_pairs(2, 3), chain_pairs(3, 3)}},
};

const Layout& layout_of(tarn::SafetyGeometry g)
{
    switch (g) {
    case tarn::SafetyGeometry::kAX61: return kAx61;
    case tarn::SafetyGeometry::kAX71: return kAx71;
    case tarn::SafetyGeometry::kAL64II: return kAl64ii;
    case tarn::SafetyGeometry::kLUM61: return kLum61;
    case tarn::SafetyGeometry::kLUM66: return kLum66;
    case tarn::SafetyGeometry::kTOR77: return kTor77;
    }
    return kAx61;
}

/* -----------------------------------------------------------------------------
 * Chain and end points
 * -------------------------------------------------------------------------- */

// A single tool sphere, or the first of several, joins the flange through a capsule
// when it lies farther than this plus its own radius from the flange centre.
constexpr float kFlangeRadius = 0.03f;
// A tool link capsule's radius is this share of the two radii it joins.
constexpr float kToolLinkRadiusShare = 0.5f;

// A twist this near 0, +-pi/2 or +-pi takes exact cosine and sine. The axes of the
// nominal geometry then have exact zero components, so the capsule ends of a horizontal
// axis share their z exactly; the segment parameter test, which takes the last non-zero
// coordinate offset, would otherwise divide rounding noise by rounding noise.
constexpr double kNominalTwist = 1e-5;

void twist_sin_cos(float alpha, float* s, float* c)
{
    constexpr double kNominal[] = {0.0, tarn::kHalfPi, -tarn::kHalfPi, tarn::kPi, -tarn::kPi};
    constexpr float kSin[] = {0.0f, 1.0f, -1.0f, 0.0f, 0.0f};
    constexpr float kCos[] = {1.0f, 0.0f, 0.0f, -1.0f, -1.0f};
    for (size_t i = 0; i < std::size(kNominal); ++i) {
        if (std::fabs(static_cast<double>(alpha) - kNominal[i]) < kNominalTwist) {
            *s = kSin[i];
            *c = kCos[i];
            return;
        }
    }
    ::sincosf(alpha, s, c);
}

KinFrame mdh_frame(float theta, float d, float a, float alpha)
{
    float st, ct, sa, ca;
    ::sincosf(theta, &st, &ct);
    twist_sin_cos(alpha, &sa, &ca);
    return {{ct, st * ca, st * sa}, {-st, ct * ca, ct * sa}, {0.0f, -sa, ca}, {a, -d * sa, d * ca}};
}

KinFrame sdh_frame(float theta, float d, float a, float alpha)
{
    float st, ct, sa, ca;
    ::sincosf(theta, &st, &ct);
    twist_sin_cos(alpha, &sa, &ca);
    return {{ct, st, 0.0f}, {-ca * st, ca * ct, sa}, {sa * st, -sa * ct, ca}, {a * ct, a * st, d}};
}

struct Chain {
    KinFrame install;
    KinFrame t[kMaxChainLinks];
    DH dh;
    const KinFrame& frame(int i) const { return i == kInstallFrame ? install : t[i]; }
    const KinFrame& flange(const Layout& l) const { return t[l.chain_links - 1]; }
};

Chain build_chain(const Layout& l, const float* q)
{
    Chain c;
    c.dh = libalgo_get_dh_value();
    c.install = tarn::kin_frame_of(libalgo_get_robot_install_angle_matrix());
    KinFrame t = c.install;
    for (int i = 0; i < l.chain_links; ++i) {
        const float theta = q[i] + c.dh.offset[i];
        const KinFrame link = l.standard_dh ? sdh_frame(theta, c.dh.d[i], c.dh.a[i], c.dh.alpha[i])
                                            : mdh_frame(theta, c.dh.d[i], c.dh.a[i], c.dh.alpha[i]);
        t = tarn::kin_compose(t, link);
        c.t[i] = t;
    }
    return c;
}

float dh_length(const DH& dh, const DhTerm& term)
{
    switch (term.length) {
    case DhLength::kD: return dh.d[term.index];
    case DhLength::kA: return dh.a[term.index];
    case DhLength::kNone: break;
    }
    return 0.0f;
}

KinVec3 local_point(const DH& dh, const LocalEnd& e)
{
    KinVec3 p = e.at;
    if (e.t0.length != DhLength::kNone) p = p + dh_length(dh, e.t0) * e.t0.dir;
    if (e.t1.length != DhLength::kNone) p = p + dh_length(dh, e.t1) * e.t1.dir;
    return p;
}

void store(KinVec3 p, VEC3 out)
{
    out[0] = p.x;
    out[1] = p.y;
    out[2] = p.z;
}

KinVec3 sphere_offset(const ToolSphere& s) { return {s.x, s.y, s.z}; }

float length(KinVec3 v) { return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z); }

}  // namespace

/* -----------------------------------------------------------------------------
 * Internal interface
 * -------------------------------------------------------------------------- */

namespace tarn {

SafetyFamily safety_family_of(int robot_type)
{
    switch (robot_type) {
    case AX61: return SafetyFamily::kAX61;
    case AX71: return SafetyFamily::kAX71;
    case AL64II:
    case AL64IV: return SafetyFamily::kAL64II;
    case LUM61:
    case LUM66:
    case LUM67: return SafetyFamily::kLUM61;
    case TOR77:
    case TOR77II: return SafetyFamily::kTOR77;
    default: return SafetyFamily::kNone;
    }
}

SafetyGeometry safety_geometry_of(SafetyFamily family)
{
    switch (family) {
    case SafetyFamily::kAX71: return SafetyGeometry::kAX71;
    case SafetyFamily::kAL64II: return SafetyGeometry::kAL64II;
    case SafetyFamily::kLUM61:
        return libalgo_get_robot_type() == LUM66 ? SafetyGeometry::kLUM66 : SafetyGeometry::kLUM61;
    case SafetyFamily::kTOR77: return SafetyGeometry::kTOR77;
    case SafetyFamily::kAX61:
    case SafetyFamily::kNone: break;
    }
    return SafetyGeometry::kAX61;
}

const CapsuleRadii& safety_radii(SafetyGeometry g) { return layout_of(g).radii; }

int safety_chain_joints(SafetyGeometry g) { return layout_of(g).chain_links; }

int safety_sphere_count(int64_t n) { return n < 0 ? 0 : (n > kToolSpheres ? kToolSpheres : static_cast<int>(n)); }

const float* safety_joints(const float* q)
{
    static const float kNaNJoints[LIBALGO_MAX_JOINTS] = {
        std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::quiet_NaN(),
        std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::quiet_NaN(),
        std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::quiet_NaN(),
        std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::quiet_NaN()};
    return q ? q : kNaNJoints;
}

ToolLinkResult safety_end_points(SafetyGeometry g, const float* q, int n)
{
    const Layout& l = layout_of(g);
    const Chain c = build_chain(l, q);
    for (int i = 0; i < kJointCapsules; ++i) {
        const JointSpec& j = l.joint[i];
        store(kin_transform_point(c.frame(j.frame), local_point(c.dh, j.first)), PJA[i]);
        store(kin_transform_point(c.frame(j.frame), local_point(c.dh, j.second)), PJB[i]);
    }
    for (int i = 0; i < l.radii.links; ++i) {
        const CapsuleSpec& s = l.link[i];
        // The base link starts at the base origin itself.
        const KinVec3 first = s.frame == kInstallFrame ? KinVec3{0, 0, 0}
                                                        : kin_transform_point(c.frame(s.frame), local_point(c.dh, s.first));
        store(first, PLA[i]);
        store(kin_transform_point(c.frame(s.frame), local_point(c.dh, s.second)), PLB[i]);
    }

    // Tool spheres, and a capsule wherever two neighbours (the flange first) leave a gap.
    ToolLinkResult result{};
    const KinFrame& flange = c.flange(l);
    KinVec3 prev_centre = flange.p;
    float prev_radius = kFlangeRadius;
    for (int t = 0; t < n; ++t) {
        const ToolSphere& s = tool_spheres_para[t];
        const KinVec3 centre = kin_transform_point(flange, sphere_offset(s));
        store(centre, PJA[kFirstToolSphere + t]);
        const float gap = t == 0 ? length(sphere_offset(s)) : length(centre + -prev_centre);
        const float reach = prev_radius + s.r;
        if (gap > reach) {
            const int z = l.radii.links + result.tool_link_num;
            store(prev_centre, PLA[z]);
            store(centre, PLB[z]);
            result.tool_link_radius[result.tool_link_num++] = reach * kToolLinkRadiusShare;
        }
        prev_centre = centre;
        prev_radius = s.r;
    }
    return result;
}

void safety_joint_points(SafetyGeometry g, const float* q, int n)
{
    const Layout& l = layout_of(g);
    const Chain c = build_chain(l, q);
    // The shoulder capsule stays out: it turns only about the base, near the fence's floor.
    for (int k = 0; k < LIBALGO_INSIDE_JOINT_PAIRS; ++k) {
        const JointSpec& j = l.joint[k + 1];
        const float r = l.radii.joint[k + 1];
        const KinFrame& f = c.frame(j.frame);
        store(kin_transform_point(f, local_point(c.dh, j.first) + -r * j.side), PJA_min[k]);
        store(kin_transform_point(f, local_point(c.dh, j.second) + r * j.side), PJB_max[k]);
    }
    const KinFrame& flange = c.flange(l);
    for (int t = 0; t < n; ++t)
        store(kin_transform_point(flange, sphere_offset(tool_spheres_para[t])), PJA_min[LIBALGO_INSIDE_JOINT_PAIRS + t]);
}

}  // namespace tarn

/* -----------------------------------------------------------------------------
 * Exported functions
 * -------------------------------------------------------------------------- */

namespace {

void end_points(tarn::SafetyGeometry g, ToolLinkResult* result, const float* q, int n)
{
    const ToolLinkResult r = tarn::safety_end_points(g, tarn::safety_joints(q), tarn::safety_sphere_count(n));
    if (result) *result = r;
}

void joint_points(tarn::SafetyGeometry g, const float* q, int n)
{
    tarn::safety_joint_points(g, tarn::safety_joints(q), tarn::safety_sphere_count(n));
}

Matrix matrix_of(const KinFrame& f) { return tarn::kin_transform_matrix(f); }

}  // namespace

Matrix standard_dh(float theta, float d, float a, float alpha) { return matrix_of(sdh_frame(theta, d, a, alpha)); }

Matrix modified_dh(float theta, float d, float a, float alpha) { return matrix_of(mdh_frame(theta, d, a, alpha)); }

Matrix T_eye(void) { return unit_matrix(4); }

using tarn::SafetyGeometry;

void calc_all_end_points_AX61(ToolLinkResult* r, const float* q, int n) { end_points(SafetyGeometry::kAX61, r, q, n); }
void calc_all_end_points_AX71(ToolLinkResult* r, const float* q, int n) { end_points(SafetyGeometry::kAX71, r, q, n); }
void calc_all_end_points_AL64II(ToolLinkResult* r, const float* q, int n)
{
    end_points(SafetyGeometry::kAL64II, r, q, n);
}
void calc_all_end_points_LUM61(ToolLinkResult* r, const float* q, int n) { end_points(SafetyGeometry::kLUM61, r, q, n); }
void calc_all_end_points_LUM66(ToolLinkResult* r, const float* q, int n) { end_points(SafetyGeometry::kLUM66, r, q, n); }
void calc_all_end_points_TOR77(ToolLinkResult* r, const float* q, int n) { end_points(SafetyGeometry::kTOR77, r, q, n); }

void calc_joint_points_AX61(const float* q, int n) { joint_points(SafetyGeometry::kAX61, q, n); }
void calc_joint_points_AX71(const float* q, int n) { joint_points(SafetyGeometry::kAX71, q, n); }
void calc_joint_points_AL64II(const float* q, int n) { joint_points(SafetyGeometry::kAL64II, q, n); }
void calc_joint_points_LUM61(const float* q, int n) { joint_points(SafetyGeometry::kLUM61, q, n); }
void calc_joint_points_LUM66(const float* q, int n) { joint_points(SafetyGeometry::kLUM66, q, n); }
void calc_joint_points_TOR77(const float* q, int n) { joint_points(SafetyGeometry::kTOR77, q, n); }

// Kinematics: forward kinematics per arm family, and the wrappers that apply the tool,
// installation and work frames of the robot model.
//
// The family functions sit in the planner's cycle, so each is the product of its link
// matrices written out at the family's nominal twists: every twist is 0 or +-pi/2, which
// turns each link into a selection and negation of columns, fixed at compile time. A
// family is a table of its links (twist, and which of a and d it reads); the product is
// unrolled over that table by the compiler, so no loop runs, no matrix library is called
// and nothing is allocated. Single-precision sincosf throughout.
#include "Algorithm/kinematics/tarn_kinematic.h"

#include <cmath>
#include <cstddef>
#include <iterator>
#include <utility>

using tarn::KinFrame;
using tarn::KinVec3;

namespace tarn {

Matrix kin_transform_matrix(const KinFrame& f)
{
    Matrix m{};
    m.irow = 4;
    m.iline = 4;
    const KinVec3 cols[4] = {f.c0, f.c1, f.c2, f.p};
    for (int j = 0; j < 4; ++j) {
        m.data[0][j] = cols[j].x;
        m.data[1][j] = cols[j].y;
        m.data[2][j] = cols[j].z;
    }
    m.data[3][3] = 1.0f;
    return m;
}

Matrix kin_rotation_matrix(const KinFrame& f)
{
    Matrix m = kin_transform_matrix(f);
    m.irow = 3;
    m.iline = 3;
    for (int i = 0; i < 4; ++i) m.data[i][3] = 0.0f;
    return m;
}

Matrix kin_position_matrix(const KinFrame& f)
{
    Matrix m{};
    m.irow = 3;
    m.iline = 1;
    m.data[0][0] = f.p.x;
    m.data[1][0] = f.p.y;
    m.data[2][0] = f.p.z;
    return m;
}

}  // namespace tarn

namespace {

/* -----------------------------------------------------------------------------
 * Links at nominal twists
 * -------------------------------------------------------------------------- */

enum class Twist : uint8_t { kZero, kPlusHalfPi, kMinusHalfPi };

// Modified (Craig) DH: link i = Rx(alpha_i) Tx(a_i) Rz(theta_i) Tz(d_i), the joint axis
// the z of the frame after the link. Standard DH: Rz(theta_i) Tz(d_i) Tx(a_i) Rx(alpha_i),
// the joint axis the z of the frame before it. AX71 is standard, every other family
// modified.
enum class Convention : uint8_t { kModified, kStandard };

// One link at its family's nominal geometry: the twist, and whether its a and d are read
// from the DH record. Lengths not read are nominally zero for the family.
struct NominalLink {
    Twist twist;
    bool reads_a;
    bool reads_d;
};

// Which part of F a call needs: the rotation alone needs no lengths, the position alone
// not the last joint's rotation.
enum class Need : uint8_t { kTransform, kRotation, kPosition };

struct Trig {
    float c, s;
};

Trig joint_trig(const DH& dh, const float* q, std::size_t i)
{
    const float theta = q[i] + dh.offset[i];
    Trig t;
    ::sincosf(theta, &t.s, &t.c);
    return t;
}

// With ca, sa the cosine and sine of the twist: u = ca x + sa y and w = -sa x + ca y,
// exact for a nominal twist.
template <Twist kTwist>
void twist_columns(const KinVec3& x, const KinVec3& y, KinVec3& u, KinVec3& w)
{
    if constexpr (kTwist == Twist::kZero) {
        u = x;
        w = y;
    } else if constexpr (kTwist == Twist::kPlusHalfPi) {
        u = y;
        w = -x;
    } else {
        u = -y;
        w = x;
    }
}

// t = t link(I) for link I of the table kLinks. kRot: the rotation columns are wanted;
// kPos: the origin is wanted.
template <Convention kConv, const auto& kLinks, std::size_t I, bool kRot, bool kPos>
void append_link(KinFrame& t, const DH& dh, const float* q)
{
    constexpr NominalLink kLink = kLinks[I];
    constexpr bool kLengthA = kPos && kLink.reads_a;
    constexpr bool kLengthD = kPos && kLink.reads_d;
    constexpr bool kTrig = kRot || (kConv == Convention::kStandard && kLengthA);
    Trig j{};
    if constexpr (kTrig) j = joint_trig(dh, q, I);

    if constexpr (kConv == Convention::kModified) {
        // Columns of t Rx(alpha): c0, u, w. Then Tx(a), Rz(theta), Tz(d).
        KinVec3 u, w;
        twist_columns<kLink.twist>(t.c1, t.c2, u, w);
        if constexpr (kLengthA) t.p = t.p + dh.a[I] * t.c0;
        if constexpr (kLengthD) t.p = t.p + dh.d[I] * w;
        if constexpr (kRot) {
            const KinVec3 c0 = t.c0;
            t.c0 = j.c * c0 + j.s * u;
            t.c1 = j.c * u + (-j.s) * c0;
            t.c2 = w;
        }
    } else {
        // Columns of t Rz(theta): v, v'. Then Tz(d), Tx(a), Rx(alpha).
        const KinVec3 v = j.c * t.c0 + j.s * t.c1;
        if constexpr (kLengthD) t.p = t.p + dh.d[I] * t.c2;
        if constexpr (kLengthA) t.p = t.p + dh.a[I] * v;
        if constexpr (kRot) {
            const KinVec3 v_perp = j.c * t.c1 + (-j.s) * t.c0;
            KinVec3 c1, c2;
            twist_columns<kLink.twist>(v_perp, t.c2, c1, c2);
            t.c0 = v;
            t.c1 = c1;
            t.c2 = c2;
        }
    }
}

// F(q) over the whole table, unrolled.
template <Convention kConv, const auto& kLinks, Need kNeed>
KinFrame closed_form(const DH& dh, const float* q)
{
    constexpr std::size_t kCount = std::size(kLinks);
    KinFrame t = tarn::kKinIdentity;
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        (append_link<kConv, kLinks, I, kNeed != Need::kPosition || I + 1 < kCount, kNeed != Need::kRotation>(t, dh, q),
         ...);
    }(std::make_index_sequence<kCount>{});
    return t;
}

template <Convention kConv, const auto& kLinks>
Matrix family_forward(const DH& dh, const float* q, int what)
{
    if (!q) return Matrix{};
    switch (what) {
    case tarn::kKinWhatTransform:
        return tarn::kin_transform_matrix(closed_form<kConv, kLinks, Need::kTransform>(dh, q));
    case tarn::kKinWhatRotation:
        return tarn::kin_rotation_matrix(closed_form<kConv, kLinks, Need::kRotation>(dh, q));
    case tarn::kKinWhatPosition:
        return tarn::kin_position_matrix(closed_form<kConv, kLinks, Need::kPosition>(dh, q));
    default:
        return Matrix{};
    }
}

/* -----------------------------------------------------------------------------
 * The families: link tables at the nominal twists of each model's default DH
 * -------------------------------------------------------------------------- */

constexpr Twist k0 = Twist::kZero;
constexpr Twist kP = Twist::kPlusHalfPi;
constexpr Twist kM = Twist::kMinusHalfPi;
constexpr bool kA = true, kD = true, kNo = false;

// Spherical wrist; d1 base, a3 upper arm, d4 forearm, d6 flange.
constexpr NominalLink kAx61Links[] = {{k0, kNo, kD}, {kP, kNo, kNo}, {k0, kA, kNo},
                                      {kP, kNo, kD}, {kM, kNo, kNo}, {kP, kNo, kD}};
// Standard DH, SRS: d1 base, d3 upper arm, d5 forearm, d7 flange.
constexpr NominalLink kAx71Links[] = {{kM, kNo, kD}, {kP, kNo, kNo}, {kM, kNo, kD}, {kP, kNo, kNo},
                                      {kM, kNo, kD}, {kP, kNo, kNo}, {k0, kNo, kD}};
// Spherical wrist with a shoulder offset a2 and a forearm offset a4.
constexpr NominalLink kAl64_2Links[] = {{k0, kNo, kD}, {kM, kA, kNo}, {k0, kA, kNo},
                                        {kP, kA, kD},  {kM, kNo, kNo}, {kM, kNo, kD}};
// As al64_2, with the wrist moved out of the shoulder plane by d2.
constexpr NominalLink kAl64_3Links[] = {{k0, kNo, kD}, {kM, kA, kD}, {k0, kA, kNo},
                                        {kP, kA, kD},  {kM, kNo, kNo}, {kM, kNo, kD}};
// Joints 2, 3, 4 parallel; offset wrist.
constexpr NominalLink kLum6Links[] = {{k0, kNo, kD}, {kM, kA, kNo}, {k0, kA, kNo},
                                      {k0, kA, kD},  {kP, kNo, kD}, {kM, kNo, kD}};
// Seven axes with link offsets a4, a5, a7.
constexpr NominalLink kTor7Links[] = {{k0, kNo, kD}, {kM, kNo, kNo}, {kP, kNo, kD}, {kP, kA, kNo},
                                      {kM, kA, kD},  {kP, kNo, kNo}, {kP, kA, kD}};

}  // namespace

Matrix forward_kinematics_ax61(DH dh, const float* q, int what)
{
    return family_forward<Convention::kModified, kAx61Links>(dh, q, what);
}

Matrix forward_kinematics_ax71(DH dh, const float* q, int what)
{
    return family_forward<Convention::kStandard, kAx71Links>(dh, q, what);
}

Matrix forward_kinematics_al64_2(DH dh, const float* q, int what)
{
    return family_forward<Convention::kModified, kAl64_2Links>(dh, q, what);
}

Matrix forward_kinematics_al64_3(DH dh, const float* q, int what)
{
    return family_forward<Convention::kModified, kAl64_3Links>(dh, q, what);
}

Matrix forward_kinematics_lum6(DH dh, const float* q, int what)
{
    return family_forward<Convention::kModified, kLum6Links>(dh, q, what);
}

Matrix forward_kinematics_tor7(DH dh, const float* q, int what)
{
    return family_forward<Convention::kModified, kTor7Links>(dh, q, what);
}

/* -----------------------------------------------------------------------------
 * Selection by robot type
 * -------------------------------------------------------------------------- */

namespace {

// Indexed by RobotType.
constexpr tarn::KinFamilyFn kFamilyByType[] = {
    forward_kinematics_ax61,    // AX61
    forward_kinematics_ax71,    // AX71
    forward_kinematics_ax61,    // AL64I
    forward_kinematics_al64_2,  // AL64II
    forward_kinematics_al64_3,  // AL64III
    forward_kinematics_lum6,    // LUM61
    forward_kinematics_lum6,    // LUM66
    forward_kinematics_tor7,    // TOR77
    forward_kinematics_lum6,    // LUM67
    forward_kinematics_ax61,    // UNIVERSAL
    forward_kinematics_al64_2,  // AL64IV
    forward_kinematics_tor7,    // TOR77II
};
static_assert(AX61 == 0 && AX71 == 1 && AL64I == 2 && AL64II == 3 && AL64III == 4 && LUM61 == 5 && LUM66 == 6 &&
              TOR77 == 7 && LUM67 == 8 && UNIVERSAL == 9 && AL64IV == 10 && TOR77II == 11);

}  // namespace

namespace tarn {

KinFamilyFn kin_family_of(int robot_type)
{
    const auto index = static_cast<uint8_t>(robot_type);
    return index < std::size(kFamilyByType) ? kFamilyByType[index] : forward_kinematics_ax61;
}

Matrix kin_family_forward(const float* q, int what)
{
    return kin_family_of(libalgo_get_robot_type())(libalgo_get_dh_value(), q, what);
}

}  // namespace tarn

/* -----------------------------------------------------------------------------
 * Wrappers: the model's frames around F
 * -------------------------------------------------------------------------- */

namespace {

KinFrame tool_frame() { return tarn::kin_frame_of(libalgo_get_tool_cs_matrix()); }
KinFrame install_frame() { return tarn::kin_frame_of(libalgo_get_robot_install_angle_matrix()); }
KinFrame work_frame() { return tarn::kin_frame_of(libalgo_get_work_cs_to_base_matrix()); }
KinFrame flange(const float* q, int what) { return tarn::kin_frame_of(tarn::kin_family_forward(q, what)); }

// Tw Ti F Tt.
KinFrame tool_in_work(const float* q)
{
    return kin_compose(work_frame(), kin_compose(install_frame(), kin_compose(flange(q, 0), tool_frame())));
}

// Ti F Tt.
KinFrame tool_in_world(const float* q)
{
    return kin_compose(install_frame(), kin_compose(flange(q, 0), tool_frame()));
}

Pos to_pos(KinVec3 v) { return Pos{v.x, v.y, v.z}; }

}  // namespace

Matrix forward_kinematics_rotate(const float* q)
{
    if (!q) return Matrix{};
    // Translations do not reach the rotation of a product: F's rotation alone suffices.
    const KinFrame f = flange(q, tarn::kKinWhatRotation);
    return tarn::kin_rotation_matrix(kin_compose(work_frame(), kin_compose(install_frame(), kin_compose(f, tool_frame()))));
}

Matrix forward_kinematics_rotate_flange(const float* q)
{
    if (!q) return Matrix{};
    const KinFrame f = flange(q, tarn::kKinWhatRotation);
    return tarn::kin_rotation_matrix(kin_compose(work_frame(), kin_compose(install_frame(), f)));
}

Matrix forward_kinematics_world_to_flange(const float* q)
{
    if (!q) return Matrix{};
    return tarn::kin_transform_matrix(kin_compose(install_frame(), flange(q, tarn::kKinWhatTransform)));
}

Matrix forward_kinematics_e(const float* q)
{
    if (!q) return Matrix{};
    return tarn::kin_family_forward(q, tarn::kKinWhatTransform);
}

Pos forward_kinematics_pos(const float* q)
{
    if (!q) return Pos{};
    // Points only: the tool point through F, then Ti, then Tw.
    const KinVec3 in_base = kin_transform_point(flange(q, tarn::kKinWhatTransform), tool_frame().p);
    return to_pos(kin_transform_point(work_frame(), kin_transform_point(install_frame(), in_base)));
}

Pos forward_kinematics_pos_calibration(const float* q)
{
    if (!q) return Pos{};
    const KinVec3 in_base = kin_transform_point(flange(q, tarn::kKinWhatTransform), tool_frame().p);
    return to_pos(kin_transform_point(install_frame(), in_base));
}

Pose_and_matrix forward_kinematics_for_unity(const float* q)
{
    if (!q) return Pose_and_matrix{};
    Pose_and_matrix r;
    r.matrix = tarn::kin_transform_matrix(tool_in_world(q));
    r.pose = transformation_matrix_to_pose(r.matrix);
    return r;
}

Pose forward_kinematics(const float* q)
{
    if (!q) return Pose{};
    return transformation_matrix_to_pose(tarn::kin_transform_matrix(tool_in_work(q)));
}

/* -----------------------------------------------------------------------------
 * A second arm on the end of the first
 * -------------------------------------------------------------------------- */

namespace {

constexpr int kMountLink = 7;  // the DH entry that holds the mounting of the second arm
constexpr float kMountJointValues[LIBALGO_MAX_JOINTS] = {};  // the mount link at a joint value of zero

}  // namespace

Matrix forward_kinematics_double_arm(const DH* mount, const float* q, int what)
{
    if (!mount || !q) return Matrix{};
    const Matrix product =
        matrix_m(kin_universal_kinematics_Tn(q, "machine", "T0n"), kin_get_MDH_Ti(kMountLink, mount, kMountJointValues));
    const KinFrame f = tarn::kin_frame_of(product);
    switch (what) {
    case tarn::kKinWhatRotation:
        return tarn::kin_rotation_matrix(f);
    case tarn::kKinWhatPosition:
        return tarn::kin_position_matrix(f);
    default:
        return product;
    }
}

// Inverse kinematics of AX71: spherical shoulder (joints 1-3), elbow (joint 4), spherical
// wrist (joints 5-7), standard DH with twists -h, h, -h, h, -h, h, 0. Lengths read:
// d1 = d[0] base to shoulder, d3 = d[2] shoulder to elbow, d5 = d[4] elbow to wrist,
// d7 = d[6] wrist to flange.
//
// The redundancy is the arm angle psi: the turn of the elbow plane (shoulder, elbow,
// wrist) about the line u from shoulder to wrist, counted from the reference plane, the
// vertical plane through that line, where joint 3 is 0. With the links written out,
//   R03 Rx(pi/2) = Rz(q1) Ry(q2) Rz(q3),     R47 = Rz(q5) Ry(q6) Rz(q7),
// and the wrist seen from the shoulder is R03 Rx(pi/2) (d5 s4, 0, d3 + d5 c4). Turning the
// shoulder by psi about u keeps the wrist where it is, so with S0 the shoulder of the
// reference plane:
//   S(psi) = Rot(u, psi) S0 = As sin psi + Bs cos psi + Cs,
//   As = [u]x S0,  Bs = -[u]x^2 S0,  Cs = u u^T S0,
// and the wrist follows as R47 = Ry(-q4) S(psi)^T R07 = Aw sin psi + Bw cos psi + Cw. The
// arm angle of a joint vector is the signed angle about u from the axis of joint 4 in the
// reference plane to its axis in the arm (both normal to their planes).
#include "Algorithm/kinematics/tarn_7dof_kine.h"
#include "Algorithm/kinematics/tarn_ikine.h"

#include <initializer_list>

using namespace ikine7;

namespace {

/* -----------------------------------------------------------------------------
 * The arm-angle form
 * -------------------------------------------------------------------------- */

struct Geometry {
    double d1, d3, d5, d7;
};

Geometry geometry_of(const DH& dh) { return {dh.d[0], dh.d[2], dh.d[4], dh.d[6]}; }

// The wrist relative to the shoulder, for the flange target.
Vec3 target_wrist(const Geometry& g, const Target& t) { return t.p - g.d7 * column(t.r, 2) - Vec3{0.0, 0.0, g.d1}; }

// Joint 4's axis in the reference plane at angle `plane`: column 1 of Rz(plane) Ry(q2).
Vec3 reference_axis4(double plane) { return {-std::sin(plane), std::cos(plane), 0.0}; }

// Joint 4's axis at joint values q: column 1 of Rz(q1) Ry(q2) Rz(q3).
Vec3 axis4_of(const double q[kJoints]) { return column(mul(rot_zy(q[0], q[1]), rot_z(q[2])), 1); }

// The signed angle about `about` from `from` to the part of `to` normal to it.
double signed_angle(Vec3 from, Vec3 to, Vec3 about) { return std::atan2(dot(about, cross(from, to)), dot(from, to)); }

struct ArmAngleForm {
    double q4;
    Vec3 u;             // unit, shoulder to wrist
    Vec3 axis4_ref;     // joint 4's axis in the reference plane
    TurnForm shoulder;  // Rz(q1) Ry(q2) Rz(q3) at psi
    TurnForm wrist;     // Rz(q5) Ry(q6) Rz(q7) at psi
};

// The form for the target with the elbow on the side gc4. A wrist beyond reach (or too
// close) holds the elbow stretched (or folded): the arm then points at the target.
void make_form(const Geometry& g, const Target& t, int gc4, ArmAngleForm* f)
{
    const Vec3 w = target_wrist(g, t);
    const double len2 = dot(w, w);
    double c4 = (len2 - g.d3 * g.d3 - g.d5 * g.d5) / (2.0 * g.d3 * g.d5);
    if (c4 > 1.0) c4 = 1.0;
    if (c4 < -1.0) c4 = -1.0;
    f->q4 = gc4 * std::acos(c4);
    const double s4 = std::sin(f->q4);

    // In the reference plane joint 2 turns the wrist of frame 2, (d5 s4, 0, d3 + d5 c4),
    // onto (r, w.z).
    const double plane = reference_plane_angle(w);
    const double q2 = std::atan2(std::hypot(w.x, w.y), w.z) - std::atan2(g.d5 * s4, g.d3 + g.d5 * c4);
    const Rot s0 = rot_zy(plane, q2);

    f->u = unit_or_vertical(w);
    f->axis4_ref = reference_axis4(plane);
    f->shoulder = turn_about(f->u, s0);
    const Rot ry = rot_y(-f->q4);
    f->wrist.as = mul(ry, mul(transpose(f->shoulder.as), t.r));
    f->wrist.bs = mul(ry, mul(transpose(f->shoulder.bs), t.r));
    f->wrist.cs = mul(ry, mul(transpose(f->shoulder.cs), t.r));
}

// The joints at arm angle psi with the shoulder branch gc2 and the wrist branch gc6.
// hint: joints 1 and 5 where the shoulder or the wrist leaves them undefined.
void joints_at(const ArmAngleForm& f, double psi, int gc2, int gc6, const double hint[kJoints], double q[kJoints])
{
    zyz_angles(turned(f.shoulder, psi), gc2, hint[0], &q[0]);
    q[3] = f.q4;
    zyz_angles(turned(f.wrist, psi), gc6, hint[4], &q[4]);
}

double arm_angle_of(const ArmAngleForm& f, const double q[kJoints])
{
    return signed_angle(f.axis4_ref, axis4_of(q), f.u);
}

/* -----------------------------------------------------------------------------
 * Tracking and traversal
 * -------------------------------------------------------------------------- */

// Tracking: the branches of the reference, at the reference's arm angle about the
// target's line from shoulder to wrist: the elbow plane nearest the reference's.
void track(const Head& head, double q[kJoints])
{
    ArmAngleForm f;
    make_form(geometry_of(head.dh), head.target, branch_sign(head.ref[3]), &f);
    joints_at(f, arm_angle_of(f, head.ref), branch_sign(head.ref[1]), branch_sign(head.ref[5]), head.ref, q);
}

// The sweep of the arm angle: from -pi in steps of 0.06 up to pi, about 105 values.
constexpr float kSweepStart = -3.14159265f;
constexpr float kSweepEnd = 3.14159265f;
constexpr float kSweepStep = 0.06f;

// Branch number of a candidate: two elbows x two shoulders x two wrists.
constexpr int kElbows = 2;
int branch_of(int elbow, int gc2, int gc6) { return 4 * elbow + (gc2 < 0 ? 2 : 0) + (gc6 < 0 ? 1 : 0); }
int shoulder_sign(int branch) { return (branch & 2) ? -1 : 1; }
int wrist_sign(int branch) { return (branch & 1) ? -1 : 1; }
int elbow_sign(int elbow) { return elbow == 0 ? 1 : -1; }

void offer_all_branches(const Head& head, const ArmAngleForm forms[kElbows], double psi, Best* best)
{
    for (int elbow = 0; elbow < kElbows; ++elbow)
        for (int gc2 : {1, -1})
            for (int gc6 : {1, -1}) {
                double q[kJoints];
                joints_at(forms[elbow], psi, gc2, gc6, head.ref, q);
                best->offer(tier_of(true, settles_inside(head, q)), circular_cost(head, q), q,
                            branch_of(elbow, gc2, gc6), psi);
            }
}

// Traversal: every branch over the sweep and at the reference's own arm angle, the best
// refined between its neighbours of the sweep; and the reference brought onto the target by
// steps of least norm, which finds the answer near a singular shoulder or wrist, where the
// joints turn so fast with the arm angle that the valley of the nearest answer is narrower
// than a step of the sweep. False when no candidate is finite (a DH table without an upper
// arm or forearm).
bool traverse(const Head& head, double q[kJoints])
{
    const Geometry g = geometry_of(head.dh);
    ArmAngleForm forms[kElbows];
    for (int elbow = 0; elbow < kElbows; ++elbow) make_form(g, head.target, elbow_sign(elbow), &forms[elbow]);

    Best best;
    for (float psi = kSweepStart; psi <= kSweepEnd; psi += kSweepStep) offer_all_branches(head, forms, psi, &best);
    for (const ArmAngleForm& f : forms) offer_all_branches(head, forms, arm_angle_of(f, head.ref), &best);
    if (!best.found) return false;

    const int branch = best.branch;
    const ArmAngleForm& f = forms[branch / 4];
    auto cost_at = [&](double psi) {
        double c[kJoints];
        joints_at(f, psi, shoulder_sign(branch), wrist_sign(branch), head.ref, c);
        return circular_cost(head, c);
    };
    double refined_cost = 0.0;
    const double psi =
        golden_minimum(cost_at, best.param - kSweepStep, best.param + kSweepStep, kRefineSteps, &refined_cost);
    double refined[kJoints];
    joints_at(f, psi, shoulder_sign(branch), wrist_sign(branch), head.ref, refined);
    best.offer(tier_of(true, settles_inside(head, refined)), refined_cost, refined, branch, psi);

    double seed[kJoints];
    for (int j = 0; j < kJoints; ++j) seed[j] = head.ref[j];
    if (approach(head, seed))
        best.offer(tier_of(true, settles_inside(head, seed)), circular_cost(head, seed), seed, branch, psi);
    for (int j = 0; j < kJoints; ++j) q[j] = best.q[j];
    return true;
}

/* -----------------------------------------------------------------------------
 * The Jacobian route
 * -------------------------------------------------------------------------- */

// Where the closed form's branches meet, its answer can turn a joint by pi between two
// control periods: joints 1 and 3 align at q2 = 0, joints 5 and 7 at q6 = 0. Tracking
// takes a Jacobian step there, as it does with joint 3 near 0.
constexpr double kShoulderNearSingular = 0.0872664625997165;  // 5 degrees, joint 2
constexpr double kJoint3NearZero = 0.139626340159546;         // 8 degrees, joint 3
constexpr double kWristNearSingular = 0.0872664625997165;     // 5 degrees, joint 6

bool near_closed_form_singularity(const double ref[kJoints])
{
    return std::fabs(reduce_angle(ref[1])) < kShoulderNearSingular ||
           std::fabs(reduce_angle(ref[2])) < kJoint3NearZero || std::fabs(reduce_angle(ref[5])) < kWristNearSingular;
}

// Gain of the pull toward the middle of the joint ranges.
constexpr double kCenteringGain = -1.0 / 70.0;
// The Jacobian step is a linearisation for the steps of tracking, a few hundredths of a
// radian per control period; an answer that moved farther is left to the closed form,
// which holds everywhere.
constexpr double kLocalStepMax = 0.2;  // rad

// One step of least norm from the reference, with the pull toward the middle of the
// ranges where no joint then exceeds its speed; polished onto the target. False when the
// step does not lead to the target nearby.
bool jacobian_route(const Head& head, double q[kJoints])
{
    Chain chain;
    chain_frames(Family::kAx71, head.dh, head.ref, &chain);
    Jacobian jac;
    chain_jacobian(Family::kAx71, chain, &jac);
    MinNorm solver;
    if (!solver.factor(jac)) return false;
    double e[kTask], dq[kJoints], g[kJoints], n[kJoints];
    angle_axis_error(chain_rotation(chain, kJoints), chain_position(chain, kJoints), head.target, e);
    solver.step(e, dq);
    centering_gradient(head, head.ref, kCenteringGain, g);
    solver.project(g, n);
    bool slow = true;
    for (int j = 0; j < kJoints; ++j) slow = slow && std::fabs(dq[j] + n[j]) / head.period <= head.vmax[j];
    for (int j = 0; j < kJoints; ++j) q[j] = head.ref[j] + dq[j] + (slow ? n[j] : 0.0);
    if (!polish(head, q)) return false;
    for (int j = 0; j < kJoints; ++j)
        if (!(std::fabs(q[j] - head.ref[j]) <= kLocalStepMax)) return false;
    return true;
}

/* -----------------------------------------------------------------------------
 * The target of a pose, in double
 * -------------------------------------------------------------------------- */

Target rigid_of(const Matrix& m)
{
    Target t;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) t.r.m[i][j] = m.data[i][j];
    t.p = {m.data[0][3], m.data[1][3], m.data[2][3]};
    return t;
}

Target compose(const Target& a, const Target& b) { return {mul(a.r, b.r), mul(a.r, b.p) + a.p}; }

Target inverse(const Target& a)
{
    const Rot rt = transpose(a.r);
    return {rt, -1.0 * mul(rt, a.p)};
}

bool finite_target(const Target& t)
{
    bool finite = std::isfinite(t.p.x) && std::isfinite(t.p.y) && std::isfinite(t.p.z);
    for (const auto& row : t.r.m)
        for (double v : row) finite = finite && std::isfinite(v);
    return finite;
}

// The flange for a tool pose in the work frame: inverse(Ti) T inverse(Tt).
bool flange_target(const zk_pose_t& given, uint8_t flag, Target* target)
{
    Pose pose;
    pose.position = Pos{given.position.x, given.position.y, given.position.z};
    pose.quaternion = Quat{given.quaternion.w, given.quaternion.x, given.quaternion.y, given.quaternion.z};
    pose.euler = Euler{given.euler.rx, given.euler.ry, given.euler.rz};
    const Target tool = rigid_of(calc_Tbase2tool_from_Pose(pose, flag));
    const Target install = rigid_of(libalgo_get_robot_install_angle_matrix());
    const Target tool_frame = rigid_of(libalgo_get_tool_cs_matrix());
    *target = compose(compose(inverse(install), tool), inverse(tool_frame));
    target->r = orthonormalized(target->r);
    return finite_target(*target);
}

}  // namespace

/* -----------------------------------------------------------------------------
 * Exported
 * -------------------------------------------------------------------------- */

int inverse_kinematics_ax_71(Mat F, float* q_ref, float* q_out)
{
    if (!q_ref || !q_out) return -1;
    Target target;
    if (!target_from_mat(F, &target)) return -1;
    Head head;
    const int loaded = load_head(Family::kAx71, target, q_ref, &head);
    if (loaded != 0) return loaded;
    for (int j = 0; j < kJoints; ++j) q_ref[j] += static_cast<float>(head.offset[j]);

    double q[kJoints];
    if (ikine_get_solution_range_ax71() > tarn::kTraversalRangeAbove) {
        if (!traverse(head, q)) return -1;
    } else if (!near_closed_form_singularity(head.ref) || !jacobian_route(head, q)) {
        track(head, q);
    }
    return finish(head, q, q_out);
}

namespace {

// A reference with joints 2 and 6 both this close to 0 is taken as it stands; otherwise
// one of them closer than kNudge is moved out to kNudge, so that its branch sign and the
// cost do not rest on rounding.
constexpr double kBothAtZero = 1.74532925199433e-06;
constexpr double kNudge = 0.000174532925199433;  // 0.01 degrees

double linear_circular_cost(const Head& head, const double q[kJoints])
{
    double cost = 0.0;
    for (int j = 0; j < kJoints; ++j) cost += std::fabs(reduce_angle(q[j] - head.ref[j]));
    return cost;
}

// Each joint on the turn nearest the reference, then by a whole turn into its limits
// where it lies outside.
void settle_into_limits(const Head& head, double q[kJoints])
{
    for (int j = 0; j < kJoints; ++j) {
        q[j] = wrap_near(q[j], full_reference(head, j));
        if (q[j] < head.lim_min[j] - kLimitMargin) q[j] += tarn::kTwoPi;
        if (q[j] > head.lim_max[j] + kLimitMargin) q[j] -= tarn::kTwoPi;
    }
}

bool all_inside(const Head& head, const double q[kJoints])
{
    for (int j = 0; j < kJoints; ++j)
        if (!joint_inside(head, j, q[j])) return false;
    return true;
}

}  // namespace

int inverse_kinematics_ax71_for_arm_angle(zk_inverse_kinematics_params_t params, float arm_angle, float* q_solve)
{
    if (!q_solve) return -1;
    if (libalgo_get_robot_type() != AX71) return -3;
    Target target;
    if (!std::isfinite(arm_angle) || !flange_target(params.q_pose, params.flag, &target)) return -1;
    Head head;
    const int loaded = load_head(Family::kAx71, target, params.q_in, &head);
    if (loaded != 0) return loaded;

    double& r2 = head.ref[1];
    double& r6 = head.ref[5];
    if (!(std::fabs(r2) < kBothAtZero && std::fabs(r6) < kBothAtZero)) {
        if (std::fabs(r2) < kNudge) r2 = std::copysign(kNudge, r2);
        if (std::fabs(r6) < kNudge) r6 = std::copysign(kNudge, r6);
    }

    ArmAngleForm f;
    make_form(geometry_of(head.dh), head.target, branch_sign(head.ref[3]), &f);
    Best best;
    for (int gc2 : {1, -1})
        for (int gc6 : {1, -1}) {
            double q[kJoints];
            joints_at(f, arm_angle, gc2, gc6, head.ref, q);
            settle_into_limits(head, q);
            best.offer(tier_of(true, all_inside(head, q)), linear_circular_cost(head, q), q, branch_of(0, gc2, gc6),
                       arm_angle);
        }
    if (!best.found) return -1;  // no finite candidate
    for (int j = 0; j < kJoints; ++j) q_solve[j] = static_cast<float>(best.q[j] - head.offset[j]);
    return best.inside() ? 0 : -1;
}

int calculate_arm_angle_from_config_ax71(float* q_ref, float* arm_angle)
{
    if (!q_ref || !arm_angle) return -1;
    if (libalgo_get_robot_type() != AX71) return -3;
    for (int j = 0; j < kJoints; ++j)
        if (!std::isfinite(q_ref[j])) return -1;
    const DH dh = libalgo_get_dh_value();
    double q[kJoints];
    for (int j = 0; j < kJoints; ++j) {
        q_ref[j] += dh.offset[j];
        q[j] = q_ref[j];
    }
    // Frame 3's origin is the elbow, frame 5's the wrist; joint 4 turns about frame 3's z.
    Chain chain;
    chain_frames(Family::kAx71, dh, q, &chain);
    const Vec3 shoulder = chain_position(chain, 1);
    const Vec3 w = chain_position(chain, 5) - shoulder;
    const Vec3 axis4 = column(chain_rotation(chain, 3), 2);
    *arm_angle =
        static_cast<float>(signed_angle(reference_axis4(reference_plane_angle(w)), axis4, unit_or_vertical(w)));
    return 0;
}

// Inverse kinematics of TOR77 and TOR77II: modified DH with twists 0, -h, h, h, -h, h, h
// and offsets at the elbow and the flange. Lengths read: d1 = d[0] base to shoulder,
// d3 = d[2] upper arm, a4 = a[3] and a5 = a[4] the elbow's offsets, d5 = d[4] forearm,
// a7 = a[6] and d7 = d[6] from the wrist to the flange.
//
// The redundancy is the value x of joint 7. With x fixed the frame of joint 6 follows from
// the flange, and with it the wrist W (where the axes of joints 5 and 6 meet) and joint 6's
// axis n. Written out, the links give
//   R03 = Rz(q1) Ry(q2) Rz(q3),
//   W - shoulder = R03 (a4 + a5 c4 - d5 s4, 0, d3 + a5 s4 + d5 c4),
//   n = R04 (s5, 0, c5), so that n is normal to R03 (-s4, 0, c4), the axis of joint 5.
// The distance from shoulder to wrist fixes joint 4 (two elbows). The shoulders that carry
// the wrist there are one shoulder turned about the shoulder-wrist line by psi; the normal
// condition on joint 5's axis is A sin psi + B cos psi + C = 0 (two roots). Joints 5 and 6
// follow from n and the frame of joint 6, and joints 1-3 from R03 in either of their two
// spellings (q1, q2, q3) and (q1 + pi, -q2, q3 + pi): eight candidates per x.
#include "Algorithm/kinematics/tarn_7dof_kine.h"

using namespace ikine7;

namespace {

/* -----------------------------------------------------------------------------
 * The closed form at one value of joint 7
 * -------------------------------------------------------------------------- */

struct Geometry {
    double d1, d3, d5, d7, a4, a5, a7;
};

Geometry geometry_of(const DH& dh) { return {dh.d[0], dh.d[2], dh.d[4], dh.d[6], dh.a[3], dh.a[4], dh.a[6]}; }

// Two elbows x two roots of the condition on joint 5's axis x two spellings of joints 1-3.
constexpr int kBranches = 8;
constexpr int kElbows = 2;
constexpr int kRoots = 2;
int branch_of(int elbow, int root, int spelling) { return 4 * elbow + 2 * root + spelling; }

struct Candidates {
    double q[kBranches][kJoints];
    bool valid[kBranches];
    bool held[kBranches];  // a cosine beyond +-1 was held at the edge: nearest, not exact
    // How far the cosines of the elbow or of the shoulder's roots lay beyond +-1 at the
    // least, 0 where a candidate exists: the distance from this x to the values of joint 7
    // that reach the target.
    double excess;
};

// A cosine this little beyond +-1 is taken as +-1: the arm is held at the edge of its
// reach (stretched elbow, or the shoulder where the two roots meet) for a target a hair
// beyond it. Farther beyond, the target is out of reach at this x.
constexpr double kEdgeBand = 0.001;
// Where the condition on joint 5's axis has coefficients this small it does not fix the
// shoulder (joint 6's axis along the shoulder-wrist line): no isolated solution.
constexpr double kConditionVanishes = 1e-12;
// The excess of a cosine that does not exist.
constexpr double kUnreachable = 1e9;

// How far a cosine lies beyond +-1.
double beyond_unit(double c) { return std::isnan(c) ? kUnreachable : std::fmax(0.0, std::fabs(c) - 1.0); }

// Brings a cosine onto [-1, 1]: false when it lies beyond the band and `anywhere` does not
// allow holding it at the edge regardless (a NaN is never held).
bool onto_unit_range(double* c, bool anywhere)
{
    if (std::isnan(*c)) return false;
    if (std::fabs(*c) <= 1.0) return true;
    if (!(std::fabs(*c) - 1.0 < kEdgeBand) && !anywhere) return false;
    *c = *c > 0.0 ? 1.0 : -1.0;
    return true;
}

enum class Reach {
    kSolved,
    kElbowOutOfReach,
};

// Every candidate at joint 7 = x (model angle). hold_anywhere takes any cosine beyond +-1
// as +-1. hint: joint 1 where the shoulder leaves it undefined.
Reach solve_at(const Geometry& g, const Target& t, double x, bool hold_anywhere, const double hint[kJoints],
               Candidates* out)
{
    for (bool& v : out->valid) v = false;
    for (bool& h : out->held) h = false;
    out->excess = kUnreachable;
    const double c7 = std::cos(x), s7 = std::sin(x);
    const Vec3 n = mul(t.r, Vec3{s7, c7, 0.0});
    const Vec3 wrist = t.p - g.d7 * column(t.r, 2) - g.a7 * mul(t.r, Vec3{c7, -s7, 0.0});
    const Rot r06 = mul(t.r, mul(rot_z(-x), kRxMinusHalfTurn));
    const Vec3 w = wrist - Vec3{0.0, 0.0, g.d1};

    // |w|^2 = A + B + 2 K cos(q4 - phi).
    const double a = g.a4 * g.a4 + g.d3 * g.d3, b = g.a5 * g.a5 + g.d5 * g.d5;
    const double k1 = g.a4 * g.a5 + g.d3 * g.d5, k2 = g.d3 * g.a5 - g.a4 * g.d5;
    const double phi = std::atan2(k2, k1);
    double elbow_cos = (dot(w, w) - a - b) / (2.0 * std::hypot(k1, k2));
    const double elbow_excess = beyond_unit(elbow_cos);
    const bool elbow_held = elbow_excess > 0.0;
    out->excess = elbow_excess;
    if (!onto_unit_range(&elbow_cos, hold_anywhere)) return Reach::kElbowOutOfReach;
    double least = kUnreachable;
    const double elbow_spread = std::acos(elbow_cos);

    const Vec3 u = unit_or_vertical(w);
    const double plane = reference_plane_angle(w);
    const double reach = std::atan2(std::hypot(w.x, w.y), w.z);
    for (int elbow = 0; elbow < kElbows; ++elbow) {
        const double q4 = phi + (elbow == 0 ? elbow_spread : -elbow_spread);
        const double c4 = std::cos(q4), s4 = std::sin(q4);
        const double p = g.a4 + g.a5 * c4 - g.d5 * s4, q = g.d3 + g.a5 * s4 + g.d5 * c4;
        // A shoulder that carries the wrist: joint 3 at 0, joint 2 turning (p, 0, q) onto w.
        const Rot s0 = rot_zy(plane, reach - std::atan2(p, q));
        const TurnForm shoulder = turn_about(u, s0);
        // Joint 5's axis n . Rot(u, psi) m0 = 0.
        const Vec3 m0 = mul(s0, Vec3{-s4, 0.0, c4});
        const double along = dot(n, u) * dot(u, m0);
        const double ca = dot(n, cross(u, m0)), cb = dot(n, m0) - along;
        const double size = std::hypot(ca, cb);
        if (!(size > kConditionVanishes)) continue;
        double root_cos = -along / size;
        least = std::fmin(least, std::fmax(elbow_excess, beyond_unit(root_cos)));
        const bool held = elbow_held || beyond_unit(root_cos) > 0.0;
        if (!onto_unit_range(&root_cos, hold_anywhere)) continue;
        const double centre = std::atan2(ca, cb), spread = std::acos(root_cos);

        for (int root = 0; root < kRoots; ++root) {
            const Rot r03 = turned(shoulder, centre + (root == 0 ? spread : -spread));
            double qc[kJoints];
            zyz_angles(r03, 1, hint[0], qc);
            qc[3] = q4;
            const Rot r04 = mul(mul(r03, kRxHalfTurn), rot_z(q4));
            const Vec3 n4 = mul(transpose(r04), n);
            qc[4] = std::atan2(n4.x, n4.z);
            const Rot m = mul(transpose(mul(mul(r04, kRxMinusHalfTurn), rot_z(qc[4]))), r06);
            qc[5] = std::atan2(m.m[2][0], m.m[0][0]);
            qc[6] = x;
            bool finite = true;
            for (double v : qc) finite = finite && std::isfinite(v);
            if (!finite) continue;
            for (int spelling = 0; spelling < 2; ++spelling) {
                const int k = branch_of(elbow, root, spelling);
                for (int j = 0; j < kJoints; ++j) out->q[k][j] = qc[j];
                if (spelling == 1) {
                    out->q[k][0] += tarn::kPi;
                    out->q[k][1] = -out->q[k][1];
                    out->q[k][2] += tarn::kPi;
                }
                out->valid[k] = true;
                out->held[k] = held;
            }
        }
    }
    out->excess = least;
    return Reach::kSolved;
}

/* -----------------------------------------------------------------------------
 * Common to both modes
 * -------------------------------------------------------------------------- */

// A target the answer misses by more than this, after the polish, is out of reach: the
// band of kEdgeBand holds the arm at its edge up to about 0.15 mm and 1 mrad from it.
constexpr double kReachPosition = 5e-4;  // m
constexpr double kReachAngle = 2e-3;     // rad

// The answer polished onto the target where it lies off it (held at an edge, or a
// Jacobian step); false when it stays out of reach.
bool reaches(const Head& head, double q[kJoints])
{
    polish(head, q);
    const PoseError e = pose_error(head, q);
    return e.position <= kReachPosition && e.angle <= kReachAngle;
}

/* -----------------------------------------------------------------------------
 * Traversal
 * -------------------------------------------------------------------------- */

// The sweep of joint 7: within half a turn of the reference, clipped to joint 7's limits,
// in steps of 0.06 rad (about 105 values) on a grid through the reference.
constexpr double kSweepStep = 0.06;
// The cost the refinement gives a value of joint 7 without the branch it follows: above
// any candidate's.
constexpr double kNoCandidateCost = 10000.0;
// The branch number of the polished reference, outside those of the closed form.
constexpr int kFromReference = kBranches;

void offer_candidates(const Head& head, const Candidates& c, double x, Best* best)
{
    for (int k = 0; k < kBranches; ++k)
        if (c.valid[k])
            best->offer(tier_of(!c.held[k], settles_inside(head, c.q[k])), circular_cost(head, c.q[k]), c.q[k], k, x);
}

// The best candidate of the sweep refined between its neighbours of the sweep.
void refine(const Head& head, const Geometry& g, double lo, double hi, Best* best)
{
    const int branch = best->branch;
    Candidates c;
    auto cost_at = [&](double x) {
        if (solve_at(g, head.target, x, false, head.ref, &c) != Reach::kSolved || !c.valid[branch])
            return kNoCandidateCost;
        return circular_cost(head, c.q[branch]);
    };
    double refined_cost = 0.0;
    const double x = golden_minimum(cost_at, std::fmax(lo, best->param - kSweepStep),
                                    std::fmin(hi, best->param + kSweepStep), kRefineSteps, &refined_cost);
    if (solve_at(g, head.target, x, false, head.ref, &c) == Reach::kSolved && c.valid[branch])
        best->offer(tier_of(!c.held[branch], settles_inside(head, c.q[branch])), circular_cost(head, c.q[branch]),
                    c.q[branch], branch, x);
}

// Where no value of the sweep reaches the target exactly, the values that do lie between
// steps (the configurations of the target fold together there): a finer sweep within two
// steps of the value nearest reach, and failing that, the candidates at the finer value
// nearest reach held at the edge and brought onto the target by steps of least norm.
void reach_between_steps(const Head& head, const Geometry& g, double lo, double hi, double nearest, Best* best)
{
    constexpr double kFineStep = kSweepStep / 12.0;
    constexpr double kFineSpan = 2.0 * kSweepStep;
    Candidates c;
    double fine_nearest = nearest, excess = kUnreachable;
    const double last = std::fmin(hi, nearest + kFineSpan);
    for (double x = std::fmax(lo, nearest - kFineSpan); x <= last; x += kFineStep) {
        if (solve_at(g, head.target, x, false, head.ref, &c) == Reach::kSolved) offer_candidates(head, c, x, best);
        if (c.excess < excess) {
            excess = c.excess;
            fine_nearest = x;
        }
    }
    if (best->exact() || !(excess < kUnreachable)) return;
    solve_at(g, head.target, fine_nearest, true, head.ref, &c);
    for (int k = 0; k < kBranches; ++k) {
        if (!c.valid[k] || !approach(head, c.q[k])) continue;
        best->offer(tier_of(true, settles_inside(head, c.q[k])), circular_cost(head, c.q[k]), c.q[k], k,
                    c.q[k][kJoints - 1]);
    }
}

// Every candidate over the values of joint 7 from `first` up to `last` in steps of the
// sweep; the value nearest reach goes to *nearest where its excess is below *excess.
void sweep(const Head& head, const Geometry& g, double first, double last, Best* best, double* nearest, double* excess)
{
    Candidates c;
    for (int i = 0; first + i * kSweepStep <= last; ++i) {
        const double x = first + i * kSweepStep;
        if (solve_at(g, head.target, x, false, head.ref, &c) == Reach::kSolved) offer_candidates(head, c, x, best);
        if (c.excess < *excess) {
            *excess = c.excess;
            *nearest = x;
        }
    }
}

// Traversal: every branch over the sweep of joint 7 within half a turn of the reference,
// and over the rest of joint 7's range where that finds nothing; the best refined. Besides,
// the reference brought onto the target by steps of least norm.
int traverse(const Head& head, float* q_out)
{
    constexpr int j7 = kJoints - 1;
    const double r7 = head.ref[j7];
    const double lo = std::fmax(r7 - tarn::kPi, head.lim_min[j7]);
    const double hi = std::fmin(r7 + tarn::kPi, head.lim_max[j7]);
    if (!(lo <= hi)) return -1;
    // The grid runs through the reference, or starts at the window's end when the
    // reference lies beyond joint 7's limits.
    const double first = r7 >= lo && r7 <= hi ? r7 - std::floor((r7 - lo) / kSweepStep) * kSweepStep : lo;

    const Geometry g = geometry_of(head.dh);
    Best best;
    double nearest = first, excess = kUnreachable;
    sweep(head, g, first, hi, &best, &nearest, &excess);
    const double range_lo = head.lim_min[j7], range_hi = head.lim_max[j7];
    if (!best.found) {
        const double below = first - std::floor((first - range_lo) / kSweepStep) * kSweepStep;
        sweep(head, g, below, range_hi, &best, &nearest, &excess);
    }
    if (!best.exact() && excess < kUnreachable) reach_between_steps(head, g, range_lo, range_hi, nearest, &best);
    if (best.found && best.branch < kBranches) refine(head, g, range_lo, range_hi, &best);
    double seed[kJoints];
    for (int j = 0; j < kJoints; ++j) seed[j] = head.ref[j];
    if (approach(head, seed) && seed[j7] >= range_lo && seed[j7] <= range_hi)
        best.offer(tier_of(true, settles_inside(head, seed)), circular_cost(head, seed), seed, kFromReference,
                   seed[j7]);
    if (!best.found) return -1;

    double q[kJoints];
    for (int j = 0; j < kJoints; ++j) q[j] = best.q[j];
    if (!best.exact()) approach(head, q);
    if (!reaches(head, q)) return -1;
    return finish(head, q, q_out);
}

/* -----------------------------------------------------------------------------
 * Tracking
 * -------------------------------------------------------------------------- */

// |det(J J^T)| at the reference below 1e-5 (its truncation at this scale is 0) counts as
// near a singularity; an answer whose determinant at the finer scale comes out smaller
// moves deeper into it.
constexpr double kNearSingularScale = 1e5;
constexpr double kDeeperScale = 1e6;
// A Jacobian step counts as slow when every joint stays this far below its speed limit
// over one control period.
constexpr double kSpeedSlack = 0.0001;  // rad
// Gain of the pull toward the middle of the joint ranges, and its cap: 300 dt^2 degrees
// per step for the largest joint.
constexpr double kCenteringGain = -0.2857143;
constexpr double kCenteringCapPerPeriod2 = 300.0 * tarn::kPi / 180.0;  // rad/s^2

// Where the closed form over joint 7 is unfit: the shoulder at joint 2 near 0, and joint 5
// near an odd multiple of pi/2.
constexpr double kNearSingularBand = 0.0349;  // rad, about 2 degrees

bool near_parametrisation_singularity(const double ref[kJoints])
{
    return std::fabs(reduce_angle(ref[1])) < kNearSingularBand ||
           std::fabs(std::remainder(ref[4] - tarn::kHalfPi, tarn::kPi)) < kNearSingularBand;
}

// Every joint moves from the reference within its speed limit over one control period.
bool within_speed(const Head& head, const double q[kJoints])
{
    for (int j = 0; j < kJoints; ++j)
        if (!(std::fabs(reduce_angle(q[j] - head.ref[j])) <= head.vmax[j] * head.period)) return false;
    return true;
}

double gram_det_at(const Head& head, const double q[kJoints])
{
    Chain chain;
    chain_frames(Family::kTor7, head.dh, q, &chain);
    Jacobian jac;
    chain_jacobian(Family::kTor7, chain, &jac);
    MinNorm solver;
    solver.factor(jac);
    return solver.gram_det();
}

int track(const Head& head, const float* q_ref, float* q_out)
{
    constexpr int j7 = kJoints - 1;
    Chain chain;
    chain_frames(Family::kTor7, head.dh, head.ref, &chain);
    Jacobian jac;
    chain_jacobian(Family::kTor7, chain, &jac);
    MinNorm solver;
    solver.factor(jac);
    const double det_ref = solver.gram_det();
    const bool near_singular = std::trunc(kNearSingularScale * det_ref) == 0.0;

    // The step of least norm predicts joint 7.
    double e[kTask], dq[kJoints];
    small_displacement_error(chain_rotation(chain, kJoints), chain_position(chain, kJoints), head.target, e);
    solver.step(e, dq);
    const double x = head.ref[j7] + dq[j7];
    bool speed_ok = true;
    for (int j = 0; j < kJoints; ++j)
        speed_ok = speed_ok && std::fabs(dq[j]) < head.vmax[j] * head.period - kSpeedSlack;

    double q[kJoints];
    bool closed_form = false;
    if (x >= head.lim_min[j7] && x <= head.lim_max[j7]) {
        Candidates c;
        if (solve_at(geometry_of(head.dh), head.target, x, speed_ok, head.ref, &c) != Reach::kSolved) return -1;
        Best best;
        for (int k = 0; k < kBranches; ++k)
            if (c.valid[k]) best.offer(0, circular_cost(head, c.q[k]), c.q[k], k, x);
        if (!best.found) return -1;
        for (int j = 0; j < kJoints; ++j) q[j] = wrap_near(best.q[j], head.ref[j]);
        closed_form = true;
    }
    // Near the closed form's singularities, or where its answer would move too fast, the
    // Jacobian step stands in while it is itself slow; it also stands in where joint 7's
    // limit leaves no closed form.
    const bool jacobian_step =
        !closed_form || (speed_ok && (near_parametrisation_singularity(head.ref) || !within_speed(head, q)));
    if (jacobian_step) {
        for (int j = 0; j < kJoints; ++j) q[j] = head.ref[j] + dq[j];
        q[j7] = x;
    }

    double g[kJoints], n[kJoints];
    centering_gradient(head, head.ref, kCenteringGain, g);
    solver.project(g, n);
    double largest = 0.0;
    for (double v : n) largest = std::fmax(largest, std::fabs(v));
    const double cap = kCenteringCapPerPeriod2 * head.period * head.period;
    const double scale = largest > cap ? cap / largest : 1.0;
    for (int j = 0; j < kJoints; ++j) q[j] += scale * n[j];

    if (!reaches(head, q)) return -1;
    if (near_singular && std::trunc(kDeeperScale * gram_det_at(head, q)) < std::trunc(kDeeperScale * det_ref)) {
        for (int j = 0; j < kJoints; ++j) q_out[j] = q_ref[j];
        return -1;
    }
    const int rc = finish(head, q, q_out);
    return rc == 0 && !within_speed(head, q) ? -2 : rc;
}

}  // namespace

/* -----------------------------------------------------------------------------
 * Exported
 * -------------------------------------------------------------------------- */

int inverse_kinematics_tor7(Mat F, float* q_ref, float* q_out)
{
    if (!q_ref || !q_out) return -1;
    Target target;
    if (!target_from_mat(F, &target)) return -1;
    Head head;
    const int loaded = load_head(Family::kTor7, target, q_ref, &head);
    if (loaded != 0) return loaded;
    return ikine_get_7dof_solver_search_strategy() != 0 ? track(head, q_ref, q_out) : traverse(head, q_out);
}

int ikine_jacobe_and_pose_tor77(const float* q, Mat* jacobian, Mat* pose)
{
    if (!q || !jacobian || !pose) return -1;
    double theta[kJoints];
    for (int j = 0; j < kJoints; ++j) theta[j] = q[j];
    Chain chain;
    chain_frames(Family::kTor7, libalgo_get_dh_value(), theta, &chain);
    Jacobian jac;
    chain_jacobian(Family::kTor7, chain, &jac);
    *jacobian = mat_zeros(kTask, kJoints);
    for (int i = 0; i < kTask; ++i)
        for (int j = 0; j < kJoints; ++j) jacobian->data[i][j] = static_cast<float>(jac.j[i][j]);
    *pose = mat_zeros(4, 4);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) pose->data[i][j] = static_cast<float>(chain.t[kJoints][i][j]);
    return 0;
}

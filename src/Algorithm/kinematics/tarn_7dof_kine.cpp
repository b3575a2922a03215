// Seven-axis inverse kinematics: the shared frame of the AX71 and TOR77 solvers (link
// chains, Jacobian steps of least norm, the head, the ranking and the finish), and the
// plain-array products marr_m and marr_mD.
#include "Algorithm/kinematics/tarn_7dof_kine.h"

#include "libalgo_model.h"

/* -----------------------------------------------------------------------------
 * Products of plain 4 x 4 arrays
 * -------------------------------------------------------------------------- */

namespace {

template <class T>
void product4(const T a[4][4], const T b[4][4], T out[4][4])
{
    T r[4][4];  // out may be a or b
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r[i][j] = a[i][0] * b[0][j] + a[i][1] * b[1][j] + a[i][2] * b[2][j] + a[i][3] * b[3][j];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) out[i][j] = r[i][j];
}

}  // namespace

void marr_m(const float a[4][4], const float b[4][4], float out[4][4])
{
    if (a && b && out) product4(a, b, out);
}

void marr_mD(const double a[4][4], const double b[4][4], double out[4][4])
{
    if (a && b && out) product4(a, b, out);
}

namespace ikine7 {

/* -----------------------------------------------------------------------------
 * Small geometry
 * -------------------------------------------------------------------------- */

Rot mul(const Rot& a, const Rot& b)
{
    Rot r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.m[i][j] = a.m[i][0] * b.m[0][j] + a.m[i][1] * b.m[1][j] + a.m[i][2] * b.m[2][j];
    return r;
}

Vec3 mul(const Rot& a, Vec3 v)
{
    return {a.m[0][0] * v.x + a.m[0][1] * v.y + a.m[0][2] * v.z, a.m[1][0] * v.x + a.m[1][1] * v.y + a.m[1][2] * v.z,
            a.m[2][0] * v.x + a.m[2][1] * v.y + a.m[2][2] * v.z};
}

Rot transpose(const Rot& a)
{
    Rot r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.m[i][j] = a.m[j][i];
    return r;
}

Rot lin(double ka, const Rot& a, double kb, const Rot& b, const Rot& c)
{
    Rot r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.m[i][j] = ka * a.m[i][j] + kb * b.m[i][j] + c.m[i][j];
    return r;
}

Vec3 column(const Rot& a, int j) { return {a.m[0][j], a.m[1][j], a.m[2][j]}; }

Rot rot_y(double angle)
{
    const double c = std::cos(angle), s = std::sin(angle);
    return Rot{{{c, 0, s}, {0, 1, 0}, {-s, 0, c}}};
}

Rot rot_z(double angle)
{
    const double c = std::cos(angle), s = std::sin(angle);
    return Rot{{{c, -s, 0}, {s, c, 0}, {0, 0, 1}}};
}

Rot rot_zy(double a, double b)
{
    const double ca = std::cos(a), sa = std::sin(a), cb = std::cos(b), sb = std::sin(b);
    return Rot{{{ca * cb, -sa, ca * sb}, {sa * cb, ca, sa * sb}, {-sb, 0, cb}}};
}

TurnForm turn_about(Vec3 u, const Rot& s0)
{
    const Rot k{{{0.0, -u.z, u.y}, {u.z, 0.0, -u.x}, {-u.y, u.x, 0.0}}};
    TurnForm f;
    f.as = mul(k, s0);
    f.bs = mul(k, f.as);
    const double uu[3] = {u.x, u.y, u.z};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            f.bs.m[i][j] = -f.bs.m[i][j];
            f.cs.m[i][j] = uu[i] * (uu[0] * s0.m[0][j] + uu[1] * s0.m[1][j] + uu[2] * s0.m[2][j]);
        }
    return f;
}

namespace {

// Below this horizontal distance (m) of the wrist from joint 1's axis the wrist does not
// define the reference plane.
constexpr double kWristOnAxis = 1e-12;
// Below this distance (m) between shoulder and wrist the line between them has no
// direction.
constexpr double kWristAtShoulder = 1e-12;

}  // namespace

double reference_plane_angle(Vec3 w) { return std::hypot(w.x, w.y) > kWristOnAxis ? std::atan2(w.y, w.x) : 0.0; }

Vec3 unit_or_vertical(Vec3 w)
{
    const double n = norm(w);
    return n > kWristAtShoulder ? (1.0 / n) * w : Vec3{0.0, 0.0, 1.0};
}

namespace {

// Below this |sin b| the outer angles of Rz Ry Rz turn about one axis: atan2 of the
// column and row that define them would read rounding alone. Rounding of a rotation built
// in double lies near 1e-16; above 1e-12 the two angles are still found to about 1e-4 and
// the product that they form is exact.
constexpr double kZyzSingularSin = 1e-12;

}  // namespace

void zyz_angles(const Rot& r, int gc, double hint_a, double out[3])
{
    const double cb = std::fmax(-1.0, std::fmin(1.0, r.m[2][2]));
    const double b = gc * std::acos(cb);
    const double g = gc;
    const double sx = g * r.m[0][2], sy = g * r.m[1][2];
    const double tx = -g * r.m[2][0], ty = g * r.m[2][1];
    if (std::hypot(sx, sy) > kZyzSingularSin || std::hypot(tx, ty) > kZyzSingularSin) {
        out[0] = std::atan2(sy, sx);
        out[1] = b;
        out[2] = std::atan2(ty, tx);
        return;
    }
    // Rz(a) Ry(0) Rz(c) = Rz(a + c); Rz(a) Ry(pi) Rz(c) = Rz(a - c) Ry(pi).
    out[0] = hint_a;
    out[1] = b;
    if (cb > 0.0) {
        out[2] = std::atan2(r.m[1][0], r.m[0][0]) - hint_a;
    } else {
        out[2] = hint_a - std::atan2(-r.m[1][0], -r.m[0][0]);
    }
}

/* -----------------------------------------------------------------------------
 * The link chains
 * -------------------------------------------------------------------------- */

namespace {

// A link at its family's nominal geometry: the twist as -1, 0, +1 for -pi/2, 0, pi/2
// (exact cosine and sine), and the DH entries of its lengths, -1 for a length that is
// nominally zero and not read.
struct NominalLink {
    int twist;
    int d_entry;
    int a_entry;
};

constexpr int kNone = -1;

// Standard DH, spherical shoulder and wrist: d1 base, d3 upper arm, d5 forearm, d7 flange.
constexpr NominalLink kAx71Links[kJoints] = {{-1, 0, kNone}, {1, kNone, kNone}, {-1, 2, kNone}, {1, kNone, kNone},
                                             {-1, 4, kNone}, {1, kNone, kNone}, {0, 6, kNone}};
// Modified DH with the elbow offsets a4, a5 and the flange offset a7.
constexpr NominalLink kTor7Links[kJoints] = {{0, 0, kNone}, {-1, kNone, kNone}, {1, 2, kNone}, {1, kNone, 3},
                                             {-1, 4, 4},    {1, kNone, kNone},  {1, 6, 6}};

void link_matrix(Family family, const NominalLink& link, const DH& dh, double theta, double out[4][4])
{
    const double ct = std::cos(theta), st = std::sin(theta);
    const double ca = link.twist == 0 ? 1.0 : 0.0, sa = link.twist;
    const double d = link.d_entry == kNone ? 0.0 : dh.d[link.d_entry];
    const double a = link.a_entry == kNone ? 0.0 : dh.a[link.a_entry];
    if (family == Family::kAx71) {
        const double m[4][4] = {{ct, -st * ca, st * sa, a * ct},  //
                                {st, ct * ca, -ct * sa, a * st},  //
                                {0, sa, ca, d},                   //
                                {0, 0, 0, 1}};
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) out[i][j] = m[i][j];
    } else {
        const double m[4][4] = {{ct, -st, 0, a},                   //
                                {st * ca, ct * ca, -sa, -d * sa},  //
                                {st * sa, ct * sa, ca, d * ca},    //
                                {0, 0, 0, 1}};
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) out[i][j] = m[i][j];
    }
}

}  // namespace

void chain_frames(Family family, const DH& dh, const double theta[kJoints], Chain* chain)
{
    const NominalLink* links = family == Family::kAx71 ? kAx71Links : kTor7Links;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) chain->t[0][i][j] = i == j ? 1.0 : 0.0;
    for (int k = 0; k < kJoints; ++k) {
        double link[4][4];
        link_matrix(family, links[k], dh, theta[k], link);
        marr_mD(chain->t[k], link, chain->t[k + 1]);
    }
}

Rot chain_rotation(const Chain& chain, int frame)
{
    Rot r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.m[i][j] = chain.t[frame][i][j];
    return r;
}

Vec3 chain_position(const Chain& chain, int frame)
{
    return {chain.t[frame][0][3], chain.t[frame][1][3], chain.t[frame][2][3]};
}

void chain_jacobian(Family family, const Chain& chain, Jacobian* jac)
{
    const Vec3 p = chain_position(chain, kJoints);
    for (int k = 0; k < kJoints; ++k) {
        const int frame = family == Family::kAx71 ? k : k + 1;
        const Vec3 z{chain.t[frame][0][2], chain.t[frame][1][2], chain.t[frame][2][2]};
        const Vec3 v = cross(z, p - chain_position(chain, frame));
        const double col[kTask] = {v.x, v.y, v.z, z.x, z.y, z.z};
        for (int i = 0; i < kTask; ++i) jac->j[i][k] = col[i];
    }
}

/* -----------------------------------------------------------------------------
 * Steps of least norm
 * -------------------------------------------------------------------------- */

bool MinNorm::factor(const Jacobian& jac)
{
    jac_ = jac;
    ok_ = false;
    double g[kTask][kTask];
    for (int i = 0; i < kTask; ++i)
        for (int k = 0; k < kTask; ++k) {
            double s = 0.0;
            for (int j = 0; j < kJoints; ++j) s += jac.j[i][j] * jac.j[k][j];
            g[i][k] = s;
        }
    for (int i = 0; i < kTask; ++i) {
        for (int k = 0; k <= i; ++k) {
            double s = g[i][k];
            for (int j = 0; j < k; ++j) s -= l_[i][j] * l_[k][j];
            if (i == k) {
                if (!(s > 0.0) || !std::isfinite(s)) return false;  // NaN fails too
                l_[i][i] = std::sqrt(s);
            } else {
                l_[i][k] = s / l_[k][k];
            }
        }
    }
    ok_ = true;
    return true;
}

double MinNorm::gram_det() const
{
    if (!ok_) return 0.0;
    double d = 1.0;
    for (int i = 0; i < kTask; ++i) d *= l_[i][i] * l_[i][i];
    return d;
}

void MinNorm::solve(const double b[kTask], double y[kTask]) const
{
    double z[kTask];
    for (int i = 0; i < kTask; ++i) {
        double s = b[i];
        for (int j = 0; j < i; ++j) s -= l_[i][j] * z[j];
        z[i] = s / l_[i][i];
    }
    for (int i = kTask - 1; i >= 0; --i) {
        double s = z[i];
        for (int j = i + 1; j < kTask; ++j) s -= l_[j][i] * y[j];
        y[i] = s / l_[i][i];
    }
}

void MinNorm::step(const double e[kTask], double dq[kJoints]) const
{
    for (int j = 0; j < kJoints; ++j) dq[j] = 0.0;
    if (!ok_) return;
    double y[kTask];
    solve(e, y);
    for (int j = 0; j < kJoints; ++j)
        for (int i = 0; i < kTask; ++i) dq[j] += jac_.j[i][j] * y[i];
}

void MinNorm::project(const double g[kJoints], double n[kJoints]) const
{
    if (!ok_) {
        // Without the factor the part that moves the flange cannot be taken out: no step.
        for (int j = 0; j < kJoints; ++j) n[j] = 0.0;
        return;
    }
    double jg[kTask];
    for (int i = 0; i < kTask; ++i) {
        jg[i] = 0.0;
        for (int j = 0; j < kJoints; ++j) jg[i] += jac_.j[i][j] * g[j];
    }
    double back[kJoints];
    step(jg, back);
    for (int j = 0; j < kJoints; ++j) n[j] = g[j] - back[j];
}

/* -----------------------------------------------------------------------------
 * Pose errors
 * -------------------------------------------------------------------------- */

namespace {

// Below this length of its skew part a rotation is taken as the identity or a half turn.
constexpr double kSkewZero = 1e-16;

// R_target R0^T.
Rot rotation_to_target(const Rot& r0, const Target& target) { return mul(target.r, transpose(r0)); }

}  // namespace

void angle_axis_error(const Rot& r0, Vec3 p0, const Target& target, double e[kTask])
{
    const Vec3 dp = target.p - p0;
    const Rot r = rotation_to_target(r0, target);
    const Vec3 l{r.m[2][1] - r.m[1][2], r.m[0][2] - r.m[2][0], r.m[1][0] - r.m[0][1]};
    const double ln = norm(l), tr = r.m[0][0] + r.m[1][1] + r.m[2][2];
    Vec3 w{0, 0, 0};
    if (ln >= kSkewZero) {
        w = (std::atan2(ln, tr - 1.0) / ln) * l;
    } else if (!(tr > 0.0)) {
        // A half turn: the axis from the diagonal, its sign unknown.
        w = tarn::kHalfPi * Vec3{r.m[0][0] + 1.0, r.m[1][1] + 1.0, r.m[2][2] + 1.0};
    }
    const double out[kTask] = {dp.x, dp.y, dp.z, w.x, w.y, w.z};
    for (int i = 0; i < kTask; ++i) e[i] = out[i];
}

void small_displacement_error(const Rot& r0, Vec3 p0, const Target& target, double e[kTask])
{
    const Vec3 dp = target.p - p0;
    Vec3 w{0, 0, 0};
    for (int c = 0; c < 3; ++c) w = w + cross(column(r0, c), column(target.r, c));
    w = 0.5 * w;
    const double out[kTask] = {dp.x, dp.y, dp.z, w.x, w.y, w.z};
    for (int i = 0; i < kTask; ++i) e[i] = out[i];
}

PoseError pose_error(const Head& head, const double q[kJoints])
{
    Chain chain;
    chain_frames(head.family, head.dh, q, &chain);
    const Rot r = rotation_to_target(chain_rotation(chain, kJoints), head.target);
    const Vec3 l{r.m[2][1] - r.m[1][2], r.m[0][2] - r.m[2][0], r.m[1][0] - r.m[0][1]};
    const double angle = std::atan2(0.5 * norm(l), 0.5 * (r.m[0][0] + r.m[1][1] + r.m[2][2] - 1.0));
    return {norm(head.target.p - chain_position(chain, kJoints)), angle};
}

/* -----------------------------------------------------------------------------
 * Target, reference and limits
 * -------------------------------------------------------------------------- */

namespace {

// Newton steps r <- r (3 I - r^T r) / 2 toward the nearest rotation: each squares the
// error, so two take 1e-7 below the rounding of double.
constexpr int kOrthonormalizeSteps = 2;

}  // namespace

Rot orthonormalized(const Rot& r)
{
    Rot x = r;
    for (int step = 0; step < kOrthonormalizeSteps; ++step) {
        const Rot g = mul(transpose(x), x);
        Rot h;
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) h.m[i][j] = 0.5 * ((i == j ? 3.0 : 0.0) - g.m[i][j]);
        x = mul(x, h);
    }
    return x;
}

bool target_from_mat(const Mat& f, Target* target)
{
    if (f.row != 4 || f.col != 4) return false;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 4; ++j)
            if (!std::isfinite(f.data[i][j])) return false;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) target->r.m[i][j] = f.data[i][j];
    target->r = orthonormalized(target->r);
    target->p = {f.data[0][3], f.data[1][3], f.data[2][3]};
    return true;
}

int load_head(Family family, const Target& target, const float* q_ref, Head* head)
{
    const RobotType type = libalgo_get_robot_type();
    const bool fits = family == Family::kAx71 ? type == AX71 : (type == TOR77 || type == TOR77II);
    if (!fits) return -3;
    for (int j = 0; j < kJoints; ++j)
        if (!std::isfinite(q_ref[j])) return -1;

    head->family = family;
    head->dh = libalgo_get_dh_value();
    head->target = target;
    float lim_max[LIBALGO_MAX_JOINTS], lim_min[LIBALGO_MAX_JOINTS], vmax[LIBALGO_MAX_JOINTS];
    libalgo_get_modeling_jointlim_max(lim_max);
    libalgo_get_modeling_jointlim_min(lim_min);
    libalgo_get_joint_vel_maxlim(vmax);
    for (int j = 0; j < kJoints; ++j) {
        head->offset[j] = head->dh.offset[j];
        head->ref[j] = static_cast<double>(q_ref[j]) + head->offset[j];
        head->lim_max[j] = lim_max[j];
        head->lim_min[j] = lim_min[j];
        head->vmax[j] = vmax[j];
    }
    head->period = libalgo_get_control_loop_period();
    // Whole turns of joint 7 as the caller counts them, before the offset.
    head->turns7 = std::trunc(static_cast<double>(q_ref[kJoints - 1]) / tarn::kTwoPi) * tarn::kTwoPi;
    head->ref[kJoints - 1] -= head->turns7;
    return 0;
}

/* -----------------------------------------------------------------------------
 * Candidates and the ranking
 * -------------------------------------------------------------------------- */

namespace {

// Seven joints differ by at most pi each on the circle: a cost beyond this is no
// candidate's.
constexpr double kNoCandidateAbove = 1000.0;

}  // namespace

double circular_cost(const Head& head, const double q[kJoints])
{
    double cost = 0.0;
    for (int j = 0; j < kJoints; ++j) {
        const double d = reduce_angle(q[j] - head.ref[j]);
        cost += d * d;
    }
    return cost;
}

bool settles_inside(const Head& head, const double q[kJoints])
{
    for (int j = 0; j < kJoints; ++j)
        if (!joint_inside(head, j, wrap_near(q[j], full_reference(head, j)))) return false;
    return true;
}

bool Best::offer(int candidate_tier, double candidate_cost, const double candidate[kJoints], int from_branch,
                 double at_param)
{
    if (!(candidate_cost < kNoCandidateAbove)) return false;  // NaN too
    const bool better = candidate_tier != tier ? candidate_tier < tier : candidate_cost < cost;
    if (!better) return false;
    found = true;
    tier = candidate_tier;
    cost = candidate_cost;
    for (int j = 0; j < kJoints; ++j) q[j] = candidate[j];
    branch = from_branch;
    param = at_param;
    return true;
}

/* -----------------------------------------------------------------------------
 * Jacobian steps
 * -------------------------------------------------------------------------- */

void centering_gradient(const Head& head, const double q[kJoints], double gain, double g[kJoints])
{
    for (int j = 0; j < kJoints; ++j) {
        const double mid = 0.5 * (head.lim_max[j] + head.lim_min[j]);
        const double range = head.lim_max[j] - head.lim_min[j];
        g[j] = range > 0.0 ? gain * (q[j] - mid) / (range * range) : 0.0;
    }
}

namespace {

// The polish ends when the flange lies this close to the target: far below the rounding
// of a float answer (about 1e-7), reached by Newton's quadratic convergence in a step or
// two from any answer of the closed forms or of one Jacobian step.
constexpr double kSolvedPosition = 1e-10;  // m
constexpr double kSolvedAngle = 1e-10;     // rad
// Newton steps at most; from a start that one step does not bring close it will not
// converge anyway.
constexpr int kPolishSteps = 4;
// A step that would turn a joint farther than this leaves the neighbourhood where the
// linearisation holds: the polish stops there.
constexpr double kPolishStepMax = 0.1;  // rad

// Steps of approach at most: each covers up to kPolishStepMax on its largest joint, so a
// start within about a radian of an answer reaches it.
constexpr int kApproachSteps = 40;

bool solved(const PoseError& e) { return e.position <= kSolvedPosition && e.angle <= kSolvedAngle; }
double badness(const PoseError& e) { return std::fmax(e.position, e.angle); }

// One step of least norm toward the target, at q; false when J J^T is singular.
bool least_norm_step(const Head& head, const double q[kJoints], double dq[kJoints])
{
    Chain chain;
    chain_frames(head.family, head.dh, q, &chain);
    Jacobian jac;
    chain_jacobian(head.family, chain, &jac);
    MinNorm solver;
    if (!solver.factor(jac)) return false;
    double e[kTask];
    angle_axis_error(chain_rotation(chain, kJoints), chain_position(chain, kJoints), head.target, e);
    solver.step(e, dq);
    return true;
}

}  // namespace

bool approach(const Head& head, double q[kJoints])
{
    for (int step = 0; step < kApproachSteps && !solved(pose_error(head, q)); ++step) {
        double dq[kJoints];
        if (!least_norm_step(head, q, dq)) return false;
        double largest = 0.0;
        for (double v : dq) largest = std::fmax(largest, std::fabs(v));
        if (!std::isfinite(largest)) return false;
        const double scale = largest > kPolishStepMax ? kPolishStepMax / largest : 1.0;
        for (int j = 0; j < kJoints; ++j) q[j] += scale * dq[j];
    }
    return polish(head, q);
}

bool polish(const Head& head, double q[kJoints])
{
    PoseError err = pose_error(head, q);
    for (int step = 0; step < kPolishSteps && !solved(err); ++step) {
        double dq[kJoints];
        if (!least_norm_step(head, q, dq)) return false;
        double next[kJoints];
        for (int j = 0; j < kJoints; ++j) {
            if (!(std::fabs(dq[j]) <= kPolishStepMax)) return false;
            next[j] = q[j] + dq[j];
        }
        const PoseError next_err = pose_error(head, next);
        if (!(badness(next_err) < badness(err))) return false;
        for (int j = 0; j < kJoints; ++j) q[j] = next[j];
        err = next_err;
    }
    return solved(err);
}

/* -----------------------------------------------------------------------------
 * The finish
 * -------------------------------------------------------------------------- */

int finish(const Head& head, const double q[kJoints], float* q_out)
{
    double settled[kJoints];
    bool inside = true;
    for (int j = 0; j < kJoints; ++j) {
        settled[j] = wrap_near(q[j], full_reference(head, j));
        if (!std::isfinite(settled[j])) return -1;
        inside = inside && joint_inside(head, j, settled[j]);
    }
    for (int j = 0; j < kJoints; ++j) q_out[j] = static_cast<float>(settled[j] - head.offset[j]);
    return inside ? 0 : -2;
}

}  // namespace ikine7

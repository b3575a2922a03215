// Seven-axis inverse kinematics: what the AX71 and TOR77 solvers share.
//
// Both solvers run the same frame:
//   1. the head: model, flange target, reference and limits in model angles
//      (q + DH offset), joint 7's whole turns split off;
//   2. a family's closed form over its redundancy parameter (arm angle or joint 7), in
//      tracking for one parameter value, in traversal over a sweep, the best candidate
//      kept by a ranking;
//   3. where the closed form is unfit (near its singularities), a Jacobian step of least
//      norm with a null-space step that pulls the joints toward the middle of their range;
//   4. the finish: turns restored, the limit test, the answer in joint angles.
// All of it runs in double on small fixed arrays: the target arrives in float, and the
// redundancy and the Jacobian steps lose digits that a float pipeline cannot spare.
#pragma once

#include <cmath>

#include "Algorithm/math/tarn_mathfuncs.h"
#include "libalgo_ikine7.h"
#include "libalgo_model.h"

namespace ikine7 {

inline constexpr int kJoints = 7;
inline constexpr int kTask = 6;  // rows of a Jacobian: position, then rotation

// Limits are widened by half a degree in the final test, as the six-axis solvers do.
inline constexpr double kLimitMargin = 0.0087;

/* -----------------------------------------------------------------------------
 * Small geometry in double
 * -------------------------------------------------------------------------- */

struct Vec3 {
    double x, y, z;
};

inline Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vec3 operator*(double k, Vec3 a) { return {k * a.x, k * a.y, k * a.z}; }
inline double dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vec3 cross(Vec3 a, Vec3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
inline double norm(Vec3 a) { return std::sqrt(dot(a, a)); }

// A rotation, row-major.
struct Rot {
    double m[3][3];
};

Rot mul(const Rot& a, const Rot& b);
Vec3 mul(const Rot& a, Vec3 v);
Rot transpose(const Rot& a);
Rot lin(double ka, const Rot& a, double kb, const Rot& b, const Rot& c);  // ka a + kb b + c
Vec3 column(const Rot& a, int j);
Rot rot_y(double angle);
Rot rot_z(double angle);
// Rz(a) Ry(b): the frame of two joints about z and y.
Rot rot_zy(double a, double b);

// The shoulder turned about the unit axis u by psi, Rot(u, psi) s0 = as sin psi +
// bs cos psi + cs: as = [u]x s0, bs = -[u]x^2 s0, cs = u u^T s0.
struct TurnForm {
    Rot as, bs, cs;
};
TurnForm turn_about(Vec3 u, const Rot& s0);
inline Rot turned(const TurnForm& f, double psi) { return lin(std::sin(psi), f.as, std::cos(psi), f.bs, f.cs); }

// Rx(pi/2) and Rx(-pi/2), exact.
inline constexpr Rot kRxHalfTurn{{{1, 0, 0}, {0, 0, -1}, {0, 1, 0}}};
inline constexpr Rot kRxMinusHalfTurn{{{1, 0, 0}, {0, 0, 1}, {0, -1, 0}}};

// Rz(a) Ry(b) Rz(c) = r. b = gc acos r(2,2), gc the branch sign; where sin b vanishes
// only a + c (or a - c) is defined and a keeps the hint.
void zyz_angles(const Rot& r, int gc, double hint_a, double out[3]);

// The shoulder-to-wrist line and the reference plane of a redundant arm with a spherical
// shoulder: the vertical plane through the wrist w (relative to the shoulder), at the
// angle of w about joint 1's axis; joint 1 = 0 where w lies on that axis.
double reference_plane_angle(Vec3 w);
// w / |w|, the vertical where w has no length.
Vec3 unit_or_vertical(Vec3 w);

/* -----------------------------------------------------------------------------
 * Angles
 * -------------------------------------------------------------------------- */

// The angle in [-pi, pi] of the same direction.
inline double reduce_angle(double a) { return std::remainder(a, tarn::kTwoPi); }
// Of q and its whole turns, the one nearest ref.
inline double wrap_near(double q, double ref) { return ref + reduce_angle(q - ref); }
// Branch sign of a joint: +1 at or above 0, -1 below, of the angle within one turn.
inline int branch_sign(double q) { return reduce_angle(q) >= 0.0 ? 1 : -1; }

/* -----------------------------------------------------------------------------
 * The link chains
 * -------------------------------------------------------------------------- */

enum class Family {
    kAx71,  // standard DH: joint i turns about the z of the frame before its link
    kTor7,  // modified DH: about the z of the frame after it
};

// Every frame of the chain at model angles theta: t[0] the base, t[i] after link i, t[7]
// the flange. Links at the family's nominal twists, lengths from dh.
struct Chain {
    double t[kJoints + 1][4][4];
};
void chain_frames(Family family, const DH& dh, const double theta[kJoints], Chain* chain);
Rot chain_rotation(const Chain& chain, int frame);
Vec3 chain_position(const Chain& chain, int frame);

// 6 x 7 in the base frame: column j = (z_j x (p - o_j), z_j) of joint j's axis z_j
// through o_j and the flange origin p.
struct Jacobian {
    double j[kTask][kJoints];
};
void chain_jacobian(Family family, const Chain& chain, Jacobian* jac);

// Steps of least norm through the Gram matrix J J^T, by its Cholesky factor.
class MinNorm {
public:
    // False when J J^T is not positive definite; the steps are then zero.
    bool factor(const Jacobian& jac);
    bool ok() const { return ok_; }
    // det(J J^T); 0 when the factor failed.
    double gram_det() const;
    // dq = J^T (J J^T)^-1 e.
    void step(const double e[kTask], double dq[kJoints]) const;
    // n = (I - J^+ J) g: g with its part that would move the flange taken out.
    void project(const double g[kJoints], double n[kJoints]) const;

private:
    void solve(const double b[kTask], double y[kTask]) const;
    Jacobian jac_{};
    double l_[kTask][kTask]{};
    bool ok_ = false;
};

/* -----------------------------------------------------------------------------
 * Target, reference and limits
 * -------------------------------------------------------------------------- */

struct Target {
    Rot r;
    Vec3 p;
};

// The error from the pose t0 (a chain frame) to the target, in the base frame: the
// position difference, then the rotation R_target R0^T as angle times axis
// (angle_axis_error) or as the small-displacement half sum of the axes' cross products
// (small_displacement_error).
void angle_axis_error(const Rot& r0, Vec3 p0, const Target& target, double e[kTask]);
void small_displacement_error(const Rot& r0, Vec3 p0, const Target& target, double e[kTask]);

struct Head {
    Family family;
    DH dh;
    Target target;
    double ref[kJoints];  // model reference; joint 7 less its whole turns
    double turns7;        // whole turns split off joint 7's reference (2 pi k)
    double offset[kJoints];
    double lim_max[kJoints];  // model limits (joint limits plus offset)
    double lim_min[kJoints];
    double vmax[kJoints];  // rad/s
    double period;         // s, the control period
};

// The nearest rotation to a near-orthonormal r. A target in float is orthonormal only to
// about 1e-7, and near a singular wrist or shoulder the closed forms read joint angles off
// entries of that size: unrepaired, the rounding would turn into 1e-4 rad of error there.
Rot orthonormalized(const Rot& r);

// The target from a 4 x 4 Mat: false unless it is 4 x 4 with finite entries. The rotation
// is orthonormalized.
bool target_from_mat(const Mat& f, Target* target);
// 0, -1 for a non-finite reference, -3 when the model loaded is not of the family.
int load_head(Family family, const Target& target, const float* q_ref, Head* head);

// The reference with joint 7's turns restored.
inline double full_reference(const Head& head, int j) { return head.ref[j] + (j == kJoints - 1 ? head.turns7 : 0.0); }
// Joint j within the limits widened by kLimitMargin.
inline bool joint_inside(const Head& head, int j, double q)
{
    return q >= head.lim_min[j] - kLimitMargin && q <= head.lim_max[j] + kLimitMargin;
}

/* -----------------------------------------------------------------------------
 * Candidates and the ranking
 * -------------------------------------------------------------------------- */

// Sum of squared differences to the reference, each on the circle.
double circular_cost(const Head& head, const double q[kJoints]);
// The candidate, each joint on the turn nearest the reference (turns restored), lies
// inside the widened limits.
bool settles_inside(const Head& head, const double q[kJoints]);

// Rank of a candidate, the lower the better: exact answers before those held at the edge
// of reach (nearest the target where a cosine lay a little beyond +-1), and within each,
// those inside the limits before those outside.
inline int tier_of(bool exact, bool inside) { return (exact ? 0 : 2) + (inside ? 0 : 1); }
inline constexpr int kNoTier = 4;

// The best candidate so far: the lowest tier, then the lower cost; a later candidate must
// be strictly better, and a cost must be finite and below any that seven joints on the
// circle can sum to. `branch` and `param` say where it came from, for a refinement.
struct Best {
    bool found = false;
    int tier = kNoTier;
    double cost = 0.0;
    double q[kJoints] = {};
    int branch = 0;
    double param = 0.0;

    bool inside() const { return found && tier % 2 == 0; }
    bool exact() const { return found && tier < 2; }
    bool offer(int candidate_tier, double candidate_cost, const double candidate[kJoints], int from_branch,
               double at_param);
};

// Golden-section search of a minimum of cost over [lo, hi]; the value found goes to
// *value. A fixed count of steps: the bracket shrinks to 0.618^steps of its width.
// The traversals refine the best value of their sweeps with kRefineSteps: a bracket of two
// sweep steps shrinks below 1e-6 rad.
inline constexpr int kRefineSteps = 30;
template <class Cost>
double golden_minimum(Cost&& cost, double lo, double hi, int steps, double* value)
{
    constexpr double kInvPhi = 0.6180339887498949;
    double a = lo, b = hi;
    double c = b - kInvPhi * (b - a), d = a + kInvPhi * (b - a);
    double fc = cost(c), fd = cost(d);
    for (int i = 0; i < steps; ++i) {
        if (fc < fd) {
            b = d;
            d = c;
            fd = fc;
            c = b - kInvPhi * (b - a);
            fc = cost(c);
        } else {
            a = c;
            c = d;
            fc = fd;
            d = a + kInvPhi * (b - a);
            fd = cost(d);
        }
    }
    *value = fc < fd ? fc : fd;
    return fc < fd ? c : d;
}

/* -----------------------------------------------------------------------------
 * Jacobian steps
 * -------------------------------------------------------------------------- */

// The gradient that pulls each joint toward the middle of its range:
// g[i] = gain (q[i] - mid[i]) / range[i]^2.
void centering_gradient(const Head& head, const double q[kJoints], double gain, double g[kJoints]);

struct PoseError {
    double position;  // m
    double angle;     // rad
};
PoseError pose_error(const Head& head, const double q[kJoints]);

// Newton steps of least norm from q until the flange lies on the target, at most a few,
// each within the neighbourhood where the linearisation holds. True when it got there; q
// holds the last iterate either way.
bool polish(const Head& head, double q[kJoints]);
// The same from farther away: steps of least norm shortened to that neighbourhood, up to a
// few dozen, then the polish.
bool approach(const Head& head, double q[kJoints]);

/* -----------------------------------------------------------------------------
 * The finish
 * -------------------------------------------------------------------------- */

// Each joint onto the turn nearest its reference (joint 7 with its turns), the limit test,
// and the answer in joint angles: 0, -2 outside the widened limits (written all the same),
// -1 for an answer that is not finite (nothing written).
int finish(const Head& head, const double q[kJoints], float* q_out);

}  // namespace ikine7

// Inverse kinematics of the lum6 family (LUM61, LUM66, LUM67): joints 2, 3 and 4 are
// parallel, so the wrist is not spherical. Twists 0, -pi/2, 0, 0, pi/2, -pi/2; parameters
// read: d1 = d[0], the shoulder offset a1 = a[1], the links a2 = a[2] and a3 = a[3], the
// sideways offset d4 = d[3], d5 = d[4], d6 = d[5].
//
// The point P = flange - d6 approach is the origin of joint 5's frame. It lies d4 to the
// side of the plane in which joints 2 to 4 move, which gives joint 1. Seen from the frame
// of joint 2 the rotation is Rz(q2 + q3 + q4) Rx(pi/2) Rz(q5) Rx(-pi/2) Rz(q6), a wrist
// with the sum of the parallel joints in place of joint 4; the rest is a planar two-link
// arm reaching P minus d5 along the direction of that sum.
#include <cmath>
#include <limits>

#include "Algorithm/kinematics/ikine_six_axis.h"

using namespace ikine;

namespace {

constexpr int kLum6ShoulderTwist = -1;
constexpr WristTwists kLum6Wrist = {/*s5=*/1, /*s6=*/-1};

// Limits widened by one degree for the single form's choice of turns; the all-solutions
// form wraps like ax6's, on limits widened by half a degree.
constexpr double kLum6Margin = 0.017453292519943;
constexpr double kLum6AllMargin = 0.0087;

// The squared distance of P from joint 1's axis beyond the offset d4: below -kReachBand
// P lies inside the offset cylinder and cannot be reached; between, the root is taken as
// that of |R|, or 0 below kRootFloor.
constexpr double kLum6ReachBand = 1e-7;
constexpr double kLum6RootFloor = 1e-12;

// cos q3 beyond +-1 by less than this is taken as the stretched or folded arm in the
// single form; the all-solutions form hands out exact solutions only.
constexpr double kLum6SingleElbowBand = 0.01;
constexpr double kLum6AllElbowBand = 0.0;

// Each joint on its turn nearest the reference, linear cost, lowest wins; the winner's
// joints are tested on the plain limits widened by half a degree.
constexpr SelectionRule kLum6Selection = {
    /*wrap=*/Wrap::kNearestTurn,
    /*drop_outside_limits=*/false,
    /*linear_cost=*/true,
    /*cost_ceiling=*/std::numeric_limits<double>::infinity(),
    /*avoid_singularity=*/false,
    /*joint6_near_reference=*/false,
    /*final_margin=*/0.008726646259972,
    /*final_dof_only=*/true,
};

// False when P lies inside the cylinder of radius |d4| about joint 1's axis.
bool solve_lum6(const Head& head, double elbow_band, Candidates* c)
{
    clear_candidates(c);
    const DH& dh = head.dh;
    const double d1 = dh.d[0], a1 = dh.a[1], a2 = dh.a[2], a3 = dh.a[3], d4 = dh.d[3], d5 = dh.d[4];
    const double px = head.wrist[0], py = head.wrist[1], pz = head.wrist[2];

    const double reach2 = px * px + py * py - d4 * d4;
    double root;
    if (reach2 < kLum6ReachBand) {
        if (reach2 <= -kLum6ReachBand) return false;
        root = std::fabs(reach2) > kLum6RootFloor ? std::sqrt(std::fabs(reach2)) : 0.0;
    } else {
        root = std::sqrt(reach2);
    }
    const double base = std::atan2(-px, py);
    const double turn = std::atan2(root, d4);
    const double r234 = head.ref[1] + head.ref[2] + head.ref[3];

    for (int i = 0; i < 2; ++i) {
        const double q1 = i == 0 ? base + turn : base - turn;
        const double c1 = std::cos(q1), s1 = std::sin(q1);
        double m[3][3];
        rotate_into_shoulder(head.rot, c1, s1, kLum6ShoulderTwist, m);
        const WristPair w =
            solve_wrist(m, kLum6Wrist, r234, head.ref[5], WristSingularRule::kHoldLastJoint);
        if (!w.valid) continue;
        for (int k = 0; k < 2; ++k) {
            const double q234 = w.q4[k];
            const double x = c1 * px + s1 * py - a1 - d5 * std::sin(q234);
            const double y = d5 * std::cos(q234) - (pz - d1);
            double c3 = (x * x + y * y - a2 * a2 - a3 * a3) / (2.0 * a2 * a3);
            const double beyond = std::fabs(c3) - 1.0;
            const Reach reach = judge_reach(beyond, reach_miss(std::hypot(x, y), a2, a3), elbow_band);
            if (!reach.reachable) continue;
            if (beyond > 0) c3 = c3 > 0 ? 1.0 : -1.0;
            for (int j = 0; j < 2; ++j) {
                const double q3 = j == 0 ? std::acos(c3) : -std::acos(c3);
                const double q2 = std::atan2(y, x) - std::atan2(a3 * std::sin(q3), a2 + a3 * c3);
                const double q4 = q234 - q2 - q3;
                const double q[kJoints] = {q1, q2, q3, q4, w.q5[k], w.q6[k]};
                store_candidate(c, candidate_index(i, j, k), q, reach.approximate, w.combo, w.sign);
            }
        }
    }
    return true;
}

}  // namespace

int inverse_kinematics_lum6(Matrix T, const float* q_ref, float* q_out)
{
    if (!q_ref || !q_out) return -1;
    Head head;
    if (!load_head(T, q_ref, kLum6Margin, &head)) return -1;
    Candidates c;
    if (!solve_lum6(head, kLum6SingleElbowBand, &c)) return -1;
    return select_solution(head, &c, kLum6Selection, q_out);
}

zk_inverse_kinematics_all_solve_t ikine_lum6_solver(Matrix T, const float* q_ref)
{
    if (!q_ref) return no_solutions(q_ref);
    Head head;
    if (!load_head(T, q_ref, kLum6AllMargin, &head)) return no_solutions(q_ref);
    Candidates c;
    if (!solve_lum6(head, kLum6AllElbowBand, &c)) return no_solutions(q_ref);
    return collect_solutions(head, c, q_ref);
}

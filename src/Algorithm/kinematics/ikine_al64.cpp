// Inverse kinematics of the al64 families, spherical wrists with twists
// 0, -pi/2, 0, pi/2, -pi/2, -pi/2:
//   al64_2 (AL64II, AL64IV): an in-line arm with a shoulder offset a2 = a[1] and a forearm
//          offset a4 = a[3]; further d1 = d[0], a3 = a[2], d4 = d[3], d6 = d[5];
//   al64_3 (AL64III): the same with the wrist moved out of the shoulder plane by
//          d2 = d[1], which makes joint 1 depend on the reach and joint 2 come before the
//          elbow.
// The single and the all-solutions forms differ in their thresholds on purpose.
#include <cmath>
#include <limits>

#include "Algorithm/kinematics/ikine_six_axis.h"
#include "libalgo_model.h"

using namespace ikine;

namespace {

constexpr WristTwists kAl64Wrist = {/*s5=*/-1, /*s6=*/-1};

constexpr InlineArm kAl64IIArm = {
    /*s2=*/-1,
    /*s4=*/1,
    /*wrist=*/kAl64Wrist,
    /*offsets=*/true,
    /*elbow_order=*/{1, -1},
};

// Limits widened by half a degree in the single forms; the all-solutions form wraps on
// the plain limits.
constexpr double kAl64SingleMargin = 0.0087;
constexpr double kAl64AllMargin = 0.0;

// The elbow ratio K / L is taken as the stretched arm up to 1.0002 in the single form; the
// all-solutions form hands out exact solutions only.
constexpr InlineForm kAl64IISingle = {
    /*shoulder_tolerance=*/5e-5,
    /*mirrored_shoulder=*/false,
    /*reach_band=*/2e-4,
};

constexpr InlineForm kAl64IIAll = {
    /*shoulder_tolerance=*/3e-7,
    /*mirrored_shoulder=*/true,
    /*reach_band=*/1e-6,  // a ratio within 1e-6 of +-1 is set to +-1
};

/* -----------------------------------------------------------------------------
 * al64_3: the shoulder with a sideways offset
 * -------------------------------------------------------------------------- */

// Unlike the in-line arms, neither form stretches the arm beyond its reach: a ratio K / rho
// of joint 2 beyond +-1 skips the pair, up to the rounding kReachExact allows.
constexpr double kAl64IIIReachBand = 0.0;

// Lowest cost wins, every joint wrapped into the widened limits and within pi of the
// reference; only the winner is tested, on the widened limits.
constexpr SelectionRule kAl64IIISelection = {
    /*wrap=*/Wrap::kIntoLimitsNearReference,
    /*drop_outside_limits=*/false,
    /*linear_cost=*/false,
    /*cost_ceiling=*/std::numeric_limits<double>::infinity(),
    /*avoid_singularity=*/false,
    /*joint6_near_reference=*/false,
    /*final_margin=*/kAl64SingleMargin,
    /*final_dof_only=*/false,
};

// The wrist centre sits at the height of joint 2 in the frame of joint 1, d2' = -s2 d2
// to the side of the arm's plane, so -s1 wx + c1 wy = d2' fixes joint 1 up to the side
// the arm reaches to. In the arm's plane the upper arm a3 and the forearm (a4, -d4)
// turned by q2 + q3 reach the point (r, z) at the distance rho; joint 2 first, from
//   r c2 + z s2 = K = (rho^2 + a3^2 - a4^2 - d4^2) / (2 a3),
// then the elbow from the direction of the forearm. False when the wrist centre lies
// closer to joint 1's axis than the offset (by more than kReachExact).
bool solve_al64_3(const Head& head, double reach_band, Candidates* c)
{
    clear_candidates(c);
    const DH& dh = head.dh;
    const int twist2 = kAl64IIArm.s2;
    const double d1 = dh.d[0], d2 = dh.d[1], a2 = dh.a[1], a3 = dh.a[2], a4 = dh.a[3], d4 = dh.d[3];
    const double wx = head.wrist[0], wy = head.wrist[1], wz = head.wrist[2];
    const double side = -static_cast<double>(twist2) * d2;
    // Inside the offset cylinder there is no solution; on its surface, within rounding,
    // the two joint-1 candidates meet.
    const double reach2 = wx * wx + wy * wy - side * side;
    if (reach2 < 0 && std::fabs(side) - std::hypot(wx, wy) > kReachExact) return false;

    const double base = std::atan2(-wx, wy);
    const double turn = std::atan2(std::sqrt(std::fmax(reach2, 0.0)), side);
    const double forearm = std::atan2(-d4, a4);
    for (int i = 0; i < 2; ++i) {
        const double q1 = i == 0 ? base + turn : base - turn;
        const double c1 = std::cos(q1), s1 = std::sin(q1);
        const double r = wx * c1 + wy * s1 - a2;
        const double z = static_cast<double>(twist2) * (wz - d1);
        const double rho2 = r * r + z * z;
        const double rho = std::sqrt(rho2), l2 = a4 * a4 + d4 * d4;
        double ratio = (rho2 + a3 * a3 - l2) / (2.0 * a3) / rho;
        const double beyond = std::fabs(ratio) - 1.0;
        const Reach reach = judge_reach(beyond, reach_miss(rho, a3, std::sqrt(l2)), reach_band);
        if (!reach.reachable) continue;  // out of reach for this shoulder
        if (beyond > 0) ratio = ratio > 0 ? 1.0 : -1.0;
        const double toward = std::atan2(z, r);
        const double bend = std::atan2(std::sqrt(1.0 - ratio * ratio), ratio);

        double shoulder[3][3];
        rotate_into_shoulder(head.rot, c1, s1, twist2, shoulder);
        for (int j = 0; j < 2; ++j) {
            const double q2 = j == 0 ? toward + bend : toward - bend;
            const double q23 = std::atan2(z - a3 * std::sin(q2), r - a3 * std::cos(q2)) - forearm;
            const double q3 = normalize_angle(q23 - q2);

            double m[3][3];
            rotate_into_forearm(shoulder, std::cos(q23), std::sin(q23), kAl64IIArm.s4, m);
            const WristPair w =
                solve_wrist(m, kAl64Wrist, head.ref[3], head.ref[5], WristSingularRule::kSplitEvenly);
            if (!w.valid) continue;
            for (int kk = 0; kk < 2; ++kk) {
                const double q[kJoints] = {q1, q2, q3, w.q4[kk], w.q5[kk], w.q6[kk]};
                store_candidate(c, candidate_index(i, j, kk), q, reach.approximate, w.combo, w.sign);
            }
        }
    }
    return true;
}

}  // namespace

int inverse_kinematics_al64_2(Matrix T, const float* q_ref, float* q_out)
{
    if (!q_ref || !q_out) return -1;
    Head head;
    if (!load_head(T, q_ref, kAl64SingleMargin, &head)) return -1;
    Candidates c;
    solve_inline_arm(head, q_ref, kAl64IIArm, kAl64IISingle, &c);
    return select_solution(head, &c, kInlineArmSelection, q_out);
}

int inverse_kinematics_al64_3(Matrix T, const float* q_ref, float* q_out)
{
    if (!q_ref || !q_out) return -1;
    Head head;
    if (!load_head(T, q_ref, kAl64SingleMargin, &head)) return -1;
    Candidates c;
    if (!solve_al64_3(head, kAl64IIIReachBand, &c)) return -1;
    return select_solution(head, &c, kAl64IIISelection, q_out);
}

zk_inverse_kinematics_all_solve_t ikine_al6II_solver(Matrix T, const float* q_ref)
{
    if (!q_ref) return no_solutions(q_ref);
    Head head;
    if (!load_head(T, q_ref, kAl64AllMargin, &head)) return no_solutions(q_ref);
    Candidates c;
    if (libalgo_get_robot_type() == AL64III) {
        if (!solve_al64_3(head, kAl64IIIReachBand, &c)) return no_solutions(q_ref);
    } else {
        solve_inline_arm(head, q_ref, kAl64IIArm, kAl64IIAll, &c);
    }
    return collect_solutions(head, c, q_ref);
}

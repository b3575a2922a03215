// Inverse kinematics of the ax6 family (AX61): an in-line arm without offsets and a
// spherical wrist. Parameters read: d1 = d[0], a3 = a[2], d4 = d[3], d6 = d[5]; twists
// 0, pi/2, 0, pi/2, -pi/2, pi/2.
//
// The single and the all-solutions form differ in their thresholds on purpose: the single
// form takes an arm a hair beyond its reach as stretched, the all-solutions form hands
// out exact solutions only.
#include "Algorithm/kinematics/ikine_six_axis.h"

using namespace ikine;

namespace {

constexpr InlineArm kAx6Arm = {
    /*s2=*/1,
    /*s4=*/1,
    /*wrist=*/{/*s5=*/-1, /*s6=*/1},
    /*offsets=*/false,
    // Elbow 0 has q3 = atan2(s3, c3) with c3 >= 0, where s3 = sin q3 is the elbow ratio.
    /*elbow_order=*/{-1, 1},
};

// Limits are widened by half a degree for the wrap and the candidates' own test.
constexpr double kAx6Margin = 0.0087;

constexpr InlineForm kAx6Single = {
    /*shoulder_tolerance=*/5e-5,
    /*mirrored_shoulder=*/false,
    /*reach_band=*/2e-4,  // s3 up to 1.0002 is taken as the stretched arm
};

constexpr InlineForm kAx6All = {
    /*shoulder_tolerance=*/3e-7,
    /*mirrored_shoulder=*/true,
    /*reach_band=*/1e-6,  // a ratio within 1e-6 of +-1 is set to +-1
};

}  // namespace

int inverse_kinematics_ax6(Matrix T, const float* q_ref, float* q_out)
{
    if (!q_ref || !q_out) return -1;
    Head head;
    if (!load_head(T, q_ref, kAx6Margin, &head)) return -1;
    Candidates c;
    solve_inline_arm(head, q_ref, kAx6Arm, kAx6Single, &c);
    return select_solution(head, &c, kInlineArmSelection, q_out);
}

zk_inverse_kinematics_all_solve_t ikine_ax6_solver(Matrix T, const float* q_ref)
{
    if (!q_ref) return no_solutions(q_ref);
    Head head;
    if (!load_head(T, q_ref, kAx6Margin, &head)) return no_solutions(q_ref);
    Candidates c;
    solve_inline_arm(head, q_ref, kAx6Arm, kAx6All, &c);
    return collect_solutions(head, c, q_ref);
}

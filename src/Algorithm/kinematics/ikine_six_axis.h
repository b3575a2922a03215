// Six-axis inverse kinematics: what the closed-form families share.
//
// Every solver runs the same three steps:
//   1. the common head: model, flange target, wrist point, reference and limits in model
//      angles (q + DH offset), joint 6's whole turns split off;
//   2. the family's geometry, which fills the eight candidates;
//   3. the selection skeleton (single forms, driven by the family's rule) or the collector
//      of every candidate (all-solutions forms).
// All angles in here are model angles, and everything runs in double: the target arrives
// in float, and a float pipeline would lose another digit next to the singularities.
#pragma once

#include <cmath>

#include "Algorithm/math/tarn_mathfuncs.h"
#include "libalgo_ikine.h"
#include "libalgo_math.h"

namespace ikine {

inline constexpr int kJoints = 6;

// Every configuration of a six-axis arm: two joint-1 candidates x two elbows x two wrists.
// Candidate 4 i + 2 j + k belongs to shoulder i, elbow j, wrist k. All eight are always
// written; one that does not exist is marked invalid.
inline constexpr int kCandidates = LIBALGO_IK_MAX_SOLUTIONS;
constexpr int candidate_index(int shoulder, int elbow, int wrist) { return 4 * shoulder + 2 * elbow + wrist; }

// The angle in (-pi, pi] of the same direction.
inline double normalize_angle(double a)
{
    return std::remainder(a, tarn::kTwoPi);
}

/* -----------------------------------------------------------------------------
 * The common head
 * -------------------------------------------------------------------------- */

struct Head {
    DH dh;
    double rot[3][3];            // flange orientation in the arm's base
    double wrist[3];             // flange position minus d6 along the approach axis
    double ref[kJoints];         // reference, joint 6 within one turn
    double turns6;               // whole turns split off joint 6's reference
    double offset[kJoints];
    double lim_max[kJoints];     // plain model limits
    double lim_min[kJoints];
    double margin;               // widening of the limits for this form
};

// Fills the head from the model store. T is the tool in the arm's world frame; the
// install and tool frames are taken off here. False for a target with a non-finite entry.
bool load_head(Matrix T, const float* q_ref, double margin, Head* head);

/* -----------------------------------------------------------------------------
 * Candidates
 * -------------------------------------------------------------------------- */

struct Candidates {
    double q[kCandidates][kJoints];
    bool valid[kCandidates];
    // Reached only by taking an arm a hair beyond its reach as stretched: the nearest
    // pose, not the target itself.
    bool approximate[kCandidates];
    // The combination of the wrist that stays defined where q5 makes joints 4 and 6 turn
    // about one axis: q4 + wrist_sign q6, exact at the candidate's own q5.
    double wrist_combo[kCandidates];
    int wrist_sign[kCandidates];
};

void clear_candidates(Candidates* c);

// Stores one configuration; it is valid only when every joint is finite.
void store_candidate(Candidates* c, int index, const double q[kJoints], bool approximate, double wrist_combo,
                     int wrist_sign);

/* -----------------------------------------------------------------------------
 * Rotations and the wrist
 * -------------------------------------------------------------------------- */

// Twist signs: +1 for a twist of pi/2, -1 for -pi/2.
//
// rotate_into_shoulder gives Rx(-s2 pi/2) Rz(-q1) R: the target seen from the frame of
// joint 2 before its own rotation. rotate_into_forearm continues with
// Rx(-s4 pi/2) Rz(-(q2 + q3)) for joints 2 and 3 parallel.
void rotate_into_shoulder(const double r[3][3], double c1, double s1, int s2, double out[3][3]);
void rotate_into_forearm(const double m[3][3], double c23, double s23, int s4, double out[3][3]);

// A wrist of three axes, m = Rz(q4) Rx(s5 pi/2) Rz(q5) Rx(s6 pi/2) Rz(q6).
struct WristTwists {
    int s5;
    int s6;
};

// Where q5 leaves only one combination of q4 and q6 defined, how to divide it.
enum class WristSingularRule {
    kSplitEvenly,    // both move by the same amount from the reference
    kHoldLastJoint,  // joint 6 stays at its reference, joint 4 takes the rest
};

struct WristPair {
    bool valid;
    double q4[2], q5[2], q6[2];  // wrist k = 0 has q5 >= 0, k = 1 q5 <= 0
    double combo;                // q4 + sign q6, exact for the q5 found
    int sign;
};

// |sin q5| below this is the wrist's singularity, where joints 4 and 6 are divided by the
// rule. It lies well above the rounding of a float target (about 1e-7) and well below
// what a division could cost in accuracy: a wrist q5 off its singularity and divided
// anyway misses its target by about 2 |q5|.
inline constexpr double kWristSingularSin = 1e-5;

// The two wrist configurations for m, which must be a rotation (|cos q5| at most 1 plus
// rounding; otherwise, or with a NaN, there is no wrist).
WristPair solve_wrist(const double m[3][3], WristTwists twists, double r4, double r6, WristSingularRule rule);

/* -----------------------------------------------------------------------------
 * Reach
 * -------------------------------------------------------------------------- */

// A stretched or folded arm that misses its target by no more than this (metres) counts
// as reaching it: the rounding of a float target lies far below, the accuracy a caller
// can ask of a pose far above. It keeps the solutions of an arm stretched exactly, whose
// elbow ratio rounding alone takes beyond 1, and the folded arm, where a small excess of
// the ratio means a large miss.
inline constexpr double kReachExact = 1e-5;

// How far a two-link arm of lengths a and b misses a point at `dist` from its root:
// negative inside its reach.
inline double reach_miss(double dist, double a, double b)
{
    return std::fmax(dist - (a + b), std::fabs(a - b) - dist);
}

struct Reach {
    bool reachable;    // solved, the elbow ratio clamped to +-1 where it lies beyond
    bool approximate;  // as the stretched (or folded) arm nearest the target
};

// An elbow ratio `beyond` +-1 by `beyond` is taken as the stretched or folded arm up to
// the form's `band`, or wherever the arm misses by no more than kReachExact.
inline Reach judge_reach(double beyond, double miss, double band)
{
    if (!(beyond < band) && !(miss <= kReachExact)) return {false, false};  // NaN too
    return {true, miss > kReachExact};
}

/* -----------------------------------------------------------------------------
 * In-line arms: ax6 and al64_2
 * -------------------------------------------------------------------------- */

// Joints 2 and 3 parallel, the wrist centre reached through the upper arm a3 and a
// forearm with an offset a4 and a length d4; joint 2 may sit a2 out from joint 1's axis.
struct InlineArm {
    int s2;              // twist of joint 2
    int s4;              // twist of joint 4
    WristTwists wrist;
    bool offsets;        // reads a[1] and a[3]; without them the arm has neither
    int elbow_order[2];  // sign of the elbow root for elbow 0 and elbow 1
};

struct InlineForm {
    double shoulder_tolerance;  // |wx| and |wy| below it: the wrist is on joint 1's axis
    bool mirrored_shoulder;   // then (q_ref[0], -q_ref[0]) rather than the reference twice
    double reach_band;          // elbow ratio beyond +-1 by less than this: the arm stretched
                                // (see judge_reach)
};

void solve_inline_arm(const Head& head, const float* q_ref, const InlineArm& arm, const InlineForm& form,
                      Candidates* c);

/* -----------------------------------------------------------------------------
 * Selection
 * -------------------------------------------------------------------------- */

enum class Wrap {
    kIntoLimits,               // one turn up below the widened minimum, down above the maximum
    kIntoLimitsNearReference,  // that, then within pi of the reference
    kNearestTurn,              // the turn nearest the reference inside the widened limits
};

struct SelectionRule {
    Wrap wrap;
    bool drop_outside_limits;   // a candidate outside the widened limits after the wrap is dropped
    bool linear_cost;           // weights on |dq| rather than dq^2
    double cost_ceiling;          // a winner must cost less
    bool avoid_singularity;     // the wrist re-solve near q5 = 0 when the model asks for it
    bool joint6_near_reference; // joint 6 costed and given out on the turn nearest its reference
    double final_margin;          // widening of the plain limits in the final test
    bool final_dof_only;        // the final test looks at the arm's dof joints only
};

// The rule of the in-line arms (ax6, al64_2): nearest by quadratic cost among the
// candidates inside the widened limits, the wrist settled near its singularity when the
// model asks for it, and the winner tested against the plain limits.
inline constexpr SelectionRule kInlineArmSelection = {
    /*wrap=*/Wrap::kIntoLimits,
    /*drop_outside_limits=*/true,
    /*linear_cost=*/false,
    /*cost_ceiling=*/1000.0,
    /*avoid_singularity=*/true,
    /*joint6_near_reference=*/true,
    /*final_margin=*/0.0,
    /*final_dof_only=*/false,
};

// Picks the winner among the candidates, writes it to q_out in user angles and returns
// 0, -1 (nothing written) or -2.
int select_solution(const Head& head, Candidates* c, const SelectionRule& rule, float* q_out);

// Every valid candidate, wrapped into the widened limits and near the reference, as rows
// of user angles.
zk_inverse_kinematics_all_solve_t collect_solutions(const Head& head, const Candidates& c,
                                                    const float* q_ref);

// The record of an all-solutions form without any row.
zk_inverse_kinematics_all_solve_t no_solutions(const float* q_ref);

}  // namespace ikine

// Six-axis inverse kinematics: the common head, the wrist and the in-line arm.
//
// The link convention is modified DH over the family's nominal twists, each +-pi/2 or 0:
// link i is Rx(alpha[i]) Tx(a[i]) Rz(q[i] + offset[i]) Tz(d[i]). Expressions below are
// in model angles; writing the chain out symbolically gives them, and the round-trip tests
// check them against the forward kinematics.
#include <cmath>

#include "Algorithm/kinematics/ikine_six_axis.h"
#include "Algorithm/math/tarn_mathfuncs.h"
#include "libalgo_model.h"

namespace ikine {

namespace {

constexpr double kPi = tarn::kPi;
constexpr double kTwoPi = tarn::kTwoPi;

// a + n 2 pi nearest to `to`, within pi of it.
double bring_near(double a, double to)
{
    return to + normalize_angle(a - to);
}

}  // namespace

/* -----------------------------------------------------------------------------
 * The common head
 * -------------------------------------------------------------------------- */

bool load_head(Matrix T, const float* q_ref, double margin, Head* head)
{
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 4; ++j)
            if (!std::isfinite(T.data[i][j])) return false;
    // Read as the homogeneous transform it stands for, whatever its header says.
    T.irow = T.iline = 4;
    T.data[3][0] = T.data[3][1] = T.data[3][2] = 0.0f;
    T.data[3][3] = 1.0f;

    head->dh = libalgo_get_dh_value();
    const Matrix install = libalgo_get_robot_install_angle_matrix();
    const Matrix tool = libalgo_get_tool_cs_matrix();
    const Matrix flange =
        matrix_m(matrix_m(matrix_inv_coordinate_system(install), T), matrix_inv_coordinate_system(tool));

    float lim_max[LIBALGO_MAX_JOINTS];
    float lim_min[LIBALGO_MAX_JOINTS];
    libalgo_get_modeling_jointlim_max(lim_max);
    libalgo_get_modeling_jointlim_min(lim_min);
    head->margin = margin;
    for (int j = 0; j < kJoints; ++j) {
        head->offset[j] = head->dh.offset[j];
        head->lim_max[j] = lim_max[j];
        head->lim_min[j] = lim_min[j];
        head->ref[j] = static_cast<double>(q_ref[j]) + head->offset[j];
    }
    // Joint 6 may run over several turns: the solver works within one and gives them back.
    head->turns6 = std::trunc(static_cast<double>(q_ref[5]) / kTwoPi);
    head->ref[5] -= kTwoPi * head->turns6;

    const double d6 = head->dh.d[5];
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) head->rot[i][j] = flange.data[i][j];
        head->wrist[i] = flange.data[i][3] - d6 * head->rot[i][2];
    }
    return true;
}

/* -----------------------------------------------------------------------------
 * Candidates
 * -------------------------------------------------------------------------- */

void clear_candidates(Candidates* c)
{
    *c = Candidates{};
}

void store_candidate(Candidates* c, int index, const double q[kJoints], bool approximate, double wrist_combo,
                     int wrist_sign)
{
    bool finite = true;
    for (int j = 0; j < kJoints; ++j) {
        c->q[index][j] = q[j];
        finite = finite && std::isfinite(q[j]);
    }
    c->valid[index] = finite;
    c->approximate[index] = approximate;
    c->wrist_combo[index] = wrist_combo;
    c->wrist_sign[index] = wrist_sign;
}

/* -----------------------------------------------------------------------------
 * Rotations and the wrist
 * -------------------------------------------------------------------------- */

void rotate_into_shoulder(const double r[3][3], double c1, double s1, int s2, double out[3][3])
{
    for (int j = 0; j < 3; ++j) {
        const double n0 = c1 * r[0][j] + s1 * r[1][j];
        const double n1 = -s1 * r[0][j] + c1 * r[1][j];
        out[0][j] = n0;
        out[1][j] = static_cast<double>(s2) * r[2][j];
        out[2][j] = -static_cast<double>(s2) * n1;
    }
}

void rotate_into_forearm(const double m[3][3], double c23, double s23, int s4, double out[3][3])
{
    for (int j = 0; j < 3; ++j) {
        const double q0 = c23 * m[0][j] + s23 * m[1][j];
        const double q1 = -s23 * m[0][j] + c23 * m[1][j];
        out[0][j] = q0;
        out[1][j] = static_cast<double>(s4) * m[2][j];
        out[2][j] = -static_cast<double>(s4) * q1;
    }
}

namespace {

// q6 that completes q4 and q5 to m: the first column of
// (Rx(s5 pi/2) Rz(q5) Rx(s6 pi/2))^T Rz(-q4) m is (cos q6, sin q6, 0). Taken this way
// rather than from entries that scale with sin q5, it keeps the wrist exact next to a
// singularity, where q4 on its own is poorly conditioned.
double complete_joint6(const double m[3][3], WristTwists t, double q4, double q5)
{
    const double c4 = std::cos(q4), s4 = std::sin(q4);
    const double n00 = c4 * m[0][0] + s4 * m[1][0];
    const double n10 = -s4 * m[0][0] + c4 * m[1][0];
    const double sign = static_cast<double>(t.s5 * t.s6);
    return std::atan2(-sign * n10, std::cos(q5) * n00 + static_cast<double>(t.s5) * std::sin(q5) * m[2][0]);
}

}  // namespace

WristPair solve_wrist(const double m[3][3], WristTwists t, double r4, double r6, WristSingularRule rule)
{
    // cos q5 of a rotation lies within this of [-1, 1].
    constexpr double kRotationRounding = 1e-6;

    WristPair w{};
    const double twist = static_cast<double>(t.s5 * t.s6);
    const double c5 = -twist * m[2][2];
    // At q5 = 0 or pi the axes of joints 4 and 6 line up and only q4 + sign q6 is defined:
    // sign = +1 where the two twists cancel (opposite signs) at q5 = 0, and flips at pi.
    // atan2 of these entries gives that combination for any q5 of the same side.
    const double side = c5 >= 0 ? 1.0 : -1.0;
    w.sign = static_cast<int>(-twist * side);
    const double e = static_cast<double>(w.sign);
    w.combo = std::atan2(side * (m[1][0] - e * m[0][1]), side * (m[0][0] + e * m[1][1]));

    if (!(std::fabs(c5) <= 1.0 + kRotationRounding)) return w;
    w.valid = true;

    const double s5 = std::hypot(m[0][2], m[1][2]);
    const double q5 = std::atan2(s5, c5);
    const double s6 = static_cast<double>(t.s6);
    if (!(s5 < kWristSingularSin)) {
        for (int k = 0; k < 2; ++k) {
            const double s = k == 0 ? 1.0 : -1.0;  // sign of sin q5
            w.q5[k] = s * q5;
            w.q4[k] = std::atan2(s * s6 * m[1][2], s * s6 * m[0][2]);
            w.q6[k] = complete_joint6(m, t, w.q4[k], w.q5[k]);
        }
        return w;
    }

    // Singular: the combination is divided by the rule, and q5 keeps the small angle it
    // has. Of the two wrists, (q4, q5, q6) and (q4 + pi, -q5, q6 + pi), the division goes
    // to the one whose q5 has the sign that its own q4 calls for, as far as that can still
    // be told; the other wrist is its flip.
    const double at_ref = r4 + e * r6;
    double q4, q6;
    if (rule == WristSingularRule::kSplitEvenly) {
        const double delta = (bring_near(w.combo, at_ref) - at_ref) / 2.0;
        q4 = r4 + delta;
        q6 = r6 + e * delta;
    } else {
        q6 = r6;
        q4 = bring_near(w.combo, at_ref) - e * r6;
    }
    const double q4_for_positive = std::atan2(s6 * m[1][2], s6 * m[0][2]);
    const int divided = std::cos(q4 - q4_for_positive) >= 0 ? 0 : 1;
    for (int k = 0; k < 2; ++k) {
        const double flip = k == divided ? 0.0 : kPi;
        w.q5[k] = k == 0 ? q5 : -q5;
        w.q4[k] = q4 + flip;
        w.q6[k] = q6 + flip;
    }
    return w;
}

/* -----------------------------------------------------------------------------
 * In-line arms
 * -------------------------------------------------------------------------- */

// The wrist centre in the frame of joint 1, with r its distance out from joint 2 and z
// its height above joint 2 along the arm's sense of q2:
//   r = a3 c2 + a4 c23 + d4 s23,   z = a3 s2 + a4 s23 - d4 c23.
// The elbow follows from the distance to joint 2: a4 c3 + d4 s3 = K,
//   K = (r^2 + z^2 - a3^2 - a4^2 - d4^2) / (2 a3),
// and q2 from r = B c2 - A s2, z = B s2 + A c2 with A = a4 s3 - d4 c3, B = a3 + a4 c3 + d4 s3.
void solve_inline_arm(const Head& head, const float* q_ref, const InlineArm& arm, const InlineForm& form,
                      Candidates* c)
{
    clear_candidates(c);
    const DH& dh = head.dh;
    const double d1 = dh.d[0], a3 = dh.a[2], d4 = dh.d[3];
    const double a2 = arm.offsets ? dh.a[1] : 0.0;
    const double a4 = arm.offsets ? dh.a[3] : 0.0;
    const double wx = head.wrist[0], wy = head.wrist[1], wz = head.wrist[2];

    double q1[2];
    if (std::fabs(wx) < form.shoulder_tolerance && std::fabs(wy) < form.shoulder_tolerance) {
        // Any joint 1 reaches a wrist on its own axis: it stays where the reference has
        // it, as far as the limits let it.
        const double stay = std::fmin(std::fmax(head.ref[0], head.lim_min[0]), head.lim_max[0]);
        q1[0] = form.mirrored_shoulder ? static_cast<double>(q_ref[0]) : stay;
        q1[1] = form.mirrored_shoulder ? -static_cast<double>(q_ref[0]) : stay;
    } else {
        q1[0] = std::atan2(wy, wx);
        q1[1] = std::atan2(-wy, -wx);
    }

    const double l2 = a4 * a4 + d4 * d4;
    const double l = std::sqrt(l2);
    const double forearm = std::atan2(a4, -d4);
    for (int i = 0; i < 2; ++i) {
        const double c1 = std::cos(q1[i]), s1 = std::sin(q1[i]);
        const double r = wx * c1 + wy * s1 - a2;
        const double z = static_cast<double>(arm.s2) * (wz - d1);
        const double dist2 = r * r + z * z;
        double ratio = (dist2 - a3 * a3 - l2) / (2.0 * a3) / l;
        const double beyond = std::fabs(ratio) - 1.0;
        const Reach reach = judge_reach(beyond, reach_miss(std::sqrt(dist2), a3, l), form.reach_band);
        if (!reach.reachable) continue;
        if (beyond > 0) ratio = ratio > 0 ? 1.0 : -1.0;
        const double k = ratio * l;
        const double root = l * std::sqrt(1.0 - ratio * ratio);

        double shoulder[3][3];
        rotate_into_shoulder(head.rot, c1, s1, arm.s2, shoulder);
        for (int j = 0; j < 2; ++j) {
            const double q3 = normalize_angle(forearm - std::atan2(k, static_cast<double>(arm.elbow_order[j]) * root));
            const double c3 = std::cos(q3), s3 = std::sin(q3);
            const double A = a4 * s3 - d4 * c3;
            const double B = a3 + a4 * c3 + d4 * s3;
            const double q2 = std::atan2(B * z - A * r, A * z + B * r);

            double m[3][3];
            rotate_into_forearm(shoulder, std::cos(q2 + q3), std::sin(q2 + q3), arm.s4, m);
            const WristPair w =
                solve_wrist(m, arm.wrist, head.ref[3], head.ref[5], WristSingularRule::kSplitEvenly);
            if (!w.valid) continue;
            for (int kk = 0; kk < 2; ++kk) {
                const double q[kJoints] = {q1[i], q2, q3, w.q4[kk], w.q5[kk], w.q6[kk]};
                store_candidate(c, candidate_index(i, j, kk), q, reach.approximate, w.combo, w.sign);
            }
        }
    }
}

}  // namespace ikine

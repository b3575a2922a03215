// Six-axis inverse kinematics: choosing among the candidates.
//
// The single forms share one skeleton, steered by the family's SelectionRule: wrap each
// joint, cost each candidate against the reference, take the cheapest (the first of
// equals), optionally settle the wrist near its singularity, write the answer and test it
// against the limits. The all-solutions forms wrap every candidate and hand them all out.
#include <cmath>
#include <limits>

#include "Algorithm/kinematics/ikine_six_axis.h"
#include "Algorithm/math/tarn_mathfuncs.h"
#include "libalgo_model.h"

namespace ikine {

namespace {

constexpr double kTwoPi = tarn::kTwoPi;
constexpr double kPi = tarn::kPi;

// The shoulder and elbow joints move the most mass: their distance counts more.
constexpr double kJointWeight[kJoints] = {2.4, 2.4, 2.4, 1.0, 1.0, 1.0};

// Distance charged for a joint with no turn inside the limits: the candidate loses to
// every other that has one.
constexpr double kOutOfLimitsDistance = 1e6;

// The wrist re-solve, when the model asks for it, acts within this angle (about 5
// degrees) of the wrist's singularity.
constexpr double kAvoidSingularityBand = 0.087;

double wrap_into_limits(double q, double lo, double hi)
{
    if (q < lo) return q + kTwoPi;
    if (q > hi) return q - kTwoPi;
    return q;
}

double wrap_near_reference(double q, double ref)
{
    const double d = q - ref;
    if (d > kPi) return q - kTwoPi;
    if (d < -kPi) return q + kTwoPi;
    return q;
}

bool inside(double q, double lo, double hi)
{
    return q >= lo && q <= hi;  // NaN is outside
}

// Joints 4 and 6 divided anew so that the wrist keeps the reference's split of the
// combination that stays defined at the singularity, q4 + sign q6: near it the single
// angles swing wildly with the smallest change of the target. The price is a wrist off
// its target by up to about twice q5's distance from the singularity.
void settle_wrist(const Head& head, double combo, int sign, double q[kJoints])
{
    const double e = static_cast<double>(sign);
    const double r4 = head.ref[3], r6 = head.ref[5];
    const double at_ref = r4 + e * r6;
    const double s = at_ref + normalize_angle(combo - at_ref);
    q[3] = (s + r4 - e * r6) / 2.0;
    q[5] = e * (s - r4 + e * r6) / 2.0;
}

// Whether q, in model angles, passes the final test as it would be given out.
bool passes_final_test(const Head& head, const SelectionRule& rule, const double q[kJoints])
{
    int tested = kJoints;
    if (rule.final_dof_only) {
        const int dof = libalgo_get_rbt_dof();
        tested = dof < 0 ? 0 : (dof < kJoints ? dof : kJoints);
    }
    for (int j = 0; j < tested; ++j) {
        const double turns = j == 5 ? kTwoPi * head.turns6 : 0.0;
        const double out = q[j] - head.offset[j] + turns;
        const double lo = head.lim_min[j] - head.offset[j] - rule.final_margin;
        const double hi = head.lim_max[j] - head.offset[j] + rule.final_margin;
        if (!inside(out, lo, hi)) return false;
    }
    return true;
}

// Charged on top of a candidate that would fail the final test, or that only comes near
// its target (an arm a hair beyond its reach taken as stretched): among candidates about
// as near as each other, an exact one inside the limits goes first, but none far from
// the reference does, so that a tracked arm does not jump to another configuration.
// About 0.65 rad on a main joint in the quadratic cost, 1 rad on a wrist joint.
constexpr double kLesserCandidateCharge = 1.0;

// Wraps the candidate's joints in place by the rule and returns its distance from the
// reference, +inf for a candidate that cannot win.
double cost_candidate(const Head& head, const SelectionRule& rule, double q[kJoints], bool approximate)
{
    double sum = 0;
    bool dropped = false;
    for (int j = 0; j < kJoints; ++j) {
        const double lo = head.lim_min[j] - head.margin, hi = head.lim_max[j] + head.margin;
        double dist;
        if (rule.wrap == Wrap::kNearestTurn) {
            double qj = q[j];
            const double ref = head.ref[j];
            find_nearest_joint(&ref, &qj, head.lim_min[j], head.lim_max[j], head.margin);
            q[j] = qj;
            dist = inside(q[j], lo, hi) ? std::fabs(q[j] - head.ref[j]) : kOutOfLimitsDistance;
        } else {
            q[j] = wrap_into_limits(q[j], lo, hi);
            if (rule.wrap == Wrap::kIntoLimitsNearReference) q[j] = wrap_near_reference(q[j], head.ref[j]);
            if (rule.drop_outside_limits && !inside(q[j], lo, hi)) dropped = true;
            if (j == 5 && rule.joint6_near_reference) {
                // Joint 6 has more than one turn inside its limits: it is charged, and
                // given out, on the turn nearest its reference.
                q[j] = wrap_near_reference(q[j], head.ref[j]);
            }
            dist = q[j] - head.ref[j];
        }
        const double w = kJointWeight[j];
        sum += rule.linear_cost ? w * std::fabs(dist) : w * dist * dist;
    }
    if (dropped || std::isnan(sum)) return std::numeric_limits<double>::infinity();
    if (approximate || !passes_final_test(head, rule, q)) sum += kLesserCandidateCharge;
    return sum;
}

}  // namespace

int select_solution(const Head& head, Candidates* c, const SelectionRule& rule, float* q_out)
{
    double cost[kCandidates];
    for (int n = 0; n < kCandidates; ++n)
        cost[n] = c->valid[n] ? cost_candidate(head, rule, c->q[n], c->approximate[n])
                              : std::numeric_limits<double>::infinity();
    const int best = find_min_index(cost, kCandidates);
    if (!(cost[best] < rule.cost_ceiling)) return -1;

    double q[kJoints];
    for (int j = 0; j < kJoints; ++j) q[j] = c->q[best][j];
    // Both q5 = 0 and q5 = pi line up joints 4 and 6 (AL64II turns joint 5 by pi).
    const bool near_singular = std::fabs(std::remainder(q[4], kPi)) < kAvoidSingularityBand;
    if (rule.avoid_singularity && libalgo_get_is_avoid_Singularity() == 1 && near_singular)
        settle_wrist(head, c->wrist_combo[best], c->wrist_sign[best], q);
    if (rule.joint6_near_reference) q[5] = wrap_near_reference(q[5], head.ref[5]);

    for (int j = 0; j < kJoints; ++j) {
        const double turns = j == 5 ? kTwoPi * head.turns6 : 0.0;
        q_out[j] = static_cast<float>(q[j] - head.offset[j] + turns);
    }
    return passes_final_test(head, rule, q) ? 0 : -2;
}

zk_inverse_kinematics_all_solve_t no_solutions(const float* q_ref)
{
    zk_inverse_kinematics_all_solve_t all{};
    if (q_ref)
        for (int j = 0; j < kJoints; ++j) all.q_ref[j] = q_ref[j];
    return all;
}

zk_inverse_kinematics_all_solve_t collect_solutions(const Head& head, const Candidates& c,
                                                    const float* q_ref)
{
    zk_inverse_kinematics_all_solve_t all = no_solutions(q_ref);
    for (int n = 0; n < kCandidates; ++n) {
        if (!c.valid[n]) continue;
        double q[kJoints];
        bool finite = true;
        for (int j = 0; j < kJoints; ++j) {
            q[j] = wrap_into_limits(c.q[n][j], head.lim_min[j] - head.margin, head.lim_max[j] + head.margin);
            q[j] = wrap_near_reference(q[j], head.ref[j]);
            finite = finite && std::isfinite(q[j]);
        }
        if (!finite) continue;
        float* row = all.q_solve[all.num];
        for (int j = 0; j < kJoints; ++j) row[j] = static_cast<float>(q[j] - head.offset[j]);
        row[5] = static_cast<float>(q[5] - head.offset[5] + tarn::kTwoPi * head.turns6);
        ++all.num;
    }
    all.result = all.num > 0 ? 1 : 0;
    return all;
}

}  // namespace ikine

/* -----------------------------------------------------------------------------
 * Exported helpers
 * -------------------------------------------------------------------------- */

double recalcu_q46(double q, double q_ref)
{
    const double below = q - tarn::kTwoPi, above = q + tarn::kTwoPi;
    const float d_below = std::fabs(static_cast<float>(below - q_ref));
    const float d_same = std::fabs(static_cast<float>(q - q_ref));
    const float d_above = std::fabs(static_cast<float>(above - q_ref));
    if (d_same <= d_below && d_same <= d_above) return q;
    return d_above < d_below ? above : below;
}

void find_nearest_joint(const double* q_ref, double* q, double q_min, double q_max, double margin)
{
    if (!q_ref || !q) return;
    constexpr int kTurns = 2;  // up to two whole turns either way
    const double lo = q_min - margin, hi = q_max + margin;
    const double raw = *q;
    bool found = false;
    double best = raw, best_dist = 0.0;
    for (int n = -kTurns; n <= kTurns; ++n) {
        const double v = raw + n * tarn::kTwoPi;
        if (!(v >= lo && v <= hi)) continue;
        const double dist = std::fabs(v - *q_ref);
        if (!found || dist < best_dist) {
            best = v;
            best_dist = dist;
            found = true;
        }
    }
    *q = best;
}

int find_min_index(const double* cost, int n)
{
    if (!cost || n <= 1) return 0;
    int best = 0;
    for (int i = 1; i < n; ++i)
        if (cost[i] < cost[best] || (std::isnan(cost[best]) && !std::isnan(cost[i]))) best = i;
    return best;
}

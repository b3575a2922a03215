// Collision and safety: speed ratios from clearances.
#include "Algorithm/safety/tarn_safety_ratio.h"

#include "Algorithm/planning/planner_state.h"

namespace {

constexpr tarn::RatioCurve kNearSteep{0.05f, -0.049f, -1.0f, 1.0f};
constexpr tarn::RatioCurve kNear{0.05f, -0.049f, -0.5f, 0.5f};
constexpr tarn::RatioCurve kWide{0.1f, -0.099f, -0.5f, 0.5f};

// Contact: a clearance this small whose ratio has come down this far.
constexpr float kContactClearance = 2e-6f;
constexpr float kContactRatio = 0.004f;

}  // namespace

namespace tarn {

RatioCurve safety_ratio_curve(bool steep_near)
{
    const bool near = !planner_segment_is_joint_space() && planner_motion_mode() != LIBALGO_MOTION_JOINT_TEACH;
    if (!near) return kWide;
    return steep_near ? kNearSteep : kNear;
}

float safety_clearance_ratio(float c, const RatioCurve& curve, float r, float s, float m, float fail)
{
    const float p = (c - curve.d0) * curve.slope / curve.span + curve.base;
    if (c <= kContactClearance && p <= kContactRatio) return fail;
    return safety_select_ratio(p, r, s, m, fail);
}

float safety_select_ratio(float p, float r, float s, float m, float fail)
{
    float candidate;
    if (r == 0.0f || m == 0.0f)
        candidate = 0.0f;
    else if (r > p || m > r)
        candidate = p / s;
    else
        candidate = r;
    if (candidate > m) return m;
    if (candidate <= 0.0f) return fail;
    return candidate;
}

}  // namespace tarn

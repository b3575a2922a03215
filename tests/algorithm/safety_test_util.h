// Helpers of the safety tests: the arm models with their collision layout, seeded poses,
// and a fixture that leaves the tool envelope, the fence and the planner state as a fresh
// library has them, so that the whole test program can run in one process.
#pragma once

#include <gtest/gtest.h>

#include <cstring>

#include "algo_test_util.h"
#include "libalgo.h"

namespace safety_test {

using CalcFn = void (*)(ToolLinkResult*, const float*, int);

struct SafetyModel {
    RobotType type;
    const char* name;
    CalcFn calc;  // the layout's calc_all_end_points_*
    int links;    // arm link capsules
    // A pose folded onto itself: one joint turned, the others at home.
    int fold_joint;
    float fold_angle;
};

// Every model with a collision family.
inline constexpr SafetyModel kSafetyModels[] = {
    {AX61, "AX61", calc_all_end_points_AX61, 4, 2, 3.1416f},      // forearm back onto the upper arm
    {AX71, "AX71", calc_all_end_points_AX71, 4, 3, 3.1416f},      // the same at the elbow
    {AL64II, "AL64II", calc_all_end_points_AL64II, 5, 4, 3.1f},   // flange back onto the forearm
    {AL64IV, "AL64IV", calc_all_end_points_AL64II, 5, 4, 3.1f},
    {LUM61, "LUM61", calc_all_end_points_LUM61, 5, 2, 2.8f},      // wrist onto the upper arm
    {LUM66, "LUM66", calc_all_end_points_LUM66, 5, 3, 3.1416f},   // wrist 1 folded onto the forearm
    {LUM67, "LUM67", calc_all_end_points_LUM61, 5, 2, 2.8f},
    {TOR77, "TOR77", calc_all_end_points_TOR77, 4, 3, 2.8f},      // forearm onto the upper arm
    {TOR77II, "TOR77II", calc_all_end_points_TOR77, 4, 3, 2.8f},
};

using Joints = float[LIBALGO_MAX_JOINTS];

// Joints uniform within `share` of the model's limits around 0.
inline void random_joints(algo_test::Rng& rng, float share, float q[LIBALGO_MAX_JOINTS])
{
    float lo[8], hi[8];
    libalgo_get_jointlim_min(lo);
    libalgo_get_jointlim_max(hi);
    for (int i = 0; i < LIBALGO_MAX_JOINTS; ++i) q[i] = i < libalgo_get_rbt_dof() ? share * rng.uniformf(lo[i], hi[i]) : 0.0f;
}

inline void clear_envelope()
{
    for (int i = 0; i < LIBALGO_TOOL_SPHERES; ++i) libalgo_set_tool_envelope(i, ToolSphere{});
    std::memset(tool_spheres_para, 0, sizeof tool_spheres_para);
}

// Restores what the safety tests change: the envelope, the fence, the planner state.
class SafetyTest : public ::testing::Test {
protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }
    static void reset()
    {
        clear_envelope();
        // An all-zero fence record, as at start (both shapes are stored by their types).
        libalgo_set_fence_para(LIBALGO_FENCE_PLANE, 0, 0, FenceShape{}, nullptr);
        libalgo_set_fence_para(LIBALGO_FENCE_CUBOID, 0, 0, FenceShape{}, nullptr);
        set_motion_mode(LIBALGO_MOTION_PLANNER);
        libalgo_set_current_condition(0);
        libalgo_init();
    }
    static void use(const SafetyModel& m)
    {
        libalgo_init();
        ASSERT_EQ(libalgo_set_robot_and_sensor_type(m.type, _B), 0) << m.name;
    }
};

}  // namespace safety_test

// Helpers of the safety tests: the arm models with their collision layout and functions,
// seeded poses, and a fixture that leaves the tool envelope, the fence and the planner
// state as a fresh library has them, so that the test program can run in one process.
#pragma once

#include <gtest/gtest.h>

#include <cstring>

#include "algo_test_util.h"
#include "libalgo.h"

namespace safety_test {

// The functions of one collision family.
struct Family {
    int (*inside)(FenceShape, const float*, uint32_t);
    int (*outside)(FenceShape, const float*, uint32_t);
    int (*relation)(const float*, int, const float*, const float*, const float*);
    float (*cuboid)(const float*);
    float (*plane)(const float*);
};

inline constexpr Family kAx61{is_Robot_inside_ax61, is_Robot_outside_ax61, relation_of_AX61_and_plane,
                              isCollision_cuboid_fence_tool_AX61, isCollision_singlefence_tool_AX61};
inline constexpr Family kAx71{is_Robot_inside_ax71, is_Robot_outside_ax71, relation_of_AX71_and_plane,
                              isCollision_cuboid_fence_tool_AX71, isCollision_singlefence_tool_AX71};
inline constexpr Family kAl64{is_Robot_inside_al64II, is_Robot_outside_al64II, relation_of_AL64II_and_plane,
                              isCollision_cuboid_fence_tool_AL64II, isCollision_singlefence_tool_AX64II};
inline constexpr Family kLum61{is_Robot_inside_lum61, is_Robot_outside_lum61, relation_of_LUM61_and_plane,
                               isCollision_cuboid_fence_tool_LUM61, isCollision_singlefence_tool_LUM61};
inline constexpr Family kTor77{is_Robot_inside_tor77, is_Robot_outside_tor77, relation_of_TOR77_and_plane,
                               isCollision_cuboid_fence_tool_TOR77, isCollision_singlefence_tool_TOR77};

struct SafetyModel {
    RobotType type;
    const char* name;
    void (*calc)(ToolLinkResult*, const float*, int);  // the layout's calc_all_end_points_*
    const Family* family;
    int links;  // arm link capsules
    float joint_r[4];
    float link_r[5];
    const char* chain;  // capsules from the base to the flange: J joint or L link, and index
    // A pose folded onto itself: one joint turned, the others at home.
    int fold_joint;
    float fold_angle;
};

// Every model with a family. Folds: AX forearm back onto the upper arm, AL64 flange back
// onto the forearm, LUM61 wrist onto the upper arm, LUM66 wrist 1 onto the forearm,
// TOR77 forearm onto the upper arm.
inline constexpr SafetyModel kSafetyModels[] = {
    {AX61, "AX61", calc_all_end_points_AX61, &kAx61, 4, {0.0405f, 0.034f, 0.03f, 0.03f},
     {0.055f, 0.04f, 0.03f, 0.03f}, "L0J0L1J1L2J2L3J3", 2, 3.1416f},
    {AX71, "AX71", calc_all_end_points_AX71, &kAx71, 4, {0.0405f, 0.034f, 0.03f, 0.03f},
     {0.055f, 0.04f, 0.03f, 0.03f}, "L0J0L1J1L2J2L3J3", 3, 3.1416f},
    {AL64II, "AL64II", calc_all_end_points_AL64II, &kAl64, 5, {0.042f, 0.036f, 0.0285f, 0.0285f},
     {0.055f, 0.042f, 0.035f, 0.029f, 0.027f}, "L0J0L1J1L2L4J2L3J3", 4, 3.1f},
    {AL64IV, "AL64IV", calc_all_end_points_AL64II, &kAl64, 5, {0.042f, 0.036f, 0.0285f, 0.0285f},
     {0.055f, 0.042f, 0.035f, 0.029f, 0.027f}, "L0J0L1J1L2L4J2L3J3", 4, 3.1f},
    {LUM61, "LUM61", calc_all_end_points_LUM61, &kLum61, 5, {0.042f, 0.036f, 0.035f, 0.0295f},
     {0.055f, 0.045f, 0.0375f, 0.029f, 0.029f}, "L0J0L1J1L2L3J2L4J3", 2, 2.8f},
    {LUM66, "LUM66", calc_all_end_points_LUM66, &kLum61, 5, {0.033f, 0.033f, 0.0245f, 0.0245f},
     {0.055f, 0.045f, 0.0375f, 0.029f, 0.029f}, "L0J0L1J1L2L3J2L4J3", 3, 3.1416f},
    {LUM67, "LUM67", calc_all_end_points_LUM61, &kLum61, 5, {0.042f, 0.036f, 0.035f, 0.0295f},
     {0.055f, 0.045f, 0.0375f, 0.029f, 0.029f}, "L0J0L1J1L2L3J2L4J3", 2, 2.8f},
    {TOR77, "TOR77", calc_all_end_points_TOR77, &kTor77, 4, {0.045f, 0.045f, 0.032f, 0.032f},
     {0.055f, 0.045f, 0.032f, 0.032f}, "L0J0L1J1L2J2L3J3", 3, 2.8f},
    {TOR77II, "TOR77II", calc_all_end_points_TOR77, &kTor77, 4, {0.045f, 0.045f, 0.032f, 0.032f},
     {0.055f, 0.045f, 0.032f, 0.032f}, "L0J0L1J1L2J2L3J3", 3, 2.8f},
};

// Joints uniform within `share` of the model's limits around 0; entries past dof zero.
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
        // An all-zero fence record, as at start (each shape is stored by its own type).
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

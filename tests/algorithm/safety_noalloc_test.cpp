// Heap freedom of the collision and fence checks: every exported function of
// libalgo_safety.h and libalgo_planner_state.h runs inside the allocation-counting window
// of math_noalloc_test.cpp, for each family, with five tool spheres and both fence types;
// the count must stay 0.
#include <gtest/gtest.h>

#include "alloc_count.h"
#include "safety_test_util.h"

namespace {

volatile float g_sink;  // keeps results alive

const float kQ[8] = {0.1f, -0.4f, 0.8f, 0.3f, 0.9f, -0.5f, 0.2f, 0.0f};
const float kP1[3] = {0, 0, 2}, kP2[3] = {1, 0, 2}, kP3[3] = {0, 1, 2};

void exercise_geometry()
{
    const float a[3] = {0, 0, 0}, b[3] = {1, 0.2f, 0.1f}, c[3] = {0.3f, 1, -0.2f}, d[3] = {0.5f, -1, 0.4f};
    const float cuboid[6] = {-0.5f, 0.5f, -0.5f, 0.5f, 0, 1};
    float v[3];
    float sum = distance_p2p(a, b) + static_cast<float>(isPinL(a, b, c)) + distance_p2l(a, b, c).distance +
                distance_p2ls(a, b, c) + distance_ls2ls(a, b, c, d) + distanceSegmentToSegment(a, b, c, d) +
                distance_p2surf(b, c, d);
    distance_p2cuboidface(b, cuboid);
    sum += dp2face[3] + isP_Cube(b, 0.1f, cuboid) + isLink2CuboidCollision(0.1f, b, c, cuboid) +
           static_cast<float>(check_intersection(b, c, cuboid));
    const Plane plane = getPlaneFromPoints(b, c, d);
    sum += static_cast<float>(getPointSideOfPlane(a, plane) + is_point_to_plane(a, 0.1f, plane) + isCoplanar(a, b, c) +
                              IsEqual(1.0f, 1.0f)) +
           pointToPlaneDistance(a, plane) + dotProduct(b, c);
    vector2norm(b, v);
    V1ReduceV2(b, c, v);
    crossProduct(b, c, v);
    g_sink = sum + v[0];
}

void exercise_self()
{
    ToolLinkResult r{};
    float sum = 0.0f;
    for (const auto calc : {calc_all_end_points_AX61, calc_all_end_points_AX71, calc_all_end_points_AL64II,
                            calc_all_end_points_LUM61, calc_all_end_points_LUM66, calc_all_end_points_TOR77}) {
        calc(&r, kQ, 5);
        sum += PLB[4][0];
    }
    for (const auto calc : {calc_joint_points_AX61, calc_joint_points_AX71, calc_joint_points_AL64II,
                            calc_joint_points_LUM61, calc_joint_points_LUM66, calc_joint_points_TOR77}) {
        calc(kQ, 5);
        sum += PJB_max[2][1];
    }
    for (const auto check : {isCollision_self_tool_AX61, isCollision_self_tool_AX71, isCollision_self_tool_AL64II,
                             isCollision_self_tool_LUM61, isCollision_self_tool_TOR77})
        sum += check(kQ, 5);
    ToolSphere s{};
    libalgo_get_tool_envelope(1, &s);
    sum += s.r + static_cast<float>(update_ToolSpheresModel() + safety_robot_self_collision_detection(kQ));
    sum += isCollision_self_tool(kQ) + self_Collision(kQ, 0.5f, 1.0f, 0.8f);
    sum += standard_dh(0.3f, 0.1f, 0.2f, 1.0f).data[0][1] + modified_dh(0.3f, 0.1f, 0.2f, 1.0f).data[1][2] +
           T_eye().data[2][2];
    set_motion_mode(LIBALGO_MOTION_PLANNER);
    libalgo_set_current_condition(3);
    g_sink = sum + static_cast<float>(libalgo_get_current_condition());
}

void exercise_fences()
{
    FenceShape box{{-1, 1, -1, 1, -0.5f, 2}, {0, 0, 2, 1, 0, 2, 0, 1, 2}};
    float sum = 0.0f;
    for (const auto& m : safety_test::kSafetyModels) {
        const auto& f = *m.family;
        sum += static_cast<float>(f.inside(box, kQ, 5) + f.outside(box, kQ, 5) + f.relation(kQ, 5, kP1, kP2, kP3));
        sum += f.cuboid(kQ) + f.plane(kQ);
    }
    for (int64_t type : {0, 1, 2})
        for (int64_t third : {0, 1}) sum += static_cast<float>(libalgo_set_fence_para(type, 0, third, box, kQ));
    FencePara stored;
    libalgo_get_fence_para(&stored);
    libalgo_set_fence_para(0, 0, 0, box, kQ);
    sum += isCollision_fence_tool(kQ) + fence_isCollision(kQ, 0.5f, 1.0f, 0.8f);
    libalgo_set_fence_para(1, 0, 0, box, kQ);
    g_sink = sum + isCollision_fence_tool(kQ) + stored.cuboid[0] + static_cast<float>(libalgo_get_fence_type());
}

}  // namespace

class SafetyNoAlloc : public safety_test::SafetyTest {};

TEST_F(SafetyNoAlloc, ChecksDoNotAllocate)
{
    for (const auto& m : safety_test::kSafetyModels) {
        use(m);
        for (int t = 0; t < LIBALGO_TOOL_SPHERES; ++t)
            libalgo_set_tool_envelope(t, ToolSphere{0.03f, 0.01f * t, 0, 0.08f * (t + 1)});
        EXPECT_EQ(zk_test_allocations_during(exercise_geometry), 0) << m.name;
        EXPECT_EQ(zk_test_allocations_during(exercise_self), 0) << m.name;
        EXPECT_EQ(zk_test_allocations_during(exercise_fences), 0) << m.name;
    }
}

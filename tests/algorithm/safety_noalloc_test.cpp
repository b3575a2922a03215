// Heap freedom of the collision and fence checks: the distances, every family's checks
// with five tool spheres, and both fence types run inside the allocation-counting window
// of math_noalloc_test.cpp; the count must stay 0.
#include <gtest/gtest.h>

#include "alloc_count.h"
#include "safety_test_util.h"

namespace {

volatile float g_sink;  // keeps results alive
const safety_test::SafetyModel* g_model;

void exercise()
{
    const float q[8] = {0.1f, -0.4f, 0.8f, 0.3f, 0.9f, -0.5f, 0.2f, 0.0f};
    const float a[3] = {0, 0, 0}, b[3] = {1, 0.2f, 0.1f}, c[3] = {0.3f, 1, -0.2f}, d[3] = {0, 0, 2};
    const FenceShape box{{-1, 1, -1, 1, -0.5f, 2}, {0, 0, 2, 1, 0, 2, 0, 1, 2}};
    const safety_test::Family& f = *g_model->family;
    ToolLinkResult r{};
    g_model->calc(&r, q, 5);
    float sum = distance_ls2ls(a, b, c, d) + distanceSegmentToSegment(a, b, c, d) + distance_p2l(a, b, c).distance +
                isP_Cube(b, 0.1f, box.cuboid) + isLink2CuboidCollision(0.1f, b, c, box.cuboid) +
                pointToPlaneDistance(a, getPlaneFromPoints(b, c, d));
    sum += static_cast<float>(update_ToolSpheresModel() + safety_robot_self_collision_detection(q) +
                              f.inside(box, q, 5) + f.outside(box, q, 5) + f.relation(q, 5, box.plane, box.plane + 3,
                                                                                       box.plane + 6));
    sum += isCollision_self_tool(q) + self_Collision(q, 0.5f, 1.0f, 0.8f) + f.cuboid(q) + f.plane(q);
    for (int64_t type : {0, 1, 2})
        for (int64_t third : {0, 1}) {
            sum += static_cast<float>(libalgo_set_fence_para(type, 0, third, box, q));
            sum += isCollision_fence_tool(q) + fence_isCollision(q, 0.5f, 1.0f, 0.8f);
        }
    g_sink = sum + modified_dh(0.3f, 0.1f, 0.2f, 1.0f).data[1][2];
}

}  // namespace

class SafetyNoAlloc : public safety_test::SafetyTest {};

TEST_F(SafetyNoAlloc, ChecksDoNotAllocate)
{
    for (const auto& m : safety_test::kSafetyModels) {
        use(m);
        for (int t = 0; t < LIBALGO_TOOL_SPHERES; ++t)
            libalgo_set_tool_envelope(t, ToolSphere{0.03f, 0.01f * t, 0, 0.08f * (t + 1)});
        g_model = &m;
        EXPECT_EQ(zk_test_allocations_during(exercise), 0) << m.name;
    }
}

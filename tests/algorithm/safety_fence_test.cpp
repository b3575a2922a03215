// Fences: the validation table row by row; for every family an arm wholly inside a
// cuboid, one that crosses a face and one beside it, and the sides of a plane; the cuboid
// clearance against the sampled distance of the capsules to the box; the plane clearance
// and its unsigned distances; dispatch and the fence's speed ratio.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "safety_test_util.h"

namespace {

using algo_test::property_cases;
using algo_test::Rng;
using safety_test::kSafetyModels;
using safety_test::SafetyModel;
using safety_test::SafetyTest;

class Fence : public SafetyTest {};

constexpr float kHome[8] = {};

FenceShape box(float x0, float x1, float y0, float y1, float z0, float z1)
{
    FenceShape f{};
    const float c[6] = {x0, x1, y0, y1, z0, z1};
    std::copy(c, c + 6, f.cuboid);
    return f;
}

FenceShape plane(const float p1[3], const float p2[3], const float p3[3])
{
    FenceShape f{};
    std::copy(p1, p1 + 3, f.plane);
    std::copy(p2, p2 + 3, f.plane + 3);
    std::copy(p3, p3 + 3, f.plane + 6);
    return f;
}

// Horizontal plane at height z; its normal points up, or down when `down`.
FenceShape level(float z, bool down = false)
{
    const float p1[3] = {0, 0, z}, px[3] = {1, 0, z}, py[3] = {0, 1, z};
    return down ? plane(p1, py, px) : plane(p1, px, py);
}

float flange_height(const float* q) { return forward_kinematics_world_to_flange(q).data[2][3]; }

}  // namespace

/* -----------------------------------------------------------------------------
 * Setting a fence
 * -------------------------------------------------------------------------- */

TEST_F(Fence, ValidationTable)
{
    use(kSafetyModels[0]);  // AX61 at home: up to 0.85 m, within 0.1 m of the z axis
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float a[3] = {0.3f, 0.3f, 0.3f}, b[3] = {0.6f, 0.6f, 0.6f}, c[3] = {0.9f, 0.9f, 0.9f};
    const float inf[3] = {std::numeric_limits<float>::infinity(), 0, 0};
    const FenceShape around = box(-1, 1, -1, 1, -0.5f, 2), beside = box(0.5f, 1, -0.5f, 0.5f, 0, 1);
    const FenceShape cutting = box(-1, 1, -1, 1, -0.5f, 0.6f);
    const float nan_q[8] = {0, nan, 0, 0, 0, 0, 0, 0};
    const struct {
        const char* what;
        int64_t type, second, third;
        FenceShape fence;
        const float* q;
        int64_t result;
    } rows[] = {
        {"x min equal to x max", 0, 0, 0, box(0.5f, 0.5f, -1, 1, -1, 1), kHome, 2},
        {"y min above y max", 0, 0, 0, box(-1, 1, 1, -1, -1, 1), kHome, 2},
        {"z min equal to z max", 0, 0, 0, box(-1, 1, -1, 1, 1, 1), kHome, 2},
        {"a NaN bound", 0, 0, 0, box(-1, nan, -1, 1, -1, 1), kHome, 2},
        {"three equal points", 1, 0, 0, plane(a, a, a), kHome, 3},
        {"three points on a line", 1, 0, 0, plane(a, b, c), kHome, 3},
        {"a point at infinity", 1, 0, 0, plane(a, inf, c), kHome, 3},
        {"inside test, arm inside", 0, 0, 0, around, kHome, 0},
        {"inside test, arm cut", 0, 0, 0, cutting, kHome, 1},
        {"outside test, box beside", 0, 0, 1, beside, kHome, 0},
        {"outside test, arm inside", 0, 0, 1, around, kHome, 1},
        {"outside test, arm cut", 0, 0, 1, cutting, kHome, 1},
        {"second 1, third 0", 0, 1, 0, around, kHome, 1},
        {"second 1, third 1", 0, 1, 1, around, kHome, 2},
        {"second 2", 0, 2, 0, cutting, kHome, 0},
        {"third 2", 0, 0, 2, cutting, kHome, 0},
        {"plane above the arm", 1, 0, 0, level(1.0f), kHome, 0},
        {"plane through the arm", 1, 0, 0, level(0.5f), kHome, 1},
        {"type 2 skips the checks", 2, 0, 0, cutting, kHome, 0},
        {"null joints", 0, 0, 0, around, nullptr, 1},
        {"NaN joints", 1, 0, 0, level(1.0f), nan_q, 1},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(libalgo_set_fence_para(row.type, row.second, row.third, row.fence, row.q), row.result) << row.what;
        // Stored whether accepted or not.
        FencePara stored{};
        libalgo_get_fence_para(&stored);
        EXPECT_TRUE(stored.type == row.type && libalgo_get_fence_type() == row.type && stored.second_arg == row.second &&
                    stored.third_arg == row.third)
            << row.what;
        const bool is_cuboid = row.type == 0, is_plane = row.type == 1;
        EXPECT_TRUE(!is_cuboid || std::memcmp(stored.cuboid, row.fence.cuboid, sizeof stored.cuboid) == 0) << row.what;
        EXPECT_TRUE(!is_plane || std::memcmp(stored.plane, row.fence.plane, sizeof stored.plane) == 0) << row.what;
    }
    // A plane exactly through a capsule end (the flange's face) touches the arm.
    EXPECT_EQ(libalgo_set_fence_para(1, 0, 0, level(flange_height(kHome)), kHome), 1);
    FencePara stored{};
    const float q[8] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.8f};
    libalgo_set_fence_para(0, 0, 0, around, q);
    libalgo_get_fence_para(&stored);
    EXPECT_EQ(std::memcmp(stored.joints, q, sizeof q), 0);
    // The exported record is the one the getter copies.
    EXPECT_EQ(std::memcmp(&fence_para, &stored, sizeof stored), 0);

    // A model without a collision family accepts any valid shape.
    libalgo_init();
    libalgo_set_robot_and_sensor_type(UNIVERSAL, _B);
    EXPECT_EQ(libalgo_set_fence_para(0, 0, 0, cutting, kHome), 0);
    EXPECT_EQ(libalgo_set_fence_para(0, 0, 0, box(1, 0, -1, 1, -1, 1), kHome), 2);
    EXPECT_EQ(libalgo_set_fence_para(1, 0, 0, level(0.5f), kHome), 0);
}

// Inside, crossing a face, beside: the inside and outside tests, the clearance, and the
// validation with the outside test, for every family.
TEST_F(Fence, ArmInsideCrossingAndBesideACuboid)
{
    for (const SafetyModel& m : kSafetyModels) {
        use(m);
        const auto& f = *m.family;
        m.calc(nullptr, kHome, 0);
        const float forearm_mid = 0.5f * (PLA[2][2] + PLB[2][2]);
        const float top = flange_height(kHome);

        const FenceShape around = box(-1, 1, -1, 1, -0.5f, 2);
        EXPECT_EQ(f.inside(around, kHome, 0), 0) << m.name;
        EXPECT_EQ(f.outside(around, kHome, 0), 1) << m.name;  // wholly inside counts as touching
        libalgo_set_fence_para(0, 0, 0, around, kHome);
        EXPECT_GT(isCollision_fence_tool(kHome), 0.0f) << m.name;

        const FenceShape crossing = box(-1, 1, -1, 1, -0.5f, forearm_mid);
        EXPECT_EQ(f.inside(crossing, kHome, 0), 1) << m.name;
        EXPECT_NE(f.outside(crossing, kHome, 0), 0) << m.name;
        EXPECT_EQ(libalgo_set_fence_para(0, 0, 1, crossing, kHome), 1) << m.name;
        // A face just below the flange's face: contact.
        libalgo_set_fence_para(0, 0, 0, box(-1, 1, -1, 1, -0.5f, top - 0.01f), kHome);
        EXPECT_LE(isCollision_fence_tool(kHome), 0.0f) << m.name;
        EXPECT_LE(f.cuboid(kHome), 0.0f) << m.name;

        const FenceShape beside = box(0.5f, 1, -0.5f, 0.5f, 0, 1);
        EXPECT_EQ(f.inside(beside, kHome, 0), 1) << m.name;
        EXPECT_EQ(f.outside(beside, kHome, 0), 0) << m.name;
        EXPECT_EQ(libalgo_set_fence_para(0, 0, 1, beside, kHome), 0) << m.name;
        const float c = isCollision_fence_tool(kHome);
        EXPECT_GT(c, 0.2f) << m.name;
        EXPECT_LT(c, 0.6f) << m.name;
        EXPECT_EQ(f.cuboid(kHome), c) << m.name;

        // A tool sphere half a metre from the box: less than a metre counts as touching.
        libalgo_set_tool_envelope(0, ToolSphere{0.02f, 0, 0, 0.03f});
        ASSERT_EQ(update_ToolSpheresModel(), 1);
        EXPECT_NE(f.outside(beside, kHome, 1), 0) << m.name;
        EXPECT_EQ(libalgo_set_fence_para(0, 0, 1, beside, kHome), 1) << m.name;
        // ... and one sticking out of an enclosing box makes the arm not inside.
        libalgo_set_tool_envelope(0, ToolSphere{0.02f, 0, 0, 3.0f});
        ASSERT_EQ(update_ToolSpheresModel(), 1);  // the tests read the working copy
        EXPECT_EQ(f.inside(around, kHome, 1), 1) << m.name;
        safety_test::clear_envelope();
    }
}

// Outside the box, the clearance is the distance from the checked capsules (joint capsules
// 1 to 3, links from 2 on, tool spheres and tool links) to the box, less their radii.
TEST_F(Fence, CuboidClearanceIsTheSampledDistanceToTheBox)
{
    Rng rng(301);
    for (const SafetyModel& m : kSafetyModels) {
        use(m);
        libalgo_set_tool_envelope(0, ToolSphere{0.03f, 0.02f, 0, 0.12f});
        int compared = 0;
        for (int n = 0; n < property_cases() / 10; ++n) {
            float q[8];
            safety_test::random_joints(rng, 1.0f, q);
            const float cx = rng.uniformf(-0.8f, 0.8f), cy = rng.uniformf(-0.8f, 0.8f), cz = rng.uniformf(-0.3f, 1.2f);
            const float hx = rng.uniformf(0.05f, 0.3f), hy = rng.uniformf(0.05f, 0.3f), hz = rng.uniformf(0.05f, 0.3f);
            const FenceShape f = box(cx - hx, cx + hx, cy - hy, cy + hy, cz - hz, cz + hz);
            libalgo_set_fence_para(0, 5, 5, f, q);
            const float c = isCollision_fence_tool(q);
            ToolLinkResult tool{};
            m.calc(&tool, q, 1);

            double least = 1.0;
            bool inside = false;
            auto capsule = [&](const float* a, const float* b, double r) {
                for (int i = 0; i <= 200; ++i) {
                    double d2 = 0.0;
                    for (int k = 0; k < 3; ++k) {
                        const double x = a[k] + (b[k] - a[k]) * i / 200.0;
                        const double out = std::max({f.cuboid[2 * k] - x, 0.0, x - f.cuboid[2 * k + 1]});
                        d2 += out * out;
                    }
                    inside |= d2 == 0.0;
                    least = std::min(least, std::sqrt(d2) - r);
                }
            };
            for (int i = 1; i < 4; ++i) capsule(PJA[i], PJB[i], m.joint_r[i]);
            capsule(PJA[4], PJA[4], tool_spheres_para[0].r);
            for (int i = 2; i < m.links; ++i) capsule(PLA[i], PLB[i], m.link_r[i]);
            for (int k = 0; k < tool.tool_link_num; ++k) capsule(PLA[m.links + k], PLB[m.links + k], tool.tool_link_radius[k]);
            if (inside) continue;  // a face crossed between the ends is the inside test's business
            if (least > 0.005) {
                ++compared;
                ASSERT_NEAR(c, least, 2.5e-3) << m.name << " case " << n;
            } else if (least < -0.005) {
                ASSERT_LE(c, 0.0f) << m.name << " case " << n;
            }
        }
        EXPECT_GT(compared, property_cases() / 40) << m.name;
        safety_test::clear_envelope();
    }
}

/* -----------------------------------------------------------------------------
 * Planes
 * -------------------------------------------------------------------------- */

TEST_F(Fence, PlaneSidesAndClearance)
{
    for (const SafetyModel& m : kSafetyModels) {
        use(m);
        const auto& f = *m.family;
        const float top = flange_height(kHome);
        // The highest point of any capsule (LUM's wrist 2 capsule stands above its flange).
        m.calc(nullptr, kHome, 0);
        float reach = 0.0f;
        for (int i = 0; i < 4; ++i) reach = std::max({reach, PJA[i][2] + m.joint_r[i], PJB[i][2] + m.joint_r[i]});
        for (int i = 0; i < m.links; ++i) reach = std::max({reach, PLA[i][2] + m.link_r[i], PLB[i][2] + m.link_r[i]});
        const float* p = nullptr;
        auto rel = [&](const FenceShape& s) {
            p = s.plane;
            return f.relation(kHome, 0, p, p + 3, p + 6);
        };
        EXPECT_EQ(rel(level(reach + 0.01f)), -1) << m.name;       // the arm below an upward normal
        EXPECT_EQ(rel(level(reach + 0.01f, true)), 1) << m.name;  // the normal turned
        EXPECT_EQ(rel(level(reach - 0.01f)), 0) << m.name;
        EXPECT_EQ(rel(level(0.5f * top)), 0) << m.name;         // through the arm
        EXPECT_EQ(rel(level(top)), 0) << m.name;                // through the flange's face
        EXPECT_EQ(rel(level(-0.2f)), 1) << m.name;

        // Raised by 5 cm, the plane's clearance grows by 5 cm.
        libalgo_set_fence_para(1, 0, 0, level(reach + 0.1f), kHome);
        const float c1 = isCollision_fence_tool(kHome);
        EXPECT_NEAR(c1, 0.1f, 1e-5) << m.name;
        EXPECT_EQ(f.plane(kHome), c1) << m.name;
        libalgo_set_fence_para(1, 0, 0, level(reach + 0.15f), kHome);
        EXPECT_NEAR(isCollision_fence_tool(kHome) - c1, 0.05f, 1e-5) << m.name;
        libalgo_set_fence_para(1, 0, 0, level(top - 0.005f), kHome);
        EXPECT_LE(isCollision_fence_tool(kHome), 0.0f) << m.name;
    }
    // Distances have no sign: a capsule whose ends lie far enough on either side reads as
    // clear (the AX61 forearm, from 0.53 to 0.68 m, across z = 0.6).
    use(kSafetyModels[0]);
    libalgo_set_fence_para(1, 0, 0, level(0.6f), kHome);
    EXPECT_GT(isCollision_fence_tool(kHome), 0.0f);
}

// The fence curve is the self-collision's with slope -0.5 and base 0.5 on both curves, and
// -2 for contact; another fence type or a model without a family passes with 1.0.
TEST_F(Fence, RatioAndDispatch)
{
    use(kSafetyModels[0]);
    const float top = flange_height(kHome);
    libalgo_set_fence_para(1, 0, 0, level(top + 0.06f), kHome);
    const float c = isCollision_fence_tool(kHome);
    ASSERT_GT(c, 0.0f);
    ASSERT_LT(c, 0.05f);
    libalgo_set_current_condition(3);
    EXPECT_FLOAT_EQ(fence_isCollision(kHome, 1.0f, 1.0f, 1.0f), (c - 0.05f) * -0.5f / -0.049f + 0.5f);
    libalgo_set_current_condition(9);
    EXPECT_FLOAT_EQ(fence_isCollision(kHome, 1.0f, 1.0f, 1.0f), (c - 0.1f) * -0.5f / -0.099f + 0.5f);
    EXPECT_EQ(fence_isCollision(kHome, 0.0f, 1.0f, 1.0f), -2.0f);
    libalgo_set_fence_para(1, 0, 0, level(top), kHome);
    EXPECT_EQ(fence_isCollision(kHome, 1.0f, 1.0f, 1.0f), -2.0f);

    libalgo_set_fence_para(2, 0, 0, level(top), kHome);
    EXPECT_EQ(isCollision_fence_tool(kHome), 1.0f);
    libalgo_set_robot_and_sensor_type(UNIVERSAL, _B);
    libalgo_set_fence_para(1, 0, 0, level(0.3f), kHome);
    EXPECT_EQ(isCollision_fence_tool(kHome), 1.0f);
    EXPECT_EQ(fence_isCollision(kHome, 0.5f, 1.0f, 0.7f), 0.7f);
}

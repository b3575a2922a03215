// The self-collision model: per family, clear near home and colliding folded; capsules on
// the forward kinematics and in one connected chain; tool spheres and their link capsules;
// the speed ratio.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "safety_test_util.h"

namespace {

using algo_test::property_cases;
using algo_test::Rng;
using safety_test::kSafetyModels;
using safety_test::SafetyModel;

class SelfCollision : public safety_test::SafetyTest {};

struct V {
    double x, y, z;
};

V apply(const Matrix& m, V p)
{
    return {m.data[0][0] * p.x + m.data[0][1] * p.y + m.data[0][2] * p.z + m.data[0][3],
            m.data[1][0] * p.x + m.data[1][1] * p.y + m.data[1][2] * p.z + m.data[1][3],
            m.data[2][0] * p.x + m.data[2][1] * p.y + m.data[2][2] * p.z + m.data[2][3]};
}

double gap(const float* p, V v) { return std::hypot(p[0] - v.x, p[1] - v.y, p[2] - v.z); }

// The flange-frame sphere whose centre is at world point w at joints q.
ToolSphere sphere_at(const float* q, V w, float r)
{
    const V local = apply(matrix_inv_coordinate_system(forward_kinematics_world_to_flange(q)), w);
    return ToolSphere{r, static_cast<float>(local.x), static_cast<float>(local.y), static_cast<float>(local.z)};
}

constexpr float kHome[8] = {};

}  // namespace

TEST_F(SelfCollision, EveryFamilyIsClearNearHomeAndCollidesFolded)
{
    Rng rng(201);
    for (const SafetyModel& m : kSafetyModels) {
        use(m);
        EXPECT_GT(isCollision_self_tool(kHome), 0.0f) << m.name;
        for (int n = 0; n < property_cases() / 10; ++n) {
            float q[8];
            safety_test::random_joints(rng, 0.4f, q);
            ASSERT_GT(isCollision_self_tool(q), 0.0f) << m.name << " case " << n;
        }
        float folded[8] = {};
        folded[m.fold_joint] = m.fold_angle;
        EXPECT_LE(isCollision_self_tool(folded), 0.0f) << m.name;
        EXPECT_EQ(safety_robot_self_collision_detection(folded), 1) << m.name;
    }
    // Models without a family pass, whatever the pose.
    const float folded[8] = {0, 0, 3.1416f, 0, 0, 0, 0, 0};
    for (int type : {2, 4, 9, 12, -1}) {
        libalgo_init();
        libalgo_set_robot_and_sensor_type(static_cast<RobotType>(type), _B);
        EXPECT_EQ(isCollision_self_tool(folded), 1.0f) << type;
    }
}

// With the base turned, the flange capsule ends at the flange and a tool sphere sits on the
// flange frame: the chain of link frames agrees with forward kinematics (standard DH for
// AX71, modified for the others). Neighbours along the arm touch at every pose.
TEST_F(SelfCollision, CapsulesFollowTheArmInOneChain)
{
    Rng rng(202);
    constexpr float kSeam = 0.01f;  // m: how far apart two neighbours' surfaces may stay
    for (const SafetyModel& m : kSafetyModels) {
        use(m);
        const Euler tilt{0.3f, -0.2f, 0.5f};
        libalgo_set_robot_install_angle(&tilt);
        libalgo_set_tool_envelope(0, ToolSphere{0.04f, 0.02f, -0.03f, 0.15f});
        ASSERT_EQ(update_ToolSpheresModel(), 1);
        for (int n = 0; n < property_cases() / 30; ++n) {
            float q[8];
            safety_test::random_joints(rng, 1.0f, q);
            m.calc(nullptr, q, 1);
            const Matrix flange = forward_kinematics_world_to_flange(q);
            ASSERT_LT(gap(PJB[3], apply(flange, {0, 0, 0})), 1e-5) << m.name;
            ASSERT_LT(gap(PJA[4], apply(flange, {0.02, -0.03, 0.15})), 1e-5) << m.name;
            ASSERT_TRUE(PLA[0][0] == 0.0f && PLA[0][1] == 0.0f && PLA[0][2] == 0.0f);  // the base origin
            for (const char* c = m.chain; c[2]; c += 2) {
                const float* e[2][2];
                float r[2];
                for (int k = 0; k < 2; ++k) {
                    const int i = c[2 * k + 1] - '0';
                    const bool joint = c[2 * k] == 'J';
                    e[k][0] = joint ? PJA[i] : PLA[i];
                    e[k][1] = joint ? PJB[i] : PLB[i];
                    r[k] = joint ? m.joint_r[i] : m.link_r[i];
                }
                ASSERT_LE(distance_ls2ls(e[0][0], e[0][1], e[1][0], e[1][1]), r[0] + r[1] + kSeam)
                    << m.name << " " << std::string(c, 4) << " case " << n;
            }
        }
    }
}

TEST_F(SelfCollision, NaNJointsGiveANaNClearance)
{
    use(kSafetyModels[0]);
    const float q[8] = {0, std::numeric_limits<float>::quiet_NaN(), 0, 0, 0, 0, 0, 0};
    EXPECT_TRUE(std::isnan(isCollision_self_tool(q)));
    EXPECT_TRUE(std::isnan(isCollision_self_tool(nullptr)));
    EXPECT_EQ(safety_robot_self_collision_detection(q), 1);
    EXPECT_EQ(safety_robot_self_collision_detection(nullptr), 1);
}

/* -----------------------------------------------------------------------------
 * Tool spheres
 * -------------------------------------------------------------------------- */

TEST_F(SelfCollision, ToolSpheresReachingTheBaseCollide)
{
    for (const SafetyModel& m : kSafetyModels) {
        use(m);
        const ToolSphere out{0.03f, 0, 0, 0.12f}, back = sphere_at(kHome, {0.08, 0, 0.05}, 0.05f);
        libalgo_set_tool_envelope(0, out);
        EXPECT_GT(isCollision_self_tool(kHome), 0.0f) << m.name;
        libalgo_set_tool_envelope(1, back);  // beside the base column
        EXPECT_LE(isCollision_self_tool(kHome), 0.0f) << m.name;
        libalgo_set_tool_envelope(0, back);
        libalgo_set_tool_envelope(1, ToolSphere{});
        EXPECT_LE(isCollision_self_tool(kHome), 0.0f) << m.name;
        safety_test::clear_envelope();
    }
}

// A capsule joins the flange and the first sphere, and each sphere and the next, where
// they leave a gap; its radius is half the two radii. It goes behind the arm's links.
TEST_F(SelfCollision, ToolLinkCapsulesBridgeGapsOnly)
{
    use(kSafetyModels[0]);
    const float q[8] = {0.3f, -0.4f, 0.7f, 0.2f, 0.9f, -0.5f, 0, 0};
    const Matrix flange = forward_kinematics_world_to_flange(q);
    ToolLinkResult r{};
    libalgo_set_tool_envelope(0, ToolSphere{0.03f, 0, 0, 0.0599f});  // within 0.03 + r
    calc_all_end_points_AX61(&r, q, update_ToolSpheresModel());
    EXPECT_EQ(r.tool_link_num, 0);

    // A gap to the flange; an overlap; a gap: two capsules.
    libalgo_set_tool_envelope(0, ToolSphere{0.03f, 0, 0, 0.0601f});
    libalgo_set_tool_envelope(1, ToolSphere{0.03f, 0, 0, 0.1f});
    libalgo_set_tool_envelope(2, ToolSphere{0.02f, 0, 0, 0.3f});
    calc_all_end_points_AX61(&r, q, update_ToolSpheresModel());
    ASSERT_EQ(r.tool_link_num, 2);
    EXPECT_FLOAT_EQ(r.tool_link_radius[0], 0.03f);
    EXPECT_FLOAT_EQ(r.tool_link_radius[1], 0.025f);
    EXPECT_LT(gap(PLA[4], apply(flange, {0, 0, 0})), 1e-6);
    EXPECT_LT(gap(PLB[4], apply(flange, {0, 0, 0.0601})), 1e-6);
    EXPECT_LT(gap(PLA[5], apply(flange, {0, 0, 0.1})), 1e-6);
    EXPECT_LT(gap(PLB[5], apply(flange, {0, 0, 0.3})), 1e-6);
    use(kSafetyModels[2]);  // five links: from index 5
    calc_all_end_points_AL64II(&r, q, 3);
    EXPECT_LT(gap(PLB[6], apply(forward_kinematics_world_to_flange(q), {0, 0, 0.3})), 1e-6);
}

TEST_F(SelfCollision, EnvelopeSlotsAreNotCompacted)
{
    use(kSafetyModels[0]);
    const ToolSphere back = sphere_at(kHome, {0.08, 0, 0.05}, 0.05f), beside{0.03f, 0.1f, 0, 0.12f};
    libalgo_set_tool_envelope(0, ToolSphere{0.03f, 0, 0, 0.12f});
    libalgo_set_tool_envelope(1, beside);
    libalgo_set_tool_envelope(2, back);
    EXPECT_EQ(update_ToolSpheresModel(), 3);
    EXPECT_LE(isCollision_self_tool(kHome), 0.0f);
    // Slot 1 emptied (1e-6 is empty) keeps its older content in the working copy, and the
    // checks read two slots: the colliding sphere in slot 2 is hidden.
    libalgo_set_tool_envelope(1, ToolSphere{1e-6f, 0, 0, 0});
    EXPECT_EQ(update_ToolSpheresModel(), 2);
    EXPECT_EQ(tool_spheres_para[1].x, beside.x);
    EXPECT_GT(isCollision_self_tool(kHome), 0.0f);
    // Indexes outside 0..4 are refused and change nothing.
    ToolSphere got{};
    for (int index : {-1, 5, 1 << 30}) {
        EXPECT_EQ(libalgo_set_tool_envelope(index, ToolSphere{0.5f, 1, 1, 1}), -1);
        EXPECT_EQ(libalgo_get_tool_envelope(index, &got), -1);
    }
    EXPECT_EQ(update_ToolSpheresModel(), 2);
    ASSERT_EQ(libalgo_get_tool_envelope(2, &got), 0);
    EXPECT_EQ(got.x, back.x);
    EXPECT_EQ(libalgo_get_tool_envelope(0, nullptr), -1);
}

// Against a link, a tool link capsule counts with the radius at its own index in the list
// of tool sphere radii. Here the capsule from sphere 0 (radius r0) to sphere 1 passes the
// base link: the clearance follows r0 one to one and ignores sphere 1's radius, where the
// capsule's own radius (r0 + r1) / 2 would be in contact.
TEST_F(SelfCollision, ToolLinkCapsulesCountWithTheSphereRadiusAtTheirIndex)
{
    use(kSafetyModels[0]);
    const float q[8] = {-0.44f, -1.09f, -2.16f, 2.48f, 0.88f, -3.98f, 0, 0};
    auto clearance = [&](float r0, float r1) {
        libalgo_set_tool_envelope(0, ToolSphere{r0, 0, 0, 0.03f});  // touching the flange: no capsule
        libalgo_set_tool_envelope(1, ToolSphere{r1, 0.25f, 0, 0.03f});
        return isCollision_self_tool(q);
    };
    const float c = clearance(0.005f, 0.08f);
    EXPECT_GT(c, 0.0f);
    EXPECT_FLOAT_EQ(clearance(0.005f, 0.09f), c);
    EXPECT_NEAR(clearance(0.007f, 0.08f), c - 0.002f, 1e-6);
}

/* -----------------------------------------------------------------------------
 * The speed ratio and the one-shot check
 * -------------------------------------------------------------------------- */

// Near curve (from 5 cm, full ratio at the start) on Cartesian segments and jogs other than
// the joint jog; wide curve (from 10 cm, half ratio) on joint-space segments (conditions
// 1 and 9) and the joint jog. Then the selection against r, s, m.
TEST_F(SelfCollision, RatioFollowsTheCurveOfTheRunningMotion)
{
    use(kSafetyModels[0]);
    const float c = isCollision_self_tool(kHome);
    ASSERT_GT(c, 0.05f);
    ASSERT_LT(c, 0.1f);
    const float near = (c - 0.05f) * -1.0f / -0.049f + 1.0f;
    const float wide = (c - 0.1f) * -0.5f / -0.099f + 0.5f;
    const struct {
        uint32_t mode, condition;
        bool near;
    } cases[] = {{3, 0, true},  {3, 3, true}, {3, 17, true}, {3, 1, false}, {3, 9, false},
                 {0, 3, false}, {1, 3, true}, {2, 1, false}, {1, 0, true}};
    for (const auto& k : cases) {
        set_motion_mode(k.mode);
        libalgo_set_current_condition(k.condition);
        // m above r: p / s, capped at m.
        EXPECT_FLOAT_EQ(self_Collision(kHome, 0.3f, 0.5f, 0.9f), std::fmin((k.near ? near : wide) / 0.5f, 0.9f))
            << k.mode << " " << k.condition;
    }
    set_motion_mode(0);  // the wide curve: p about 0.42
    EXPECT_FLOAT_EQ(self_Collision(kHome, 0.44f, 1.0f, 0.45f), wide);  // r above p: p / s
    EXPECT_FLOAT_EQ(self_Collision(kHome, 0.42f, 1.0f, 0.42f), 0.42f);  // m <= r <= p: r
    EXPECT_FLOAT_EQ(self_Collision(kHome, 0.44f, 1.0f, 0.40f), 0.40f);  // capped at m
    EXPECT_EQ(self_Collision(kHome, 0.0f, 1.0f, 0.8f), -1.0f);          // r or m exactly 0
    EXPECT_EQ(self_Collision(kHome, 0.5f, 1.0f, 0.0f), -1.0f);
    float folded[8] = {};
    folded[kSafetyModels[0].fold_joint] = kSafetyModels[0].fold_angle;
    EXPECT_EQ(self_Collision(folded, 0.5f, 1.0f, 0.8f), -1.0f);
    libalgo_set_robot_and_sensor_type(UNIVERSAL, _B);  // no family: clearance 1.0, ratio m
    EXPECT_EQ(self_Collision(folded, 0.5f, 1.0f, 0.8f), 0.8f);
}

TEST_F(SelfCollision, OneShotCheckOfAPose)
{
    use(kSafetyModels[2]);  // AL64II: its wrist folds back within the limits
    EXPECT_EQ(safety_robot_self_collision_detection(kHome), 0);
    float q[8] = {3.11f};  // beyond 178 degrees
    EXPECT_EQ(safety_robot_self_collision_detection(q), 1);
    q[0] = 0.0f;
    q[4] = 3.1f;  // within the limits, folded
    EXPECT_EQ(safety_robot_self_collision_detection(q), 1);
}

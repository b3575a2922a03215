// The self-collision model: for every family the home pose and poses near it are clear and
// folded poses collide; the capsules follow the arm's forward kinematics and form one
// connected chain; the two whole tables (AX61, AX71) against the library's universal DH
// chain; tool spheres and their link capsules with the envelope's rules; the speed ratio
// and the one-shot check.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "Algorithm/kinematics/tarn_universal_kin.h"
#include "safety_test_util.h"

namespace {

using algo_test::property_cases;
using algo_test::Rng;
using safety_test::kSafetyModels;
using safety_test::SafetyModel;
using safety_test::SafetyTest;

class SelfCollision : public SafetyTest {};

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

void tilt_base()
{
    const Euler tilt{0.3f, -0.2f, 0.5f};
    libalgo_set_robot_install_angle(&tilt);
}

// The flange-frame offset that puts a sphere's centre at world point w at joints q.
ToolSphere sphere_at(const float* q, V w, float r)
{
    const Matrix inv = matrix_inv_coordinate_system(forward_kinematics_world_to_flange(q));
    const V local = apply(inv, w);
    return ToolSphere{r, static_cast<float>(local.x), static_cast<float>(local.y), static_cast<float>(local.z)};
}

}  // namespace

/* -----------------------------------------------------------------------------
 * The arm alone
 * -------------------------------------------------------------------------- */

TEST_F(SelfCollision, EveryFamilyIsClearNearHomeAndCollidesFolded)
{
    Rng rng(201);
    for (const SafetyModel& m : kSafetyModels) {
        use(m);
        const float home[8] = {};
        EXPECT_GT(isCollision_self_tool(home), 0.0f) << m.name;
        for (int n = 0; n < property_cases() / 10; ++n) {
            float q[8];
            safety_test::random_joints(rng, 0.4f, q);
            ASSERT_GT(isCollision_self_tool(q), 0.0f) << m.name << " case " << n;
        }
        float folded[8] = {};
        folded[m.fold_joint] = m.fold_angle;
        const float c = isCollision_self_tool(folded);
        EXPECT_LE(c, 0.0f) << m.name;
        EXPECT_EQ(safety_robot_self_collision_detection(folded), 1) << m.name;
    }
}

// The flange capsule ends at the flange, wherever the base is turned: the chain of link
// frames agrees with forward kinematics (standard DH for AX71, modified for the others).
TEST_F(SelfCollision, CapsulesFollowForwardKinematics)
{
    Rng rng(202);
    for (const SafetyModel& m : kSafetyModels) {
        use(m);
        tilt_base();
        libalgo_set_tool_envelope(0, ToolSphere{0.04f, 0.02f, -0.03f, 0.15f});
        ASSERT_EQ(update_ToolSpheresModel(), 1);
        for (int n = 0; n < property_cases() / 30; ++n) {
            float q[8];
            safety_test::random_joints(rng, 1.0f, q);
            ToolLinkResult r{};
            m.calc(&r, q, 1);
            const Matrix flange = forward_kinematics_world_to_flange(q);
            ASSERT_LT(gap(PJB[3], apply(flange, {0, 0, 0})), 1e-5) << m.name;
            ASSERT_LT(gap(PJA[4], apply(flange, {0.02, -0.03, 0.15})), 1e-5) << m.name;
            // The base link stands on the base origin.
            ASSERT_EQ(PLA[0][0], 0.0f);
            ASSERT_EQ(PLA[0][2], 0.0f);
        }
    }
}

// Neighbours along the arm touch: base, shoulder, upper arm, elbow, ... flange form one
// chain at every pose, so that no part of the arm is left without a capsule.
TEST_F(SelfCollision, CapsulesFormOneConnectedChain)
{
    // Capsules from the base to the flange: J joint, L link, then the index.
    const struct {
        RobotType type;
        const char* chain;
    } layouts[] = {{AX61, "L0J0L1J1L2J2L3J3"},   {AX71, "L0J0L1J1L2J2L3J3"},   {AL64II, "L0J0L1J1L2L4J2L3J3"},
                   {LUM61, "L0J0L1J1L2L3J2L4J3"}, {LUM66, "L0J0L1J1L2L3J2L4J3"}, {TOR77, "L0J0L1J1L2J2L3J3"}};
    constexpr float kSeam = 0.01f;  // m: how far apart two neighbours' surfaces may stay
    Rng rng(203);
    for (const auto& l : layouts) {
        const SafetyModel* model = nullptr;
        for (const SafetyModel& m : kSafetyModels)
            if (m.type == l.type) model = &m;
        use(*model);
        for (int n = 0; n < property_cases() / 30; ++n) {
            float q[8];
            safety_test::random_joints(rng, 1.0f, q);
            model->calc(nullptr, q, 0);
            for (const char* c = l.chain; c[2]; c += 2) {
                auto ends = [&](const char* s, const float** a, const float** b, float* r) {
                    const int i = s[1] - '0';
                    *a = s[0] == 'J' ? PJA[i] : PLA[i];
                    *b = s[0] == 'J' ? PJB[i] : PLB[i];
                    *r = s[0] == 'J' ? model->joint_r[i] : model->link_r[i];
                };
                const float *a0, *b0, *a1, *b1;
                float r0, r1;
                ends(c, &a0, &b0, &r0);
                ends(c + 2, &a1, &b1, &r1);
                ASSERT_LE(distance_ls2ls(a0, b0, a1, b1), r0 + r1 + kSeam)
                    << model->name << " " << std::string(c, 2) << "-" << std::string(c + 2, 2) << " case " << n;
            }
        }
    }
}

// The two families given whole: each end against its row, built from the library's
// universal chain and the installation.
TEST_F(SelfCollision, AxTablesAgainstTheUniversalChain)
{
    struct Row {
        bool joint;
        int index, frame;  // frame -1: the installation
        V first, second;   // before the DH terms below
        int first_dh, second_dh;  // which DH term joins: 0 none, else see `term`
    };
    Rng rng(204);
    for (RobotType type : {AX61, AX71}) {
        libalgo_init();
        ASSERT_EQ(libalgo_set_robot_and_sensor_type(type, _B), 0);
        tilt_base();
        DH dh = libalgo_get_dh_value();
        dh.d[0] += 0.01f, dh.a[2] += 0.02f, dh.d[2] -= 0.01f, dh.d[3] += 0.03f, dh.d[4] += 0.01f;
        libalgo_set_dh_params(&dh);
        const bool ax71 = type == AX71;
        // term 1: d[0] on z; 2: a[2] on x (AX61) or d[2] on z (AX71); 3: d[3] on -y or
        // d[4] on z; 4: d[5] on -y or d[6] on z.
        auto term = [&](int t) -> V {
            switch (t) {
            case 1: return {0, 0, dh.d[0]};
            case 2: return ax71 ? V{0, 0, dh.d[2]} : V{dh.a[2], 0, 0};
            case 3: return ax71 ? V{0, 0, dh.d[4]} : V{0, -dh.d[3], 0};
            case 4: return ax71 ? V{0, 0, dh.d[6]} : V{0, -dh.d[5], 0};
            default: return {0, 0, 0};
            }
        };
        const std::vector<Row> rows = ax71 ? std::vector<Row>{
            {true, 0, 1, {0, -0.05301, 0}, {0, 0.03369, 0}, 0, 0},
            {true, 1, 3, {0, -0.0552, 0}, {0, 0.03222, 0}, 0, 0},
            {true, 2, 5, {0, -0.04463, 0}, {0, 0.03129, 0}, 0, 0},
            {true, 3, 6, {0, 0, -0.029}, {0, 0, 0}, 0, 0},
            {false, 0, -1, {0, 0, 0}, {0, 0, -0.0405}, 0, 1},
            {false, 1, 1, {0, 0, 0.0405}, {0, 0, -0.034}, 0, 2},
            {false, 2, 3, {0, 0, 0.034}, {0, 0, -0.03}, 0, 3},
            {false, 3, 5, {0, 0, 0.03}, {0, 0, -0.029}, 0, 4}}
                                             : std::vector<Row>{
            {true, 0, 1, {0, 0, -0.05301}, {0, 0, 0.03369}, 0, 0},
            {true, 1, 2, {0, 0, -0.0552}, {0, 0, 0.03222}, 0, 0},
            {true, 2, 4, {0, 0, -0.04463}, {0, 0, 0.03129}, 0, 0},
            {true, 3, 5, {0, 0, -0.029}, {0, 0, 0}, 0, 0},
            {false, 0, -1, {0, 0, 0}, {0, 0, -0.0405}, 0, 1},
            {false, 1, 1, {0.0405, 0, 0}, {-0.034, 0, 0}, 0, 2},
            {false, 2, 2, {0, -0.034, 0}, {0, 0.03, 0}, 0, 3},
            {false, 3, 4, {0, -0.03, 0}, {0, 0.029, 0}, 0, 4}};
        const Matrix install = libalgo_get_robot_install_angle_matrix();
        for (int n = 0; n < property_cases() / 30; ++n) {
            float q[8];
            safety_test::random_joints(rng, 1.0f, q);
            Matrix frames[tarn::kMaxChainJoints];
            tarn::kin_chain_frames(q, "machine", frames);
            ToolLinkResult r{};
            (ax71 ? calc_all_end_points_AX71 : calc_all_end_points_AX61)(&r, q, 0);
            for (const Row& row : rows) {
                const Matrix t = row.frame < 0 ? install : matrix_m(install, frames[row.frame]);
                const V f = term(row.first_dh), s = term(row.second_dh);
                const V first = apply(t, {row.first.x + f.x, row.first.y + f.y, row.first.z + f.z});
                const V second = apply(t, {row.second.x + s.x, row.second.y + s.y, row.second.z + s.z});
                ASSERT_LT(gap(row.joint ? PJA[row.index] : PLA[row.index], first), 1e-5) << type << " " << row.index;
                ASSERT_LT(gap(row.joint ? PJB[row.index] : PLB[row.index], second), 1e-5) << type << " " << row.index;
            }
        }
    }
}

TEST_F(SelfCollision, ModelsWithoutAFamilyPass)
{
    float folded[8] = {0, 0, 3.1416f, 0, 0, 0, 0, 0};
    for (int type : {2, 4, 9, 12, -1}) {
        libalgo_init();
        libalgo_set_robot_and_sensor_type(static_cast<RobotType>(type), _B);
        EXPECT_EQ(isCollision_self_tool(folded), 1.0f) << type;
        EXPECT_EQ(self_Collision(folded, 0.5f, 1.0f, 0.8f), 0.8f) << type;
    }
}

TEST_F(SelfCollision, NaNJointsGiveANaNClearance)
{
    use(kSafetyModels[0]);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float q[8] = {0, nan, 0, 0, 0, 0, 0, 0};
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
        const float home[8] = {};
        // Far out along the flange: clear.
        libalgo_set_tool_envelope(0, ToolSphere{0.03f, 0, 0, 0.12f});
        EXPECT_GT(isCollision_self_tool(home), 0.0f) << m.name;
        // Beside the base column: contact, with the sphere alone and as the second one.
        const ToolSphere back = sphere_at(home, {0.08, 0, 0.05}, 0.05f);
        libalgo_set_tool_envelope(0, back);
        EXPECT_LE(isCollision_self_tool(home), 0.0f) << m.name;
        libalgo_set_tool_envelope(0, ToolSphere{0.03f, 0, 0, 0.12f});
        libalgo_set_tool_envelope(1, back);
        EXPECT_LE(isCollision_self_tool(home), 0.0f) << m.name;
        safety_test::clear_envelope();
    }
}

// A capsule joins the flange and the first sphere, and each sphere and the next, where
// they leave a gap; its radius is half the two radii.
TEST_F(SelfCollision, ToolLinkCapsulesBridgeGapsOnly)
{
    use(kSafetyModels[0]);
    const float q[8] = {0.3f, -0.4f, 0.7f, 0.2f, 0.9f, -0.5f, 0, 0};
    const Matrix flange = forward_kinematics_world_to_flange(q);
    ToolLinkResult r{};

    libalgo_set_tool_envelope(0, ToolSphere{0.03f, 0, 0, 0.0599f});  // within 0.03 + r
    calc_all_end_points_AX61(&r, q, update_ToolSpheresModel());
    EXPECT_EQ(r.tool_link_num, 0);
    libalgo_set_tool_envelope(0, ToolSphere{0.03f, 0, 0, 0.0601f});
    calc_all_end_points_AX61(&r, q, update_ToolSpheresModel());
    ASSERT_EQ(r.tool_link_num, 1);
    EXPECT_FLOAT_EQ(r.tool_link_radius[0], 0.03f);
    EXPECT_LT(gap(PLA[4], apply(flange, {0, 0, 0})), 1e-6);
    EXPECT_LT(gap(PLB[4], apply(flange, {0, 0, 0.0601})), 1e-6);

    // A gap to the flange; an overlap; a gap: two capsules.
    libalgo_set_tool_envelope(0, ToolSphere{0.03f, 0, 0, 0.1f});
    libalgo_set_tool_envelope(1, ToolSphere{0.03f, 0, 0, 0.14f});
    libalgo_set_tool_envelope(2, ToolSphere{0.02f, 0, 0, 0.3f});
    calc_all_end_points_AX61(&r, q, update_ToolSpheresModel());
    ASSERT_EQ(r.tool_link_num, 2);
    EXPECT_FLOAT_EQ(r.tool_link_radius[0], 0.03f);
    EXPECT_FLOAT_EQ(r.tool_link_radius[1], 0.025f);
    EXPECT_LT(gap(PLA[5], apply(flange, {0, 0, 0.14})), 1e-6);
    EXPECT_LT(gap(PLB[5], apply(flange, {0, 0, 0.3})), 1e-6);

    // Five-link families put them behind their fifth link.
    use(kSafetyModels[2]);
    calc_all_end_points_AL64II(&r, q, update_ToolSpheresModel());
    ASSERT_EQ(r.tool_link_num, 2);
    EXPECT_LT(gap(PLB[6], apply(forward_kinematics_world_to_flange(q), {0, 0, 0.3})), 1e-6);
}

TEST_F(SelfCollision, EnvelopeSlotsAreNotCompacted)
{
    use(kSafetyModels[0]);
    const float home[8] = {};
    const ToolSphere back = sphere_at(home, {0.08, 0, 0.05}, 0.05f);
    const ToolSphere beside{0.03f, 0.1f, 0, 0.12f};
    libalgo_set_tool_envelope(0, ToolSphere{0.03f, 0, 0, 0.12f});
    libalgo_set_tool_envelope(1, beside);
    libalgo_set_tool_envelope(2, back);
    EXPECT_EQ(update_ToolSpheresModel(), 3);
    EXPECT_LE(isCollision_self_tool(home), 0.0f);
    // Slot 1 emptied (a radius of 1e-6 is empty) keeps its older content in the working
    // copy, and the checks read two slots: the colliding sphere in slot 2 is hidden.
    libalgo_set_tool_envelope(1, ToolSphere{1e-6f, 0, 0, 0});
    EXPECT_EQ(update_ToolSpheresModel(), 2);
    EXPECT_EQ(tool_spheres_para[1].x, beside.x);
    EXPECT_GT(isCollision_self_tool(home), 0.0f);

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
// of tool sphere radii. Here the capsule from sphere 0 (radius r0) to sphere 1 passes
// the base link: the clearance follows r0 one to one and ignores sphere 1's radius,
// where the capsule's own radius (r0 + r1) / 2 would be in contact.
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
    const float home[8] = {};
    const float c = isCollision_self_tool(home);
    ASSERT_GT(c, 0.05f);
    ASSERT_LT(c, 0.1f);
    const float near = (c - 0.05f) * -1.0f / -0.049f + 1.0f;
    const float wide = (c - 0.1f) * -0.5f / -0.099f + 0.5f;
    const struct {
        uint32_t mode, condition;
        bool near;
    } cases[] = {{3, 0, true},  {3, 3, true},  {3, 17, true}, {3, 1, false}, {3, 9, false},
                 {0, 3, false}, {1, 3, true},  {2, 1, false}, {1, 0, true}};
    for (const auto& k : cases) {
        set_motion_mode(k.mode);
        libalgo_set_current_condition(k.condition);
        const float p = k.near ? near : wide;
        // m above r: p / s, capped at m.
        EXPECT_FLOAT_EQ(self_Collision(home, 0.3f, 0.5f, 0.9f), std::fmin(p / 0.5f, 0.9f)) << k.mode << " " << k.condition;
    }
    set_motion_mode(0);  // the wide curve: p about 0.42
    EXPECT_FLOAT_EQ(self_Collision(home, 0.44f, 1.0f, 0.45f), wide);  // r above p: p / s
    EXPECT_FLOAT_EQ(self_Collision(home, 0.42f, 1.0f, 0.42f), 0.42f);  // m <= r <= p: r
    EXPECT_FLOAT_EQ(self_Collision(home, 0.44f, 1.0f, 0.40f), 0.40f);  // capped at m
    EXPECT_EQ(self_Collision(home, 0.0f, 1.0f, 0.8f), -1.0f);          // r or m exactly 0
    EXPECT_EQ(self_Collision(home, 0.5f, 1.0f, 0.0f), -1.0f);
    float folded[8] = {};
    folded[kSafetyModels[0].fold_joint] = kSafetyModels[0].fold_angle;
    EXPECT_EQ(self_Collision(folded, 0.5f, 1.0f, 0.8f), -1.0f);
}

TEST_F(SelfCollision, OneShotCheckOfAPose)
{
    use(kSafetyModels[2]);  // AL64II: its wrist folds back within the limits
    const float home[8] = {};
    EXPECT_EQ(safety_robot_self_collision_detection(home), 0);
    float q[8] = {};
    q[0] = 3.11f;  // beyond 178 degrees
    EXPECT_EQ(safety_robot_self_collision_detection(q), 1);
    q[0] = 0.0f;
    q[4] = 3.1f;  // within the limits, folded
    EXPECT_EQ(safety_robot_self_collision_detection(q), 1);
}

// The robot model store and its defaults.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>

#include "Algorithm/model/libalgo_interface.h"
#include "libalgo.h"

namespace {

constexpr double kDeg = std::numbers::pi / 180.0;
constexpr float h = static_cast<float>(std::numbers::pi / 2);
constexpr float kNo = -1.0f;  // a dash in the F table: no such sensor edition

// The model tables, restated independently of the implementation: model, dof, F by
// sensor, first d, first and last max/min position limits in degrees, first and last max
// speed, and the seven directions.
struct Row {
    RobotType type;
    int dof;
    float flange_d[4];
    float d0;
    float max_first, max_last, min_first, min_last;
    float vel_first, vel_last;
    float direction[7];
};

const Row kRows[] = {
    {AX61, 6, {0.144f, 0.152f, 0.1725f, 0.1612f}, 0.2405f, 178, 360, -178, -360, 180, 225, {1, 1, 1, 1, 1, 1, 1}},
    {AX71, 7, {0.144f, 0.152f, 0.1725f, 0.1612f}, 0.2405f, 178, 360, -178, -360, 180, 225, {1, 1, 1, 1, 1, 1, 1}},
    {AL64I, 0, {kNo, kNo, kNo, kNo}, 0, 0, 0, 0, 0, 0, 0, {0, 0, 0, 0, 0, 0, 0}},
    {AL64II, 6, {0.115f, 0.123f, 0.1435f, 0.1322f}, 0.172f, 178, 360, -178, -360, 180, 225, {1, -1, 1, 1, 1, 1, 1}},
    {AL64III, 6, {0.115f, 0.123f, 0.1435f, kNo}, 0.162f, 178, 360, -178, -360, 180, 225, {1, -1, 1, 1, 1, 1, 1}},
    {LUM61, 6, {0.0795f, 0.0875f, 0.108f, 0.0967f}, 0.1625f, 180, 180, -180, -180, 180, 225, {1, -1, 1, -1, 1, 1, 1}},
    {LUM66, 6, {0.0707f, kNo, kNo, kNo}, 0.136f, 178, 360, -178, -360, 225, 180, {1, -1, 1, -1, 1, 1, 1}},
    {TOR77, 7, {0.0905f, kNo, kNo, kNo}, 0.218f, 172, 172, -172, -172, 180, 225, {-1, 1, -1, 1, -1, 1, -1}},
    {LUM67, 6, {0.0795f, 0.0875f, 0.108f, 0.0967f}, 0.1625f, 178, 360, -178, -360, 180, 225, {1, -1, 1, -1, 1, 1, 1}},
    {UNIVERSAL, 7, {0, 0, 0, 0}, 0, 360, 360, -360, -360, 300, 300, {1, 1, 1, 1, 1, 1, 1}},
    {AL64IV, 6, {0.1151f, 0.1231f, 0.1436f, 0.1323f}, 0.1625f, 178, 360, -178, -360, 180, 225, {1, -1, 1, 1, 1, 1, 1}},
    {TOR77II, 7, {0.0787f, kNo, kNo, kNo}, 0.2052f, 172, 172, -172, -172, 180, 225, {-1, 1, -1, 1, -1, 1, -1}},
};

float rad(double deg) { return static_cast<float>(deg * kDeg); }

void expect_identity(const Matrix& m)
{
    EXPECT_EQ(m.irow, 4);
    EXPECT_EQ(m.iline, 4);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) EXPECT_EQ(m.data[i][j], i == j ? 1.0f : 0.0f);
}

void expect_cleared()
{
    EXPECT_EQ(libalgo_get_rbt_dof(), 0);
    DH dh = libalgo_get_dh_value();
    DH zero{};
    EXPECT_EQ(std::memcmp(&dh, &zero, sizeof dh), 0);
    float v[8];
    libalgo_get_jointlim_max(v);
    for (float x : v) EXPECT_EQ(x, 0.0f);
    libalgo_get_joint_direction(v);
    for (float x : v) EXPECT_EQ(x, 0.0f);
    EXPECT_FLOAT_EQ(libalgo_get_control_loop_period(), 0.002f);
    float g[3];
    libalgo_get_robot_gravity_acc(g);
    EXPECT_EQ(g[2], -9.81f);
    expect_identity(libalgo_get_tool_cs_matrix());
    expect_identity(libalgo_get_work_cs_to_base_matrix());
    expect_identity(libalgo_get_robot_install_angle_matrix());
}

}  // namespace

/* -----------------------------------------------------------------------------
 * Defaults of every model and sensor pair
 * -------------------------------------------------------------------------- */

TEST(ModelStore, DefaultsOfEveryModelAndSensor)
{
    for (const Row& row : kRows) {
        for (int sensor = 0; sensor < 4; ++sensor) {
            SCOPED_TRACE(testing::Message() << "model " << row.type << " sensor " << sensor);
            const bool has = row.flange_d[sensor] != kNo;
            const int16_t rc = libalgo_set_robot_and_sensor_type(row.type, static_cast<SensorType>(sensor));
            EXPECT_EQ(rc, has ? 0 : -1);
            EXPECT_EQ(libalgo_get_robot_type(), row.type);
            EXPECT_EQ(libalgo_get_sensor_type(), sensor);
            if (!has) {
                expect_cleared();
                continue;
            }
            ASSERT_EQ(libalgo_get_rbt_dof(), row.dof);
            const int last = row.dof - 1;
            const DH dh = libalgo_get_dh_value();
            EXPECT_EQ(dh.d[last], row.flange_d[sensor]);
            const bool al64iii_sensor = row.type == AL64III && (sensor == _QF || sensor == _XF);
            EXPECT_EQ(dh.d[0], al64iii_sensor ? 0.172f : row.d0);
            for (int i = row.dof; i < 8; ++i) {
                EXPECT_EQ(dh.d[i], 0.0f);
                EXPECT_EQ(dh.alpha[i], 0.0f);
            }
            float v[8];
            libalgo_get_jointlim_max(v);
            EXPECT_EQ(v[0], rad(row.max_first));
            EXPECT_EQ(v[last], rad(row.max_last));
            EXPECT_EQ(v[row.dof < 8 ? row.dof : 7], row.dof < 8 ? 0.0f : v[7]);
            libalgo_get_jointlim_min(v);
            EXPECT_EQ(v[0], rad(row.min_first));
            EXPECT_EQ(v[last], rad(row.min_last));
            libalgo_get_joint_vel_maxlim(v);
            EXPECT_EQ(v[0], rad(row.vel_first));
            EXPECT_EQ(v[last], rad(row.vel_last));
            libalgo_get_joint_acc_maxlim(v);
            for (int i = 0; i < row.dof; ++i) EXPECT_EQ(v[i], rad(1000.0));
            libalgo_get_joint_direction(v);
            for (int i = 0; i < 7; ++i) EXPECT_EQ(v[i], row.direction[i]);
            // The defaults copy equals the DH, and the check agrees.
            const DH def = libalgo_get_dh_params_default();
            EXPECT_EQ(std::memcmp(&def, &dh, sizeof dh), 0);
            EXPECT_EQ(libalgo_check_dh_params_is_default(), 1);
            // Link dynamics: plausible for a real model, zero for UNIVERSAL.
            const LinkDynamicsParams links = libalgo_get_link_dynamics_params();
            const LinkDynamicsParams links_def = libalgo_get_link_dynamics_params_default();
            EXPECT_EQ(std::memcmp(&links, &links_def, sizeof links), 0);
            for (int i = 0; i < row.dof; ++i) {
                const LinkDynamics& l = links.link[i];
                if (row.type == UNIVERSAL) {
                    EXPECT_EQ(l.mass, 0.0f);
                    continue;
                }
                EXPECT_GT(l.mass, 0.1f);
                EXPECT_LT(l.mass, 15.0f);
                for (int k = 0; k < 3; ++k) EXPECT_GT(l.inertia[k], 0.0f);
                // Triangle inequality of principal moments.
                EXPECT_LE(l.inertia[0], l.inertia[1] + l.inertia[2] + 1e-9f);
                EXPECT_GT(l.gear_ratio, 1.0f);
                EXPECT_NEAR(l.armature, l.motor_inertia * l.gear_ratio * l.gear_ratio, 1e-6);
            }
            for (int i = row.dof; i < 8; ++i) EXPECT_EQ(links.link[i].mass, 0.0f);
        }
    }
}

TEST(ModelStore, FullKinematicTablesOfTwoModels)
{
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(AL64II, _XF), 0);
    const DH dh = libalgo_get_dh_value();
    const float d[6] = {0.172f, 0, 0, 0.405f, 0, 0.1435f};
    const float a[6] = {0, -0.086f, 0.38f, 0.069f, 0, 0};
    const float alpha[6] = {0, -h, 0, h, -h, -h};
    const float offset[6] = {0, -h, h, 0, 2 * h, 2 * h};
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(dh.d[i], d[i]) << i;
        EXPECT_EQ(dh.a[i], a[i]) << i;
        EXPECT_FLOAT_EQ(dh.alpha[i], alpha[i]) << i;
        EXPECT_FLOAT_EQ(dh.offset[i], offset[i]) << i;
    }
    float mx[8], mn[8];
    libalgo_get_jointlim_max(mx);
    libalgo_get_jointlim_min(mn);
    const float max_deg[6] = {178, 178, 145, 178, 178, 360};
    const float min_deg[6] = {-178, -178, -178, -178, -178, -360};
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(mx[i], rad(max_deg[i]));
        EXPECT_EQ(mn[i], rad(min_deg[i]));
    }

    ASSERT_EQ(libalgo_set_robot_and_sensor_type(TOR77, _B), 0);
    const DH t = libalgo_get_dh_value();
    const float td[7] = {0.218f, 0, 0.28f, 0, 0.2525f, 0, 0.0905f};
    const float ta[7] = {0, 0, 0, 0.04f, -0.019f, 0, 0.067f};
    const float talpha[7] = {0, -h, h, h, -h, h, h};
    const float toffset[7] = {0, 0, 0, 0, 0, h, 0};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(t.d[i], td[i]) << i;
        EXPECT_EQ(t.a[i], ta[i]) << i;
        EXPECT_FLOAT_EQ(t.alpha[i], talpha[i]) << i;
        EXPECT_FLOAT_EQ(t.offset[i], toffset[i]) << i;
    }
    libalgo_get_jointlim_min(mn);
    EXPECT_EQ(mn[3], rad(-170));
    EXPECT_EQ(mn[5], rad(-90));
    float v[8];
    libalgo_get_joint_vel_maxlim(v);
    EXPECT_EQ(v[3], rad(180));
    EXPECT_EQ(v[4], rad(225));
}

TEST(ModelStore, RefusedPairs)
{
    EXPECT_EQ(libalgo_set_robot_and_sensor_type(AL64I, _B), -1);
    EXPECT_EQ(libalgo_get_rbt_dof(), 0);
    EXPECT_EQ(libalgo_set_robot_and_sensor_type(LUM66, _XF), -1);
    EXPECT_EQ(libalgo_get_rbt_dof(), 0);
    EXPECT_EQ(libalgo_set_robot_and_sensor_type(static_cast<RobotType>(12), _B), -1);
    EXPECT_EQ(libalgo_get_robot_type(), 12);
    EXPECT_EQ(libalgo_set_robot_and_sensor_type(static_cast<RobotType>(-1), _B), -1);
    EXPECT_EQ(libalgo_set_robot_and_sensor_type(AX61, static_cast<SensorType>(4)), -1);
    EXPECT_EQ(libalgo_get_rbt_dof(), 0);
    expect_cleared();
}

TEST(ModelStore, SetTypeClearsTheStore)
{
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(AX61, _B), 0);
    const Coord tool{0.1f, 0, 0.2f, 0, 0, 0.5f};
    libalgo_set_tool_cs_params(&tool);
    const PayloadCfg payload{2.0f, {0, 0, 0.05f}, {}, 0.1f};
    libalgo_set_payload_params(&payload);
    libalgo_set_control_loop_period(0.004f);
    const Euler tilt{0.2f, 0.3f, 0.0f};
    libalgo_set_robot_install_angle(&tilt);
    libalgo_set_safety_level(3);
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(AX71, _QF), 0);
    expect_identity(libalgo_get_tool_cs_matrix());
    expect_identity(libalgo_get_robot_install_angle_matrix());
    EXPECT_EQ(libalgo_get_payload_params().mass, 0.0f);
    EXPECT_FLOAT_EQ(libalgo_get_control_loop_period(), 0.002f);
    EXPECT_EQ(libalgo_get_safety_level(), 0);
    float g[3];
    libalgo_get_robot_gravity_acc(g);
    EXPECT_EQ(g[0], 0.0f);
    EXPECT_EQ(g[2], -9.81f);
}

TEST(ModelStore, InitAndClear)
{
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(LUM61, _B), 0);
    libalgo_init();
    expect_cleared();
    libalgo_clear();
    EXPECT_EQ(libalgo_get_tool_cs_matrix().irow, 0);
    EXPECT_EQ(libalgo_get_control_loop_period(), 0.0f);
    libalgo_init();
    EXPECT_EQ(libalgo_get_tool_cs_matrix().irow, 4);
}

/* -----------------------------------------------------------------------------
 * Frames
 * -------------------------------------------------------------------------- */

TEST(ModelStore, InstallAngleAndGravity)
{
    libalgo_init();
    const Euler zero{0, 0, 0};
    libalgo_set_robot_install_angle(&zero);
    float g[3];
    libalgo_get_robot_gravity_acc(g);
    EXPECT_EQ(g[0], 0.0f);
    EXPECT_EQ(g[1], -0.0f);
    EXPECT_EQ(g[2], -9.81f);
    const Euler tilt{0.3f, -0.5f, 1.2f};
    libalgo_set_robot_install_angle(&tilt);
    const Euler back = libalgo_get_robot_install_angle();
    EXPECT_EQ(back.rz, 1.2f);
    libalgo_get_robot_gravity_acc(g);
    EXPECT_FLOAT_EQ(g[0], 9.81f * std::sin(-0.5f));
    EXPECT_FLOAT_EQ(g[1], -9.81f * std::cos(-0.5f) * std::sin(0.3f));
    EXPECT_FLOAT_EQ(g[2], -9.81f * std::cos(0.3f) * std::cos(-0.5f));
    // Gravity in the base frame is the world's (0, 0, -9.81) seen through Ti.
    const Matrix ti = libalgo_get_robot_install_angle_matrix();
    EXPECT_EQ(ti.irow, 4);
    EXPECT_EQ(ti.data[0][3], 0.0f);
    EXPECT_EQ(ti.data[3][3], 1.0f);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(g[i], -9.81f * ti.data[2][i], 1e-5);
    const Matrix r = euler_to_matrix(tilt);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) EXPECT_EQ(ti.data[i][j], r.data[i][j]);
    libalgo_set_robot_install_angle(nullptr);  // nothing
    EXPECT_EQ(libalgo_get_robot_install_angle().rz, 1.2f);
}

TEST(ModelStore, ToolAndWorkFrames)
{
    libalgo_init();
    const Coord tool{0.01f, 0.02f, 0.15f, 0.1f, 0.2f, 0.3f};
    libalgo_set_tool_cs_params(&tool);
    const Coord t = libalgo_get_tool_cs_params();
    EXPECT_EQ(std::memcmp(&t, &tool, sizeof t), 0);
    const Matrix tt = libalgo_get_tool_cs_matrix();
    EXPECT_EQ(tt.data[2][3], 0.15f);
    const Pose p = transformation_matrix_to_pose(tt);
    EXPECT_NEAR(p.euler.ry, 0.2f, 1e-6);

    const Coord work{0.5f, -0.2f, 0.1f, 0.0f, 0.0f, 1.0f};
    libalgo_set_work_cs_params(&work);
    const Matrix w = libalgo_get_work_cs_matrix();
    const Matrix tw = libalgo_get_work_cs_to_base_matrix();
    const Matrix prod = matrix_m(tw, w);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) EXPECT_NEAR(prod.data[i][j], i == j ? 1.0f : 0.0f, 1e-6);
    // Tw maps base coordinates into the work frame: the work origin goes to zero.
    EXPECT_EQ(w.data[0][3], 0.5f);
    const Coord wb = libalgo_get_work_cs_params();
    EXPECT_EQ(wb.rz, 1.0f);
}

TEST(ModelStore, PayloadAndPlainValues)
{
    libalgo_init();
    const PayloadCfg payload{1.5f, {0.01f, 0.02f, 0.03f}, {1, 2, 3, 4, 5, 6}, 0.07f};
    libalgo_set_payload_params(&payload);
    const PayloadCfg got = libalgo_get_payload_params();
    EXPECT_EQ(std::memcmp(&got, &payload, sizeof got), 0);
    libalgo_set_control_loop_period(0.001f);
    EXPECT_EQ(libalgo_get_control_loop_period(), 0.001f);
    libalgo_set_safety_level(2);
    EXPECT_EQ(libalgo_get_safety_level(), 2);
    const TcpConfig tcp{0.5f, 2.0f, 1.0f, 4.0f};
    libalgo_set_tcp_config(&tcp);
    EXPECT_EQ(libalgo_get_tcp_config().angular_acc, 4.0f);
    libalgo_set_system_all_dof(8);
    EXPECT_EQ(libalgo_get_system_all_dof(), 8);
    libalgo_set_is_avoid_Singularity(1);
    EXPECT_EQ(libalgo_get_is_avoid_Singularity(), 1);
    const float th[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    float out[8];
    libalgo_set_user_collision_threshold(th);
    libalgo_get_user_collision_threshold(out);
    EXPECT_EQ(std::memcmp(th, out, sizeof th), 0);
}

/* -----------------------------------------------------------------------------
 * Link parameters and joints
 * -------------------------------------------------------------------------- */

TEST(ModelStore, DhParamsAndDefaults)
{
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(LUM67, _QF), 0);
    DH changed = libalgo_get_dh_value();
    changed.a[2] += 0.001f;
    changed.err_d[0] = 5.0f;  // set_dh_params copies only the four main arrays
    libalgo_set_dh_params(&changed);
    EXPECT_EQ(libalgo_check_dh_params_is_default(), 0);
    EXPECT_EQ(libalgo_get_dh_value().err_d[0], 0.0f);
    libalgo_set_dh_params_default();
    EXPECT_EQ(libalgo_check_dh_params_is_default(), 1);
    EXPECT_EQ(libalgo_get_dh_value().a[2], 0.41f);
    // Entries beyond rbt_dof are not compared.
    changed = libalgo_get_dh_value();
    changed.d[7] = 1.0f;
    libalgo_set_dh_params(&changed);
    EXPECT_EQ(libalgo_check_dh_params_is_default(), 1);
    // rbt_dof below 1: equal by definition.
    libalgo_init();
    EXPECT_EQ(libalgo_check_dh_params_is_default(), 1);
}

TEST(ModelStore, DhCompensation)
{
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(AX61, _B), 0);
    DH comp{};
    comp.err_d[1] = 0.001f;
    comp.err_theta[5] = -0.002f;
    comp.d[0] = 9.0f;  // not copied
    libalgo_set_dh_compensation_value(&comp);
    const DH got = libalgo_get_dh_compensation_value();
    EXPECT_EQ(got.err_d[1], 0.001f);
    EXPECT_EQ(got.err_theta[5], -0.002f);
    EXPECT_EQ(got.d[0], 0.0f);
    EXPECT_EQ(libalgo_get_dh_value().d[0], 0.2405f);
    EXPECT_EQ(libalgo_get_dh_value().err_theta[5], -0.002f);
    EXPECT_EQ(libalgo_check_dh_params_is_default(), 1);
}

TEST(ModelStore, JointLimitsSpreadAndModelingLimits)
{
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(AX61, _B), 0);
    const float mx[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    const float mn[8] = {-1, -2, -3, -4, -5, -6, -7, -8};
    const float vel[8] = {10, 11, 12, 13, 14, 15, 16, 17};
    const float acc[8] = {20, 21, 22, 23, 24, 25, 26, 27};
    libalgo_set_jointlim_max(mx);
    libalgo_set_jointlim_min(mn);
    libalgo_set_joint_vel_maxlim(vel);
    libalgo_set_joint_acc_maxlim(acc);
    for (int i = 0; i < 8; ++i) {
        const JointCfg j = libalgo_get_joint_config(i);
        EXPECT_EQ(j.pos_max, mx[i]);
        EXPECT_EQ(j.pos_min, mn[i]);
        EXPECT_EQ(j.vel_max, vel[i]);
        EXPECT_EQ(j.acc_max, acc[i]);
    }
    float out[8];
    libalgo_get_modeling_jointlim_max(out);
    const DH dh = libalgo_get_dh_value();
    for (int i = 0; i < 8; ++i) EXPECT_EQ(out[i], mx[i] + dh.offset[i]);
    libalgo_get_modeling_jointlim_min(out);
    EXPECT_EQ(out[1], mn[1] + h);
    JointCfg cfg = libalgo_get_joint_config(3);
    cfg.dynamics[4] = 42.0f;
    libalgo_set_joint_config(3, &cfg);
    EXPECT_EQ(libalgo_get_joint_config(3).dynamics[4], 42.0f);
    libalgo_set_joint_config(8, &cfg);  // out of range: nothing
    libalgo_set_joint_config(-1, &cfg);
    EXPECT_EQ(libalgo_get_joint_config(8).pos_max, 0.0f);
    const float dir[8] = {-1, 1, -1, 1, -1, 1, -1, 1};
    libalgo_set_joint_direction(dir);
    libalgo_get_joint_direction(out);
    EXPECT_EQ(std::memcmp(out, dir, sizeof dir), 0);
    libalgo_set_joint_direction(nullptr);
    libalgo_get_joint_direction(nullptr);
}

/* -----------------------------------------------------------------------------
 * Dynamics
 * -------------------------------------------------------------------------- */

TEST(ModelStore, DynamicsBlock)
{
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(AX61, _B), 0);
    const float bare_mass = libalgo_get_link_dynamics_params().link[5].mass;
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(AX61, _XF), 0);
    EXPECT_NEAR(libalgo_get_link_dynamics_params().link[5].mass, bare_mass + 0.42f, 1e-6);
    EXPECT_GT(libalgo_get_link_dynamics_params().link[5].com[2],
              -0.015f);  // the sensor's mass sits further out along z

    LinkDynamicsParams p = libalgo_get_link_dynamics_params();
    p.link[0].mass = 99.0f;
    libalgo_set_link_dynamics_params(&p);
    EXPECT_EQ(libalgo_get_link_dynamics_params().link[0].mass, 99.0f);
    EXPECT_NE(libalgo_get_link_dynamics_params_default().link[0].mass, 99.0f);
    libalgo_set_link_dynamics_params_default();
    EXPECT_NE(libalgo_get_link_dynamics_params().link[0].mass, 99.0f);

    DynamicsIdentParams ident{};
    ident.link[2][0] = 3.5f;
    libalgo_set_dynamics_identification_params(&ident);
    libalgo_set_dynamics_model_type(LIBALGO_DYN_MODEL_IDENTIFIED);
    EXPECT_EQ(libalgo_get_dynamics_model_type(), LIBALGO_DYN_MODEL_IDENTIFIED);
    const DynamicsParams all = libalgo_get_dynamics_params();
    EXPECT_EQ(all.ident.link[2][0], 3.5f);
    EXPECT_EQ(all.model_type, LIBALGO_DYN_MODEL_IDENTIFIED);
    EXPECT_EQ(all.links.link[1].mass, libalgo_get_link_dynamics_params().link[1].mass);
}

TEST(ModelStore, DragFactorRule)
{
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(AX61, _B), 0);
    const float f[8] = {0.0005f, 0.5f, -0.0009f, 0.001f, 0.0f, 2.0f, 0.0f, 0.0f};
    libalgo_set_drag_regulation_factor(f);
    float out[8];
    libalgo_get_drag_regulation_factor(out);
    EXPECT_EQ(out[0], 1.0f);
    EXPECT_EQ(out[1], 0.5f);
    EXPECT_EQ(out[2], 1.0f);
    EXPECT_EQ(out[3], 0.001f);
    EXPECT_EQ(out[4], 1.0f);
    EXPECT_EQ(out[5], 2.0f);
    // Beyond rbt_dof (6) the factors are copied as they are.
    EXPECT_EQ(out[6], 0.0f);
    EXPECT_EQ(out[7], 0.0f);
    EXPECT_EQ(libalgo_get_dynamics_params().drag_factor[0], 1.0f);
}

/* -----------------------------------------------------------------------------
 * Joint state
 * -------------------------------------------------------------------------- */

TEST(ModelStore, FeedbackDataRule)
{
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(AL64II, _B), 0);
    const DH dh = libalgo_get_dh_value();
    RobotFeedback fb{};
    for (int i = 0; i < 32; ++i) fb.joint[i] = 100.0f + static_cast<float>(i);
    fb.force[2] = 12.0f;
    libalgo_update_feedback_data(&fb);
    const RobotFeedback got = libalgo_get_robot_feedback_data();
    float raw[8];
    libalgo_get_trajectory_planning_joint_cur(raw);
    for (int i = 0; i < 6; ++i) {
        const float measured = fb.joint[LIBALGO_FEEDBACK_MEASURED_POS + i];
        EXPECT_EQ(raw[i], measured);
        EXPECT_EQ(got.joint[LIBALGO_FEEDBACK_MEASURED_POS + i], measured + dh.offset[i]);
        EXPECT_EQ(got.joint[LIBALGO_FEEDBACK_POS + i], measured + dh.offset[i]);
    }
    // Beyond rbt_dof, and the other blocks, as they came.
    EXPECT_EQ(got.joint[6], fb.joint[6]);
    EXPECT_EQ(got.joint[22], fb.joint[22]);
    EXPECT_EQ(raw[6], 0.0f);
    EXPECT_EQ(got.joint[LIBALGO_FEEDBACK_VEL + 1], fb.joint[9]);
    EXPECT_EQ(got.joint[LIBALGO_FEEDBACK_TORQUE], fb.joint[24]);
    EXPECT_EQ(got.force[2], 12.0f);

    const float cmd[8] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.8f};
    libalgo_set_trajectory_planning_joint_cmd(cmd);
    float out[8];
    libalgo_get_trajectory_planning_joint_cmd(out);
    EXPECT_EQ(std::memcmp(out, cmd, sizeof cmd), 0);
}

TEST(ModelStore, StoreLayout)
{
    static_assert(sizeof(JointCfg) == 17 * sizeof(float));
    static_assert(sizeof(LinkDynamicsParams) == 608);
    static_assert(sizeof(DH) == 8 * 8 * sizeof(float));
    // The store record is reachable for diagnostics and is the one the getters read.
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(TOR77II, _B), 0);
    EXPECT_EQ(robot.rbt_dof, 7);
    EXPECT_EQ(robot.dh.d[6], 0.0787f);
}

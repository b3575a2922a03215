// The facade's model and parameters in degrees against the model store in radians: the
// model mapping, the conversion of every parameter in both directions with its own
// constant, and the seven-axis search mode.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "Application/zk_invoke_algo.h"
#include "algo_test_util.h"
#include "zk_api.h"

namespace {

constexpr double kDegToRad = 0.017453292519943295;
constexpr double kDegToRadSpeed = 0.0174532925199433;
constexpr double kRadToDeg = 57.2957795130823;

float rad(float deg, double factor = kDegToRad) { return static_cast<float>(static_cast<double>(deg) * factor); }
float deg(float rad) { return static_cast<float>(static_cast<double>(rad) * kRadToDeg); }

TEST(AlgoFacadeModel, VersionText) { EXPECT_STREQ(zk_algo_version(), "1.5.3-f0364d3b"); }

TEST(AlgoFacadeModel, ArmModelMapsToTheLibrarysRobotType)
{
    struct Row {
        int model;
        RobotType expected;
    };
    // The third AL64 form of the client is the library's fourth; out-of-range values count
    // as the first model.
    const Row rows[] = {
        {ZK_MODEL_AX_61_E, AX61},   {ZK_MODEL_AX_71_E, AX71},   {ZK_MODEL_AL_64_I_E, AL64I},
        {ZK_MODEL_AL_64_II_E, AL64II}, {ZK_MODEL_AL_64_III_E, AL64IV}, {ZK_MODEL_LUM_61_E, LUM61},
        {ZK_MODEL_LUM_66_E, LUM66}, {ZK_MODEL_TOR_77_E, TOR77}, {ZK_MODEL_LUM_67_E, LUM67},
        {9, AX61},                  {10, AX61},                 {-1, AX61},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.model);
        const int result = zk_algo_init_sys_data(static_cast<zk_robot_arm_model_e>(row.model), ZK_MODEL_ZK_B_E);
        EXPECT_EQ(libalgo_get_robot_type(), row.expected);
        // AL64I has no defaults: the store stays cleared.
        EXPECT_EQ(result, row.expected == AL64I ? -1 : 0);
        EXPECT_EQ(libalgo_get_rbt_dof(), row.expected == AL64I ? 0 : (row.expected == AX71 || row.expected == TOR77 ? 7 : 6));
    }
}

TEST(AlgoFacadeModel, ForceTypeMapsToTheLibrarysSensorType)
{
    struct Row {
        int force;
        SensorType expected;
    };
    const Row rows[] = {{ZK_MODEL_ZK_B_E, _B}, {ZK_MODEL_ZK_QF_E, _QF}, {ZK_MODEL_ZK_XF_E, _XF},
                        {ZK_MODEL_ZK_IXF_E, IXF}, {4, _B}, {-3, _B}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.force);
        EXPECT_EQ(zk_algo_init_sys_data(ZK_MODEL_AX_61_E, static_cast<zk_force_type_e>(row.force)), 0);
        EXPECT_EQ(libalgo_get_sensor_type(), row.expected);
    }
    // A pair without defaults is refused by the store, and said so.
    EXPECT_EQ(zk_algo_init_sys_data(ZK_MODEL_LUM_66_E, ZK_MODEL_ZK_XF_E), -1);
}

TEST(AlgoFacadeModel, InitResetsWhatWasSetBefore)
{
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    zk_frame_t tool{};
    tool.pose.position = {0.1f, 0.2f, 0.3f};
    tool.payload = 2.0f;
    zk_algo_set_toolframe(&tool);
    zk_algo_set_angle(10.0f, 20.0f, 30.0f);
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    const Coord c = libalgo_get_tool_cs_params();
    EXPECT_EQ(c.x, 0.0f);
    EXPECT_EQ(libalgo_get_payload_params().mass, 0.0f);
    EXPECT_EQ(libalgo_get_robot_install_angle().ry, 0.0f);
}

// ----------------------------------------------------------------------------------------
// Joint arrays: each setter and getter with its constant
// ----------------------------------------------------------------------------------------

struct JointArrayRow {
    const char* name;
    void (*set)(const float*);
    void (*get)(float*);
    void (*lib_set)(const float*);
    void (*lib_get)(float*);
    double to_rad;
    float scale;  // applied before the conversion in, removed after it out
};

const JointArrayRow kJointArrays[] = {
    {"max limit", zk_algo_set_joint_max_limit, zk_algo_get_joint_max_limit, libalgo_set_jointlim_max,
     libalgo_get_jointlim_max, kDegToRad, 1.0f},
    {"min limit", zk_algo_set_joint_min_limit, zk_algo_get_joint_min_limit, libalgo_set_jointlim_min,
     libalgo_get_jointlim_min, kDegToRad, 1.0f},
    {"max speed", zk_algo_set_joint_max_speed, zk_algo_get_joint_max_speed, libalgo_set_joint_vel_maxlim,
     libalgo_get_joint_vel_maxlim, kDegToRadSpeed, 1.0f},
    {"max acc", zk_algo_set_joint_max_acc, zk_algo_get_joint_max_acc, libalgo_set_joint_acc_maxlim,
     libalgo_get_joint_acc_maxlim, kDegToRad, 6.0f},
};

TEST(AlgoFacadeModel, JointArraysGoInAsRadiansForTheModelsJointsOnly)
{
    algo_test::Rng rng(701);
    for (const auto model : {ZK_MODEL_AX_61_E, ZK_MODEL_AX_71_E}) {
        zk_algo_init_sys_data(model, ZK_MODEL_ZK_B_E);
        const int dof = libalgo_get_rbt_dof();
        for (const JointArrayRow& row : kJointArrays) {
            SCOPED_TRACE(row.name);
            const float sentinel[8] = {-9, -9, -9, -9, -9, -9, -9, -9};
            row.lib_set(sentinel);
            float host[7];
            for (float& v : host) v = rng.uniformf(-400.0f, 400.0f);
            row.set(host);
            float stored[8];
            row.lib_get(stored);
            for (int i = 0; i < 8; ++i) {
                if (i < dof)
                    EXPECT_EQ(stored[i], rad(host[i] * row.scale, row.to_rad)) << i;
                else
                    EXPECT_EQ(stored[i], -9.0f) << i;  // beyond the arm: left alone
            }
        }
    }
}

TEST(AlgoFacadeModel, JointArraysComeOutAsDegreesWithoutOverrunningTheArmsLength)
{
    algo_test::Rng rng(702);
    zk_algo_init_sys_data(ZK_MODEL_LUM_61_E, ZK_MODEL_ZK_B_E);
    for (const JointArrayRow& row : kJointArrays) {
        SCOPED_TRACE(row.name);
        float stored[8];
        for (float& v : stored) v = rng.uniformf(-6.0f, 6.0f);
        row.lib_set(stored);
        float host[7] = {0, 0, 0, 0, 0, 0, 1234.0f};  // a six-joint arm's array, guarded
        row.get(host);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(host[i], deg(stored[i]) / row.scale) << i;
        EXPECT_EQ(host[6], 1234.0f);
        // Round trip in degrees.
        row.set(host);
        float back[7] = {};
        row.get(back);
        for (int i = 0; i < 6; ++i) EXPECT_NEAR(back[i], host[i], 1e-4 * std::fabs(host[i]) + 1e-6) << i;
    }
}

TEST(AlgoFacadeModel, NullJointArraysAreIgnored)
{
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    float before[8];
    libalgo_get_jointlim_max(before);
    for (const JointArrayRow& row : kJointArrays) {
        row.set(nullptr);
        row.get(nullptr);
    }
    float after[8];
    libalgo_get_jointlim_max(after);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(after[i], before[i]);
}

TEST(AlgoFacadeModel, DefaultLimitsReadBackInDegrees)
{
    zk_algo_init_sys_data(ZK_MODEL_LUM_66_E, ZK_MODEL_ZK_B_E);
    const float max_deg[6] = {178, 110, 155, 178, 178, 360};
    const float min_deg[6] = {-178, -170, -155, -178, -178, -360};
    const float speed_deg[6] = {225, 225, 225, 180, 180, 180};
    float q_max[7], q_min[7], speed[7], acc[7];
    zk_algo_get_joint_max_limit(q_max);
    zk_algo_get_joint_min_limit(q_min);
    zk_algo_get_joint_max_speed(speed);
    zk_algo_get_joint_max_acc(acc);
    for (int i = 0; i < 6; ++i) {
        EXPECT_NEAR(q_max[i], max_deg[i], 1e-4);
        EXPECT_NEAR(q_min[i], min_deg[i], 1e-4);
        EXPECT_NEAR(speed[i], speed_deg[i], 1e-4);
        EXPECT_NEAR(acc[i], 1000.0f / 6.0f, 1e-4);  // 1000 deg/s^2 in the controller's unit
    }
}

// ----------------------------------------------------------------------------------------
// Install angles, frames, DH, thresholds
// ----------------------------------------------------------------------------------------

TEST(AlgoFacadeModel, InstallAnglesAreStoredInRadiansByPiOver180)
{
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    zk_algo_set_angle(30.0f, -45.5f, 90.0f);
    const auto by_pi = [](float d) { return static_cast<float>(static_cast<double>(d) * 3.141592653589793 / 180.0); };
    EXPECT_EQ(angleU, by_pi(30.0f));
    EXPECT_EQ(angleV, by_pi(-45.5f));
    EXPECT_EQ(angleH, by_pi(90.0f));
    const Euler stored = libalgo_get_robot_install_angle();
    EXPECT_EQ(stored.rx, angleU);
    EXPECT_EQ(stored.ry, angleV);
    EXPECT_EQ(stored.rz, angleH);

    float x = 0, y = 0, z = 0;
    zk_algo_get_angle(&x, &y, &z);
    EXPECT_EQ(x, deg(stored.rx));
    EXPECT_NEAR(y, -45.5f, 1e-4);
    EXPECT_NEAR(z, 90.0f, 1e-4);

    // All three pointers or nothing.
    float a = 7, b = 7;
    zk_algo_get_angle(&a, &b, nullptr);
    zk_algo_get_angle(nullptr, &a, &b);
    EXPECT_EQ(a, 7.0f);
    EXPECT_EQ(b, 7.0f);
}

zk_frame_t frame_of(float x, float y, float z, float rx, float ry, float rz)
{
    zk_frame_t f{};
    f.pose.position = {x, y, z};
    f.pose.euler = {rx, ry, rz};
    return f;
}

TEST(AlgoFacadeModel, FramesPassWithoutUnitChangeAndTheToolCarriesItsPayload)
{
    zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E);
    zk_frame_t tool = frame_of(0.01f, -0.02f, 0.15f, 0.1f, -0.2f, 1.5f);
    tool.payload = 1.25f;
    tool.x = 0.001f;
    tool.y = 0.002f;
    tool.z = 0.05f;
    zk_frame_t work = frame_of(0.5f, 0.25f, -0.1f, 0.0f, 0.3f, -2.0f);
    zk_algo_set_toolframe(&tool);
    zk_algo_set_workframe(&work);

    const Coord t = libalgo_get_tool_cs_params();
    EXPECT_EQ(t.x, 0.01f);
    EXPECT_EQ(t.rz, 1.5f);
    const PayloadCfg p = libalgo_get_payload_params();
    EXPECT_EQ(p.mass, 1.25f);
    EXPECT_EQ(p.com[2], 0.05f);
    EXPECT_EQ(libalgo_get_work_cs_params().ry, 0.3f);

    zk_frame_t tool_back{};
    std::snprintf(tool_back.frame_name, sizeof tool_back.frame_name, "%s", "kept");
    zk_algo_get_curr_toolframe(&tool_back);
    EXPECT_STREQ(tool_back.frame_name, "kept");
    EXPECT_EQ(tool_back.pose.position.y, -0.02f);
    EXPECT_EQ(tool_back.pose.euler.ry, -0.2f);
    EXPECT_EQ(tool_back.payload, 1.25f);
    EXPECT_EQ(tool_back.x, 0.001f);
    // The quaternion is made from the Euler angles, so the record is whole.
    const Quat q = euler_to_quat(Euler{0.1f, -0.2f, 1.5f});
    EXPECT_EQ(tool_back.pose.quaternion.w, q.w);
    EXPECT_EQ(tool_back.pose.quaternion.z, q.z);

    zk_frame_t work_back{};
    zk_algo_get_curr_workframe(&work_back);
    EXPECT_EQ(work_back.pose.position.x, 0.5f);
    EXPECT_EQ(work_back.pose.euler.rz, -2.0f);
    EXPECT_EQ(work_back.payload, 0.0f);

    zk_algo_set_toolframe(nullptr);
    zk_algo_set_workframe(nullptr);
    zk_algo_get_curr_toolframe(nullptr);
    zk_algo_get_curr_workframe(nullptr);
    EXPECT_EQ(libalgo_get_tool_cs_params().x, 0.01f);
}

TEST(AlgoFacadeModel, DhTwistsAndOffsetsAreDegreesAtTheInterface)
{
    zk_algo_init_sys_data(ZK_MODEL_AL_64_II_E, ZK_MODEL_ZK_B_E);
    const zk_dh_t dh = zk_algo_get_dh();
    const DH lib = libalgo_get_dh_value();
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(dh.d[i], lib.d[i]);
        EXPECT_EQ(dh.a[i], lib.a[i]);
        EXPECT_EQ(dh.alpha[i], deg(lib.alpha[i]));
        EXPECT_EQ(dh.offset[i], deg(lib.offset[i]));
    }
    EXPECT_NEAR(dh.alpha[1], -90.0f, 1e-4);
    EXPECT_NEAR(dh.offset[4], 180.0f, 1e-4);

    // Set in degrees, the compensation of the store stays.
    DH comp{};
    comp.err_d[0] = 0.001f;
    libalgo_set_dh_compensation_value(&comp);
    zk_dh_t changed = dh;
    changed.d[0] = 0.2f;
    changed.alpha[2] = 45.0f;
    changed.offset[1] = -30.0f;
    zk_algo_set_dh(changed);
    const DH stored = libalgo_get_dh_value();
    EXPECT_EQ(stored.d[0], 0.2f);
    EXPECT_EQ(stored.alpha[2], rad(45.0f));
    EXPECT_EQ(stored.offset[1], rad(-30.0f));
    EXPECT_EQ(stored.err_d[0], 0.001f);
    EXPECT_EQ(libalgo_check_dh_params_is_default(), 0);

    // Round trip of the defaults in degrees restores the store within rounding.
    zk_algo_set_dh(dh);
    const DH restored = libalgo_get_dh_value();
    const DH defaults = libalgo_get_dh_params_default();
    for (int i = 0; i < 6; ++i) {
        EXPECT_NEAR(restored.alpha[i], defaults.alpha[i], 1e-6);
        EXPECT_NEAR(restored.offset[i], defaults.offset[i], 1e-6);
    }
}

TEST(AlgoFacadeModel, SingularityThresholdsTakeAnglesInDegreesAndTheDistanceInMetres)
{
    zk_algo_kin_set_singularity_thresholds(20.0f, 5.0f, 0.08f);
    float q_elbow = 0, q_wrist = 0, d = 0;
    kin_get_singularity_thresholds(&q_elbow, &q_wrist, &d);
    EXPECT_EQ(q_elbow, rad(20.0f));
    EXPECT_EQ(q_wrist, rad(5.0f));
    EXPECT_EQ(d, 0.08f);

    float e_deg = 0, w_deg = 0, d_back = 0;
    zk_algo_kin_get_singularity_thresholds(&e_deg, &w_deg, &d_back);
    EXPECT_EQ(e_deg, deg(q_elbow));
    EXPECT_EQ(w_deg, deg(q_wrist));
    EXPECT_EQ(d_back, 0.08f);
    zk_algo_kin_get_singularity_thresholds(nullptr, &w_deg, nullptr);  // null pointers skipped

    zk_algo_kin_singularity_thresholds_init();
    zk_algo_kin_get_singularity_thresholds(&e_deg, &w_deg, &d_back);
    EXPECT_NEAR(e_deg, 10.0f, 1e-4);
    EXPECT_NEAR(w_deg, 10.0f, 1e-4);
    EXPECT_EQ(d_back, 0.05f);
}

// ----------------------------------------------------------------------------------------
// Seven-axis search mode
// ----------------------------------------------------------------------------------------

zk_inverse_kinematics_params_t euler_target_at_home()
{
    zk_inverse_kinematics_params_t params{};
    const float home[8] = {};
    const Pose p = forward_kinematics(home);
    params.q_pose.position = {p.position.x, p.position.y, p.position.z};
    params.q_pose.euler = {p.euler.rx, p.euler.ry, p.euler.rz};
    params.flag = 1;
    return params;
}

TEST(AlgoFacadeModel, InverseKinematicsSweepsTheRedundantParameterUntilAModeIsChosen)
{
    EXPECT_TRUE(defaut_traversal_mode);
    zk_algo_init_sys_data(ZK_MODEL_AX_71_E, ZK_MODEL_ZK_B_E);
    ikine_set_7dof_solver_search_strategy(1);
    float q_out[7];
    zk_algo_inverse_kinematics(nullptr, euler_target_at_home(), q_out);
    EXPECT_EQ(ikine_get_solution_range_ax71(), 3.14f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 0);

    zk_algo_set_redundant_parameter_traversal_mode(false);
    EXPECT_FALSE(defaut_traversal_mode);
    EXPECT_EQ(ikine_get_solution_range_ax71(), 0.013f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 1);
    // Once a mode is chosen, a solve keeps it.
    zk_algo_inverse_kinematics(nullptr, euler_target_at_home(), q_out);
    EXPECT_EQ(ikine_get_solution_range_ax71(), 0.013f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 1);

    zk_algo_set_redundant_parameter_traversal_mode(true);
    EXPECT_FALSE(defaut_traversal_mode);
    EXPECT_EQ(ikine_get_solution_range_ax71(), 3.14f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 0);
}

}  // namespace

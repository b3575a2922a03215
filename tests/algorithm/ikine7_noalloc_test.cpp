// Heap freedom of the seven-axis inverse kinematics: both solvers in both modes, on
// reachable, singular, unreachable and NaN targets, through the dispatch and directly, and
// the arm-angle functions, the TOR77 chain and the plain-array products, run inside the
// counting window of alloc_count.h and must not allocate.
#include <gtest/gtest.h>

#include <limits>

#include "alloc_count.h"
#include "ikine7_test_support.h"

namespace {

volatile float g_sink;  // keeps results alive

void exercise_seven_axis()
{
    const float q[8] = {0.3f, 0.6f, -0.4f, -0.9f, 0.5f, 0.4f, 0.2f};
    const float singular[8] = {0.3f, 0.0f, -0.4f, -0.9f, 0.5f, 0.0f, 0.2f};
    Mat targets[4] = {ikine7_test::flange_of(q), ikine7_test::flange_of(singular), ikine7_test::flange_of(q),
                      ikine7_test::flange_of(q)};
    for (int i = 0; i < 3; ++i) targets[2].data[i][3] *= 3.0f;  // beyond reach
    targets[3].data[0][3] = std::numeric_limits<float>::quiet_NaN();
    const Pose pose = forward_kinematics(q);
    for (int strategy : {1, 0}) {
        ikine_set_7dof_solver_search_strategy(strategy);
        for (const Mat& target : targets) {
            float ref[8], out[8];
            for (int j = 0; j < 8; ++j) ref[j] = q[j];
            g_sink = static_cast<float>(inverse_kinematics_ax_71(target, ref, out) +
                                        inverse_kinematics_tor7(target, ref, out));
        }
        float out[8];
        g_sink = static_cast<float>(inverse_kinematics(q, pose, out, 0));
    }
    ikine_set_7dof_solver_search_strategy(1);

    zk_inverse_kinematics_params_t params{};
    for (int j = 0; j < 7; ++j) params.q_in[j] = q[j];
    params.q_pose.position = {pose.position.x, pose.position.y, pose.position.z};
    params.q_pose.quaternion = {pose.quaternion.w, pose.quaternion.x, pose.quaternion.y, pose.quaternion.z};
    float out[8], psi = 0.0f, copy[8];
    for (int j = 0; j < 8; ++j) copy[j] = q[j];
    g_sink = static_cast<float>(calculate_arm_angle_from_config_ax71(copy, &psi) +
                                inverse_kinematics_ax71_for_arm_angle(params, psi, out));
    Mat jac, fk;
    g_sink = static_cast<float>(ikine_jacobe_and_pose_tor77(q, &jac, &fk));
    float a[4][4] = {}, b[4][4] = {};
    double da[4][4] = {}, db[4][4] = {};
    marr_m(a, b, a);
    marr_mD(da, db, da);
}

}  // namespace

TEST(Ikine7NoAlloc, SolversAndArmAngleDoNotAllocate)
{
    for (const ikine7_test::SevenAxisModel& model : {ikine7_test::kAx71, ikine7_test::kTor77, ikine7_test::kTor77II}) {
        ikine7_test::use_model(model);
        EXPECT_EQ(zk_test_allocations_during(exercise_seven_axis), 0) << model.name;
    }
}

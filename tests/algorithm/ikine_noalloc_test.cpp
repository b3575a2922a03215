// Heap freedom of the inverse kinematics: every function of the front and every six-axis
// solver, on reachable, singular, unreachable and NaN targets, runs inside the counting
// window of alloc_count.h and must not allocate.
#include <gtest/gtest.h>

#include <limits>

#include "alloc_count.h"
#include "ikine_test_support.h"

namespace {

volatile float g_sink;  // keeps results alive

// The same calls for whatever model is loaded.
void exercise_model_loaded()
{
    const float q[8] = {0.2f, -0.3f, 0.4f, 0.5f, 0.6f, -0.4f};
    const float singular[8] = {0.2f, -0.3f, 0.4f, 0.5f, 0.0f, -0.4f};
    const float weight[8] = {2.4f, 2.4f, 2.4f, 1, 1, 1, 0, 0};
    Pose targets[4] = {ikine_test::tool_pose(q), ikine_test::tool_pose(singular), {}, {}};
    targets[2].position = Pos{5.0f, 0.0f, 0.0f};
    targets[2].quaternion = Quat{1, 0, 0, 0};
    targets[3] = targets[0];
    targets[3].position.y = std::numeric_limits<float>::quiet_NaN();
    float out[8] = {};
    for (const Pose& pose : targets) {
        for (uint8_t flag : {0, 1}) {
            g_sink = static_cast<float>(inverse_kinematics(q, pose, out, flag));
            const zk_inverse_kinematics_all_solve_t all = inverse_kinematics_all(q, pose, flag);
            g_sink = static_cast<float>(ikine_select_ik_solve(weight, all));
        }
        const Matrix t = calc_Tbase2tool_from_Pose(pose, 0);
        g_sink = static_cast<float>(inverse_kinematics_ax6(t, q, out) + inverse_kinematics_al64_2(t, q, out) +
                                    inverse_kinematics_al64_3(t, q, out) + inverse_kinematics_lum6(t, q, out));
        g_sink = static_cast<float>(ikine_ax6_solver(t, q).num + ikine_al6II_solver(t, q).num +
                                    ikine_lum6_solver(t, q).num);
    }
    libalgo_set_is_avoid_Singularity(1);
    g_sink = static_cast<float>(inverse_kinematics(q, targets[1], out, 0));
    libalgo_set_is_avoid_Singularity(0);
    g_sink = static_cast<float>(ikine_check_joint_position_limit(q) + ikine_check_joint_velocity_limit(0.1f, q, out) +
                                joint_overspeed_judgment(q, out, 1.0f));
    double ref = 6.3, x = 0.1;
    const double costs[3] = {2, 1, 1};
    find_nearest_joint(&ref, &x, -6.5, 6.5, 0.01);
    g_sink = static_cast<float>(recalcu_q46(x, ref) + find_min_index(costs, 3));
    ikine_set_7dof_solver_search_strategy(0);
    ikine_set_solution_range_ax71(0.013f);
    g_sink = ikine_get_solution_range_ax71() + static_cast<float>(ikine_get_7dof_solver_search_strategy());
}

}  // namespace

TEST(IkineNoAlloc, SolversAndFrontDoNotAllocate)
{
    for (const ikine_test::SixAxisModel& model : ikine_test::kSixAxisModels) {
        ikine_test::use_model(model);
        ikine_test::use_frames();
        EXPECT_EQ(zk_test_allocations_during(exercise_model_loaded), 0) << model.name;
    }
    libalgo_set_robot_and_sensor_type(UNIVERSAL, _B);  // the branches without a solver
    EXPECT_EQ(zk_test_allocations_during(exercise_model_loaded), 0);
}

// Heap freedom of the kinematics: every exported function of libalgo_kinematics.h runs
// inside the allocation-counting window of math_noalloc_test.cpp, for a six- and a
// seven-axis model, with frames set and with a standard-DH chain; the count must stay 0.
#include <gtest/gtest.h>

#include "alloc_count.h"
#include "libalgo.h"

namespace {

volatile float g_sink;  // keeps results alive

void set_frames()
{
    const Coord tool{0.01f, 0.02f, 0.1f, 0.1f, 0.2f, 0.3f};
    const Coord work{0.3f, -0.2f, 0.1f, -0.2f, 0.1f, 0.4f};
    const Euler tilt{0.1f, -0.1f, 0.2f};
    libalgo_set_tool_cs_params(&tool);
    libalgo_set_work_cs_params(&work);
    libalgo_set_robot_install_angle(&tilt);
}

void exercise_forward()
{
    const float q[8] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.0f};
    const DH dh = libalgo_get_dh_value();
    float sum = 0.0f;
    for (int what = 0; what < 4; ++what) {
        sum += forward_kinematics_ax61(dh, q, what).data[0][0] + forward_kinematics_ax71(dh, q, what).data[0][0] +
               forward_kinematics_al64_2(dh, q, what).data[0][0] + forward_kinematics_al64_3(dh, q, what).data[0][0] +
               forward_kinematics_lum6(dh, q, what).data[0][0] + forward_kinematics_tor7(dh, q, what).data[0][0] +
               forward_kinematics_double_arm(&dh, q, what).data[0][0];
    }
    sum += forward_kinematics_rotate(q).data[0][0] + forward_kinematics_rotate_flange(q).data[0][0] +
           forward_kinematics_world_to_flange(q).data[0][3] + forward_kinematics_e(q).data[0][3] +
           forward_kinematics_pos(q).x + forward_kinematics_pos_calibration(q).y +
           forward_kinematics_for_unity(q).pose.position.z + forward_kinematics(q).euler.rx;
    g_sink = sum;
}

void exercise_universal()
{
    const float q[8] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.0f};
    const DH dh = libalgo_get_dh_value();
    float sum = kin_get_MDH_Ti(3, &dh, q).data[0][0] + kin_get_SDH_Ti(3, &dh, q).data[0][0];
    for (const char* frame : {"Twt", "T0n", "T06", "T02", "T05", "T0t", "Tbt", "Tbn", "Twn", "other"})
        sum += kin_universal_kinematics_Tn(q, "machine", frame).data[0][3] +
               kin_universal_kinematics_Tn(q, "modeling", frame).data[1][3];
    sum += kin_calc_jacobe_Jx(q, "machine", 1).data[0][0] + kin_calc_jacobe_Jn(q, "machine").data[1][1] +
           kin_calc_jacobe_Jt(q, "modeling").data[2][2] + kin_calc_jacobe_J0(q, "machine").data[3][3];
    kin_singularity_thresholds_init();
    kin_set_singularity_thresholds(0.2f, 0.2f, 0.06f);
    float e, w, d, distance, threshold = -0.02f;
    kin_get_singularity_thresholds(&e, &w, &d);
    sum += static_cast<float>(kin_robot_singularity_analyse(q, "machine", &distance) +
                              kine_robot_universal_singularity_analyse(q, &threshold) +
                              kine_robot_universal_singularity_analyse(q, nullptr));
    kin_singularity_thresholds_init();
    g_sink = sum + e + w + d + distance;
}

void exercise_pose_helpers()
{
    const float q_deg[8] = {10, 20, 30, 40, 50, 60, 70, 0};
    const float delta[6] = {0.1f, 0.2f, 0.3f, 10, 20, 30};
    const int dir[3] = {0, 1, 0};
    const Pose cur = transformation_matrix_to_pose(pose_euler_to_transformation_matrix(
        Pose{{0.3f, 0.2f, 0.1f}, {1, 0, 0, 0}, {0.1f, 0.2f, 0.3f}}));
    const Matrix work = libalgo_get_work_cs_to_base_matrix();
    float sum = algo_euler_to_matrix(cur.euler).data[0][0] + algo_pose_to_matrix(cur).data[0][3] +
                algo_matrix_to_pose(work).position.x;
    sum += algo_workframe_to_base(work, algo_base_to_workframe(work, cur)).position.y;
    for (int frame = 0; frame < 3; ++frame)
        sum += algo_pose_move(cur, delta, frame).euler.rz + dPosMove(cur, delta, frame).position.x +
               rotateMove(cur, delta, frame).quaternion.w;
    sum += dPosMoveWork(cur, delta).position.z + dPosMoveTool(cur, delta).euler.ry;
    sum += algo_rotate_move(q_deg, 2, 15.0f, cur).euler.rx + algo_cartesian_tool(q_deg, 0.1f, 0, 0).position.x;
    Euler out;
    Rodrigues_rotate_simplify(&out, cur.euler, dir, 0.3f, cur);
    sum += out.rx;
    Rodrigues_rotate_simplify_tool(&out, cur.euler, dir, 0.3f, cur);
    sum += out.ry;
    Pose step;
    const float q[8] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.0f};
    step_attitude(&step, q, 0, 4, 0.1f);
    sum += step.euler.rz;
    step_attitude(&step, q, 1, 5, 0.1f);
    g_sink = sum + step.euler.rz;
}

void exercise_all()
{
    exercise_forward();
    exercise_universal();
    exercise_pose_helpers();
}

}  // namespace

TEST(KinematicsNoAlloc, SixAxisModelDoesNotAllocate)
{
    libalgo_init();
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(AL64II, _B), 0);
    set_frames();
    EXPECT_EQ(zk_test_allocations_during(exercise_all), 0);
}

TEST(KinematicsNoAlloc, SevenAxisModelsDoNotAllocate)
{
    for (RobotType type : {TOR77, AX71}) {
        libalgo_init();
        ASSERT_EQ(libalgo_set_robot_and_sensor_type(type, _B), 0);
        set_frames();
        EXPECT_EQ(zk_test_allocations_during(exercise_all), 0) << type;
    }
}

/* libapi_c: the arm's kinematics and frame maths in the host's units, without a controller.
 *
 * The host speaks degrees and the public records (zk_pose_t, zk_frame_t, zk_dh_t,
 * zk_matrix_t); these functions convert to the algorithm library's radians and records and
 * back. Positions are metres throughout; frame and pose orientations stay radians; joint
 * angles, joint limits, install angles, DH twists and offsets, singularity angle thresholds
 * and arm angles are degrees.
 *
 * One arm model at a time. The algorithm library holds a single process-wide model: the one
 * set last, either by zk_algo_init_sys_data and the setters below, or by a robot handle
 * passed to zk_algo_arm_state_set. Every function that takes a handle first reloads the
 * model from that handle's mirror of its controller (model, install angles, frames, joint
 * limits, DH), so a local change made with a setter is lost at the next call with a handle;
 * pass a null handle to compute with the model as it stands. A handle that is not connected
 * logs a warning and leaves the model as it stands.
 *
 * Joint arrays hold one entry per joint of the current model (6 or 7): exactly that many
 * entries are read and written, so a caller's array of the arm's length is never overrun.
 * zk_algo_* calls are serialised among themselves; the algorithm library's own functions,
 * called directly, belong to one thread at a time. */
#ifndef ZK_ALGO_H
#define ZK_ALGO_H

#include <stdbool.h>

#include "libalgo_ikine.h"
#include "zk_export.h"
#include "zk_types.h"

ZK_EXTERN_C_BEGIN

/* One sphere of the tool envelope used by the self-collision check: radius and centre in
 * the flange frame, metres. A radius of 1e-6 or less leaves the slot empty. */
typedef struct {
    float radius;
    float centrePoint[3];
} zk_tool_sphere_t;

/* ----------------------------------------------------------------------------------
 * Model and parameters
 * ---------------------------------------------------------------------------------- */

/* The algorithm library's version text, "1.5.3-f0364d3b". */
ZK_API const char* zk_algo_version(void);
/* Resets the library and selects the arm and sensor with their defaults. ZK_MODEL_AL_64_III_E
 * selects the fourth form of the AL64 arm (RobotType AL64IV); an unknown model or sensor
 * counts as the first one. 0, or -1 for a pair without defaults (the model stays cleared). */
ZK_API int zk_algo_init_sys_data(zk_robot_arm_model_e Mode, zk_force_type_e Type);
/* Pushes the mirrored values of a connected arm into the library: model and sensor, install
 * angles, tool and work frame, joint position, speed and acceleration limits, DH. A null
 * handle does nothing (the library's model is used as it stands); a handle that is not in the
 * table logs "The robotic arm is not connected!" at warning level and does nothing else. */
ZK_API void zk_algo_arm_state_set(zk_robot_handle* handle);

/* Install angles of the base, degrees. get writes nothing unless all three are non-null. */
ZK_API void zk_algo_set_angle(float x, float y, float z);
ZK_API void zk_algo_get_angle(float* x, float* y, float* z);

/* Frames: position (m) and Euler angles (rad) of pose; the tool also carries payload (kg)
 * and its centre of mass x, y, z (m). get fills the position, the Euler angles and the
 * quaternion made from them, leaves frame_name as it stands. A null pointer does nothing. */
ZK_API void zk_algo_set_workframe(const zk_frame_t* coord_work);
ZK_API void zk_algo_get_curr_workframe(zk_frame_t* coord_work);
ZK_API void zk_algo_set_toolframe(const zk_frame_t* coord_tool);
ZK_API void zk_algo_get_curr_toolframe(zk_frame_t* coord_tool);

/* Joint limits: positions in degrees, speeds in degrees per second. Accelerations are in
 * the controller's joint acceleration unit, six times finer than degrees per second squared:
 * they are multiplied by 6 on the way in and divided by 6 on the way out. Null does nothing. */
ZK_API void zk_algo_set_joint_max_limit(const float* joint_limit);
ZK_API void zk_algo_get_joint_max_limit(float* joint_limit);
ZK_API void zk_algo_set_joint_min_limit(const float* joint_limit);
ZK_API void zk_algo_get_joint_min_limit(float* joint_limit);
ZK_API void zk_algo_set_joint_max_speed(const float* joint_speed);
ZK_API void zk_algo_get_joint_max_speed(float* joint_speed);
ZK_API void zk_algo_set_joint_max_acc(const float* joint_acc);
ZK_API void zk_algo_get_joint_max_acc(float* joint_acc);

/* Seven-axis search: true sweeps the redundant parameter for the solution nearest the
 * reference; false tracks the reference. Once called, zk_algo_inverse_kinematics no longer
 * switches to the sweep by itself. */
ZK_API void zk_algo_set_redundant_parameter_traversal_mode(bool mode);

/* DH table: d and a in metres, alpha and offset in degrees. The calibration compensation
 * of the library is left as it stands. */
ZK_API void zk_algo_set_dh(zk_dh_t dh);
ZK_API zk_dh_t zk_algo_get_dh(void);

/* Tool envelope slot 0..4. 0, or -1 for an index outside 0..4 (and a null record for get). */
ZK_API int zk_algo_set_tool_envelope(int toolSphere_i, zk_tool_sphere_t data);
ZK_API int zk_algo_get_tool_envelope(int toolSphere_i, zk_tool_sphere_t* data);

/* Thresholds of the geometric singularity analysis: elbow and wrist in degrees, shoulder
 * distance in metres. get skips null pointers; init restores 10 deg, 10 deg, 0.05 m. */
ZK_API void zk_algo_kin_set_singularity_thresholds(float limit_qe, float limit_qw, float limit_d);
ZK_API void zk_algo_kin_get_singularity_thresholds(float* limit_qe, float* limit_qw, float* limit_d);
ZK_API void zk_algo_kin_singularity_thresholds_init(void);

/* ----------------------------------------------------------------------------------
 * Kinematics. Joint vectors in degrees; poses in the current work frame, of the tool.
 * ---------------------------------------------------------------------------------- */

/* Tool pose at joint. A null joint gives an all-zero pose. */
ZK_API zk_pose_t zk_algo_forward_kinematics(zk_robot_handle* handle, const float* joint);
/* The same pose as a 4 x 4 transform, with the model as it stands (handle is not read). */
ZK_API zk_matrix_t Forward_Kinematics_e(zk_robot_handle* handle, const float* joint);

/* The solution nearest params.q_in, written to q_out (degrees) only when solved.
 *    0  solved
 *    1  no solution (unreachable, outside the limits, a non-finite target, no solver for
 *       the model, or a null q_out)
 *   -1  q_in lies outside the joint limits
 *   -2  flag 0 and a quaternion whose squared norm, in single precision, is not exactly 1 */
ZK_API int zk_algo_inverse_kinematics(zk_robot_handle* handle, zk_inverse_kinematics_params_t params, float* q_out);
/* Every configuration of a six-axis arm, in degrees. result: 0 at least one solution, 1
 * none, -1 q_in outside the limits, -2 bad quaternion (as above), -3 the arm does not have 6
 * degrees of freedom. q_ref is the reference as given; rows of q_solve beyond num are zero. */
ZK_API zk_inverse_kinematics_all_solve_t zk_algo_inverse_kinematics_all(zk_robot_handle* handle,
                                                                      zk_inverse_kinematics_params_t params);
/* Index of the row of params (degrees) nearest its q_ref by the weighted squared distance,
 * among the rows inside the joint limits; -1 when none. */
ZK_API int zk_algo_ikine_select_ik_solve(const float* weight, zk_inverse_kinematics_all_solve_t params);
/* 0, or the number (from 1) of the first joint outside its position limits; -1 for null. */
ZK_API int zk_algo_ikine_check_joint_position_limit(const float* q_solve);
/* 0, or the number (from 1) of the first joint moving faster than its limit over dt seconds
 * from q_ref to q_solve; -1 for null. */
ZK_API int zk_algo_ikine_check_joint_velocity_limit(float dt, const float* q_ref, const float* q_solve);
/* 0 when every joint lies within its limits, ends included; else -1 (also for NaN or null). */
ZK_API int zk_algo_judgment_overpos(const float* joint);

/* Geometric singularity of a six-axis arm: 0 none, -1 shoulder, -2 elbow, -3 wrist (in this
 * priority), -4 the arm does not have 6 degrees of freedom. distance (m, may be null) gets
 * the wrist point's distance from the shoulder plane. A null q gives 0. */
ZK_API int zk_algo_kin_robot_singularity_analyse(const float* q, float* distance);
/* By the smallest singular value of the flange Jacobian: -1 at or below
 * singluar_value_limit (its magnitude, at most 1.0), -2 when the decomposition fails, else 0. */
ZK_API int zk_algo_universal_singularity_analyse(const float* q, float singluar_value_limit);
/* 1 when a joint is outside its limits or the arm with its tool envelope meets itself,
 * 0 when the pose is free; -1 for a null joint. */
ZK_API int zk_algo_safety_robot_self_collision_detection(const float* joint);

/* Arm angle (degrees) of a seven-axis SRS arm at q_ref: 0, -2 for a null pointer, -3 for a
 * model other than AX71. */
ZK_API int zk_algo_calculate_arm_angle_from_config_ax71(const float* q_ref, float* arm_angle);
/* The AX71 solution at a given arm angle (degrees), nearest params.q_in: 0, -1 outside the
 * limits (q_solve written in both cases), -2 for a null q_solve, -3 for another model. */
ZK_API int zk_algo_inverse_kinematics_ax71_for_arm_angle(zk_inverse_kinematics_params_t params, float arm_angle,
                                                         float* q_solve);

/* ----------------------------------------------------------------------------------
 * Transforms and poses (metres and radians; the deltas of a move carry degrees)
 * ---------------------------------------------------------------------------------- */

ZK_API zk_quat_t zk_algo_euler2quaternion(zk_euler_t eu);
ZK_API zk_euler_t zk_algo_quaternion2euler(zk_quat_t qua);
/* 3 x 3 rotation. */
ZK_API zk_matrix_t zk_algo_euler2matrix(zk_euler_t state);
/* 4 x 4 from the position and Euler angles of state; its quaternion is not read. */
ZK_API zk_matrix_t zk_algo_pos2matrix(zk_pose_t state);
/* Position, quaternion and Euler angles of a 4 x 4 transform. */
ZK_API zk_pose_t zk_algo_matrix2pos(zk_matrix_t matrix);
/* state given in the base frame, seen from the work frame whose base-to-work transform is
 * matrix; and the reverse. */
ZK_API zk_pose_t zk_algo_base2workframe(zk_matrix_t matrix, zk_pose_t state);
ZK_API zk_pose_t zk_algo_workframe2base(zk_matrix_t matrix, zk_pose_t state);

/* The tool's pose for a flange pose, both in the current work frame; and the reverse. The
 * frames come from the handle (or from the library for a null handle). */
ZK_API zk_pose_t zk_algo_end2tool(zk_robot_handle* handle, zk_pose_t eu_end);
ZK_API zk_pose_t zk_algo_tool2end(zk_robot_handle* handle, zk_pose_t eu_tool);
/* Relative move of poseCurrent by deltaPosAndRot (dx, dy, dz in m, rx, ry, rz in degrees)
 * along and about the axes of the work frame (frameMode 0) or the tool frame (1). */
ZK_API zk_pose_t zk_algo_pose_move(zk_robot_handle* handle, zk_pose_t poseCurrent, const float* deltaPosAndRot,
                                   int frameMode);
/* The tool pose at curr_joint (degrees) turned by rotate_angle (degrees) about axis
 * rotate_axis (1 x, 2 y, 3 z) of the frame choose_axis. */
ZK_API zk_pose_t zk_algo_rotate_move(zk_robot_handle* handle, const float* curr_joint, int rotate_axis,
                                     float rotate_angle, zk_pose_t choose_axis);
/* The tool pose at curr_joint (degrees) moved along the tool's own axes (m), in the work frame. */
ZK_API zk_pose_t zk_algo_cartesian_tool(zk_robot_handle* handle, const float* curr_joint, float move_lengthx,
                                        float move_lengthy, float move_lengthz);

ZK_EXTERN_C_END

#endif /* ZK_ALGO_H */

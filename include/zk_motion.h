/* Motion commands: planned moves (blocking and non-blocking), pass-through set points,
 * relative steps, stopping and teaching.
 *
 * Planned moves. The controller answers a move at once ("receive_state") and pushes a
 * "current_trajectory_state" frame when the motion ends. `block` 0 returns after the
 * answer; any other value waits for the end of the motion:
 *   - ZK_DUAL_MODE_E, ZK_TRIPLE_MODE_E: until the end frame arrives, with no overall time
 *     limit, while the current trajectory is polled; stop the arm from another thread to
 *     end such a wait early. Result 0 when the arm (device 0) arrived, 1 when the motion
 *     failed, -4 when the trajectory that ended belonged to another device.
 *   - ZK_SINGLE_MODE_E: no thread receives the end frame, so the call returns -3 right
 *     after the controller accepted the move, while the arm goes on moving.
 * `trajectory_connect` 1 queues a trajectory that the next one continues; such a call
 * never waits. A non-blocking move makes the library drop the next end frame it sees, so
 * that it cannot pass for the end of a later blocking move (one frame, process-wide).
 *
 * Units: joint angles in degrees, positions in metres, Euler angles in radians; `v` and
 * `r` are sent as given (except zk_movec, which sends r x 1000).
 * Results: see zk_client.h; a null pointer argument gives -6 before anything is sent. */
#ifndef ZK_MOTION_H
#define ZK_MOTION_H

#include "zk_types.h"

ZK_EXTERN_C_BEGIN

/* What the controller is planning now. */
typedef enum {
    ZK_NO_PLANNING_E = 0,
    ZK_JOINT_SPACE_PLANNING_E = 1,
    ZK_CARTESIAN_LINEAR_PLANNING_E = 2,
    ZK_CARTESIAN_ARC_PLANNING_E = 3,
    ZK_SPLINE_CURVE_MOTION_PLANNING_E = 4,
    ZK_TRAJECTORY_REPLAY_PLANNING_E = 5
} zk_arm_current_trajectory_e;

typedef enum {
    ZK_X_DIR_E = 0,
    ZK_Y_DIR_E = 1,
    ZK_Z_DIR_E = 2
} zk_pos_teach_type_e;

typedef enum {
    ZK_RX_ROTATE_E = 0,
    ZK_RY_ROTATE_E = 1,
    ZK_RZ_ROTATE_E = 2
} zk_ort_teach_type_e;

/* One joint set point of a pass-through stream. `radio` is read by the controller according
 * to `trajectory_mode`: mode 0 allows no radio above 0, mode 1 up to 100, mode 2 up to
 * 1000; other values are sent all the same, with a warning in the log. */
typedef struct {
    const float* joint; /* degrees, one per joint of the arm */
    float expand;       /* degrees, the expansion axis */
    bool follow;
    int trajectory_mode;
    int radio;
} zk_movej_canfd_mode_t;

/* One pose set point of a pass-through stream. The quaternion is sent when its sum of
 * squares lies strictly between 0.99 and 1.1; otherwise the Euler angles are. */
typedef struct {
    zk_pose_t pose;
    bool follow;
    int trajectory_mode;
    int radio;
} zk_movep_canfd_mode_t;

/* -----------------------------------------------------------------------------------------
 * Planned moves: the dispatchers and their two forms.
 * ---------------------------------------------------------------------------------------*/

ZK_API int zk_movej(zk_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect, int block);
ZK_API int zk_movej_nblock(zk_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect);
ZK_API int zk_movej_block(zk_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect,
                          int block);

ZK_API int zk_movel(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect, int block);
ZK_API int zk_movel_nblock(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect);
ZK_API int zk_movel_block(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect, int block);

ZK_API int zk_moves(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect, int block);
ZK_API int zk_moves_nblock(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect);
ZK_API int zk_moves_block(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect, int block);

ZK_API int zk_movej_p(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect, int block);
ZK_API int zk_movej_p_nblock(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect);
ZK_API int zk_movej_p_block(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect,
                            int block);

/* Circular move through pose_via to pose_to, `loop` times round; trajectory_connect must be
 * 0 or 1 (-6 otherwise). */
ZK_API int zk_movec(zk_robot_handle* handle, zk_pose_t pose_via, zk_pose_t pose_to, int v, int r, int loop,
                    int trajectory_connect, int block);
ZK_API int zk_movec_nblock(zk_robot_handle* handle, zk_pose_t pose_via, zk_pose_t pose_to, int v, int r, int loop,
                           int trajectory_connect);
ZK_API int zk_movec_block(zk_robot_handle* handle, zk_pose_t pose_via, zk_pose_t pose_to, int v, int r, int loop,
                          int trajectory_connect, int block);

/* The blocking wait of ZK_SINGLE_MODE_E, for `timeout` rounds awaiting the end frame of
 * `device` (0 the arm; 3 or 4 the lift and expansion axes). No socket is read here, since no
 * thread files end frames in that mode: a round finds nothing and the result is -3; with
 * no round at all (timeout 0) it is -5. */
ZK_API int zk_movecmd_singlemode_parse(zk_robot_handle* handle, int timeout, int device);

/* The trajectory the controller is running. `data` must hold 7 floats: for joint kinds
 * (none, joint space, replay) one angle in degrees per joint; for Cartesian kinds x, y, z
 * in metres, then rx, ry, rz in radians. 0, the exchange's -1/-2, or -1 for a reply that
 * cannot be read. */
ZK_API int zk_get_arm_current_trajectory(zk_robot_handle* handle, zk_arm_current_trajectory_e* type, float* data);

/* -----------------------------------------------------------------------------------------
 * Pass-through set points: one-way, nothing is awaited; 0 once sent, or -1.
 * ---------------------------------------------------------------------------------------*/

ZK_API int zk_movej_canfd(zk_robot_handle* handle, zk_movej_canfd_mode_t config);
ZK_API int zk_movep_canfd(zk_robot_handle* handle, zk_movep_canfd_mode_t config);
ZK_API int zk_movej_follow(zk_robot_handle* handle, const float* joint);
ZK_API int zk_movep_follow(zk_robot_handle* handle, zk_pose_t pose);

/* -----------------------------------------------------------------------------------------
 * Relative steps. The non-blocking form sends and returns after the reply time-out without
 * reading the answer (0, or -1); the blocking form waits for the end of the step as a
 * blocking move does.
 * ---------------------------------------------------------------------------------------*/

/* Steps joint joint_num by step degrees. */
ZK_API int zk_set_joint_step(zk_robot_handle* handle, int joint_num, float step, int v, int block);
ZK_API int zk_set_joint_step_nblock(zk_robot_handle* handle, int joint_num, float step, int v);
ZK_API int zk_set_joint_step_block(zk_robot_handle* handle, int joint_num, float step, int v, int block);

/* Steps the tool along one axis by step metres. */
ZK_API int zk_set_pos_step(zk_robot_handle* handle, zk_pos_teach_type_e type, float step, int v, int block);
ZK_API int zk_set_pos_step_nblock(zk_robot_handle* handle, zk_pos_teach_type_e type, float step, int v);
ZK_API int zk_set_pos_step_block(zk_robot_handle* handle, zk_pos_teach_type_e type, float step, int v, int block);

/* Turns the tool about one axis by step radians. */
ZK_API int zk_set_ort_step(zk_robot_handle* handle, zk_ort_teach_type_e type, float step, int v, int block);
ZK_API int zk_set_ort_step_nblock(zk_robot_handle* handle, zk_ort_teach_type_e type, float step, int v);
ZK_API int zk_set_ort_step_block(zk_robot_handle* handle, zk_ort_teach_type_e type, float step, int v, int block);

/* -----------------------------------------------------------------------------------------
 * Stopping and trajectories.
 * ---------------------------------------------------------------------------------------*/

ZK_API int zk_set_arm_slow_stop(zk_robot_handle* handle);
ZK_API int zk_set_arm_stop(zk_robot_handle* handle);
ZK_API int zk_set_arm_pause(zk_robot_handle* handle);
ZK_API int zk_set_arm_continue(zk_robot_handle* handle);
ZK_API int zk_set_delete_current_trajectory(zk_robot_handle* handle);
ZK_API int zk_set_arm_delete_trajectory(zk_robot_handle* handle);

/* -----------------------------------------------------------------------------------------
 * Teaching: the arm moves while the command holds, until zk_set_stop_teach. `direction`
 * non-zero moves the positive way. The first three give -1 for any failed exchange (no
 * reply in time included).
 * ---------------------------------------------------------------------------------------*/

ZK_API int zk_set_joint_teach(zk_robot_handle* handle, int joint_num, int direction, int v);
ZK_API int zk_set_pos_teach(zk_robot_handle* handle, zk_pos_teach_type_e type, int direction, int v);
ZK_API int zk_set_ort_teach(zk_robot_handle* handle, zk_ort_teach_type_e type, int direction, int v);
ZK_API int zk_set_stop_teach(zk_robot_handle* handle);
/* The frame teach motions move in, as the controller numbers it. */
ZK_API int zk_set_teach_frame(zk_robot_handle* handle, int frame_type);
/* 0 with *frame_type set; otherwise the exchange's result, so a reply without
 * "frame_type" shows as its positive length. */
ZK_API int zk_get_teach_frame(zk_robot_handle* handle, int* frame_type);

ZK_EXTERN_C_END

#endif /* ZK_MOTION_H */

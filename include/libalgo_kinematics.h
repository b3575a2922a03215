/* libapi_c algorithm library: forward kinematics, the universal DH chain, Jacobians,
 * singularity analysis and pose helpers.
 *
 * Units: joint angles in radians, lengths in metres, unless a function says degrees.
 * Joint vectors are float[8] (LIBALGO_MAX_JOINTS); only the first dof entries of the
 * model count. Everything reads the process-wide robot model (libalgo_model.h) at each
 * call, so a change of tool, work frame, installation or DH takes effect at the next
 * call; nothing is cached.
 *
 * Frames, all homogeneous 4 x 4 transforms:
 *   F(q)  flange relative to the arm's base, from the closed form of the arm family
 *   T0n   the same from the universal chain over the model's DH table
 *   Tt    tool relative to flange                      (libalgo_get_tool_cs_matrix)
 *   Ti    arm base relative to the installation frame   (libalgo_get_robot_install_angle_matrix)
 *   Tw    base side to work frame, W^-1                 (libalgo_get_work_cs_to_base_matrix)
 * So the tool in the work frame is Tw Ti F Tt.
 *
 * Null pointers. A function that reads joints, a DH record or a delta through a null
 * pointer returns the all-zero record (a Matrix or Matrix_more with header 0, 0, a Pos or
 * Pose of zeros) and touches no global; the singularity analyses return 0 and write
 * nothing. Null text arguments count as "any other text". NaN joints give NaN results.
 *
 * Nothing here allocates or reports beyond its result. The universal chain leaves the
 * snapshots T02, T05, T06 and the singularity thresholds in plain globals: one thread at a
 * time. */
#ifndef LIBALGO_KINEMATICS_H
#define LIBALGO_KINEMATICS_H

#include "libalgo_math.h"
#include "libalgo_model.h"
#include "zk_export.h"

ZK_EXTERN_C_BEGIN

/* ----------------------------------------------------------------------------------
 * Forward kinematics
 * ---------------------------------------------------------------------------------- */

/* The result of forward_kinematics_for_unity: Y = Ti F Tt and its pose. */
typedef struct {
    Pose pose;
    Matrix matrix;
} Pose_and_matrix;

/* Closed-form flange transform F(q) of one arm family, at the family's nominal link
 * twists. theta[i] = q[i] + dh.offset[i]; besides offset, each family reads only these
 * entries (all others, alpha and the err_ arrays are not read):
 *   forward_kinematics_ax61    AX61, AL64I, UNIVERSAL, unknown  d[0] a[2] d[3] d[5]
 *   forward_kinematics_ax71    AX71 (standard DH)              d[0] d[2] d[4] d[6]
 *   forward_kinematics_al64_2  AL64II, AL64IV                  d[0] a[1] a[2] a[3] d[3] d[5]
 *   forward_kinematics_al64_3  AL64III                         d[0] d[1] a[1] a[2] a[3] d[3] d[5]
 *   forward_kinematics_lum6    LUM61, LUM66, LUM67             d[0] a[1] a[2] a[3] d[3] d[4] d[5]
 *   forward_kinematics_tor7    TOR77, TOR77II                  d[0] d[2] d[4] d[6] a[3] a[4] a[6]
 * what: 0 the 4 x 4 transform; 1 its 3 x 3 rotation (position column and bottom row
 * zero); 2 its position as a 3 x 1 column; any other value all zero with header 0, 0. */
ZK_API Matrix forward_kinematics_ax61(DH dh, const float* q, int what);
ZK_API Matrix forward_kinematics_ax71(DH dh, const float* q, int what);
ZK_API Matrix forward_kinematics_al64_2(DH dh, const float* q, int what);
ZK_API Matrix forward_kinematics_al64_3(DH dh, const float* q, int what);
ZK_API Matrix forward_kinematics_lum6(DH dh, const float* q, int what);
ZK_API Matrix forward_kinematics_tor7(DH dh, const float* q, int what);

/* Wrappers over the family of the model's type (its low byte; any type without a family
 * of its own takes forward_kinematics_ax61) and the model's DH and frames. */
ZK_API Matrix forward_kinematics_rotate(const float* q);          /* 3 x 3: rotation of Tw Ti F Tt */
ZK_API Matrix forward_kinematics_rotate_flange(const float* q);   /* 3 x 3: rotation of Tw Ti F */
ZK_API Matrix forward_kinematics_world_to_flange(const float* q); /* 4 x 4: Ti F */
ZK_API Matrix forward_kinematics_e(const float* q);               /* 4 x 4: F */
ZK_API Pos forward_kinematics_pos(const float* q);                /* position of Tw Ti F Tt */
ZK_API Pos forward_kinematics_pos_calibration(const float* q);    /* position of Ti F Tt */
ZK_API Pose_and_matrix forward_kinematics_for_unity(const float* q); /* Ti F Tt and its pose */
ZK_API Pose forward_kinematics(const float* q);                   /* pose of Tw Ti F Tt */

/* A second arm mounted on the end of the first: the universal chain ("machine", "T0n")
 * times the modified-DH link of entry 7 of mount at a joint value of zero. what: 0 the
 * product (4 x 4), 1 its rotation (3 x 3), 2 its position (3 x 1), any other value the
 * product. Runs the universal chain, so it refreshes T02, T05, T06. */
ZK_API Matrix forward_kinematics_double_arm(const DH* mount, const float* q, int what);

/* ----------------------------------------------------------------------------------
 * Universal chain and Jacobians
 * ---------------------------------------------------------------------------------- */

/* Link i (0..7) of the modified (Craig) or standard DH convention at the joint value
 * theta[i]. A twist within 1e-5 of 0, +-pi/2 or +-pi takes exact cosine and sine, so
 * a link's zero entries are exact zeros. An index outside 0..7 gives the zero record. */
ZK_API Matrix kin_get_MDH_Ti(int i, const DH* dh, const float* theta);
ZK_API Matrix kin_get_SDH_Ti(int i, const DH* dh, const float* theta);

/* The chain over the model's dof (standard DH for AX71, modified for every other type).
 * mode "modeling": q are model angles as they stand; any other text ("machine"): the
 * DH offset is added to each. frame, the first match in this order:
 *   "Twt" Tw Ti T0n Tt   "T0n" T0n   "T06" T06   "T02" T02   "T05" T05
 *   "T0t" T0n Tt         "Tbt" Ti T0n Tt   "Tbn" Ti T0n   "Twn" Tw Ti T0n
 *   any other text: Tw Ti.
 * Every run leaves the chain after joint 2, 5 and 6 in the snapshots T02, T05, T06
 * (a snapshot whose joint the model lacks keeps its earlier value). */
ZK_API Matrix kin_universal_kinematics_Tn(const float* q, const char* mode, const char* frame);
/* The snapshots themselves: the chain from the base to frames 2, 5 and 6 of the last run. */
ZK_API extern Matrix T02;
ZK_API extern Matrix T05;
ZK_API extern Matrix T06;

/* Jacobian in the end frame, 6 x dof (linear rows, then angular), by Paul's method: the
 * flange frame for with_tool other than 1, the tool frame for 1. Header 6, dof. */
ZK_API Matrix_more kin_calc_jacobe_Jx(const float* q, const char* mode, int with_tool);
ZK_API Matrix_more kin_calc_jacobe_Jn(const float* q, const char* mode); /* flange frame */
ZK_API Matrix_more kin_calc_jacobe_Jt(const float* q, const char* mode); /* tool frame */
/* The tool Jacobian expressed in the work frame: blockdiag(R, R) Jt, R the rotation of
 * "Twt". */
ZK_API Matrix_more kin_calc_jacobe_J0(const float* q, const char* mode);

/* ----------------------------------------------------------------------------------
 * Singularity analysis
 * ---------------------------------------------------------------------------------- */

/* Thresholds: q_elbow, q_wrist in radians (defaults 10 degrees, 0.17453292), d_shoulder
 * in metres (default 0.05). */
ZK_API void kin_singularity_thresholds_init(void);
ZK_API void kin_set_singularity_thresholds(float q_elbow, float q_wrist, float d_shoulder);
/* Null pointers are skipped. */
ZK_API void kin_get_singularity_thresholds(float* q_elbow, float* q_wrist, float* d_shoulder);
/* The thresholds themselves, read by kin_robot_singularity_analyse at each call. */
ZK_API extern float d_shoulder; /* m: wrist point from the shoulder plane */
ZK_API extern float q_elbow;    /* rad: elbow joint from stretched */
ZK_API extern float q_wrist;    /* rad: wrist joint from 0 or pi */

/* Geometric judgement, in priority order: -1 shoulder (the wrist point within d_shoulder
 * of the plane through the base axis and the shoulder axis), -2 elbow (the elbow joint
 * within q_elbow of stretched or folded), -3 wrist (the wrist joint within q_wrist of 0
 * or pi), else 0. Joint values are taken as given, without wrapping. The shoulder
 * distance goes to *distance when it is not null. */
ZK_API int kin_robot_singularity_analyse(const float* q, const char* mode, float* distance);

/* By the smallest singular value of the flange Jacobian ("machine"): -1 when it is at or
 * below the threshold, -2 when the decomposition fails (also for a model without
 * joints), else 0. threshold: null means 0.01; a negative value is made positive and
 * written back, even with a null q; values above 1.0 count as 1.0 (not written back). */
ZK_API int kine_robot_universal_singularity_analyse(const float* q, float* threshold);

/* ----------------------------------------------------------------------------------
 * Pose helpers
 * ---------------------------------------------------------------------------------- */

/* delta: dx, dy, dz in metres, then rx, ry, rz in degrees. frame: 0 work, 1 tool. */

ZK_API Matrix algo_euler_to_matrix(Euler e); /* 3 x 3 */
ZK_API Matrix algo_pose_to_matrix(Pose p);   /* 4 x 4 from position and Euler angles */
ZK_API Pose algo_matrix_to_pose(Matrix m);
/* p given in the base frame, seen from the work frame: pose of work x T(p); work is the
 * base-to-work transform of libalgo_get_work_cs_to_base_matrix. */
ZK_API Pose algo_base_to_workframe(Matrix work, Pose p);
/* The reverse: pose of work^-1 x T(p), by the general inverse. */
ZK_API Pose algo_workframe_to_base(Matrix work, Pose p);

/* Relative move: the position of dPosMove and the orientation of rotateMove, both from
 * cur, so that the translation is not turned by the rotation of the same call. */
ZK_API Pose algo_pose_move(Pose cur, const float* delta, int frame);
/* frame 0: position + (dx, dy, dz), orientation fields zero; frame 1: dPosMoveTool;
 * any other frame: all zero. */
ZK_API Pose dPosMove(Pose cur, const float* delta, int frame);
/* position + (dx, dy, dz); the orientation fields of the result are zero. */
ZK_API Pose dPosMoveWork(Pose cur, const float* delta);
/* Translation along the pose's own axes; Euler angles extracted without the gimbal
 * branch and without the wrap below -3.13, the quaternion from them. */
ZK_API Pose dPosMoveTool(Pose cur, const float* delta);
/* The rotation of a relative move: rx, ry, rz (degrees), in this order, each about the
 * axis of the work frame (frame 0, libalgo_get_work_cs_params) or of the tool frame
 * (frame 1, libalgo_get_tool_cs_params); a zero angle is skipped, any other frame turns
 * nothing. Position cur's, quaternion from the final Euler angles. */
ZK_API Pose rotateMove(Pose cur, const float* delta, int frame);
/* forward_kinematics at q (degrees), turned by angle (degrees) about axis 1 x, 2 y, 3 z
 * of the frame choose_axis (given in the same coordinates as the pose); any other axis
 * turns nothing. */
ZK_API Pose algo_rotate_move(const float* q, int axis, float angle, Pose choose_axis);
/* The tool at q (degrees) moved by (x, y, z) along its own axes, in the work frame:
 * Tw F Tt D. The installation Ti does not enter. */
ZK_API Pose algo_cartesian_tool(const float* q, float x, float y, float z);

/* Rotation of an orientation by angle (radians) about one axis of a reference frame, by
 * Rodrigues' formula; *result gets the Euler angles of the product (matrix_to_euler).
 * dir picks the axis: the first entry that is 1 or -1 (x, y, z); its sign does not turn
 * the rotation, angle's does. No such entry, or a null dir: the orientation unchanged.
 * A null result does nothing.
 *   Rodrigues_rotate_simplify       frame given in the same coordinates as the orientation:
 *                                   R' = Rot(Rf e_k, angle) R
 *   Rodrigues_rotate_simplify_tool  frame given relative to the orientation's own frame
 *                                   (a tool on its flange): R' = R Rot(Rf e_k, angle) */
ZK_API void Rodrigues_rotate_simplify(Euler* result, Euler euler, const int dir[3], float angle, Pose frame);
ZK_API void Rodrigues_rotate_simplify_tool(Euler* result, Euler euler, const int dir[3], float angle, Pose frame);

/* One attitude step: forward_kinematics at q (radians) turned by angle (radians) about
 * axis 3 x, 4 y, 5 z (any other value turns nothing) of the work frame (frame 0,
 * Rodrigues_rotate_simplify) or the tool frame (any other frame,
 * Rodrigues_rotate_simplify_tool). A null result does nothing; a null q gives zeros. */
ZK_API void step_attitude(Pose* result, const float* q, int frame, int axis, float angle);

ZK_EXTERN_C_END

#endif /* LIBALGO_KINEMATICS_H */

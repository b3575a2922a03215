/* libapi_c algorithm library: inverse kinematics of the seven-axis arms.
 *
 * A seven-axis arm reaches each pose in a continuum of configurations; these solvers
 * resolve the redundancy, each by one parameter:
 *   AX71            spherical shoulder, elbow, spherical wrist (standard DH): the arm angle,
 *                   the turn of the elbow plane about the line from shoulder to wrist;
 *   TOR77, TOR77II  link offsets at the elbow and the wrist (modified DH): the value of
 *                   joint 7.
 * Two modes, set by the pair of ikine_set_7dof_solver_search_strategy and
 * ikine_set_solution_range_ax71 (AX71 reads the range, TOR77 the strategy):
 *   tracking   the answer follows the reference; the planner passes the previous answer
 *              each control period and consecutive answers are continuous;
 *   traversal  the parameter is swept and the configuration nearest the reference wins,
 *              those inside the joint limits before those outside (offline use). TOR77
 *              sweeps joint 7 within half a turn of the reference, and the rest of its
 *              range when that finds nothing.
 *
 * Units: radians, metres. Joint vectors hold seven joints (float[8] with a spare is fine).
 * The flange target F is a 4 x 4 Mat: the flange in the arm's base frame, that is the tool
 * pose with the installation and the tool taken off (inverse_kinematics does this).
 * Joint 7 keeps the whole turns of its reference.
 *
 * Results:
 *    0  solved; q_out holds the answer
 *   -1  no solution (TOR77: nothing in the searched interval, a target beyond reach, that
 *       is missed by more than 0.5 mm or 2 mrad, or in tracking a move deeper into a
 *       singularity, which leaves the reference in q_out); arm angle form: the answer lies
 *       outside the joint limits. Also: a null pointer, a target that is not a finite
 *       4 x 4, a non-finite reference or an answer that is not finite. Except where the
 *       reference is given back, q_out is untouched
 *   -2  the answer lies outside the joint limits (0.0087 rad of margin) or, in TOR77
 *       tracking, a joint would move faster than its speed limit in one control period;
 *       q_out holds the answer all the same
 *   -3  the model loaded is not of the function's family
 * AX71 has no outcome for a target beyond reach: the arm is held stretched toward it and
 * the result is 0 or -2.
 *
 * Nothing here allocates, locks or logs; the working space is on the stack. */
#ifndef LIBALGO_IKINE7_H
#define LIBALGO_IKINE7_H

#include "libalgo_ikine.h"
#include "libalgo_matrix.h"
#include "zk_export.h"

ZK_EXTERN_C_BEGIN

/* AX71. q_ref is the reference in joint angles; the DH offsets are added to it in place,
 * so that it leaves holding model angles. */
ZK_API int inverse_kinematics_ax_71(Mat F, float* q_ref, float* q_out);
/* TOR77 and TOR77II. q_ref is read only. */
ZK_API int inverse_kinematics_tor7(Mat F, float* q_ref, float* q_out);

/* AX71 at a given arm angle (radians): the target is params.q_pose (orientation by
 * params.flag, as inverse_kinematics) in the work frame, the reference params.q_in.
 * Of the shoulder and wrist alternatives with the reference's elbow, the one nearest the
 * reference (sum of absolute differences) wins, inside the limits before outside; each
 * joint is brought into its limits by a whole turn where that helps. 0, or -1 when the
 * answer lies outside the limits (q_solve written all the same), -3 for another model. */
ZK_API int inverse_kinematics_ax71_for_arm_angle(zk_inverse_kinematics_params_t params, float arm_angle,
                                                 float* q_solve);
/* The arm angle of an AX71 joint vector: the signed angle, about the line from shoulder
 * to wrist, from the reference plane (the vertical plane through that line, where joint 3
 * is 0) to the elbow plane. The DH offsets are added to q_ref in place. 0, -1 for a null
 * pointer or a non-finite joint, -3 for another model. */
ZK_API int calculate_arm_angle_from_config_ax71(float* q_ref, float* arm_angle);

/* The TOR77 link chain at q, model angles (DH offsets included), with the lengths of the
 * model loaded: the 6 x 7 Jacobian in the base frame (linear rows, then angular) and the
 * 4 x 4 flange transform. 0, or -1 for a null pointer. */
ZK_API int ikine_jacobe_and_pose_tor77(const float* q, Mat* jacobian, Mat* pose);

/* out = a b of 4 x 4 plain arrays; out may be a or b. */
ZK_API void marr_m(const float a[4][4], const float b[4][4], float out[4][4]);
ZK_API void marr_mD(const double a[4][4], const double b[4][4], double out[4][4]);

ZK_EXTERN_C_END

#endif /* LIBALGO_IKINE7_H */

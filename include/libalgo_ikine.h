/* libapi_c algorithm library: inverse kinematics.
 *
 * The front of the inverse kinematics turns a tool pose in the work frame into the target
 * the solvers expect, picks the solver of the arm model held by the model store, and vets
 * solutions (choice among several, joint position and speed limits). Below it stand the
 * closed-form solvers of the six-axis families, each in a single-solution form (the
 * configuration nearest a reference) and an all-solutions form; the seven-axis solvers,
 * which resolve the redundancy instead, are in libalgo_ikine7.h.
 *
 * Units: radians, metres, seconds. Joint vectors are float[8], the first rbt_dof entries
 * counted. Results are small integers:
 *    0  solved, the answer is in q_out
 *   -1  no solution: unreachable, no candidate inside the limits, a non-finite target or
 *       reference, or a null pointer
 *   -2  the chosen solution lies outside the joint limits; q_out holds it all the same
 *   -4  no solver for this arm model
 *
 * Nothing here allocates, locks or logs: the solvers run in the control period. The
 * strategy of the seven-axis solvers (global_is_movl, theta_v) and the robot model are
 * plain process-wide values without a lock. */
#ifndef LIBALGO_IKINE_H
#define LIBALGO_IKINE_H

#include <stdint.h>

#include "libalgo_math.h"
#include "zk_export.h"
#include "zk_types.h"

ZK_EXTERN_C_BEGIN

/* Two shoulders x two elbows x two wrists. */
#define LIBALGO_IK_MAX_SOLUTIONS 8

/* A request of the public interface (angles in degrees there). */
typedef struct {
    float q_in[7];      /* reference joint vector */
    zk_pose_t q_pose;   /* target pose */
    uint8_t flag;       /* 0: orientation in q_pose.quaternion; 1: in q_pose.euler */
} zk_inverse_kinematics_params_t;

/* Every configuration of a six-axis arm for one pose. */
typedef struct {
    int result;         /* 1 when at least one solution stands, else 0 */
    int num;            /* rows of q_solve in use, 0 to 8; -1: the model has no all-solutions form */
    float q_ref[8];     /* the reference as given */
    float q_solve[8][8]; /* solutions row by row, the first dof columns counted; unused rows zero */
} zk_inverse_kinematics_all_solve_t;

/* ----------------------------------------------------------------------------------
 * Dispatch and selection
 * ---------------------------------------------------------------------------------- */

/* The target in the arm's world frame: the pose (quaternion, or Euler angles when flag is
 * 1) as a transform, taken out of the work frame: inverse(Tw) T. */
ZK_API Matrix calc_Tbase2tool_from_Pose(Pose pose, uint8_t flag);
/* The one solution nearest q_ref for the tool pose in the work frame. A reference of the
 * last joint up to 2 degrees beyond a full turn is pulled back onto the turn. */
ZK_API int inverse_kinematics(const float* q_ref, Pose pose, float* q_out, uint8_t flag);
/* Every configuration of a six-axis arm; num -1 and result 0 for other models. The rows
 * are wrapped near the reference but not tested against the limits. */
ZK_API zk_inverse_kinematics_all_solve_t inverse_kinematics_all(const float* q_ref, Pose pose, uint8_t flag);
/* Index of the row of least weighted squared distance to q_ref among those inside the
 * joint limits (no margin), the first of equal costs; -1 when none (or weight is null). */
ZK_API int ikine_select_ik_solve(const float* weight, zk_inverse_kinematics_all_solve_t solutions);
/* 0, or the number (from 1) of the first joint outside its position limits. NaN passes.
 * -1 for a null pointer. */
ZK_API int ikine_check_joint_position_limit(const float* q);
/* 0, or the number (from 1) of the first joint with |q_to - q_from| > vmax dt; -1 for a
 * null pointer. */
ZK_API int ikine_check_joint_velocity_limit(float dt, const float* q_from, const float* q_to);
/* As the previous over one control period times max(factor, 0). */
ZK_API int joint_overspeed_judgment(const float* q_from, const float* q_to, float factor);

/* Search strategy of the seven-axis solvers: 1 tracks a moving target, 0 traverses the
 * redundant parameter. The setter also sets the solution range (0.013 or 3.14). */
ZK_API void ikine_set_7dof_solver_search_strategy(int strategy);
ZK_API int ikine_get_7dof_solver_search_strategy(void);
/* Solution range; above 1.0 it stands for a traversal. The setter keeps the strategy
 * consistent. */
ZK_API void ikine_set_solution_range_ax71(float range);
ZK_API float ikine_get_solution_range_ax71(void);
/* The pair itself (defaults 1 and 0.013): AX71 reads only theta_v, TOR77 only
 * global_is_movl; the setters above keep them consistent. */
ZK_API extern int global_is_movl;
ZK_API extern float theta_v;

/* ----------------------------------------------------------------------------------
 * Six-axis solvers. T is the tool in the arm's world frame (calc_Tbase2tool_from_Pose);
 * the solvers take the install and tool frames off themselves. Six entries of q_ref are
 * read and six of q_out written. Joint 6 keeps the whole turns of its reference.
 * ---------------------------------------------------------------------------------- */

ZK_API int inverse_kinematics_ax6(Matrix T, const float* q_ref, float* q_out);         /* AX61 */
ZK_API int inverse_kinematics_al64_2(Matrix T, const float* q_ref, float* q_out);      /* AL64II, AL64IV */
ZK_API int inverse_kinematics_al64_3(Matrix T, const float* q_ref, float* q_out);      /* AL64III */
ZK_API int inverse_kinematics_lum6(Matrix T, const float* q_ref, float* q_out);        /* LUM61, LUM66, LUM67 */
ZK_API zk_inverse_kinematics_all_solve_t ikine_ax6_solver(Matrix T, const float* q_ref);
/* AL64II, AL64III (by the model's type) and AL64IV. */
ZK_API zk_inverse_kinematics_all_solve_t ikine_al6II_solver(Matrix T, const float* q_ref);
ZK_API zk_inverse_kinematics_all_solve_t ikine_lum6_solver(Matrix T, const float* q_ref);

/* Of q - 2 pi, q and q + 2 pi the one nearest q_ref (q on a tie). */
ZK_API double recalcu_q46(double q, double q_ref);
/* Of q - 4 pi, q - 2 pi, q, q + 2 pi, q + 4 pi, in this order, the one nearest *q_ref
 * within [q_min - margin, q_max + margin], a later one only if strictly nearer. When none
 * lies inside, *q is left as it was. */
ZK_API void find_nearest_joint(const double* q_ref, double* q, double q_min, double q_max, double margin);
/* Index of the smallest of n entries, the first of equals (NaN counts as largest); 0 for
 * n at or below 1 or a null array. */
ZK_API int find_min_index(const double* cost, int n);

ZK_EXTERN_C_END

#endif /* LIBALGO_IKINE_H */

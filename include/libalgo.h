/* libapi_c algorithm library: the whole public interface of the in-process algorithms.
 *
 *   libalgo_math.h   fixed-size transforms, rotations, quaternions
 *   libalgo_matrix.h  dynamic matrices and vectors up to 18 x 18
 *   libalgo_model.h  the robot model store and its defaults
 *   libalgo_kinematics.h  forward kinematics, the universal chain, Jacobians,
 *                    singularity analysis and pose helpers
 *   libalgo_ikine.h  inverse kinematics: dispatch, selection, the six-axis solvers
 *   libalgo_safety.h  collision geometry, the self-collision model and fences
 *   libalgo_planner_state.h  the planner's speed state read by the safety checks
 *   libalgo_ikine7.h  the seven-axis solvers and the arm angle
 *
 * Inside the library lengths are metres, angles radians, times seconds, and storage is
 * single precision unless a name says double. */
#ifndef LIBALGO_H
#define LIBALGO_H

#include "zk_export.h"

#include "libalgo_math.h"
#include "libalgo_matrix.h"
#include "libalgo_model.h"
#include "libalgo_kinematics.h"
#include "libalgo_ikine.h"
#include "libalgo_safety.h"
#include "libalgo_planner_state.h"
#include "libalgo_ikine7.h"

#endif /* LIBALGO_H */

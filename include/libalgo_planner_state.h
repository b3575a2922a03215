/* libapi_c algorithm library: the planner's speed state that the safety checks read.
 *
 * The planner and the jog generators say here which generator runs and which kind of
 * segment the planner is on; the self-collision and fence ratios choose their slowing
 * curve from the two. Plain process-wide values without a lock: they belong to the thread
 * that runs the planner and the checks. */
#ifndef LIBALGO_PLANNER_STATE_H
#define LIBALGO_PLANNER_STATE_H

#include <stdint.h>

#include "zk_export.h"

ZK_EXTERN_C_BEGIN

/* Values of the motion mode: which generator runs. */
#define LIBALGO_MOTION_JOINT_TEACH 0u    /* jog of one joint */
#define LIBALGO_MOTION_POSITION_TEACH 1u /* Cartesian jog of the position */
#define LIBALGO_MOTION_ATTITUDE_TEACH 2u /* Cartesian jog of the orientation */
#define LIBALGO_MOTION_PLANNER 3u        /* the trajectory planner; the value at start */

/* Stores the motion mode; any value is kept as it stands. */
ZK_API void set_motion_mode(uint32_t mode);

/* Condition of the segment the planner runs: 1 joint, 2 circle, 3 line, 8 spline, 9 to
 * 17 blends, 18 Bezier blend; 0 before any plan. With the bit of value 8 cleared, 1 (that
 * is 1 and 9) means a joint-space segment. */
ZK_API uint32_t libalgo_get_current_condition(void);
/* Set by the planner when it enters a segment. */
ZK_API void libalgo_set_current_condition(uint32_t condition);

ZK_EXTERN_C_END

#endif /* LIBALGO_PLANNER_STATE_H */

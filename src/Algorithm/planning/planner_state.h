// Trajectory planning: the speed state shared by the planner, the jog generators and the
// safety checks. The exported setters and getters are those of
// include/libalgo_planner_state.h; this header gives the library's own code the motion mode.
#pragma once

#include <cstdint>

#include "libalgo_planner_state.h"

namespace tarn {

// The motion mode as last set (LIBALGO_MOTION_PLANNER at start).
uint32_t planner_motion_mode();

// True when the planner's current segment is a joint-space one: its condition with the
// bit of value 8 cleared is 1.
bool planner_segment_is_joint_space();

}  // namespace tarn

// Inverse kinematics front: the strategy of the seven-axis solvers.
//
// The pair is deliberately redundant and kept consistent by the two setters of
// include/libalgo_ikine.h: the AX71 solver reads only theta_v, the TOR77 solver only
// global_is_movl. Plain globals without a lock; one planner thread is the contract.
#pragma once

#include "libalgo_ikine.h"  // global_is_movl, theta_v

namespace tarn {

// A solution range above this stands for a traversal, otherwise for tracking.
inline constexpr float kTraversalRangeAbove = 1.0f;

}  // namespace tarn

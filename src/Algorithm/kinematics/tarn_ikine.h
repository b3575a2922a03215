// Inverse kinematics front: the strategy of the seven-axis solvers.
//
// The pair is deliberately redundant and kept consistent by the two setters of
// include/libalgo_ikine.h: the AX71 solver reads only theta_v, the TOR77 solver only
// global_is_movl. Plain globals without a lock; one planner thread is the contract.
#pragma once

// 1: track a moving target (follow the reference); 0: traverse the redundant parameter.
extern int global_is_movl;
// Solution range; above kTraversalRangeAbove it stands for a traversal, otherwise for
// tracking.
extern float theta_v;

namespace tarn {

inline constexpr float kTraversalRangeAbove = 1.0f;

}  // namespace tarn

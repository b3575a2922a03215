// Trajectory planning: the speed state read by the safety checks. The planner sets the
// motion mode and the segment condition as it runs; the values here are those of a
// library that has not planned yet.
#include "Algorithm/planning/planner_state.h"

namespace {

uint32_t g_motion_mode = LIBALGO_MOTION_PLANNER;
uint32_t g_current_condition = 0;  // no segment yet

// Blends of a joint move with a joint move (9) count as joint space, as does 1.
constexpr uint32_t kConditionBlendBit = 8u;
constexpr uint32_t kConditionJoint = 1u;

}  // namespace

void set_motion_mode(uint32_t mode) { g_motion_mode = mode; }

uint32_t libalgo_get_current_condition(void) { return g_current_condition; }

void libalgo_set_current_condition(uint32_t condition) { g_current_condition = condition; }

namespace tarn {

uint32_t planner_motion_mode() { return g_motion_mode; }

bool planner_segment_is_joint_space() { return (g_current_condition & ~kConditionBlendBit) == kConditionJoint; }

}  // namespace tarn

// Kinematics: the universal DH chain over the model's table, its Jacobians and the
// singularity analyses. The exported functions are those of include/libalgo_kinematics.h
// (kin_get_MDH_Ti, kin_get_SDH_Ti, kin_universal_kinematics_Tn, kin_calc_jacobe_*, the
// thresholds and the two analyses); this header adds their globals and the chain as the
// rest of the algorithm library reaches it.
#pragma once

#include "libalgo_kinematics.h"

// The snapshots T02, T05, T06 and the thresholds d_shoulder, q_elbow, q_wrist are
// declared in the public header: plain globals, the chain and whoever reads them run on
// one thread.

namespace tarn {

// The longest chain: seven joints. The eighth DH entry is the mounting of a second arm
// (forward_kinematics_double_arm) and no joint of this arm.
inline constexpr int kMaxChainJoints = 7;

// Joints of the model's chain: its dof clamped to 0..kMaxChainJoints.
int kin_chain_dof();

// True for the mode text "modeling" (joint values are model angles); every other text,
// null included, means machine angles, to which the DH offset is added.
bool kin_is_modeling_mode(const char* mode);

// Every frame of the chain in one pass: frames[i] = link(0) ... link(i), the base to
// the frame after joint i + 1, for i below the returned count (kin_chain_dof()). Links
// as in kin_universal_kinematics_Tn; the tool, installation and work frames are not
// applied and the snapshots T02, T05, T06 are left alone. q must not be null.
int kin_chain_frames(const float* q, const char* mode, Matrix frames[kMaxChainJoints]);

}  // namespace tarn

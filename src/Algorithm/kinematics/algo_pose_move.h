// Kinematics: pose helpers. The exported functions are those of
// include/libalgo_kinematics.h (algo_*, dPosMove*, rotateMove, Rodrigues_rotate_simplify*);
// this header adds what the jog and teach code shares with them.
#pragma once

#include "libalgo_kinematics.h"

namespace tarn {

// A frame of the model store (tool or work) as a pose: position and Euler angles, and
// the quaternion made from them.
Pose pose_of_coord(const Coord& frame);

}  // namespace tarn

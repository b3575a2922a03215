// Math core: fixed-size transforms and rotations. The functions themselves are
// the exported C interface of include/libalgo_math.h; this header adds what the rest of
// the algorithm library shares with them: the constants and the header clamping rule.
#pragma once

#include <cstdint>

#include "libalgo_math.h"

namespace tarn {

// pi in double; narrow explicitly where a float is wanted.
inline constexpr double kPi = 3.14159265358979323846;
inline constexpr double kTwoPi = 2.0 * kPi;
inline constexpr double kHalfPi = 0.5 * kPi;

// Storage sizes of the two records.
inline constexpr int kMatrixDim = 4;
inline constexpr int kMatrixMoreDim = 7;

// Euler extraction: the gimbal test on R(2,0), and the wrap below -3.13.
inline constexpr float kGimbalLimit = 0.999999f;
inline constexpr double kEulerWrapBelow = -3.13;

// Quaternion to matrix: a squared norm at or below this gives the identity rotation.
inline constexpr float kQuatMinNorm2 = 1e-6f;

// Number of rows (or columns) a header value stands for inside storage of size dim:
// negative values count as 0, values above dim as dim. Every reader goes through this,
// so no header can lead outside the storage.
constexpr int clamp_dim(int value, int dim) { return value < 0 ? 0 : (value > dim ? dim : value); }

}  // namespace tarn

// Kinematics: forward kinematics per arm family. The exported functions are those of
// include/libalgo_kinematics.h (forward_kinematics_<family>, the wrappers and the double
// arm); this header adds what the rest of the algorithm library shares with them.
//
// Who uses what:
//   - inverse kinematics and its tests: forward_kinematics_e (F alone) or the family
//     functions with an explicit DH, and kin_family_forward to pick the family as the
//     wrappers do;
//   - the planner and the jog generators: forward_kinematics, forward_kinematics_pos;
//   - the self-collision model: kin_chain_frames of tarn_universal_kin.h, every link
//     frame in one pass.
// Frames: F flange in the base, Tt tool in the flange, Ti base in the installation,
// Tw base side to work frame (W^-1), so the tool in the work frame is Tw Ti F Tt.
#pragma once

#include <cstdint>

#include "libalgo_kinematics.h"

namespace tarn {

/* -----------------------------------------------------------------------------
 * Rigid frames in single precision
 * -------------------------------------------------------------------------- */

struct KinVec3 {
    float x, y, z;
};

inline KinVec3 operator+(KinVec3 a, KinVec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline KinVec3 operator-(KinVec3 a) { return {-a.x, -a.y, -a.z}; }
inline KinVec3 operator*(float k, KinVec3 a) { return {k * a.x, k * a.y, k * a.z}; }

// A homogeneous transform as its three rotation columns and its origin; the bottom row
// (0, 0, 0, 1) is implied.
struct KinFrame {
    KinVec3 c0, c1, c2, p;
};

inline constexpr KinFrame kKinIdentity{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}};

// The rotation and translation of a 4 x 4 Matrix; its bottom row is not read.
inline KinFrame kin_frame_of(const Matrix& m)
{
    const auto& d = m.data;
    return {{d[0][0], d[1][0], d[2][0]}, {d[0][1], d[1][1], d[2][1]}, {d[0][2], d[1][2], d[2][2]},
            {d[0][3], d[1][3], d[2][3]}};
}

// R v and R v + p.
inline KinVec3 kin_rotate(const KinFrame& f, KinVec3 v) { return v.x * f.c0 + v.y * f.c1 + v.z * f.c2; }
inline KinVec3 kin_transform_point(const KinFrame& f, KinVec3 v) { return kin_rotate(f, v) + f.p; }

// a b of two rigid frames.
inline KinFrame kin_compose(const KinFrame& a, const KinFrame& b)
{
    return {kin_rotate(a, b.c0), kin_rotate(a, b.c1), kin_rotate(a, b.c2), kin_transform_point(a, b.p)};
}

// The frame as a Matrix: 4 x 4 (kin_transform_matrix), its 3 x 3 rotation with the
// position column and bottom row zero (kin_rotation_matrix), or its 3 x 1 position.
Matrix kin_transform_matrix(const KinFrame& f);
Matrix kin_rotation_matrix(const KinFrame& f);
Matrix kin_position_matrix(const KinFrame& f);

/* -----------------------------------------------------------------------------
 * Family selection
 * -------------------------------------------------------------------------- */

// The `what` selector of the family functions.
inline constexpr int kKinWhatTransform = 0;
inline constexpr int kKinWhatRotation = 1;
inline constexpr int kKinWhatPosition = 2;

using KinFamilyFn = Matrix (*)(DH dh, const float* q, int what);

// The family function of a robot type, taken as an unsigned byte: AX61's for every
// value without a family of its own (AL64I, UNIVERSAL, unknown numbers).
KinFamilyFn kin_family_of(int robot_type);

// F(q) of the model's family with the model's DH; what as for the family functions.
// q must not be null.
Matrix kin_family_forward(const float* q, int what);

}  // namespace tarn

// Math core: the dynamic matrix and vector library. The functions are the
// exported C interface of include/libalgo_matrix.h; this header adds the constants and
// the shape rules that the library's own files share.
#pragma once

#include "Algorithm/math/tarn_mathfuncs.h"
#include "libalgo_matrix.h"

namespace tarn {

// Storage rows and columns of Mat and MatD.
inline constexpr int kMatDim = LIBALGO_MAT_DIM;

// Rows and columns in use, clamped to the storage (see clamp_dim).
template <class M>
constexpr int mat_rows(const M& m) { return clamp_dim(m.row, kMatDim); }
template <class M>
constexpr int mat_cols(const M& m) { return clamp_dim(m.col, kMatDim); }

// Named tolerances.
inline constexpr double kVecZeroNorm = 1e-16;          // vec_is_zeros, vec_angle_axis_diff
inline constexpr double kHermitianTol = 1e-6;          // mat_is_hermitian's walk
inline constexpr double kTridiagonalMinPivot = 1e-10;  // first pivot of the Thomas solver
inline constexpr double kPinvSvdMinSingular = 1e-5;    // mat_pinv_svd drops smaller values
inline constexpr double kEigDegenerate = 1e-16;        // mat_hermitian_eig's early end
inline constexpr float kCondTol = 1e-10f;              // mat_cond's off-diagonal tolerance

// Chosen here: iteration limits of the QR iterations that
// have no caller-given limit, and the tolerance of mat_svd's eigen iteration.
inline constexpr int kCondMaxIterations = 500;
inline constexpr int kSvdEigMaxIterations = 500;
inline constexpr float kSvdEigTol = 1e-7f;

}  // namespace tarn

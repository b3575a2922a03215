// Math core: the Golub-Reinsch singular value decomposition behind
// mat_fast_svd and mat_pinv_svd, with its double-precision core open to the rest of the
// algorithm library.
#pragma once

#include "Algorithm/math/tarn_matrix.h"

namespace tarn {

// Iteration limit of the implicit shifted QR per singular value; exhausting it is not an
// error (the value stands as far as it came).
inline constexpr int kSvdMaxIterations = 30;

// Golub-Reinsch on the m x n matrix in a (m >= n, both 1..kMatDim), in double precision.
// On return a holds U (m x n), w the n singular values (not sorted, not negative) and v
// the n x n matrix V, so that the input equals U diag(w) V^T. Convergence is tested by
// exact comparison: |e| + anorm == anorm, anorm the largest bidiagonal row sum. The
// caller checks the shapes; nothing is allocated.
void svd_golub_reinsch(double (*a)[kMatDim], int m, int n, double* w, double (*v)[kMatDim]);

}  // namespace tarn

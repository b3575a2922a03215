/* libapi_c algorithm library, math core: dynamic matrix and vector library.
 *
 * Rectangular problems up to 18 x 18 without heap memory. Records are passed and returned
 * by value. The prefixes mat_ and vec_ are single precision, matD_ and vecD_ double, with
 * the same rules; the other pairs are merge_sort/merge_sortD, array_cross/D_array_cross,
 * tridiagonal_systems_solver/D_tridiagonal_systems_solver, and array_to_mat/array_to_matD,
 * mat_to_array/matD_to_array, vec3x3_cross/vecD3x3_cross, vec_to_skew/vecD_to_skew,
 * skew_to_vec/skew_to_vecD, directCalculateDetA/directCalculateDetAD.
 *
 * Shapes. Rows and columns beyond row and col carry no meaning; results leave them zero
 * or as the source had them. A record whose row or col lies outside 0..18 is read as if
 * clamped to that range, and every Mat a function of this library creates carries a header
 * within 0..18. Row and column indices are counted from 1 and an index outside the shape
 * reads as zeros and writes nothing. Nothing reads or writes outside the storage.
 *
 * Vectors. A vector is n x 1, its elements in column 0 a full row stride apart; the vec_
 * functions also accept a 1 x n row, whose elements stand in row 0.
 *
 * Results. Nothing reports through a log: the few messages go to standard error, and
 * mat_print to standard output. Functions with an int result return 1 on success. */
#ifndef LIBALGO_MATRIX_H
#define LIBALGO_MATRIX_H

#include "libalgo_math.h"
#include "zk_export.h"

ZK_EXTERN_C_BEGIN

#define LIBALGO_MAT_DIM 18          /* storage rows and columns of Mat and MatD */
#define LIBALGO_MERGE_SORT_MAX 1000 /* two halves of 500: merge_sort leaves longer arrays alone */

typedef struct {
    int row;
    int col;
    float data[LIBALGO_MAT_DIM][LIBALGO_MAT_DIM]; /* row-major */
} Mat;

typedef struct {
    int row;
    int col;
    double data[LIBALGO_MAT_DIM][LIBALGO_MAT_DIM];
} MatD;

/* ----------------------------------------------------------------------------------
 * Creation, access, printing
 * ---------------------------------------------------------------------------------- */

ZK_API Mat mat_init(int rows, int cols);  /* zero matrix of that shape */
ZK_API Mat mat_zeros(int rows, int cols); /* the same */
ZK_API Mat mat_eye(int rows, int cols);   /* ones on the diagonal */
ZK_API Mat mat_get_Mrow_i(Mat a, int i);  /* row i (from 1) as 1 x cols */
ZK_API Mat mat_get_Mcol_j(Mat a, int j);  /* column j (from 1) as rows x 1 */
/* Stores row 0 of src (its first cols entries) as row i of a; column 0 of src as column
 * j of a. Indices from 1; a null a or an index outside the shape does nothing. */
ZK_API void mat_set_Mrow_i(Mat* a, int i, Mat src);
ZK_API void mat_set_Mcol_j(Mat* a, int j, Mat src);
/* Exchange rows (columns) i and j, counted from 1, over the whole shape. */
ZK_API void mat_swap_row(Mat* a, int i, int j);
ZK_API void mat_swap_col(Mat* a, int i, int j);
/* Fills the row x col entries of a, row by row, from values. */
ZK_API void mat_set_value(Mat* a, const float* values);
/* "Mat = \n", then each entry with "%f," row by row (a line per row), to standard output. */
ZK_API void mat_print(Mat a);

/* Kept as it stands: -1 when not square, 1 when empty; otherwise it walks the pairs
 * (i, j) from (1, 1) and returns 0 at the first with |a(i,j) - a(j,i)| below 1e-6, which
 * is the diagonal pair (1, 1): any square matrix without NaN gives 0. 1 if the walk ends. */
ZK_API int mat_is_hermitian(Mat a);
/* 1 when the two records are equal byte for byte (headers and all storage), else 0. */
ZK_API int mat_is_equal(Mat a, Mat b);

/* ----------------------------------------------------------------------------------
 * Arithmetic
 * ---------------------------------------------------------------------------------- */

ZK_API Mat mat_mult(Mat a, Mat b);    /* a.row x b.col, inner sum over a.col; not checked */
ZK_API Mat mat_T(Mat a);
ZK_API Mat mat_add(Mat a, Mat b);     /* a's shape; not checked */
ZK_API Mat mat_sub(Mat a, Mat b);
ZK_API Mat mat_kM(float k, Mat a);
ZK_API float mat_trace(Mat a);        /* over min(row, col) */
/* A vector (col 1) gives the n x n diagonal matrix; a matrix its diagonal as a vector. */
ZK_API Mat mat_diag(Mat a);
ZK_API float mat_find_abs_max(Mat a); /* 0 for an empty matrix */
ZK_API float mat_find_abs_min(Mat a); /* 0 for an empty matrix */
/* Rank by row elimination with partial pivoting: a column whose best pivot is not above
 * tol is skipped. A non-zero relative multiplies tol by the largest magnitude of a. */
ZK_API int mat_rank(Mat a, float tol, int relative);
/* Elimination without pivoting on a copy; an exact zero pivot hands the matrix to
 * directCalculateDetA. Non-square: "A is not a square matrix." to standard error and
 * +infinity. The empty square matrix gives 1. */
ZK_API float mat_det(Mat a);
/* 0 for a non-square or empty input, the entry for n = 1, ad - bc for n = 2, otherwise
 * elimination with row exchanges (partial pivoting). */
ZK_API float directCalculateDetA(Mat a);
/* Gauss-Jordan with full pivoting as matrix_inv. 1 success; 0 not square
 * (out untouched); -1 a zero pivot, with out as far as the sweep stood. */
ZK_API int mat_inv(Mat a, Mat* out);
ZK_API Mat mat_T2R(Mat t);                /* upper-left 3 x 3 of a 4 x 4 */
ZK_API Mat mat_T2p(Mat t);                /* column 3, rows 0 to 2, as 3 x 1 */
ZK_API Mat mat_homogen_trans_inv(Mat t);  /* frame inverse (R^T, -R^T p), 4 x 4 */

/* ----------------------------------------------------------------------------------
 * Vectors
 * ---------------------------------------------------------------------------------- */

ZK_API Mat vec_zeros(int n);        /* n x 1 */
ZK_API Mat vec_init(int n);         /* n x 1 */
ZK_API float vec_norm2(Mat v);
/* Kept as it stands: with n = max(row, col), 0 for n below 2, otherwise the largest
 * magnitude among the first n - 1 elements (the last is left out). */
ZK_API float vec_normInf(Mat v);
ZK_API float vec_dot(Mat a, Mat b);
ZK_API Mat vec_add(Mat a, Mat b);
ZK_API Mat vec_sub(Mat a, Mat b);
ZK_API Mat vec_minus(Mat v);        /* -v */
ZK_API Mat vec_kV(float k, Mat v);
ZK_API Mat vec_add_scalar(Mat v, float s);
ZK_API Mat vec3x3_cross(Mat a, Mat b);    /* 3 x 1 */
ZK_API Mat vec_to_skew(Mat v);            /* 3 x 3 skew matrix of a 3-vector */
ZK_API Mat skew_to_vec(Mat s);            /* (s(2,1), s(0,2), s(1,0)) as 3 x 1 */
ZK_API int vec_is_zeros(Mat v);           /* 1 if the norm is below 1e-16 */
ZK_API Mat vec_vex(Mat s);                /* the vector of the skew part (s - s^T) / 2 */
/* Small displacement from T1 to T2 (4 x 4 each) in T1's base: p2 - p1, then
 * (n1 x n2 + o1 x o2 + a1 x a2) / 2. 6 x 1. */
ZK_API Mat vec_Tdiff(Mat t1, Mat t2);
/* p2 - p1, then the rotation R2 R1^T as angle times axis. 6 x 1. */
ZK_API Mat vec_angle_axis_diff(Mat t1, Mat t2);
ZK_API void array_cross(const float* a, const float* b, float* out);
ZK_API Mat array_to_mat(const float* values, int rows, int cols); /* row-major */
ZK_API void mat_to_array(Mat a, float* out);                     /* row x col, row-major */

/* Thomas elimination of the n x n tridiagonal system (n = diag.row) with sub(i) x(i-1)
 * + diag(i) x(i) + super(i) x(i+1) = rhs(i); sub(0) and super(n-1) are not read. All four
 * are n x 1 vectors. A first pivot below 1e-10 in magnitude ends it at once with x
 * unchanged and 0; later pivots are not tested. 1 when x (n x 1) is written. */
ZK_API int tridiagonal_systems_solver(Mat sub, Mat diag, Mat super, Mat rhs, Mat* x);
/* Stable top-down merge sort in place: descending when descending is non-zero (at-or-
 * above keeps the left element), else ascending. n above LIBALGO_MERGE_SORT_MAX, like n
 * below 2 or a null array, leaves the array unchanged. */
ZK_API void merge_sort(int descending, float* values, int n);

/* ----------------------------------------------------------------------------------
 * Decompositions and conversions (single precision only)
 * ---------------------------------------------------------------------------------- */

/* Householder QR: q is row x row, r row x col, a = q r. 1, or 0 for a null output. */
ZK_API int mat_qr(Mat a, Mat* q, Mat* r);
/* Doolittle without pivoting of a square matrix, L with a unit diagonal: 1 if the last
 * pivot's magnitude is at or above tol, else 0 (and 0 for a non-square input). */
ZK_API int mat_lu(Mat a, float tol, Mat* l, Mat* u);
/* Unshifted QR iteration A = R Q until the largest off-diagonal magnitude is below tol or
 * max_iterations; result gets the diagonal as n x 1 with magnitudes. 0 if not square. */
ZK_API int mat_eig(Mat a, int max_iterations, float tol, Mat* result);
/* Opens with the walk of mat_is_hermitian and returns -1 where that gives 0 or -1 (so for
 * every square matrix without NaN), outputs untouched. Otherwise the same iteration,
 * accumulating v = Q1 Q2 ...; lambda gets the diagonal (n x 1). Returns 1. */
ZK_API int mat_hermitian_eig(Mat a, int max_iterations, float tol, Mat* v, Mat* lambda);
/* SVD through the eigenproblems of A^T A and A A^T: u row x row, s min(row, col) x 1,
 * v col x col, signs of u brought into agreement with A v. Slow and approximate: use
 * mat_fast_svd. 1, or 0 for a null output. */
ZK_API int mat_svd(Mat a, Mat* u, Mat* s, Mat* v);
/* Golub-Reinsch SVD, a = u diag(s) v^T: u takes a's shape, s is col x 1 (not sorted),
 * v is col x col. -3 if rows are fewer than columns; -1 if a shape lies outside 1..18 or
 * an argument is null; 1 on success. */
ZK_API int mat_fast_svd(const Mat* a, Mat* u, Mat* s, Mat* v);
/* Pseudo-inverse by normal equations. On a failed inverse: the zero col x row matrix for
 * row >= col, and a result with row 0 for row < col. */
ZK_API Mat mat_pinv(Mat a);
/* Pseudo-inverse v s+ u^T from mat_fast_svd (of the transpose when row < col), with 1/s
 * for |s| above 1e-5 and 0 otherwise. A failed decomposition gives the zero matrix. */
ZK_API Mat mat_pinv_svd(Mat a);
/* 2-norm condition number: sqrt(largest / smallest eigenvalue of A^T A) by mat_eig. */
ZK_API float mat_cond(Mat a);
/* Conversions to and from the fixed-size records; the shape is kept, clamped to the
 * smaller storage. */
ZK_API Mat matrix_to_mat(Matrix m);
ZK_API Mat matrix_more_to_mat(Matrix_more m);
ZK_API Matrix mat_to_matrix(Mat a);
ZK_API Matrix_more mat_to_matrix_more(Mat a);

/* ----------------------------------------------------------------------------------
 * Double precision: the same rules as the float twins above
 * ---------------------------------------------------------------------------------- */

ZK_API MatD matD_init(int rows, int cols);
ZK_API MatD matD_zeros(int rows, int cols);
ZK_API MatD matD_eye(int rows, int cols);
ZK_API MatD matD_get_Mrow_i(MatD a, int i);
ZK_API MatD matD_get_Mcol_j(MatD a, int j);
ZK_API void matD_set_Mrow_i(MatD* a, int i, MatD src);
ZK_API void matD_set_Mcol_j(MatD* a, int j, MatD src);
ZK_API void matD_swap_row(MatD* a, int i, int j);
ZK_API void matD_swap_col(MatD* a, int i, int j);
ZK_API void matD_set_value(MatD* a, const double* values);
ZK_API void matD_print(MatD a); /* entries with "%lf," */
ZK_API int matD_is_hermitian(MatD a);
ZK_API int matD_is_equal(MatD a, MatD b);
ZK_API MatD matD_mult(MatD a, MatD b);
ZK_API MatD matD_T(MatD a);
ZK_API MatD matD_add(MatD a, MatD b);
ZK_API MatD matD_sub(MatD a, MatD b);
ZK_API MatD matD_kM(double k, MatD a);
ZK_API double matD_trace(MatD a);
ZK_API MatD matD_diag(MatD a);
ZK_API double matD_find_abs_max(MatD a);
ZK_API double matD_find_abs_min(MatD a);
ZK_API int matD_rank(MatD a, double tol, int relative);
ZK_API double matD_det(MatD a);
ZK_API double directCalculateDetAD(MatD a);
ZK_API int matD_inv(MatD a, MatD* out);
ZK_API MatD matD_T2R(MatD t);
ZK_API MatD matD_T2p(MatD t);
ZK_API MatD matD_homogen_trans_inv(MatD t);
ZK_API MatD vecD_zeros(int n);
ZK_API MatD vecD_init(int n);
ZK_API double vecD_norm2(MatD v);
ZK_API double vecD_normInf(MatD v);
ZK_API double vecD_dot(MatD a, MatD b);
ZK_API MatD vecD_add(MatD a, MatD b);
ZK_API MatD vecD_sub(MatD a, MatD b);
ZK_API MatD vecD_minus(MatD v);
ZK_API MatD vecD_kV(double k, MatD v);
ZK_API MatD vecD_add_scalar(MatD v, double s);
ZK_API MatD vecD3x3_cross(MatD a, MatD b);
ZK_API MatD vecD_to_skew(MatD v);
ZK_API MatD skew_to_vecD(MatD s);
ZK_API int vecD_is_zeros(MatD v);
ZK_API MatD vecD_vex(MatD s);
ZK_API MatD vecD_Tdiff(MatD t1, MatD t2);
ZK_API MatD vecD_angle_axis_diff(MatD t1, MatD t2);
ZK_API void D_array_cross(const double* a, const double* b, double* out);
ZK_API MatD array_to_matD(const double* values, int rows, int cols);
ZK_API void matD_to_array(MatD a, double* out);
ZK_API int D_tridiagonal_systems_solver(MatD sub, MatD diag, MatD super, MatD rhs, MatD* x);
ZK_API void merge_sortD(int descending, double* values, int n);

ZK_EXTERN_C_END

#endif /* LIBALGO_MATRIX_H */

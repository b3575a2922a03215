/* libapi_c algorithm library, math core: fixed-size transforms and rotations.
 *
 * Plain records passed and returned by value, and free functions over them. Storage is
 * single precision; lengths are metres, angles radians, quaternions scalar first. Euler
 * angles mean R = Rz(rz) Ry(ry) Rx(rx).
 *
 * Nothing here allocates, touches a global or reports an error: a singular input yields
 * infinities or NaNs in the result. Shapes are not checked against each other.
 *
 * Headers and storage. A Matrix has 4 x 4 storage, a Matrix_more 7 x 7. Every function
 * keeps the headers it is given or documents the header it writes, but reads and writes
 * only within the storage: a header above the storage size counts as the storage size,
 * a negative header as 0. Entries outside irow x iline are zero in every result. */
#ifndef LIBALGO_MATH_H
#define LIBALGO_MATH_H

#include <stdint.h>

#include "zk_export.h"

ZK_EXTERN_C_BEGIN

/* ----------------------------------------------------------------------------------
 * Records
 * ---------------------------------------------------------------------------------- */

/* At most 4 x 4, row-major. A homogeneous transform is 4 x 4 with the rotation in rows
 * and columns 0 to 2, the translation in column 3 and the bottom row (0, 0, 0, 1); a
 * rotation is 3 x 3 in the same storage; a point or axis a 3 x 1 column. Field for field
 * the same as zk_matrix_t. */
typedef struct {
    int16_t irow;  /* rows in use */
    int16_t iline; /* columns in use */
    float data[4][4];
} Matrix;

/* The same for up to seven rows and columns (Jacobians, spline control systems); the row
 * stride is seven whatever is in use. */
typedef struct {
    int16_t irow;
    int16_t iline;
    float data[7][7];
} Matrix_more;

typedef struct {
    float x, y, z; /* metres */
} Pos;

typedef struct {
    float rx, ry, rz; /* radians, R = Rz(rz) Ry(ry) Rx(rx) */
} Euler;

typedef struct {
    float w, x, y, z; /* scalar first */
} Quat;

typedef float VEC3[3];

/* A pose carries its orientation twice; nothing keeps the two forms equal. Each consumer
 * reads one of them; transformation_matrix_to_pose fills both. */
typedef struct {
    Pos position;
    Quat quaternion;
    Euler euler;
} Pose;

/* Link parameters of the robot model, eight entries so that a seven-axis arm fits;
 * index i belongs to joint i + 1. Lengths in metres, angles in radians. The err_ arrays
 * are the calibration compensation. */
typedef struct {
    float d[8];
    float a[8];
    float alpha[8];
    float offset[8];
    float err_d[8];
    float err_a[8];
    float err_alpha[8];
    float err_theta[8];
} DH;

/* ----------------------------------------------------------------------------------
 * Matrix (up to 4 x 4)
 * ---------------------------------------------------------------------------------- */

/* All zero, header as given. */
ZK_API Matrix zero_matrix(int16_t irow, int16_t iline);
/* n x n identity; n < 1 leaves all entries zero with header n, n; n above 4 gives the
 * 4 x 4 identity with header n, n. */
ZK_API Matrix unit_matrix(int16_t n);
/* Transpose; irow and iline are exchanged. */
ZK_API Matrix matrix_t(Matrix m);
/* Product a b, shape irow(a) x iline(b), inner sum over iline(a) (not checked against
 * irow(b)): single-precision terms added in a double accumulator, narrowed once. */
ZK_API Matrix matrix_m(Matrix a, Matrix b);
/* a + b when flag > 0, a - b otherwise; the shape is a's. */
ZK_API Matrix matrix_a(Matrix a, Matrix b, int flag);
/* k times each entry in use. */
ZK_API Matrix matrix_m_num(float k, Matrix m);
/* General square inverse (n = irow): Gauss-Jordan with full pivoting, the first of equal
 * magnitudes as pivot. No singularity test: a singular input gives infinities or NaNs. */
ZK_API Matrix matrix_inv(Matrix m);
/* 4 x 4 inverse by the adjugate and one reciprocal of the determinant; no pivoting and
 * no test of the determinant. Header 4, 4. */
ZK_API Matrix matrix_inv_full_rank(Matrix m);
/* Inverse of a homogeneous transform without transposing: the adjugate of the rotation
 * block times 1 / det, the translation from the same cofactors, so it is right for a
 * non-orthonormal block too. The input's bottom row is not read; the result's is
 * (0, 0, 0, 1). Header 4, 4. */
ZK_API Matrix matrix_inv_coordinate_system(Matrix m);
/* Upper-left 3 x 3 as a rotation, header 3, 3. */
ZK_API Matrix matrix_T2R(Matrix m);
/* a x b of two 3 x 1 columns, header 3, 1. */
ZK_API Matrix cross(Matrix a, Matrix b);
/* 1 for x > 0, -1 for x < 0, else 0 (so 0 for -0.0 and NaN). */
ZK_API int zk_sign(float x);
/* acos(x / sqrt(y*y + x*x)), negated when y < 0; NaN at the origin. */
ZK_API float my_atan2f(float y, float x);

/* ----------------------------------------------------------------------------------
 * Poses, Euler angles and quaternions
 * ---------------------------------------------------------------------------------- */

/* 4 x 4 from position and quaternion; euler is not read. A quaternion need not be unit;
 * one of squared norm at or below 1e-6 gives the identity rotation. */
ZK_API Matrix pose_quat_to_transformation_matrix(Pose pose);
/* 4 x 4 from position and euler; quaternion is not read. */
ZK_API Matrix pose_euler_to_transformation_matrix(Pose pose);
/* All three members: position, quaternion (four-case extraction), Euler angles. */
ZK_API Pose transformation_matrix_to_pose(Matrix m);
/* Gimbal branches at R(2,0) beyond +-0.999999; each angle below -3.13 gets 2 pi added,
 * so the range is (-3.13, 3.153...]. */
ZK_API Euler matrix_to_euler(Matrix m);
/* Four-case extraction; the sign of w is not normalised. */
ZK_API Quat matrix_to_quat(Matrix m);
ZK_API Matrix euler_to_matrix(Euler e);          /* 3 x 3 */
ZK_API Matrix quat_to_matrix(Quat q);            /* 3 x 3, the non-unit rule above */
ZK_API Quat euler_to_quat(Euler e);              /* half-angle product, not renormalised */
ZK_API Euler quat_to_euler(Quat q);              /* through the matrix entries */
/* (sin(s) q1 + sin(theta - s) q0) / sin(theta): theta the angle between the quaternions,
 * s the angle travelled. The caller handles the shorter arc and theta near zero. */
ZK_API Quat quaternion_interpolation(float theta, float s, Quat q0, Quat q1);
/* Elementary 3 x 3 rotations, right-handed. */
ZK_API Matrix rotx(float angle);
ZK_API Matrix roty(float angle);
ZK_API Matrix rotz(float angle);

/* ----------------------------------------------------------------------------------
 * Quaternion helpers of the planner: a quaternion is float[4] (w, x, y, z), a rotation
 * vector or rate float[3]. Results go to the caller's array, which may be an operand.
 * ---------------------------------------------------------------------------------- */

/* Hamilton product q0 q1. */
ZK_API void multi_q0q1(float result[4], const float q0[4], const float q1[4]);
/* q / |q|; a zero quaternion gives NaNs. */
ZK_API void norm_quat(float result[4], const float q[4]);
ZK_API float dot_quat(const float q0[4], const float q1[4]);
/* Conjugate (the inverse of a unit quaternion). */
ZK_API void inv_quat(float result[4], const float q[4]);
/* Spherical interpolation on the shorter arc; q0 when |dot| is above 0.9999999. */
ZK_API void my_slerp(float result[4], const float q0[4], const float q1[4], float t);
/* Exponential of a rotation vector w: (cos |w|, w / |w| sin |w|); (1, 0, 0, 0) for zero. */
ZK_API void exp_omiga(float result[4], const float omega[3]);
/* Logarithm of a unit quaternion as a rotation vector, the inverse of exp_omiga:
 * v / |v| atan2(|v|, w); a zero angle gives the zero vector. */
ZK_API void log_quat(float result[3], const float q[4]);
ZK_API void multi_cq(float result[4], float c, const float q[4]);
/* Rates of the Euler angles (drx, dry, drz) at orientation q to the quaternion rate
 * dq = 1/2 (0, w) q, w the angular velocity in the base frame. */
ZK_API void Veulr2Vq(float result[4], const float euler_rate[3], const float q[4]);
/* The reverse: quaternion rate dq at q to Euler-angle rates; infinite at ry = +-pi/2. */
ZK_API void Vquat2Veulr(float result[3], const float dq[4], const float q[4]);
/* Derivative of the slerp (q0, q1) at t (no shorter-arc flip), times dt: the change of
 * the quaternion over a step dt of the parameter. 0 when acos(dot) is at or below 1e-6. */
ZK_API void d_slerp(float result[4], const float q0[4], const float q1[4], float t, float dt);
/* Angular velocity of the same curve at t per unit of t, in the base frame, written to
 * result; returns its magnitude. 0 (and a zero vector) for the same condition. */
ZK_API float d_slerp_vom(const float q0[4], const float q1[4], float t, float result[3]);

/* ----------------------------------------------------------------------------------
 * Matrix_more (up to 7 x 7): the same rules as the Matrix twins.
 * ---------------------------------------------------------------------------------- */

ZK_API Matrix_more unit_matrix_dim7(int16_t n);
ZK_API Matrix_more matrix_t_dim7(Matrix_more m);
ZK_API Matrix_more matrix_m_dim7(Matrix_more a, Matrix_more b);
ZK_API Matrix_more matrix_a_dim7(Matrix_more a, Matrix_more b, int flag);
ZK_API Matrix_more matrix_m_num_dim7(float k, Matrix_more m);
ZK_API Matrix_more matrix_inv_dim7(Matrix_more m);
/* Closed-form inverse of a 7 x 7 whose rows 0 and 6 are e0 and e6 and whose rows 1 to 5
 * are tridiagonal (row r has entries at columns r - 1, r, r + 1). Reads only those 15
 * entries; one reciprocal of the interior determinant; header 7, 7. */
ZK_API Matrix_more simp_matrix_inv77(Matrix_more m);

ZK_EXTERN_C_END

#endif /* LIBALGO_MATH_H */

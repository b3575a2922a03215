// Conversions between the host's units and records (degrees, zk_pose_t, zk_matrix_t) and
// the algorithm library's (radians, Pose, Matrix), shared by the facade and its invoke_
// layer. Every degree and radian conversion of the facade goes through these few helpers, so
// each constant lives here once.
#pragma once

#include "libalgo.h"
#include "zk_types.h"

namespace zk_algo {

// Degrees to radians: multiplied in double, narrowed to float once.
constexpr double kDegToRad = 0.017453292519943295;
// The shorter form of the same factor that the joint speed setter uses.
constexpr double kDegToRadSpeed = 0.0174532925199433;
// Radians to degrees for limits, thresholds, frames and the arm angle.
constexpr double kRadToDeg = 57.2957795130823;
// Radians to degrees for solved joints.
constexpr double kRadToDegSolve = 57.29577951308232;
// The install angles are converted as x * pi / 180.
constexpr double kPi = 3.141592653589793;
constexpr double kHalfTurnDeg = 180.0;

// Joints of a public joint array: the model's degrees of freedom, at most seven (the
// handle's mirrors and the request record hold seven).
constexpr int kMaxArmJoints = 7;
int model_joints();

inline float deg_to_rad(float degrees, double factor = kDegToRad)
{
    return static_cast<float>(static_cast<double>(degrees) * factor);
}

inline float rad_to_deg(float radians, double factor = kRadToDeg)
{
    return static_cast<float>(static_cast<double>(radians) * factor);
}

// n entries of a host array in degrees into a joint vector of the library, the rest zero.
struct JointsRad {
    float q[LIBALGO_MAX_JOINTS];
};
JointsRad joints_to_rad(const float* degrees, int n, double factor = kDegToRad);
// The first n joints of the model (model_joints()) in radians.
inline JointsRad joints_to_rad(const float* degrees) { return joints_to_rad(degrees, model_joints()); }
// n entries of a joint vector in radians back to a host array in degrees.
void joints_to_deg(const float* radians, float* degrees, int n, double factor = kRadToDeg);

Pose to_pose(const zk_pose_t& p);
zk_pose_t to_zk_pose(const Pose& p);
Matrix to_matrix(const zk_matrix_t& m);
zk_matrix_t to_zk_matrix(const Matrix& m);
Euler to_euler(const zk_euler_t& e);
zk_euler_t to_zk_euler(const Euler& e);
Quat to_quat(const zk_quat_t& q);
zk_quat_t to_zk_quat(const Quat& q);

}  // namespace zk_algo

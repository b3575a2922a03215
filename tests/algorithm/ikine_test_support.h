// Helpers of the inverse kinematics tests: the six-axis models, random joint vectors
// inside the limits, the forward kinematics that a target is made from, and the
// comparison of two poses.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "algo_test_util.h"
#include "arm_model_support.h"
#include "libalgo.h"

namespace ikine_test {

using SixAxisModel = algo_test::ArmModel;
using algo_test::model_name;
using algo_test::use_frames;
using algo_test::use_model;

inline constexpr SixAxisModel kSixAxisModels[] = {
    {AX61, _B, "AX61"},       {AL64II, _QF, "AL64II"}, {AL64III, _XF, "AL64III"}, {AL64IV, IXF, "AL64IV"},
    {LUM61, _B, "LUM61"},     {LUM66, _B, "LUM66"},    {LUM67, _XF, "LUM67"},
};

// Stays this far inside each limit, so that rounding never takes a target's own joint
// vector outside.
constexpr double kLimitInset = 1e-3;

inline void random_joints(algo_test::Rng& rng, float q[8])
{
    float lo[8], hi[8];
    libalgo_get_jointlim_min(lo);
    libalgo_get_jointlim_max(hi);
    for (int j = 0; j < 8; ++j) q[j] = j < 6 ? rng.uniformf(lo[j] + kLimitInset, hi[j] - kLimitInset) : 0.0f;
}

// The tool pose in the work frame at q, by the library's forward kinematics.
inline Pose tool_pose(const float* q) { return forward_kinematics(q); }

struct PoseError {
    double position;     // m
    double orientation;  // rad
};

inline PoseError pose_error(const Pose& a, const Pose& b)
{
    const Matrix ta = pose_quat_to_transformation_matrix(a), tb = pose_quat_to_transformation_matrix(b);
    // Angle of ta^T tb from its skew part and trace, well conditioned near zero.
    double m[3][3] = {};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k) m[i][j] += static_cast<double>(ta.data[k][i]) * tb.data[k][j];
    const double sx = m[2][1] - m[1][2], sy = m[0][2] - m[2][0], sz = m[1][0] - m[0][1];
    const double angle = std::atan2(0.5 * std::sqrt(sx * sx + sy * sy + sz * sz), 0.5 * (m[0][0] + m[1][1] + m[2][2] - 1.0));
    const double dx = a.position.x - b.position.x, dy = a.position.y - b.position.y, dz = a.position.z - b.position.z;
    return {std::sqrt(dx * dx + dy * dy + dz * dz), angle};
}

// What a solution must reproduce of its target.
constexpr double kPositionTolerance = 1e-4;     // m
constexpr double kOrientationTolerance = 1e-3;  // rad
// How near a solution must come to the joint vector its target was made from.
constexpr double kJointTolerance = 1e-4;        // rad

inline ::testing::AssertionResult reproduces(const float* q, const Pose& target)
{
    const PoseError e = pose_error(tool_pose(q), target);
    if (e.position <= kPositionTolerance && e.orientation <= kOrientationTolerance) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "position error " << e.position << " m, orientation error " << e.orientation
                                         << " rad; q = " << q[0] << ", " << q[1] << ", " << q[2] << ", " << q[3] << ", "
                                         << q[4] << ", " << q[5];
}

// Smallest singular value of the 6 x 6 Jacobian of the tool pose at q, by central
// differences (rows: position in m, rotation in rad). Next to a singularity the joints of
// a solution are only as well determined as the float target's rounding over this.
inline double jacobian_min_singular(const float* q)
{
    constexpr float kStep = 1e-3f;
    Mat jac = mat_zeros(6, 6);
    for (int j = 0; j < 6; ++j) {
        float hi[8], lo[8];
        for (int k = 0; k < 8; ++k) hi[k] = lo[k] = q[k];
        hi[j] += kStep;
        lo[j] -= kStep;
        const Matrix a = pose_quat_to_transformation_matrix(tool_pose(hi));
        const Matrix b = pose_quat_to_transformation_matrix(tool_pose(lo));
        for (int r = 0; r < 3; ++r) jac.data[r][j] = (a.data[r][3] - b.data[r][3]) / (2 * kStep);
        // The rotation between the two, a b^T, as a small rotation vector.
        double d[3][3] = {};
        for (int x = 0; x < 3; ++x)
            for (int y = 0; y < 3; ++y)
                for (int k = 0; k < 3; ++k) d[x][y] += static_cast<double>(a.data[x][k]) * b.data[y][k];
        jac.data[3][j] = static_cast<float>((d[2][1] - d[1][2]) / 2 / (2 * kStep));
        jac.data[4][j] = static_cast<float>((d[0][2] - d[2][0]) / 2 / (2 * kStep));
        jac.data[5][j] = static_cast<float>((d[1][0] - d[0][1]) / 2 / (2 * kStep));
    }
    Mat u, sv, v;
    mat_fast_svd(&jac, &u, &sv, &v);
    double smallest = sv.data[0][0];
    for (int k = 1; k < 6; ++k) smallest = std::fmin(smallest, sv.data[k][0]);
    return smallest;
}

// Below this smallest singular value a target's own joint vector is not expected back to
// kJointTolerance; any solution must still reproduce the target.
constexpr double kIllConditioned = 1e-2;

inline double max_joint_diff(const float* a, const float* b)
{
    double d = 0.0;
    for (int j = 0; j < 6; ++j) d = std::fmax(d, std::fabs(static_cast<double>(a[j]) - b[j]));
    return d;
}

}  // namespace ikine_test

// Helpers of the seven-axis inverse kinematics tests: the models, flange targets made by
// the library's forward kinematics, the distance of a flange from its target, smooth
// random joint paths clear of the arms' singularities, and a guard of the search strategy.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "algo_test_util.h"
#include "arm_model_support.h"
#include "libalgo.h"

namespace ikine7_test {

inline constexpr int kJoints = 7;
inline constexpr double kPi = std::numbers::pi;

using SevenAxisModel = algo_test::ArmModel;
using algo_test::model_name;
using algo_test::use_frames;
using algo_test::use_model;

inline constexpr SevenAxisModel kAx71{AX71, _B, "AX71"};
inline constexpr SevenAxisModel kAx71Xf{AX71, _XF, "AX71_XF"};
inline constexpr SevenAxisModel kTor77{TOR77, _B, "TOR77"};
inline constexpr SevenAxisModel kTor77II{TOR77II, _B, "TOR77II"};

inline bool is_ax71() { return libalgo_get_robot_type() == AX71; }

// Sets a search strategy for the life of the guard and restores tracking, the default,
// so that the whole test program can run in one process.
class StrategyGuard {
public:
    explicit StrategyGuard(int strategy) { ikine_set_7dof_solver_search_strategy(strategy); }
    ~StrategyGuard() { ikine_set_7dof_solver_search_strategy(1); }
    StrategyGuard(const StrategyGuard&) = delete;
    StrategyGuard& operator=(const StrategyGuard&) = delete;
};

// The flange target of a joint vector, as inverse_kinematics hands it to the solvers.
inline Mat flange_of(const float* q) { return matrix_to_mat(forward_kinematics_e(q)); }

// The solver of the model loaded; the reference is passed in a copy, since the AX71
// solver adds the offsets to it.
inline int solve(const Mat& flange, const float* ref, float* out)
{
    float copy[8] = {};
    for (int j = 0; j < kJoints; ++j) copy[j] = ref[j];
    return is_ax71() ? inverse_kinematics_ax_71(flange, copy, out) : inverse_kinematics_tor7(flange, copy, out);
}

// How far the flange at q lies from a target: position (m) and rotation angle (rad).
struct FlangeError {
    double position;
    double angle;
};

inline FlangeError flange_error(const float* q, const Mat& target)
{
    const Matrix f = forward_kinematics_e(q);
    double m[3][3] = {};  // f^T target
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k) m[i][j] += static_cast<double>(f.data[k][i]) * target.data[k][j];
    const double sx = m[2][1] - m[1][2], sy = m[0][2] - m[2][0], sz = m[1][0] - m[0][1];
    const double angle =
        std::atan2(0.5 * std::sqrt(sx * sx + sy * sy + sz * sz), 0.5 * (m[0][0] + m[1][1] + m[2][2] - 1.0));
    double p = 0.0;
    for (int i = 0; i < 3; ++i) p += std::pow(static_cast<double>(f.data[i][3]) - target.data[i][3], 2);
    return {std::sqrt(p), angle};
}

// What an answer must reproduce of its target: a float answer rounds each joint to about
// 1e-7 rad, which moves the flange by less than 1e-6.
constexpr double kPositionTolerance = 1e-5;  // m
constexpr double kAngleTolerance = 1e-5;     // rad

inline ::testing::AssertionResult reproduces(const float* q, const Mat& target)
{
    const FlangeError e = flange_error(q, target);
    if (e.position <= kPositionTolerance && e.angle <= kAngleTolerance) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "flange misses by " << e.position << " m, " << e.angle << " rad";
}

// Inside the joint limits widened by the solvers' half-degree margin.
inline bool inside_widened_limits(const float* q)
{
    constexpr float kLimitMargin = 0.0087f;
    float hi[8], lo[8];
    libalgo_get_jointlim_max(hi);
    libalgo_get_jointlim_min(lo);
    for (int j = 0; j < kJoints; ++j)
        if (!(q[j] <= hi[j] + kLimitMargin && q[j] >= lo[j] - kLimitMargin)) return false;
    return true;
}

// Every joint moves from `from` to `to` within its speed limit over a control period.
inline bool within_speed(const float* from, const float* to)
{
    float vmax[8];
    libalgo_get_joint_vel_maxlim(vmax);
    const float period = libalgo_get_control_loop_period();
    for (int j = 0; j < kJoints; ++j)
        if (!(std::fabs(algo_test::angle_diff(to[j], from[j])) <= vmax[j] * period)) return false;
    return true;
}

// Sum of squared differences on the circle: the measure of "nearest" of the solvers.
inline double distance2(const float* a, const float* b)
{
    double s = 0.0;
    for (int j = 0; j < kJoints; ++j) s += std::pow(algo_test::angle_diff(a[j], b[j]), 2);
    return s;
}

inline double max_step(const float* a, const float* b)
{
    double d = 0.0;
    for (int j = 0; j < kJoints; ++j) d = std::fmax(d, std::fabs(static_cast<double>(a[j]) - b[j]));
    return d;
}

// |det(J J^T)| at joint angles q, by ikine_jacobe_and_pose_tor77.
inline double tor7_gram_det(const float* q)
{
    const DH dh = libalgo_get_dh_value();
    float model[8] = {};
    for (int j = 0; j < kJoints; ++j) model[j] = q[j] + dh.offset[j];
    Mat jac, pose;
    ikine_jacobe_and_pose_tor77(model, &jac, &pose);
    return std::fabs(mat_det(mat_mult(jac, mat_T(jac))));
}

// How far a joint vector stays from the singular sets: joints 2, 4 and 6 of AX71 at 0;
// joint 2, the stretched elbow (joint 4 at -0.217), joint 5 at +-pi/2 and the Gram
// determinant of TOR77.
constexpr double kClearance = 0.3;      // rad
constexpr double kClearGramDet = 5e-5;  // well above the tracking's 1e-5

inline bool clear_of_singularities(const float* q)
{
    if (is_ax71()) return std::fabs(q[1]) > kClearance && std::fabs(q[3]) > kClearance && std::fabs(q[5]) > kClearance;
    constexpr double kTor7Stretched = -0.21700376721746303;
    return std::fabs(q[1]) > kClearance && std::fabs(q[3] - kTor7Stretched) > kClearance &&
           std::fabs(std::fabs(q[4]) - kPi / 2) > kClearance && tor7_gram_det(q) > kClearGramDet;
}

// A smooth joint path: each joint c + a sin(w t + phi), t from 0 to kPathTime, inside the
// limits by kClearance.
struct JointPath {
    double c[kJoints], a[kJoints], w[kJoints], phi[kJoints];
    int steps;

    void at(int k, float q[8]) const
    {
        constexpr double kPathTime = 3.0;
        const double t = kPathTime * k / steps;
        for (int j = 0; j < 8; ++j)
            q[j] = j < kJoints ? static_cast<float>(c[j] + a[j] * std::sin(w[j] * t + phi[j])) : 0.0f;
    }
};

// A path whose every sample lies clear of the singular sets. Its largest step per joint,
// a w 3 / steps, stays below 0.3 * 2 * 3 / steps.
inline JointPath clear_path(algo_test::Rng& rng, int steps)
{
    constexpr double kMaxAmplitude = 0.3;  // rad
    float hi[8], lo[8];
    libalgo_get_jointlim_max(hi);
    libalgo_get_jointlim_min(lo);
    for (;;) {
        JointPath p;
        p.steps = steps;
        for (int j = 0; j < kJoints; ++j) {
            p.a[j] = rng.uniform(0.0, kMaxAmplitude);
            p.c[j] = rng.uniform(lo[j] + p.a[j] + kClearance, hi[j] - p.a[j] - kClearance);
            p.w[j] = rng.uniform(0.5, 2.0);
            p.phi[j] = rng.uniform(0.0, 2.0 * kPi);
        }
        bool clear = true;
        for (int k = 0; k <= steps && clear; k += 10) {
            float q[8];
            p.at(k, q);
            clear = clear_of_singularities(q);
        }
        if (clear) return p;
    }
}

inline void random_joints(algo_test::Rng& rng, float q[8])
{
    float hi[8], lo[8];
    libalgo_get_jointlim_max(hi);
    libalgo_get_jointlim_min(lo);
    for (int j = 0; j < 8; ++j) q[j] = j < kJoints ? rng.uniformf(lo[j], hi[j]) : 0.0f;
}

}  // namespace ikine7_test

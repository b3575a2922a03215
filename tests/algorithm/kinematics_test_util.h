// Helpers of the kinematics tests: the arm models, seeded joint vectors within limits,
// random frames, and an independent DH chain in double precision built straight from the
// link definitions, against which the library's chain, closed forms and Jacobians are
// checked.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <string>

#include "Algorithm/model/libalgo_interface.h"
#include "algo_test_util.h"
#include "libalgo.h"

namespace kin_test {

struct ArmModel {
    RobotType type;
    SensorType sensor;
    const char* name;
};

// Every model with defaults, one sensor each, and the sensors that change the geometry
// beyond the flange length (AL64III with a sensor has another base height).
inline constexpr ArmModel kArmModels[] = {
    {AX61, _B, "AX61"},       {AX61, _XF, "AX61_XF"},  {AX71, _B, "AX71"},     {AX71, IXF, "AX71_IXF"},
    {AL64II, _B, "AL64II"},   {AL64III, _B, "AL64III"}, {AL64III, _QF, "AL64III_QF"},
    {AL64IV, _B, "AL64IV"},   {LUM61, _B, "LUM61"},    {LUM66, _B, "LUM66"},   {LUM67, _B, "LUM67"},
    {TOR77, _B, "TOR77"},     {TOR77II, _B, "TOR77II"},
};

inline void use_model(const ArmModel& m)
{
    libalgo_init();
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(m.type, m.sensor), 0) << m.name;
}

using Joints = std::array<float, LIBALGO_MAX_JOINTS>;

// Uniform within the model's joint limits; entries beyond dof zero.
inline Joints random_joints(algo_test::Rng& rng)
{
    float lo[8], hi[8];
    libalgo_get_jointlim_min(lo);
    libalgo_get_jointlim_max(hi);
    Joints q{};
    for (int i = 0; i < libalgo_get_rbt_dof(); ++i) q[i] = rng.uniformf(lo[i], hi[i]);
    return q;
}

inline Coord random_coord(algo_test::Rng& rng, float reach = 0.3f)
{
    return Coord{rng.uniformf(-reach, reach), rng.uniformf(-reach, reach), rng.uniformf(-reach, reach),
                 rng.uniformf(-3.0f, 3.0f),   rng.uniformf(-1.5f, 1.5f),   rng.uniformf(-3.0f, 3.0f)};
}

// Random tool and work frames through the store's setters, and an installation with a
// translation too, written into the store directly (its setter takes angles only).
inline void randomize_frames(algo_test::Rng& rng)
{
    const Coord tool = random_coord(rng), work = random_coord(rng, 1.0f), install = random_coord(rng, 0.5f);
    libalgo_set_tool_cs_params(&tool);
    libalgo_set_work_cs_params(&work);
    Pose p{};
    p.position = Pos{install.x, install.y, install.z};
    p.euler = Euler{install.rx, install.ry, install.rz};
    robot.install_matrix = pose_euler_to_transformation_matrix(p);
}

/* -----------------------------------------------------------------------------
 * Double-precision transforms
 * -------------------------------------------------------------------------- */

struct T4 {
    double m[4][4];
};

inline T4 identity()
{
    T4 t{};
    for (int i = 0; i < 4; ++i) t.m[i][i] = 1.0;
    return t;
}

inline T4 mul(const T4& a, const T4& b)
{
    T4 r{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 4; ++k) r.m[i][j] += a.m[i][k] * b.m[k][j];
    return r;
}

inline T4 from_matrix(const Matrix& a)
{
    T4 t{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) t.m[i][j] = a.data[i][j];
    return t;
}

// Rotation about x, then a translation: the factors of the link definitions.
inline T4 rot_x(double a)
{
    T4 t = identity();
    t.m[1][1] = std::cos(a), t.m[1][2] = -std::sin(a), t.m[2][1] = std::sin(a), t.m[2][2] = std::cos(a);
    return t;
}
inline T4 rot_z(double a)
{
    T4 t = identity();
    t.m[0][0] = std::cos(a), t.m[0][1] = -std::sin(a), t.m[1][0] = std::sin(a), t.m[1][1] = std::cos(a);
    return t;
}
inline T4 trans(double x, double y, double z)
{
    T4 t = identity();
    t.m[0][3] = x, t.m[1][3] = y, t.m[2][3] = z;
    return t;
}

// Modified: Rx(alpha) Tx(a) Rz(theta) Tz(d). Standard: Rz(theta) Tz(d) Tx(a) Rx(alpha).
inline T4 link_modified(double alpha, double a, double theta, double d)
{
    return mul(mul(rot_x(alpha), trans(a, 0, 0)), mul(rot_z(theta), trans(0, 0, d)));
}
inline T4 link_standard(double alpha, double a, double theta, double d)
{
    return mul(mul(rot_z(theta), trans(0, 0, d)), mul(trans(a, 0, 0), rot_x(alpha)));
}

// The model's chain at machine angles q (offset added), in double.
inline T4 reference_chain(const double* q)
{
    const DH dh = libalgo_get_dh_value();
    const bool standard = libalgo_get_robot_type() == AX71;
    T4 t = identity();
    for (int i = 0; i < libalgo_get_rbt_dof(); ++i) {
        const double theta = q[i] + static_cast<double>(dh.offset[i]);
        t = mul(t, standard ? link_standard(dh.alpha[i], dh.a[i], theta, dh.d[i])
                            : link_modified(dh.alpha[i], dh.a[i], theta, dh.d[i]));
    }
    return t;
}

inline T4 reference_chain(const Joints& q)
{
    double qd[8];
    for (int i = 0; i < 8; ++i) qd[i] = q[i];
    return reference_chain(qd);
}

// Largest entry difference over rows x cols.
template <class A, class B>
double max_entry_diff(const A& a, const B& b, int rows, int cols)
{
    double d = 0.0;
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) d = std::fmax(d, std::fabs(static_cast<double>(a.data[i][j]) - b.m[i][j]));
    return d;
}

inline double max_entry_diff(const Matrix& a, const Matrix& b, int rows = 4, int cols = 4)
{
    double d = 0.0;
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j)
            d = std::fmax(d, std::fabs(static_cast<double>(a.data[i][j]) - static_cast<double>(b.data[i][j])));
    return d;
}

/* -----------------------------------------------------------------------------
 * Jacobians by central differences of the double chain
 * -------------------------------------------------------------------------- */

enum class EndFrame { kFlange, kTool, kWork };

// The end transform for the Jacobian, in double.
inline T4 end_transform(const double* q, EndFrame end)
{
    const T4 chain = kin_test::reference_chain(q);
    if (end == EndFrame::kFlange) return chain;
    const T4 tool = kin_test::mul(chain, kin_test::from_matrix(libalgo_get_tool_cs_matrix()));
    if (end == EndFrame::kTool) return tool;
    return kin_test::mul(kin_test::mul(kin_test::from_matrix(libalgo_get_work_cs_to_base_matrix()),
                                       kin_test::from_matrix(libalgo_get_robot_install_angle_matrix())),
                         tool);
}

// Column j of the Jacobian by central differences: the velocity of the end origin and
// the angular velocity, both in the end frame (kFlange, kTool) or in the frame the end is
// given in (kWork).
inline void fd_column(const Joints& q, int j, EndFrame end, double out[6])
{
    constexpr double h = 1e-6;
    double qp[8], qm[8];
    for (int i = 0; i < 8; ++i) qp[i] = qm[i] = q[i];
    qp[j] += h;
    qm[j] -= h;
    const T4 tp = end_transform(qp, end), tm = end_transform(qm, end);
    double q0[8];
    for (int i = 0; i < 8; ++i) q0[i] = q[i];
    const T4 t = end_transform(q0, end);
    double dp[3], dr[3][3];
    for (int r = 0; r < 3; ++r) {
        dp[r] = (tp.m[r][3] - tm.m[r][3]) / (2 * h);
        for (int c = 0; c < 3; ++c) dr[r][c] = (tp.m[r][c] - tm.m[r][c]) / (2 * h);
    }
    // skew(w) = dR R^T in the outer frame; R^T dR in the end frame.
    double w[3][3] = {};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            for (int k = 0; k < 3; ++k)
                w[r][c] += end == EndFrame::kWork ? dr[r][k] * t.m[c][k] : t.m[k][r] * dr[k][c];
    for (int r = 0; r < 3; ++r) {
        out[r] = 0;
        if (end == EndFrame::kWork)
            out[r] = dp[r];
        else
            for (int k = 0; k < 3; ++k) out[r] += t.m[k][r] * dp[k];
    }
    out[3] = 0.5 * (w[2][1] - w[1][2]);
    out[4] = 0.5 * (w[0][2] - w[2][0]);
    out[5] = 0.5 * (w[1][0] - w[0][1]);
}

// Euler angles are ill-conditioned near ry = +-pi/2: single-precision angles extracted
// from a rotation carry an error of about the rounding of its entries over cos(ry). Within
// the gimbal band of the extraction (|R(2,0)| above 0.999999, cos(ry) below about 1.414e-3)
// rz is given up and the rotation is off by up to |rz| cos(ry), pi times that bound. The
// tolerance for a rotation rebuilt from such angles.
inline double euler_tol(const Euler& e, double base = 1e-5)
{
    constexpr double kBandCos = 1.5e-3, kRounding = 4e-7, kPi = 3.14159265358979323846;
    const double c = std::fabs(std::cos(static_cast<double>(e.ry)));
    return c < kBandCos ? base + kPi * kBandCos : base + kRounding / c;
}

// For RecordProperty: small magnitudes in scientific notation.
inline std::string sci(double v)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.3g", v);
    return text;
}

inline std::string joints_text(const Joints& q)
{
    std::string s = "q =";
    for (float v : q) s += " " + std::to_string(v);
    return s;
}

}  // namespace kin_test

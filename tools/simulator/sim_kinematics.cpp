#include "simulator/sim_kinematics.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace zk_sim {

namespace {

using Vec3 = std::array<double, 3>;
using Mat3 = std::array<std::array<double, 3>, 3>;

struct Transform {
    Mat3 r{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
    Vec3 p{};
};

constexpr double kDegree = std::numbers::pi / 180.0;

Mat3 multiply(const Mat3& a, const Mat3& b)
{
    Mat3 c{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) c[i][j] = a[i][0] * b[0][j] + a[i][1] * b[1][j] + a[i][2] * b[2][j];
    return c;
}

Mat3 transpose(const Mat3& a)
{
    Mat3 t{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) t[i][j] = a[j][i];
    return t;
}

Transform compose(const Transform& a, const Transform& b)
{
    Transform c;
    c.r = multiply(a.r, b.r);
    for (int i = 0; i < 3; ++i) c.p[i] = a.r[i][0] * b.p[0] + a.r[i][1] * b.p[1] + a.r[i][2] * b.p[2] + a.p[i];
    return c;
}

Mat3 rot_x(double t)
{
    const double c = std::cos(t), s = std::sin(t);
    return {{{1, 0, 0}, {0, c, -s}, {0, s, c}}};
}
Mat3 rot_y(double t)
{
    const double c = std::cos(t), s = std::sin(t);
    return {{{c, 0, s}, {0, 1, 0}, {-s, 0, c}}};
}
Mat3 rot_z(double t)
{
    const double c = std::cos(t), s = std::sin(t);
    return {{{c, -s, 0}, {s, c, 0}, {0, 0, 1}}};
}

// One link: standard DH is Rz(theta) Tz(d) Tx(a) Rx(alpha); modified DH is
// Rx(alpha) Tx(a) Rz(theta) Tz(d), with row i holding the twist and length before joint i.
Transform link(const DhTable& dh, int i, double theta)
{
    Transform t;
    if (dh.standard) {
        t.r = multiply(rot_z(theta), rot_x(dh.alpha[i]));
        t.p = {dh.a[i] * std::cos(theta), dh.a[i] * std::sin(theta), dh.d[i]};
    } else {
        const Mat3 twist = rot_x(dh.alpha[i]);
        t.r = multiply(twist, rot_z(theta));
        t.p = {dh.a[i], -std::sin(dh.alpha[i]) * dh.d[i], std::cos(dh.alpha[i]) * dh.d[i]};
    }
    return t;
}

Transform flange(const SimModel& model, const Joints& joints)
{
    Transform t;
    for (int i = 0; i < model.dof; ++i) t = compose(t, link(model.dh, i, joints[i] * kDegree + model.dh.offset[i]));
    return t;
}

Mat3 rotation_of(const Vec3& euler) { return multiply(rot_z(euler[2]), multiply(rot_y(euler[1]), rot_x(euler[0]))); }

Vec3 euler_of(const Mat3& r)
{
    return {std::atan2(r[2][1], r[2][2]), std::atan2(-r[2][0], std::hypot(r[0][0], r[1][0])),
            std::atan2(r[1][0], r[0][0])};
}

std::array<double, 4> quaternion_of(const Mat3& r)
{
    // Largest-component branch keeps the square root away from zero.
    const double trace = r[0][0] + r[1][1] + r[2][2];
    std::array<double, 4> q{};
    if (trace > 0) {
        const double s = 2 * std::sqrt(trace + 1);
        q = {s / 4, (r[2][1] - r[1][2]) / s, (r[0][2] - r[2][0]) / s, (r[1][0] - r[0][1]) / s};
    } else if (r[0][0] > r[1][1] && r[0][0] > r[2][2]) {
        const double s = 2 * std::sqrt(1 + r[0][0] - r[1][1] - r[2][2]);
        q = {(r[2][1] - r[1][2]) / s, s / 4, (r[0][1] + r[1][0]) / s, (r[0][2] + r[2][0]) / s};
    } else if (r[1][1] > r[2][2]) {
        const double s = 2 * std::sqrt(1 + r[1][1] - r[0][0] - r[2][2]);
        q = {(r[0][2] - r[2][0]) / s, (r[0][1] + r[1][0]) / s, s / 4, (r[1][2] + r[2][1]) / s};
    } else {
        const double s = 2 * std::sqrt(1 + r[2][2] - r[0][0] - r[1][1]);
        q = {(r[1][0] - r[0][1]) / s, (r[0][2] + r[2][0]) / s, (r[1][2] + r[2][1]) / s, s / 4};
    }
    if (q[0] < 0)
        for (double& c : q) c = -c;
    return q;
}

// Rotation vector (axis times angle) of r, robust near 0 and pi through the quaternion.
Vec3 rotation_vector(const Mat3& r)
{
    const auto q = quaternion_of(r);
    const double sine = std::sqrt(q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    if (sine < 1e-12) return {2 * q[1], 2 * q[2], 2 * q[3]};
    const double scale = 2 * std::atan2(sine, q[0]) / sine;
    return {q[1] * scale, q[2] * scale, q[3] * scale};
}

using Error = std::array<double, 6>;

// What still separates `from` from `to`: position difference and rotation vector.
Error pose_error(const Transform& from, const Transform& to)
{
    const Vec3 turn = rotation_vector(multiply(to.r, transpose(from.r)));
    return {to.p[0] - from.p[0], to.p[1] - from.p[1], to.p[2] - from.p[2], turn[0], turn[1], turn[2]};
}

// Solves the 6x6 system a x = b by Gaussian elimination with partial pivoting.
bool solve6(std::array<std::array<double, 6>, 6> a, Error b, Error* x)
{
    for (int col = 0; col < 6; ++col) {
        int pivot = col;
        for (int row = col + 1; row < 6; ++row)
            if (std::fabs(a[row][col]) > std::fabs(a[pivot][col])) pivot = row;
        if (std::fabs(a[pivot][col]) < 1e-15) return false;
        std::swap(a[col], a[pivot]);
        std::swap(b[col], b[pivot]);
        for (int row = col + 1; row < 6; ++row) {
            const double factor = a[row][col] / a[col][col];
            for (int k = col; k < 6; ++k) a[row][k] -= factor * a[col][k];
            b[row] -= factor * b[col];
        }
    }
    for (int row = 5; row >= 0; --row) {
        double sum = b[row];
        for (int k = row + 1; k < 6; ++k) sum -= a[row][k] * (*x)[k];
        (*x)[row] = sum / a[row][row];
    }
    return true;
}

// Tolerances of the numeric inversion.
constexpr double kPositionTolerance = 1e-6;     // metres
constexpr double kOrientationTolerance = 1e-6;  // radians
constexpr double kJacobianStep = 1e-6;          // radians, finite-difference step
constexpr double kInitialDamping = 1e-2;  // damped least squares, keeps singular poses solvable
constexpr double kMinDamping = 1e-6;
constexpr double kMaxDamping = 1e3;
constexpr double kDampingFactor = 4;
constexpr double kOrientationWeight = 0.1;  // metres per radian when position and turn are added
constexpr double kMaxStepPerIteration = 0.2;    // radians, keeps the search near its seed
constexpr int kMaxIterations = 60;
// Further starting points tried for a far target; fixed, so that answers repeat.
constexpr int kRestarts = 64;
constexpr unsigned kRestartSeed = 20260115;
constexpr double kRestartRange = 0.9;  // share of each joint's range the starting points span

}  // namespace

SimPose sim_pose_of(const SimModel& model, const Joints& joints)
{
    const Transform t = flange(model, joints);
    return {t.p, euler_of(t.r)};
}

std::array<double, 4> sim_quaternion(const SimPose& pose) { return quaternion_of(rotation_of(pose.euler)); }

std::array<double, 3> sim_euler_of_quaternion(const std::array<double, 4>& quaternion)
{
    const double norm = std::sqrt(quaternion[0] * quaternion[0] + quaternion[1] * quaternion[1] +
                                  quaternion[2] * quaternion[2] + quaternion[3] * quaternion[3]);
    if (!(norm > 0)) return {0, 0, 0};
    const double w = quaternion[0] / norm, x = quaternion[1] / norm, y = quaternion[2] / norm, z = quaternion[3] / norm;
    const Mat3 r{{{1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y)},
                  {2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x)},
                  {2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)}}};
    return euler_of(r);
}

void sim_rotate_about_base(SimPose* pose, int axis, double angle)
{
    const Mat3 turn = axis == 0 ? rot_x(angle) : axis == 1 ? rot_y(angle) : rot_z(angle);
    pose->euler = euler_of(multiply(turn, rotation_of(pose->euler)));
}

bool sim_joints_near(const SimModel& model, const SimPose& target, const Joints& seed, Joints* joints)
{
    Transform goal;
    goal.r = rotation_of(target.euler);
    goal.p = target.position;
    const int n = model.dof;
    Joints q = seed;  // radians inside the search
    for (int i = 0; i < n; ++i) q[i] = std::clamp(seed[i], model.min_pos[i], model.max_pos[i]) * kDegree;
    auto transform_at = [&](const Joints& radians) {
        Joints degrees{};
        for (int i = 0; i < n; ++i) degrees[i] = radians[i] / kDegree;
        return flange(model, degrees);
    };
    auto size_of = [](const Error& e) {
        return std::hypot(e[0], e[1], e[2]) + kOrientationWeight * std::hypot(e[3], e[4], e[5]);
    };

    Transform now = transform_at(q);
    Error e = pose_error(now, goal);
    double damping = kInitialDamping;
    for (int iteration = 0; iteration < kMaxIterations; ++iteration) {
        if (std::hypot(e[0], e[1], e[2]) < kPositionTolerance && std::hypot(e[3], e[4], e[5]) < kOrientationTolerance) {
            for (int i = 0; i < n; ++i) (*joints)[i] = q[i] / kDegree;
            for (int i = n; i < kMaxJoints; ++i) (*joints)[i] = 0;
            return true;
        }
        // Finite-difference Jacobian, column j the pose change per radian of joint j.
        std::array<Error, kMaxJoints> jacobian{};
        for (int j = 0; j < n; ++j) {
            Joints nudged = q;
            nudged[j] += kJacobianStep;
            const Error d = pose_error(now, transform_at(nudged));
            for (int k = 0; k < 6; ++k) jacobian[j][k] = d[k] / kJacobianStep;
        }
        // Levenberg-Marquardt: dq = J^T (J J^T + damping^2 I)^-1 e, with the damping raised
        // after a step that made things worse and lowered after one that helped.
        std::array<std::array<double, 6>, 6> jjt{};
        for (int r = 0; r < 6; ++r)
            for (int c = 0; c < 6; ++c)
                for (int j = 0; j < n; ++j) jjt[r][c] += jacobian[j][r] * jacobian[j][c];
        for (;;) {
            auto damped = jjt;
            for (int r = 0; r < 6; ++r) damped[r][r] += damping * damping;
            Error y{};
            if (!solve6(damped, e, &y)) return false;
            double largest = 0;
            Joints step{};
            for (int j = 0; j < n; ++j) {
                for (int k = 0; k < 6; ++k) step[j] += jacobian[j][k] * y[k];
                largest = std::max(largest, std::fabs(step[j]));
            }
            const double scale = largest > kMaxStepPerIteration ? kMaxStepPerIteration / largest : 1.0;
            Joints next = q;
            for (int j = 0; j < n; ++j)
                next[j] = std::clamp(q[j] + step[j] * scale, model.min_pos[j] * kDegree, model.max_pos[j] * kDegree);
            const Transform moved = transform_at(next);
            const Error after = pose_error(moved, goal);
            if (size_of(after) < size_of(e)) {
                q = next;
                now = moved;
                e = after;
                damping = std::max(kMinDamping, damping / kDampingFactor);
                break;
            }
            damping *= kDampingFactor;
            if (damping > kMaxDamping) return false;  // stuck in a local minimum
        }
    }
    return false;
}

// No flange gets farther from the base than all its links laid end to end: a target beyond
// that is refused before any search.
static bool beyond_reach(const SimModel& model, const SimPose& target)
{
    double reach = 0;
    for (int i = 0; i < model.dof; ++i) reach += std::fabs(model.dh.a[i]) + std::fabs(model.dh.d[i]);
    return std::hypot(target.position[0], target.position[1], target.position[2]) > reach;
}

bool sim_joints_for_pose(const SimModel& model, const SimPose& target, const Joints& seed, Joints* joints)
{
    if (beyond_reach(model, target)) return false;
    if (sim_joints_near(model, target, seed, joints)) return true;
    std::mt19937 generator(kRestartSeed);
    Joints start{};  // all zero first: the arm's home
    for (int attempt = 0; attempt < kRestarts; ++attempt) {
        if (sim_joints_near(model, target, start, joints)) return true;
        for (int i = 0; i < model.dof; ++i) {
            std::uniform_real_distribution<double> within(model.min_pos[i] * kRestartRange, model.max_pos[i] * kRestartRange);
            start[i] = within(generator);
        }
    }
    return false;
}

}  // namespace zk_sim

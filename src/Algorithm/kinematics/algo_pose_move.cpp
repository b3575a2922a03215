// Kinematics: pose helpers behind the public zk_algo_* conveniences: conversions
// between a pose and a matrix, a change of frame, and relative moves of a pose along or
// about the axes of the work or tool frame. Positions in metres; the deltas of a move
// carry degrees for their rotation, the rest is radians.
#include "Algorithm/kinematics/algo_pose_move.h"

#include <cmath>

#include "Algorithm/kinematics/tarn_kinematic.h"
#include "Algorithm/math/tarn_mathfuncs.h"

using tarn::KinFrame;
using tarn::KinVec3;

namespace {

// Degrees to radians for the angle of a move: deg x pi, then / 180, in double, narrowed once.
float deg_to_rad(float degrees) { return static_cast<float>(degrees * tarn::kPi / 180.0); }

// The joints of a public call go through this factor (double), narrowed once; it is not
// pi / 180 to the last double bit, and the narrowed joint follows it.
constexpr double kJointDegToRad = 0.0174532925199433;

// The joint vector of a public call (degrees) in radians: the model's dof entries, the
// rest zero, so that a caller's shorter array is never read past its joints.
struct JointsRad {
    float q[LIBALGO_MAX_JOINTS];
};

JointsRad joints_to_rad(const float* q_deg)
{
    JointsRad r{};
    const int dof = tarn::clamp_dim(libalgo_get_rbt_dof(), LIBALGO_MAX_JOINTS);
    for (int i = 0; i < dof; ++i) r.q[i] = static_cast<float>(q_deg[i] * kJointDegToRad);
    return r;
}

// The offsets of a move: dx, dy, dz (m), then rx, ry, rz (deg).
enum DeltaIndex { kDx, kDy, kDz, kRx, kRy, kRz };
constexpr int kWorkFrame = 0;
constexpr int kToolFrame = 1;
constexpr int kAxes = 3;

Matrix translation(float x, float y, float z)
{
    Matrix d = unit_matrix(4);
    d.data[0][3] = x;
    d.data[1][3] = y;
    d.data[2][3] = z;
    return d;
}

// The pose with its quaternion rebuilt from its Euler angles.
Pose with_quat_from_euler(Pose p)
{
    p.quaternion = euler_to_quat(p.euler);
    return p;
}

/* -----------------------------------------------------------------------------
 * Rodrigues' rotation about an axis of a frame
 * -------------------------------------------------------------------------- */

// The axis that dir picks: the first entry that is 1 or -1. -1 when there is none.
int picked_axis(const int dir[3])
{
    if (!dir) return -1;
    for (int k = 0; k < kAxes; ++k)
        if (dir[k] == 1 || dir[k] == -1) return k;
    return -1;
}

// c I + (1 - c) u u^T + s [u]x for the unit axis u.
Matrix rodrigues(KinVec3 u, float angle)
{
    float s, c;
    ::sincosf(angle, &s, &c);
    const float v = 1.0f - c;
    Matrix r = zero_matrix(3, 3);
    r.data[0][0] = u.x * u.x * v + c;
    r.data[0][1] = u.x * u.y * v - u.z * s;
    r.data[0][2] = u.x * u.z * v + u.y * s;
    r.data[1][0] = u.x * u.y * v + u.z * s;
    r.data[1][1] = u.y * u.y * v + c;
    r.data[1][2] = u.y * u.z * v - u.x * s;
    r.data[2][0] = u.x * u.z * v - u.y * s;
    r.data[2][1] = u.y * u.z * v + u.x * s;
    r.data[2][2] = u.z * u.z * v + c;
    return r;
}

// Axis k of the frame, in the coordinates the frame is given in.
KinVec3 frame_axis(const Pose& frame, int k)
{
    const KinFrame f = tarn::kin_frame_of(pose_euler_to_transformation_matrix(frame));
    const KinVec3 axes[kAxes] = {f.c0, f.c1, f.c2};
    return axes[k];
}

enum class AxisSide { kFixed, kMoving };

// kFixed: the frame and the orientation share coordinates, R' = Rot(u) R.
// kMoving: the frame is given in the orientation's own frame, R' = R Rot(u).
void rotate_about_frame_axis(Euler* result, Euler euler, const int dir[3], float angle, const Pose& frame,
                             AxisSide side)
{
    if (!result) return;
    const int k = picked_axis(dir);
    if (k < 0) {
        *result = euler;
        return;
    }
    const Matrix rot = rodrigues(frame_axis(frame, k), angle);
    const Matrix r0 = euler_to_matrix(euler);
    *result = matrix_to_euler(side == AxisSide::kFixed ? matrix_m(rot, r0) : matrix_m(r0, rot));
}

}  // namespace

namespace tarn {

Pose pose_of_coord(const Coord& frame)
{
    Pose p{};
    p.position = Pos{frame.x, frame.y, frame.z};
    p.euler = Euler{frame.rx, frame.ry, frame.rz};
    return with_quat_from_euler(p);
}

}  // namespace tarn

void Rodrigues_rotate_simplify(Euler* result, Euler euler, const int dir[3], float angle, Pose frame)
{
    rotate_about_frame_axis(result, euler, dir, angle, frame, AxisSide::kFixed);
}

void Rodrigues_rotate_simplify_tool(Euler* result, Euler euler, const int dir[3], float angle, Pose frame)
{
    rotate_about_frame_axis(result, euler, dir, angle, frame, AxisSide::kMoving);
}

/* -----------------------------------------------------------------------------
 * Conversions and changes of frame
 * -------------------------------------------------------------------------- */

Matrix algo_euler_to_matrix(Euler e) { return euler_to_matrix(e); }

Matrix algo_pose_to_matrix(Pose p) { return pose_euler_to_transformation_matrix(p); }

Pose algo_matrix_to_pose(Matrix m) { return transformation_matrix_to_pose(m); }

Pose algo_base_to_workframe(Matrix work, Pose p)
{
    return transformation_matrix_to_pose(matrix_m(work, pose_euler_to_transformation_matrix(p)));
}

Pose algo_workframe_to_base(Matrix work, Pose p)
{
    // The general inverse: work need not be a rigid transform.
    return transformation_matrix_to_pose(matrix_m(matrix_inv(work), pose_euler_to_transformation_matrix(p)));
}

/* -----------------------------------------------------------------------------
 * Relative moves
 * -------------------------------------------------------------------------- */

Pose dPosMoveWork(Pose cur, const float* delta)
{
    if (!delta) return Pose{};
    Pose r{};
    r.position = Pos{cur.position.x + delta[kDx], cur.position.y + delta[kDy], cur.position.z + delta[kDz]};
    return r;
}

Pose dPosMoveTool(Pose cur, const float* delta)
{
    if (!delta) return Pose{};
    const Matrix x =
        matrix_m(pose_euler_to_transformation_matrix(cur), translation(delta[kDx], delta[kDy], delta[kDz]));
    const auto& m = x.data;
    Pose r{};
    r.position = Pos{m[0][3], m[1][3], m[2][3]};
    // Plain extraction, without the gimbal branch or the wrap of matrix_to_euler: at
    // ry = +-pi/2 rx and rz are whatever atan2 makes of the rounding.
    r.euler.rx = std::atan2(m[2][1], m[2][2]);
    r.euler.ry = std::atan2(-m[2][0], std::sqrt(m[2][1] * m[2][1] + m[2][2] * m[2][2]));
    r.euler.rz = std::atan2(m[1][0], m[0][0]);
    return with_quat_from_euler(r);
}

Pose dPosMove(Pose cur, const float* delta, int frame)
{
    if (frame == kWorkFrame) return dPosMoveWork(cur, delta);
    if (frame == kToolFrame) return dPosMoveTool(cur, delta);
    return Pose{};
}

Pose rotateMove(Pose cur, const float* delta, int frame)
{
    if (!delta) return Pose{};
    Pose r = cur;
    if (frame == kWorkFrame || frame == kToolFrame) {
        const Pose ref = tarn::pose_of_coord(frame == kWorkFrame ? libalgo_get_work_cs_params() : libalgo_get_tool_cs_params());
        const auto rotate = frame == kWorkFrame ? Rodrigues_rotate_simplify : Rodrigues_rotate_simplify_tool;
        constexpr int kUnitAxes[kAxes][kAxes] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
        const DeltaIndex angles[kAxes] = {kRx, kRy, kRz};
        for (int k = 0; k < kAxes; ++k) {
            const float angle = deg_to_rad(delta[angles[k]]);
            if (angle != 0.0f) rotate(&r.euler, r.euler, kUnitAxes[k], angle, ref);
        }
    }
    return with_quat_from_euler(r);
}

Pose algo_pose_move(Pose cur, const float* delta, int frame)
{
    if (!delta) return Pose{};
    Pose r = rotateMove(cur, delta, frame);
    r.position = dPosMove(cur, delta, frame).position;
    return r;
}

Pose algo_rotate_move(const float* q, int axis, float angle, Pose choose_axis)
{
    if (!q) return Pose{};
    const JointsRad joints = joints_to_rad(q);
    Pose p = forward_kinematics(joints.q);
    // axis 1, 2, 3 is x, y, z; anything else selects no axis and turns nothing.
    const int dir[kAxes] = {axis == 1, axis == 2, axis == 3};
    Rodrigues_rotate_simplify(&p.euler, p.euler, dir, deg_to_rad(angle), choose_axis);
    return with_quat_from_euler(p);
}

Pose algo_cartesian_tool(const float* q, float x, float y, float z)
{
    if (!q) return Pose{};
    const JointsRad joints = joints_to_rad(q);
    const Matrix tool = matrix_m(forward_kinematics_e(joints.q), libalgo_get_tool_cs_matrix());
    const Pose moved = transformation_matrix_to_pose(matrix_m(tool, translation(x, y, z)));
    return transformation_matrix_to_pose(
        matrix_m(libalgo_get_work_cs_to_base_matrix(), pose_euler_to_transformation_matrix(moved)));
}

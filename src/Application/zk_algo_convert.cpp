// Conversions between the host's records and units and the algorithm library's.
#include "Application/zk_algo_convert.h"

namespace zk_algo {

int model_joints()
{
    const int dof = libalgo_get_rbt_dof();
    return dof < 0 ? 0 : (dof > kMaxArmJoints ? kMaxArmJoints : dof);
}

JointsRad joints_to_rad(const float* degrees, int n, double factor)
{
    JointsRad r{};
    for (int i = 0; i < n && i < LIBALGO_MAX_JOINTS; ++i) r.q[i] = deg_to_rad(degrees[i], factor);
    return r;
}

void joints_to_deg(const float* radians, float* degrees, int n, double factor)
{
    for (int i = 0; i < n; ++i) degrees[i] = rad_to_deg(radians[i], factor);
}

Pose to_pose(const zk_pose_t& p)
{
    Pose r{};
    r.position = Pos{p.position.x, p.position.y, p.position.z};
    r.quaternion = to_quat(p.quaternion);
    r.euler = to_euler(p.euler);
    return r;
}

zk_pose_t to_zk_pose(const Pose& p)
{
    zk_pose_t r{};
    r.position = zk_position_t{p.position.x, p.position.y, p.position.z};
    r.quaternion = to_zk_quat(p.quaternion);
    r.euler = to_zk_euler(p.euler);
    return r;
}

Matrix to_matrix(const zk_matrix_t& m)
{
    Matrix r{};
    r.irow = m.irow;
    r.iline = m.iline;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) r.data[i][j] = m.data[i][j];
    return r;
}

zk_matrix_t to_zk_matrix(const Matrix& m)
{
    zk_matrix_t r{};
    r.irow = m.irow;
    r.iline = m.iline;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) r.data[i][j] = m.data[i][j];
    return r;
}

Euler to_euler(const zk_euler_t& e) { return Euler{e.rx, e.ry, e.rz}; }
zk_euler_t to_zk_euler(const Euler& e) { return zk_euler_t{e.rx, e.ry, e.rz}; }
Quat to_quat(const zk_quat_t& q) { return Quat{q.w, q.x, q.y, q.z}; }
zk_quat_t to_zk_quat(const Quat& q) { return zk_quat_t{q.w, q.x, q.y, q.z}; }

}  // namespace zk_algo

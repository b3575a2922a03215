/* Compiled as C99: proves the public headers are plain C and that the shared library
 * exports what they declare. */
#include <string.h>

#include "zk_api.h"
#include "libalgo.h"

/* One function of each algorithm header, called through the shared library. */
static int algorithm_exports_link(void)
{
    Matrix t = matrix_m(unit_matrix(4), rotz(0.5f));
    Mat a = mat_eye(7, 6), u, s, v;
    if (t.irow != 4 || mat_fast_svd(&a, &u, &s, &v) != 1) return 1;
    if (libalgo_set_robot_and_sensor_type(AX61, _B) != 0 || libalgo_get_rbt_dof() != 6) return 1;
    {
        const float q[8] = {0};
        Pose_and_matrix fk = forward_kinematics_for_unity(q);
        if (forward_kinematics_e(q).irow != 4 || fk.matrix.irow != 4) return 1;
        set_motion_mode(LIBALGO_MOTION_PLANNER);
        if (!(isCollision_self_tool(q) > 0.0f) || libalgo_get_current_condition() != 0) return 1;
        if (libalgo_set_tool_envelope(LIBALGO_TOOL_SPHERES, (ToolSphere){0.1f, 0, 0, 0}) != -1) return 1;
    }
    return 0;
}

/* The facade in degrees, through the shared library. */
static int facade_exports_link(void)
{
    const float q[7] = {0};
    zk_inverse_kinematics_params_t params;
    zk_tool_sphere_t sphere = {0.05f, {0, 0, 0.1f}};
    float q_out[7];
    zk_pose_t home;
    (void)sphere;
    memset(&params, 0, sizeof params);
    if (zk_algo_init_sys_data(ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E) != 0) return 1;
    home = zk_algo_forward_kinematics(0, q);
    params.q_pose.position = home.position;
    params.q_pose.quaternion.w = 1.0f; /* exactly unit */
    (void)zk_algo_inverse_kinematics(0, params, q_out);
    return zk_algo_version()[0] == '1' ? 0 : 1;
}

int main(void)
{
    zk_set_log_call_back(0, LOG_LEVEL_ERROR);
    return algorithm_exports_link() || facade_exports_link();
}

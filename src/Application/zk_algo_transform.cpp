// Algorithm facade: rotations, transforms and poses on the public records, the change
// between flange and tool, and relative moves. Metres and radians; only the joints and the
// rotations of a move carry degrees.
#include "Application/zk_algo_convert.h"
#include "Application/zk_handle.h"
#include "Application/zk_invoke_algo.h"
#include "Middleware/log.h"

using namespace zk_algo;

/* -----------------------------------------------------------------------------
 * Conversions: pure, no model, no lock
 * -------------------------------------------------------------------------- */

zk_quat_t zk_algo_euler2quaternion(zk_euler_t eu) { return to_zk_quat(euler_to_quat(to_euler(eu))); }
zk_euler_t zk_algo_quaternion2euler(zk_quat_t qua) { return to_zk_euler(quat_to_euler(to_quat(qua))); }
zk_matrix_t zk_algo_euler2matrix(zk_euler_t state) { return to_zk_matrix(algo_euler_to_matrix(to_euler(state))); }
zk_matrix_t zk_algo_pos2matrix(zk_pose_t state) { return to_zk_matrix(algo_pose_to_matrix(to_pose(state))); }
zk_pose_t zk_algo_matrix2pos(zk_matrix_t matrix) { return to_zk_pose(algo_matrix_to_pose(to_matrix(matrix))); }

zk_pose_t zk_algo_base2workframe(zk_matrix_t matrix, zk_pose_t state)
{
    return to_zk_pose(algo_base_to_workframe(to_matrix(matrix), to_pose(state)));
}

zk_pose_t zk_algo_workframe2base(zk_matrix_t matrix, zk_pose_t state)
{
    return to_zk_pose(algo_workframe_to_base(to_matrix(matrix), to_pose(state)));
}

/* -----------------------------------------------------------------------------
 * Flange and tool. Both poses are in the work frame W (a pose in the base frame); the way
 * goes through the base frame, and back into W by Tw = W^-1:
 *   tool   = Tw (W end Tt)
 *   flange = Tw ((W tool) Tt^-1)
 * -------------------------------------------------------------------------- */

namespace {

struct ToolAndWork {
    zk_pose_t tool;
    zk_pose_t work;
};

ToolAndWork library_frames()
{
    zk_frame_t tool{};
    zk_frame_t work{};
    invoke_libalgo_get_tool_cs_params(&tool);
    invoke_libalgo_get_work_cs_params(&work);
    return ToolAndWork{tool.pose, work.pose};
}

// The frames of a connected arm's mirror, or the library's for a null handle.
ToolAndWork frames_of(zk_robot_handle* handle)
{
    if (handle == nullptr) return library_frames();
    ZkTableReadGuard table(handle);
    const zk_handle_t* arm = table.get();
    if (arm == nullptr) {
        zk_log_warn("The robotic arm is not connected!");
        return library_frames();
    }
    return ToolAndWork{arm->tool_frame.pose, arm->work_frame.pose};
}

zk_matrix_t base_to_work(const ToolAndWork& frames)
{
    return to_zk_matrix(matrix_inv_coordinate_system(to_matrix(zk_algo_pos2matrix(frames.work))));
}

}  // namespace

zk_pose_t zk_algo_end2tool(zk_robot_handle* handle, zk_pose_t eu_end)
{
    ZkAlgoLock lock;
    zk_algo_arm_state_set(handle);
    const ToolAndWork frames = library_frames();
    const Matrix end = to_matrix(zk_algo_pos2matrix(eu_end));
    const Matrix tool = to_matrix(zk_algo_pos2matrix(frames.tool));
    const Matrix work = to_matrix(zk_algo_pos2matrix(frames.work));
    const zk_pose_t base_tool = zk_algo_matrix2pos(to_zk_matrix(matrix_m(matrix_m(work, end), tool)));
    return zk_algo_base2workframe(base_to_work(frames), base_tool);
}

zk_pose_t zk_algo_tool2end(zk_robot_handle* handle, zk_pose_t eu_tool)
{
    ZkAlgoLock lock;
    const ToolAndWork frames = frames_of(handle);
    const zk_matrix_t to_work = base_to_work(frames);
    const zk_pose_t base_tool = zk_algo_workframe2base(to_work, eu_tool);
    const Matrix tool_inv = matrix_inv(to_matrix(zk_algo_pos2matrix(frames.tool)));
    const Matrix base_flange = matrix_m(to_matrix(zk_algo_pos2matrix(base_tool)), tool_inv);
    return zk_algo_base2workframe(to_work, zk_algo_matrix2pos(to_zk_matrix(base_flange)));
}

/* -----------------------------------------------------------------------------
 * Relative moves
 * -------------------------------------------------------------------------- */

zk_pose_t zk_algo_pose_move(zk_robot_handle* handle, zk_pose_t poseCurrent, const float* deltaPosAndRot,
                            int frameMode)
{
    ZkAlgoLock lock;
    zk_algo_arm_state_set(handle);
    if (deltaPosAndRot == nullptr) return zk_pose_t{};
    return to_zk_pose(algo_pose_move(to_pose(poseCurrent), deltaPosAndRot, frameMode));
}

zk_pose_t zk_algo_rotate_move(zk_robot_handle* handle, const float* curr_joint, int rotate_axis, float rotate_angle,
                              zk_pose_t choose_axis)
{
    ZkAlgoLock lock;
    zk_algo_arm_state_set(handle);
    if (curr_joint == nullptr) return zk_pose_t{};
    return to_zk_pose(algo_rotate_move(curr_joint, rotate_axis, rotate_angle, to_pose(choose_axis)));
}

zk_pose_t zk_algo_cartesian_tool(zk_robot_handle* handle, const float* curr_joint, float move_lengthx,
                                 float move_lengthy, float move_lengthz)
{
    ZkAlgoLock lock;
    zk_algo_arm_state_set(handle);
    if (curr_joint == nullptr) return zk_pose_t{};
    return to_zk_pose(algo_cartesian_tool(curr_joint, move_lengthx, move_lengthy, move_lengthz));
}

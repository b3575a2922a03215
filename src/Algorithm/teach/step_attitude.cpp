// Teaching: one attitude step, the present tool pose turned about an axis of the work or
// tool frame. The jog generators call it with the joint vector of the cycle.
#include "Algorithm/kinematics/algo_pose_move.h"

namespace {

constexpr int kWorkFrame = 0;
// Axis numbers of a Cartesian jog: 0, 1, 2 are the translations x, y, z; 3, 4, 5 the
// rotations about x, y, z.
constexpr int kRotateX = 3;
constexpr int kRotateY = 4;
constexpr int kRotateZ = 5;

}  // namespace

void step_attitude(Pose* result, const float* q, int frame, int axis, float angle)
{
    if (!result) return;
    if (!q) {
        *result = Pose{};
        return;
    }
    Pose p = forward_kinematics(q);
    const int dir[3] = {axis == kRotateX, axis == kRotateY, axis == kRotateZ};
    if (frame == kWorkFrame)
        Rodrigues_rotate_simplify(&p.euler, p.euler, dir, angle, tarn::pose_of_coord(libalgo_get_work_cs_params()));
    else
        Rodrigues_rotate_simplify_tool(&p.euler, p.euler, dir, angle, tarn::pose_of_coord(libalgo_get_tool_cs_params()));
    p.quaternion = euler_to_quat(p.euler);
    *result = p;
}

// Pass-through motion: set points streamed at the host's own period, with no planning and
// no answer awaited. Each call only sends; the read lock is held for the send alone.
#include "Application/zk_exchange.h"
#include "Application/zk_wire_pose.h"
#include "Middleware/log.h"
#include "zk_motion.h"

namespace {

// -----------------------------------------------------------------------------------------
// Smoothing radius
// -----------------------------------------------------------------------------------------

struct RadioLimit {
    int trajectory_mode;
    int max_radio;
};

// Modes not listed here are the controller's business: the library knows no limit for them.
constexpr RadioLimit kRadioLimits[] = {{0, 0}, {1, 100}, {2, 1000}};

// Only a warning: the set point goes out with the value as given.
bool radio_out_of_range(int trajectory_mode, int radio)
{
    for (const RadioLimit& limit : kRadioLimits)
        if (limit.trajectory_mode == trajectory_mode) return radio > limit.max_radio;
    return false;
}

// -----------------------------------------------------------------------------------------
// Pose targets
// -----------------------------------------------------------------------------------------

// A quaternion whose sum of squares (single precision, compared in double) lies strictly
// between these is taken as a rotation and sent; otherwise the Euler angles are.
constexpr double kQuatNormSquaredLow = 0.99;
constexpr double kQuatNormSquaredHigh = 1.1;

struct PoseTarget {
    const char* key;
    int value[7];
    int count;
};

PoseTarget pose_target(const zk_pose_t& pose)
{
    const zk_quat_t& q = pose.quaternion;
    const float sum = q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z;
    const double norm_squared = sum;
    PoseTarget target{};
    if (norm_squared > kQuatNormSquaredLow && norm_squared < kQuatNormSquaredHigh) {
        const ZkWirePoseQuat wire = zk_wire_pose_quat(pose);
        target = {"pose_quat", {}, 7};
        for (int i = 0; i < 7; ++i) target.value[i] = wire.value[i];
    } else {
        const ZkWirePose wire = zk_wire_pose(pose);
        target = {"pose", {}, 6};
        for (int i = 0; i < 6; ++i) target.value[i] = wire.value[i];
    }
    return target;
}

JsonValue target_member(const PoseTarget& target) { return zk_json_array(target.key, target.value, target.count); }

// One-way: sent, nothing awaited, no pause.
template <size_t N>
int send_set_point(const char* caller, zk_robot_handle* handle, const JsonValue (&request)[N])
{
    return zk_pack_lock_set(caller, handle, request, N, nullptr, nullptr, 0, 0);
}

}  // namespace

// -----------------------------------------------------------------------------------------
// Smoothed set points
// -----------------------------------------------------------------------------------------

int zk_movej_canfd(zk_robot_handle* handle, zk_movej_canfd_mode_t config)
{
    static const char* const kCaller = "zk_movej_canfd";
    if (radio_out_of_range(config.trajectory_mode, config.radio))
        zk_log_warn("[%s] zk_movej_canfd_mode_t config warn, invaild radio: %d!\n", kCaller, config.radio);
    ZK_REQUIRE_ARG(kCaller, config.joint);
    int dof = 0;
    if (zk_check_arm_dof(kCaller, handle, &dof) != 0) return -1;
    const ZkWireJoints joint = zk_wire_joints(config.joint, dof);
    const JsonValue request[] = {zk_json_command("movej_canfd"),
                                 zk_json_array("joint", joint.value, joint.count),
                                 zk_json_bool("follow", config.follow),
                                 zk_json_int("expand", zk_wire_milli(config.expand)),
                                 zk_json_int("trajectory_mode", config.trajectory_mode),
                                 zk_json_int("radio", config.radio)};
    return send_set_point(kCaller, handle, request);
}

int zk_movep_canfd(zk_robot_handle* handle, zk_movep_canfd_mode_t config)
{
    static const char* const kCaller = "zk_movep_canfd";
    if (radio_out_of_range(config.trajectory_mode, config.radio))
        zk_log_warn("[%s] zk_movep_canfd_mode_t config warn, invaild radio: %d!\n", kCaller, config.radio);
    const PoseTarget target = pose_target(config.pose);
    const JsonValue request[] = {zk_json_command("movep_canfd"), zk_json_bool("follow", config.follow),
                                 target_member(target), zk_json_int("trajectory_mode", config.trajectory_mode),
                                 zk_json_int("radio", config.radio)};
    return send_set_point(kCaller, handle, request);
}

// -----------------------------------------------------------------------------------------
// Follow set points
// -----------------------------------------------------------------------------------------

int zk_movej_follow(zk_robot_handle* handle, const float* joint)
{
    static const char* const kCaller = "zk_movej_follow";
    ZK_REQUIRE_ARG(kCaller, joint);
    int dof = 0;
    if (zk_check_arm_dof(kCaller, handle, &dof) != 0) return -1;
    const ZkWireJoints wire = zk_wire_joints(joint, dof);
    const JsonValue request[] = {zk_json_command("movej_follow"), zk_json_array("joint", wire.value, wire.count)};
    return send_set_point(kCaller, handle, request);
}

int zk_movep_follow(zk_robot_handle* handle, zk_pose_t pose)
{
    static const char* const kCaller = "zk_movep_follow";
    const PoseTarget target = pose_target(pose);
    const JsonValue request[] = {zk_json_command("movep_follow"), target_member(target)};
    return send_set_point(kCaller, handle, request);
}

// Planned moves: joint, linear, spline, circular, and joint move to a pose. Each public
// function dispatches on `block` to a non-blocking form, which returns once the controller
// accepted the move, and a blocking form, which then waits for the end of the motion.
#include <cstring>
#include <string>

#include "Application/zk_exchange.h"
#include "Application/zk_motion_wait.h"
#include "Application/zk_receive.h"
#include "Application/zk_wire_pose.h"
#include "Middleware/MIO_JSON.h"
#include "Middleware/log.h"
#include "zk_motion.h"

namespace {

constexpr const char* kResultKey = "receive_state";
constexpr double kMovecRadiusScale = 1000.0;

struct MoveRow {
    const char* command;          // also the name of the controller's answer
    const char* caller;           // name in the move's log lines
    const char* exchange_caller;  // name in the lines of the first exchange
    ZkMotionWait wait;
};

using enum ZkWaitLoop;

constexpr MoveRow kMoveJ{"movej", "zk_movej", "zk_movej", {"zk_movej", ZK_JOINT_SPACE_PLANNING_E, kWatchFirst, true}};
constexpr MoveRow kMoveL{
    "movel", "zk_movel", "zk_movel", {"zk_movel", ZK_CARTESIAN_LINEAR_PLANNING_E, kWatchFirst, true}};
// The spline move logs its first exchange and a foreign device under the linear move's
// name, as the log of these moves has always read.
constexpr MoveRow kMoveS{
    "moves", "zk_moves", "zk_movel", {"zk_movel", ZK_SPLINE_CURVE_MOTION_PLANNING_E, kWatchFirst, true}};
constexpr MoveRow kMoveJP{
    "movej_p", "zk_movej_p", "zk_movej_p", {"zk_movej_p", ZK_JOINT_SPACE_PLANNING_E, kQueryFirst, true}};
constexpr MoveRow kMoveC{"movec", "zk_movec", "zk_movec", {"zk_movec", ZK_CARTESIAN_ARC_PLANNING_E, kWatchFirst, true}};

using MoveReply = char[kMoveReplyBufferSize];

// -----------------------------------------------------------------------------------------
// Sending a move and reading its answer
// -----------------------------------------------------------------------------------------

// Members of every planned move but the circle: "command", "v", target, "trajectory_connect", "r".
int send_move(const MoveRow& row, zk_robot_handle* handle, const JsonValue& target, int v, int r,
              int trajectory_connect, MoveReply& reply)
{
    const JsonValue request[] = {zk_json_command(row.command), zk_json_int("v", v), target,
                                 zk_json_int("trajectory_connect", trajectory_connect), zk_json_int("r", r)};
    std::memset(reply, 0, sizeof reply);
    return zk_pack_lock_set(row.exchange_caller, handle, request, std::size(request), row.command,
                            reinterpret_cast<uint8_t*>(reply), sizeof reply, m_nOutTime);
}

int send_pose_move(const MoveRow& row, zk_robot_handle* handle, const zk_pose_t& pose, int v, int r,
                   int trajectory_connect, MoveReply& reply)
{
    const ZkWirePose wire = zk_wire_pose(pose);
    return send_move(row, handle, zk_json_array("pose", wire.value, 6), v, r, trajectory_connect, reply);
}

// Joint moves need the arm's degrees of freedom; -6 or -1 when the move cannot be built.
int send_joint_move(const MoveRow& row, zk_robot_handle* handle, const float* joint, int v, int r,
                    int trajectory_connect, MoveReply& reply)
{
    ZK_REQUIRE_ARG(row.caller, joint);
    int dof = 0;
    if (zk_check_arm_dof(row.caller, handle, &dof) != 0) return -1;
    const ZkWireJoints wire = zk_wire_joints(joint, dof);
    return send_move(row, handle, zk_json_array("joint", wire.value, wire.count), v, r, trajectory_connect, reply);
}

// The circle goes out as one formatted object, sent whole, and its answer is awaited like an
// event. Members: "command", "pose" {"pose_via", "pose_to"}, "v", "r" x 1000, "loop",
// "trajectory_connect".
int send_movec(zk_robot_handle* handle, const zk_pose_t& pose_via, const zk_pose_t& pose_to, int v, int r, int loop,
               int trajectory_connect, MoveReply& reply)
{
    const auto pose_array = [](const zk_pose_t& pose) {
        const ZkWirePose wire = zk_wire_pose(pose);
        cJSON* array = MIO_JSON_CreateArray();
        for (int value : wire.value) MIO_JSON_AddItemToArray(array, MIO_JSON_CreateNumber(value));
        return array;
    };
    cJSON* frame = MIO_JSON_CreateObject();
    cJSON* poses = MIO_JSON_CreateObject();
    MIO_JSON_AddItemToObject(poses, "pose_via", pose_array(pose_via));
    MIO_JSON_AddItemToObject(poses, "pose_to", pose_array(pose_to));
    MIO_JSON_AddItemToObject(frame, "command", MIO_JSON_CreateString(kMoveC.command));
    MIO_JSON_AddItemToObject(frame, "pose", poses);
    MIO_JSON_AddItemToObject(frame, "v", MIO_JSON_CreateNumber(v));
    MIO_JSON_AddItemToObject(frame, "r", MIO_JSON_CreateNumber(zk_wire_truncate(r * kMovecRadiusScale)));
    MIO_JSON_AddItemToObject(frame, "loop", MIO_JSON_CreateNumber(loop));
    MIO_JSON_AddItemToObject(frame, "trajectory_connect", MIO_JSON_CreateNumber(trajectory_connect));
    char* text = MIO_JSON_Print(frame);
    MIO_JSON_Delete(frame);
    if (text == nullptr) return -1;
    std::string line(text);
    cJSON_free(text);
    line += "\r\n";
    {
        ZkTableReadGuard table(handle);
        zk_handle_t* found = table.get();
        if (found == nullptr) return -1;
        zk_log_debug("send is: %s\n", line.c_str());
        zk_socket_handle* socket = found->socket_handle;
        if (socket->send(socket, reinterpret_cast<uint8_t*>(line.data()), static_cast<int>(line.size())) != 0) {
            zk_log_error("[%s] %s send error\n", kMoveC.caller, kMoveC.command);
            return -1;
        }
    }
    std::memset(reply, 0, sizeof reply);
    return zk_pack_lock_set(kMoveC.caller, handle, nullptr, 0, kMoveC.command, reinterpret_cast<uint8_t*>(reply),
                            sizeof reply, m_nOutTime);
}

// -----------------------------------------------------------------------------------------
// After the answer
// -----------------------------------------------------------------------------------------

// A non-blocking move marks its end frame to be dropped, so that it can't pass for the end
// of a later blocking move.
int finish_nblock(const MoveRow& row, const MoveReply& reply, int length)
{
    if (length < 1) return length;
    const int accepted = parse_zk_set_command(row.caller, reply, kResultKey);
    if (accepted != 0) return accepted;
    event_listener.flag = kEventFlagDropTrajectoryEnd;
    return 0;
}

// A blocking move waits for its arrival, unless the next trajectory continues this one.
int finish_block(const MoveRow& row, zk_robot_handle* handle, const MoveReply& reply, int length,
                 int trajectory_connect, int block)
{
    if (length < 1) return length;
    const int accepted = parse_zk_set_command(row.caller, reply, kResultKey);
    if (trajectory_connect == 1 || accepted != 0) return accepted;
    return zk_motion_await_arrival(handle, row.wait, block, length);
}

// The two forms of the moves to a pose, which differ only in their row.
int pose_move_nblock(const MoveRow& row, zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect)
{
    MoveReply reply;
    const int length = send_pose_move(row, handle, pose, v, r, trajectory_connect, reply);
    return finish_nblock(row, reply, length);
}

int pose_move_block(const MoveRow& row, zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect,
                    int block)
{
    MoveReply reply;
    const int length = send_pose_move(row, handle, pose, v, r, trajectory_connect, reply);
    return finish_block(row, handle, reply, length, trajectory_connect, block);
}

}  // namespace

// -----------------------------------------------------------------------------------------
// Joint move
// -----------------------------------------------------------------------------------------

int zk_movej(zk_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect, int block)
{
    return block == 0 ? zk_movej_nblock(handle, joint, v, r, trajectory_connect)
                      : zk_movej_block(handle, joint, v, r, trajectory_connect, block);
}

int zk_movej_nblock(zk_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect)
{
    MoveReply reply;
    const int length = send_joint_move(kMoveJ, handle, joint, v, r, trajectory_connect, reply);
    return finish_nblock(kMoveJ, reply, length);
}

int zk_movej_block(zk_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect, int block)
{
    MoveReply reply;
    const int length = send_joint_move(kMoveJ, handle, joint, v, r, trajectory_connect, reply);
    return finish_block(kMoveJ, handle, reply, length, trajectory_connect, block);
}

// -----------------------------------------------------------------------------------------
// Linear move
// -----------------------------------------------------------------------------------------

int zk_movel(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect, int block)
{
    return block == 0 ? zk_movel_nblock(handle, pose, v, r, trajectory_connect)
                      : zk_movel_block(handle, pose, v, r, trajectory_connect, block);
}

int zk_movel_nblock(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect)
{
    return pose_move_nblock(kMoveL, handle, pose, v, r, trajectory_connect);
}

int zk_movel_block(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect, int block)
{
    return pose_move_block(kMoveL, handle, pose, v, r, trajectory_connect, block);
}

// -----------------------------------------------------------------------------------------
// Spline move
// -----------------------------------------------------------------------------------------

int zk_moves(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect, int block)
{
    return block == 0 ? zk_moves_nblock(handle, pose, v, r, trajectory_connect)
                      : zk_moves_block(handle, pose, v, r, trajectory_connect, block);
}

int zk_moves_nblock(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect)
{
    return pose_move_nblock(kMoveS, handle, pose, v, r, trajectory_connect);
}

int zk_moves_block(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect, int block)
{
    return pose_move_block(kMoveS, handle, pose, v, r, trajectory_connect, block);
}

// -----------------------------------------------------------------------------------------
// Joint move to a pose
// -----------------------------------------------------------------------------------------

int zk_movej_p(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect, int block)
{
    return block == 0 ? zk_movej_p_nblock(handle, pose, v, r, trajectory_connect)
                      : zk_movej_p_block(handle, pose, v, r, trajectory_connect, block);
}

int zk_movej_p_nblock(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect)
{
    return pose_move_nblock(kMoveJP, handle, pose, v, r, trajectory_connect);
}

int zk_movej_p_block(zk_robot_handle* handle, zk_pose_t pose, int v, int r, int trajectory_connect, int block)
{
    return pose_move_block(kMoveJP, handle, pose, v, r, trajectory_connect, block);
}

// -----------------------------------------------------------------------------------------
// Circular move
// -----------------------------------------------------------------------------------------

int zk_movec(zk_robot_handle* handle, zk_pose_t pose_via, zk_pose_t pose_to, int v, int r, int loop,
             int trajectory_connect, int block)
{
    if (trajectory_connect != 0 && trajectory_connect != 1) {
        zk_log_error("[%s] trajectory_connect check err! \n", kMoveC.caller);
        return -6;
    }
    return block == 0 ? zk_movec_nblock(handle, pose_via, pose_to, v, r, loop, trajectory_connect)
                      : zk_movec_block(handle, pose_via, pose_to, v, r, loop, trajectory_connect, block);
}

int zk_movec_nblock(zk_robot_handle* handle, zk_pose_t pose_via, zk_pose_t pose_to, int v, int r, int loop,
                    int trajectory_connect)
{
    MoveReply reply;
    const int length = send_movec(handle, pose_via, pose_to, v, r, loop, trajectory_connect, reply);
    return finish_nblock(kMoveC, reply, length);
}

int zk_movec_block(zk_robot_handle* handle, zk_pose_t pose_via, zk_pose_t pose_to, int v, int r, int loop,
                   int trajectory_connect, int block)
{
    MoveReply reply;
    const int length = send_movec(handle, pose_via, pose_to, v, r, loop, trajectory_connect, reply);
    return finish_block(kMoveC, handle, reply, length, trajectory_connect, block);
}

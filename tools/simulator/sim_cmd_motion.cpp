// Motion commands: planned moves and their trajectory query, stops, steps, teach and
// pass-through. A move is answered at once ("receive_state"); its end is told later by a
// "current_trajectory_state" frame to the connection that sent it.
#include <cmath>
#include <cstring>

#include "simulator/sim_commands.h"

namespace zk_sim {

namespace {

// -----------------------------------------------------------------------------------------
// Reading targets
// -----------------------------------------------------------------------------------------

bool read_joints(const SimRequest& request, const char* key, Joints* joints)
{
    const int dof = request.controller.model.dof;
    double wire[kMaxJoints];
    if (!sim_read_numbers(request.frame, key, wire, dof)) return false;
    *joints = Joints{};
    for (int i = 0; i < dof; ++i) (*joints)[i] = wire[i] / kMilli;
    return true;
}

// Joints reaching a pose, searched from where the arm will stand once its queue has run.
bool joints_for(const SimRequest& request, const SimPose& pose, Joints* joints)
{
    return sim_joints_for_pose(request.controller.model, pose, request.controller.arm.planned_end(), joints);
}

// Speed and chaining members shared by every move; a missing "trajectory_connect" is a
// plain move. Only 0 and 1 mean anything.
bool read_move_members(const SimRequest& request, MoveRequest* move)
{
    if (!sim_read_int(request.frame, "v", &move->v) || move->v < 1 || move->v > 100) return false;
    move->trajectory_connect = 0;
    if (cJSON_GetObjectItemCaseSensitive(request.frame, "trajectory_connect") != nullptr &&
        !sim_read_int(request.frame, "trajectory_connect", &move->trajectory_connect))
        return false;
    if (move->trajectory_connect != 0 && move->trajectory_connect != 1) return false;
    move->owner = request.connection;
    return true;
}

void answer_move(SimRequest& request, cJSON* reply, bool understood, const MoveRequest& move)
{
    const bool accepted = understood && request.controller.arm.plan(move);
    cJSON_AddBoolToObject(reply, "receive_state", accepted);
}

// -----------------------------------------------------------------------------------------
// Planned moves
// -----------------------------------------------------------------------------------------

void movej(SimRequest& request, cJSON* reply)
{
    MoveRequest move;
    move.kind = MotionKind::joint;
    const bool understood = read_move_members(request, &move) && read_joints(request, "joint", &move.target);
    answer_move(request, reply, understood, move);
}

// movel, moves and movej_p: a pose target reached through the joints.
void pose_move(SimRequest& request, cJSON* reply, MotionKind kind)
{
    MoveRequest move;
    move.kind = kind;
    SimPose pose;
    const bool understood = read_move_members(request, &move) && sim_read_pose(request.frame, "pose", &pose) &&
                            joints_for(request, pose, &move.target);
    answer_move(request, reply, understood, move);
}

void movel(SimRequest& request, cJSON* reply) { pose_move(request, reply, MotionKind::linear); }
void moves(SimRequest& request, cJSON* reply) { pose_move(request, reply, MotionKind::spline); }
void movej_p(SimRequest& request, cJSON* reply) { pose_move(request, reply, MotionKind::joint); }

// The arc must pass a reachable via point; the arm then runs to the end point.
void movec(SimRequest& request, cJSON* reply)
{
    MoveRequest move;
    move.kind = MotionKind::arc;
    const cJSON* poses = cJSON_GetObjectItemCaseSensitive(request.frame, "pose");
    SimPose via, to;
    Joints via_joints;
    const bool understood = read_move_members(request, &move) && sim_read_pose(poses, "pose_via", &via) &&
                            sim_read_pose(poses, "pose_to", &to) && joints_for(request, via, &via_joints) &&
                            sim_joints_for_pose(request.controller.model, to, via_joints, &move.target);
    answer_move(request, reply, understood, move);
}

void get_arm_current_trajectory(SimRequest& request, cJSON* reply)
{
    const SimArm& arm = request.controller.arm;
    const MotionKind kind = arm.current_kind();
    cJSON_AddStringToObject(reply, "type", sim_motion_kind_text(kind));
    if (kind == MotionKind::linear || kind == MotionKind::arc || kind == MotionKind::spline)
        sim_add_pose(reply, "data", arm.pose());
    else
        sim_add_scaled(reply, "data", arm.joints(), request.controller.model.dof, kMilli);
}

// -----------------------------------------------------------------------------------------
// Stops: each answers true under its own key
// -----------------------------------------------------------------------------------------

void set_arm_stop(SimRequest& request, cJSON* reply)
{
    request.controller.arm.stop(request.ended);
    cJSON_AddBoolToObject(reply, "arm_stop", true);
}

void set_arm_slow_stop(SimRequest& request, cJSON* reply)
{
    request.controller.arm.slow_stop(request.ended);
    cJSON_AddBoolToObject(reply, "arm_slow_stop", true);
}

void set_arm_pause(SimRequest& request, cJSON* reply)
{
    request.controller.arm.pause();
    cJSON_AddBoolToObject(reply, "arm_pause", true);
}

void set_arm_continue(SimRequest& request, cJSON* reply)
{
    request.controller.arm.resume();
    cJSON_AddBoolToObject(reply, "arm_continue", true);
}

void set_delete_current_trajectory(SimRequest& request, cJSON* reply)
{
    request.controller.arm.delete_current(request.ended);
    cJSON_AddBoolToObject(reply, "delete_current_trajectory", true);
}

void set_arm_delete_trajectory(SimRequest& request, cJSON* reply)
{
    request.controller.arm.stop(request.ended);
    cJSON_AddBoolToObject(reply, "arm_delete_trajectory", true);
}

// -----------------------------------------------------------------------------------------
// Steps: relative moves, answered like planned moves
// -----------------------------------------------------------------------------------------

// "x_step" ... "rz_step", or "x" ... "rz" for teach: the base axis, or -1.
int axis_of(const std::string& text, const char* const (&names)[3])
{
    for (int axis = 0; axis < 3; ++axis)
        if (text == names[axis]) return axis;
    return -1;
}

constexpr const char* kPositionSteps[3] = {"x_step", "y_step", "z_step"};
constexpr const char* kRotationSteps[3] = {"rx_step", "ry_step", "rz_step"};

void set_joint_step(SimRequest& request, cJSON* reply)
{
    MoveRequest move;
    move.kind = MotionKind::joint;
    double step[2];
    bool understood = read_move_members(request, &move) && sim_read_numbers(request.frame, "joint_step", step, 2);
    const int joint = understood ? static_cast<int>(step[0]) - 1 : -1;
    understood = understood && joint >= 0 && joint < request.controller.model.dof;
    if (understood) {
        move.target = request.controller.arm.planned_end();
        move.target[joint] += step[1] / kMilli;
    }
    answer_move(request, reply, understood, move);
}

void cartesian_step(SimRequest& request, cJSON* reply, bool rotation)
{
    MoveRequest move;
    move.kind = MotionKind::linear;
    int step = 0;
    const int axis = axis_of(sim_read_text(request.frame, "step_type"), rotation ? kRotationSteps : kPositionSteps);
    bool understood = read_move_members(request, &move) && sim_read_int(request.frame, "step", &step) && axis >= 0;
    if (understood) {
        SimPose pose = sim_pose_of(request.controller.model, request.controller.arm.planned_end());
        if (rotation)
            sim_rotate_about_base(&pose, axis, step / kMilli);
        else
            pose.position[axis] += step / kMicro;
        understood = joints_for(request, pose, &move.target);
    }
    answer_move(request, reply, understood, move);
}

void set_pos_step(SimRequest& request, cJSON* reply) { cartesian_step(request, reply, false); }
void set_ort_step(SimRequest& request, cJSON* reply) { cartesian_step(request, reply, true); }

// -----------------------------------------------------------------------------------------
// Teach: jog until "set_stop_teach"
// -----------------------------------------------------------------------------------------

// "pos" is forward, "neg" backward; 0 for anything else.
int direction_of(const SimRequest& request)
{
    const std::string direction = sim_read_text(request.frame, "direction");
    return direction == "pos" ? 1 : direction == "neg" ? -1 : 0;
}

void set_joint_teach(SimRequest& request, cJSON* reply)
{
    int joint = 0, v = 0;
    const int direction = direction_of(request);
    const bool accepted = sim_read_int(request.frame, "teach_joint", &joint) &&
                          sim_read_int(request.frame, "v", &v) && direction != 0 &&
                          request.controller.arm.teach_joint(joint - 1, direction, v);
    cJSON_AddBoolToObject(reply, "joint_teach", accepted);
}

constexpr const char* kPositionTeach[3] = {"x", "y", "z"};
constexpr const char* kRotationTeach[3] = {"rx", "ry", "rz"};

void cartesian_teach(SimRequest& request, cJSON* reply, bool rotation)
{
    int v = 0;
    const int direction = direction_of(request);
    const int axis = axis_of(sim_read_text(request.frame, "teach_type"), rotation ? kRotationTeach : kPositionTeach);
    const bool accepted = sim_read_int(request.frame, "v", &v) && direction != 0 && axis >= 0 &&
                          request.controller.arm.teach_cartesian(rotation, axis, direction, v);
    cJSON_AddBoolToObject(reply, rotation ? "ort_teach" : "pos_teach", accepted);
}

void set_pos_teach(SimRequest& request, cJSON* reply) { cartesian_teach(request, reply, false); }
void set_ort_teach(SimRequest& request, cJSON* reply) { cartesian_teach(request, reply, true); }

void set_stop_teach(SimRequest& request, cJSON* reply)
{
    request.controller.arm.stop_teach();
    cJSON_AddBoolToObject(reply, "stop_teach", true);
}

void set_teach_frame(SimRequest& request, cJSON* reply)
{
    int frame_type = 0;
    const bool accepted = sim_read_int(request.frame, "frame_type", &frame_type);
    if (accepted) request.controller.teach_frame = frame_type;
    cJSON_AddBoolToObject(reply, "set_state", accepted);
}

void get_teach_frame(SimRequest& request, cJSON* reply)
{
    cJSON_AddNumberToObject(reply, "frame_type", request.controller.teach_frame);
}

// -----------------------------------------------------------------------------------------
// Pass-through: set points without a reply
// -----------------------------------------------------------------------------------------

void follow_joints(SimRequest& request, cJSON*)
{
    Joints target;
    if (read_joints(request, "joint", &target)) request.controller.arm.follow(target, false);
}

// A pose comes as "pose_quat" (position and quaternion, all times 1000000) or as "pose".
void follow_pose(SimRequest& request, cJSON*)
{
    SimPose pose;
    double quat_form[7];
    if (sim_read_numbers(request.frame, "pose_quat", quat_form, 7)) {
        for (int i = 0; i < 3; ++i) pose.position[i] = quat_form[i] / kMicro;
        pose.euler = sim_euler_of_quaternion(
            {quat_form[3] / kMicro, quat_form[4] / kMicro, quat_form[5] / kMicro, quat_form[6] / kMicro});
    } else if (!sim_read_pose(request.frame, "pose", &pose)) {
        return;
    }
    Joints target;
    SimArm& arm = request.controller.arm;
    if (sim_joints_for_pose(request.controller.model, pose, arm.joints(), &target)) arm.follow(target, true);
}

constexpr SimCommand kMotionCommands[] = {
    {"movej", "movej", movej},
    {"movel", "movel", movel},
    {"moves", "moves", moves},
    {"movej_p", "movej_p", movej_p},
    {"movec", "movec", movec},
    {"get_arm_current_trajectory", "arm_current_trajectory", get_arm_current_trajectory},
    {"set_arm_slow_stop", "set_arm_slow_stop", set_arm_slow_stop},
    {"set_arm_stop", "set_arm_stop", set_arm_stop},
    {"set_arm_pause", "set_arm_pause", set_arm_pause},
    {"set_arm_continue", "set_arm_continue", set_arm_continue},
    {"set_delete_current_trajectory", "set_delete_current_trajectory", set_delete_current_trajectory},
    {"set_arm_delete_trajectory", "set_arm_delete_trajectory", set_arm_delete_trajectory},
    {"set_joint_step", "set_joint_step", set_joint_step},
    {"set_pos_step", "set_pos_step", set_pos_step},
    {"set_ort_step", "set_ort_step", set_ort_step},
    {"set_joint_teach", "set_joint_teach", set_joint_teach},
    {"set_pos_teach", "set_pos_teach", set_pos_teach},
    {"set_ort_teach", "set_ort_teach", set_ort_teach},
    {"set_stop_teach", "set_stop_teach", set_stop_teach},
    {"set_teach_frame", "set_teach_frame", set_teach_frame},
    {"get_teach_frame", "get_teach_frame", get_teach_frame},
    {"movej_canfd", nullptr, follow_joints},
    {"movej_follow", nullptr, follow_joints},
    {"movep_canfd", nullptr, follow_pose},
    {"movep_follow", nullptr, follow_pose},
};

}  // namespace

std::span<const SimCommand> sim_motion_commands() { return kMotionCommands; }

}  // namespace zk_sim

// Relative steps of one joint, along one axis, or about one axis. The non-blocking form
// sends and lets the reply time-out pass without reading the answer; the blocking form reads
// the answer and waits for the end of the step.
#include <array>

#include "Application/zk_enum_text.h"
#include "Application/zk_exchange.h"
#include "Application/zk_motion_wait.h"
#include "Application/zk_wire.h"
#include "zk_motion.h"

namespace {

constexpr const char* kResultKey = "receive_state";

struct StepRow {
    const char* command;  // also the name of the controller's answer
    int reply_size;
    zk_arm_current_trajectory_e wanted;  // how the controller plans the step
};

constexpr StepRow kJointStep{"set_joint_step", kReplyBufferSize, ZK_JOINT_SPACE_PLANNING_E};
constexpr StepRow kPosStep{"set_pos_step", kMoveReplyBufferSize, ZK_CARTESIAN_LINEAR_PLANNING_E};
constexpr StepRow kOrtStep{"set_ort_step", kMoveReplyBufferSize, ZK_CARTESIAN_LINEAR_PLANNING_E};

// "step_type" of each direction; a type outside the enumeration leaves the member out.
const char* pos_step_type(zk_pos_teach_type_e type)
{
    static const char* const kTexts[] = {"x_step", "y_step", "z_step"};
    return zk_enum_text(kTexts, type);
}

const char* ort_step_type(zk_ort_teach_type_e type)
{
    static const char* const kTexts[] = {"rx_step", "ry_step", "rz_step"};
    return zk_enum_text(kTexts, type);
}

int step_nblock(const char* caller, zk_robot_handle* handle, const JsonValue* request, size_t count)
{
    return zk_pack_lock_set(caller, handle, request, count, nullptr, nullptr, 0, m_nOutTime);
}

int step_block(const StepRow& row, const char* caller, zk_robot_handle* handle, const JsonValue* request,
               size_t count, int block)
{
    char reply[kReplyBufferSize] = {};
    const int length = zk_pack_lock_set(caller, handle, request, count, row.command,
                                        reinterpret_cast<uint8_t*>(reply), row.reply_size, m_nOutTime);
    if (length < 1) return length;
    const int accepted = parse_zk_set_command(caller, reply, kResultKey);
    if (accepted != 0) return accepted;
    // A step is short: the queries follow each other without a pause while it runs.
    const ZkMotionWait wait{caller, row.wanted, ZkWaitLoop::kQueryFirst, false};
    return zk_motion_await_arrival(handle, wait, block, length);
}

// Members: "command"; "joint_step": joint number and step in degrees x 1000; "v".
struct JointStep {
    int joint_step[2];
    JsonValue request[3];
    JointStep(int joint_num, float step, int v)
        : joint_step{joint_num, zk_wire_milli(step)},
          request{zk_json_command(kJointStep.command), zk_json_array("joint_step", joint_step, 2), zk_json_int("v", v)}
    {
    }
    JointStep(const JointStep&) = delete;  // request points into joint_step
};

// Members of a Cartesian step: "command"; "v"; "step" already scaled; "step_type".
using AxisStep = std::array<JsonValue, 4>;

AxisStep axis_step(const StepRow& row, int v, int wire_step, const char* step_type)
{
    return {zk_json_command(row.command), zk_json_int("v", v), zk_json_int("step", wire_step),
            zk_json_str("step_type", step_type)};
}

}  // namespace

// -----------------------------------------------------------------------------------------
// One joint
// -----------------------------------------------------------------------------------------

int zk_set_joint_step(zk_robot_handle* handle, int joint_num, float step, int v, int block)
{
    return block == 0 ? zk_set_joint_step_nblock(handle, joint_num, step, v)
                      : zk_set_joint_step_block(handle, joint_num, step, v, block);
}

int zk_set_joint_step_nblock(zk_robot_handle* handle, int joint_num, float step, int v)
{
    const JointStep frame(joint_num, step, v);
    return step_nblock("zk_set_joint_step_nblock", handle, frame.request, std::size(frame.request));
}

int zk_set_joint_step_block(zk_robot_handle* handle, int joint_num, float step, int v, int block)
{
    const JointStep frame(joint_num, step, v);
    return step_block(kJointStep, "zk_set_joint_step_block", handle, frame.request, std::size(frame.request), block);
}

// -----------------------------------------------------------------------------------------
// Along one axis: "command"; "v"; "step" in metres x 1000000; "step_type"
// -----------------------------------------------------------------------------------------

int zk_set_pos_step(zk_robot_handle* handle, zk_pos_teach_type_e type, float step, int v, int block)
{
    return block == 0 ? zk_set_pos_step_nblock(handle, type, step, v)
                      : zk_set_pos_step_block(handle, type, step, v, block);
}

int zk_set_pos_step_nblock(zk_robot_handle* handle, zk_pos_teach_type_e type, float step, int v)
{
    const AxisStep request = axis_step(kPosStep, v, zk_wire_position(step), pos_step_type(type));
    return step_nblock("zk_set_pos_step_nblock", handle, request.data(), request.size());
}

int zk_set_pos_step_block(zk_robot_handle* handle, zk_pos_teach_type_e type, float step, int v, int block)
{
    const AxisStep request = axis_step(kPosStep, v, zk_wire_position(step), pos_step_type(type));
    return step_block(kPosStep, "zk_set_pos_step_block", handle, request.data(), request.size(), block);
}

// -----------------------------------------------------------------------------------------
// About one axis: "command"; "v"; "step" in radians x 1000; "step_type"
// -----------------------------------------------------------------------------------------

int zk_set_ort_step(zk_robot_handle* handle, zk_ort_teach_type_e type, float step, int v, int block)
{
    return block == 0 ? zk_set_ort_step_nblock(handle, type, step, v)
                      : zk_set_ort_step_block(handle, type, step, v, block);
}

int zk_set_ort_step_nblock(zk_robot_handle* handle, zk_ort_teach_type_e type, float step, int v)
{
    const AxisStep request = axis_step(kOrtStep, v, zk_wire_euler(step), ort_step_type(type));
    return step_nblock("zk_set_ort_step_nblock", handle, request.data(), request.size());
}

int zk_set_ort_step_block(zk_robot_handle* handle, zk_ort_teach_type_e type, float step, int v, int block)
{
    const AxisStep request = axis_step(kOrtStep, v, zk_wire_euler(step), ort_step_type(type));
    return step_block(kOrtStep, "zk_set_ort_step_block", handle, request.data(), request.size(), block);
}

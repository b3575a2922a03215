// Queries of the arm and the controller: software info, the limits, frames, install pose and
// DH table a new connection reads, and the joint and arm state, all answered from the
// simulated arm.
#include <chrono>

#include "simulator/sim_commands.h"
#include "simulator/sim_realtime.h"

namespace zk_sim {

namespace {

// Cartesian limits the controller reports: metres or radians per second (squared).
constexpr double kLineSpeed = kMaxLineSpeed;
constexpr double kLineAcc = 1.6;
constexpr double kAngularSpeed = kMaxAngularSpeed;
constexpr double kAngularAcc = 2.0;
// Joint speeds and accelerations travel in a unit six times coarser.
constexpr double kJointRateScale = kMilli / 6;

constexpr const char* kToolFrame = "Arm_Tip";
constexpr const char* kWorkFrame = "World";

constexpr int kJointFirmware = 1205;
constexpr int kToolFirmware = 1103;

int dof_of(const SimRequest& request) { return request.controller.model.dof; }

Joints filled(const SimRequest& request, double value)
{
    Joints values{};
    for (int i = 0; i < dof_of(request); ++i) values[i] = value;
    return values;
}

Joints joint_currents(const SimRequest& request)
{
    Joints currents{};
    for (int i = 0; i < dof_of(request); ++i) currents[i] = sim_joint_current(request.controller.arm.speeds()[i]);
    return currents;
}

SimPose zero_pose() { return SimPose{}; }

// -----------------------------------------------------------------------------------------
// What a new connection reads
// -----------------------------------------------------------------------------------------

void get_arm_software_info(SimRequest& request, cJSON* reply)
{
    cJSON_AddStringToObject(reply, "Product_version", request.controller.model.product.c_str());
    cJSON_AddItemToObject(reply, "algorithm_info", cJSON_CreateObject());
    cJSON_AddStringToObject(cJSON_GetObjectItem(reply, "algorithm_info"), "version", "sim-1.0.7");
    cJSON* ctrl = cJSON_AddObjectToObject(reply, "ctrl_info");
    cJSON_AddStringToObject(ctrl, "version", "1.0.7");
    cJSON_AddStringToObject(ctrl, "build_time", "2026-01-15 09:30:00");
    cJSON* dynamic = cJSON_AddObjectToObject(reply, "dynamic_info");
    cJSON_AddStringToObject(dynamic, "model_version", "1");
}

void joint_limit(SimRequest& request, cJSON* reply, const char* key, const Joints& values, double scale)
{
    sim_add_scaled(reply, key, values, dof_of(request), scale);
}

void get_joint_max_speed(SimRequest& r, cJSON* reply)
{
    joint_limit(r, reply, "joint_speed", r.controller.model.max_speed, kJointRateScale);
}
void get_joint_max_acc(SimRequest& r, cJSON* reply)
{
    joint_limit(r, reply, "joint_acc", r.controller.model.max_acc, kJointRateScale);
}
void get_joint_min_pos(SimRequest& r, cJSON* reply) { joint_limit(r, reply, "min_pos", r.controller.model.min_pos, kMilli); }
void get_joint_max_pos(SimRequest& r, cJSON* reply) { joint_limit(r, reply, "max_pos", r.controller.model.max_pos, kMilli); }

void get_current_tool_frame(SimRequest&, cJSON* reply)
{
    cJSON_AddStringToObject(reply, "tool_name", kToolFrame);
    sim_add_pose(reply, "pose", zero_pose());
    cJSON_AddNumberToObject(reply, "payload", 0);
    const int centre[3] = {0, 0, 0};
    sim_add_ints(reply, "position", centre, 3);
}

void get_current_work_frame(SimRequest&, cJSON* reply)
{
    cJSON_AddStringToObject(reply, "frame_name", kWorkFrame);
    sim_add_pose(reply, "pose", zero_pose());
}

void get_total_tool_frame(SimRequest&, cJSON* reply)
{
    const char* names[] = {kToolFrame};
    cJSON_AddItemToObject(reply, "tool_names", cJSON_CreateStringArray(names, 1));
}

void get_total_work_frame(SimRequest&, cJSON* reply)
{
    const char* names[] = {kWorkFrame};
    cJSON_AddItemToObject(reply, "frame_names", cJSON_CreateStringArray(names, 1));
}

// The arm stands upright on its base.
void get_install_pose(SimRequest&, cJSON* reply)
{
    const int pose[3] = {0, 0, 0};
    sim_add_ints(reply, "pose", pose, 3);
}

void get_DH_data(SimRequest& request, cJSON* reply)
{
    const DhTable& dh = request.controller.model.dh;
    static const char* const kKeys[kMaxJoints] = {"joint_1", "joint_2", "joint_3", "joint_4",
                                                  "joint_5", "joint_6", "joint_7"};
    for (int i = 0; i < dof_of(request); ++i) {
        const int row[4] = {sim_wire_int(dh.alpha[i] * kMilli), sim_wire_int(dh.a[i] * kMicro),
                            sim_wire_int(dh.d[i] * kMicro), sim_wire_int(dh.offset[i] * kMilli)};
        sim_add_ints(reply, kKeys[i], row, 4);
    }
}

// -----------------------------------------------------------------------------------------
// Other limits and settings
// -----------------------------------------------------------------------------------------

void get_joint_en_state(SimRequest& r, cJSON* reply) { joint_limit(r, reply, "en_state", filled(r, 1), 1); }

void get_joint_err_flag(SimRequest& r, cJSON* reply)
{
    joint_limit(r, reply, "err_flag", filled(r, 0), 1);
    joint_limit(r, reply, "brake_state", filled(r, 0), 1);
}

void get_collision_stage(SimRequest& r, cJSON* reply)
{
    cJSON_AddNumberToObject(reply, "collision_stage", r.controller.collision_stage);
}

void get_arm_max_line_speed(SimRequest&, cJSON* reply)
{
    cJSON_AddNumberToObject(reply, "arm_line_speed", sim_wire_int(kLineSpeed * kMilli));
}
void get_arm_max_line_acc(SimRequest&, cJSON* reply)
{
    cJSON_AddNumberToObject(reply, "arm_line_acc", sim_wire_int(kLineAcc * kMilli));
}
void get_arm_max_angular_speed(SimRequest&, cJSON* reply)
{
    cJSON_AddNumberToObject(reply, "arm_angular_speed", sim_wire_int(kAngularSpeed * kMilli));
}
void get_arm_max_angular_acc(SimRequest&, cJSON* reply)
{
    cJSON_AddNumberToObject(reply, "arm_angular_acc", sim_wire_int(kAngularAcc * kMilli));
}

void get_init_pose(SimRequest& r, cJSON* reply) { joint_limit(r, reply, "init_pose", r.controller.initial_joints, kMilli); }

void get_arm_run_mode(SimRequest& r, cJSON* reply) { cJSON_AddNumberToObject(reply, "mode", r.controller.run_mode); }

// -----------------------------------------------------------------------------------------
// Joint and arm state
// -----------------------------------------------------------------------------------------

void get_joint_degree(SimRequest& r, cJSON* reply) { joint_limit(r, reply, "joint", r.controller.arm.joints(), kMilli); }

void get_current_joint_temperature(SimRequest& r, cJSON* reply)
{
    joint_limit(r, reply, "joint_temperature", filled(r, kJointTemperature), kMilli);
}
void get_current_joint_current(SimRequest& r, cJSON* reply)
{
    joint_limit(r, reply, "joint_current", joint_currents(r), kMilli);
}
void get_current_joint_voltage(SimRequest& r, cJSON* reply)
{
    joint_limit(r, reply, "joint_voltage", filled(r, kJointVoltage), kMilli);
}
void get_joint_odom(SimRequest& r, cJSON* reply) { joint_limit(r, reply, "odom", r.controller.arm.odometer(), 1); }

// The error list always holds one entry: 0, no error.
void add_no_errors(cJSON* object)
{
    const int none[1] = {0};
    sim_add_ints(object, "err", none, 1);
}

void get_current_arm_state(SimRequest& r, cJSON* reply)
{
    cJSON* state = cJSON_AddObjectToObject(reply, "arm_state");
    add_no_errors(state);
    sim_add_scaled(state, "joint", r.controller.arm.joints(), dof_of(r), kMilli);
    sim_add_pose(state, "pose", r.controller.arm.pose());
}

void get_arm_all_state(SimRequest& r, cJSON* reply)
{
    cJSON* state = cJSON_AddObjectToObject(reply, "all_state");
    sim_add_scaled(state, "temperature", filled(r, kJointTemperature), dof_of(r), kMilli);
    sim_add_scaled(state, "current", joint_currents(r), dof_of(r), kMilli);
    sim_add_scaled(state, "voltage", filled(r, kJointVoltage), dof_of(r), kMilli);
    sim_add_scaled(state, "err_flag", filled(r, 0), dof_of(r), 1);
    sim_add_scaled(state, "en_flag", filled(r, 1), dof_of(r), 1);
    add_no_errors(state);
}

// Controller supply readings: volts, amperes, degrees Celsius.
constexpr double kControllerVoltage = 48.2;
constexpr double kControllerCurrent = 1.2;
constexpr double kControllerTemperature = 38.0;

void get_controller_state(SimRequest&, cJSON* reply)
{
    cJSON_AddNumberToObject(reply, "voltage", sim_wire_int(kControllerVoltage * kMilli));
    cJSON_AddNumberToObject(reply, "current", sim_wire_int(kControllerCurrent * kMilli));
    cJSON_AddNumberToObject(reply, "temperature", sim_wire_int(kControllerTemperature * kMilli));
    cJSON_AddNumberToObject(reply, "err_flag", 0);
}

void get_arm_power_state(SimRequest&, cJSON* reply) { cJSON_AddNumberToObject(reply, "power_state", 1); }

void get_system_runtime(SimRequest& r, cJSON* reply)
{
    using namespace std::chrono;
    long long seconds = duration_cast<std::chrono::seconds>(steady_clock::now() - r.controller.started).count();
    cJSON_AddNumberToObject(reply, "day", static_cast<double>(seconds / 86400));
    cJSON_AddNumberToObject(reply, "hour", static_cast<double>(seconds / 3600 % 24));
    cJSON_AddNumberToObject(reply, "min", static_cast<double>(seconds / 60 % 60));
    cJSON_AddNumberToObject(reply, "sec", static_cast<double>(seconds % 60));
}

void get_joint_software_version(SimRequest& r, cJSON* reply)
{
    joint_limit(r, reply, "version", filled(r, kJointFirmware), 1);
}

void get_tool_software_version(SimRequest&, cJSON* reply) { cJSON_AddNumberToObject(reply, "version", kToolFirmware); }

constexpr SimCommand kStateCommands[] = {
    {"get_arm_software_info", "arm_software_info", get_arm_software_info},
    {"get_joint_max_speed", "joint_max_speed", get_joint_max_speed},
    {"get_joint_max_acc", "joint_max_acc", get_joint_max_acc},
    {"get_joint_min_pos", "joint_min_pos", get_joint_min_pos},
    {"get_joint_max_pos", "joint_max_pos", get_joint_max_pos},
    {"get_joint_drive_max_speed", "get_joint_drive_max_speed", get_joint_max_speed},
    {"get_joint_drive_max_acc", "get_joint_drive_max_acc", get_joint_max_acc},
    {"get_joint_drive_min_pos", "get_joint_drive_min_pos", get_joint_min_pos},
    {"get_joint_drive_max_pos", "get_joint_drive_max_pos", get_joint_max_pos},
    {"get_joint_en_state", "joint_en_state", get_joint_en_state},
    {"get_joint_err_flag", "joint_err_flag", get_joint_err_flag},
    {"get_collision_stage", "get_collision_stage", get_collision_stage},
    {"get_arm_max_line_speed", "arm_max_line_speed", get_arm_max_line_speed},
    {"get_arm_max_line_acc", "arm_max_line_acc", get_arm_max_line_acc},
    {"get_arm_max_angular_speed", "arm_max_angular_speed", get_arm_max_angular_speed},
    {"get_arm_max_angular_acc", "arm_max_angular_acc", get_arm_max_angular_acc},
    {"get_init_pose", "arm_init_pose", get_init_pose},
    {"get_install_pose", "install_pose", get_install_pose},
    {"get_current_tool_frame", "current_tool_frame", get_current_tool_frame},
    {"get_current_work_frame", "current_work_frame", get_current_work_frame},
    {"get_total_tool_frame", "total_tool_frame", get_total_tool_frame},
    {"get_total_work_frame", "total_work_frame", get_total_work_frame},
    {"get_current_arm_state", "current_arm_state", get_current_arm_state},
    {"get_arm_all_state", "arm_all_state", get_arm_all_state},
    {"get_current_joint_temperature", "current_joint_temperature", get_current_joint_temperature},
    {"get_current_joint_current", "current_joint_current", get_current_joint_current},
    {"get_current_joint_voltage", "current_joint_voltage", get_current_joint_voltage},
    {"get_joint_degree", "joint_degree", get_joint_degree},
    {"get_joint_odom", "get_joint_odom", get_joint_odom},
    {"get_controller_state", "controller_state", get_controller_state},
    {"get_arm_power_state", "arm_power_state", get_arm_power_state},
    {"get_system_runtime", "get_system_runtime", get_system_runtime},
    {"get_joint_software_version", "joint_software_version", get_joint_software_version},
    {"get_tool_software_version", "tool_software_version", get_tool_software_version},
    {"get_DH_data", "get_DH_data", get_DH_data},
    {"get_arm_run_mode", "get_arm_run_mode", get_arm_run_mode},
};

}  // namespace

std::span<const SimCommand> sim_state_commands() { return kStateCommands; }

}  // namespace zk_sim

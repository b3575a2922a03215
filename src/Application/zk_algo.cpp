// Algorithm facade: the arm model and its parameters in the host's units, and the reload
// of a connected arm's mirrored values into the algorithm library.
#include <cstring>

#include "Application/zk_handle.h"
#include "Application/zk_invoke_algo.h"
#include "Middleware/log.h"

namespace {

constexpr const char* kAlgoVersion = "1.5.3-f0364d3b";

// The range and strategy of the seven-axis solvers for a sweep of the redundant parameter,
// and for tracking the reference.
constexpr float kTraversalRange = 3.14f;
constexpr int kTraversalStrategy = 0;
constexpr float kTrackingRange = 0.013f;
constexpr int kTrackingStrategy = 1;

}  // namespace

const char* zk_algo_version(void) { return kAlgoVersion; }

namespace {

// A host in C may pass any number as an enumeration; its bytes are read as an int, never as a
// value of the C++ enumeration, whose range may not hold it.
template <class Enum>
int enum_number(const Enum& value)
{
    static_assert(sizeof(Enum) == sizeof(int));
    int number = 0;
    std::memcpy(&number, &value, sizeof number);
    return number;
}

}  // namespace

int zk_algo_init_sys_data(zk_robot_arm_model_e Mode, zk_force_type_e Type)
{
    ZkAlgoLock lock;
    return invoke_libalgo_init_sys_data(enum_number(Mode), enum_number(Type));
}

void zk_algo_arm_state_set(zk_robot_handle* handle)
{
    if (handle == nullptr) return;  // the library's model is used as it stands
    ZkAlgoLock lock;
    ZkTableReadGuard table(handle);
    const zk_handle_t* arm = table.get();
    if (arm == nullptr) {
        zk_log_warn("The robotic arm is not connected!");
        return;
    }
    // The model first: it resets everything that follows to the model's defaults.
    zk_algo_init_sys_data(arm->arm_model, arm->force_type);
    zk_algo_set_angle(arm->install_angle[0], arm->install_angle[1], arm->install_angle[2]);
    zk_algo_set_toolframe(&arm->tool_frame);
    zk_algo_set_workframe(&arm->work_frame);
    zk_algo_set_joint_max_limit(arm->joint_max_limit);
    zk_algo_set_joint_min_limit(arm->joint_min_limit);
    zk_algo_set_joint_max_speed(arm->joint_max_speed);
    zk_algo_set_joint_max_acc(arm->joint_max_acc);
    zk_algo_set_dh(arm->dh);
}

void zk_algo_set_angle(float x, float y, float z)
{
    ZkAlgoLock lock;
    invoke_libalgo_set_robot_install_angle(x, y, z);
}

void zk_algo_get_angle(float* x, float* y, float* z)
{
    if (x == nullptr || y == nullptr || z == nullptr) return;
    ZkAlgoLock lock;
    invoke_libalgo_get_robot_install_angle(x, y, z);
}

/* -----------------------------------------------------------------------------
 * Frames
 * -------------------------------------------------------------------------- */

void zk_algo_set_workframe(const zk_frame_t* coord_work)
{
    if (coord_work == nullptr) return;
    ZkAlgoLock lock;
    invoke_libalgo_set_work_cs_params(*coord_work);
}

void zk_algo_get_curr_workframe(zk_frame_t* coord_work)
{
    if (coord_work == nullptr) return;
    ZkAlgoLock lock;
    invoke_libalgo_get_work_cs_params(coord_work);
}

void zk_algo_set_toolframe(const zk_frame_t* coord_tool)
{
    if (coord_tool == nullptr) return;
    ZkAlgoLock lock;
    invoke_libalgo_set_tool_cs_params(*coord_tool);
}

void zk_algo_get_curr_toolframe(zk_frame_t* coord_tool)
{
    if (coord_tool == nullptr) return;
    ZkAlgoLock lock;
    invoke_libalgo_get_tool_cs_params(coord_tool);
}

/* -----------------------------------------------------------------------------
 * Joint limits
 * -------------------------------------------------------------------------- */

namespace {

// Runs one joint-array conversion of the invoke_ layer on a non-null array, under the lock.
template <class Array>
void with_joints(void (*convert)(Array*), Array* values)
{
    if (values == nullptr) return;
    ZkAlgoLock lock;
    convert(values);
}

}  // namespace

void zk_algo_set_joint_max_limit(const float* joint_limit) { with_joints(invoke_libalgo_set_jointlim_max, joint_limit); }
void zk_algo_get_joint_max_limit(float* joint_limit) { with_joints(invoke_libalgo_get_jointlim_max, joint_limit); }
void zk_algo_set_joint_min_limit(const float* joint_limit) { with_joints(invoke_libalgo_set_jointlim_min, joint_limit); }
void zk_algo_get_joint_min_limit(float* joint_limit) { with_joints(invoke_libalgo_get_jointlim_min, joint_limit); }
void zk_algo_set_joint_max_speed(const float* joint_speed) { with_joints(invoke_libalgo_set_joint_vel_maxlim, joint_speed); }
void zk_algo_get_joint_max_speed(float* joint_speed) { with_joints(invoke_libalgo_get_joint_vel_maxlim, joint_speed); }
void zk_algo_set_joint_max_acc(const float* joint_acc) { with_joints(invoke_libalgo_set_joint_acc_maxlim, joint_acc); }
void zk_algo_get_joint_max_acc(float* joint_acc) { with_joints(invoke_libalgo_get_joint_acc_maxlim, joint_acc); }

/* -----------------------------------------------------------------------------
 * Seven-axis search, DH, tool envelope, singularity thresholds
 * -------------------------------------------------------------------------- */

void zk_algo_set_redundant_parameter_traversal_mode(bool mode)
{
    ZkAlgoLock lock;
    defaut_traversal_mode = false;
    ikine_set_solution_range_ax71(mode ? kTraversalRange : kTrackingRange);
    ikine_set_7dof_solver_search_strategy(mode ? kTraversalStrategy : kTrackingStrategy);
}

void zk_algo_set_dh(zk_dh_t dh)
{
    DH params{};  // no calibration compensation
    for (int i = 0; i < LIBALGO_MAX_JOINTS; ++i) {
        params.d[i] = dh.d[i];
        params.a[i] = dh.a[i];
        params.alpha[i] = dh.alpha[i];
        params.offset[i] = dh.offset[i];
    }
    ZkAlgoLock lock;
    invoke_libalgo_set_dh_params(params);
}

zk_dh_t zk_algo_get_dh(void)
{
    ZkAlgoLock lock;
    return invoke_libalgo_get_dh_value();
}

int zk_algo_set_tool_envelope(int toolSphere_i, zk_tool_sphere_t data)
{
    ZkAlgoLock lock;
    return invoke_libalgo_set_tool_envelope(toolSphere_i, data);
}

int zk_algo_get_tool_envelope(int toolSphere_i, zk_tool_sphere_t* data)
{
    if (data == nullptr) return -1;
    ZkAlgoLock lock;
    return invoke_libalgo_get_tool_envelope(toolSphere_i, data);
}

void zk_algo_kin_set_singularity_thresholds(float limit_qe, float limit_qw, float limit_d)
{
    ZkAlgoLock lock;
    invoke_kin_set_singularity_thresholds(limit_qe, limit_qw, limit_d);
}

void zk_algo_kin_get_singularity_thresholds(float* limit_qe, float* limit_qw, float* limit_d)
{
    ZkAlgoLock lock;
    invoke_kin_get_singularity_thresholds(limit_qe, limit_qw, limit_d);
}

void zk_algo_kin_singularity_thresholds_init(void)
{
    ZkAlgoLock lock;
    kin_singularity_thresholds_init();
}

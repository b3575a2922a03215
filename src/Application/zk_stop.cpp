// Stopping, pausing and clearing trajectories: bare commands in the set pattern, each
// answered by a frame of its own name.
#include "Application/zk_exchange.h"
#include "zk_motion.h"

namespace {

struct StopRow {
    const char* caller;
    const char* command;
    const char* result_key;
};

constexpr StopRow kSlowStop{"zk_set_arm_slow_stop", "set_arm_slow_stop", "arm_slow_stop"};
constexpr StopRow kStop{"zk_set_arm_stop", "set_arm_stop", "arm_stop"};
constexpr StopRow kPause{"zk_set_arm_pause", "set_arm_pause", "arm_pause"};
constexpr StopRow kContinue{"zk_set_arm_continue", "set_arm_continue", "arm_continue"};
constexpr StopRow kDeleteCurrent{"zk_set_delete_current_trajectory", "set_delete_current_trajectory",
                                 "delete_current_trajectory"};
constexpr StopRow kDeleteAll{"zk_set_arm_delete_trajectory", "set_arm_delete_trajectory", "arm_delete_trajectory"};

int stop_command(const StopRow& row, zk_robot_handle* handle)
{
    const JsonValue request[] = {zk_json_command(row.command)};
    return zk_exchange_set(row.caller, handle, request, row.command, row.result_key, m_nOutTime);
}

}  // namespace

int zk_set_arm_slow_stop(zk_robot_handle* handle) { return stop_command(kSlowStop, handle); }
int zk_set_arm_stop(zk_robot_handle* handle) { return stop_command(kStop, handle); }
int zk_set_arm_pause(zk_robot_handle* handle) { return stop_command(kPause, handle); }
int zk_set_arm_continue(zk_robot_handle* handle) { return stop_command(kContinue, handle); }
int zk_set_delete_current_trajectory(zk_robot_handle* handle) { return stop_command(kDeleteCurrent, handle); }
int zk_set_arm_delete_trajectory(zk_robot_handle* handle) { return stop_command(kDeleteAll, handle); }

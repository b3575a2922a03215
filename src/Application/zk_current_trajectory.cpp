// The query of what the controller is planning now; the blocking moves poll it while they
// wait for the end of their motion.
#include <cstring>

#include "Application/zk_exchange.h"
#include "Middleware/MIO_JSON.h"
#include "Middleware/log.h"
#include "zk_motion.h"

namespace {

constexpr const char* kCaller = "zk_get_arm_current_trajectory";
// The controller answers from its planner's state; a busy planner takes its time.
constexpr int kQueryTimeout = 1000;
constexpr int kCartesianValues = 6;  // x, y, z, rx, ry, rz
constexpr double kJointScale = 1000.0;
constexpr double kPositionScale = 1000000.0;
constexpr double kEulerScale = 1000.0;

struct TrajectoryKind {
    const char* wire;  // the reply's "type"
    zk_arm_current_trajectory_e kind;
    bool cartesian;     // data is a pose, else one angle per joint
    const char* label;  // as the log line names it
};

constexpr TrajectoryKind kKinds[] = {
    {"none", ZK_NO_PLANNING_E, false, "None"},
    {"movej", ZK_JOINT_SPACE_PLANNING_E, false, "MoveJ"},
    {"movel", ZK_CARTESIAN_LINEAR_PLANNING_E, true, "MoveL"},
    {"moves", ZK_SPLINE_CURVE_MOTION_PLANNING_E, true, "MoveS"},
    {"movec", ZK_CARTESIAN_ARC_PLANNING_E, true, "MoveC"},
    {"re_trajectory", ZK_TRAJECTORY_REPLAY_PLANNING_E, false, "Re_trajectory"},
};

const TrajectoryKind* find_kind(const char* wire)
{
    for (const TrajectoryKind& k : kKinds)
        if (std::strcmp(k.wire, wire) == 0) return &k;
    return nullptr;
}

// A value the array doesn't hold, or one that isn't a number, reads as -1 before scaling,
// as the JSON layer reads every integer array: the controller's array is taken as it comes.
float scaled(const cJSON* data, int index, double scale)
{
    return static_cast<float>(MIO_JSON_GetArrayItemInt(data, index) / scale);
}

// Reads the reply into type and data; 0, or -1 with the reason logged.
int parse_current_trajectory(const char* reply, int dof, zk_arm_current_trajectory_e* type, float* data)
{
    cJSON* root = MIO_JSON_Parse(reply);
    const cJSON* values = MIO_JSON_GetObjectItem(root, "data");
    const char* wire_type = MIO_JSON_GetObjectItemStr(root, "type");
    if (values == nullptr || wire_type == nullptr) {
        zk_log_error("[%s] Get arm current trajectory parse err\n", kCaller);
        MIO_JSON_Delete(root);
        return -1;
    }
    if (!cJSON_IsArray(values)) {
        zk_log_error("[%s] Data type parse err\n", kCaller);
        MIO_JSON_Delete(root);
        return -1;
    }
    const TrajectoryKind* kind = find_kind(wire_type);
    if (kind == nullptr) {
        zk_log_error("[%s] Unknown trajectory type: %s\n", kCaller, wire_type);
        MIO_JSON_Delete(root);
        return -1;
    }
    const int count = kind->cartesian ? kCartesianValues : dof;
    for (int i = 0; i < count; ++i) {
        const double scale = !kind->cartesian ? kJointScale : (i < 3 ? kPositionScale : kEulerScale);
        data[i] = scaled(values, i, scale);
    }
    *type = kind->kind;
    zk_log_info("[%s] Current trajectory is %s!\n", kCaller, kind->label);
    MIO_JSON_Delete(root);
    return 0;
}

}  // namespace

int zk_get_arm_current_trajectory(zk_robot_handle* handle, zk_arm_current_trajectory_e* type, float* data)
{
    ZK_REQUIRE_ARG(kCaller, type);
    ZK_REQUIRE_ARG(kCaller, data);
    const JsonValue request[] = {zk_json_command("get_arm_current_trajectory")};
    char reply[kReplyBufferSize];
    const int length =
        zk_exchange_get(kCaller, handle, request, 1, "arm_current_trajectory", reply, sizeof reply, kQueryTimeout);
    if (length < 1) return length;
    int dof = 0;
    if (zk_check_arm_dof(kCaller, handle, &dof) != 0) return -1;
    return parse_current_trajectory(reply, dof, type, data);
}

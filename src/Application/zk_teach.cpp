// Teach commands: the arm moves one joint, along one axis or about one axis for as long as
// the command holds, until the stop command; and the frame those motions are taught in.
#include "Application/zk_enum_text.h"
#include "Application/zk_exchange.h"
#include "zk_motion.h"

namespace {

const char* direction_text(int direction) { return direction != 0 ? "pos" : "neg"; }

// "teach_type" of each direction; a type outside the enumeration leaves the member out.
const char* pos_teach_type(zk_pos_teach_type_e type)
{
    static const char* const kTexts[] = {"x", "y", "z"};
    return zk_enum_text(kTexts, type);
}

const char* ort_teach_type(zk_ort_teach_type_e type)
{
    static const char* const kTexts[] = {"rx", "ry", "rz"};
    return zk_enum_text(kTexts, type);
}

// The set pattern, with every failed exchange (no reply in time included) reported as -1:
// a teach motion that may or may not have started is treated as not sent.
template <size_t N>
int teach_motion(const char* caller, zk_robot_handle* handle, const JsonValue (&request)[N], const char* result_key)
{
    const char* command = request[0].value.str_value;
    char reply[kReplyBufferSize];
    const int length = zk_exchange_get(caller, handle, request, N, command, reply, sizeof reply, m_nOutTime);
    if (length < 1) return -1;
    return parse_zk_set_command(caller, reply, result_key);
}

}  // namespace

// -----------------------------------------------------------------------------------------
// Teach motions
// -----------------------------------------------------------------------------------------

int zk_set_joint_teach(zk_robot_handle* handle, int joint_num, int direction, int v)
{
    const JsonValue request[] = {zk_json_command("set_joint_teach"), zk_json_int("teach_joint", joint_num),
                                 zk_json_int("v", v), zk_json_str("direction", direction_text(direction))};
    return teach_motion("zk_set_joint_teach", handle, request, "joint_teach");
}

int zk_set_pos_teach(zk_robot_handle* handle, zk_pos_teach_type_e type, int direction, int v)
{
    const JsonValue request[] = {zk_json_command("set_pos_teach"), zk_json_int("v", v),
                                 zk_json_str("direction", direction_text(direction)),
                                 zk_json_str("teach_type", pos_teach_type(type))};
    return teach_motion("zk_set_pos_teach", handle, request, "pos_teach");
}

int zk_set_ort_teach(zk_robot_handle* handle, zk_ort_teach_type_e type, int direction, int v)
{
    const JsonValue request[] = {zk_json_command("set_ort_teach"), zk_json_int("v", v),
                                 zk_json_str("direction", direction_text(direction)),
                                 zk_json_str("teach_type", ort_teach_type(type))};
    return teach_motion("zk_set_ort_teach", handle, request, "ort_teach");
}

// Unlike the motions, the stop tells a time-out (-2) from a failed send (-1), as the other
// stop commands do.
int zk_set_stop_teach(zk_robot_handle* handle)
{
    const JsonValue request[] = {zk_json_command("set_stop_teach")};
    return zk_exchange_set("zk_set_stop_teach", handle, request, "set_stop_teach", "stop_teach", m_nOutTime);
}

// -----------------------------------------------------------------------------------------
// Teach frame
// -----------------------------------------------------------------------------------------

int zk_set_teach_frame(zk_robot_handle* handle, int frame_type)
{
    const JsonValue request[] = {zk_json_command("set_teach_frame"), zk_json_int("frame_type", frame_type)};
    return zk_exchange_set("zk_set_teach_frame", handle, request, "set_teach_frame", "set_state", m_nOutTime);
}

int zk_get_teach_frame(zk_robot_handle* handle, int* frame_type)
{
    static const char* const kCaller = "zk_get_teach_frame";
    ZK_REQUIRE_ARG(kCaller, frame_type);
    const JsonValue request[] = {zk_json_command("get_teach_frame")};
    char reply[kReplyBufferSize];
    const int length = zk_exchange_get(kCaller, handle, request, 1, "get_teach_frame", reply, sizeof reply, m_nOutTime);
    if (length < 1) return length;
    KeyValue value = zk_expect(JSON_INT, "frame_type");
    if (common_json_parse(kCaller, reply, &value, 1) != 0) return length;  // the length tells a reply was seen
    *frame_type = value.value.int_value;
    return 0;
}

// The realtime state datagram: one JSON object per controller cycle, decoded into the flat
// record a host receives in its realtime callback.
//
// Every block of the datagram is a table of member rules; a rule names the wire key, says
// whether the block fails without it, and points at a reader that stores the member into
// its field. Arrays are copied at most up to their field's capacity: a controller that sends
// more elements than the record holds loses the surplus, never the neighbouring fields.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "Middleware/MIO_JSON.h"
#include "Middleware/json_reader.h"
#include "Middleware/log.h"
#include "zk_realtime.h"

namespace {

using State = zk_realtime_arm_joint_state_t;

// -----------------------------------------------------------------------------------------
// Wire scales: integers on the wire, converted to float before the single-precision division.
// -----------------------------------------------------------------------------------------

constexpr float kPerMille = 1000.0f;        // joint angles, currents, temperatures, voltages, forces
constexpr float kPerMillion = 1000000.0f;   // waypoint position and quaternion
constexpr int64_t kJointSpeedFactor = 6;    // joint speeds travel as 1000 * (v / 6)
constexpr double kCounterMax = 4294967295.0;  // largest tactile counter a uint32 field holds
// The controller's datagrams fit the listener's 2048-byte read.
constexpr size_t kDatagramTextCapacity = 2048;
// A thread keeps its reader's storage for texts up to this length; a host that hands in a
// longer text gets storage for that call only.
constexpr size_t kRetainedTextCapacity = 65536;

bool is(const JsonNode* node, JsonKind kind) { return node->kind == kind; }
bool is_bool(const JsonNode* node) { return is(node, JsonKind::kTrue) || is(node, JsonKind::kFalse); }

int wire_int(const JsonNode* element)
{
    return is(element, JsonKind::kNumber) ? MIO_JSON_NumberToInt(element->number) : 0;
}
int as_is(const JsonNode* element) { return wire_int(element); }
float per_mille(const JsonNode* element) { return static_cast<float>(wire_int(element)) / kPerMille; }
float joint_speed(const JsonNode* element)
{
    // Widened first: six times a large wire value does not fit an int.
    return static_cast<float>(wire_int(element) * kJointSpeedFactor) / kPerMille;
}
bool non_zero(const JsonNode* element) { return wire_int(element) != 0; }
uint16_t low_16_bits(const JsonNode* element) { return static_cast<uint16_t>(wire_int(element)); }
// Tactile counters are unsigned 32-bit; a value outside that range leaves its slot 0.
uint32_t counter(const JsonNode* element)
{
    const double value = is(element, JsonKind::kNumber) ? element->number : 0.0;
    return (value >= 0.0 && value <= kCounterMax) ? static_cast<uint32_t>(value) : 0u;
}

// -----------------------------------------------------------------------------------------
// Member rules
// -----------------------------------------------------------------------------------------

enum class Read {
    kDone,       // stored
    kWrongType,  // absent or not of the expected kind: fatal only for a required member
    kFailed,     // the member is there but unusable: the datagram fails
};

enum class Presence { kOptional, kRequired };

template <typename Record>
struct MemberRule {
    const char* key;
    Presence presence;
    Read (*read)(const JsonNode* item, Record& record);
};

// Reads a block's members in table order; the first required member that is missing or
// malformed ends the block, leaving what was read so far.
template <typename Record, size_t N>
Read read_members(const JsonNode* object, Record& record, const MemberRule<Record> (&rules)[N])
{
    if (!is(object, JsonKind::kObject)) return Read::kWrongType;
    for (const MemberRule<Record>& rule : rules) {
        const JsonNode* item = json_member(object, rule.key);
        const Read result = item != nullptr ? rule.read(item, record) : Read::kWrongType;
        if (result == Read::kFailed || (result == Read::kWrongType && rule.presence == Presence::kRequired))
            return Read::kFailed;
    }
    return Read::kDone;
}

template <typename>
struct member_of;
template <typename Record, typename Field>
struct member_of<Field Record::*> {
    using record = Record;
};
template <auto Field>
using record_of = typename member_of<decltype(Field)>::record;

// Copies as many elements as both the array and the field hold; returns the count copied.
template <typename Element, size_t N, typename Convert>
size_t copy_elements(const JsonNode* array, Element (&field)[N], Convert convert)
{
    size_t count = 0;
    for (const JsonNode* element = array->child; element != nullptr && count < N; element = element->next)
        field[count++] = convert(element);
    return count;
}

template <auto Field, auto Convert>
Read read_array(const JsonNode* item, record_of<Field>& record)
{
    if (!is(item, JsonKind::kArray)) return Read::kWrongType;
    copy_elements(item, record.*Field, Convert);
    return Read::kDone;
}

template <auto Field, auto Convert>
Read read_number(const JsonNode* item, record_of<Field>& record)
{
    if (!is(item, JsonKind::kNumber)) return Read::kWrongType;
    record.*Field = Convert(item);
    return Read::kDone;
}

template <auto Field>
Read read_flag(const JsonNode* item, record_of<Field>& record)
{
    if (!is_bool(item)) return Read::kWrongType;
    record.*Field = is(item, JsonKind::kTrue);
    return Read::kDone;
}

// Texts are cut to the field and always zero-terminated.
template <auto Field>
Read read_text(const JsonNode* item, record_of<Field>& record)
{
    if (!is(item, JsonKind::kString)) return Read::kWrongType;
    auto& field = record.*Field;
    constexpr size_t capacity = std::extent_v<std::remove_reference_t<decltype(field)>>;
    const size_t length = strnlen(item->text, capacity - 1);
    std::memcpy(field, item->text, length);
    field[length] = '\0';
    return Read::kDone;
}

// A pose component travels as an array of exactly its number of elements.
template <size_t N>
Read read_exact(const JsonNode* item, float* const (&targets)[N], float divisor)
{
    if (!is(item, JsonKind::kArray) || json_size(item) != static_cast<int>(N)) return Read::kWrongType;
    size_t index = 0;
    for (const JsonNode* element = item->child; element != nullptr; element = element->next)
        *targets[index++] = static_cast<float>(wire_int(element)) / divisor;
    return Read::kDone;
}

// -----------------------------------------------------------------------------------------
// Blocks of the datagram
// -----------------------------------------------------------------------------------------

using Joints = zk_joint_status_t;
constexpr MemberRule<Joints> kJointMembers[] = {
    {"joint_position", Presence::kOptional, read_array<&Joints::joint_position, per_mille>},
    {"joint_current", Presence::kOptional, read_array<&Joints::joint_current, per_mille>},
    {"joint_en_flag", Presence::kOptional, read_array<&Joints::joint_en_flag, non_zero>},
    {"joint_err_code", Presence::kOptional, read_array<&Joints::joint_err_code, low_16_bits>},
    {"joint_temperature", Presence::kOptional, read_array<&Joints::joint_temperature, per_mille>},
    {"joint_voltage", Presence::kOptional, read_array<&Joints::joint_voltage, per_mille>},
    {"joint_speed", Presence::kOptional, read_array<&Joints::joint_speed, joint_speed>},
};

using Force = zk_force_sensor_t;
constexpr MemberRule<Force> kForceSensorMembers[] = {
    {"force", Presence::kOptional, read_array<&Force::force, per_mille>},
    {"zero_force", Presence::kOptional, read_array<&Force::zero_force, per_mille>},
    {"coordinate", Presence::kOptional, read_number<&Force::coordinate, as_is>},
};

using Aloha = zk_udp_aloha_state_t;
constexpr MemberRule<Aloha> kAlohaMembers[] = {
    {"io1_state", Presence::kRequired, read_number<&Aloha::io1_state, as_is>},
    {"io2_state", Presence::kRequired, read_number<&Aloha::io2_state, as_is>},
};

using Hand = zk_udp_hand_state_t;
constexpr MemberRule<Hand> kHandMembers[] = {
    {"hand_pos", Presence::kRequired, read_array<&Hand::hand_pos, as_is>},
    {"hand_angle", Presence::kRequired, read_array<&Hand::hand_angle, as_is>},
    {"hand_force", Presence::kRequired, read_array<&Hand::hand_force, as_is>},
    {"hand_state", Presence::kRequired, read_array<&Hand::hand_state, as_is>},
    {"hand_err", Presence::kRequired, read_number<&Hand::hand_err, as_is>},
};

using Lift = zk_udp_lift_state_t;
constexpr MemberRule<Lift> kLiftMembers[] = {
    {"pos", Presence::kRequired, read_number<&Lift::pos, per_mille>},
    {"height", Presence::kRequired, read_number<&Lift::height, as_is>},
    {"current", Presence::kRequired, read_number<&Lift::current, as_is>},
    {"err_flag", Presence::kRequired, read_number<&Lift::err_flag, as_is>},
    {"en_flag", Presence::kRequired, read_number<&Lift::en_flag, as_is>},
};

using Expand = zk_udp_expand_state_t;
constexpr MemberRule<Expand> kExpandMembers[] = {
    {"joint_id", Presence::kRequired, read_number<&Expand::joint_id, as_is>},
    {"mode", Presence::kRequired, read_number<&Expand::mode, as_is>},
    {"pos", Presence::kRequired, read_number<&Expand::pos, per_mille>},
    {"current", Presence::kRequired, read_number<&Expand::current, as_is>},
    {"err_flag", Presence::kRequired, read_number<&Expand::err_flag, as_is>},
    {"en_flag", Presence::kRequired, read_number<&Expand::en_flag, as_is>},
};

Read read_quat(const JsonNode* item, zk_pose_t& pose)
{
    zk_quat_t& q = pose.quaternion;
    float* const targets[] = {&q.w, &q.x, &q.y, &q.z};
    return read_exact(item, targets, kPerMillion);
}
Read read_euler(const JsonNode* item, zk_pose_t& pose)
{
    float* const targets[] = {&pose.euler.rx, &pose.euler.ry, &pose.euler.rz};
    return read_exact(item, targets, kPerMille);
}
Read read_position(const JsonNode* item, zk_pose_t& pose)
{
    float* const targets[] = {&pose.position.x, &pose.position.y, &pose.position.z};
    return read_exact(item, targets, kPerMillion);
}

constexpr MemberRule<zk_pose_t> kWaypointMembers[] = {
    {"quat", Presence::kRequired, read_quat},
    {"euler", Presence::kRequired, read_euler},
    {"position", Presence::kRequired, read_position},
};

using PlusState = zk_plus_state_info_t;
constexpr MemberRule<PlusState> kPlusStateMembers[] = {
    {"angle", Presence::kOptional, read_array<&PlusState::angle, as_is>},
    {"current", Presence::kOptional, read_array<&PlusState::current, as_is>},
    {"dof_err", Presence::kOptional, read_array<&PlusState::dof_err, as_is>},
    {"dof_state", Presence::kOptional, read_array<&PlusState::dof_state, as_is>},
    {"normal_force", Presence::kOptional, read_array<&PlusState::normal_force, as_is>},
    {"pos", Presence::kOptional, read_array<&PlusState::pos, as_is>},
    {"speed", Presence::kOptional, read_array<&PlusState::speed, as_is>},
    {"tangential_force", Presence::kOptional, read_array<&PlusState::tangential_force, as_is>},
    {"tangential_force_dir", Presence::kOptional, read_array<&PlusState::tangential_force_dir, as_is>},
    {"touch_data", Presence::kOptional, read_array<&PlusState::touch_data, as_is>},
    {"force", Presence::kOptional, read_array<&PlusState::force, as_is>},
    {"sys_state", Presence::kOptional, read_number<&PlusState::sys_state, as_is>},
    {"tma", Presence::kOptional, read_array<&PlusState::tma, counter>},
    {"tsa", Presence::kOptional, read_array<&PlusState::tsa, counter>},
};

using PlusBase = zk_plus_base_info_t;
constexpr MemberRule<PlusBase> kPlusBaseMembers[] = {
    {"angle_low", Presence::kOptional, read_array<&PlusBase::angle_low, as_is>},
    {"angle_up", Presence::kOptional, read_array<&PlusBase::angle_up, as_is>},
    {"force_low", Presence::kOptional, read_array<&PlusBase::force_low, as_is>},
    {"force_up", Presence::kOptional, read_array<&PlusBase::force_up, as_is>},
    {"pos_low", Presence::kOptional, read_array<&PlusBase::pos_low, as_is>},
    {"pos_up", Presence::kOptional, read_array<&PlusBase::pos_up, as_is>},
    {"speed_low", Presence::kOptional, read_array<&PlusBase::speed_low, as_is>},
    {"speed_up", Presence::kOptional, read_array<&PlusBase::speed_up, as_is>},
    {"bee", Presence::kOptional, read_number<&PlusBase::bee, as_is>},
    {"check", Presence::kOptional, read_number<&PlusBase::check, as_is>},
    {"dof", Presence::kOptional, read_number<&PlusBase::dof, as_is>},
    {"hand", Presence::kOptional, read_number<&PlusBase::hand, as_is>},
    {"id", Presence::kOptional, read_number<&PlusBase::id, as_is>},
    {"touch_num", Presence::kOptional, read_number<&PlusBase::touch_num, as_is>},
    {"touch_sw", Presence::kOptional, read_number<&PlusBase::touch_sw, as_is>},
    {"type", Presence::kOptional, read_number<&PlusBase::type, as_is>},
    {"force", Presence::kOptional, read_flag<&PlusBase::force>},
    {"touch", Presence::kOptional, read_flag<&PlusBase::touch>},
    {"bv", Presence::kOptional, read_text<&PlusBase::bv>},
    {"hv", Presence::kOptional, read_text<&PlusBase::hv>},
    {"manu", Presence::kOptional, read_text<&PlusBase::manu>},
    {"sv", Presence::kOptional, read_text<&PlusBase::sv>},
};

// -----------------------------------------------------------------------------------------
// Top level
// -----------------------------------------------------------------------------------------

constexpr int kPlusDisabled = 1;
constexpr int kPlusOffline = 2;

// The end-effector blocks arrive either as an object or, when the device is not working, as
// a bare status text.
Read read_plus_status(const char* text, State& state)
{
    if (std::strcmp(text, "disable") == 0) {
        state.zk_plus_state = kPlusDisabled;
        return Read::kDone;
    }
    if (std::strcmp(text, "offline") == 0) {
        state.zk_plus_state = kPlusOffline;
        return Read::kDone;
    }
    zk_log_warn("[zk_realtime_arm_joint_state] parse zk_plus_state :%s\n", text);
    return Read::kFailed;
}

Read read_plus_state(const JsonNode* item, State& state)
{
    if (is(item, JsonKind::kString)) return read_plus_status(item->text, state);
    return read_members(item, state.plus_state_info, kPlusStateMembers);
}

Read read_plus_base(const JsonNode* item, State& state)
{
    if (is(item, JsonKind::kString)) return read_plus_status(item->text, state);
    return read_members(item, state.plus_base_info, kPlusBaseMembers);
}

Read read_aloha(const JsonNode* item, State& state) { return read_members(item, state.aloha_state, kAlohaMembers); }
Read read_hand(const JsonNode* item, State& state) { return read_members(item, state.handState, kHandMembers); }
Read read_lift(const JsonNode* item, State& state) { return read_members(item, state.liftState, kLiftMembers); }
Read read_expand(const JsonNode* item, State& state) { return read_members(item, state.expandState, kExpandMembers); }
Read read_joints(const JsonNode* item, State& state) { return read_members(item, state.joint_status, kJointMembers); }
Read read_waypoint(const JsonNode* item, State& state) { return read_members(item, state.waypoint, kWaypointMembers); }
// The six-axis and the one-axis sensor share the record; the later block wins.
Read read_force_sensor(const JsonNode* item, State& state)
{
    return read_members(item, state.force_sensor, kForceSensorMembers);
}

// The status is optional, but when present it must be a text.
Read read_arm_status(const JsonNode* item, State& state)
{
    if (!is(item, JsonKind::kString)) return Read::kFailed;
    state.arm_current_status = get_arm_status_from_string(item->text);
    return Read::kDone;
}

Read read_err(const JsonNode* item, State& state)
{
    if (!is(item, JsonKind::kArray) || item->child == nullptr) return Read::kWrongType;
    // err_len counts the entries stored, so a host reading err_len entries stays in bounds.
    state.err.err_len = static_cast<uint8_t>(copy_elements(item, state.err.err, as_is));
    return Read::kDone;
}

constexpr MemberRule<State> kStateMembers[] = {
    {"zk_plus_state", Presence::kOptional, read_plus_state},
    {"zk_plus_base", Presence::kOptional, read_plus_base},
    {"aloha_state", Presence::kOptional, read_aloha},
    {"arm_current_status", Presence::kOptional, read_arm_status},
    {"hand", Presence::kOptional, read_hand},
    {"lift_state", Presence::kOptional, read_lift},
    {"expand_state", Presence::kOptional, read_expand},
    {"joint_status", Presence::kRequired, read_joints},
    {"six_force_sensor", Presence::kOptional, read_force_sensor},
    {"one_force_sensor", Presence::kOptional, read_force_sensor},
    {"waypoint", Presence::kRequired, read_waypoint},
    {"err", Presence::kRequired, read_err},
};

struct StatusText {
    const char* text;
    zk_udp_arm_current_status_e status;
};

constexpr StatusText kStatusTexts[] = {
    {"idle", ZK_IDLE_E},
    {"move_L", ZK_MOVE_L_E},
    {"move_J", ZK_MOVE_J_E},
    {"move_C", ZK_MOVE_C_E},
    {"move_S", ZK_MOVE_S_E},
    {"move_through_joint", ZK_MOVE_THROUGH_JOINT_E},
    {"move_through_pose", ZK_MOVE_THROUGH_POSE_E},
    {"move_through_force_pose", ZK_MOVE_THROUGH_FORCE_POSE_E},
    {"move_through_current", ZK_MOVE_THROUGH_CURRENT_E},
    {"stop", ZK_STOP_E},
    {"slow_stop", ZK_SLOW_STOP_E},
    {"pause", ZK_PAUSE_E},
    {"current_drag", ZK_CURRENT_DRAG_E},
    {"sensor_drag", ZK_SENSOR_DRAG_E},
    {"tech_demonstration", ZK_TECH_DEMONSTRATION_E},
};

}  // namespace

zk_udp_arm_current_status_e get_arm_status_from_string(const char* status)
{
    if (status == nullptr) return ZK_IDLE_E;
    for (const StatusText& entry : kStatusTexts)
        if (std::strcmp(entry.text, status) == 0) return entry.status;
    return ZK_IDLE_E;
}

int parse_zk_realtime_arm_joint_state(const char* json_str, zk_realtime_arm_joint_state_t* realtime_arm_joint_state)
{
    if (realtime_arm_joint_state == nullptr) return -3;
    std::memset(realtime_arm_joint_state, 0, sizeof *realtime_arm_joint_state);
    // Each thread keeps its reader, sized for a full datagram from the start, so decoding a
    // datagram allocates nothing.
    thread_local JsonReader reader(kDatagramTextCapacity);
    JsonReader oversized;
    const bool retain = json_str == nullptr || strnlen(json_str, kRetainedTextCapacity + 1) <= kRetainedTextCapacity;
    const JsonNode* root = (retain ? reader : oversized).parse(json_str);
    if (root == nullptr) {
        zk_log_error("[zk_realtime_arm_joint_state] parse err\n");
        return -3;
    }
    const Read result = read_members(root, *realtime_arm_joint_state, kStateMembers);
    return result == Read::kDone ? 0 : -3;
}

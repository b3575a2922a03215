// Realtime push commands: where and how often the controller sends its state datagrams,
// and which optional blocks they carry. A successful read-back of an enabled push registers
// its port with the library's UDP listener in ZK_TRIPLE_MODE_E.
#include <atomic>
#include <cstring>
#include <memory>

#include "Application/zk_exchange.h"
#include "Application/zk_handle.h"
#include "Application/zk_udp_thread.h"
#include "Middleware/MIO_JSON.h"
#include "Middleware/log.h"
#include "Middleware/udp.h"
#include "zk_realtime.h"

namespace {

constexpr const char* kSetCaller = "zk_set_realtime_push";
constexpr const char* kGetCaller = "zk_get_realtime_push";

// Dotted IPv4 text: "1.1.1.1" to "255.255.255.255".
constexpr size_t kIpMinLength = 7;
constexpr size_t kIpMaxLength = 15;
// The controller restarts its sender before it answers a new configuration.
constexpr int kSetPushExtraWaitMs = 200;
// force_coordinate of an arm without a force sensor, and of a request that leaves it out.
constexpr int kNoForceCoordinate = -1;

// One optional block of the datagram, as the "custom" object names it. A field is sent only
// when its gate is 0 or more; "zk_plus_state" follows the sign of plus_base, not its own.
struct CustomMember {
    const char* key;
    int zk_udp_custom_config_t::*field;
    int zk_udp_custom_config_t::*gate;
};

using Custom = zk_udp_custom_config_t;
constexpr CustomMember kCustomMembers[] = {
    {"joint_speed", &Custom::joint_speed, &Custom::joint_speed},
    {"lift_state", &Custom::lift_state, &Custom::lift_state},
    {"expand_state", &Custom::expand_state, &Custom::expand_state},
    {"arm_current_status", &Custom::arm_current_status, &Custom::arm_current_status},
    {"aloha_state", &Custom::aloha_state, &Custom::aloha_state},
    {"hand", &Custom::hand_state, &Custom::hand_state},
    {"zk_plus_base", &Custom::plus_base, &Custom::plus_base},
    {"zk_plus_state", &Custom::plus_state, &Custom::plus_base},
};

// The basic edition has no force sensor; an arm the table doesn't know reads as one.
bool has_force_sensor(zk_robot_handle* handle)
{
    zk_robot_info_t info{};
    zk_get_robot_info(handle, &info);
    return info.force_type != ZK_MODEL_ZK_B_E;
}

// The "custom" object, or null when the configuration asks for no optional block.
cJSON* custom_object(const zk_udp_custom_config_t& config)
{
    cJSON* custom = MIO_JSON_CreateObject();
    for (const CustomMember& member : kCustomMembers) {
        if (config.*member.gate < 0) continue;
        MIO_JSON_AddItemToObject(custom, member.key,
                                 config.*member.field != 0 ? MIO_JSON_CreateTrue() : MIO_JSON_CreateFalse());
    }
    if (custom != nullptr && custom->child == nullptr) {
        MIO_JSON_Delete(custom);
        return nullptr;
    }
    return custom;
}

bool check_config(const zk_realtime_push_config_t& config)
{
    if (config.cycle < 1) {
        zk_log_error("[%s] set realtime push config error, invaild cycle: %d!\n", kSetCaller, config.cycle);
        return false;
    }
    if (config.port < 1) {
        zk_log_error("[%s] set realtime push config error, invaild port:%d !\n", kSetCaller, config.port);
        return false;
    }
    const size_t ip_length = strnlen(config.ip, sizeof config.ip);
    if (ip_length < kIpMinLength || ip_length > kIpMaxLength) {
        // The field need not be terminated; the log line shows what it holds.
        char shown[sizeof config.ip + 1] = {};
        std::memcpy(shown, config.ip, ip_length);
        zk_log_error("[%s] set realtime push config error, invaild ip: %s!\n", kSetCaller, shown);
        return false;
    }
    return true;
}

// Records the handle's realtime port; false when the handle has gone.
bool store_udp_port(zk_robot_handle* handle, int port)
{
    ZkTableReadGuard table(handle);
    zk_handle_t* found = table.get();
    if (found == nullptr) return false;
    // The UDP thread reads it, under the same read lock, when it releases ports at exit.
    std::atomic_ref<int>(found->udp_port).store(port);
    return true;
}

void register_port(int port)
{
    zk_udp_handle* table = gUdpHandle;
    if (table == nullptr) return;
    const int result = table->udp_add_port(table, port);
    zk_log_info("udp add port %d result: %d\n", port, result);
}

}  // namespace

void zk_realtime_arm_state_call_back(zk_realtime_arm_state_callback_ptr realtime_callback)
{
    if (realtime_callback != nullptr) zk_arm_state_callback = realtime_callback;
}

int zk_set_realtime_push(zk_robot_handle* handle, zk_realtime_push_config_t config)
{
    const bool force_sensor = has_force_sensor(handle);
    if (!check_config(config)) return -4;

    char ip[sizeof config.ip + 1] = {};
    std::memcpy(ip, config.ip, sizeof config.ip);
    JsonValue request[7] = {zk_json_command("set_realtime_push"), zk_json_bool("enable", config.enable),
                            zk_json_int("cycle", config.cycle), zk_json_int("port", config.port),
                            zk_json_str("ip", ip)};
    size_t count = 5;
    if (force_sensor && config.force_coordinate >= 0)
        request[count++] = zk_json_int("force_cordinate", config.force_coordinate);
    else if (config.force_coordinate != kNoForceCoordinate)
        zk_log_info("[%s]Force sensors are not supported! \n", kSetCaller);
    if (cJSON* custom = custom_object(config.custom_config)) request[count++] = zk_json_object("custom", custom);

    const int result = zk_exchange_set(kSetCaller, handle, request, count, "set_realtime_push", "state",
                                       m_nOutTime + kSetPushExtraWaitMs);
    if (result != 0) return result;
    // Reading the configuration back is what registers the port with the listener.
    zk_realtime_push_config_t applied{};
    return zk_get_realtime_push(handle, &applied);
}

int zk_get_realtime_push(zk_robot_handle* handle, zk_realtime_push_config_t* config)
{
    ZK_REQUIRE_ARG(kGetCaller, config);
    const bool force_sensor = has_force_sensor(handle);

    const JsonValue request[] = {zk_json_command("get_realtime_push")};
    char reply[kReplyBufferSize];
    const int length = zk_exchange_get(kGetCaller, handle, request, 1, "get_realtime_push", reply, sizeof reply,
                                       m_nOutTime);
    if (length < 1) return length;

    enum { kCycle, kPort, kIp, kEnable, kCustom, kForceCoordinate, kMembers };
    KeyValue members[kMembers] = {zk_expect(JSON_INT, "cycle"),   zk_expect(JSON_INT, "port"),
                                  zk_expect(JSON_STRING, "ip"),   zk_expect(JSON_BOOL, "enable"),
                                  zk_expect(JSON_OBJECT, "custom"), zk_expect(JSON_INT, "force_coordinate")};
    const size_t expected = force_sensor ? kMembers : kForceCoordinate;
    const int parsed = common_json_parse(kGetCaller, reply, members, expected);
    // The copy of "custom" belongs to us on every path, also when a later member failed.
    const std::unique_ptr<cJSON, void (*)(cJSON*)> custom(members[kCustom].value.sub_json, MIO_JSON_Delete);
    if (parsed != 0) return parsed;

    const int port = members[kPort].value.int_value;
    if (!store_udp_port(handle, port)) {
        zk_log_error("[%s] handle is NULL!\n", kGetCaller);
        return -1;
    }

    for (const CustomMember& member : kCustomMembers)
        config->custom_config.*member.field = MIO_JSON_GetObjectItemBool(custom.get(), member.key);
    config->cycle = members[kCycle].value.int_value;
    config->port = port;
    std::memcpy(config->ip, members[kIp].value.str_value, sizeof config->ip);
    config->enable = members[kEnable].value.bool_value;
    config->force_coordinate = force_sensor ? members[kForceCoordinate].value.int_value : kNoForceCoordinate;

    zk_log_info("current thread mode %d realtime push config.enable: %d\n", g_mode.load(), config->enable ? 1 : 0);
    if (config->enable && g_mode == ZK_TRIPLE_MODE_E) register_port(port);
    return 0;
}

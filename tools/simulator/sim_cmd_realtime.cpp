// The realtime push configuration: where the state datagrams go, how often, and with which
// optional members.
#include <arpa/inet.h>

#include "simulator/sim_commands.h"

namespace zk_sim {

namespace {

// Optional members by their wire key, as "set_realtime_push" names them in "custom".
struct CustomFlag {
    const char* key;
    bool PushCustom::*flag;
};

constexpr CustomFlag kCustomFlags[] = {
    {"joint_speed", &PushCustom::joint_speed},
    {"lift_state", &PushCustom::lift_state},
    {"expand_state", &PushCustom::expand_state},
    {"arm_current_status", &PushCustom::arm_current_status},
    {"aloha_state", &PushCustom::aloha_state},
    {"hand", &PushCustom::hand},
    {"zk_plus_base", &PushCustom::plus_base},
    {"zk_plus_state", &PushCustom::plus_state},
};

constexpr int kMaxPort = 65535;
// Cycles slower than a minute are surely a mistake.
constexpr int kMaxCycleMs = 60000;

bool valid_ip(const std::string& ip)
{
    in_addr address{};
    return inet_pton(AF_INET, ip.c_str(), &address) == 1;
}

// Takes the members a host sent; a scalar it left out keeps its value. All or nothing: a bad
// member leaves the configuration as it was.
bool read_push_config(const cJSON* frame, PushConfig* config)
{
    PushConfig next = *config;
    const cJSON* enable = cJSON_GetObjectItemCaseSensitive(frame, "enable");
    if (enable != nullptr) {
        if (!cJSON_IsBool(enable)) return false;
        next.enable = cJSON_IsTrue(enable);
    }
    if (cJSON_GetObjectItemCaseSensitive(frame, "cycle") != nullptr &&
        (!sim_read_int(frame, "cycle", &next.cycle_ms) || next.cycle_ms < 1 || next.cycle_ms > kMaxCycleMs))
        return false;
    if (cJSON_GetObjectItemCaseSensitive(frame, "port") != nullptr &&
        (!sim_read_int(frame, "port", &next.port) || next.port < 1 || next.port > kMaxPort))
        return false;
    if (cJSON_GetObjectItemCaseSensitive(frame, "ip") != nullptr) {
        next.ip = sim_read_text(frame, "ip");
        if (!valid_ip(next.ip)) return false;
    }
    // Spelled so by the clients that send it.
    if (cJSON_GetObjectItemCaseSensitive(frame, "force_cordinate") != nullptr &&
        !sim_read_int(frame, "force_cordinate", &next.force_coordinate))
        return false;
    // "custom" names the whole set of optional members: what it leaves out, or all of them
    // when it is missing, isn't sent.
    const cJSON* custom = cJSON_GetObjectItemCaseSensitive(frame, "custom");
    next.custom = PushCustom{};
    if (custom != nullptr) {
        if (!cJSON_IsObject(custom)) return false;
        for (const CustomFlag& flag : kCustomFlags) {
            const cJSON* item = cJSON_GetObjectItemCaseSensitive(custom, flag.key);
            if (item == nullptr) continue;
            if (!cJSON_IsBool(item)) return false;
            next.custom.*flag.flag = cJSON_IsTrue(item);
        }
    }
    *config = next;
    return true;
}

void set_realtime_push(SimRequest& request, cJSON* reply)
{
    cJSON_AddBoolToObject(reply, "state", read_push_config(request.frame, &request.controller.push));
}

void get_realtime_push(SimRequest& request, cJSON* reply)
{
    const PushConfig& push = request.controller.push;
    cJSON_AddNumberToObject(reply, "cycle", push.cycle_ms);
    cJSON_AddBoolToObject(reply, "enable", push.enable);
    cJSON_AddNumberToObject(reply, "port", push.port);
    cJSON_AddStringToObject(reply, "ip", push.ip.c_str());
    cJSON_AddNumberToObject(reply, "force_coordinate", push.force_coordinate);
    cJSON* custom = cJSON_AddObjectToObject(reply, "custom");
    for (const CustomFlag& flag : kCustomFlags) cJSON_AddBoolToObject(custom, flag.key, push.custom.*flag.flag);
}

constexpr SimCommand kRealtimeCommands[] = {
    {"set_realtime_push", "set_realtime_push", set_realtime_push},
    {"get_realtime_push", "get_realtime_push", get_realtime_push},
};

}  // namespace

std::span<const SimCommand> sim_realtime_commands() { return kRealtimeCommands; }

}  // namespace zk_sim

#include "simulator/sim_wire.h"

namespace zk_sim {

void sim_add_ints(cJSON* object, const char* key, const int* values, int count)
{
    cJSON_AddItemToObject(object, key, cJSON_CreateIntArray(values, count));
}

void sim_add_scaled(cJSON* object, const char* key, const Joints& values, int count, double scale)
{
    int wire[kMaxJoints] = {};
    for (int i = 0; i < count && i < kMaxJoints; ++i) wire[i] = sim_wire_int(values[i] * scale);
    sim_add_ints(object, key, wire, count);
}

void sim_add_pose(cJSON* object, const char* key, const SimPose& pose)
{
    const int wire[6] = {sim_wire_int(pose.position[0] * kMicro), sim_wire_int(pose.position[1] * kMicro),
                         sim_wire_int(pose.position[2] * kMicro), sim_wire_int(pose.euler[0] * kMilli),
                         sim_wire_int(pose.euler[1] * kMilli),    sim_wire_int(pose.euler[2] * kMilli)};
    sim_add_ints(object, key, wire, 6);
}

bool sim_read_int(const cJSON* object, const char* key, int* value)
{
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(object, key);
    if (!cJSON_IsNumber(item)) return false;
    *value = sim_wire_int(item->valuedouble);
    return true;
}

bool sim_read_numbers(const cJSON* object, const char* key, double* values, int count)
{
    const cJSON* array = cJSON_GetObjectItemCaseSensitive(object, key);
    if (!cJSON_IsArray(array) || cJSON_GetArraySize(array) != count) return false;
    int i = 0;
    for (const cJSON* item = array->child; item != nullptr; item = item->next, ++i) {
        if (!cJSON_IsNumber(item) || !std::isfinite(item->valuedouble)) return false;
        values[i] = item->valuedouble;
    }
    return true;
}

bool sim_read_pose(const cJSON* object, const char* key, SimPose* pose)
{
    double wire[6];
    if (!sim_read_numbers(object, key, wire, 6)) return false;
    for (int i = 0; i < 3; ++i) {
        pose->position[i] = wire[i] / kMicro;
        pose->euler[i] = wire[i + 3] / kMilli;
    }
    return true;
}

std::string sim_read_text(const cJSON* object, const char* key)
{
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(object, key);
    return cJSON_IsString(item) ? item->valuestring : "";
}

}  // namespace zk_sim

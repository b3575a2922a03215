#include "simulator/sim_commands.h"

#include <string_view>
#include <unordered_map>

namespace zk_sim {

namespace {

using CommandIndex = std::unordered_map<std::string_view, const SimCommand*>;

CommandIndex build_index()
{
    CommandIndex index;
    for (auto family : {sim_motion_commands(), sim_state_commands(), sim_realtime_commands()})
        for (const SimCommand& command : family) index.emplace(command.name, &command);
    return index;
}

}  // namespace

const SimCommand* sim_find_command(const std::string& name)
{
    static const CommandIndex index = build_index();
    const auto found = index.find(name);
    return found == index.end() ? nullptr : found->second;
}

JsonPtr sim_refusal(const std::string& request, const std::string& reason)
{
    JsonPtr frame(cJSON_CreateObject());
    cJSON_AddStringToObject(frame.get(), "command", kRefusalFrame);
    cJSON_AddStringToObject(frame.get(), "request", request.c_str());
    cJSON_AddStringToObject(frame.get(), "reason", reason.c_str());
    return frame;
}

JsonPtr sim_trajectory_end_frame(const TrajectoryEnd& end)
{
    JsonPtr frame(cJSON_CreateObject());
    cJSON_AddStringToObject(frame.get(), "state", "current_trajectory_state");
    cJSON_AddBoolToObject(frame.get(), "trajectory_state", end.arrived);
    cJSON_AddNumberToObject(frame.get(), "device", 0);
    cJSON_AddNumberToObject(frame.get(), "trajectory_connect", end.trajectory_connect);
    return frame;
}

}  // namespace zk_sim

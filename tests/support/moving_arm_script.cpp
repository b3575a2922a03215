#include "support/moving_arm_script.h"

#include <algorithm>

namespace zk_test {

namespace {

// Seven values cover both the joints of the largest arm and a Cartesian pose.
constexpr const char* kTrajectoryData = "[10000,20000,30000,40000,50000,60000,70000]";

}  // namespace

MovingArmScript::MovingArmScript(ScriptedController& controller)
    : controller_(controller), script_(std::make_shared<Script>())
{
    std::shared_ptr<Script> script = script_;
    controller_.always("get_arm_current_trajectory").compute([script](const std::string&) {
        return answer_query(*script);
    });
}

MovingArmScript& MovingArmScript::kinds(std::vector<std::string> kinds)
{
    std::lock_guard<std::mutex> lock(script_->mutex);
    if (!kinds.empty()) script_->kinds = std::move(kinds);
    return *this;
}

MovingArmScript& MovingArmScript::push_after_query(int query, const std::string& frame)
{
    std::lock_guard<std::mutex> lock(script_->mutex);
    script_->cues.emplace(query, frame);
    return *this;
}

Reply& MovingArmScript::accept(const std::string& command, bool accepted)
{
    return controller_.on(command).reply(R"({"command":")" + command + R"(","receive_state":)" +
                                         (accepted ? "true" : "false") + "}");
}

int MovingArmScript::queries() const
{
    std::lock_guard<std::mutex> lock(script_->mutex);
    return script_->queries;
}

std::string MovingArmScript::end_frame(bool trajectory_state, int device, int trajectory_connect)
{
    return R"({"state":"current_trajectory_state","trajectory_state":)" + std::string(trajectory_state ? "true" : "false") +
           R"(,"device":)" + std::to_string(device) + R"(,"trajectory_connect":)" + std::to_string(trajectory_connect) +
           "}";
}

std::string MovingArmScript::answer_query(Script& script)
{
    std::lock_guard<std::mutex> lock(script.mutex);
    const int query = ++script.queries;
    const size_t index = std::min(static_cast<size_t>(query - 1), script.kinds.size() - 1);
    const std::string& kind = script.kinds[index];
    std::string bytes;
    if (!kind.empty())
        bytes = R"({"command":"arm_current_trajectory","type":")" + kind + R"(","data":)" + kTrajectoryData + "}\r\n";
    auto [first, last] = script.cues.equal_range(query);
    for (auto cue = first; cue != last; ++cue) bytes += cue->second + "\r\n";
    return bytes;
}

}  // namespace zk_test

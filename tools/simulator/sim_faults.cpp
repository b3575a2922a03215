#include "simulator/sim_faults.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace zk_sim {

namespace {
// Keeps 0.1 * 10 from landing just below 1 and skipping a hit.
constexpr double kShareRounding = 1e-9;
}  // namespace

bool FaultPlan::touches(const std::string& command) const
{
    return config_.commands.empty() ||
           std::find(config_.commands.begin(), config_.commands.end(), command) != config_.commands.end();
}

bool FaultPlan::hits(long long& count, double share)
{
    if (share <= 0) return false;
    ++count;
    return std::floor(count * share + kShareRounding) > std::floor((count - 1) * share + kShareRounding);
}

FaultAction FaultPlan::next()
{
    // Every share keeps its own count, so each spreads evenly over all touched replies.
    const bool drop = hits(drops_, config_.drop_share);
    const bool malform = hits(malformed_, config_.malformed_share);
    const bool garbage = hits(garbage_, config_.garbage_share);
    if (drop) return FaultAction::drop;
    if (malform) return FaultAction::malform;
    if (garbage) return FaultAction::garbage;
    return FaultAction::answer;
}

void sim_malform_reply(cJSON* reply)
{
    // The name is "command", or "state" in frames that have no "command"; a "state" beside a
    // "command" is a result like any other.
    const char* name = cJSON_IsString(cJSON_GetObjectItemCaseSensitive(reply, "command")) ? "command" : "state";
    cJSON* member = reply->child;
    while (member != nullptr) {
        cJSON* following = member->next;
        if (std::strcmp(member->string, name) != 0) {
            if (cJSON_IsBool(member))
                // The key is copied before the old member is freed.
                cJSON_ReplaceItemInObjectCaseSensitive(reply, member->string,
                                                       cJSON_CreateString(cJSON_IsTrue(member) ? "true" : "false"));
            else
                cJSON_Delete(cJSON_DetachItemViaPointer(reply, member));
        }
        member = following;
    }
}

}  // namespace zk_sim

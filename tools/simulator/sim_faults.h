// Fault injection: how the simulator misbehaves on purpose, so that a host can test its own
// error handling. Affected replies are spread evenly (a share of 0.25 hits every fourth
// reply), so a run is reproducible without any random seed.
#pragma once

#include <cJSON.h>

#include <string>
#include <vector>

namespace zk_sim {

struct FaultConfig {
    int delay_ms = 0;              // every reply waits this long
    double drop_share = 0;         // share of replies never sent
    double malformed_share = 0;    // share answered with result members of the wrong type or missing
    double garbage_share = 0;      // share answered with a line that isn't JSON
    int close_after = 0;           // close a connection once it has had this many replies; 0 never
    std::vector<std::string> commands;  // commands the faults touch; empty means all
};

enum class FaultAction { answer, drop, malform, garbage };

// The line sent in place of a reply by the garbage fault.
constexpr const char* kGarbageLine = "#simulated fault: this line is not JSON";

class FaultPlan {
public:
    FaultPlan() = default;
    explicit FaultPlan(FaultConfig config) : config_(std::move(config)) {}

    const FaultConfig& config() const { return config_; }
    bool touches(const std::string& command) const;
    // What happens to the next reply to a touched command.
    FaultAction next();

private:
    // True for the n-th event (counted from 1) when floor(n * share) steps up at n.
    static bool hits(long long& count, double share);

    FaultConfig config_;
    long long drops_ = 0;
    long long malformed_ = 0;
    long long garbage_ = 0;
};

// Spoils a reply in place: its name member stays, so the client matches it; boolean members
// turn into text and every other member is left out, so that no parser can read a result.
void sim_malform_reply(cJSON* reply);

}  // namespace zk_sim

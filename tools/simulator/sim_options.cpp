#include "simulator/sim_options.h"

#include <charconv>
#include <cstring>
#include <string_view>

#include "simulator/sim_commands.h"
#include "simulator/sim_model.h"

namespace zk_sim {

namespace {

constexpr int kMaxPort = 65535;
constexpr int kMaxPeriodMs = 1000;
constexpr int kMaxDelayMs = 600000;

bool to_int(std::string_view text, int low, int high, int* value)
{
    int parsed = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
    if (error != std::errc() || end != text.data() + text.size() || parsed < low || parsed > high) return false;
    *value = parsed;
    return true;
}

bool to_double(std::string_view text, double low, double high, double* value)
{
    // strtod needs a terminated string; from_chars for doubles isn't in every library yet.
    const std::string copy(text);
    char* end = nullptr;
    const double parsed = std::strtod(copy.c_str(), &end);
    if (copy.empty() || end != copy.c_str() + copy.size() || !(parsed >= low && parsed <= high)) return false;
    *value = parsed;
    return true;
}

std::vector<std::string_view> split(std::string_view text)
{
    std::vector<std::string_view> parts;
    while (true) {
        const size_t comma = text.find(',');
        parts.push_back(text.substr(0, comma));
        if (comma == std::string_view::npos) return parts;
        text.remove_prefix(comma + 1);
    }
}

// One option: its name, whether it takes a value, and what it does with it.
struct OptionRule {
    const char* name;
    bool takes_value;
    bool (*apply)(std::string_view value, SimOptions* options);
};

bool set_address(std::string_view v, SimOptions* o)
{
    o->address = std::string(v);
    return !v.empty();
}
bool set_port(std::string_view v, SimOptions* o) { return to_int(v, 0, kMaxPort, &o->port); }
bool set_model(std::string_view v, SimOptions* o)
{
    o->product = std::string(v);
    SimModel model;
    std::string reason;
    return sim_model_from_product(o->product, &model, &reason);
}
bool set_joints(std::string_view v, SimOptions* o)
{
    o->joints.clear();
    for (std::string_view part : split(v)) {
        double joint = 0;
        if (!to_double(part, -720, 720, &joint)) return false;
        o->joints.push_back(joint);
    }
    return true;
}
bool set_speed_scale(std::string_view v, SimOptions* o) { return to_double(v, 0.01, 1000, &o->speed_scale); }
bool set_period(std::string_view v, SimOptions* o) { return to_int(v, 1, kMaxPeriodMs, &o->period_ms); }
bool set_delay(std::string_view v, SimOptions* o) { return to_int(v, 0, kMaxDelayMs, &o->faults.delay_ms); }
bool set_drop(std::string_view v, SimOptions* o) { return to_double(v, 0, 1, &o->faults.drop_share); }
bool set_malformed(std::string_view v, SimOptions* o) { return to_double(v, 0, 1, &o->faults.malformed_share); }
bool set_garbage(std::string_view v, SimOptions* o) { return to_double(v, 0, 1, &o->faults.garbage_share); }
bool set_close_after(std::string_view v, SimOptions* o) { return to_int(v, 0, 1 << 30, &o->faults.close_after); }
bool set_fault_commands(std::string_view v, SimOptions* o)
{
    o->faults.commands.clear();
    for (std::string_view part : split(v)) {
        if (part.empty()) return false;
        o->faults.commands.emplace_back(part);
    }
    return true;
}
bool set_verbose(std::string_view, SimOptions* o)
{
    o->verbose = true;
    return true;
}
bool set_quiet(std::string_view, SimOptions* o)
{
    o->quiet = true;
    return true;
}

constexpr OptionRule kOptions[] = {
    {"--address", true, set_address},
    {"--port", true, set_port},
    {"--model", true, set_model},
    {"--joints", true, set_joints},
    {"--speed-scale", true, set_speed_scale},
    {"--period", true, set_period},
    {"--delay", true, set_delay},
    {"--drop", true, set_drop},
    {"--malformed", true, set_malformed},
    {"--garbage", true, set_garbage},
    {"--close-after", true, set_close_after},
    {"--fault-commands", true, set_fault_commands},
    {"--verbose", false, set_verbose},
    {"--quiet", false, set_quiet},
};

}  // namespace

bool sim_parse_options(int argc, const char* const* argv, SimOptions* options, std::string* error, bool* help)
{
    *help = false;
    for (int i = 1; i < argc; ++i) {
        std::string_view argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            *help = true;
            return true;
        }
        std::string_view name = argument;
        std::string_view value;
        bool inline_value = false;
        if (const size_t equals = argument.find('='); equals != std::string_view::npos) {
            name = argument.substr(0, equals);
            value = argument.substr(equals + 1);
            inline_value = true;
        }
        const OptionRule* rule = nullptr;
        for (const OptionRule& candidate : kOptions)
            if (name == candidate.name) rule = &candidate;
        if (rule == nullptr) {
            *error = "unknown option " + std::string(argument);
            return false;
        }
        if (rule->takes_value && !inline_value) {
            if (i + 1 >= argc) {
                *error = std::string(name) + " needs a value";
                return false;
            }
            value = argv[++i];
        }
        if (!rule->takes_value && inline_value) {
            *error = std::string(name) + " takes no value";
            return false;
        }
        if (!rule->apply(value, options)) {
            *error = "bad value for " + std::string(name) + ": \"" + std::string(value) + "\"";
            return false;
        }
    }
    return true;
}

std::string sim_usage()
{
    std::string text = R"(usage: zk_simulator [options]

A simulated arm controller. It listens for TCP connections, answers one JSON line per
command as a controller does, moves a simulated arm, and sends the realtime state by UDP
once a host has asked for it with "set_realtime_push". The port it listens on is printed
on standard output, alone on the first line; logs go to standard error. Stop it with
SIGINT or SIGTERM.

Arm:
  --address ADDR       listen address (default 127.0.0.1)
  --port N             listen port (default 8080; 0 takes a free port)
  --model TEXT         product text the arm reports (default AX61-B): )";
    text += sim_model_names();
    text += R"(
  --joints A,B,...     initial joint angles in degrees, one per joint (default all 0)
  --speed-scale X      multiplies every motion speed (default 1; 10 runs ten times faster)
  --period MS          control period of the arm in milliseconds (default 10)

Fault injection, so that a host can test its error handling:
  --delay MS           every reply waits MS milliseconds
  --drop SHARE         a share (0 to 1) of replies is never sent: the client times out (-2)
  --malformed SHARE    a share of replies keeps its frame name but its result members are
                       missing, or text where a boolean belongs: the client can't read it
                       (-3; commands whose own parser reads the reply may report -1)
  --garbage SHARE      a share of replies is a line that isn't JSON at all: no client can
                       match it to its command, so it ends as a time-out (-2)
  --close-after N      close a connection once N frames have come in on it and been
                       answered (a new library connection sends 10 queries first)
  --fault-commands A,B the faults above touch only these commands (default every one)
  Shares are spread evenly: 0.25 hits every fourth reply, so a run is reproducible.

Logging:
  --verbose            log every frame received and sent
  --quiet              log errors only
  --help               this text

Lines end with CR LF; a line ending in a bare LF is taken as soon as it holds a whole JSON
object, which is handy when typing at the simulator with a tool such as netcat. A line
longer than 64 KiB is dropped. A line that isn't JSON, has no "command" text, or names a
command the simulator doesn't know is logged and answered with a refusal frame:
  {"command":")";
    text += kRefusalFrame;
    text += R"(","request":"<command or empty>","reason":"<why>"}
No library call waits for that name, so a library client sees its own time-out (-2).

A planned move is answered at once ("receive_state"), and its end is pushed as a
"current_trajectory_state" frame (device 0) to the connection that sent it. Moves queue up
behind each other; stop, slow stop, pause, continue and delete act on the running one.
)";
    return text;
}

}  // namespace zk_sim

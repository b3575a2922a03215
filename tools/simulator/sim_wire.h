// Reading requests and writing replies: the wire's integer scales and small cJSON helpers.
#pragma once

#include <cJSON.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>

#include "simulator/sim_kinematics.h"
#include "simulator/sim_model.h"

namespace zk_sim {

struct JsonDelete {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDelete>;

// Wire scales: joint angles in degrees, Euler angles in radians and most physical values
// are sent times 1000, positions in metres times 1000000. Truncated toward zero, saturated.
constexpr double kMilli = 1000.0;
constexpr double kMicro = 1000000.0;

inline int sim_wire_int(double value)
{
    if (!std::isfinite(value)) return 0;
    constexpr double kHigh = std::numeric_limits<int>::max();
    constexpr double kLow = std::numeric_limits<int>::min();
    return static_cast<int>(std::trunc(std::fmax(kLow, std::fmin(kHigh, value))));
}

// Adds an array of `count` integers.
void sim_add_ints(cJSON* object, const char* key, const int* values, int count);
// Adds the first `count` values, each times `scale`.
void sim_add_scaled(cJSON* object, const char* key, const Joints& values, int count, double scale);
// Adds a pose as [x, y, z, rx, ry, rz] on the wire scales.
void sim_add_pose(cJSON* object, const char* key, const SimPose& pose);

// An integer member; false when missing or not a number.
bool sim_read_int(const cJSON* object, const char* key, int* value);
// An array of exactly `count` numbers, as doubles; false otherwise.
bool sim_read_numbers(const cJSON* object, const char* key, double* values, int count);
// A pose array [x, y, z, rx, ry, rz] on the wire scales.
bool sim_read_pose(const cJSON* object, const char* key, SimPose* pose);
// A text member, or "" when missing or not text.
std::string sim_read_text(const cJSON* object, const char* key);

}  // namespace zk_sim

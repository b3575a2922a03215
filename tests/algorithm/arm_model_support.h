// An arm model a parameterised algorithm test runs on, how it is selected, and frames away
// from the identity, shared by the inverse kinematics suites.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "libalgo.h"

namespace algo_test {

struct ArmModel {
    RobotType type;
    SensorType sensor;
    const char* name;
};

inline std::string model_name(const testing::TestParamInfo<ArmModel>& info) { return info.param.name; }

inline void use_model(const ArmModel& model)
{
    libalgo_init();
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(model.type, model.sensor), 0);
}

// Install, tool and work frames away from the identity, so that their removal is tested.
inline void use_frames()
{
    const Euler install{0.3f, -0.2f, 0.5f};
    libalgo_set_robot_install_angle(&install);
    const Coord tool{0.01f, -0.02f, 0.08f, 0.1f, 0.2f, -0.3f};
    libalgo_set_tool_cs_params(&tool);
    const Coord work{0.2f, -0.1f, 0.05f, 0.0f, 0.1f, 0.7f};
    libalgo_set_work_cs_params(&work);
}

}  // namespace algo_test

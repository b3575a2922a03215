// Scales between physical values and the integers that travel on the wire.
//
// Conversion truncates towards zero. A value the wire integer cannot hold (NaN, infinite,
// beyond the int range) becomes INT_MIN, the value the processor's own truncating
// conversion gives on the platforms the controller was built for; the conversion is spelt
// out here so that it is defined behaviour on every compiler.
#pragma once

#include <climits>
#include <cmath>

constexpr int kWireOutOfRange = INT_MIN;

inline int zk_wire_truncate(double value)
{
    if (!(value > -2147483649.0 && value < 2147483648.0)) return kWireOutOfRange;
    return static_cast<int>(value);
}

// Joint angle in degrees: widened to double, times 1000.
inline int zk_wire_joint(float degrees) { return zk_wire_truncate(static_cast<double>(degrees) * 1000.0); }
// Position in metres: times 1000000 in single precision.
inline int zk_wire_position(float metres) { return zk_wire_truncate(metres * 1000000.0f); }
// Euler angle in radians: times 1000 in single precision.
inline int zk_wire_euler(float radians) { return zk_wire_truncate(radians * 1000.0f); }
// Quaternion component: times 1000000 in single precision.
inline int zk_wire_quat(float component) { return zk_wire_truncate(component * 1000000.0f); }
// Payload, line and angular speed and acceleration: times 1000 in single precision.
inline int zk_wire_milli(float value) { return zk_wire_truncate(value * 1000.0f); }
// Force: times 10 in single precision.
inline int zk_wire_force(float value) { return zk_wire_truncate(value * 10.0f); }

// Poses and joint vectors as the integer arrays that travel on the wire.
#pragma once

#include "Application/zk_wire.h"
#include "zk_types.h"

constexpr int kWireMaxJoints = 7;  // the largest arm has seven joints

// "joint": one angle per joint, degrees x 1000.
struct ZkWireJoints {
    int value[kWireMaxJoints];
    int count;
};

// count is clamped to the array's capacity; joints must hold count values.
inline ZkWireJoints zk_wire_joints(const float* joints, int count)
{
    ZkWireJoints wire{};
    wire.count = count < 0 ? 0 : (count > kWireMaxJoints ? kWireMaxJoints : count);
    for (int i = 0; i < wire.count; ++i) wire.value[i] = zk_wire_joint(joints[i]);
    return wire;
}

// "pose": x, y, z in metres x 1000000, then rx, ry, rz in radians x 1000.
struct ZkWirePose {
    int value[6];
};

inline ZkWirePose zk_wire_pose(const zk_pose_t& pose)
{
    return {{zk_wire_position(pose.position.x), zk_wire_position(pose.position.y), zk_wire_position(pose.position.z),
             zk_wire_euler(pose.euler.rx), zk_wire_euler(pose.euler.ry), zk_wire_euler(pose.euler.rz)}};
}

// "pose_quat": x, y, z in metres, then w, x, y, z of the quaternion, all x 1000000.
struct ZkWirePoseQuat {
    int value[7];
};

inline ZkWirePoseQuat zk_wire_pose_quat(const zk_pose_t& pose)
{
    return {{zk_wire_position(pose.position.x), zk_wire_position(pose.position.y), zk_wire_position(pose.position.z),
             zk_wire_quat(pose.quaternion.w), zk_wire_quat(pose.quaternion.x), zk_wire_quat(pose.quaternion.y),
             zk_wire_quat(pose.quaternion.z)}};
}

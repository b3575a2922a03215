// The wait of a blocking motion command: after the controller has accepted a move or a step,
// wait for its "current_trajectory_state" frame while polling the planned trajectory.
#pragma once

#include "zk_motion.h"

// Reply buffer of motion commands and of their end-frame waits.
constexpr int kMoveReplyBufferSize = 256;

enum class ZkWaitLoop {
    // Moves: each round first looks for the end frame, then queries the trajectory.
    kWatchFirst,
    // Joint moves to a pose and steps: each round queries first; the end frame is awaited
    // only once nothing is planned any more.
    kQueryFirst,
};

// How one blocking command waits for its arrival.
struct ZkMotionWait {
    const char* caller;                  // name in the "current device" line
    zk_arm_current_trajectory_e wanted;  // the planning kind this command makes
    ZkWaitLoop loop;
    bool pause_while_wanted;  // sleep between queries while the wanted kind runs
};

// What a blocking command does once the controller accepted it, by thread mode: the wait
// loops in the threaded modes, the single-mode wait with `block` rounds, and for a mode the
// library doesn't know, the length of the accepted exchange.
int zk_motion_await_arrival(zk_robot_handle* handle, const ZkMotionWait& wait, int block, int exchange_length);

// The wait loops of the threaded modes. 0 arrived; 1 the motion failed; -4 a trajectory of
// another device ended; a parse failure or the sixth failed query's own result.
int zk_motion_wait_loop(zk_robot_handle* handle, const ZkMotionWait& wait);

// The single-mode wait, zk_movecmd_singlemode_parse, is exported: see zk_motion.h.

// Receive side of the threaded modes: the store of frames a waiting command takes from.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "Application/zk_handle.h"
#include "zk_events.h"

// What the next scan of a store drops: 1 the next "current_trajectory_state" frame, 2 the
// next "program_run_finish" frame. Process-wide and one deep.
enum : int { kEventFlagNone = 0, kEventFlagDropTrajectoryEnd = 1, kEventFlagDropProgramFinish = 2 };

struct zk_event_listener_t {
    std::atomic<zk_event_callback_ptr> event_callback{nullptr};
    std::atomic<int> flag{kEventFlagNone};
};

extern zk_event_listener_t event_listener;

// Waits, until the deadline, for a frame named command in the connection's store; copies it
// into buf (at most buf_len - 1 bytes, so a zeroed buffer stays terminated) and returns its
// length, or -1 when none came.
int zk_fifo_wait(zk_handle_t* handle, const char* command, uint8_t* buf, int buf_len,
                 std::chrono::steady_clock::time_point deadline);

int get_str_from_fifo(zk_socket_fifo_handle* handle, const char* command, char* str, int str_len);

// Receive side of the threaded modes: the receive thread that turns each connection's byte
// stream into frames, the store it files them in, and the waits that take them out.
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

// The eviction search's process-wide record of the lowest slot time seen, never reset.
extern std::atomic<int> min_time;
extern std::atomic<int> min_index;

// Classifies one frame (text of str_len bytes, no terminator) and files it in the
// connection's store, firing the event callback for event frames. Called by the receive
// thread with the table's read lock held.
void add_str_to_fifo(zk_handle_t* handle, const char* str, int str_len);

// Takes the first frame named command, in slot order. Copies at most str_len - 1 bytes of
// its text into str and returns its length, or -1 when none is there (or when the scan
// dropped an event frame the listener's flag asked it to drop).
int get_str_from_fifo(zk_socket_fifo_handle* handle, const char* command, char* str, int str_len);

// Waits, until the deadline, for a frame named command in the connection's store, waking as
// soon as one is filed; copies it into buf as get_str_from_fifo does and returns its
// length, or -1 when none came.
int zk_fifo_wait(zk_handle_t* handle, const char* command, uint8_t* buf, int buf_len,
                 std::chrono::steady_clock::time_point deadline);

// The receive thread's body: returns once should_exit is set.
int thread_socket_receive(void* arg);

// Makes the receive thread look at the table again at once (a connection was added, or
// the library is stopping).
void zk_receive_thread_wake();

// The pipe that wakes the receive thread; created before the thread starts, closed after it ended.
int zk_receive_wake_pipe(int fds[2]);
void zk_receive_wake_pipe_close(int fds[2]);

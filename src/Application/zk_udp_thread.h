// The realtime listener thread of ZK_TRIPLE_MODE_E: waits on every registered UDP port at
// once, decodes each datagram and hands it to the host's realtime callback.
#pragma once

#include <atomic>

#include "zk_realtime.h"

extern std::atomic<zk_realtime_arm_state_callback_ptr> zk_arm_state_callback;

// The thread's body; arg is its private stop request. Returns 0 once stopped, after
// releasing the ports.
unsigned thread_udp_receive(void* arg);

// Creates the port table on first use and starts the listener (stopping one still running);
// 0, or -1 with "Error creating udp recv thread: %d\n" logged.
int zk_udp_thread_start();
// Asks the listener to stop and waits for it, within a bound, so that it no longer touches
// library memory; a listener stuck in a host callback past the bound is left to end alone.
void zk_udp_thread_stop();

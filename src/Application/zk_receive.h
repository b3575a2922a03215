// Receive side of the threaded modes: the store of frames a waiting command takes from.
#pragma once

#include <chrono>
#include <cstdint>

#include "Application/zk_handle.h"

// Waits, until the deadline, for a frame named command in the connection's store; copies it
// into buf (at most buf_len - 1 bytes, so a zeroed buffer stays terminated) and returns its
// length, or -1 when none came.
int zk_fifo_wait(zk_handle_t* handle, const char* command, uint8_t* buf, int buf_len,
                 std::chrono::steady_clock::time_point deadline);

int get_str_from_fifo(zk_socket_fifo_handle* handle, const char* command, char* str, int str_len);

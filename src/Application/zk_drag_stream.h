// The drag-teach point stream: while a drag-teach save runs, the controller sends one frame
// per recorded point, and the receive path appends each to the open save file.
#pragma once

#include <atomic>
#include <cstdio>

#include "Application/zk_handle.h"

extern std::atomic<int> drag_teach_count;
extern std::atomic<int> drag_teach_total_num;
extern std::atomic<int> drag_teach_save_start;     // a point frame has arrived
extern std::atomic<int> drag_teach_save_state;     // an error occurred
extern std::atomic<int> drag_teach_save_complete;  // the stream ended

// The save file, shared between the command that opens and closes it and the receive path
// that writes to it; every access goes through these functions.
bool drag_teach_file_open(const char* path);
void drag_teach_file_close();
bool drag_teach_file_is_open();
// Writes text formatted with format (which must consume exactly one %s); false when no file is open.
bool drag_teach_file_write(const char* format, const char* text);

// Single-thread path: a frame with a "point" member and no name arrived in the assembler.
void drag_teach_single_mode_point(const zk_handle_t* handle, const char* frame, int length);
// Single-thread path: a wait round read nothing.
void drag_teach_single_mode_idle_round();

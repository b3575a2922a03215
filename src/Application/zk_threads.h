// The library's own threads: started by zk_init for the threaded modes, stopped by zk_destory.
#pragma once

#include "zk_types.h"

// Starts the threads a mode needs (stopping any left from an earlier start); 0, or -1 when
// one cannot start.
int zk_threads_start(zk_thread_mode_e mode);
// Makes every library thread end and joins it; should_exit is already set.
void zk_threads_stop();

// Library threads mark themselves, so that host callbacks running on them can be kept from
// calls that would wait for the thread itself (create, delete, destroy).
void zk_mark_library_thread();
bool zk_on_library_thread();

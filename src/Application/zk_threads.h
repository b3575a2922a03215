// The library's own threads: started by zk_init for the threaded modes, stopped by zk_destory.
#pragma once

#include "zk_types.h"

// Starts the threads a mode needs; 0, or -1 when one cannot start.
int zk_threads_start(zk_thread_mode_e mode);
// Asks every library thread to end and waits until none touches library memory.
void zk_threads_stop();

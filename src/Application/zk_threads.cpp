#include "Application/zk_threads.h"

int zk_threads_start(zk_thread_mode_e mode)
{
    (void)mode;
    return 0;
}

void zk_threads_stop() {}

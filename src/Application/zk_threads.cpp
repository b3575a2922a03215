#include "Application/zk_threads.h"

#include "Application/zk_udp_thread.h"

int zk_threads_start(zk_thread_mode_e mode)
{
    if (mode == ZK_TRIPLE_MODE_E && zk_udp_thread_start() != 0) return -1;
    return 0;
}

void zk_threads_stop() { zk_udp_thread_stop(); }

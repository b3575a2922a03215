#include "Application/zk_threads.h"

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <thread>

#include "Application/zk_handle.h"
#include "Application/zk_receive.h"
#include "Application/zk_udp_thread.h"
#include "Middleware/log.h"

namespace {

thread_local bool tl_library_thread = false;

std::thread g_receive_thread;
int g_receive_wake[2] = {-1, -1};

bool start_receive_thread(const char* failure_format)
{
    if (zk_receive_wake_pipe(g_receive_wake) != 0) {
        zk_log_error(failure_format, errno);
        return false;
    }
    try {
        const auto wake_fd = static_cast<intptr_t>(g_receive_wake[0]);
        g_receive_thread = std::thread([wake_fd] { thread_socket_receive(reinterpret_cast<void*>(wake_fd)); });
    } catch (const std::system_error& error) {
        zk_log_error(failure_format, error.code().value());
        zk_receive_wake_pipe_close(g_receive_wake);
        return false;
    }
    return true;
}

void stop_receive_thread()
{
    if (!g_receive_thread.joinable()) return;
    zk_receive_thread_wake();
    g_receive_thread.join();
    zk_receive_wake_pipe_close(g_receive_wake);
}

}  // namespace

void zk_mark_library_thread() { tl_library_thread = true; }
bool zk_on_library_thread() { return tl_library_thread; }

int zk_threads_start(zk_thread_mode_e mode)
{
    // A second start replaces the threads of the first.
    if (g_receive_thread.joinable()) {
        should_exit = true;
        zk_threads_stop();
        should_exit = false;
    }
    switch (mode) {
    case ZK_TRIPLE_MODE_E:
        if (!start_receive_thread("Error creating recv thread: %d\n")) return -1;
        return zk_udp_thread_start();
    case ZK_DUAL_MODE_E: return start_receive_thread("Error creating thread: %d\n") ? 0 : -1;
    default: return 0;
    }
}

void zk_threads_stop()
{
    stop_receive_thread();
    zk_udp_thread_stop();
}
